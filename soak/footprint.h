/// @file
/// What the process itself holds, and other facts of it that long runs look at.

#ifndef SOAK_FOOTPRINT_H
#define SOAK_FOOTPRINT_H

namespace soak {

/// Resident memory in KiB; -1 when it cannot be told.
long resident_memory_kib();

/// Number of open descriptors; that of the count itself is one of them, each time.
long open_descriptors();

/// The local port of a datagram socket.
unsigned local_port(int socket);

}  // namespace soak

#endif
