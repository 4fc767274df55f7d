// The SDO client of the CANopen master, and the PDO set-up of a node, which stands on it.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "nodevik/arch.h"
#include "nodevik/canopen.h"

namespace {

constexpr unsigned int fatal_errors = 1;
constexpr unsigned int report_silence = 2;

constexpr unsigned int node_mask = 0x7F;
constexpr unsigned int function_code_mask = 0x780;
constexpr unsigned int request_cobid = 0x600;
constexpr unsigned int answer_cobid = 0x580;

constexpr int max_attempts = 4;
constexpr unsigned int attempt_us = 20000;
constexpr unsigned int poll_pause_us = 100;

// An answer to a segment is usually there at once: so many polls only yield the processor before they pause.
constexpr int eager_polls = 1000;

constexpr int red = 1;
constexpr int yellow = 3;

// Command specifiers, byte 0 of requests and answers (CiA 301, 7.2.4.3). The upper three bits tell what a
// frame is.
constexpr unsigned char command_mask = 0xE0;
constexpr unsigned char upload_mask = 0xE3;
constexpr unsigned char size_indicated = 0x01;
constexpr unsigned char expedited = 0x02;
constexpr unsigned char initiate_upload = 0x40;
constexpr unsigned char initiate_download = 0x21;  // segmented, size indicated
constexpr unsigned char upload_segment = 0x60;
constexpr unsigned char abort_transfer = 0x80;
constexpr unsigned char answer_upload = 0x40;
constexpr unsigned char answer_upload_expedited = 0x43;
constexpr unsigned char answer_upload_expedited_unsized = 0x42;
constexpr unsigned char answer_upload_segmented = 0x41;
constexpr unsigned char answer_upload_segmented_unsized = 0x40;
constexpr unsigned char answer_download = 0x60;
constexpr unsigned char answer_upload_segment = 0x00;
constexpr unsigned char answer_download_segment = 0x20;
constexpr unsigned char toggle_bit = 0x10;
constexpr unsigned char last_segment = 0x01;
constexpr unsigned int segment_bytes = 7;
constexpr unsigned int expedited_bytes = 4;

// The longest object that a node may send without having announced its size: one that never marks the last
// segment must come to an end.
constexpr unsigned int most_unannounced_bytes = 1024 * 1024;

// Abort codes that the client sends (CiA 301, 7.2.4.3.17).
constexpr unsigned int abort_toggle = 0x05030000;
constexpr unsigned int abort_timed_out = 0x05040000;
constexpr unsigned int abort_unknown_command = 0x05040001;
constexpr unsigned int abort_out_of_memory = 0x05040005;

constexpr unsigned int pdo_numbers = 512;
constexpr unsigned int pdo_disabled = 0x80000000;
constexpr unsigned int cobid_mask = 0x7FF;
constexpr int max_mappings = 64;

template <typename Byte>
unsigned int load_le32(const Byte* from) {
    unsigned int value = 0;
    for (int i = 3; i >= 0; --i) {
        value = value << 8 | static_cast<unsigned char>(from[i]);
    }
    return value;
}

void store_le32(unsigned char* to, unsigned int value) {
    for (int i = 0; i < 4; ++i) {
        to[i] = static_cast<unsigned char>(value >> (8 * i));
    }
}

// The low `bytes` bytes of a value; all of it for any number other than 1 to 3.
unsigned int cut(unsigned int value, unsigned int bytes) {
    switch (bytes) {
        case 1:
            return value & 0xFF;
        case 2:
            return value & 0xFFFF;
        case 3:
            return value & 0xFFFFFF;
        default:
            return value;
    }
}

// Number of data bytes in an expedited answer or request that indicates its size.
unsigned int expedited_size(unsigned char command) {
    return expedited_bytes - ((command >> 2) & 3U);
}

// The command of an expedited download of 1 to 4 bytes.
unsigned char expedited_download(unsigned int bytes) {
    return static_cast<unsigned char>(0x23U | (expedited_bytes - bytes) << 2);
}

// Whether a COB-ID entry of the object dictionary is that of a PDO in use.
bool is_active(unsigned int cobid) {
    return (cobid & pdo_disabled) == 0 && (cobid & node_mask) != 0;
}

}  // namespace

