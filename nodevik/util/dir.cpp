#include "nodevik/util/dir.h"

#include <dirent.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

struct Kind {
    unsigned int type_bits;
    const char* text;
};

constexpr std::array<Kind, 7> kinds = {{
    {S_IFSOCK, "socket"},
    {S_IFLNK, "symbolic link"},
    {S_IFREG, "regular file"},
    {S_IFBLK, "block device"},
    {S_IFDIR, "directory"},
    {S_IFCHR, "character device"},
    {S_IFIFO, "FIFO"},
}};

// By typefilter from tf_file on. The link's row holds the mask itself, which no entry carries: callers rely
// on an empty walk.
constexpr std::array<unsigned int, 7> selected_type_bits = {S_IFREG, S_IFDIR, S_IFMT,  S_IFCHR,
                                                            S_IFBLK, S_IFIFO, S_IFSOCK};

constexpr std::size_t expected_entries = 100;

struct Free {
    void operator()(char* text) const { std::free(text); }
};

struct CloseDirectory {
    void operator()(DIR* stream) const { closedir(stream); }
};

// A type without a text prints nothing, not even its column.
void print_kind(unsigned int mode) {
    for (const Kind& kind : kinds) {
        if ((mode & S_IFMT) == kind.type_bits) {
            std::printf("%-16s", kind.text);
        }
    }
}

bool is_self_or_parent(const char* name) {
    return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

// The directory's next entry, or null at its end. Reports a failed read, and when an entry follows one whose
// status could not be read, the reason for that.
const dirent* next_entry(DIR* stream, int& pending_error) {
    errno = 0;
    const dirent* entry = readdir(stream);
    if (entry != nullptr && errno == 0) {
        errno = pending_error;
    }
    pending_error = 0;
    if (errno != 0) {
        std::perror("Error reading directory");
    }
    return entry;
}

}  // namespace

dir::dir() : dirname(".") {
    dirlist.reserve(expected_entries);
    typelist.reserve(expected_entries);
}

dir::~dir() = default;

int dir::cd(char* path) {
    const std::unique_ptr<char, Free> resolved(realpath(path, nullptr));
    if (!resolved || chdir(resolved.get()) != 0) {
        return 0;
    }
    dirname = resolved.get();
    dirlist.clear();
    typelist.clear();

    const std::unique_ptr<DIR, CloseDirectory> stream(opendir(resolved.get()));
    if (!stream) {
        std::printf("Couldn't open directory %s\n", resolved.get());
        return 0;
    }
    dirpos = 0;
    int pending_error = 0;
    while (const dirent* entry = next_entry(stream.get(), pending_error)) {
        if (is_self_or_parent(entry->d_name)) {
            continue;
        }
        dirlist.emplace_back(entry->d_name);
        struct stat status = {};
        if (stat(entry->d_name, &status) == -1) {
            pending_error = errno;
            std::printf("Error occoured attempting to stat %s\n", entry->d_name);
            status.st_mode = 0;
        }
        typelist.push_back(status.st_mode);
    }
    return 1;
}

int dir::ls(char* filter) {
    resetnext();
    for (unsigned int i = 0; i < count(); ++i) {
        std::string name;
        unsigned int mode = 0;
        if (!getnext(name, mode)) {
            break;
        }
        if (filter == nullptr || std::strstr(name.c_str(), filter) != nullptr) {
            print_kind(mode);
            std::printf("  %-30s\n", name.c_str());
        }
    }
    resetnext();
    return 1;
}

unsigned int dir::count() {
    return static_cast<unsigned int>(dirlist.size());
}

std::string& dir::operator[](unsigned int pos) {
    filename = pos < count() ? dirlist[pos] : std::string();
    return filename;
}

unsigned int dir::ftype(unsigned int pos) {
    return pos < count() ? typelist[pos] : 0;
}

void dir::resetnext() {
    dirpos = 0;
}

bool dir::getnext(std::string& name, unsigned int& mode) {
    while (dirpos < count()) {
        const unsigned int pos = dirpos++;
        if (passes(typelist[pos])) {
            name = dirlist[pos];
            mode = typelist[pos];
            return true;
        }
    }
    return false;
}

void dir::settypefilter(typefilter t) {
    tf = t;
}

bool dir::passes(unsigned int mode) const {
    if (tf == tf_none) {
        return true;
    }
    const auto row = static_cast<std::size_t>(tf) - 1;
    return row < selected_type_bits.size() && (mode & S_IFMT) == selected_type_bits[row];
}
