#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/childprocess.h"

namespace {

ChildResult recorder(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), VEHICLE_RECORDER);
    return run_program(arguments);
}

TEST(RecorderCommand, TellsItsVersion) {
    const ChildResult result = recorder({"--version"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out.rfind("vehicle-recorder (ohjauspaneeli) ", 0), 0U) << result.out;
    EXPECT_EQ(result.err, "");
}

TEST(RecorderCommand, TellsItsUse) {
    const ChildResult result = recorder({"--help"});
    EXPECT_EQ(result.status, 0);
    EXPECT_NE(result.out.find("Exit status:"), std::string::npos) << result.out;
    EXPECT_EQ(result.err, "");
}

TEST(RecorderCommand, WithoutACommandIsWrongUsage) {
    const ChildResult result = recorder({});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err.rfind("vehicle-recorder: a command is missing", 0), 0U) << result.err;
    EXPECT_EQ(result.err.find('\n'), result.err.size() - 1) << result.err;
}

TEST(RecorderCommand, UnknownCommandIsWrongUsage) {
    const ChildResult result = recorder({"rewind"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err.rfind("vehicle-recorder: 'rewind' is none of its commands", 0), 0U) << result.err;
}

TEST(RecorderCommand, NumberThatIsNoneOrOutOfRangeIsWrongUsage) {
    for (const std::string number : {"", "x", "1x", "-1", "0", "1000001", "99999999999999999999"}) {
        const ChildResult result =
            recorder({"run", "--directory", "/nowhere", "--keep=" + number, "--", "true"});
        EXPECT_EQ(result.status, 2) << number;
        EXPECT_EQ(result.err.rfind("vehicle-recorder: --keep: ", 0), 0U) << result.err;
    }
    const ChildResult result = recorder({"watch", "/nowhere", "--silence", "3600001"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err.rfind("vehicle-recorder: --silence: Value 3600001 not in range 1 to 3600000", 0), 0U)
        << result.err;
}

TEST(RecorderCommand, NumberMayHaveZerosAhead) {
    const ChildResult result = recorder({"watch", "/nowhere/drive.recording", "--silence", "08"});
    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(result.err.rfind("vehicle-recorder: /nowhere/drive.recording cannot be read: ", 0), 0U)
        << result.err;
}

}  // namespace
