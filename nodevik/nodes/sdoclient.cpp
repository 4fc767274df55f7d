#include "nodevik/nodes/sdoclient.h"

#include <utility>

#include "nodevik/arch.h"
#include "nodevik/codetexts.h"
#include "nodevik/nodes/buswait.h"
#include "nodevik/nodes/sdotransfer.h"
#include "nodevik/util/assertion.h"
#include "nodevik/util/monotonicclock.h"

using sdo::Frame;

namespace {

constexpr unsigned int highest_node = 127;
constexpr std::uint64_t nanoseconds_per_millisecond = 1'000'000;

// A frame that the driver has not taken is tried again after about the time of a few frames on the bus.
constexpr std::uint64_t retry_ns = nanoseconds_per_millisecond;

// What does not fit into so many bytes is worth the longer beginning and end of a block transfer.
constexpr std::uint64_t most_bytes_by_segments = 112;

// So often the waiting calls read the bus before they wait for it.
constexpr int looks_before_waiting = 20;

constexpr std::uint64_t largest_told_size = UINT32_MAX;

// Whether an abort says that the object is the trouble, and not the kind of transfer.
bool is_about_object(std::uint32_t code) {
    constexpr std::uint32_t no_object = 0x0602;
    constexpr std::uint32_t no_subindex = 0x06090011;
    constexpr std::uint32_t write_only = 0x06010001;
    constexpr std::uint32_t read_only = 0x06010002;
    return code >> 16 == no_object || code == no_subindex || code == write_only || code == read_only;
}

}  // namespace

const char* SdoResult::words() const {
    switch (outcome) {
        case SdoOutcome::done:
            return "Done";
        case SdoOutcome::driver_failed:
            return "The driver does not take frames";
        case SdoOutcome::cancelled:
            return "Cancelled";
        case SdoOutcome::timed_out:
            return "The node does not answer";
        case SdoOutcome::aborted_by_node:
        case SdoOutcome::aborted_by_client:
            break;
    }
    const char* text = sdo_abort_text(abort_code);
    return text != nullptr ? text : "Unknown abort code";
}

SdoClient::SdoClient(ObservedDriver& bus)
    : driver(&bus), transfers(std::make_unique<Transfer[]>(highest_node + 1)) {
    const bool is_observing = driver->add_observer(*this) == 0;
    NODEVIK_ASSERT("nodevik/nodes/sdoclient", is_observing);
}

SdoClient::~SdoClient() {
    closing = true;
    for (unsigned int node = 1; node <= highest_node; ++node) {
        cancel(node);
        Transfer& t = transfers[node];
        if (t.state == Transfer::State::aborting) {
            finish(t, t.outcome, t.code);
        }
    }
    driver->remove_observer(*this);
}

int SdoClient::start_read(const SdoObject& object, void* room, std::size_t size, SdoCallback callback,
                          SdoOptions options) {
    Transfer* t = room != nullptr || size == 0 ? begin(object, callback, options) : nullptr;
    if (t == nullptr) {
        return -1;
    }
    t->room = static_cast<unsigned char*>(room);
    t->room_size = size;
    begin_read(*t);
    return 0;
}

int SdoClient::start_read(const SdoObject& object, SdoSink& sink, SdoCallback callback, SdoOptions options) {
    Transfer* t = begin(object, callback, options);
    if (t == nullptr) {
        return -1;
    }
    t->sink = &sink;
    t->room_size = sdo_unknown_size;
    begin_read(*t);
    return 0;
}

int SdoClient::start_write(const SdoObject& object, const void* data, std::size_t size, SdoCallback callback,
                           SdoOptions options) {
    Transfer* t = data != nullptr || size == 0 ? begin(object, callback, options) : nullptr;
    if (t == nullptr) {
        return -1;
    }
    t->data = static_cast<const unsigned char*>(data);
    t->total = size;
    begin_write(*t);
    return 0;
}

