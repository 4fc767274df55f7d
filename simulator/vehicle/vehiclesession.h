/// @file
/// The run of vehicle-simulator: carries bytes between the line and the controller until it is told to end.

#ifndef SIMULATOR_VEHICLE_VEHICLESESSION_H
#define SIMULATOR_VEHICLE_VEHICLESESSION_H

#include <csignal>

#include <chrono>
#include <deque>

#include "simulator/vehicle/replyfaults.h"
#include "simulator/vehicle/vehiclecontroller.h"
#include "simulator/vehicle/vehicleline.h"
#include "simulator/vehicle/vehiclelog.h"
#include "simulator/vehicle/vehicleoptions.h"

namespace vehicle_simulator {

/// One line with one controller behind it.
class VehicleSession {
public:
    /// @param line  the controller's end of the line; must outlive the session
    /// @param log   takes what happens; must outlive the session
    VehicleSession(const VehicleOptions& options, VehicleLine& line, VehicleLog& log);

    /// Serves the line until @p end becomes non-zero or the plan hangs the line up.
    ///
    /// @param end           set by a signal handler
    /// @param waiting_mask  signal mask while waiting, see ppoll(2): the ending signals are blocked at all
    ///                      other times
    void run(const volatile std::sig_atomic_t& end, const sigset_t& waiting_mask);

private:
    using Clock = std::chrono::steady_clock;

    struct Sending {
        Clock::time_point due;
        std::vector<std::uint8_t> bytes;
    };

    void wait(const sigset_t& waiting_mask) const;
    void note_opening_and_closing();
    void take_bytes();
    void answer(const CommandFrame& frame);
    void send_what_is_due();
    double seconds_since_last_frame();

    VehicleOptions options_;
    VehicleLine& line_;
    VehicleLog& log_;
    VehicleController controller_;
    ReplyFaults faults_;
    CommandReader reader_;
    std::deque<Sending> sendings_;
    Clock::time_point last_frame_;
    int frames_ = 0;
    bool open_ = false;
    bool settings_known_ = false;
    bool hung_up_ = false;
};

}  // namespace vehicle_simulator

#endif
