// Shows the directory lister: reads a directory and prints the entries of one kind whose name has a text in
// it.
//
//     list_directory [DIRECTORY [KIND [TEXT]]]
//
// KIND is all, file, dir, link, char, block, fifo or socket. Types are read through symbolic links, so a link
// counts as what it points to, and the kind link yields nothing.

#include <cstdio>
#include <cstring>

#include "nodevik/util/dir.h"

namespace {

constexpr const char* usage =
    "usage: list_directory [DIRECTORY [all|file|dir|link|char|block|fifo|socket [TEXT]]]";

struct Kind {
    const char* name;
    typefilter filter;
};

constexpr Kind kinds[] = {
    {"all", tf_none},  {"file", tf_file},   {"dir", tf_dir},   {"link", tf_link},
    {"char", tf_char}, {"block", tf_block}, {"fifo", tf_fifo}, {"socket", tf_socket},
};

const Kind* find_kind(const char* name) {
    for (const Kind& kind : kinds) {
        if (std::strcmp(kind.name, name) == 0) {
            return &kind;
        }
    }
    return nullptr;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1 && std::strcmp(argv[1], "--help") == 0) {
        std::puts(usage);
        return 0;
    }
    const Kind* kind = find_kind(argc > 2 ? argv[2] : "all");
    if (kind == nullptr || argc > 4) {
        std::fprintf(stderr, "%s\n", usage);
        return 2;
    }
    char here[] = ".";
    char* path = argc > 1 ? argv[1] : here;
    dir listing;
    if (listing.cd(path) == 0) {
        std::fprintf(stderr, "list_directory: cannot read the directory %s\n", path);
        return 1;
    }
    listing.settypefilter(kind->filter);
    listing.ls(argc > 3 ? argv[3] : nullptr);
}
