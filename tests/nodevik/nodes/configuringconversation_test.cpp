// Setting up nodes in another process, over UDP: what the nodes were told stands in the simulator's own log.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "nodevik/nodes/devicedescription.h"
#include "nodevik/nodes/nodeconfiguration.h"
#include "nodevik/util/monotonicclock.h"
#include "tests/nodevik/nodes/configurationresults.h"
#include "tests/nodevik/nodes/nodesoverudp.h"
#include "tests/support/temporaryfile.h"

namespace {

using Lines = std::vector<std::string>;
using Outcome = ConfigurationOutcome;

constexpr unsigned int heartbeat_ms = 60000;

class ConfiguringConversation : public NodesOverUdp {
protected:
    ConfiguringConversation() {
        EXPECT_TRUE(description.load(NODE_DESCRIPTION));
        options.timeout_ms = options.slow_ms = options.boot_up_ms = 20000;
    }

    // Starts nodes 5 and 6, and has seen them boot.
    void start() {
        start_nodes({"--nodes", "5,6", "--strict", "--log", log.path()});
        ASSERT_TRUE(comes(0x706));
    }

    // What the nodes are to have.
    void want(std::uint16_t index, std::uint8_t subindex, const std::string& text) {
        EXPECT_EQ(description.set_value(index, subindex, text), "");
    }

    // A TPDO that sends input 2 and an analogue input when one of them changes, a text, and a heartbeat.
    void want_settings() {
        want(0x1800, 1, "$NODEID+0x380");
        want(0x1800, 2, "254");
        want(0x1A00, 0, "2");
        want(0x1A00, 1, "0x60000208");
        want(0x1A00, 2, "0x64010110");
        want(0x2000, 0, "pump of hall seven");
        want(0x1017, 0, std::to_string(heartbeat_ms));
    }

    void begin(unsigned int node) {
        ASSERT_EQ(
            configuration.start(node, description, configured_values(description, node), options,
                                [this](const ConfigurationReport& report) { reports[report.node] = report; }),
            0);
    }

    void run() {
        const std::uint64_t end = monotonic_ns() + limit_ns;
        while (configuration.active() > 0 && monotonic_ns() < end) {
            const std::uint64_t next = std::min(sdo.next_deadline(), configuration.next_deadline());
            wait_readable(bus.descriptor(), std::min(100, milliseconds_until(next, monotonic_ns())));
            driver.read_all();
            sdo.process(monotonic_ns());
            configuration.process(monotonic_ns());
        }
        ASSERT_EQ(configuration.active(), 0U);
    }

    const ConfigurationReport& configure(unsigned int node) {
        reports.clear();
        begin(node);
        run();
        return reports[node];
    }

    const ConfigurationReport& compare(unsigned int node) {
        ConfigurationOptions changed = options;
        changed.dry_run = true;
        std::swap(options, changed);
        const ConfigurationReport& report = configure(node);
        std::swap(options, changed);
        return report;
    }

    static Lines all_settings(const std::string& result) {
        Lines lines = {"1017:0 ", "1800:1 ", "1800:2 ", "1A00:0 ", "1A00:1 ", "1A00:2 ", "2000:0 "};
        for (std::string& line : lines) {
            line += result;
        }
        return lines;
    }

    // The frames that the nodes have received since the last call: "605 8 40 00 10 00 00 00 00 00".
    Lines heard() {
        Lines lines;
        std::istringstream text(log.content());
        std::string line;
        for (unsigned int number = 0; std::getline(text, line); ++number) {
            const std::size_t in = line.find(" in  ");
            if (number >= read_lines && in != std::string::npos) {
                lines.push_back(line.substr(in + 5));
            }
            read_lines = std::max(read_lines, number);
        }
        ++read_lines;
        return lines;
    }

    // Of these frames those that change something: SDO downloads, and NMT commands.
    static Lines changes(const Lines& frames) {
        Lines lines;
        for (const std::string& frame : frames) {
            unsigned int identifier = 0;
            unsigned int command = 0;
            EXPECT_EQ(std::sscanf(frame.c_str(), "%x %*u %x", &identifier, &command), 2) << frame;
            const unsigned int kind = command & 0xE0;
            if (identifier == 0 || kind == 0x20 || kind == 0x00 || kind == 0xC0) {
                lines.push_back(frame);
            }
        }
        return lines;
    }

    std::uint32_t value(unsigned int node, unsigned int index, unsigned int subindex) {
        std::uint32_t number = 0;
        SdoOptions patient;
        patient.timeout_ms = 20000;
        SdoObject object;
        object.node = node;
        object.index = static_cast<std::uint16_t>(index);
        object.subindex = static_cast<std::uint8_t>(subindex);
        EXPECT_TRUE(sdo.read(object, &number, sizeof number, patient).ok());
        return number;
    }

    void nmt(unsigned int command, unsigned int node) {
        send(0, {static_cast<unsigned char>(command), static_cast<unsigned char>(node)});
    }

    void sync() { send(0x80, {}); }

