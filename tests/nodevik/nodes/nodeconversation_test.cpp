// Scans and LSS with nodes in another process, over UDP: the whole conversation, with nothing replaced.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "nodevik/nodes/lss.h"
#include "nodevik/nodes/nodescan.h"
#include "nodevik/util/monotonicclock.h"
#include "tests/nodevik/nodes/nodesoverudp.h"

namespace {

class NodeConversation : public NodesOverUdp {
protected:
    // The nodes that a scan finds.
    std::vector<ScannedNode> scanned(const NodeScanOptions& options = patient()) {
        EXPECT_EQ(scan.start_asking({}, {}, options), 0);
        EXPECT_TRUE(scan.wait().ok());
        return scan.nodes();
    }

    // Asks more than once instead of waiting for long.
    static NodeScanOptions patient() {
        NodeScanOptions options;
        options.last = 60;
        options.timeout_ms = 100;
        options.attempts = 3;
        return options;
    }

    // Gives every device without a number one: what is behind the last thousand of its serial number. Where an answer
    // came too late for its question, the scan goes astray or finds nobody, and begins again.
    void assign(bool store) {
        assigned.clear();
        for (int i = 0; i < 20; ++i) {
            lss.set_timing(quick());
            ASSERT_EQ(lss.start_assign([](const LssIdentity& who) { return who.serial % 1000; },
                                       [this](const LssAssignment& one) {
                                           if (one.boot_ups != 0) {
                                               assigned.push_back(one);
                                           }
                                       },
                                       store),
                      0);
            lss.wait();
            lss.set_timing({});
            lss.start_identify_unconfigured();
            if (lss.wait().outcome == LssOutcome::no_answer) {
                return;
            }
        }
        FAIL() << "somebody has no number yet";
    }

    static LssTiming quick() {
        LssTiming timing;
        timing.answer_ms = 1000;
        timing.scan_ms = 15;
        return timing;
    }

    // Brings one device into configuration, all others into waiting.
    LssResult select(std::uint32_t serial) {
        lss.start_switch_all(false);
        lss.wait();
        lss.start_switch_one({0, 0x401, 0x10000, serial});
        return lss.wait();
    }

    NodeScan scan{driver, sdo};
    Lss lss{driver};
    std::vector<LssAssignment> assigned;
};

}  // namespace

TEST_F(NodeConversation, AScanFindsTheNodesWithIdentityAndNames) {
    start_nodes({"--nodes", "1,5,127"});
    const std::vector<ScannedNode> found = scanned({});
    ASSERT_EQ(found.size(), 3U);
    for (const ScannedNode& node : found) {
        EXPECT_TRUE(node.answers);
        EXPECT_EQ(node.device_type, 0xF0191U);
        EXPECT_EQ(node.vendor, 0U);
        EXPECT_EQ(node.product, 0x401U);
        EXPECT_EQ(node.revision, 0x10000U);
        EXPECT_EQ(node.serial, node.node);
        EXPECT_EQ(node.name, "node-simulator");
        EXPECT_EQ(node.hardware_version, "simulated hardware");
        EXPECT_EQ(node.software_version, "1.0");
        EXPECT_FALSE(node.is_duplicate);
        EXPECT_FALSE(node.is_repeated);
    }
    EXPECT_EQ(found[0].node, 1U);
    EXPECT_EQ(found[1].node, 5U);
    EXPECT_EQ(found[2].node, 127U);
}

TEST_F(NodeConversation, AScanThroughABadLineMissesNobodyWhenItAsksAgain) {
    start_nodes({"--nodes", "1,2,3,4,5,6,7,8", "--lost", "20", "--late", "20", "--delay", "10",
                 "--duplicated", "20", "--foreign", "20", "--unheard", "10", "--seed", "7"});
    NodeScanOptions options;
    options.last = 8;
    options.timeout_ms = 100;
    options.attempts = 12;
    std::vector<ScannedNode> found = scanned(options);
    // Answers of nodes that do not exist are among the faults.
    found.erase(
        std::remove_if(found.begin(), found.end(), [](const ScannedNode& node) { return !node.answers; }),
        found.end());
    ASSERT_EQ(found.size(), 8U);
    for (const ScannedNode& node : found) {
        EXPECT_EQ(node.device_type, 0xF0191U);
        EXPECT_EQ(node.serial, node.node);
        EXPECT_FALSE(node.is_duplicate) << "faults make no other answers";
    }
}

TEST_F(NodeConversation, ListeningHearsWhoBootsAndBeats) {
    start_nodes({"--nodes", "3,9", "--heartbeat", "20"});
    ASSERT_TRUE(comes(0x709));
    std::vector<unsigned int> heard;
    ASSERT_EQ(scan.start_listening(600'000,
                                   [this, &heard](const ScannedNode& node) {
                                       heard.push_back(node.node);
                                       if (heard.size() == 2) {
                                           scan.cancel();
                                       }
                                   }),
              0);
    scan.wait();
    std::sort(heard.begin(), heard.end());
    EXPECT_EQ(heard, (std::vector<unsigned int>{3, 9}));
}

