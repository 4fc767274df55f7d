#include "nodevik/util/dir.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/childprocess.h"

namespace {

namespace fs = std::filesystem;

int failing_opendir = 0;       // errno that the next opendir fails with
int failing_readdir = -1;      // after how many entries readdir fails
int readdir_remark = 0;        // errno that each entry leaves beside itself
unsigned int played_mode = 0;  // what stat tells of every name without a slash

// A directory tree of the test's own; the working directory is restored behind it.
class Dir : public ::testing::Test {
protected:
    Dir() : before_(fs::current_path()) {
        std::string pattern = (fs::temp_directory_path() / "dirXXXXXX").string();
        root_ = mkdtemp(pattern.data());
    }
    ~Dir() override {
        failing_opendir = 0;
        failing_readdir = -1;
        readdir_remark = 0;
        played_mode = 0;
        fs::current_path(before_);
        fs::remove_all(root_);
    }
    Dir(const Dir&) = delete;
    Dir& operator=(const Dir&) = delete;

    void file(const std::string& name) const { std::fclose(std::fopen((root_ / name).c_str(), "w")); }

    void one_of_each() const {
        file("file abc");
        fs::create_directory(root_ / "directory");
        fs::create_symlink("file abc", root_ / "link");
        ASSERT_EQ(mkfifo((root_ / "fifo").c_str(), 0600), 0);
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::snprintf(address.sun_path, sizeof address.sun_path, "%s", (root_ / "socket").c_str());
        const int descriptor = socket(AF_UNIX, SOCK_DGRAM, 0);
        ASSERT_EQ(bind(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        close(descriptor);
    }

    int cd(const std::string& path) {
        std::string copy = path;
        return listing.cd(copy.data());
    }

    std::vector<std::string> walk(typefilter filter) {
        listing.settypefilter(filter);
        listing.resetnext();
        std::vector<std::string> names;
        std::string name;
        unsigned int mode = 0;
        while (listing.getnext(name, mode)) {
            names.push_back(name);
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    fs::path root_;
    dir listing;

private:
    fs::path before_;
};

using Names = std::vector<std::string>;

}  // namespace

// Stand in front of the C library's functions for this executable.
extern "C" DIR* opendir(const char* name) {
    if (failing_opendir != 0) {
        errno = failing_opendir;
        return nullptr;
    }
    using Function = DIR* (*)(const char*);
    static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "opendir"));
    return real(name);
}

extern "C" int stat(const char* name, struct stat* status) noexcept {
    using Function = int (*)(const char*, struct stat*);
    static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "stat"));
    const int result = real(name, status);
    if (played_mode != 0 && std::string(name).find('/') == std::string::npos) {
        status->st_mode = played_mode;
    }
    return result;
}

extern "C" dirent* readdir(DIR* stream) {
    if (failing_readdir == 0) {
        errno = EIO;
        return nullptr;
    }
    if (failing_readdir > 0) {
        --failing_readdir;
    }
    using Function = dirent* (*)(DIR*);
    static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "readdir"));
    dirent* const entry = real(stream);
    if (entry != nullptr && readdir_remark != 0) {
        errno = readdir_remark;
    }
    return entry;
}

TEST_F(Dir, StartsEmpty) {
    EXPECT_EQ(listing.count(), 0U);
    EXPECT_EQ(listing[0], "");
    EXPECT_EQ(listing.ftype(0), 0U);
    EXPECT_EQ(walk(tf_none), Names{});
}

TEST_F(Dir, ReadsAllEntriesButSelfAndParent) {
    one_of_each();
    EXPECT_EQ(cd(root_), 1);
    EXPECT_EQ(listing.count(), 5U);
    EXPECT_EQ(walk(tf_none), (Names{"directory", "fifo", "file abc", "link", "socket"}));
}

TEST_F(Dir, ReadingMakesItTheWorkingDirectory) {
    fs::create_directory(root_ / "inner");
    EXPECT_EQ(cd(root_ / "inner" / ".." / "inner"), 1);
    EXPECT_EQ(fs::current_path(), fs::canonical(root_ / "inner"));
    EXPECT_EQ(cd(".."), 1);
    EXPECT_EQ(walk(tf_none), (Names{"inner"}));
}

