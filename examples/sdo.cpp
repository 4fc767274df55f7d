// Shows SDO transfers of all sizes: reads and writes an object of a node from the command line.
//
//     sdo MASTER_PORT NODE_PORT read  NODE INDEX SUBINDEX [text|hex]
//     sdo MASTER_PORT NODE_PORT write NODE INDEX SUBINDEX text|hex VALUE
//     sdo MASTER_PORT NODE_PORT write NODE INDEX SUBINDEX 1|2|3|4 NUMBER
//
// Values of up to four bytes go out as a number (expedited), others as text or hexadecimal digits
// (segmented).

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "nodevik/canopen.h"
#include "nodevik/udpdriver.h"
#include "program/standardoptions.h"

namespace {

constexpr const char* operands =
    "MASTER_PORT NODE_PORT read|write NODE INDEX SUBINDEX [text|hex|SIZE [VALUE]]";

unsigned number(const char* text) {
    return static_cast<unsigned>(std::strtoul(text, nullptr, 0));
}

std::string from_hex(const std::string& digits) {
    std::string bytes;
    for (size_t i = 0; i + 1 < digits.size(); i += 2) {
        bytes.push_back(static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

void show(const std::string& bytes, bool as_text) {
    for (const char byte : bytes) {
        std::printf(as_text ? "%c" : "%02x", static_cast<unsigned>(static_cast<unsigned char>(byte)));
    }
    std::printf("  (%zu bytes)\n", bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
    if (program::answered_standard_option({argv + 1, static_cast<std::size_t>(argc - 1)}, operands)) {
        return 0;
    }
    const std::string operation = argc > 6 ? argv[3] : "";
    if (!(operation == "read" || (operation == "write" && argc == 9))) {
        program::print_usage(operands);
        return 2;
    }
    CCANopen master;
    udpDriver driver;
    driver.open(number(argv[1]), 0, 0);
    driver.endpoint().set_client_destination_address(127, 0, 0, 1, number(argv[2]));
    master.load_driver(driver);
    master.set_debug(2);  // report silence, and come back from every error

    const unsigned node = number(argv[4]);
    master.set_preoperational(static_cast<unsigned char>(node));  // a stopped node answers no SDO
    const auto index = static_cast<unsigned short>(number(argv[5]));
    const auto subindex = static_cast<unsigned char>(number(argv[6]));
    const std::string form = argc > 7 ? argv[7] : "hex";
    int result = 0;
    if (operation == "read") {
        std::vector<char> room(10000);
        auto length = static_cast<unsigned>(room.size());
        result = master.sdo_read_segment(node, index, subindex, length, room.data());
        if (result == 0) {
            show(std::string(room.data(), length), form == "text");
        }
    } else if (form == "text" || form == "hex") {
        std::string bytes = form == "text" ? argv[8] : from_hex(argv[8]);
        result = master.sdo_write_segment(node, index, subindex, static_cast<unsigned>(bytes.size()),
                                          bytes.data());
    } else {
        result =
            master.sdo_write(node, index, subindex, number(form.c_str()), static_cast<int>(number(argv[8])));
    }
    std::puts(result == 0 ? "done" : "failed");
    return result == 0 ? 0 : 1;
}
