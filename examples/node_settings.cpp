// Shows how a master looks into a node and sets it up: objects of all sizes by SDO, then one of its TPDOs.
//
//     node_settings MASTER_PORT NODE_PORT [NODE]
//
// Reads the device's type and name, writes a text, and lets the third TPDO carry digital input 1 and analogue
// input 2 with every SYNC.

#include <charconv>
#include <cstdio>
#include <string>
#include <string_view>

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

// Up to four bytes come as a number, in one frame.
bool show_type(CCANopen& master, unsigned char node) {
    int type = 0;
    if (master.sdo_read(node, 0x1000, 0, type) != 0) {
        return false;  // `type` is the abort code if the node has refused
    }
    std::printf("device type: %#x\n", static_cast<unsigned>(type));
    return true;
}

// Longer values come in segments.
bool show_text(CCANopen& master, unsigned char node, const char* what, unsigned short index) {
    char room[100];
    unsigned length = sizeof room;  // then the bytes that have come
    if (master.sdo_read_segment(node, index, 0, length, room) != 0) {
        return false;
    }
    std::printf("%s: %.*s\n", what, static_cast<int>(length), room);
    return true;
}

bool write_text(CCANopen& master, unsigned char node, unsigned short index, std::string text) {
    return master.sdo_write_segment(node, index, 0, static_cast<unsigned>(text.size()), text.data()) == 0;
}

// Disables the TPDO, writes its settings, enables it; then tells what the node has made of it.
void set_up_third_tpdo(CCANopen& master, unsigned char node) {
    constexpr unsigned number = 2;  // they count from 0
    PDO wanted(0x380U + node);
    wanted.set_transmission_type(1);                 // with every SYNC
    wanted.obj_info.pdo_mappings[0] = 0x6000'01'08;  // object, subindex, length in bits
    wanted.obj_info.pdo_mappings[1] = 0x6401'02'10;
    wanted.obj_info.mappingcount = 2;
    master.save_tpdo_mappings(node, number, wanted);

    PDO found;
    master.load_tpdo_mappings(node, number, found);
    std::printf("third TPDO: COB-ID %#x, %d objects\n", found.get_cobid(), found.obj_info.mappingcount);
    found.print_mappings();
}

}  // namespace

int main(int argc, char** argv) {
    const unsigned master_port = argc > 2 ? positive(argv[1], 65535) : 0;
    const unsigned node_port = argc > 2 ? positive(argv[2], 65535) : 0;
    const unsigned number = argc > 3 ? positive(argv[3], 127) : 1;
    if (argc > 4 || master_port == 0 || node_port == 0 || number == 0) {
        std::fputs("usage: node_settings MASTER_PORT NODE_PORT [NODE]\n", stderr);
        return 2;
    }

    CCANopen master;
    udpDriver driver;
    driver.open(master_port, 0, 0);
    driver.endpoint().set_client_destination_address(127, 0, 0, 1, node_port);
    master.load_driver(driver);
    master.set_debug(2);  // report silence, and come back from every error
    master.discard_late_sdo_answers(true);

    const auto node = static_cast<unsigned char>(number);
    master.set_preoperational(node);  // a stopped node answers no SDO
    if (!show_type(master, node) || !show_text(master, node, "device name", 0x1008) ||
        !write_text(master, node, 0x2000, "a text that takes some segments") ||
        !show_text(master, node, "object 0x2000", 0x2000)) {
        return 1;  // the library has said why
    }
    set_up_third_tpdo(master, node);
}
