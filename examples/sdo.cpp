// Shows SDO transfers of all sizes: reads and writes an object of a node from the command line.
//
//     sdo MASTER_PORT NODE_PORT read  NODE INDEX SUBINDEX [text|hex]
//     sdo MASTER_PORT NODE_PORT write NODE INDEX SUBINDEX text|hex VALUE
//     sdo MASTER_PORT NODE_PORT write NODE INDEX SUBINDEX 1|2|3|4 NUMBER
//
// Values of up to four bytes go out as a number (expedited), others as text or hexadecimal digits
// (segmented).

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "nodevik/canopen.h"
#include "nodevik/udpdriver.h"
#include "program/numbers.h"
#include "program/standardoptions.h"

namespace {

constexpr const char* operands =
    "MASTER_PORT NODE_PORT read|write NODE INDEX SUBINDEX [text|hex|SIZE [VALUE]]";

using Words = std::span<const char* const>;

// What the command line asks for.
struct Transfer {
    unsigned master_port;
    unsigned node_port;
    unsigned node;
    unsigned short index;
    unsigned char subindex;
    bool write;
    bool as_text;       // how the bytes that are read are shown
    std::string bytes;  // what is written in segments,
    unsigned size = 0;  // or at once, a number of 1 to 4 bytes; 0: none
    int number = 0;
};

// The bytes of an even number of hexadecimal digits.
std::optional<std::string> from_hex(std::string_view digits) {
    if (digits.size() % 2 != 0 || !std::all_of(digits.begin(), digits.end(),
                                               [](unsigned char digit) { return std::isxdigit(digit); })) {
        return std::nullopt;
    }
    std::string bytes;
    for (; !digits.empty(); digits.remove_prefix(2)) {
        unsigned char byte = 0;
        std::from_chars(digits.data(), digits.data() + 2, byte, 16);
        bytes.push_back(static_cast<char>(byte));
    }
    return bytes;
}

// Reads what is to be written; false when `value` is nothing of that form.
bool read_value(std::string_view form, const char* value, Transfer& transfer) {
    if (form == "text" || form == "hex") {
        const std::optional<std::string> bytes = form == "text" ? value : from_hex(value);
        transfer.bytes = bytes.value_or("");
        return bytes.has_value();
    }
    const std::optional<std::int64_t> size = program::whole_number(form, 1, 4);
    const std::int64_t values = std::int64_t{1} << (8 * size.value_or(0));
    const std::optional<std::int64_t> number = program::whole_number(value, -values / 2, values - 1);
    transfer.size = static_cast<unsigned>(size.value_or(0));
    transfer.number = static_cast<int>(number.value_or(0));
    return size && number;
}

// Reads the command line; none when it is wrong.
std::optional<Transfer> read_transfer(Words words) {
    const std::string_view operation = words.size() > 2 ? words[2] : "";
    const std::string_view form = words.size() > 6 ? words[6] : "hex";
    const bool reads =
        operation == "read" && (words.size() == 6 || words.size() == 7) && (form == "text" || form == "hex");
    const bool writes = operation == "write" && words.size() == 8;
    if (!reads && !writes) {
        return std::nullopt;
    }
    program::Numbers numbers;
    Transfer transfer{.master_port = numbers.read(words[0], 1, program::highest_port),
                      .node_port = numbers.read(words[1], 1, program::highest_port),
                      .node = numbers.read(words[3], 1, program::highest_node),
                      .index = static_cast<unsigned short>(numbers.read(words[4], 0, 0xFFFF)),
                      .subindex = static_cast<unsigned char>(numbers.read(words[5], 0, 0xFF)),
                      .write = writes,
                      .as_text = form == "text",
                      .bytes = {}};
    const bool all_right = numbers.all_right() && (reads || read_value(form, words[7], transfer));
    return all_right ? std::optional(transfer) : std::nullopt;
}

void show(const std::string& bytes, bool as_text) {
    for (const char byte : bytes) {
        std::printf(as_text ? "%c" : "%02x", static_cast<unsigned>(static_cast<unsigned char>(byte)));
    }
    std::printf("  (%zu bytes)\n", bytes.size());
}

int read_object(CCANopen& master, const Transfer& transfer) {
    std::vector<char> room(10000);
    auto length = static_cast<unsigned>(room.size());
    const int result =
        master.sdo_read_segment(transfer.node, transfer.index, transfer.subindex, length, room.data());
    if (result == 0) {
        show(std::string(room.data(), length), transfer.as_text);
    }
    return result;
}

int write_object(CCANopen& master, const Transfer& transfer) {
    if (transfer.size > 0) {
        return master.sdo_write(transfer.node, transfer.index, transfer.subindex, transfer.size,
                                transfer.number);
    }
    std::string bytes = transfer.bytes;
    return master.sdo_write_segment(transfer.node, transfer.index, transfer.subindex,
                                    static_cast<unsigned>(bytes.size()), bytes.data());
}

}  // namespace

int main(int argc, char** argv) {
    const Words words(argv + 1, static_cast<std::size_t>(argc - 1));
    if (program::answered_standard_option(words, operands)) {
        return 0;
    }
    const std::optional<Transfer> transfer = read_transfer(words);
    if (!transfer) {
        return program::refuse_command_line(operands);
    }
    CCANopen master;
    udpDriver driver;
    driver.open(transfer->master_port, 0, 0);
    driver.endpoint().set_client_destination_address(127, 0, 0, 1, transfer->node_port);
    master.load_driver(driver);
    master.set_debug(2);  // report silence, and come back from every error
    master.discard_late_sdo_answers(true);

    master.set_preoperational(static_cast<unsigned char>(transfer->node));  // a stopped node answers no SDO
    const int result = transfer->write ? write_object(master, *transfer) : read_object(master, *transfer);
    std::puts(result == 0 ? "done" : "failed");
    return result == 0 ? 0 : 1;
}
