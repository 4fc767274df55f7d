#include "nodevik/objectdictionary.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/childprocess.h"

namespace {

constexpr unsigned int not_valid = 0x80000000;
constexpr std::uint64_t counting = 0x8877665544332211;

const std::string faulty_pointer = "Are you sure that you havent got faulty pointer !\n";

// A table on the heap, where such a large object belongs.
class ObjectDictionary : public testing::Test {
protected:
    // What `body` prints when it is expected to carry on.
    std::string printed(const std::function<void(CObjectDictionary&)>& body) {
        const ChildResult result = run_in_child([&] { body(dictionary); });
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "");
        return result.out;
    }

    // What `body` prints when it is expected to end the process with status 1.
    std::string last_words(const std::function<void(CObjectDictionary&)>& body) {
        const ChildResult result = run_in_child([&] {
            body(dictionary);
            std::printf("carried on");
        });
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.err, "");
        return result.out;
    }

    // The variable mappings of the TPDO record of COB-ID 0x181 and the RPDO record of COB-ID 0x201.
    variable_mappings& tpdo() { return dictionary.tpdoinf[tpdo_number].varmap; }
    variable_mappings& rpdo() { return dictionary.rpdoinf[rpdo_number].varmap; }

    static constexpr unsigned int tpdo_number = 0x81;
    static constexpr unsigned int rpdo_number = 0x101;

private:
    std::unique_ptr<CObjectDictionary> owned_ = std::make_unique<CObjectDictionary>();

protected:
    CObjectDictionary& dictionary = *owned_;
};

using ObjectDictionaryConstruction = ObjectDictionary;
using ObjectDictionaryNumbers = ObjectDictionary;
using ObjectDictionaryGetPdoInfo = ObjectDictionary;
using ObjectDictionaryMapref = ObjectDictionary;
using ObjectDictionaryMapbitref = ObjectDictionary;
using ObjectDictionaryMapcopy = ObjectDictionary;
using ObjectDictionaryMapbitcopy = ObjectDictionary;
using ObjectDictionaryCreateTpdoData = ObjectDictionary;
using ObjectDictionaryCreateRpdoData = ObjectDictionary;
using ObjectDictionaryRpdoChanged = ObjectDictionary;
using ObjectDictionaryObjects = ObjectDictionary;

// An address that is only a small number.
void* small_address(std::uintptr_t number) {
    return reinterpret_cast<void*>(number);  // NOLINT(performance-no-int-to-ptr)
}

// Appends an entry without any check.
void add_entry(variable_mappings& map, void* variable, unsigned int pos, unsigned int type) {
    variable_mappings::entry& entry = map.mappings[map.num_of_mappings++];
    entry.var_address = variable;
    entry.pos = static_cast<unsigned char>(pos);
    entry.type = static_cast<unsigned char>(type);
}

}  // namespace

TEST_F(ObjectDictionaryConstruction, GivesEachRecordItsCobidNotValidAndNoMappings) {
    for (unsigned int n = 0; n < 512; ++n) {
        EXPECT_EQ(dictionary.tpdoinf[n].commparam.cobid, dictionary.tpdonum_to_cobid(n) | not_valid);
        EXPECT_EQ(dictionary.rpdoinf[n].commparam.cobid, dictionary.rpdonum_to_cobid(n) | not_valid);
        EXPECT_EQ(dictionary.tpdoinf[n].pdomap.num_of_mappings, 0U);
        EXPECT_EQ(dictionary.tpdoinf[n].varmap.num_of_mappings, 0U);
        EXPECT_EQ(dictionary.rpdoinf[n].pdomap.num_of_mappings, 0U);
        EXPECT_EQ(dictionary.rpdoinf[n].varmap.num_of_mappings, 0U);
    }
    EXPECT_EQ(dictionary.tpdoinf[0].commparam.cobid, 0x80000181U);
    EXPECT_EQ(dictionary.rpdoinf[0].commparam.cobid, 0x80000201U);
}

TEST_F(ObjectDictionaryConstruction, SetsTheSyncCobid) {
    EXPECT_EQ(dictionary.ob_1005_COBID_SYNC_message, 0x80U);
}

TEST_F(ObjectDictionaryConstruction, MembersStandInTheirOrder) {
    const std::vector<const void*> members = {&dictionary.tpdoinf,
                                              &dictionary.rpdoinf,
                                              &dictionary.read,
                                              &dictionary.od,
                                              &dictionary.obaddress,
                                              &dictionary.obsize,
                                              &dictionary.ob_1005_COBID_SYNC_message};
    EXPECT_TRUE(std::is_sorted(members.begin(), members.end()));
    EXPECT_EQ(members[0], &dictionary);

    const pdo_information& record = dictionary.tpdoinf[0];
    const std::vector<const void*> fields = {&record.commparam.cobid,
                                             &record.commparam.event_timer,
                                             &record.commparam.inhibit_time,
                                             &record.commparam.transmission_type,
                                             &record.commparam.SYNC_start_value,
                                             &record.pdomap.num_of_mappings,
                                             &record.pdomap.mappings[0].index,
                                             &record.pdomap.mappings[0].subindex,
                                             &record.pdomap.mappings[0].length_in_bits,
                                             &record.pdomap.mappings[63].index,
                                             &record.varmap.pdodata,
                                             &record.varmap.old_pdodata,
                                             &record.varmap.length,
                                             &record.varmap.pdo_updated,
                                             &record.varmap.pdo_active,
                                             &record.varmap.num_of_mappings,
                                             &record.varmap.mappings[0].var_address,
                                             &record.varmap.mappings[0].pos,
                                             &record.varmap.mappings[0].len,
                                             &record.varmap.mappings[0].type,
                                             &record.varmap.mappings[63].var_address};
    EXPECT_TRUE(std::is_sorted(fields.begin(), fields.end()));
}

