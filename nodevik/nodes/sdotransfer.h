/// @file
/// One SDO transfer under way: what SdoClient remembers of it, and the bytes of the protocol. Not for callers.

#ifndef NODEVIK_NODES_SDOTRANSFER_H
#define NODEVIK_NODES_SDOTRANSFER_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "nodevik/nodes/sdoclient.h"
#include "nodevik/util/monotonicclock.h"

/// The protocol in numbers (CiA 301, 7.2.4.3).
namespace sdo {

using Frame = std::array<unsigned char, 8>;

inline constexpr unsigned int request_id = 0x600;
inline constexpr unsigned int answer_id = 0x580;
inline constexpr unsigned int frame_size = 8;

inline constexpr std::size_t segment_bytes = 7;
inline constexpr unsigned int most_segments = 127;
inline constexpr unsigned char last_segment = 0x80;

/// @name Byte 0 of what the client sends
/// @{
inline constexpr unsigned char ask_upload = 0x40;
inline constexpr unsigned char ask_upload_segment = 0x60;
inline constexpr unsigned char ask_download = 0x20;
inline constexpr unsigned char ask_download_expedited = 0x23;
inline constexpr unsigned char ask_block_upload = 0xA0;
inline constexpr unsigned char start_block_upload = 0xA3;
inline constexpr unsigned char confirm_block_segments = 0xA2;
inline constexpr unsigned char confirm_block_upload_end = 0xA1;
inline constexpr unsigned char ask_block_download = 0xC0;
inline constexpr unsigned char end_block_download = 0xC1;
inline constexpr unsigned char abort_transfer = 0x80;
/// @}

/// @name Bits of byte 0
/// @{
inline constexpr unsigned char expedited = 0x02;         ///< of an initiate
inline constexpr unsigned char size_told = 0x01;         ///< of an initiate
inline constexpr unsigned char block_size_told = 0x02;   ///< of a block initiate
inline constexpr unsigned char crc_possible = 0x04;      ///< of a block initiate
inline constexpr unsigned char toggle = 0x10;            ///< of a segment and its answer
inline constexpr unsigned char no_more_segments = 0x01;  ///< of a segment
/// @}

/// @name Abort codes
/// @{
inline constexpr std::uint32_t toggle_wrong = 0x05030000;
inline constexpr std::uint32_t time_over = 0x05040000;
inline constexpr std::uint32_t specifier_wrong = 0x05040001;
inline constexpr std::uint32_t block_size_wrong = 0x05040002;
inline constexpr std::uint32_t sequence_wrong = 0x05040003;
inline constexpr std::uint32_t crc_wrong = 0x05040004;
inline constexpr std::uint32_t no_memory = 0x05040005;
inline constexpr std::uint32_t too_long = 0x06070012;
inline constexpr std::uint32_t too_short = 0x06070013;
inline constexpr std::uint32_t general_error = 0x08000000;
inline constexpr std::uint32_t no_data_from_program = 0x08000020;
/// @}

inline std::uint32_t load_le32(const unsigned char* bytes) {
    return static_cast<std::uint32_t>(bytes[0]) | static_cast<std::uint32_t>(bytes[1]) << 8 |
           static_cast<std::uint32_t>(bytes[2]) << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
}

inline void store_le32(unsigned char* bytes, std::uint32_t value) {
    for (int i = 0; i < 4; ++i) {
        bytes[i] = static_cast<unsigned char>(value >> (8 * i));
    }
}

/// Bytes 1 to 3 of a frame as one number: index and subindex, where the frame names an object.
inline std::uint32_t object_key(const unsigned char* frame) {
    return load_le32(frame) >> 8;
}

/// CRC-16 with the polynomial 0x1021, start 0 (CiA 301, 7.2.4.3.16): that of "123456789" is 0x31C3.
///
/// @param crc    of the bytes before, 0 at the start
/// @param bytes  the bytes that follow
/// @param count  their number
std::uint16_t crc16(std::uint16_t crc, const unsigned char* bytes, std::size_t count);

}  // namespace sdo

/// What an answer is in the state of its transfer.
enum class SdoClient::Answer : unsigned char {
    right,    ///< the one that is waited for
    foreign,  ///< about another object, or late
    doubled,  ///< the last one, once more
    wrong     ///< none that the node may send now
};

/// How far a transfer is. Each one begins with a new value of it.
struct SdoClient::Course {
    bool is_upload = false;
    bool by_blocks = false;
    bool asked_again = false;               ///< by segments, after the node refused blocks
    bool crc_used = false;                  ///< both sides can
    bool toggled = false;                   ///< toggle bit of the segment that is waited for or confirmed
    bool unsent = false;                    ///< the driver has not taken `request`
    bool stalled = false;                   ///< the driver has not taken a segment of the block
    bool known_to_node = false;             ///< a frame of the transfer has been sent
    bool slow = false;                      ///< the longer time-out holds
    bool source_ended = false;              ///< all data that are to be sent are in the buffer or confirmed
    bool last_passed = false;               ///< the segment marked last has been sent, or taken
    SdoOutcome outcome = SdoOutcome::done;  ///< of an abort under way
    std::uint32_t code = 0;                 ///< of an abort under way

