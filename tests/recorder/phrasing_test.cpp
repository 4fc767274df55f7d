#include "recorder/phrasing.h"

#include <gtest/gtest.h>

using vehicle_recorder::Language;
using vehicle_recorder::Phrasing;
using vehicle_recorder::RecordingHeader;

namespace {

const Phrasing english(Language::english);
const Phrasing finnish(Language::finnish);

// No-break spaces as blanks, to be read.
std::string readable(std::string text) {
    const std::string space = "\u00a0";
    for (std::size_t place = 0; (place = text.find(space, place)) != std::string::npos;) {
        text.replace(place, space.size(), " ");
    }
    return text;
}

// 2026-11-22, a Sunday, 03:25:03.123456 in Finland.
RecordingHeader start() {
    RecordingHeader header;
    header.wall_us = 1'795'310'703'123'456;
    header.utc_offset_min = 120;
    return header;
}

}  // namespace

TEST(Phrasing, GivesTheTextOfItsLanguage) {
    EXPECT_STREQ(english({"frame", "viesti"}), "frame");
    EXPECT_STREQ(finnish({"frame", "viesti"}), "viesti");
}

TEST(Phrasing, KeepsThousandsApart) {
    EXPECT_EQ(english.whole(std::int64_t{0}), "0");
    EXPECT_EQ(english.whole(std::int64_t{999}), "999");
    EXPECT_EQ(english.whole(std::int64_t{1000}), "1,000");
    EXPECT_EQ(english.whole(std::int64_t{1234567}), "1,234,567");
    EXPECT_EQ(english.whole(std::int64_t{-123}), "\u2212123");
    EXPECT_EQ(english.whole(std::int64_t{-1234}), "\u22121,234");
    EXPECT_EQ(finnish.whole(std::int64_t{1234567}), "1\u00a0234\u00a0567");
}

TEST(Phrasing, WritesDecimalsAsTheLanguageHasThem) {
    EXPECT_EQ(english.decimal(1234.56, 1), "1,234.6");
    EXPECT_EQ(finnish.decimal(1234.56, 1), "1\u00a0234,6");
    EXPECT_EQ(english.decimal(-0.56, 1), "\u22120.6");
    EXPECT_EQ(english.decimal(-0.04, 1), "0.0");
    EXPECT_EQ(english.decimal(2, 0), "2");
}

TEST(Phrasing, WritesAsFewDecimalsAsThereAre) {
    EXPECT_EQ(english.plain(482), "482");
    EXPECT_EQ(english.plain(0.5), "0.5");
    EXPECT_EQ(english.plain(250.531), "250.531");
    EXPECT_EQ(english.plain(0.1 + 0.2), "0.3");
    EXPECT_EQ(english.plain(-10738), "\u221210,738");
    EXPECT_EQ(finnish.plain(0.25), "0,25");
}

TEST(Phrasing, TellsASmallShareAsSmallAndNotAsNothing) {
    EXPECT_EQ(readable(english.share(0, 10)), "0 %");
    EXPECT_EQ(readable(english.share(0, 0)), "0 %");
    EXPECT_EQ(readable(english.share(10, 10)), "100 %");
    EXPECT_EQ(readable(english.share(12, 1234)), "1.0 %");
    EXPECT_EQ(readable(english.share(1, 100'000)), "under 0.1 %");
    EXPECT_EQ(readable(english.share(99'999, 100'000)), "over 99.9 %");
    EXPECT_EQ(readable(finnish.share(1, 100'000)), "alle 0,1 %");
    EXPECT_EQ(readable(finnish.share(12, 1234)), "1,0 %");
}

TEST(Phrasing, TellsADurationInTheUnitThatSuitsIt) {
    EXPECT_EQ(readable(english.duration(0)), "0.00 ms");
    EXPECT_EQ(readable(english.duration(45'021)), "45.02 ms");
    EXPECT_EQ(readable(english.duration(210'449)), "210.4 ms");
    EXPECT_EQ(readable(english.duration(1'000'000)), "1.00 s");
    EXPECT_EQ(readable(english.duration(59'999'999)), "59.99 s");
    EXPECT_EQ(readable(english.duration(60'000'000)), "1 min 0 s");
    EXPECT_EQ(readable(english.duration(3'599'999'999)), "59 min 59 s");
    EXPECT_EQ(readable(english.duration(3'600'000'000)), "1 h 0 min");
    EXPECT_EQ(readable(finnish.duration(2'345'000)), "2,34 s");
}

TEST(Phrasing, WritesSecondsAsARecordingHasThem) {
    EXPECT_EQ(Phrasing::seconds(0), "0.000000");
    EXPECT_EQ(Phrasing::seconds(5'100'000), "5.100000");
    EXPECT_EQ(Phrasing::seconds(28'800'000'001), "28800.000001");
}

TEST(Phrasing, WritesTheDateInTheTimeZoneOfTheStart) {
    EXPECT_EQ(english.date(start()), "Sunday 22 November 2026");
    EXPECT_EQ(finnish.date(start()), "sunnuntai 22.11.2026");
    RecordingHeader before_midnight = start();
    before_midnight.utc_offset_min = -5 * 60;
    EXPECT_EQ(english.date(before_midnight), "Saturday 21 November 2026");
    RecordingHeader before_1970;
    before_1970.wall_us = -1;
    EXPECT_EQ(english.date(before_1970), "Wednesday 31 December 1969");
}

TEST(Phrasing, WritesTheTimeOfDay) {
    EXPECT_EQ(english.time_of_day(start(), 0), "03:25:03");
    EXPECT_EQ(finnish.time_of_day(start(), 0), "3.25.03");
    EXPECT_EQ(english.time_of_day(start(), 0, 3), "03:25:03.123");
    EXPECT_EQ(finnish.time_of_day(start(), 0, 3), "3.25.03,123");
    EXPECT_EQ(english.time_of_day(start(), 0, -1), "03:25");
    EXPECT_EQ(finnish.time_of_day(start(), 0, -1), "3.25");
    const std::int64_t until_midnight_us = std::int64_t{20} * 3'600'000'000 + 35 * std::int64_t{60'000'000};
    EXPECT_EQ(english.time_of_day(start(), until_midnight_us), "00:00:03");
}
