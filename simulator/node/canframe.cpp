#include "simulator/node/canframe.h"

#include <algorithm>

namespace node_simulator {

namespace {

constexpr std::uint32_t identifier_mask = 0x7FF;

bool is_guarding_request(const CanFrame& frame) {
    return frame.identifier > 0x700 && frame.identifier <= 0x77F && frame.length == 0;
}

}  // namespace

CanFrame make_frame(std::uint32_t identifier, std::initializer_list<unsigned> bytes) {
    CanFrame frame;
    frame.identifier = identifier;
    for (const unsigned byte : bytes) {
        frame.data[frame.length++] = static_cast<std::uint8_t>(byte);
    }
    return frame;
}

std::array<std::uint8_t, datagram_size> to_datagram(const CanFrame& frame) {
    std::array<std::uint8_t, datagram_size> datagram{};
    const std::span<std::uint8_t> bytes(datagram);
    store_le(bytes.subspan(0, 4), frame.identifier);
    store_le(bytes.subspan(4, 4), frame.length);
    std::copy(frame.data.begin(), frame.data.end(), datagram.begin() + 8);
    return datagram;
}

std::optional<CanFrame> from_datagram(std::span<const std::uint8_t> datagram) {
    if (datagram.size() < datagram_size || load_le(datagram.subspan(4, 4)) > 8) {
        return std::nullopt;
    }
    CanFrame frame;
    frame.identifier = static_cast<std::uint32_t>(load_le(datagram.subspan(0, 4))) & identifier_mask;
    frame.length = datagram[4];
    std::copy_n(datagram.begin() + 8, frame.length, frame.data.begin());
    frame.remote = is_guarding_request(frame);
    return frame;
}

std::uint64_t load_le(std::span<const std::uint8_t> bytes) {
    std::uint64_t value = 0;
    for (std::size_t i = bytes.size(); i > 0; --i) {
        value = value << 8 | bytes[i - 1];
    }
    return value;
}

void store_le(std::span<std::uint8_t> bytes, std::uint64_t value) {
    for (std::uint8_t& byte : bytes) {
        byte = static_cast<std::uint8_t>(value);
        value >>= 8;
    }
}

}  // namespace node_simulator
