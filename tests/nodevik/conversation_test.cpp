// The master and a node in another process talk over UDP: the whole conversation, with nothing replaced.

#include <gtest/gtest.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "nodevik/canopen.h"
#include "nodevik/pdo.h"
#include "nodevik/udpdriver.h"
#include "tests/support/loopbacksocket.h"
#include "tests/support/nodeprocess.h"

namespace {

constexpr int limit_ms = 20000;

struct Frame {
    unsigned identifier = 0;
    unsigned length = 0;
    std::array<unsigned char, 8> data{};
};

// Bytes without a pattern that segments could hide.
std::vector<char> sample_bytes(unsigned size) {
    std::vector<char> bytes(size);
    unsigned state = size + 1;
    for (char& byte : bytes) {
        state = state * 1103515245U + 12345U;
        byte = static_cast<char>(state >> 16);
    }
    return bytes;
}

class Conversation : public testing::Test {
protected:
    Conversation() {
        driver.open(0, 0, 0);
        master.load_driver(driver);
        master.set_debug(0);
    }

    void start_nodes(const std::string& numbers, const std::vector<std::string>& more = {}) {
        log_path = testing::TempDir() + "conversation." + std::to_string(port()) + ".log";
        std::vector<std::string> arguments{
            "--nodes", numbers, "--peer", "127.0.0.1:" + std::to_string(port()), "--log", log_path};
        arguments.insert(arguments.end(), more.begin(), more.end());
        nodes = std::make_unique<NodeProcess>(NODE_SIMULATOR, arguments);
        ASSERT_NE(nodes->port(), 0U);
        driver.endpoint().set_client_destination_address(127, 0, 0, 1, nodes->port());
    }

    void start_booted_node() {
        start_nodes("1");
        ASSERT_TRUE(next_frame());
    }

    void TearDown() override { std::remove(log_path.c_str()); }

    unsigned port() { return local_port(driver.endpoint().server_socket()); }

    // The next frame on the bus; none when none comes.
    std::optional<Frame> next_frame(int wait_ms = limit_ms) {
        Frame frame;
        if (!wait_readable(driver.endpoint().server_socket(), wait_ms) ||
            driver.read(frame.identifier, frame.length, frame.data.data()) != 0) {
            return std::nullopt;
        }
        return frame;
    }

    // Handles frames until every TPDO has come since `all_tdpos_updated` last cleared the counts.
    bool all_tpdos_come() {
        while (master.all_tdpos_updated(0) != 0) {
            if (!wait_readable(driver.endpoint().server_socket(), limit_ms)) {
                return false;
            }
            master.read_all_messages();
        }
        return true;
    }

    // Lines of the node's log that end with `end`.
    long logged(const std::string& end) const {
        std::ifstream log(log_path);
        long count = 0;
        for (std::string line; std::getline(log, line);) {
            count += line.ends_with(end) ? 1 : 0;
        }
        return count;
    }

    // Waits until `count` lines of the node's log end with `end`.
    bool wait_for_log(const std::string& end, long count) const {
        for (int i = 0; i < limit_ms / 10 && logged(end) < count; ++i) {
            poll(nullptr, 0, 10);
        }
        return logged(end) == count;
    }

    // Reads an input of node 1 whose first answer is late, so that the master asks again, and waits until all
    // answers have been sent: those that the read did not need wait in the driver's queue.
    void read_with_a_late_answer() {
        ASSERT_EQ(nodes->command("faults 0 100 0 0 1"), "ok");
        int value = -1;
        ASSERT_EQ(master.sdo_read(1, 0x6000, 1, value), 0);
        ASSERT_EQ(value, 0);
        const long requests = logged("in  601 8 40 00 60 01 00 00 00 00");
        ASSERT_GE(requests, 2);
        ASSERT_TRUE(wait_for_log("out 581 8 4f 00 60 01 00 00 00 00", requests));
    }

