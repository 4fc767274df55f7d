// CANopen nodes on a simulated bus behind CAN-over-UDP or on a CAN interface.

#include <cstdio>
#include <stdexcept>

#include "program/standardoptions.h"
#include "simulator/node/nodeoptions.h"
#include "simulator/node/nodesession.h"

int main(int argc, char** argv) {
    constexpr int usage_status = 2;
    const auto [options, error] =
        node_simulator::parse_node_options({argv + 1, static_cast<std::size_t>(argc - 1)});
    if (!error.empty()) {
        std::fprintf(stderr, "node-simulator: %s\nTry 'node-simulator --help'.\n", error.c_str());
        return usage_status;
    }
    if (options.help) {
        std::fputs(node_simulator::node_help().c_str(), stdout);
        return 0;
    }
    if (options.version) {
        program::print_version();
        return 0;
    }
    try {
        return node_simulator::NodeSession(options).run();
    } catch (const std::runtime_error& failure) {
        std::fprintf(stderr, "node-simulator: %s\n", failure.what());
        return usage_status;
    }
}
