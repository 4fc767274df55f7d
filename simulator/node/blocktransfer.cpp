#include "simulator/node/blocktransfer.h"

#include <algorithm>
#include <utility>

namespace node_simulator {

namespace {

constexpr std::size_t segment_bytes = 7;
constexpr std::uint8_t last_segment_bit = 0x80;

}  // namespace

std::uint16_t block_crc(std::span<const std::uint8_t> data) {
    constexpr unsigned polynomial = 0x1021;
    unsigned crc = 0;
    for (const std::uint8_t byte : data) {
        crc ^= static_cast<unsigned>(byte) << 8;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 0x8000) != 0 ? crc << 1 ^ polynomial : crc << 1;
        }
    }
    return static_cast<std::uint16_t>(crc);
}

void BlockSender::start(Bytes value, unsigned block_size, bool endless) {
    value_ = std::move(value);
    acknowledged_ = 0;
    block_size_ = block_size;
    sent_ = 0;
    last_was_sent_ = false;
    finished_ = false;
    endless_ = endless;
}

// Where the data of a segment of the present sub-block begin.
std::size_t BlockSender::position_of(unsigned segment) const {
    return acknowledged_ + (segment - 1) * segment_bytes;
}

std::optional<std::array<std::uint8_t, 8>> BlockSender::next() {
    if (finished_ || last_was_sent_ || sent_ == block_size_) {
        return std::nullopt;
    }
    ++sent_;
    const std::size_t begin = std::min(position_of(sent_), value_.size());
    const std::size_t count = std::min(segment_bytes, value_.size() - begin);
    last_was_sent_ = begin + count == value_.size() && !endless_;
    std::array<std::uint8_t, 8> segment{};
    segment[0] = static_cast<std::uint8_t>(sent_ | (last_was_sent_ ? last_segment_bit : 0));
    std::copy_n(value_.begin() + static_cast<std::ptrdiff_t>(begin), count, segment.begin() + 1);
    return segment;
}

bool BlockSender::acknowledge(unsigned last_good, unsigned block_size) {
    if (last_good > sent_) {
        return false;
    }
    finished_ = last_was_sent_ && last_good == sent_;
    acknowledged_ = position_of(last_good + 1);
    block_size_ = block_size;
    sent_ = 0;
    last_was_sent_ = false;
    return true;
}

unsigned BlockSender::unused() const {
    if (value_.empty()) {
        return segment_bytes;
    }
    return static_cast<unsigned>((segment_bytes - value_.size() % segment_bytes) % segment_bytes);
}

void BlockReceiver::start(unsigned block_size) {
    value_.clear();
    previous_ = {};
    finished_ = false;
    next_block(block_size);
}

BlockReceiver::Result BlockReceiver::take(std::span<const std::uint8_t, 8> segment) {
    const unsigned number = segment[0] & 0x7FU;
    const bool last = (segment[0] & last_segment_bit) != 0;
    if (number == 0 || number > block_size_) {
        return Result::invalid;
    }
    // In a sub-block of one segment, equal ones may be the data.
    if (block_size_ > 1 && std::equal(segment.begin(), segment.end(), previous_.begin())) {
        return Result::waiting;
    }
    std::copy(segment.begin(), segment.end(), previous_.begin());
    if (number == last_good_ + 1) {
        last_good_ = number;
        finished_ = last;
        value_.insert(value_.end(), segment.begin() + 1, segment.end());
    }
    return number == block_size_ || last ? Result::complete : Result::waiting;
}

void BlockReceiver::next_block(unsigned block_size) {
    block_size_ = block_size;
    last_good_ = 0;
}

Bytes BlockReceiver::finish(unsigned unused) {
    value_.erase(value_.end() - static_cast<std::ptrdiff_t>(std::min<std::size_t>(unused, value_.size())),
                 value_.end());
    return std::exchange(value_, {});
}

}  // namespace node_simulator
