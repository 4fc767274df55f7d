#include "nodevik/pdo.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
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

using Bytes = std::array<unsigned char, 8>;

constexpr Bytes counting = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88};

Bytes data_of(const PDO& pdo) {
    Bytes bytes;
    pdo.copy_pdo_data(bytes.data());
    return bytes;
}

Bytes old_data_of(const PDO& pdo) {
    Bytes bytes;
    std::memcpy(bytes.data(), pdo.oldPDOdata, bytes.size());
    return bytes;
}

void set_data(PDO& pdo, const Bytes& bytes) {
    std::memcpy(pdo.PDOdata, bytes.data(), bytes.size());
}

// What `body` prints when it is expected to carry on.
std::string printed(const std::function<void()>& body) {
    const ChildResult result = run_in_child(body);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    return result.out;
}

// What `body` prints when it is expected to end the process with status 1.
std::string last_words(const std::function<void()>& body) {
    const ChildResult result = run_in_child([&] {
        body();
        std::printf("carried on");
    });
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "");
    return result.out;
}

// An address that is only a small number.
void* small_address(std::uintptr_t number) {
    return reinterpret_cast<void*>(number);  // NOLINT(performance-no-int-to-ptr)
}

const std::string faulty_pointer = "Are you sure that you havent got faulty pointer !\n";

}  // namespace

// Construction and identity

TEST(PdoConstruction, DefaultIsAllZero) {
    const PDO pdo;
    EXPECT_EQ(pdo.PDO_updated, 0U);
    EXPECT_EQ(pdo.cobid, 0U);
    EXPECT_EQ(pdo.get_cobid(), 0U);
    EXPECT_EQ(pdo.length, 0U);
    EXPECT_EQ(pdo.get_len(), 0U);
    EXPECT_EQ(pdo.mapCounter, 0);
    EXPECT_EQ(pdo.obj_info.transmission_type, 0);
    EXPECT_EQ(pdo.obj_info.mappingcount, 0);
    EXPECT_EQ(data_of(pdo), Bytes{});
    EXPECT_EQ(old_data_of(pdo), Bytes{});
    for (int i = 0; i < 64; ++i) {
        EXPECT_EQ(pdo.obj_info.pdo_mappings[i], 0);
        EXPECT_EQ(pdo.PDOmap[i].var_address, nullptr);
        EXPECT_EQ(pdo.PDOmap[i].pdo_address, nullptr);
        EXPECT_EQ(pdo.PDOmap[i].pos, 0);
        EXPECT_EQ(pdo.PDOmap[i].len, 0);
        EXPECT_EQ(pdo.PDOmap[i].type, PDO::none);
    }
}

TEST(PdoConstruction, MembersStandInTheirOrder) {
    const PDO pdo;
    const auto at = [&](const void* member) {
        return static_cast<const char*>(member) - reinterpret_cast<const char*>(&pdo);
    };
    const std::vector<std::ptrdiff_t> offsets = {at(&pdo.PDO_updated), at(&pdo.obj_info), at(&pdo.cobid),
                                                 at(&pdo.length),      at(&pdo.PDOdata),  at(&pdo.oldPDOdata),
                                                 at(&pdo.mapCounter),  at(&pdo.PDOmap)};
    EXPECT_EQ(offsets.front(), 0);
    EXPECT_TRUE(std::is_sorted(offsets.begin(), offsets.end()));
}

TEST(PdoConstruction, TheCobidIsAPlainUnsignedInt) {
    static_assert(std::is_same_v<decltype(PDO::cobid), unsigned int>);
    PDO pdo(0x181);
    unsigned int& bound = pdo.cobid;
    bound = 0x182;
    EXPECT_EQ(pdo.get_cobid(), 0x182U);
    EXPECT_EQ(printed([&] { std::printf("%x", pdo.cobid); }), "182");
}

TEST(PdoConstruction, ByCobidSetsTheTransmissionTypeByTheFunctionCode) {
    for (const unsigned int cid : {0x181U, 0x1FFU, 0x281U, 0x381U, 0x481U, 0x4FFU}) {
        EXPECT_EQ(PDO(cid).get_cobid(), cid);
        EXPECT_EQ(PDO(cid).obj_info.transmission_type, 1) << cid;
    }
    for (const unsigned int cid : {0x201U, 0x301U, 0x401U, 0x501U, 0x57FU}) {
        EXPECT_EQ(PDO(cid).get_cobid(), cid);
        EXPECT_EQ(PDO(cid).obj_info.transmission_type, 0) << cid;
    }
}

TEST(PdoConstruction, RefusesACobidOutOfRange) {
    EXPECT_EQ(last_words([] { const PDO pdo(0x180); }), "Error: PDO::PDO COBID 0x180 out of range\n");
    EXPECT_EQ(last_words([] { const PDO pdo(0x580); }), "Error: PDO::PDO COBID 0x580 out of range\n");
    EXPECT_EQ(last_words([] { const PDO pdo(0); }), "Error: PDO::PDO COBID 0 out of range\n");
    EXPECT_EQ(last_words([] { const PDO pdo(0xFFFFFFFF); }),
              "Error: PDO::PDO COBID 0xffffffff out of range\n");
}

TEST(PdoInit, StartsOver) {
    PDO pdo(0x181);
    int variable = 7;
    pdo.mapcopy(0, variable);
    pdo.map_object(0x6000, 1, 8);
    pdo.create_tpdo(counting.data());
    pdo.PDO_updated = 3;
    pdo.init(0x202);
    EXPECT_EQ(pdo.mapCounter, 0);
    EXPECT_EQ(pdo.get_len(), 0U);
    EXPECT_EQ(pdo.obj_info.mappingcount, 0);
    EXPECT_EQ(data_of(pdo), Bytes{});
    EXPECT_EQ(old_data_of(pdo), Bytes{});
    EXPECT_EQ(pdo.PDO_updated, 0U);
    EXPECT_EQ(pdo.get_cobid(), 0x202U);
    EXPECT_EQ(pdo.obj_info.transmission_type, 0);
}

TEST(PdoInit, RefusesACobidOutOfRange) {
    EXPECT_EQ(last_words([] { PDO().init(0x180); }), "Error: PDO::PDO COBID 0x180 out of range\n");
    EXPECT_EQ(last_words([] { PDO().init(0x580); }), "Error: PDO::PDO COBID 0x580 out of range\n");
}

TEST(PdoSetCobid, LeavesTheTransmissionTypeAndTheRest) {
    PDO pdo(0x181);
    pdo.set_value(0x0102030405060708);
    pdo.set_cobid(0x201);
    EXPECT_EQ(pdo.get_cobid(), 0x201U);
    EXPECT_EQ(pdo.cobid, 0x201U);
    EXPECT_EQ(pdo.obj_info.transmission_type, 1);
    EXPECT_EQ(pdo.get_value(), 0x0102030405060708U);
    EXPECT_EQ(pdo.get_len(), 8U);
}

