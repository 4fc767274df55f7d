// Shows the calling order of the master: construct, open, load, map, add, start, then cycle.
//
//     cyclic_exchange MASTER_PORT NODE_PORT [NODE [CYCLES]]
//
// Counts up on a node's four digital outputs and shows what its digital inputs read in the same cycle.

#include <cstdio>
#include <cstdlib>

#include "nodevik/arch.h"
#include "nodevik/canopen.h"
#include "nodevik/pdo.h"
#include "nodevik/udpdriver.h"

int main(int argc, char** argv) {
    if (argc < 3) {
        std::puts("usage: cyclic_exchange MASTER_PORT NODE_PORT [NODE [CYCLES]]");
        return 2;
    }
    const auto node = static_cast<unsigned char>(argc > 3 ? std::atoi(argv[3]) : 1);
    const int cycles = argc > 4 ? std::atoi(argv[4]) : 10;

    CCANopen master;
    udpDriver driver;
    driver.open(static_cast<unsigned>(std::atoi(argv[1])), 0, 0);
    driver.endpoint().set_client_destination_address(127, 0, 0, 1, static_cast<unsigned>(std::atoi(argv[2])));
    master.load_driver(driver);

    unsigned char outputs[4] = {};
    unsigned char inputs[4] = {};
    PDO rpdo(0x200U + node);  // what the node receives
    PDO tpdo(0x180U + node);  // what it transmits
    for (unsigned i = 0; i < 4; ++i) {
        rpdo.mapcopy(i, outputs[i]);
        tpdo.mapcopy(i, inputs[i]);
    }
    master.add_rpdo(rpdo);
    master.add_tpdo(tpdo);
    master.start_node(node);

    for (int cycle = 1; cycle <= cycles; ++cycle) {
        for (int i = 0; i < 4; ++i) {
            outputs[i] = static_cast<unsigned char>(cycle + i);
        }
        master.send_only_changed_rpdos();
        master.sync();
        for (int wait_ms = 0; wait_ms < 1000 && master.all_tdpos_updated(0) != 0; ++wait_ms) {
            m_sleep(1);
            master.read_all_messages();
        }
        const bool missed = master.all_tdpos_updated(1) != 0;
        std::printf("cycle %d: out %3u %3u %3u %3u  in %3u %3u %3u %3u%s\n", cycle, outputs[0], outputs[1],
                    outputs[2], outputs[3], inputs[0], inputs[1], inputs[2], inputs[3],
                    missed ? "  (no TPDO)" : "");
    }
}
