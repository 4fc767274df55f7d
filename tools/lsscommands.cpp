#include "tools/lsscommands.h"

#include <algorithm>
#include <array>
#include <functional>
#include <set>
#include <tuple>

#include "nodevik/nodes/lssprotocol.h"
#include "nodevik/util/monotonicclock.h"
#include "program/numbers.h"
#include "program/progress.h"
#include "tools/bus.h"
#include "tools/nodewords.h"
#include "tools/tell.h"

namespace nodevik_tool {

namespace {

constexpr unsigned int answer_identifier = 0x7E4;
constexpr unsigned int boot_up_identifier = 0x700;
constexpr unsigned char reset_communication = 0x82;  // CiA 301, 7.2.8.3.1
constexpr unsigned int identity_answers = 4;         // of one slave that is asked who it is
constexpr std::uint64_t other_slaves_ns = 100'000'000;
constexpr std::uint64_t start_ns = 2'000'000'000;
constexpr unsigned int first_questions = 1;  // of a fastscan: is anybody there
constexpr unsigned int part_questions = 33;  // 32 bits, and whether they are right
constexpr int most_restarts = 3;
constexpr std::array<unsigned int, 8> bit_rates{10, 20, 50, 125, 250, 500, 800, 1000};

using Numbers = std::tuple<std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t>;

Numbers numbers_of(const LssIdentity& who) {
    return {who.vendor, who.product, who.revision, who.serial};
}

// As the command line takes it.
std::string identity_text(const LssIdentity& who) {
    return hex_text(who.vendor) + " " + hex_text(who.product) + " " + hex_text(who.revision) + " " +
           hex_text(who.serial);
}

nlohmann::ordered_json identity_json(const LssIdentity& who) {
    return {
        {"vendor", who.vendor}, {"product", who.product}, {"revision", who.revision}, {"serial", who.serial}};
}

// The frames that the LSS master does not count itself.
class FrameCount final : public FrameObserver {
public:
    explicit FrameCount(ObservedDriver& driver) : driver_(&driver) { driver_->add_observer(*this); }
    ~FrameCount() { driver_->remove_observer(*this); }
    FrameCount(const FrameCount&) = delete;
    FrameCount& operator=(const FrameCount&) = delete;

    void frame_passed(const ObservedFrame& frame) override {
        if (frame.direction == ObservedFrame::Direction::sent) {
            requests += frame.identifier == lss::request_identifier ? 1 : 0;
        } else if (frame.identifier == answer_identifier) {
            ++answers;
        } else if (node != 0 && frame.identifier == boot_up_identifier + node && frame.length == 1 &&
                   frame.data[0] == 0) {
            has_booted = true;
        }
    }

    unsigned int requests = 0;
    unsigned int answers = 0;
    unsigned int node = 0;  // whose boot-up is waited for
    bool has_booted = false;

private:
    ObservedDriver* driver_;
};

// The LSS master of a command.
class Master {
public:
    explicit Master(const Session& session)
        : session_(&session),
          bus_(session.options.bus, session.reports, session.interrupts),
          count_(bus_.driver()),
          lss_(bus_.driver()) {
        set_step(LssTiming().scan_ms);
    }
    // Nobody stays in configuration.
    ~Master() {
        if (is_open_) {
            lss_.cancel();
            lss_.start_switch_all(false);
        }
    }
    Master(const Master&) = delete;
    Master& operator=(const Master&) = delete;

    FrameCount& count() { return count_; }

    // How long a question waits whose answer may be no.
    void set_step(unsigned int step_ms) {
        LssTiming timing;
        timing.answer_ms = session_->options.timeout_ms;
        timing.store_ms = std::max(timing.store_ms, session_->options.timeout_ms);
        timing.scan_ms = step_ms;
        lss_.set_timing(timing);
    }

