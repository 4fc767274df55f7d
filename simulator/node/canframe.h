/// @file
/// One CAN frame, and the 16-byte UDP datagram that carries it.
///
/// The datagram holds, little-endian, the identifier (4 bytes), the data length (4 bytes) and always 8 data
/// bytes. It has no room for the remote-request flag: the only remote request that CANopen masters still
/// send, node guarding (identifier 0x700 + node), is told by its data length of 0, which no heartbeat has.

#ifndef SIMULATOR_NODE_CANFRAME_H
#define SIMULATOR_NODE_CANFRAME_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <span>

namespace node_simulator {

/// A moment of the simulator's clock, in microseconds.
using Time = std::uint64_t;

/// A CAN frame with an 11-bit identifier.
struct CanFrame {
    std::uint32_t identifier = 0;        ///< 0 to 0x7FF
    std::uint8_t length = 0;             ///< 0 to 8
    std::array<std::uint8_t, 8> data{};  ///< bytes past the length are 0
    bool remote = false;                 ///< a remote request

    bool operator==(const CanFrame&) const = default;
};

/// A data frame of @p identifier with @p bytes (at most 8).
CanFrame make_frame(std::uint32_t identifier, std::initializer_list<unsigned> bytes);

/// Size of a frame's datagram.
inline constexpr std::size_t datagram_size = 16;

/// The datagram of @p frame.
std::array<std::uint8_t, datagram_size> to_datagram(const CanFrame& frame);

/// The frame in @p datagram; none when it has fewer than 16 bytes or more than 8 data bytes.
std::optional<CanFrame> from_datagram(std::span<const std::uint8_t> datagram);

/// The unsigned number in @p bytes (at most 8), least significant byte first.
std::uint64_t load_le(std::span<const std::uint8_t> bytes);

/// Stores @p value over all of @p bytes, least significant byte first.
void store_le(std::span<std::uint8_t> bytes, std::uint64_t value);

}  // namespace node_simulator

#endif
