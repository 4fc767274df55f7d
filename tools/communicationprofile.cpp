#include "tools/communicationprofile.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "tools/objects.h"

namespace nodevik_tool {

namespace {

using Type = ObjectDataType;
using Access = ObjectAccess;

// A member of records.
struct Member {
    std::string_view name;
    Type type;
};

constexpr std::array<Member, 4> identity{{{"Vendor-ID", Type::unsigned32},
                                          {"Product code", Type::unsigned32},
                                          {"Revision number", Type::unsigned32},
                                          {"Serial number", Type::unsigned32}}};
constexpr std::array<Member, 3> sdo_parameter{{{"COB-ID client to server", Type::unsigned32},
                                               {"COB-ID server to client", Type::unsigned32},
                                               {"Node-ID of the other end", Type::unsigned8}}};
constexpr std::array<Member, 6> pdo_parameter{{{"COB-ID", Type::unsigned32},
                                               {"Transmission type", Type::unsigned8},
                                               {"Inhibit time", Type::unsigned16},
                                               {"Compatibility entry", Type::unsigned8},
                                               {"Event timer", Type::unsigned16},
                                               {"SYNC start value", Type::unsigned8}}};

// Objects from one index to another, all alike.
struct Row {
    std::uint16_t first;
    std::uint16_t last;
    std::string_view name;
    ObjectCode code;
    Type type;  // of a variable, and of an array's members
    Access access;
    const Member* members = nullptr;  // of a record
    std::size_t count = 0;            // of members
    Access count_access = Access::read_only;
};

constexpr ObjectCode variable = ObjectCode::variable;
constexpr ObjectCode array = ObjectCode::array;
constexpr ObjectCode record = ObjectCode::record;

constexpr std::array<Row, 33> rows{{
    {0x1000, 0x1000, "Device type", variable, Type::unsigned32, Access::read_only},
    {0x1001, 0x1001, "Error register", variable, Type::unsigned8, Access::read_only},
    {0x1002, 0x1002, "Manufacturer status register", variable, Type::unsigned32, Access::read_only},
    {0x1005, 0x1005, "COB-ID SYNC message", variable, Type::unsigned32, Access::read_write},
    {0x1006, 0x1006, "Communication cycle period", variable, Type::unsigned32, Access::read_write},
    {0x1007, 0x1007, "Synchronous window length", variable, Type::unsigned32, Access::read_write},
    {0x1008, 0x1008, "Manufacturer device name", variable, Type::visible_string, Access::constant},
    {0x1009, 0x1009, "Manufacturer hardware version", variable, Type::visible_string, Access::constant},
    {0x100A, 0x100A, "Manufacturer software version", variable, Type::visible_string, Access::constant},
    {0x100C, 0x100C, "Guard time", variable, Type::unsigned16, Access::read_write},
    {0x100D, 0x100D, "Life time factor", variable, Type::unsigned8, Access::read_write},
    {0x1012, 0x1012, "COB-ID time stamp object", variable, Type::unsigned32, Access::read_write},
    {0x1013, 0x1013, "High resolution time stamp", variable, Type::unsigned32, Access::read_write},
    {0x1014, 0x1014, "COB-ID EMCY", variable, Type::unsigned32, Access::read_write},
    {0x1015, 0x1015, "Inhibit time EMCY", variable, Type::unsigned16, Access::read_write},
    {0x1016, 0x1016, "Consumer heartbeat time", array, Type::unsigned32, Access::read_write},
    {0x1017, 0x1017, "Producer heartbeat time", variable, Type::unsigned16, Access::read_write},
    {0x1018, 0x1018, "Identity object", record, Type::none, Access::read_only, identity.data(),
     identity.size()},
    {0x1019, 0x1019, "Synchronous counter overflow value", variable, Type::unsigned8, Access::read_write},
    {0x1020, 0x1020, "Verify configuration", array, Type::unsigned32, Access::read_write},
    {0x1022, 0x1022, "Store format", variable, Type::unsigned16, Access::read_only},
    {0x1027, 0x1027, "Module list", array, Type::unsigned16, Access::read_only},
    {0x1028, 0x1028, "Emergency consumer object", array, Type::unsigned32, Access::read_write},
    {0x1029, 0x1029, "Error behavior object", array, Type::unsigned8, Access::read_write},
    {0x1200, 0x1200, "SDO server parameter", record, Type::none, Access::read_only, sdo_parameter.data(),
     sdo_parameter.size()},
    {0x1201, 0x127F, "SDO server parameter", record, Type::none, Access::read_write, sdo_parameter.data(),
     sdo_parameter.size()},
    {0x1280, 0x12FF, "SDO client parameter", record, Type::none, Access::read_write, sdo_parameter.data(),
     sdo_parameter.size()},
    {0x1400, 0x15FF, "RPDO communication parameter", record, Type::none, Access::read_write,
     pdo_parameter.data(), pdo_parameter.size()},
    {0x1600, 0x17FF, "RPDO mapping parameter", array, Type::unsigned32, Access::read_write, nullptr, 0,
     Access::read_write},
    {0x1800, 0x19FF, "TPDO communication parameter", record, Type::none, Access::read_write,
     pdo_parameter.data(), pdo_parameter.size()},
    {0x1A00, 0x1BFF, "TPDO mapping parameter", array, Type::unsigned32, Access::read_write, nullptr, 0,
     Access::read_write},
    {0x1FA0, 0x1FCF, "Object scanner list", array, Type::unsigned32, Access::read_write, nullptr, 0,
     Access::read_write},
    {0x1FD0, 0x1FFF, "Object dispatching list", array, Type::unsigned64, Access::read_write, nullptr, 0,
     Access::read_write},
}};

const Row* row_of(std::uint16_t index) {
    const auto* found = std::find_if(rows.begin(), rows.end(), [index](const Row& row) {
        return index >= row.first && index <= row.last;
    });
    return found != rows.end() ? found : nullptr;
}

}  // namespace

ProfileObject profile_object(std::uint16_t index) {
    const Row* row = row_of(index);
    if (row == nullptr) {
        return {"Object " + index_text(index), ObjectCode::record, false};
    }
    std::string name(row->name);
    if (row->first != row->last) {
        // SDO servers are counted from 0x1200 on, which stands in a row of its own.
        const unsigned int before = row->first == 0x1201 ? 1 : 0;
        name += " " + std::to_string(index - row->first + before + 1U);
    }
    return {name, row->code, true};
}

ProfileEntry profile_entry(std::uint16_t index, std::uint8_t subindex) {
    const Row* row = row_of(index);
    if (row == nullptr) {
        return {"Entry " + std::to_string(subindex), Type::none, Access::read_write};
    }
    if (row->code == variable) {
        return {std::string(row->name), row->type, row->access};
    }
    if (subindex == 0) {
        return {"Highest subindex", Type::unsigned8, row->count_access};
    }
    if (row->code == array) {
        return {"Entry " + std::to_string(subindex), row->type, row->access};
    }
    if (subindex <= row->count) {
        const Member& member = row->members[subindex - 1];
        return {std::string(member.name), member.type, row->access};
    }
    return {"Entry " + std::to_string(subindex), Type::none, row->access};
}

bool is_no_setting(std::uint16_t index) {
    // Error history, storing and restoring, the node's own EDS, commands to the operating system, programs.
    return index == 0x1003 || index == 0x1010 || index == 0x1011 || index == 0x1021 ||
           (index >= 0x1023 && index <= 0x1026) || index == 0x1F50 || index == 0x1F51;
}

}  // namespace nodevik_tool
