/// @file
/// An input device of the kernel's that the test plays: a keyboard, a mouse, a keyboard's lamps.

#ifndef TESTS_DEVICES_UINPUTDEVICE_H
#define TESTS_DEVICES_UINPUTDEVICE_H

#include <linux/input.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

/// What a device is and can do.
struct UinputAbilities {
    std::string name;                                           ///< at most 79 characters
    input_id identity = {BUS_VIRTUAL, 0, 0, 0};                 ///< bus, vendor, product and version
    std::vector<std::pair<int, std::vector<int>>> events = {};  ///< event types with their codes
};

/// A device made through /dev/uinput, see the kernel's uinput documentation. It exists until unplug() or the
/// end of the object; a process that inherits it by fork(2) may use it, too.
class UinputDevice {
public:
    /// Makes the device; ends the process when the kernel refuses.
    explicit UinputDevice(const UinputAbilities& abilities);
    ~UinputDevice();
    UinputDevice(const UinputDevice&) = delete;
    UinputDevice& operator=(const UinputDevice&) = delete;

    /// Path of the device's events, /dev/input/event<N>.
    const std::string& path() const { return path_; }

    /// Reports one event, without the SYN_REPORT that ends a report.
    void put(int type, int code, int value) const;

    /// Reports one event and ends the report.
    void report(int type, int code, int value) const;

    /// Ends a report.
    void end_report() const;

    /// Waits for the next event that the kernel hands to the device, such as a lamp to switch; nothing after
    /// @p limit_ms.
    std::optional<input_event> next_command(int limit_ms = 60000) const;

    /// Takes the device away, as if its plug were pulled.
    void unplug() const;

private:
    int descriptor_;
    std::string path_;
};

/// A keyboard of all keys below 255, with auto-repeat and the lamps Num Lock to Compose.
UinputAbilities keyboard_with_lamps();

/// A mouse of three buttons and a wheel.
UinputAbilities mouse();

#endif