int SdoClient::start_write(const SdoObject& object, SdoSource& source, SdoCallback callback,
                           SdoOptions options) {
    Transfer* t = begin(object, callback, options);
    if (t == nullptr) {
        return -1;
    }
    t->source = &source;
    t->total = source.size();
    begin_write(*t);
    return 0;
}

SdoResult SdoClient::read(const SdoObject& object, void* room, std::size_t size, SdoOptions options) {
    SdoResult result;
    bool ended = false;
    const auto keep = [&result, &ended](const SdoResult& end) {
        result = end;
        ended = true;
    };
    return wait(object, start_read(object, room, size, keep, std::move(options)), result, ended);
}

SdoResult SdoClient::read(const SdoObject& object, SdoSink& sink, SdoOptions options) {
    SdoResult result;
    bool ended = false;
    const auto keep = [&result, &ended](const SdoResult& end) {
        result = end;
        ended = true;
    };
    return wait(object, start_read(object, sink, keep, std::move(options)), result, ended);
}

SdoResult SdoClient::write(const SdoObject& object, const void* data, std::size_t size, SdoOptions options) {
    SdoResult result;
    bool ended = false;
    const auto keep = [&result, &ended](const SdoResult& end) {
        result = end;
        ended = true;
    };
    return wait(object, start_write(object, data, size, keep, std::move(options)), result, ended);
}

SdoResult SdoClient::write(const SdoObject& object, SdoSource& source, SdoOptions options) {
    SdoResult result;
    bool ended = false;
    const auto keep = [&result, &ended](const SdoResult& end) {
        result = end;
        ended = true;
    };
    return wait(object, start_write(object, source, keep, std::move(options)), result, ended);
}

void SdoClient::set_reader(std::function<void()> other) {
    reader = std::move(other);
}

void SdoClient::cancel(unsigned int node) {
    if (!busy(node)) {
        return;
    }
    Transfer& t = transfers[node];
    now = monotonic_ns();
    if (t.state == Transfer::State::aborting) {
        finish(t, t.outcome, t.code);
    } else if (t.known_to_node) {
        abort(t, SdoOutcome::cancelled, sdo::general_error);
    } else {
        finish(t, SdoOutcome::cancelled, 0);
    }
}

bool SdoClient::busy(unsigned int node) const {
    return node >= 1 && node <= highest_node && transfers[node].state != Transfer::State::idle;
}

void SdoClient::process(std::uint64_t now_ns) {
    now = now_ns;
    for (unsigned int half = 0; half < active_nodes.size(); ++half) {
        // A copy: transfers end, and others begin, while they are looked after.
        for (std::uint64_t left = active_nodes[half]; left != 0; left &= left - 1) {
            Transfer& t = transfers[half * 64 + static_cast<unsigned int>(__builtin_ctzll(left))];
            if (t.state != Transfer::State::idle && t.due() <= now) {
                look_after(t);
            }
        }
    }
}

std::uint64_t SdoClient::next_deadline() const {
    std::uint64_t first = no_deadline;
    for (unsigned int half = 0; half < active_nodes.size(); ++half) {
        for (std::uint64_t left = active_nodes[half]; left != 0; left &= left - 1) {
            const unsigned int node = half * 64 + static_cast<unsigned int>(__builtin_ctzll(left));
            first = std::min(first, transfers[node].due());
        }
    }
    return first;
}

void SdoClient::set_pace(unsigned int frames, unsigned int pause_us) {
    pace_frames = pause_us != 0 ? std::max(frames, 1U) : 0;
    pace_ns = static_cast<std::uint64_t>(pause_us) * 1000;
}

bool SdoClient::refuses_blocks(unsigned int node) const {
    return node <= highest_node && transfers[node].refuses_blocks;
}