    // Has a service begun by `start`, which is given its callback, and serves the bus until its end; `began` is called
    // when the first frame is on its way, `look` after each time that frames may have come.
    template <typename Start>
    LssResult run(
        const Start& start, const std::function<void()>& began = [] {},
        const std::function<void()>& look = [] {}) {
        std::optional<LssResult> end;
        start(lss_, [&end](const LssResult& result) { end = result; });
        began();
        try {
            while (!end) {
                bus_.read(lss_.next_deadline(), &session_->output);
                lss_.process(monotonic_ns());
                look();
            }
        } catch (...) {
            lss_.cancel();  // the callback must not outlive this call
            throw;
        }
        if (end->outcome == LssOutcome::driver_failed) {
            throw Failure(ExitStatus::no_bus, "the LSS request was not sent: " + bus_.trouble());
        }
        return *end;
    }

    // Serves the bus until something is so, or for a time. @return whether it is so
    bool wait(std::uint64_t duration_ns, const std::function<bool()>& is_so) {
        const std::uint64_t end = monotonic_ns() + duration_ns;
        while (!is_so() && monotonic_ns() < end) {
            bus_.read(end, &session_->output);
        }
        return is_so();
    }

    // Brings all slaves into configuration, or to wait.
    void switch_all(bool configuration) {
        is_open_ = is_open_ || configuration;
        run([configuration](Lss& lss, const Lss::Callback& end) {
            lss.start_switch_all(configuration, end);
        });
        is_open_ = configuration;
    }

    // Slaves may be in configuration from now on.
    void expect_configuration() { is_open_ = true; }

    // Brings one slave into configuration. @return who it is
    LssIdentity select(const std::optional<LssIdentity>& who) {
        return who ? select_named(*who) : select_only();
    }

    // What the slave in configuration says to a request. @throws Failure unless it does it
    void demand(const LssResult& result, const std::string& what) const {
        switch (result.outcome) {
            case LssOutcome::done:
                return;
            case LssOutcome::refused: {
                const bool is_specific = result.error == lss::specific_error;
                throw Failure(ExitStatus::refused,
                              "the slave refuses " + what + ": error " +
                                  std::to_string(is_specific ? result.specific : result.error) +
                                  (is_specific ? " of the manufacturer's" : ""));
            }
            case LssOutcome::several:
                throw Failure(ExitStatus::refused, "more than one slave has answered to " + what);
            default:
                throw Failure(ExitStatus::no_answer,
                              "the slave has fallen silent: no answer to " + what + " within " +
                                  std::to_string(session_->options.timeout_ms) + " ms");
        }
    }

    // Sends a node the NMT command that has it take its new number.
    void reset(unsigned int node) {
        bus_.send(0, 2, {reset_communication, static_cast<unsigned char>(node)}, 0,
                  session_->options.timeout_ms);
    }

private:
    LssIdentity select_named(const LssIdentity& who) {
        switch_all(false);
        expect_configuration();
        const LssResult result =
            run([&who](Lss& lss, const Lss::Callback& end) { lss.start_switch_one(who, end); });
        if (result.outcome == LssOutcome::several) {
            throw Failure(ExitStatus::refused, "more than one slave is " + identity_text(who));
        }
        if (!result.ok()) {
            throw Failure(ExitStatus::no_answer, "no slave " + identity_text(who) + " has answered within " +
                                                     std::to_string(session_->options.timeout_ms) + " ms");
        }
        return who;
    }

    LssIdentity select_only() {
        switch_all(true);
        count_.answers = 0;
        const LssResult result =
            run([](Lss& lss, const Lss::Callback& end) { lss.start_inquire_identity(end); });
        const bool are_several = wait(other_slaves_ns, [this] { return count_.answers > identity_answers; });
        if (are_several) {
            throw Failure(ExitStatus::usage,
                          "several slaves have answered; name one by VENDOR PRODUCT REVISION SERIAL");
        }
        if (!result.ok()) {
            throw Failure(ExitStatus::no_answer, "no LSS slave has answered within " +
                                                     std::to_string(session_->options.timeout_ms) + " ms");
        }
        return result.identity;
    }

    const Session* session_;
    Bus bus_;
    FrameCount count_;
    Lss lss_;
    bool is_open_ = false;  // slaves may be in configuration
};

// The search for slaves without a node number.
class Search {
public:
    Search(const Session& session, const LssScanArguments& arguments)
        : session_(&session), arguments_(&arguments), master_(session) {
        questions_ = first_questions;
        for (const bool is_known : arguments.known.known) {
            questions_ += is_known ? 1 : part_questions;
        }
    }

