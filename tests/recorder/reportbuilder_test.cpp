#include "recorder/reportbuilder.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "program/failure.h"
#include "tests/recorder/recordings.h"
#include "tests/support/temporaryfile.h"

using namespace vehicle_recorder;

namespace {

// A reply with each second and third byte of a slot its own.
//   speed      32767 - 3906 = 28861: 1280 rpm
//   voltage    482
//   current    193
//   capacity   63
//   latitude   601700000
const std::string whole_reply =
    "70a0b0bda1b101a2b2e2a3b300a4b4c1a5b500a6b63fa7b7a0a8b842a9b9ddaaba23abbb00acbc";

Report report_of(const std::string& entries) {
    const TemporaryFile file;
    file.write(recording_header + entries);
    return read_report(file.path(), Interrupts());
}

// A time with frames each 200 ms, answered after 45 ms, from `begin` on.
std::string answered(double begin_s, int frames, const std::string& frame = "00676e50") {
    std::string text;
    for (int number = 0; number < frames; ++number) {
        const double time_s = begin_s + 0.2 * number;
        char line[128];
        std::snprintf(line, sizeof line, "%.6f > %s\n", time_s, frame.c_str());
        text += line;
        std::snprintf(line, sizeof line, "%.6f < ", time_s + 0.045);
        text += line + whole_reply + "\n";
    }
    return text;
}

std::string failure_of(const std::string& content) {
    const TemporaryFile file;
    file.write(content);
    try {
        read_report(file.path(), Interrupts());
    } catch (const program::Failure& failure) {
        EXPECT_EQ(failure.status(), program::ExitStatus::bad_file);
        EXPECT_EQ(std::string(failure.what()).find('\n'), std::string::npos);
        return failure.what();
    }
    return {};
}

}  // namespace

TEST(ReportBuilder, CountsFramesRepliesAndBytes) {
    const Report report = report_of("0.000000 open\n0.000100 line 9600 8N1 none\n" + answered(0.31, 10) +
                                    "2.200000 close\n2.300000 end\n");
    EXPECT_EQ(report.frames, 10u);
    EXPECT_EQ(report.replies, 10u);
    EXPECT_EQ(report.good_replies, 10u);
    EXPECT_EQ(report.bytes_sent, 40u);
    EXPECT_EQ(report.bytes_received, 390u);
    EXPECT_EQ(report.faults.all(), 0u);
    EXPECT_EQ(report.length_us, 2'300'000);
    EXPECT_EQ(report.header.device, "/dev/ttyUSB0");
    EXPECT_EQ(report.header.program, "vehicle-recorder 2.1.0");
}

