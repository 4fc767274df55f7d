#include "simulator/vehicle/vehiclelog.h"

namespace vehicle_simulator {

namespace {

std::string hex(std::span<const std::uint8_t> bytes) {
    constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += ' ';
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

std::string number(const char* name, int value) {
    return std::string(" ") + name + " " + std::to_string(value);
}

}  // namespace

void VehicleLog::line(const std::string& what) {
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start_;
    std::fprintf(file_, "%.6f %s\n", passed.count(), what.c_str());
    std::fflush(file_);
}

std::string describe(const CommandFrame& frame) {
    const Command command = decode_command(frame);
    return "received" + hex(frame) + number("throttle", command.throttle) +
           number("direction", command.direction) + number("bucket", command.bucket) + " motor " +
           (command.motor_on ? "on" : "off");
}

std::string describe(std::span<const std::uint8_t> bytes, const Telemetry& telemetry) {
    const std::string sent =
        bytes.empty() ? "muted" : "replied " + std::to_string(bytes.size()) + " bytes" + hex(bytes);
    return sent + number("speed", telemetry.speed_rpm) + number("voltage", telemetry.voltage_dv) +
           number("current", telemetry.current_da) + number("capacity", telemetry.capacity_ah) +
           number("latitude", telemetry.latitude_e7);
}

}  // namespace vehicle_simulator