// One transfer: what it is about, and the answer that the node gave last.
struct CCANopen::sdo_transfer {
    sdo_transfer(unsigned int ID, unsigned short object_index, unsigned char object_subindex, bool is_upload,
                 bool takes_any_size)
        : node(ID & node_mask),
          index(object_index),
          subindex(object_subindex),
          upload(is_upload),
          any_size(takes_any_size) {}

    unsigned int node;
    unsigned short index;
    unsigned char subindex;
    bool upload;
    bool any_size;
    bus_frame answer = {};

    // A request to the node, which names the object.
    bus_frame request(unsigned char command, unsigned int data) const {
        bus_frame made = segment(command);
        made.data[1] = static_cast<unsigned char>(index);
        made.data[2] = static_cast<unsigned char>(index >> 8);
        made.data[3] = subindex;
        store_le32(made.data.data() + 4, data);
        return made;
    }

    // A request to the node without an object, for a segment.
    bus_frame segment(unsigned char command) const {
        bus_frame made;
        made.cobid = request_cobid + node;
        made.length = 8;
        made.data[0] = command;
        return made;
    }

    // Whether a frame answers a request about this object. Which node it comes from is not looked at.
    bool is_answered_by(const bus_frame& received) const {
        return (received.cobid & function_code_mask) == answer_cobid &&
               (received.data[1] | received.data[2] << 8) == index && received.data[3] == subindex;
    }

    // Whether the answer to the upload request leaves the data to segments.
    bool starts_segments() const { return (answer.data[0] & expedited) == 0; }

    // Whether the answer to the upload request tells the object's size.
    bool indicates_size() const { return (answer.data[0] & size_indicated) != 0; }

    // The number of bytes that the answer to the upload request holds or announces. Without an indicated size
    // an expedited answer is taken whole, and one that starts segments announces nothing.
    unsigned int size() const {
        if (starts_segments()) {
            return indicates_size() ? load_le32(answer.data.data() + 4) : 0;
        }
        return indicates_size() ? expedited_size(answer.data[0]) : expedited_bytes;
    }

    // The number of bytes that the segments may bring, by the answer to the upload request.
    unsigned int most_segment_bytes() const { return indicates_size() ? size() : most_unannounced_bytes; }
};

CCANopen::pdo_objects CCANopen::tpdo_objects(unsigned int number) {
    const unsigned int offset = number % pdo_numbers;
    return {static_cast<unsigned short>(0x1800 + offset), static_cast<unsigned short>(0x1A00 + offset)};
}

CCANopen::pdo_objects CCANopen::rpdo_objects(unsigned int number) {
    const unsigned int offset = number % pdo_numbers;
    return {static_cast<unsigned short>(0x1400 + offset), static_cast<unsigned short>(0x1600 + offset)};
}

// Sends a request up to four times, 20 ms apart, until `react` calls a received frame the end of the wait.
// Frames that it calls foreign are treated as between transfers. False when no attempt was answered. What
// waits in the queue before the first attempt is discarded, if the program wants that. An eager request, one
// for a segment, goes out once and is awaited as long: a node that has served it would take a second copy for
// a toggle bit that was not alternated, and give the transfer up (CiA 301, 7.2.4.3).
template <typename Reaction>
bool CCANopen::sdo_exchange(const bus_frame& request, sdo_pace pace, Reaction react) {
    const bool once = pace == sdo_pace::eager;
    if (discard_late_answers) {
        read_all_messages();
    }
    for (int attempt = 0; attempt < (once ? 1 : max_attempts); ++attempt) {
        bus_frame sent = request;
        canDriver->write(sent.cobid, sent.length, sent.data.data(), 0);
        reset_timedelay(once ? max_attempts * attempt_us : attempt_us);
        int polls_without_pause = once ? eager_polls : 0;
        do {
            u_sleep(polls_without_pause > 0 ? 0 : poll_pause_us);
            polls_without_pause = std::max(polls_without_pause - 1, 0);
            bus_frame received;
            while (read_frame(received) == 0) {
                switch (react(received)) {
                    case sdo_reaction::foreign:
                        messagehandler(received.cobid, received.length, received.data.data());
                        break;
                    case sdo_reaction::ignored:
                        break;
                    case sdo_reaction::finished:
                        return true;
                }
            }
        } while (timedelay() != 0);
    }
    return false;
}

