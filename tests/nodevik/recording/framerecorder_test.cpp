#include "nodevik/recording/framerecorder.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <string>
#include <vector>

#include "nodevik/util/monotonicclock.h"
#include "tests/support/allocationcount.h"
#include "tests/support/childprocess.h"
#include "tests/support/scriptedcandriver.h"
#include "tests/support/temporaryfile.h"

namespace {

constexpr std::uint64_t day_ns = 1'436'509'052'249'713'999;  // the last three digits are no microseconds
constexpr std::uint64_t start_ns = 5'000'000'000;
const std::string time_text = "(1436509052.249713) ";

using Direction = ObservedFrame::Direction;

class Recorder : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(recorder.open(file.path().c_str()), 0); }

    void pass(ObservedFrame frame, std::uint64_t monotonic = start_ns) {
        frame.set_times(day_ns, monotonic);
        recorder.frame_passed(frame);
    }

    const unsigned char bytes[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    TemporaryFile file;
    FrameRecorder recorder{"can0"};
};

}  // namespace

TEST_F(Recorder, KeepsWhatIsReceivedAndSent) {
    pass({Direction::received, 0x185, 8, bytes});
    pass({Direction::sent, 0x205, 2, bytes});
    pass({Direction::sent, 0x80, 0, nullptr});
    EXPECT_EQ(recorder.recorded(), 3U);
    EXPECT_EQ(recorder.close(), 0);
    EXPECT_EQ(file.content(), time_text + "can0 185#0102030405060708\n" + time_text + "can0 205#0102\n" +
                                  time_text + "can0 080#\n");
}

TEST_F(Recorder, KeepsRemoteRequestsAndLongIdentifiersAsWhatTheyAre) {
    ObservedFrame remote(Direction::sent, 0x705, 0, nullptr);
    remote.remote = true;
    pass(remote);
    ObservedFrame extended(Direction::received, 0x185, 1, bytes);
    extended.extended = true;
    pass(extended);
    recorder.close();
    EXPECT_EQ(file.content(), time_text + "can0 705#R\n" + time_text + "can0 00000185#01\n");
}

TEST_F(Recorder, KeepsAtMostEightBytesOfAFrameThatClaimsMore) {
    pass({Direction::received, 0x185, 31, bytes});
    recorder.close();
    EXPECT_EQ(file.content(), time_text + "can0 185#0102030405060708\n");
}

TEST_F(Recorder, PassesOverErrorFramesAndCountsThem) {
    ObservedFrame error(Direction::received, 4, 8, bytes);
    error.error = true;
    pass(error);
    EXPECT_EQ(recorder.passed_over(), 1U);
    EXPECT_EQ(recorder.recorded(), 0U);
    recorder.close();
    EXPECT_EQ(file.content(), "");
}

TEST_F(Recorder, WritesAtLeastOnceASecond) {
    EXPECT_EQ(recorder.next_deadline(), no_deadline);
    pass({Direction::received, 0x185, 1, bytes});
    pass({Direction::received, 0x186, 1, bytes}, start_ns + 500'000'000);
    EXPECT_EQ(recorder.next_deadline(), start_ns + 1'000'000'000);
    recorder.process(start_ns + 999'999'999);
    EXPECT_EQ(file.content(), "");
    recorder.process(start_ns + 1'000'000'000);
    EXPECT_EQ(file.content(), time_text + "can0 185#01\n" + time_text + "can0 186#01\n");
    EXPECT_EQ(recorder.next_deadline(), no_deadline);
    EXPECT_EQ(recorder.size(), file.content().size());
}

TEST_F(Recorder, AllocatesNothing) {
    const unsigned long before = allocations();
    for (unsigned int i = 0; i < 10'000; ++i) {
        pass({Direction::received, 0x185, 8, bytes});
        recorder.process(start_ns + 1'000'000'000 * std::uint64_t{i});
    }
    EXPECT_EQ(allocations(), before);
}

TEST_F(Recorder, WithoutALogKeepsNothing) {
    recorder.close();
    pass({Direction::received, 0x185, 8, bytes});
    EXPECT_EQ(recorder.recorded(), 0U);
    EXPECT_EQ(recorder.next_deadline(), no_deadline);
}

TEST_F(Recorder, ThatCannotOpenItsLogTellsWhy) {
    EXPECT_EQ(recorder.open("/nowhere/bus.log"), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(Recorder, TellsOnceThatTheDiskIsFullAndGoesOn) {
    const ChildResult child = run_in_child([this] {
        std::signal(SIGXFSZ, SIG_IGN);
        std::vector<int> reasons;
        recorder.set_failure([&reasons](int reason) { reasons.push_back(reason); });
        rlimit limit{};
        getrlimit(RLIMIT_FSIZE, &limit);
        const rlim_t before = limit.rlim_cur;
        std::uint64_t now = start_ns;
        const auto run_full = [&] {
            limit.rlim_cur = recorder.size() + 10;
            setrlimit(RLIMIT_FSIZE, &limit);
            for (int i = 0; i < 5000; ++i) {
                pass({Direction::received, 0x185, 8, bytes}, now);
                recorder.process(now += 10'000'000);
            }
        };
        run_full();
        limit.rlim_cur = before;
        setrlimit(RLIMIT_FSIZE, &limit);
        recorder.process(now += 2'000'000'000);
        run_full();
        const bool counted = recorder.recorded() + recorder.lost() == 10'000 && recorder.lost() > 0;
        limit.rlim_cur = before;
        setrlimit(RLIMIT_FSIZE, &limit);
        std::printf("%zu %d %d", reasons.size(), counted, reasons.front() == EFBIG);
    });
    EXPECT_EQ(child.out, "2 1 1") << child.err;
}

TEST(RecorderOnADriver, SeesWhatPasses) {
    const TemporaryFile file;
    ScriptedCanDriver wire;
    ObservedDriver driver(wire);
    FrameRecorder recorder("vcan0");
    ASSERT_EQ(recorder.open(file.path().c_str()), 0);
    ASSERT_EQ(driver.add_observer(recorder), 0);
    wire.queue(0x181, {1, 2});
    driver.read_all();
    unsigned char data[1] = {5};
    driver.write(0x201, 1, data, 0);
    recorder.close();
    FrameLogReader reader;
    ASSERT_EQ(reader.open(file.path().c_str()), 0);
    LogFrame frame;
    ASSERT_EQ(reader.next(frame), 0);
    EXPECT_EQ(frame.identifier, 0x181U);
    EXPECT_STREQ(frame.name.data(), "vcan0");
    ASSERT_EQ(reader.next(frame), 0);
    EXPECT_EQ(frame.identifier, 0x201U);
    EXPECT_EQ(reader.next(frame), 1);
}
