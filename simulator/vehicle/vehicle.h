/// @file
/// A small electric work vehicle, as far as its controller can tell: motor, battery and position.
///
/// The model is one of first order, good enough to make an operator's panel move the way a real vehicle does:
///
/// - The motor follows the throttle with inertia: its speed nears the wanted speed by a fixed share of the
///   difference in each time span. The bucket value picks the sense of driving, as the operator's steering
///   pad uses it: high values drive backwards.
/// - The battery delivers the current that the motor draws, more while it speeds up. Its voltage falls with
///   its charge and sags with the current; its charge drains by the current. An empty battery drives nothing.
/// - The position moves with the motor speed; the direction value turns the heading while the vehicle moves.

#ifndef SIMULATOR_VEHICLE_VEHICLE_H
#define SIMULATOR_VEHICLE_VEHICLE_H

#include <cstdint>

namespace vehicle_simulator {

/// What the operator wants from the vehicle: the contents of one command frame.
struct Command {
    std::uint8_t throttle = 0;     ///< 0 (rest) to 255 (full)
    std::uint8_t direction = 103;  ///< 35 (one side) to 175 (the other), 103 is straight ahead
    std::uint8_t bucket = 110;     ///< 47 to 172, 110 is rest; from 141 on the vehicle drives backwards
    bool motor_on = false;         ///< the motor switch

    bool operator==(const Command&) const = default;
};

/// What the vehicle's sensors would show, in physical units.
struct VehicleState {
    double speed_rpm = 0;             ///< motor speed, negative while driving backwards
    double voltage_v = 0;             ///< battery voltage at its terminals
    double current_a = 0;             ///< battery current, 0 or more
    double capacity_ah = 0;           ///< charge left in the battery, 0 to 100
    double latitude_deg = 0;          ///< latitude, -90 to 90
    double heading_rad = 0;           ///< 0 is north, growing clockwise
    double ground_speed_m_per_s = 0;  ///< negative while driving backwards
};

/// The vehicle. Time passes only in advance(), so the same calls always give the same states.
class Vehicle {
public:
    /// @param capacity_ah   charge at the start; values outside 0 to 100 are moved to the nearer end
    /// @param latitude_deg  latitude at the start
    explicit Vehicle(double capacity_ah = 100, double latitude_deg = 60.17);

    /// Takes over @p command; it holds until the next one.
    void follow(const Command& command) { command_ = command; }

    /// Lets @p seconds (0 or more) pass.
    void advance(double seconds);

    /// The vehicle as it stands now.
    const VehicleState& state() const { return state_; }

private:
    double wanted_speed_rpm() const;
    void step(double seconds);

    Command command_;
    VehicleState state_;
};

}  // namespace vehicle_simulator

#endif
