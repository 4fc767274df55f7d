/// @file
/// The codes of CANopen in words: those that the decoder prints.

#ifndef NODEVIK_CODETEXTS_H
#define NODEVIK_CODETEXTS_H

#include <cstdint>

#include "nodevik/util/export.h"

/// Why an SDO transfer was aborted (CiA 301, 7.2.4.3.17).
///
/// @param code  abort code, bytes 4 to 7 of the abort
/// @return text with static storage; null for a code that CiA 301 does not have
NODEVIK_EXPORT const char* sdo_abort_text(std::uint32_t code);

/// The class of an emergency error code, its high byte (CiA 301, 7.2.7.1).
///
/// @param code  emergency error code, 0 to 0xFFFF
/// @return text with static storage; null for an unknown class
NODEVIK_EXPORT const char* emergency_class_text(std::uint32_t code);

/// An emergency error code (CiA 301, 7.2.7.1, and those of drives).
///
/// @param code  emergency error code, 0 to 0xFFFF
/// @return text with static storage; null for an unknown code, whose class may be known
NODEVIK_EXPORT const char* emergency_text(std::uint32_t code);

/// The state of a node, as node guarding and heartbeat tell it (CiA 301, 7.2.8.3.2).
///
/// @param state  0 to 127, without the toggle bit
/// @return text with static storage; null for an unknown state
NODEVIK_EXPORT const char* node_state_text(std::uint32_t state);

#endif