void SdoClient::frame_passed(const ObservedFrame& frame) {
    constexpr unsigned int error_control_id = 0x700;
    if (frame.direction != ObservedFrame::Direction::received || frame.extended || frame.remote ||
        frame.error) {
        return;
    }
    Transfer& t = transfers[frame.identifier & highest_node];
    const unsigned int id = frame.identifier & ~highest_node;
    if (id != sdo::answer_id) {
        if (id == error_control_id && frame.length == 1 && frame.data[0] == 0) {
            t.refuses_blocks = false;  // a boot-up: it may be another device by now
        }
        return;
    }
    if (t.state == Transfer::State::idle) {
        dropped_frames.unexpected += frame.identifier != id ? 1 : 0;  // a node 0 cannot be
    } else if (frame.length != sdo::frame_size) {
        ++dropped_frames.malformed;
    } else {
        now = frame.monotonic_time_ns();
        take(t, frame.data);
    }
}

/// Takes the room of a node for a transfer, if it is free.
inline SdoClient::Transfer* SdoClient::begin(const SdoObject& object, SdoCallback& callback,
                                             SdoOptions& options) {
    if (object.node < 1 || object.node > highest_node || closing) {
        return nullptr;
    }
    Transfer& t = transfers[object.node];
    if (t.state != Transfer::State::idle) {
        return nullptr;
    }
    static_cast<Course&>(t) = Course();
    // Exchanged, not assigned: what stood there is empty, and costs nothing.
    t.callback.swap(callback);
    if (options.progress) {
        t.options.progress.swap(options.progress);
    }
    t.options.mode = options.mode;
    t.options.crc = options.crc;
    t.options.timeout_ms = options.timeout_ms;
    t.options.slow_timeout_ms = options.slow_timeout_ms;
    t.options.block_size = options.block_size;
    t.options.switch_threshold = options.switch_threshold;
    t.object = object;
    t.key = object.index | static_cast<std::uint32_t>(object.subindex) << 16;
    t.timeout_ns = t.options.timeout_ms * nanoseconds_per_millisecond;
    t.slow_timeout_ns = t.options.slow_timeout_ms != 0
                            ? t.options.slow_timeout_ms * nanoseconds_per_millisecond
                            : t.timeout_ns;
    t.block_size = t.options.block_size >= 1 && t.options.block_size <= sdo::most_segments
                       ? t.options.block_size
                       : sdo::most_segments;
    active_nodes[object.node / 64] |= std::uint64_t{1} << object.node % 64;
    ++active_count;
    now = monotonic_ns();
    return &t;
}

inline void SdoClient::begin_read(Transfer& t) {
    t.is_upload = true;
    t.by_blocks =
        t.options.mode == SdoMode::block ||
        (t.options.mode == SdoMode::automatic && t.room_size > most_bytes_by_segments && !t.refuses_blocks);
    send_initiate(t);
}

inline void SdoClient::begin_write(Transfer& t) {
    t.is_upload = false;
    t.by_blocks = t.options.mode == SdoMode::block || (t.options.mode == SdoMode::automatic &&
                                                       t.total > most_bytes_by_segments && !t.refuses_blocks);
    if (t.data != nullptr) {
        t.copy_first_data(copied_bytes);
    } else if (t.total >= 1 && t.total <= 4) {
        // The first frame carries it all.
        if (const std::uint32_t code = t.fill(static_cast<std::size_t>(t.total)); code != 0) {
            // The callback is not called from within the call that starts: the next process() ends it.
            t.state = Transfer::State::aborting;
            t.outcome = SdoOutcome::aborted_by_client;
            t.code = code;
            t.deadline = now;
            t.wake = no_deadline;
            return;
        }
    }
    send_initiate(t);
}

/// Reads the bus until a transfer has ended.
SdoResult SdoClient::wait(const SdoObject& object, int started, const SdoResult& result, const bool& ended) {
    if (started != 0) {
        SdoResult refused;
        refused.object = object;
        return refused;
    }
    while (!ended) {
        // Segments of a block come faster than a program falls asleep and wakes up.
        for (int look = 0; look < looks_before_waiting && !ended; ++look) {
            if (reader) {
                reader();
            } else {
                driver->read_all();
            }
        }
        process(monotonic_ns());
        if (!ended) {
            wait_for_frames(*driver, next_deadline());
        }
    }
    return result;
}