TEST_F(NodeConversation, DevicesWithoutANumberGetAndKeepTheirs) {
    start_nodes({"--nodes", "1", "--unconfigured", "7012,7011"});
    ASSERT_TRUE(comes(0x701));
    EXPECT_EQ(scanned().size(), 1U);
    lss.start_identify_unconfigured();
    EXPECT_EQ(lss.wait().answers, 2U);
    assign(true);
    ASSERT_EQ(assigned.size(), 2U);
    for (const LssAssignment& one : assigned) {
        EXPECT_EQ(one.outcome, LssOutcome::done);
        EXPECT_EQ(one.identity.product, 0x401U);
        EXPECT_EQ(one.identity.serial, 7000 + one.node);
        EXPECT_EQ(one.boot_ups, 1U);
        EXPECT_TRUE(one.stored);
    }
    std::vector<ScannedNode> found = scanned();
    ASSERT_EQ(found.size(), 3U);
    EXPECT_EQ(found[1].node, 11U);
    EXPECT_EQ(found[1].serial, 7011U);
    EXPECT_EQ(found[2].node, 12U);
    power("off", 11);
    EXPECT_EQ(scanned().size(), 2U);
    power("on", 11);
    ASSERT_TRUE(comes(0x70B));
    EXPECT_EQ(scanned().size(), 3U) << "it has stored its number";

    // Another number is in force after the next reset of the communication, and without a store until the power goes.
    ASSERT_TRUE(select(7012).ok());
    lss.start_set_node(50);
    ASSERT_TRUE(lss.wait().ok());
    lss.start_inquire_node();
    EXPECT_EQ(lss.wait().node, 12U);
    lss.start_switch_all(false);
    lss.wait();
    unsigned char reset[8] = {130, 12};
    driver.write(0, 2, reset, 0);
    ASSERT_TRUE(comes(0x732));
    power("off", 50);
    EXPECT_EQ(nodes->command("on 50"), "ok");
    ASSERT_TRUE(comes(0x70C));
    EXPECT_EQ(scanned().back().node, 12U);

    // One can be taken away, too.
    ASSERT_TRUE(select(7012).ok());
    lss.start_set_node(Lss::no_node);
    ASSERT_TRUE(lss.wait().ok());
    lss.start_store();
    ASSERT_TRUE(lss.wait().ok());
    power("off", 12);
    power("on", 12);
    EXPECT_EQ(scanned().size(), 2U);
    lss.start_identify_unconfigured();
    EXPECT_EQ(lss.wait().answers, 1U);
}

TEST_F(NodeConversation, TwinsAndTwoDevicesWithOneNumberAreTold) {
    start_nodes({"--nodes", "none", "--unconfigured", "7011,7011,8011"});
    assign(false);
    ASSERT_EQ(assigned.size(), 2U);
    EXPECT_EQ(assigned[0].outcome, LssOutcome::several);
    EXPECT_EQ(assigned[0].boot_ups, 2U);
    EXPECT_EQ(assigned[1].identity.serial, 8011U);
    const std::vector<ScannedNode> found = scanned();
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].node, 11U);
    EXPECT_TRUE(found[0].is_repeated) << "three answer to one question";
    EXPECT_TRUE(found[0].is_duplicate) << "with different serial numbers";
    EXPECT_EQ(select(7011).outcome, LssOutcome::several);
}

TEST_F(NodeConversation, BitRatesAreSetActivatedAndRefused) {
    start_nodes({"--nodes", "4,5"});
    ASSERT_TRUE(comes(0x705));
    ASSERT_TRUE(select(5).ok());
    lss.start_set_bit_rate(250);
    EXPECT_TRUE(lss.wait().ok());
    lss.start_store();
    EXPECT_TRUE(lss.wait().ok());
    lss.start_inquire_identity();
    const LssResult who = lss.wait();
    ASSERT_TRUE(who.ok());
    EXPECT_EQ(who.identity.serial, 5U);
    // For twice the delay the device is silent; the service takes as long.
    lss.start_activate(50);
    const std::uint64_t begun = monotonic_ns();
    EXPECT_TRUE(lss.wait().ok());
    EXPECT_GE(monotonic_ns() - begun, 100'000'000U);
    NodeScanOptions options;
    options.first = options.last = 5;
    options.attempts = 20;
    EXPECT_EQ(scanned(options).size(), 1U);
}

TEST_F(NodeConversation, NobodyAnswersForAnIdentityThatNobodyHas) {
    start_nodes({"--nodes", "4"});
    ASSERT_TRUE(comes(0x704));
    EXPECT_EQ(select(5).outcome, LssOutcome::no_answer);
    LssRange range;
    range.product = 0x401;
    lss.start_identify(range);
    EXPECT_EQ(lss.wait().answers, 1U);
    range.lowest_serial = 5;
    lss.start_identify(range);
    EXPECT_EQ(lss.wait().outcome, LssOutcome::no_answer);
}
