// What reading a device description costs: 5,000 objects, 740 kB.
//
//     description_bench              milliseconds of one reading, the best of several
//     description_bench read COUNT   reads COUNT times and prints nothing, for counting instructions

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "nodevik/nodes/devicedescription.h"

namespace {

constexpr int objects = 5000;

std::string hexadecimal(int number) {
    char text[8];
    std::snprintf(text, sizeof text, "%04X", static_cast<unsigned int>(number));
    return text;
}

/// A file as makers write them, of variables 2000 to 3387.
std::string file() {
    std::string text =
        "[FileInfo]\r\nFileName=big.eds\r\nEDSVersion=4.0\r\n\r\n[ManufacturerObjects]\r\nSupportedObjects=" +
        std::to_string(objects) + "\r\n";
    for (int i = 0; i < objects; ++i) {
        text += std::to_string(i + 1) + "=0x" + hexadecimal(0x2000 + i) + "\r\n";
    }
    for (int i = 0; i < objects; ++i) {
        text += "\r\n[" + hexadecimal(0x2000 + i) + "]\r\nParameterName=Value " + std::to_string(i) +
                "\r\nObjectType=0x7\r\nDataType=0x0006\r\nAccessType=rw\r\nDefaultValue=16\r\nLowLimit=0\r\n"
                "HighLimit=1000\r\nPDOMapping=1\r\n";
    }
    return text;
}

void read(const std::string& text) {
    DeviceDescription description;
    if (!description.parse(text, "big.eds") || description.entry_count() != objects ||
        !description.findings().empty()) {
        std::fputs("description_bench: the file was not read as it stands\n", stderr);
        std::exit(1);
    }
}

}  // namespace

int main(int argc, char** argv) {
    const std::string text = file();
    if (argc == 3) {
        for (int i = std::atoi(argv[2]); i > 0; --i) {
            read(text);
        }
        return 0;
    }
    using Clock = std::chrono::steady_clock;
    double best_ms = 1e9;
    for (int run = 0; run < 20; ++run) {
        const auto start = Clock::now();
        read(text);
        best_ms = std::min(best_ms, std::chrono::duration<double, std::milli>(Clock::now() - start).count());
    }
    std::printf("bytes %zu\nms %.1f\n", text.size(), best_ms);
    return 0;
}
