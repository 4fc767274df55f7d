// Tables as lines, and lines that are drawn in place on a real terminal.

#include "tools/table.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>

#include "tests/support/childprocess.h"
#include "tests/support/pseudoterminal.h"
#include "tests/support/temporaryfile.h"
#include "tools/tell.h"

namespace {

using namespace nodevik_tool;
using Lines = std::vector<std::string>;

Table some_table() {
    Table table({{"NODE", true}, {"STATE"}, {"TIMES", true}, {"REMARK"}});
    table.add({{"5"}, {"stopped", Colour::notable}, {"1"}, {""}});
    table.add({{"112"}, {"lost", Colour::bad}, {"23"}, {"has gone"}});
    return table;
}

// A terminal whose other end is the test.
class Terminal : public testing::Test {
protected:
    Terminal() : near_end(open(terminal.path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC)) {
        setenv("TERM", "xterm", 1);
        unsetenv("NO_COLOR");
        termios attributes{};
        tcgetattr(near_end, &attributes);
        attributes.c_oflag &= ~static_cast<tcflag_t>(OPOST);
        tcsetattr(near_end, TCSANOW, &attributes);
        resize(80, 24);
    }
    ~Terminal() override { close(near_end); }

    void resize(unsigned short columns, unsigned short rows) const {
        winsize size{};
        size.ws_col = columns;
        size.ws_row = rows;
        ioctl(near_end, TIOCSWINSZ, &size);
    }
    // What has been drawn since the last call.
    std::string drawn(Output& output) const {
        output.line("|");
        output.flush();
        std::string text;
        while (text.empty() || text.back() != '\n' || text.size() < 2 || text[text.size() - 2] != '|') {
            const std::string more = terminal.receive(1);
            if (more.empty()) {
                return text + " and then nothing";
            }
            text += more;
        }
        return text.substr(0, text.size() - 2);
    }

    PseudoTerminal terminal;
    int near_end;
    Interrupts interrupts;
};

}  // namespace

TEST(TableLines, HaveTheirColumnsBelowEachOtherAndNoBlanksAtTheEnd) {
    const Interrupts interrupts;
    const Output output(STDOUT_FILENO, true, interrupts);
    EXPECT_EQ(some_table().lines(output, false), (Lines{"  5  stopped   1", "112  lost     23  has gone"}));
    EXPECT_EQ(some_table().lines(output, true), (Lines{"NODE  STATE    TIMES  REMARK", "   5  stopped      1",
                                                       " 112  lost        23  has gone"}));
    EXPECT_EQ(Table({{"NODE"}}).lines(output, false), Lines{});
}

TEST(TableLines, AreCutWhereTheTerminalEnds) {
    const Interrupts interrupts;
    const Output output(STDOUT_FILENO, true, interrupts);
    EXPECT_EQ(some_table().lines(output, false, 22), (Lines{"  5  stopped   1", "112  lost     23  has "}));
    EXPECT_EQ(some_table().lines(output, false, 4), (Lines{"  5 ", "112 "}));
    EXPECT_EQ(some_table().lines(output, false, 0), (Lines{"", ""}));
}

TEST(TableLines, HaveNoTitlesInAFile) {
    const TemporaryFile file;
    const int descriptor = open(file.path().c_str(), O_WRONLY | O_CLOEXEC);
    const Interrupts interrupts;
    Output output(descriptor, false, interrupts);
    some_table().show(output);
    output.flush();
    close(descriptor);
    EXPECT_EQ(file.content(), "  5  stopped   1\n112  lost     23  has gone\n");
}

TEST_F(Terminal, GetsTitlesAndColours) {
    Output output(near_end, false, interrupts);
    some_table().show(output);
    EXPECT_EQ(drawn(output),
              "\r\033[K"
              "\033[2mNODE\033[m  \033[2mSTATE\033[m    \033[2mTIMES\033[m  \033[2mREMARK\033[m\n"
              "   5  \033[33mstopped\033[m      1\n"
              " 112  \033[31mlost\033[m        23  has gone\n");
}

TEST_F(Terminal, GetsNoTitlesWithoutRows) {
    Output output(near_end, false, interrupts);
    Table({{"NODE"}}).show(output);
    EXPECT_EQ(drawn(output), "");
}

TEST_F(Terminal, GetsNoColoursWhenTheUserWantsNone) {
    setenv("NO_COLOR", "1", 1);
    Output output(near_end, false, interrupts);
    EXPECT_TRUE(Screen::is_possible(output));
    some_table().show(output);
    EXPECT_EQ(drawn(output),
              "\r\033[KNODE  STATE    TIMES  REMARK\n   5  stopped      1\n 112  lost        23  has gone\n");
}

TEST_F(Terminal, IsNotCommandedWhenItCannotBe) {
    setenv("TERM", "dumb", 1);
    Output output(near_end, false, interrupts);
    EXPECT_FALSE(Screen::is_possible(output));
    some_table().show(output);
    EXPECT_EQ(drawn(output),
              "NODE  STATE    TIMES  REMARK\n   5  stopped      1\n 112  lost        23  has gone\n");
    setenv("TERM", "xterm", 1);
    const Output json(near_end, true, interrupts);
    EXPECT_FALSE(Screen::is_possible(json));
    const Output nowhere(-1, false, interrupts);
    EXPECT_FALSE(Screen::is_possible(nowhere));
}

TEST_F(Terminal, HasWhatIsToldInThePlaceOfABar) {
    const auto told = [this](const char* type) {
        setenv("TERM", type, 1);
        const ChildResult result = run_in_child([this] {
            dup2(near_end, STDERR_FILENO);
            tell("all is well");
        });
        EXPECT_EQ(result.status, 0);
        return terminal.receive(std::string("nodevik: all is well\n").size());
    };
    EXPECT_EQ(told("dumb"), "nodevik: all is well\n");
    EXPECT_EQ(told("xterm").rfind("\r\033[Knodevik: all is ", 0), 0U);
}

TEST_F(Terminal, HasLinesDrawnInTheSamePlace) {
    Output output(near_end, false, interrupts);
    Screen screen(output);
    EXPECT_EQ(screen.width(), 80U);
    screen.draw({"one", "two"});
    EXPECT_EQ(drawn(output), "\rone\033[K\ntwo\033[K\n\033[J");
    screen.draw({"one", "two"});
    EXPECT_EQ(drawn(output), "");
    screen.draw({"one"});
    EXPECT_EQ(drawn(output), "\r\033[2Aone\033[K\n\033[J");
}

TEST_F(Terminal, ShowsAsManyLinesAsFit) {
    resize(40, 4);
    Output output(near_end, false, interrupts);
    Screen screen(output);
    EXPECT_EQ(screen.width(), 40U);
    screen.draw({"1", "2", "3"});
    EXPECT_EQ(drawn(output), "\r1\033[K\n2\033[K\n3\033[K\n\033[J");
    screen.draw({"1", "2", "3", "4", "5"});
    EXPECT_EQ(drawn(output), "\r\033[3A1\033[K\n2\033[K\nand 3 more\033[K\n\033[J");
}

TEST_F(Terminal, IsClearedWhenItHasAnotherWidth) {
    Output output(near_end, false, interrupts);
    Screen screen(output);
    screen.draw({"one"});
    drawn(output);
    resize(60, 24);
    screen.draw({"one"});
    EXPECT_EQ(drawn(output), "\033[H\033[Jone\033[K\n\033[J");
}