// Numbers and COB-IDs

TEST(ObjectDictionaryMembers, AreThoseOfAnObject) {
    using Number = unsigned int (CObjectDictionary::*)(unsigned int);
    const std::vector<Number> numbers = {&CObjectDictionary::tpdonum_to_cobid,
                                         &CObjectDictionary::rpdonum_to_cobid,
                                         &CObjectDictionary::cobid_to_pdonum};
    int (CObjectDictionary::*const info)(unsigned int, pdo_information*) = &CObjectDictionary::get_pdo_info;
    int (CObjectDictionary::*const object)(unsigned int, unsigned int) = &CObjectDictionary::gobject;
    const auto dictionary = std::make_unique<CObjectDictionary>();
    EXPECT_EQ(((*dictionary).*numbers[0])(0), 0x181U);
    EXPECT_EQ(((*dictionary).*numbers[1])(0), 0x201U);
    EXPECT_EQ(((*dictionary).*numbers[2])(0x181), 0x81U);
    EXPECT_EQ(((*dictionary).*info)(0x181, nullptr), 0);
    EXPECT_NE(object, nullptr);
}

TEST_F(ObjectDictionaryNumbers, FollowTheirFormulas) {
    for (unsigned int n = 0; n < 1024; ++n) {
        EXPECT_EQ(dictionary.tpdonum_to_cobid(n), ((n % 128) + 385) | (n * 2 % 1024 / 256 * 256));
        EXPECT_EQ(dictionary.rpdonum_to_cobid(n), ((n % 128) + 513) | (n * 2 % 1024 / 256 * 256));
    }
    for (unsigned int cid = 0; cid < 0x800; ++cid) {
        EXPECT_EQ(dictionary.cobid_to_pdonum(cid), (cid % 128) | (cid / 2 % 512 / 128 * 128));
    }
}

TEST_F(ObjectDictionaryNumbers, HaveTheseValues) {
    EXPECT_EQ(dictionary.tpdonum_to_cobid(0), 0x181U);
    EXPECT_EQ(dictionary.rpdonum_to_cobid(0), 0x201U);
    EXPECT_EQ(dictionary.tpdonum_to_cobid(126), 0x1FFU);
    EXPECT_EQ(dictionary.tpdonum_to_cobid(127), 0x200U);
    EXPECT_EQ(dictionary.tpdonum_to_cobid(0x80), 0x181U);
    EXPECT_EQ(dictionary.tpdonum_to_cobid(0x100), 0x381U);
    EXPECT_EQ(dictionary.tpdonum_to_cobid(0x180), 0x381U);
    EXPECT_EQ(dictionary.rpdonum_to_cobid(0x80), 0x301U);
    EXPECT_EQ(dictionary.cobid_to_pdonum(0x181), 0x81U);
    EXPECT_EQ(dictionary.cobid_to_pdonum(0x201), 0x101U);
    EXPECT_EQ(dictionary.cobid_to_pdonum(0x3FF), 0x1FFU);
}

TEST_F(ObjectDictionaryGetPdoInfo, RefusesCobidsWithoutARecord) {
    for (const unsigned int cid : {0U, 0x180U, 0x400U, 0x80000181U}) {
        EXPECT_EQ(printed([&](CObjectDictionary& d) {
                      pdo_information info;
                      std::printf("%d", d.get_pdo_info(cid, &info));
                  }),
                  "get_pdo_info: Wrong PDO cobid\n-1");
    }
}

TEST_F(ObjectDictionaryGetPdoInfo, AcceptsAllOthersSilently) {
    EXPECT_EQ(printed([](CObjectDictionary& d) {
                  pdo_information info;
                  int sum = 0;
                  for (unsigned int cid = 0x181; cid <= 0x3FF; ++cid) {
                      sum += d.get_pdo_info(cid, &info);
                  }
                  std::printf("%d", sum);
              }),
              "0");
}

TEST_F(ObjectDictionaryGetPdoInfo, KeepsTheRecordToItself) {
    pdo_information info;
    info.commparam.cobid = 77;
    EXPECT_EQ(dictionary.get_pdo_info(0x181, &info), 0);
    EXPECT_EQ(info.commparam.cobid, 77U);
    EXPECT_EQ(dictionary.get_pdo_info(0x181, nullptr), 0);
}

// Byte mappings

