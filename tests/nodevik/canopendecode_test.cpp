#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "nodevik/canopen.h"
#include "tests/support/childprocess.h"
#include "tests/support/scriptedcandriver.h"

namespace {

struct Row {
    uint32_t code;
    const char* text;
};

// A colour that no row of the master's decoder has.
constexpr int other_color = 0;

// What became of one frame.
struct Decoded {
    int result;
    std::string text;
    int color;
};

class OpenColor : public CDecoder {
public:
    static void set(int color) { m_MessageColor = color; }
};

Decoded decode(const CDecoder& decoder, uint32_t id, uint8_t len, std::initializer_list<uint8_t> bytes) {
    std::array<uint8_t, 8> data = {};
    std::copy(bytes.begin(), bytes.end(), data.begin());
    CDecoder::clear_message();
    OpenColor::set(other_color);
    const int result = decoder.decode_message(id, len, data.data());
    return {result, CDecoder::get_message(), CDecoder::get_message_color()};
}

Decoded decode(uint32_t id, uint8_t len, std::initializer_list<uint8_t> bytes) {
    const CCANopen master;
    return decode(master, id, len, bytes);
}

void expect_line(const Decoded& decoded, const std::string& text, int color) {
    EXPECT_EQ(decoded.result, 0);
    EXPECT_EQ(decoded.text, text);
    EXPECT_EQ(decoded.color, color);
}

constexpr uint8_t low(uint32_t value, unsigned int byte) {
    return static_cast<uint8_t>(value >> (8 * byte));
}

std::string formatted(const char* format, unsigned int value) {
    char text[100];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

// What a node answers when its device type is asked for, and what that prints.
ChildResult device_type(uint32_t value) {
    return run_in_child([value] {
        ScriptedCanDriver driver;
        driver.on_write = [&driver, value](const ScriptedFrame& request) {
            if (request == ScriptedFrame(0x605, {0x40, 0x00, 0x10, 0, 0, 0, 0, 0})) {
                driver.queue(
                    0x585, {0x43, 0x00, 0x10, 0, low(value, 0), low(value, 1), low(value, 2), low(value, 3)});
            }
        };
        CCANopen master;
        master.load_driver(driver);
        master.print_device_type(5);
    });
}

constexpr Row emergency_classes[] = {
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
};

constexpr Row emergency_codes[] = {
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
};

constexpr Row abort_codes[] = {
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
};

}  // namespace

TEST(CanopenDecodeNmt, EmptyFrameIsTheNullMessage) {
    expect_line(decode(0x000, 0, {}), " - NULL message! CCANopen bus may not be operational !", 7);
}

TEST(CanopenDecodeNmt, EveryCommandHasItsText) {
    expect_line(decode(0x000, 2, {1, 5}), " - NMT: Start Remote Node ID 0x05", 7);
    expect_line(decode(0x000, 2, {2, 0}), " - NMT: Stop Remote Node ID 0x00", 7);
    expect_line(decode(0x000, 2, {128, 0x7F}), " - NMT: Set Pre-Operational State ID 0x7f", 7);
    expect_line(decode(0x000, 2, {129, 16}), " - NMT: Reset Node ID 0x10", 7);
    expect_line(decode(0x000, 2, {130, 255}), " - NMT: Reset Communication ID 0xff", 7);
    expect_line(decode(0x000, 2, {0, 1}), " - NMT: Null Message ID 0x01", 7);
}

TEST(CanopenDecodeNmt, OtherCommandsAreUnknown) {
    for (const uint8_t command : std::initializer_list<uint8_t>{3, 127, 131, 255}) {
        expect_line(decode(0x000, 1, {command, 9}), " - NMT: Unknown NMT status information ID 0x09", 7);
    }
}

TEST(CanopenDecodeNmt, EveryIdentifierOfTheFunctionCodeIsNmt) {
    expect_line(decode(0x07F, 2, {1, 5}), " - NMT: Start Remote Node ID 0x05", 7);
}

TEST(CanopenDecodeSync, ExactlyIdentifier080IsSync) {
    expect_line(decode(0x080, 0, {}), " - SYNC", 4);
    expect_line(decode(0x080, 1, {0x12}), " - SYNC", 4);
}

TEST(CanopenDecodeEmergency, OfNodeOneWithoutErrorHasBothTexts) {
    expect_line(decode(0x081, 8, {}),
                " - NMT Emergency, Class: Error reset or no error, Error Code: Error reset or no error, "
                "Manufacturer Error Code : 0000000000",
                1);
}

TEST(CanopenDecodeEmergency, ExtendedIdentifierWithTheBitsOfSyncIsAnEmergency) {
    EXPECT_EQ(decode(0x10080, 8, {}).text.substr(0, 26), " - NMT Emergency, Class: E");
}

TEST(CanopenDecodeEmergency, EveryClassHasItsText) {
    EXPECT_EQ(std::size(emergency_classes), 25U);
    for (const Row& row : emergency_classes) {
        // 0xEE ends no error code of the table
        expect_line(decode(0x0FF, 8, {0xEE, low(row.code, 0), 0x01, 0x0A, 0xBC, 0x00, 0x12, 0xFF}),
                    std::string(" - NMT Emergency, Class: ") + row.text +
                        ", Error Code: " + formatted("Unknown (0x%04x)", (row.code << 8) | 0xEE) +
                        ", Manufacturer Error Code : 0abc0012ff",
                    1);
    }
}

TEST(CanopenDecodeEmergency, EveryErrorCodeHasItsTextAndTheFirstRowWins) {
    EXPECT_EQ(std::size(emergency_codes), 48U);
    std::set<uint32_t> seen;
    for (const Row& row : emergency_codes) {
        if (!seen.insert(row.code).second) {
            continue;
        }
        std::string class_text = formatted("Unknown (0x%02x)", row.code >> 8);
        for (const Row& class_row : emergency_classes) {
            if (class_row.code == row.code >> 8) {
                class_text = class_row.text;
            }
        }
        expect_line(decode(0x085, 8, {low(row.code, 0), low(row.code, 1)}),
                    " - NMT Emergency, Class: " + class_text + ", Error Code: " + row.text +
                        ", Manufacturer Error Code : 0000000000",
                    1);
    }
    EXPECT_EQ(seen.size(), 47U);
}

TEST(CanopenDecodeEmergency, GenericTextsHaveAnEnDash) {
    expect_line(decode(0x085, 8, {0x00, 0x20}),
                " - NMT Emergency, Class: Current, Error Code: Current \xE2\x80\x93 generic error, "
                "Manufacturer Error Code : 0000000000",
                1);
}

TEST(CanopenDecodeEmergency, Code8130IsTheLifeGuardError) {
    EXPECT_EQ(decode(0x085, 8, {0x30, 0x81}).text,
              " - NMT Emergency, Class: Communication, Error Code: Life guard error or heartbeat error, "
              "Manufacturer Error Code : 0000000000");
}

TEST(CanopenDecodeEmergency, UnknownClassAndCodeAreShownAsNumbers) {
    expect_line(decode(0x085, 8, {0x0B, 0x0A, 0, 1, 2, 3, 4, 5}),
                " - NMT Emergency, Class: Unknown (0x0a), Error Code: Unknown (0x0a0b), "
                "Manufacturer Error Code : 0102030405",
                1);
}

TEST(CanopenDecodeTimeStamp, HasItsText) {
    expect_line(decode(0x100, 6, {}), " - Time Stamp", 4);
    expect_line(decode(0x17F, 6, {}), " - Time Stamp", 4);
}

TEST(CanopenDecodeTpdo, OutsideTheListIsUnmapped) {
    expect_line(decode(0x181, 8, {}), " - Transmit PDO 1 ID 0x01 (Unmapped)", 6);
    expect_line(decode(0x2FF, 8, {}), " - Transmit PDO 2 ID 0x7f (Unmapped)", 6);
    expect_line(decode(0x390, 8, {}), " - Transmit PDO 3 ID 0x10 (Unmapped)", 6);
    expect_line(decode(0x480, 8, {}), " - Transmit PDO 4 ID 0x00 (Unmapped)", 6);
}

TEST(CanopenDecodeTpdo, InTheListReadsAsBothTextsRunTogether) {
    CCANopen master;
    PDO first(0x181);
    PDO second(0x295);
    master.add_tpdo(first);
    master.add_tpdo(second);
    expect_line(decode(master, 0x295, 8, {}), " - Transmit PDO 2 ID 0x15Transmit PDO 2 ID 0x15 (Unmapped)",
                6);
    expect_line(decode(master, 0x181, 8, {}), " - Transmit PDO 1 ID 0x01Transmit PDO 1 ID 0x01 (Unmapped)",
                6);
    expect_line(decode(master, 0x182, 8, {}), " - Transmit PDO 1 ID 0x02 (Unmapped)", 6);
}

TEST(CanopenDecodeTpdo, IsFoundInTheListWhileFramesAreReceived) {
    const ChildResult child = run_in_child([] {
        ScriptedCanDriver driver;
        CCANopen master;
        PDO pdo(0x181);
        master.add_tpdo(pdo);
        master.load_driver(driver);
        driver.queue(0x181, {1});
        master.read_all_messages();
        decode(master, 0x181, 1, {});
        std::printf("%s\n", CDecoder::get_message());
        decode(master, 0x981, 1, {});  // shares the low bits
        std::printf("%s\n", CDecoder::get_message());
        pdo.set_cobid(0x182);
        decode(master, 0x181, 1, {});
        std::printf("%s\n", CDecoder::get_message());
        decode(master, 0x182, 1, {});
        std::printf("%s\n", CDecoder::get_message());
    });
    EXPECT_EQ(child.out,
              " - Transmit PDO 1 ID 0x01Transmit PDO 1 ID 0x01 (Unmapped)\n"
              " - Transmit PDO 1 ID 0x01 (Unmapped)\n"
              " - Transmit PDO 1 ID 0x01 (Unmapped)\n"
              " - Transmit PDO 1 ID 0x02Transmit PDO 1 ID 0x02 (Unmapped)\n");
}

TEST(CanopenDecodeTpdo, RpdoListDoesNotCount) {
    CCANopen master;
    PDO pdo(0x181);
    master.add_rpdo(pdo);
    expect_line(decode(master, 0x181, 8, {}), " - Transmit PDO 1 ID 0x01 (Unmapped)", 6);
}

TEST(CanopenDecodeRpdo, HasNumberAndNode) {
    expect_line(decode(0x201, 8, {}), " - Receive  PDO 1 ID 0x01", 5);
    expect_line(decode(0x37F, 8, {}), " - Receive  PDO 2 ID 0x7f", 5);
    expect_line(decode(0x410, 8, {}), " - Receive  PDO 3 ID 0x10", 5);
    expect_line(decode(0x500, 8, {}), " - Receive  PDO 4 ID 0x00", 5);
}

TEST(CanopenDecodeSdoResponse, InitiateDownload) {
    const std::string text =
        " - SDO Initiate Download Response:           ID=0x05 Index=0x6040 Subindex=0x0a";
    expect_line(decode(0x585, 8, {0x60, 0x40, 0x60, 0x0A}), text, 3);
    expect_line(decode(0x585, 8, {0x7F, 0x40, 0x60, 0x0A}), text, 3);
}

TEST(CanopenDecodeSdoResponse, ExpeditedUploadShowsTheDataOfItsLength) {
    const std::string start =
        " - SDO Initiate Upload (expedited) Response: ID=0x7f Index=0x1018 Subindex=0x01 ";
    expect_line(decode(0x5FF, 8, {0x4F, 0x18, 0x10, 1, 0x04, 0x03, 0x02, 0x01}), start + "len=1 data=0x04",
                2);
    expect_line(decode(0x5FF, 8, {0x4B, 0x18, 0x10, 1, 0x04, 0x03, 0x02, 0x01}), start + "len=2 data=0x0304",
                2);
    expect_line(decode(0x5FF, 8, {0x47, 0x18, 0x10, 1, 0x04, 0x03, 0x02, 0x01}),
                start + "len=3 data=0x020304", 2);
    expect_line(decode(0x5FF, 8, {0x43, 0x18, 0x10, 1, 0x04, 0x03, 0x02, 0x01}),
                start + "len=4 data=0x01020304", 2);
    expect_line(decode(0x5FF, 8, {0x53, 0x18, 0x10, 1, 0xFF, 0xFF, 0xFF, 0xFF}),
                start + "len=4 data=0xffffffff", 2);
    expect_line(decode(0x5FF, 8, {0x43, 0x18, 0x10, 1}), start + "len=4 data=0x00000000", 2);
}

TEST(CanopenDecodeSdoResponse, DownloadSegment) {
    expect_line(decode(0x581, 8, {0x20}),
                " - SDO Download Segment Response:            ID=0x01, ToggleBit=0 ", 3);
    expect_line(decode(0x581, 8, {0x30}),
                " - SDO Download Segment Response:            ID=0x01, ToggleBit=1 ", 3);
}

TEST(CanopenDecodeSdoResponse, Specifier21ReadsAsADownloadSegment) {
    expect_line(decode(0x581, 8, {0x21}),
                " - SDO Download Segment Response:            ID=0x01, ToggleBit=0 ", 3);
    expect_line(decode(0x581, 8, {0x3D}),
                " - SDO Download Segment Response:            ID=0x01, ToggleBit=1 ", 3);
}

TEST(CanopenDecodeSdoResponse, UploadSegment) {
    expect_line(decode(0x582, 8, {0x00}), " - SDO Upload Segment Response:          ID=0x02 ToggleBit=0 n=0 ",
                1);
    expect_line(decode(0x582, 8, {0x1E}), " - SDO Upload Segment Response:          ID=0x02 ToggleBit=1 n=7 ",
                1);
    expect_line(decode(0x582, 8, {0x06}), " - SDO Upload Segment Response:          ID=0x02 ToggleBit=0 n=3 ",
                1);
}

TEST(CanopenDecodeSdoResponse, LastUploadSegment) {
    expect_line(decode(0x582, 8, {0x01}), " - SDO Upload Segment Response Last Segment: ID=0x02", 1);
    expect_line(decode(0x582, 8, {0x1F}), " - SDO Upload Segment Response Last Segment: ID=0x02", 1);
}

TEST(CanopenDecodeSdoResponse, EveryAbortCodeHasItsText) {
    EXPECT_EQ(std::size(abort_codes), 31U);
    for (const Row& row : abort_codes) {
        const std::string line = std::string(
                                     " - SDO Abort Domain Transfer:                ID=0x05 Index=0x1234 "
                                     "Subindex=0x56 - ") +
                                 row.text;
        expect_line(decode(0x585, 8,
                           {0x80, 0x34, 0x12, 0x56, low(row.code, 0), low(row.code, 1), low(row.code, 2),
                            low(row.code, 3)}),
                    line, 1);
    }
}

TEST(CanopenDecodeSdoResponse, UnknownAbortCodeIsShownAsANumber) {
    expect_line(decode(0x585, 8, {0x9F, 0x34, 0x12, 0x56, 0x25, 0x00, 0x00, 0x08}),
                " - SDO Abort Domain Transfer:                ID=0x05 Index=0x1234 Subindex=0x56 - Unknown "
                "abort code: "
                "0x08000025",
                1);
}

TEST(CanopenDecodeSdoResponse, OtherSpecifiersAreUnknownAndKeepTheColour) {
    for (const uint8_t specifier :
         std::initializer_list<uint8_t>{0x40, 0x41, 0x42, 0x5E, 0xA0, 0xBF, 0xC0, 0xE0, 0xFF}) {
        expect_line(decode(0x585, 8, {specifier}), " - SDO unknown message !", other_color);
    }
}

TEST(CanopenDecodeSdoRequest, ExpeditedDownloadShowsTheDataOfItsLength) {
    const std::string start =
        " - SDO Initiate Download (expedited):        ID=0x05 Index=0x6040 Subindex=0x00 ";
    expect_line(decode(0x605, 8, {0x2F, 0x40, 0x60, 0, 0x0D, 0x0C, 0x0B, 0x0A}), start + "len=1 data=0x0d",
                3);
    expect_line(decode(0x605, 8, {0x2B, 0x40, 0x60, 0, 0x0D, 0x0C, 0x0B, 0x0A}), start + "len=2 data=0x0c0d",
                3);
    expect_line(decode(0x605, 8, {0x27, 0x40, 0x60, 0, 0x0D, 0x0C, 0x0B, 0x0A}),
                start + "len=3 data=0x0b0c0d", 3);
    expect_line(decode(0x605, 8, {0x23, 0x40, 0x60, 0, 0x0D, 0x0C, 0x0B, 0x0A}),
                start + "len=4 data=0x0a0b0c0d", 3);
    expect_line(decode(0x605, 8, {0x33, 0x40, 0x60, 0, 0x0D, 0x0C, 0x0B, 0x0A}),
                start + "len=4 data=0x0a0b0c0d", 3);
}

TEST(CanopenDecodeSdoRequest, SegmentedDownloadShowsTheByteCounter) {
    expect_line(decode(0x605, 8, {0x21, 0x08, 0x10, 0x02, 0xE8, 0x03, 0x00, 0x80}),
                " - SDO Initiate Download (segmented):        ID=0x05 Index=0x1008 Subindex=0x02 "
                "ByteCounter=0x800003e8",
                1);
}

TEST(CanopenDecodeSdoRequest, DownloadSegmentShowsToggleUnusedBytesAndEnd) {
    const std::string start = " - SDO Download Segment:                     ID=0x7f ";
    expect_line(decode(0x67F, 8, {0x00}), start + "ToggleBit=0 n=0 c=0", 1);
    expect_line(decode(0x67F, 8, {0x1F}), start + "ToggleBit=1 n=7 c=1", 1);
    expect_line(decode(0x67F, 8, {0x0B}), start + "ToggleBit=0 n=5 c=1", 1);
    expect_line(decode(0x67F, 8, {0x10}), start + "ToggleBit=1 n=0 c=0", 1);
}

TEST(CanopenDecodeSdoRequest, InitiateUpload) {
    const std::string text =
        " - SDO Initiate Upload:                      ID=0x01 Index=0xffff Subindex=0xff";
    expect_line(decode(0x601, 8, {0x40, 0xFF, 0xFF, 0xFF}), text, 2);
    expect_line(decode(0x601, 8, {0x5F, 0xFF, 0xFF, 0xFF}), text, 2);
}

TEST(CanopenDecodeSdoRequest, OtherSpecifiersAreUnknownAndKeepTheColour) {
    for (const uint8_t specifier :
         std::initializer_list<uint8_t>{0x20, 0x22, 0x60, 0x70, 0x80, 0xA0, 0xC0, 0xFF}) {
        expect_line(decode(0x601, 8, {specifier}), " - SDO unknown message !", other_color);
    }
}

TEST(CanopenDecodeNodeguard, EmptyFrameIsTheQuery) {
    expect_line(decode(0x705, 0, {}), " - NMT Nodeguerd Query ID=0x05", 7);
}

TEST(CanopenDecodeNodeguard, EveryStateHasItsText) {
    const std::string start = " - Nodeguard Response/Heartbeat ID=0x05: ";
    expect_line(decode(0x705, 1, {0}), start + "Initializing/Boot-up", 7);
    expect_line(decode(0x705, 1, {1}), start + "Disconnected", 7);
    expect_line(decode(0x705, 1, {2}), start + "Connecting", 7);
    expect_line(decode(0x705, 1, {3}), start + "Preparing", 7);
    expect_line(decode(0x705, 1, {4}), start + "Stopped", 7);
    expect_line(decode(0x705, 1, {5}), start + "Operational", 7);
    expect_line(decode(0x705, 1, {127}), start + "Pre-operational", 7);
    expect_line(decode(0x705, 1, {6}), start + "Unknown Node State", 7);
}

TEST(CanopenDecodeNodeguard, ToggleBitIsNoPartOfTheState) {
    expect_line(decode(0x77F, 1, {0x85}), " - Nodeguard Response/Heartbeat ID=0x7f: Operational", 7);
    expect_line(decode(0x77F, 1, {0xFF}), " - Nodeguard Response/Heartbeat ID=0x7f: Pre-operational", 7);
    expect_line(decode(0x77F, 1, {0x80}), " - Nodeguard Response/Heartbeat ID=0x7f: Initializing/Boot-up", 7);
}

TEST(CanopenDecodeNodeguard, OtherLengthsAreUnknown) {
    expect_line(decode(0x705, 2, {5}), " - Unknown NMT Nodeguerd Message ID=0x05: ", 7);
    expect_line(decode(0x705, 8, {5}), " - Unknown NMT Nodeguerd Message ID=0x05: ", 7);
}

TEST(CanopenDecodeUnknown, OtherFunctionCodes) {
    for (const uint32_t id : {0x680U, 0x6FFU, 0x780U, 0x7FFU}) {
        expect_line(decode(id, 8, {}), " - Unknown Message type !", 1);
    }
}

TEST(CanopenDecodeFilter, AMissingBitClearsTheLineAndKeepsTheColour) {
    struct Kind {
        uint32_t bit;
        std::vector<uint32_t> ids;
    };
    const std::vector<Kind> kinds = {
        {D_NMT, {0x000}},
        {D_SYNC, {0x080, 0x081}},
        {D_TPDO, {0x181, 0x281, 0x381, 0x481}},
        {D_RPDO, {0x201, 0x301, 0x401, 0x501}},
        {D_SDO, {0x581, 0x601}},
        {D_HEARTBEAT, {0x701}},
    };
    for (const Kind& kind : kinds) {
        for (const uint32_t id : kind.ids) {
            CCANopen master;
            master.set_typefilter(static_cast<uint32_t>(D_ALL) & ~kind.bit);
            const Decoded hidden = decode(master, id, 0, {});
            EXPECT_EQ(hidden.result, 0) << id;
            EXPECT_EQ(hidden.text, "") << id;
            EXPECT_EQ(hidden.color, other_color) << id;
            master.set_typefilter(kind.bit);
            EXPECT_NE(decode(master, id, 0, {}).text, "") << id;
        }
    }
}

TEST(CanopenDecodeFilter, TimeStampAndUnknownFramesPassAnyFilter) {
    CCANopen master;
    master.set_typefilter(0);
    expect_line(decode(master, 0x100, 0, {}), " - Time Stamp", 4);
    expect_line(decode(master, 0x780, 0, {}), " - Unknown Message type !", 1);
}

TEST(CanopenDecodeFilter, ShowSwitchesHideAndShowTheirKind) {
    using Switch = void (CCANopen::*)(bool);
    const std::vector<std::pair<Switch, uint32_t>> switches = {
        {&CCANopen::show_nmt, 0x000}, {&CCANopen::show_tpdo, 0x181}, {&CCANopen::show_rpdo, 0x201},
        {&CCANopen::show_sdo, 0x581}, {&CCANopen::show_sync, 0x080}, {&CCANopen::show_nodeguard, 0x701},
    };
    CCANopen master;
    for (const auto& [show, id] : switches) {
        (master.*show)(false);
        EXPECT_EQ(decode(master, id, 0, {}).text, "") << id;
        (master.*show)(true);
        EXPECT_NE(decode(master, id, 0, {}).text, "") << id;
    }
}

TEST(CanopenDecodeFilter, HiddenRpdoPrintsNothing) {
    const ChildResult child = run_in_child([] {
        const std::array<uint8_t, 8> data = {};
        CCANopen master;
        CDecoder::clear_message();
        master.show_rpdo(false);
        master.print_message(0x201, 8, data.data());
        CDecoder::print();
    });
    EXPECT_EQ(child.out, "");
}

TEST(CanopenDecodeFilter, NewMasterShowsEveryKind) {
    for (const uint32_t id :
         {0x000U, 0x080U, 0x081U, 0x100U, 0x181U, 0x201U, 0x581U, 0x601U, 0x701U, 0x780U}) {
        EXPECT_NE(decode(id, 0, {}).text, "") << id;
    }
}

TEST(CanopenDecode, AddsToWhatTheDriverWrote) {
    const CCANopen master;
    const CDecoder& decoder = master;
    const std::array<uint8_t, 8> data = {};
    CDecoder::clear_message();
    CDecoder::add_printf("id 0x00000080 [R]");
    EXPECT_EQ(decoder.decode_message(0x080, 0, data.data()), 0);
    EXPECT_STREQ(CDecoder::get_message(), "id 0x00000080 [R] - SYNC");
}

TEST(CanopenDecode, HiddenKindAlsoClearsWhatTheDriverWrote) {
    CCANopen master;
    const CDecoder& decoder = master;
    const std::array<uint8_t, 8> data = {};
    master.show_sync(false);
    CDecoder::clear_message();
    CDecoder::add_printf("id 0x00000080 [R]");
    decoder.decode_message(0x080, 0, data.data());
    EXPECT_STREQ(CDecoder::get_message(), "");
}

TEST(CanopenDecode, PrintsTheLineInTheColourOfItsKind) {
    const ChildResult child = run_in_child([] {
        const std::array<uint8_t, 8> data = {0x05};
        const CCANopen master;
        CDecoder::clear_message();
        master.print_message(0x705, 1, data.data());
        master.print_message(0x201, 8, data.data());
        CDecoder::print();
    });
    EXPECT_EQ(child.out,
              "\033[1;37m - Nodeguard Response/Heartbeat ID=0x05: Operational\n\033[m"
              "\033[1;35m - Receive  PDO 1 ID 0x01\n\033[m");
}

TEST(CanopenDecode, ARegisteredCallbackGetsTheLinesOfReceivedFramesInsteadOfStandardOutput) {
    const ChildResult child = run_in_child([] {
        ScriptedCanDriver driver;
        CCANopen master;
        master.load_driver(driver);
        master.set_debug(4);
        master.show_nmt(false);
        CDecoder::clear_message();
        CDecoder::register_callback(
            [](const char* text) { std::printf("[%s] %d\n", text, CDecoder::get_message_color()); });
        driver.queue(0x705, {5});
        driver.queue(0x000, {1, 5});
        driver.queue(0x080, {});
        master.read_all_messages();
        std::printf("<%s>\n", CDecoder::get_message());
        int code = 0;
        driver.on_write = [&driver](const ScriptedFrame&) {
            driver.queue(0x585, {0x80, 0x00, 0x10, 0, 0x00, 0x00, 0x02, 0x06});
        };
        std::printf("%d\n", master.sdo_read(5, 0x1000, 0, code));
    });
    EXPECT_EQ(child.out,
              "[ - Nodeguard Response/Heartbeat ID=0x05: Operational] 7\n"
              "[ - SYNC] 4\n"
              "<>\n"
              "\033[1;31mReceived SDO abort code: nodeID=0x05 Index=0x1000 SubIndex=0x00\n\033[m"
              "[ - SDO Abort Domain Transfer:                ID=0x05 Index=0x1000 Subindex=0x00 - "
              "Object does not exist in the object dictionary.] 1\n"
              "-1\n");
}

TEST(CanopenDecode, LongestAbortLineFitsTheLine) {
    const Decoded decoded = decode(0x585, 8, {0x80, 0x34, 0x12, 0x56, 0x23, 0x00, 0x00, 0x08});
    EXPECT_EQ(decoded.text.size(), 254U);
    EXPECT_EQ(decoded.text.substr(decoded.text.size() - 10), "le error).");
}

TEST(CanopenDecode, LineThatGetsTooLongIsCut) {
    const CCANopen master;
    const CDecoder& decoder = master;
    const std::array<uint8_t, 8> abort = {0x80, 0, 0, 0, 0x23, 0x00, 0x00, 0x08};
    CDecoder::clear_message();
    decoder.decode_message(0x585, 8, abort.data());
    decoder.decode_message(0x585, 8, abort.data());
    EXPECT_EQ(std::strlen(CDecoder::get_message()), 300U);
}

TEST(CanopenDecode, AnyFrameIsDecoded) {
    const CCANopen master;
    const CDecoder& decoder = master;
    std::array<uint8_t, 8> data = {};
    for (uint32_t id = 0; id < 0x1000; id += 3) {
        for (unsigned int byte = 0; byte < 256; byte += 5) {
            data.fill(static_cast<uint8_t>(byte));
            CDecoder::clear_message();
            EXPECT_EQ(decoder.decode_message(id, static_cast<uint8_t>(byte % 9), data.data()), 0);
            EXPECT_GT(std::strlen(CDecoder::get_message()), 3U);
        }
    }
}

TEST(CanopenDeviceType, IoModuleNamesItsInputsAndOutputs) {
    EXPECT_EQ(device_type(0x00000191).out, "Device Type: 0x0191 (401) Generic I/O Module\n");
    EXPECT_EQ(device_type(0x00010191).out, "Device Type: 0x10191 (401) Generic I/O Module, Digital Input\n");
    EXPECT_EQ(device_type(0x00020191).out, "Device Type: 0x20191 (401) Generic I/O Module, Digital Output\n");
    EXPECT_EQ(device_type(0x00040191).out, "Device Type: 0x40191 (401) Generic I/O Module, Analog Input\n");
    EXPECT_EQ(device_type(0x00080191).out, "Device Type: 0x80191 (401) Generic I/O Module, Analog Output\n");
    EXPECT_EQ(device_type(0xFFFF0191).out,
              "Device Type: 0xffff0191 (401) Generic I/O Module, Digital Input, Digital Output, Analog "
              "Input, Analog "
              "Output\n");
}

TEST(CanopenDeviceType, DriveNamesItsTypeAndMapping) {
    EXPECT_EQ(device_type(0x00010192).out,
              "Device Type: 0x10192 (402) Drive Motor (Frequency Converter with generic PDO mapping)\n");
    EXPECT_EQ(device_type(0x00020192).out,
              "Device Type: 0x20192 (402) Drive Motor (Servo Drive with generic PDO mapping)\n");
    EXPECT_EQ(device_type(0x01040192).out,
              "Device Type: 0x1040192 (402) Drive Motor (Stepper Motor with type-specific PDO mapping)\n");
    EXPECT_EQ(device_type(0x80060192).out,
              "Device Type: 0x80060192 (402) Drive Motor (Unknown? with type-specific PDO mapping)\n");
    EXPECT_EQ(device_type(0x00000192).out,
              "Device Type: 0x0192 (402) Drive Motor (Unknown? with generic PDO mapping)\n");
}

TEST(CanopenDeviceType, ExtruderNamesItsDevice) {
    EXPECT_EQ(device_type(0x000101A4).out, "Device Type: 0x101a4 (420) Extruder (Master-extruder");
    EXPECT_EQ(device_type(0x000201A4).out, "Device Type: 0x201a4 (420) Extruder (Puller");
    EXPECT_EQ(device_type(0x000301A4).out, "Device Type: 0x301a4 (420) Extruder (Corrugator");
    EXPECT_EQ(device_type(0x000401A4).out, "Device Type: 0x401a4 (420) Extruder (Saw");
    EXPECT_EQ(device_type(0x000501A4).out, "Device Type: 0x501a4 (420) Extruder (Co-extruder");
    EXPECT_EQ(device_type(0x000601A4).out, "Device Type: 0x601a4 (420) Extruder (Calibration-table");
    EXPECT_EQ(device_type(0x000701A4).out, "Device Type: 0x701a4 (420) Extruder (");
}

TEST(CanopenDeviceType, OtherProfilesAreNotSpecified) {
    EXPECT_EQ(device_type(0x00000000).out, "Device Type: 0x0000 (0) Not specified\n");
    EXPECT_EQ(device_type(0x12340195).out, "Device Type: 0x12340195 (405) Not specified\n");
    EXPECT_EQ(device_type(0x0000FFFF).out, "Device Type: 0xffff (65535) Not specified\n");
}

TEST(CanopenDeviceType, NodeThatDoesNotAnswerPrintsNothing) {
    const ChildResult child = run_in_child([] {
        ScriptedCanDriver driver;
        CCANopen master;
        master.load_driver(driver);
        master.set_debug(0);
        std::exit(master.print_device_type(5) == -1 ? 0 : 1);
    });
    EXPECT_EQ(child.status, 0);
    EXPECT_EQ(child.out, "");
}
