#include "tools/dcffile.h"

#include <array>
#include <ctime>

namespace nodevik_tool {

namespace {

std::string time_text(const char* pattern) {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    std::array<char, 16> text{};
    if (localtime_r(&now, &local) == nullptr ||
        std::strftime(text.data(), text.size(), pattern, &local) == 0) {
        return {};
    }
    return text.data();
}

}  // namespace

void set_node(DeviceDescription& description, unsigned int node) {
    DeviceDescription::Commissioning commissioning = description.commissioning();
    commissioning.node_id = node;
    description.set_commissioning(commissioning);  // its names stay as they are, so nothing is out of range
}

std::string file_time() {
    return time_text("%I:%M%p");
}

std::string file_date() {
    return time_text("%m-%d-%Y");
}

std::string dcf_text(const DeviceDescription& description, const std::string& file) {
    DeviceDescription::DcfOptions options;
    options.file_name = file.substr(file.rfind('/') + 1);
    options.modification_date = file_date();
    options.modification_time = file_time();
    options.modified_by = "nodevik";
    return description.dcf(options);
}

}  // namespace nodevik_tool
