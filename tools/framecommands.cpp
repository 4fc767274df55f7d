#include "tools/framecommands.h"

#include <charconv>
#include <string_view>
#include <utility>

namespace nodevik_tool {

namespace {

constexpr std::size_t short_digits = 3;  // of an 11-bit identifier
constexpr std::size_t long_digits = 8;   // of a 29-bit one
constexpr unsigned int highest_short = 0x7FF;
constexpr unsigned int highest_long = 0x1FFFFFFF;
constexpr unsigned int extended_flag = 1;  // of CANdriver::write()
constexpr unsigned int remote_flag = 2;

constexpr std::array<std::pair<std::string_view, unsigned char>, 5> nmt_commands{
    {{"start", 0x01}, {"stop", 0x02}, {"preop", 0x80}, {"reset", 0x81}, {"reset-comm", 0x82}}};

[[noreturn]] void refuse(const std::string& text) {
    throw Failure(
        ExitStatus::usage,
        "'" + text +
            "' is no frame; right are 185#0102, 18DAF110#00 and 705#R: 3 or 8 hexadecimal digits of "
            "the identifier, '#', and up to 8 bytes or R");
}

bool parse_hex(std::string_view digits, unsigned int& number) {
    const auto [stop, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number, 16);
    return error == std::errc() && stop == digits.data() + digits.size();
}

void send(const Session& session, const WrittenFrame& frame) {
    Bus bus(session.options.bus, session.reports, session.interrupts);
    if (!bus.has_all_frames() && (frame.extended || frame.remote)) {
        throw Failure(ExitStatus::usage,
                      "over UDP there are no remote requests and no 29-bit identifiers; such a frame "
                      "needs a CAN interface");
    }
    const unsigned int flags = (frame.extended ? extended_flag : 0) | (frame.remote ? remote_flag : 0);
    bus.send(frame.identifier, frame.length, frame.data, flags, session.options.timeout_ms);
}

}  // namespace

WrittenFrame parse_frame(const std::string& text) {
    const std::size_t hash = text.find('#');
    WrittenFrame frame;
    if ((hash != short_digits && hash != long_digits) ||
        !parse_hex(std::string_view(text).substr(0, hash), frame.identifier)) {
        refuse(text);
    }
    frame.extended = hash == long_digits;
    if (frame.identifier > (frame.extended ? highest_long : highest_short)) {
        refuse(text);
    }
    std::string_view rest = std::string_view(text).substr(hash + 1);
    if (!rest.empty() && (rest.front() == 'R' || rest.front() == 'r')) {
        frame.remote = true;
        rest.remove_prefix(1);
        if (rest.size() > 1 || (!rest.empty() && (rest.front() < '0' || rest.front() > '8'))) {
            refuse(text);
        }
        frame.length = rest.empty() ? 0 : static_cast<unsigned int>(rest.front() - '0');
        return frame;
    }
    while (!rest.empty()) {
        if (rest.front() == '.' && frame.length > 0 && rest.size() > 1) {
            rest.remove_prefix(1);
        }
        unsigned int byte = 0;
        if (frame.length == frame.data.size() || rest.size() < 2 || !parse_hex(rest.substr(0, 2), byte)) {
            refuse(text);
        }
        frame.data[frame.length++] = static_cast<unsigned char>(byte);
        rest.remove_prefix(2);
    }
    return frame;
}

ExitStatus send_nmt(const Session& session, const std::string& command, unsigned int node) {
    WrittenFrame frame;
    frame.length = 2;
    for (const auto& [word, specifier] : nmt_commands) {
        if (word == command) {
            frame.data = {specifier, static_cast<unsigned char>(node)};
        }
    }
    send(session, frame);
    return ExitStatus::done;
}

ExitStatus send_frame(const Session& session, const std::string& text) {
    const WrittenFrame frame = parse_frame(text);
    if (frame.identifier == 0 && !frame.extended && !frame.remote) {
        throw Failure(
            ExitStatus::usage,
            "identifier 000 is an NMT command; 'nodevik nmt' sends those, such as 'nodevik nmt start 5'");
    }
    send(session, frame);
    return ExitStatus::done;
}

}  // namespace nodevik_tool
