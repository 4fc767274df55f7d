#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "tests/support/childprocess.h"
#include "tests/support/pseudoterminal.h"

TEST(ChildProcess, CapturesBothOutputsAndTheExitStatus) {
    const ChildResult result = run_in_child([] {
        std::printf("out");
        std::fprintf(stderr, "err");
        std::exit(3);
    });
    EXPECT_EQ(result.out, "out");
    EXPECT_EQ(result.err, "err");
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.signal, 0);
}

TEST(ChildProcess, TellsTheSignalThatEndedTheChild) {
    const ChildResult result = run_in_child([] { std::raise(SIGKILL); });
    EXPECT_EQ(result.status, -1);
    EXPECT_EQ(result.signal, SIGKILL);
}

TEST(ChildProcess, RunsAProgramWithItsInput) {
    const ChildResult result = run_program({"tr", "a-z", "A-Z"}, "kaasu");
    EXPECT_EQ(result.out, "KAASU");
    EXPECT_EQ(result.status, 0);
}

TEST(PseudoTerminalPair, CarriesBytesToTheFarEnd) {
    const PseudoTerminal line;
    FILE* near_end = std::fopen(line.path().c_str(), "r+");
    ASSERT_NE(near_end, nullptr);
    std::fputs("abc", near_end);
    std::fflush(near_end);
    EXPECT_EQ(line.receive(3), "abc");
    std::fclose(near_end);
}
