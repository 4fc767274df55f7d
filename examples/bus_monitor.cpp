// Shows the decoder and the log: prints what passes on the bus, one coloured line per frame.
//
//     bus_monitor MASTER_PORT NODE_PORT SECONDS [KINDS [LOGFILE]]
//
// KINDS is "all" or any of nmt,tpdo,rpdo,sdo,sync,guard with commas between them.

#include <array>
#include <charconv>
#include <optional>
#include <span>
#include <string_view>

#include "nodevik/arch.h"
#include "nodevik/canopen.h"
#include "nodevik/udpdriver.h"
#include "program/numbers.h"
#include "program/standardoptions.h"

namespace {

constexpr const char* operands = "MASTER_PORT NODE_PORT SECONDS [KINDS [LOGFILE]]";
constexpr unsigned decode_frames = 4;  // the bit of the debug word
constexpr double longest_s = 1e7;

using Words = std::span<const char* const>;

// A kind of frames that is shown or not.
struct Kind {
    std::string_view name;
    void (CCANopen::*show)(bool);
};
constexpr std::array kinds{Kind{"nmt", &CCANopen::show_nmt},   Kind{"tpdo", &CCANopen::show_tpdo},
                           Kind{"rpdo", &CCANopen::show_rpdo}, Kind{"sdo", &CCANopen::show_sdo},
                           Kind{"sync", &CCANopen::show_sync}, Kind{"guard", &CCANopen::show_nodeguard}};
using Shown = std::array<bool, kinds.size()>;  // for each kind

// What the command line asks for.
struct Request {
    unsigned master_port = 0;
    unsigned node_port = 0;
    double seconds = 0;
    Shown shown{};
    const char* log_file = nullptr;  // none
};

// Marks one kind, or all of them, as shown; false when there is none of that name.
bool add_kind(std::string_view name, Shown& shown) {
    bool found = false;
    for (std::size_t i = 0; i < kinds.size(); ++i) {
        const bool named = name == "all" || name == kinds[i].name;
        shown[i] = shown[i] || named;
        found = found || named;
    }
    return found;
}

// Reads names with commas between them; false when one of them is no kind.
bool read_kinds(std::string_view list, Shown& shown) {
    for (std::size_t comma = list.find(','); comma != std::string_view::npos; comma = list.find(',')) {
        if (!add_kind(list.substr(0, comma), shown)) {
            return false;
        }
        list.remove_prefix(comma + 1);
    }
    return add_kind(list, shown);
}

bool read_seconds(std::string_view text, double& seconds) {
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, seconds);
    return error == std::errc() && stop == end && seconds >= 0 && seconds <= longest_s;
}

// Reads the command line; none when it is wrong.
std::optional<Request> read_request(Words words) {
    if (words.size() < 3 || words.size() > 5) {
        return std::nullopt;
    }
    program::Numbers numbers;
    Request request;
    request.master_port = numbers.read(words[0], 1, program::highest_port);
    request.node_port = numbers.read(words[1], 1, program::highest_port);
    request.log_file = words.size() > 4 ? words[4] : nullptr;
    const bool all_right = numbers.all_right() && read_seconds(words[2], request.seconds) &&
                           read_kinds(words.size() > 3 ? words[3] : "all", request.shown);
    return all_right ? std::optional(request) : std::nullopt;
}

}  // namespace

int main(int argc, char** argv) {
    const Words words(argv + 1, static_cast<std::size_t>(argc - 1));
    if (program::answered_standard_option(words, operands)) {
        return 0;
    }
    const std::optional<Request> request = read_request(words);
    if (!request) {
        return program::refuse_command_line(operands);
    }
    CCANopen master;
    udpDriver driver;
    driver.open(request->master_port, 0, 0);
    driver.endpoint().set_client_destination_address(127, 0, 0, 1, request->node_port);
    master.load_driver(driver);
    master.set_debug(decode_frames);
    for (std::size_t i = 0; i < kinds.size(); ++i) {
        (master.*kinds[i].show)(request->shown[i]);
    }
    if (request->log_file != nullptr && master.open_log(request->log_file) != 0) {
        return 1;
    }
    for (int tick = 0; tick < static_cast<int>(request->seconds * 100); ++tick) {
        master.read_all_messages();
        m_sleep(10);
    }
}
