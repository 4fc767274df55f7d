#include "tools/scancommand.h"

#include <algorithm>
#include <array>
#include <optional>

#include "nodevik/nodes/nodescan.h"
#include "nodevik/nodes/nodewatch.h"
#include "nodevik/util/monotonicclock.h"
#include "program/numbers.h"
#include "program/progress.h"
#include "tools/bus.h"
#include "tools/nodewords.h"
#include "tools/objects.h"
#include "tools/table.h"
#include "tools/tell.h"

namespace nodevik_tool {

namespace {

constexpr double milliseconds_per_second = 1000;

struct Evidence {
    ScanEvidence bit;
    const char* word;
};
constexpr std::array<Evidence, 5> evidence_words{{{scan_heard_boot_up, "boot-up"},
                                                  {scan_heard_error_control, "heartbeat"},
                                                  {scan_heard_emergency, "emcy"},
                                                  {scan_heard_process_data, "tpdo"},
                                                  {scan_heard_service_answer, "sdo-answer"}}};

std::vector<std::string> words_of(unsigned int heard) {
    std::vector<std::string> words;
    for (const Evidence& row : evidence_words) {
        if ((heard & row.bit) != 0) {
            words.emplace_back(row.word);
        }
    }
    return words;
}

nlohmann::ordered_json number_json(const std::optional<std::uint32_t>& number) {
    return number ? nlohmann::ordered_json(*number) : nullptr;
}

nlohmann::ordered_json text_json(const std::string& text) {
    return text.empty() ? nullptr : nlohmann::ordered_json(text);
}

nlohmann::ordered_json object_of(const ScannedNode& node, std::string_view state) {
    return {{"node", node.node},
            {"state", state},
            {"answers", node.answers},
            {"device_type", number_json(node.device_type)},
            {"vendor", number_json(node.vendor)},
            {"product", number_json(node.product)},
            {"revision", number_json(node.revision)},
            {"serial", number_json(node.serial)},
            {"name", text_json(node.name)},
            {"hardware", text_json(node.hardware_version)},
            {"software", text_json(node.software_version)},
            {"evidence", words_of(node.heard)},
            {"duplicate", node.is_duplicate},
            {"repeated", node.is_repeated}};
}

std::string number_text(const std::optional<std::uint32_t>& number) {
    return number ? hex_text(*number) : "-";
}

// What stands behind the numbers: names, and what is strange.
Table::Cell remarks_of(const ScannedNode& node) {
    std::string names = node.name;
    for (const auto& [what, version] :
         {std::pair("hardware ", &node.hardware_version), std::pair("software ", &node.software_version)}) {
        if (!version->empty()) {
            names += (names.empty() ? "" : ", ") + (what + *version);
        }
    }
    Table::Cell cell{printable(names)};
    const auto remark = [&cell](const std::string& text) {
        cell.text += (cell.text.empty() ? "" : "; ") + text;
        cell.colour = Colour::notable;
    };
    if (node.is_duplicate) {
        remark("two nodes have this number");
        cell.colour = Colour::bad;
    } else if (node.is_repeated) {
        remark("answers come twice");
    }
    if (!node.answers) {
        std::string heard;
        for (const std::string& word : words_of(node.heard)) {
            heard += (heard.empty() ? "" : ", ") + word;
        }
        remark("only heard: " + heard);
    }
    return cell;
}

void show(Output& output, const std::vector<ScannedNode>& nodes, const NodeWatch& watch) {
    Table table({{"NODE", true},
                 {"STATE"},
                 {"DEVICE TYPE"},
                 {"VENDOR"},
                 {"PRODUCT"},
                 {"REVISION"},
                 {"SERIAL"},
                 {"NAME"}});
    for (const ScannedNode& node : nodes) {
        const std::string state(state_word(watch.node(node.node)));
        if (output.json()) {
            output.object(object_of(node, state));
            continue;
        }
        table.add({{std::to_string(node.node)},
                   {state, state_colour(state)},
                   {number_text(node.device_type)},
                   {number_text(node.vendor)},
                   {number_text(node.product)},
                   {number_text(node.revision)},
                   {number_text(node.serial)},
                   remarks_of(node)});
    }
    if (!output.json()) {
        table.show(output);
    }
    output.flush();
}

// A scan of a bus.
class Scan {
public:
    Scan(const Session& session, const ScanArguments& arguments)
        : session_(&session),
          passive_(arguments.passive),
          range_(parse_node_range(arguments.range)),
          bus_(session.options.bus, session.reports, session.interrupts,
               arguments.passive ? Bus::Use::listen : Bus::Use::talk),
          watch_(bus_.driver()),
          client_(bus_.driver()),
          scan_(bus_.driver(), client_) {}

