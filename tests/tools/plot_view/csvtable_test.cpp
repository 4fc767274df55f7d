// Tables read and written.

#include "tools/plot_view/csvtable.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <random>
#include <string>
#include <vector>

using namespace plot;

namespace {

using Points = std::vector<Point>;
using Texts = std::vector<std::string>;

Points points(const Series& series) {
    Points result;
    for (std::size_t i = 0; i < series.size(); ++i) {
        result.push_back({series.times()[i], series.values()[i]});
    }
    return result;
}

Points first_curve(const std::string& text) {
    return points(read_table(text).data.series.at(0));
}

std::string refusal(const std::string& text) {
    try {
        read_table(text);
    } catch (const BadFile& failure) {
        return failure.what();
    }
    return "read";
}

constexpr Interval always = {-1e300, 1e300};

}  // namespace

TEST(ReadTable, TakesNamesFromTheHeadingsAndSamplesFromTheRows) {
    const Recording recording = read_table("time,throttle,speed\n0,12,0\n0.5,40,-3.5\n");
    ASSERT_EQ(recording.data.series.size(), 2U);
    EXPECT_EQ(recording.data.series[0].name, "throttle");
    EXPECT_EQ(recording.data.series[1].name, "speed");
    EXPECT_EQ(points(recording.data.series[0]), (Points{{0, 12}, {0.5, 40}}));
    EXPECT_EQ(points(recording.data.series[1]), (Points{{0, 0}, {0.5, -3.5}}));
    EXPECT_EQ(recording.data.axis, TimeAxis::seconds);
    EXPECT_EQ(recording.notes, Texts());
}

TEST(ReadTable, AnEmptyCellIsNoSample) {
    EXPECT_EQ(first_curve("time,a,b\n0,,1\n1,2,\n2, ,3\n"), (Points{{1, 2}}));
}

TEST(ReadTable, NoNumbersAndInfiniteOnesAreSamples) {
    const Points read = first_curve("time,a\n0,nan\n1,inf\n2,-inf\n3,NaN\n");
    ASSERT_EQ(read.size(), 4U);
    EXPECT_TRUE(std::isnan(read[0].value));
    EXPECT_EQ(read[1].value, std::numeric_limits<double>::infinity());
    EXPECT_EQ(read[2].value, -std::numeric_limits<double>::infinity());
    EXPECT_TRUE(std::isnan(read[3].value));
}

TEST(ReadTable, NumbersMayHaveASignAnExponentAndBlanks) {
    EXPECT_EQ(first_curve("time,a\n 0 ,+5\n1,-5e-1 \n2,1e400\n3,1e-400\n"),
              (Points{{0, 5}, {1, -0.5}, {2, std::numeric_limits<double>::infinity()}, {3, 0}}));
}

TEST(ReadTable, TrueAndFalseAreOneAndZero) {
    EXPECT_EQ(first_curve("time,a\n0,true\n1,False\n"), (Points{{0, 1}, {1, 0}}));
}

TEST(ReadTable, SemicolonsAndTabsSeparateCellsWithDecimalCommas) {
    EXPECT_EQ(first_curve("time;a\n0,5;1,25\n"), (Points{{0.5, 1.25}}));
    EXPECT_EQ(first_curve("time\ta\n0.5\t1,25\n"), (Points{{0.5, 1.25}}));
}

TEST(ReadTable, CellsInQuotationMarksMayHoldWhatSeparates) {
    const Recording recording = read_table("\"time\",\"a, \"\"b\"\"\",c\r\n\"1\",\"2\",3\r\n");
    EXPECT_EQ(recording.data.series.at(0).name, "a, \"b\"");
    EXPECT_EQ(points(recording.data.series[0]), (Points{{1, 2}}));
    EXPECT_EQ(points(recording.data.series.at(1)), (Points{{1, 3}}));
}

TEST(ReadTable, WithoutHeadingsColumnsAreCalledAfterTheirNumbers) {
    const Recording recording = read_table("0,1,2\n1,3,4\n");
    EXPECT_EQ(recording.data.series.at(1).name, "column 3");
    EXPECT_EQ(points(recording.data.series[0]), (Points{{0, 1}, {1, 3}}));
}

TEST(ReadTable, AHeadingThatIsMissingIsReplaced) {
    EXPECT_EQ(read_table("time,,b\n0,1,2\n").data.series.at(0).name, "column 2");
}

TEST(ReadTable, GreatTimesAreThoseOfAClock) {
    EXPECT_EQ(read_table("time,a\n1764000000.25,1\n").data.axis, TimeAxis::clock);
    EXPECT_EQ(read_table("time,a\n99999999,1\n").data.axis, TimeAxis::seconds);
    EXPECT_EQ(read_table("Position,a\n1764000000,1\n").data.axis, TimeAxis::positions);
}

TEST(ReadTable, TimesMayBeDates) {
    setenv("TZ", "XYZ-2", 1);
    tzset();
    const Points read = first_curve(
        "time,a\n2026-11-22T11:30:05.25Z,1\n2026-11-22 13:30:06,2\n2026-11-22T12:30:07+01:00,3\n"
        "2026-11-22 13:31,4\n");
    unsetenv("TZ");
    tzset();
    constexpr double first = 1'795'347'005.25;
    EXPECT_EQ(read, (Points{{first, 1}, {first + 0.75, 2}, {first + 1.75, 3}, {first + 54.75, 4}}));
    EXPECT_EQ(read_table("time,a\n2026-11-22T11:30:05Z,1\n").data.axis, TimeAxis::clock);
}

