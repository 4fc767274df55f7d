#include "simulator/node/socketcanlink.h"

#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "simulator/node/nodeoptions.h"
#include "tests/support/childprocess.h"
#include "tests/support/scriptedcankernel.h"

namespace {

using node_simulator::CanFrame;
using node_simulator::make_frame;
using node_simulator::parse_node_options;
using node_simulator::SocketCanLink;

class SocketCanLinkTest : public testing::Test {
protected:
    SocketCanLinkTest() {
        can_kernel() = CanKernel();
        can_kernel().links["vcan0"].kind = "vcan";
    }
};

ChildResult run_simulator(const std::vector<std::string>& arguments) {
    std::vector<std::string> words{NODE_SIMULATOR};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return run_program(words);
}

}  // namespace

TEST(NodeOptionsOfCan, NameAnInterface) {
    const std::vector<const char*> arguments{"--can", "vcan0", "--nodes=1,2"};
    const auto [options, error] = parse_node_options(arguments);
    EXPECT_EQ(error, "");
    EXPECT_EQ(options.can_interface, "vcan0");
    EXPECT_EQ(options.nodes.size(), 2U);
}

TEST(NodeOptionsOfCan, AreNotNeeded) {
    EXPECT_EQ(parse_node_options({}).options.can_interface, "");
}

TEST(NodeOptionsOfCan, NeedAName) {
    const std::vector<const char*> empty{"--can="};
    EXPECT_EQ(parse_node_options(empty).error, "--can needs the name of an interface");
    const std::vector<const char*> missing{"--can"};
    EXPECT_EQ(parse_node_options(missing).error, "--can needs a value");
}

TEST(NodeOptionsOfCan, StandInTheHelp) {
    const std::string help = node_simulator::node_help();
    EXPECT_NE(help.find("\n  --can INTERFACE "), std::string::npos);
    EXPECT_NE(help.find("{can}"), std::string::npos);
}

TEST(NodeSimulatorOnCan, AnInterfaceThatCannotBeOpenedEndsIt) {
    const ChildResult result = run_simulator({"--can", "no-interface-of-this-name"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(
        result.out,
        "Virhe: socketCanDriver::open() - 'no-interface-of-this-name' is no interface's name: it has 1 to "
        "15 characters\n\n");
    EXPECT_EQ(result.err, "node-simulator: cannot open the CAN interface no-interface-of-this-name\n");
}

TEST_F(SocketCanLinkTest, AnnouncesItsInterface) {
    const SocketCanLink link("vcan0");
    EXPECT_EQ(link.announcement(), "can vcan0");
    EXPECT_TRUE(link.has_peer());
    EXPECT_EQ(link.descriptor(), *can_kernel().descriptors.begin());
}

TEST_F(SocketCanLinkTest, StandsForItselfInACommand) {
    const SocketCanLink link("vcan0");
    std::string argument = "{can} and {can}, not {master}";
    link.fill_in(argument);
    EXPECT_EQ(argument, "vcan0 and vcan0, not {master}");
}

TEST_F(SocketCanLinkTest, TakesFramesAndRemoteRequests) {
    SocketCanLink link("vcan0");
    can_kernel().put(0x601, {0x40, 0, 0x10});
    can_kernel().put(0x701 | CAN_RTR_FLAG, {});
    std::optional<CanFrame> frame;
    ASSERT_TRUE(link.receive(frame));
    EXPECT_EQ(frame, make_frame(0x601, {0x40, 0, 0x10}));
    ASSERT_TRUE(link.receive(frame));
    CanFrame request = make_frame(0x701, {});
    request.remote = true;
    EXPECT_EQ(frame, request);
    EXPECT_FALSE(link.receive(frame));
}

TEST_F(SocketCanLinkTest, FramesWith29BitsAreForNobody) {
    SocketCanLink link("vcan0");
    can_kernel().put(0x601 | CAN_EFF_FLAG, {1});
    can_kernel().put(0x601 | CAN_EFF_FLAG | CAN_RTR_FLAG, {});
    std::optional<CanFrame> frame;
    EXPECT_FALSE(link.receive(frame));
}

TEST_F(SocketCanLinkTest, SendsDataFrames) {
    SocketCanLink link("vcan0");
    link.send(make_frame(0x581, {1, 2, 3}));
    ASSERT_EQ(can_kernel().sent.size(), 1U);
    EXPECT_EQ(can_kernel().sent[0].can_id, 0x581U);
    EXPECT_EQ(can_kernel().sent[0].can_dlc, 3);
    EXPECT_EQ(can_kernel().sent[0].data[2], 3);
}

TEST_F(SocketCanLinkTest, FailsOnAnInterfaceThatCannotBeOpened) {
    const ChildResult child = run_in_child([] {
        try {
            const SocketCanLink link("can9");
        } catch (const std::runtime_error& failure) {
            std::printf("%s\n", failure.what());
        }
    });
    EXPECT_EQ(
        child.out,
        "Virhe: socketCanDriver::open() - if_nametoindex() : there is no interface can9: plug its adapter "
        "in, load its driver, or look for its name with 'ip link'\n\n"
        "cannot open the CAN interface can9\n");
}