    void send(unsigned int identifier, const std::vector<unsigned char>& bytes) {
        unsigned char data[8] = {};  // the UDP driver sends all eight
        std::copy(bytes.begin(), bytes.end(), data);
        ASSERT_EQ(driver.write(identifier, static_cast<unsigned int>(bytes.size()), data, 0), 0);
    }

    TemporaryFile log;
    unsigned int read_lines = 0;
    NodeConfiguration configuration{driver, sdo};
    DeviceDescription description;
    ConfigurationOptions options;
    std::map<unsigned int, ConfigurationReport> reports;
};

}  // namespace

TEST_F(ConfiguringConversation, ADryRunOnlyReads) {
    start();
    want_settings();
    want(0x2004, 0, "10");  // as it is
    options.dry_run = options.store = options.restore = true;
    for (int round = 0; round < 2; ++round) {
        const ConfigurationReport& report = configure(5);
        EXPECT_EQ(report.outcome, Outcome::done) << report.reason;
        Lines expected = all_settings("would-write");
        expected.emplace_back("2004:0 same");
        EXPECT_EQ(results(report), expected);
        EXPECT_FALSE(report.stored);
        EXPECT_FALSE(report.restored);
    }
    const Lines frames = heard();
    EXPECT_GE(frames.size(), 20U);
    EXPECT_EQ(changes(frames), Lines());
}

TEST_F(ConfiguringConversation, TwoNodesAreSetUpAtOnce) {
    start();
    want_settings();
    begin(5);
    begin(6);
    EXPECT_EQ(configuration.active(), 2U);
    run();
    for (const unsigned int node : {5U, 6U}) {
        EXPECT_EQ(reports[node].outcome, Outcome::done) << reports[node].reason;
        EXPECT_EQ(results(reports[node]), all_settings("written"));
        EXPECT_EQ(value(node, 0x1800, 1), 0x380 + node);
        EXPECT_EQ(value(node, 0x1800, 2), 254U);
        EXPECT_EQ(value(node, 0x1A00, 0), 2U);
        EXPECT_EQ(value(node, 0x1A00, 1), 0x60000208U);
        EXPECT_EQ(value(node, 0x1A00, 2), 0x64010110U);
        EXPECT_EQ(value(node, 0x1017, 0), heartbeat_ms);
    }
    const Lines frames = heard();
    const auto is_for = [](const char* identifier) {
        return [identifier](const std::string& frame) { return frame.compare(0, 3, identifier) == 0; };
    };
    const Lines written = changes(frames);
    const auto first_of_6 = std::find_if(written.begin(), written.end(), is_for("606"));
    EXPECT_TRUE(std::any_of(first_of_6, written.end(), is_for("605"))) << "one after the other";

    // In the order that nodes accept: the PDO off, no object, the objects, their number, and on; then the others.
    Lines of_5;
    std::copy_if(written.begin(), written.end(), std::back_inserter(of_5), is_for("605"));
    EXPECT_EQ(of_5, (Lines{"605 8 23 00 18 01 85 01 00 80", "605 8 2f 00 18 02 fe 00 00 00",
                           "605 8 2f 00 1a 00 00 00 00 00", "605 8 23 00 1a 01 08 02 00 60",
                           "605 8 23 00 1a 02 10 01 01 64", "605 8 2f 00 1a 00 02 00 00 00",
                           "605 8 23 00 18 01 85 03 00 00", "605 8 21 00 20 00 12 00 00 00",
                           "605 8 00 70 75 6d 70 20 6f 66", "605 8 10 20 68 61 6c 6c 20 73",
                           "605 8 07 65 76 65 6e 00 00 00", "605 8 2b 17 10 00 60 ea 00 00"}));

    // The PDO goes as it was set up.
    nmt(1, 6);
    EXPECT_EQ(nodes->command("input 6 2 99"), "ok");
    unsigned int length = 0;
    EXPECT_TRUE(comes(0x386, &length));
    EXPECT_EQ(length, 3U);

    // Nothing is left to do.
    heard();
    EXPECT_EQ(results(configure(5)), all_settings("same"));
    EXPECT_EQ(changes(heard()), Lines());
}

