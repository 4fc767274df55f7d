// The master and nodes in another process talk over a virtual CAN interface of a real kernel: the whole
// conversation, with nothing replaced. A third program, candump, hears what passes.

#include <gtest/gtest.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "nodevik/canopen.h"
#include "nodevik/pdo.h"
#include "nodevik/socketcandriver.h"
#include "tests/devices/canwitness.h"
#include "tests/support/childprocess.h"
#include "tests/support/loopbacksocket.h"
#include "tests/support/nodeprocess.h"

namespace {

constexpr int limit_ms = 60000;

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

class SocketCanConversation : public testing::Test {
protected:
    SocketCanConversation() {
        driver.set_debug(0);
        EXPECT_EQ(driver.open("vcan0", 0, false), 0);
        master.load_driver(driver);
        master.set_debug(0);
    }

    void start_nodes(const std::string& numbers) {
        nodes = std::make_unique<NodeProcess>(
            NODE_SIMULATOR,
            std::vector<std::string>{"--can", "vcan0", "--nodes", numbers, "--log", log_path});
    }

    void start_booted_node() {
        start_nodes("1");
        ASSERT_TRUE(next_frame());
    }

    void TearDown() override { std::remove(log_path.c_str()); }

    // The next frame on the bus; none when none comes.
    std::optional<Frame> next_frame_of_any_kind(int wait_ms = limit_ms) {
        Frame frame;
        if (driver.read_wait(frame.identifier, frame.length, frame.data.data(), wait_ms) != 0) {
            return std::nullopt;
        }
        return frame;
    }

    // The same, without SDO answers: the emulated machine can be so slow that the master asks twice.
    std::optional<Frame> next_frame(int wait_ms = limit_ms) {
        std::optional<Frame> frame = next_frame_of_any_kind(wait_ms);
        while (frame && frame->identifier > 0x580 && frame->identifier < 0x600) {
            frame = next_frame_of_any_kind(wait_ms);
        }
        return frame;
    }

    // The next frame with this identifier; others before it, such as a guarding answer, are passed over.
    std::optional<Frame> next_frame_of(unsigned identifier) {
        std::optional<Frame> frame = next_frame_of_any_kind();
        while (frame && frame->identifier != identifier) {
            frame = next_frame_of_any_kind();
        }
        return frame;
    }

    // Reads an object, as often as it takes until the answer comes in time.
    int read_number(unsigned short index, unsigned char subindex) {
        int value = 0;
        EXPECT_EQ(patiently([&] { return master.sdo_read(1, index, subindex, value); }), 0);
        return value;
    }

    // Writes one, until the result is `wanted`.
    int write_number(unsigned short index, unsigned char subindex, unsigned size, int value, int wanted = 0) {
        return patiently([&] { return master.sdo_write(1, index, subindex, size, value); }, wanted);
    }

    // Repeats a transfer whose answer did not come in time, after those that come late have come.
    int patiently(const std::function<int()>& transfer, int wanted = 0) {
        int result = transfer();
        for (int i = 0; i < 50 && result != wanted; ++i) {
            for (int late = 0; late < 20 && wait_readable(driver.get_socket(), 100); ++late) {
                master.read_all_messages();
            }
            result = transfer();
        }
        return result;
    }

    // Waits until the witness has seen `wanted`; what comes before may only be frames in `others`.
    static void expect_frame(Candump& witness, const std::string& wanted,
                             const std::vector<std::string>& others = {}) {
        std::string frame = witness.frame();
        while (frame != wanted && std::find(others.begin(), others.end(), frame) != others.end()) {
            frame = witness.frame();
        }
        EXPECT_EQ(frame, wanted);
    }

