#include "soak/footprint.h"

#include <dirent.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cstdio>

namespace soak {

unsigned local_port(int socket) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.sin_port);
}

long resident_memory_kib() {
    std::FILE* status = std::fopen("/proc/self/status", "re");
    long memory_kib = -1;
    std::array<char, 256> line;
    while (status != nullptr && std::fgets(line.data(), static_cast<int>(line.size()), status) != nullptr) {
        if (std::sscanf(line.data(), "VmRSS: %ld", &memory_kib) == 1) {
            break;
        }
    }
    if (status != nullptr) {
        std::fclose(status);
    }
    return memory_kib;
}

long open_descriptors() {
    DIR* directory = opendir("/proc/self/fd");
    long count = 0;
    while (directory != nullptr && readdir(directory) != nullptr) {
        ++count;
    }
    if (directory != nullptr) {
        closedir(directory);
    }
    return count - 2;  // "." and ".."
}

}  // namespace soak
