// SDO transfers, scans and LSS with nodes in another process, over CAN interfaces of a real kernel.

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "nodevik/nodes/lss.h"
#include "nodevik/nodes/nodescan.h"
#include "nodevik/nodes/sdoclient.h"
#include "nodevik/socketcandriver.h"
#include "tests/devices/canwitness.h"
#include "tests/support/awaitframe.h"
#include "tests/support/nodeprocess.h"

namespace {

// The machine is emulated, and slow.
constexpr unsigned int patience_ms = 5000;

// Bytes without a pattern that segments could hide.
std::vector<unsigned char> sample_bytes(unsigned size) {
    std::vector<unsigned char> bytes(size);
    unsigned state = size + 1;
    for (unsigned char& byte : bytes) {
        state = state * 1103515245U + 12345U;
        byte = static_cast<unsigned char>(state >> 16);
    }
    return bytes;
}

SdoOptions patient(SdoMode mode) {
    SdoOptions options;
    options.mode = mode;
    options.timeout_ms = patience_ms;
    return options;
}

class SocketCanNodesOn : public testing::Test {
protected:
    // The program's interface and that of the nodes.
    void open(const std::string& ours, const std::string& theirs) {
        bus.set_debug(0);
        ASSERT_EQ(bus.open(ours.c_str(), 0, false), 0);
        nodes_interface = theirs;
    }

    void start_nodes(std::vector<std::string> arguments) {
        arguments.insert(arguments.end(), {"--can", nodes_interface});
        nodes = std::make_unique<NodeProcess>(NODE_SIMULATOR, arguments);
    }

    bool comes(unsigned int identifier) { return await_frame(driver, identifier); }

    std::vector<ScannedNode> scanned(NodeScanOptions options = {}) {
        options.timeout_ms = patience_ms;
        EXPECT_EQ(scan.start_asking({}, {}, options), 0);
        EXPECT_TRUE(scan.wait().ok());
        return scan.nodes();
    }

    void write_and_read_back(SdoMode mode, unsigned size, SdoMode mode_back) {
        const std::vector<unsigned char> sent = sample_bytes(size);
        const SdoResult written = sdo.write({5, 0x2006, 0}, sent.data(), sent.size(), patient(mode));
        EXPECT_TRUE(written.ok()) << written.words();
        EXPECT_EQ(written.by_blocks, mode == SdoMode::block);
        std::vector<unsigned char> read(size + 1);
        const SdoResult result = sdo.read({5, 0x2006, 0}, read.data(), read.size(), patient(mode_back));
        EXPECT_TRUE(result.ok()) << result.words();
        EXPECT_EQ(result.bytes, size);
        read.resize(size);
        EXPECT_TRUE(read == sent);
    }

    SocketCanDriver bus;
    ObservedDriver driver{bus};
    SdoClient sdo{driver};
    NodeScan scan{driver, sdo};
    Lss lss{driver};
    std::string nodes_interface;
    std::unique_ptr<NodeProcess> nodes;
};

// On a virtual interface, which never refuses a frame.
class SocketCanNodes : public SocketCanNodesOn {
protected:
    SocketCanNodes() { open("vcan0", "vcan0"); }

private:
    VirtualCan interface { "vcan0" };
};

// On two controllers on one bus, whose transmit queues hold ten frames.
class SocketCanNodesOnControllers : public SocketCanNodesOn {
protected:
    SocketCanNodesOnControllers() {
        for (const std::string name : {"can0", "can1"}) {
            EXPECT_TRUE(run_ip("link set " + name + " down"));
            EXPECT_TRUE(
                run_ip("link set " + name + " up txqueuelen 10 type can bitrate 250000 listen-only off"));
        }
        open("can0", "can1");
    }
    ~SocketCanNodesOnControllers() override {
        run_ip("link set can0 down");
        run_ip("link set can1 down");
    }
};

}  // namespace

