#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "recorder/command.h"
#include "tests/recorder/recordings.h"
#include "tests/support/childprocess.h"
#include "tests/support/temporaryfile.h"

namespace {

// A reply of 39 bytes: speed 1280, voltage 520, current 6, capacity 100, latitude 601700000.
const std::string reply = "70a0b0bda1b102a2b208a3b300a4b406a5b500a6b664a7b7a0a8b836a9b9ddaaba23abbb05acbc";

// Two answered frames and one that is not, and what is beside them.
const std::string drive = recording_header +
                          "0.000000 open\n"
                          "0.000100 line 9600 8N1 none\n"
                          "0.310000 > 28676e51\n"
                          "+12041 < " +
                          reply.substr(0, 20) + "\n+20000 < " + reply.substr(20) +
                          "\n"
                          "0.520000 > 00676e50\n"
                          "0.730000 > 00676e50\n"
                          "+9000 < " +
                          reply +
                          "\n"
                          "0.900000 close\n"
                          "0.950000 note the program ended with status 0\n"
                          "1.000000 end\n";

const std::string shown =
    "0.000000 the line is opened\n"
    "0.000100 the line is set to 9600 baud, 8N1\n"
    "0.310000 frame 1: throttle 40, direction 103, bucket 110, motor on\n"
    "0.322041 reply to 1 after 12.041 ms: speed 1280 rpm, voltage 520, current 6, capacity 100 Ah, latitude "
    "601700000\n"
    "0.520000 frame 2: throttle 0, direction 103, bucket 110, motor off (at rest)\n"
    "0.520000 reply to 2: missing\n"
    "0.730000 frame 3: throttle 0, direction 103, bucket 110, motor off (at rest)\n"
    "0.739000 reply to 3 after 9.000 ms: speed 1280 rpm, voltage 520, current 6, capacity 100 Ah, latitude "
    "601700000\n"
    "0.900000 the line is closed\n"
    "0.950000 note: the program ended with status 0\n"
    "1.000000 the recording is ended\n";

const std::string csv_head =
    "cycle,time_s,clock,since_last_ms,throttle,direction,direction_mv,bucket,bucket_mv,motor,step_lost,frame,"
    "reply,late,"
    "reply_delay_ms,bytes,bytes_ahead,speed_rpm,voltage,current,capacity_ah,latitude,at_rest,data\n";

ChildResult recorder(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), VEHICLE_RECORDER);
    return run_program(arguments);
}

class ReadingCommands : public testing::Test {
protected:
    ReadingCommands() { file.write(drive); }

    // The error line with "FILE" for the recording's name.
    std::string error_of(const ChildResult& result) const {
        std::string text = result.err;
        if (const std::size_t name = text.find(file.path()); name != std::string::npos) {
            text.replace(name, file.path().size(), "FILE");
        }
        return text;
    }

    // What stands beside the output file under a temporary name.
    static bool is_alone(const std::string& path) {
        return run_program({"sh", "-c", "ls " + path + ".*"}).out.empty();
    }

    TemporaryFile file;
    TemporaryFile out;
};

TEST_F(ReadingCommands, ShowTellsFramesRepliesAndEventsInOrder) {
    const ChildResult result = recorder({"show", file.path()});
    EXPECT_EQ(result.out, shown);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
}

TEST_F(ReadingCommands, ShowSpeaksFinnishWhereTheLocaleDoes) {
    const ChildResult result =
        run_program({"env", "LC_ALL=fi_FI.UTF-8", VEHICLE_RECORDER, "show", file.path()});
    EXPECT_NE(result.out.find("0.310000 viesti 1: kaasu 40, suunta 103, kauha 110, moottori päällä\n"),
              std::string::npos);
    EXPECT_NE(result.out.find("0.520000 vastaus viestiin 2: puuttuu\n"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("0.950000 huomautus: ohjelma päättyi, paluuarvo 0\n"), std::string::npos);
}

TEST_F(ReadingCommands, ShowKeepsToTheTimesThatAreAskedFor) {
    EXPECT_EQ(recorder({"show", file.path(), "--from", "0.322041", "--to", "0.520000"}).out,
              shown.substr(shown.find("0.322041"), shown.find("0.730000") - shown.find("0.322041")));
    EXPECT_EQ(recorder({"show", file.path(), "--from", "0.95"}).out, shown.substr(shown.find("0.950000")));
    EXPECT_EQ(recorder({"show", file.path(), "--to", "0"}).out, shown.substr(0, shown.find("0.000100")));
}

TEST_F(ReadingCommands, WrongTimesAreWrongUsage) {
    for (const char* time : {"x", "-1", "1e3"}) {
        const ChildResult result = recorder({"show", file.path(), "--from=" + std::string(time)});
        EXPECT_EQ(result.status, 2) << time;
        EXPECT_NE(result.err.find("is no time; right are seconds such as 12.5"), std::string::npos)
            << result.err;
    }
    const ChildResult result = recorder({"show", file.path(), "--from", "2", "--to", "1"});
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.err.find("--to: is earlier than --from"), std::string::npos) << result.err;
}

