#include "nodevik/nodes/nodeconfiguration.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "nodevik/util/monotonicclock.h"
#include "tests/nodevik/nodes/configurationresults.h"
#include "tests/support/scriptedcandriver.h"
#include "tests/support/scriptedclock.h"

namespace {

using Outcome = ConfigurationOutcome;
using Result = ConfigurationResult;
using Data = std::array<unsigned char, 8>;
using Lines = std::vector<std::string>;

constexpr std::uint32_t no_object = 0x06020000;
constexpr std::uint32_t read_only = 0x06010002;
constexpr std::uint32_t invalid = 0x06090030;
constexpr std::uint32_t too_long = 0x06070012;
constexpr std::uint32_t not_mappable = 0x06040041;

std::uint32_t key(unsigned int index, unsigned int subindex) {
    return index << 8 | subindex;
}

// A node that is as strict as any: every rule for PDOs that the standard has is held. Its values fit into one frame.
struct StrictNode {
    std::map<std::uint32_t, ObjectBytes> objects;
    std::set<std::uint32_t> constants;                  // refuse every write
    std::set<std::uint32_t> write_only;                 // refuse every read
    std::map<std::uint32_t, ObjectBytes> fixed;         // take a write and keep this
    std::map<std::uint32_t, std::uint32_t> bad_values;  // object -> a value that it refuses
    std::optional<unsigned int> silent_from;  // number of the first request that is not answered, from 0
    std::optional<unsigned int> silent_to;    // number of the first one that is again
    unsigned int requests = 0;
    Lines writes;

    static std::uint32_t number(const ObjectBytes& bytes) {
        std::uint32_t value = 0;
        for (std::size_t i = bytes.size(); i > 0; --i) {
            value = value << 8 | bytes[i - 1];
        }
        return value;
    }

    void add(unsigned int index, unsigned int subindex, std::uint32_t value, std::size_t size) {
        ObjectBytes& bytes = objects[key(index, subindex)];
        bytes.clear();
        for (std::size_t i = 0; i < size; ++i) {
            bytes.push_back(static_cast<std::uint8_t>(value >> 8 * i));
        }
    }
    std::uint32_t value(unsigned int index, unsigned int subindex) const {
        const auto found = objects.find(key(index, subindex));
        return found == objects.end() ? 0xDEADBEEF : number(found->second);
    }

    void add_pdo(unsigned int communication, std::uint32_t id, const std::vector<std::uint32_t>& mapping) {
        add(communication, 1, id, 4);
        add(communication, 2, 255, 1);
        add(communication, 3, 0, 2);
        add(communication, 5, 0, 2);
        add(communication + 0x200, 0, static_cast<std::uint32_t>(mapping.size()), 1);
        for (unsigned int i = 1; i <= 4; ++i) {
            add(communication + 0x200, i, i <= mapping.size() ? mapping[i - 1] : 0, 4);
        }
    }

    // What a write of a PDO's object is answered with, CiA 301, 7.5.2.35 to .38.
    std::uint32_t judge_pdo(unsigned int index, unsigned int subindex, const ObjectBytes& bytes) const {
        const unsigned int communication = index & ~0x200U;
        const std::uint32_t id = value(communication, 1);
        const bool is_off = (id & 0x80000000) != 0;
        const std::uint32_t wanted = number(bytes);
        if (index == communication && subindex == 1) {
            const bool stays_on = !is_off && (wanted & 0x80000000) == 0;
            const bool other_bit_30 = communication >= 0x1800 && ((wanted ^ id) & 0x40000000) != 0;
            const bool empty = (wanted & 0x80000000) == 0 && value(communication + 0x200, 0) == 0;
            return (stays_on && wanted != id) || other_bit_30 || empty ? invalid : 0;
        }
        if (index == communication) {
            return subindex == 3 && !is_off ? invalid : 0;
        }
        if (!is_off) {
            return 0x06010000;
        }
        if (subindex > 0) {
            return value(index, 0) != 0 ? 0x06010000 : 0;
        }
        std::uint32_t bits = 0;
        for (unsigned int i = 1; i <= wanted; ++i) {
            bits += value(index, i) & 0xFF;
        }
        return bits > 64 ? 0x06040042 : 0;
    }

