#include "simulator/vehicle/vehiclelog.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

TEST(VehicleLog, DescribesAFrame) {
    EXPECT_EQ(vehicle_simulator::describe(vehicle_simulator::CommandFrame{0, 103, 110, 'P'}),
              "received 00 67 6e 50 throttle 0 direction 103 bucket 110 motor off");
    EXPECT_EQ(vehicle_simulator::describe(vehicle_simulator::CommandFrame{255, 35, 47, 'Q'}),
              "received ff 23 2f 51 throttle 255 direction 35 bucket 47 motor on");
}

TEST(VehicleLog, DescribesAReplyWithWhatItWasMadeFrom) {
    const std::uint8_t bytes[] = {0x7f, 0xa0};
    const vehicle_simulator::Telemetry telemetry = {
        .speed_rpm = -5, .voltage_dv = 520, .current_da = 4, .capacity_ah = 63, .latitude_e7 = -1};
    EXPECT_EQ(vehicle_simulator::describe(bytes, telemetry),
              "replied 2 bytes 7f a0 speed -5 voltage 520 current 4 capacity 63 latitude -1");
    EXPECT_EQ(vehicle_simulator::describe({}, telemetry),
              "muted speed -5 voltage 520 current 4 capacity 63 latitude -1");
}

TEST(VehicleLog, BeginsEachLineWithTheSecondsSinceTheStart) {
    char text[100] = {};
    std::FILE* file = fmemopen(text, sizeof text, "w");
    vehicle_simulator::VehicleLog(file).line("opened");
    int seconds = -1;
    int microseconds = -1;
    int length = 0;
    EXPECT_EQ(std::sscanf(text, "%d.%6d opened%n", &seconds, &microseconds, &length), 2) << text;
    EXPECT_EQ(seconds, 0);
    EXPECT_EQ(std::string(text).substr(static_cast<std::size_t>(length)), "\n");
    EXPECT_EQ(std::string(text).find(' '), 8U);
    std::fclose(file);
}
