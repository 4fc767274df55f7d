/// @file
/// The LSS slave of a device (CiA 305): a master gives it its node number, found by its identity.
///
/// The master sends on 0x7E5, slaves on 0x7E4, always eight bytes; byte 0 is the command. A slave *waits* or is in
/// *configuration*; "no" is silence. What a slave does:
///
/// | Byte 0   | Request                                   | While         | Answer                             |
/// |----------|-------------------------------------------|---------------|------------------------------------|
/// | 04       | switch all: 0 waiting, 1 configuration    | both          |                                    |
/// | 40 to 43 | switch the one with this identity         | waiting       | 44                                 |
/// | 11       | node number, 1 to 127 or FF for none      | configuration | 11, 0 done or 1 out of range       |
/// | 13       | bit timing: table, index                  | configuration | 13, 0 done or 1 not supported      |
/// | 15       | change the bit timing, delay (ms)         | configuration |                                    |
/// | 17       | store                                     | configuration | 17 0                               |
/// | 5A to 5D | vendor, product, revision, serial number  | configuration | the same, with the number          |
/// | 5E       | node number                               | configuration | 5E, the active number              |
/// | 46 to 4B | who has an identity within these bounds   | both          | 4F                                 |
/// | 4C       | who has no node number                    | both          | 50                                 |
/// | 51       | fastscan                                  | waiting       | 4F                                 |

#ifndef SIMULATOR_NODE_LSSSLAVE_H
#define SIMULATOR_NODE_LSSSLAVE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "simulator/node/canframe.h"

namespace node_simulator {

/// Node number of a device that has none.
inline constexpr std::uint8_t no_node = 0xFF;

/// Vendor, product, revision and serial number, as in the identity object (1018h, subindices 1 to 4).
using LssIdentity = std::array<std::uint32_t, 4>;

/// The slave of one device. It knows no node: it says which number is to be in force when the node starts anew.
class LssSlave {
public:
    /// Identifier of what a master sends.
    static constexpr std::uint32_t request_identifier = 0x7E5;

    /// @param identity  who the device is
    /// @param node      its stored node number, or no_node
    LssSlave(const LssIdentity& identity, std::uint8_t node);

    /// Hears @p frame, whose identifier is request_identifier. @return the answer, if there is one
    std::optional<CanFrame> hear(const CanFrame& frame, Time now);

    /// The node number in force.
    std::uint8_t active() const { return active_; }

    /// The node number that is in force from the next reset of the communication on.
    std::uint8_t pending() const { return pending_; }

    /// Whether the node number in force has to change at once: it had none, was given one, and was sent waiting.
    bool wants_to_start() const { return wants_to_start_; }

    /// The communication is reset: the pending node number comes into force.
    void reset_communication();

    /// Power comes: the stored node number is in force, and the slave waits.
    void power_on();

    /// Until when the device is silent, because the bit timing is being changed; 0 when it is not.
    Time silent_until() const { return silent_until_; }

private:
    void switch_global(unsigned mode);
    std::optional<CanFrame> switch_selective(std::size_t part, std::uint32_t number);
    std::optional<CanFrame> identify(std::size_t part, std::uint32_t number);
    std::optional<CanFrame> fastscan(const CanFrame& frame);
    std::optional<CanFrame> configure(const CanFrame& frame, Time now);

    LssIdentity identity_;
    std::uint8_t stored_;
    std::uint8_t active_;
    std::uint8_t pending_;
    bool in_configuration_ = false;
    bool wants_to_start_ = false;
    std::size_t selected_parts_ = 0;    // of the identity, that have matched in a row
    std::size_t identified_parts_ = 0;  // of the bounds, that have matched in a row
    unsigned fastscan_position_ = 0;
    Time silent_until_ = 0;
};

}  // namespace node_simulator

#endif
