/// @file
/// What is in a file.

#ifndef TESTS_SUPPORT_FILECONTENT_H
#define TESTS_SUPPORT_FILECONTENT_H

#include <sys/stat.h>

#include <algorithm>
#include <cstddef>
#include <fstream>
#include <string>

/// What a file holds when this begins, empty if it cannot be read. What a program writes meanwhile is left out: it may
/// write faster than this reads. Files without a size, as those of /proc, are read to their end.
inline std::string file_content(const std::string& path) {
    struct stat about = {};
    const bool sized = stat(path.c_str(), &about) == 0 && S_ISREG(about.st_mode) && about.st_size > 0;
    const std::size_t wanted = sized ? static_cast<std::size_t>(about.st_size) : std::string::npos;
    std::ifstream file(path, std::ios::binary);
    std::string content;
    char block[65536];
    while (content.size() < wanted && (file.read(block, sizeof block), file.gcount() > 0)) {
        content.append(block, static_cast<std::size_t>(file.gcount()));
    }
    content.resize(std::min(content.size(), wanted));
    return content;
}

#endif