TEST_F(SocketCanNodes, LargeObjectsPassByBlocksBothWays) {
    start_nodes({"--nodes", "5"});
    ASSERT_TRUE(comes(0x705));
    write_and_read_back(SdoMode::block, 100'000, SdoMode::block);
}

TEST_F(SocketCanNodes, ObjectsPassBySegmentsBothWays) {
    start_nodes({"--nodes", "5"});
    ASSERT_TRUE(comes(0x705));
    write_and_read_back(SdoMode::segmented, 5'000, SdoMode::segmented);
}

TEST_F(SocketCanNodes, ANodeWithoutBlocksIsAskedBySegments) {
    start_nodes({"--nodes", "5", "--no-blocks"});
    ASSERT_TRUE(comes(0x705));
    const std::vector<unsigned char> sent = sample_bytes(500);
    const SdoResult written = sdo.write({5, 0x2006, 0}, sent.data(), sent.size(), patient(SdoMode::block));
    EXPECT_TRUE(written.ok()) << written.words();
    EXPECT_FALSE(written.by_blocks);
    EXPECT_TRUE(sdo.refuses_blocks(5));
}

TEST_F(SocketCanNodes, AScanFindsTheNodesWithIdentityAndNames) {
    start_nodes({"--nodes", "1,64,127"});
    ASSERT_TRUE(comes(0x77F));
    const std::vector<ScannedNode> found = scanned();
    ASSERT_EQ(found.size(), 3U);
    const std::vector<unsigned int> numbers{1, 64, 127};
    for (std::size_t i = 0; i < found.size(); ++i) {
        EXPECT_EQ(found[i].node, numbers[i]);
        EXPECT_EQ(found[i].device_type, 0xF0191U);
        EXPECT_EQ(found[i].serial, numbers[i]);
        EXPECT_EQ(found[i].name, "node-simulator");
        EXPECT_FALSE(found[i].is_duplicate);
        EXPECT_FALSE(found[i].is_repeated);
    }
}

TEST_F(SocketCanNodes, DevicesGetAndKeepTheirNumbers) {
    start_nodes({"--nodes", "none", "--unconfigured", "7011,7012"});
    LssTiming timing;
    timing.answer_ms = patience_ms;
    timing.store_ms = patience_ms;
    lss.set_timing(timing);
    for (const unsigned int serial : {7011U, 7012U}) {
        lss.start_switch_all(false);
        lss.wait();
        LssResult result;
        // The nodes may still be starting.
        do {
            ASSERT_EQ(lss.start_switch_one({0, 0x401, 0x10000, serial}), 0);
            result = lss.wait();
        } while (result.outcome == LssOutcome::no_answer);
        EXPECT_EQ(result.outcome, LssOutcome::done);
        lss.start_set_node(serial - 7000);
        EXPECT_TRUE(lss.wait().ok());
        lss.start_store();
        EXPECT_TRUE(lss.wait().ok());
    }
    lss.start_switch_all(false);
    lss.wait();
    ASSERT_TRUE(comes(0x70C));
    EXPECT_EQ(nodes->command("off 11"), "ok");
    EXPECT_EQ(nodes->command("on 11"), "ok");
    ASSERT_TRUE(comes(0x70B));
    NodeScanOptions options;
    options.first = 10;
    options.last = 13;
    const std::vector<ScannedNode> found = scanned(options);
    ASSERT_EQ(found.size(), 2U);
    EXPECT_EQ(found[0].serial, 7011U);
    EXPECT_EQ(found[1].serial, 7012U);
}

TEST_F(SocketCanNodes, AFastscanFindsADeviceWithoutANumber) {
    start_nodes({"--nodes", "none", "--unconfigured", "16"});
    LssTiming timing;
    timing.answer_ms = patience_ms;
    timing.scan_ms = 1000;
    timing.boot_up_ms = patience_ms;
    timing.first_answer_ends_step = true;
    lss.set_timing(timing);
    LssResult result;
    do {
        ASSERT_EQ(lss.start_assign([](const LssIdentity& who) { return who.serial; }, {}, false), 0);
        result = lss.wait();
    } while (result.outcome == LssOutcome::no_answer);
    EXPECT_EQ(result.outcome, LssOutcome::done);
    EXPECT_EQ(result.answers, 1U);
}

TEST_F(SocketCanNodesOnControllers, AScanFitsIntoAQueueOfTenFrames) {
    start_nodes({"--nodes", "1,2,126,127"});
    ASSERT_TRUE(comes(0x77F));
    const std::vector<ScannedNode> found = scanned();
    ASSERT_EQ(found.size(), 4U);
    EXPECT_EQ(found[3].serial, 127U);
    EXPECT_EQ(found[3].software_version, "1.0");
}

// The queue refuses most of the segments, which are sent again. On the way back the simulated node does not try again.
TEST_F(SocketCanNodesOnControllers, BlocksAreSentThroughAQueueOfTenFrames) {
    start_nodes({"--nodes", "5"});
    ASSERT_TRUE(comes(0x705));
    write_and_read_back(SdoMode::block, 5'000, SdoMode::segmented);
}