/// Sends the first request.
inline void SdoClient::send_initiate(Transfer& t) {
    using State = Transfer::State;
    Frame frame{};
    const bool tells_size = t.total <= largest_told_size;
    if (t.is_upload && t.by_blocks) {
        t.state = State::block_upload;
        frame = t.frame_about_object(
            static_cast<unsigned char>(sdo::ask_block_upload | (t.options.crc ? sdo::crc_possible : 0)));
        frame[4] = static_cast<unsigned char>(t.block_size);
        frame[5] = static_cast<unsigned char>(std::min(t.options.switch_threshold, 255U));
    } else if (t.is_upload) {
        t.state = State::upload;
        frame = t.frame_about_object(sdo::ask_upload);
    } else if (t.by_blocks) {
        t.state = State::block_download;
        frame = t.frame_about_object(static_cast<unsigned char>(sdo::ask_block_download |
                                                                (t.options.crc ? sdo::crc_possible : 0) |
                                                                (tells_size ? sdo::block_size_told : 0)));
        sdo::store_le32(&frame[4], tells_size ? static_cast<std::uint32_t>(t.total) : 0);
    } else if (t.total >= 1 && t.total <= 4) {
        t.state = State::download;
        t.segment_size = static_cast<unsigned int>(t.total);
        frame = t.frame_about_object(
            static_cast<unsigned char>(sdo::ask_download_expedited | (4 - t.segment_size) << 2));
        std::copy_n(t.bytes(), t.segment_size, &frame[4]);
    } else {
        t.state = State::download;
        t.segment_size = 0;
        frame = t.frame_about_object(
            static_cast<unsigned char>(sdo::ask_download | (tells_size ? sdo::size_told : 0)));
        sdo::store_le32(&frame[4], tells_size ? static_cast<std::uint32_t>(t.total) : 0);
    }
    t.slow = true;
    send(t, frame);
}

void SdoClient::request_segment(Transfer& t) {
    Frame frame{};
    frame[0] = static_cast<unsigned char>(sdo::ask_upload_segment | (t.toggled ? sdo::toggle : 0));
    t.slow = false;
    send(t, frame);
}

void SdoClient::send_segment(Transfer& t) {
    // One byte more than the segment holds tells whether it is the last.
    if (const std::uint32_t code = t.fill(sdo::segment_bytes + 1); code != 0) {
        refuse(t, code);
        return;
    }
    t.segment_size = static_cast<unsigned int>(std::min(t.count, sdo::segment_bytes));
    t.last_passed = t.source_ended && t.count == t.segment_size;
    Frame frame{};
    frame[0] = static_cast<unsigned char>((t.toggled ? sdo::toggle : 0) |
                                          (sdo::segment_bytes - t.segment_size) << 1 |
                                          (t.last_passed ? sdo::no_more_segments : 0));
    std::copy_n(t.bytes(), t.segment_size, &frame[1]);
    t.slow = t.last_passed;
    send(t, frame);
}

/// Sends a frame, or keeps it to be tried again, and begins to wait for the answer.
void SdoClient::send(Transfer& t, const Frame& frame) {
    const std::uint32_t serial = t.serial;
    const Transfer::State state = t.state;
    const bool was_known = std::exchange(t.known_to_node, true);
    Frame sent = frame;
    const bool is_sent = write(t, sent);
    if (t.serial != serial || t.state != state) {
        return;  // an observer of the frame has cancelled the transfer
    }
    t.unsent = !is_sent;
    t.deadline = now + (t.slow ? t.slow_timeout_ns : t.timeout_ns);
    t.wake = t.unsent ? now + retry_ns : no_deadline;
    if (t.unsent) {
        t.request = frame;
        t.known_to_node = was_known;
        return;
    }
    if (t.state == Transfer::State::aborting) {
        finish(t, t.outcome, t.code);
    } else if (t.state == Transfer::State::block_closing) {
        finish(t, SdoOutcome::done, 0);
    }
}