namespace {

struct ByteType {
    PDO::maptype type;
    unsigned int size;
};

constexpr ByteType byte_types[] = {{PDO::char1, 1},     {PDO::short2, 2},    {PDO::int4, 4},
                                   {PDO::uchar1, 1},    {PDO::ushort2, 2},   {PDO::uint4, 4},
                                   {PDO::longlong8, 8}, {PDO::ulonglong8, 8}};

}  // namespace

TEST_F(ObjectDictionaryMapref, RecordsEveryTypeAtEveryPositionThatFits) {
    unsigned long long variable = 0;
    for (const auto& [type, size] : byte_types) {
        for (unsigned int pos = 0; pos + size <= 8; ++pos) {
            tpdo().num_of_mappings = 0;
            dictionary.mapref(0x181, pos, type, &variable);
            ASSERT_EQ(tpdo().num_of_mappings, 1U);
            EXPECT_EQ(tpdo().mappings[0].var_address, &variable);
            EXPECT_EQ(tpdo().mappings[0].pos, pos);
            EXPECT_EQ(tpdo().mappings[0].len, size);
            EXPECT_EQ(tpdo().mappings[0].type, type);
            EXPECT_EQ(tpdo().length, 0U);
        }
    }
}

TEST_F(ObjectDictionaryMapref, TakesTheRecordOfTheCobid) {
    unsigned char variable = 0;
    dictionary.mapref(0x181, 0, PDO::uchar1, &variable);
    dictionary.mapref(0x201, 0, PDO::uchar1, &variable);
    dictionary.mapref(0x3FF, 0, PDO::uchar1, &variable);
    dictionary.mapref(0x37F, 0, PDO::uchar1, &variable);
    for (unsigned int n = 0; n < 512; ++n) {
        EXPECT_EQ(dictionary.tpdoinf[n].varmap.num_of_mappings, n == 0x81 || n == 0x1FF ? 1U : 0U) << n;
        EXPECT_EQ(dictionary.rpdoinf[n].varmap.num_of_mappings, n == 0x101 || n == 0x1FF ? 1U : 0U) << n;
    }
}

TEST_F(ObjectDictionaryMapref, EndsAtAWrongCobidBeforeAllElse) {
    EXPECT_EQ(printed([](CObjectDictionary& d) {
                  d.mapref(0x180, 99, PDO::none, nullptr);
                  d.mapref(0x400, 99, PDO::none, nullptr);
              }),
              "get_pdo_info: Wrong PDO cobid\nget_pdo_info: Wrong PDO cobid\n");
}

TEST_F(ObjectDictionaryMapref, RefusesASmallAddress) {
    const std::string expected = "Mapping of an variable address smaller than 10000 !\n" + faulty_pointer;
    EXPECT_EQ(last_words([](CObjectDictionary& d) { d.mapref(0x181, 0, PDO::uchar1, small_address(9999)); }),
              expected);
    EXPECT_EQ(last_words([](CObjectDictionary& d) { d.mapref(0x181, 99, PDO::none, nullptr); }), expected);
    EXPECT_EQ(printed([](CObjectDictionary& d) { d.mapref(0x181, 0, PDO::uchar1, small_address(10000)); }),
              "");
}

TEST_F(ObjectDictionaryMapref, RefusesOtherTypes) {
    int variable = 0;
    EXPECT_EQ(last_words([&](CObjectDictionary& d) { d.mapref(0x181, 99, PDO::none, &variable); }),
              "PDO::mapref failed: wrong type 'none' \n");
    for (const int type : {1, 2, 3, 12, 300, -1}) {
        EXPECT_EQ(last_words([&](CObjectDictionary& d) {
                      d.mapref(0x181, 99, static_cast<PDO::maptype>(type), &variable);
                  }),
                  "PDO::mapref failed: Unknown Type \n")
            << type;
    }
}

TEST_F(ObjectDictionaryMapref, IgnoresTheSixtyFifthMappingWithAMessage) {
    EXPECT_EQ(printed([](CObjectDictionary& d) {
                  unsigned char variable = 0;
                  for (int i = 0; i < 64; ++i) {
                      d.mapbitcopy(0x181, 0, variable);
                  }
                  d.mapcopy(0x181, 8, variable);
                  std::printf("%u", d.tpdoinf[0x81].varmap.num_of_mappings);
              }),
              "PDO::mapref COBID=00x181 Maximum number of mappings done\n64");
}

TEST_F(ObjectDictionaryMapref, ChecksTheTypeBeforeTheNumberOfMappings) {
    EXPECT_EQ(last_words([](CObjectDictionary& d) {
                  unsigned char variable = 0;
                  for (int i = 0; i < 64; ++i) {
                      d.mapbitcopy(0x181, 0, variable);
                  }
                  d.mapref(0x181, 0, PDO::bit1, &variable);
              }),
              "PDO::mapref failed: Unknown Type \n");
}

TEST_F(ObjectDictionaryMapref, IgnoresBytesOutsideOfThePdoWithAMessage) {
    for (const auto& [type, size] : byte_types) {
        for (const unsigned int pos : {9 - size, 8U, std::numeric_limits<unsigned int>::max()}) {
            EXPECT_EQ(printed([&, t = type](CObjectDictionary& d) {
                          unsigned long long variable = 0;
                          d.mapref(0x201, pos, t, &variable);
                          std::printf("%u", d.rpdoinf[0x101].varmap.num_of_mappings);
                      }),
                      "PDO::mapref COBID=00x201 Mapping not inside of the PDO\n0");
        }
    }
}

