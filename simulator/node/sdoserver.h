/// @file
/// The server side of SDO transfers (CiA 301, 7.2.4.3): a client reads and writes a node's objects.
///
/// A request is 8 bytes on 0x600 + node, its answer 8 bytes on 0x580 + node; the upper three bits of byte 0
/// say what it is. Values of up to four bytes travel in the first exchange (expedited); longer ones follow in
/// segments of up to seven bytes, each asked for or confirmed, with a toggle bit that alternates from 0:
///
///     upload:    40 index sub -> 41 index sub size   60 -> 00 data   70 -> 10 data   ...  last one with bit
///     0 download:  21 index sub size -> 60 index sub   00 data -> 20   10 data -> 30   ...  last one with
///     bit 0
///
/// Either side ends a transfer with 80 index sub and the abort code.

#ifndef SIMULATOR_NODE_SDOSERVER_H
#define SIMULATOR_NODE_SDOSERVER_H

#include <cstddef>
#include <cstdint>
#include <optional>

#include "simulator/node/canframe.h"
#include "simulator/node/nodedictionary.h"

namespace node_simulator {

/// The default SDO server of one node: one transfer at a time, expedited and segmented, no block transfers.
class SdoServer {
public:
    /// A client that is silent for this long within a transfer loses it (abort 0x05040000).
    static constexpr Time patience_us = 2'000'000;

    /// @param dictionary  the node's objects; outlives the server
    /// @param node        node number, 1 to 127
    SdoServer(NodeDictionary& dictionary, std::uint8_t node);

    /// The answer to @p request, a frame on 0x600 + node; none for an abort, for a frame that is not 8 bytes
    /// long, and while the server waits for nothing else.
    std::optional<CanFrame> answer(const CanFrame& request, Time now);

    /// The abort of a transfer whose client fell silent, once its time is up at @p now.
    std::optional<CanFrame> expire(Time now);

    /// When expire() has something to do; none without a transfer.
    std::optional<Time> deadline() const;

    /// Forgets the running transfer.
    void reset();

private:
    enum class Transfer { none, upload, download };

    void address(const CanFrame& request);
    CanFrame response(unsigned command) const;
    CanFrame abort(AbortCode code);
    CanFrame begin_upload();
    CanFrame upload_segment(unsigned command);
    CanFrame begin_download(const CanFrame& request);
    CanFrame download_expedited(const CanFrame& request);
    CanFrame download_segment(const CanFrame& request);
    CanFrame finish_download(unsigned command);

    NodeDictionary& dictionary_;
    std::uint8_t node_;
    Transfer transfer_ = Transfer::none;
    std::uint16_t index_ = 0;
    std::uint8_t subindex_ = 0;
    Bytes value_;                                // what is being moved
    std::size_t moved_ = 0;                      // bytes of it that a client has got
    std::optional<std::size_t> announced_size_;  // of a download
    unsigned toggle_ = 0;                        // toggle bit of the next segment, in its place
    Time last_heard_ = 0;
};

}  // namespace node_simulator

#endif
