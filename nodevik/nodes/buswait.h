/// @file
/// How the waiting calls of this room let time pass: not installed.

#ifndef NODEVIK_NODES_BUSWAIT_H
#define NODEVIK_NODES_BUSWAIT_H

#include <cstdint>

#include "nodevik/observeddriver.h"

/// Waits until a frame may have come or a deadline has.
///
/// @param driver    a driver without a descriptor is looked at again after a short pause
/// @param deadline  nanoseconds of CLOCK_MONOTONIC, or no_deadline
void wait_for_frames(const ObservedDriver& driver, std::uint64_t deadline);

#endif