TEST_F(ObjectDictionaryMapref, RefusesAnOverlap) {
    EXPECT_EQ(last_words([](CObjectDictionary& d) {
                  int four = 0;
                  unsigned char one = 0;
                  d.mapcopy(0x181, 0, four);
                  d.mapcopy(0x181, 3, one);
              }),
              "PDO::mapref Duplicate mapping for mapping nro= 0, mapping pos= 3, mapping size= 1\n");
    EXPECT_EQ(last_words([](CObjectDictionary& d) {
                  int four = 0;
                  unsigned char one = 0;
                  d.mapcopy(0x181, 0, one);
                  d.mapcopy(0x181, 7, one);
                  d.mapcopy(0x181, 4, four);
              }),
              "PDO::mapref Duplicate mapping for mapping nro= 1, mapping pos= 4, mapping size= 4\n");
}

TEST_F(ObjectDictionaryMapref, ChecksNumberOfMappingsAndPlaceBeforeTheOverlap) {
    EXPECT_EQ(printed([](CObjectDictionary& d) {
                  unsigned char one = 0;
                  unsigned int four = 0;
                  d.mapcopy(0x181, 7, one);
                  d.mapcopy(0x181, 5, four);
                  for (int i = 1; i < 64; ++i) {
                      d.mapbitcopy(0x181, 0, one);
                  }
                  d.mapcopy(0x181, 7, one);
                  std::printf("%u", d.tpdoinf[0x81].varmap.num_of_mappings);
              }),
              "PDO::mapref COBID=00x181 Mapping not inside of the PDO\n"
              "PDO::mapref COBID=00x181 Maximum number of mappings done\n64");
}

TEST_F(ObjectDictionaryMapref, OfABitMappingTheWholeBitNumberStandsForAByte) {
    EXPECT_EQ(last_words([](CObjectDictionary& d) {
                  short bit = 0;
                  unsigned char byte = 0;
                  d.mapbitcopy(0x181, 2, bit);
                  d.mapcopy(0x181, 4, byte);
                  d.mapcopy(0x181, 3, byte);
              }),
              "PDO::mapref Duplicate mapping for mapping nro= 0, mapping pos= 3, mapping size= 1\n");
    EXPECT_EQ(printed([](CObjectDictionary& d) {
                  short bit = 0;
                  unsigned char byte = 0;
                  d.mapbitcopy(0x181, 10, bit);
                  d.mapcopy(0x181, 1, byte);
                  d.mapcopy(0x181, 2, byte);
              }),
              "");
}

TEST_F(ObjectDictionaryMapcopy, PicksTheTypeByTheVariable) {
    char c = 0;
    unsigned char uc = 0;
    short s = 0;
    unsigned short us = 0;
    int i = 0;
    unsigned int ui = 0;
    dictionary.mapcopy(0x181, 0, c);
    dictionary.mapcopy(0x181, 1, uc);
    dictionary.mapcopy(0x181, 2, s);
    dictionary.mapcopy(0x181, 4, ui);
    dictionary.mapcopy(0x201, 0, us);
    dictionary.mapcopy(0x201, 2, i);
    ASSERT_EQ(tpdo().num_of_mappings, 4U);
    EXPECT_EQ(tpdo().mappings[0].type, PDO::char1);
    EXPECT_EQ(tpdo().mappings[1].type, PDO::uchar1);
    EXPECT_EQ(tpdo().mappings[2].type, PDO::short2);
    EXPECT_EQ(tpdo().mappings[3].type, PDO::uint4);
    EXPECT_EQ(tpdo().mappings[3].var_address, &ui);
    ASSERT_EQ(rpdo().num_of_mappings, 2U);
    EXPECT_EQ(rpdo().mappings[0].type, PDO::ushort2);
    EXPECT_EQ(rpdo().mappings[1].type, PDO::int4);
    EXPECT_EQ(rpdo().mappings[1].var_address, &i);
}

TEST_F(ObjectDictionaryMapcopy, ThePointerFormBehavesTheSame) {
    char c = 0;
    unsigned char uc = 0;
    short s = 0;
    unsigned short us = 0;
    int i = 0;
    unsigned int ui = 0;
    dictionary.mapcopy(0x181, 0, &c);
    dictionary.mapcopy(0x181, 1, &uc);
    dictionary.mapcopy(0x181, 2, &s);
    dictionary.mapcopy(0x181, 4, &ui);
    dictionary.mapcopy(0x201, 0, &us);
    dictionary.mapcopy(0x201, 2, &i);
    ASSERT_EQ(tpdo().num_of_mappings, 4U);
    EXPECT_EQ(tpdo().mappings[0].type, PDO::char1);
    EXPECT_EQ(tpdo().mappings[1].type, PDO::uchar1);
    EXPECT_EQ(tpdo().mappings[2].type, PDO::short2);
    EXPECT_EQ(tpdo().mappings[3].type, PDO::uint4);
    EXPECT_EQ(tpdo().mappings[3].var_address, &ui);
    ASSERT_EQ(rpdo().num_of_mappings, 2U);
    EXPECT_EQ(rpdo().mappings[0].type, PDO::ushort2);
    EXPECT_EQ(rpdo().mappings[1].type, PDO::int4);
    EXPECT_EQ(rpdo().mappings[1].var_address, &i);
}

