#include "recorder/linename.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "program/linepreload.h"
#include "tests/support/childprocess.h"

using namespace vehicle_recorder;

namespace {

const std::string no_device = "/dev/no-such-line";

// What this process would have its program take for the file system, and for its user.
std::string namespaces() {
    return std::filesystem::read_symlink("/proc/self/ns/mnt").string() + " " +
           std::filesystem::read_symlink("/proc/self/ns/user").string();
}

}  // namespace

// It would be another user there, or see another file system, without the device under the name.
TEST(LineName, NamespaceThatComesToNothingIsNotEntered) {
    const ChildResult result = run_in_child([] {
        setenv(line_preload::device_variable, "loaded already", 1);
        const std::string before = namespaces();
        const std::string failure = give_line_name(no_device, LineWay::any);
        std::printf("%s%s %s", failure.c_str(), std::getenv(line_preload::device_variable),
                    namespaces() == before ? "here" : "elsewhere");
    });
    EXPECT_EQ(result.out, no_device + " here");
}

TEST(LineName, NamespaceThatIsDemandedAndComesToNothingIsToldWithItsReason) {
    const ChildResult result =
        run_in_child([] { std::printf("%s", give_line_name(no_device, LineWay::mount_namespace).c_str()); });
    EXPECT_EQ(result.out.find("no mount namespace can be made with /dev/ttyS0 in it: "), 0U) << result.out;
}