    std::uint32_t write(unsigned int index, unsigned int subindex, const ObjectBytes& bytes) {
        char text[40];
        std::snprintf(text, sizeof text, "%04X:%u=%X/%zu", index, subindex, number(bytes), bytes.size());
        writes.emplace_back(text);
        const auto object = objects.find(key(index, subindex));
        if (object == objects.end()) {
            return write_only.count(key(index, subindex)) != 0 ? 0 : no_object;
        }
        if (constants.count(object->first) != 0) {
            return read_only;
        }
        const auto bad = bad_values.find(object->first);
        if (bad != bad_values.end() && bad->second == number(bytes)) {
            return not_mappable;
        }
        const bool is_text = index == 0x2100;
        if (bytes.size() > object->second.size() || (bytes.size() < object->second.size() && !is_text)) {
            return too_long;
        }
        const std::uint32_t refusal =
            index >= 0x1400 && index < 0x1C00 ? judge_pdo(index, subindex, bytes) : 0;
        if (refusal == 0) {
            const std::size_t size = object->second.size();
            object->second = fixed.count(object->first) != 0 ? fixed.at(object->first) : bytes;
            object->second.resize(size);
        }
        return refusal;
    }

    std::optional<Data> answer(const Data& request) {
        const unsigned int number_of_this = requests++;
        if (silent_from && number_of_this >= *silent_from && (!silent_to || number_of_this < *silent_to)) {
            return std::nullopt;
        }
        if (request[0] == 0x80) {
            return std::nullopt;
        }
        const unsigned int index = request[1] | static_cast<unsigned int>(request[2]) << 8;
        const unsigned int subindex = request[3];
        Data answer = {0, request[1], request[2], request[3], 0, 0, 0, 0};
        std::uint32_t code = 0;
        if ((request[0] & 0xE0) == 0x20) {
            const std::size_t size = 4U - (request[0] >> 2 & 3U);
            code = write(
                index, subindex,
                ObjectBytes(request.begin() + 4, request.begin() + 4 + static_cast<std::ptrdiff_t>(size)));
            answer[0] = 0x60;
        } else {
            const auto object = objects.find(key(index, subindex));
            if (write_only.count(key(index, subindex)) != 0) {
                code = 0x06010001;
            } else if (object == objects.end()) {
                code = subindex == 0 ? no_object : 0x06090011;
            } else {
                answer[0] = static_cast<unsigned char>(0x43 | (4 - object->second.size()) << 2);
                std::copy(object->second.begin(), object->second.end(), answer.begin() + 4);
            }
        }
        if (code != 0) {
            answer[0] = 0x80;
            for (std::size_t i = 0; i < 4; ++i) {
                answer[4 + i] = static_cast<unsigned char>(code >> 8 * i);
            }
        }
        return answer;
    }
};

std::string object_section(const char* index, const char* type, const std::string& lines = "") {
    return std::string("[") + index + "]\nParameterName=o" + index + "\nDataType=" + type +
           "\nAccessType=rw\n" + lines;
}

const std::string identity =
    object_section("1000", "7", "DefaultValue=0x20192\n") +
    "[1018]\nParameterName=Identity\nObjectType=9\n"
    "[1018sub1]\nParameterName=Vendor\nDataType=7\nAccessType=ro\nDefaultValue=0x1F1\n"
    "[1018sub2]\nParameterName=Product\nDataType=7\nAccessType=ro\nDefaultValue=7\n"
    "[1018sub3]\nParameterName=Revision\nDataType=7\nAccessType=ro\nDefaultValue=0x00020001\n";

class Configuration : public testing::Test {
public:
    Configuration() {
        add_node(5);
        bus.on_write = [this](const ScriptedFrame& frame) {
            if (frame.cobid == 0) {
                nmt.push_back(frame);
                if (boots) {
                    bus.queue(0x700U + frame.data[1], {0});
                }
                return;
            }
            const unsigned int number = frame.cobid - 0x600;
            const auto node = nodes.find(number);
            const auto answer = node == nodes.end() ? std::nullopt : node->second.answer(frame.data);
            if (answer) {
                ScriptedFrame reply(0x580 + number, {});
                reply.length = 8;
                reply.data = *answer;
                bus.queue(reply);
            }
        };
        description.parse(identity, "x.dcf");
    }

