#include "tools/lssframewords.h"

#include <cstdint>

#include "tools/nodewords.h"

namespace nodevik_tool {

namespace {

enum Command : unsigned char {
    switch_all = 0x04,
    node_number = 0x11,
    bit_timing = 0x13,
    activate_bit_timing = 0x15,
    store = 0x17,
    select_first = 0x40,
    select_last = 0x43,
    selected = 0x44,
    identify_first = 0x46,
    identify_last = 0x4B,
    identify_unconfigured = 0x4C,
    identified = 0x4F,
    unconfigured = 0x50,
    fastscan = 0x51,
    inquire_first = 0x5A,
    inquire_last = 0x5D,
    inquire_node_number = 0x5E
};

constexpr unsigned int no_node = 0xFF;
constexpr unsigned int specific_error = 0xFF;
constexpr unsigned int any_slave = 0x80;  // as the bit of a fastscan
constexpr unsigned int highest_bit = 31;

constexpr std::array<const char*, 4> identity{"vendor", "product", "revision", "serial number"};
constexpr std::array<const char*, 6> ranges{
    "vendor", "product", "revision from", "revision up to", "serial number from", "serial number up to"};
constexpr std::array<const char*, 10> bit_rates{"1000 kbit/s", "800 kbit/s", "500 kbit/s", "250 kbit/s",
                                                "125 kbit/s",  nullptr,      "50 kbit/s",  "20 kbit/s",
                                                "10 kbit/s",   "automatic"};

std::string number_in(const LssBytes& data) {
    return hex_text(data[1] | static_cast<std::uint32_t>(data[2]) << 8 |
                    static_cast<std::uint32_t>(data[3]) << 16 | static_cast<std::uint32_t>(data[4]) << 24);
}

std::string unknown(unsigned char command) {
    constexpr const char* digits = "0123456789ABCDEF";
    return std::string("unknown command 0x") + digits[command >> 4] + digits[command & 0xF];
}

bool is_between(unsigned char command, Command first, Command last) {
    return command >= first && command <= last;
}

std::string switch_words(unsigned char mode) {
    switch (mode) {
        case 0:
            return "switch all slaves to waiting";
        case 1:
            return "switch all slaves to configuration";
        default:
            return "switch all slaves to an unknown mode";
    }
}

std::string bit_rate_words(unsigned char table, unsigned char index) {
    if (table == 0 && index < bit_rates.size() && bit_rates[index] != nullptr) {
        return bit_rates[index];
    }
    return "number " + std::to_string(index) + " of table " + std::to_string(table);
}

std::string fastscan_words(const LssBytes& data) {
    const unsigned int bit = data[5];
    const unsigned int number = data[6];
    const unsigned int next = data[7];
    if (bit == any_slave) {
        return "fastscan: any slave without a node number";
    }
    if (bit > highest_bit || number >= identity.size() || next >= identity.size()) {
        return "fastscan: out of range";
    }
    return std::string("fastscan: ") + identity[number] + " " + number_in(data) + " from bit " +
           std::to_string(bit) + " up" + (next == number ? "" : std::string(", then ") + identity[next]);
}

// The answer to a setting, which begins with an error code.
std::string setting_words(const LssBytes& data, const char* what, const char* done, const char* error_2) {
    const unsigned int error = data[1];
    const std::string refused = std::string(what) + " refused: ";
    switch (error) {
        case 0:
            return done;
        case 1:
            return refused + (data[0] == node_number ? "out of range" : "not supported");
        case specific_error:
            return refused + "the maker's error " + std::to_string(data[2]);
        default:
            return refused + (error == 2 && error_2 != nullptr ? error_2 : "error " + std::to_string(error));
    }
}

}  // namespace

std::string lss_request_words(const LssBytes& data) {
    const unsigned char command = data[0];
    if (is_between(command, select_first, select_last)) {
        return std::string("select ") + identity[command - select_first] + " " + number_in(data);
    }
    if (is_between(command, identify_first, identify_last)) {
        return std::string("identify ") + ranges[command - identify_first] + " " + number_in(data);
    }
    if (is_between(command, inquire_first, inquire_last)) {
        return std::string("read ") + identity[command - inquire_first];
    }
    switch (command) {
        case switch_all:
            return switch_words(data[1]);
        case node_number:
            return data[1] == no_node ? "set no node number" : "set node number " + std::to_string(data[1]);
        case bit_timing:
            return "set bit rate " + bit_rate_words(data[1], data[2]);
        case activate_bit_timing:
            return "activate the bit rate after " + std::to_string(data[1] | data[2] << 8) + " ms";
        case store:
            return "store";
        case identify_unconfigured:
            return "identify slaves without a node number";
        case fastscan:
            return fastscan_words(data);
        case inquire_node_number:
            return "read node number";
        default:
            return unknown(command);
    }
}

std::string lss_answer_words(const LssBytes& data) {
    const unsigned char command = data[0];
    if (is_between(command, inquire_first, inquire_last)) {
        return std::string(identity[command - inquire_first]) + " " + number_in(data);
    }
    switch (command) {
        case node_number:
            return setting_words(data, "node number", "node number taken", nullptr);
        case bit_timing:
            return setting_words(data, "bit rate", "bit rate taken", nullptr);
        case store:
            return setting_words(data, "store", "stored", "the medium failed");
        case selected:
            return "selected";
        case identified:
            return "identified";
        case unconfigured:
            return "a slave without a node number";
        case inquire_node_number:
            return data[1] == no_node ? "no node number" : "node number " + std::to_string(data[1]);
        default:
            return unknown(command);
    }
}

}  // namespace nodevik_tool
