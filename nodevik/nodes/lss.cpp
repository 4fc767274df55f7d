#include "nodevik/nodes/lss.h"

#include <algorithm>
#include <utility>

#include "nodevik/nodes/buswait.h"
#include "nodevik/nodes/lssprotocol.h"
#include "nodevik/util/assertion.h"
#include "nodevik/util/monotonicclock.h"

namespace {

constexpr unsigned int boot_up_base = 0x700;
constexpr unsigned int highest_node = 127;

struct OutcomeWords {
    LssOutcome outcome;
    const char* words;
};
constexpr std::array<OutcomeWords, 7> outcome_words{{{LssOutcome::done, "done"},
                                                     {LssOutcome::no_answer, "no answer"},
                                                     {LssOutcome::refused, "refused by the node"},
                                                     {LssOutcome::several, "more than one node answered"},
                                                     {LssOutcome::lost, "the node fell silent"},
                                                     {LssOutcome::driver_failed, "the driver took no frame"},
                                                     {LssOutcome::cancelled, "cancelled"}}};

constexpr std::uint64_t ms_to_ns(unsigned int ms) {
    return std::uint64_t{ms} * 1'000'000;
}

constexpr std::uint64_t us_to_ns(unsigned int us) {
    return std::uint64_t{us} * 1'000;
}

std::array<unsigned char, 8> frame_of(unsigned int command, std::uint32_t number = 0) {
    return {static_cast<unsigned char>(command),
            static_cast<unsigned char>(number),
            static_cast<unsigned char>(number >> 8),
            static_cast<unsigned char>(number >> 16),
            static_cast<unsigned char>(number >> 24),
            0,
            0,
            0};
}

std::uint32_t number_in(const std::array<unsigned char, 8>& frame) {
    return frame[1] | static_cast<std::uint32_t>(frame[2]) << 8 | static_cast<std::uint32_t>(frame[3]) << 16 |
           static_cast<std::uint32_t>(frame[4]) << 24;
}

LssIdentity identity_of(const std::array<std::uint32_t, 6>& numbers) {
    return {numbers[0], numbers[1], numbers[2], numbers[3]};
}

bool same(const LssIdentity& one, const LssIdentity& other) {
    return one.vendor == other.vendor && one.product == other.product && one.revision == other.revision &&
           one.serial == other.serial;
}

}  // namespace

const char* lss_words(LssOutcome outcome) {
    const auto* found = std::find_if(outcome_words.begin(), outcome_words.end(),
                                     [outcome](const OutcomeWords& row) { return row.outcome == outcome; });
    return found == outcome_words.end() ? "" : found->words;
}

Lss::Lss(ObservedDriver& observed) : driver(&observed) {
    const int added = driver->add_observer(*this);
    NODEVIK_ASSERT_AS("nodevik/nodes/lss", added == 0, "driver.add_observer(*this) == 0");
}

Lss::~Lss() {
    closing = true;
    cancel();
    driver->remove_observer(*this);
}

int Lss::start_switch_all(bool configuration, Callback end) {
    if (!begin(Task::send_only, end)) {
        return -1;
    }
    ask(frame_of(lss::switch_state_global, configuration ? 1 : 0), 0, us_to_ns(timing.gap_us), false);
    return 0;
}

int Lss::start_switch_one(const LssIdentity& identity, Callback end) {
    if (!begin(Task::switch_one, end)) {
        return -1;
    }
    result.identity = identity;
    numbers = {identity.vendor, identity.product, identity.revision, identity.serial};
    ask_part(0);
    return 0;
}

int Lss::start_set_node(unsigned int node, Callback end) {
    const bool valid = (node >= 1 && node <= highest_node) || node == no_node;
    if (!valid || !begin(Task::set_value, end)) {
        return -1;
    }
    result.node = node;
    ask(frame_of(lss::configure_node, node), lss::configure_node, ms_to_ns(timing.answer_ms), true);
    return 0;
}