TEST_F(ReadingCommands, CsvHasARowForEachCycle) {
    const ChildResult result = recorder({"export", "--csv", file.path()});
    EXPECT_EQ(
        result.out,
        csv_head +
            "1,0.310000,2026-11-22T03:25:03.433456+02:00,,40,103,2008,110,2145,on,false,28676e51,whole,"
            "false,12.041,39,0,1280,520,6,100,601700000,false," +
            reply +
            "\n"
            "2,0.520000,2026-11-22T03:25:03.643456+02:00,210.000,0,103,2008,110,2145,off,false,00676e50,"
            "missing,false,,0,0,,,,,,true,\n"
            "3,0.730000,2026-11-22T03:25:03.853456+02:00,210.000,0,103,2008,110,2145,off,false,00676e50,"
            "whole,false,9.000,39,0,1280,520,6,100,601700000,true," +
            reply + "\n");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
}

TEST_F(ReadingCommands, JsonIsAnArrayOfTheSameRows) {
    const ChildResult result = recorder({"export", file.path(), "--json"});
    EXPECT_EQ(result.status, 0);
    const nlohmann::json rows = nlohmann::json::parse(result.out);
    ASSERT_EQ(rows.size(), 3U);
    EXPECT_EQ(rows[0].size(), 24U);
    EXPECT_EQ(rows[0]["cycle"], 1);
    EXPECT_EQ(rows[0]["time_s"], 0.31);
    EXPECT_EQ(rows[0]["since_last_ms"], nullptr);
    EXPECT_EQ(rows[0]["motor"], "on");
    EXPECT_EQ(rows[0]["step_lost"], false);
    EXPECT_EQ(rows[0]["reply_delay_ms"], 12.041);
    EXPECT_EQ(rows[0]["latitude"], 601700000);
    EXPECT_EQ(rows[1]["reply"], "missing");
    EXPECT_EQ(rows[1]["speed_rpm"], nullptr);
    EXPECT_EQ(rows[1]["data"], nullptr);
    EXPECT_EQ(rows[2]["at_rest"], true);
}

TEST_F(ReadingCommands, FrameWithoutAMotorCommandHasNoSetPoints) {
    file.write(recording_header + "0.000000 open\n0.1" + "00000 > 67006e67\n0.200000 end\n");
    const ChildResult result = recorder({"export", file.path(), "--csv"});
    EXPECT_NE(result.out.find("\n1,0.100000,2026-11-22T03:25:03.223456+02:00,,,,,,,,true,67006e67,closed,"),
              std::string::npos)
        << result.out;
}

TEST_F(ReadingCommands, BytesThatAnswerNoFrameAreARowOfTheirOwn) {
    file.write(recording_header + "0.000000 open\n0.100000 < 0102\n0.200000 > 00676e50\n0.300000 end\n");
    const ChildResult result = recorder({"export", file.path(), "--csv"});
    EXPECT_NE(result.out.find(
                  "\n,0.100000,2026-11-22T03:25:03.223456+02:00,,,,,,,,,,short,false,,2,0,,,,,,,0102\n"),
              std::string::npos)
        << result.out;
}

