// The command `replay`: the vehicle's side of a recording, played to a program.

#include <poll.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <array>
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "program/failure.h"
#include "recorder/commandoptions.h"
#include "recorder/commands.h"
#include "recorder/heldsignals.h"
#include "recorder/programstart.h"
#include "recorder/pseudoline.h"
#include "recorder/readthrough.h"
#include "recorder/replaytrack.h"
#include "recorder/texts.h"
#include "vehicle/commandframe.h"

namespace vehicle_recorder {

namespace {

using program::ExitStatus;
using program::Failure;

constexpr std::int64_t seek_us = 10'000'000;
constexpr int status_period_ms = 100;

constexpr Phrase waits = {"waits for the program to send", "odottaa, että ohjelma lähettää"};
constexpr Phrase pauses = {"paused", "tauolla"};
constexpr Phrase plays = {"playing", "toistaa"};
constexpr Phrase ended = {"at the end", "lopussa"};
constexpr Phrase keys = {"space: pause  left, right: 10 s  up, down: speed",
                         "väli: tauko  vasen, oikea: 10 s  ylös, alas: nopeus"};

struct ReplayOptions {
    std::string file;
    std::uint64_t from_us = 0;
    double speed = 1;
    std::vector<std::string> program;
    LineWay way = LineWay::any;
};

// The keys of the terminal, one by one and without echo, as long as this process is in front there.
class Keys {
public:
    Keys() {
        is_there_ = isatty(STDIN_FILENO) == 1 && tcgetpgrp(STDIN_FILENO) == getpgrp() &&
                    tcgetattr(STDIN_FILENO, &earlier_) == 0;
        if (is_there_) {
            termios single = earlier_;
            single.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
            single.c_cc[VMIN] = 0;
            single.c_cc[VTIME] = 0;
            tcsetattr(STDIN_FILENO, TCSANOW, &single);
        }
    }
    ~Keys() {
        if (is_there_) {
            tcsetattr(STDIN_FILENO, TCSANOW, &earlier_);
        }
    }
    Keys(const Keys&) = delete;
    Keys& operator=(const Keys&) = delete;

    // -1 when there are none.
    int descriptor() const { return is_there_ ? STDIN_FILENO : -1; }

    // What was pressed; an arrow comes as three characters at once.
    std::string pressed() {
        std::array<char, 64> room;
        const ssize_t count = read(STDIN_FILENO, room.data(), room.size());
        if (count <= 0) {
            is_there_ = false;  // hung up
        }
        return {room.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))};
    }

private:
    bool is_there_ = false;
    termios earlier_ = {};
};

// "0:12.3": minutes, or hours and minutes, and seconds.
std::string clock_text(std::uint64_t time_us) {
    const std::uint64_t tenths = time_us / 100'000;
    const std::uint64_t minutes = tenths / 600;
    std::array<char, 48> room;
    if (minutes >= 60) {
        std::snprintf(
            room.data(), room.size(), "%llu:%02llu:%02llu", static_cast<unsigned long long>(minutes / 60),
            static_cast<unsigned long long>(minutes % 60), static_cast<unsigned long long>(tenths / 10 % 60));
    } else {
        std::snprintf(room.data(), room.size(), "%llu:%02llu.%llu", static_cast<unsigned long long>(minutes),
                      static_cast<unsigned long long>(tenths / 10 % 60),
                      static_cast<unsigned long long>(tenths % 10));
    }
    return room.data();
}

// How many characters a line of the terminal behind standard error may have without being broken.
std::size_t terminal_width() {
    constexpr std::size_t usual = 80;
    winsize size = {};
    const bool is_known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return (is_known ? size.ws_col : usual) - 1;
}

// The first `most` characters of a UTF-8 text.
std::string beginning_of(const std::string& text, std::size_t most) {
    std::size_t end = 0;
    for (std::size_t characters = 0; end < text.size(); end++) {
        const bool begins_one = (static_cast<unsigned char>(text[end]) & 0xC0) != 0x80;
        if (begins_one && characters++ == most) {
            break;
        }
    }
    return text.substr(0, end);
}

class Replay {
public:
    Replay(const ReplayOptions& options, const ReplayTrack& track)
        : options_(options),
          track_(track),
          clock_(track.begin_us(), track.end_us()),
          language_(language_of_environment()),
          shows_status_(isatty(STDERR_FILENO) == 1) {
        clock_.set_speed(0, options.speed);
        clock_.seek(
            0, static_cast<std::int64_t>(std::max(options.from_us, track.begin_us()) - track.begin_us()));
    }

    int run() {
        line_.watch_openings();
        start_program();
        while (program_ > 0) {
            wait();
            take_signals();
            take_keys();
            serve();
            show_status();
        }
        if (shows_status_) {
            std::fputs("\r\033[K", stderr);
        }
        return exit_status_of(status_);
    }

private:
    void start_program() {
        Ends report = make_pipe();
        program_ = fork();
        if (program_ < 0) {
            throw Failure(ExitStatus::no_bus, "the program's process cannot be made");
        }
        if (program_ == 0) {
            signals_.restore();
            become_program(options_.program, line_.path(), options_.way, report.second.get());
        }
        report.second.reset();
        try {
            await_program(report.first.get());
        } catch (const Failure&) {
            waitpid(program_, nullptr, 0);
            throw;
        }
    }

    // While nobody has the line open it tells of its hang-up all the time: then its opening is waited for.
    void wait() {
        const int far_end = is_open_ ? line_.descriptor() : -1;
        std::array<pollfd, 4> events = {{{far_end, POLLIN, 0},
                                         {line_.openings(), POLLIN, 0},
                                         {signals_.descriptor(), POLLIN, 0},
                                         {keys_.descriptor(), POLLIN, 0}}};
        poll(events.data(), events.size(), status_period_ms);
    }

