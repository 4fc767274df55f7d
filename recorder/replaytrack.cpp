#include "recorder/replaytrack.h"

#include <algorithm>

#include "vehicle/commandframe.h"

namespace vehicle_recorder {

namespace {

constexpr std::uint64_t pause_ahead_of_frame_us = 10'000;  // between the program's read and its frame

}  // namespace

void ReplayTrack::add(const Entry& entry) {
    last_us_ = entry.time_us;
    switch (entry.kind) {
        case EntryKind::sent:
            part_ += entry.bytes.size();
            for (; part_ >= vehicle::frame_bytes; part_ -= vehicle::frame_bytes) {
                add_frame(entry.time_us);
            }
            break;
        case EntryKind::received:
            pieces_.push_back({entry.time_us, bytes_.size()});
            bytes_.insert(bytes_.end(), entry.bytes.begin(), entry.bytes.end());
            break;
        case EntryKind::open:
        case EntryKind::close:
            end_line(entry.time_us);
            break;
        default:
            break;
    }
}

void ReplayTrack::finish() {
    end_line(last_us_);
}

std::span<const std::uint8_t> ReplayTrack::read_after(std::uint64_t time_us) const {
    const auto later =
        std::upper_bound(frames_.begin(), frames_.end(), time_us,
                         [](std::uint64_t time, const Frame& frame) { return time < frame.time_us; });
    if (later == frames_.begin()) {
        return {};
    }
    const Frame& frame = *(later - 1);
    if (time_us >= frame.until_us) {
        return {};
    }
    return std::span(bytes_).subspan(frame.begin, frame.end - frame.begin);
}

// The program read what had come up to a moment ahead of its frame. The rest is for the next read.
void ReplayTrack::add_frame(std::uint64_t time_us) {
    const std::uint64_t read_us = time_us - std::min(time_us, pause_ahead_of_frame_us);
    auto unread = std::find_if(pieces_.begin(), pieces_.end(),
                               [read_us](const Piece& piece) { return piece.time_us > read_us; });
    Frame frame;
    frame.time_us = time_us;
    frame.begin = frame.end = unread == pieces_.end() ? bytes_.size() : unread->begin;
    if (!is_closed_) {
        frames_.back().until_us = time_us;
        frames_.back().end = frame.begin;
    }
    pieces_.erase(pieces_.begin(), unread);
    frames_.push_back(frame);
    is_closed_ = false;
}

void ReplayTrack::end_line(std::uint64_t time_us) {
    if (!is_closed_) {
        frames_.back().until_us = time_us;
        frames_.back().end = bytes_.size();
    }
    pieces_.clear();
    part_ = 0;
    is_closed_ = true;
}

std::uint64_t ReplayClock::position_us(std::uint64_t now_us) const {
    if (!since_us_) {
        return at_us_;
    }
    const double passed_us = static_cast<double>(now_us - *since_us_) * speed_;
    const double left_us = static_cast<double>(end_us_ - at_us_);
    return passed_us >= left_us ? end_us_ : at_us_ + static_cast<std::uint64_t>(passed_us);
}

void ReplayClock::run(std::uint64_t now_us) {
    if (!since_us_) {
        since_us_ = now_us;
    }
}

void ReplayClock::pause(std::uint64_t now_us) {
    at_us_ = position_us(now_us);
    since_us_.reset();
}

void ReplayClock::seek(std::uint64_t now_us, std::int64_t by_us) {
    hold(now_us);
    const auto distance = static_cast<std::uint64_t>(by_us < 0 ? -by_us : by_us);
    at_us_ = by_us < 0 ? at_us_ - std::min(distance, at_us_ - begin_us_)
                       : at_us_ + std::min(distance, end_us_ - at_us_);
}

void ReplayClock::set_speed(std::uint64_t now_us, double speed) {
    hold(now_us);
    speed_ = std::clamp(speed, slowest, fastest);
}

// Goes on from where it is, whatever changes now.
void ReplayClock::hold(std::uint64_t now_us) {
    at_us_ = position_us(now_us);
    if (since_us_) {
        since_us_ = now_us;
    }
}

}  // namespace vehicle_recorder
