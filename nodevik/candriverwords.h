/// @file
/// What the drivers of real buses, KvaserDriver and SocketCanDriver, read alike: the debug word, the flags of
/// a frame to be sent and the width of identifiers. Not for callers.

#ifndef NODEVIK_CANDRIVERWORDS_H
#define NODEVIK_CANDRIVERWORDS_H

#include <cstddef>

/// The words of CANdriver as a driver of a real bus reads them.
namespace can_driver {

/// @name Bits of the debug word, CANdriver::set_debug()
/// @{
inline constexpr unsigned int debug_progress = 1;         ///< opening tells what it does
inline constexpr unsigned int debug_fatal = 2;            ///< a failure ends the process
inline constexpr unsigned int debug_trace_received = 4;   ///< received frames are put into lines
inline constexpr unsigned int debug_trace_sent = 8;       ///< so are sent ones
inline constexpr unsigned int debug_clear_counters = 16;  ///< a reported error counter is cleared
/// @}

/// @name Flags of CANdriver::write(); 0 leaves the width to the mode
/// @{
inline constexpr unsigned int write_extended = 1;  ///< 29-bit identifier
inline constexpr unsigned int write_remote = 2;    ///< remote request
/// @}

/// Number of data bytes that a read clears first.
inline constexpr std::size_t frame_size = 8;

/// Tells whether a frame is sent with a 29-bit identifier.
///
/// @param flags       of CANdriver::write()
/// @param frame_type  mode of CANdriver::open()
inline bool sends_extended(unsigned int flags, unsigned int frame_type) {
    return flags == 0 ? frame_type != 0 : (flags & write_extended) != 0;
}

/// Number of bits of the identifiers, in digits.
///
/// @param frame_type  mode of CANdriver::open()
inline const char* identifier_bits(unsigned int frame_type) {
    switch (frame_type) {
        case 0:
            return "11";
        case 1:
            return "29";
        default:
            return "?";
    }
}

}  // namespace can_driver

#endif
