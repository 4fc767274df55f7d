/// @file
/// Frames as they travel over UDP.

#ifndef TESTS_SUPPORT_CANDATAGRAM_H
#define TESTS_SUPPORT_CANDATAGRAM_H

#include <string>

/// The datagram of a data frame.
/// @param id    identifier, 11 bits
/// @param data  up to 8 bytes
inline std::string can_datagram(unsigned id, const std::string& data) {
    std::string bytes(16, '\0');
    bytes[0] = static_cast<char>(id & 0xFF);
    bytes[1] = static_cast<char>(id >> 8);
    bytes[4] = static_cast<char>(data.size());
    bytes.replace(8, data.size(), data);
    return bytes;
}

#endif