TEST(ReportBuilder, TakesTheCycleTimeFromFrameToFrame) {
    const Report report = report_of(
        "0.000000 open\n0.300000 > 00676e50\n0.510000 > 00676e50\n0.730000 > 00676e50\n0.800000 close\n");
    EXPECT_EQ(report.cycle.count(), 2u);
    EXPECT_EQ(report.cycle.shortest_us(), 210'000);
    EXPECT_EQ(report.cycle.longest_us(), 220'000);
    EXPECT_DOUBLE_EQ(report.cycle.mean_us(), 215'000);
    EXPECT_DOUBLE_EQ(report.cycle.deviation_us(), 5'000);
    EXPECT_EQ(report.cycle_ms.extremes()->min, 210);
    EXPECT_EQ(report.cycle_ms.extremes()->max, 220);
}

TEST(ReportBuilder, CountsNoCycleOverAClosedPort) {
    const Report report = report_of(
        "0.000000 open\n0.300000 > 00676e50\n0.400000 close\n5.000000 open\n5.300000 > 00676e50\n5.500000 > "
        "00676e50\n");
    EXPECT_EQ(report.cycle.count(), 1u);
    EXPECT_EQ(report.cycle.longest_us(), 200'000);
}

TEST(ReportBuilder, TakesTheDelayFromTheFrameToTheFirstByteOfItsReply) {
    const Report report = report_of("0.000000 open\n" + answered(0.3, 3) + "1.000000 close\n");
    EXPECT_EQ(report.delay.count(), 3u);
    EXPECT_EQ(report.delay.shortest_us(), 45'000);
    EXPECT_EQ(report.delay.longest_us(), 45'000);
}

TEST(ReportBuilder, FollowsTheSetPoints) {
    const Report report = report_of(
        "0.000000 open\n0.300000 > 00676e50\n0.500000 > 78962f51\n0.700000 > ff23ac51\n0.900000 > "
        "00676e50\n1 "
        "close\n");
    EXPECT_EQ(report.throttle.first(), 0);
    EXPECT_EQ(report.throttle.last(), 0);
    EXPECT_EQ(report.throttle.extremes()->max, 255);
    EXPECT_EQ(report.direction.extremes()->min, 35);
    EXPECT_EQ(report.direction.extremes()->max, 150);
    EXPECT_EQ(report.bucket.extremes()->min, 47);
    EXPECT_EQ(report.bucket.extremes()->max, 172);
    EXPECT_EQ(report.motor.extremes()->min, 0);
    EXPECT_EQ(report.motor.extremes()->max, 1);
}

TEST(ReportBuilder, InterruptsTheCurvesWhereThePortWasClosed) {
    const Report report = report_of("0.000000 open\n" + answered(0.1, 2) + "0.400000 close\n0.410000 open\n" +
                                    answered(0.42, 2) + "1.000000 close\n");
    for (const Series* series : {&report.throttle, &report.speed, &report.capacity, &report.delay_ms}) {
        const TimeBuckets<Stretch>& stretches = series->stretches();
        int begun = 0;
        for (std::size_t index = 0; index < stretches.size(); ++index) {
            begun += stretches[index].count > 0 && !stretches[index].joined ? 1 : 0;
        }
        EXPECT_EQ(begun, 2);
    }
}

TEST(ReportBuilder, FollowsWhatTheVehicleTells) {
    const Report report = report_of("0.000000 open\n" + answered(0.3, 2) + "1.000000 close\n");
    EXPECT_EQ(report.speed.first(), 1280);
    EXPECT_EQ(report.speed.extremes()->max, 1280);
    EXPECT_EQ(report.voltage.last(), 482);
    EXPECT_EQ(report.current.last(), 193);
    EXPECT_EQ(report.capacity.last(), 63);
}

TEST(ReportBuilder, TakesFramesAndRepliesThatComeInPieces) {
    const std::string whole = whole_reply;
    const Report report = report_of("0.000000 open\n0.300000 > 0067\n0.301000 > 6e50\n0.310000 < " +
                                    whole.substr(0, 20) + "\n+9000 < " + whole.substr(20) +
                                    "\n0.500000 > 00676e5000676e\n0.500100 > 50\n0.600000 close\n");
    EXPECT_EQ(report.frames, 3u);
    EXPECT_EQ(report.good_replies, 1u);
    EXPECT_EQ(report.delay.count(), 1u);
    EXPECT_EQ(report.delay.longest_us(), 9'000);  // from the frame's last byte
    EXPECT_EQ(report.speed.last(), 1280);
}

TEST(ReportBuilder, TellsLostAndShortReplies) {
    const Report report =
        report_of("0.000000 open\n" + answered(0.3, 2) + "0.700000 > 00676e50\n0.900000 > 00676e50\n" +
                  "0.945000 < 7fa0b0ff\n" + answered(1.1, 2) + "2.000000 close\n2.100000 end\n");
    EXPECT_EQ(report.frames, 6u);
    EXPECT_EQ(report.replies, 5u);
    EXPECT_EQ(report.good_replies, 4u);
    EXPECT_EQ(report.faults[Fault::lost], 1u);
    EXPECT_EQ(report.faults[Fault::cut], 1u);
    EXPECT_EQ(report.faults[Fault::garbled], 0u);
    ASSERT_EQ(report.faulty.count, 2u);
    EXPECT_EQ(report.faulty.entries[0].time_us, 700'000);
    EXPECT_EQ(report.faulty.entries[0].fault, Fault::lost);
    EXPECT_EQ(report.faulty.entries[0].bytes, 0u);
    EXPECT_FALSE(report.faulty.entries[0].delay_us);
    EXPECT_EQ(report.faulty.entries[1].time_us, 900'000);
    EXPECT_EQ(report.faulty.entries[1].fault, Fault::cut);
    EXPECT_EQ(report.faulty.entries[1].bytes, 4u);
    EXPECT_EQ(report.faulty.entries[1].delay_us, 45'000);
    std::uint64_t over_time = 0;
    for (std::size_t index = 0; index < report.faults_over_time.size(); ++index) {
        over_time += report.faults_over_time[index].all();
    }
    EXPECT_EQ(over_time, 2u);
}

TEST(ReportBuilder, TellsRepliesWithMoreBytesThanTheyHave) {
    const Report report = report_of("0.000000 open\n0.300000 > 00676e50\n0.310000 < aabbcc" + whole_reply +
                                    "\n" + answered(0.5, 1) + "1.000000 close\n");
    EXPECT_EQ(report.faults[Fault::garbled], 1u);
    EXPECT_EQ(report.faulty.entries[0].bytes, 42u);
}

TEST(ReportBuilder, DoesNotMissTheReplyToTheLastFrame) {
    // The port is closed right behind the neutral frame: nobody waits for the reply.
    const Report report = report_of("0.000000 open\n" + answered(0.3, 2) +
                                    "0.700000 > 00676e50\n0.700300 close\n0.800000 end\n");
    EXPECT_EQ(report.frames, 3u);
    EXPECT_EQ(report.replies, 2u);
    EXPECT_EQ(report.faults.all(), 0u);
}

TEST(ReportBuilder, MissesAReplyForWhichTheLineStayedOpenLong) {
    const Report report =
        report_of("0.000000 open\n0.300000 > 00676e50\n1.000000 > 00676e50\n1.300000 close\n");
    EXPECT_EQ(report.frames, 2u);
    EXPECT_EQ(report.faults[Fault::lost], 1u);
    EXPECT_EQ(report.faulty.entries[0].time_us, 300'000);
}

TEST(ReportBuilder, CountsALateReplyAndWhatElseIsWrongWithIt) {
    const Report report = report_of(
        "0.000000 open\n" + answered(0.3, 2) + "0.700000 > 00676e50\n0.900000 > 00676e50\n0.910000 < " +
        whole_reply + "\n0.945000 < " + whole_reply + "\n" + answered(1.1, 2) + "2.000000 close\n");
    EXPECT_EQ(report.frames, 6u);
    EXPECT_EQ(report.replies, 6u);
    EXPECT_EQ(report.good_replies, 5u);
    EXPECT_EQ(report.faults[Fault::late], 1u);
    EXPECT_EQ(report.faults[Fault::lost], 0u);
    ASSERT_EQ(report.faulty.count, 1u);
    EXPECT_EQ(report.faulty.entries[0].time_us, 700'000);
    EXPECT_EQ(report.faulty.entries[0].fault, Fault::late);
    EXPECT_EQ(report.faulty.entries[0].delay_us, 210'000);
}

TEST(ReportBuilder, DoesNotTrustFramesThatHaveLostTheStep) {
    const Report report =
        report_of("0.000000 open\n" + answered(0.3, 2) + "0.700000 > 6e510067\n0.900000 close\n");
    EXPECT_EQ(report.frames, 3u);
    EXPECT_EQ(report.frames_out_of_step, 1u);
    EXPECT_EQ(report.throttle.extremes()->max, 0);
}

TEST(ReportBuilder, CountsBytesThatAnswerNoFrame) {
    const Report report =
        report_of("0.000000 open\n0.100000 < 414243\n" + answered(0.3, 3) + "1.000000 close\n");
    EXPECT_EQ(report.stray_bytes, 3u);
    EXPECT_EQ(report.replies, 3u);
}

TEST(ReportBuilder, FindsTheLongestSilence) {
    const Report report =
        report_of("0.000000 open\n" + answered(0.3, 2) + "0.700000 > 00676e50\n0.900000 > 00676e50\n" +
                  answered(1.1, 1) + "1.200000 close\n");
    EXPECT_EQ(report.silence_us, 600'000);  // from the reply at 0.545 to that at 1.145
    EXPECT_EQ(report.silence_from_us, 545'000);
}

TEST(ReportBuilder, CountsSilenceFromTheFirstFrameToTheClosing) {
    const Report mute =
        report_of("0.000000 open\n0.300000 > 00676e50\n0.500000 > 00676e50\n3.000000 close\n");
    EXPECT_EQ(mute.silence_us, 2'700'000);
    EXPECT_EQ(mute.silence_from_us, 300'000);
    const Report closed = report_of("0.000000 open\n" + answered(0.3, 2) + "0.600000 close\n9.000000 open\n" +
                                    answered(9.3, 2) + "9.600000 close\n");
    EXPECT_EQ(closed.silence_us, 200'000);
}

TEST(ReportBuilder, ListsOpeningsWithTheirSettingsAndWhatTheyLeft) {
    const Report report =
        report_of("0.010000 open\n0.020000 line 9600 8N1 none\n" + answered(0.3, 2, "78676e51") +
                  "1.000000 close\n2.000000 open\n2.000100 line 115200 8N1 rtscts\n" + answered(2.3, 3) +
                  "3.000000 close\n4.000000 open\n");
    ASSERT_EQ(report.openings.count, 3u);
    const Opening& first = report.openings.entries[0];
    EXPECT_EQ(first.opened_us, 10'000);
    EXPECT_EQ(first.closed_us, 1'000'000);
    EXPECT_EQ(first.settings, "9600 8N1");
    EXPECT_EQ(first.frames, 2u);
    EXPECT_EQ(first.replies, 2u);
    EXPECT_EQ(first.rest, Rest::driving);
    EXPECT_EQ(first.throttle, 120);
    const Opening& second = report.openings.entries[1];
    EXPECT_EQ(second.settings, "115200 8N1 rtscts");
    EXPECT_EQ(second.frames, 3u);
    EXPECT_EQ(second.rest, Rest::neutral);
    const Opening& third = report.openings.entries[2];
    EXPECT_FALSE(third.closed_us);
    EXPECT_EQ(third.frames, 0u);
    EXPECT_EQ(third.rest, Rest::no_frame);
    EXPECT_EQ(third.settings, "");
}

TEST(ReportBuilder, TellsWhatTheLastFrameLeft) {
    const auto rest_of = [](const std::string& frame) {
        return report_of("0.000000 open\n0.300000 > " + frame + "\n0.400000 close\n").ending.rest;
    };
    EXPECT_EQ(rest_of("00676e50"), Rest::neutral);
    EXPECT_EQ(rest_of("00672f50"), Rest::motor_off);
    EXPECT_EQ(rest_of("78676e50"), Rest::motor_off);
    EXPECT_EQ(rest_of("00676e51"), Rest::motor_on);
    EXPECT_EQ(rest_of("01676e51"), Rest::driving);
    EXPECT_EQ(report_of("0.000000 open\n1.000000 close\n").ending.rest, Rest::no_frame);
}

TEST(ReportBuilder, CountsClosingsThatLeftTheMotorOn) {
    const std::string rest = "00676e50";
    const std::string driving = "d2676e51";
    const std::string standing = "00676e51";
    const auto drive = [](double begin_s, const std::string& frame) {
        return seconds_text(static_cast<std::uint64_t>(1e6 * begin_s)) + " open\n" +
               answered(begin_s + 0.3, 3, frame) +
               seconds_text(static_cast<std::uint64_t>(1e6 * (begin_s + 1))) + " close\n";
    };
    const Report once = report_of(drive(0, rest) + drive(2, driving) + drive(4, rest) + "6.000000 end\n");
    EXPECT_EQ(once.left_on.count, 1u);
    EXPECT_EQ(once.left_on.first.closed_us, 3'000'000);
    EXPECT_EQ(once.left_on.first.rest, Rest::driving);
    EXPECT_EQ(once.left_on.first.throttle, 210);
    EXPECT_EQ(report_of(drive(0, standing) + drive(2, driving) + drive(4, rest)).left_on.count, 2u);
    EXPECT_EQ(report_of(drive(0, rest) + drive(2, rest)).left_on.count, 0u);
    // The last frame of all is told of by itself, also when the port is opened once more.
    EXPECT_EQ(report_of(drive(0, rest) + drive(2, driving) + "4.000000 open\n5.000000 close\n").left_on.count,
              0u);
    // The neutral frame brings the vehicle to rest wherever the program's frames began.
    const std::string out_of_step =
        "0.000000 open\n0.100000 > d2676e51d2676e51d2\n0.200000 > 00676e50\n1.000000 close\n";
    const Report neutral = report_of(out_of_step + drive(2, rest));
    EXPECT_EQ(neutral.left_on.count, 0u);
    EXPECT_EQ(neutral.openings.entries[0].rest, Rest::neutral);
}

TEST(ReportBuilder, TellsWhoStoppedTheVehicle) {
    const Report by_recorder =
        report_of("0.000000 open\n" + answered(0.3, 2, "78676e51") +
                  "0.800000 close\n0.900000 > 00676e50\n0.900100 note neutral frame sent by the "
                  "recorder\n1.000000 note the program was ended by signal 9\n1.100000 end\n");
    EXPECT_EQ(by_recorder.ending.rest, Rest::neutral);
    EXPECT_EQ(by_recorder.ending.sender, LastSender::recorder);
    EXPECT_EQ(by_recorder.ending.program.signal, 9);
    EXPECT_FALSE(by_recorder.ending.program.status);
    const Report by_program =
        report_of("0.000000 open\n" + answered(0.3, 2) +
                  "0.800000 close\n1.000000 note the program ended with status 3\n1.100000 end\n");
    EXPECT_EQ(by_program.ending.sender, LastSender::program);
    EXPECT_EQ(by_program.ending.program.status, 3);
    EXPECT_FALSE(by_program.ending.program.signal);
}

TEST(ReportBuilder, TellsALostLineAndBytesThatWereNotRecorded) {
    const Report report = report_of(
        "0.000000 open\n0.300000 note the line /dev/ttyUSB0 is lost: Input/output error\n"
        "0.400000 note bytes not recorded 1200\n0.500000 note bytes not recorded 300\n0.600000 end\n");
    EXPECT_TRUE(report.ending.line_lost);
    EXPECT_EQ(report.ending.bytes_not_recorded, 1500u);
    ASSERT_EQ(report.notes.count, 3u);
    EXPECT_EQ(report.notes.entries[0].time_us, 300'000);
    EXPECT_EQ(report.notes.entries[0].text, "the line /dev/ttyUSB0 is lost: Input/output error");
    EXPECT_FALSE(report_of("0.000000 open\n0.600000 end\n").ending.line_lost);
}

TEST(ReportBuilder, TellsOfALineThatCouldNotBeOpened) {
    const std::string note = "0.100000 note /dev/ttyUSB0 cannot be opened: No such file or directory\n";
    EXPECT_TRUE(report_of("0.000000 open\n" + note + "0.200000 close\n0.300000 end\n").ending.line_refused);
    EXPECT_FALSE(report_of("0.000000 open\n0.200000 close\n0.300000 end\n").ending.line_refused);
}

TEST(ReportBuilder, TellsWhetherTheRecordingIsWhole) {
    EXPECT_TRUE(report_of("0.000000 open\n0.100000 close\n0.200000 end\n").ending.whole);
    EXPECT_FALSE(report_of("0.000000 open\n0.100000 close\n").ending.whole);
    EXPECT_FALSE(report_of("0.000000 open\n0.100000 close\n0.2 en").ending.whole);
}

TEST(ReportBuilder, CountsLinesThatAreNoEntries) {
    const Report report = report_of("0.000000 open\nnonsense\n0.1 < xyz\n0.200000 close\n0.300000 end\n");
    EXPECT_EQ(report.unread_lines, 2u);
    EXPECT_EQ(report.first_unread_line, 6u);
}

TEST(ReportBuilder, IsContentWithARecordingOfNothing) {
    const Report report = report_of("0.000000 end\n");
    EXPECT_EQ(report.frames, 0u);
    EXPECT_EQ(report.openings.count, 0u);
    EXPECT_EQ(report.length_us, 0);
    EXPECT_TRUE(report.ending.whole);
}

TEST(ReportBuilder, KeepsTheFirstOfLongListsAndCountsAll) {
    std::string entries = "0.000000 open\n";
    for (int number = 0; number < 80; ++number) {
        entries += std::to_string(number + 1) + ".000000 > 00676e50\n";
    }
    const Report report = report_of(entries + "80.500000 close\n");
    EXPECT_EQ(report.faults[Fault::lost], 79u);
    EXPECT_EQ(report.faulty.count, 79u);
    EXPECT_EQ(report.faulty.entries.size(), FirstOf<FaultyReply>::most);
}

TEST(ReportBuilder, RefusesWhatIsNoRecording) {
    EXPECT_NE(failure_of(""), "");
    EXPECT_NE(failure_of("(1795310703.1) can0 123#11\n"), "");
    EXPECT_NE(failure_of("# vehicle-recorder recording 2\n"), "");
    EXPECT_NE(failure_of(recording_header + "1.000000 open\n0.500000 close\n"),
              "");  // time that runs backwards
    EXPECT_THROW(read_report("/nonexistent", Interrupts()), program::Failure);
}

TEST(ReportBuilder, ReadsARecordingThatIsCutAnywhere) {
    const std::string whole = recording_header + "0.000000 open\n0.000100 line 9600 8N1 none\n" +
                              answered(0.31, 2) +
                              "1.000000 close\n1.100000 note the program ended with status 0\n1.200000 end\n";
    const TemporaryFile file;
    std::uint64_t frames = 0;
    std::uint64_t read = 0;
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        file.write(whole.substr(0, length));
        try {
            const Report report = read_report(file.path(), Interrupts());
            EXPECT_GE(report.frames, frames) << length;
            frames = report.frames;
            EXPECT_EQ(report.ending.whole, length == whole.size()) << length;
            ++read;
        } catch (const program::Failure& failure) {
            EXPECT_LE(length, recording_header.size()) << length << failure.what();
            EXPECT_EQ(failure.status(), program::ExitStatus::bad_file);
        }
    }
    EXPECT_EQ(frames, 2u);
    EXPECT_GE(read, whole.size() - recording_header.size());
}