    udpDriver driver;
    CCANopen master;
    std::unique_ptr<NodeProcess> nodes;
    std::string log_path;
};

// A node's digital and analogue outputs and inputs, mapped as the node has them at first.
struct NodeImage {
    explicit NodeImage(unsigned node)
        : digital_out(0x200 + node),
          analogue_out(0x300 + node),
          digital_in(0x180 + node),
          analogue_in(0x280 + node) {
        for (unsigned i = 0; i < 4; ++i) {
            digital_out.mapcopy(i, outputs[i]);
            digital_in.mapcopy(i, inputs[i]);
            analogue_out.mapcopy(2 * i, analogue_outputs[i]);
            analogue_in.mapcopy(2 * i, analogue_inputs[i]);
        }
    }

    void add_to(CCANopen& master) {
        master.add_rpdo(digital_out);
        master.add_rpdo(analogue_out);
        master.add_tpdo(digital_in);
        master.add_tpdo(analogue_in);
    }

    std::array<unsigned char, 4> outputs{};
    std::array<unsigned char, 4> inputs{};
    std::array<short, 4> analogue_outputs{};
    std::array<short, 4> analogue_inputs{};
    PDO digital_out;
    PDO analogue_out;
    PDO digital_in;
    PDO analogue_in;
};

}  // namespace

TEST_F(Conversation, EachNodeAnnouncesItselfByItsBootUpMessage) {
    start_nodes("1,2,5");
    for (const unsigned node : {1U, 2U, 5U}) {
        const std::optional<Frame> frame = next_frame();
        ASSERT_TRUE(frame);
        EXPECT_EQ(frame->identifier, 0x700U + node);
        EXPECT_EQ(frame->length, 1U);
        EXPECT_EQ(frame->data[0], 0);
    }
}

TEST_F(Conversation, NmtCommandsMoveTheNodeAndGuardingTellsItsState) {
    start_booted_node();
    EXPECT_EQ(master.nodeguard(1, limit_ms), 127);
    master.start_node(1);
    EXPECT_EQ(master.nodeguard(1, limit_ms), 5);
    master.stop_node(1);
    EXPECT_EQ(master.nodeguard(1, limit_ms), 4);
    master.set_preoperational(1);
    EXPECT_EQ(master.nodeguard(1, limit_ms), 127);
    master.start_node(0);
    EXPECT_EQ(master.nodeguard(1, limit_ms), 5);
}

TEST_F(Conversation, GuardingAnswersAlternateTheirToggleBit) {
    start_booted_node();
    for (int i = 0; i < 4; ++i) {
        ASSERT_EQ(master.nodeguard(1, limit_ms), 127);
    }
    EXPECT_EQ(logged("out 701 1 7f"), 2);
    EXPECT_EQ(logged("out 701 1 ff"), 2);
}

TEST_F(Conversation, ResetCommandsLetTheNodeBootAgain) {
    start_booted_node();
    ASSERT_EQ(master.sdo_write(1, 0x2002, 1, 1, 0x55), 0);
    ASSERT_EQ(master.sdo_write(1, 0x1017, 0, 2, 60000), 0);
    const std::optional<Frame> heartbeat = next_frame();
    ASSERT_TRUE(heartbeat);
    EXPECT_EQ(heartbeat->data[0], 127);
    master.reset_communication(1);
    const std::optional<Frame> first = next_frame();
    ASSERT_TRUE(first);
    EXPECT_EQ(first->identifier, 0x701U);
    EXPECT_EQ(first->data[0], 0);
    int value = 0;
    EXPECT_EQ(master.sdo_read(1, 0x1017, 0, value), 0);
    EXPECT_EQ(value, 0);
    EXPECT_EQ(master.sdo_read(1, 0x2002, 1, value), 0);
    EXPECT_EQ(value, 0x55);
    master.reset_node(1);
    const std::optional<Frame> second = next_frame();
    ASSERT_TRUE(second);
    EXPECT_EQ(second->data[0], 0);
    EXPECT_EQ(master.sdo_read(1, 0x2002, 1, value), 0);
    EXPECT_EQ(value, 0);
}