    StrictNode& add_node(unsigned int number) {
        StrictNode& node = nodes[number];
        node.add(0x1000, 0, 0x20192, 4);
        node.add(0x1018, 1, 0x1F1, 4);
        node.add(0x1018, 2, 7, 4);
        node.add(0x1018, 3, 0x00020009, 4);
        node.add(0x1017, 0, 0, 2);
        node.add(0x1016, 1, 0, 4);
        node.add(0x1020, 1, 0, 4);
        node.add(0x2000, 0, 5, 1);
        node.add(0x6000, 0, 6, 4);
        node.add(0x2100, 0, 0x00006261, 4);
        node.add(0x1010, 1, 1, 4);
        node.add(0x1011, 1, 1, 4);
        node.add_pdo(0x1800, 0x40000185, {0x60000020});
        node.add_pdo(0x1400, 0x80000205, {});
        return node;
    }

    void want(unsigned int index, unsigned int subindex, std::uint32_t value, std::size_t size) {
        ObjectBytes bytes(size);
        for (std::size_t i = 0; i < size; ++i) {
            bytes[i] = static_cast<std::uint8_t>(value >> 8 * i);
        }
        values.push_back({static_cast<std::uint16_t>(index), static_cast<std::uint8_t>(subindex), bytes});
    }

    int start(unsigned int number = 5) {
        return configuration.start(number, description, values, options,
                                   [this](const ConfigurationReport& report) { reports.push_back(report); });
    }

    // Lets time and frames pass until nothing is under way any more.
    void run() {
        for (int i = 0; i < 100000 && (configuration.active() > 0 || sdo.active() > 0); ++i) {
            driver.read_all();
            const std::uint64_t now = clock.now_us * 1000;
            sdo.process(now);
            configuration.process(now);
            const std::uint64_t deadline = std::min(sdo.next_deadline(), configuration.next_deadline());
            if (bus.pending() == 0 && deadline != no_deadline && deadline > clock.now_us * 1000) {
                clock.now_us = deadline / 1000 + 1;
            }
        }
        EXPECT_EQ(configuration.active(), 0U);
    }

    const ConfigurationReport& configure(unsigned int number = 5) {
        reports.clear();
        EXPECT_EQ(start(number), 0);
        EXPECT_TRUE(reports.empty()) << "called from within start()";
        run();
        EXPECT_EQ(reports.size(), 1U);
        static const ConfigurationReport none;
        return reports.empty() ? none : reports.front();
    }

    StrictNode& node() { return nodes.at(5); }

