// What script/test-devices promises of the machine that these tests run in.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/serial.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "tests/support/childprocess.h"

namespace {

constexpr int type_16550a = 4;

TEST(Machine, TheSerialLinesAreReal) {
    for (const char* path : {"/dev/ttyS1", "/dev/ttyS2", "/dev/ttyS3"}) {
        const int line = open(path, O_RDWR | O_NOCTTY | O_NONBLOCK);
        serial_struct properties = {};
        EXPECT_EQ(ioctl(line, TIOCGSERIAL, &properties), 0) << path;
        EXPECT_EQ(properties.type, type_16550a) << path;
        close(line);
    }
}

TEST(Machine, TwoControllersAreOnTheCanBus) {
    EXPECT_NE(if_nametoindex("can0"), 0U);
    EXPECT_NE(if_nametoindex("can1"), 0U);
}

TEST(Machine, VirtualCanInterfacesCanBeMade) {
    EXPECT_EQ(run_program({"ip", "link", "add", "vcan9", "type", "vcan"}).status, 0);
    EXPECT_EQ(run_program({"ip", "link", "del", "vcan9"}).status, 0);
}

TEST(Machine, InputDevicesCanBeMade) {
    EXPECT_TRUE(std::filesystem::is_character_file("/dev/uinput"));
}

// What is written lands in the layer of memory, also beside the project's files.
TEST(Machine, FilesCanBeWritten) {
    const std::filesystem::path path = std::filesystem::current_path() / "written-in-the-machine";
    EXPECT_TRUE(std::ofstream(path) << "text" << std::flush);
    EXPECT_EQ(std::filesystem::file_size(path), 4U);
}

}  // namespace
