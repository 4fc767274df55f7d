/// @file
/// DCF files that commands make.

#ifndef TOOLS_DCFFILE_H
#define TOOLS_DCFFILE_H

#include <string>

#include "nodevik/nodes/devicedescription.h"

namespace nodevik_tool {

/// Says whose description it is; what else its file tells of the node's place in the plant stays.
/// @param node  1 to 127
void set_node(DeviceDescription& description, unsigned int node);

/// The time of the day as such files have it: "02:05PM".
std::string file_time();

/// The date as such files have it: "11-22-2026".
std::string file_date();

/// The DCF of a description, which tells that it was made now.
/// @param file  where it will be; empty when that is not known
std::string dcf_text(const DeviceDescription& description, const std::string& file);

}  // namespace nodevik_tool

#endif
