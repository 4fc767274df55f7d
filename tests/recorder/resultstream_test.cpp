#include "recorder/resultstream.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "program/failure.h"

using vehicle_recorder::Interrupts;
using vehicle_recorder::ResultStream;

namespace {

namespace fs = std::filesystem;

void write_whole_file(const std::string& path, const std::string& content) {
    const Interrupts interrupts;
    ResultStream stream(path, interrupts);
    stream.add(content);
    stream.finish();
}

std::string content_of(const fs::path& path) {
    std::ifstream file(path);
    std::stringstream content;
    content << file.rdbuf();
    return content.str();
}

// An empty directory for each test.
class ResultFile : public testing::Test {
public:
    ~ResultFile() override { fs::remove_all(directory_); }

protected:
    ResultFile() {
        std::string name = (fs::temp_directory_path() / "resultstream-XXXXXX").string();
        directory_ = mkdtemp(name.data());
    }

    std::string path(const std::string& name) const { return (directory_ / name).string(); }

    // Names of what is in the directory.
    std::vector<std::string> names() const {
        std::vector<std::string> found;
        for (const fs::directory_entry& entry : fs::directory_iterator(directory_)) {
            found.push_back(entry.path().filename().string());
        }
        return found;
    }

    void write(const std::string& name, const std::string& content) const {
        std::ofstream(path(name)) << content;
    }

private:
    fs::path directory_;
};

std::string failure_of(const std::string& path, const std::string& content = "content") {
    try {
        write_whole_file(path, content);
    } catch (const program::Failure& failure) {
        EXPECT_EQ(failure.status(), program::ExitStatus::bad_file);
        return failure.what();
    }
    return "no failure";
}

using Names = std::vector<std::string>;

}  // namespace

TEST_F(ResultFile, IsNewWithTheUsualPermissions) {
    const mode_t mask = umask(027);
    write_whole_file(path("page"), "content\n");
    umask(mask);
    EXPECT_EQ(content_of(path("page")), "content\n");
    EXPECT_EQ(names(), Names{"page"});
    struct stat status {};
    ASSERT_EQ(stat(path("page").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0640u);
}

TEST_F(ResultFile, TakesThePlaceAndThePermissionsOfTheOldOne) {
    write("page", "what was there before, longer");
    chmod(path("page").c_str(), 0604);
    write_whole_file(path("page"), "new");
    EXPECT_EQ(content_of(path("page")), "new");
    EXPECT_EQ(names(), Names{"page"});
    struct stat status {};
    ASSERT_EQ(stat(path("page").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0604u);
}

TEST_F(ResultFile, FollowsASymbolicLink) {
    write("page", "old");
    fs::create_symlink("page", path("link"));
    write_whole_file(path("link"), "new");
    EXPECT_TRUE(fs::is_symlink(path("link")));
    EXPECT_EQ(content_of(path("page")), "new");
}

TEST_F(ResultFile, LeavesTheOldOneWhenTheDiskDoesNotTakeAll) {
    write("page", "old");
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit before = {};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit limit = {1000, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
    const std::string replaced = failure_of(path("page"), std::string(5000, 'x'));
    const std::string made = failure_of(path("other"), std::string(5000, 'x'));
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(replaced, path("page") + " cannot be written: File too large");
    EXPECT_EQ(made, path("other") + " cannot be written: File too large");
    EXPECT_EQ(content_of(path("page")), "old");
    EXPECT_EQ(names(), Names{"page"});
}

TEST_F(ResultFile, WritesIntoWhatIsNoRegularFile) {
    ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
    const int reader = open(path("pipe").c_str(), O_RDONLY | O_NONBLOCK);
    ASSERT_GE(reader, 0);
    write_whole_file(path("pipe"), "content");
    char text[16] = {};
    EXPECT_EQ(read(reader, text, sizeof text), 7);
    EXPECT_STREQ(text, "content");
    close(reader);
    EXPECT_TRUE(fs::is_fifo(path("pipe")));
    EXPECT_EQ(failure_of("/dev/full"), "/dev/full cannot be written: No space left on device");
}

TEST_F(ResultFile, IsNotThereUntilItIsFinished) {
    write("page", "old");
    {
        const Interrupts interrupts;
        ResultStream replaced(path("page"), interrupts);
        replaced.add(std::string(100'000, 'x'));
        ResultStream made(path("other"), interrupts);
        made.add("half");
        EXPECT_EQ(content_of(path("page")), "old");
        EXPECT_FALSE(fs::exists(path("other")));
    }
    EXPECT_EQ(content_of(path("page")), "old");
    EXPECT_EQ(names(), Names{"page"});
}

TEST_F(ResultFile, TellsWhyItCannotBeWritten) {
    EXPECT_EQ(failure_of(path("none/page")),
              path("none/page") + " cannot be written: No such file or directory");
    EXPECT_EQ(failure_of(path("")), path("") + " cannot be written: Is a directory");
}
