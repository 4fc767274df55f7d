// Logs in candump's format: lines as can-utils write them, as other programs write them, and broken ones.

#include "nodevik/recording/framelog.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/allocationcount.h"
#include "tests/support/childprocess.h"
#include "tests/support/temporaryfile.h"

namespace {

class Log : public testing::Test {
protected:
    void write(const std::string& text) const { file.write(text); }
    std::string content() const { return file.content(); }

    TemporaryFile file;
    const std::string& path = file.path();
};

LogLine parse(const std::string& text, LogFrame& frame) {
    return parse_log_line(text.data(), text.size(), frame);
}

LogLine kind(const std::string& text) {
    LogFrame frame;
    return parse(text, frame);
}

LogFrame parsed(const std::string& text) {
    LogFrame frame;
    EXPECT_EQ(parse(text, frame), LogLine::frame) << text;
    return frame;
}

std::string formatted(const LogFrame& frame) {
    std::array<char, longest_log_line> room{};
    return {room.data(), format_log_line(frame, room)};
}

LogFrame some_frame(unsigned int number) {
    LogFrame frame;
    frame.time_us = 1'436'509'052'249'713 + number;
    frame.set_name("can0");
    frame.identifier = 0x180 + number % 0x100;
    frame.length = number % 9;
    for (unsigned int i = 0; i < frame.length; ++i) {
        frame.data[i] = static_cast<unsigned char>(number + i);
    }
    return frame;
}

}  // namespace

