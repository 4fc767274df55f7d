/// @file
/// CAN interfaces of the kernel under test, and the programs of others that bear witness of what passes
/// there.

#ifndef TESTS_DEVICES_CANWITNESS_H
#define TESTS_DEVICES_CANWITNESS_H

#include <sys/types.h>

#include <string>
#include <vector>

/// Runs ip(8) with @p arguments, separated by blanks; whether it succeeded. What it says goes to standard
/// error.
bool run_ip(const std::string& arguments);

/// How many sockets receive every frame of an interface.
int count_receivers(const std::string& interface);

/// A virtual CAN interface that is up; it is removed with its owner.
class VirtualCan {
public:
    /// @param name  name of the interface
    explicit VirtualCan(const std::string& name);
    ~VirtualCan();
    VirtualCan(const VirtualCan&) = delete;
    VirtualCan& operator=(const VirtualCan&) = delete;

private:
    std::string name_;
};

/// candump(1) of can-utils, listening to everything on one interface, error frames included.
class Candump {
public:
    /// Starts it and waits until it listens.
    explicit Candump(const std::string& interface);
    ~Candump();
    Candump(const Candump&) = delete;
    Candump& operator=(const Candump&) = delete;

    /// The next frame as "181#0102", 29-bit identifiers with eight digits; empty when none comes.
    std::string frame();

    /// When the frame that was told last was received, in microseconds since 1970.
    unsigned long long time_us() const { return time_us_; }

private:
    std::string read_line() const;

    pid_t child_ = -1;
    int output_ = -1;
    unsigned long long time_us_ = 0;
};

/// Sends a frame with cansend(1) of can-utils; whether it succeeded.
bool cansend(const std::string& interface, const std::string& frame);

#endif
