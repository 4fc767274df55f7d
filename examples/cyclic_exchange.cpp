// Shows the calling order of the master: construct, open, load, map, add, start, then cycle.
//
//     cyclic_exchange MASTER_PORT NODE_PORT [NODE [CYCLES]]
//
// Counts up on a node's four digital outputs and shows what its digital inputs read in the same cycle.

#include <cstdio>

#include "nodevik/arch.h"
#include "nodevik/canopen.h"
#include "nodevik/pdo.h"
#include "nodevik/udpdriver.h"
#include "program/numbers.h"
#include "program/standardoptions.h"

namespace {

constexpr const char* operands = "MASTER_PORT NODE_PORT [NODE [CYCLES]]";
constexpr unsigned most_cycles = 10'000'000;

// The node's four digital outputs and inputs.
struct Lines {
    unsigned char outputs[4] = {};
    unsigned char inputs[4] = {};
};

// Sends the outputs and SYNC, then waits for the inputs, up to a second.
void exchange(CCANopen& master, const Lines& lines, unsigned cycle) {
    master.send_only_changed_rpdos();
    master.sync();
    for (int wait_ms = 0; wait_ms < 1000 && master.all_tdpos_updated(0) != 0; ++wait_ms) {
        m_sleep(1);
        master.read_all_messages();
    }
    const bool missed = master.all_tdpos_updated(1) != 0;
    std::printf("cycle %u: out %3u %3u %3u %3u  in %3u %3u %3u %3u%s\n", cycle, lines.outputs[0],
                lines.outputs[1], lines.outputs[2], lines.outputs[3], lines.inputs[0], lines.inputs[1],
                lines.inputs[2], lines.inputs[3], missed ? "  (no TPDO)" : "");
}

}  // namespace

int main(int argc, char** argv) {
    program::Numbers numbers;
    const unsigned master_port = argc > 2 ? numbers.read(argv[1], 1, program::highest_port) : 0;
    const unsigned node_port = argc > 2 ? numbers.read(argv[2], 1, program::highest_port) : 0;
    const unsigned node = argc > 3 ? numbers.read(argv[3], 1, program::highest_node) : 1;
    const unsigned cycles = argc > 4 ? numbers.read(argv[4], 1, most_cycles) : 10;
    if (argc < 3 || argc > 5 || !numbers.all_right()) {
        return program::refuse_command_line(operands);
    }

    CCANopen master;
    udpDriver driver;
    driver.open(master_port, 0, 0);
    driver.endpoint().set_client_destination_address(127, 0, 0, 1, node_port);
    master.load_driver(driver);

    Lines lines;
    PDO rpdo(0x200U + node);  // what the node receives
    PDO tpdo(0x180U + node);  // what it transmits
    for (unsigned i = 0; i < 4; ++i) {
        rpdo.mapcopy(i, lines.outputs[i]);
        tpdo.mapcopy(i, lines.inputs[i]);
    }
    master.add_rpdo(rpdo);
    master.add_tpdo(tpdo);
    master.start_node(static_cast<unsigned char>(node));

    for (unsigned cycle = 1; cycle <= cycles; ++cycle) {
        for (unsigned i = 0; i < 4; ++i) {
            lines.outputs[i] = static_cast<unsigned char>(cycle + i);
        }
        exchange(master, lines, cycle);
    }
}