/// Takes a frame of eight bytes from the node of a transfer.
inline void SdoClient::take(Transfer& t, const unsigned char* frame) {
    using State = Transfer::State;
    if (t.state == State::aborting || t.state == State::block_closing || !t.known_to_node) {
        ++dropped_frames.unexpected;
        return;
    }
    if (frame[0] == sdo::abort_transfer) {
        take_abort(t, frame);
        return;
    }
    if (t.unsent || t.deadline == no_deadline) {
        ++dropped_frames.unexpected;
        return;
    }
    switch (t.state) {
        case State::upload:
            if (accept(t, frame, judge_initiate(t, frame))) {
                take_upload_answer(t, frame);
            }
            break;
        case State::download:
            if (accept(t, frame, judge_initiate(t, frame))) {
                take_download_answer(t);
            }
            break;
        case State::block_upload:
            if (accept(t, frame, judge_initiate(t, frame))) {
                constexpr unsigned char upload_answer = 0x40;
                if ((frame[0] & 0xE0) == upload_answer) {
                    t.by_blocks = false;  // the node chose an ordinary transfer
                    take_upload_answer(t, frame);
                } else {
                    take_block_upload_answer(t, frame);
                }
            }
            break;
        case State::block_download:
            if (accept(t, frame, judge_initiate(t, frame))) {
                take_block_download_answer(t, frame);
            }
            break;
        case State::upload_segments:
            if (accept(t, frame, judge_segment(t, frame, 0x00))) {
                take_upload_segment(t, frame);
            }
            break;
        case State::download_segments:
            if (accept(t, frame, judge_segment(t, frame, 0x20))) {
                take_download_confirmation(t);
            }
            break;
        case State::block_segments:
            take_block_segment(t, frame);
            break;
        case State::block_upload_end:
            take_block_upload_end(t, frame);
            break;
        case State::block_sending:
        case State::block_confirmation:
            take_block_confirmation(t, frame);
            break;
        case State::block_download_end:
            if (accept(t, frame, (frame[0] & 0xE3) == 0xA1 ? Answer::right : judge_wrong(t, frame))) {
                finish(t, SdoOutcome::done, 0);
            }
            break;
        case State::idle:
        case State::block_closing:
        case State::aborting:
            break;
    }
}

/// What a frame is while the answer to the first request is waited for. Such an answer names the object.
inline SdoClient::Answer SdoClient::judge_initiate(const Transfer& t, const unsigned char* frame) const {
    using State = Transfer::State;
    if (sdo::object_key(frame) != t.key) {
        return Answer::foreign;
    }
    const unsigned int specifier = frame[0] & 0xE0U;
    bool right = false;
    switch (t.state) {
        case State::upload:
            right = specifier == 0x40;
            break;
        case State::download:
            right = specifier == 0x60;
            break;
        case State::block_upload:
            right = (frame[0] & 0xE1) == 0xC0 || specifier == 0x40;
            break;
        default:
            right = (frame[0] & 0xE3) == 0xA0;
            break;
    }
    if (right) {
        return Answer::right;
    }
    return t.late_possible && t.late_key == t.key ? Answer::foreign : judge_wrong(t, frame);
}

/// What a frame is while a segment, or the confirmation of one, is waited for.
inline SdoClient::Answer SdoClient::judge_segment(const Transfer& t, const unsigned char* frame,
                                                  unsigned char specifier) const {
    if ((frame[0] & 0xE0) == specifier && ((frame[0] & sdo::toggle) != 0) == t.toggled) {
        return Answer::right;
    }
    const bool names_object = (frame[0] & 0xE0) == 0x40 || (frame[0] & 0xE0) == 0x60;
    if (names_object && sdo::object_key(frame) != t.key) {
        return Answer::foreign;
    }
    return judge_wrong(t, frame);
}

