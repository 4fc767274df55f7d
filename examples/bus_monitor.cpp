// Shows the decoder and the log: prints what passes on the bus, one coloured line per frame.
//
//     bus_monitor MASTER_PORT NODE_PORT SECONDS [KINDS [LOGFILE]]
//
// KINDS is "all" or any of nmt,tpdo,rpdo,sdo,sync,guard with commas between them.

#include <cstdio>
#include <cstdlib>
#include <string>

#include "nodevik/arch.h"
#include "nodevik/canopen.h"
#include "nodevik/udpdriver.h"
#include "program/standardoptions.h"

namespace {

constexpr const char* operands = "MASTER_PORT NODE_PORT SECONDS [KINDS [LOGFILE]]";
constexpr unsigned decode_frames = 4;  // the bit of the debug word

void choose_kinds(CCANopen& master, const std::string& kinds) {
    const auto wanted = [&kinds](const char* kind) {
        return kinds == "all" || ("," + kinds + ",").find("," + std::string(kind) + ",") != std::string::npos;
    };
    master.show_nmt(wanted("nmt"));
    master.show_tpdo(wanted("tpdo"));
    master.show_rpdo(wanted("rpdo"));
    master.show_sdo(wanted("sdo"));
    master.show_sync(wanted("sync"));
    master.show_nodeguard(wanted("guard"));
}

}  // namespace

int main(int argc, char** argv) {
    if (program::answered_standard_option({argv + 1, static_cast<std::size_t>(argc - 1)}, operands)) {
        return 0;
    }
    if (argc < 4) {
        program::print_usage(operands);
        return 2;
    }
    CCANopen master;
    udpDriver driver;
    driver.open(static_cast<unsigned>(std::atoi(argv[1])), 0, 0);
    driver.endpoint().set_client_destination_address(127, 0, 0, 1, static_cast<unsigned>(std::atoi(argv[2])));
    master.load_driver(driver);
    master.set_debug(decode_frames);
    choose_kinds(master, argc > 4 ? argv[4] : "all");
    if (argc > 5 && master.open_log(argv[5]) != 0) {
        return 1;
    }
    const double seconds = std::atof(argv[3]);
    for (int tick = 0; tick < static_cast<int>(seconds * 100); ++tick) {
        master.read_all_messages();
        CCANopen::print();  // the last frame's line still waits for its successor
        m_sleep(10);
    }
}
