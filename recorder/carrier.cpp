#include "recorder/carrier.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

namespace vehicle_recorder {

namespace {

// The program's settings are looked at this often, for the kernel does not tell of them.
constexpr int settings_look_ms = 10;
constexpr std::uint64_t settings_look_us = std::uint64_t{settings_look_ms} * 1000;
// Nothing tells of a line that has sent all.
constexpr int drain_look_ms = 1;
constexpr std::uint64_t longest_drain_us = 5'000'000;
// An opening that no event tells of is seen after this.
constexpr int opening_look_ms = 20;
constexpr int idle_look_ms = 1000;
// A program that ends has closed its line a moment before it counts as ended.
constexpr std::uint64_t closing_us = 100'000;
// The panel's own guard may need 2 s for its neutral frame.
constexpr std::uint64_t patience_with_holders_us = 3'000'000;
constexpr int longest_wait_for_orders_ms = 500;
constexpr int longest_wait_for_room_ms = 5000;
constexpr int pieces_at_once = 16;
constexpr int most_guards = 5;  // after the first: more would die of the same

void tell(const std::string& text) {
    std::fprintf(stderr, "vehicle-recorder: %s\n", text.c_str());
}

std::unique_ptr<LineGuard> start_guard(char** arguments) {
    return std::make_unique<LineGuard>(arguments, "the recorder");
}

}  // namespace

void Carrier::Backlog::taken(std::size_t count) {
    begin_ += count;
    if (begin_ == end_) {
        clear();
    }
}

// As much as there is room for; returns how much that was.
std::size_t Carrier::Backlog::add(std::span<const std::uint8_t> bytes) {
    std::copy(piece_.data() + begin_, piece_.data() + end_, piece_.data());
    end_ -= std::exchange(begin_, 0);
    const std::size_t count = std::min(bytes.size(), piece_.size() - end_);
    std::copy_n(bytes.data(), count, piece_.data() + end_);
    end_ += count;
    return count;
}

Carrier::Carrier(PseudoLine& line, CarrierSetUp setup)
    : program_line_(line),
      setup_(std::move(setup)),
      real_line_(setup_.device),
      guard_(start_guard(setup_.arguments)),
      guards_left_(most_guards),
      found_(followed(line.first_attributes())) {}

void Carrier::run() {
    program_line_.watch_openings();
    while (!((program_ended_ || finish_) && state_ == State::closed)) {
        wait();
        take_orders();
        follow_program_line();
        if (state_ == State::open) {
            follow_settings();
        }
        carry_to_program();
        carry_to_vehicle();
        if (has_program() && (program_is_at_end_ || finish_)) {
            closed();
        }
        if (state_ == State::closing) {
            finish_closing();
        }
        look_at_guard();
        look_at_takers();
        look_at_holders();
    }
    end();
}

// --- waiting, and those beside the line ---

void Carrier::wait() {
    // A line that is hung up says so for ever: it is looked at only to be read to its end.
    const bool may_take = may_take_from_program() || (state_ == State::open && !applied_);
    const bool looks_at_program = has_program() && (may_take || !program_hung_up_);
    const auto program_events =
        static_cast<short>(POLLPRI | (may_take ? POLLIN : 0) | (to_program_.empty() ? 0 : POLLOUT));
    const auto line_events = static_cast<short>(POLLIN | (to_vehicle_.empty() ? 0 : POLLOUT));
    std::array<pollfd, 6> events = {{
        {looks_at_program ? program_line_.descriptor() : -1, program_events, 0},
        {real_line_.descriptor(), line_events, 0},
        {program_line_.openings(), POLLIN, 0},
        {program_ended_ ? -1 : setup_.program, POLLIN, 0},
        {orders_open_ ? setup_.orders : -1, POLLIN, 0},
        {guard_->descriptor(), POLLIN, 0},
    }};
    poll(events.data(), events.size(), wait_limit_ms());
    look_at_once_ = false;
    program_wrote_ = (events[0].revents & (POLLIN | POLLHUP)) != 0;
    if ((events[3].revents & POLLIN) != 0) {
        program_ended_ = true;
        ended_us_ = now_us();
    }
}

int Carrier::wait_limit_ms() const {
    if (look_at_once_) {
        return 0;
    }
    if (settings_wait() || state_ == State::closing || (program_hung_up_ && !to_vehicle_.empty())) {
        return drain_look_ms;
    }
    if (state_ == State::open) {
        return settings_look_ms;
    }
    return program_line_.openings() < 0 || program_ended_ ? opening_look_ms : idle_look_ms;
}

void Carrier::take_orders() {
    std::array<char, 512> order;
    while (orders_open_) {
        const ssize_t count = recv(setup_.orders, order.data(), order.size(), MSG_DONTWAIT);
        if (count < 0 && (errno == EAGAIN || errno == EINTR)) {
            return;
        }
        if (count <= 0) {
            orders_open_ = false;
        } else if (order[0] == orders::finish) {
            finish_ = true;
        } else if (order[0] == orders::program_ended) {
            ending_.assign(order.data() + 1, static_cast<std::size_t>(count - 1));
        }
    }
}

void Carrier::look_at_holders() {
    if (program_ended_ && has_program() && !told_of_holders_ &&
        now_us() - ended_us_ > patience_with_holders_us) {
        told_of_holders_ = true;
        tell(
            "the program has ended, but another process holds the line: it is carried on until that one "
            "closes it");
    }
}

void Carrier::look_at_guard() {
    if (guard_->look() || guards_left_ == 0) {
        return;
    }
    guards_left_--;
    guard_ = start_guard(setup_.arguments);
    if (real_line_.is_open()) {
        guard_->hold(real_line_.descriptor());
    }
    if (guard_->look()) {
        tell("another lineguard has been started");
    }
}

void Carrier::look_at_takers() {
    for (Taker& taker : setup_.takers) {
        const EntrySender::State state = taker.sender->state();
        if (state != EntrySender::State::taking && !taker.told) {
            taker.told = true;
            tell(state == EntrySender::State::gone ? taker.when_gone : taker.when_behind);
        }
    }
}

// --- the program's line and the real line, opened and closed ---

void Carrier::follow_program_line() {
    const PseudoLine::Look look = program_line_.look();
    if (!look.is_open && !program_hung_up_) {
        hung_up_us_ = now_us();
    }
    program_hung_up_ = !look.is_open;
    if (state_ == State::closed && (look.is_open || program_line_.has_unread())) {
        opened();  // perhaps it has written, and closed again since
    } else if (state_ == State::closing && look.is_open) {
        reopened_ = true;
    } else if (has_program() && look.was_left) {
        // It was opened again before its closing was seen: what was written goes out before that.
        carry_to_vehicle();
        closed();
    }
}

void Carrier::opened() {
    record_event(EntryKind::open);
    state_ = State::open;
    program_is_at_end_ = false;
    restored_us_ = 0;
    sent_ = 0;
    applied_.reset();
    wanted_.reset();
    recorded_settings_.reset();
    const int reason = real_line_.open();
    if (reason != 0) {
        lose_line(setup_.device + " cannot be opened", reason);
        return;
    }
    guard_->hold(real_line_.descriptor());
    at_work(true);
}

// What the program has not read is gone when it closes the line.
void Carrier::closed() {
    pass_held();
    stop_program(false);  // the first write of the next opening is to be taken
    record_event(EntryKind::close);
    if (dropped_ > 0) {
        note("bytes not taken by the program " + std::to_string(std::exchange(dropped_, 0)));
    }
    program_is_at_end_ = false;
    reopened_ = false;
    to_program_.clear();
    wanted_ = applied_;
    hung_up_us_ = now_us();
    program_line_.discard_unread();
    look_at_once_ = true;
    found_ = real_line_.is_open() ? found_ : followed(program_line_.attributes());
    state_ = real_line_.is_open() ? State::closing : State::closed;
}

// The real line is closed once it has sent all, and once it is clear that the program has not ended.
void Carrier::finish_closing() {
    const std::uint64_t passed_us = now_us() - hung_up_us_;
    const bool is_over = program_ended_ || finish_;
    if (!is_over && !reopened_ && passed_us < closing_us) {
        return;
    }
    if (is_over) {
        bring_vehicle_to_rest();
    }
    if ((!to_vehicle_.empty() || !real_line_.is_drained()) && passed_us < longest_drain_us) {
        send_backlog();
        return;
    }
    to_vehicle_.clear();
    guard_->release();
    at_work(false);
    real_line_.close(followed(program_line_.attributes()) == found_);
    found_ = followed(program_line_.attributes());
    state_ = State::closed;
    look_at_once_ = true;
}

void Carrier::lose_line(const std::string& what, int reason) {
    guard_->release();
    at_work(false);
    real_line_.close(false);
    held_.clear();
    to_vehicle_.clear();
    to_program_.clear();
    wanted_ = applied_;
    const std::string text = what + ": " + std::strerror(reason);
    note(text);
    if (state_ == State::closing) {
        state_ = State::closed;
        return;
    }
    state_ = State::lost;
    stop_program(true);
    tell(text + "; the program has to close it and open it again");
}

// --- settings ---

// A program that sets the line as it found it is about to close it: what it wrote before goes out with the settings that
// it used, and nothing is changed when it does close it. One that has set nothing yet gets a moment for it.
void Carrier::follow_settings() {
    attributes_ = program_line_.attributes();
    const FollowedSettings now = followed(attributes_);
    const bool is_as_found = now == found_;
    const bool is_first_look = is_as_found && restored_us_ == 0;
    restored_us_ = !is_as_found ? 0 : is_first_look ? now_us() : restored_us_;
    const bool is_soon = now_us() - restored_us_ < settings_look_us;
    const bool may_change = is_as_found && is_soon && (!program_wrote_ || (applied_ && is_first_look));
    if (now == applied_) {
        wanted_ = applied_;
    } else if (!may_change && now != wanted_) {
        wanted_ = now;
        wanted_us_ = now_us();
    }
    if (settings_wait()) {
        apply_settings();
    }
}

void Carrier::apply_settings() {
    const bool is_out = to_vehicle_.empty() && real_line_.is_drained();
    if (!is_out && now_us() - wanted_us_ < longest_drain_us) {
        return;
    }
    real_line_.set(*wanted_);
    applied_ = wanted_;
    const LineSettings settings = settings_of(attributes_);
    if (settings != recorded_settings_) {
        recorded_settings_ = settings;
        for (const Taker& taker : setup_.takers) {
            taker.sender->settings(now_us(), settings);
        }
    }
}

// --- from the program to the vehicle ---

// What a lost line cannot take is taken from the program all the same: it must not be sent later.
bool Carrier::may_take_from_program() const {
    return state_ == State::lost ||
           (state_ == State::open && applied_ && !settings_wait() && to_vehicle_.empty());
}

void Carrier::carry_to_vehicle() {
    if (!has_program()) {
        return;
    }
    send_backlog();
    if (!settings_wait()) {
        pass_held();
    }
    if (!to_vehicle_.empty() && program_hung_up_ && now_us() - hung_up_us_ > longest_drain_us) {
        give_backlog_up();
    }
    if (!may_take_from_program()) {
        follow_flush();
    }
    Piece piece;
    for (int i = 0; i < pieces_at_once && may_take_from_program(); i++) {
        const PseudoLine::Received received = program_line_.read(piece);
        if (received.flushed) {
            real_line_.discard_unsent();
        }
        program_is_at_end_ = received.at_end;
        if (received.count == 0) {
            return;
        }
        held_.add({piece.data(), received.count});
        if (state_ != State::open) {
            held_.clear();
        } else if (!settings_changed_since()) {
            pass_held();
        }
    }
    look_at_once_ = look_at_once_ || may_take_from_program();
}

// Whether the program has set its line between the last look at it and the taking of what is held, which then waits for
// the new settings. What was written before settings are restored goes out with those it was written with.
bool Carrier::settings_changed_since() {
    const FollowedSettings now = followed(program_line_.attributes());
    if (now == applied_ || now == found_) {
        return false;
    }
    follow_settings();
    return settings_wait();
}

void Carrier::pass_held() {
    if (!held_.empty()) {
        pass_to_vehicle(held_.bytes());
        held_.clear();
    }
}

void Carrier::send_backlog() {
    if (to_vehicle_.empty() || !real_line_.is_open()) {
        return;
    }
    const RealLine::Moved moved = real_line_.write(to_vehicle_.bytes());
    note_sent(to_vehicle_.bytes().first(moved.count));
    to_vehicle_.taken(moved.count);
    if (moved.reason != 0) {
        lose_line("the line " + setup_.device + " is lost", moved.reason);
    } else if (to_vehicle_.empty()) {
        stop_program(false);
    }
}

// The program has gone, and its line takes nothing.
void Carrier::give_backlog_up() {
    Piece piece;
    std::size_t count = to_vehicle_.bytes().size();
    to_vehicle_.clear();
    for (PseudoLine::Received received; !received.at_end;) {
        received = program_line_.read(piece);
        count += received.count;
        if (received.count == 0) {
            break;
        }
    }
    real_line_.discard_unsent();
    note("bytes not taken by the line " + std::to_string(count));
}

void Carrier::pass_to_vehicle(std::span<const std::uint8_t> bytes) {
    const RealLine::Moved moved = real_line_.write(bytes);
    note_sent(bytes.first(moved.count));
    if (moved.reason != 0) {
        lose_line("the line " + setup_.device + " is lost", moved.reason);
    } else if (moved.count < bytes.size()) {
        to_vehicle_.add(bytes.subspan(moved.count));
        stop_program(true);
    }
}

void Carrier::note_sent(std::span<const std::uint8_t> bytes) {
    for (const std::uint8_t byte : bytes.last(std::min(bytes.size(), last_sent_.size()))) {
        std::rotate(last_sent_.begin(), last_sent_.begin() + 1, last_sent_.end());
        last_sent_.back() = byte;
    }
    sent_ += bytes.size();
    record(EntryKind::sent, bytes);
}

// A line that is full: the program may throw away what is not sent (tcflush(3)), as its guard does to be heard.
void Carrier::follow_flush() {
    if (state_ == State::open && program_line_.take_flush()) {
        held_.clear();
        to_vehicle_.clear();
        real_line_.discard_unsent();
        note("the program discarded what was not sent");
        stop_program(false);
    }
}

void Carrier::stop_program(bool stop) {
    if (program_stopped_ != stop) {
        program_stopped_ = stop;
        program_line_.stop_program(stop);
        look_at_once_ = true;
    }
}

// --- from the vehicle to the program ---

void Carrier::carry_to_program() {
    if (!to_program_.empty()) {
        to_program_.taken(program_line_.write(to_program_.bytes()));
    }
    Piece piece;
    for (int i = 0; i < pieces_at_once && real_line_.is_open(); i++) {
        const RealLine::Moved moved = real_line_.read(piece);
        const std::span<const std::uint8_t> bytes(piece.data(), moved.count);
        if (moved.count == 0) {
            if (moved.reason != 0) {
                lose_line("the line " + setup_.device + " is lost", moved.reason);
            }
            return;
        }
        if (state_ == State::open) {  // nobody listens to a line that is about to be closed
            pass_to_program(bytes);
            record(EntryKind::received, bytes);
        }
    }
    look_at_once_ = look_at_once_ || real_line_.is_open();
}

void Carrier::pass_to_program(std::span<const std::uint8_t> bytes) {
    const std::size_t taken = to_program_.empty() ? program_line_.write(bytes) : 0;
    const auto left = bytes.subspan(taken);
    dropped_ += left.size() - to_program_.add(left);
}

// --- the end ---

void Carrier::bring_vehicle_to_rest() {
    if (sent_ == 0 || last_sent_ == vehicle::neutral_frame || !real_line_.is_open()) {
        return;
    }
    to_vehicle_.clear();
    const bool is_at_rest = bring_to_rest(real_line_.descriptor());
    if (is_at_rest) {
        note_sent(vehicle::neutral_frame);
    }
    last_sent_ = vehicle::neutral_frame;  // once is enough
    note(is_at_rest ? "neutral frame sent by the recorder" : "the line takes no neutral frame");
}

void Carrier::end() {
    if (orders_open_ && ending_.empty()) {
        pollfd order = {setup_.orders, POLLIN, 0};
        poll(&order, 1, longest_wait_for_orders_ms);
        take_orders();
    }
    if (!ending_.empty()) {
        note(ending_);
    }
    for (const Taker& taker : setup_.takers) {
        taker.sender->end(now_us(), longest_wait_for_room_ms);
    }
}

// --- what is handed over ---

void Carrier::at_work(bool is) {
    if (setup_.at_work != nullptr) {
        *setup_.at_work = is;
    }
}

void Carrier::record(EntryKind kind, std::span<const std::uint8_t> bytes) {
    if (!bytes.empty()) {
        const std::uint64_t time_us = now_us();
        for (const Taker& taker : setup_.takers) {
            taker.sender->bytes(kind, time_us, bytes);
        }
    }
}

void Carrier::record_event(EntryKind kind) {
    const std::uint64_t time_us = now_us();
    for (const Taker& taker : setup_.takers) {
        taker.sender->event(kind, time_us);
    }
}

void Carrier::note(const std::string& text) {
    const std::uint64_t time_us = now_us();
    for (const Taker& taker : setup_.takers) {
        taker.sender->note(time_us, text);
    }
}

}  // namespace vehicle_recorder
