#include "nodevik/codetexts.h"

#include <array>

#include "nodevik/textrow.h"

namespace {

// Classes of the emergency error codes, their high byte (CiA 301, 7.2.7.1).
constexpr std::array<text_row, 25> emergency_classes = {{
    {0x00, "Error reset or no error"},
    {0x10, "Generic error"},
    {0x20, "Current"},
    {0x21, "Current, CANopen device input side"},
    {0x22, "Current inside the CANopen device"},
    {0x23, "Current, CANopen device output side"},
    {0x30, "Voltage"},
    {0x31, "Mains voltage"},
    {0x32, "Voltage inside the CANopen device"},
    {0x33, "Output voltage"},
    {0x40, "Temperature"},
    {0x41, "Ambient temperature"},
    {0x42, "CANopen device temperature"},
    {0x50, "CANopen device hardware"},
    {0x60, "CANopen device software"},
    {0x61, "Internal software"},
    {0x62, "User software"},
    {0x63, "Data set"},
    {0x70, "Additional modules"},
    {0x80, "Monitoring"},
    {0x81, "Communication"},
    {0x82, "Protocol error"},
    {0x90, "External error"},
    {0xF0, "Additional functions"},
    {0xFF, "CANopen device specific"},
}};

// Emergency error codes: those of CiA 301, then those of the drives. The first row with a code wins.
constexpr std::array<text_row, 48> emergency_codes = {{
    {0x0000, "Error reset or no error"},
    {0x1000, "Generic error"},
    {0x2000, "Current – generic error"},
    {0x2100, "Current, CANopen device input side – generic"},
    {0x2200, "Current inside the CANopen device – generic"},
    {0x2300, "Current, CANopen device output side – generic"},
    {0x3000, "Voltage – generic error"},
    {0x3100, "Mains voltage – generic"},
    {0x3200, "Voltage inside the CANopen device – generic"},
    {0x3300, "Output voltage – generic"},
    {0x4000, "Temperature – generic error"},
    {0x4100, "Ambient temperature – generic"},
    {0x4200, "Device temperature – generic"},
    {0x5000, "CANopen device hardware – generic error"},
    {0x6000, "CANopen device software – generic error"},
    {0x6100, "Internal software – generic"},
    {0x6200, "User software – generic"},
    {0x6300, "Data set – generic"},
    {0x7000, "Additional modules – generic error"},
    {0x8000, "Monitoring – generic error"},
    {0x8100, "Communication – generic"},
    {0x8110, "CAN overrun (objects lost)"},
    {0x8120, "CAN in error passive mode"},
    {0x8130, "Life guard error or heartbeat error"},
    {0x8140, "recovered from bus off"},
    {0x8150, "CAN-ID collision"},
    {0x8200, "Protocol error - generic"},
    {0x8210, "PDO not processed due to length error"},
    {0x8220, "PDO length exceeded"},
    {0x8230, "DAM MPDO not processed, destination object not available"},
    {0x9000, "External error – generic error"},
    {0xF000, "Additional functions – generic error"},
    {0xFF00, "Device specific – generic error"},
    {0x2280, "Encoder Feedback Error"},
    {0x2310, "Current Limited"},
    {0x2320, "Short Circuit"},
    {0x3110, "Mains Over Voltage"},
    {0x3120, "Mains Under Voltage"},
    {0x3310, "Output Voltage Limited"},
    {0x4210, "Amplifier Over Temperature"},
    {0x4300, "Motor Temperature Sensor"},
    {0x5080, "Amplifier error"},
    {0x7122, "Phasing Error"},
    {0x7380, "Positive Limit Switch"},
    {0x7381, "Negative Limit Switch"},
    {0x7390, "Tracking Error"},
    {0x73A0, "Position Wrapped Around +/-2n31 Counts"},
    {0x8130, "Node Guarding Error or Heartbeat Error"},
}};

// SDO abort codes (CiA 301, 7.2.4.3.17).
constexpr std::array<text_row, 31> abort_codes = {{
    {0x05030000, "Toggle bit not alternated."},
    {0x05040000, "SDO protocol timed out."},
    {0x05040001, "Client/server command specifier not valid or unknown."},
    {0x05040002, "Invalid block size (block mode only)."},
    {0x05040003, "Invalid sequence number (block mode only)."},
    {0x05040004, "CRC error (block mode only)."},
    {0x05040005, "Out of memory."},
    {0x06010000, "Unsupported access to an object."},
    {0x06010001, "Attempt to read a write only object."},
    {0x06010002, "Attempt to write a read only object."},
    {0x06020000, "Object does not exist in the object dictionary."},
    {0x06040041, "Object cannot be mapped to the PDO."},
    {0x06040042, "The number and length of the objects to be mapped would exceed PDO length."},
    {0x06040043, "General parameter incompatibility reason."},
    {0x06040047, "General internal incompatibility in the device."},
    {0x06060000, "Access failed due to an hardware error."},
    {0x06070010, "Data type does not match, length of service parameter does not match"},
    {0x06070012, "Data type does not match, length of service parameter too high"},
    {0x06070013, "Data type does not match, length of service parameter too low"},
    {0x06090011, "Sub-index does not exist."},
    {0x06090030, "Invalid value for parameter (download only)."},
    {0x06090031, "Value of parameter written too high (download only)."},
    {0x06090032, "Value of parameter written too low (download only)."},
    {0x06090036, "Maximum value is less than minimum value."},
    {0x060A0023, "Resource not available: SDO connection"},
    {0x08000000, "General error"},
    {0x08000020, "Data cannot be transferred or stored to the application."},
    {0x08000021, "Data cannot be transferred or stored to the application because of local control."},
    {0x08000022,
     "Data cannot be transferred or stored to the application because of the present device state."},
    {0x08000023,
     "Object dictionary dynamic generation fails or no object dictionary is present (e.g. object dictionary "
     "is generated from file and generation fails because of an file error)."},
    {0x08000024, "No data available"},
}};

// States of a node, as node guarding and heartbeat tell them (CiA 301, 7.2.8.3.2).
constexpr std::array<text_row, 7> node_states = {{
    {0, "Initializing/Boot-up"},
    {1, "Disconnected"},
    {2, "Connecting"},
    {3, "Preparing"},
    {4, "Stopped"},
    {5, "Operational"},
    {127, "Pre-operational"},
}};

}  // namespace

const char* sdo_abort_text(std::uint32_t code) {
    return find_text(abort_codes, code);
}

const char* emergency_class_text(std::uint32_t code) {
    return find_text(emergency_classes, code >> 8);
}

const char* emergency_text(std::uint32_t code) {
    return find_text(emergency_codes, code);
}

const char* node_state_text(std::uint32_t state) {
    return find_text(node_states, state);
}
