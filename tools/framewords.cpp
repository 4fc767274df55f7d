#include "tools/framewords.h"

#include <linux/can/error.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <ctime>

#include "nodevik/codetexts.h"
#include "nodevik/nodes/lssprotocol.h"
#include "tools/lssframewords.h"
#include "tools/objects.h"

namespace nodevik_tool {

namespace {

constexpr unsigned int node_mask = 0x7F;
constexpr unsigned int function_mask = 0x780;

// The functions of the predefined connection set that belong to a node.
struct Function {
    unsigned int code;
    const char* word;
    const char* name;
};
constexpr std::array<Function, 12> functions{{{0x080, "emcy", "EMCY"},
                                              {0x180, "tpdo1", "TPDO1"},
                                              {0x200, "rpdo1", "RPDO1"},
                                              {0x280, "tpdo2", "TPDO2"},
                                              {0x300, "rpdo2", "RPDO2"},
                                              {0x380, "tpdo3", "TPDO3"},
                                              {0x400, "rpdo3", "RPDO3"},
                                              {0x480, "tpdo4", "TPDO4"},
                                              {0x500, "rpdo4", "RPDO4"},
                                              {0x580, "sdo-answer", "SDO answer"},
                                              {0x600, "sdo-request", "SDO request"},
                                              {0x700, "heartbeat", "heartbeat"}}};

const Function* function_of(unsigned int identifier) {
    const auto found = std::find_if(
        functions.begin(), functions.end(),
        [identifier](const Function& function) { return function.code == (identifier & function_mask); });
    return found == functions.end() || (identifier & node_mask) == 0 ? nullptr : &*found;
}

[[gnu::format(printf, 1, 2)]] std::string print(const char* format, ...) {
    std::array<char, 200> text{};
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    return text.data();
}

std::uint32_t load_le(const unsigned char* bytes, unsigned int count) {
    std::uint32_t number = 0;
    for (unsigned int i = count; i > 0; --i) {
        number = number << 8 | bytes[i - 1];
    }
    return number;
}

std::string bytes_text(const unsigned char* bytes, unsigned int count) {
    std::string text;
    for (unsigned int i = 0; i < count; ++i) {
        text += print(i == 0 ? "%02X" : " %02X", static_cast<unsigned int>(bytes[i]));
    }
    return text;
}

std::string nmt_words(const ShownFrame& frame) {
    if (frame.length != 2) {
        return "NMT of a wrong length";
    }
    const char* command = "of an unknown command";
    switch (frame.data[0]) {
        case 0x01:
            command = "start";
            break;
        case 0x02:
            command = "stop";
            break;
        case 0x80:
            command = "preop";
            break;
        case 0x81:
            command = "reset";
            break;
        case 0x82:
            command = "reset-comm";
            break;
        default:
            break;
    }
    const std::string node =
        frame.data[1] == 0 ? "all nodes" : print("node %u", static_cast<unsigned int>(frame.data[1]));
    return print("NMT %s, %s", command, node.c_str());
}

std::string emergency_words(const ShownFrame& frame, unsigned int node) {
    if (frame.length != 8) {
        return print("EMCY of node %u of a wrong length", node);
    }
    const std::uint32_t code = load_le(frame.data.data(), 2);
    const char* text = emergency_text(code);
    text = text != nullptr ? text : emergency_class_text(code);
    return print("EMCY of node %u: 0x%04X %s, register 0x%02X", node, static_cast<unsigned int>(code),
                 text != nullptr ? text : "unknown", static_cast<unsigned int>(frame.data[2]));
}

std::string heartbeat_words(const ShownFrame& frame, unsigned int node) {
    if (frame.remote) {
        return print("guarding request, node %u", node);
    }
    if (frame.length != 1) {
        return print("heartbeat of node %u of a wrong length", node);
    }
    const unsigned int state = frame.data[0] & node_mask;
    if (frame.data[0] == 0) {
        return print("boot-up of node %u", node);
    }
    const char* text = node_state_text(state);
    return print("heartbeat of node %u: %s", node, text != nullptr ? text : "unknown state");
}

// What follows the object when its bytes are in the frame (CiA 301, 7.2.4.3.3: e, s and n).
std::string expedited_words(const ShownFrame& frame) {
    const unsigned int command = frame.data[0];
    const unsigned int count = (command & 1) != 0 ? 4 - (command >> 2 & 3) : 4;
    return bytes_text(&frame.data[4], count);
}

std::string sdo_head(unsigned int node, bool is_request) {
    return print(is_request ? "SDO request to node %u: " : "SDO answer of node %u: ", node);
}

constexpr const char* unknown_command = "unknown command";

// The receiver of a block says what came and how many segments it takes next.
std::string came_words(const ShownFrame& frame) {
    return print("segments up to %u came, %u in the next block", static_cast<unsigned int>(frame.data[1]),
                 static_cast<unsigned int>(frame.data[2]));
}

// The sender of the blocks tells at the end how many bytes of the last segment count.
std::string end_words(const ShownFrame& frame) {
    const unsigned int count = 7U - (frame.data[0] >> 2U & 7U);
    return print("block end, %u byte%s in the last segment", count, count == 1 ? "" : "s");
}

std::string size_words(const ShownFrame& frame) {
    constexpr unsigned int is_size_given = 2;
    return (frame.data[0] & is_size_given) == 0
               ? ""
               : print(", %u bytes", static_cast<unsigned int>(load_le(&frame.data[4], 4)));
}

// Frames of a block upload but its segments (CiA 301, 7.2.4.3.12 to 7.2.4.3.15).
std::string block_read_words(const ShownFrame& frame, const std::string& object, bool is_request) {
    if (!is_request) {
        return (frame.data[0] & 1) == 0 ? object + " in blocks" + size_words(frame) : end_words(frame);
    }
    switch (frame.data[0] & 3) {
        case 0:
            return "block read " + object +
                   print(", %u segments a block", static_cast<unsigned int>(frame.data[4]));
        case 1:
            return "block read ended";
        case 2:
            return came_words(frame);
        default:
            return "block read begins";
    }
}

// Frames of a block download but its segments (CiA 301, 7.2.4.3.8 to 7.2.4.3.11).
std::string block_write_words(const ShownFrame& frame, const std::string& object, bool is_request) {
    if (is_request) {
        return (frame.data[0] & 1) == 0 ? "block write " + object + size_words(frame) : end_words(frame);
    }
    switch (frame.data[0] & 3) {
        case 0:
            return "block write " + object +
                   print(" begins, %u segments a block", static_cast<unsigned int>(frame.data[4]));
        case 1:
            return "block write ended";
        case 2:
            return came_words(frame);
        default:
            return unknown_command;
    }
}

std::string sdo_words(const ShownFrame& frame, unsigned int node, bool is_request) {
    const std::string head = sdo_head(node, is_request);
    if (frame.length != 8) {
        return head + "wrong length";
    }
    const unsigned int command = frame.data[0];
    const std::string object =
        address_text(static_cast<std::uint16_t>(load_le(&frame.data[1], 2)), frame.data[3]);
    const bool is_expedited = (command & 2) != 0;
    const auto size = static_cast<unsigned int>(load_le(&frame.data[4], 4));
    switch (command >> 5) {
        case 0:
            return head + "segment " + bytes_text(&frame.data[1], 7 - (command >> 1 & 7));
        case 1:
            if (!is_request) {
                return head + "segment taken";
            }
            return head + (is_expedited ? "write " + object + " " + expedited_words(frame)
                                        : "write " + object + print(", %u bytes", size));
        case 2:
            if (is_request) {
                return head + "read " + object;
            }
            return head + (is_expedited ? object + " is " + expedited_words(frame)
                                        : object + print(", %u bytes", size));
        case 3:
            return head + (is_request ? "next segment" : object + " written");
        case 4: {
            const char* text = sdo_abort_text(size);
            return head + "abort " + object + print(" 0x%08X ", size) + (text != nullptr ? text : "");
        }
        case 5:
            return head + (is_request ? block_read_words(frame, object, true)
                                      : block_write_words(frame, object, false));
        case 6:
            return head + (is_request ? block_write_words(frame, object, true)
                                      : block_read_words(frame, object, false));
        default:
            return head + unknown_command;
    }
}

// TIME_OF_DAY (CiA 301, 7.1.6.5): 28 bits of milliseconds since midnight, 16 of days since 1984-01-01.
std::string time_words(const ShownFrame& frame) {
    if (frame.length != 6) {
        return "TIME of a wrong length";
    }
    constexpr std::time_t first_day = 441763200;
    constexpr std::time_t seconds_a_day = 86400;
    const unsigned int milliseconds = load_le(frame.data.data(), 4) & 0x0FFFFFFF;
    const std::time_t time = first_day +
                             seconds_a_day * static_cast<std::time_t>(load_le(&frame.data[4], 2)) +
                             milliseconds / 1000;
    std::tm parts{};
    gmtime_r(&time, &parts);
    return print("TIME %04d-%02d-%02d %02d:%02d:%02d.%03u", parts.tm_year + 1900, parts.tm_mon + 1,
                 parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec, milliseconds % 1000);
}

std::string lss_frame_words(const ShownFrame& frame) {
    const bool is_request = frame.identifier == lss::request_identifier;
    const std::string head = is_request ? "LSS request: " : "LSS answer: ";
    if (frame.length != 8) {
        return head + "wrong length";
    }
    return head + (is_request ? lss_request_words(frame.data) : lss_answer_words(frame.data));
}

std::string error_words(const ShownFrame& frame) {
    constexpr std::array<std::pair<unsigned int, const char*>, 9> classes{
        {{CAN_ERR_BUSOFF, "bus-off"},
         {CAN_ERR_RESTARTED, "controller restarted"},
         {CAN_ERR_ACK, "no acknowledgement"},
         {CAN_ERR_PROT, "protocol violated"},
         {CAN_ERR_TRX, "transceiver"},
         {CAN_ERR_BUSERROR, "bus error"},
         {CAN_ERR_TX_TIMEOUT, "nothing can be sent"},
         {CAN_ERR_LOSTARB, "arbitration lost"},
         {CAN_ERR_CRTL, "controller"}}};
    constexpr std::array<std::pair<unsigned int, const char*>, 6> states{
        {{CAN_ERR_CRTL_RX_OVERFLOW | CAN_ERR_CRTL_TX_OVERFLOW, "overflow"},
         {CAN_ERR_CRTL_RX_WARNING, "warning at receiving"},
         {CAN_ERR_CRTL_TX_WARNING, "warning at sending"},
         {CAN_ERR_CRTL_RX_PASSIVE, "error passive at receiving"},
         {CAN_ERR_CRTL_TX_PASSIVE, "error passive at sending"},
         {CAN_ERR_CRTL_ACTIVE, "error active"}}};
    std::string text;
    for (const auto& [bit, words] : classes) {
        if ((frame.identifier & bit) != 0) {
            text += (text.empty() ? "" : ", ") + std::string(words);
        }
    }
    if ((frame.identifier & CAN_ERR_CRTL) != 0) {
        for (const auto& [bits, words] : states) {
            if ((frame.data[1] & bits) != 0) {
                text += std::string(" ") + words;
            }
        }
    }
    if ((frame.identifier & CAN_ERR_CNT) != 0) {
        text += print("%stransmit errors %u, receive errors %u", text.empty() ? "" : ", ",
                      static_cast<unsigned int>(frame.data[6]), static_cast<unsigned int>(frame.data[7]));
    }
    return "error of the bus: " + (text.empty() ? "unknown" : text);
}

}  // namespace

ShownFrame shown_frame(const ObservedFrame& frame, const std::string& bus) {
    ShownFrame shown;
    shown.time_us = frame.time_ns() / 1000;
    shown.set_name(bus.c_str());
    shown.identifier = frame.identifier;
    shown.extended = frame.extended;
    shown.remote = frame.remote;
    shown.error = frame.error;
    shown.length = std::min(frame.length, 8U);
    std::copy_n(frame.data, frame.size(), shown.data.begin());
    return shown;
}

FrameKind kind_of(const ShownFrame& frame) {
    if (frame.extended || frame.error) {
        return {"other", 0};
    }
    switch (frame.identifier) {
        case 0x000:
            return {"nmt", 0};
        case 0x080:
            return {"sync", 0};
        case 0x100:
            return {"time", 0};
        case lss::answer_identifier:
        case lss::request_identifier:
            return {"lss", 0};
        default:
            break;
    }
    const Function* function = function_of(frame.identifier);
    if (function == nullptr) {
        return {"other", 0};
    }
    const bool is_guarding = function->code == 0x700 && frame.remote;
    return {is_guarding ? "guard" : function->word, frame.identifier & node_mask};
}

const std::vector<std::string>& frame_kinds() {
    static const std::vector<std::string> kinds = [] {
        std::vector<std::string> result{"nmt", "sync", "time", "guard", "lss", "other"};
        for (const Function& function : functions) {
            result.emplace_back(function.word);
        }
        return result;
    }();
    return kinds;
}

std::string frame_words(const ShownFrame& frame) {
    if (frame.error) {
        return error_words(frame);
    }
    const FrameKind kind = kind_of(frame);
    if (kind.word == "other") {
        return "";
    }
    if (kind.word == "heartbeat" || kind.word == "guard") {
        return heartbeat_words(frame, kind.node);
    }
    if (frame.remote) {
        return "remote request";
    }
    if (kind.word == "nmt") {
        return nmt_words(frame);
    }
    if (kind.word == "sync") {
        return frame.length == 1 ? print("SYNC %u", static_cast<unsigned int>(frame.data[0])) : "SYNC";
    }
    if (kind.word == "time") {
        return time_words(frame);
    }
    if (kind.word == "lss") {
        return lss_frame_words(frame);
    }
    if (kind.word == "emcy") {
        return emergency_words(frame, kind.node);
    }
    if (kind.word == "sdo-request" || kind.word == "sdo-answer") {
        return sdo_words(frame, kind.node, kind.word == "sdo-request");
    }
    return print(kind.word[0] == 't' ? "%s of node %u" : "%s to node %u", function_of(frame.identifier)->name,
                 kind.node);
}

std::string segment_words(const ShownFrame& frame, unsigned int number) {
    const FrameKind kind = kind_of(frame);
    const bool is_last = (frame.data[0] & 0x80) != 0;
    return sdo_head(kind.node, kind.word == "sdo-request") +
           print(is_last ? "last block segment %u, " : "block segment %u, ", number) +
           bytes_text(&frame.data[1], 7);
}

unsigned int frame_bits(const ShownFrame& frame) {
    if (frame.error) {
        return 0;
    }
    // Start, identifier, control, CRC, acknowledgement, end and the pause behind it; the first of these may be stuffed.
    const unsigned int data = frame.remote ? 0 : 8 * frame.length;
    const unsigned int stuffable = (frame.extended ? 54 : 34) + data;
    const unsigned int fixed = 13;
    return stuffable + fixed + (stuffable - 1) / 4 / 2;
}

}  // namespace nodevik_tool
