/// @file
/// Gives a program another device under the name of the vehicle's line.
///
/// The first way is a mount namespace of the program's own (mount_namespaces(7)), in which the device is bound over that
/// name: it reaches every program, and nothing outside sees it. It takes root, or user namespaces. Where none can be
/// made, or there is no such name to bind over, line_preload.so is loaded into the program (program/linepreload.h).

#ifndef RECORDER_LINENAME_H
#define RECORDER_LINENAME_H

#include <string>

namespace vehicle_recorder {

/// How a program is to find the device.
enum class LineWay {
    any,              ///< by a mount namespace, or else by the preloaded library
    mount_namespace,  ///< by a mount namespace only
    preload           ///< by the preloaded library only
};

/// Has this process, and the program that it will become, find @p device under the name of the line. To be called
/// between fork(2) and execvp(3) in a process of one thread.
///
/// The library is the file that the environment variable LINE_PRELOAD_LIBRARY names, else the installed one, else the one
/// of the same build.
///
/// @param device  path of a terminal, absolute
/// @return an empty text, or why it cannot be done
std::string give_line_name(const std::string& device, LineWay way);

}  // namespace vehicle_recorder

#endif