TEST(LogLine, OfCandumpIsAFrame) {
    const LogFrame frame = parsed("(1436509052.249713) vcan0 044#2A366C2BBA");
    EXPECT_EQ(frame.time_us, 1'436'509'052'249'713U);
    EXPECT_STREQ(frame.name.data(), "vcan0");
    EXPECT_EQ(frame.identifier, 0x44U);
    EXPECT_FALSE(frame.extended);
    EXPECT_FALSE(frame.remote);
    EXPECT_EQ(frame.length, 5U);
    EXPECT_EQ(frame.data, (std::array<unsigned char, 8>{0x2A, 0x36, 0x6C, 0x2B, 0xBA}));
    EXPECT_EQ(frame.direction, LogFrame::Direction::unknown);
}

TEST(LogLine, MayHoldNoData) {
    EXPECT_EQ(parsed("(0000000001.000000) can0 080#").length, 0U);
}

TEST(LogLine, TellsTheWidthOfAnIdentifierByItsDigits) {
    EXPECT_FALSE(parsed("(0000000001.000000) can0 7FF#").extended);
    const LogFrame frame = parsed("(0000000001.000000) can0 000007FF#11");
    EXPECT_TRUE(frame.extended);
    EXPECT_EQ(frame.identifier, 0x7FFU);
    EXPECT_EQ(parsed("(0000000001.000000) can0 1FFFFFFF#").identifier, 0x1FFFFFFFU);
    EXPECT_EQ(kind("(0000000001.000000) can0 800#"), LogLine::foreign);
    EXPECT_EQ(kind("(0000000001.000000) can0 85#"), LogLine::foreign);
    EXPECT_EQ(kind("(0000000001.000000) can0 0185#"), LogLine::foreign);
    EXPECT_EQ(kind("(0000000001.000000) can0 80000000#"), LogLine::foreign);
}

TEST(LogLine, MayBeARemoteRequest) {
    const LogFrame frame = parsed("(0000000001.000000) can0 705#R");
    EXPECT_TRUE(frame.remote);
    EXPECT_EQ(frame.length, 0U);
    EXPECT_EQ(parsed("(0000000001.000000) can0 705#R1").length, 1U);
    EXPECT_EQ(parsed("(0000000001.000000) can0 705#R8_F").length, 8U);
    EXPECT_EQ(kind("(0000000001.000000) can0 705#R9"), LogLine::foreign);
    EXPECT_EQ(kind("(0000000001.000000) can0 705#R11"), LogLine::foreign);
}

TEST(LogLine, MayTellTheDirection) {
    EXPECT_EQ(parsed("(0000000001.000000) can0 123#11 R").direction, LogFrame::Direction::received);
    EXPECT_EQ(parsed("(0000000001.000000) can0 123#11 T").direction, LogFrame::Direction::sent);
    EXPECT_EQ(parsed("(0000000001.000000) can0 123#R T").direction, LogFrame::Direction::sent);
    EXPECT_EQ(kind("(0000000001.000000) can0 123#11 X"), LogLine::foreign);
    EXPECT_EQ(kind("(0000000001.000000) can0 123#11 TT"), LogLine::foreign);
}

TEST(LogLine, MayLookAsOtherProgramsWriteIt) {
    EXPECT_STREQ(parsed("(0000000001.000000)   can0 123#11").name.data(), "can0")
        << "filled up to the longest name";
    EXPECT_EQ(parsed("(0000000001.000000) can0 123#aa.bb.cc").data[2], 0xCC);
    EXPECT_EQ(parsed("(0000000001.000000) can0 123#1122334455667788_F").length, 8U);
    EXPECT_EQ(parsed("(0000000001.000000) can0 123#11\r").length, 1U);
    EXPECT_EQ(parsed("(1.000000) can0 123#11").time_us, 1'000'000U);
}

TEST(LogLine, MayHaveAnyNumberOfDigitsOfASecond) {
    EXPECT_EQ(parsed("(0000000001.123456789) can0 123#").time_us, 1'123'456U);
    EXPECT_EQ(parsed("(0000000001.5) can0 123#").time_us, 1'500'000U);
    EXPECT_EQ(kind("(0000000001.) can0 123#"), LogLine::foreign);
    EXPECT_EQ(kind("(0000000001) can0 123#"), LogLine::foreign);
    EXPECT_EQ(kind("(-000000001.000000) can0 123#"), LogLine::foreign);
}

TEST(LogLine, OfOtherKindsIsNoFrame) {
    EXPECT_EQ(kind("(0000000001.000000) can0 20000004#000C000000000000"), LogLine::error_frame);
    EXPECT_EQ(kind("(0000000001.000000) can0 123##5112233"), LogLine::fd_frame);
    EXPECT_EQ(kind("(0000000001.000000) can0 00123#81:00:00000000#112233"), LogLine::fd_frame);
    EXPECT_EQ(kind("DROPCOUNT: dropped 5 CAN frames on 'can0' socket (total drops 5)"), LogLine::drop_count);
    EXPECT_EQ(kind("  \t"), LogLine::empty);
    EXPECT_EQ(kind(""), LogLine::empty);
}

TEST(LogLine, ThatIsBrokenIsForeign) {
    for (const char* text : {"(",
                             "(1436509052.249713",
                             "(1436509052.249713)",
                             "(1436509052.249713) ",
                             "(1436509052.249713) can0",
                             "(1436509052.249713) can0 ",
                             "(1436509052.249713) can0 18",
                             "(1436509052.249713) can0 185",
                             "(1436509052.249713) can0 185#1",
                             "(1436509052.249713) can0 185#11223344556677889900",
                             "(1436509052.249713)can0 185#11",
                             "(1436509052.249713) can0 185#11 22",
                             "(1436509052.249713) can0 185#1G",
                             "(1436509052.249713) can0 185#11_F",
                             "(1436509052.249713) can0 #11",
                             "(1436509052.249713) abcdefghijklmnop 185#11",
                             "1436509052.249713 can0 185#11",
                             "(99999999999999999999.000000) can0 185#11",
                             "can0 185 [1] 11",
                             "# a comment",
                             "(1436509052.249713) can0 185#R8_0",
                             "(1436509052.249713) can0 18G#11"}) {
        EXPECT_EQ(kind(text), LogLine::foreign) << text;
    }
}

TEST(LogLine, IsWrittenAsEveryReaderTakesIt) {
    LogFrame frame;
    frame.time_us = 1'436'509'052'249'713;
    frame.set_name("can0");
    frame.identifier = 0x85;
    frame.length = 3;
    frame.data = {0x0A, 0xBC, 0xFF};
    frame.direction = LogFrame::Direction::sent;
    EXPECT_EQ(formatted(frame), "(1436509052.249713) can0 085#0ABCFF\n");
    frame.length = 0;
    EXPECT_EQ(formatted(frame), "(1436509052.249713) can0 085#\n");
    frame.extended = true;
    EXPECT_EQ(formatted(frame), "(1436509052.249713) can0 00000085#\n");
    frame.remote = true;
    EXPECT_EQ(formatted(frame), "(1436509052.249713) can0 00000085#R\n");
    frame.length = 8;
    EXPECT_EQ(formatted(frame), "(1436509052.249713) can0 00000085#R8\n");
    frame.time_us = 7;
    EXPECT_EQ(formatted(frame), "(0000000000.000007) can0 00000085#R8\n");
}

TEST(LogLine, FitsWhateverTheFrame) {
    LogFrame frame;
    frame.time_us = UINT64_MAX;
    frame.set_name("abcdefghijklmnopqrst");
    frame.extended = true;
    frame.identifier = UINT32_MAX;
    frame.length = UINT32_MAX;
    EXPECT_EQ(formatted(frame), "(18446744073709.551615) abcdefghijklmno 1FFFFFFF#0000000000000000\n");
    EXPECT_LE(formatted(frame).size(), longest_log_line);
}

TEST(LogLine, HasAlwaysANameWithoutBlanks) {
    LogFrame frame;
    frame.set_name("");
    EXPECT_STREQ(frame.name.data(), "_");
    frame.set_name("my bus");
    EXPECT_STREQ(frame.name.data(), "my_bus");
}

TEST(LogLine, ComesBackAsItWas) {
    for (unsigned int number = 0; number < 1000; ++number) {
        LogFrame frame = some_frame(number);
        frame.extended = number % 3 == 0;
        frame.remote = number % 7 == 0;
        if (frame.remote) {
            frame.data = {};
        }
        std::string line = formatted(frame);
        line.pop_back();
        EXPECT_TRUE(parsed(line).same_frame(frame)) << line;
    }
}

TEST_F(Log, IsReadFrameAfterFrameAndTellsWhatItPassesOver) {
    write(
        "(0000000001.000000) can0 181#01\n"
        "\n"
        "(0000000001.000001) can0 20000004#000C000000000000\n"
        "(0000000001.000002) can0 123##1112233\n"
        "something else\n"
        "DROPCOUNT: dropped 5 CAN frames on 'can0' socket (total drops 5)\n"
        "(0000000002.000000) can0 182#02\n"
        "(0000000003.000000) can0 183#0");
    FrameLogReader reader;
    std::vector<std::pair<std::uint64_t, std::string>> foreign;
    reader.set_foreign_line(
        [&foreign](std::uint64_t line, const char* reason) { foreign.emplace_back(line, reason); });
    ASSERT_EQ(reader.open(path.c_str()), 0);
    LogFrame frame;
    ASSERT_EQ(reader.next(frame), 0);
    EXPECT_EQ(frame.identifier, 0x181U);
    EXPECT_EQ(reader.line(), 1U);
    ASSERT_EQ(reader.next(frame), 0);
    EXPECT_EQ(frame.identifier, 0x182U);
    EXPECT_EQ(reader.line(), 7U);
    EXPECT_EQ(reader.next(frame), 1);
    EXPECT_EQ(reader.next(frame), 1);
    EXPECT_EQ(reader.passed_over().error_frames, 1U);
    EXPECT_EQ(reader.passed_over().fd_frames, 1U);
    EXPECT_EQ(reader.passed_over().drop_counts, 1U);
    EXPECT_EQ(reader.passed_over().foreign, 2U);
    const std::vector<std::pair<std::uint64_t, std::string>> expected{{5, "no frame in candump's format"},
                                                                      {8, "the log ends within the line"}};
    EXPECT_EQ(foreign, expected);
}

TEST_F(Log, ThatIsCutAnywhereLosesItsLastLineOnly) {
    std::string whole;
    for (unsigned int number = 0; number < 3; ++number) {
        whole += formatted(some_frame(number + 8));
    }
    for (std::size_t cut = 0; cut <= whole.size(); ++cut) {
        write(whole.substr(0, cut));
        FrameLogReader reader;
        ASSERT_EQ(reader.open(path.c_str()), 0);
        unsigned int frames = 0;
        LogFrame frame;
        while (reader.next(frame) == 0) {
            EXPECT_TRUE(frame.same_frame(some_frame(frames + 8)));
            ++frames;
        }
        const std::string kept = whole.substr(0, cut);
        EXPECT_EQ(frames, static_cast<unsigned int>(std::count(kept.begin(), kept.end(), '\n')));
        EXPECT_EQ(reader.passed_over().foreign, kept.empty() || kept.back() == '\n' ? 0U : 1U);
    }
}

TEST_F(Log, LinesOfAnyLengthArePassedOver) {
    const std::string frame_line = formatted(some_frame(1));
    for (const std::size_t length : {4095U, 4096U, 4097U, 16383U, 16384U, 16385U, 100'000U}) {
        write(std::string(length, 'x') + "\n" + frame_line + std::string(length, 'y'));
        FrameLogReader reader;
        ASSERT_EQ(reader.open(path.c_str()), 0);
        LogFrame frame;
        ASSERT_EQ(reader.next(frame), 0) << length;
        EXPECT_EQ(reader.line(), 2U) << length;
        EXPECT_EQ(reader.next(frame), 1) << length;
        EXPECT_EQ(reader.passed_over().foreign, 2U) << length;
    }
}

TEST_F(Log, CanBeReadAgainFromTheFront) {
    write(formatted(some_frame(1)) + "x\n");
    FrameLogReader reader;
    EXPECT_EQ(reader.rewind(), -1);
    ASSERT_EQ(reader.open(path.c_str()), 0);
    LogFrame frame;
    EXPECT_EQ(reader.next(frame), 0);
    EXPECT_EQ(reader.next(frame), 1);
    ASSERT_EQ(reader.rewind(), 0);
    EXPECT_EQ(reader.passed_over().foreign, 0U);
    EXPECT_EQ(reader.next(frame), 0);
    EXPECT_EQ(reader.line(), 1U);
}

TEST_F(Log, ThatCannotBeReadTellsWhy) {
    FrameLogReader reader;
    EXPECT_EQ(reader.open((path + "-missing").c_str()), -1);
    EXPECT_EQ(errno, ENOENT);
    LogFrame frame;
    EXPECT_EQ(reader.next(frame), -1);
    EXPECT_EQ(errno, EBADF);
    ASSERT_EQ(reader.open("/"), 0);
    EXPECT_EQ(reader.next(frame), -1);
    EXPECT_EQ(errno, EISDIR);
}

TEST_F(Log, IsWrittenInBlocks) {
    FrameLogWriter writer;
    ASSERT_EQ(writer.open(path.c_str()), 0);
    std::string expected;
    const unsigned long before = allocations();
    for (unsigned int number = 0; number < 10'000; ++number) {
        ASSERT_EQ(writer.append(some_frame(number)), 0);
    }
    EXPECT_EQ(allocations(), before);
    EXPECT_LT(writer.size(), content().size() + 65536);
    ASSERT_EQ(writer.flush(), 0);
    for (unsigned int number = 0; number < 10'000; ++number) {
        expected += formatted(some_frame(number));
    }
    EXPECT_EQ(content(), expected);
    EXPECT_EQ(writer.size(), expected.size());
    EXPECT_EQ(writer.close(), 0);
    EXPECT_EQ(writer.lost(), 0U);
}

TEST_F(Log, IsWholeWhenItsWriterGoes) {
    {
        FrameLogWriter writer;
        ASSERT_EQ(writer.open(path.c_str()), 0);
        writer.append(some_frame(1));
        EXPECT_EQ(content(), "");
    }
    EXPECT_EQ(content(), formatted(some_frame(1)));
}

TEST_F(Log, OnAFullDiskHoldsWholeLinesAndGoesOnWhenThereIsRoom) {
    const ChildResult child = run_in_child([this] {
        std::signal(SIGXFSZ, SIG_IGN);
        FrameLogWriter writer;
        writer.open(path.c_str());
        rlimit limit{};
        getrlimit(RLIMIT_FSIZE, &limit);
        const rlim_t before = limit.rlim_cur;
        limit.rlim_cur = 100;
        setrlimit(RLIMIT_FSIZE, &limit);
        unsigned int kept = 0;
        for (unsigned int number = 0; number < 5000; ++number) {
            kept += writer.append(some_frame(number)) == 0 ? 1 : 0;
        }
        const int flushed = writer.flush();
        const int reason = errno;
        const std::string full = content();
        limit.rlim_cur = before;
        setrlimit(RLIMIT_FSIZE, &limit);
        const int closed = writer.close();
        std::printf("%d %d %d %d %d %zu", flushed, reason == EFBIG, full.size() <= 100 && full.back() == '\n',
                    closed, writer.lost() + kept == 5000, full.size());
    });
    EXPECT_EQ(child.out.substr(0, 10), "-1 1 1 0 1") << child.out << child.err;
    FrameLogReader reader;
    ASSERT_EQ(reader.open(path.c_str()), 0);
    LogFrame frame;
    unsigned int frames = 0;
    while (reader.next(frame) == 0) {
        EXPECT_TRUE(frame.same_frame(some_frame(frames)));
        ++frames;
    }
    EXPECT_GT(frames, 1000U) << "those that were kept in memory, too";
    EXPECT_LT(frames, 5000U);
    EXPECT_EQ(reader.passed_over().foreign, 0U);
}

TEST_F(Log, CanComeThroughAPipeThatDoesNotBlock) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
    const auto send = [&ends](std::string_view text) {
        EXPECT_EQ(::write(ends[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
    };
    FrameLogReader reader;
    reader.adopt(ends[0]);
    LogFrame frame;
    EXPECT_EQ(reader.next(frame), -1);
    EXPECT_EQ(errno, EAGAIN);
    send("(1.000001) can0 1");
    EXPECT_EQ(reader.next(frame), -1);
    EXPECT_EQ(errno, EAGAIN);
    send("85#01\n(1.000002) can0 186#02\n");
    EXPECT_EQ(reader.next(frame), 0);
    EXPECT_EQ(frame.identifier, 0x185U);
    EXPECT_EQ(reader.next(frame), 0);
    EXPECT_EQ(frame.identifier, 0x186U);
    EXPECT_EQ(reader.line(), 2U);
    ::close(ends[1]);
    EXPECT_EQ(reader.next(frame), 1);
    reader.close();
    EXPECT_EQ(fcntl(ends[0], F_GETFD), -1) << "the descriptor was not closed";
}

TEST_F(Log, ThatCannotBeWrittenTellsWhyAndCountsWhatIsLost) {
    FrameLogWriter writer;
    EXPECT_EQ(writer.open((path + "/x").c_str()), -1);
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_EQ(writer.append(some_frame(1)), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(writer.lost(), 1U);
    ASSERT_EQ(writer.open("/dev/full"), 0);
    EXPECT_EQ(writer.append(some_frame(1)), 0);
    EXPECT_EQ(writer.flush(), -1);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(writer.close(), -1);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(writer.lost(), 1U);
}