    ScriptedClock clock;
    ScriptedCanDriver bus;
    ObservedDriver driver{bus};
    SdoClient sdo{driver};
    NodeConfiguration configuration{driver, sdo};
    std::map<unsigned int, StrictNode> nodes;
    std::vector<ScriptedFrame> nmt;
    bool boots = true;
    DeviceDescription description;
    std::vector<ConfigurationValue> values;
    ConfigurationOptions options;
    std::vector<ConfigurationReport> reports;
};

TEST_F(Configuration, WritesWhatDiffersAndNothingElse) {
    want(0x2000, 0, 9, 1);
    want(0x6000, 0, 6, 4);
    const auto& report = configure();
    EXPECT_EQ(report.outcome, Outcome::done);
    EXPECT_EQ(report.node, 5U);
    EXPECT_EQ(report.reason, "");
    EXPECT_EQ(results(report), (Lines{"2000:0 written", "6000:0 same"}));
    EXPECT_EQ(node().writes, Lines{"2000:0=9/1"});
    EXPECT_EQ(node().value(0x2000, 0), 9U);
    EXPECT_TRUE(nmt.empty());
}

TEST_F(Configuration, ADryRunWritesNothingAndTellsTheSame) {
    options.dry_run = true;
    options.store = true;
    options.restore = true;
    want(0x2000, 0, 9, 1);
    want(0x6000, 0, 6, 4);
    want(0x1800, 1, 0x40000285, 4);
    want(0x1800, 2, 255, 1);
    want(0x2001, 0, 1, 1);
    const auto& report = configure();
    EXPECT_EQ(report.outcome, Outcome::refused);
    EXPECT_EQ(results(report), (Lines{"2000:0 would-write", "6000:0 same", "1800:1 would-write",
                                      "1800:2 same", "2001:0 refused"}));
    EXPECT_TRUE(node().writes.empty());
    EXPECT_TRUE(nmt.empty());
    EXPECT_FALSE(report.stored);
}

TEST_F(Configuration, WritesPdosInTheOrderThatNodesAccept) {
    want(0x1A00, 0, 2, 1);
    want(0x1A00, 1, 0x20000008, 4);
    want(0x1A00, 2, 0x60000020, 4);
    want(0x1800, 1, 0x40000285, 4);
    want(0x1800, 2, 1, 1);
    want(0x1800, 3, 100, 2);
    want(0x1800, 5, 0, 2);
    const auto& report = configure();
    EXPECT_EQ(report.outcome, Outcome::done) << report.reason;
    EXPECT_EQ(node().writes,
              (Lines{"1800:1=C0000185/4", "1800:2=1/1", "1800:3=64/2", "1A00:0=0/1", "1A00:1=20000008/4",
                     "1A00:2=60000020/4", "1A00:0=2/1", "1800:1=40000285/4"}));
    EXPECT_EQ(results(report), (Lines{"1A00:0 written", "1A00:1 written", "1A00:2 written", "1800:1 written",
                                      "1800:2 written", "1800:3 written", "1800:5 same"}));
    EXPECT_EQ(node().value(0x1800, 1), 0x40000285U);
    EXPECT_EQ(node().value(0x1A00, 0), 2U);
}

TEST_F(Configuration, APdoThatIsOffIsSwitchedOnLast) {
    want(0x1400, 1, 0x205, 4);
    want(0x1600, 0, 1, 1);
    want(0x1600, 1, 0x60000020, 4);
    EXPECT_EQ(configure().outcome, Outcome::done);
    EXPECT_EQ(node().writes, (Lines{"1600:0=0/1", "1600:1=60000020/4", "1600:0=1/1", "1400:1=205/4"}));
}

TEST_F(Configuration, APdoThatIsToBeOffEndsOff) {
    want(0x1800, 1, 0xC0000185, 4);
    want(0x1800, 2, 7, 1);
    EXPECT_EQ(configure().outcome, Outcome::done);
    EXPECT_EQ(node().value(0x1800, 1), 0xC0000185U);
    EXPECT_EQ(node().value(0x1800, 2), 7U);
}

TEST_F(Configuration, APdoThatIsRightIsLeftAlone) {
    want(0x1800, 1, 0x40000185, 4);
    want(0x1A00, 0, 1, 1);
    want(0x1A00, 1, 0x60000020, 4);
    want(0x1A00, 2, 0, 4);
    want(0x1A00, 8, 0, 4);
    const auto& report = configure();
    EXPECT_EQ(report.outcome, Outcome::done);
    EXPECT_TRUE(node().writes.empty());
    EXPECT_EQ(results(report),
              (Lines{"1800:1 same", "1A00:0 same", "1A00:1 same", "1A00:2 same", "1A00:8 same"}));
}

TEST_F(Configuration, PdosComeFirstAndTheHeartbeatLast) {
    want(0x1017, 0, 500, 2);
    want(0x1020, 1, 77, 4);
    want(0x6000, 0, 1, 4);
    want(0x1016, 1, 0x010100, 4);
    want(0x2000, 0, 1, 1);
    want(0x1800, 2, 1, 1);
    EXPECT_EQ(configure().outcome, Outcome::done);
    EXPECT_EQ(node().writes, (Lines{"1800:1=C0000185/4", "1800:2=1/1", "1800:1=40000185/4", "2000:0=1/1",
                                    "6000:0=1/4", "1016:1=10100/4", "1017:0=1F4/2", "1020:1=4D/4"}));
}

TEST_F(Configuration, ARefusalInAPdoPutsItBackAsItWas) {
    // Whatever step is refused, the PDO is afterwards what it was, and the objects behind it are set all the same.
    want(0x1800, 1, 0x40000285, 4);
    want(0x1800, 2, 1, 1);
    want(0x1A00, 0, 2, 1);
    want(0x1A00, 1, 0x20000008, 4);
    want(0x1A00, 2, 0x60000020, 4);
    want(0x2000, 0, 9, 1);
    struct Row {
        std::uint32_t object;
        std::uint32_t bad;
        const char* refused;
    };
    for (const Row& row :
         {Row{key(0x1800, 1), 0xC0000185, "1800:1"}, Row{key(0x1800, 2), 1, "1800:2"},
          Row{key(0x1A00, 1), 0x20000008, "1A00:1"}, Row{key(0x1A00, 2), 0x60000020, "1A00:2"},
          Row{key(0x1A00, 0), 2, "1A00:0"}, Row{key(0x1800, 1), 0x40000285, "1800:1"}}) {
        nodes.clear();
        add_node(5).bad_values[row.object] = row.bad;
        const auto before = node().objects;
        const auto& report = configure();
        EXPECT_EQ(report.outcome, Outcome::refused);
        EXPECT_FALSE(report.put_back_failed);
        for (const ConfigurationItem& item : report.items) {
            const std::string name = results(report)[static_cast<std::size_t>(&item - report.items.data())];
            if (item.index == 0x2000) {
                EXPECT_EQ(item.result, Result::written);
            } else if (name.rfind(row.refused, 0) == 0) {
                EXPECT_EQ(item.result, Result::refused) << name;
                EXPECT_EQ(item.abort_code, not_mappable);
                EXPECT_NE(item.reason.find("Object cannot be mapped to the PDO."), std::string::npos)
                    << item.reason;
            } else {
                EXPECT_EQ(item.result, Result::not_reached) << name;
            }
        }
        node().objects[key(0x2000, 0)] = before.at(key(0x2000, 0));
        EXPECT_EQ(node().objects, before) << row.refused;
    }
}

TEST_F(Configuration, ARefusedPdoThatWasOffStaysOff) {
    want(0x1400, 1, 0x205, 4);
    want(0x1600, 0, 1, 1);
    want(0x1600, 1, 0x60000020, 4);
    node().bad_values[key(0x1600, 1)] = 0x60000020;
    const auto before = node().objects;
    EXPECT_EQ(configure().outcome, Outcome::refused);
    EXPECT_EQ(node().objects, before);
}

TEST_F(Configuration, AFixedMappingIsRefusedAndThePdoGoesOn) {
    node().constants = {key(0x1A00, 0), key(0x1A00, 1)};
    const auto before = node().objects;
    want(0x1A00, 0, 1, 1);
    want(0x1A00, 1, 0x20000008, 4);
    const auto& report = configure();
    EXPECT_EQ(report.outcome, Outcome::refused);
    EXPECT_FALSE(report.put_back_failed);
    EXPECT_EQ(results(report), (Lines{"1A00:0 same", "1A00:1 refused"}));
    EXPECT_EQ(report.items[1].abort_code, read_only);
    EXPECT_EQ(node().objects, before);
}

TEST_F(Configuration, APdoThatCannotBePutBackIsTold) {
    want(0x1800, 2, 1, 1);
    want(0x1800, 3, 5, 2);
    node().bad_values[key(0x1800, 3)] = 5;
    node().fixed[key(0x1800, 2)] = {1};
    node().bad_values[key(0x1800, 2)] = 255;
    EXPECT_TRUE(configure().put_back_failed);
}

TEST_F(Configuration, AMissingPartOfAPdoLeavesItAlone) {
    want(0x1800, 2, 1, 1);
    want(0x1800, 6, 1, 1);
    const auto& report = configure();
    EXPECT_EQ(results(report), (Lines{"1800:2 not-reached", "1800:6 refused"}));
    EXPECT_EQ(report.items[1].abort_code, 0x06090011U);
    EXPECT_TRUE(node().writes.empty());
}

TEST_F(Configuration, RefusalsOfOtherObjectsLeaveTheRestToBeSet) {
    want(0x2000, 0, 9, 1);
    want(0x2001, 0, 9, 1);
    want(0x6000, 0, 9, 4);
    node().constants = {key(0x2000, 0)};
    const auto& report = configure();
    EXPECT_EQ(report.outcome, Outcome::refused);
    EXPECT_EQ(results(report), (Lines{"2000:0 refused", "2001:0 refused", "6000:0 written"}));
    EXPECT_EQ(report.items[0].abort_code, read_only);
    EXPECT_EQ(report.items[0].reason, "Attempt to write a read only object.");
    EXPECT_EQ(report.items[1].abort_code, no_object);
    EXPECT_EQ(report.reason, "not every object could be set");
}

TEST_F(Configuration, WhatReadsOtherwiseIsNotWritten) {
    want(0x2000, 0, 9, 1);
    want(0x1800, 2, 9, 1);
    node().fixed[key(0x2000, 0)] = {8};
    node().fixed[key(0x1800, 2)] = {8};
    const auto& report = configure();
    EXPECT_EQ(results(report), (Lines{"2000:0 refused", "1800:2 refused"}));
    for (const auto& item : report.items) {
        EXPECT_EQ(item.abort_code, 0U);
        EXPECT_EQ(item.reason, "reads otherwise after it was written");
    }
}

TEST_F(Configuration, WhatCannotBeReadIsWritten) {
    want(0x2200, 0, 9, 1);
    node().write_only = {key(0x2200, 0)};
    const auto& report = configure();
    EXPECT_EQ(report.outcome, Outcome::done);
    EXPECT_EQ(results(report), Lines{"2200:0 written"});
    EXPECT_EQ(node().writes, Lines{"2200:0=9/1"});
}

TEST_F(Configuration, AStringThatIsFilledUpIsTheSame) {
    description.parse(identity + object_section("2100", "9"), "x.dcf");
    values.push_back({0x2100, 0, {'a', 'b'}});
    EXPECT_EQ(results(configure()), Lines{"2100:0 same"});
    values.back().bytes = {'c'};
    EXPECT_EQ(results(configure()), Lines{"2100:0 written"});
    values.back() = {0x6000, 0, {6}};
    EXPECT_EQ(results(configure()), Lines{"6000:0 refused"}) << "a number is not filled up";
}

TEST_F(Configuration, AWrongNodeIsNotWrittenTo) {
    struct Row {
        unsigned int index, subindex;
        std::uint32_t value;
        const char* reason;
    };
    want(0x2000, 0, 9, 1);
    for (const Row& row : {Row{0x1000, 0, 1, "device type is 0x00000001, the file has 0x00020192"},
                           Row{0x1018, 1, 2, "vendor is 0x00000002, the file has 0x000001F1"},
                           Row{0x1018, 2, 2, "product is 0x00000002, the file has 0x00000007"},
                           Row{0x1018, 3, 0x00030001, "revision is 0x00030001, the file has 0x00020001"}}) {
        nodes.clear();
        add_node(5).add(row.index, row.subindex, row.value, 4);
        const auto& report = configure();
        EXPECT_EQ(report.outcome, Outcome::wrong_identity);
        EXPECT_EQ(report.reason, row.reason);
        EXPECT_EQ(results(report), Lines{"2000:0 not-reached"});
        EXPECT_TRUE(node().writes.empty());
    }
    options.check_identity = false;
    EXPECT_EQ(configure().outcome, Outcome::done);
}

TEST_F(Configuration, IdentityComesFromTheDeviceInfoAndTheCommissioningToo) {
    description.parse(
        "[DeviceInfo]\nVendorNumber=0x1F1\nProductNumber=7\nRevisionNumber=0x20001\n[DeviceComissioning]"
        "\nNodeID=5\n"
        "LSS_SerialNumber=99\n" +
            object_section("2000", "5"),
        "x.dcf");
    const auto& missing = configure();
    EXPECT_EQ(missing.outcome, Outcome::wrong_identity);
    EXPECT_EQ(missing.reason, "serial number cannot be read: Sub-index does not exist.");
    EXPECT_EQ(missing.abort_code, 0x06090011U);
    node().add(0x1018, 4, 99, 4);
    EXPECT_EQ(configure().outcome, Outcome::done);
    node().add(0x1018, 1, 1, 4);
    EXPECT_EQ(configure().reason, "vendor is 0x00000001, the file has 0x000001F1");
}

TEST_F(Configuration, StoresWhenAskedAndOnlyWhenAllIsWell) {
    options.store = true;
    want(0x2000, 0, 9, 1);
    EXPECT_TRUE(configure().stored);
    EXPECT_EQ(node().writes, (Lines{"2000:0=9/1", "1010:1=65766173/4"}));
    node().writes.clear();
    want(0x2001, 0, 1, 1);
    const auto& refused = configure();
    EXPECT_EQ(refused.outcome, Outcome::refused);
    EXPECT_EQ(refused.reason, "not every object could be set: nothing is stored");
    EXPECT_FALSE(refused.stored);
    EXPECT_TRUE(node().writes.empty());
    values.pop_back();
    node().constants = {key(0x1010, 1)};
    const auto& not_stored = configure();
    EXPECT_EQ(not_stored.outcome, Outcome::refused);
    EXPECT_EQ(not_stored.reason, "storing is refused: Attempt to write a read only object.");
    EXPECT_EQ(not_stored.abort_code, read_only);
}

TEST_F(Configuration, NeverStoresOrRestoresBecauseOfAValue) {
    want(0x1010, 1, 0x65766173, 4);
    want(0x1011, 1, 0x64616F6C, 4);
    const auto& report = configure();
    EXPECT_TRUE(report.items.empty());
    EXPECT_EQ(report.outcome, Outcome::done);
    EXPECT_TRUE(node().writes.empty());
}

TEST_F(Configuration, RestoresFirstAndWaitsForTheNode) {
    options.restore = true;
    want(0x2000, 0, 9, 1);
    const auto& report = configure();
    EXPECT_EQ(report.outcome, Outcome::done);
    EXPECT_TRUE(report.restored);
    EXPECT_EQ(node().writes, (Lines{"1011:1=64616F6C/4", "2000:0=9/1"}));
    ASSERT_EQ(nmt.size(), 1U);
    EXPECT_EQ(nmt[0], ScriptedFrame(0, {0x81, 5}));
}

TEST_F(Configuration, ANodeThatDoesNotComeBackIsTold) {
    options.restore = true;
    options.boot_up_ms = 700;
    boots = false;
    want(0x2000, 0, 9, 1);
    const std::uint64_t before = clock.now_us;
    const auto& report = configure();
    EXPECT_EQ(report.outcome, Outcome::no_answer);
    EXPECT_EQ(report.reason, "no boot-up after the reset");
    EXPECT_FALSE(report.restored);
    EXPECT_GE(clock.now_us - before, 700000U);
    node().constants = {key(0x1011, 1)};
    EXPECT_EQ(configure().reason, "restoring is refused: Attempt to write a read only object.");
}

TEST_F(Configuration, OnlyABootUpOfThatNodeEndsTheWait) {
    options.restore = true;
    boots = false;
    ASSERT_EQ(start(), 0);
    for (int i = 0; i < 20; ++i) {
        driver.read_all();
    }
    ASSERT_EQ(nmt.size(), 1U);
    bus.queue(0x706, {0});
    bus.queue(0x705, {5});
    bus.queue(0x705, {0, 0});
    bus.queue(0x705, {});
    driver.read_all();
    EXPECT_EQ(configuration.active(), 1U);
    EXPECT_FALSE(sdo.busy(5));
    bus.queue(0x705, {0});
    driver.read_all();
    run();
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_TRUE(reports[0].restored);
}

TEST_F(Configuration, ASilentNodeIsToldAtEachStep) {
    want(0x1800, 1, 0x40000285, 4);
    want(0x1800, 2, 1, 1);
    want(0x1A00, 1, 0x20000008, 4);
    want(0x2000, 0, 9, 1);
    options.store = true;
    configure();
    const unsigned int all = node().requests;
    for (unsigned int from = 0; from < all; ++from) {
        nodes.clear();
        add_node(5).silent_from = from;
        const auto& report = configure();
        EXPECT_EQ(report.outcome, Outcome::no_answer) << from;
        EXPECT_NE(report.reason, "");
        EXPECT_FALSE(report.stored);
        EXPECT_FALSE(sdo.busy(5));
    }
}

TEST_F(Configuration, APdoIsPutBackAfterALostAnswer) {
    want(0x1800, 1, 0x40000285, 4);
    want(0x1800, 2, 1, 1);
    want(0x1A00, 1, 0x20000008, 4);
    configure();
    unsigned int undone = 0;
    const unsigned int all = node().requests;
    for (unsigned int from = 0; from < all; ++from) {
        nodes.clear();
        add_node(5).silent_from = from;
        node().silent_to = from + 2;  // the request, and the abort that follows it
        const auto before = node().objects;
        const auto& report = configure();
        EXPECT_FALSE(report.put_back_failed);
        if (report.outcome == Outcome::refused) {
            ++undone;
            EXPECT_EQ(node().objects, before) << from;
        } else {
            EXPECT_EQ(report.outcome, Outcome::no_answer) << from << " " << report.reason;
        }
    }
    EXPECT_EQ(undone, 6U) << "each write of the PDO";
}

TEST_F(Configuration, SetsUpSeveralNodesAtOnce) {
    want(0x2000, 0, 9, 1);
    want(0x1800, 2, 1, 1);
    for (unsigned int number = 10; number < 20; ++number) {
        add_node(number);
        EXPECT_EQ(start(number), 0);
    }
    EXPECT_EQ(configuration.active(), 10U);
    EXPECT_EQ(sdo.active(), 10U);
    EXPECT_EQ(start(10), -1);
    run();
    EXPECT_EQ(reports.size(), 10U);
    std::set<unsigned int> seen;
    for (const auto& report : reports) {
        EXPECT_EQ(report.outcome, Outcome::done);
        EXPECT_EQ(results(report), (Lines{"2000:0 written", "1800:2 written"}));
        seen.insert(report.node);
    }
    EXPECT_EQ(seen.size(), 10U);
}

TEST_F(Configuration, RefusesWhatIsNoNode) {
    EXPECT_EQ(start(0), -1);
    EXPECT_EQ(start(128), -1);
    EXPECT_EQ(configuration.active(), 0U);
}

TEST_F(Configuration, WaitsForTheEndOfSomebodyElsesTransfer) {
    std::uint32_t room = 0;
    bool other_ended = false;
    ASSERT_EQ(
        sdo.start_read({5, 0x1000, 0}, &room, sizeof room, [&](const SdoResult&) { other_ended = true; }), 0);
    want(0x2000, 0, 9, 1);
    EXPECT_EQ(configure().outcome, Outcome::done);
    EXPECT_TRUE(other_ended);
    EXPECT_EQ(room, 0x20192U);
}

TEST_F(Configuration, NothingToDoEndsAllTheSame) {
    options.check_identity = false;
    EXPECT_EQ(configure().outcome, Outcome::done);
    EXPECT_EQ(node().requests, 0U);
}

TEST_F(Configuration, CancelEndsItOnce) {
    want(0x2000, 0, 9, 1);
    ASSERT_EQ(start(), 0);
    configuration.cancel(5);
    configuration.cancel(5);
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].outcome, Outcome::cancelled);
    EXPECT_EQ(configuration.active(), 0U);
    EXPECT_EQ(configuration.next_deadline(), no_deadline);
}

