// The block transfers of SdoClient (CiA 301, 7.2.4.2.9 to .16).

#include <utility>

#include "nodevik/nodes/sdotransfer.h"
#include "nodevik/util/monotonicclock.h"

using sdo::Frame;

namespace {

// So many sub-blocks in a row without a segment that came through are taken for a line that will never work.
constexpr unsigned int most_barren_blocks = 10;

// A receiver that misses the rest of a sub-block says what it has when this part of the time-out is over.
constexpr std::uint64_t confirm_after_tenths = 7;

// A segment that the driver has not taken is tried again after about the time of a few frames on the bus.
constexpr std::uint64_t retry_ns = 1'000'000;

constexpr std::array<std::uint16_t, 256> make_crc_table() {
    constexpr unsigned int polynomial = 0x1021;
    std::array<std::uint16_t, 256> table{};
    for (unsigned int byte = 0; byte < table.size(); ++byte) {
        unsigned int value = byte << 8;
        for (int bit = 0; bit < 8; ++bit) {
            value = (value & 0x8000) != 0 ? value << 1 ^ polynomial : value << 1;
        }
        table[byte] = static_cast<std::uint16_t>(value);
    }
    return table;
}

constexpr std::array<std::uint16_t, 256> crc_table = make_crc_table();

}  // namespace

std::uint16_t sdo::crc16(std::uint16_t crc, const unsigned char* bytes, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        crc = static_cast<std::uint16_t>(crc << 8 ^ crc_table[(crc >> 8 ^ bytes[i]) & 0xFFU]);
    }
    return crc;
}

void SdoClient::take_block_download_answer(Transfer& t, const unsigned char* frame) {
    t.crc_used = t.options.crc && (frame[0] & sdo::crc_possible) != 0;
    begin_block(t, frame[4]);
}

/// Begins the next sub-block, of the length that the node wants.
void SdoClient::begin_block(Transfer& t, unsigned int size) {
    if (size < 1 || size > sdo::most_segments) {
        refuse(t, sdo::block_size_wrong);
        return;
    }
    t.state = Transfer::State::block_sending;
    t.slow = false;
    t.block_size = size;
    t.sent = 0;
    t.last_passed = false;
    t.deadline = now + t.timeout_ns;
    send_block_segments(t);
}

/// Sends what is left of the sub-block, as far as the pace and the driver allow.
void SdoClient::send_block_segments(Transfer& t) {
    // One byte more than the sub-block holds tells whether its last segment is the last of all.
    if (const std::uint32_t code = t.fill(t.block_size * sdo::segment_bytes + 1); code != 0) {
        refuse(t, code);
        return;
    }
    t.wake = no_deadline;
    const std::uint32_t serial = t.serial;
    unsigned int burst = 0;
    while (t.sent < t.block_size && !t.last_passed) {
        if (pace_frames != 0 && burst == pace_frames) {
            t.wake = now + pace_ns;
            t.deadline = t.wake + t.timeout_ns;  // the pause is not the node's
            return;
        }
        const std::size_t offset = t.sent * sdo::segment_bytes;
        const std::size_t size = std::min(t.count - offset, sdo::segment_bytes);
        const bool is_last = t.source_ended && offset + size == t.count;
        Frame frame{};
        frame[0] = static_cast<unsigned char>((t.sent + 1) | (is_last ? sdo::last_segment : 0U));
        std::copy_n(t.bytes() + offset, size, &frame[1]);
        const bool is_sent = write(t, frame);
        if (t.serial != serial || t.state != Transfer::State::block_sending) {
            return;  // an observer of the segment has cancelled the transfer
        }
        t.stalled = !is_sent;
        if (t.stalled) {
            t.wake = now + retry_ns;
            return;
        }
        t.deadline = now + t.timeout_ns;
        ++t.sent;
        ++burst;
        t.segment_size = static_cast<unsigned int>(size);
        t.last_passed = is_last;
    }
    t.state = Transfer::State::block_confirmation;
}

/// The node tells how many segments have come in order. It may do so while the sub-block is still being sent: then the
/// rest of it would be lost on the node, and is not sent.
void SdoClient::take_block_confirmation(Transfer& t, const unsigned char* frame) {
    const unsigned int confirmed = frame[1];
    const bool is_confirmation = (frame[0] & 0xE3) == 0xA2;
    if (!is_confirmation || confirmed > t.sent) {
        if (judge_wrong(t, frame) == Answer::doubled) {
            ++dropped_frames.doubled;
        } else {
            refuse(t, is_confirmation ? sdo::sequence_wrong : sdo::specifier_wrong);
        }
        return;
    }
    accept(t, frame, Answer::right);
    t.stalled = false;
    const bool is_complete = t.last_passed && confirmed == t.sent;
    const std::size_t bytes = is_complete ? t.count : confirmed * sdo::segment_bytes;
    t.moved += bytes;
    t.consume(bytes);
    t.barren = confirmed == 0 ? t.barren + 1 : 0;
    if (t.barren == most_barren_blocks) {
        refuse(t, sdo::sequence_wrong);
        return;
    }
    if (!report_progress(t)) {
        return;
    }
    if (!is_complete) {
        begin_block(t, frame[2]);
        return;
    }
    t.state = Transfer::State::block_download_end;
    Frame end{};
    end[0] = static_cast<unsigned char>(sdo::end_block_download | (sdo::segment_bytes - t.segment_size) << 2);
    if (t.crc_used) {
        end[1] = static_cast<unsigned char>(t.crc);
        end[2] = static_cast<unsigned char>(t.crc >> 8);
    }
    t.slow = true;
    send(t, end);
}

