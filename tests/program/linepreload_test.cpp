#include "program/linepreload.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/childprocess.h"

namespace {

// Runs a command with the library, which is told of `device`.
ChildResult run_on(const std::string& device, const std::vector<std::string>& command) {
    std::vector<std::string> words = {"env", std::string(line_preload::device_variable) + "=" + device};
    words.insert(words.end(), command.begin(), command.end());
    return run_preloaded(LINE_PRELOAD, words);
}

// What every function finds, a line for each.
std::string found(const std::string& device, const std::string& directory, const std::string& path) {
    return run_on(device, {LINE_CALLER, directory, path}).out;
}

// The lines of a report in which all functions but those that tell of something else find `number`.
std::string all_find(const std::string& number, const std::string& access, const std::string& link,
                     const std::string& resolved, const std::string& spawned) {
    std::ostringstream report;
    for (const char* name : {"open", "open64", "openat", "openat64", "__open_2", "__open64_2", "__openat_2",
                             "__openat64_2", "fopen", "fopen64", "freopen", "freopen64", "stat", "stat64",
                             "lstat", "lstat64", "fstatat", "fstatat64", "statx"}) {
        report << name << ' ' << number << '\n';
    }
    for (const char* name : {"access", "eaccess", "euidaccess", "faccessat"}) {
        report << name << ' ' << access << '\n';
    }
    for (const char* name : {"readlink", "readlinkat", "__readlink_chk", "__readlinkat_chk"}) {
        report << name << ' ' << link << '\n';
    }
    for (const char* name : {"realpath", "__realpath_chk", "canonicalize_file_name"}) {
        report << name << ' ' << resolved << '\n';
    }
    report << spawned;
    return report.str();
}

const std::string spawned_on_zero = "1:5\nposix_spawn_file_actions_addopen spawned\n";
const std::string nothing_spawned = "posix_spawn_file_actions_addopen ENOENT\n";

class LinePreload : public testing::Test {
protected:
    void SetUp() override {
        directory_ = testing::TempDir() + "linepreload-" + std::to_string(getpid());
        std::filesystem::create_directory(directory_);
    }
    void TearDown() override { std::filesystem::remove_all(directory_); }

    std::string directory_;
};

}  // namespace

TEST_F(LinePreload, EveryFunctionFindsTheDeviceUnderTheLinesName) {
    EXPECT_EQ(found("/dev/zero", "/", "/dev/ttyS0"),
              all_find("1:5", "allowed", "EINVAL", "/dev/ttyS0", spawned_on_zero));
}

TEST_F(LinePreload, EveryFunctionMissesALineThatIsNone) {
    EXPECT_EQ(found("none", "/", "/dev/ttyS0"),
              all_find("ENOENT", "ENOENT", "ENOENT", "ENOENT", nothing_spawned));
}

TEST_F(LinePreload, EveryFunctionMissesADeviceThatIsGone) {
    EXPECT_EQ(found(directory_ + "/gone", "/", "/dev/ttyS0"),
              all_find("ENOENT", "ENOENT", "ENOENT", "ENOENT", nothing_spawned));
}

TEST_F(LinePreload, LinkToADeviceStandsForTheDevice) {
    std::filesystem::create_symlink("/dev/zero", directory_ + "/link");
    EXPECT_EQ(found(directory_ + "/link", "/", "/dev/ttyS0"),
              all_find("1:5", "allowed", "EINVAL", "/dev/ttyS0", spawned_on_zero));
}

TEST_F(LinePreload, OtherPathsLeadWhereTheyDid) {
    EXPECT_EQ(
        found("/dev/zero", "/", "/dev/null"),
        all_find("1:3", "allowed", "EINVAL", "/dev/null", "1:3\nposix_spawn_file_actions_addopen spawned\n"));
    for (const char* path : {"/dev/ttyS0x", "/dev/xttyS0", "/nowhere/ttyS0", "ttyS0", "", "/dev/ttyS0/"}) {
        const std::string result = run_on("/dev/zero", {LINE_CALLER, "/", path, "open"}).out;
        EXPECT_TRUE(result == "open ENOENT\n" || result == "open ENOTDIR\n") << path << ": " << result;
    }
}

TEST_F(LinePreload, FileOfTheLinesNameElsewhereIsItself) {
    const std::string path = directory_ + "/ttyS0";
    std::ofstream(path) << "text";
    EXPECT_EQ(run_on("/dev/zero", {"cat", path}).out, "text");
    EXPECT_EQ(run_on("/dev/zero", {"env", "-C", directory_, "cat", "ttyS0"}).out, "text");
}

TEST_F(LinePreload, LineIsFoundByWhateverPathLeadsThere) {
    std::filesystem::create_symlink("/dev", directory_ + "/devices");
    for (const std::string& path :
         {std::string("//dev//ttyS0"), std::string("/dev/./ttyS0"), std::string("/dev/../dev/ttyS0"),
          std::string("/proc/self/root/dev/ttyS0"), directory_ + "/devices/ttyS0"}) {
        EXPECT_EQ(found("/dev/zero", "/", path),
                  all_find("1:5", "allowed", "EINVAL", "/dev/ttyS0", spawned_on_zero))
            << path;
    }
    for (const char* path : {"ttyS0", "./ttyS0", "../dev/ttyS0"}) {
        EXPECT_EQ(run_on("/dev/zero", {"env", "-C", "/dev", LINE_CALLER, "/", path, "stat"}).out,
                  "stat 1:5\n");
        EXPECT_EQ(run_on("/dev/zero", {LINE_CALLER, "/dev", path, "openat"}).out, "openat 1:5\n");
    }
}

TEST_F(LinePreload, FunctionsWithADirectoryLookThere) {
    EXPECT_EQ(run_on("/dev/zero", {LINE_CALLER, "/", "dev/ttyS0", "fstatat"}).out, "fstatat 1:5\n");
    EXPECT_EQ(run_on("/dev/zero", {LINE_CALLER, directory_, "ttyS0", "fstatat"}).out, "fstatat ENOENT\n");
}

TEST_F(LinePreload, NothingChangesWithoutAChoice) {
    const std::string plain = run_program({LINE_CALLER, "/", "/dev/ttyS0"}).out;
    EXPECT_EQ(found("", "/", "/dev/ttyS0"), plain);
    EXPECT_EQ(found("/" + std::string(PATH_MAX, 'x'), "/", "/dev/ttyS0"), plain);
}

TEST_F(LinePreload, ProgramsThatAProgramStartsFindTheDeviceToo) {
    const ChildResult result = run_on(
        "/dev/zero", {"sh", "-c", "test -c /dev/ttyS0 && sh -c 'head -c 3 </dev/ttyS0 | od -An -tx1'"});
    EXPECT_EQ(result.out, " 00 00 00\n");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(run_on("none", {"sh", "-c", "sh -c 'test -e /dev/ttyS0'"}).status, 1);
}

TEST_F(LinePreload, BringsNoFurtherLibraryAlong) {
    const std::string loaded = run_on("/dev/zero", {"env", "LD_TRACE_LOADED_OBJECTS=1", "/bin/true"}).out;
    EXPECT_NE(loaded.find("line_preload.so"), std::string::npos) << loaded;
    EXPECT_EQ(loaded.find("libstdc++"), std::string::npos) << loaded;
}