TEST_F(Configuration, TheEndOfTheObjectEndsItWithoutACallback) {
    {
        NodeConfiguration other(driver, sdo);
        EXPECT_EQ(other.start(5, description, {}, {}, [](const ConfigurationReport&) { ADD_FAILURE(); }), 0);
    }
    EXPECT_FALSE(sdo.busy(5));
}

TEST_F(Configuration, ACallbackMayStartTheNext) {
    add_node(6);
    want(0x2000, 0, 9, 1);
    unsigned int ends = 0;
    EXPECT_EQ(configuration.start(5, description, values, {},
                                  [&](const ConfigurationReport&) {
                                      ++ends;
                                      EXPECT_EQ(start(5), 0);
                                      EXPECT_EQ(start(6), 0);
                                  }),
              0);
    run();
    EXPECT_EQ(ends, 1U);
    ASSERT_EQ(reports.size(), 2U);
    EXPECT_EQ(reports[0].outcome, Outcome::done);
    EXPECT_EQ(reports[1].outcome, Outcome::done);
}

TEST_F(Configuration, TheLastOfTwoValuesCounts) {
    want(0x2000, 0, 8, 1);
    want(0x2000, 0, 9, 1);
    EXPECT_EQ(results(configure()), Lines{"2000:0 written"});
    EXPECT_EQ(node().writes, Lines{"2000:0=9/1"});
}

