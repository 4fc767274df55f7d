#include "tools/lssframewords.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "nodevik/nodes/lss.h"
#include "nodevik/nodes/lssprotocol.h"
#include "tools/nodewords.h"

namespace nodevik_tool {

namespace {

constexpr std::array<const char*, lss::identity_parts> identity{"vendor", "product", "revision",
                                                                "serial number"};
constexpr std::array<const char*, lss::range_parts> ranges{
    "vendor", "product", "revision from", "revision up to", "serial number from", "serial number up to"};

std::string number_in(const LssBytes& data) {
    return hex_text(data[1] | static_cast<std::uint32_t>(data[2]) << 8 |
                    static_cast<std::uint32_t>(data[3]) << 16 | static_cast<std::uint32_t>(data[4]) << 24);
}

std::string unknown(unsigned char command) {
    constexpr const char* digits = "0123456789ABCDEF";
    return std::string("unknown command 0x") + digits[command >> 4] + digits[command & 0xF];
}

// The name of what a command of a range is about; null when the command is not in the range.
template <std::size_t count>
const char* name_in(const std::array<const char*, count>& names, unsigned char command, lss::Command first) {
    return command >= first && command < first + count ? names[command - first] : nullptr;
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
    const auto* const rate = std::find_if(lss::bit_rates.begin(), lss::bit_rates.end(),
                                          [index](const lss::BitRate& row) { return row.index == index; });
    if (table != lss::standard_table || rate == lss::bit_rates.end()) {
        return "number " + std::to_string(index) + " of table " + std::to_string(table);
    }
    return rate->kbit == 0 ? "automatic" : std::to_string(rate->kbit) + " kbit/s";
}

std::string fastscan_words(const LssBytes& data) {
    const unsigned int bit = data[5];
    const unsigned int number = data[6];
    const unsigned int next = data[7];
    if (bit == lss::scan_begin) {
        return "fastscan: any slave without a node number";
    }
    if (bit > lss::highest_bit || number >= identity.size() || next >= identity.size()) {
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
            return refused + (data[0] == lss::configure_node ? "out of range" : "not supported");
        case lss::specific_error:
            return refused + "the maker's error " + std::to_string(data[2]);
        default:
            return refused + (error == 2 && error_2 != nullptr ? error_2 : "error " + std::to_string(error));
    }
}

}  // namespace

std::string lss_request_words(const LssBytes& data) {
    const unsigned char command = data[0];
    if (const char* const name = name_in(identity, command, lss::switch_selective_first)) {
        return std::string("select ") + name + " " + number_in(data);
    }
    if (const char* const name = name_in(ranges, command, lss::identify_first)) {
        return std::string("identify ") + name + " " + number_in(data);
    }
    if (const char* const name = name_in(identity, command, lss::inquire_first)) {
        return std::string("read ") + name;
    }
    switch (command) {
        case lss::switch_state_global:
            return switch_words(data[1]);
        case lss::configure_node:
            return data[1] == Lss::no_node ? "set no node number"
                                           : "set node number " + std::to_string(data[1]);
        case lss::configure_bit_timing:
            return "set bit rate " + bit_rate_words(data[1], data[2]);
        case lss::activate_bit_timing:
            return "activate the bit rate after " + std::to_string(data[1] | data[2] << 8) + " ms";
        case lss::store_configuration:
            return "store";
        case lss::identify_unconfigured:
            return "identify slaves without a node number";
        case lss::fastscan:
            return fastscan_words(data);
        case lss::inquire_node:
            return "read node number";
        default:
            return unknown(command);
    }
}

std::string lss_answer_words(const LssBytes& data) {
    const unsigned char command = data[0];
    if (const char* const name = name_in(identity, command, lss::inquire_first)) {
        return std::string(name) + " " + number_in(data);
    }
    switch (command) {
        case lss::configure_node:
            return setting_words(data, "node number", "node number taken", nullptr);
        case lss::configure_bit_timing:
            return setting_words(data, "bit rate", "bit rate taken", nullptr);
        case lss::store_configuration:
            return setting_words(data, "store", "stored", "the medium failed");
        case lss::switched:
            return "selected";
        case lss::identified:
            return "identified";
        case lss::unconfigured:
            return "a slave without a node number";
        case lss::inquire_node:
            return data[1] == Lss::no_node ? "no node number" : "node number " + std::to_string(data[1]);
        default:
            return unknown(command);
    }
}

}  // namespace nodevik_tool
