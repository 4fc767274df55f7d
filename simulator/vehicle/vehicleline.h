/// @file
/// The controller's end of the serial line: the master side of a pseudo-terminal (pty(7)).

#ifndef SIMULATOR_VEHICLE_VEHICLELINE_H
#define SIMULATOR_VEHICLE_VEHICLELINE_H

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace vehicle_simulator {

/// A pseudo-terminal of which somebody else opens the other side under path().
///
/// Whether somebody has it open can be asked; bytes sent while nobody has are lost, as on a real line.
/// Failing system calls throw std::system_error.
class VehicleLine {
public:
    /// Opens the pseudo-terminal and sets its other side to raw mode without echo.
    VehicleLine();
    ~VehicleLine();
    VehicleLine(const VehicleLine&) = delete;
    VehicleLine& operator=(const VehicleLine&) = delete;

    /// Path of the other side, /dev/pts/N.
    const std::string& path() const { return path_; }

    /// Descriptor to poll(2): readable when bytes have come, hung up while nobody has the other side open.
    int descriptor() const { return fd_; }

    /// Whether somebody has the other side open.
    bool is_open() const;

    /// What has come and was not read yet; empty if nothing has.
    std::vector<std::uint8_t> receive() const;

    /// Sends @p bytes in one write(2).
    void send(std::span<const std::uint8_t> bytes) const;

    /// Speed to which the other side is set, in baud; 0 if it is none of the five that the panel offers.
    int speed_baud() const;

    /// Whether the other side is set to 8 data bits, no parity, one stop bit, and no processing of any kind.
    bool is_raw_8n1() const;

    /// Hangs the line up for good.
    void hang_up();

private:
    int fd_ = -1;
    std::string path_;
};

}  // namespace vehicle_simulator

#endif