TEST(ConfiguredValues, AreTheWritableParameterValues) {
    DeviceDescription description;
    description.parse(object_section("2000", "5", "ParameterValue=7\n") +
                          object_section("2001", "5", "DefaultValue=7\n") +
                          object_section("2002", "5", "ParameterValue=7\nObjFlags=1\n") +
                          object_section("2003", "7", "ParameterValue=$NODEID+0x180\n") +
                          object_section("2004", "5", "ParameterValue=7\nObjFlags=2\n") +
                          "[2005]\nParameterName=c\nDataType=5\nAccessType=ro\nParameterValue=1\n",
                      "x.dcf");
    const auto values = configured_values(description, 5);
    ASSERT_EQ(values.size(), 3U);
    EXPECT_EQ(values[0].index, 0x2000);
    EXPECT_EQ(values[0].bytes, ObjectBytes{7});
    EXPECT_EQ(values[1].index, 0x2003);
    EXPECT_EQ(values[1].bytes, (ObjectBytes{0x85, 1, 0, 0}));
    EXPECT_EQ(values[2].index, 0x2004);
}

TEST(ConciseConfiguration, IsPacked) {
    EXPECT_EQ(concise_configuration({{0x1017, 0, {0xF4, 0x01}}}),
              (ObjectBytes{1, 0, 0, 0, 0x17, 0x10, 0, 2, 0, 0, 0, 0xF4, 0x01}));
    EXPECT_EQ(concise_configuration({}), (ObjectBytes{0, 0, 0, 0}));
}

}  // namespace