    void take_signals() {
        while (const std::optional<signalfd_siginfo> signal = signals_.next()) {
            if (signal->ssi_signo != SIGCHLD) {
                pass_on(*signal, program_);
            }
        }
        if (waitpid(program_, &status_, WNOHANG) == program_) {
            program_ = -1;
        }
    }

    void take_keys() {
        pollfd ready = {keys_.descriptor(), POLLIN, 0};
        if (poll(&ready, 1, 0) <= 0) {
            return;
        }
        const std::uint64_t now_us = monotonic_now_us();
        const std::string pressed = keys_.pressed();
        for (std::size_t i = 0; i < pressed.size(); i++) {
            const bool is_arrow = pressed.compare(i, 2, "\033[") == 0 && i + 2 < pressed.size();
            const char key = is_arrow ? pressed[i += 2] : pressed[i];
            if (key == ' ' && has_begun_) {
                clock_.runs() ? clock_.pause(now_us) : clock_.run(now_us);
            } else if (is_arrow && (key == 'C' || key == 'D')) {
                clock_.seek(now_us, key == 'C' ? seek_us : -seek_us);
            } else if ((is_arrow && key == 'A') || key == '+') {
                clock_.set_speed(now_us, clock_.speed() * 2);
            } else if ((is_arrow && key == 'B') || key == '-') {
                clock_.set_speed(now_us, clock_.speed() / 2);
            }
        }
    }

    // Each frame of the program gets what the recorded program read behind its own.
    void serve() {
        const PseudoLine::Look look = line_.look();
        if (look.was_left || !look.is_open) {
            part_ = 0;
        }
        is_open_ = look.is_open;
        std::array<std::uint8_t, 256> room;
        PseudoLine::Received received;
        while ((received = line_.read(room)).count > 0) {
            part_ += received.count;
            for (; part_ >= vehicle::frame_bytes; part_ -= vehicle::frame_bytes) {
                answer();
            }
        }
    }

    void answer() {
        const std::uint64_t now_us = monotonic_now_us();
        if (!has_begun_) {
            has_begun_ = true;
            clock_.run(now_us);
        }
        line_.write(track_.read_after(clock_.position_us(now_us)));
    }

    void show_status() {
        const std::uint64_t now_us = monotonic_now_us();
        if (!shows_status_ || now_us < next_status_us_) {
            return;
        }
        next_status_us_ = now_us + std::uint64_t{1000} * status_period_ms;
        const std::uint64_t position_us = clock_.position_us(now_us);
        const bool is_at_end = position_us >= track_.end_us();
        const Phrase& state = !has_begun_ ? waits : is_at_end ? ended : clock_.runs() ? plays : pauses;
        std::string text = clock_text(position_us) + " / " + clock_text(track_.end_us()) + "  ";
        std::array<char, 32> speed;
        std::snprintf(speed.data(), speed.size(), "x%g  ", clock_.speed());
        text += speed.data();
        text += state.in(language_);
        text += has_begun_ && keys_.descriptor() >= 0 ? std::string("   ") + keys.in(language_) : "";
        std::fprintf(stderr, "\r%s\033[K", beginning_of(text, terminal_width()).c_str());
    }

    const ReplayOptions& options_;
    const ReplayTrack& track_;
    const HeldSignals signals_;
    PseudoLine line_;
    Keys keys_;
    ReplayClock clock_;
    Language language_;
    bool shows_status_;
    bool is_open_ = false;
    bool has_begun_ = false;
    std::size_t part_ = 0;  // bytes of a frame that is not whole
    std::uint64_t next_status_us_ = 0;
    pid_t program_ = -1;
    int status_ = 0;
};

ReplayTrack read_track(const std::string& file) {
    RecordingReader reader(file);
    const Interrupts interrupts;
    ReplayTrack track;
    read_through(reader, interrupts, true, [&track](const Entry& entry) {
        track.add(entry);
        return true;
    });
    track.finish();
    demand_frames(reader, track.frames() > 0);
    return track;
}

int replay(const ReplayOptions& options) {
    const ReplayTrack track = read_track(options.file);
    if (options.from_us > track.end_us()) {
        throw Failure(ExitStatus::usage,
                      options.file + " ends at " + seconds_text(track.end_us()) + " s, before --from");
    }
    try {
        return Replay(options, track).run();
    } catch (const std::system_error& error) {
        throw Failure(ExitStatus::no_bus, error.what());
    }
}

}  // namespace

void add_replay_command(CLI::App& app, Action& action) {
    CLI::App& command = add_command(app, "replay", "Play the vehicle's side of a recording to a program",
                                    "vehicle-recorder replay drive.recording --speed 2 -- ohjauspaneeli");
    const auto options = std::make_shared<ReplayOptions>();
    add_recording_option(command, options->file);
    command.add_option("--speed", options->speed, "So many times as fast as it was recorded, 0.0625 to 64")
        ->type_name("X")
        ->check(CLI::Range(ReplayClock::slowest, ReplayClock::fastest));
    add_time_option(command, "--from", options->from_us, "Begin with this time, in seconds since the start");
    add_program_options(command, options->program, options->way);
    command.callback([&action, options] {
        if (std::isnan(options->speed)) {  // it lies in every range
            throw CLI::ValidationError("--speed", "'nan' is no speed; right are 0.0625 to 64");
        }
        action = [options] { return replay(*options); };
    });
}

}  // namespace vehicle_recorder