void SdoClient::take_block_upload_answer(Transfer& t, const unsigned char* frame) {
    t.crc_used = t.options.crc && (frame[0] & sdo::crc_possible) != 0;
    const bool tells_size = (frame[0] & sdo::block_size_told) != 0;
    if (!expect(t, tells_size ? sdo::load_le32(&frame[4]) : sdo_unknown_size)) {
        return;
    }
    t.state = Transfer::State::block_segments;
    t.good = 0;
    t.highest = 0;
    t.slow = false;
    Frame start{};
    start[0] = sdo::start_block_upload;
    send(t, start);
}

/// A segment. What comes behind a lost one is not kept: the node sends it again.
void SdoClient::take_block_segment(Transfer& t, const unsigned char* frame) {
    const unsigned int number = frame[0] & 0x7FU;
    const bool is_last = (frame[0] & sdo::last_segment) != 0;
    const bool is_next = number == t.good + 1 && number <= t.block_size;
    const std::uint64_t confirm_at = now + t.timeout_ns * confirm_after_tenths / 10;
    if (!is_next && (judge_wrong(t, frame) == Answer::doubled || (number != 0 && number <= t.good))) {
        ++dropped_frames.doubled;
        t.wake = std::min(t.wake, confirm_at);  // it may have been the last of a sub-block, sent again
        return;
    }
    if (number == 0 || number > t.block_size) {
        refuse(t, sdo::sequence_wrong);
        return;
    }
    accept(t, frame, Answer::right);  // whether it is kept or not: the same one once more is doubled
    if (is_next) {
        std::copy_n(&frame[1], sdo::segment_bytes, t.buffer.data() + t.count);
        t.count += sdo::segment_bytes;
        t.good = number;
        t.last_passed = is_last;
    } else {
        ++dropped_frames.out_of_order;
    }
    if (is_next || number > t.highest) {
        t.highest = std::max(t.highest, number);
        t.deadline = now + t.timeout_ns;
        t.wake = confirm_at;
    }
    if (is_last || number == t.block_size) {
        confirm_segments(t);
    }
}

/// Delivers the segments that came in order, all but the last of all, whose length is not known yet, and confirms them.
void SdoClient::confirm_segments(Transfer& t) {
    const std::size_t held = t.last_passed ? sdo::segment_bytes : 0;
    const std::size_t ready = t.count - held;
    t.crc = sdo::crc16(t.crc, t.buffer.data(), ready);
    if (!deliver(t, t.buffer.data(), ready)) {
        return;
    }
    std::copy_n(t.buffer.data() + ready, held, t.buffer.data());
    t.count = held;
    t.barren = t.good == 0 ? t.barren + 1 : 0;
    if (t.barren == most_barren_blocks) {
        refuse(t, sdo::sequence_wrong);
        return;
    }
    if (ready != 0 && !report_progress(t)) {
        return;
    }
    Frame frame{};
    frame[0] = sdo::confirm_block_segments;
    frame[1] = static_cast<unsigned char>(t.good);
    frame[2] = static_cast<unsigned char>(t.block_size);
    if (t.last_passed) {
        t.state = Transfer::State::block_upload_end;
    } else {
        t.good = 0;
        t.highest = 0;
    }
    send(t, frame);
}

/// What a frame is while the end of a block is waited for. It may be a segment of the last sub-block once more: by its
/// number the very last one can look like the end.
SdoClient::Answer SdoClient::judge_block_end(const Transfer& t, const unsigned char* frame) const {
    const unsigned int number = frame[0] & 0x7FU;
    const Answer as_segment = judge_wrong(t, frame);
    if (as_segment != Answer::doubled && (frame[0] & 0xE3) == 0xC1) {
        return Answer::right;
    }
    return number != 0 && number <= t.good ? Answer::doubled : as_segment;
}

/// The end of the data: how long the last segment was, and the CRC of all.
void SdoClient::take_block_upload_end(Transfer& t, const unsigned char* frame) {
    if (!accept(t, frame, judge_block_end(t, frame))) {
        return;
    }
    const std::size_t size = sdo::segment_bytes - (frame[0] >> 2 & 7U);
    const std::uint16_t crc = sdo::crc16(t.crc, t.buffer.data(), size);
    if (t.crc_used && crc != static_cast<std::uint16_t>(frame[1] | frame[2] << 8)) {
        refuse(t, sdo::crc_wrong);
        return;
    }
    if (!deliver(t, t.buffer.data(), size)) {
        return;
    }
    if (t.total != sdo_unknown_size && t.moved < t.total) {
        refuse(t, sdo::too_short);
        return;
    }
    if (!report_progress(t)) {
        return;
    }
    t.state = Transfer::State::block_closing;
    Frame end{};
    end[0] = sdo::confirm_block_upload_end;
    send(t, end);
}
