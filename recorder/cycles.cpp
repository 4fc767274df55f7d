#include "recorder/cycles.h"

#include <algorithm>
#include <utility>

namespace vehicle_recorder {

namespace {

constexpr std::size_t longest_learning = 512;  // frames that wait for the mark to be learned
constexpr std::size_t most_unmarked = 32;  // replies without the mark in a row: the controller is another one
constexpr std::size_t most_heard = 4096;   // bytes that wait for a reply to be found behind them
constexpr std::size_t longest_wait = 128;  // frames that these bytes wait
constexpr std::size_t farthest_move = 64;  // frames that a heap of replies reaches back
constexpr std::uint64_t same_piece_us = 2000;      // bytes so close to each other were sent at once
constexpr std::uint64_t longest_pause_us = 20000;  // within what was sent by one and the same

// Marked places that a beginning of a reply must have: few where something ends, more in the middle of noise.
constexpr std::size_t places_at_an_edge = 2;
constexpr std::size_t places_in_noise = 4;
// So few bytes show nothing of the mark, or so little that noise looks the same.
constexpr std::size_t doubtful_bytes = 2;

ReplyState state_of(const Reply& reply) {
    if (reply.ahead > 0) {
        return ReplyState::garbled;
    }
    if (reply.is_whole) {
        return ReplyState::whole;
    }
    return reply.bytes.size() < vehicle::reply_bytes ? ReplyState::too_short : ReplyState::garbled;
}

}  // namespace

std::optional<vehicle::Telemetry> Reply::telemetry() const {
    return is_whole ? std::optional(vehicle::telemetry_of(vehicle::slots_of(bytes.data() + ahead)))
                    : std::nullopt;
}

std::optional<std::uint64_t> Cycle::delay_us() const {
    return reply && number > 0 ? std::optional(reply->first_us - time_us) : std::nullopt;
}

CycleBuilder::CycleBuilder(Sink sink) : sink_(std::move(sink)) {}

void CycleBuilder::add(const Entry& entry) {
    observe(entry);
    if (!learning_) {
        process(entry);
        return;
    }
    queue_.push_back(entry);
    queued_ += entry.kind == EntryKind::sent ? 1 : 0;
    if (mark_ || learner_.is_ready() || queued_ >= longest_learning || queue_.size() > 8 * longest_learning) {
        drain();
    }
}

void CycleBuilder::finish() {
    drain();
    end_line();
    give_out_strays(UINT64_MAX);
}

// --- the mark ---

// What comes between two frames, and is as long as a reply, most often is one.
void CycleBuilder::observe(const Entry& entry) {
    switch (entry.kind) {
        case EntryKind::received:
            if (between_frames_.size() <= vehicle::reply_bytes) {
                between_frames_.insert(between_frames_.end(), entry.bytes.begin(), entry.bytes.end());
            }
            return;
        case EntryKind::sent:
            break;
        case EntryKind::open:
        case EntryKind::close:
            between_frames_.clear();
            return;
        default:
            return;
    }
    const std::vector<std::uint8_t> bytes = std::exchange(between_frames_, {});
    if (bytes.size() != vehicle::reply_bytes) {
        return;
    }
    if (mark_) {
        bool is_marked = true;
        for (std::size_t place = 0; place < bytes.size(); place++) {
            is_marked = is_marked && !mark_->contradicts(place, bytes[place]);
        }
        unmarked_ = is_marked ? 0 : unmarked_ + 1;
        if (unmarked_ >= most_unmarked) {
            mark_.reset();
            unmarked_ = 0;
            carried_ = heard_.size();
        }
        return;
    }
    learner_.look_at(bytes);
    if (learner_.is_ready()) {
        mark_ = learner_.mark();
        searched_ = 0;
        if (mark_ || !learning_) {
            learner_.forget();
        }
    }
}

void CycleBuilder::drain() {
    learning_ = false;
    for (const Entry& entry : std::exchange(queue_, {})) {
        process(entry);
    }
}

// --- frames ---

void CycleBuilder::process(const Entry& entry) {
    switch (entry.kind) {
        case EntryKind::sent:
            count_off(entry);
            break;
        case EntryKind::received:
            hear(entry);
            break;
        case EntryKind::open:
        case EntryKind::close:
            end_line();
            break;
        default:
            break;
    }
}

void CycleBuilder::count_off(const Entry& entry) {
    for (const std::uint8_t byte : entry.bytes) {
        part_[part_count_++] = byte;
        if (part_count_ == part_.size()) {
            part_count_ = 0;
            add_frame(entry.time_us);
        }
    }
}

void CycleBuilder::add_frame(std::uint64_t time_us) {
    const bool waits_long = cycles_.size() > longest_wait && !heard_.empty() &&
                            heard_.front().time_us < cycles_[cycles_.size() - longest_wait].time_us;
    if (!mark_) {
        count_replies();
    } else if (waits_long) {
        split_all();
    }
    Cycle cycle;
    cycle.number = ++number_;
    cycle.time_us = time_us;
    cycle.frame = part_;
    cycle.step_lost = !vehicle::is_frame(part_);
    if (last_frame_us_) {
        cycle.since_us = time_us - *last_frame_us_;
    }
    last_frame_us_ = time_us;
    cycles_.push_back(std::move(cycle));
    if (cycles_.size() > window) {
        give_out_first(false);
    }
}

// --- replies in the bytes that came ---

void CycleBuilder::hear(const Entry& entry) {
    for (const std::uint8_t byte : entry.bytes) {
        heard_.push_back({entry.time_us, byte});
    }
    if (mark_) {
        find_replies();
    }
    if (heard_.size() > most_heard) {
        mark_ ? split_all() : count_replies();
    }
}

void CycleBuilder::find_replies() {
    while (heard_.size() >= searched_ + vehicle::reply_bytes) {
        if (!is_marked_reply(searched_)) {
            ++searched_;
            continue;
        }
        const std::size_t begin = searched_;
        const std::size_t end = begin + vehicle::reply_bytes;
        const std::size_t ahead = begin > 0 ? split_ahead(begin) : 0;
        take(begin - ahead, end, ahead, true);
        forget(end);
    }
}

bool CycleBuilder::is_marked_reply(std::size_t begin) const {
    for (std::size_t place = 0; place < vehicle::reply_bytes; place++) {
        if (mark_->contradicts(place, heard_[begin + place].byte)) {
            return false;
        }
    }
    return true;
}

// A reply of which some bytes were changed on the way. One that is short and has others behind it ends wrong.
bool CycleBuilder::nearly_is_reply(std::size_t begin) const {
    std::size_t wrong = 0;
    std::size_t right_at_end = 0;
    for (std::size_t place = 0; place < vehicle::reply_bytes; place++) {
        if (mark_->contradicts(place, heard_[begin + place].byte)) {
            ++wrong;
            right_at_end = 0;
        } else {
            right_at_end += mark_->has(place) ? 1 : 0;
        }
    }
    return 4 * wrong <= mark_->size() && right_at_end >= places_at_an_edge;
}

// How many of the bytes from `begin` on read as the beginning of a reply, and on how many marked places that stands.
CycleBuilder::Beginning CycleBuilder::agreeing(std::size_t begin, std::size_t end) const {
    Beginning found;
    const std::size_t most = std::min(end - begin, vehicle::reply_bytes - 1);
    while (found.length < most && !mark_->contradicts(found.length, heard_[begin + found.length].byte)) {
        found.places += mark_->has(found.length) ? 1 : 0;
        ++found.length;
    }
    return found;
}

// The same, less the value ahead of a wrong byte if that is the first of what follows.
CycleBuilder::Beginning CycleBuilder::beginning(std::size_t begin, std::size_t end) const {
    Beginning found = agreeing(begin, end);
    const std::size_t wrong = begin + found.length;
    if (wrong < end && found.length > 1 && !mark_->has(found.length - 1)) {
        const bool is_apart = !stand_together(wrong - 2, wrong - 1);
        const bool goes_on = stand_together(wrong - 1, wrong);
        if (goes_on && (is_apart || agreeing(wrong - 1, end).places >= places_at_an_edge)) {
            --found.length;
        }
    }
    return found;
}

// Takes the bytes ahead of `end` for short replies, as far as they read as such. Tells where the others begin that stand
// right ahead of `end`.
std::size_t CycleBuilder::split_off_short_replies(std::size_t end) {
    std::size_t noise = 0;  // from here to `place`
    std::size_t place = 0;
    const auto end_noise = [&] { give_noise(noise, place); };
    while (place < end) {
        if (end - place >= vehicle::reply_bytes && nearly_is_reply(place)) {
            end_noise();
            take(place, place + vehicle::reply_bytes, 0, false);
            noise = place += vehicle::reply_bytes;
            continue;
        }
        const Beginning found = beginning(place, end);
        const bool is_at_an_edge = place == noise || !stand_together(place - 1, place);
        if (found.places >= (is_at_an_edge ? places_at_an_edge : places_in_noise)) {
            end_noise();
            take(place, place + found.length, 0, false);
            noise = place += found.length;
        } else {
            ++place;
        }
    }
    return noise;
}

// All that is ahead of a reply which begins at `end`. Tells how many bytes of it are noise that stands together with it.
std::size_t CycleBuilder::split_ahead(std::size_t end) {
    const std::size_t noise = split_off_short_replies(end);
    std::size_t begin = end;
    while (begin > noise && stand_together(begin - 1, begin)) {
        --begin;
    }
    give_noise(noise, begin);
    return end - begin;
}

// All that has come, which nothing will follow.
void CycleBuilder::split_all() {
    const std::size_t noise = split_off_short_replies(heard_.size());
    give_noise(noise, heard_.size());
    forget(heard_.size());
}

// Bytes that read as nothing, those that stand together as one reply. A few of them may be the beginning of one.
void CycleBuilder::give_noise(std::size_t begin, std::size_t end) {
    while (begin < end) {
        std::size_t next = begin + 1;
        while (next < end && stand_together(next - 1, next)) {
            ++next;
        }
        take(begin, next, may_begin_reply(begin, next) ? 0 : next - begin, false);
        begin = next;
    }
}

bool CycleBuilder::may_begin_reply(std::size_t begin, std::size_t end) const {
    bool may = end - begin <= doubtful_bytes;
    for (std::size_t place = 0; may && begin + place < end; place++) {
        may = !mark_->contradicts(place, heard_[begin + place].byte);
    }
    return may;
}

// Whether two neighbours were sent at once, as far as their times tell.
bool CycleBuilder::stand_together(std::size_t first, std::size_t second) const {
    const std::uint64_t begin_us = heard_[first].time_us;
    const std::uint64_t end_us = heard_[second].time_us;
    if (end_us - begin_us < same_piece_us || end_us - begin_us > longest_pause_us) {
        return end_us - begin_us < same_piece_us;
    }
    const auto later =
        std::upper_bound(cycles_.begin(), cycles_.end(), begin_us,
                         [](std::uint64_t time_us, const Cycle& cycle) { return time_us < cycle.time_us; });
    return later == cycles_.end() || later->time_us > end_us;
}

// Without a mark: looks at what came since the last frame, and ahead of it without being a whole reply.
void CycleBuilder::count_replies() {
    if (heard_.empty()) {
        return;
    }
    const bool are_whole = heard_.size() % vehicle::reply_bytes == 0;
    if (!are_whole && carried_ == 0 && heard_.size() <= most_heard) {
        carried_ = heard_.size();  // the rest may come behind the next frame
        return;
    }
    std::size_t begin = 0;
    if (!are_whole) {
        begin = carried_ > 0 ? carried_ : heard_.size();
        take(0, begin, 0, false);
    }
    for (; (heard_.size() - begin) % vehicle::reply_bytes == 0 && begin < heard_.size();
         begin += vehicle::reply_bytes) {
        take(begin, begin + vehicle::reply_bytes, 0, true);
    }
    forget(begin);
    carried_ = heard_.size();
}

void CycleBuilder::take(std::size_t begin, std::size_t end, std::size_t ahead, bool is_whole) {
    Reply reply;
    reply.first_us = heard_[begin].time_us;
    reply.last_us = heard_[end - 1].time_us;
    for (std::size_t i = begin; i < end; i++) {
        reply.bytes.push_back(heard_[i].byte);
    }
    reply.ahead = ahead;
    reply.is_whole = is_whole;
    place(std::move(reply));
}

void CycleBuilder::forget(std::size_t count) {
    heard_.erase(heard_.begin(), heard_.begin() + static_cast<std::ptrdiff_t>(count));
    searched_ = 0;
}

// --- replies to frames ---

void CycleBuilder::place(Reply reply) {
    std::size_t behind = cycles_.size();  // the frames ahead of the reply's first byte end here
    while (behind > 0 && cycles_[behind - 1].time_us > reply.first_us) {
        --behind;
    }
    std::size_t free = behind;  // the last frame that is without a reply
    const std::size_t farthest = behind - std::min(behind, farthest_move);
    while (free > farthest && cycles_[free - 1].reply) {
        --free;
    }
    if (free == farthest) {
        Cycle stray;
        stray.time_us = reply.first_us;
        stray.state = state_of(reply);
        stray.reply = std::move(reply);
        strays_.push_back(std::move(stray));
        return;
    }
    for (; free < behind; free++) {
        cycles_[free - 1].reply = std::move(cycles_[free].reply);
    }
    cycles_[behind - 1].reply = std::move(reply);
}

// How many bytes ahead of a reply may be the beginning of another one, which came at once with it.
std::size_t CycleBuilder::doubtful_beginning(const Reply& reply) const {
    const std::size_t count = std::min(reply.ahead, doubtful_bytes);
    for (std::size_t place = 0; place < count; place++) {
        if (!mark_ || mark_->contradicts(place, reply.bytes[place])) {
            return 0;
        }
    }
    return reply.is_whole ? count : 0;
}

// A heap of replies in which the first frame got none, while another's reply has bytes ahead of it that may be the
// beginning of a reply of its own: then they are.
void CycleBuilder::split_doubtful_reply() {
    for (std::size_t i = 1; i < cycles_.size() && i <= farthest_move && cycles_[i].reply; i++) {
        Reply& reply = *cycles_[i].reply;
        const std::size_t count = i > 1 ? doubtful_beginning(reply) : 0;
        if (count > 0) {
            Reply beginning;
            beginning.first_us = reply.first_us;
            beginning.last_us = reply.first_us;
            const auto end = reply.bytes.begin() + static_cast<std::ptrdiff_t>(count);
            beginning.bytes.assign(reply.bytes.begin(), end);
            reply.bytes.erase(reply.bytes.begin(), end);
            reply.ahead -= count;
            for (std::size_t j = 1; j < i; j++) {
                cycles_[j - 1].reply = std::move(cycles_[j].reply);
            }
            cycles_[i - 1].reply = std::move(beginning);
            return;
        }
        const bool is_in_heap = i + 1 < cycles_.size() && reply.first_us > cycles_[i + 1].time_us;
        if (!is_in_heap) {
            return;
        }
    }
}

// The line was opened or closed: what came belongs to what was sent so far.
void CycleBuilder::end_line() {
    if (mark_) {
        split_all();
    } else {
        count_replies();
        if (!heard_.empty()) {
            take(0, heard_.size(), 0, false);
            forget(heard_.size());
        }
    }
    carried_ = 0;
    std::size_t answered = cycles_.size();
    while (answered > 0 && !cycles_[answered - 1].reply) {
        --answered;
    }
    for (; !cycles_.empty(); answered -= answered > 0 ? 1 : 0) {
        give_out_first(answered == 0);
    }
    part_count_ = 0;
    last_frame_us_.reset();
}

// Gives the first cycle out.
// @param nobody_knows  the line ended behind it without a later reply
void CycleBuilder::give_out_first(bool nobody_knows) {
    if (!cycles_.front().reply && !nobody_knows) {
        split_doubtful_reply();
    }
    Cycle& cycle = cycles_.front();
    if (cycle.reply) {
        cycle.state = state_of(*cycle.reply);
        cycle.late = cycles_.size() > 1 && cycle.reply->last_us > cycles_[1].time_us;
    } else {
        cycle.state = nobody_knows ? ReplyState::closed : ReplyState::missing;
    }
    give_out_strays(cycle.time_us);
    sink_(cycle);
    cycles_.pop_front();
}

void CycleBuilder::give_out_strays(std::uint64_t before_us) {
    while (!strays_.empty() && strays_.front().time_us < before_us) {
        sink_(strays_.front());
        strays_.pop_front();
    }
}

}  // namespace vehicle_recorder
