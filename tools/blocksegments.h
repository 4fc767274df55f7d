/// @file
/// The segments of SDO block transfers, told from other SDO frames.
///
/// In a block transfer (CiA 301, 7.2.4.3.9 to 7.2.4.3.15) one side sends up to 127 segments in a row, and the other one
/// confirms them:
///
///     client C6 (write, size)  ->  server A4 (segments in a block)
///     client 01 .. 02 .. 83 .. ->  server A2 (last one that came, segments in the next block)
///     client C1 (end)          ->  server A1
///
/// The first byte of a segment is its number, with bit 7 in the last one of all. It has no command, so that 40 may be
/// segment 64 or a request to read: only who has seen what came before knows.

#ifndef TOOLS_BLOCKSEGMENTS_H
#define TOOLS_BLOCKSEGMENTS_H

#include <array>

#include "tools/framewords.h"

namespace nodevik_tool {

/// Follows the block transfers of all nodes.
class BlockSegments {
public:
    /// Takes a frame, each in the order of the bus. A transfer that had begun before is known from its next confirmation
    /// on, and one that leaves its rules is no longer followed.
    ///
    /// @param kind  of the frame
    /// @return the number of the segment, 1 to 127; 0 when the frame is none
    unsigned int take(const ShownFrame& frame, const FrameKind& kind);

private:
    enum class Sender : unsigned char { nobody, client, server };

    struct Transfer {
        Sender sender = Sender::nobody;  // of segments
        unsigned int next = 1;           // number of the next segment
        unsigned int size = 0;           // segments in the block
        unsigned int last = 0;           // number of the last segment of all, once it was sent
    };

    static void begin(Transfer& transfer, Sender sender, unsigned int size);
    static void follow(Transfer& transfer, Sender from, const ShownFrame& frame);

    static constexpr unsigned int nodes = 128;

    std::array<Transfer, nodes> transfers_{};
};

}  // namespace nodevik_tool

#endif