TEST_F(ReadingCommands, BytesWithoutAFrameAreNoCycles) {
    file.write(recording_header + "0.000000 open\n0.100000 < 0102\n0.300000 end\n");
    out.write("what was there");
    const ChildResult result = recorder({"export", file.path(), "--csv", "--out", out.path()});
    EXPECT_EQ(error_of(result), "vehicle-recorder: FILE has no frames\n");
    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(out.content(), "what was there");
}

TEST_F(ReadingCommands, ResultNeverTakesThePlaceOfTheRecording) {
    const std::string link = file.path() + ".link";
    ASSERT_EQ(symlink(file.path().c_str(), link.c_str()), 0);
    for (const std::string& name : {file.path(), link}) {
        for (const std::vector<std::string>& arguments :
             {std::vector<std::string>{"export", "--json", "--out", name, file.path()},
              std::vector<std::string>{"report", "--html", file.path(), name}}) {
            const ChildResult result = recorder(arguments);
            EXPECT_EQ(result.status, 2) << arguments.front();
            EXPECT_NE(result.err.find(" is the recording itself: name another file for the result\n"),
                      std::string::npos)
                << result.err;
            EXPECT_EQ(file.content(), drive);
        }
    }
    unlink(link.c_str());
}

TEST_F(ReadingCommands, ResultNeedsANameThatIsNotEmpty) {
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"export", "--csv", "--out", "", file.path()},
          std::vector<std::string>{"report", "--html", "", file.path()}}) {
        const ChildResult result = recorder(arguments);
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.out, "");
        EXPECT_NE(result.err.find("needs the name of a file"), std::string::npos) << result.err;
    }
}

