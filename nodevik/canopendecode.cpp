#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "nodevik/canopen.h"
#include "nodevik/codetexts.h"
#include "nodevik/pdo.h"
#include "nodevik/textrow.h"
#include "nodevik/tpdoindex.h"

namespace {

/// Value of @p count bytes, the least significant one first.
uint32_t load_le(const uint8_t* bytes, unsigned int count) {
    uint32_t value = 0;
    for (unsigned int i = 0; i < count; ++i) {
        value |= static_cast<uint32_t>(bytes[i]) << (8 * i);
    }
    return value;
}

/// A frame, as the texts below look at it.
struct frame_view {
    uint32_t id;
    uint8_t len;
    const uint8_t* data;  ///< eight bytes
    bool mapped;          ///< a TPDO that stands in the master's list

    unsigned int node() const { return id & 0x7F; }
    uint8_t pdo_number() const { return static_cast<uint8_t>((id >> 8) & 7); }
    unsigned int index() const { return load_le(data + 1, 2); }
    unsigned int subindex() const { return data[3]; }
    /// Bits of the SDO command specifier, byte 0.
    uint8_t specifier(unsigned int shift, unsigned int mask) const {
        return static_cast<uint8_t>((data[0] >> shift) & mask);
    }
    uint8_t toggle_bit() const { return specifier(4, 1); }
    uint8_t unused_bytes_of_segment() const { return specifier(1, 7); }
    uint8_t expedited_length() const { return static_cast<uint8_t>(4 - specifier(2, 3)); }
};

// NMT commands (CiA 301, 7.2.8.2.1).
constexpr std::array<text_row, 6> nmt_commands = {{
    {1, "Start Remote Node"},
    {2, "Stop Remote Node"},
    {128, "Set Pre-Operational State"},
    {129, "Reset Node"},
    {130, "Reset Communication"},
    {0, "Null Message"},
}};

void describe_nmt(const frame_view& frame) {
    if (frame.len == 0) {
        CDecoder::add_text("NULL message! CCANopen bus may not be operational !");
        return;
    }
    const char* command = find_text(nmt_commands, frame.data[0]);
    CDecoder::add_printf("NMT: %s ID 0x%02x", command != nullptr ? command : "Unknown NMT status information",
                         frame.data[1]);
}

void describe_sync(const frame_view& /*frame*/) {
    CDecoder::add_text("SYNC");
}

void describe_emergency(const frame_view& frame) {
    const uint32_t code = load_le(frame.data, 2);
    CDecoder::add_text("NMT Emergency, Class: ");
    if (const char* text = emergency_class_text(code)) {
        CDecoder::add_text(text);
    } else {
        CDecoder::add_printf("Unknown (0x%02x)", code >> 8);
    }
    CDecoder::add_text(", Error Code: ");
    if (const char* text = emergency_text(code)) {
        CDecoder::add_text(text);
    } else {
        CDecoder::add_printf("Unknown (0x%04x)", code);
    }
    CDecoder::add_printf(", Manufacturer Error Code : %02x%02x%02x%02x%02x", frame.data[3], frame.data[4],
                         frame.data[5], frame.data[6], frame.data[7]);
}

void describe_time_stamp(const frame_view& /*frame*/) {
    CDecoder::add_text("Time Stamp");
}

void describe_tpdo(const frame_view& frame) {
    // A mapped PDO reads as both texts run together: readers of the logs tell it by that.
    if (frame.mapped) {
        CDecoder::add_printf("Transmit PDO %u ID 0x%02x", frame.pdo_number(), frame.node());
    }
    CDecoder::add_printf("Transmit PDO %u ID 0x%02x (Unmapped)", frame.pdo_number(), frame.node());
}

void describe_rpdo(const frame_view& frame) {
    CDecoder::add_printf("Receive  PDO %u ID 0x%02x", static_cast<uint8_t>(frame.pdo_number() - 1),
                         frame.node());
}

/// Appends the title of an SDO frame and the object that it names.
void describe_object(const char* title, const frame_view& frame) {
    CDecoder::add_printf("%sID=0x%02x Index=0x%04x Subindex=0x%02x", title, frame.node(), frame.index(),
                         frame.subindex());
}

/// The same for a frame that carries the object's value, of one to four bytes.
void describe_expedited(const char* title, const frame_view& frame) {
    const uint8_t length = frame.expedited_length();
    CDecoder::add_printf("%sID=0x%02x Index=0x%04x Subindex=0x%02x len=%u data=0x%0*x", title, frame.node(),
                         frame.index(), frame.subindex(), length, 2 * length,
                         load_le(frame.data + 4, length));
}

void describe_unknown_sdo(const frame_view& /*frame*/) {
    CDecoder::add_text("SDO unknown message !");
}

void describe_download_response(const frame_view& frame) {
    describe_object("SDO Initiate Download Response:           ", frame);
}

void describe_upload_response(const frame_view& frame) {
    describe_expedited("SDO Initiate Upload (expedited) Response: ", frame);
}

void describe_download_segment_response(const frame_view& frame) {
    CDecoder::add_printf("SDO Download Segment Response:            ID=0x%02x, ToggleBit=%u ", frame.node(),
                         frame.toggle_bit());
}

void describe_segmented_upload_response(const frame_view& frame) {
    describe_object("SDO Initiate Upload (segmented) Response: ", frame);
    CDecoder::add_printf(" n=%u", frame.specifier(2, 3));
}

void describe_upload_segment_response(const frame_view& frame) {
    const bool is_last = frame.specifier(0, 1) != 0;
    if (is_last) {
        CDecoder::add_printf("SDO Upload Segment Response Last Segment: ID=0x%02x", frame.node());
    } else {
        CDecoder::add_printf("SDO Upload Segment Response:          ID=0x%02x ToggleBit=%u n=%u ",
                             frame.node(), frame.toggle_bit(), frame.unused_bytes_of_segment());
    }
}

void describe_abort(const frame_view& frame) {
    describe_object("SDO Abort Domain Transfer:                ", frame);
    const uint32_t code = load_le(frame.data + 4, 4);
    if (const char* text = sdo_abort_text(code)) {
        CDecoder::add_printf(" - %s", text);
    } else {
        CDecoder::add_printf(" - Unknown abort code: 0x%08x", code);
    }
}

void describe_expedited_download(const frame_view& frame) {
    describe_expedited("SDO Initiate Download (expedited):        ", frame);
}

void describe_segmented_download(const frame_view& frame) {
    describe_object("SDO Initiate Download (segmented):        ", frame);
    CDecoder::add_printf(" ByteCounter=0x%08x", load_le(frame.data + 4, 4));
}

void describe_download_segment(const frame_view& frame) {
    CDecoder::add_printf("SDO Download Segment:                     ID=0x%02x ToggleBit=%u n=%u c=%u",
                         frame.node(), frame.toggle_bit(), frame.unused_bytes_of_segment(),
                         frame.specifier(0, 1));
}

void describe_upload(const frame_view& frame) {
    describe_object("SDO Initiate Upload:                      ", frame);
}

/// Leaves the colour as the line before had it.
constexpr int same_color = -1;

/// A kind of SDO frame: the command specifiers that are `specifier` under `mask`.
struct sdo_kind {
    unsigned int mask;
    unsigned int specifier;
    int color;
    void (*describe)(const frame_view&);
};

// The first row that fits wins; the last one fits every frame.
constexpr std::array<sdo_kind, 7> sdo_responses = {{
    {0xE0, 0x60, 3, describe_download_response},
    {0xE3, 0x43, 2, describe_upload_response},
    {0xE0, 0x20, 3, describe_download_segment_response},
    {0xE3, 0x21, 1, describe_segmented_upload_response},  // never reached: the row before takes them all
    {0xE0, 0x00, 1, describe_upload_segment_response},
    {0xE0, 0x80, 1, describe_abort},
    {0x00, 0x00, same_color, describe_unknown_sdo},
}};

constexpr std::array<sdo_kind, 5> sdo_requests = {{
    {0xE3, 0x23, 3, describe_expedited_download},
    {0xE3, 0x21, 1, describe_segmented_download},
    {0xE0, 0x00, 1, describe_download_segment},
    {0xE0, 0x40, 2, describe_upload},
    {0x00, 0x00, same_color, describe_unknown_sdo},
}};

/// The row of an SDO frame.
template <std::size_t Count>
const sdo_kind& find_sdo_kind(const std::array<sdo_kind, Count>& table, const frame_view& frame) {
    std::size_t row = 0;
    while ((frame.data[0] & table[row].mask) != table[row].specifier) {
        ++row;
    }
    return table[row];
}

void describe_nodeguard(const frame_view& frame) {
    if (frame.len == 0) {
        CDecoder::add_printf("NMT Nodeguerd Query ID=0x%02x", frame.node());
    } else if (frame.len == 1) {
        const char* state = node_state_text(frame.data[0] & 0x7FU);
        CDecoder::add_printf("Nodeguard Response/Heartbeat ID=0x%02x: %s", frame.node(),
                             state != nullptr ? state : "Unknown Node State");
    } else {
        CDecoder::add_printf("Unknown NMT Nodeguerd Message ID=0x%02x: ", frame.node());
    }
}

void describe_unknown(const frame_view& /*frame*/) {
    CDecoder::add_text("Unknown Message type !");
}

/// A kind of frame.
struct message_kind {
    uint32_t filter;     ///< bit of the type filter that shows it, or 0: always shown
    uint32_t type_mask;  ///< bit of the master's type mask that it needs, or 0
    int color;
    void (*describe)(const frame_view&);
};

constexpr message_kind nmt = {D_NMT, 0, 7, describe_nmt};
constexpr message_kind sync_message = {D_SYNC, D_SYNC, 4, describe_sync};
constexpr message_kind emergency = {D_SYNC, 0, 1, describe_emergency};
constexpr message_kind time_stamp = {0, 0, 4, describe_time_stamp};
constexpr message_kind tpdo = {D_TPDO, D_TPDO, 6, describe_tpdo};
constexpr message_kind rpdo = {D_RPDO, D_RPDO, 5, describe_rpdo};
constexpr message_kind nodeguard_message = {D_HEARTBEAT, 0, 7, describe_nodeguard};
constexpr message_kind unknown = {0, 0, 1, describe_unknown};

constexpr uint32_t sync_id = 0x080;

/// The kind of a frame. SDO frames get the colour and text of their row.
message_kind find_kind(const frame_view& frame) {
    switch (frame.id & 0x780) {
        case 0x000:
            return nmt;
        case 0x080:
            return frame.id == sync_id ? sync_message : emergency;
        case 0x100:
            return time_stamp;
        case 0x180:
        case 0x280:
        case 0x380:
        case 0x480:
            return tpdo;
        case 0x200:
        case 0x300:
        case 0x400:
        case 0x500:
            return rpdo;
        case 0x580: {
            const sdo_kind& response = find_sdo_kind(sdo_responses, frame);
            return {D_SDO, D_SDO, response.color, response.describe};
        }
        case 0x600: {
            const sdo_kind& request = find_sdo_kind(sdo_requests, frame);
            return {D_SDO, D_SDO, request.color, request.describe};
        }
        case 0x700:
            return nodeguard_message;
        default:
            return unknown;
    }
}

// Results of decode_message: why the line is to be dropped.
constexpr int dropped_by_type = 1;
constexpr int dropped_by_cobid = 2;

// The device type, object 0x1000 (CiA 301, 7.5.2.1): the device profile in the low 16 bits and the profile's
// additional information in the high 16 bits.
constexpr uint16_t device_type_index = 0x1000;

/// Bits @p first to @p first + 7 of a device type.
unsigned int byte_at(uint32_t device_type, unsigned int first) {
    return (device_type >> first) & 0xFF;
}

/// Prints the kinds of inputs and outputs that a generic I/O module has: bits 16 to 19 (CiA 401).
void print_io_module(uint32_t device_type) {
    const auto text_if = [device_type](unsigned int bit, const char* text) {
        return ((device_type >> bit) & 1) != 0 ? text : "";
    };
    std::printf("(401) Generic I/O Module%s%s%s%s\n", text_if(16, ", Digital Input"),
                text_if(17, ", Digital Output"), text_if(18, ", Analog Input"),
                text_if(19, ", Analog Output"));
}

// Drive types, bits 16 to 23 (CiA 402). A device that combines several types has no text of its own.
constexpr std::array<text_row, 3> drive_types = {{
    {1, "Frequency Converter"},
    {2, "Servo Drive"},
    {4, "Stepper Motor"},
}};

/// Prints the type of a drive, and from the mode bits 24 to 31 (CiA 402) how its PDOs are mapped: a device
/// that sets none of them has the mapping common to all drives, any other that of its type.
void print_drive(uint32_t device_type) {
    const char* type = find_text(drive_types, byte_at(device_type, 16));
    std::printf("(402) Drive Motor (%s with %s PDO mapping)\n", type != nullptr ? type : "Unknown?",
                byte_at(device_type, 24) == 0 ? "generic" : "type-specific");
}

// Devices of an extruder line, bits 16 to 23: the number of the profile's part that describes the device
// (CiA 420-1: the extruder as master of the line, 420-2 to 420-6: the devices behind it).
constexpr std::array<text_row, 6> extruder_devices = {{
    {1, "Master-extruder"},
    {2, "Puller"},
    {3, "Corrugator"},
    {4, "Saw"},
    {5, "Co-extruder"},
    {6, "Calibration-table"},
}};

/// Prints the device of an extruder line; nothing follows it on the line, and nothing stands for an unknown
/// one.
void print_extruder(uint32_t device_type) {
    const char* device = find_text(extruder_devices, byte_at(device_type, 16));
    std::printf("(420) Extruder (%s", device != nullptr ? device : "");
}

}  // namespace

