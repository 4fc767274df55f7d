#include "tools/nodesetup.h"

#include <algorithm>
#include <map>
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
constexpr unsigned char confirmation = 0x60;  // of a write (CiA 301, 7.2.4.3)
constexpr unsigned char refusal = 0x80;
constexpr unsigned char four_bytes = 0x43;  // were read
constexpr unsigned char reset_node = 0x81;

// The object with the communication parameters of the PDO that an object belongs to; 0 of one that belongs to none.
std::uint16_t pdo_of(std::uint16_t index) {
    constexpr unsigned int mapping = 0x0200;
    return index >= 0x1400 && index < 0x1C00 ? static_cast<std::uint16_t>(index & ~mapping)
                                             : std::uint16_t{0};
}

// Whether a request begins to write an object.
bool is_write(unsigned char specifier) {
    return (specifier & 0xE0) == 0x20;
}

// Follows what is sent to a node while it is set up.
class SetupWatch final : public FrameObserver {
public:
    SetupWatch(const Session& session, SdoTransfers& transfers, const std::vector<ConfigurationValue>& values)
        : transfers_(&transfers), progress_(!session.options.quiet) {
        for (const ConfigurationValue& value : values) {
            objects_.emplace(value.index, value.subindex);
            if (is_cob_id(value.index, value.subindex)) {
                pdos_[value.index].wanted = little_endian(value.bytes);
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
        const auto index = static_cast<std::uint16_t>(frame.data[1] | frame.data[2] << 8);
        if (is_sent && frame.identifier == request_id + node) {
            requested(index, frame);
        } else if (!is_sent && frame.identifier == answer_id + node && pdo_of(index) != 0) {
            answered(pdos_[pdo_of(index)], index, frame);
        }
    }

    // The PDOs that are neither as they were nor as they are to be.
    std::vector<std::uint16_t> changed_pdos() const {
        std::vector<std::uint16_t> result;
        for (const auto& [index, pdo] : pdos_) {
            if (pdo.is_changed) {
                result.push_back(index);
            }
        }
        return result;
    }

private:
    // Setting a PDO up ends with its COB-ID, and so does putting it back. What follows a COB-ID is sent before anybody
    // asks, and has the PDO count as changed again.
    struct Pdo {
        std::optional<std::uint64_t> wanted;  // COB-ID
        std::optional<std::uint64_t> former;
        unsigned int writes = 0;
        std::pair<std::uint16_t, std::uint8_t> written;  // by the last of them
        bool is_changed = false;
        bool is_last = false;  // the request under way ends it
    };

    static bool is_cob_id(std::uint16_t index, std::uint8_t subindex) {
        return subindex == 1 && pdo_of(index) == index && index != 0;
    }

    static std::uint64_t number_in(const ObservedFrame& frame) {
        return little_endian({frame.data + 4, frame.data + 8});
    }

    void requested(std::uint16_t index, const ObservedFrame& frame) {
        if (const auto object = objects_.find({index, frame.data[3]}); object != objects_.end()) {
            reached_.insert(*object);
            progress_.update(reached_.size(), objects_.size());
        }
        if (pdo_of(index) == 0 || !is_write(frame.data[0])) {
            return;
        }
        Pdo& pdo = pdos_[pdo_of(index)];
        pdo.is_changed = true;
        ++pdo.writes;
        pdo.written = {index, frame.data[3]};
        const std::uint64_t number = number_in(frame);
        pdo.is_last = is_cob_id(index, frame.data[3]) && (number == pdo.wanted || number == pdo.former);
    }

    static void answered(Pdo& pdo, std::uint16_t index, const ObservedFrame& frame) {
        const unsigned char specifier = frame.data[0];
        const bool is_of_write = pdo.written == std::pair(index, std::uint8_t{frame.data[3]});
        if (specifier == four_bytes && is_cob_id(index, frame.data[3]) && !pdo.former) {
            pdo.former = number_in(frame);
        } else if (specifier == confirmation && is_of_write && pdo.is_last) {
            pdo.is_changed = false;
        } else if (specifier == refusal && is_of_write && pdo.writes == 1) {
            pdo.is_changed = false;  // nothing has been done
        }
    }

    SdoTransfers* transfers_;
    program::Progress progress_;
    std::set<std::pair<std::uint16_t, std::uint8_t>> objects_;
    std::set<std::pair<std::uint16_t, std::uint8_t>> reached_;
    std::map<std::uint16_t, Pdo> pdos_;
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
    timed.slow_ms = std::max(options.slow_ms, timed.timeout_ms);
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