TEST(PdoSetCobid, TakesTheBoundsOfItsRange) {
    PDO pdo;
    pdo.set_cobid(0x181);
    EXPECT_EQ(pdo.get_cobid(), 0x181U);
    EXPECT_EQ(pdo.obj_info.transmission_type, 0);
    pdo.set_cobid(0x57F);
    EXPECT_EQ(pdo.get_cobid(), 0x57FU);
}

TEST(PdoSetCobid, RefusesACobidOutOfRange) {
    EXPECT_EQ(last_words([] { PDO().set_cobid(0x180); }), "Error: PDO::set_cobid  ID 0x180 out of range\n");
    EXPECT_EQ(last_words([] { PDO().set_cobid(0x580); }), "Error: PDO::set_cobid  ID 0x580 out of range\n");
    EXPECT_EQ(last_words([] { PDO().set_cobid(0); }), "Error: PDO::set_cobid  ID 0x0 out of range\n");
}

TEST(PdoSetLen, TakesZeroToEight) {
    PDO pdo;
    for (int len = 8; len >= 0; --len) {
        pdo.set_len(len);
        EXPECT_EQ(pdo.get_len(), static_cast<unsigned int>(len));
        EXPECT_EQ(pdo.length, static_cast<unsigned int>(len));
    }
}

TEST(PdoSetLen, RefusesAnyOther) {
    EXPECT_EQ(last_words([] { PDO().set_len(9); }), "Error: PDO::set_len length 9 out of range\n");
    EXPECT_EQ(last_words([] { PDO().set_len(-1); }), "Error: PDO::set_len length -1 out of range\n");
}

TEST(PdoGetAddress, IsThatOfTheDataByte) {
    PDO pdo;
    for (int pos = 0; pos < 8; ++pos) {
        EXPECT_EQ(pdo.get_address(pos), &pdo.PDOdata[pos]);
    }
    EXPECT_EQ(pdo.get_address(8), pdo.PDOdata + 8);
}

TEST(PdoSetTransmissionType, StoresIt) {
    PDO pdo(0x181);
    pdo.set_transmission_type(254);
    EXPECT_EQ(pdo.obj_info.transmission_type, 254);
}

TEST(PdoCopy, HasAllFieldsOfTheOriginal) {
    PDO original(0x181);
    original.set_value(0x8877665544332211);
    EXPECT_TRUE(original.pdo_changed());
    original.set_byte8(0, 0x99);
    original.set_len(5);
    original.map_object(0x6000, 1, 8);
    original.map_object(0, 0, 0);
    original.PDO_updated = 4;
    const PDO copy(original);
    EXPECT_EQ(copy.PDO_updated, 4U);
    EXPECT_EQ(copy.get_cobid(), 0x181U);
    EXPECT_EQ(copy.get_len(), 5U);
    EXPECT_EQ(data_of(copy), data_of(original));
    EXPECT_EQ(old_data_of(copy), counting);
    EXPECT_EQ(copy.obj_info.transmission_type, 1);
    EXPECT_EQ(copy.obj_info.mappingcount, 2);
    EXPECT_EQ(copy.obj_info.pdo_mappings[0], 1);
    EXPECT_EQ(copy.obj_info.pdo_mappings[1], 0);
}

TEST(PdoCopy, MapsItsOwnDataToTheSameVariables) {
    unsigned short word = 0;
    unsigned char bit = 0;
    auto original = std::make_unique<PDO>(0x181);
    original->mapcopy(2, word);
    original->mapbitcopy(9, bit);
    PDO copy(*original);
    PDO assigned(0x201);
    assigned.mapcopy(0, bit);
    assigned = *original;
    original.reset();

    for (PDO* pdo : {&copy, &assigned}) {
        ASSERT_EQ(pdo->mapCounter, 2);
        EXPECT_EQ(pdo->PDOmap[0].pdo_address, pdo->get_address(2));
        EXPECT_EQ(pdo->PDOmap[0].var_address, &word);
        EXPECT_EQ(pdo->PDOmap[1].pdo_address, pdo->get_address(1));
        word = 0;
        bit = 0;
        pdo->create_tpdo(counting.data());
        EXPECT_EQ(word, 0x4433);
        EXPECT_EQ(bit, 1);
    }
}

TEST(PdoCopy, ToItselfChangesNothing) {
    unsigned short word = 0;
    PDO pdo(0x181);
    pdo.mapcopy(2, word);
    const PDO& same = pdo;
    pdo = same;
    EXPECT_EQ(pdo.mapCounter, 1);
    EXPECT_EQ(pdo.PDOmap[0].pdo_address, pdo.get_address(2));
    EXPECT_EQ(pdo.get_cobid(), 0x181U);
}

TEST(PdoCopy, SurvivesAGrowingVector) {
    std::vector<unsigned char> variables(50, 0);
    std::vector<PDO> pdos;
    for (unsigned int i = 0; i < 50; ++i) {
        pdos.emplace_back(0x181 + i);
        pdos.back().mapcopy(i % 8, variables[i]);
    }
    for (unsigned int i = 0; i < 50; ++i) {
        pdos[i].create_tpdo(counting.data());
        EXPECT_EQ(variables[i], counting[i % 8]);
    }
}

// Whole data

TEST(PdoValue, SetValueStoresAllBytesAndRaisesTheLengthToEight) {
    PDO pdo(0x181);
    pdo.set_len(2);
    pdo.set_value(0x8877665544332211);
    EXPECT_EQ(data_of(pdo), counting);
    EXPECT_EQ(old_data_of(pdo), Bytes{});
    EXPECT_EQ(pdo.get_len(), 8U);
}

TEST(PdoValue, BothGettersTellAllBytes) {
    PDO pdo(0x181);
    set_data(pdo, counting);
    EXPECT_EQ(pdo.get_value(), 0x8877665544332211U);
    unsigned long long value = 0;
    pdo.get_value(value);
    EXPECT_EQ(value, 0x8877665544332211U);
    EXPECT_EQ(pdo.get_len(), 0U);
}

TEST(PdoValue, CopyPdoDataWritesEightBytesWhateverTheLength) {
    PDO pdo(0x181);
    set_data(pdo, counting);
    pdo.set_len(1);
    unsigned char room[10] = {0xEE, 0, 0, 0, 0, 0, 0, 0, 0, 0xEE};
    pdo.copy_pdo_data(room + 1);
    EXPECT_EQ(std::memcmp(room + 1, counting.data(), 8), 0);
    EXPECT_EQ(room[0], 0xEE);
    EXPECT_EQ(room[9], 0xEE);
}

// Parts of the data

