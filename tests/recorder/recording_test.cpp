#include "recorder/recording.h"

#include <gtest/gtest.h>
#include <time.h>

#include <string>
#include <vector>

namespace vehicle_recorder {
namespace {

Entry entry_of(std::uint64_t time_us, EntryKind kind, std::vector<std::uint8_t> bytes = {}) {
    return {.time_us = time_us, .kind = kind, .bytes = std::move(bytes), .settings = {}, .text = {}};
}

std::string text_of(const std::vector<Entry>& entries) {
    EntryFormatter formatter;
    std::string text;
    for (const Entry& entry : entries) {
        formatter.append(text, entry);
    }
    return text;
}

std::vector<Entry> parsed(const std::string& text) {
    EntryParser parser;
    std::vector<Entry> entries;
    std::size_t begin = 0;
    while (begin < text.size()) {
        const std::size_t end = text.find('\n', begin);
        Entry entry;
        EXPECT_TRUE(parser.parse(text.substr(begin, end - begin), entry)) << text.substr(begin, end - begin);
        entries.push_back(entry);
        begin = end + 1;
    }
    return entries;
}

bool is_entry(const std::string& line) {
    EntryParser parser;
    Entry entry;
    parser.parse("1.000000 open", entry);
    return parser.parse(line, entry);
}

RecordingHeader some_header() {
    return {.program = "vehicle-recorder 2.1.0",
            .device = "/dev/ttyUSB0",
            .wall_us = 1795310703123456,
            .utc_offset_min = 120,
            .monotonic_us = 1234567890};
}

TEST(RecordingHeaderText, IsFourLines) {
    EXPECT_EQ(text_of(some_header()),
              "# vehicle-recorder recording 1\n"
              "# program vehicle-recorder 2.1.0\n"
              "# device /dev/ttyUSB0\n"
              "# start 2026-11-22T03:25:03.123456+02:00 monotonic 1234.567890\n");
}

TEST(RecordingHeaderText, ReadsBackAsItWas) {
    RecordingHeader header = some_header();
    header.device = "/dev/a b\\c\nd";
    header.utc_offset_min = -570;
    header.wall_us = -1;
    std::string text = text_of(header);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 4);
    HeaderParser parser;
    while (!text.empty()) {
        EXPECT_EQ(parser.parse(text.substr(0, text.find('\n'))), HeaderParser::Line::header);
        text.erase(0, text.find('\n') + 1);
    }
    EXPECT_TRUE(parser.is_whole());
    EXPECT_EQ(parser.header(), header);
}

TEST(RecordingHeaderText, TellsANewerFormatFromSomethingElse) {
    EXPECT_EQ(HeaderParser().parse("# vehicle-recorder recording 2"), HeaderParser::Line::newer);
    EXPECT_EQ(HeaderParser().parse("# vehicle-recorder recording 0"), HeaderParser::Line::none);
    EXPECT_EQ(HeaderParser().parse("# vehicle-recorder recording -1"), HeaderParser::Line::none);
    EXPECT_EQ(HeaderParser().parse("# vehicle-recorder recording "), HeaderParser::Line::none);
    EXPECT_EQ(HeaderParser().parse("# program x"), HeaderParser::Line::none);
}

TEST(RecordingHeaderText, PassesOverLinesThatThisVersionDoesNotKnow) {
    HeaderParser parser;
    parser.parse("# vehicle-recorder recording 1");
    EXPECT_EQ(parser.parse("# operator somebody"), HeaderParser::Line::header);
    EXPECT_FALSE(parser.is_whole());
}

TEST(RecordingHeaderText, RefusesAStartThatIsNone) {
    for (const std::string start :
         {"", "2026-11-22T03:25:03.123456+02:00", "2026-11-22T03:25:03.123456+02:00 monotonic x",
          "2026-13-22T03:25:03.123456+02:00 monotonic 1", "2026-02-30T03:25:03.123456+02:00 monotonic 1",
          "2026-11-22 03:25:03.123456+02:00 monotonic 1", "2026-11-22T03:25:03+02:00 monotonic 1"}) {
        HeaderParser parser;
        parser.parse("# vehicle-recorder recording 1");
        EXPECT_EQ(parser.parse("# start " + start), HeaderParser::Line::none) << start;
    }
}

TEST(RecordingHeaderText, OfNowHasTheClocksOfNow) {
    const std::uint64_t before = monotonic_now_us();
    const RecordingHeader header = header_of_now("/dev/ttyS0");
    EXPECT_GE(header.monotonic_us, before);
    EXPECT_LE(header.monotonic_us, monotonic_now_us());
    EXPECT_LE(header.wall_us / 1000000, time(nullptr));
    EXPECT_GE(header.wall_us / 1000000, time(nullptr) - 60);
    EXPECT_EQ(header.device, "/dev/ttyS0");
    EXPECT_EQ(header.program.rfind("vehicle-recorder ", 0), 0U);
}

TEST(WallClockText, IsLocalTimeWithItsOffset) {
    EXPECT_EQ(wall_clock_text(0, 0), "1970-01-01T00:00:00.000000+00:00");
    EXPECT_EQ(wall_clock_text(0, -90), "1969-12-31T22:30:00.000000-01:30");
    EXPECT_EQ(wall_clock_text(951782399999999, 0), "2000-02-28T23:59:59.999999+00:00");
}

TEST(EntryText, IsOneLineForEachKind) {
    std::vector<Entry> entries = {entry_of(0, EntryKind::open),
                                  entry_of(100, EntryKind::line),
                                  entry_of(310000, EntryKind::sent, {0x00, 0x67, 0x6E, 0x50}),
                                  entry_of(5100000, EntryKind::close),
                                  entry_of(5200000, EntryKind::note),
                                  entry_of(5300000, EntryKind::end)};
    entries[1].settings = {.speed_baud = 9600, .format = "8N1", .flow = "none"};
    entries[4].text = "the program ended";
    EXPECT_EQ(text_of(entries),
              "0.000000 open\n"
              "0.000100 line 9600 8N1 none\n"
              "0.310000 > 00676e50\n"
              "5.100000 close\n"
              "5.200000 note the program ended\n"
              "5.300000 end\n");
    const std::vector<Entry> again = parsed(text_of(entries));
    ASSERT_EQ(again.size(), entries.size());
    for (std::size_t i = 0; i < entries.size(); i++) {
        EXPECT_EQ(again[i].time_us, entries[i].time_us);
        EXPECT_EQ(again[i].kind, entries[i].kind);
    }
    EXPECT_EQ(again[1].settings, entries[1].settings);
    EXPECT_EQ(again[2].bytes, entries[2].bytes);
    EXPECT_EQ(again[4].text, entries[4].text);
}

TEST(EntryText, ReceivedBytesWithinASecondTellTheirTimeSinceTheLastFullOne) {
    const std::vector<Entry> entries = {
        entry_of(12000000, EntryKind::sent, {1}),     entry_of(12000000, EntryKind::received, {2}),
        entry_of(12012041, EntryKind::received, {3}), entry_of(12999999, EntryKind::received, {4}),
        entry_of(13000000, EntryKind::received, {5}), entry_of(13000007, EntryKind::received, {6})};
    EXPECT_EQ(text_of(entries),
              "12.000000 > 01\n+0 < 02\n+12041 < 03\n+999999 < 04\n13.000000 < 05\n+7 < 06\n");
    const std::vector<Entry> again = parsed(text_of(entries));
    ASSERT_EQ(again.size(), entries.size());
    for (std::size_t i = 0; i < entries.size(); i++) {
        EXPECT_EQ(again[i].time_us, entries[i].time_us) << i;
        EXPECT_EQ(again[i].bytes, entries[i].bytes) << i;
    }
}

TEST(EntryText, FirstReceivedBytesHaveTheirSeconds) {
    EXPECT_EQ(text_of({entry_of(5, EntryKind::received, {0xFF})}), "0.000005 < ff\n");
}

TEST(EntryText, NoteStaysOnOneLine) {
    Entry note = entry_of(0, EntryKind::note);
    note.text = "a\nb\\x41 \x7F\t\xC3\xA4 \\";
    const std::string text = text_of({note});
    EXPECT_EQ(text, "0.000000 note a\\x0ab\\x5cx41 \\x7f\\x09\xC3\xA4 \\x5c\n");
    EXPECT_EQ(parsed(text).front().text, note.text);
}

TEST(EntryText, IsNoneWhenSomethingIsMissingOrTooMuch) {
    for (const char* line : {"0.000000 open", "0.310000 > 00676e50", "+1 < 00", "+999999 > 00",
                             "1.000000 note ", "28800.123456 end", "0.000000 line 115200 7E2 rtscts"}) {
        EXPECT_TRUE(is_entry(line)) << line;
    }
    for (const char* line : {"",
                             " ",
                             "x",
                             "0.000000",
                             "0.000000 ",
                             "0.000000 opens",
                             "0.000000 open ?",
                             "0.31000 > 00",
                             "0.3100000 > 00",
                             "1 > 00",
                             "-1.000000 > 00",
                             "+-1 < 00",
                             "+1000000 < 00",
                             "+ < 00",
                             "0.000000 >",
                             "0.000000 > ",
                             "0.000000 > 0",
                             "0.000000 > 000",
                             "0.000000 > 0g",
                             "0.000000 > 0A",
                             "0.000000 > 00 ",
                             "0.000000  > 00",
                             "99999999999999999999.000000 end",
                             "0.000000 line",
                             "0.000000 line x 8N1 none",
                             "0.000000 line 9600 8N none",
                             "0.000000 line 9600 8N1",
                             "0.000000 line 9600 8N1 none none",
                             "# device x",
                             "0.000000 open\r"}) {
        EXPECT_FALSE(is_entry(line)) << line;
    }
}

TEST(EntryText, RelativeTimeNeedsAFullOneBefore) {
    EntryParser parser;
    Entry entry;
    EXPECT_FALSE(parser.parse("+5 < 00", entry));
    EXPECT_TRUE(parser.parse("3.000000 open", entry));
    EXPECT_TRUE(parser.parse("+5 < 00", entry));
    EXPECT_EQ(entry.time_us, 3000005U);
}

TEST(Seconds, AreReadWithUpToSixDigitsBehindThePoint) {
    EXPECT_EQ(read_seconds("0"), 0U);
    EXPECT_EQ(read_seconds("12.5"), 12500000U);
    EXPECT_EQ(read_seconds("0.000001"), 1U);
    EXPECT_EQ(seconds_text(12500000), "12.500000");
    for (const char* text :
         {"", ".", "1.", ".5", "1.0000001", "1.x", "-1", "+1", " 1", "1 ", "1e3", "4000000000"}) {
        EXPECT_FALSE(read_seconds(text)) << text;
    }
}

// A frame and a reply in three pieces, 50 times a second, in the last minute of a shift.
TEST(Recording, EightHoursStayBelowTwoHundredMegabytes) {
    constexpr std::uint64_t cycle_us = 20000;
    constexpr std::uint64_t minute_us = 60000000;
    constexpr std::uint64_t shift_us = 480 * minute_us;
    EntryFormatter formatter;
    std::string text;
    for (std::uint64_t time_us = shift_us - minute_us; time_us < shift_us; time_us += cycle_us) {
        formatter.append(text, entry_of(time_us, EntryKind::sent, std::vector<std::uint8_t>(4)));
        for (const std::uint64_t after_us : {12345U, 13456U, 14567U}) {
            formatter.append(
                text, entry_of(time_us + after_us, EntryKind::received, std::vector<std::uint8_t>(13)));
        }
    }
    EXPECT_LT(text.size() * 480, 200000000U);
}

}  // namespace
}  // namespace vehicle_recorder
