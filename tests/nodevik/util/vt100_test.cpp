#include "nodevik/util/vt100.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <type_traits>

#include "tests/support/childprocess.h"

namespace {

// What a piece of code prints on standard output.
std::string printed(const std::function<void()>& body) {
    return run_in_child(body).out;
}

// An operation without arguments and its sequence.
struct FixedSequence {
    const char* name;
    void (*operation)();
    const char* expected;
};

constexpr FixedSequence fixed_sequences[] = {
    {"linefeed", VT100::linefeed, "\r"},
    {"modesoff", VT100::modesoff, "\033[m"},
    {"boldmode", VT100::boldmode, "\033[1m"},
    {"lowintensitymode", VT100::lowintensitymode, "\033[2m"},
    {"underlinemode", VT100::underlinemode, "\033[4m"},
    {"reversemode", VT100::reversemode, "\033[7m"},
    {"clearscreen", VT100::clearscreen, "\033[2J"},
    {"clearscreenup", VT100::clearscreenup, "\033[1J"},
    {"clearscreendown", VT100::clearscreendown, "\033[0J"},
    {"clearline", VT100::clearline, "\033[2K"},
    {"clearlineleft", VT100::clearlineleft, "\033[1K"},
    {"clearlineright", VT100::clearlineright, "\033[0K"},
    {"enablelinewrap", VT100::enablelinewrap, "\033[?7h"},
    {"disablelinewrap", VT100::disablelinewrap, "\033[?7l"},
    {"enablescrolling", VT100::enablescrolling, "\033[r"},
    {"scrollup", VT100::scrollup, "\033D"},
    {"scrolldown", VT100::scrolldown, "\033M"},
    {"cursorhome", VT100::cursorhome, "\033[H"},
    {"terminalreset", VT100::terminalreset, "\033c"},
    {"showcursor", VT100::showcursor, "\033[?25h"},
    {"hidecursor", VT100::hidecursor, "\033[?25l"},
    {"insertmode", VT100::insertmode, "\033[4h"},
    {"overwritemode", VT100::overwritemode, "\033[4l"},
    {"originmode", VT100::originmode, "\033?6l"},
};

// An operation with a count and what surrounds the count in its sequence.
struct CountedSequence {
    const char* name;
    void (*operation)(unsigned char);
    const char* before;
    const char* after;
};

constexpr CountedSequence counted_sequences[] = {
    {"deleteline", VT100::deleteline, "\033[P", "M"}, {"insertline", VT100::insertline, "\033[P", "L"},
    {"erasechar", VT100::erasechar, "\033[P", "X"},   {"deletechar", VT100::deletechar, "\033[P", "P"},
    {"insertchar", VT100::insertchar, "\033[P", "@"}, {"cursorup", VT100::cursorup, "\033[", "A"},
    {"cursordown", VT100::cursordown, "\033[", "B"},  {"cursorright", VT100::cursorright, "\033[", "C"},
    {"cursorleft", VT100::cursorleft, "\033[", "D"},
};

class Vt100Fixed : public testing::TestWithParam<FixedSequence> {};
class Vt100Counted : public testing::TestWithParam<CountedSequence> {};

template <typename T>
std::string row_name(const testing::TestParamInfo<T>& info) {
    return info.param.name;
}

}  // namespace

TEST_P(Vt100Fixed, PrintsItsSequence) {
    EXPECT_EQ(printed(GetParam().operation), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(All, Vt100Fixed, testing::ValuesIn(fixed_sequences), row_name<FixedSequence>);

TEST_P(Vt100Counted, PrintsItsCountInDecimal) {
    const CountedSequence& row = GetParam();
    for (const int count : {0, 1, 12, 255}) {
        EXPECT_EQ(printed([&] { row.operation(static_cast<unsigned char>(count)); }),
                  row.before + std::to_string(count) + row.after);
    }
}

INSTANTIATE_TEST_SUITE_P(All, Vt100Counted, testing::ValuesIn(counted_sequences), row_name<CountedSequence>);

TEST(Vt100, SetColorPrintsAttributeForegroundAndBackground) {
    EXPECT_EQ(printed([] { VT100::set_color(1, 2, 4); }), "\033[1;32;44m");
}

TEST(Vt100, SetColorWrapsTheForegroundButNotTheBackground) {
    EXPECT_EQ(printed([] { VT100::set_color(0, 250, 1); }), "\033[0;24;41m");
    EXPECT_EQ(printed([] { VT100::set_color(255, 0, 250); }), "\033[255;30;290m");
}

TEST(Vt100, SetFgColorAlwaysAddsTheBoldAttribute) {
    EXPECT_EQ(printed([] { VT100::set_fg_color(2); }), "\033[1;32m");
    EXPECT_EQ(printed([] { VT100::set_fg_color(0); }), "\033[1;30m");
    EXPECT_EQ(printed([] { VT100::set_fg_color(250); }), "\033[1;24m");
}

TEST(Vt100, SetBgColorPrintsTheBackground) {
    EXPECT_EQ(printed([] { VT100::set_bg_color(7); }), "\033[47m");
    EXPECT_EQ(printed([] { VT100::set_bg_color(250); }), "\033[34m");
}

TEST(Vt100, GoxyPrintsTheRowBeforeTheColumn) {
    EXPECT_EQ(printed([] { VT100::goxy(10, 3); }), "\033[3;10H");
    EXPECT_EQ(printed([] { VT100::goxy(255, 0); }), "\033[0;255H");
}

TEST(Vt100, SetscrollmarginPrintsTopAndBottom) {
    EXPECT_EQ(printed([] { VT100::setscrollmargin(2, 24); }), "\033[2;24r");
    EXPECT_EQ(printed([] { VT100::setscrollmargin(0, 255); }), "\033[0;255r");
}

TEST(Vt100, LeavesStandardOutputUnflushed) {
    const ChildResult result = run_in_child([] {
        VT100::clearscreen();
        VT100::set_fg_color(2);
        VT100::cursorup(1);
        VT100::linefeed();
        _exit(lseek(STDOUT_FILENO, 0, SEEK_CUR) == 0 ? 7 : 8);
    });
    EXPECT_EQ(result.status, 7);
}

TEST(Vt100, HasNoDataAndCanBeABaseClass) {
    struct Derived : VT100 {
        void print() const { modesoff(); }
    };
    EXPECT_TRUE(std::is_empty_v<VT100>);
    EXPECT_EQ(printed([] { Derived().print(); }), "\033[m");
}