TEST(PdoByte8, SetsAndGetsEachByte) {
    PDO pdo(0x181);
    for (int pos = 0; pos < 8; ++pos) {
        pdo.set_byte8(pos, counting[static_cast<std::size_t>(pos)]);
    }
    EXPECT_EQ(data_of(pdo), counting);
    for (int pos = 0; pos < 8; ++pos) {
        EXPECT_EQ(pdo.get_byte8(pos), counting[static_cast<std::size_t>(pos)]);
    }
    EXPECT_EQ(pdo.get_len(), 0U);
}

TEST(PdoByte16, SetsAndGetsTwoBytesLowestFirst) {
    for (int pos = 0; pos <= 6; ++pos) {
        PDO pdo(0x181);
        pdo.set_byte16(pos, 0xBEEF);
        Bytes expected{};
        expected[static_cast<std::size_t>(pos)] = 0xEF;
        expected[static_cast<std::size_t>(pos) + 1] = 0xBE;
        EXPECT_EQ(data_of(pdo), expected);
        EXPECT_EQ(pdo.get_byte16(pos), 0xBEEFU);
        EXPECT_EQ(pdo.get_len(), 0U);
    }
}

TEST(PdoByte32, SetsAndGetsFourBytesLowestFirst) {
    for (int pos = 0; pos <= 4; ++pos) {
        PDO pdo(0x181);
        pdo.set_byte32(pos, 0xDEADBEEF);
        Bytes expected{};
        const auto first = expected.begin() + pos;
        first[0] = 0xEF;
        first[1] = 0xBE;
        first[2] = 0xAD;
        first[3] = 0xDE;
        EXPECT_EQ(data_of(pdo), expected);
        EXPECT_EQ(pdo.get_byte32(pos), 0xDEADBEEFU);
        EXPECT_EQ(pdo.get_len(), 0U);
    }
}

TEST(PdoBit, SetsClearsInvertsAndTellsEachBit) {
    for (int pos = 0; pos < 64; ++pos) {
        PDO pdo(0x181);
        pdo.set_bit(pos);
        EXPECT_EQ(pdo.get_value(), 1ULL << pos);
        EXPECT_TRUE(pdo.get_bit(pos));
        pdo.set_bit(pos);
        EXPECT_EQ(pdo.get_value(), 1ULL << pos);
        pdo.neg_bit(pos);
        EXPECT_EQ(pdo.get_value(), 0U);
        EXPECT_FALSE(pdo.get_bit(pos));
        pdo.neg_bit(pos);
        EXPECT_EQ(pdo.get_value(), 1ULL << pos);
        EXPECT_EQ(pdo.get_len(), 0U);
        pdo.set_value(std::numeric_limits<unsigned long long>::max());
        pdo.clear_bit(pos);
        EXPECT_EQ(pdo.get_value(), ~(1ULL << pos));
        EXPECT_FALSE(pdo.get_bit(pos));
        pdo.clear_bit(pos);
        EXPECT_EQ(pdo.get_value(), ~(1ULL << pos));
    }
}

namespace {

// A positional operation: its name in messages, its last position, and a call that returns what a getter does
// (0 for setters, which write all ones).
struct Positional {
    const char* name;
    int last;
    unsigned int (*call)(PDO& pdo, int pos);
};

constexpr Positional positionals[] = {
    {"setbyte8", 7, [](PDO& pdo, int pos) { return pdo.set_byte8(pos, 0xFF), 0U; }},
    {"getbyte8", 7, [](PDO& pdo, int pos) { return pdo.get_byte8(pos); }},
    {"setbyte16", 6, [](PDO& pdo, int pos) { return pdo.set_byte16(pos, 0xFFFF), 0U; }},
    {"getbyte16", 6, [](PDO& pdo, int pos) { return pdo.get_byte16(pos); }},
    {"setbyte32", 4, [](PDO& pdo, int pos) { return pdo.set_byte32(pos, 0xFFFFFFFF), 0U; }},
    {"getbyte32", 4, [](PDO& pdo, int pos) { return pdo.get_byte32(pos); }},
    {"getbit", 63, [](PDO& pdo, int pos) { return pdo.get_bit(pos) ? 1U : 0U; }},
    {"setbit", 63, [](PDO& pdo, int pos) { return pdo.set_bit(pos), 0U; }},
    {"clearbit", 63, [](PDO& pdo, int pos) { return pdo.clear_bit(pos), 0U; }},
    {"negbit", 63, [](PDO& pdo, int pos) { return pdo.neg_bit(pos), 0U; }},
};

class PdoPosition : public testing::TestWithParam<Positional> {};

}  // namespace