TEST_F(Dir, AnotherDirectoryReplacesNamesTypesAndTheWalk) {
    fs::create_directories(root_ / "first" / "directory");
    fs::create_directory(root_ / "second");
    file("second/file");
    cd(root_ / "first");
    EXPECT_EQ(walk(tf_none), (Names{"directory"}));
    cd(root_ / "second");
    EXPECT_EQ(listing.count(), 1U);
    EXPECT_EQ(listing.ftype(0) & S_IFMT, S_IFREG);
    std::string name;
    unsigned int mode = 0;
    EXPECT_TRUE(listing.getnext(name, mode));
    EXPECT_EQ(name, "file");
    EXPECT_EQ(mode, listing.ftype(0));
}

TEST_F(Dir, TheTypeFilterStaysForAnotherDirectory) {
    fs::create_directory(root_ / "directory");
    file("file");
    listing.settypefilter(tf_file);
    cd(root_);
    std::string name;
    unsigned int mode = 0;
    EXPECT_TRUE(listing.getnext(name, mode));
    EXPECT_EQ(name, "file");
    EXPECT_FALSE(listing.getnext(name, mode));
}

TEST_F(Dir, FiltersEachType) {
    one_of_each();
    cd(root_);
    EXPECT_EQ(walk(tf_file), (Names{"file abc", "link"}));
    EXPECT_EQ(walk(tf_dir), (Names{"directory"}));
    EXPECT_EQ(walk(tf_fifo), (Names{"fifo"}));
    EXPECT_EQ(walk(tf_socket), (Names{"socket"}));
    EXPECT_EQ(walk(tf_char), Names{});
    EXPECT_EQ(walk(tf_block), Names{});
}

TEST_F(Dir, FiltersCharacterDevices) {
    ASSERT_EQ(cd("/dev"), 1);
    const Names devices = walk(tf_char);
    EXPECT_NE(std::find(devices.begin(), devices.end(), "null"), devices.end());
    EXPECT_EQ(std::find(devices.begin(), devices.end(), "pts"), devices.end());
}

TEST_F(Dir, NothingIsALinkBecauseTypesFollowLinks) {
    one_of_each();
    cd(root_);
    EXPECT_EQ(walk(tf_link), Names{});
}

TEST_F(Dir, AFilterThatIsNoMemberSelectsNothing) {
    file("a");
    cd(root_);
    EXPECT_EQ(walk(static_cast<typefilter>(8)), Names{});
    EXPECT_EQ(walk(static_cast<typefilter>(0xFFFFFFFF)), Names{});
}

TEST_F(Dir, WalksInReadingOrderWithModes) {
    one_of_each();
    cd(root_);
    std::string name;
    unsigned int mode = 0;
    for (unsigned int i = 0; i < listing.count(); ++i) {
        ASSERT_TRUE(listing.getnext(name, mode));
        EXPECT_EQ(name, listing[i]);
        EXPECT_EQ(mode, listing.ftype(i));
        struct stat status = {};
        ASSERT_EQ(stat(name.c_str(), &status), 0);
        EXPECT_EQ(mode, status.st_mode);
    }
    name = "kept";
    mode = 1;
    EXPECT_FALSE(listing.getnext(name, mode));
    EXPECT_EQ(name, "kept");
    EXPECT_EQ(mode, 1U);
    EXPECT_FALSE(listing.getnext(name, mode));
    listing.resetnext();
    EXPECT_TRUE(listing.getnext(name, mode));
}

TEST_F(Dir, PositionsPastTheEndAreEmpty) {
    file("a");
    cd(root_);
    EXPECT_EQ(listing[0], "a");
    EXPECT_EQ(listing[1], "");
    EXPECT_EQ(listing[2], "");
    EXPECT_EQ(listing[0xFFFFFFFF], "");
    EXPECT_EQ(listing.ftype(1), 0U);
    EXPECT_EQ(listing.ftype(2), 0U);
}

TEST_F(Dir, AnEmptyDirectoryListsNothing) {
    const ChildResult result = run_in_child([this] {
        const bool empty = cd(root_) == 1 && listing.count() == 0 && listing.ls(nullptr) == 1;
        std::exit(empty ? 7 : 8);
    });
    EXPECT_EQ(result.status, 7);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
}

