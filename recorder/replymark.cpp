#include "recorder/replymark.h"

#include <algorithm>

namespace vehicle_recorder {

namespace {

constexpr std::size_t fewest_places = 8;
// A place has a byte of its own when this many of the replies have it: some of what was seen may be no reply.
constexpr std::ptrdiff_t agreeing_replies = 12;

}  // namespace

ReplyMark::ReplyMark(const Bytes& bytes) : bytes_(bytes) {
    const auto known = [](const std::optional<std::uint8_t>& byte) { return byte.has_value(); };
    size_ = static_cast<std::size_t>(std::count_if(bytes_.begin(), bytes_.end(), known));
    is_distinct_ = size_ >= fewest_places;
    constexpr std::size_t last_shift =
        vehicle::reply_bytes - 2;  // beyond it two replies share no marked place
    for (std::size_t shift = 1; shift <= last_shift; shift++) {
        bool differs = false;
        for (std::size_t place = 0; place + shift < bytes_.size(); place++) {
            differs = differs || (bytes_[place] && contradicts(place + shift, *bytes_[place]));
        }
        is_distinct_ = is_distinct_ && differs;
    }
}

void ReplyMarkLearner::look_at(const std::vector<std::uint8_t>& bytes) {
    if (bytes.size() == vehicle::reply_bytes && count_ < replies) {
        std::copy(bytes.begin(), bytes.end(), seen_[count_].begin());
        ++count_;
    }
}

std::optional<ReplyMark> ReplyMarkLearner::mark() const {
    ReplyMark::Bytes bytes;
    for (std::size_t place = 0; place < bytes.size(); place++) {
        if (place % vehicle::slot_bytes == 0) {
            continue;  // a value
        }
        for (const auto& reply : seen_) {
            const std::uint8_t byte = reply[place];
            if (std::count_if(seen_.begin(), seen_.end(), [place, byte](const auto& other) {
                    return other[place] == byte;
                }) >= agreeing_replies) {
                bytes[place] = byte;
            }
        }
    }
    const ReplyMark learned(bytes);
    return is_ready() && learned.is_distinct() ? std::optional(learned) : std::nullopt;
}

}  // namespace vehicle_recorder
