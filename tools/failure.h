/// @file
/// Why a command cannot go on.

#ifndef TOOLS_FAILURE_H
#define TOOLS_FAILURE_H

#include "program/failure.h"

namespace nodevik_tool {

using program::ClosedPipe;
using program::ExitStatus;
using program::Failure;
using program::Interrupted;

}  // namespace nodevik_tool

#endif
