/// @file
/// The process that carries the line.
///
/// It holds the far end of the pseudo-terminal that the program takes for its line, and the real line while the program
/// has its end open. It does nothing else: no disk, no terminal, no memory that is allocated for a byte. What passed it
/// hands over through a pipe that it never waits for, and its own messages go through another.
///
///     program == pseudo-terminal == carrier == real line == vehicle
///                                    |   \ line guard: holds the real line too
///                                    |
///                                  pipe: what passed, and when
///
/// The real line is opened and closed when the program opens and closes its end, so that the vehicle sees what it would
/// see without the recorder, modem lines included. Bytes are passed on as they come, in both directions. Speed, stop
/// bits and flow control that the program chooses are set on the real line in order with the bytes: what was written
/// before goes out first.
///
/// | What happens                                | What the carrier does                                            |
/// |---------------------------------------------|------------------------------------------------------------------|
/// | the real line takes nothing                 | keeps a little, then makes the program's writes fail              |
/// | the program throws away what is not sent    | does the same on the real line                                   |
/// | the program does not read                   | keeps a little, then drops what is new, as a line does           |
/// | the real line is lost, or cannot be opened  | tells, and makes the program's writes fail until it has closed   |
/// |                                             | the line and opens it anew                                       |
/// | the program ends with the line open, and    | sends the neutral frame                                          |
/// | the last it sent was not the neutral frame  |                                                                  |
/// | the program ends, others hold its line      | goes on until they close it, or it is told to finish             |
/// | the line guard is killed                    | starts another                                                   |

#ifndef RECORDER_CARRIER_H
#define RECORDER_CARRIER_H

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "lineguard.h"
#include "recorder/entrypipe.h"
#include "recorder/pseudoline.h"
#include "recorder/realline.h"
#include "vehicle/commandframe.h"

namespace vehicle_recorder {

/// What is told to the carrier through its socket, a packet each: the letter, and behind it perhaps a text.
namespace orders {
inline constexpr char program_ended = 'E';  ///< with a text for the recording
inline constexpr char finish = 'F';         ///< end, though somebody may hold the program's line
}  // namespace orders

/// Who gets what passed, and what is told once when it does not take it.
struct Taker {
    EntrySender* sender = nullptr;
    const char* when_gone = "";    ///< nobody reads any more
    const char* when_behind = "";  ///< it is too slow
    bool told = false;
};

/// What a carrier works with.
struct CarrierSetUp {
    std::string device;          ///< path of the real line
    int program = -1;            ///< readable when the program has ended (pidfd_open(2))
    int orders = -1;             ///< socket (SOCK_SEQPACKET) that brings orders; its end changes nothing
    std::uint64_t start_us = 0;  ///< beginning of the recording on CLOCK_MONOTONIC
    std::vector<Taker> takers;   ///< who gets what passed
    std::atomic<bool>* at_work = nullptr;  ///< is true while the real line is open; may be null
    char** arguments = nullptr;            ///< of `main`, for the guard's name; may be null
};

/// Carries the line. One thread, which the whole process belongs to.
class Carrier {
public:
    /// @param line   the program's line; lives longer
    /// @param setup  what to work with
    Carrier(PseudoLine& line, CarrierSetUp setup);

    Carrier(const Carrier&) = delete;
    Carrier& operator=(const Carrier&) = delete;

    /// Carries until the program has ended and nobody holds its line any more.
    void run();

private:
    using Piece = std::array<std::uint8_t, 4096>;

    enum class State {
        closed,   // the program does not have the line open
        open,     // it has, and so has the carrier
        lost,     // it has, but the real line is gone
        closing,  // it has closed it, and the real line is about to be closed
    };

    // Bytes that were not taken yet.
    class Backlog {
    public:
        bool empty() const { return begin_ == end_; }
        std::span<const std::uint8_t> bytes() const { return {piece_.data() + begin_, end_ - begin_}; }
        void clear() { begin_ = end_ = 0; }
        void taken(std::size_t count);
        std::size_t add(std::span<const std::uint8_t> bytes);

    private:
        Piece piece_;
        std::size_t begin_ = 0;
        std::size_t end_ = 0;
    };

    void wait();
    int wait_limit_ms() const;
    void take_orders();
    void look_at_holders();
    void look_at_guard();
    void look_at_takers();

    void follow_program_line();
    void opened();
    void closed();
    void finish_closing();
    void lose_line(const std::string& what, int reason);

    void follow_settings();
    bool settings_wait() const { return wanted_ != applied_; }
    void apply_settings();

    void carry_to_vehicle();
    bool may_take_from_program() const;
    bool settings_changed_since();
    void pass_held();
    void send_backlog();
    void give_backlog_up();
    void pass_to_vehicle(std::span<const std::uint8_t> bytes);
    void note_sent(std::span<const std::uint8_t> bytes);
    void follow_flush();
    void stop_program(bool stop);
    void carry_to_program();
    void pass_to_program(std::span<const std::uint8_t> bytes);

    void bring_vehicle_to_rest();
    void end();

    bool has_program() const { return state_ == State::open || state_ == State::lost; }
    void at_work(bool is);
    std::uint64_t now_us() const { return monotonic_now_us() - setup_.start_us; }
    void record(EntryKind kind, std::span<const std::uint8_t> bytes);
    void record_event(EntryKind kind);
    void note(const std::string& text);

    PseudoLine& program_line_;
    CarrierSetUp setup_;
    RealLine real_line_;
    std::unique_ptr<LineGuard> guard_;

    int guards_left_;

    State state_ = State::closed;
    bool program_wrote_ = false;      // or closed its line: there is something to read
    bool program_hung_up_ = false;    // nobody has its line open
    bool program_is_at_end_ = false;  // and all that was written has been read
    bool program_ended_ = false;
    bool reopened_ = false;  // while the real line is still to be closed
    bool finish_ = false;
    bool orders_open_ = true;
    bool look_at_once_ = true;
    bool told_of_holders_ = false;
    std::string ending_;
    std::uint64_t hung_up_us_ = 0;
    std::uint64_t ended_us_ = 0;

    termios attributes_ = {};                  // of the program's line, as last seen
    FollowedSettings found_;                   // when the program opened its line
    std::optional<FollowedSettings> applied_;  // none: the real line has the speed that it was found with
    std::optional<FollowedSettings>
        wanted_;  // differs from those while they wait for what is still to be sent
    std::uint64_t wanted_us_ = 0;
    std::uint64_t restored_us_ = 0;  // since then the program's line is set as it was found; 0: it is not
    std::optional<LineSettings> recorded_settings_;

    Backlog held_;  // taken from the program, and waiting for the settings that it made meanwhile
    Backlog to_vehicle_;
    Backlog to_program_;
    bool program_stopped_ = false;
    std::uint64_t dropped_ = 0;  // bytes from the vehicle that the program did not take
    vehicle::FrameBytes last_sent_ = {};
    std::uint64_t sent_ = 0;  // bytes passed to the vehicle since the line was opened
};

}  // namespace vehicle_recorder

#endif