TEST_F(Conversation, TenThousandCyclesLoseAndDoubleNoFrame) {
    start_nodes("1,2");
    ASSERT_TRUE(next_frame());
    ASSERT_TRUE(next_frame());
    NodeImage first(1);
    NodeImage second(2);
    first.add_to(master);
    second.add_to(master);
    master.start_node(0);
    for (unsigned cycle = 1; cycle <= 10000; ++cycle) {
        for (unsigned i = 0; i < 4; ++i) {
            first.outputs[i] = static_cast<unsigned char>(cycle + i);
            first.analogue_outputs[i] = static_cast<short>(cycle * (i + 1));
            second.outputs[i] = static_cast<unsigned char>(cycle - i);
            second.analogue_outputs[i] = static_cast<short>(-static_cast<int>(cycle + i));
        }
        master.send_all_rpdos();
        master.sync();
        ASSERT_TRUE(all_tpdos_come()) << "cycle " << cycle;
        for (const NodeImage* node : {&first, &second}) {
            ASSERT_EQ(node->inputs, node->outputs) << "cycle " << cycle;
            ASSERT_EQ(node->analogue_inputs, node->analogue_outputs) << "cycle " << cycle;
            ASSERT_EQ(node->digital_in.PDO_updated, 1U) << "cycle " << cycle;
            ASSERT_EQ(node->analogue_in.PDO_updated, 1U) << "cycle " << cycle;
        }
        ASSERT_EQ(master.all_tdpos_updated(1), 0);
    }
    // The guarding answer comes after everything that the nodes sent before it.
    ASSERT_EQ(master.nodeguard(1, limit_ms), 5);
    EXPECT_EQ(master.all_tdpos_updated(0), 4);
    EXPECT_FALSE(next_frame(0));
}

TEST_F(Conversation, CyclesReadUntilTheRepeatedTpdoSeeThemInOrder) {
    start_booted_node();
    NodeImage node(1);
    node.add_to(master);
    master.start_node(1);
    for (unsigned char value = 1; value <= 50; ++value) {
        node.outputs[0] = value;
        master.send_only_changed_rpdos();
        master.sync();
    }
    ASSERT_TRUE(wait_for_log("out 281 8 00 00 00 00 00 00 00 00", 50));
    int complete_cycles = 0;
    unsigned char last_seen = 0;
    while (node.inputs[0] < 50 && wait_readable(driver.endpoint().server_socket(), limit_ms)) {
        complete_cycles += master.read_all_until_duplicate_tpdo();
        ASSERT_GE(node.inputs[0], last_seen);
        last_seen = node.inputs[0];
    }
    EXPECT_EQ(node.inputs[0], 50);
    EXPECT_GE(complete_cycles, 1);
}

TEST_F(Conversation, EventDrivenTpdosComeWithTheEvent) {
    start_booted_node();
    ASSERT_EQ(master.sdo_write(1, 0x1800, 2, 1, 255), 0);
    master.start_node(1);
    ASSERT_TRUE(next_frame());  // the state of the inputs at the start
    EXPECT_EQ(nodes->command("input 1 2 0x7e"), "ok");
    const std::optional<Frame> frame = next_frame();
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->identifier, 0x181U);
    EXPECT_EQ(frame->length, 4U);
    EXPECT_EQ(frame->data[1], 0x7E);
}

TEST_F(Conversation, ExpeditedTransfersOfEachSizeComeBackAsTheyWere) {
    start_booted_node();
    const std::array<int, 5> values{0, 0x5A, 0x5AA5, 0x5AA55A, 0x5AA55AA5};
    for (unsigned size = 1; size <= 4; ++size) {
        const auto subindex = static_cast<unsigned char>(size);
        EXPECT_EQ(master.sdo_write(1, 0x2002, subindex, size, values[size]), 0);
        int value = 0;
        EXPECT_EQ(master.sdo_read(1, 0x2002, subindex, value), 0);
        EXPECT_EQ(value, values[size]) << "size " << size;
    }
}

