#include "simulator/replyfaults.h"

#include <algorithm>

namespace simulator {

namespace {

using Bytes = std::vector<std::uint8_t>;

// `bytes` in `count` parts as equal as can be, the longer ones first; fewer parts if there are fewer bytes.
std::vector<Bytes> split_evenly(const Bytes& bytes, std::size_t count) {
    std::vector<Bytes> parts;
    std::size_t begin = 0;
    for (std::size_t left = std::min(count, bytes.size()); left > 0; --left) {
        const std::size_t length = (bytes.size() - begin + left - 1) / left;
        const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(begin);
        parts.emplace_back(first, first + static_cast<std::ptrdiff_t>(length));
        begin += length;
    }
    return parts;
}

}  // namespace

std::vector<Piece> ReplyFaults::apply(const ReplyFrame& reply) {
    ++replies_;
    if (replies_ % plan_.every != 0) {
        return {{.after_ms = 0, .bytes = Bytes(reply.begin(), reply.end())}};
    }
    if (plan_.mute) {
        return {};
    }
    Bytes bytes = garbage();
    const std::size_t kept = static_cast<std::size_t>(plan_.cut.value_or(static_cast<int>(reply_length)));
    bytes.insert(bytes.end(), reply.begin(), reply.begin() + static_cast<std::ptrdiff_t>(kept));

    std::vector<Piece> pieces;
    int after_ms = plan_.delay_ms;
    for (Bytes& part : split_evenly(bytes, static_cast<std::size_t>(plan_.split))) {
        pieces.push_back({.after_ms = after_ms, .bytes = std::move(part)});
        after_ms += plan_.split_pause_ms;
    }
    return pieces;
}

std::vector<std::uint8_t> ReplyFaults::garbage() {
    Bytes bytes(static_cast<std::size_t>(plan_.garbage));
    std::generate(bytes.begin(), bytes.end(), [this] { return static_cast<std::uint8_t>(random_() & 0xFF); });
    return bytes;
}

}  // namespace simulator
