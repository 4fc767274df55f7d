#include "simulator/node/nodeoptions.h"

#include <arpa/inet.h>

#include <algorithm>
#include <limits>
#include <string_view>

#include "program/numbers.h"
#include "simulator/node/blocktransfer.h"
#include "simulator/optionreader.h"

namespace node_simulator {

namespace {

constexpr std::int64_t longest_ms = 60'000;
constexpr std::int64_t highest_unsigned = std::numeric_limits<std::uint32_t>::max();

// Each store_... takes the value of an option, stores it and returns the reason why it cannot, or nothing.

// Reads numbers from `lowest` to `highest` with commas between them; false when one of them is none.
template <typename Number>
bool parse_list(std::string_view text, std::int64_t lowest, std::int64_t highest,
                std::vector<Number>& numbers) {
    numbers.clear();
    for (bool more = true; more;) {
        const std::size_t comma = text.find(',');
        const auto number = program::whole_number(text.substr(0, comma), lowest, highest);
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
    if (!parse_list(text, 1, program::highest_node, options.nodes)) {
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
    const auto port = colon == std::string_view::npos
                          ? std::nullopt
                          : program::whole_number(text.substr(colon + 1), 1, program::highest_port);
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
        if (const auto node = program::whole_number(text.substr(0, equals), 1, program::highest_node)) {
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

constexpr const char* program_help =
    "CANopen nodes on a simulated bus behind CAN-over-UDP: one frame per datagram of 16 bytes. The first\n"
    "line of standard output is \"port N\", the UDP port on 127.0.0.1 that receives frames. Ends with\n"
    "SIGINT or SIGTERM.";
constexpr const char* console_help =
    "Commands on standard input, one per line (not with --run):\n"
    "  off NODE                     cut the node's power: it vanishes without a word\n"
    "  on NODE                      switch it on again: it boots\n"
    "  emergency NODE CODE          send an emergency, CODE as 0x8130 or decimal; 0 clears the error\n"
    "  input NODE CHANNEL VALUE     set a digital input, CHANNEL 1 to 4, VALUE 0 to 255\n"
    "  faults LOST LATE DUPLICATED FOREIGN [MOST]   replace the faults, in percent\n"
    "  transfer-faults NODE TOGGLED WRONG-CRC ENDLESS [MOST]   the same for a node's SDO server\n"
    "Each is answered by a line \"ok\" or \"error: ...\".";

// The command line, which writes into `options`.
class NodeOptionReader : public simulator::OptionReader {
public:
    explicit NodeOptionReader(NodeOptions& options)
        : OptionReader("usage: node-simulator [OPTION ...] [--run COMMAND [ARGUMENT ...]]", program_help),
          options_(&options) {
        add_bus_options();
        add_node_options();
        add_command("--run", options.command,
                    "run the command against the nodes and end with it, with its status; in its\n"
                    "arguments {node} stands for the nodes' port and {master} for the port that\n"
                    "frames go to, without --peer a free one on 127.0.0.1; with --can, {can}\n"
                    "stands for the interface");
        add_standard_flags(options.help, options.version);
        add_faults();
        set_footer(console_help);
    }

private:
    using Take = std::string (*)(std::string_view, NodeOptions&);

    void add(const std::string& name, const std::string& value, Take take, const std::string& does) {
        add_text(
            name, value, [take, this](std::string_view text) { return take(text, *options_); }, does);
    }

    void add_bus_options() {
        add("--nodes", "LIST", store_nodes,
            "node numbers, 1 to 127, with commas between them, or none (default 1)");
        add("--unconfigured", "LIST", store_unconfigured,
            "devices without a node number, by their serial numbers: an LSS master\n"
            "gives them one; the same serial number twice makes twins");
        add_number("--listen", "PORT", 0, program::highest_port, options_->listen_port,
                   "port that receives frames, 0 picks a free one (default 5001)");
        add("--peer", "HOST:PORT", store_peer,
            "where frames go, an IPv4 address (default: to the last sender; the nodes are\n"
            "switched on when the first frame arrives)");
        add("--can", "INTERFACE", store_can,
            "the nodes are on this CAN interface instead; --listen and --peer have no\n"
            "meaning and the first line is \"can INTERFACE\"");
        add("--log", "FILE", store_log,
            "write each frame to FILE: seconds, in or out, identifier, length, data");
    }

    void add_node_options() {
        add_number("--heartbeat", "MS", 0, 65535, options_->heartbeat_ms,
                   "heartbeat time of every node, 0 to 65535 (default 0, none)");
        add_number("--sync", "MS", 0, longest_ms, options_->sync_period_ms,
                   "the first node produces SYNC with this period (default 0, not)");
        add_flag("--start", options_->self_starting, "the nodes become operational by themselves");
        add_flag("--strict", options_->strict_counts,
                 "refuse a number of mapped objects that comes in more than one byte");
        add_flag("--no-blocks", options_->no_blocks,
                 "refuse SDO block transfers, as nodes do that do not know them");
        add("--eds", "[NODE=]FILE", store_description,
            "play what this EDS or DCF file describes, all nodes or one; may be given\n"
            "more than once. What of it cannot be played is told on standard error");
        add("--block-size", "LIST", store_block_sizes,
            "segments of the blocks that a node receives, 1 to 127; with commas between\n"
            "them they take turns (default 127)");
    }

    void add_percent(const std::string& name, unsigned int& percent, const std::string& does) {
        add_number(name, "PERCENT", 0, 100, percent, does);
    }

    void add_faults() {
        FaultSettings& faults = options_->faults;
        begin_group(
            "Faults of answers (SDO, LSS and node guarding), each in percent of the answers, 0 to 100");
        add_percent("--lost", faults.lost, "the answer never comes");
        add_percent("--late", faults.late, "the answer comes late");
        add_number("--delay", "MS", 0, longest_ms, faults.delay_ms, "how late (default 30)");
        add_percent("--duplicated", faults.duplicated, "the answer comes twice");
        add_percent("--foreign", faults.foreign, "an answer of another node to another question comes first");
        add_percent("--unheard", faults.unheard,
                    "the request (SDO, node guarding) never arrives, segments of blocks included");
        begin_group("Faults of the nodes' SDO servers, each in percent of what it can strike");
        add_percent("--toggled", faults.toggled,
                    "the toggle bit of a segment, or of its confirmation, is wrong");
        add_percent("--wrong-crc", faults.wrong_crc, "the check sum at the end of a block upload is wrong");
        add_percent("--endless", faults.endless,
                    "an upload by segments or blocks never comes to its last segment");
        begin_group("For all faults");
        add_number("--most", "N", 0, highest_unsigned, faults.most,
                   "no more than N on the bus, and N of each node (default: no limit)");
        add_number("--seed", "N", 0, highest_unsigned, faults.seed,
                   "the same N brings the same faults (default 1)");
    }

    NodeOptions* options_;
};

}  // namespace

ParsedNodeOptions parse_node_options(std::span<const char* const> arguments) {
    ParsedNodeOptions result;
    result.error = NodeOptionReader(result.options).parse(arguments);
    return result;
}

std::string node_help() {
    NodeOptions options;
    return NodeOptionReader(options).help();
}

}  // namespace node_simulator