    // Finds slaves and tells them, at most so many.
    // @return how many
    std::size_t run(std::size_t most) {
        std::set<Numbers> told;
        std::set<Numbers> found;  // since the last beginning: these are in configuration
        int restarts = 0;
        master_.switch_all(false);
        master_.expect_configuration();
        while (told.size() < most) {
            const LssResult result = find_next();
            if (result.outcome == LssOutcome::no_answer) {
                break;
            }
            if (result.outcome == LssOutcome::lost) {
                if (++restarts > most_restarts) {
                    throw Failure(ExitStatus::no_answer,
                                  "a slave has answered and then denied its numbers, again and again; "
                                  "try a longer --step");
                }
                master_.switch_all(false);
                master_.expect_configuration();
                found.clear();
                continue;
            }
            const Numbers numbers = numbers_of(result.identity);
            if (!found.insert(numbers).second) {
                throw Failure(ExitStatus::refused,
                              "the slave " + identity_text(result.identity) +
                                  " does not go into configuration: those behind it cannot be found");
            }
            if (told.insert(numbers).second) {
                tell_slave(result.identity, result.outcome == LssOutcome::several);
            }
        }
        master_.switch_all(false);
        return told.size();
    }

private:
    LssResult find_next() {
        program::Progress progress(!session_->options.quiet);
        const unsigned int before = master_.count().requests;
        master_.set_step(
            session_->options.timeout_ms);  // whether there is anybody at all is worth a longer wait
        return master_.run(
            [this](Lss& lss, const Lss::Callback& end) { lss.start_fastscan(arguments_->known, end); },
            [this] { master_.set_step(arguments_->step_ms); },
            [&] { progress.update(master_.count().requests - before, questions_); });
    }

    void tell_slave(const LssIdentity& who, bool are_twins) {
        Output& output = session_->output;
        if (output.json()) {
            nlohmann::ordered_json object = identity_json(who);
            object["duplicate"] = are_twins;
            output.object(object);
        } else {
            output.line(identity_text(who));
        }
        output.flush();
        if (are_twins) {
            tell("more than one slave is " + identity_text(who));
        }
    }

