// The command `run` as a whole: its processes, what it passes on and what it leaves behind.

#include "recorder/session.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <csignal>

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "tests/recorder/carriedline.h"
#include "tests/recorder/recordings.h"
#include "tests/support/childprocess.h"
#include "tests/support/filecontent.h"
#include "tests/support/pseudoterminal.h"
#include "tests/support/temporaryfile.h"

using namespace vehicle_recorder;

namespace {

namespace files = std::filesystem;

const std::string neutral_frame("\0gnP", 4);

// The lines of a recording behind its header, without their times.
std::vector<std::string> recorded(const std::string& path) {
    std::vector<std::string> lines;
    std::istringstream text(file_content(path));
    for (std::string line; std::getline(text, line);) {
        if (line[0] != '#') {
            lines.push_back(line.substr(line.find(' ') + 1));
        }
    }
    return lines;
}

bool ends_with(const std::vector<std::string>& lines, const std::vector<std::string>& end) {
    return lines.size() >= end.size() && std::equal(end.rbegin(), end.rend(), lines.rbegin());
}

std::vector<pid_t> children_of(pid_t process) {
    std::istringstream text(
        file_content("/proc/" + std::to_string(process) + "/task/" + std::to_string(process) + "/children"));
    std::vector<pid_t> children;
    for (pid_t child = 0; text >> child;) {
        children.push_back(child);
    }
    return children;
}

std::string name_of(pid_t process) {
    std::string name = file_content("/proc/" + std::to_string(process) + "/comm");
    return name.substr(0, name.find('\n'));
}

[[noreturn]] void become(std::vector<std::string> command) {
    std::vector<char*> arguments;
    for (std::string& word : command) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    execv(arguments[0], arguments.data());
    _exit(99);
}

// A directory that goes with its owner.
class Place {
public:
    Place() : path_(files::temp_directory_path() / ("recorder-test-" + std::to_string(getpid()))) {
        files::remove_all(path_);
        files::create_directories(path_);
    }
    ~Place() { files::remove_all(path_); }
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;

    std::string operator/(const std::string& name) const { return (path_ / name).string(); }

private:
    files::path path_;
};

class Session : public testing::Test {
protected:
    ~Session() override {
        if (session_ > 0) {
            for (const pid_t child : children_of(session_)) {
                kill(child, SIGKILL);
            }
            kill(session_, SIGKILL);
            waitpid(session_, nullptr, 0);
        }
    }

    std::vector<std::string> command(std::vector<std::string> program,
                                     std::vector<std::string> options = {}) {
        std::vector<std::string> all = {VEHICLE_RECORDER, "run", "--device", vehicle.path(), "--out", out};
        all.insert(all.end(), options.begin(), options.end());
        all.emplace_back("--");
        all.insert(all.end(), program.begin(), program.end());
        return all;
    }

    // Runs the program on the line to its end.
    ChildResult run(const std::vector<std::string>& program, const std::vector<std::string>& options = {}) {
        return run_program(command(program, options));
    }

    // Runs a shell's script, which goes on beside the test.
    void start(const std::string& script, const std::vector<std::string>& options = {}) {
        session_ = fork();
        if (session_ == 0) {
            dup2(open(errors.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600), STDERR_FILENO);
            become(command({"sh", "-c", script}, options));
        }
    }

    // The same with bash as the shell and on a terminal whose session's leader the recorder is, as in a window of its own.
    void start_on(const PseudoTerminal& terminal, const std::string& script) {
        session_ = fork();
        if (session_ == 0) {
            setsid();
            const int end = open(terminal.path().c_str(), O_RDWR);  // becomes the controlling terminal
            dup2(end, STDIN_FILENO);
            become(command({"bash", "-c", script}));
        }
    }

