// Shows the PDO set-up of a node: lists, loads, changes and saves it.
//
//     node_setup MASTER_PORT NODE_PORT NODE list
//     node_setup MASTER_PORT NODE_PORT NODE show tpdo|rpdo NUMBER
//     node_setup MASTER_PORT NODE_PORT NODE set  tpdo|rpdo NUMBER COBID TYPE [ENTRY ...]
//
// An ENTRY is a mapping word: index, subindex and length in bits, such as 0x60000108.

#include <cstdio>
#include <cstdlib>
#include <string>

#include "nodevik/canopen.h"
#include "nodevik/pdo.h"
#include "nodevik/udpdriver.h"
#include "program/standardoptions.h"

namespace {

constexpr const char* operands =
    "MASTER_PORT NODE_PORT NODE list|show|set [tpdo|rpdo NUMBER [COBID TYPE [ENTRY ...]]]";

unsigned number(const char* text) {
    return static_cast<unsigned>(std::strtoul(text, nullptr, 0));
}

void show(CCANopen& master, unsigned node, bool transmit, unsigned pdo_number) {
    PDO pdo;
    if (transmit) {
        master.load_tpdo_mappings(node, pdo_number, pdo);
    } else {
        master.load_rpdo_mappings(node, pdo_number, pdo);
    }
    std::printf("COB-ID 0x%03x, %d mapped objects\n", pdo.get_cobid(), pdo.obj_info.mappingcount);
    pdo.print_mappings();
}

void set(CCANopen& master, unsigned node, bool transmit, int argc, char** argv) {
    PDO pdo(number(argv[7]));
    pdo.set_transmission_type(static_cast<unsigned char>(number(argv[8])));
    for (int i = 9; i < argc && i < 9 + 8; ++i) {
        pdo.obj_info.pdo_mappings[pdo.obj_info.mappingcount++] = static_cast<int>(number(argv[i]));
    }
    if (transmit) {
        master.save_tpdo_mappings(node, number(argv[6]), pdo);
    } else {
        master.save_rpdo_mappings(node, number(argv[6]), pdo);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (program::answered_standard_option({argv + 1, static_cast<std::size_t>(argc - 1)}, operands)) {
        return 0;
    }
    const std::string operation = argc > 4 ? argv[4] : "";
    if (!(operation == "list" || (operation == "show" && argc == 7) || (operation == "set" && argc > 8))) {
        program::print_usage(operands);
        return 2;
    }
    CCANopen master;
    udpDriver driver;
    driver.open(number(argv[1]), 0, 0);
    driver.endpoint().set_client_destination_address(127, 0, 0, 1, number(argv[2]));
    master.load_driver(driver);

    const unsigned node = number(argv[3]);
    master.set_preoperational(static_cast<unsigned char>(node));  // a stopped node answers no SDO
    const bool transmit = argc > 5 && std::string(argv[5]) == "tpdo";
    if (operation == "list") {
        master.show_node_tpdo_cobids(static_cast<unsigned char>(node));
        master.show_node_rpdo_cobids(static_cast<unsigned char>(node));
        return 0;
    }
    if (operation == "set") {
        set(master, node, transmit, argc, argv);
    }
    show(master, node, transmit, number(argv[6]));
}
