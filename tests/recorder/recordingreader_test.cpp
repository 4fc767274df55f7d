#include "recorder/recordingreader.h"

#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "program/failure.h"
#include "tests/recorder/recordings.h"
#include "tests/support/temporaryfile.h"

namespace vehicle_recorder {
namespace {

const std::string& header = recording_header;

struct Read {
    std::vector<Entry> entries;
    Damage damage;
    std::string damage_text;
};

// All that is read of a file with this content; "FILE" stands for its name in the text.
Read read(const std::string& content) {
    TemporaryFile file;
    file.write(content);
    RecordingReader reader(file.path());
    Read result;
    Entry entry;
    while (reader.next(entry)) {
        result.entries.push_back(entry);
    }
    result.damage = reader.damage();
    result.damage_text = reader.damage_text();
    if (const std::size_t name = result.damage_text.find(file.path()); name != std::string::npos) {
        result.damage_text.replace(name, file.path().size(), "FILE");
    }
    return result;
}

// What reading a file with this content fails with, without the file's name.
std::string failure_of(const std::string& content) {
    TemporaryFile file;
    file.write(content);
    try {
        RecordingReader reader(file.path());
        Entry entry;
        while (reader.next(entry)) {
        }
    } catch (const program::Failure& failure) {
        EXPECT_EQ(failure.status(), program::ExitStatus::bad_file);
        const std::string message = failure.what();
        EXPECT_EQ(message.rfind(file.path(), 0), 0U) << message;
        return message.substr(std::min(message.size(), file.path().size()));
    }
    return "";
}

TEST(RecordingReader, GivesHeaderAndEntries) {
    TemporaryFile file;
    file.write(header + "0.000000 open\n0.310000 > 00676e50\n+12000 < 7fa0\n0.500000 end\n");
    RecordingReader reader(file.path());
    EXPECT_EQ(reader.header().device, "/dev/ttyUSB0");
    EXPECT_EQ(reader.header().monotonic_us, 1234567890U);
    Entry entry;
    ASSERT_TRUE(reader.next(entry));
    EXPECT_EQ(entry.kind, EntryKind::open);
    EXPECT_EQ(reader.line(), 5U);
    ASSERT_TRUE(reader.next(entry));
    EXPECT_EQ(entry.bytes, (std::vector<std::uint8_t>{0, 0x67, 0x6E, 0x50}));
    ASSERT_TRUE(reader.next(entry));
    EXPECT_EQ(entry.time_us, 322000U);
    EXPECT_EQ(entry.bytes, (std::vector<std::uint8_t>{0x7F, 0xA0}));
    ASSERT_TRUE(reader.next(entry));
    EXPECT_EQ(entry.kind, EntryKind::end);
    EXPECT_FALSE(reader.next(entry));
    EXPECT_FALSE(reader.next(entry));
    EXPECT_EQ(reader.damage(), Damage());
    EXPECT_EQ(reader.damage_text(), "");
    EXPECT_EQ(reader.position(), reader.size());
    EXPECT_EQ(reader.size(), file.content().size());
}

TEST(RecordingReader, RefusesWhatIsNoRecording) {
    EXPECT_EQ(failure_of(""), " is no recording of vehicle-recorder");
    EXPECT_EQ(failure_of("hello\n"), " is no recording of vehicle-recorder");
    EXPECT_EQ(failure_of("# a comment\n"), " is no recording of vehicle-recorder");
    EXPECT_EQ(failure_of(std::string(3000000, '\0')), " is no recording of vehicle-recorder");
    EXPECT_EQ(failure_of(std::string(3000000, '#')), " is no recording of vehicle-recorder");
}

TEST(RecordingReader, RefusesANewerFormat) {
    EXPECT_EQ(failure_of("# vehicle-recorder recording 2\n# anything\n"),
              " is a recording of a newer format than this program reads: '# vehicle-recorder recording 2'");
}

TEST(RecordingReader, RefusesAWrongHeader) {
    EXPECT_EQ(failure_of("# vehicle-recorder recording 1\n# program x\n# device y\n# start z\n"),
              ": line 4 of the header is wrong");
    EXPECT_EQ(failure_of("# vehicle-recorder recording 1\n0.000000 open\n"),
              " ends within its header: nothing is recorded in it");
}

TEST(RecordingReader, RefusesFilesThatCannotBeRead) {
    EXPECT_THROW(RecordingReader("/nowhere/at/all"), program::Failure);
    try {
        const RecordingReader reader("/");
        ADD_FAILURE();
    } catch (const program::Failure& failure) {
        EXPECT_STREQ(failure.what(), "/ cannot be read: Is a directory");
    }
}

TEST(RecordingReader, FailsWhenTheTimeRunsBackwards) {
    EXPECT_EQ(failure_of(header + "2.000000 open\n1.999999 close\n"), ": the time runs backwards in line 6");
    EXPECT_EQ(failure_of(header + "2.000000 open\n+9 < 00\n+8 < 00\n"),
              ": the time runs backwards in line 7");
    EXPECT_EQ(failure_of(header + "2.000000 open\n2.000000 close\n2.000000 end\n"), "");
}

TEST(RecordingReader, PassesOverLinesThatAreNoEntries) {
    const Read result =
        read(header + "0.000000 open\nrubbish\n# device again\n\n1.000000 close\n1.000000 end\n");
    EXPECT_EQ(result.entries.size(), 3U);
    EXPECT_EQ(result.damage, (Damage{.is_cut = false, .cut_line = 0, .passed_over = 3, .first_line = 6}));
    EXPECT_EQ(result.damage_text, "FILE: 3 lines that are no entries are passed over, the first is line 6");
}

TEST(RecordingReader, PassesOverWhatStandsBehindTheEnd) {
    const Read result = read(header + "0.000000 end\n" + header + "0.000000 open\n");
    EXPECT_EQ(result.entries.size(), 1U);
    EXPECT_EQ(result.damage, (Damage{.is_cut = false, .cut_line = 0, .passed_over = 5, .first_line = 6}));
}

TEST(RecordingReader, PassesOverALineThatIsTooLong) {
    for (const std::size_t length : {RecordingReader::longest_line + 1, 3 * RecordingReader::longest_line}) {
        const Read result = read(header + "0.000000 open\n" + std::string(length, '0') + "\n0.000000 end\n");
        EXPECT_EQ(result.entries.size(), 2U);
        EXPECT_EQ(result.damage, (Damage{.is_cut = false, .cut_line = 0, .passed_over = 1, .first_line = 6}));
    }
}

TEST(RecordingReader, TellsAFileThatIsCut) {
    const Read whole_line = read(header + "0.000000 open\n");
    EXPECT_EQ(whole_line.entries.size(), 1U);
    EXPECT_EQ(whole_line.damage_text, "FILE is cut off: it does not tell its end");
    const Read torn_line = read(header + "0.000000 open\n0.310000 > 0067");
    EXPECT_EQ(torn_line.entries.size(), 1U);
    EXPECT_EQ(torn_line.damage_text, "FILE is cut off: line 6 is unfinished and left out");
    const Read zeros =
        read(header + "0.000000 open\n" + std::string(3 * RecordingReader::longest_line, '\0'));
    EXPECT_EQ(zeros.entries.size(), 1U);
    EXPECT_EQ(zeros.damage, (Damage{.is_cut = true, .cut_line = 6, .passed_over = 0, .first_line = 0}));
    const Read both = read(header + "rubbish\n0.000000 open\n0");
    EXPECT_EQ(both.damage_text,
              "FILE: 1 line that is no entry is passed over: line 5; it is cut off: line 7 is "
              "unfinished and left out");
}

TEST(RecordingReader, GivesTheWholeLinesOfAFileCutAnywhere) {
    const std::string body = "0.000000 open\n0.310000 > 00676e50\n+12000 < 7fa0\n0.500000 end\n";
    const std::string content = header + body;
    for (std::size_t length = 0; length < content.size(); length++) {
        const std::string cut = content.substr(0, length);
        if (length < header.size()) {
            EXPECT_NE(failure_of(cut), "") << length;
            continue;
        }
        const Read result = read(cut);
        const auto lines =
            std::count(cut.begin() + static_cast<std::ptrdiff_t>(header.size()), cut.end(), '\n');
        EXPECT_EQ(result.entries.size(), static_cast<std::size_t>(lines)) << length;
        EXPECT_TRUE(result.damage.is_cut) << length;
        EXPECT_EQ(result.damage.cut_line, cut.back() == '\n' ? 0 : 5 + static_cast<std::uint64_t>(lines))
            << length;
        EXPECT_EQ(result.damage.passed_over, 0U) << length;
    }
}

TEST(RecordingReader, FollowsAFileThatGrowsToItsEnd) {
    TemporaryFile file;
    const auto grow = [&file](const std::string& content) {
        std::ofstream(file.path(), std::ios::app) << content;
    };
    file.write(header + "0.000000 open\n0.31");
    RecordingReader reader(file.path(), RecordingReader::Growth::goes_on);
    Entry entry;
    EXPECT_TRUE(reader.next(entry));
    EXPECT_FALSE(reader.next(entry));
    grow("0000 > 00676e50");
    EXPECT_FALSE(reader.next(entry));
    grow("\n+12000 < 7fa0\n");
    ASSERT_TRUE(reader.next(entry));
    EXPECT_EQ(entry.time_us, 310'000U);
    EXPECT_EQ(entry.bytes, (std::vector<std::uint8_t>{0, 0x67, 0x6E, 0x50}));
    ASSERT_TRUE(reader.next(entry));
    EXPECT_EQ(entry.time_us, 322'000U);
    EXPECT_EQ(reader.line(), 7U);
    for (int i = 0; i < 4; i++) {  // one line, too long to be kept
        grow(std::string(RecordingReader::longest_line / 2, '\0'));
        EXPECT_FALSE(reader.next(entry));
    }
    grow("\n0.400000 close\n0.500000 end x\n");
    ASSERT_TRUE(reader.next(entry));
    EXPECT_EQ(entry.kind, EntryKind::close);
    EXPECT_EQ(reader.line(), 9U);
    EXPECT_FALSE(reader.next(entry));
    EXPECT_FALSE(reader.has_ended());
    EXPECT_EQ(reader.damage(), (Damage{.is_cut = false, .cut_line = 0, .passed_over = 2, .first_line = 8}));
    grow("0.500000 end\n");
    ASSERT_TRUE(reader.next(entry));
    EXPECT_TRUE(reader.has_ended());
    EXPECT_FALSE(reader.next(entry));
}

TEST(RecordingReader, ReadsMoreThanItsBufferHolds) {
    std::string content = header;
    constexpr std::uint64_t count = 50000;
    EntryFormatter formatter;
    for (std::uint64_t i = 0; i < count; i++) {
        formatter.append(content, {.time_us = i * 20000,
                                   .kind = EntryKind::sent,
                                   .bytes = {static_cast<std::uint8_t>(i), 0x67, 0x6E, 0x50},
                                   .settings = {},
                                   .text = {}});
    }
    const Read result = read(content);
    ASSERT_EQ(result.entries.size(), count);
    for (std::uint64_t i = 0; i < count; i++) {
        ASSERT_EQ(result.entries[i].time_us, i * 20000);
        ASSERT_EQ(result.entries[i].bytes[0], static_cast<std::uint8_t>(i));
    }
}

}  // namespace
}  // namespace vehicle_recorder