    // The exit status of what was started.
    int wait() {
        int status = -1;
        waitpid(session_, &status, 0);
        session_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

    // The process of this name beside the program.
    pid_t process(const std::string& name) {
        pid_t found = -1;
        eventually([&] {
            for (const pid_t child : children_of(session_)) {
                found = name_of(child) == name ? child : found;
            }
            return found > 0;
        });
        return found;
    }

    std::string told() const { return file_content(errors); }

    Place place;
    PseudoTerminal vehicle;
    std::string out = place / "drive.recording";
    std::string errors = place / "errors";
    pid_t session_ = -1;
};

// A shell's words for a program that drives: opens the line, sets it, sends a frame.
const std::string drive_off =
    "exec 3<>/dev/ttyS0; stty -F /dev/ttyS0 38400 raw -echo -hupcl; printf '\\234P/Q' >&3; ";
const std::string driving_frame("\x9cP/Q", 4);
// Once it has been told to, by a file.
std::string until(const std::string& sign) {
    return "while [ ! -e " + sign + " ]; do sleep 0.01; done; ";
}

}  // namespace

TEST_F(Session, ProgramFindsTheLineUnderItsNameByEitherWay) {
    for (const std::string way : {"namespace", "preload"}) {
        files::remove(out);
        const ChildResult result =
            run({"sh", "-c", drive_off + "test -t 3 && test -c /dev/ttyS0 && echo ran"}, {"--way", way});
        if (way == "namespace" && result.err.find("no mount namespace can be made") != std::string::npos) {
            EXPECT_EQ(result.status, 4);
            EXPECT_FALSE(files::exists(out));
            continue;  // a machine without
        }
        EXPECT_EQ(result.out, "ran\n");
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(vehicle.receive(8), driving_frame + neutral_frame);
        std::vector<std::string> lines = recorded(out);
        if (lines.size() > 1 && lines[1] == "line 9600 8N1 none") {
            lines.erase(lines.begin() +
                        1);  // the shell took its time between opening the line and setting it
        }
        EXPECT_EQ(lines, (std::vector<std::string>{"open", "line 38400 8N1 none", "> 9c502f51", "close",
                                                   "> 00676e50", "note neutral frame sent by the recorder",
                                                   "note the program ended with status 0", "end"}));
    }
}

TEST_F(Session, HeaderTellsDeviceAndProgram) {
    run({"true"});
    const std::string text = file_content(out);
    EXPECT_EQ(text.find("# vehicle-recorder recording 1\n# program vehicle-recorder " PROJECT_VERSION
                        "\n# device " +
                        vehicle.path() + "\n# start "),
              0U);
    EXPECT_EQ(recorded(out), (std::vector<std::string>{"note the program ended with status 0", "end"}));
}

TEST_F(Session, ExitStatusIsTheProgramsAndItsOutputsAreItsOwn) {
    const ChildResult result = run({"sh", "-c", "echo out; echo err >&2; exit 37"});
    EXPECT_EQ(result.status, 37);
    EXPECT_EQ(result.out, "out\n");
    EXPECT_EQ(result.err, "err\n");
    EXPECT_TRUE(ends_with(recorded(out), {"note the program ended with status 37", "end"}));
}

TEST_F(Session, ProgramThatASignalEndsGivesTheStatusOfAShell) {
    EXPECT_EQ(run({"sh", "-c", "kill -KILL $$"}).status, 128 + SIGKILL);
    EXPECT_TRUE(ends_with(recorded(out), {"note the program was ended by signal 9", "end"}));
}

TEST_F(Session, ProgramGetsItsInputAndTheSignalsAsTheyWere) {
    const ChildResult result =
        run_program(command({"sh", "-c", "cat; grep -E 'Sig(Blk|Ign)' /proc/self/status"}), "in\n");
    const ChildResult plain =
        run_program({"sh", "-c", "cat; grep -E 'Sig(Blk|Ign)' /proc/self/status"}, "in\n");
    EXPECT_EQ(result.out, plain.out);
}

// As a launcher may start it that wants to hear nothing of its children.
TEST_F(Session, IgnoredEndsOfChildrenAreSeenAndStayIgnoredForTheProgram) {
    const std::vector<std::string> ignoring = {"timeout", "60", "env", "--ignore-signal=CHLD"};
    const std::vector<std::string> program = {"grep", "-E", "Sig(Blk|Ign)", "/proc/self/status"};
    std::vector<std::string> words = ignoring;
    for (const std::string& word : command(program)) {
        words.push_back(word);
    }
    const ChildResult result = run_program(words);
    words = ignoring;
    words.insert(words.end(), program.begin(), program.end());
    EXPECT_EQ(result.out, run_program(words).out);
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(ends_with(recorded(out), {"note the program ended with status 0", "end"}));
}

TEST_F(Session, ProgramHasNoDescriptorOfTheRecorders) {
    const ChildResult result = run({"sh", "-c", "ls /proc/self/fd"});
    const ChildResult plain = run_program({"sh", "-c", "ls /proc/self/fd"});
    EXPECT_EQ(result.out, plain.out);
}

// --- what is refused ---

TEST_F(Session, DeviceThatIsNotThereIsRefused) {
    const ChildResult result =
        run_program({VEHICLE_RECORDER, "run", "--device", "/dev/none", "--out", out, "--", "true"});
    EXPECT_EQ(result.err, "vehicle-recorder: /dev/none cannot be opened: No such file or directory\n");
    EXPECT_EQ(result.status, 4);
    EXPECT_FALSE(files::exists(out));
}

TEST_F(Session, DeviceThatIsNoLineIsRefused) {
    for (const std::string device : {"/dev/null", "/tmp"}) {
        const ChildResult result =
            run_program({VEHICLE_RECORDER, "run", "--device", device, "--out", out, "--", "true"});
        EXPECT_EQ(result.err, "vehicle-recorder: " + device + " is no serial line\n");
        EXPECT_EQ(result.status, 4);
        EXPECT_FALSE(files::exists(out));
    }
}

TEST_F(Session, ProgramThatIsNoneLeavesNoRecording) {
    ChildResult result = run({"/no/such/program"});
    EXPECT_EQ(result.err, "vehicle-recorder: /no/such/program cannot be run: No such file or directory\n");
    EXPECT_EQ(result.status, 127);
    EXPECT_FALSE(files::exists(out));
    result = run({"/etc/passwd"});
    EXPECT_EQ(result.err, "vehicle-recorder: /etc/passwd cannot be run: Permission denied\n");
    EXPECT_EQ(result.status, 126);
    EXPECT_FALSE(files::exists(out));
    EXPECT_EQ(vehicle.receive(1, 0), "");
}

TEST_F(Session, RecordingThatIsThereAlreadyIsNotTouched) {
    std::ofstream(out) << "earlier";
    const ChildResult result = run({"sh", "-c", "echo ran"});
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "vehicle-recorder: " + out + " cannot be made for the recording: File exists\n");
    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(file_content(out), "earlier");
}