int Lss::start_set_bit_rate(unsigned int rate_kbit, Callback end) {
    const auto* rate = std::find_if(lss::bit_rates.begin(), lss::bit_rates.end(),
                                    [rate_kbit](const lss::BitRate& row) { return row.kbit == rate_kbit; });
    if (rate == lss::bit_rates.end() || !begin(Task::set_value, end)) {
        return -1;
    }
    const std::uint32_t table_and_index = lss::standard_table | static_cast<std::uint32_t>(rate->index) << 8;
    ask(frame_of(lss::configure_bit_timing, table_and_index), lss::configure_bit_timing,
        ms_to_ns(timing.answer_ms), true);
    return 0;
}

int Lss::start_activate(unsigned int delay_ms, Callback end) {
    if (delay_ms > UINT16_MAX || !begin(Task::send_only, end)) {
        return -1;
    }
    ask(frame_of(lss::activate_bit_timing, delay_ms), 0, ms_to_ns(delay_ms) * 2, false);
    return 0;
}

int Lss::start_store(Callback end) {
    if (!begin(Task::set_value, end)) {
        return -1;
    }
    ask(frame_of(lss::store_configuration), lss::store_configuration, ms_to_ns(timing.store_ms), false);
    return 0;
}

int Lss::start_inquire_identity(Callback end) {
    if (!begin(Task::inquire_identity, end)) {
        return -1;
    }
    part = 0;
    ask(frame_of(lss::inquire_first), lss::inquire_first, ms_to_ns(timing.answer_ms), false);
    return 0;
}

int Lss::start_inquire_node(Callback end) {
    if (!begin(Task::inquire_node, end)) {
        return -1;
    }
    ask(frame_of(lss::inquire_node), lss::inquire_node, ms_to_ns(timing.answer_ms), false);
    return 0;
}

int Lss::start_identify(const LssRange& range, Callback end) {
    if (!begin(Task::identify, end)) {
        return -1;
    }
    numbers = {range.vendor,           range.product,       range.lowest_revision,
               range.highest_revision, range.lowest_serial, range.highest_serial};
    ask_part(0);
    return 0;
}

int Lss::start_identify_unconfigured(Callback end) {
    if (!begin(Task::identify, end)) {
        return -1;
    }
    part = lss::range_parts - 1;
    ask(frame_of(lss::identify_unconfigured), lss::unconfigured, ms_to_ns(timing.answer_ms), true);
    return 0;
}

int Lss::start_fastscan(const LssKnown& beforehand, Callback end) {
    if (!begin(Task::fastscan, end)) {
        return -1;
    }
    known = beforehand;
    begin_scan();
    return 0;
}

int Lss::start_assign(Chooser chooser, AssignmentCallback assigned, bool store, Callback end) {
    if (!chooser || !begin(Task::assign, end)) {
        return -1;
    }
    choose = std::move(chooser);
    report = std::move(assigned);
    stores = store;
    known = {};
    had_failure = false;
    assigned_nodes = 0;
    found_nodes = 0;
    end_of_assignment = LssOutcome::done;
    leave_configuration(Stage::all_waiting);
    return 0;
}

void Lss::cancel() {
    if (busy()) {
        finish(LssOutcome::cancelled);
    }
}

LssResult Lss::wait() {
    while (busy()) {
        driver->read_all();
        process(monotonic_ns());
        if (busy()) {
            wait_for_frames(*driver, next_deadline());
        }
    }
    return result;
}

void Lss::process(std::uint64_t now_ns) {
    now = now_ns;
    if (!busy()) {
        return;
    }
    if (waits_to_send) {
        try_to_send();
        return;
    }
    if (now >= deadline) {
        step_over();
    }
}

std::uint64_t Lss::next_deadline() const {
    if (!busy()) {
        return no_deadline;
    }
    // A driver whose queue is full is tried again after about the time of a frame.
    constexpr std::uint64_t retry_ns = 1'000'000;
    return waits_to_send ? std::min(now + retry_ns, deadline) : deadline;
}

