// Shows the PDO set-up of a node: lists, loads, changes and saves it.
//
//     node_setup MASTER_PORT NODE_PORT NODE list
//     node_setup MASTER_PORT NODE_PORT NODE show tpdo|rpdo NUMBER
//     node_setup MASTER_PORT NODE_PORT NODE set  tpdo|rpdo NUMBER COBID TYPE [ENTRY ...]
//
// An ENTRY is a mapping word: index, subindex and length in bits, such as 0x60000108.

#include <cstdio>
#include <optional>
#include <span>
#include <string_view>

#include "nodevik/canopen.h"
#include "nodevik/pdo.h"
#include "nodevik/udpdriver.h"
#include "program/numbers.h"
#include "program/standardoptions.h"

namespace {

constexpr const char* operands =
    "MASTER_PORT NODE_PORT NODE list|show|set [tpdo|rpdo NUMBER [COBID TYPE [ENTRY ...]]]";

constexpr unsigned highest_pdo = 511;
constexpr unsigned lowest_cobid = 0x181;
constexpr unsigned highest_cobid = 0x57F;
constexpr std::size_t most_entries = 8;

using Words = std::span<const char* const>;

// What the command line asks for.
struct Request {
    unsigned master_port = 0;
    unsigned node_port = 0;
    unsigned char node = 0;
    std::string_view operation;
    bool transmit = false;  // tpdo, not rpdo
    unsigned pdo_number = 0;
    PDO pdo;  // what is set
};

// Whether the operation has as many words as belong to it, and the right kind of PDO.
bool is_complete(Words words) {
    const std::string_view operation = words.size() > 3 ? words[3] : "";
    const std::string_view kind = words.size() > 5 ? words[4] : "";
    if (operation == "list") {
        return words.size() == 4;
    }
    const bool shows = operation == "show" && words.size() == 6;
    const bool sets = operation == "set" && words.size() >= 8 && words.size() <= 8 + most_entries;
    return (shows || sets) && (kind == "tpdo" || kind == "rpdo");
}

// Reads COB-ID, transmission type and entries.
void read_setup(program::Numbers& numbers, Words words, PDO& pdo) {
    pdo.init(numbers.read(words[0], lowest_cobid, highest_cobid));
    pdo.set_transmission_type(static_cast<unsigned char>(numbers.read(words[1], 0, 0xFF)));
    for (const char* const entry : words.subspan(2)) {
        pdo.obj_info.pdo_mappings[pdo.obj_info.mappingcount++] =
            static_cast<int>(numbers.read(entry, 0, 0xFFFFFFFF));
    }
}

// Reads the command line; none when it is wrong.
std::optional<Request> read_request(Words words) {
    if (!is_complete(words)) {
        return std::nullopt;
    }
    program::Numbers numbers;
    Request request;
    request.master_port = numbers.read(words[0], 1, program::highest_port);
    request.node_port = numbers.read(words[1], 1, program::highest_port);
    request.node = static_cast<unsigned char>(numbers.read(words[2], 1, program::highest_node));
    request.operation = words[3];
    if (words.size() > 5) {
        request.transmit = words[4] == std::string_view("tpdo");
        request.pdo_number = numbers.read(words[5], 0, highest_pdo);
    }
    if (words.size() > 7) {
        read_setup(numbers, words.subspan(6), request.pdo);
    }
    return numbers.all_right() ? std::optional(request) : std::nullopt;
}

void show(CCANopen& master, const Request& request) {
    PDO pdo;
    if (request.transmit) {
        master.load_tpdo_mappings(request.node, request.pdo_number, pdo);
    } else {
        master.load_rpdo_mappings(request.node, request.pdo_number, pdo);
    }
    std::printf("COB-ID 0x%03x, %d mapped objects\n", pdo.get_cobid(), pdo.obj_info.mappingcount);
    pdo.print_mappings();
}

void set(CCANopen& master, Request& request) {
    if (request.transmit) {
        master.save_tpdo_mappings(request.node, request.pdo_number, request.pdo);
    } else {
        master.save_rpdo_mappings(request.node, request.pdo_number, request.pdo);
    }
}

}  // namespace

int main(int argc, char** argv) {
    const Words words(argv + 1, static_cast<std::size_t>(argc - 1));
    if (program::answered_standard_option(words, operands)) {
        return 0;
    }
    std::optional<Request> request = read_request(words);
    if (!request) {
        return program::refuse_command_line(operands);
    }
    CCANopen master;
    udpDriver driver;
    driver.open(request->master_port, 0, 0);
    driver.endpoint().set_client_destination_address(127, 0, 0, 1, request->node_port);
    master.load_driver(driver);
    master.discard_late_sdo_answers(true);

    master.set_preoperational(request->node);  // a stopped node answers no SDO
    if (request->operation == "list") {
        master.show_node_tpdo_cobids(request->node);
        master.show_node_rpdo_cobids(request->node);
        return 0;
    }
    if (request->operation == "set") {
        set(master, *request);
    }
    show(master, *request);
}