// --- where recordings are kept ---

TEST_F(Session, RecordingWithoutANameGoesIntoTheDirectoryAndTheOldestGo) {
    const std::string directory = place / "kept";
    files::create_directories(directory);
    for (const std::string name :
         {"vehicle-20200101-000000.recording", "vehicle-20210101-000000.recording",
          "vehicle-20220101-000000.recording", "mine.recording", "vehicle-notes.txt"}) {
        std::ofstream(directory + "/" + name) << "x";
    }
    const ChildResult result = run_program({VEHICLE_RECORDER, "run", "--device", vehicle.path(),
                                            "--directory", directory, "--keep", "2", "--", "true"});
    EXPECT_EQ(result.status, 0);
    std::vector<std::string> names;
    for (const auto& entry : files::directory_iterator(directory)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    ASSERT_EQ(names.size(), 4U);
    EXPECT_EQ(names[0], "mine.recording");
    EXPECT_EQ(names[1], "vehicle-20220101-000000.recording");
    EXPECT_EQ(names[3], "vehicle-notes.txt");
    EXPECT_EQ(result.err, "vehicle-recorder: recording into " + directory + "/" + names[2] + "\n");
    EXPECT_TRUE(ends_with(recorded(directory + "/" + names[2]), {"end"}));
}

TEST_F(Session, NumberOfRecordingsIsDecimalAlsoBehindAZero) {
    const std::string directory = place / "kept";
    files::create_directories(directory);
    for (int year = 2001; year <= 2012; ++year) {
        std::ofstream(directory + "/vehicle-" + std::to_string(year) + "0101-000000.recording") << "x";
    }
    EXPECT_EQ(run_program({VEHICLE_RECORDER, "run", "--device", vehicle.path(), "--directory", directory,
                           "--keep", "010", "--", "true"})
                  .status,
              0);
    EXPECT_EQ(std::distance(files::directory_iterator(directory), files::directory_iterator()), 10);
}

// The clock may have been wrong meanwhile; the second recording of a second has a number behind its name.
TEST_F(Session, RecordingThatWasJustMadeStaysThoughOthersSeemNewer) {
    const std::string directory = place / "kept";
    files::create_directories(directory);
    for (const std::string name :
         {"vehicle-29990101-000000.recording", "vehicle-29990101-000000-2.recording"}) {
        std::ofstream(directory + "/" + name) << "x";
    }
    EXPECT_EQ(run_program({VEHICLE_RECORDER, "run", "--device", vehicle.path(), "--directory", directory,
                           "--keep", "2", "--", "true"})
                  .status,
              0);
    std::vector<std::string> names;
    for (const auto& entry : files::directory_iterator(directory)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    ASSERT_EQ(names.size(), 2U);
    EXPECT_TRUE(ends_with(recorded(directory + "/" + names[0]), {"end"}));
    EXPECT_EQ(names[1], "vehicle-29990101-000000-2.recording");
}

TEST_F(Session, RecordingThatIsBeingWrittenStays) {
    const std::string directory = place / "kept";
    files::create_directories(directory);
    out = directory + "/vehicle-20200101-000000.recording";
    start(drive_off + until(place / "go"));
    EXPECT_EQ(vehicle.receive(4), driving_frame);
    const PseudoTerminal other;
    const std::vector<std::string> next = {
        VEHICLE_RECORDER, "run",    "--device", other.path(), "--directory",
        directory,        "--keep", "1",        "--",         "true"};
    EXPECT_EQ(run_program(next).status, 0);
    EXPECT_TRUE(files::exists(out));
    std::ofstream(place / "go") << "";
    EXPECT_EQ(wait(), 0);
    EXPECT_TRUE(ends_with(recorded(out), {"end"}));
    EXPECT_EQ(run_program(next).status, 0);
    EXPECT_EQ(std::distance(files::directory_iterator(directory), files::directory_iterator()), 1);
    EXPECT_FALSE(files::exists(out));
}

TEST_F(Session, NoRecordingGoesForOneThatDidNotComeAbout) {
    const std::string directory = place / "kept";
    files::create_directories(directory);
    std::ofstream(directory + "/vehicle-20200101-000000.recording") << "x";
    const ChildResult result =
        run_program({VEHICLE_RECORDER, "run", "--device", vehicle.path(), "--directory", directory, "--keep",
                     "1", "--", "/no/such/program"});
    EXPECT_EQ(result.status, 127);
    EXPECT_EQ(std::distance(files::directory_iterator(directory), files::directory_iterator()), 1);
    EXPECT_TRUE(files::exists(directory + "/vehicle-20200101-000000.recording"));
}

TEST_F(Session, RecordingWithoutANameGoesIntoTheUsersDataDirectory) {
    const ChildResult result = run_program({"env", "XDG_DATA_HOME=" + (place / "data"), VEHICLE_RECORDER,
                                            "run", "--device", vehicle.path(), "--", "true"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err.find("vehicle-recorder: recording into " +
                              (place / "data/ohjauspaneeli/recordings/vehicle-")),
              0U);
}

// --- signals ---

TEST_F(Session, TerminationSignalsGoToTheProgram) {
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
        const std::string sign = place / ("ready" + std::to_string(number));
        files::remove(out);
        start("trap 'exit 40' " + std::to_string(number) + "; touch " + sign +
              "; while :; do sleep 0.01; done");
        ASSERT_TRUE(eventually([&] { return files::exists(sign); }));
        kill(session_, number);
        EXPECT_EQ(wait(), 40);
        EXPECT_TRUE(ends_with(recorded(out), {"note the program ended with status 40", "end"}));
    }
}

// The terminal sends its signals to the program itself: one would do, and two are one too many.
TEST_F(Session, KeyOfTheTerminalReachesTheProgramOnce) {
    const std::string count = place / "count";
    const std::string ready = place / "ready";
    const std::string script =
        "trap 'echo x >>" + count + "' INT; touch " + ready + "; " + until(place / "go") + "exit 3";
    const PseudoTerminal terminal;
    start_on(terminal, script);
    ASSERT_TRUE(eventually([&] { return files::exists(ready); }));
    terminal.send("\x03");
    ASSERT_TRUE(eventually([&] { return !file_content(count).empty(); }));
    std::ofstream(place / "go") << "";
    EXPECT_EQ(wait(), 3);
    EXPECT_EQ(file_content(count), "x\n");
}

// Of its hang-up a terminal tells its session's leader alone.
TEST_F(Session, HangUpOfTheTerminalReachesTheProgram) {
    const std::string ready = place / "ready";
    PseudoTerminal terminal;
    start_on(terminal, "trap 'exit 40' HUP; touch " + ready + "; while :; do sleep 0.01; done");
    ASSERT_TRUE(eventually([&] { return files::exists(ready); }));
    terminal.hang_up();
    int status = -1;
    EXPECT_TRUE(eventually([&] { return waitpid(session_, &status, WNOHANG) == session_; }));
    session_ = WIFEXITED(status) ? -1 : session_;
    EXPECT_EQ(WEXITSTATUS(status), 40);
    EXPECT_TRUE(ends_with(recorded(out), {"note the program ended with status 40", "end"}));
}

TEST_F(Session, SignalEndsItWhenOnlySomebodyElseHoldsTheLine) {
    const std::string sign = place / "held";
    const std::string holder = place / "holder";
    start("(" + drive_off + "touch " + sign + "; exec sleep 60) & echo $! >" + holder + "; " + until(sign) +
          "exit 5");
    EXPECT_EQ(vehicle.receive(4), driving_frame);
    ASSERT_TRUE(
        eventually([&] { return told().find("another process holds the line") != std::string::npos; }));
    kill(session_, SIGTERM);
    EXPECT_EQ(wait(), 5);
    kill(std::stoi(file_content(holder)), SIGKILL);
    EXPECT_EQ(vehicle.receive(4), neutral_frame);
    EXPECT_TRUE(ends_with(recorded(out), {"note neutral frame sent by the recorder",
                                          "note the program ended with status 5", "end"}));
}

// --- what is killed, stopped, full ---

TEST_F(Session, KilledCarrierLeavesTheVehicleAtRestAndTheProgramGoesOn) {
    start(drive_off + until(place / "go") + "exit 6");
    EXPECT_EQ(vehicle.receive(4), driving_frame);
    kill(process("linecarrier"), SIGKILL);
    EXPECT_EQ(vehicle.receive(4), neutral_frame);
    ASSERT_TRUE(eventually([&] {
        return told() ==
               "vehicle-recorder: the process that carried the line was ended: the program has lost its "
               "line\n";
    }));
    std::ofstream(place / "go") << "";
    EXPECT_EQ(wait(), 6);
    EXPECT_TRUE(ends_with(recorded(out), {"note the process that carried the line was ended"}));
}

TEST_F(Session, CarrierAndGuardKilledTogetherLeaveTheVehicleAtRest) {
    start(drive_off + until(place / "go") + "exit 6");
    EXPECT_EQ(vehicle.receive(4), driving_frame);
    const pid_t carrier = process("linecarrier");
    const pid_t guard = child_of(carrier);
    kill(carrier, SIGSTOP);  // so that it starts no other
    kill(guard, SIGKILL);
    kill(carrier, SIGKILL);
    EXPECT_EQ(vehicle.receive(4), neutral_frame);
    std::ofstream(place / "go") << "";
    EXPECT_EQ(wait(), 6);
}

TEST_F(Session, WritingHalfGuardAndCarrierKilledOneAfterTheOtherLeaveTheVehicleAtRest) {
    start(drive_off + until(place / "go") + "exit 6");
    EXPECT_EQ(vehicle.receive(4), driving_frame);
    const pid_t carrier = process("linecarrier");
    kill(process("linewriter"), SIGKILL);
    const pid_t guard = child_of(carrier);
    kill(guard, SIGKILL);
    ASSERT_TRUE(
        eventually([&] { return told().find("another lineguard has been started") != std::string::npos; }));
    kill(carrier, SIGKILL);
    EXPECT_EQ(vehicle.receive(4), neutral_frame);
    std::ofstream(place / "go") << "";
    EXPECT_EQ(wait(), 6);
}

TEST_F(Session, KilledSessionLeavesTheLineCarriedToTheProgramsEnd) {
    start(drive_off + until(place / "go") + "printf '\\000gnP' >&3; printf 'abcd' >&3");
    EXPECT_EQ(vehicle.receive(4), driving_frame);
    const std::vector<pid_t> children = children_of(session_);
    kill(session_, SIGKILL);
    EXPECT_EQ(wait(), -SIGKILL);
    std::ofstream(place / "go") << "";
    EXPECT_EQ(vehicle.receive(12), neutral_frame + "abcd" + neutral_frame);
    EXPECT_TRUE(eventually([&] { return ends_with(recorded(out), {"end"}); }));
    for (const pid_t child : children) {
        EXPECT_TRUE(eventually([&] {
            return name_of(child).empty() ||
                   file_content("/proc/" + std::to_string(child) + "/cmdline").empty();
        }));
    }
}

TEST_F(Session, KilledWritingHalfIsToldOnceAndTheLineIsCarriedOn) {
    start(drive_off + until(place / "go") +
          "printf abcd >&3; printf efgh >&3; printf '\\000gnP' >&3; exit 7");
    EXPECT_EQ(vehicle.receive(4), driving_frame);
    kill(process("linewriter"), SIGKILL);
    std::ofstream(place / "go") << "";
    EXPECT_EQ(vehicle.receive(12), "abcdefgh" + neutral_frame);
    EXPECT_EQ(wait(), 7);
    EXPECT_EQ(
        told(),
        "vehicle-recorder: the process that writes the recording is gone: the line is carried on without "
        "being recorded\n");
}

TEST_F(Session, StoppedWritingHalfHoldsNothingUpAndWritesAllWhenItGoesOn) {
    start(drive_off + until(place / "go") + "printf abcd >&3; printf '\\000gnP' >&3; exit 7");
    EXPECT_EQ(vehicle.receive(4), driving_frame);
    const pid_t writing_half = process("linewriter");
    kill(writing_half, SIGSTOP);
    std::ofstream(place / "go") << "";
    EXPECT_EQ(vehicle.receive(8), "abcd" + neutral_frame);
    ASSERT_TRUE(eventually([&] {
        const std::vector<pid_t> children = children_of(session_);
        return std::none_of(children.begin(), children.end(),
                            [](pid_t child) { return name_of(child) == "sh"; });
    }));
    kill(session_, SIGTERM);  // does not wait for it
    kill(writing_half, SIGCONT);
    EXPECT_EQ(wait(), 7);
    EXPECT_TRUE(eventually([&] {
        return ends_with(recorded(out), {"note the program ended with status 7", "end"});
    }));
}

TEST_F(Session, FullDiskIsToldOnceAndTheLineIsCarriedOn) {
    start(drive_off + until(place / "go") +
              "for i in 1 2 3 4 5 6 7 8; do head -c 4000 /dev/zero >&3; sleep 0.2; done; printf '\\000gnP' "
              ">&3; exit 8",
          {});
    EXPECT_EQ(vehicle.receive(4), driving_frame);
    const rlimit small = {4096, 4096};
    ASSERT_EQ(prlimit(process("linewriter"), RLIMIT_FSIZE, &small, nullptr), 0);
    std::ofstream(place / "go") << "";
    EXPECT_EQ(vehicle.receive(32'004), std::string(32'000, '\0') + neutral_frame);
    EXPECT_EQ(wait(), 8);
    EXPECT_EQ(told(),
              "vehicle-recorder: " + out +
                  " takes nothing more, the line is carried on without being recorded: File too large\n");
}

// --- limits ---

TEST_F(Session, PassedLimitIsSaidAndStartsACommand) {
    const std::string alarm = place / "alarm";
    start(drive_off + until(alarm) + "exit 9",
          {"--silence", "100", "--exec", "echo \"$RECORDER_ALARM\" >" + alarm});
    EXPECT_EQ(vehicle.receive(8), driving_frame + neutral_frame);
    EXPECT_EQ(wait(), 9);
    EXPECT_EQ(told().find("vehicle-recorder: no whole reply for 1"), 0U);
    ASSERT_TRUE(eventually([&] { return !file_content(alarm).empty(); }));
    EXPECT_EQ("vehicle-recorder: " + file_content(alarm), told());
    EXPECT_TRUE(ends_with(recorded(out), {"note the program ended with status 9", "end"}));
}

TEST_F(Session, KilledWatcherIsToldOnceAndTheLineIsCarriedOn) {
    start(drive_off + until(place / "go") + "printf abcd >&3; printf '\\000gnP' >&3; exit 7",
          {"--below", "capacity=1"});
    EXPECT_EQ(vehicle.receive(4), driving_frame);
    const pid_t watcher = process("linewatcher");
    kill(watcher, SIGKILL);
    ASSERT_TRUE(
        eventually([&] { return file_content("/proc/" + std::to_string(watcher) + "/cmdline").empty(); }));
    std::ofstream(place / "go") << "";
    EXPECT_EQ(vehicle.receive(8), "abcd" + neutral_frame);
    EXPECT_EQ(wait(), 7);
    EXPECT_EQ(
        told(),
        "vehicle-recorder: the process that watches the limits is gone: they are not watched any more\n");
    EXPECT_TRUE(ends_with(recorded(out), {"close", "note the program ended with status 7", "end"}));
}

TEST_F(Session, GrowingRecordingIsFollowedToItsEnd) {
    std::ofstream file(out);
    file << recording_header << "0.000000 open\n0.100000 > 00676e50\n0.2000" << std::flush;
    session_ = fork();
    if (session_ == 0) {
        dup2(open(errors.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600), STDERR_FILENO);
        setenv("LC_ALL", "fi_FI.UTF-8", 1);
        execl(VEHICLE_RECORDER, VEHICLE_RECORDER, "watch", out.c_str(), "--silence", "500", nullptr);
        _exit(99);
    }
    EXPECT_TRUE(eventually([&] { return told().ends_with(" ms\n"); }));
    double time_s = 0;
    int silence_ms = 0;
    ASSERT_EQ(
        std::sscanf(told().c_str(), "vehicle-recorder: %lf ei kokonaista vastausta %d", &time_s, &silence_ms),
        2);
    EXPECT_EQ(silence_ms, static_cast<int>((time_s - 0.1) * 1000 + 1e-6));
    EXPECT_GT(silence_ms, 500);
    file << "00 note goes on\n9.000000 end x\n9.000000 end\n" << std::flush;
    EXPECT_EQ(wait(), 0);
    EXPECT_TRUE(told().ends_with(": 1 line that is no entry is passed over: line 8\n"));
}

TEST_F(Session, TimesThatRunBackwardsEndTheWatching) {
    std::ofstream(out) << recording_header << "2.000000 open\n1.000000 close\n";
    const ChildResult result = run_program({VEHICLE_RECORDER, "watch", out, "--silence", "500"});
    EXPECT_EQ(result.err, "vehicle-recorder: " + out + ": the time runs backwards in line 6\n");
    EXPECT_EQ(result.status, 5);
}

TEST_F(Session, CommandsOfAlarmsThatDoNotEndAreNotStartedWithoutLimit) {
    std::ofstream(out) << recording_header << "0.000000 open\n0.100000 > 00676e50\n+1 < "
                       << std::string(78, '0') << "\n0.300000 > 00676e50\n0.400000 end\n";
    const std::string started = place / "started";
    std::vector<std::string> words = {VEHICLE_RECORDER, "watch", out, "--exec",
                                      "echo $$ >>" + started + "; exec sleep 1000 >" + started + ".out 2>&1"};
    for (int i = 0; i < 10; i++) {
        words.insert(words.end(), {"--below", "capacity=1"});
    }
    const ChildResult result = run_program(words);
    EXPECT_EQ(result.status, 0);
    std::string expected;
    for (int i = 0; i < 10; i++) {
        expected += "vehicle-recorder: 0.300000 capacity 0 Ah, below 1 Ah\n";
        expected += i == 8
                        ? "vehicle-recorder: the alarm's command is not started: 8 of it have not ended yet\n"
                        : "";
    }
    EXPECT_EQ(result.err, expected);
    const auto processes = [&] {
        std::istringstream text(file_content(started));
        std::vector<pid_t> found;
        for (pid_t process = 0; text >> process;) {
            found.push_back(process);
        }
        return found;
    };
    EXPECT_TRUE(eventually([&] { return processes().size() == 8; }));
    for (const pid_t process : processes()) {
        kill(process, SIGKILL);
    }
}

TEST_F(Session, CommandsOfAlarmsThatFailMakeRoomForOthersAndHaveNoInput) {
    constexpr int alarms = 10;
    std::ofstream file(out);
    file << recording_header << "0.000000 open\n" << std::flush;
    const std::string started = place / "started";
    session_ = fork();
    if (session_ == 0) {
        dup2(open(errors.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600), STDERR_FILENO);
        dup2(open(out.c_str(), O_RDONLY), STDIN_FILENO);
        execl(VEHICLE_RECORDER, VEHICLE_RECORDER, "watch", out.c_str(), "--below", "capacity=1", "--exec",
              ("cat >>" + started + "; echo x >>" + started + "; exit 3").c_str(), nullptr);
        _exit(99);
    }
    std::string expected;
    for (int i = 0; i < alarms; i++) {  // a capacity of 0, and then one of 257, every 10 s
        for (const char* capacity : {"000000", "010000"}) {
            file << 10 * i + (*capacity == '0' && capacity[1] == '1' ? 5 : 1) << ".000000 > 00676e50\n+1 < "
                 << std::string(36, '0') << capacity << capacity << std::string(30, '0') << "\n";
        }
        file << 10 * i + 6 << ".000000 > 00676e50\n" << std::flush;
        expected += "x\n";
        ASSERT_TRUE(eventually([&] { return file_content(started) == expected; }));
    }
    file << "200.000000 end\n" << std::flush;
    EXPECT_EQ(wait(), 0);
    EXPECT_EQ(told().find("have not ended"), std::string::npos);
}

TEST_F(Session, WatchingNothingOrWhatIsNoLimitIsRefused) {
    ChildResult result = run_program({VEHICLE_RECORDER, "watch", out});
    EXPECT_EQ(result.err,
              "vehicle-recorder: nothing to watch: name a limit with --silence, --below or --above\n");
    EXPECT_EQ(result.status, 2);
    result = run({"true"}, {"--exec", "true"});
    EXPECT_EQ(result.err,
              "vehicle-recorder: nothing to watch: name a limit with --silence, --below or --above\n");
    EXPECT_EQ(result.status, 2);
    EXPECT_FALSE(files::exists(out));
    result = run({"true"}, {"--below", "capacity"});
    EXPECT_EQ(result.err,
              "vehicle-recorder: --below: 'capacity' is no limit such as capacity=20; 'vehicle-recorder run "
              "--help' tells more\n");
    EXPECT_EQ(result.status, 2);
    EXPECT_FALSE(files::exists(out));
}

// --- odd surroundings ---

TEST_F(Session, StandardDescriptorsMayBeClosed) {
    const std::string script = "exec 0<&- 1>&- 2>&-; exec '" VEHICLE_RECORDER "' run --device " +
                               vehicle.path() + " --out " + out + " -- sh -c \"" +
                               "exec 3<>/dev/ttyS0; printf abcd >&3\"";
    const ChildResult result = run_program({"sh", "-c", script});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(vehicle.receive(8), "abcd" + neutral_frame);
}

TEST_F(Session, TwoRecordersOnOneLineAreOneTooMany) {
    start(drive_off + until(place / "go"));
    EXPECT_EQ(vehicle.receive(4), driving_frame);
    const std::string other = place / "other.recording";
    const ChildResult result = run_program({VEHICLE_RECORDER, "run", "--device", vehicle.path(), "--out",
                                            other, "--", "sh", "-c", "exec 3<>/dev/ttyS0; sleep 0.1"});
    EXPECT_EQ(result.err,
              "vehicle-recorder: " + vehicle.path() +
                  " cannot be opened: Device or resource busy; the program has to close it and open it "
                  "again\n");
    std::ofstream(place / "go") << "";
    EXPECT_EQ(wait(), 0);
}
