#include "simulator/vehicle/vehicle.h"

#include <gtest/gtest.h>

#include <cmath>

#include "simulator/vehicle/vehiclecontroller.h"

namespace {

using vehicle_simulator::Command;
using vehicle_simulator::Vehicle;

constexpr Command full_ahead = {.throttle = 255, .direction = 103, .bucket = 47, .motor_on = true};
constexpr Command full_astern = {.throttle = 255, .direction = 103, .bucket = 172, .motor_on = true};
constexpr Command at_rest = {};

Vehicle driving(const Command& command, double seconds = 10) {
    Vehicle vehicle;
    vehicle.follow(command);
    vehicle.advance(seconds);
    return vehicle;
}

}  // namespace

TEST(Vehicle, StandsStillWithTheMotorOff) {
    const Vehicle vehicle = driving({.throttle = 255, .direction = 103, .bucket = 47, .motor_on = false});
    EXPECT_EQ(vehicle.state().speed_rpm, 0);
    EXPECT_EQ(vehicle.state().latitude_deg, 60.17);
}

TEST(Vehicle, NearsTheWantedSpeedWithInertia) {
    Vehicle vehicle;
    vehicle.follow(full_ahead);
    vehicle.advance(0.1);
    const double soon = vehicle.state().speed_rpm;
    vehicle.advance(0.7);
    const double after_its_time_constant = vehicle.state().speed_rpm;
    vehicle.advance(10);
    EXPECT_GT(soon, 0);
    EXPECT_LT(soon, 400);
    EXPECT_NEAR(after_its_time_constant, 2400 * (1 - std::exp(-1)), 1);
    EXPECT_EQ(vehicle.state().speed_rpm, 2400);
}

TEST(Vehicle, SettlesAtASpeedProportionalToTheThrottle) {
    EXPECT_DOUBLE_EQ(
        driving({.throttle = 51, .direction = 103, .bucket = 47, .motor_on = true}).state().speed_rpm, 480);
}

TEST(Vehicle, DrivesBackwardsWithAHighBucketValue) {
    EXPECT_EQ(driving(full_astern).state().speed_rpm, -2400);
    EXPECT_GT(driving({.throttle = 255, .direction = 103, .bucket = 140, .motor_on = true}).state().speed_rpm,
              0);
    EXPECT_LT(driving({.throttle = 255, .direction = 103, .bucket = 141, .motor_on = true}).state().speed_rpm,
              0);
}

TEST(Vehicle, ComesToRestWhenTheMotorIsSwitchedOff) {
    Vehicle vehicle = driving(full_ahead);
    vehicle.follow(at_rest);
    vehicle.advance(0.2);
    EXPECT_GT(vehicle.state().speed_rpm, 1000);
    vehicle.advance(20);
    EXPECT_EQ(vehicle.state().speed_rpm, 0);
}

TEST(Vehicle, TakesTheSameWayInManySmallStepsAsInOne) {
    Vehicle in_one;
    Vehicle in_many;
    in_one.follow(full_ahead);
    in_many.follow(full_ahead);
    in_one.advance(2);
    for (int step = 0; step < 200; ++step) {
        in_many.advance(0.01);
    }
    EXPECT_NEAR(in_one.state().speed_rpm, in_many.state().speed_rpm, 1e-6);
    EXPECT_NEAR(in_one.state().capacity_ah, in_many.state().capacity_ah, 1e-9);
}

TEST(VehicleBattery, SagsWithTheCurrent) {
    const double idle_v = Vehicle().state().voltage_v;
    const Vehicle starting = driving(full_ahead, 0.1);
    const Vehicle rolling = driving(full_ahead, 10);
    EXPECT_GT(starting.state().current_a, rolling.state().current_a);
    EXPECT_GT(rolling.state().current_a, 30);
    EXPECT_LT(starting.state().voltage_v, rolling.state().voltage_v);
    EXPECT_LT(rolling.state().voltage_v, idle_v - 1);
}

TEST(VehicleBattery, DrawsAlikeForwardsAndBackwards) {
    EXPECT_DOUBLE_EQ(driving(full_ahead).state().current_a, driving(full_astern).state().current_a);
}

TEST(VehicleBattery, DrainsByTheCurrent) {
    Vehicle vehicle = driving(full_ahead);
    const double before_ah = vehicle.state().capacity_ah;
    vehicle.advance(36);
    EXPECT_NEAR(before_ah - vehicle.state().capacity_ah, vehicle.state().current_a / 100, 1e-6);
    EXPECT_LT(before_ah, 100);
}

