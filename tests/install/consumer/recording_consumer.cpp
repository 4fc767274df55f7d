// Links against the library of the recordings the way a user's program does.

#include <cstdio>
#include <cstring>

#include "nodevik/recording/framelog.h"

int main() {
    const char* const line = "(1436509052.249713) can0 185#";
    LogFrame frame;
    const bool is_frame = parse_log_line(line, std::strlen(line), frame) == LogLine::frame;
    std::printf("%u\n", is_frame ? frame.length : 1);
    return 0;
}