// Bit mappings

TEST_F(ObjectDictionaryMapbitref, RecordsTheWholeBitNumberSizeAndType) {
    struct Row {
        unsigned int size;
        PDO::maptype type;
    };
    int variable = 0;
    for (const auto& [size, type] : {Row{1, PDO::bit1}, Row{2, PDO::bit2}, Row{4, PDO::bit4}}) {
        for (unsigned int pos = 0; pos < 64; ++pos) {
            rpdo().num_of_mappings = 0;
            dictionary.mapbitref(0x201, pos, size, &variable);
            ASSERT_EQ(rpdo().num_of_mappings, 1U);
            EXPECT_EQ(rpdo().mappings[0].var_address, &variable);
            EXPECT_EQ(rpdo().mappings[0].pos, pos);
            EXPECT_EQ(rpdo().mappings[0].len, size);
            EXPECT_EQ(rpdo().mappings[0].type, type);
            EXPECT_EQ(rpdo().length, 0U);
        }
    }
}

TEST_F(ObjectDictionaryMapbitref, EndsAtAWrongCobidBeforeAllElse) {
    EXPECT_EQ(printed([](CObjectDictionary& d) { d.mapbitref(0x400, 64, 3, nullptr); }),
              "get_pdo_info: Wrong PDO cobid\n");
}

TEST_F(ObjectDictionaryMapbitref, RefusesOtherSizes) {
    int variable = 0;
    for (const unsigned int size : {0U, 3U, 8U}) {
        EXPECT_EQ(last_words([&](CObjectDictionary& d) { d.mapbitref(0x181, 64, size, &variable); }),
                  "PDO::mapref failed: Unknown Type \n");
    }
}

TEST_F(ObjectDictionaryMapbitref, IgnoresTheSixtyFifthMappingWithAMessage) {
    EXPECT_EQ(printed([](CObjectDictionary& d) {
                  bool variable = false;
                  for (int i = 0; i < 64; ++i) {
                      d.mapbitcopy(0x181, 0, variable);
                  }
                  d.mapbitcopy(0x181, 64, variable);
                  std::printf("%u", d.tpdoinf[0x81].varmap.num_of_mappings);
              }),
              "PDO::mapbitref COBID=0x181 Maximum number of mappings done\n64");
}

TEST_F(ObjectDictionaryMapbitref, ChecksTheSizeBeforeTheNumberOfMappings) {
    EXPECT_EQ(last_words([](CObjectDictionary& d) {
                  bool variable = false;
                  for (int i = 0; i < 64; ++i) {
                      d.mapbitcopy(0x181, 0, variable);
                  }
                  d.mapbitref(0x181, 0, 3, &variable);
              }),
              "PDO::mapref failed: Unknown Type \n");
}

TEST_F(ObjectDictionaryMapbitref, IgnoresABitOutsideOfThePdoWithAMessage) {
    EXPECT_EQ(printed([](CObjectDictionary& d) {
                  bool variable = false;
                  d.mapbitcopy(0x181, 64, variable);
                  std::printf("%u", d.tpdoinf[0x81].varmap.num_of_mappings);
              }),
              "PDO::mapbitref COBID=00x181 Mapping not inside of the PDO\n0");
}

TEST_F(ObjectDictionaryMapbitref, ChecksNeitherAddressNorOverlap) {
    dictionary.mapbitref(0x181, 0, 1, nullptr);
    dictionary.mapbitref(0x181, 0, 1, nullptr);
    EXPECT_EQ(tpdo().num_of_mappings, 2U);
    EXPECT_EQ(tpdo().mappings[1].var_address, nullptr);
}

namespace {

// Maps a variable of type T in both forms and tells the sizes recorded.
template <typename T>
std::array<int, 2> mapbitcopy_sizes(CObjectDictionary& dictionary) {
    variable_mappings& map = dictionary.tpdoinf[0x81].varmap;
    map.num_of_mappings = 0;
    T variable{};
    dictionary.mapbitcopy(0x181, 0, variable);
    dictionary.mapbitcopy(0x181, 1, &variable);
    EXPECT_EQ(map.mappings[0].var_address, &variable);
    EXPECT_EQ(map.mappings[1].var_address, &variable);
    return {map.mappings[0].len, map.mappings[1].len};
}

}  // namespace