TEST_F(Conversation, SegmentedTransfersOfEachSizeComeBackAsTheyWere) {
    start_booted_node();
    std::vector<unsigned> sizes;
    for (unsigned size = 1; size <= 64; ++size) {
        sizes.push_back(size);
    }
    for (const unsigned size :
         {127U, 128U, 255U, 256U, 257U, 889U, 1000U, 1024U, 4096U, 9996U, 9999U, 10000U}) {
        sizes.push_back(size);
    }
    std::vector<char> room(10000);
    for (const unsigned size : sizes) {
        std::vector<char> bytes = sample_bytes(size);
        ASSERT_EQ(master.sdo_write_segment(1, 0x2001, 0, size, bytes.data()), 0) << "size " << size;
        unsigned length = static_cast<unsigned>(room.size());
        ASSERT_EQ(master.sdo_read_segment(1, 0x2001, 0, length, room.data()), 0) << "size " << size;
        ASSERT_EQ(length, size);
        ASSERT_TRUE(std::equal(bytes.begin(), bytes.end(), room.begin())) << "size " << size;
    }
}

TEST_F(Conversation, AShortReadOfALongObjectGetsItsFirstFourBytes) {
    start_booted_node();
    int value = 0;
    EXPECT_EQ(master.sdo_read(1, 0x1008, 0, value), 0);
    EXPECT_EQ(value, 'n' | 'o' << 8 | 'd' << 16 | 'e' << 24);
}

TEST_F(Conversation, AbortsOfTheNodeReachTheCaller) {
    start_booted_node();
    struct Refused {
        unsigned short index;
        unsigned char subindex;
        int code;
    };
    int value = 0;
    for (const Refused& read :
         {Refused{0x5000, 0, 0x06020000}, Refused{0x1018, 9, 0x06090011}, Refused{0x2003, 0, 0x06010001}}) {
        EXPECT_EQ(master.sdo_read(1, read.index, read.subindex, value), -1);
        EXPECT_EQ(value, read.code);
    }
    EXPECT_EQ(master.sdo_write(1, 0x1000, 0, 4, 1), -2);
    EXPECT_EQ(logged("out 581 8 80 00 10 00 02 00 01 06"), 1);
    EXPECT_EQ(master.sdo_write(1, 0x2002, 2, 4, 1), -2);
    EXPECT_EQ(logged("out 581 8 80 02 20 02 12 00 07 06"), 1);
    EXPECT_EQ(master.sdo_write(1, 0x2002, 4, 2, 1), -2);
    EXPECT_EQ(logged("out 581 8 80 02 20 04 13 00 07 06"), 1);
    EXPECT_EQ(master.sdo_write(1, 0x2004, 0, 1, 101), -2);
    EXPECT_EQ(logged("out 581 8 80 04 20 00 31 00 09 06"), 1);
    EXPECT_EQ(master.sdo_write(1, 0x2004, 0, 1, 9), -2);
    EXPECT_EQ(logged("out 581 8 80 04 20 00 32 00 09 06"), 1);
    std::vector<char> bytes = sample_bytes(10001);
    EXPECT_EQ(master.sdo_write_segment(1, 0x2001, 0, 10001, bytes.data()), -2);
    EXPECT_EQ(logged("out 581 8 80 01 20 00 05 00 04 05"), 1);
    EXPECT_EQ(master.sdo_read(1, 0x1000, 0, value), 0);
}

TEST_F(Conversation, AReadWithoutRoomAbortsAtTheNode) {
    start_booted_node();
    std::array<char, 5> room{};
    unsigned length = 5;
    EXPECT_EQ(master.sdo_read_segment(1, 0x1008, 0, length, room.data()), -1);
    int value = 0;
    EXPECT_EQ(master.sdo_read(1, 0x1000, 0, value), 0);
    EXPECT_EQ(logged("in  601 8 80 08 10 00 05 00 04 05"), 1);
}

TEST_F(Conversation, TpdosThatComeDuringATransferAreKept) {
    start_booted_node();
    NodeImage node(1);
    node.add_to(master);
    ASSERT_EQ(master.sdo_write(1, 0x1800, 2, 1, 255), 0);
    master.start_node(1);
    EXPECT_EQ(nodes->command("input 1 1 9"), "ok");
    std::vector<char> bytes = sample_bytes(500);
    ASSERT_EQ(master.sdo_write_segment(1, 0x2001, 0, 500, bytes.data()), 0);
    EXPECT_EQ(node.inputs[0], 9);
}

