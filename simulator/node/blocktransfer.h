/// @file
/// What an SDO server does with the segments of a block transfer (CiA 301, 7.2.4.3.8 to 7.2.4.3.16).
///
/// The data travel in sub-blocks of up to 127 segments. A segment is the number 1 to 127 in its sub-block, bit 7 set in
/// the very last one of the transfer, and seven bytes; only whole sub-blocks are answered. The receiver's answer
/// (`A2`, the last number that came in unbroken order, the size of the next sub-block) lets the sender go on, or repeat
/// what came after that number, numbered from 1 again.

#ifndef SIMULATOR_NODE_BLOCKTRANSFER_H
#define SIMULATOR_NODE_BLOCKTRANSFER_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "simulator/node/canframe.h"
#include "simulator/node/nodedictionary.h"

namespace node_simulator {

/// Most segments of a sub-block.
inline constexpr unsigned largest_block = 127;

/// The check sum of a block transfer: CRC-16, polynomial 0x1021, begun with 0, not reflected (CiA 301, 7.2.4.3.16).
std::uint16_t block_crc(std::span<const std::uint8_t> data);

/// Cuts a value into the segments of a block upload.
class BlockSender {
public:
    /// Begins with the first sub-block.
    ///
    /// @param value       what is sent
    /// @param block_size  segments of the sub-block, 1 to 127
    /// @param endless     never marks a segment as the last one, and goes on with zeros
    void start(Bytes value, unsigned block_size, bool endless);

    /// The eight bytes of the next segment; none when the sub-block is complete.
    std::optional<std::array<std::uint8_t, 8>> next();

    /// Takes the client's answer to a sub-block and goes on after the segment that it names.
    ///
    /// @param last_good   the last number that came in unbroken order, 0 for none
    /// @param block_size  segments of the next sub-block, 1 to 127
    /// @return            whether so many had been sent
    bool acknowledge(unsigned last_good, unsigned block_size);

    /// Whether every segment has been sent and acknowledged.
    bool finished() const { return finished_; }

    /// Bytes of the last segment that hold no data, 0 to 7.
    unsigned unused() const;

    /// The check sum of the value.
    std::uint16_t crc() const { return block_crc(value_); }

private:
    std::size_t position_of(unsigned segment) const;

    Bytes value_;
    std::size_t acknowledged_ = 0;  // bytes that have arrived
    unsigned block_size_ = 0;
    unsigned sent_ = 0;           // segments of the present sub-block
    bool last_was_sent_ = false;  // the last segment of the transfer is among them
    bool finished_ = false;
    bool endless_ = false;
};

/// Collects the segments of a block download.
class BlockReceiver {
public:
    /// Begins with the first sub-block. @param block_size its segments, 1 to 127
    void start(unsigned block_size);

    /// What becomes of a segment.
    enum class Result {
        waiting,   ///< the sub-block goes on
        complete,  ///< the sub-block has come to its end and wants its answer
        invalid    ///< no such number in this sub-block
    };

    /// Takes a segment: kept if its number is the next one, else passed over, as is one that comes twice.
    Result take(std::span<const std::uint8_t, 8> segment);

    /// The last number that came in unbroken order.
    unsigned last_good() const { return last_good_; }

    /// Whether the last segment of the transfer has come.
    bool finished() const { return finished_; }

    /// Begins the next sub-block. @param block_size its segments, 1 to 127
    void next_block(unsigned block_size);

    /// Bytes so far, the padding of the last segment among them.
    std::size_t size() const { return value_.size(); }

    /// The value. @param unused bytes of the last segment that hold no data, 0 to 7
    Bytes finish(unsigned unused);

private:
    Bytes value_;
    std::array<std::uint8_t, 8> previous_{};  // the segment before
    unsigned block_size_ = 0;
    unsigned last_good_ = 0;
    bool finished_ = false;
};

}  // namespace node_simulator

#endif
