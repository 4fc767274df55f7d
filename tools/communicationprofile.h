/// @file
/// The communication profile: what CiA 301 (7.5.2) says of the objects that every node may have.

#ifndef TOOLS_COMMUNICATIONPROFILE_H
#define TOOLS_COMMUNICATIONPROFILE_H

#include <cstdint>
#include <string>

#include "nodevik/nodes/devicedescription.h"

namespace nodevik_tool {

inline constexpr std::uint16_t first_profile_index = 0x1000;  ///< of the communication profile
inline constexpr std::uint16_t last_profile_index = 0x1FFF;   ///< the same

/// An object as the profile has it.
struct ProfileObject {
    std::string name;  ///< with a number where there are several: "TPDO communication parameter 1"
    ObjectCode code = ObjectCode::record;  ///< a variable, an array or a record; record when it is not known
    bool is_known = false;                 ///< the profile has it
};

/// An entry as the profile has it.
struct ProfileEntry {
    std::string name;
    ObjectDataType type = ObjectDataType::none;  ///< none when it is not known
    ObjectAccess access = ObjectAccess::read_write;
};

/// The object of an index.
ProfileObject profile_object(std::uint16_t index);

/// An entry of an object.
ProfileEntry profile_entry(std::uint16_t index, std::uint8_t subindex);

/// Whether an object is no setting: a history, or what acts when it is written. It is neither asked for nor kept.
bool is_no_setting(std::uint16_t index);

}  // namespace nodevik_tool

#endif
