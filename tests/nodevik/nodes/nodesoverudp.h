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
        struct Listener : FrameObserver {
            unsigned int wanted = 0;
            bool has_come = false;
            unsigned int length = 0;
            void frame_passed(const ObservedFrame& frame) override {
                if (!has_come && frame.identifier == wanted) {
                    has_come = true;
                    length = frame.length;
                }
            }
        } listener;
        listener.wanted = identifier;
        driver.add_observer(listener);
        const std::uint64_t end = monotonic_ns() + limit_ns;
        while (!listener.has_come && monotonic_ns() < end) {
            wait_readable(bus.descriptor(), 100);
            driver.read_all();
        }
        driver.remove_observer(listener);
        if (length != nullptr) {
            *length = listener.length;
        }
        return listener.has_come;
    }

    udpDriver bus;
    ObservedDriver driver{bus};
    SdoClient sdo{driver};
    std::unique_ptr<NodeProcess> nodes;
};

#endif
