#include "recorder/recordingwriter.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "program/failure.h"
#include "recorder/recordingreader.h"
#include "tests/recorder/recordings.h"
#include "tests/support/childprocess.h"
#include "tests/support/temporaryfile.h"

namespace {

int reason_of_lost_data = 0;

}  // namespace

// The system's, with a disk that fails when it is told to.
extern "C" int fdatasync(int /*descriptor*/) {
    errno = reason_of_lost_data;
    return reason_of_lost_data != 0 ? -1 : 0;
}

namespace vehicle_recorder {
namespace {

RecordingHeader some_header() {
    return {.program = "vehicle-recorder 2.1.0",
            .device = "/dev/ttyUSB0",
            .wall_us = 1795310703123456,
            .utc_offset_min = 120,
            .monotonic_us = 1234567890};
}

Entry entry_of(std::uint64_t time_us, EntryKind kind, std::vector<std::uint8_t> bytes = {}) {
    return {.time_us = time_us, .kind = kind, .bytes = std::move(bytes), .settings = {}, .text = {}};
}

class RecordingWriterTest : public testing::Test {
protected:
    RecordingWriterTest() {
        std::remove(file.path().c_str());
        writer.emplace(file.path(), some_header(),
                       [this](const std::string& message) { told.push_back(message); });
    }

    std::string body() const { return file.content().substr(recording_header.size()); }

    TemporaryFile file;
    std::vector<std::string> told;
    std::optional<RecordingWriter> writer;
};

TEST_F(RecordingWriterTest, HeaderIsInTheFileAtOnce) {
    EXPECT_EQ(file.content(), recording_header);
    EXPECT_EQ(writer->due_us(), UINT64_MAX);
}

TEST_F(RecordingWriterTest, LinesAreGivenToTheDiskWhenTheyAreASecondOld) {
    writer->write(entry_of(500000, EntryKind::open));
    EXPECT_EQ(body(), "");
    EXPECT_EQ(writer->due_us(), 1500000U);
    writer->tick(1499999);
    EXPECT_EQ(body(), "");
    writer->tick(1500000);
    EXPECT_EQ(body(), "0.500000 open\n");
    EXPECT_EQ(writer->due_us(), UINT64_MAX);
}

TEST_F(RecordingWriterTest, AnEntryGivesWhatIsDueToTheDisk) {
    writer->write(entry_of(0, EntryKind::open));
    writer->write(entry_of(999999, EntryKind::sent, {1}));
    EXPECT_EQ(body(), "");
    writer->write(entry_of(1000000, EntryKind::sent, {2}));
    EXPECT_EQ(body(), "0.000000 open\n0.999999 > 01\n1.000000 > 02\n");
}

TEST_F(RecordingWriterTest, ManyLinesAreGivenToTheDiskHoweverYoung) {
    while (body().empty()) {
        writer->write(entry_of(0, EntryKind::sent, std::vector<std::uint8_t>(1000)));
        ASSERT_LE(body().size(), RecordingWriter::collected_bytes + 3000);
    }
    EXPECT_GE(body().size(), RecordingWriter::collected_bytes);
}

TEST_F(RecordingWriterTest, EndIsTheLastLine) {
    writer->write(entry_of(1, EntryKind::open));
    EXPECT_TRUE(writer->end(2));
    EXPECT_EQ(body(), "0.000001 open\n0.000002 end\n");
}

TEST_F(RecordingWriterTest, DestructionKeepsWhatWasCollected) {
    writer->write(entry_of(1, EntryKind::open));
    writer.reset();
    EXPECT_EQ(body(), "0.000001 open\n");
}

TEST_F(RecordingWriterTest, LossesBeforeItAreNoted) {
    writer->lose(17);
    writer->write(entry_of(3, EntryKind::sent, {1}));
    writer->end(4);
    EXPECT_EQ(body(), "0.000003 note bytes not recorded 17\n0.000003 > 01\n0.000004 end\n");
}

// What comes through the pipe may be older than the clock tells when the loss becomes known.
TEST_F(RecordingWriterTest, NotedLossNeverMakesTimesRunBackwards) {
    writer->write(entry_of(1'000'000, EntryKind::sent, {1}));
    writer->lose(5);
    writer->tick(3'000'000);
    writer->write(entry_of(2'000'000, EntryKind::sent, {2}));
    writer->end(2'000'001);
    EXPECT_EQ(body(), "1.000000 > 01\n1.000000 note bytes not recorded 5\n2.000000 > 02\n2.000001 end\n");
}

TEST_F(RecordingWriterTest, DiskThatLosesWhatItHasTakenIsToldOnce) {
    reason_of_lost_data = EIO;
    writer->write(entry_of(0, EntryKind::open));
    for (std::uint64_t second = 1; second < 5; second++) {
        writer->write(entry_of(second * 1'000'000, EntryKind::sent, {1}));
    }
    EXPECT_TRUE(writer->end(5'000'000));
    reason_of_lost_data = 0;
    EXPECT_EQ(told, std::vector<std::string>{file.path() +
                                             " takes nothing more, the line is carried on without being "
                                             "recorded: Input/output error"});
}

TEST_F(RecordingWriterTest, EntryWithoutBytesIsNone) {
    writer->write(entry_of(3, EntryKind::sent));
    writer->end(4);
    EXPECT_EQ(body(), "0.000004 end\n");
}

TEST_F(RecordingWriterTest, FileThatIsThereIsLeftAlone) {
    EXPECT_THROW(RecordingWriter(file.path(), some_header(), {}), program::Failure);
    EXPECT_EQ(file.content(), recording_header);
}

TEST(RecordingWriterFailure, TellsWhyAFileCannotBeMade) {
    try {
        const RecordingWriter writer("/nowhere/at/all", some_header(), {});
        ADD_FAILURE();
    } catch (const program::Failure& failure) {
        EXPECT_STREQ(failure.what(),
                     "/nowhere/at/all cannot be made for the recording: No such file or directory");
        EXPECT_EQ(failure.status(), program::ExitStatus::bad_file);
    }
}

// Runs a body that may print, with files of at most `bytes` bytes.
ChildResult with_small_disk(rlim_t bytes, const std::function<void(rlimit&)>& body) {
    return run_in_child([&] {
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit limit = {};
        getrlimit(RLIMIT_FSIZE, &limit);
        limit.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &limit);
        body(limit);
    });
}

void grow_disk(rlimit& limit) {
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_FSIZE, &limit);
}