TEST_F(Dir, AMissingPathKeepsThePreviousListing) {
    file("a");
    const ChildResult result = run_in_child([this] {
        cd(root_);
        const bool kept = cd(root_ / "missing") == 0 && listing.count() == 1 && listing[0] == "a";
        std::exit(kept ? 7 : 8);
    });
    EXPECT_EQ(result.status, 7);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
}

TEST_F(Dir, AFileCannotBeEntered) {
    file("a");
    EXPECT_EQ(cd(root_ / "a"), 0);
}

TEST_F(Dir, AFileThatCannotBeEnteredKeepsThePreviousListing) {
    file("a");
    const ChildResult result = run_in_child([this] {
        cd(root_);
        const unsigned int mode = listing.ftype(0);
        const bool kept = cd(root_ / "a") == 0 && listing.count() == 1 && listing[0] == "a" && mode != 0 &&
                          listing.ftype(0) == mode;
        std::exit(kept ? 7 : 8);
    });
    EXPECT_EQ(result.status, 7);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
}

TEST_F(Dir, ADirectoryThatCannotBeReadIsNamedByItsResolvedPath) {
    fs::create_directory(root_ / "inner");
    fs::create_directory_symlink("inner", root_ / "link");
    failing_opendir = EACCES;
    const ChildResult result = run_in_child([this] { cd(root_ / "inner" / ".." / "link"); });
    EXPECT_EQ(result.out, "Couldn't open directory " + fs::canonical(root_ / "inner").string() + "\n");
}

TEST_F(Dir, ADirectoryThatCannotBeReadEmptiesTheListing) {
    file("a");
    const ChildResult result = run_in_child([this] {
        cd(root_);
        failing_opendir = EACCES;
        const bool emptied = cd(root_) == 0 && listing.count() == 0;
        std::exit(emptied ? 7 : 8);
    });
    EXPECT_EQ(result.status, 7);
    EXPECT_EQ(result.out, "Couldn't open directory " + fs::canonical(root_).string() + "\n");
}

TEST_F(Dir, AnEntryWithoutStatusIsKeptWithModeZero) {
    fs::create_symlink("nowhere", root_ / "dangling");
    const ChildResult result = run_in_child([this] {
        const bool kept = cd(root_) == 1 && listing.count() == 1 && listing.ftype(0) == 0 &&
                          walk(tf_none) == Names{"dangling"} && walk(tf_file).empty();
        listing.settypefilter(tf_none);
        listing.ls(nullptr);
        std::exit(kept ? 7 : 8);
    });
    EXPECT_EQ(result.status, 7);
    EXPECT_EQ(result.out,
              "Error occoured attempting to stat dangling\n"
              "  dangling                      \n");
}

TEST_F(Dir, TheReasonOfAMissingStatusFollowsWithTheNextEntry) {
    fs::create_symlink("nowhere", root_ / "one");
    fs::create_symlink("nowhere", root_ / "two");
    const ChildResult result = run_in_child([this] { cd(root_); });
    // One report for the first of the two; more where "." or ".." happen to come behind them.
    EXPECT_EQ(result.err.find("Error reading directory: No such file or directory\n"), 0U);
}

TEST_F(Dir, AFailedReadIsReportedAndKeepsWhatCame) {
    file("a");
    const ChildResult result = run_in_child([this] {
        failing_readdir = 3;
        const bool kept = cd(root_) == 1 && listing.count() == 1;
        std::exit(kept ? 7 : 8);
    });
    EXPECT_EQ(result.status, 7);
    EXPECT_EQ(result.err, "Error reading directory: Input/output error\n");
}

TEST_F(Dir, AnErrorBesideAnEntryIsReportedAndTheEntryKept) {
    fs::create_symlink("nowhere", root_ / "dangling");
    const ChildResult result = run_in_child([this] {
        readdir_remark = EOVERFLOW;
        const bool kept = cd(root_) == 1 && listing.count() == 1 && listing[0] == "dangling";
        std::exit(kept ? 7 : 8);
    });
    EXPECT_EQ(result.status, 7);
    std::string expected;
    for (int entry = 0; entry < 3;
         ++entry) {  // ".", ".." and the link, whose missing status is the older error
        expected += "Error reading directory: Value too large for defined data type\n";
    }
    EXPECT_EQ(result.err, expected);
}