SdoClient::Answer SdoClient::judge_wrong(const Transfer& t, const unsigned char* frame) const {
    return std::equal(t.last_answer.begin(), t.last_answer.end(), frame) ? Answer::doubled : Answer::wrong;
}

/// Acts on an answer that is not the right one.
void SdoClient::reject(Transfer& t, const unsigned char* frame, Answer answer) {
    if (answer == Answer::foreign) {
        ++dropped_frames.foreign;
        return;
    }
    if (answer == Answer::doubled) {
        ++dropped_frames.doubled;
        return;
    }
    const bool is_segment = t.state == Transfer::State::upload_segments && (frame[0] & 0xE0) == 0x00;
    const bool is_confirmation = t.state == Transfer::State::download_segments && (frame[0] & 0xE0) == 0x20;
    refuse(t, is_segment || is_confirmation ? sdo::toggle_wrong : sdo::specifier_wrong);
}

/// The node has ended the transfer. What the abort says it is about counts only where the answer to an earlier transfer
/// may still come: nodes name what they please there.
void SdoClient::take_abort(Transfer& t, const unsigned char* frame) {
    using State = Transfer::State;
    const std::uint32_t code = sdo::load_le32(&frame[4]);
    const bool is_first_answer = t.state == State::block_upload || t.state == State::block_download;
    const std::uint32_t key = sdo::object_key(frame);
    const bool refuses_too_late = t.asked_again && code == sdo::specifier_wrong &&
                                  (t.state == State::upload || t.state == State::download);
    if (t.late_possible && key == t.late_key && (key != t.key || refuses_too_late)) {
        t.late_possible = false;
        ++dropped_frames.foreign;
        return;
    }
    if (is_first_answer && !is_about_object(code)) {
        if (t.is_upload && code == sdo::block_size_wrong && t.block_size > 1) {
            t.block_size = (t.block_size + 1) / 2;
            send_initiate(t);
            return;
        }
        if (ask_by_segments(t)) {
            return;
        }
    }
    finish(t, SdoOutcome::aborted_by_node, code);
}

inline void SdoClient::take_upload_answer(Transfer& t, const unsigned char* frame) {
    t.refuses_blocks = t.refuses_blocks || t.asked_again;
    if ((frame[0] & sdo::expedited) != 0) {
        const bool tells_size = (frame[0] & sdo::size_told) != 0;
        // Without a size the type decides how many of the four bytes count: whoever gave room knows it.
        const std::size_t size = tells_size          ? 4 - (frame[0] >> 2 & 3U)
                                 : t.sink != nullptr ? 4
                                                     : std::clamp<std::uint64_t>(t.room_size, 1, 4);
        if (t.sink == nullptr && size <= t.room_size) {
            // What most programs do most of the time: a number that fits into its room.
            t.total = size;
            t.moved = size;
            for (std::size_t i = 0; i < size; ++i) {
                t.room[i] = frame[4 + i];
            }
        } else if (!expect(t, size) || !deliver(t, &frame[4], size)) {
            return;
        }
        if (report_progress(t)) {
            finish(t, SdoOutcome::done, 0);
        }
        return;
    }
    if (expect(t, (frame[0] & sdo::size_told) != 0 ? sdo::load_le32(&frame[4]) : sdo_unknown_size)) {
        t.state = Transfer::State::upload_segments;
        t.toggled = false;
        request_segment(t);
    }
}

inline void SdoClient::take_upload_segment(Transfer& t, const unsigned char* frame) {
    const std::size_t size = sdo::segment_bytes - (frame[0] >> 1 & 7U);
    const bool is_last = (frame[0] & sdo::no_more_segments) != 0;
    if (size == 0 && !is_last) {
        refuse(t, sdo::specifier_wrong);  // it could go on like that for ever
        return;
    }
    if (!deliver(t, &frame[1], size)) {
        return;
    }
    if (is_last && t.total != sdo_unknown_size && t.moved < t.total) {
        refuse(t, sdo::too_short);
        return;
    }
    if (!report_progress(t)) {
        return;
    }
    if (is_last) {
        finish(t, SdoOutcome::done, 0);
        return;
    }
    t.toggled = !t.toggled;
    request_segment(t);
}