class FullDisk : public testing::Test {
protected:
    FullDisk() { std::remove(file.path().c_str()); }

    TemporaryFile file;
};

TEST_F(FullDisk, LeavesNoFileWhenNotEvenTheHeaderFits) {
    const ChildResult result = with_small_disk(10, [this](rlimit&) {
        try {
            const RecordingWriter writer(file.path(), some_header(), {});
        } catch (const program::Failure&) {
            std::puts("refused");
        }
    });
    EXPECT_EQ(result.out, "refused\n");
    struct stat status {};
    EXPECT_NE(stat(file.path().c_str(), &status), 0);
}

TEST_F(FullDisk, IsToldOnceAndTheRecordingGoesOnWhereItWas) {
    const ChildResult result = with_small_disk(recording_header.size() + 20, [this](rlimit& limit) {
        RecordingWriter writer(file.path(), some_header(), [this](const std::string& message) {
            std::puts(message.substr(file.path().size()).c_str());
        });
        for (std::uint64_t second = 0; second < 5; second++) {
            writer.write(entry_of(second * 1000000, EntryKind::sent, {static_cast<std::uint8_t>(second)}));
        }
        grow_disk(limit);
        std::puts(writer.end(5000000) ? "all there" : "something missing");
    });
    EXPECT_EQ(
        result.out,
        " takes nothing more, the line is carried on without being recorded: File too large\nall there\n");
    EXPECT_EQ(file.content(),
              recording_header +
                  "0.000000 > 00\n1.000000 > 01\n2.000000 > 02\n3.000000 > 03\n4.000000 > 04\n"
                  "5.000000 end\n");
}

TEST_F(FullDisk, IsTriedAgainOnceASecond) {
    const ChildResult result = with_small_disk(recording_header.size(), [this](rlimit& limit) {
        RecordingWriter writer(file.path(), some_header(), {});
        writer.write(entry_of(0, EntryKind::open));
        writer.tick(1000000);
        grow_disk(limit);
        writer.tick(1999999);
        std::printf("%d", file.content() == recording_header);
        std::printf(" %llu", static_cast<unsigned long long>(writer.due_us()));
        writer.tick(2000000);
        std::printf(" %d", file.content() == recording_header);
    });
    EXPECT_EQ(result.out, "1 2000000 0");
}

TEST_F(FullDisk, BytesBeyondWhatWaitsAreCountedAndNoted) {
    constexpr std::size_t piece = 10000;
    const ChildResult result = with_small_disk(recording_header.size() + 5, [this](rlimit& limit) {
        RecordingWriter writer(file.path(), some_header(), {});
        std::uint64_t now_us = 0;
        std::uint64_t given = 0;
        while (given < RecordingWriter::waiting_bytes) {
            writer.write(entry_of(now_us += 20000, EntryKind::sent, std::vector<std::uint8_t>(piece, 0xAB)));
            given += piece;
        }
        writer.write(entry_of(now_us, EntryKind::close));
        grow_disk(limit);
        writer.flush(now_us);
        writer.write(entry_of(now_us += 20000, EntryKind::sent, {0xCD}));
        writer.end(now_us);
        std::printf("%llu", static_cast<unsigned long long>(given));
    });
    const std::uint64_t given = std::stoull(result.out);
    RecordingReader reader(file.path());
    Entry entry;
    std::uint64_t recorded = 0;
    std::uint64_t noted = 0;
    bool closed = false;
    std::vector<std::uint8_t> last;
    while (reader.next(entry)) {
        if (entry.kind == EntryKind::sent) {
            recorded += entry.bytes.size();
            last = entry.bytes;
        } else if (entry.kind == EntryKind::note) {
            ASSERT_EQ(entry.text.rfind("bytes not recorded ", 0), 0U);
            noted += std::stoull(entry.text.substr(19));
        }
        closed = closed || entry.kind == EntryKind::close;
    }
    EXPECT_EQ(reader.damage(), Damage());
    EXPECT_GT(noted, 0U);
    EXPECT_EQ(recorded + noted, given + 1);
    EXPECT_TRUE(closed);
    EXPECT_EQ(last, std::vector<std::uint8_t>{0xCD});
}

TEST_F(FullDisk, AtTheEndTheFileIsOneThatWasCut) {
    with_small_disk(recording_header.size() + 20, [this](rlimit&) {
        RecordingWriter writer(file.path(), some_header(), {});
        writer.write(entry_of(0, EntryKind::sent, {1}));
        writer.write(entry_of(1, EntryKind::sent, {2}));
        writer.end(2);
    });
    RecordingReader reader(file.path());
    Entry entry;
    EXPECT_TRUE(reader.next(entry));
    EXPECT_FALSE(reader.next(entry));
    EXPECT_EQ(reader.damage(), (Damage{.is_cut = true, .cut_line = 6, .passed_over = 0, .first_line = 0}));
}

}  // namespace
}  // namespace vehicle_recorder