// Prints an error in colour; `text` tells what happened, and the object follows.
void CCANopen::sdo_print(int color, const char* text, const sdo_transfer& transfer, unsigned int node) {
    set_fg_color(static_cast<unsigned char>(color));
    std::printf("%s: nodeID=0x%02x Index=0x%04x SubIndex=0x%02x\n", text, node, transfer.index,
                transfer.subindex);
    modesoff();
}

// Reports an abort by the node, with its code in words.
void CCANopen::sdo_aborted(const sdo_transfer& transfer, const bus_frame& answer) {
    sdo_print(red, "Received SDO abort code", transfer, answer.cobid & node_mask);
    show_frame(answer.cobid, answer.length, answer.data.data());
    if ((can_debug & fatal_errors) != 0) {
        std::exit(1);
    }
}

void CCANopen::sdo_unknown(const sdo_transfer& transfer, const bus_frame& answer) {
    sdo_print(yellow, transfer.upload ? "Unknown SDO_read response" : "Unknown SDO_write response", transfer,
              answer.cobid & node_mask);
}

// Gives up a request that the node does not answer.
CCANopen::sdo_outcome CCANopen::sdo_silent(const sdo_transfer& transfer) {
    if ((can_debug & report_silence) != 0) {
        sdo_print(yellow, "Error: No SDO Response", transfer, transfer.node);
    }
    if ((can_debug & fatal_errors) != 0) {
        std::exit(1);
    }
    return sdo_outcome::silent;
}

// Tells the node that the client gives the transfer up.
void CCANopen::sdo_send_abort(const sdo_transfer& transfer, unsigned int code) {
    bus_frame sent = transfer.request(abort_transfer, code);
    canDriver->write(sent.cobid, sent.length, sent.data.data(), 0);
}

// Ends a transfer from this side.
CCANopen::sdo_outcome CCANopen::sdo_refuse(const sdo_transfer& transfer, unsigned int code) {
    sdo_send_abort(transfer, code);
    return sdo_outcome::refused;
}

// Whether an answer to the upload request is one. Segments of unannounced size are only followed when an
// object of any size is asked for: to sdo_read their start is an unknown answer.
bool CCANopen::starts_upload(const sdo_transfer& transfer, const bus_frame& answer) {
    switch (answer.data[0] & upload_mask) {
        case answer_upload_expedited:
        case answer_upload_expedited_unsized:
        case answer_upload_segmented:
            return true;
        case answer_upload_segmented_unsized:
            return transfer.any_size;
        default:
            return false;
    }
}

// Asks for an object. After `answered` the answer is expedited or starts segments.
CCANopen::sdo_outcome CCANopen::sdo_initiate_upload(sdo_transfer& transfer) {
    sdo_outcome outcome = sdo_outcome::silent;
    const bus_frame request = transfer.request(initiate_upload, 0);
    const bool ended = sdo_exchange(request, sdo_pace::steady, [&](const bus_frame& received) {
        if (!transfer.is_answered_by(received)) {
            return sdo_reaction::foreign;
        }
        if (starts_upload(transfer, received)) {
            outcome = sdo_outcome::answered;
        } else if ((received.data[0] & command_mask) == abort_transfer) {
            sdo_aborted(transfer, received);
            outcome = sdo_outcome::aborted;
        } else {
            sdo_unknown(transfer, received);
            return sdo_reaction::ignored;
        }
        transfer.answer = received;
        return sdo_reaction::finished;
    });
    return ended ? outcome : sdo_silent(transfer);
}

// Offers an object: whole in an expedited request, or as the announcement of its segments.
CCANopen::sdo_outcome CCANopen::sdo_initiate_download(sdo_transfer& transfer, unsigned char command,
                                                      unsigned int data) {
    sdo_outcome outcome = sdo_outcome::silent;
    const bus_frame request = transfer.request(command, data);
    const bool ended = sdo_exchange(request, sdo_pace::steady, [&](const bus_frame& received) {
        if (!transfer.is_answered_by(received)) {
            return sdo_reaction::foreign;
        }
        const unsigned char answer = received.data[0] & command_mask;
        if (answer == answer_download) {
            outcome = sdo_outcome::answered;
        } else if (answer == abort_transfer) {
            sdo_aborted(transfer, received);
            outcome = sdo_outcome::aborted;
        } else {
            sdo_unknown(transfer, received);
            outcome = sdo_outcome::unknown;
        }
        transfer.answer = received;
        return sdo_reaction::finished;
    });
    return ended ? outcome : sdo_silent(transfer);
}