inline void SdoClient::take_download_answer(Transfer& t) {
    t.refuses_blocks = t.refuses_blocks || t.asked_again;
    if (t.segment_size != 0) {
        t.moved = t.segment_size;
        if (report_progress(t)) {
            finish(t, SdoOutcome::done, 0);
        }
        return;
    }
    t.state = Transfer::State::download_segments;
    t.toggled = false;
    send_segment(t);
}

inline void SdoClient::take_download_confirmation(Transfer& t) {
    t.moved += t.segment_size;
    t.consume(t.segment_size);
    if (!report_progress(t)) {
        return;
    }
    if (t.last_passed) {
        finish(t, SdoOutcome::done, 0);
        return;
    }
    t.toggled = !t.toggled;
    send_segment(t);
}

/// The node has told how long the object is.
bool SdoClient::expect(Transfer& t, std::uint64_t size) {
    t.total = size;
    const bool fits = size == sdo_unknown_size || size <= t.room_size;
    if (!fits || (t.sink != nullptr && !t.sink->begin(size))) {
        refuse(t, sdo::no_memory);
        return false;
    }
    return true;
}

/// Hands data to the program.
bool SdoClient::deliver(Transfer& t, const unsigned char* bytes, std::size_t count) {
    if (count == 0) {
        return true;
    }
    if (t.total != sdo_unknown_size && count > t.total - t.moved) {
        refuse(t, sdo::too_long);
        return false;
    }
    if (t.sink != nullptr) {
        if (!t.sink->write(bytes, count)) {
            refuse(t, sdo::no_memory);
            return false;
        }
    } else {
        if (count > t.room_size - t.moved) {
            refuse(t, sdo::no_memory);
            return false;
        }
        std::copy_n(bytes, count, t.room + t.moved);
    }
    t.moved += count;
    return true;
}

/// Calls the program, which may cancel the transfer.
bool SdoClient::tell_progress(Transfer& t) {
    const std::uint32_t serial = t.serial;
    // Not where the next transfer would put its own while this one is running.
    auto progress = std::move(t.options.progress);
    // It may read the bus and take its time: there is nothing that the node is to answer meanwhile.
    t.deadline = no_deadline;
    t.wake = no_deadline;
    progress(t.moved, t.total);
    if (t.serial != serial) {
        return false;
    }
    now = monotonic_ns();
    t.options.progress = std::move(progress);
    return t.state != Transfer::State::aborting;
}

/// Begins again without blocks, once, after the node has refused them. @return whether it does
bool SdoClient::ask_by_segments(Transfer& t) {
    if (!t.by_blocks || t.asked_again) {
        return false;
    }
    t.asked_again = true;
    t.by_blocks = false;
    send_initiate(t);
    return true;
}

/// Ends a transfer with an abort to the node, which is tried until the time-out.
void SdoClient::abort(Transfer& t, SdoOutcome outcome, std::uint32_t code) {
    t.state = Transfer::State::aborting;
    t.outcome = outcome;
    t.code = code;
    t.slow = false;
    Frame frame = t.frame_about_object(sdo::abort_transfer);
    sdo::store_le32(&frame[4], code);
    send(t, frame);
}