TEST_F(Conversation, ANodeThatVanishesIsMissedAndWelcomedBack) {
    start_booted_node();
    master.start_node(1);
    ASSERT_EQ(master.nodeguard(1, limit_ms), 5);
    ASSERT_EQ(nodes->command("off 1"), "ok");
    EXPECT_EQ(master.nodeguard(1, 50), -1);
    int value = 0;
    EXPECT_EQ(master.sdo_read(1, 0x1000, 0, value), -1);
    EXPECT_EQ(master.sdo_write(1, 0x2002, 1, 1, 1), -1);
    ASSERT_EQ(nodes->command("on 1"), "ok");
    const std::optional<Frame> boot_up = next_frame();
    ASSERT_TRUE(boot_up);
    EXPECT_EQ(boot_up->identifier, 0x701U);
    EXPECT_EQ(boot_up->data[0], 0);
    EXPECT_EQ(master.nodeguard(1, limit_ms), 127);
    EXPECT_EQ(master.sdo_read(1, 0x1000, 0, value), 0);
    EXPECT_EQ(value, 0x000F0191);
}

TEST_F(Conversation, LostAnswersAreAskedForAgain) {
    start_booted_node();
    ASSERT_EQ(nodes->command("faults 100 0 0 0 3"), "ok");
    int value = 0;
    EXPECT_EQ(master.sdo_read(1, 0x1000, 0, value), 0);
    EXPECT_EQ(logged("in  601 8 40 00 10 00 00 00 00 00"), 4);
    ASSERT_EQ(nodes->command("faults 100 0 0 0"), "ok");
    EXPECT_EQ(master.sdo_read(1, 0x1000, 0, value), -1);
    EXPECT_EQ(logged("in  601 8 40 00 10 00 00 00 00 00"), 8);
}

TEST_F(Conversation, DuplicatedAndForeignAnswersDoNoHarm) {
    start_booted_node();
    ASSERT_EQ(nodes->command("faults 0 0 100 100"), "ok");
    for (int i = 0; i < 100; ++i) {
        const auto subindex = static_cast<unsigned char>(i % 4 + 1);
        ASSERT_EQ(master.sdo_write(1, 0x2002, subindex, subindex, i), 0);
        int value = -1;
        ASSERT_EQ(master.sdo_read(1, 0x1000, 0, value), 0);
        ASSERT_EQ(value, 0x000F0191);
    }
    ASSERT_EQ(nodes->command("faults 0 0 0 100"), "ok");
    std::vector<char> bytes = sample_bytes(1000);
    EXPECT_EQ(master.sdo_write_segment(1, 0x2001, 0, 1000, bytes.data()), 0);
    std::vector<char> room(1000);
    unsigned length = 1000;
    EXPECT_EQ(master.sdo_read_segment(1, 0x2001, 0, length, room.data()), 0);
    EXPECT_EQ(room, bytes);
}

TEST_F(Conversation, LateAnswersAreStillAccepted) {
    start_booted_node();
    ASSERT_EQ(nodes->command("faults 0 100 0 0"), "ok");
    int value = 0;
    EXPECT_EQ(master.sdo_read(1, 0x1000, 0, value), 0);
    EXPECT_EQ(value, 0x000F0191);
}

TEST_F(Conversation, ALateAnswerIsTakenByTheNextRead) {
    start_booted_node();
    read_with_a_late_answer();
    EXPECT_EQ(nodes->command("input 1 1 0x55"), "ok");
    int value = -1;
    EXPECT_EQ(master.sdo_read(1, 0x6000, 1, value), 0);
    EXPECT_EQ(value, 0);
}

TEST_F(Conversation, ALateAnswerCanBeDiscarded) {
    start_booted_node();
    master.discard_late_sdo_answers(true);
    read_with_a_late_answer();
    EXPECT_EQ(nodes->command("input 1 1 0x55"), "ok");
    int value = -1;
    EXPECT_EQ(master.sdo_read(1, 0x6000, 1, value), 0);
    EXPECT_EQ(value, 0x55);
}

