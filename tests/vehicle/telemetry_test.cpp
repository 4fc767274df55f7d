#include "vehicle/telemetry.h"

#include <gtest/gtest.h>

#include <array>

namespace vehicle {
namespace {

TEST(Telemetry, TakesTheFirstByteOfEachSlot) {
    std::array<std::uint8_t, reply_bytes> reply = {};
    for (std::size_t i = 0; i < reply.size(); i++) {
        reply[i] = static_cast<std::uint8_t>(i);
    }
    EXPECT_EQ(slots_of(reply.data()), (Slots{0, 3, 6, 9, 12, 15, 18, 21, 24, 27, 30, 33, 36}));
}

TEST(Telemetry, SlotsOfCharactersAreTheSameBytes) {
    std::array<char, 37> buffer = {};
    buffer[0] = '\xFF';
    buffer[36] = '\x80';
    const Slots slots = slots_of(buffer.data());
    EXPECT_EQ(slots.front(), 0xFF);
    EXPECT_EQ(slots.back(), 0x80);
}

TEST(Telemetry, SpeedIsTruncatedTowardsZeroAndItsSignChanged) {
    EXPECT_EQ(speed_rpm(32767), 0);
    EXPECT_EQ(speed_rpm(0), 10737);
    EXPECT_EQ(speed_rpm(65535), -10738);
    EXPECT_EQ(speed_rpm(28861), 1280);
    EXPECT_EQ(speed_rpm(32764), 0);
    EXPECT_EQ(speed_rpm(32763), 1);
    EXPECT_EQ(speed_rpm(32771), -1);
}

TEST(Telemetry, NumbersOfTwoBytesComeHighByteFirst) {
    const Telemetry telemetry = telemetry_of({0x7F, 0xFF, 0x01, 0x02, 0xFF, 0xFF, 0x00, 0x64, 0, 0, 0, 0, 9});
    EXPECT_EQ(telemetry.speed_rpm, 0);
    EXPECT_EQ(telemetry.voltage, 0x0102);
    EXPECT_EQ(telemetry.current, 65535);
    EXPECT_EQ(telemetry.capacity_ah, 100);
    EXPECT_EQ(telemetry.latitude, 0);
}

TEST(Telemetry, LatitudeIsSignedLowestByteFirst) {
    EXPECT_EQ(telemetry_of({0, 0, 0, 0, 0, 0, 0, 0, 0x04, 0x03, 0x02, 0x01, 0}).latitude, 0x01020304);
    EXPECT_EQ(telemetry_of({0, 0, 0, 0, 0, 0, 0, 0, 0xFE, 0xFF, 0xFF, 0xFF, 0}).latitude, -2);
    EXPECT_EQ(telemetry_of({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x80, 0}).latitude, INT32_MIN);
}

}  // namespace
}  // namespace vehicle
