/// @file
/// `nodevik sdo read` and `nodevik sdo write`: an object of a node, read or written (CiA 301, 7.2.4).

#ifndef TOOLS_SDOCOMMAND_H
#define TOOLS_SDOCOMMAND_H

#include <string>

#include "nodevik/nodes/sdoclient.h"
#include "tools/failure.h"
#include "tools/session.h"

namespace nodevik_tool {

/// What the command line says about a transfer.
struct SdoArguments {
    unsigned int node = 0;              ///< 1 to 127
    std::string object;                 ///< "0x1018:1", "0x1018" or a name
    std::string type;                   ///< word of --type; empty when there is none
    std::string file;                   ///< of --out or --in; empty when there is none
    std::string value;                  ///< what is written, when there is no file
    SdoMode mode = SdoMode::automatic;  ///< --block, --segments
};

/// Reads an object, or all entries of one, and tells the values.
/// @throws Failure  the node refuses or does not answer, or the command line cannot be done
ExitStatus read_objects(const Session& session, const SdoArguments& arguments);

/// Writes an object.
/// @throws Failure  as read_objects()
ExitStatus write_object(const Session& session, const SdoArguments& arguments);

}  // namespace nodevik_tool

#endif