TEST(VehicleBattery, StopsTheVehicleWhenItIsEmpty) {
    Vehicle vehicle(0.01);
    vehicle.follow(full_ahead);
    vehicle.advance(30);
    EXPECT_EQ(vehicle.state().capacity_ah, 0);
    EXPECT_EQ(vehicle.state().current_a, 0);
    EXPECT_EQ(vehicle.state().speed_rpm, 0);
    EXPECT_EQ(vehicle.state().voltage_v, 44);
}

TEST(VehicleBattery, HoldsZeroToAHundredAmpereHours) {
    EXPECT_EQ(Vehicle(150).state().capacity_ah, 100);
    EXPECT_EQ(Vehicle(-1).state().capacity_ah, 0);
    EXPECT_EQ(Vehicle(-1).state().current_a, 0);
}

TEST(VehiclePosition, MovesNorthAheadAndSouthAstern) {
    EXPECT_GT(driving(full_ahead).state().latitude_deg, 60.17);
    EXPECT_LT(driving(full_astern).state().latitude_deg, 60.17);
}

TEST(VehiclePosition, MovesByTheGroundSpeed) {
    Vehicle vehicle = driving(full_ahead);
    const double before_deg = vehicle.state().latitude_deg;
    vehicle.advance(10);
    EXPECT_EQ(vehicle.state().ground_speed_m_per_s, 4);
    EXPECT_NEAR((vehicle.state().latitude_deg - before_deg) * 111320, 40, 1e-6);
}

TEST(VehiclePosition, TurnsWithTheDirectionWhileItMoves) {
    const Vehicle straight = driving(full_ahead);
    const Vehicle one_way = driving({.throttle = 255, .direction = 173, .bucket = 47, .motor_on = true}, 2);
    const Vehicle other_way = driving({.throttle = 255, .direction = 35, .bucket = 47, .motor_on = true}, 2);
    const Vehicle standing = driving({.throttle = 0, .direction = 173, .bucket = 47, .motor_on = true}, 2);
    EXPECT_EQ(straight.state().heading_rad, 0);
    EXPECT_GT(one_way.state().heading_rad, 0.5);
    EXPECT_LT(other_way.state().heading_rad, -0.5);
    EXPECT_EQ(standing.state().heading_rad, 0);
}

TEST(VehicleController, TakesACommandOverAtTheEndOfTheTimeThatPassed) {
    vehicle_simulator::VehicleController controller(100, 1);
    EXPECT_EQ(controller.exchange({255, 103, 47, 'Q'}, 5).speed_rpm, 0);
    EXPECT_EQ(controller.exchange({0, 103, 110, 'P'}, 20).speed_rpm, 2400);
    EXPECT_EQ(controller.exchange({0, 103, 110, 'P'}, 20).speed_rpm, 0);
}

TEST(VehicleController, AnswersTheSameForTheSameSeed) {
    vehicle_simulator::VehicleController one(80, 7);
    vehicle_simulator::VehicleController other(80, 7);
    for (int frame = 0; frame < 100; ++frame) {
        EXPECT_EQ(vehicle_simulator::encode_reply(one.exchange({200, 120, 47, 'Q'}, 0.1)),
                  vehicle_simulator::encode_reply(other.exchange({200, 120, 47, 'Q'}, 0.1)));
    }
}

TEST(VehicleController, HasALittleNoiseOnVoltageAndCurrent) {
    vehicle_simulator::VehicleController controller(100, 7);
    int voltage_changes = 0;
    int current_changes = 0;
    vehicle_simulator::Telemetry last = controller.exchange({0, 103, 110, 'P'}, 0);
    for (int frame = 0; frame < 100; ++frame) {
        const vehicle_simulator::Telemetry now = controller.exchange({0, 103, 110, 'P'}, 0);
        EXPECT_NEAR(now.voltage_dv, 520, 1);
        EXPECT_NEAR(now.current_da, 4, 2);
        voltage_changes += now.voltage_dv != last.voltage_dv ? 1 : 0;
        current_changes += now.current_da != last.current_da ? 1 : 0;
        last = now;
    }
    EXPECT_GT(voltage_changes, 10);
    EXPECT_GT(current_changes, 10);
}