TEST_F(Dir, ListsTheKindAndTheName) {
    one_of_each();
    cd(root_);
    const ChildResult result = run_in_child([this] { listing.ls(nullptr); });
    Names lines;
    for (unsigned int i = 0; i < listing.count(); ++i) {
        const std::string name = listing[i];
        std::string line = name == "directory" ? "directory       "
                           : name == "fifo"    ? "FIFO            "
                           : name == "socket"  ? "socket          "
                                               : "regular file    ";
        std::string column = name;
        column.resize(30, ' ');
        line += "  ";
        line += column;
        lines.push_back(line + "\n");
    }
    std::string expected;
    for (const std::string& line : lines) {
        expected += line;
    }
    EXPECT_EQ(result.out, expected);
}

struct TypeRow {
    const char* name;
    unsigned int mode;
    typefilter filter;
    const char* line;
};

class DirType : public Dir, public ::testing::WithParamInterface<TypeRow> {};

TEST_P(DirType, PassesItsFilterAloneAndIsListedByItsKind) {
    file("entry");
    played_mode = GetParam().mode;
    ASSERT_EQ(cd(root_), 1);
    played_mode = 0;
    EXPECT_EQ(listing.ftype(0), GetParam().mode);
    for (unsigned int filter = tf_none; filter <= tf_socket; ++filter) {
        const bool selected = filter == tf_none || filter == static_cast<unsigned int>(GetParam().filter);
        EXPECT_EQ(walk(static_cast<typefilter>(filter)), selected ? Names{"entry"} : Names{}) << filter;
    }
    listing.settypefilter(tf_none);
    const ChildResult result = run_in_child([this] { listing.ls(nullptr); });
    EXPECT_EQ(result.out, std::string(GetParam().line) + "  entry                         \n");
}

INSTANTIATE_TEST_SUITE_P(Types, DirType,
                         ::testing::Values(TypeRow{"File", 0x81A4, tf_file, "regular file    "},
                                           TypeRow{"Directory", 0x41ED, tf_dir, "directory       "},
                                           TypeRow{"Link", 0xA1FF, tf_none, "symbolic link   "},
                                           TypeRow{"Char", 0x21B6, tf_char, "character device"},
                                           TypeRow{"Block", 0x61B0, tf_block, "block device    "},
                                           TypeRow{"Fifo", 0x1180, tf_fifo, "FIFO            "},
                                           TypeRow{"Socket", 0xC1FF, tf_socket, "socket          "},
                                           TypeRow{"Unknown", 0x3180, tf_none, ""}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(Dir, ListsDevicesByKind) {
    cd("/dev");
    const ChildResult result = run_in_child([this] {
        std::string name = "null";
        listing.ls(name.data());
    });
    EXPECT_NE(result.out.find("character device  null                          \n"), std::string::npos);
}

TEST_F(Dir, ListsOnlyNamesThatContainTheText) {
    file("xabcx");
    file("xabx");
    cd(root_);
    const ChildResult result = run_in_child([this] {
        std::string text = "abc";
        listing.ls(text.data());
    });
    EXPECT_EQ(result.out, "regular file      xabcx                         \n");
}

TEST_F(Dir, ListsUnderTheTypeFilterAndStartsTheWalkAnew) {
    file("a");
    fs::create_directory(root_ / "d");
    cd(root_);
    listing.settypefilter(tf_dir);
    std::string name;
    unsigned int mode = 0;
    ASSERT_TRUE(listing.getnext(name, mode));
    const ChildResult result = run_in_child([&] {
        listing.ls(nullptr);
        std::exit(listing.getnext(name, mode) ? 7 : 8);
    });
    EXPECT_EQ(result.out, "directory         d                             \n");
    EXPECT_EQ(result.status, 7);
}

TEST_F(Dir, KeepsNamesWithBlanksAndUmlautsAsTheyAre) {
    file(" leading and  double ");
    file("l\xC3\xA4mp\xC3\xB6");
    cd(root_);
    EXPECT_EQ(walk(tf_file), (Names{" leading and  double ", "l\xC3\xA4mp\xC3\xB6"}));
}

TEST_F(Dir, ReadsMoreEntriesThanItReservesRoomFor) {
    for (int i = 0; i < 150; ++i) {
        file(std::to_string(i));
    }
    cd(root_);
    EXPECT_EQ(listing.count(), 150U);
}