void Lss::frame_passed(const ObservedFrame& frame) {
    if (frame.direction != ObservedFrame::Direction::received || frame.extended || frame.error ||
        frame.remote) {
        return;
    }
    if (task == Task::assign && stage == Stage::wait_for_boot_up && assignment.node != 0 &&
        frame.length == 1 && frame.identifier == boot_up_base + assignment.node && frame.data[0] == 0) {
        ++assignment.boot_ups;
        now = frame.monotonic_time_ns();
        deadline = std::min(deadline, now + ms_to_ns(timing.scan_ms));
        return;
    }
    if (frame.identifier != lss::answer_identifier) {
        return;
    }
    if (frame.length != 8 || awaited == 0 || waits_to_send || frame.data[0] != awaited) {
        ++dropped_frames;
        return;
    }
    if (++step_answers == 1) {
        std::copy_n(frame.data, first_answer.size(), first_answer.begin());
    }
    now = frame.monotonic_time_ns();
    if (takes_all) {
        deadline = std::min(deadline, now + ms_to_ns(timing.scan_ms));
    } else {
        step_over();
    }
}

// Begins a service, unless one is under way.
bool Lss::begin(Task next, Callback& end) {
    if (busy() || closing) {
        return false;
    }
    task = next;
    callback = std::move(end);
    result = LssResult();
    now = monotonic_ns();
    return true;
}

// Sends a frame and begins the step that waits for its answer, or only lets time pass.
void Lss::ask(const Frame& frame, unsigned int answer, std::uint64_t wait_ns, bool all_answers) {
    frame_out = frame;
    awaited = answer;
    takes_all = all_answers;
    step_ns = wait_ns;
    step_answers = 0;
    waits_to_send = true;
    deadline = now + ms_to_ns(timing.answer_ms);  // for the driver to take it
    try_to_send();
}

void Lss::try_to_send() {
    Frame frame = frame_out;
    waits_to_send = false;  // the answer may come while the frame is being written
    const std::uint64_t give_up = std::exchange(deadline, now + step_ns);
    if (driver->write(lss::request_identifier, static_cast<unsigned int>(frame.size()), frame.data(), 0) >=
        0) {
        return;
    }
    waits_to_send = true;
    deadline = give_up;
    if (now >= deadline) {
        waits_to_send = false;
        finish(LssOutcome::driver_failed);
    }
}

// A step has its answer, or its time is over.
void Lss::step_over() {
    awaited = 0;
    result.answers = step_answers;
    switch (task) {
        case Task::none:
            break;
        case Task::send_only:
            finish(LssOutcome::done);
            break;
        case Task::switch_one:
            take_selection();
            break;
        case Task::set_value:
            take_value();
            break;
        case Task::inquire_identity:
            take_identity();
            break;
        case Task::inquire_node:
            if (step_answers != 0) {
                result.node = first_answer[1];
            }
            finish(step_answers == 0 ? LssOutcome::no_answer : LssOutcome::done);
            break;
        case Task::identify:
            take_identification();
            break;
        case Task::fastscan:
            take_scan();
            break;
        case Task::assign:
            take_assignment();
            break;
    }
}

void Lss::finish(LssOutcome outcome) {
    task = Task::none;
    awaited = 0;
    waits_to_send = false;
    result.outcome = outcome;
    const LssResult ended = result;
    choose = {};
    report = {};
    if (const Callback end = std::exchange(callback, {})) {
        end(ended);
    }
}