TEST_F(ObjectDictionaryMapbitcopy, PicksTheSizeByTheVariableInBothForms) {
    using Sizes = std::array<int, 2>;
    EXPECT_EQ(mapbitcopy_sizes<bool>(dictionary), (Sizes{1, 1}));
    EXPECT_EQ(mapbitcopy_sizes<char>(dictionary), (Sizes{1, 1}));
    EXPECT_EQ(mapbitcopy_sizes<unsigned char>(dictionary), (Sizes{1, 1}));
    EXPECT_EQ(mapbitcopy_sizes<short>(dictionary), (Sizes{2, 2}));
    EXPECT_EQ(mapbitcopy_sizes<unsigned short>(dictionary), (Sizes{2, 2}));
    EXPECT_EQ(mapbitcopy_sizes<int>(dictionary), (Sizes{4, 4}));
    EXPECT_EQ(mapbitcopy_sizes<unsigned int>(dictionary), (Sizes{4, 4}));
}

// Data transfer

TEST_F(ObjectDictionaryCreateTpdoData, ByteMappingsTakeTheFirstBytesWhateverTheirPosition) {
    tpdo().pdodata = counting;
    for (const unsigned int pos : {0U, 4U}) {
        tpdo().num_of_mappings = 0;
        char c = 0;
        unsigned char uc = 0;
        short s = 0;
        unsigned short us = 0;
        int i = 0;
        unsigned int ui = 0;
        add_entry(tpdo(), &c, pos, PDO::char1);
        add_entry(tpdo(), &uc, pos, PDO::uchar1);
        add_entry(tpdo(), &s, pos, PDO::short2);
        add_entry(tpdo(), &us, pos, PDO::ushort2);
        add_entry(tpdo(), &i, pos, PDO::int4);
        add_entry(tpdo(), &ui, pos, PDO::uint4);
        dictionary.create_tpdo_data(tpdo_number);
        EXPECT_EQ(c, 0x11);
        EXPECT_EQ(uc, 0x11);
        EXPECT_EQ(s, 0x2211);
        EXPECT_EQ(us, 0x2211);
        EXPECT_EQ(i, 0x44332211);
        EXPECT_EQ(ui, 0x44332211U);
    }
}

TEST_F(ObjectDictionaryCreateTpdoData, EightByteVariablesComeFromTheRpdoOfTheSameNumber) {
    tpdo().pdodata = counting;
    dictionary.rpdoinf[tpdo_number].varmap.pdodata = 0x0102030405060708;
    long long a = 0;
    dictionary.mapref(0x181, 0, PDO::longlong8, &a);
    unsigned long long b = 0;
    add_entry(tpdo(), &b, 0, PDO::ulonglong8);
    dictionary.create_tpdo_data(tpdo_number);
    EXPECT_EQ(a, 0x0102030405060708);
    EXPECT_EQ(b, 0x0102030405060708U);
}

TEST_F(ObjectDictionaryCreateTpdoData, BitsOfTheFirstByteAreStoredInTheVariablesWidth) {
    for (const unsigned int size : {1U, 2U, 4U}) {
        for (unsigned int pos = 0; pos < 8; ++pos) {
            std::array<unsigned char, 6> room{};
            room.fill(0xEE);
            tpdo().num_of_mappings = 0;
            dictionary.mapbitref(0x181, pos, size, room.data() + 1);
            std::array<unsigned char, 6> expected = room;
            std::fill_n(expected.begin() + 1, size, static_cast<unsigned char>(0));

            tpdo().pdodata = ~(1ULL << pos);
            dictionary.create_tpdo_data(tpdo_number);
            EXPECT_EQ(room, expected);

            tpdo().pdodata = 1ULL << pos;
            dictionary.create_tpdo_data(tpdo_number);
            expected[1] = 1;
            EXPECT_EQ(room, expected);
        }
    }
}

TEST_F(ObjectDictionaryCreateTpdoData, BitsFromEightOnAreThoseOfTheRecordsFurtherWords) {
    int old_bit = 7;
    int length_bit = 7;
    int active_bit = 7;
    dictionary.mapbitcopy(0x181, 8 + 3, old_bit);
    dictionary.mapbitcopy(0x181, 16 + 2, length_bit);
    dictionary.mapbitcopy(0x181, 24 + 0, active_bit);
    tpdo().pdodata = 0;
    tpdo().old_pdodata = 0x08;
    tpdo().length = 4;
    tpdo().pdo_active = 1;
    dictionary.create_tpdo_data(tpdo_number);
    EXPECT_EQ(old_bit, 1);
    EXPECT_EQ(length_bit, 1);
    EXPECT_EQ(active_bit, 1);
    tpdo().pdodata = 0xFFFFFFFFFFFFFFFF;
    tpdo().old_pdodata = ~0x08ULL;
    tpdo().length = ~4U;
    tpdo().pdo_active = ~1U;
    dictionary.create_tpdo_data(tpdo_number);
    EXPECT_EQ(old_bit, 0);
    EXPECT_EQ(length_bit, 0);
    EXPECT_EQ(active_bit, 0);
}

TEST_F(ObjectDictionaryCreateTpdoData, BitsFromFortyOnAreThoseOfTheFirstEntries) {
    std::array<int, 2> bits{7, 7};
    dictionary.mapbitcopy(0x181, 40 + 5, bits[0]);  // the first entry's own position, 45 = 0x2D: bit 5 is set
    dictionary.mapbitcopy(0x181, 56 + 1,
                          bits[1]);  // the second entry's own position, 57 = 0x39: bit 1 is clear
    dictionary.create_tpdo_data(tpdo_number);
    EXPECT_EQ(bits[0], 1);
    EXPECT_EQ(bits[1], 0);
}