    const Session* session_;
    const LssScanArguments* arguments_;
    Master master_;
    unsigned int questions_;
};

ExitStatus search(const Session& session, const LssScanArguments& arguments, std::size_t most) {
    if (Search(session, arguments).run(most) == 0) {
        throw Failure(ExitStatus::no_answer, "no LSS slave without a node number has answered within " +
                                                 std::to_string(session.options.timeout_ms) + " ms");
    }
    return ExitStatus::done;
}

// Has the slave in configuration store, if that is wanted.
void store(Master& master, bool wanted) {
    if (wanted) {
        master.demand(master.run([](Lss& lss, const Lss::Callback& end) { lss.start_store(end); }),
                      "to store");
    }
}

void show_slave(Output& output, const LssIdentity& who, const std::string& value,
                const nlohmann::ordered_json& more) {
    if (output.json()) {
        nlohmann::ordered_json object = identity_json(who);
        object.update(more);
        output.object(object);
    } else {
        output.line(identity_text(who) + (value.empty() ? "" : " ") + value);
    }
    output.flush();
}

}  // namespace

LssTarget parse_lss_target(const std::vector<std::string>& words, const LssValue& value) {
    constexpr std::size_t parts = 4;
    const std::size_t values = value.name.empty() ? 0 : 1;
    if (words.size() != values && words.size() != parts + values) {
        throw Failure(ExitStatus::usage, std::string("right are VENDOR PRODUCT REVISION SERIAL") +
                                             (values > 0 ? " and the " : "") + value.name + ", or " +
                                             (values > 0 ? "the " + value.name + " alone" : "nothing") +
                                             " when there is only one slave; not " +
                                             std::to_string(words.size()) + " words");
    }
    LssTarget target;
    std::array<std::uint32_t, parts> numbers{};
    for (std::size_t i = 0; i + values < words.size(); ++i) {
        const auto number = program::whole_number(words[i], 0, UINT32_MAX);
        if (!number) {
            throw Failure(ExitStatus::usage, "'" + words[i] +
                                                 "' is no number of an identity; right are 0 to 4294967295, "
                                                 "also as 0x00000401");
        }
        numbers[i] = static_cast<std::uint32_t>(*number);
    }
    if (words.size() > values) {
        target.identity = LssIdentity{numbers[0], numbers[1], numbers[2], numbers[3]};
    }
    if (values > 0) {
        const auto number = program::whole_number(words.back(), value.lowest, value.highest);
        if (!number) {
            throw Failure(ExitStatus::usage, "'" + words.back() + "' is no " + value.name + "; right are " +
                                                 std::to_string(value.lowest) + " to " +
                                                 std::to_string(value.highest));
        }
        target.value = static_cast<unsigned int>(*number);
        if (value.check != nullptr) {
            value.check(target.value);
        }
    }
    return target;
}

void check_lss_bit_rate(unsigned int kbit) {
    if (std::find(bit_rates.begin(), bit_rates.end(), kbit) == bit_rates.end()) {
        std::string list;
        for (const unsigned int rate : bit_rates) {
            list += (list.empty() ? "" : rate == bit_rates.back() ? " and " : ", ") + std::to_string(rate);
        }
        throw Failure(ExitStatus::usage,
                      std::to_string(kbit) + " kbit/s is no bit rate of LSS; right are " + list);
    }
}

ExitStatus scan_lss(const Session& session, const LssScanArguments& arguments) {
    return search(session, arguments, SIZE_MAX);
}

ExitStatus fastscan_lss(const Session& session, const LssScanArguments& arguments) {
    return search(session, arguments, 1);
}

ExitStatus set_lss_node(const Session& session, const LssTarget& target) {
    Master master(session);
    const LssIdentity who = master.select(target.identity);
    const LssResult active =
        master.run([](Lss& lss, const Lss::Callback& end) { lss.start_inquire_node(end); });
    const bool is_known = active.ok();  // not all slaves tell their number
    const unsigned int before = is_known ? active.node : 0;
    const bool had_number = before >= 1 && before <= program::highest_node;
    master.demand(
        master.run([&target](Lss& lss, const Lss::Callback& end) { lss.start_set_node(target.value, end); }),
        "the node number " + std::to_string(target.value));
    store(master, target.store);
    master.count().node = target.value;
    master.switch_all(false);  // a slave without a number starts with its own now
    const bool needs_reset = had_number && before != target.value;
    if (needs_reset) {
        master.reset(before);
        tell("the communication of node " + std::to_string(before) + " was reset, so that it becomes node " +
             std::to_string(target.value));
    }
    const bool starts = is_known && before != target.value;
    const bool has_booted = starts && master.wait(start_ns, [&master] { return master.count().has_booted; });
    show_slave(session.output, who, std::to_string(target.value),
               {{"node", target.value},
                {"before", had_number ? nlohmann::ordered_json(before) : nullptr},
                {"stored", target.store},
                {"reset", needs_reset},
                {"booted", has_booted}});
    if (!is_known) {
        tell(
            "the slave does not tell its present number; it takes the new one when its communication is "
            "reset: 'nodevik nmt reset-comm'");
    } else if (starts && !has_booted) {
        throw Failure(ExitStatus::no_answer, "node " + std::to_string(target.value) +
                                                 " has not started within 2000 ms: it sent no boot-up");
    }
    return ExitStatus::done;
}

ExitStatus set_lss_bit_rate(const Session& session, const LssTarget& target) {
    Master master(session);
    const LssIdentity who = master.select(target.identity);
    master.demand(master.run([&target](Lss& lss, const Lss::Callback& end) {
        lss.start_set_bit_rate(target.value, end);
    }),
                  "the bit rate " + std::to_string(target.value) + " kbit/s");
    store(master, target.store);
    master.switch_all(false);
    show_slave(session.output, who, std::to_string(target.value),
               {{"kbit", target.value}, {"stored", target.store}});
    return ExitStatus::done;
}

ExitStatus store_lss(const Session& session, const LssTarget& target) {
    Master master(session);
    const LssIdentity who = master.select(target.identity);
    store(master, true);
    master.switch_all(false);
    show_slave(session.output, who, "", {{"stored", true}});
    return ExitStatus::done;
}

}  // namespace nodevik_tool
