// The command `run`: a program on the vehicle's line, which is recorded meanwhile.

#include <fcntl.h>
#include <sys/file.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "program/failure.h"
#include "program/linepreload.h"
#include "program/wholenumbers.h"
#include "recorder/commandoptions.h"
#include "recorder/commands.h"
#include "recorder/descriptor.h"
#include "recorder/session.h"

namespace vehicle_recorder {

namespace {

namespace files = std::filesystem;
using program::ExitStatus;
using program::Failure;

constexpr const char* file_beginning = "vehicle-";
constexpr const char* file_ending = ".recording";

struct RunOptions {
    SessionSetUp session;
    std::string directory;
    unsigned keep = 0;  // 0: all
};

// Where recordings are kept that nobody has named: the data directory of the user (XDG base directories).
files::path data_directory() {
    const char* const named = std::getenv("XDG_DATA_HOME");
    if (named != nullptr && *named == '/') {
        return files::path(named) / "ohjauspaneeli" / "recordings";
    }
    const char* const home = std::getenv("HOME");
    if (home == nullptr || *home == '\0') {
        throw Failure(ExitStatus::bad_file,
                      "there is no HOME to keep the recording in: name a file with --out");
    }
    return files::path(home) / ".local" / "share" / "ohjauspaneeli" / "recordings";
}

// A new name in the directory. Names sort by their time.
std::string new_name(const files::path& directory) {
    std::error_code failure;
    files::create_directories(directory, failure);
    if (failure) {
        throw Failure(ExitStatus::bad_file, directory.string() + " cannot be made: " + failure.message());
    }
    const std::time_t now = std::time(nullptr);
    std::tm local = {};
    localtime_r(&now, &local);
    std::array<char, 32> time = {};
    std::strftime(time.data(), time.size(), "%Y%m%d-%H%M%S", &local);
    const files::path name = directory / (std::string(file_beginning) + time.data());
    files::path file = name;
    file += file_ending;
    for (int i = 2; files::exists(file, failure); i++) {
        file = name;
        file += "-" + std::to_string(i) + file_ending;
    }
    return file.string();
}

bool is_being_written(const files::path& recording) {
    const Descriptor file(open(recording.c_str(), O_RDONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    return file.get() >= 0 && flock(file.get(), LOCK_EX | LOCK_NB) != 0;  // RecordingWriter holds it
}

// Leaves a recording and the newest others of its directory, of those that were named by new_name(). The clock may have
// been wrong: this one stays whatever its name tells.
void remove_all_but(const files::path& newest, std::size_t count) {
    std::vector<files::path> others;
    std::error_code failure;
    for (const files::directory_entry& entry : files::directory_iterator(newest.parent_path(), failure)) {
        const std::string name = entry.path().filename().string();
        if (name.starts_with(file_beginning) && name.ends_with(file_ending) &&
            name != newest.filename().string() && entry.is_regular_file(failure)) {
            others.push_back(entry.path());
        }
    }
    std::sort(others.begin(), others.end(),
              [](const files::path& one, const files::path& other) { return one.stem() < other.stem(); });
    for (std::size_t i = 0; i + count <= others.size(); i++) {
        if (!is_being_written(others[i])) {
            files::remove(others[i], failure);
        }
    }
}

int run(RunOptions options) {
    SessionSetUp& session = options.session;
    if (session.alarms.thresholds.empty() && !session.alarms.command.empty()) {
        refuse_to_watch_nothing();
    }
    if (!session.out.empty()) {
        return run_session(session);
    }
    const files::path directory =
        options.directory.empty() ? data_directory() : files::path(options.directory);
    session.out = new_name(directory);
    std::fprintf(stderr, "vehicle-recorder: recording into %s\n", session.out.c_str());
    const int status = run_session(session);
    if (options.keep > 0) {
        remove_all_but(session.out, options.keep);  // not before there is a new one
    }
    return status;
}

}  // namespace

void add_run_command(CLI::App& app, Action& action) {
    const auto options = std::make_shared<RunOptions>();
    options->session.device = line_preload::line_name;
    CLI::App& command =
        add_command(app, "run", "Run a program on the vehicle's line and record the line",
                    "vehicle-recorder run --device /dev/ttyUSB0 --out drive.recording -- ohjauspaneeli");
    command.add_option("--device", options->session.device, "The line; the program finds it as /dev/ttyS0")
        ->type_name("PATH")
        ->capture_default_str();
    CLI::Option* const out = command.add_option("--out", options->session.out, "The recording, a new file");
    out->type_name("FILE");
    CLI::Option* const directory = command.add_option(
        "--directory", options->directory,
        "Where recordings are kept that have no name; default: ohjauspaneeli/recordings in the "
        "user's data directory");
    directory->type_name("DIR")->excludes(out);
    command
        .add_option("--keep", options->keep, "Keep so many recordings there, the newest, this one included")
        ->type_name("NUMBER")
        ->transform(program::whole_numbers(1, 1'000'000))
        ->excludes(out);
    add_alarm_options(command, options->session.alarms);
    add_program_options(command, options->session.program, options->session.way);
    command.callback([&action, options] { action = [options] { return run(*options); }; });
}

}  // namespace vehicle_recorder
