#include "simulator/node/nodeoptions.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using node_simulator::NodeOptions;
using node_simulator::parse_node_options;
using node_simulator::ParsedNodeOptions;

ParsedNodeOptions parse(const std::vector<const char*>& arguments) {
    return parse_node_options(arguments);
}

std::string error_of(const std::vector<const char*>& arguments) {
    return parse(arguments).error;
}

}  // namespace

TEST(NodeOptions, AreOneNodeOnPort5001WithoutFaultsAtFirst) {
    const auto [options, error] = parse({});
    EXPECT_EQ(error, "");
    EXPECT_FALSE(options.help);
    EXPECT_EQ(options.nodes, std::vector<std::uint8_t>{1});
    EXPECT_EQ(options.listen_port, 5001);
    EXPECT_FALSE(options.peer);
    EXPECT_EQ(options.log_file, "");
    EXPECT_EQ(options.faults, node_simulator::FaultSettings{});
    EXPECT_EQ(options.heartbeat_ms, 0);
    EXPECT_EQ(options.sync_period_ms, 0U);
    EXPECT_FALSE(options.self_starting);
    EXPECT_FALSE(options.strict_counts);
    EXPECT_TRUE(options.unconfigured.empty());
    EXPECT_FALSE(options.no_blocks);
    EXPECT_EQ(options.block_sizes, std::vector<std::uint8_t>{127});
    EXPECT_TRUE(options.command.empty());
}

TEST(NodeOptions, TakeNodesPortsAndFiles) {
    const auto [options, error] =
        parse({"--nodes", "1,2,127", "--listen=0", "--peer", "127.0.0.2:5000", "--log=frames.log"});
    EXPECT_EQ(error, "");
    EXPECT_EQ(options.nodes, (std::vector<std::uint8_t>{1, 2, 127}));
    EXPECT_EQ(options.listen_port, 0);
    ASSERT_TRUE(options.peer);
    EXPECT_STREQ(inet_ntoa(options.peer->sin_addr), "127.0.0.2");
    EXPECT_EQ(ntohs(options.peer->sin_port), 5000);
    EXPECT_EQ(options.log_file, "frames.log");
}

TEST(NodeOptions, TakeDevicesWithoutANodeNumber) {
    const auto [options, error] = parse({"--nodes", "none", "--unconfigured", "1001,4294967295,0"});
    EXPECT_EQ(error, "");
    EXPECT_TRUE(options.nodes.empty());
    EXPECT_EQ(options.unconfigured, (std::vector<std::uint32_t>{1001, 4294967295, 0}));
    const std::string reason =
        "--unconfigured takes serial numbers with commas between them, such as 1001,1002";
    EXPECT_EQ(error_of({"--unconfigured", "x"}), reason);
    EXPECT_EQ(error_of({"--unconfigured", "4294967296"}), reason);
}

TEST(NodeOptions, TakeDescriptionsForAllNodesAndForOne) {
    const auto [options, error] = parse({"--eds", "a=b.eds", "--eds=5=pump.dcf"});
    EXPECT_EQ(error, "");
    ASSERT_EQ(options.descriptions.size(), 2U);
    EXPECT_EQ(options.descriptions[0].node, 0);
    EXPECT_EQ(options.descriptions[0].file, "a=b.eds");
    EXPECT_EQ(options.descriptions[1].node, 5);
    EXPECT_EQ(options.descriptions[1].file, "pump.dcf");
    EXPECT_EQ(error_of({"--eds", ""}), "--eds needs the name of a file");
    EXPECT_EQ(error_of({"--eds", "5="}), "--eds needs the name of a file");
}

TEST(NodeOptions, TakeBlockSizes) {
    const auto [options, error] = parse({"--no-blocks", "--block-size=4,127,1"});
    EXPECT_EQ(error, "");
    EXPECT_TRUE(options.no_blocks);
    EXPECT_EQ(options.block_sizes, (std::vector<std::uint8_t>{4, 127, 1}));
    const std::string reason =
        "--block-size takes numbers of segments from 1 to 127 with commas between them, such as 4,127";
    EXPECT_EQ(error_of({"--block-size", "0"}), reason);
    EXPECT_EQ(error_of({"--block-size", "128"}), reason);
    EXPECT_EQ(error_of({"--block-size", "4,"}), reason);
}

TEST(NodeOptions, TakeFaultsOfTheServers) {
    const auto [options, error] = parse({"--unheard=1", "--toggled=2", "--wrong-crc=3", "--endless=100"});
    EXPECT_EQ(error, "");
    EXPECT_EQ(options.faults.unheard, 1U);
    EXPECT_EQ(options.faults.toggled, 2U);
    EXPECT_EQ(options.faults.wrong_crc, 3U);
    EXPECT_EQ(options.faults.endless, 100U);
    EXPECT_EQ(error_of({"--endless", "101"}), "--endless takes a whole number from 0 to 100, not '101'");
}

