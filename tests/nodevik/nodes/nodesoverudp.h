/// @file
/// The near end of a conversation with nodes in another process, over UDP, with nothing replaced.

#ifndef TESTS_NODEVIK_NODES_NODESOVERUDP_H
#define TESTS_NODEVIK_NODES_NODESOVERUDP_H

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "nodevik/nodes/sdoclient.h"
#include "nodevik/observeddriver.h"
#include "nodevik/udpdriver.h"
#include "nodevik/util/monotonicclock.h"
#include "tests/support/awaitframe.h"
#include "tests/support/loopbacksocket.h"
#include "tests/support/nodeprocess.h"

/// A test that talks to node-simulator.
class NodesOverUdp : public testing::Test {
protected:
    static constexpr std::uint64_t limit_ns = 60'000'000'000;  ///< longest wait for anything

    NodesOverUdp() { bus.open(0, 0, 0); }

    /// Starts the nodes.
    /// @param arguments  options of node-simulator, without --listen and --peer
    void start_nodes(std::vector<std::string> arguments) {
        arguments.insert(arguments.end(),
                         {"--peer", "127.0.0.1:" + std::to_string(local_port(bus.descriptor()))});
        nodes = std::make_unique<NodeProcess>(NODE_SIMULATOR, arguments);
        ASSERT_NE(nodes->port(), 0U);
        bus.endpoint().set_client_destination_address(127, 0, 0, 1, nodes->port());
    }

    /// Switches a node "on" or "off".
    void power(const std::string& how, unsigned int node) {
        ASSERT_EQ(nodes->command(how + " " + std::to_string(node)), "ok");
    }

    /// Reads frames until one of the identifier comes; false when the limit has passed.
    /// @param length  takes the number of its bytes, may be null
    bool comes(unsigned int identifier, unsigned int* length = nullptr) {
        return await_frame(driver, identifier, length);
    }

    udpDriver bus;
    ObservedDriver driver{bus};
    SdoClient sdo{driver};
    std::unique_ptr<NodeProcess> nodes;
};

#endif