    // Handles frames until every TPDO has come since `all_tdpos_updated` last cleared the counts.
    bool all_tpdos_come() {
        while (master.all_tdpos_updated(0) != 0) {
            if (!wait_readable(driver.get_socket(), limit_ms)) {
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

    VirtualCan interface { "vcan0" };
    SocketCanDriver driver;
    CCANopen master;
    std::unique_ptr<NodeProcess> nodes;
    std::string log_path = testing::TempDir() + "socketcan_conversation.log";
};

TEST_F(SocketCanConversation, EachNodeAnnouncesItselfByItsBootUpMessage) {
    start_nodes("1,2,5");
    for (const unsigned node : {1U, 2U, 5U}) {
        const std::optional<Frame> frame = next_frame();
        ASSERT_TRUE(frame);
        EXPECT_EQ(frame->identifier, 0x700U + node);
        EXPECT_EQ(frame->length, 1U);
        EXPECT_EQ(frame->data[0], 0);
    }
}

TEST_F(SocketCanConversation, NmtCommandsMoveTheNodeAndGuardingTellsItsState) {
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

TEST_F(SocketCanConversation, OnTheWireItIsTheProtocolsOwnFrames) {
    start_booted_node();
    Candump witness("vcan0");
    master.start_node(1);
    EXPECT_EQ(witness.frame(), "000#0101");
    EXPECT_EQ(master.nodeguard(1, limit_ms), 5);
    EXPECT_EQ(witness.frame(), "701#R");
    EXPECT_EQ(witness.frame(), "701#05");
    master.sync();
    EXPECT_EQ(witness.frame(), "080#");
    EXPECT_EQ(witness.frame(), "181#00000000");
    EXPECT_EQ(witness.frame(), "281#0000000000000000");
    const std::string upload = "601#4000100000000000";
    const std::string uploaded = "581#4300100091010F00";
    EXPECT_EQ(read_number(0x1000, 0), 0x000F0191);
    EXPECT_EQ(witness.frame(), upload);
    expect_frame(witness, uploaded, {upload});
    EXPECT_EQ(write_number(0x2002, 2, 2, 0x5AA5), 0);
    expect_frame(witness, "601#2B022002A55A0000", {upload, uploaded});
    expect_frame(witness, "581#6002200200000000", {upload, uploaded, "601#2B022002A55A0000"});
}

TEST_F(SocketCanConversation, ResetCommandsLetTheNodeBootAgain) {
    start_booted_node();
    ASSERT_EQ(write_number(0x2002, 1, 1, 0x55), 0);
    master.reset_communication(1);
    const std::optional<Frame> first = next_frame();
    ASSERT_TRUE(first);
    EXPECT_EQ(first->identifier, 0x701U);
    EXPECT_EQ(first->data[0], 0);
    EXPECT_EQ(read_number(0x2002, 1), 0x55);
    master.reset_node(1);
    const std::optional<Frame> second = next_frame();
    ASSERT_TRUE(second);
    EXPECT_EQ(second->data[0], 0);
    EXPECT_EQ(read_number(0x2002, 1), 0);
}

TEST_F(SocketCanConversation, HeartbeatsComeByThemselves) {
    start_booted_node();
    ASSERT_EQ(write_number(0x1017, 0, 2, 20), 0);
    for (int i = 0; i < 5; ++i) {
        const std::optional<Frame> heartbeat = next_frame();
        ASSERT_TRUE(heartbeat);
        EXPECT_EQ(heartbeat->identifier, 0x701U);
        EXPECT_EQ(heartbeat->length, 1U);
        EXPECT_EQ(heartbeat->data[0], 127);
    }
}

TEST_F(SocketCanConversation, ThousandCyclesLoseAndDoubleNoFrame) {
    start_booted_node();
    std::array<unsigned char, 4> outputs{};
    std::array<unsigned char, 4> inputs{};
    std::array<short, 4> analogue_outputs{};
    std::array<short, 4> analogue_inputs{};
    PDO digital_out(0x201);
    PDO digital_in(0x181);
    PDO analogue_out(0x301);
    PDO analogue_in(0x281);
    for (unsigned i = 0; i < 4; ++i) {
        digital_out.mapcopy(i, outputs[i]);
        digital_in.mapcopy(i, inputs[i]);
        analogue_out.mapcopy(2 * i, analogue_outputs[i]);
        analogue_in.mapcopy(2 * i, analogue_inputs[i]);
    }
    master.add_rpdo(digital_out);
    master.add_rpdo(analogue_out);
    master.add_tpdo(digital_in);
    master.add_tpdo(analogue_in);
    master.start_node(1);
    for (unsigned cycle = 1; cycle <= 1000; ++cycle) {
        for (unsigned i = 0; i < 4; ++i) {
            outputs[i] = static_cast<unsigned char>(cycle + i);
            analogue_outputs[i] = static_cast<short>(cycle * (i + 1));
        }
        master.send_all_rpdos();
        master.sync();
        ASSERT_TRUE(all_tpdos_come()) << "cycle " << cycle;
        ASSERT_EQ(inputs, outputs) << "cycle " << cycle;
        ASSERT_EQ(analogue_inputs, analogue_outputs) << "cycle " << cycle;
        ASSERT_EQ(digital_in.PDO_updated, 1U) << "cycle " << cycle;
        ASSERT_EQ(analogue_in.PDO_updated, 1U) << "cycle " << cycle;
        ASSERT_EQ(master.all_tdpos_updated(1), 0);
    }
    // The guarding answer comes after everything that the node sent before it.
    ASSERT_EQ(master.nodeguard(1, limit_ms), 5);
    EXPECT_FALSE(next_frame(0));
}

TEST_F(SocketCanConversation, EventDrivenTpdosComeWithTheEvent) {
    start_booted_node();
    ASSERT_EQ(write_number(0x1800, 2, 1, 255), 0);
    master.start_node(1);
    ASSERT_TRUE(next_frame());  // the state of the inputs at the start
    EXPECT_EQ(nodes->command("input 1 2 0x7e"), "ok");
    const std::optional<Frame> frame = next_frame();
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->identifier, 0x181U);
    EXPECT_EQ(frame->length, 4U);
    EXPECT_EQ(frame->data[1], 0x7E);
}

TEST_F(SocketCanConversation, ExpeditedTransfersOfEachSizeComeBackAsTheyWere) {
    start_booted_node();
    const std::array<int, 5> values{0, 0x5A, 0x5AA5, 0x5AA55A, 0x5AA55AA5};
    for (unsigned size = 1; size <= 4; ++size) {
        const auto subindex = static_cast<unsigned char>(size);
        EXPECT_EQ(write_number(0x2002, subindex, size, values[size]), 0);
        EXPECT_EQ(read_number(0x2002, subindex), values[size]) << "size " << size;
    }
}

TEST_F(SocketCanConversation, SegmentedTransfersComeBackAsTheyWere) {
    start_booted_node();
    std::vector<char> room(1000);
    for (const unsigned size : {1U, 4U, 5U, 7U, 8U, 13U, 14U, 15U, 256U, 1000U}) {
        std::vector<char> bytes = sample_bytes(size);
        ASSERT_EQ(patiently([&] { return master.sdo_write_segment(1, 0x2001, 0, size, bytes.data()); }), 0)
            << "size " << size;
        unsigned length = 0;
        ASSERT_EQ(patiently([&] {
                      length = static_cast<unsigned>(room.size());
                      return master.sdo_read_segment(1, 0x2001, 0, length, room.data());
                  }),
                  0)
            << "size " << size;
        ASSERT_EQ(length, size);
        ASSERT_TRUE(std::equal(bytes.begin(), bytes.end(), room.begin())) << "size " << size;
    }
}

TEST_F(SocketCanConversation, AbortsOfTheNodeReachTheCaller) {
    start_booted_node();
    int value = 0;
    for (int i = 0; i < 50 && value == 0; ++i) {
        EXPECT_EQ(master.sdo_read(1, 0x5000, 0, value), -1);
    }
    EXPECT_EQ(value, 0x06020000);
    EXPECT_EQ(write_number(0x1000, 0, 4, 1, -2), -2);
    EXPECT_EQ(read_number(0x1000, 0), 0x000F0191);
}

TEST_F(SocketCanConversation, AnEmergencyComesOnDemand) {
    start_booted_node();
    ASSERT_EQ(nodes->command("emergency 1 0x8130"), "ok");
    const std::optional<Frame> frame = next_frame();
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->identifier, 0x081U);
    EXPECT_EQ(frame->length, 8U);
    EXPECT_EQ(frame->data, (std::array<unsigned char, 8>{0x30, 0x81, 0x11, 0, 0, 0, 0, 0}));
}

TEST_F(SocketCanConversation, ANodeThatVanishesIsMissedAndWelcomedBack) {
    start_booted_node();
    master.start_node(1);
    ASSERT_EQ(master.nodeguard(1, limit_ms), 5);
    ASSERT_EQ(nodes->command("off 1"), "ok");
    EXPECT_EQ(master.nodeguard(1, 50), -1);
    int value = 0;
    EXPECT_EQ(master.sdo_read(1, 0x1000, 0, value), -1);
    ASSERT_EQ(nodes->command("on 1"), "ok");
    const std::optional<Frame> boot_up = next_frame();
    ASSERT_TRUE(boot_up);
    EXPECT_EQ(boot_up->identifier, 0x701U);
    EXPECT_EQ(boot_up->data[0], 0);
    EXPECT_EQ(read_number(0x1000, 0), 0x000F0191);
}

TEST_F(SocketCanConversation, NodesAreCommandedByOthersOnTheBusToo) {
    start_booted_node();
    ASSERT_TRUE(cansend("vcan0", "000#0101"));
    ASSERT_TRUE(wait_for_log("in  000 2 01 01", 1));
    EXPECT_EQ(master.nodeguard(1, limit_ms), 5);
    ASSERT_TRUE(cansend("vcan0", "601#4000100000000000"));
    ASSERT_TRUE(next_frame_of(0x601));
    const std::optional<Frame> answer = next_frame_of(0x581);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->data, (std::array<unsigned char, 8>{0x43, 0, 0x10, 0, 0x91, 0x01, 0x0F, 0}));
}

TEST_F(SocketCanConversation, ClosingTheDriverSendsNothing) {
    start_booted_node();
    Candump witness("vcan0");
    driver.close();
    ASSERT_TRUE(cansend("vcan0", "123#"));
    EXPECT_EQ(witness.frame(), "123#");
}

TEST_F(SocketCanConversation, ACommandRunAgainstTheNodesHearsThemBoot) {
    const ChildResult result =
        run_program({NODE_SIMULATOR, "--can", "vcan0", "--run", "candump", "-L", "-n", "1", "{can}"});
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(result.out.starts_with("can vcan0\n")) << result.out;
    EXPECT_NE(result.out.find(" vcan0 701#00"), std::string::npos) << result.out;
}

}  // namespace