TEST_F(Conversation, AnEmergencyComesOnDemand) {
    start_booted_node();
    ASSERT_EQ(nodes->command("emergency 1 0x8130"), "ok");
    const std::optional<Frame> frame = next_frame();
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->identifier, 0x081U);
    EXPECT_EQ(frame->length, 8U);
    EXPECT_EQ(frame->data, (std::array<unsigned char, 8>{0x30, 0x81, 0x11, 0, 0, 0, 0, 0}));
    int value = 0;
    EXPECT_EQ(master.sdo_read(1, 0x1001, 0, value), 0);
    EXPECT_EQ(value, 0x11);
}

TEST_F(Conversation, ASavedPdoSetUpTakesEffect) {
    start_booted_node();
    PDO saved(0x381);
    saved.obj_info.mappingcount = 2;
    saved.obj_info.pdo_mappings[0] = 0x60000208;
    saved.obj_info.pdo_mappings[1] = 0x64010110;
    saved.set_transmission_type(1);
    master.save_tpdo_mappings(1, 2, saved);
    PDO loaded;
    master.load_tpdo_mappings(1, 2, loaded);
    EXPECT_EQ(loaded.get_cobid(), 0x381U);
    EXPECT_EQ(loaded.obj_info.mappingcount, 2);
    EXPECT_EQ(loaded.obj_info.pdo_mappings[0], 0x60000208);
    EXPECT_EQ(loaded.obj_info.pdo_mappings[1], 0x64010110);
    EXPECT_EQ(loaded.obj_info.transmission_type, 1);

    unsigned char digital = 0;
    short analogue = 0;
    loaded.mapcopy(0, digital);
    loaded.mapcopy(1, analogue);
    master.add_tpdo(loaded);
    ASSERT_EQ(master.sdo_write(1, 0x6200, 2, 1, 0xC3), 0);
    ASSERT_EQ(master.sdo_write(1, 0x6411, 1, 2, -1234), 0);
    master.start_node(1);
    master.sync();
    ASSERT_TRUE(all_tpdos_come());
    EXPECT_EQ(digital, 0xC3);
    EXPECT_EQ(analogue, -1234);
}

TEST_F(Conversation, ASavedRpdoSetUpTakesEffect) {
    start_booted_node();
    PDO saved(0x401);
    saved.obj_info.mappingcount = 1;
    saved.obj_info.pdo_mappings[0] = 0x64110410;
    saved.set_transmission_type(255);
    master.save_rpdo_mappings(1, 2, saved);
    short analogue = -77;
    saved.mapcopy(0, analogue);
    master.start_node(1);
    master.send_pdo(saved);
    int value = 0;
    ASSERT_EQ(master.sdo_read(1, 0x6401, 4, value), 0);
    EXPECT_EQ(static_cast<short>(value), -77);
}

TEST_F(Conversation, NodesOfOneBusHearEachOther) {
    start_nodes("1,2");
    ASSERT_TRUE(next_frame());
    ASSERT_TRUE(next_frame());
    ASSERT_EQ(master.sdo_write(2, 0x1400, 1, 4, static_cast<int>(0x80000202U)), 0);
    ASSERT_EQ(master.sdo_write(2, 0x1400, 1, 4, 0x181), 0);
    ASSERT_EQ(master.sdo_write(1, 0x6200, 3, 1, 0x42), 0);
    master.start_node(0);
    master.sync();
    int value = 0;
    ASSERT_EQ(master.sdo_read(2, 0x6000, 3, value), 0);
    EXPECT_EQ(value, 0x42);
}

TEST_F(Conversation, ClosingTheDriverStopsEveryNode) {
    start_nodes("1,2");
    ASSERT_TRUE(next_frame());
    ASSERT_TRUE(next_frame());
    master.start_node(0);
    ASSERT_EQ(master.nodeguard(1, limit_ms), 5);
    driver.close();
    EXPECT_TRUE(wait_for_log("in  000 2 02 00", 1));
}