TEST_P(PdoPosition, OutOfRangeIsReportedAndChangesNothing) {
    const Positional& operation = GetParam();
    for (const int pos :
         {-1, operation.last + 1, 1000, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
        const std::string out = printed([&] {
            PDO pdo(0x182);
            set_data(pdo, counting);
            const unsigned int result = operation.call(pdo, pos);
            std::printf("%u %d", result, data_of(pdo) == counting ? 1 : 0);
        });
        EXPECT_EQ(out, std::string("Error: PDO::") + operation.name +
                           " Position out of range, COBID=0x182 position=" + std::to_string(pos) + "\n0 1");
    }
}

TEST_P(PdoPosition, WithinRangeIsSilent) {
    const Positional& operation = GetParam();
    EXPECT_EQ(printed([&] {
                  PDO pdo(0x182);
                  operation.call(pdo, 0);
                  operation.call(pdo, operation.last);
              }),
              "");
}

INSTANTIATE_TEST_SUITE_P(All, PdoPosition, testing::ValuesIn(positionals),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(PdoPositionMessage, TellsAnUnsetCobidAsPlainZero) {
    EXPECT_EQ(printed([] { PDO().set_byte16(7, 1); }),
              "Error: PDO::setbyte16 Position out of range, COBID=0 position=7\n");
}

TEST(PdoIndexing, GivesAReferenceToEachByte) {
    PDO pdo(0x181);
    for (int pos = 0; pos < 8; ++pos) {
        EXPECT_EQ(&pdo[pos], pdo.get_address(pos));
    }
    pdo[3] = 0xAB;
    EXPECT_EQ(pdo.get_byte8(3), 0xABU);
    EXPECT_EQ(pdo.get_len(), 0U);
}

TEST(PdoIndexing, NegativePositionYieldsByteZeroAfterAMessage) {
    EXPECT_EQ(printed([] {
                  PDO pdo(0x181);
                  pdo[-1] = 0x5A;
                  std::printf("%02x", pdo.get_byte8(0));
              }),
              "Error: COBID=0x181 PDO::operator[] position < 0\n5a");
}

TEST(PdoIndexing, PositionPastTheEndYieldsByteZeroAfterAMessage) {
    EXPECT_EQ(printed([] {
                  PDO pdo(0x181);
                  pdo[8] = 0x5A;
                  std::printf("%02x", pdo.get_byte8(0));
              }),
              "Error: COBID=0x181 PDO::operator[] position > 7\n5a");
}

// Variable mapping

TEST(PdoMaptype, HasItsValues) {
    EXPECT_EQ(PDO::none, 0U);
    EXPECT_EQ(PDO::bit1, 1U);
    EXPECT_EQ(PDO::bit2, 2U);
    EXPECT_EQ(PDO::bit4, 3U);
    EXPECT_EQ(PDO::char1, 4U);
    EXPECT_EQ(PDO::short2, 5U);
    EXPECT_EQ(PDO::int4, 6U);
    EXPECT_EQ(PDO::uchar1, 7U);
    EXPECT_EQ(PDO::ushort2, 8U);
    EXPECT_EQ(PDO::uint4, 9U);
    EXPECT_EQ(PDO::longlong8, 10U);
    EXPECT_EQ(PDO::ulonglong8, 11U);
}

namespace {

struct ByteType {
    PDO::maptype type;
    unsigned int size;
};

constexpr ByteType byte_types[] = {{PDO::char1, 1},     {PDO::short2, 2},    {PDO::int4, 4},
                                   {PDO::uchar1, 1},    {PDO::ushort2, 2},   {PDO::uint4, 4},
                                   {PDO::longlong8, 8}, {PDO::ulonglong8, 8}};

class PdoByteMapping : public testing::TestWithParam<ByteType> {};

}  // namespace

TEST_P(PdoByteMapping, IsRecordedAtEveryPositionThatFits) {
    const auto [type, size] = GetParam();
    for (unsigned int pos = 0; pos + size <= 8; ++pos) {
        PDO pdo(0x181);
        Bytes variable{};
        pdo.mapref(pos, type, variable.data());
        ASSERT_EQ(pdo.mapCounter, 1);
        EXPECT_EQ(pdo.PDOmap[0].var_address, variable.data());
        EXPECT_EQ(pdo.PDOmap[0].pdo_address, pdo.get_address(static_cast<int>(pos)));
        EXPECT_EQ(pdo.PDOmap[0].pos, pos);
        EXPECT_EQ(pdo.PDOmap[0].len, size);
        EXPECT_EQ(pdo.PDOmap[0].type, type);
        EXPECT_EQ(pdo.get_len(), pos + size);
    }
}

TEST_P(PdoByteMapping, IsIgnoredWithAMessageWhereItDoesNotFit) {
    const auto [type, size] = GetParam();
    for (const unsigned int pos : {9 - size, 8U, 100U, std::numeric_limits<unsigned int>::max()}) {
        EXPECT_EQ(printed([&, t = type] {
                      PDO pdo(0x181);
                      Bytes variable{};
                      pdo.mapref(pos, t, variable.data());
                      std::printf("%d %u", pdo.mapCounter, pdo.get_len());
                  }),
                  "PDO::mapref COBID=00x181 Mapping not inside of the PDO\n0 0");
    }
}

TEST_P(PdoByteMapping, MovesExactlyItsBytesBothWays) {
    const auto [type, size] = GetParam();
    for (unsigned int pos = 0; pos + size <= 8; ++pos) {
        PDO pdo(0x181);
        Bytes room{};  // the variable stands at an odd address in it, for types of up to four bytes
        unsigned char* const variable = size == 8 ? room.data() : room.data() + 1;
        pdo.mapref(pos, type, variable);

        pdo.create_tpdo(counting.data());
        Bytes expected{};
        std::memcpy(expected.data() + (variable - room.data()), counting.data() + pos, size);
        EXPECT_EQ(room, expected);

        room.fill(0xEE);
        pdo.create_rpdo();
        expected = counting;
        std::memset(expected.data() + pos, 0xEE, size);
        EXPECT_EQ(data_of(pdo), expected);
    }
}

INSTANTIATE_TEST_SUITE_P(All, PdoByteMapping, testing::ValuesIn(byte_types),
                         [](const auto& row) { return "Type" + std::to_string(row.param.type); });

TEST(PdoMapref, RefusesASmallAddressBeforeAllElse) {
    const std::string expected = "Mapping of an variable address smaller than 10000 !\n" + faulty_pointer;
    EXPECT_EQ(last_words([] { PDO(0x181).mapref(0, PDO::uchar1, small_address(9999)); }), expected);
    EXPECT_EQ(last_words([] { PDO(0x181).mapref(0, PDO::uchar1, nullptr); }), expected);
    EXPECT_EQ(last_words([] { PDO(0x181).mapref(99, PDO::none, nullptr); }), expected);
    EXPECT_EQ(printed([] { PDO(0x181).mapref(0, PDO::uchar1, small_address(10000)); }), "");
}

TEST(PdoMapref, RefusesTypesThatAreNone) {
    int variable = 0;
    EXPECT_EQ(last_words([&] { PDO(0x181).mapref(0, PDO::none, &variable); }),
              "PDO::mapref failed: wrong type 'none' \n");
    EXPECT_EQ(last_words([&] { PDO(0x181).mapref(99, PDO::none, &variable); }),
              "PDO::mapref failed: wrong type 'none' \n");
}

TEST(PdoMapref, RefusesBitTypesAndUnknownTypes) {
    int variable = 0;
    for (const int type : {1, 2, 3, 12, 13, 99, -1}) {
        EXPECT_EQ(last_words([&] { PDO(0x181).mapref(0, static_cast<PDO::maptype>(type), &variable); }),
                  "PDO::mapref failed: Unknown Type \n")
            << type;
    }
}

TEST(PdoMapref, IgnoresTheSixtyFifthMappingWithAMessage) {
    EXPECT_EQ(printed([] {
                  PDO pdo(0x181);
                  unsigned char variable = 0;
                  for (int i = 0; i < 64; ++i) {
                      pdo.mapbitcopy(0, variable);
                  }
                  pdo.mapref(0, PDO::uchar1, &variable);
                  pdo.mapref(8, PDO::uchar1, &variable);
                  std::printf("%d %u", pdo.mapCounter, pdo.get_len());
              }),
              "PDO::mapref COBID=00x181 Maximum number of mappings done\n"
              "PDO::mapref COBID=00x181 Maximum number of mappings done\n64 1");
}

TEST(PdoMapref, ChecksTheTypeBeforeTheNumberOfMappings) {
    EXPECT_EQ(last_words([] {
                  PDO pdo(0x181);
                  unsigned char variable = 0;
                  for (int i = 0; i < 64; ++i) {
                      pdo.mapbitcopy(0, variable);
                  }
                  pdo.mapref(0, PDO::bit1, &variable);
              }),
              "PDO::mapref failed: Unknown Type \n");
}

TEST(PdoMapref, FourBytesAtFiveDoNotFit) {
    EXPECT_EQ(printed([] {
                  PDO pdo(0x181);
                  unsigned int variable = 0;
                  pdo.mapcopy(5, variable);
                  std::printf("%d %u", pdo.mapCounter, pdo.get_len());
              }),
              "PDO::mapref COBID=00x181 Mapping not inside of the PDO\n0 0");
}

TEST(PdoMapref, RefusesAnOverlapNamingTheEarlierMappingAndTheNewPlace) {
    EXPECT_EQ(last_words([] {
                  PDO pdo(0x181);
                  int four = 0;
                  unsigned char one = 0;
                  pdo.mapcopy(0, four);
                  pdo.mapcopy(3, one);
              }),
              "PDO::mapref Duplicate mapping for mapping nro= 0, mapping pos= 3, mapping size= 1\n");
    EXPECT_EQ(last_words([] {
                  PDO pdo(0x181);
                  unsigned char one = 0;
                  unsigned int four = 0;
                  pdo.mapcopy(0, one);
                  pdo.mapcopy(5, one);
                  pdo.mapcopy(2, four);
              }),
              "PDO::mapref Duplicate mapping for mapping nro= 1, mapping pos= 2, mapping size= 4\n");
}

TEST(PdoMapref, ChecksThePlaceBeforeTheOverlap) {
    EXPECT_EQ(printed([] {
                  PDO pdo(0x181);
                  unsigned char one = 0;
                  unsigned int four = 0;
                  pdo.mapcopy(7, one);
                  pdo.mapcopy(5, four);
                  std::printf("%d", pdo.mapCounter);
              }),
              "PDO::mapref COBID=00x181 Mapping not inside of the PDO\n1");
}

TEST(PdoMapref, NeighboursDoNotOverlap) {
    PDO pdo(0x181);
    std::array<unsigned short, 4> words{};
    for (const unsigned int i : {2U, 0U, 3U, 1U}) {
        pdo.mapcopy(2 * i, words[i]);
    }
    EXPECT_EQ(pdo.mapCounter, 4);
    EXPECT_EQ(pdo.get_len(), 8U);
}

TEST(PdoMapref, OfABitMappingTheBitNumberAndVariableSizeStandForBytes) {
    // Bit 2 of byte 5, in a variable of 2 bytes, stands for the bytes 2 and 3.
    const auto map_beside_bit = [](unsigned int pos) {
        PDO pdo(0x181);
        short bit = 0;
        unsigned char byte = 0;
        pdo.mapbitcopy(42, bit);
        pdo.mapcopy(pos, byte);
    };
    EXPECT_EQ(printed([&] { map_beside_bit(1); }), "");
    EXPECT_EQ(last_words([&] { map_beside_bit(2); }),
              "PDO::mapref Duplicate mapping for mapping nro= 0, mapping pos= 2, mapping size= 1\n");
    EXPECT_EQ(last_words([&] { map_beside_bit(3); }),
              "PDO::mapref Duplicate mapping for mapping nro= 0, mapping pos= 3, mapping size= 1\n");
    EXPECT_EQ(printed([&] { map_beside_bit(4); }), "");
    EXPECT_EQ(printed([&] { map_beside_bit(5); }), "");
}

TEST(PdoMapref, NeverLowersTheLength) {
    PDO pdo(0x181);
    pdo.set_len(7);
    unsigned char variable = 0;
    pdo.mapcopy(2, variable);
    EXPECT_EQ(pdo.get_len(), 7U);
    pdo.mapcopy(7, variable);
    EXPECT_EQ(pdo.get_len(), 8U);
}

TEST(PdoMapcopy, PicksTheTypeByTheVariable) {
    PDO pdo(0x181);
    char c = 0;
    unsigned char uc = 0;
    short s = 0;
    unsigned short us = 0;
    pdo.mapcopy(0, c);
    pdo.mapcopy(1, uc);
    pdo.mapcopy(2, s);
    pdo.mapcopy(4, us);
    ASSERT_EQ(pdo.mapCounter, 4);
    EXPECT_EQ(pdo.PDOmap[0].type, PDO::char1);
    EXPECT_EQ(pdo.PDOmap[1].type, PDO::uchar1);
    EXPECT_EQ(pdo.PDOmap[2].type, PDO::short2);
    EXPECT_EQ(pdo.PDOmap[3].type, PDO::ushort2);
    EXPECT_EQ(pdo.PDOmap[0].var_address, &c);
    EXPECT_EQ(pdo.PDOmap[1].var_address, &uc);
    EXPECT_EQ(pdo.PDOmap[2].var_address, &s);
    EXPECT_EQ(pdo.PDOmap[3].var_address, &us);

    PDO other(0x182);
    int i = 0;
    unsigned int ui = 0;
    other.mapcopy(0, i);
    other.mapcopy(4, ui);
    ASSERT_EQ(other.mapCounter, 2);
    EXPECT_EQ(other.PDOmap[0].type, PDO::int4);
    EXPECT_EQ(other.PDOmap[1].type, PDO::uint4);
    EXPECT_EQ(other.PDOmap[0].var_address, &i);
    EXPECT_EQ(other.PDOmap[1].var_address, &ui);
}

TEST(PdoMapcopy, ThePointerFormBehavesTheSame) {
    PDO pdo(0x181);
    char c = 0;
    unsigned char uc = 0;
    short s = 0;
    unsigned short us = 0;
    pdo.mapcopy(0, &c);
    pdo.mapcopy(1, &uc);
    pdo.mapcopy(2, &s);
    pdo.mapcopy(4, &us);
    ASSERT_EQ(pdo.mapCounter, 4);
    EXPECT_EQ(pdo.PDOmap[0].type, PDO::char1);
    EXPECT_EQ(pdo.PDOmap[1].type, PDO::uchar1);
    EXPECT_EQ(pdo.PDOmap[2].type, PDO::short2);
    EXPECT_EQ(pdo.PDOmap[3].type, PDO::ushort2);
    EXPECT_EQ(pdo.PDOmap[3].var_address, &us);

    PDO other(0x182);
    std::array<int, 2> values{};
    int* const first = values.data();
    unsigned int ui = 0;
    other.mapcopy(0, first);
    other.mapcopy(4, &ui);
    ASSERT_EQ(other.mapCounter, 2);
    EXPECT_EQ(other.PDOmap[0].type, PDO::int4);
    EXPECT_EQ(other.PDOmap[0].var_address, values.data());
    EXPECT_EQ(other.PDOmap[1].type, PDO::uint4);
}

namespace {

template <typename T>
concept has_mapcopy = requires(PDO pdo, T variable) {
    pdo.mapcopy(0U, variable);
};
template <typename T>
concept has_mapbitcopy = requires(PDO pdo, T variable) {
    pdo.mapbitcopy(0U, variable);
};

}  // namespace

TEST(PdoMapcopy, HasNoFormForOtherTypes) {
    EXPECT_TRUE(has_mapcopy<int>);
    EXPECT_TRUE(has_mapcopy<int*>);
    EXPECT_FALSE(has_mapcopy<bool>);
    EXPECT_FALSE(has_mapcopy<bool*>);
    EXPECT_FALSE(has_mapcopy<long long>);
    EXPECT_FALSE(has_mapcopy<unsigned long long*>);
    EXPECT_FALSE(has_mapcopy<const int>);
    EXPECT_FALSE(has_mapcopy<float>);
    EXPECT_TRUE(has_mapbitcopy<bool>);
    EXPECT_TRUE(has_mapbitcopy<bool*>);
    EXPECT_FALSE(has_mapbitcopy<long long>);
    EXPECT_FALSE(has_mapbitcopy<const char>);
}

TEST(PdoMapbitref, RecordsByteBitSizeAndType) {
    struct Row {
        unsigned int size;
        PDO::maptype type;
    };
    for (const auto& [size, type] : {Row{1, PDO::bit1}, Row{2, PDO::bit2}, Row{4, PDO::bit4}}) {
        for (unsigned int pos = 0; pos < 64; ++pos) {
            PDO pdo(0x181);
            int variable = 0;
            pdo.mapbitref(pos, size, &variable);
            ASSERT_EQ(pdo.mapCounter, 1);
            EXPECT_EQ(pdo.PDOmap[0].var_address, &variable);
            EXPECT_EQ(pdo.PDOmap[0].pdo_address, pdo.get_address(static_cast<int>(pos / 8)));
            EXPECT_EQ(pdo.PDOmap[0].pos, pos % 8);
            EXPECT_EQ(pdo.PDOmap[0].len, size);
            EXPECT_EQ(pdo.PDOmap[0].type, type);
            EXPECT_EQ(pdo.get_len(), pos / 8 + 1);
        }
    }
}

TEST(PdoMapbitref, RefusesOtherSizesBeforeAllElse) {
    int variable = 0;
    for (const unsigned int size : {0U, 3U, 5U, 8U, 0xFFFFFFFFU}) {
        EXPECT_EQ(last_words([&] { PDO(0x181).mapbitref(64, size, &variable); }),
                  "PDO::mapref failed: Unknown Type \n")
            << size;
    }
}

TEST(PdoMapbitref, IgnoresTheSixtyFifthMappingWithAMessage) {
    EXPECT_EQ(printed([] {
                  PDO pdo(0x181);
                  bool variable = false;
                  for (int i = 0; i < 64; ++i) {
                      pdo.mapbitcopy(0, variable);
                  }
                  pdo.mapbitcopy(63, variable);
                  pdo.mapbitcopy(64, variable);
                  std::printf("%d %u", pdo.mapCounter, pdo.get_len());
              }),
              "PDO::mapbitref COBID=0x181 Maximum number of mappings done\n"
              "PDO::mapbitref COBID=0x181 Maximum number of mappings done\n64 1");
}

TEST(PdoMapbitref, IgnoresABitOutsideOfThePdoWithAMessage) {
    EXPECT_EQ(printed([] {
                  PDO pdo(0x181);
                  bool variable = false;
                  pdo.mapbitcopy(64, variable);
                  pdo.mapbitcopy(0xFFFFFFFF, variable);
                  std::printf("%d %u", pdo.mapCounter, pdo.get_len());
              }),
              "PDO::mapbitref COBID=00x181 Mapping not inside of the PDO\n"
              "PDO::mapbitref COBID=00x181 Mapping not inside of the PDO\n0 0");
}

TEST(PdoMapbitref, ChecksNeitherAddressNorOverlap) {
    PDO pdo(0x181);
    int whole = 0;
    bool bit = false;
    pdo.mapcopy(0, whole);
    pdo.mapbitcopy(3, bit);
    pdo.mapbitcopy(3, bit);
    pdo.mapbitref(3, 4, small_address(1));
    EXPECT_EQ(pdo.mapCounter, 4);
    EXPECT_EQ(pdo.get_len(), 4U);
    EXPECT_EQ(pdo.PDOmap[3].var_address, small_address(1));
}

TEST(PdoMapbitref, NeverLowersTheLength) {
    PDO pdo(0x181);
    pdo.set_len(8);
    bool bit = false;
    pdo.mapbitcopy(0, bit);
    EXPECT_EQ(pdo.get_len(), 8U);
}

namespace {

// Maps a variable of type T in both forms and tells the sizes recorded.
template <typename T>
std::array<int, 2> mapbitcopy_sizes() {
    PDO pdo(0x181);
    T variable{};
    pdo.mapbitcopy(0, variable);
    pdo.mapbitcopy(1, &variable);
    EXPECT_EQ(pdo.PDOmap[0].var_address, &variable);
    EXPECT_EQ(pdo.PDOmap[1].var_address, &variable);
    return {pdo.PDOmap[0].len, pdo.PDOmap[1].len};
}

}  // namespace

TEST(PdoMapbitcopy, PicksTheSizeByTheVariableInBothForms) {
    using Sizes = std::array<int, 2>;
    EXPECT_EQ(mapbitcopy_sizes<bool>(), (Sizes{1, 1}));
    EXPECT_EQ(mapbitcopy_sizes<char>(), (Sizes{1, 1}));
    EXPECT_EQ(mapbitcopy_sizes<unsigned char>(), (Sizes{1, 1}));
    EXPECT_EQ(mapbitcopy_sizes<short>(), (Sizes{2, 2}));
    EXPECT_EQ(mapbitcopy_sizes<unsigned short>(), (Sizes{2, 2}));
    EXPECT_EQ(mapbitcopy_sizes<int>(), (Sizes{4, 4}));
    EXPECT_EQ(mapbitcopy_sizes<unsigned int>(), (Sizes{4, 4}));
}

// Data transfer

TEST(PdoCreateTpdo, TakesAnUntypedAddress) {
    void (PDO::*const create)(void*) = &PDO::create_tpdo;
    PDO pdo(0x181);
    unsigned long long bytes = 0x0102030405060708;
    (pdo.*create)(&bytes);
    EXPECT_EQ(pdo.get_value(), 0x0102030405060708U);
}

TEST(PdoCreateTpdo, TakesEightBytesAsOldAndNewDataWhateverTheLength) {
    PDO pdo(0x181);
    pdo.set_len(2);
    pdo.create_tpdo(counting.data());
    EXPECT_EQ(data_of(pdo), counting);
    EXPECT_EQ(old_data_of(pdo), counting);
    EXPECT_EQ(pdo.get_len(), 2U);
    EXPECT_EQ(pdo.PDO_updated, 0U);
    EXPECT_FALSE(pdo.pdo_changed());
}

TEST(PdoCreateTpdo, WritesEveryMappedVariable) {
    PDO pdo(0x181);
    char a = 0;
    unsigned char b = 0;
    short c = 0;
    int d = 0;
    bool low = true;
    int high = 5;
    pdo.mapcopy(0, a);
    pdo.mapcopy(1, b);
    pdo.mapcopy(2, c);
    pdo.mapcopy(4, d);
    pdo.mapbitcopy(0, low);
    pdo.mapbitcopy(63, high);
    const Bytes frame = {0xFE, 0xFD, 0xFC, 0xFF, 0x01, 0x02, 0x03, 0x84};
    pdo.create_tpdo(frame.data());
    EXPECT_EQ(a, -2);
    EXPECT_EQ(b, 0xFD);
    EXPECT_EQ(c, -4);
    EXPECT_EQ(d, static_cast<int>(0x84030201));
    EXPECT_FALSE(low);
    EXPECT_EQ(high, 1);
}

TEST(PdoCreateTpdo, BitTenGoesIntoAShort) {
    PDO pdo(0x181);
    short x = -1;
    pdo.mapbitcopy(10, x);
    EXPECT_EQ(pdo.get_len(), 2U);
    const Bytes frame = {0, 0x04};
    pdo.create_tpdo(frame.data());
    EXPECT_EQ(x, 1);
    const Bytes other = {0xFF, 0xFB, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    pdo.create_tpdo(other.data());
    EXPECT_EQ(x, 0);
}

TEST(PdoCreateTpdo, ABitIsStoredInTheWidthOfItsVariable) {
    for (const unsigned int size : {1U, 2U, 4U}) {
        for (unsigned int pos = 0; pos < 64; ++pos) {
            PDO pdo(0x181);
            Bytes room;
            room.fill(0xEE);
            pdo.mapbitref(pos, size, room.data() + 1);
            Bytes expected = room;

            unsigned long long frame = 1ULL << pos;
            pdo.create_tpdo(&frame);
            std::memset(expected.data() + 1, 0, size);
            expected[1] = 1;
            EXPECT_EQ(room, expected);

            frame = ~frame;
            pdo.create_tpdo(&frame);
            expected[1] = 0;
            EXPECT_EQ(room, expected);
        }
    }
}

TEST(PdoCreateTpdo, LaterMappingsOfAVariableWin) {
    PDO pdo(0x181);
    unsigned char variable = 0;
    pdo.mapcopy(0, variable);
    pdo.mapcopy(1, variable);
    pdo.create_tpdo(counting.data());
    EXPECT_EQ(variable, 0x22);
}

TEST(PdoCreateTpdo, RefusesASmallAddress) {
    const std::string expected = "Destination variable address if smaller than 10000 !\n" + faulty_pointer;
    EXPECT_EQ(last_words([] {
                  PDO pdo(0x181);
                  pdo.mapbitref(0, 1, small_address(9999));
                  pdo.create_tpdo(counting.data());
              }),
              expected);
    EXPECT_EQ(last_words([] {
                  PDO pdo(0x181);
                  unsigned char variable = 0;
                  pdo.mapcopy(0, variable);
                  pdo.PDOmap[0].var_address = nullptr;
                  pdo.PDOmap[0].type = PDO::none;
                  pdo.create_tpdo(counting.data());
              }),
              expected);
}

TEST(PdoCreateTpdo, RefusesFaultyTypes) {
    const auto receive_with_type = [](int type) {
        PDO pdo(0x181);
        int variable = 0;
        pdo.mapcopy(0, variable);
        pdo.PDOmap[0].type = static_cast<PDO::maptype>(type);
        pdo.create_tpdo(counting.data());
    };
    EXPECT_EQ(last_words([&] { receive_with_type(0); }), "PDO::createTPDO Mapping of type none !\n");
    EXPECT_EQ(last_words([&] { receive_with_type(12); }), "PDO::createTPDO Unknown mapping type\n");
    EXPECT_EQ(last_words([&] { receive_with_type(1000); }), "PDO::createTPDO Unknown mapping type\n");
}

TEST(PdoCreateRpdo, ReadsEveryMappedVariableAndKeepsTheRest) {
    PDO pdo(0x201);
    set_data(pdo, counting);
    char a = -2;
    unsigned short b = 0xBBAA;
    pdo.mapcopy(0, a);
    pdo.mapcopy(4, b);
    pdo.create_rpdo();
    EXPECT_EQ(data_of(pdo), (Bytes{0xFE, 0x22, 0x33, 0x44, 0xAA, 0xBB, 0x77, 0x88}));
    EXPECT_EQ(old_data_of(pdo), Bytes{});
    EXPECT_EQ(pdo.get_len(), 6U);
}

TEST(PdoCreateRpdo, ABitIsTheLowestOfTheVariableWhateverItsWidth) {
    for (const unsigned int size : {1U, 2U, 4U}) {
        for (unsigned int pos = 0; pos < 64; ++pos) {
            PDO pdo(0x201);
            Bytes room = {0, 0x01, 0xFF, 0xFF, 0xFF};
            pdo.mapbitref(pos, size, room.data() + 1);
            pdo.create_rpdo();
            EXPECT_EQ(pdo.get_value(), 1ULL << pos);

            room[1] = 0xFE;
            set_data(pdo, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF});
            pdo.create_rpdo();
            EXPECT_EQ(pdo.get_value(), ~(1ULL << pos));
        }
    }
}

TEST(PdoCreateRpdo, BitsOfAMappedByteAreSetAfterIt) {
    PDO pdo(0x201);
    unsigned char byte = 0x0F;
    bool set = true;
    bool clear = false;
    pdo.mapcopy(0, byte);
    pdo.mapbitcopy(7, set);
    pdo.mapbitcopy(0, clear);
    pdo.create_rpdo();
    EXPECT_EQ(pdo.get_byte8(0), 0x8EU);
}

TEST(PdoCreateRpdo, RefusesASmallAddress) {
    const std::string expected = "Source variable address if smaller than 10000 !\n" + faulty_pointer;
    EXPECT_EQ(last_words([] {
                  PDO pdo(0x201);
                  pdo.mapbitref(0, 1, small_address(9999));
                  pdo.create_rpdo();
              }),
              expected);
    EXPECT_EQ(last_words([] {
                  PDO pdo(0x201);
                  pdo.mapbitref(0, 1, nullptr);
                  pdo.PDOmap[0].type = PDO::none;
                  pdo.create_rpdo();
              }),
              expected);
}

TEST(PdoCreateRpdo, RefusesFaultyTypes) {
    const auto send_with_type = [](int type) {
        PDO pdo(0x201);
        int variable = 0;
        pdo.mapcopy(0, variable);
        pdo.PDOmap[0].type = static_cast<PDO::maptype>(type);
        pdo.create_rpdo();
    };
    EXPECT_EQ(last_words([&] { send_with_type(0); }), "PDO::createRPDO Mapping of type none !\n");
    EXPECT_EQ(last_words([&] { send_with_type(12); }), "PDO::createRPDO Unknown mapping type\n");
    EXPECT_EQ(last_words([&] { send_with_type(1000); }), "PDO::createRPDO Unknown mapping type\n");
}

TEST(PdoChanged, IsTrueOncePerChange) {
    PDO pdo(0x201);
    EXPECT_FALSE(pdo.pdo_changed());
    for (int pos = 0; pos < 8; ++pos) {
        pdo.set_byte8(pos, 1);
        EXPECT_TRUE(pdo.pdo_changed());
        EXPECT_EQ(old_data_of(pdo), data_of(pdo));
        EXPECT_FALSE(pdo.pdo_changed());
    }
}

TEST(PdoChanged, SeesBytesPastTheLength) {
    PDO pdo(0x201);
    pdo.set_len(1);
    pdo.set_byte8(7, 1);
    EXPECT_TRUE(pdo.pdo_changed());
}

TEST(PdoChanged, SeesAChangedVariableAfterItWasTakenIn) {
    PDO pdo(0x201);
    int variable = 0;
    pdo.mapcopy(0, variable);
    variable = 9;
    EXPECT_FALSE(pdo.pdo_changed());
    pdo.create_rpdo();
    EXPECT_TRUE(pdo.pdo_changed());
    pdo.create_rpdo();
    EXPECT_FALSE(pdo.pdo_changed());
}

// Dictionary entries and print-outs

TEST(PdoMapObject, StoresTheTruthValueOfItsArguments) {
    PDO pdo(0x181);
    pdo.map_object(0x6000, 1, 8);
    pdo.map_object(0, 0, 0);
    pdo.map_object(0x6000, 0, 0);
    pdo.map_object(0, 0xFF, 0);
    pdo.map_object(0, 0, 32);
    EXPECT_EQ(pdo.obj_info.mappingcount, 5);
    const std::vector<int> stored(pdo.obj_info.pdo_mappings, pdo.obj_info.pdo_mappings + 5);
    EXPECT_EQ(stored, (std::vector{1, 0, 1, 1, 1}));
    EXPECT_EQ(pdo.mapCounter, 0);
    EXPECT_EQ(pdo.get_len(), 0U);
}

TEST(PdoMapObject, IgnoresTheSixtyFifthEntry) {
    EXPECT_EQ(printed([] {
                  PDO pdo(0x181);
                  for (int i = 0; i < 70; ++i) {
                      pdo.map_object(0x6000, 1, 8);
                  }
                  std::printf("%d %#x", pdo.obj_info.mappingcount, pdo.get_cobid());
              }),
              "64 0x181");
}

TEST(PdoMapObject, IgnoresAnEntryWhileTheCountIsOutOfRange) {
    for (const int count : {-1, 65, 254, std::numeric_limits<int>::min()}) {
        EXPECT_EQ(printed([count] {
                      PDO pdo(0x181);
                      pdo.obj_info.mappingcount = count;
                      pdo.map_object(0x6000, 1, 8);
                      std::printf("%d %d %#x", pdo.obj_info.mappingcount, pdo.obj_info.transmission_type,
                                  pdo.get_cobid());
                  }),
                  std::to_string(count) + " 1 0x181");
    }
}

TEST(PdoPrintMappings, ShowsAStoredTruthValueAsLengthOne) {
    EXPECT_EQ(printed([] {
                  PDO pdo(0x181);
                  pdo.map_object(0x6000, 1, 8);
                  pdo.print_mappings();
              }),
              "Mapping Nro= 0  Index=0x0000  Subindex=0x00  Lenght= 1\nSYNC type=0x01\n");
}

TEST(PdoPrintMappings, SplitsEveryEntry) {
    EXPECT_EQ(printed([] {
                  PDO pdo(0x201);
                  for (int i = 0; i < 11; ++i) {
                      pdo.map_object(0, 0, 0);
                  }
                  pdo.obj_info.pdo_mappings[0] = 0x60000108;
                  pdo.obj_info.pdo_mappings[10] = static_cast<int>(0xA100FE20);
                  pdo.set_transmission_type(254);
                  pdo.print_mappings();
              }),
              "Mapping Nro= 0  Index=0x6000  Subindex=0x01  Lenght= 8\n"
              "Mapping Nro= 1  Index=0x0000  Subindex=0x00  Lenght= 0\n"
              "Mapping Nro= 2  Index=0x0000  Subindex=0x00  Lenght= 0\n"
              "Mapping Nro= 3  Index=0x0000  Subindex=0x00  Lenght= 0\n"
              "Mapping Nro= 4  Index=0x0000  Subindex=0x00  Lenght= 0\n"
              "Mapping Nro= 5  Index=0x0000  Subindex=0x00  Lenght= 0\n"
              "Mapping Nro= 6  Index=0x0000  Subindex=0x00  Lenght= 0\n"
              "Mapping Nro= 7  Index=0x0000  Subindex=0x00  Lenght= 0\n"
              "Mapping Nro= 8  Index=0x0000  Subindex=0x00  Lenght= 0\n"
              "Mapping Nro= 9  Index=0x0000  Subindex=0x00  Lenght= 0\n"
              "Mapping Nro=10  Index=0xa100  Subindex=0xfe  Lenght=32\n"
              "SYNC type=0xfe\n");
}

TEST(PdoPrintMappings, ShowsNoMoreEntriesThanTheTableHolds) {
    const std::string shown = printed([] {
        PDO pdo(0x201);
        pdo.obj_info.mappingcount = 255;
        pdo.print_mappings();
        pdo.obj_info.mappingcount = -1;
        pdo.print_mappings();
    });
    EXPECT_EQ(std::count(shown.begin(), shown.end(), '\n'), 64 + 1 + 1);
}

TEST(PdoPrintMappings, WithoutEntriesShowsTheTransmissionTypeOnly) {
    EXPECT_EQ(printed([] { PDO(0x201).print_mappings(); }), "SYNC type=0x00\n");
}

TEST(PdoPrint, DumpsCobidAddressAndData) {
    PDO pdo(0x181);
    set_data(pdo, counting);
    pdo.set_byte8(2, 0);
    std::array<char, 64> address{};
    std::snprintf(address.data(), address.size(), "%p", static_cast<void*>(pdo.get_address(0)));
    EXPECT_EQ(printed([&] { pdo.print(); }), std::string("PDO COBID=0x181  addresss=") + address.data() +
                                                 "  data=11 22 00 44 55 66 77 88 \n");
}

TEST(PdoPrint, PadsAShortCobid) {
    PDO pdo;
    pdo.cobid = 0x1F;
    EXPECT_EQ(printed([&] { pdo.print(); }).substr(0, 15), "PDO COBID=0x01f");
}