/// Frees the room of a transfer, then tells its end.
void SdoClient::finish(Transfer& t, SdoOutcome outcome, std::uint32_t code) {
    SdoResult result;
    result.outcome = outcome;
    result.object = t.object;
    result.abort_code = code;
    result.bytes = t.moved;
    result.by_blocks = t.by_blocks;
    const bool is_answered = outcome == SdoOutcome::done || outcome == SdoOutcome::aborted_by_node ||
                             outcome == SdoOutcome::aborted_by_client;
    t.late_possible = !is_answered && t.known_to_node;
    t.late_key = t.key;
    t.state = Transfer::State::idle;
    ++t.serial;
    active_nodes[t.object.node / 64] &= ~(std::uint64_t{1} << t.object.node % 64);
    --active_count;
    if (t.options.progress) {
        t.options.progress = nullptr;
    }
    const SdoCallback callback = std::move(t.callback);
    if (callback) {
        callback(result);
    }
}

/// Does what the time has brought.
void SdoClient::look_after(Transfer& t) {
    using State = Transfer::State;
    if (t.deadline <= now) {
        time_out(t);
    } else if (t.unsent) {
        const std::uint64_t deadline = t.deadline;
        const std::uint32_t serial = t.serial;
        send(t, Frame(t.request));
        if (t.serial == serial && t.unsent) {
            t.deadline = deadline;  // trying does not make it longer
        }
    } else if (t.state == State::block_sending) {
        send_block_segments(t);
    } else if (t.state == State::block_segments) {
        confirm_segments(t);
    }
}

/// Ends a transfer whose time is over.
void SdoClient::time_out(Transfer& t) {
    using State = Transfer::State;
    Frame frame = t.frame_about_object(sdo::abort_transfer);
    sdo::store_le32(&frame[4], sdo::time_over);
    if (t.state == State::aborting) {
        finish(t, t.outcome, t.code);
    } else if (t.unsent || t.stalled) {
        const std::uint32_t serial = t.serial;
        const bool told = t.known_to_node && write(t, frame);
        if (t.serial == serial) {
            finish(t, SdoOutcome::driver_failed, told ? sdo::time_over : 0);
        }
    } else if ((t.state == State::block_upload || t.state == State::block_download) && !t.asked_again) {
        // Some nodes say nothing to what they do not know. The abort makes sure that they wait for a request.
        const std::uint32_t serial = t.serial;
        write(t, frame);
        if (t.serial == serial && t.state != State::aborting) {
            t.late_possible = true;
            t.late_key = t.key;
            ask_by_segments(t);
        }
    } else {
        abort(t, SdoOutcome::timed_out, sdo::time_over);
    }
}

/// Some bytes from the program.
long SdoClient::Transfer::get(unsigned char* target, std::size_t size) {
    if (source != nullptr) {
        const long got = source->read(target, size);
        return got > static_cast<long>(size) ? -1 : got;
    }
    std::copy_n(data + taken, size, target);
    return static_cast<long>(size);
}

/// The beginning of what is written from memory.
void SdoClient::Transfer::copy_first_data(std::size_t most) {
    count = static_cast<std::size_t>(std::min<std::uint64_t>(total, most));
    std::copy_n(data, count, buffer.begin());
    taken = count;
    source_ended = taken == total;
    if (by_blocks) {
        crc = sdo::crc16(crc, buffer.data(), count);
    }
}

std::uint32_t SdoClient::Transfer::fill(std::size_t wanted) {
    if (front + wanted > buffer.size()) {
        std::copy_n(bytes(), count, buffer.begin());
        front = 0;
    }
    source_ended = source_ended || taken == total;
    while (count < wanted && !source_ended) {
        const std::size_t space = buffer.size() - front - count;
        unsigned char* const target = buffer.data() + front + count;
        const long got = get(target, static_cast<std::size_t>(std::min<std::uint64_t>(space, total - taken)));
        if (got < 0) {
            return sdo::no_data_from_program;
        }
        const auto bytes_got = static_cast<std::size_t>(got);
        if (by_blocks) {
            crc = sdo::crc16(crc, target, bytes_got);
        }
        count += bytes_got;
        taken += bytes_got;
        source_ended = bytes_got == 0 || taken == total;
        if (bytes_got == 0 && total != sdo_unknown_size) {
            return sdo::too_short;
        }
    }
    return 0;
}
