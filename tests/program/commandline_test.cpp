// How the programs read the numbers of a command line, and refuse a wrong one.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <optional>

#include "program/numbers.h"
#include "program/standardoptions.h"
#include "tests/support/childprocess.h"

using program::Numbers;
using program::whole_number;

TEST(WholeNumber, IsReadInDecimalAndHexadecimal) {
    EXPECT_EQ(whole_number("0", 0, 255), 0);
    EXPECT_EQ(whole_number("010", 0, 255), 10);
    EXPECT_EQ(whole_number("255", 0, 255), 255);
    EXPECT_EQ(whole_number("0xfF", 0, 255), 255);
    EXPECT_EQ(whole_number("0XA0", 0, 255), 160);
    EXPECT_EQ(whole_number("4294967295", 0, 0xFFFFFFFF), 0xFFFFFFFF);
}

TEST(WholeNumber, HasASignWhereItsRangeHasNegativeNumbers) {
    EXPECT_EQ(whole_number("-128", -128, 255), -128);
    EXPECT_EQ(whole_number("-0x80", -128, 255), -128);
    EXPECT_EQ(whole_number("-0", 0, 255), 0);
    EXPECT_EQ(whole_number("-1", 0, 255), std::nullopt);
    EXPECT_EQ(whole_number("-18446744073709551615", 0, 255), std::nullopt);
}

TEST(WholeNumber, IsNoneOutOfItsRange) {
    EXPECT_EQ(whole_number("1", 2, 3), std::nullopt);
    EXPECT_EQ(whole_number("4", 2, 3), std::nullopt);
    EXPECT_EQ(whole_number("-129", -128, 255), std::nullopt);
    EXPECT_EQ(whole_number("99999999999999999999", 0, INT64_MAX), std::nullopt);
}

TEST(WholeNumber, FillsItsWholeArgument) {
    for (const char* text : {"", " ", "x", "1x", "1 ", " 1", "+1", "1.5", "1e2", "0x", "0xg", "0x1 ", "-",
                             "--1", "0x-1", "-0x-1", "- 1", "x10", "10h"}) {
        EXPECT_EQ(whole_number(text, -1000, 1000), std::nullopt) << text;
    }
}

TEST(Numbers, AreAllRightUntilOneIsWrong) {
    Numbers numbers;
    EXPECT_TRUE(numbers.all_right());
    EXPECT_EQ(numbers.read("0x10", 1, 127), 16U);
    EXPECT_EQ(numbers.read("4294967295", 0, 0xFFFFFFFF), 0xFFFFFFFFU);
    EXPECT_TRUE(numbers.all_right());
    EXPECT_EQ(numbers.read("128", 1, 127), 1U);
    EXPECT_FALSE(numbers.all_right());
    EXPECT_EQ(numbers.read("5", 1, 127), 5U);
    EXPECT_FALSE(numbers.all_right());
}

TEST(WrongCommandLine, IsAnsweredByTheUsageOnStandardError) {
    const ChildResult result =
        run_in_child([] { std::exit(program::refuse_command_line("PORT [SECONDS]")); });
    EXPECT_EQ(result.err, "usage: commandline_test PORT [SECONDS]\n");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.status, 2);
}
