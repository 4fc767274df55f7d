#include "vehicle/commandframe.h"

#include <gtest/gtest.h>

namespace vehicle {
namespace {

TEST(CommandFrame, NeutralFrameBringsTheVehicleToRest) {
    EXPECT_EQ(neutral_frame, (FrameBytes{0x00, 0x67, 0x6E, 0x50}));
    EXPECT_EQ(command_of(neutral_frame), Command());
}

TEST(CommandFrame, BytesAreThrottleDirectionBucketMotor) {
    const Command command = command_of({1, 2, 3, 'Q'});
    EXPECT_EQ(command.throttle, 1);
    EXPECT_EQ(command.direction, 2);
    EXPECT_EQ(command.bucket, 3);
    EXPECT_EQ(command.motor, motor_on);
}

TEST(CommandFrame, IsOneByItsMotorByteAlone) {
    for (int motor = 0; motor <= 0xFF; motor++) {
        EXPECT_EQ(is_frame({255, 255, 255, static_cast<std::uint8_t>(motor)}), motor == 'P' || motor == 'Q')
            << motor;
    }
}

TEST(CommandFrame, ControlVoltageIsTruncated) {
    EXPECT_EQ(control_voltage_mv(0), 0);
    EXPECT_EQ(control_voltage_mv(1), 19);
    EXPECT_EQ(control_voltage_mv(2), 39);
    EXPECT_EQ(control_voltage_mv(103), 2008);
    EXPECT_EQ(control_voltage_mv(110), 2145);
    EXPECT_EQ(control_voltage_mv(175), 3412);
}

}  // namespace
}  // namespace vehicle
