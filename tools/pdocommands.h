/// @file
/// `nodevik pdo list` and `nodevik pdo set`: the process data objects that a node has (CiA 301, 7.5.2.35 to .38).

#ifndef TOOLS_PDOCOMMANDS_H
#define TOOLS_PDOCOMMANDS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "nodevik/nodes/devicedescription.h"
#include "tools/failure.h"
#include "tools/session.h"

namespace nodevik_tool {

/// What the command line says about a PDO.
struct PdoArguments {
    unsigned int node = 0;             ///< 1 to 127
    bool transmit = false;             ///< a TPDO; an RPDO else, both as the node sees it
    unsigned int number = 0;           ///< 1 to 512
    std::string cob_id;                ///< "0x185"; with bit 31 it is switched off
    std::string type;                  ///< transmission type, "255"
    std::vector<std::string> objects;  ///< "0x6000:1/8", "0x6000:1" or a name
};

/// Takes a COB-ID for a PDO.
/// @throws Failure  it is none, or one of those that PDOs must not have (CiA 301, 7.3.5)
std::uint32_t parse_cob_id(const std::string& text);

/// An object that is to be mapped.
struct MappedObject {
    std::uint16_t index = 0;
    std::uint8_t subindex = 0;
    std::optional<unsigned int> bits;  ///< nothing when nobody has said it
};

/// Takes "0x6000:1/8" apart; without the length, the description's counts, and that of a place holder's type.
/// @param description  has names and types; may be null
/// @throws Failure  it is no object
MappedObject parse_mapped_object(const std::string& text, const DeviceDescription* description);

/// Tells the PDOs that a node has: those of its description, or all that it answers for.
/// @throws Failure  the node refuses or does not answer
ExitStatus list_pdos(const Session& session, unsigned int node);

/// Sets a PDO up. When the node refuses, the PDO is as it was.
/// @throws Failure  the command line is wrong, or the node refuses or does not answer
ExitStatus set_pdo(const Session& session, const PdoArguments& arguments);

}  // namespace nodevik_tool

#endif