// Moves one segment. On entry `transfer.answer` is the answer before this one, which tells the COB-ID that
// the node answers on. CiA 301 lets the answer carry the toggle bit of its request. One that is byte for byte
// the answer before is a late or doubled copy of it and is passed over; only if nothing better comes does it
// count as a toggle bit that was not alternated. Any other answer with the wrong toggle bit ends the transfer
// at once. The node, which has the transfer under way, is told of every end that is not its own.
CCANopen::sdo_outcome CCANopen::sdo_segment(sdo_transfer& transfer, const bus_frame& request) {
    const unsigned char segment_answer = transfer.upload ? answer_upload_segment : answer_download_segment;
    const unsigned char first_answer = transfer.upload ? answer_upload : answer_download;
    const unsigned char toggle = request.data[0] & toggle_bit;
    bool wrong_toggle = false;
    bool unknown_answer = false;
    sdo_outcome outcome = sdo_outcome::silent;
    sdo_exchange(request, sdo_pace::eager, [&](const bus_frame& received) {
        const unsigned char answer = received.data[0] & command_mask;
        if (received.cobid == transfer.answer.cobid && answer == segment_answer) {
            if ((received.data[0] & toggle_bit) == toggle) {
                transfer.answer = received;
                outcome = sdo_outcome::answered;
                return sdo_reaction::finished;
            }
            wrong_toggle = true;
            return received.data == transfer.answer.data ? sdo_reaction::ignored : sdo_reaction::finished;
        }
        if (received.cobid != transfer.answer.cobid || !transfer.is_answered_by(received)) {
            return sdo_reaction::foreign;
        }
        if (answer == abort_transfer) {
            sdo_aborted(transfer, received);
            transfer.answer = received;
            outcome = sdo_outcome::aborted;
            return sdo_reaction::finished;
        }
        if (answer == first_answer) {
            return sdo_reaction::ignored;
        }
        sdo_unknown(transfer, received);
        unknown_answer = true;
        if (transfer.upload) {
            return sdo_reaction::ignored;
        }
        outcome = sdo_outcome::unknown;
        return sdo_reaction::finished;
    });
    if (outcome == sdo_outcome::answered || outcome == sdo_outcome::aborted) {
        return outcome;
    }
    if (wrong_toggle && outcome == sdo_outcome::silent) {
        return sdo_refuse(transfer, abort_toggle);
    }
    sdo_send_abort(transfer, unknown_answer ? abort_unknown_command : abort_timed_out);
    return outcome == sdo_outcome::silent ? sdo_silent(transfer) : outcome;
}

// Fetches all segments, of which the first `room` bytes are kept. More than `most` bytes are refused with an
// abort, and so is a segment that neither brings data nor is the last: such ones could go on for ever.
CCANopen::sdo_outcome CCANopen::sdo_upload_segments(sdo_transfer& transfer, char* data, unsigned int room,
                                                    unsigned int most, unsigned int& received) {
    unsigned char toggle = 0;
    bool last = false;
    do {
        const sdo_outcome outcome = sdo_segment(transfer, transfer.segment(upload_segment | toggle));
        if (outcome != sdo_outcome::answered) {
            return outcome;
        }
        const unsigned int size = segment_bytes - ((transfer.answer.data[0] >> 1) & 7U);
        last = (transfer.answer.data[0] & last_segment) != 0;
        if (size == 0 && !last) {
            return sdo_refuse(transfer, abort_unknown_command);
        }
        if (size > most - received) {
            return sdo_refuse(transfer, abort_out_of_memory);
        }
        if (received < room) {
            std::copy_n(transfer.answer.data.begin() + 1, std::min(size, room - received), data + received);
        }
        received += size;
        toggle ^= toggle_bit;
    } while (!last);
    return sdo_outcome::answered;
}