TEST(ReadTable, RowsThatAreNoneAreLeftOutAndNoted) {
    const Recording one = read_table("time,a\n0,1\nlater,2\n2,3\n");
    EXPECT_EQ(points(one.data.series.at(0)), (Points{{0, 1}, {2, 3}}));
    EXPECT_EQ(one.notes, Texts{"line 3 is no row of the table and left out"});
    const Recording more = read_table("time,a\n0,1\nnan,2\n\n2,3,4\n3\n5,6\n");
    EXPECT_EQ(points(more.data.series.at(0)), (Points{{0, 1}, {5, 6}}));
    EXPECT_EQ(more.notes, Texts{"3 lines are no row of the table and left out, the first is line 3"});
}

TEST(ReadTable, ARowThatIsTornAtTheEndIsLeftOut) {
    const Recording recording = read_table("time,a,b\n0,1,2\n1,2");
    EXPECT_EQ(recording.data.samples(), 2U);
    EXPECT_EQ(recording.notes, Texts{"line 3 is no row of the table and left out"});
}

TEST(ReadTable, ColumnsOfTextAreLeftOutAndNoted) {
    const Recording recording = read_table("time,state,a,b\n0,driving,1,x\n1,at rest,2,5\n");
    ASSERT_EQ(recording.data.series.size(), 2U);
    EXPECT_EQ(recording.data.series[0].name, "a");
    EXPECT_EQ(points(recording.data.series[1]), (Points{{1, 5}}));
    EXPECT_EQ(recording.notes,
              (Texts{"column 'b' has cells that are no numbers", "column 'state' is text and left out"}));
}

TEST(ReadTable, BytesInHexadecimalAreText) {
    const Recording recording = read_table("time,frame,a,data\n0,28676e50,1,0102\n1,00676450,2,2a01\n");
    ASSERT_EQ(recording.data.series.size(), 1U);
    EXPECT_EQ(recording.data.series[0].name, "a");
    EXPECT_EQ(recording.notes, Texts{"columns 'frame', 'data' are text and left out"});
    EXPECT_EQ(first_curve("time,a\n0,1e5\n1,2.5e+10\n"), (Points{{0, 1e5}, {1, 2.5e10}}));
}

TEST(ReadTable, TheTimeIsFoundByItsHeading) {
    const Recording recording = read_table("cycle,Time_s,motor\n1,0.5,on\n,0.7,off\n");
    EXPECT_EQ(points(recording.data.series.at(0)), (Points{{0.5, 1}}));
    EXPECT_EQ(recording.data.series[0].name, "cycle");
    EXPECT_EQ(points(recording.data.series.at(1)), (Points{{0.5, 1}, {0.7, 0}}));
    EXPECT_EQ(read_table("a,seconds\n5,1\n").data.duration(), (Interval{1, 1}));
    EXPECT_EQ(read_table("a,b\n5,1\n").data.duration(), (Interval{5, 5}));
}

TEST(ReadTable, WhatIsNoTableIsRefused) {
    EXPECT_EQ(refusal("time,a\n"), "holds no samples");
    EXPECT_EQ(refusal("time,a\n0,\n"), "holds no samples");
    EXPECT_EQ(refusal("hello\nworld\n"),
              "is no table: a column with the time and one with values at least are needed");
    EXPECT_EQ(refusal("dear sir, or madam,\nwe, are, sorry\n"),
              "is no table with a column of times, in seconds");
}

TEST(WriteTable, GivesEachTimeARow) {
    PlotData data;
    data.series.resize(3);
    data.series[0].name = "a";
    data.series[1].name = "b, \"c\"";
    data.series[2].name = "hidden";
    data.series[2].shown = false;
    data.series[0].append(0, 1);
    data.series[0].append(2, 0.1);
    data.series[1].append(1, -2);
    data.series[1].append(2, std::numeric_limits<double>::quiet_NaN());
    data.series[2].append(1.5, 9);
    EXPECT_EQ(write_table(data, always), "time,a,\"b, \"\"c\"\"\"\n0,1,\n1,,-2\n2,0.1,nan\n");
    EXPECT_EQ(write_table(data, {0.5, 1.5}), "time,a,\"b, \"\"c\"\"\"\n1,,-2\n");
}

TEST(WriteTable, IsReadBackToTheLastDigit) {
    std::mt19937_64 generator(4);
    std::uniform_real_distribution<double> any(-1, 1);
    std::uniform_int_distribution<int> exponent(-300, 300);
    PlotData data;
    data.series.resize(3);
    double time = 1.764e9;
    for (int row = 0; row < 2000; ++row) {
        time += std::abs(any(generator));
        for (std::size_t column = 0; column < data.series.size(); ++column) {
            if (any(generator) > -0.5) {
                data.series[column].append(time, std::ldexp(any(generator), exponent(generator)));
            }
        }
    }
    data.series[0].append(time + 1, 5);
    data.series[0].append(time + 1, 6);  // two at one time
    data.series[1].append(time + 1, 7);
    const Recording read = read_table(write_table(data, always));
    ASSERT_EQ(read.data.series.size(), data.series.size());
    for (std::size_t column = 0; column < data.series.size(); ++column) {
        EXPECT_EQ(points(read.data.series[column]), points(data.series[column])) << column;
    }
    EXPECT_EQ(read.data.axis, TimeAxis::clock);
}

TEST(WriteTable, PositionsStayPositions) {
    PlotData data;
    data.axis = TimeAxis::positions;
    data.series.resize(1);
    data.series[0].name = "a";
    data.series[0].append(7, 1);
    const std::string table = write_table(data, always);
    EXPECT_EQ(table, "position,a\n7,1\n");
    EXPECT_EQ(read_table(table).data.axis, TimeAxis::positions);
}