    unsigned int block_size = 0;    ///< segments of the sub-block
    unsigned int sent = 0;          ///< segments of the sub-block that were sent
    unsigned int good = 0;          ///< segments of the sub-block that came in order
    unsigned int highest = 0;       ///< highest segment number of the sub-block that came
    unsigned int barren = 0;        ///< sub-blocks in a row that brought nothing
    unsigned int segment_size = 0;  ///< data bytes of the segment sent last
    std::uint16_t crc = 0;

    unsigned char* room = nullptr;        ///< of a read into memory
    const unsigned char* data = nullptr;  ///< of a write from memory
    std::uint64_t room_size = 0;
    SdoSink* sink = nullptr;
    SdoSource* source = nullptr;

    std::uint64_t total = sdo_unknown_size;  ///< all bytes, where somebody told
    std::uint64_t taken = 0;                 ///< bytes got from the source
    std::uint64_t moved = 0;                 ///< bytes delivered or confirmed
    std::size_t front = 0;                   ///< where the data in the buffer begin
    std::size_t count = 0;                   ///< how many there are
};

/// A transfer with one node, or the room for one.
struct SdoClient::Transfer : Course {
    /// What is waited for.
    enum class State : unsigned char {
        idle,
        upload,              ///< the answer to 40
        upload_segments,     ///< a segment
        block_upload,        ///< the answer to A0
        block_segments,      ///< segments of a sub-block
        block_upload_end,    ///< C1
        block_closing,       ///< that the driver takes A1, which ends the transfer
        download,            ///< the answer to 2x
        download_segments,   ///< the confirmation of a segment
        block_download,      ///< the answer to C0
        block_sending,       ///< segments of a sub-block are being sent; a confirmation may stop them
        block_confirmation,  ///< A2
        block_download_end,  ///< A1
        aborting             ///< that the driver takes the abort
    };

    State state = State::idle;
    SdoObject object;
    std::uint32_t key = 0;  ///< index and subindex as object_key() has them
    SdoOptions options;
    SdoCallback callback;

    std::uint64_t deadline = no_deadline;  ///< the answer is late from then on
    std::uint64_t wake = no_deadline;      ///< there is something to do before
    std::uint64_t timeout_ns = 0;
    std::uint64_t slow_timeout_ns = 0;

    /// Data between the program and the bus: what is not confirmed yet, or not delivered yet.
    std::array<unsigned char, sdo::most_segments * sdo::segment_bytes + sdo::segment_bytes> buffer;

    sdo::Frame request{};  ///< the frame that the driver has not taken

    // What stays between two transfers.
    sdo::Frame last_answer{};    ///< the answer taken last
    std::uint32_t late_key = 0;  ///< object of a transfer that ended without the node's answer
    bool late_possible = false;  ///< its answer may still come
    bool refuses_blocks = false;
    std::uint32_t serial = 0;  ///< number of transfers that have ended

    const unsigned char* bytes() const { return buffer.data() + front; }

    /// Gets data from the program until `wanted` bytes are there or they have ended.
    /// @return 0, or the abort code that tells why not
    std::uint32_t fill(std::size_t wanted);

    /// Gets the first data from memory, at most so many bytes.
    void copy_first_data(std::size_t most);

    /// Forgets the first bytes.
    void consume(std::size_t bytes_done) {
        front += bytes_done;
        count -= bytes_done;
    }

    /// When process() has something to do.
    std::uint64_t due() const { return std::min(deadline, wake); }

    /// Begins a frame that names the object.
    sdo::Frame frame_about_object(unsigned char specifier) const {
        sdo::Frame frame{};
        sdo::store_le32(frame.data(), key << 8 | specifier);
        return frame;
    }

private:
    long get(unsigned char* target, std::size_t size);
};

/// Hands a frame to the driver. @return whether it took it
inline bool SdoClient::write(const Transfer& t, sdo::Frame& frame) {
    return driver->write(sdo::request_id + t.object.node, sdo::frame_size, frame.data(), 0) >= 0;
}

/// Acts on what a frame is. @return true for the right answer
inline bool SdoClient::accept(Transfer& t, const unsigned char* frame, Answer answer) {
    if (answer == Answer::right) {
        std::copy_n(frame, t.last_answer.size(), t.last_answer.begin());
        return true;
    }
    reject(t, frame, answer);
    return false;
}

/// Tells the program how far it is. @return false when the transfer has ended meanwhile: the program may cancel it
inline bool SdoClient::report_progress(Transfer& t) {
    return !t.options.progress || tell_progress(t);
}

#endif
