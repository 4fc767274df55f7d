#include "simulator/vehicle/vehicleprotocol.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

namespace {

using vehicle_simulator::CommandFrame;
using vehicle_simulator::ReplyFrame;
using vehicle_simulator::Telemetry;

// What the panel makes of a reply's first byte of each slot.
int slot(const ReplyFrame& reply, std::size_t number) {
    return reply[3 * number];
}

int panel_speed(int number) {
    return -static_cast<int>(std::trunc((number - 32767) * 3.27701 / 10.0));
}

std::int32_t panel_latitude(const ReplyFrame& reply) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(slot(reply, 8)) +
                                     (static_cast<std::uint32_t>(slot(reply, 9)) << 8) +
                                     (static_cast<std::uint32_t>(slot(reply, 10)) << 16) +
                                     (static_cast<std::uint32_t>(slot(reply, 11)) << 24));
}

}  // namespace

TEST(CommandReader, CompletesAFrameWithEachFourthByte) {
    vehicle_simulator::CommandReader reader;
    EXPECT_FALSE(reader.take(1));
    EXPECT_FALSE(reader.take(2));
    EXPECT_FALSE(reader.take(3));
    EXPECT_EQ(reader.take('Q'), (CommandFrame{1, 2, 3, 'Q'}));
    EXPECT_FALSE(reader.take(5));
}

TEST(CommandReader, ForgetsAnUnfinishedFrameOnReset) {
    vehicle_simulator::CommandReader reader;
    reader.take(1);
    reader.take(2);
    reader.reset();
    reader.take(5);
    reader.take(6);
    reader.take(7);
    EXPECT_EQ(reader.take('P'), (CommandFrame{5, 6, 7, 'P'}));
}

TEST(DecodeCommand, TakesTheSetPointsAsUnsignedBytes) {
    const vehicle_simulator::Command command = vehicle_simulator::decode_command({255, 175, 220, 'Q'});
    EXPECT_EQ(command.throttle, 255);
    EXPECT_EQ(command.direction, 175);
    EXPECT_EQ(command.bucket, 220);
    EXPECT_TRUE(command.motor_on);
}

TEST(DecodeCommand, SwitchesTheMotorOnWithNothingButQ) {
    for (int byte = 0; byte < 256; ++byte) {
        const CommandFrame frame = {0, 103, 110, static_cast<std::uint8_t>(byte)};
        EXPECT_EQ(vehicle_simulator::decode_command(frame).motor_on, byte == 0x51) << byte;
    }
}

TEST(EncodeSpeed, IsUndoneByThePanelForEverySpeed) {
    for (int speed = -10738; speed <= 10737; ++speed) {
        ASSERT_EQ(panel_speed(vehicle_simulator::encode_speed(speed)), speed);
    }
}

TEST(EncodeSpeed, IsTheNumberClosestToRest) {
    EXPECT_EQ(vehicle_simulator::encode_speed(0), 32767);
    EXPECT_EQ(vehicle_simulator::encode_speed(1), 32763);
    EXPECT_EQ(vehicle_simulator::encode_speed(-1), 32771);
    EXPECT_NE(panel_speed(32764), 1);
    EXPECT_NE(panel_speed(32770), -1);
}

TEST(EncodeSpeed, MovesWhatIsOutOfRangeToTheNearerEnd) {
    EXPECT_EQ(panel_speed(vehicle_simulator::encode_speed(20000)), 10737);
    EXPECT_EQ(panel_speed(vehicle_simulator::encode_speed(-20000)), -10738);
}

TEST(EncodeReply, HasThirteenSlotsOfThreeBytes) {
    EXPECT_EQ(vehicle_simulator::encode_reply({}).size(), 39U);
}

TEST(EncodeReply, CarriesEachValueInItsSlots) {
    const ReplyFrame reply = vehicle_simulator::encode_reply({.speed_rpm = 1500,
                                                              .voltage_dv = 0x0207,
                                                              .current_da = 0x0155,
                                                              .capacity_ah = 0x0064,
                                                              .latitude_e7 = 0x23DD1A2B,
                                                              .ground_speed_dm_per_s = 25});
    EXPECT_EQ(panel_speed(slot(reply, 0) * 256 + slot(reply, 1)), 1500);
    EXPECT_EQ(slot(reply, 2), 0x02);
    EXPECT_EQ(slot(reply, 3), 0x07);
    EXPECT_EQ(slot(reply, 4), 0x01);
    EXPECT_EQ(slot(reply, 5), 0x55);
    EXPECT_EQ(slot(reply, 6), 0x00);
    EXPECT_EQ(slot(reply, 7), 0x64);
    EXPECT_EQ(slot(reply, 8), 0x2B);
    EXPECT_EQ(slot(reply, 9), 0x1A);
    EXPECT_EQ(slot(reply, 10), 0xDD);
    EXPECT_EQ(slot(reply, 11), 0x23);
    EXPECT_EQ(slot(reply, 12), 25);
}

TEST(EncodeReply, CarriesASouthernLatitude) {
    EXPECT_EQ(panel_latitude(vehicle_simulator::encode_reply({.latitude_e7 = -338500000})), -338500000);
}

TEST(EncodeReply, MarksTheUnreadBytesWithTheirSlot) {
    const ReplyFrame reply = vehicle_simulator::encode_reply({});
    for (std::size_t number = 0; number < vehicle_simulator::slot_count; ++number) {
        EXPECT_EQ(reply[3 * number + 1], 0xA0 + number);
        EXPECT_EQ(reply[3 * number + 2], 0xB0 + number);
    }
}

TEST(Measure, RoundsToTheUnitsOfTheWire) {
    const Telemetry telemetry = vehicle_simulator::measure({.speed_rpm = 1499.6,
                                                            .voltage_v = 51.26,
                                                            .current_a = 12.34,
                                                            .capacity_ah = 63.5,
                                                            .latitude_deg = 60.17,
                                                            .heading_rad = 0,
                                                            .ground_speed_m_per_s = -2.46});
    EXPECT_EQ(telemetry.speed_rpm, 1500);
    EXPECT_EQ(telemetry.voltage_dv, 513);
    EXPECT_EQ(telemetry.current_da, 123);
    EXPECT_EQ(telemetry.capacity_ah, 64);
    EXPECT_EQ(telemetry.latitude_e7, 601700000);
    EXPECT_EQ(telemetry.ground_speed_dm_per_s, 25);
}
