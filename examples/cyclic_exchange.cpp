// Shows the calling order of the master: construct, open, load, map, add, start, then cycle.
//
//     cyclic_exchange MASTER_PORT NODE_PORT [NODE [CYCLES]]
//
// Counts up on a node's four digital outputs and shows what its digital inputs read in the same cycle.

#include <charconv>
#include <cstdio>
#include <string_view>

#include "nodevik/arch.h"
#include "nodevik/canopen.h"
#include "nodevik/pdo.h"
#include "nodevik/udpdriver.h"

namespace {

// A whole number from 1 to `highest`, or 0.
unsigned positive(std::string_view text, unsigned highest) {
    unsigned number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() && number <= highest ? number : 0;
}

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
    const unsigned master_port = argc > 2 ? positive(argv[1], 65535) : 0;
    const unsigned node_port = argc > 2 ? positive(argv[2], 65535) : 0;
    const unsigned node = argc > 3 ? positive(argv[3], 127) : 1;
    const unsigned cycles = argc > 4 ? positive(argv[4], 10'000'000) : 10;
    if (argc > 5 || master_port == 0 || node_port == 0 || node == 0 || cycles == 0) {
        std::fputs("usage: cyclic_exchange MASTER_PORT NODE_PORT [NODE [CYCLES]]\n", stderr);
        return 2;
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
