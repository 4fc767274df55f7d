/// @file
/// An SDO server for tests, written from the protocol's description: it serves objects of any length in all three ways,
/// and lies, is late, repeats itself or falls silent wherever a test wants it.

#ifndef TESTS_SUPPORT_SCRIPTEDSDONODE_H
#define TESTS_SUPPORT_SCRIPTEDSDONODE_H

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

/// A node's SDO server. Frames go in by receive() and come out by what it returns.
class ScriptedSdoNode {
public:
    using Bytes = std::vector<std::uint8_t>;
    using Data = std::array<std::uint8_t, 8>;
    using Answers = std::vector<Data>;

    std::map<std::uint32_t, Bytes> objects;  ///< by index << 8 | subindex; a write makes one
    bool knows_blocks = true;                ///< else a block request is refused with `refusal`
    std::uint32_t refusal = 0x05040001;      ///< abort code of a refused block request; 0 is silence
    bool can_crc = true;                     ///< of block transfers
    bool tells_size = true;                  ///< of what it sends
    bool expedites = true;                   ///< objects of up to 4 bytes
    bool switches = true;                    ///< to an ordinary upload, up to the client's threshold
    bool answers_at_gap = false;             ///< confirms at a lost segment, not at the sub-block's end
    unsigned int most_block_size = 127;      ///< refuses a longer one for uploads with 0x05040002
    std::function<unsigned int()> block_size = [] { return 127U; };  ///< of each next download sub-block

    std::set<unsigned int> lost_requests;  ///< which of the client's frames never arrive, from 1
    /// Changes the answers to a frame: told which of all answers comes first in them, from 1.
    std::function<void(unsigned int first, Answers& answers)> tamper;

    unsigned int requests = 0;          ///< frames that came from the client
    unsigned int answered = 0;          ///< frames that were sent, before they were tampered with
    std::vector<std::uint32_t> aborts;  ///< codes of the client's aborts
    Data last_abort{};                  ///< the last of them
    unsigned int writes = 0;            ///< objects written whole
    unsigned int reads = 0;             ///< objects read whole

    /// Takes a frame of the client and answers it.
    Answers receive(const Data& frame);

    /// CRC of a block transfer, bit by bit.
    static std::uint16_t crc(const Bytes& bytes);

    /// Whether no transfer is under way.
    bool is_idle() const { return state_ == State::idle; }

private:
    enum class State {
        idle,
        upload,
        download,
        block_start,
        block_upload,
        block_upload_end,
        block_download,
        block_end
    };

    void answer(Data frame);
    void abort(std::uint32_t code);
    void initiate(const Data& frame);
    void begin_upload(const Data& frame);
    void upload_segment(const Data& frame);
    void download_segment(const Data& frame);
    void send_block();
    void block_confirmed(const Data& frame);
    void block_segment(const Data& frame);
    void confirm_block();
    void block_end(const Data& frame);

    State state_ = State::idle;
    Answers answers_;
    std::uint32_t key_ = 0;
    Bytes data_;
    std::size_t at_ = 0;
    std::int64_t announced_ = -1;
    bool toggle_ = false;
    bool crc_ = false;
    unsigned int size_ = 127;
    unsigned int sequence_ = 0;
    bool last_ = false;
    bool gap_told_ = false;
};

#endif