TEST_F(ObjectDictionaryCreateTpdoData, ReportsASmallAddressAndCarriesOn) {
    tpdo().pdodata = counting;
    EXPECT_EQ(printed([](CObjectDictionary& d) {
                  unsigned short after = 0;
                  d.mapbitref(0x181, 0, 4, small_address(9999));
                  add_entry(d.tpdoinf[0x81].varmap, nullptr, 0, PDO::uint4);
                  add_entry(d.tpdoinf[0x81].varmap, &after, 0, PDO::ushort2);
                  d.create_tpdo_data(0x81);
                  std::printf("%x", static_cast<unsigned int>(after));
              }),
              "Destination variable address if smaller than 10000 !\n" + faulty_pointer +
                  "Destination variable address if smaller than 10000 !\n" + faulty_pointer + "2211");
}

TEST_F(ObjectDictionaryCreateTpdoData, RefusesFaultyTypesAlsoAtASmallAddress) {
    int variable = 0;
    const auto take_with = [](CObjectDictionary& d, void* address, unsigned int type) {
        add_entry(d.tpdoinf[0].varmap, address, 0, type);
        d.create_tpdo_data(0);
    };
    EXPECT_EQ(last_words([&](CObjectDictionary& d) { take_with(d, &variable, 0); }),
              "PDO::createTPDO Mapping of type none !\n");
    EXPECT_EQ(last_words([&](CObjectDictionary& d) { take_with(d, &variable, 12); }),
              "PDO::createTPDO Unknown mapping type\n");
    EXPECT_EQ(last_words([&](CObjectDictionary& d) { take_with(d, nullptr, 255); }),
              "Destination variable address if smaller than 10000 !\n" + faulty_pointer +
                  "PDO::createTPDO Unknown mapping type\n");
}

TEST_F(ObjectDictionaryCreateTpdoData, APositionFromSixtyFourOnStartsOverAtTheFirstWord) {
    unsigned char variable = 0;
    tpdo().pdodata = 0x08;
    add_entry(tpdo(), &variable, 64 + 3, PDO::bit1);
    dictionary.create_tpdo_data(tpdo_number);
    EXPECT_EQ(variable, 1);
}

TEST_F(ObjectDictionaryCreateRpdoData, ByteMappingsFillTheFirstBytesWhateverTheirPosition) {
    struct Row {
        PDO::maptype type;
        std::uint64_t expected;
    };
    unsigned long long variable = 0xA8A7A6A5A4A3A2A1;
    for (const auto& [type, expected] :
         {Row{PDO::char1, 0x88776655443322A1}, Row{PDO::uchar1, 0x88776655443322A1},
          Row{PDO::short2, 0x887766554433A2A1}, Row{PDO::ushort2, 0x887766554433A2A1},
          Row{PDO::int4, 0x88776655A4A3A2A1}, Row{PDO::uint4, 0x88776655A4A3A2A1},
          Row{PDO::longlong8, 0xA8A7A6A5A4A3A2A1}, Row{PDO::ulonglong8, 0xA8A7A6A5A4A3A2A1}}) {
        for (const unsigned int pos : {0U, 4U}) {
            rpdo().num_of_mappings = 0;
            rpdo().pdodata = counting;
            add_entry(rpdo(), &variable, pos, type);
            dictionary.create_rpdo_data(rpdo_number);
            EXPECT_EQ(rpdo().pdodata, expected) << type;
            EXPECT_EQ(rpdo().old_pdodata, 0U);
        }
    }
}

TEST_F(ObjectDictionaryCreateRpdoData, EightByteVariablesLeaveTheTpdoOfTheSameNumberAlone) {
    unsigned long long variable = counting;
    dictionary.mapref(0x201, 0, PDO::ulonglong8, &variable);
    dictionary.create_rpdo_data(rpdo_number);
    EXPECT_EQ(rpdo().pdodata, counting);
    EXPECT_EQ(dictionary.tpdoinf[rpdo_number].varmap.pdodata, 0U);
}

TEST_F(ObjectDictionaryCreateRpdoData, ABitIsTheLowestOfTheVariablesFirstByte) {
    for (const unsigned int size : {1U, 2U, 4U}) {
        for (unsigned int pos = 0; pos < 8; ++pos) {
            unsigned int variable = 0xFFFFFF01;
            rpdo().num_of_mappings = 0;
            dictionary.mapbitref(0x201, pos, size, &variable);
            rpdo().pdodata = 0;
            dictionary.create_rpdo_data(rpdo_number);
            EXPECT_EQ(rpdo().pdodata, 1ULL << pos);

            variable = 0xFFFFFFFE;
            rpdo().pdodata = 0xFFFFFFFFFFFFFFFF;
            dictionary.create_rpdo_data(rpdo_number);
            EXPECT_EQ(rpdo().pdodata, ~(1ULL << pos));
        }
    }
}