TEST_F(ReadingCommands, WrongWayIsToldWithTheRightOnes) {
    const ChildResult result = recorder({"replay", file.path(), "--way", "x", "--", "true"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(
        result.err,
        "vehicle-recorder: --way: 'x' is no way; right are namespace, preload; 'vehicle-recorder replay "
        "--help' tells more\n");
}

TEST_F(ReadingCommands, SpeedMustBeANumberInItsRange) {
    for (const char* speed : {"0", "-1", "65", "nan", "inf", "x"}) {
        const ChildResult result = recorder({"replay", file.path(), "--speed", speed, "--", "true"});
        EXPECT_EQ(result.status, 2) << speed;
        EXPECT_NE(result.err.find("--speed"), std::string::npos) << result.err;
    }
}

TEST_F(ReadingCommands, ExportNeedsOneFormat) {
    EXPECT_EQ(recorder({"export", file.path()}).status, 2);
    EXPECT_EQ(recorder({"export", file.path(), "--csv", "--json"}).status, 2);
}

TEST_F(ReadingCommands, ExportIntoAFileReplacesWhatWasThere) {
    out.write("what was there");
    chmod(out.path().c_str(), 0640);
    const ChildResult result = recorder({"export", file.path(), "--csv", "--out", out.path()});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(out.content(), recorder({"export", file.path(), "--csv"}).out);
    struct stat status {};
    ASSERT_EQ(stat(out.path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640U);
    EXPECT_TRUE(is_alone(out.path()));
}

TEST_F(ReadingCommands, BadInputLeavesWhatWasThere) {
    struct Case {
        std::string content;
        std::string error;
    };
    const std::vector<Case> cases = {
        {"", "FILE is no recording of vehicle-recorder"},
        {"\x7F"
         "ELF\n",
         "FILE is no recording of vehicle-recorder"},
        {"# vehicle-recorder recording 2\n",
         "FILE is a recording of a newer format than this program reads: '# vehicle-recorder recording 2'"},
        {recording_header + "0.500000 > 00676e50\n0.400000 > 00676e50\n0.500000 end\n",
         "FILE: the time runs backwards in line 6"},
        {recording_header + "0.000000 open\n0.100000 close\n0.200000 end\n", "FILE has no frames"}};
    for (const Case& one : cases) {
        file.write(one.content);
        out.write("what was there");
        const ChildResult exported = recorder({"export", file.path(), "--json", "--out", out.path()});
        EXPECT_EQ(error_of(exported), "vehicle-recorder: " + one.error + "\n");
        EXPECT_EQ(exported.status, 5);
        EXPECT_EQ(out.content(), "what was there");
        EXPECT_TRUE(is_alone(out.path()));
        const ChildResult listed = recorder({"show", file.path()});
        EXPECT_EQ(error_of(listed), "vehicle-recorder: " + one.error + "\n");
        EXPECT_EQ(listed.status, 5);
    }
    const ChildResult nowhere = recorder({"show", "/nowhere/at/all"});
    EXPECT_EQ(nowhere.err, "vehicle-recorder: /nowhere/at/all cannot be read: No such file or directory\n");
    EXPECT_EQ(nowhere.status, 5);
}

TEST_F(ReadingCommands, OutputThatCannotBeWrittenIsTold) {
    const ChildResult nowhere = recorder({"export", file.path(), "--csv", "--out", "/nowhere/at/all"});
    EXPECT_EQ(nowhere.err,
              "vehicle-recorder: /nowhere/at/all cannot be written: No such file or directory\n");
    EXPECT_EQ(nowhere.status, 5);
    const ChildResult full = recorder({"export", file.path(), "--csv", "--out", "/dev/full"});
    EXPECT_EQ(full.err, "vehicle-recorder: /dev/full cannot be written: No space left on device\n");
    EXPECT_EQ(full.status, 5);
    const ChildResult shown_full =
        run_program({"sh", "-c", std::string(VEHICLE_RECORDER) + " show " + file.path() + " > /dev/full"});
    EXPECT_EQ(shown_full.err,
              "vehicle-recorder: standard output cannot be written: No space left on device\n");
    EXPECT_EQ(shown_full.status, 5);
}

// Cuts the drive at each byte, and tells status and number of lines of what is exported.
TEST_F(ReadingCommands, FileCutAnywhereIsExportedAsFarAsItGoesOrNotAtAll) {
    const ChildResult result = run_in_child([this] {
        std::freopen("/dev/null", "w", stderr);
        for (std::size_t length = 0; length < drive.size(); length++) {
            file.write(drive.substr(0, length));
            out.write("");
            const int status =
                vehicle_recorder::run_command({"export", file.path(), "--csv", "--out", out.path()});
            const std::string content = out.content();
            std::printf("%zu %d %td %d\n", length, status, std::count(content.begin(), content.end(), '\n'),
                        !content.empty() && content.back() != '\n');
        }
    });
    std::istringstream lines(result.out);
    const std::size_t first_frame = drive.find("28676e51\n") + 9;
    const std::size_t second_frame = drive.find("00676e50\n") + 9;
    const std::size_t third_frame = drive.rfind("00676e50\n") + 9;
    for (std::size_t expected = 0; expected < drive.size(); expected++) {
        std::size_t length = 0;
        int status = 0;
        std::ptrdiff_t count = 0;
        int is_torn = 0;
        ASSERT_TRUE(lines >> length >> status >> count >> is_torn);
        ASSERT_EQ(length, expected);
        const std::ptrdiff_t frames =
            (length >= first_frame) + (length >= second_frame) + (length >= third_frame);
        EXPECT_EQ(status, frames > 0 ? 0 : 5) << length;
        EXPECT_EQ(count, frames > 0 ? frames + 1 : 0) << length;
        EXPECT_EQ(is_torn, 0) << length;
    }
}

TEST_F(ReadingCommands, ClosedStandardOutputIsTold) {
    for (const std::string command : {"show", "report", "export --csv"}) {
        const ChildResult result = run_program({"sh", "-c",
                                                "exec timeout 60 " + std::string(VEHICLE_RECORDER) + " " +
                                                    command + " " + file.path() + " >&-"});
        EXPECT_EQ(result.err, "vehicle-recorder: standard output cannot be written: Bad file descriptor\n");
        EXPECT_EQ(result.status, 5) << command;
        EXPECT_EQ(file.content(), drive);
    }
}

TEST_F(ReadingCommands, DamageWithoutFramesIsToldInOneLine) {
    file.write(recording_header + "0.000000 open\nx\n");
    const std::string error =
        "vehicle-recorder: FILE: 1 line that is no entry is passed over: line 6; it is cut off: it does not "
        "tell its end; it has no frames\n";
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"show"}, {"export", "--csv"}, {"plot"}, {"replay"}}) {
        std::vector<std::string> words = arguments;
        words.push_back(file.path());
        const ChildResult result = recorder(words);
        EXPECT_EQ(error_of(result), error);
        EXPECT_EQ(result.status, 5);
    }
}