// Sends one of the numbers of a selection or an identification; only the last one is answered.
void Lss::ask_part(unsigned int next) {
    part = next;
    const bool selects = task == Task::switch_one;
    const bool last = part + 1 == (selects ? lss::identity_parts : lss::range_parts);
    const unsigned int command = (selects ? lss::switch_selective_first : lss::identify_first) + part;
    if (!last) {
        ask(frame_of(command, numbers[part]), 0, us_to_ns(timing.gap_us), false);
    } else if (selects) {
        ask(frame_of(command, numbers[part]), lss::switched, ms_to_ns(timing.answer_ms), true);
    } else {
        ask(frame_of(command, numbers[part]), lss::identified, ms_to_ns(timing.scan_ms), true);
    }
}

void Lss::take_selection() {
    if (part + 1 < lss::identity_parts) {
        ask_part(part + 1);
        return;
    }
    if (step_answers == 0) {
        finish(LssOutcome::no_answer);
    } else {
        finish(step_answers > 1 ? LssOutcome::several : LssOutcome::done);
    }
}

// What the answer to a number, a bit rate or a store says.
LssOutcome Lss::judge_error(LssResult& into) const {
    if (step_answers == 0) {
        return LssOutcome::no_answer;
    }
    into.error = first_answer[1];
    into.specific = first_answer[2];
    if (into.error != 0) {
        return LssOutcome::refused;
    }
    return step_answers > 1 ? LssOutcome::several : LssOutcome::done;
}

void Lss::take_value() {
    finish(judge_error(result));
}

void Lss::take_identity() {
    if (step_answers == 0) {
        finish(part == 0 ? LssOutcome::no_answer : LssOutcome::lost);
        return;
    }
    numbers[part] = number_in(first_answer);
    if (++part < lss::identity_parts) {
        const unsigned int command = lss::inquire_first + part;
        ask(frame_of(command), command, ms_to_ns(timing.answer_ms), false);
        return;
    }
    result.identity = identity_of(numbers);
    finish(LssOutcome::done);
}

void Lss::take_identification() {
    if (part + 1 < lss::range_parts) {
        ask_part(part + 1);
        return;
    }
    finish(step_answers == 0 ? LssOutcome::no_answer : LssOutcome::done);
}

// A fastscan: every node without a number begins with the vendor.
void Lss::begin_scan() {
    scan = Scan::begin;
    numbers = {};
    Frame frame = frame_of(lss::fastscan);
    frame[5] = lss::scan_begin;
    ask(frame, lss::identified, ms_to_ns(timing.scan_ms), !timing.first_answer_ends_step);
}

void Lss::begin_part(unsigned int next) {
    part = next;
    bit = lss::highest_bit;
    if (known.known[part]) {
        numbers[part] = known.value[part];
        check_part();
    } else {
        numbers[part] = 0;
        ask_bit();
    }
}

// Asks whether a node's number has the bits that are known and the next one 0.
void Lss::ask_bit() {
    scan = Scan::bits;
    Frame frame = frame_of(lss::fastscan, numbers[part]);
    frame[5] = static_cast<unsigned char>(bit);
    frame[6] = static_cast<unsigned char>(part);
    frame[7] = static_cast<unsigned char>(part);
    ask(frame, lss::identified, ms_to_ns(timing.scan_ms), !timing.first_answer_ends_step);
}

// Asks for the whole number; who has it goes on to the next one, or after the last one into configuration.
void Lss::check_part() {
    scan = Scan::check;
    Frame frame = frame_of(lss::fastscan, numbers[part]);
    frame[6] = static_cast<unsigned char>(part);
    frame[7] = static_cast<unsigned char>((part + 1) % lss::identity_parts);
    ask(frame, lss::identified, ms_to_ns(timing.scan_ms), !timing.first_answer_ends_step);
}

