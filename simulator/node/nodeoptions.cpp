#include "simulator/node/nodeoptions.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <string_view>

#include "simulator/node/blocktransfer.h"

namespace node_simulator {

namespace {

constexpr std::uint64_t highest_port = 65535;
constexpr std::uint64_t highest_node = 127;
constexpr std::uint64_t longest_ms = 60'000;
constexpr std::uint64_t highest_unsigned = std::numeric_limits<std::uint32_t>::max();

// A whole number from `lowest` to `highest` that fills all of `text`.
std::optional<std::uint64_t> parse_number(std::string_view text, std::uint64_t lowest,
                                          std::uint64_t highest) {
    std::uint64_t number = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (text.empty() || error != std::errc() || stop != end || number < lowest || number > highest) {
        return std::nullopt;
    }
    return number;
}

// Each takes the option's value, stores it and returns the reason why it cannot, or nothing.
using Store = std::string (*)(std::string_view, NodeOptions&);

// Reads numbers from `lowest` to `highest` with commas between them; false when one of them is none.
template <typename Number>
bool parse_list(std::string_view text, std::uint64_t lowest, std::uint64_t highest,
                std::vector<Number>& numbers) {
    numbers.clear();
    for (bool more = true; more;) {
        const std::size_t comma = text.find(',');
        const auto number = parse_number(text.substr(0, comma), lowest, highest);
        if (!number) {
            return false;
        }
        numbers.push_back(static_cast<Number>(*number));
        more = comma != std::string_view::npos;
        text.remove_prefix(more ? comma + 1 : text.size());
    }
    return true;
}

std::string store_nodes(std::string_view text, NodeOptions& options) {
    if (text == "none") {
        options.nodes.clear();
        return {};
    }
    if (!parse_list(text, 1, highest_node, options.nodes)) {
        return "--nodes takes node numbers from 1 to 127 with commas between them, such as 1,2,5";
    }
    for (auto node = options.nodes.begin(); node != options.nodes.end(); ++node) {
        if (std::find(options.nodes.begin(), node, *node) != node) {
            return "--nodes names node " + std::to_string(*node) + " twice";
        }
    }
    return {};
}

std::string store_unconfigured(std::string_view text, NodeOptions& options) {
    return parse_list(text, 0, highest_unsigned, options.unconfigured)
               ? ""
               : "--unconfigured takes serial numbers with commas between them, such as 1001,1002";
}

std::string store_block_sizes(std::string_view text, NodeOptions& options) {
    return parse_list(text, 1, largest_block, options.block_sizes)
               ? ""
               : "--block-size takes numbers of segments from 1 to 127 with commas between them, such as "
                 "4,127";
}

std::string store_peer(std::string_view text, NodeOptions& options) {
    const std::size_t colon = text.rfind(':');
    const std::string host(text.substr(0, colon));
    const auto port = colon == std::string_view::npos ? std::nullopt
                                                      : parse_number(text.substr(colon + 1), 1, highest_port);
    sockaddr_in peer{};
    peer.sin_family = AF_INET;
    if (!port || inet_pton(AF_INET, host == "localhost" ? "127.0.0.1" : host.c_str(), &peer.sin_addr) != 1) {
        return "--peer takes an IPv4 address and a port, such as 127.0.0.1:5000, not '" + std::string(text) +
               "'";
    }
    peer.sin_port = htons(static_cast<std::uint16_t>(*port));
    options.peer = peer;
    return {};
}

// "FILE", or "NODE=FILE".
std::string store_description(std::string_view text, NodeOptions& options) {
    NodeDescription description;
    const std::size_t equals = text.find('=');
    if (equals != std::string_view::npos) {
        if (const auto node = parse_number(text.substr(0, equals), 1, highest_node)) {
            description.node = static_cast<std::uint8_t>(*node);
            text.remove_prefix(equals + 1);
        }
    }
    description.file = text;
    options.descriptions.push_back(description);
    return text.empty() ? "--eds needs the name of a file" : "";
}

std::string store_can(std::string_view text, NodeOptions& options) {
    options.can_interface = text;
    return text.empty() ? "--can needs the name of an interface" : "";
}

std::string store_log(std::string_view text, NodeOptions& options) {
    options.log_file = text;
    return text.empty() ? "--log needs the name of a file" : "";
}

// An option whose value is a whole number: its range and where it goes.
struct NumberOption {
    std::string_view name;
    std::uint64_t lowest;
    std::uint64_t highest;
    void (*store)(NodeOptions&, std::uint64_t);
};

constexpr std::array number_options{
    NumberOption{"--listen", 0, highest_port,
                 [](NodeOptions& o, std::uint64_t n) { o.listen_port = static_cast<std::uint16_t>(n); }},
    NumberOption{"--seed", 0, highest_unsigned,
                 [](NodeOptions& o, std::uint64_t n) { o.faults.seed = static_cast<unsigned>(n); }},
    NumberOption{"--lost", 0, 100,
                 [](NodeOptions& o, std::uint64_t n) { o.faults.lost = static_cast<unsigned>(n); }},
    NumberOption{"--late", 0, 100,
                 [](NodeOptions& o, std::uint64_t n) { o.faults.late = static_cast<unsigned>(n); }},
    NumberOption{"--delay", 0, longest_ms,
                 [](NodeOptions& o, std::uint64_t n) { o.faults.delay_ms = static_cast<unsigned>(n); }},
    NumberOption{"--duplicated", 0, 100,
                 [](NodeOptions& o, std::uint64_t n) { o.faults.duplicated = static_cast<unsigned>(n); }},
    NumberOption{"--foreign", 0, 100,
                 [](NodeOptions& o, std::uint64_t n) { o.faults.foreign = static_cast<unsigned>(n); }},
    NumberOption{"--unheard", 0, 100,
                 [](NodeOptions& o, std::uint64_t n) { o.faults.unheard = static_cast<unsigned>(n); }},
    NumberOption{"--toggled", 0, 100,
                 [](NodeOptions& o, std::uint64_t n) { o.faults.toggled = static_cast<unsigned>(n); }},
    NumberOption{"--wrong-crc", 0, 100,
                 [](NodeOptions& o, std::uint64_t n) { o.faults.wrong_crc = static_cast<unsigned>(n); }},
    NumberOption{"--endless", 0, 100,
                 [](NodeOptions& o, std::uint64_t n) { o.faults.endless = static_cast<unsigned>(n); }},
    NumberOption{"--most", 0, highest_unsigned,
                 [](NodeOptions& o, std::uint64_t n) { o.faults.most = static_cast<unsigned>(n); }},
    NumberOption{"--heartbeat", 0, 65535,
                 [](NodeOptions& o, std::uint64_t n) { o.heartbeat_ms = static_cast<std::uint16_t>(n); }},
    NumberOption{"--sync", 0, longest_ms,
                 [](NodeOptions& o, std::uint64_t n) { o.sync_period_ms = static_cast<std::uint32_t>(n); }},
};

// An option whose value is a text.
struct TextOption {
    std::string_view name;
    Store store;
};
constexpr std::array text_options{TextOption{"--eds", store_description},
                                  TextOption{"--unconfigured", store_unconfigured},
                                  TextOption{"--block-size", store_block_sizes},
                                  TextOption{"--nodes", store_nodes},
                                  TextOption{"--peer", store_peer},
                                  TextOption{"--can", store_can},
                                  TextOption{"--log", store_log}};

// An option without a value.
struct Switch {
    std::string_view name;
    bool NodeOptions::*flag;
};
constexpr std::array switches{Switch{"--help", &NodeOptions::help},
                              Switch{"-h", &NodeOptions::help},
                              Switch{"--version", &NodeOptions::version},
                              Switch{"--start", &NodeOptions::self_starting},
                              Switch{"--strict", &NodeOptions::strict_counts},
                              Switch{"--no-blocks", &NodeOptions::no_blocks}};

template <typename Table>
auto find_by_name(const Table& table, std::string_view name) {
    const auto found =
        std::find_if(table.begin(), table.end(), [name](const auto& row) { return row.name == name; });
    return found == table.end() ? nullptr : &*found;
}

std::string store_number(const NumberOption& option, std::string_view value, NodeOptions& options) {
    const auto number = parse_number(value, option.lowest, option.highest);
    if (!number) {
        return std::string(option.name) + " takes a whole number from " + std::to_string(option.lowest) +
               " to " + std::to_string(option.highest) + ", not '" + std::string(value) + "'";
    }
    option.store(options, *number);
    return {};
}

// Stores the option `name` with its value; returns the reason why it cannot, or nothing.
std::string store_value(std::string_view name, std::string_view value, NodeOptions& options) {
    if (const NumberOption* number = find_by_name(number_options, name); number != nullptr) {
        return store_number(*number, value, options);
    }
    return find_by_name(text_options, name)->store(value, options);
}

bool takes_value(std::string_view name) {
    return find_by_name(number_options, name) != nullptr || find_by_name(text_options, name) != nullptr;
}

}  // namespace

ParsedNodeOptions parse_node_options(std::span<const char* const> arguments) {
    ParsedNodeOptions result;
    for (std::size_t index = 0; index < arguments.size() && result.error.empty(); ++index) {
        const std::string_view argument = arguments[index];
        const std::size_t equals = argument.find('=');
        const std::string_view name = argument.substr(0, equals);
        if (const Switch* found = find_by_name(switches, argument); found != nullptr) {
            result.options.*(found->flag) = true;
        } else if (argument == "--run") {
            result.options.command.assign(arguments.begin() + static_cast<std::ptrdiff_t>(index) + 1,
                                          arguments.end());
            result.error = result.options.command.empty() ? "--run needs a command" : "";
            break;
        } else if (!takes_value(name)) {
            result.error = "unknown option '" + std::string(argument) + "'";
        } else if (equals != std::string_view::npos) {
            result.error = store_value(name, argument.substr(equals + 1), result.options);
        } else if (index + 1 == arguments.size()) {
            result.error = std::string(name) + " needs a value";
        } else {
            result.error = store_value(name, arguments[++index], result.options);
        }
    }
    return result;
}

const char* node_help() {
    return R"(usage: node-simulator [OPTION ...] [--run COMMAND [ARGUMENT ...]]

CANopen nodes on a simulated bus behind CAN-over-UDP: one frame per datagram of 16 bytes. The first
line of standard output is "port N", the UDP port on 127.0.0.1 that receives frames. Ends with
SIGINT or SIGTERM.

  --nodes LIST        node numbers, 1 to 127, with commas between them, or none (default 1)
  --unconfigured LIST devices without a node number, by their serial numbers: an LSS master gives
                      them one; the same serial number twice makes twins
  --listen PORT       port that receives frames, 0 picks a free one (default 5001)
  --peer HOST:PORT    where frames go, an IPv4 address (default: to the last sender; the nodes are
                      switched on when the first frame arrives)
  --can INTERFACE     the nodes are on this CAN interface instead; --listen and --peer have no meaning
                      and the first line is "can INTERFACE"
  --log FILE          write each frame to FILE: seconds, in or out, identifier, length, data
  --heartbeat MS      heartbeat time of every node, 0 to 65535 (default 0, none)
  --sync MS           the first node produces SYNC with this period (default 0, not)
  --start             the nodes become operational by themselves
  --strict            refuse a number of mapped objects that comes in more than one byte
  --no-blocks         refuse SDO block transfers, as nodes do that do not know them
  --eds [NODE=]FILE   play what this EDS or DCF file describes, all nodes or one; may be given more
                      than once. What of it cannot be played is told on standard error
  --block-size LIST   segments of the blocks that a node receives, 1 to 127; with commas between them
                      they take turns (default 127)
  --run COMMAND ...   run the command against the nodes and end with it, with its status;
                      in its arguments {node} stands for the nodes' port and {master} for the port
                      that frames go to, without --peer a free one on 127.0.0.1; with --can, {can}
                      stands for the interface
  --help              this text
  --version           the program's version

Faults of answers (SDO, LSS and node guarding), each in percent of the answers, 0 to 100:
  --lost PERCENT        the answer never comes
  --late PERCENT        the answer comes late
  --delay MS            how late (default 30)
  --duplicated PERCENT  the answer comes twice
  --foreign PERCENT     an answer of another node to another question comes first
  --unheard PERCENT     the request (SDO, node guarding) never arrives, segments of blocks included

Faults of the nodes' SDO servers, each in percent of what it can strike:
  --toggled PERCENT     the toggle bit of a segment, or of its confirmation, is wrong
  --wrong-crc PERCENT   the check sum at the end of a block upload is wrong
  --endless PERCENT     an upload by segments or blocks never comes to its last segment

For all faults:
  --most N              no more than N on the bus, and N of each node (default: no limit)
  --seed N              the same N brings the same faults (default 1)

Commands on standard input, one per line (not with --run):
  off NODE                     cut the node's power: it vanishes without a word
  on NODE                      switch it on again: it boots
  emergency NODE CODE          send an emergency, CODE as 0x8130 or decimal; 0 clears the error
  input NODE CHANNEL VALUE     set a digital input, CHANNEL 1 to 4, VALUE 0 to 255
  faults LOST LATE DUPLICATED FOREIGN [MOST]   replace the faults, in percent
  transfer-faults NODE TOGGLED WRONG-CRC ENDLESS [MOST]   the same for a node's SDO server
Each is answered by a line "ok" or "error: ...".
)";
}

}  // namespace node_simulator