TEST_F(ReadingCommands, CutIsToldInOneLine) {
    file.write(drive.substr(0, drive.find("0.730000") + 4));
    const ChildResult result = recorder({"export", file.path(), "--csv"});
    EXPECT_EQ(error_of(result), "vehicle-recorder: FILE is cut off: line 11 is unfinished and left out\n");
    EXPECT_EQ(result.status, 0);
}

// A recording that takes a while to read.
std::string long_drive() {
    std::string text = recording_header;
    for (int i = 0; i < 200000; i++) {
        std::array<char, 64> line;
        std::snprintf(line.data(), line.size(), "%d.%06d > 00676e50\n", i / 50, i % 50 * 20000);
        text += line.data();
    }
    return text;
}

TEST_F(ReadingCommands, ClosedPipeIsTheEnd) {
    file.write(long_drive());
    const ChildResult result = run_program(
        {"bash", "-c",
         std::string(VEHICLE_RECORDER) + " show " + file.path() + " | head -1; echo ${PIPESTATUS[0]}"});
    EXPECT_EQ(result.out,
              "0.000000 frame 1: throttle 0, direction 103, bucket 110, motor off (at rest)\n0\n");
    EXPECT_EQ(result.err, "");
}

// The program waits with its results until somebody reads them, and is interrupted then.
TEST_F(ReadingCommands, InterruptedWhileNobodyReads) {
    file.write(long_drive());
    std::array<int, 2> pipe_ends = {};
    ASSERT_EQ(pipe(pipe_ends.data()), 0);
    const pid_t child = fork();
    if (child == 0) {
        dup2(pipe_ends[1], STDOUT_FILENO);
        execl(VEHICLE_RECORDER, VEHICLE_RECORDER, "show", file.path().c_str(), nullptr);
        _exit(127);
    }
    close(pipe_ends[1]);
    char byte = 0;
    ASSERT_EQ(read(pipe_ends[0], &byte, 1), 1);
    kill(child, SIGINT);
    int status = 0;
    waitpid(child, &status, 0);
    close(pipe_ends[0]);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 130);
}

TEST_F(ReadingCommands, InterruptedExportLeavesWhatWasThere) {
    file.write(long_drive());
    out.write("what was there");
    const pid_t child = fork();
    if (child == 0) {
        raise(SIGSTOP);
        execl(VEHICLE_RECORDER, VEHICLE_RECORDER, "export", file.path().c_str(), "--csv", "--out",
              out.path().c_str(), nullptr);
        _exit(127);
    }
    int status = 0;
    waitpid(child, &status, WUNTRACED);
    kill(child, SIGCONT);
    while (is_alone(out.path()) && out.content() == "what was there") {
        usleep(1000);
    }
    kill(child, SIGTERM);
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    if (WEXITSTATUS(status) == 130) {
        EXPECT_EQ(out.content(), "what was there");
    } else {
        EXPECT_EQ(WEXITSTATUS(status), 0);
    }
    EXPECT_TRUE(is_alone(out.path()));
}

TEST_F(ReadingCommands, ProgressIsDrawnOnATerminalAndTakenAway) {
    file.write(long_drive());
    int master = -1;
    int slave = -1;
    ASSERT_EQ(openpty(&master, &slave, nullptr, nullptr, nullptr), 0);
    const pid_t child = fork();
    if (child == 0) {
        dup2(slave, STDERR_FILENO);
        execl(VEHICLE_RECORDER, VEHICLE_RECORDER, "export", file.path().c_str(), "--csv", "--out",
              out.path().c_str(), nullptr);
        _exit(127);
    }
    close(slave);
    std::string drawn;
    std::array<char, 4096> room;
    for (ssize_t count = 0; (count = read(master, room.data(), room.size())) > 0;) {
        drawn.append(room.data(), static_cast<std::size_t>(count));
    }
    close(master);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_NE(drawn.find(" %"), std::string::npos) << drawn;
    EXPECT_NE(drawn.find("\r\033[K"), std::string::npos) << drawn;
}

}  // namespace