void Lss::take_scan() {
    switch (scan) {
        case Scan::begin:
            if (step_answers == 0) {
                scan_over(LssOutcome::no_answer);
            } else {
                begin_part(0);
            }
            break;
        case Scan::bits:
            if (step_answers == 0) {
                numbers[part] |= std::uint32_t{1} << bit;
            }
            if (bit == 0) {
                check_part();
            } else {
                --bit;
                ask_bit();
            }
            break;
        case Scan::check:
            if (step_answers == 0) {
                scan_over(known.known[part] ? LssOutcome::no_answer : LssOutcome::lost);
            } else if (part + 1 < lss::identity_parts) {
                begin_part(part + 1);
            } else {
                result.identity = identity_of(numbers);
                scan_over(step_answers > 1 ? LssOutcome::several : LssOutcome::done);
            }
            break;
    }
}

void Lss::scan_over(LssOutcome outcome) {
    if (task == Task::fastscan) {
        finish(outcome);
        return;
    }
    if (outcome == LssOutcome::no_answer) {
        result.answers = assigned_nodes;
        finish(found_nodes == 0 ? LssOutcome::no_answer : LssOutcome::done);
        return;
    }
    if (outcome == LssOutcome::lost) {
        end_of_assignment = LssOutcome::lost;
        leave_configuration(Stage::give_up);
        return;
    }
    ++found_nodes;
    if (had_failure && same(before, result.identity)) {
        // It did not take its number and would be found for ever.
        end_of_assignment = LssOutcome::lost;
        leave_configuration(Stage::give_up);
        return;
    }
    assignment = LssAssignment();
    assignment.identity = result.identity;
    const Chooser chooser = choose;  // it may cancel
    assignment.node = chooser(result.identity);
    if (!busy()) {
        return;
    }
    if (assignment.node < 1 || assignment.node > highest_node) {
        end_of_assignment = LssOutcome::cancelled;
        leave_configuration(Stage::give_up);
        return;
    }
    stage = Stage::set_node;
    ask(frame_of(lss::configure_node, assignment.node), lss::configure_node, ms_to_ns(timing.answer_ms),
        true);
}

// Sends all nodes waiting: those that have got a number begin with it.
void Lss::leave_configuration(Stage next) {
    stage = next;
    const std::uint64_t wait_ns =
        stage == Stage::wait_for_boot_up ? ms_to_ns(timing.boot_up_ms) : us_to_ns(timing.gap_us);
    ask(frame_of(lss::switch_state_global), 0, wait_ns, false);
}

void Lss::take_assignment() {
    LssResult answer;
    switch (stage) {
        case Stage::all_waiting:
            stage = Stage::scan;
            begin_scan();
            break;
        case Stage::scan:
            take_scan();
            break;
        case Stage::set_node:
            assignment.outcome = judge_error(answer);
            if (assignment.outcome == LssOutcome::no_answer) {
                assignment.outcome = LssOutcome::lost;
            }
            if (assignment.outcome == LssOutcome::lost || assignment.outcome == LssOutcome::refused) {
                leave_configuration(Stage::all_waiting);
                assignment_over();
            } else if (stores) {
                stage = Stage::store;
                ask(frame_of(lss::store_configuration), lss::store_configuration, ms_to_ns(timing.store_ms),
                    false);
            } else {
                leave_configuration(Stage::wait_for_boot_up);
            }
            break;
        case Stage::store:
            assignment.stored = judge_error(answer) == LssOutcome::done;
            leave_configuration(Stage::wait_for_boot_up);
            break;
        case Stage::wait_for_boot_up:
            if (assignment.boot_ups == 0) {
                assignment.outcome = LssOutcome::lost;
            } else if (assignment.boot_ups > 1) {
                assignment.outcome = LssOutcome::several;
            }
            stage = Stage::scan;
            begin_scan();
            assignment_over();
            break;
        case Stage::give_up:
            result.answers = assigned_nodes;
            finish(end_of_assignment);
            break;
    }
}

// Tells what became of a node.
void Lss::assignment_over() {
    const LssAssignment over = assignment;
    had_failure = over.boot_ups == 0;
    before = over.identity;
    assigned_nodes += had_failure ? 0 : 1;
    assignment.node = 0;
    if (const AssignmentCallback tell = report) {  // it may cancel
        tell(over);
    }
}
