#include "tools/nodesetup.h"

#include <algorithm>
#include <optional>
#include <set>
#include <utility>

#include "nodevik/util/monotonicclock.h"
#include "program/progress.h"
#include "tools/objects.h"
#include "tools/tell.h"

namespace nodevik_tool {

namespace {

constexpr std::uint64_t patience_ns = 40'000'000;  // with a PDO that is being set up when a signal comes
constexpr unsigned int request_id = 0x600;
constexpr unsigned int answer_id = 0x580;
constexpr unsigned char four_bytes = 0x23;  // a download in one frame (CiA 301, 7.2.4.3.3)
constexpr unsigned char confirmation = 0x60;
constexpr unsigned char refusal = 0x80;
constexpr unsigned char reset_node = 0x81;

// The highest byte of the COB-ID of a PDO: its bit 31 says that the PDO is switched off.
bool is_off_byte(unsigned char byte) {
    return (byte & 0x80) != 0;
}

// The COB-ID of a PDO (CiA 301, 7.5.2.35 and .37).
bool is_cob_id(unsigned int index, unsigned int subindex) {
    return subindex == 1 && ((index >= 0x1400 && index < 0x1600) || (index >= 0x1800 && index < 0x1A00));
}

// Follows what is sent to a node while it is set up.
class SetupWatch final : public FrameObserver {
public:
    SetupWatch(const Session& session, SdoTransfers& transfers, const std::vector<ConfigurationValue>& values)
        : transfers_(&transfers), progress_(!session.options.quiet) {
        for (const ConfigurationValue& value : values) {
            objects_.emplace(value.index, value.subindex);
            const bool is_off = value.bytes.size() == 4 && is_off_byte(value.bytes[3]);
            if (is_cob_id(value.index, value.subindex) && is_off) {
                wanted_off_.insert(value.index);
            }
        }
        transfers_->bus().driver().add_observer(*this);
    }
    ~SetupWatch() { transfers_->bus().driver().remove_observer(*this); }
    SetupWatch(const SetupWatch&) = delete;
    SetupWatch& operator=(const SetupWatch&) = delete;

    void frame_passed(const ObservedFrame& frame) override {
        if (frame.length < 2 || frame.remote || frame.extended || frame.error) {
            return;
        }
        const bool is_sent = frame.direction == ObservedFrame::Direction::sent;
        const unsigned int node = transfers_->node();
        if (is_sent && frame.identifier == 0 && frame.data[0] == reset_node) {
            progress_.clear();
            tell("node " + std::to_string(node) + " is reset (NMT), which restoring its values needs");
        }
        if (frame.length < 8) {
            return;
        }
        const unsigned int index = frame.data[1] | static_cast<unsigned int>(frame.data[2]) << 8;
        if (is_sent && frame.identifier == request_id + node) {
            requested(static_cast<std::uint16_t>(index), frame);
        } else if (!is_sent && frame.identifier == answer_id + node && is_cob_id(index, frame.data[3])) {
            answered(static_cast<std::uint16_t>(index), frame.data[0]);
        }
    }

    // The PDOs that were switched off to be changed and are not on again.
    std::vector<std::uint16_t> changed_pdos() const { return {switched_off_.begin(), switched_off_.end()}; }

private:
    void requested(std::uint16_t index, const ObservedFrame& frame) {
        if (const auto object = objects_.find({index, frame.data[3]}); object != objects_.end()) {
            reached_.insert(*object);
            progress_.update(reached_.size(), objects_.size());
        }
        if (frame.data[0] != four_bytes || !is_cob_id(index, frame.data[3]) ||
            wanted_off_.count(index) != 0) {
            return;
        }
        is_switched_on_ = !is_off_byte(frame.data[7]);
        if (!is_switched_on_) {
            switched_off_.insert(index);
        }
    }

    // A PDO is whole again when it is on, and still is when the node refuses to switch it off.
    void answered(std::uint16_t index, unsigned char specifier) {
        if (specifier == (is_switched_on_ ? confirmation : refusal)) {
            switched_off_.erase(index);
        }
    }