TEST_F(ObjectDictionaryCreateRpdoData, BitsFromEightOnAreThoseOfTheRecordsFurtherWords) {
    unsigned char set = 1;
    unsigned char clear = 0;
    dictionary.mapbitcopy(0x201, 8 + 3, set);
    dictionary.mapbitcopy(0x201, 16 + 2, set);
    dictionary.mapbitcopy(0x201, 24 + 7, clear);
    rpdo().pdo_active = 0xFF;
    dictionary.create_rpdo_data(rpdo_number);
    EXPECT_EQ(rpdo().pdodata, 0U);
    EXPECT_EQ(rpdo().old_pdodata, 0x08U);
    EXPECT_EQ(rpdo().length, 4U);
    EXPECT_EQ(rpdo().pdo_updated, 0U);
    EXPECT_EQ(rpdo().pdo_active, 0x7FU);
    EXPECT_EQ(rpdo().num_of_mappings, 3U);
}

TEST_F(ObjectDictionaryCreateRpdoData, ReportsASmallAddressAndCarriesOn) {
    rpdo().pdodata = counting;
    EXPECT_EQ(printed([](CObjectDictionary& d) {
                  unsigned short after = 0xBEEF;
                  d.mapbitref(0x201, 0, 1, small_address(9999));
                  add_entry(d.rpdoinf[0x101].varmap, &after, 0, PDO::ushort2);
                  d.create_rpdo_data(0x101);
                  std::printf("%llx", static_cast<unsigned long long>(d.rpdoinf[0x101].varmap.pdodata));
              }),
              "Source variable address if smaller than 10000 !\n" + faulty_pointer + "887766554433beef");
}

TEST_F(ObjectDictionaryCreateRpdoData, RefusesFaultyTypesAlsoAtASmallAddress) {
    int variable = 0;
    const auto fill_with = [](CObjectDictionary& d, void* address, unsigned int type) {
        add_entry(d.rpdoinf[511].varmap, address, 0, type);
        d.create_rpdo_data(511);
    };
    EXPECT_EQ(last_words([&](CObjectDictionary& d) { fill_with(d, &variable, 0); }),
              "PDO::createRPDO Mapping of type none !\n");
    EXPECT_EQ(last_words([&](CObjectDictionary& d) { fill_with(d, &variable, 12); }),
              "PDO::createRPDO Unknown mapping type\n");
    EXPECT_EQ(last_words([&](CObjectDictionary& d) { fill_with(d, nullptr, 0); }),
              "Source variable address if smaller than 10000 !\n" + faulty_pointer +
                  "PDO::createRPDO Mapping of type none !\n");
}

TEST_F(ObjectDictionaryRpdoChanged, ComparesAndUpdatesNothing) {
    EXPECT_FALSE(dictionary.rpdo_changed(5));
    dictionary.rpdoinf[5].varmap.pdodata = 1ULL << 63;
    EXPECT_TRUE(dictionary.rpdo_changed(5));
    EXPECT_TRUE(dictionary.rpdo_changed(5));
    EXPECT_FALSE(dictionary.rpdo_changed(6));
    dictionary.rpdoinf[5].varmap.old_pdodata = 1ULL << 63;
    EXPECT_FALSE(dictionary.rpdo_changed(5));
}

TEST_F(ObjectDictionaryRpdoChanged, ANumberOutOfTheTableFailsAnAssertion) {
    const std::function<void()> calls[] = {[&] { dictionary.rpdo_changed(512); },
                                           [&] { dictionary.create_tpdo_data(512); },
                                           [&] { dictionary.create_rpdo_data(0xFFFFFFFF); }};
    for (const auto& call : calls) {
        const ChildResult result = run_in_child(call);
        EXPECT_EQ(result.err, "nodevik/objectdictionary: Assertion failed: id < 512\n");
        EXPECT_EQ(result.signal, SIGABRT);
    }
}

// Object access

TEST_F(ObjectDictionaryObjects, NoIndexIsServed) {
    EXPECT_EQ(printed([](CObjectDictionary& d) {
                  for (const unsigned int index : {0U, 0x1000U, 0x1005U, 0xFFFFU}) {
                      std::printf("%d\n", d.gobject(index, 0));
                  }
              }),
              "Unsupported Index\n-1\nUnsupported Index\n-1\nUnsupported Index\n-1\nUnsupported Index\n-1\n");
}

TEST_F(ObjectDictionaryObjects, ReadTellsTheCurrentValueAlthoughItFails) {
    EXPECT_EQ(printed([](CObjectDictionary& d) {
                  d.od = 0xFFFFFFF6;
                  int value = 0;
                  const int result = d.read_object(0x1005, 0, value);
                  std::printf("%d %d %d", result, value, d.read ? 1 : 0);
              }),
              "Unsupported Index\n-1 -10 1");
}

TEST_F(ObjectDictionaryObjects, WriteKeepsTheValueAlthoughItFails) {
    EXPECT_EQ(printed([](CObjectDictionary& d) {
                  d.read = true;
                  const int result = d.write_object(0x1005, 0, -2);
                  std::printf("%d %x %d %x", result, d.od, d.read ? 1 : 0, d.ob_1005_COBID_SYNC_message);
              }),
              "Unsupported Index\n-1 fffffffe 0 80");
}