    // Scans until all is known.
    NodeScanResult run(double seconds) {
        program::Progress progress(!session_->options.quiet && !passive_);
        scan_.set_progress(
            [&progress](unsigned int done, unsigned int total) { progress.update(done, total); });
        std::optional<NodeScanResult> end;
        const auto ended = [&end](const NodeScanResult& result) { end = result; };
        if (passive_) {
            scan_.start_listening(static_cast<unsigned int>(seconds * milliseconds_per_second), {}, ended);
        } else {
            NodeScanOptions options;
            std::tie(options.first, options.last) = range_;
            options.timeout_ms = session_->options.timeout_ms;
            scan_.start_asking({}, ended, options);
        }
        try {
            while (!end) {
                bus_.read(std::min(client_.next_deadline(), scan_.next_deadline()), &session_->output);
                client_.process(monotonic_ns());
                scan_.process(monotonic_ns());
            }
        } catch (...) {
            scan_.cancel();  // the callbacks must not outlive this call
            scan_.set_progress({});
            throw;
        }
        scan_.set_progress({});
        return *end;
    }

    // Tells the nodes that were found so far. @return how many they are
    std::size_t show_found() {
        std::vector<ScannedNode> nodes = scan_.nodes();
        const auto outside = [this](const ScannedNode& node) {
            return node.node < range_.first || node.node > range_.second;
        };
        nodes.erase(std::remove_if(nodes.begin(), nodes.end(), outside), nodes.end());
        show(session_->output, nodes, watch_);
        return nodes.size();
    }

    const Bus& bus() const { return bus_; }

private:
    const Session* session_;
    bool passive_;
    std::pair<unsigned int, unsigned int> range_;
    Bus bus_;
    NodeWatch watch_;
    SdoClient client_;
    NodeScan scan_;
};

}  // namespace

std::pair<unsigned int, unsigned int> parse_node_range(const std::string& text) {
    if (text.empty()) {
        return {1, program::highest_node};
    }
    const std::size_t dash = text.find('-');
    const auto first = program::whole_number(text.substr(0, dash), 1, program::highest_node);
    const auto last = dash == std::string::npos
                          ? first
                          : program::whole_number(text.substr(dash + 1), 1, program::highest_node);
    if (!first || !last || *first > *last) {
        throw Failure(ExitStatus::usage,
                      "'" + text + "' is no range of nodes; right are 5, 1-20 and whatever is in 1-127");
    }
    return {static_cast<unsigned int>(*first), static_cast<unsigned int>(*last)};
}

ExitStatus scan_bus(const Session& session, const ScanArguments& arguments) {
    Scan scan(session, arguments);
    NodeScanResult result;
    try {
        result = scan.run(arguments.seconds);
    } catch (const Interrupted&) {
        session.output.hurry();
        scan.show_found();
        throw;
    } catch (const Failure&) {
        scan.show_found();
        throw;
    }
    const std::size_t found = scan.show_found();
    if (!result.ok()) {
        throw Failure(ExitStatus::no_bus, "not all nodes could be asked: " + scan.bus().trouble());
    }
    if (found == 0) {
        throw Failure(
            ExitStatus::no_answer,
            arguments.passive
                ? "no node was heard; one that sends nothing by itself answers a scan without --passive"
                : "no node has answered within " + std::to_string(session.options.timeout_ms) +
                      " ms; are the nodes on, and is this their bus and its bit rate?");
    }
    return ExitStatus::done;
}

}  // namespace nodevik_tool