    SdoTransfers* transfers_;
    program::Progress progress_;
    std::set<std::pair<std::uint16_t, std::uint8_t>> objects_;
    std::set<std::pair<std::uint16_t, std::uint8_t>> reached_;
    std::set<std::uint16_t> wanted_off_;
    std::set<std::uint16_t> switched_off_;
    bool is_switched_on_ = false;  // by the last request for a COB-ID
};

// Whether the driver, and not the node, is why nothing has come.
bool is_drivers_fault(const std::string& reason) {
    SdoResult result;
    result.outcome = SdoOutcome::driver_failed;
    return reason.find(result.words()) != std::string::npos;
}

}  // namespace

NodeSetup set_up_node(const Session& session, SdoTransfers& transfers, const DeviceDescription& description,
                      const std::vector<ConfigurationValue>& values, const ConfigurationOptions& options) {
    NodeSetup setup;
    // The watch comes first: it sees an answer before the client sends what follows it.
    const SetupWatch watch(session, transfers, values);
    SdoClient client(transfers.bus().driver());
    NodeConfiguration configuration(transfers.bus().driver(), client);
    ConfigurationOptions timed = options;
    timed.timeout_ms = session.options.timeout_ms;
    bool is_over = false;
    configuration.start(transfers.node(), description, values, timed,
                        [&setup, &is_over](const ConfigurationReport& report) {
                            setup.report = report;
                            is_over = true;
                        });
    std::uint64_t patience = no_deadline;
    while (!is_over) {
        try {
            transfers.bus().read(std::min({client.next_deadline(), configuration.next_deadline(), patience}));
        } catch (const Interrupted&) {
            patience = setup.trouble ? 0 : monotonic_ns() + patience_ns;
            setup.trouble = std::current_exception();
        } catch (const Failure&) {
            patience = 0;
            setup.trouble = std::current_exception();
        }
        const std::uint64_t now = monotonic_ns();
        client.process(now);
        configuration.process(now);
        if (!is_over && setup.trouble && (now >= patience || watch.changed_pdos().empty())) {
            configuration.cancel(transfers.node());
        }
    }
    setup.changed_pdos = watch.changed_pdos();
    return setup;
}

void throw_unless_done(const NodeSetup& setup, SdoTransfers& transfers) {
    const ConfigurationReport& report = setup.report;
    const std::string node = "node " + std::to_string(transfers.node());
    switch (report.outcome) {
        case ConfigurationOutcome::done:
            return;
        case ConfigurationOutcome::refused:
            throw Failure(ExitStatus::refused, node + ": " + report.reason);
        case ConfigurationOutcome::wrong_identity:
            throw Failure(ExitStatus::refused, node + " is not what the file describes: " + report.reason);
        case ConfigurationOutcome::no_answer:
            if (is_drivers_fault(report.reason)) {
                throw Failure(ExitStatus::no_bus,
                              node + ", " + report.reason + ": " + transfers.bus().trouble());
            }
            throw Failure(ExitStatus::no_answer, node + ", " + report.reason);
        default:
            std::rethrow_exception(setup.trouble);
    }
}

void tell_changed_pdos(const NodeSetup& setup) {
    for (const std::uint16_t index : setup.changed_pdos) {
        const bool transmit = index >= 0x1800;
        tell((transmit ? "TPDO " : "RPDO ") + std::to_string(index - (transmit ? 0x1800 : 0x1400) + 1) +
             " is neither set up nor as it was, and may be switched off: set it up again");
    }
    if (setup.changed_pdos.empty() && setup.report.put_back_failed) {
        tell("a PDO could not be put back as it was, and is changed in part: set it up again");
    }
}

nlohmann::ordered_json item_json(const ConfigurationItem& item) {
    nlohmann::ordered_json object{{"index", index_text(item.index)},
                                  {"sub", item.subindex},
                                  {"result", configuration_result_name(item.result)},
                                  {"abort", nullptr}};
    if (item.abort_code != 0) {
        object["abort"] = code_text(item.abort_code);
    }
    if (!item.reason.empty()) {
        object["reason"] = item.reason;
    }
    return object;
}

std::string refusal_text(const ConfigurationItem& item) {
    return item.abort_code == 0 ? item.reason : item.reason + " (" + code_text(item.abort_code) + ")";
}

}  // namespace nodevik_tool
