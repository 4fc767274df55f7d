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
/// Larger values may travel in blocks, whose segments are not answered one by one (see blocktransfer.h):
///
///     upload:    A4 index sub blksize pst -> C6 index sub size   A3 -> segments   A2 ackseq blksize -> segments ...
///     C1 crc -> A1;  download:  C6 index sub size -> A4 index sub blksize   segments -> A2 ackseq blksize ...
///     C1 crc -> A1
///
/// Either side ends a transfer with 80 index sub and the abort code.

#ifndef SIMULATOR_NODE_SDOSERVER_H
#define SIMULATOR_NODE_SDOSERVER_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "simulator/node/answerfaults.h"
#include "simulator/node/blocktransfer.h"
#include "simulator/node/canframe.h"
#include "simulator/node/nodedictionary.h"

namespace node_simulator {

/// How a server does block transfers.
struct BlockSettings {
    bool supported = true;  ///< false: every request of one is aborted with 0x05040001
    std::vector<std::uint8_t> block_sizes{
        127};  ///< segments of the sub-blocks that it receives, in turn; 1 to 127
};

/// The default SDO server of one node: one transfer at a time, expedited, segmented or in blocks.
class SdoServer {
public:
    /// A client that is silent for this long within a transfer loses it (abort 0x05040000).
    static constexpr Time patience_us = 2'000'000;

    /// After this long without a segment a sub-block of a download is answered with what has come.
    static constexpr Time sub_block_patience_us = 700'000;

    /// @param dictionary  the node's objects; outlives the server
    /// @param node        node number, 1 to 127
    /// @param blocks      how it does block transfers
    /// @param faults      what it does wrong by itself
    SdoServer(NodeDictionary& dictionary, std::uint8_t node, const BlockSettings& blocks = {},
              const FaultSettings& faults = {});

    /// The answer to @p request, a frame on 0x600 + node; none for an abort, for a frame that is not 8 bytes
    /// long, for a segment of a block, and while the server waits for nothing else.
    std::optional<CanFrame> answer(const CanFrame& request, Time now);

    /// What follows the answer: the next segment of a block upload; none when there is none.
    std::optional<CanFrame> more();

    /// What a silent client gets once its time is up at @p now: the answer to a sub-block that stopped in the middle, or
    /// the abort of the transfer.
    std::optional<CanFrame> expire(Time now);

    /// When expire() has something to do; none without a transfer.
    std::optional<Time> deadline() const;

    /// Replaces what it does wrong by itself.
    void set_faults(const FaultSettings& faults) { faults_ = TransferFaults(faults, node_); }

    /// Forgets the running transfer.
    void reset();

private:
    enum class Transfer {
        none,
        upload,
        download,
        block_upload_start,  // waits for the client's word to begin
        block_upload,        // has sent a sub-block, or is about to
        block_upload_end,    // has sent the check sum
        block_download,
        block_download_end  // waits for the check sum
    };

    void address(const CanFrame& request);
    CanFrame response(unsigned command) const;
    CanFrame abort(AbortCode code);
    CanFrame begin_upload();
    CanFrame upload_segment(unsigned command);
    CanFrame begin_download(const CanFrame& request);
    CanFrame download_expedited(const CanFrame& request);
    CanFrame download_segment(const CanFrame& request);
    CanFrame finish_download(unsigned command);

    CanFrame begin_block_upload(const CanFrame& request);
    std::optional<CanFrame> block_upload(const CanFrame& request);
    CanFrame end_block_upload();
    CanFrame begin_block_download(const CanFrame& request);
    std::optional<CanFrame> block_segment(const CanFrame& request, Time now);
    CanFrame answer_sub_block();
    CanFrame end_block_download(const CanFrame& request);
    AbortCode may_begin_download(const CanFrame& request, bool size_is_told);
    std::uint8_t next_block_size();
    CanFrame plain(unsigned command, unsigned first = 0, unsigned second = 0) const;

    NodeDictionary& dictionary_;
    std::uint8_t node_;
    BlockSettings blocks_;
    TransferFaults faults_;
    Transfer transfer_ = Transfer::none;
    std::uint16_t index_ = 0;
    std::uint8_t subindex_ = 0;
    Bytes value_;                                // what is being moved
    std::size_t moved_ = 0;                      // bytes of it that a client has got
    std::optional<std::size_t> announced_size_;  // of a download
    unsigned toggle_ = 0;                        // toggle bit of the next segment, in its place
    bool endless_ = false;                       // an upload that never marks its last segment
    BlockSender sender_;
    BlockReceiver receiver_;
    std::size_t block_turn_ = 0;               // whose turn it is among the block sizes
    bool with_crc_ = false;                    // both sides check the sum
    std::optional<CanFrame> last_segment_;     // of a block download, should it come once more
    std::optional<Time> answer_sub_block_at_;  // of a block download that stopped
    Time last_heard_ = 0;
};

}  // namespace node_simulator

#endif
