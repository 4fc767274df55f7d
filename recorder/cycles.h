/// @file
/// A recording taken apart into cycles: a frame, and the reply that belongs to it.
///
/// Frames are counted off four by four from each opening of the line on, as the vehicle controller does it. A frame
/// whose last byte is no motor command tells that this count has lost its step: it is given out as one that has, and
/// what it seems to ask for is not to be trusted.
///
/// Replies come in the order of their frames, but nothing in them tells which frame they answer. What is said of them:
///
/// | Said      | Meaning                                                                                         |
/// |-----------|-------------------------------------------------------------------------------------------------|
/// | whole     | 39 bytes                                                                                        |
/// | short     | fewer bytes, and the next reply or nothing follows                                              |
/// | garbled   | bytes that belong to no reply stand ahead of it or in it                                        |
/// | missing   | no byte of it came, though the line stayed open and a later frame was answered, or 256 were sent |
/// | closed    | no byte of it came before the line was closed or the recording ended: nobody knows               |
/// | late      | besides: its last byte came when the next frame was out already                                 |
///
/// A reply belongs to the last frame ahead of its first byte, unless more replies came since that frame: then the
/// replies go to the last frames that are without one, in order. So the numbers of missing and late replies hold also
/// where a line that was held up delivers many replies at once; which of the frames in such a heap stayed unanswered
/// cannot be known, and the earliest is taken.
///
/// Where one reply ends and the next begins is found by the mark of the controller's replies (replymark.h). Without
/// such a mark bytes are counted: a multiple of 39 between two frames, or over two such spaces, are whole replies.

#ifndef RECORDER_CYCLES_H
#define RECORDER_CYCLES_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <vector>

#include "recorder/recording.h"
#include "recorder/replymark.h"
#include "vehicle/commandframe.h"
#include "vehicle/telemetry.h"

namespace vehicle_recorder {

/// What became of a reply.
enum class ReplyState {
    whole,      ///< 39 bytes and nothing else
    too_short,  ///< fewer
    garbled,    ///< bytes that belong to no reply ahead of it, or in it
    missing,    ///< not a byte, though the line stayed open
    closed      ///< not a byte before the line was closed or the recording ended
};

/// Bytes that were taken for a reply.
struct Reply {
    std::uint64_t first_us = 0;       ///< when its first byte came, what is ahead of it included
    std::uint64_t last_us = 0;        ///< when its last byte came
    std::vector<std::uint8_t> bytes;  ///< all of them, what is ahead included
    std::size_t ahead = 0;            ///< so many of them belong to no reply
    bool is_whole = false;            ///< behind those stand 39 bytes that read as a reply

    /// What it tells, unless it is not whole.
    std::optional<vehicle::Telemetry> telemetry() const;
};

/// A frame, and what became of its reply; or bytes that answer no frame.
struct Cycle {
    std::uint64_t number = 0;   ///< of the frame in the recording, from 1 on; 0 for bytes that answer none
    std::uint64_t time_us = 0;  ///< when the frame was out; when the first of bytes came that answer none
    vehicle::FrameBytes frame = {};          ///< the frame
    bool step_lost = false;                  ///< its last byte is no motor command
    std::optional<std::uint64_t> since_us;   ///< time since the frame before it in the same opening
    ReplyState state = ReplyState::missing;  ///< of its reply
    bool late = false;                       ///< the reply's last byte came when the next frame was out
    std::optional<Reply> reply;              ///< none when missing or closed

    /// Time from the frame to the reply's first byte; none without a reply or a frame.
    std::optional<std::uint64_t> delay_us() const;
};

/// Makes cycles of entries. Takes as much memory for a shift as for a minute.
class CycleBuilder {
public:
    /// Is given each cycle in the order of the frames, some time after its entries: what becomes of a reply is known by
    /// what comes later.
    using Sink = std::function<void(const Cycle&)>;

    /// How many frames are kept until it is said what became of their replies.
    static constexpr std::size_t window = 256;

    explicit CycleBuilder(Sink sink);

    /// Adds the next entry of a recording.
    void add(const Entry& entry);

    /// Tells that no entry follows: all that is kept is given out.
    void finish();

private:
    struct Heard {
        std::uint64_t time_us;
        std::uint8_t byte;
    };

    struct Beginning {
        std::size_t length = 0;
        std::size_t places = 0;  // of the mark
    };

    void observe(const Entry& entry);
    void drain();
    void process(const Entry& entry);
    void count_off(const Entry& entry);
    void add_frame(std::uint64_t time_us);
    void hear(const Entry& entry);
    void find_replies();
    bool is_marked_reply(std::size_t begin) const;
    bool nearly_is_reply(std::size_t begin) const;
    Beginning agreeing(std::size_t begin, std::size_t end) const;
    Beginning beginning(std::size_t begin, std::size_t end) const;
    std::size_t split_off_short_replies(std::size_t end);
    std::size_t split_ahead(std::size_t end);
    void split_all();
    void give_noise(std::size_t begin, std::size_t end);
    bool may_begin_reply(std::size_t begin, std::size_t end) const;
    bool stand_together(std::size_t first, std::size_t second) const;
    void count_replies();
    void take(std::size_t begin, std::size_t end, std::size_t ahead, bool is_whole);
    void forget(std::size_t count);
    void place(Reply reply);
    std::size_t doubtful_beginning(const Reply& reply) const;
    void split_doubtful_reply();
    void end_line();
    void give_out_first(bool nobody_knows);
    void give_out_strays(std::uint64_t before_us);

    Sink sink_;
    ReplyMarkLearner learner_;
    std::optional<ReplyMark> mark_;
    std::vector<std::uint8_t> between_frames_;  // for the learner
    std::size_t unmarked_ = 0;                  // replies in a row without the mark
    std::vector<Entry> queue_;                  // while the mark is learned
    std::size_t queued_ = 0;
    bool learning_ = true;

    vehicle::FrameBytes part_ = {};
    std::size_t part_count_ = 0;
    std::uint64_t number_ = 0;
    std::optional<std::uint64_t> last_frame_us_;

    std::vector<Heard> heard_;  // not yet part of a reply
    std::size_t searched_ = 0;  // no reply begins ahead of this one
    std::size_t carried_ = 0;   // of these came ahead of the last frame

    std::deque<Cycle> cycles_;
    std::deque<Cycle> strays_;
};

}  // namespace vehicle_recorder

#endif