int CCANopen::decode_message(uint32_t id, uint8_t len, const void* data) const {
    int dropped = 0;
    if ((id & cobid_bits_up_mask) != cobid_bits_up_mask || (id & cobid_bits_down_mask) != 0) {
        dropped |= dropped_by_cobid;
    }
    add_text(" - ");
    frame_view seen = {id, len, static_cast<const uint8_t*>(data), false};
    const message_kind kind = find_kind(seen);
    if ((kind.filter & ~m_TypeFilter) != 0) {
        clear_message();
        return dropped;
    }
    if ((kind.type_mask & ~type_mask) != 0) {
        dropped |= dropped_by_type;
    }
    if (kind.color != same_color) {
        m_MessageColor = kind.color;
    }
    seen.mapped = kind.filter == D_TPDO && has_tpdo(id);
    kind.describe(seen);
    return dropped;
}

/// Tells whether a PDO with this COB-ID stands in the list of received PDOs.
bool CCANopen::has_tpdo(unsigned int cobid) const {
    return tpdo_index->contains(cobid);
}

int CCANopen::print_device_type(int node) {
    int value = 0;
    const int result = sdo_read(static_cast<unsigned int>(node), device_type_index, 0, value);
    if (result != 0) {
        return result;
    }
    const auto device_type = static_cast<uint32_t>(value);
    const unsigned int profile = device_type & 0xFFFF;
    std::printf("Device Type: 0x%04x ", device_type);
    switch (profile) {
        case 401:
            print_io_module(device_type);
            break;
        case 402:
            print_drive(device_type);
            break;
        case 420:
            print_extruder(device_type);
            break;
        default:
            std::printf("(%d) Not specified\n", static_cast<int>(profile));
    }
    return 0;
}