TEST(NodeOptions, KnowLocalhost) {
    const auto [options, error] = parse({"--peer", "localhost:1"});
    EXPECT_EQ(error, "");
    ASSERT_TRUE(options.peer);
    EXPECT_STREQ(inet_ntoa(options.peer->sin_addr), "127.0.0.1");
}

TEST(NodeOptions, TakeFaults) {
    const auto [options, error] = parse({"--lost", "1", "--late", "2", "--delay", "3", "--duplicated", "4",
                                         "--foreign", "5", "--most", "6", "--seed", "7"});
    EXPECT_EQ(error, "");
    EXPECT_EQ(options.faults.lost, 1U);
    EXPECT_EQ(options.faults.late, 2U);
    EXPECT_EQ(options.faults.delay_ms, 3U);
    EXPECT_EQ(options.faults.duplicated, 4U);
    EXPECT_EQ(options.faults.foreign, 5U);
    EXPECT_EQ(options.faults.most, 6U);
    EXPECT_EQ(options.faults.seed, 7U);
}

TEST(NodeOptions, TakeWhatTheNodesDoByThemselves) {
    const auto [options, error] = parse({"--heartbeat", "100", "--sync", "10", "--start", "--strict"});
    EXPECT_EQ(error, "");
    EXPECT_EQ(options.heartbeat_ms, 100);
    EXPECT_EQ(options.sync_period_ms, 10U);
    EXPECT_TRUE(options.self_starting);
    EXPECT_TRUE(options.strict_counts);
}

TEST(NodeOptions, EverythingAfterRunIsTheCommand) {
    const auto [options, error] = parse({"--run", "program", "--nodes", "{master}"});
    EXPECT_EQ(error, "");
    EXPECT_EQ(options.command, (std::vector<std::string>{"program", "--nodes", "{master}"}));
    EXPECT_EQ(options.nodes, std::vector<std::uint8_t>{1});
}

TEST(NodeOptions, TellWhatIsWrong) {
    EXPECT_EQ(error_of({"--dance"}), "unknown option '--dance'");
    EXPECT_EQ(error_of({"5001"}), "unknown option '5001'");
    EXPECT_EQ(error_of({"--start=1"}), "unknown option '--start=1'");
    EXPECT_EQ(error_of({"--listen"}), "--listen needs a value");
    EXPECT_EQ(error_of({"--run"}), "--run needs a command");
    EXPECT_EQ(error_of({"--log="}), "--log needs the name of a file");
    EXPECT_EQ(error_of({"--listen", "65536"}), "--listen takes a whole number from 0 to 65535, not '65536'");
    EXPECT_EQ(error_of({"--listen", "-1"}), "--listen takes a whole number from 0 to 65535, not '-1'");
    EXPECT_EQ(error_of({"--lost=101"}), "--lost takes a whole number from 0 to 100, not '101'");
    EXPECT_EQ(error_of({"--late", "5x"}), "--late takes a whole number from 0 to 100, not '5x'");
    EXPECT_EQ(error_of({"--seed", ""}), "--seed takes a whole number from 0 to 4294967295, not ''");
}

TEST(NodeOptions, NodesAreNumbersFrom1To127EachOnce) {
    const std::string list =
        "--nodes takes node numbers from 1 to 127 with commas between them, such as 1,2,5";
    for (const char* wrong : {"", "0", "128", "1,", ",1", "1,,2", "a", "1 2"}) {
        EXPECT_EQ(error_of({"--nodes", wrong}), list) << wrong;
    }
    EXPECT_EQ(error_of({"--nodes", "5,1,5"}), "--nodes names node 5 twice");
}

TEST(NodeOptions, APeerIsAnAddressAndAPort) {
    for (const char* wrong :
         {"", "5000", "127.0.0.1", "127.0.0.1:", "127.0.0.1:0", "127.0.0.1:65536", "name:1"}) {
        EXPECT_EQ(error_of({"--peer", wrong}),
                  "--peer takes an IPv4 address and a port, such as 127.0.0.1:5000, not '" +
                      std::string(wrong) + "'");
    }
}

TEST(NodeOptions, HelpNamesEveryOption) {
    EXPECT_TRUE(parse({"--help"}).options.help);
    EXPECT_TRUE(parse({"-h"}).options.help);
    const std::string help = node_simulator::node_help();
    for (const char* option :
         {"--nodes", "--listen", "--peer", "--log", "--heartbeat", "--sync", "--start", "--strict", "--run",
          "--help", "--lost", "--late", "--delay", "--duplicated", "--foreign", "--most", "--seed"}) {
        EXPECT_NE(help.find("\n  " + std::string(option) + " "), std::string::npos) << option;
    }
}
