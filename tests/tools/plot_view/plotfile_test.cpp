// Files: which kind they are of, and what is said of those that are none.

#include "tools/plot_view/plotfile.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/temporaryfile.h"

using namespace plot;

namespace {

std::string refusal(const std::string& path) {
    try {
        read_recording(path);
    } catch (const BadFile& failure) {
        return failure.what();
    }
    return "read";
}

std::string refusal_of(const std::string& content) {
    const TemporaryFile file;
    file.write(content);
    return refusal(file.path());
}

}  // namespace

TEST(ReadRecording, KnowsATableFromARecordingOfFrames) {
    const TemporaryFile file;
    file.write("\xEF\xBB\xBFtime,a,b\n0,1,2\n");
    const Recording table = read_recording(file.path());
    EXPECT_EQ(table.data.series.at(0).name, "a");
    EXPECT_EQ(table.data.series.at(1).id, 1U);
    file.write("\n {\"time\":0,\"id\":\"0x080\",\"data\":\"\"}\n");
    EXPECT_EQ(read_recording(file.path()).data.series.at(0).name, "0x080 frames");
}

TEST(ReadRecording, TimesThatRunBackwardsAreSortedAndNoted) {
    const TemporaryFile file;
    file.write("time,a\n5,1\n3,2\n4,3\n");
    const Recording recording = read_recording(file.path());
    EXPECT_EQ(recording.data.duration(), (Interval{3, 5}));
    EXPECT_EQ(recording.data.series.at(0).values()[0], 2);
    EXPECT_EQ(recording.notes, std::vector<std::string>{
                                   "the times run backwards; the samples stand in the order of their times"});
}

TEST(ReadRecording, TellsWhatIsWrongWithAFile) {
    EXPECT_EQ(refusal("/nowhere/x.csv"), "cannot be opened: No such file or directory");
    EXPECT_EQ(refusal("/tmp"), "is a directory");
    EXPECT_EQ(refusal_of(""), "is empty");
    EXPECT_EQ(refusal_of(" \r\n\n"), "is empty");
    EXPECT_EQ(refusal_of(std::string("\x7F"
                                     "ELF\0\0\0",
                                     7)),
              "is no text; a table (CSV) or a recording of 'nodevik monitor --json' can be shown");
    EXPECT_EQ(refusal_of("# vehicle-recorder recording 1\n0.000000 open\n"),
              "is a recording of the vehicle's line: 'vehicle-recorder plot' shows it");
    EXPECT_EQ(refusal_of("{}\n"), "holds no frames as 'nodevik --json monitor' writes them");
}

TEST(PassedLines, AreOneSentence) {
    PassedLines lines;
    EXPECT_EQ(lines.sentence("bad"), "");
    lines.add(4);
    EXPECT_EQ(lines.sentence("bad"), "line 4 is bad and left out");
    lines.add(9);
    EXPECT_EQ(lines.sentence("bad"), "2 lines are bad and left out, the first is line 4");
}

TEST(Lines, AreTakenWithoutTheirEnds) {
    Lines lines("a\r\n\nb");
    ASSERT_TRUE(lines.next());
    EXPECT_EQ(lines.line(), "a");
    ASSERT_TRUE(lines.next());
    EXPECT_EQ(lines.line(), "");
    ASSERT_TRUE(lines.next());
    EXPECT_EQ(lines.line(), "b");
    EXPECT_EQ(lines.number(), 3U);
    EXPECT_FALSE(lines.next());
}
