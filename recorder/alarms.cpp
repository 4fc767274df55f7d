#include "recorder/alarms.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "program/failure.h"
#include "program/wholenumbers.h"
#include "recorder/entrypipe.h"
#include "recorder/texts.h"

namespace vehicle_recorder {

namespace {

constexpr int look_ms = 20;  // a silence is seen so late at most
constexpr const char* alarm_variable = "RECORDER_ALARM";

// Becomes the command of an alarm.
[[noreturn]] void become_command(const std::string& command, const std::string& words) {
    for (int number = 1; number <= SIGRTMAX; number++) {
        std::signal(number, SIG_DFL);
    }
    sigset_t none = {};
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    dup2(open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
    setenv(alarm_variable, words.c_str(), 1);
    execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
    _exit(EXIT_FAILURE);
}

void add_limit_option(CLI::App& command, const std::string& name, const std::string& does, bool above,
                      AlarmSetUp& setup) {
    command
        .add_option_function<std::vector<std::string>>(
            name,
            [name, above, &setup](const std::vector<std::string>& texts) {
                for (const std::string& text : texts) {
                    const std::optional<Threshold> threshold = read_threshold(text, above);
                    if (!threshold) {
                        throw CLI::ValidationError(name, "'" + text + "' is no limit such as capacity=20");
                    }
                    setup.thresholds.push_back(*threshold);
                }
            },
            does)
        ->type_name("NAME=N")
        ->allow_extra_args(false);
}

}  // namespace

void add_alarm_options(CLI::App& command, AlarmSetUp& setup) {
    command
        .add_option_function<unsigned>(
            "--silence",
            [&setup](unsigned limit_ms) {
                setup.thresholds.push_back({.quantity = Quantity::silence, .above = true, .limit = limit_ms});
            },
            "Say when no whole reply has come for so long")
        ->type_name("MS")
        ->transform(program::whole_numbers(1, 3'600'000));
    add_limit_option(command, "--below", "Say when rpm, voltage, current or capacity is below N", false,
                     setup);
    add_limit_option(command, "--above", "Say when rpm, voltage, current or capacity is above N", true,
                     setup);
    command
        .add_option("--exec", setup.command, "A shell's command to start then; RECORDER_ALARM has the words")
        ->type_name("COMMAND");
}

void refuse_to_watch_nothing() {
    throw program::Failure(program::ExitStatus::usage,
                           "nothing to watch: name a limit with --silence, --below or --above");
}

Alarms::Alarms(const AlarmSetUp& setup) : setup_(setup) {
    std::signal(SIGCHLD, SIG_DFL);  // ends of children that are ignored cannot be counted
}

void Alarms::raise(const Threshold& threshold, std::int64_t value, const std::string& when) {
    const std::string words = describe(threshold, value, language_of_environment());
    std::fprintf(stderr, "vehicle-recorder: %s%s\n", when.c_str(), words.c_str());
    if (!setup_.command.empty() && has_room()) {
        start_command(words);
    }
}

bool Alarms::has_room() {
    while (running_ > 0 && waitpid(-1, nullptr, WNOHANG) > 0) {
        running_--;
    }
    const bool is_full = running_ >= most_commands;
    if (is_full && !told_) {
        std::fprintf(stderr,
                     "vehicle-recorder: the alarm's command is not started: %zu of it have not ended yet\n",
                     running_);
    }
    told_ = is_full;
    return !is_full;
}

void Alarms::start_command(const std::string& words) {
    const pid_t process = fork();
    if (process == 0) {
        become_command(setup_.command, words);
    } else if (process < 0) {
        std::perror("vehicle-recorder: the alarm's command cannot be started");
    } else {
        running_++;
    }
}

void watch_what_comes(int pipe, const AlarmSetUp& setup, std::uint64_t start_us) {
    Alarms alarms(setup);
    ThresholdWatch watch(setup.thresholds, [&alarms](const Threshold& threshold, std::int64_t value) {
        alarms.raise(threshold, value, "");
    });
    EntryReceiver receiver(pipe);
    for (bool is_there = true; is_there;) {
        pollfd waiting = {pipe, POLLIN, 0};
        if (poll(&waiting, 1, look_ms) > 0) {
            is_there = receiver.read([&](const Entry& entry) { watch.add(entry); }, [](std::uint64_t) {});
        } else {  // nothing waits that would end a silence
            watch.tick(monotonic_now_us() - start_us);
        }
    }
}

}  // namespace vehicle_recorder