TEST_F(ConfiguringConversation, APdoThatIsRefusedIsPutBack) {
    start();
    want(0x1800, 1, "$NODEID+0x380");
    want(0x1800, 2, "254");
    want(0x1A00, 0, "1");
    want(0x1A00, 1, "0x20040008");
    want(0x1017, 0, std::to_string(heartbeat_ms));
    options.store = true;
    const ConfigurationReport& report = configure(5);
    EXPECT_EQ(report.outcome, Outcome::refused);
    EXPECT_EQ(report.reason, "not every object could be set: nothing is stored");
    EXPECT_EQ(results(report), (Lines{"1017:0 written", "1800:1 not-reached", "1800:2 not-reached",
                                      "1A00:0 not-reached", "1A00:1 refused"}));
    EXPECT_EQ(report.items[4].abort_code, 0x06040041U);
    EXPECT_EQ(report.items[4].reason, "0x1A00:1: Object cannot be mapped to the PDO.");
    EXPECT_FALSE(report.put_back_failed);
    EXPECT_FALSE(report.stored);

    // All objects are taken, and their number is not: they are too long together.
    want(0x1A00, 0, "5");
    for (const unsigned int entry : {1U, 2U, 3U, 4U}) {
        want(0x1A00, static_cast<std::uint8_t>(entry), "0x64010" + std::to_string(entry) + "10");
    }
    want(0x1A00, 5, "0x60000108");
    const ConfigurationReport& too_long = configure(6);
    EXPECT_EQ(too_long.outcome, Outcome::refused);
    EXPECT_EQ(results(too_long)[3], "1A00:0 refused");
    EXPECT_EQ(too_long.items[3].abort_code, 0x06040042U);
    EXPECT_FALSE(too_long.put_back_failed);

    for (const unsigned int node : {5U, 6U}) {
        EXPECT_EQ(value(node, 0x1800, 1), 0x180 + node);
        EXPECT_EQ(value(node, 0x1800, 2), 1U);
        EXPECT_EQ(value(node, 0x1A00, 0), 4U);
        for (unsigned int entry = 1; entry <= 4; ++entry) {
            EXPECT_EQ(value(node, 0x1A00, entry), 0x60000008 + entry * 0x100);
        }
        EXPECT_EQ(value(node, 0x1017, 0), heartbeat_ms);
        nmt(1, node);
        sync();
        unsigned int length = 0;
        EXPECT_TRUE(comes(0x180 + node, &length)) << "it passes as before";
        EXPECT_EQ(length, 4U);
    }
}

TEST_F(ConfiguringConversation, WhatIsStoredOutlivesThePower) {
    start();
    want_settings();
    EXPECT_FALSE(configure(6).stored);
    options.store = true;
    const ConfigurationReport& report = configure(5);
    EXPECT_EQ(report.outcome, Outcome::done) << report.reason;
    EXPECT_TRUE(report.stored);
    for (const unsigned int node : {5U, 6U}) {
        power("off", node);
        power("on", node);
        ASSERT_TRUE(comes(0x700 + node));
    }
    EXPECT_EQ(results(compare(5)), all_settings("same"));
    EXPECT_EQ(results(compare(6)), all_settings("would-write")) << "it was not told to store";
}

TEST_F(ConfiguringConversation, RestoringResetsThatNodeAndBringsTheMakersValues) {
    start();
    want_settings();
    options.store = true;
    begin(5);
    begin(6);
    run();
    ASSERT_TRUE(reports[5].stored && reports[6].stored);
    heard();

    // Only the heartbeat is wanted from now on.
    const DeviceDescription settings = description;
    ASSERT_TRUE(description.load(NODE_DESCRIPTION));
    want(0x1017, 0, "30000");
    options.store = false;
    options.restore = true;
    const ConfigurationReport& report = configure(5);
    EXPECT_EQ(report.outcome, Outcome::done) << report.reason;
    EXPECT_TRUE(report.restored);
    EXPECT_EQ(results(report), Lines{"1017:0 written"});
    EXPECT_EQ(changes(heard()),
              (Lines{"605 8 23 11 10 01 6c 6f 61 64", "000 2 81 05", "605 8 2b 17 10 00 30 75 00 00"}));
    EXPECT_EQ(value(5, 0x1017, 0), 30000U);
    options.restore = false;
    description = settings;
    EXPECT_EQ(results(compare(5)), all_settings("would-write"));
    EXPECT_EQ(results(compare(6)), all_settings("same"));
}

TEST_F(ConfiguringConversation, NothingIsWrittenToANodeThatIsAnotherOne) {
    start();
    want_settings();
    DeviceDescription::Commissioning commissioning;
    commissioning.node_id = 5;
    commissioning.lss_serial_number = 5;
    ASSERT_EQ(description.set_commissioning(commissioning), "");
    options.store = options.restore = true;
    const ConfigurationReport& other = configure(6);
    EXPECT_EQ(other.outcome, Outcome::wrong_identity);
    EXPECT_EQ(other.reason, "serial number is 0x00000006, the file has 0x00000005");
    EXPECT_EQ(results(other), all_settings("not-reached"));
    EXPECT_FALSE(other.restored);
    EXPECT_FALSE(other.stored);
    const Lines frames = heard();
    EXPECT_EQ(frames.size(), 4U) << "device type, product, revision and serial number; the file has vendor 0";
    EXPECT_EQ(changes(frames), Lines());

    EXPECT_EQ(configure(5).outcome, Outcome::done);
    options.check_identity = false;
    EXPECT_EQ(configure(6).outcome, Outcome::done) << "when nobody asks who it is";
}

TEST_F(ConfiguringConversation, ANodeWithoutPowerIsToldAndTheOtherIsDone) {
    start();
    want_settings();
    power("off", 6);
    begin(5);
    options.timeout_ms = 100;
    begin(6);
    run();
    EXPECT_EQ(reports[5].outcome, Outcome::done) << reports[5].reason;
    EXPECT_EQ(reports[6].outcome, Outcome::no_answer);
    EXPECT_EQ(results(reports[6]), all_settings("not-reached"));
}