// Sends all segments; an empty object is one last segment without data.
CCANopen::sdo_outcome CCANopen::sdo_download_segments(sdo_transfer& transfer, unsigned int len,
                                                      const char* data) {
    unsigned char toggle = 0;
    unsigned int sent = 0;
    do {
        const unsigned int size = std::min(len - sent, segment_bytes);
        const unsigned char last = len - sent == size ? last_segment : 0;
        bus_frame request =
            transfer.segment(static_cast<unsigned char>(toggle | (segment_bytes - size) << 1 | last));
        std::copy_n(data + sent, size, request.data.begin() + 1);
        const sdo_outcome outcome = sdo_segment(transfer, request);
        if (outcome != sdo_outcome::answered) {
            return outcome;
        }
        sent += size;
        toggle ^= toggle_bit;
    } while (sent < len);
    return sdo_outcome::answered;
}

// The value of an expedited answer.
unsigned int CCANopen::sdo_expedited_value(const bus_frame& answer) {
    const unsigned char command = answer.data[0];
    const unsigned int value = load_le32(answer.data.data() + 4);
    if ((command & upload_mask) == answer_upload_expedited) {
        return cut(value, expedited_size(command));
    }
    // Without an indicated size the node puts it where the data are, and the data are cut by themselves.
    std::printf("sdo_read() - e=1,s=0 - sdo_length = %d - scs=%d\n", static_cast<int>(value), command >> 5);
    return cut(value, value);
}

void CCANopen::discard_late_sdo_answers(bool enable) {
    discard_late_answers = enable;
}

int CCANopen::sdo_read(unsigned int ID, unsigned short index, unsigned char subindex, int& data) {
    sdo_transfer transfer(ID, index, subindex, true, false);
    sdo_outcome outcome = sdo_initiate_upload(transfer);
    if (outcome == sdo_outcome::answered) {
        if (!transfer.starts_segments()) {
            data = static_cast<int>(sdo_expedited_value(transfer.answer));
            return 0;
        }
        char first_bytes[expedited_bytes] = {};
        unsigned int received = 0;
        outcome = sdo_upload_segments(transfer, first_bytes, expedited_bytes, transfer.most_segment_bytes(),
                                      received);
        if (outcome == sdo_outcome::answered) {
            data = static_cast<int>(load_le32(first_bytes));
            return 0;
        }
    }
    if (outcome == sdo_outcome::aborted) {
        data = static_cast<int>(load_le32(transfer.answer.data.data() + 4));
    }
    return -1;
}

int CCANopen::sdo_read_segment(unsigned int ID, unsigned short index, unsigned char subindex,
                               unsigned int& len, char* data) {
    sdo_transfer transfer(ID, index, subindex, true, true);
    const unsigned int room = len;
    len = 0;
    sdo_outcome outcome = sdo_initiate_upload(transfer);
    if (outcome == sdo_outcome::answered && transfer.size() > room) {
        outcome = sdo_refuse(transfer, abort_out_of_memory);
    } else if (outcome == sdo_outcome::answered && transfer.starts_segments()) {
        const unsigned int most = std::min(room, transfer.most_segment_bytes());
        outcome = sdo_upload_segments(transfer, data, room, most, len);
    } else if (outcome == sdo_outcome::answered) {
        len = transfer.size();
        std::copy_n(transfer.answer.data.begin() + 4, len, data);
    }
    return outcome == sdo_outcome::answered ? 0 : -1;
}

int CCANopen::sdo_write(unsigned int ID, unsigned short index, unsigned char subindex, unsigned int len,
                        int data) {
    if (len < 1 || len > expedited_bytes) {
        std::printf(
            "CCANopen::SDO_write: nodeID=0x%02x Index=0x%04x SubIndex=0x%02x : Data Lenght must be 1 - 4 \n",
            ID, index, subindex);
        if ((can_debug & fatal_errors) != 0) {
            std::exit(-1);
        }
        return 1;
    }
    sdo_transfer transfer(ID, index, subindex, false, false);
    return write_result(
        sdo_initiate_download(transfer, expedited_download(len), cut(static_cast<unsigned int>(data), len)));
}

int CCANopen::sdo_write_segment(unsigned int ID, unsigned short index, unsigned char subindex,
                                unsigned int len, char* data) {
    sdo_transfer transfer(ID, index, subindex, false, true);
    sdo_outcome outcome = sdo_initiate_download(transfer, initiate_download, len);
    if (outcome == sdo_outcome::answered) {
        outcome = sdo_download_segments(transfer, len, data);
    }
    return write_result(outcome);
}

