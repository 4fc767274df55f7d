#include "simulator/vehicle/vehicle.h"

#include <algorithm>
#include <cmath>

namespace vehicle_simulator {

namespace {

constexpr double top_speed_rpm = 2400;
constexpr double motor_time_constant_s = 0.8;
constexpr double top_ground_speed_m_per_s = 4;

constexpr double full_capacity_ah = 100;
constexpr double empty_voltage_v = 44;
constexpr double full_voltage_v = 52;
constexpr double battery_resistance_ohm = 0.04;

constexpr double controller_current_a = 0.4;
constexpr double running_current_a = 35;       // at top speed on level ground
constexpr double acceleration_current_a = 60;  // from rest with full throttle, on top of the former

constexpr int backwards_from_bucket = 141;
constexpr int straight_direction = 103;
constexpr double full_turn_direction = 70;   // distance from straight ahead to full lock
constexpr double turn_rate_rad_per_m = 0.4;  // at full lock
constexpr double metres_per_degree = 111'320;
constexpr double longest_step_s = 0.01;

double open_voltage_v(double capacity_ah) {
    return empty_voltage_v + (full_voltage_v - empty_voltage_v) * capacity_ah / full_capacity_ah;
}

}  // namespace

Vehicle::Vehicle(double capacity_ah, double latitude_deg) {
    state_.capacity_ah = std::clamp(capacity_ah, 0.0, full_capacity_ah);
    state_.latitude_deg = latitude_deg;
    state_.current_a = state_.capacity_ah > 0 ? controller_current_a : 0;
    state_.voltage_v = open_voltage_v(state_.capacity_ah) - state_.current_a * battery_resistance_ohm;
}

void Vehicle::advance(double seconds) {
    const auto whole_steps = static_cast<long>(seconds / longest_step_s);
    for (long count = 0; count < whole_steps; ++count) {
        step(longest_step_s);
    }
    step(seconds - static_cast<double>(whole_steps) * longest_step_s);
}

double Vehicle::wanted_speed_rpm() const {
    if (!command_.motor_on || state_.capacity_ah <= 0) {
        return 0;
    }
    const double sense = command_.bucket >= backwards_from_bucket ? -1 : 1;
    return sense * top_speed_rpm * command_.throttle / 255;
}

void Vehicle::step(double seconds) {
    const double wanted = wanted_speed_rpm();
    const double lag = wanted - state_.speed_rpm;
    state_.speed_rpm += lag * (1 - std::exp(-seconds / motor_time_constant_s));
    // The last fraction of a turn per minute goes at once, so that the vehicle does come to rest.
    if (std::abs(wanted - state_.speed_rpm) < 0.5) {
        state_.speed_rpm = wanted;
    }

    // Only what the motor is asked for costs current: it rolls out freely.
    double current = controller_current_a;
    if (wanted != 0) {
        current += running_current_a * std::abs(state_.speed_rpm) / top_speed_rpm;
        current += acceleration_current_a * std::max(0.0, lag * wanted / std::abs(wanted)) / top_speed_rpm;
    }
    state_.capacity_ah = std::max(0.0, state_.capacity_ah - current * seconds / 3600);
    state_.current_a = state_.capacity_ah > 0 ? current : 0;
    state_.voltage_v = open_voltage_v(state_.capacity_ah) - state_.current_a * battery_resistance_ohm;

    state_.ground_speed_m_per_s = top_ground_speed_m_per_s * state_.speed_rpm / top_speed_rpm;
    const double way_m = state_.ground_speed_m_per_s * seconds;
    state_.heading_rad +=
        turn_rate_rad_per_m * way_m * (command_.direction - straight_direction) / full_turn_direction;
    state_.latitude_deg += way_m * std::cos(state_.heading_rad) / metres_per_degree;
}

}  // namespace vehicle_simulator