// The result of writing an object.
int CCANopen::write_result(sdo_outcome outcome) {
    switch (outcome) {
        case sdo_outcome::answered:
            return 0;
        case sdo_outcome::unknown:
            return 1;
        case sdo_outcome::aborted:
            return -2;
        default:
            return -1;
    }
}

void CCANopen::save_tpdo_mappings(unsigned int nodeid, unsigned int PDO_number, PDO& pdo) {
    save_mappings(tpdo_objects(PDO_number), nodeid, pdo);
}

void CCANopen::save_rpdo_mappings(unsigned int nodeid, unsigned int PDO_number, PDO& pdo) {
    save_mappings(rpdo_objects(PDO_number), nodeid, pdo);
}

void CCANopen::load_tpdo_mappings(unsigned int nodeid, unsigned int PDO_number, PDO& pdo) {
    load_mappings(tpdo_objects(PDO_number), nodeid, PDO_number, pdo);
}

void CCANopen::load_rpdo_mappings(unsigned int nodeid, unsigned int PDO_number, PDO& pdo) {
    load_mappings(rpdo_objects(PDO_number), nodeid, PDO_number, pdo);
}

void CCANopen::show_node_tpdo_cobids(unsigned char nodeid) {
    show_node_cobids(nodeid, tpdo_objects, "TPDO");
}

void CCANopen::show_node_rpdo_cobids(unsigned char nodeid) {
    show_node_cobids(nodeid, rpdo_objects, "RPDO");
}

void CCANopen::save_mappings(pdo_objects objects, unsigned int nodeid, PDO& pdo) {
    const PDO_object_information& information = pdo.obj_info;
    sdo_write(nodeid, objects.communication, 1, 4, static_cast<int>(pdo.get_cobid() | pdo_disabled));
    sdo_write(nodeid, objects.mapping, 0, 4, 0);
    for (int i = 0; i < (information.mappingcount & (max_mappings - 1)); ++i) {
        sdo_write(nodeid, objects.mapping, static_cast<unsigned char>(i + 1), 4, information.pdo_mappings[i]);
    }
    // Four bytes, although the entry is an UNSIGNED8: the nodes in use take it.
    sdo_write(nodeid, objects.mapping, 0, 4, information.mappingcount);
    sdo_write(nodeid, objects.communication, 2, 1, information.transmission_type);
    sdo_write(nodeid, objects.communication, 1, 4, static_cast<int>(pdo.get_cobid()));
}

void CCANopen::load_mappings(pdo_objects objects, unsigned int nodeid, unsigned int PDO_number, PDO& pdo) {
    PDO_object_information& information = pdo.obj_info;
    int value = 0;
    if (sdo_read(nodeid, objects.communication, 1, value) != 0) {
        return;
    }
    const unsigned int cobid = static_cast<unsigned int>(value);
    if (!is_active(cobid)) {
        std::printf("CCANopen::get_pdo_mappings: PDO number %u is disabled!\n", PDO_number);
        information.mappingcount = 0;
        return;
    }
    pdo.set_cobid(cobid & cobid_mask);
    // An entry that cannot be read leaves no abort code behind in its place.
    information.mappingcount = sdo_read(nodeid, objects.mapping, 0, value) == 0 ? value : 0;
    if (information.mappingcount <= max_mappings) {
        for (int i = 0; i < information.mappingcount; ++i) {
            if (sdo_read(nodeid, objects.mapping, static_cast<unsigned char>(i + 1), value) == 0) {
                information.pdo_mappings[i] = value;
            }
        }
    }
    if (sdo_read(nodeid, objects.communication, 2, value) == 0) {
        information.transmission_type = value;
    }
}

void CCANopen::show_node_cobids(unsigned char nodeid, pdo_objects (*objects)(unsigned int),
                                const char* kind) {
    unsigned int active = 0;
    int value = 0;
    while (active < pdo_numbers && sdo_read(nodeid, objects(active).communication, 1, value) == 0 &&
           is_active(static_cast<unsigned int>(value))) {
        std::printf("NodeID = 0x%03x : %s cobid = 0x%08x\n", nodeid, kind, static_cast<unsigned int>(value));
        ++active;
    }
    std::printf("Number of active %ss is %u\n\n", kind, active);
}
