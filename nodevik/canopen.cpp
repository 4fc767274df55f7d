#include "nodevik/canopen.h"

#include <time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>

#include "nodevik/arch.h"
#include "nodevik/tpdoindex.h"
#include "nodevik/util/assertion.h"

namespace {

constexpr unsigned int fatal_errors = 1;
constexpr unsigned int show_frames = 4;
constexpr unsigned int trace_guarding = 8;

constexpr unsigned int clear_counters = 1;
constexpr unsigned int print_counters = 2;

constexpr unsigned int function_code_mask = 0x780;
constexpr unsigned int node_mask = 0x7F;
constexpr unsigned int nmt_cobid = 0x000;
constexpr unsigned int sync_cobid = 0x080;
constexpr unsigned int guarding_cobid = 0x700;

constexpr unsigned int max_frame_length = 8;
constexpr unsigned int data_frame = 0;
constexpr unsigned int remote_request = 2;

constexpr unsigned char nmt_start = 0x01;
constexpr unsigned char nmt_stop = 0x02;
constexpr unsigned char nmt_preoperational = 0x80;
constexpr unsigned char nmt_reset_node = 0x81;
constexpr unsigned char nmt_reset_communication = 0x82;

constexpr unsigned int poll_pause_us = 100;

// What the master shows when it is new: every kind of frame that has a bit.
constexpr uint32_t all_types = D_NMT | D_TPDO | D_RPDO | D_SDO | D_SYNC | D_HEARTBEAT;

// Whether a frame is one of the four TPDOs that a node has by default: 0x180, 0x280, 0x380 or 0x480.
bool is_tpdo(unsigned int cobid) {
    const unsigned int code = cobid & function_code_mask;
    return code == 0x180 || code == 0x280 || code == 0x380 || code == 0x480;
}

// The monotonic clock in microseconds, modulo 2^32.
unsigned int now_us() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<unsigned int>(now.tv_sec) * 1000000U + static_cast<unsigned int>(now.tv_nsec / 1000);
}

// A node's state, as it answers to guarding (CiA 301, 7.2.8.3.2.1).
struct guarded_state_text {
    int state;
    const char* text;
};

constexpr guarded_state_text guarded_states[] = {
    {4, "state Stopped"},
    {5, "state Operational"},
    {127, "state Pre-Operational"},
};

// The entries of a list that are used.
std::span<PDO* const> entries(const std::unique_ptr<PDO*[]>& list, int count) {
    return {list.get(), static_cast<std::size_t>(count)};
}

}  // namespace

CCANopen::CCANopen()
    : RPDOlist(std::make_unique<PDO*[]>(list_size)),
      TPDOlist(std::make_unique<PDO*[]>(list_size)),
      tpdo_index(std::make_unique<TpdoIndex>()) {
    CDecoder::set_typefilter(all_types);
}

CCANopen::~CCANopen() = default;

void CCANopen::set_debug(unsigned int d) {
    can_debug = d;
    if (canDriver != nullptr && (d & show_frames) != 0) {
        canDriver->set_debug(canDriver->get_debug() | show_frames);
    }
}

void CCANopen::load_driver(CANdriver& driver) {
    // Through a volatile pointer, because compilers take it for granted that a reference is not null.
    CANdriver* volatile address = &driver;
    NODEVIK_ASSERT_AS("nodevik/canopen", address != nullptr, "&driver != __null");
    canDriver = &driver;
    if ((can_debug & show_frames) != 0) {
        canDriver->set_debug(canDriver->get_debug() | show_frames);
    }
}

int CCANopen::add_rpdo(PDO& pdo) {
    return add_pdo(pdo, RPDOlist.get(), RPDOcount, rlistSize, "RPDO");
}

int CCANopen::add_tpdo(PDO& pdo) {
    const int result = add_pdo(pdo, TPDOlist.get(), TPDOcount, tlistSize, "TPDO");
    if (result == 0) {
        tpdo_index->add(pdo);
    }
    return result;
}

int CCANopen::add_pdo(PDO& pdo, PDO** list, int& count, int size, const char* kind) {
    for (int i = 0; i < count; ++i) {
        if (list[i]->get_cobid() == pdo.get_cobid()) {
            std::printf("CCANopen::add%s COBID 0x%03x has already been added to list\n", kind,
                        pdo.get_cobid());
            if ((can_debug & fatal_errors) != 0) {
                std::exit(1);
            }
            return -1;
        }
    }
    if (count >= size) {
        std::printf("List full, Increase %s list size\n", kind);
        if ((can_debug & fatal_errors) != 0) {
            std::exit(1);
        }
        return -1;
    }
    list[count] = &pdo;
    ++count;
    return 0;
}

void CCANopen::show_nmt(bool enable) {
    switch_type(D_NMT, enable);
}

void CCANopen::show_tpdo(bool enable) {
    switch_type(D_TPDO, enable);
}

void CCANopen::show_rpdo(bool enable) {
    switch_type(D_RPDO, enable);
}

void CCANopen::show_sdo(bool enable) {
    switch_type(D_SDO, enable);
}

void CCANopen::show_sync(bool enable) {
    switch_type(D_SYNC, enable);
}

void CCANopen::show_nodeguard(bool enable) {
    switch_type(D_HEARTBEAT, enable);
}

int CCANopen::read_all_messages() {
    bus_frame received;
    int result = 0;
    tpdo_index->start_pass();
    while ((result = read_frame(received)) == 0) {
        handle_frame(received);
    }
    return result == 1 ? 0 : -1;
}

int CCANopen::read_all_until_duplicate_tpdo() {
    for (PDO* pdo : entries(TPDOlist, TPDOcount)) {
        pdo->PDO_updated = 0;
    }
    tpdo_index->start_pass();
    bus_frame received;
    if (!take_first_frame(received)) {
        return 0;
    }
    do {
        if (!is_tpdo(received.cobid)) {
            handle_frame(received);
        } else if (!update_cycle(received)) {
            return 1;
        }
    } while (read_frame(received) == 0);
    return 0;
}

// The frame held back by the call before, or else the next one of the driver; false when there is none.
bool CCANopen::take_first_frame(bus_frame& received) {
    if (duplicate_TDPO.cobid == 0) {
        return read_frame(received) == 0;
    }
    received.cobid = duplicate_TDPO.cobid;
    received.length = duplicate_TDPO.len;
    std::memcpy(received.data.data(), &duplicate_TDPO.data, received.data.size());
    duplicate_TDPO.cobid = 0;
    return true;
}

// Takes a TPDO into every list entry with its COB-ID; false when it repeats within the cycle and is held
// back.
bool CCANopen::update_cycle(const bus_frame& received) {
    int position = TpdoIndex::no_position;
    while ((position = tpdo_index->find_next(received.cobid, position)) != TpdoIndex::no_position) {
        PDO& pdo = (*tpdo_index)[position];
        if (pdo.PDO_updated != 0) {
            std::memcpy(&duplicate_TDPO.data, received.data.data(), received.data.size());
            duplicate_TDPO.len = received.length;
            duplicate_TDPO.cobid = received.cobid;
            return false;
        }
        pdo.create_tpdo(received.data.data());
        ++pdo.PDO_updated;
    }
    if ((can_debug & show_frames) != 0) {
        // Printed for mapped TPDOs too: readers of the trace know the line as "a TPDO has come in this
        // cycle".
        std::printf("Received unmapped TPDO COBID=0x%03x \n", received.cobid);
    }
    return true;
}

int CCANopen::all_tdpos_updated(unsigned int command) {
    int missing = 0;
    for (PDO* entry : entries(TPDOlist, TPDOcount)) {
        PDO& pdo = *entry;
        if ((command & print_counters) != 0) {
            std::printf("PDO %#x has been updated %u times since last reset\n", pdo.get_cobid(),
                        pdo.PDO_updated);
        }
        if (pdo.PDO_updated == 0) {
            ++missing;
        } else if ((command & clear_counters) != 0) {
            pdo.PDO_updated = 0;
        }
    }
    return missing;
}

void CCANopen::send_all_rpdos() {
    for (PDO* entry : entries(RPDOlist, RPDOcount)) {
        PDO& pdo = *entry;
        unsigned char data[max_frame_length];
        pdo.create_rpdo();
        pdo.copy_pdo_data(data);
        canDriver->write(pdo.get_cobid(), pdo.get_len(), data, data_frame);
    }
}

void CCANopen::send_only_changed_rpdos() {
    for (PDO* entry : entries(RPDOlist, RPDOcount)) {
        PDO& pdo = *entry;
        pdo.create_rpdo();
        if (pdo.pdo_changed()) {
            unsigned char data[max_frame_length];
            pdo.copy_pdo_data(data);
            canDriver->write(pdo.get_cobid(), pdo.get_len(), data, data_frame);
        }
    }
}

void CCANopen::send_pdo(PDO& pdo) {
    pdo.create_rpdo();
    // Eight bytes and not get_len(): a PDO sent by itself always fills its frame.
    canDriver->write(pdo.get_cobid(), max_frame_length, pdo.get_address(0), data_frame);
}

void CCANopen::send_frame(unsigned int cobid, unsigned int len, unsigned long long data) {
    if (len > max_frame_length) {
        std::puts("CCANopen::send_frame Parameter value 'len' too big, max is eight, packet is not sent");
        return;
    }
    unsigned char bytes[max_frame_length];
    std::memcpy(bytes, &data, sizeof bytes);
    canDriver->write(cobid, len, bytes, data_frame);
}

void CCANopen::send_frame(unsigned int cobid, char* data) {
    if (data == nullptr) {
        std::puts("CCANopen::send_frame  Parameter data has a Null Pointer, packet is not sent");
        return;
    }
    const std::size_t characters = std::strlen(data);
    if (characters >= max_frame_length) {
        std::puts("CCANopen::send_frame  Parameter value 'len' too big, max is eight, packet is not sent");
        return;
    }
    unsigned char bytes[max_frame_length + 1] = {};
    std::copy_n(data, characters, bytes);
    canDriver->write(cobid, static_cast<unsigned int>(characters) + 1, bytes, data_frame);
}

void CCANopen::sync() {
    unsigned char data[max_frame_length] = {};
    canDriver->write(sync_cobid, 0, data, data_frame);
}

void CCANopen::set_preoperational(unsigned char ID) const {
    send_nmt(nmt_preoperational, ID);
}

void CCANopen::start_node(unsigned char ID) const {
    send_nmt(nmt_start, ID);
}

void CCANopen::stop_node(unsigned char ID) const {
    send_nmt(nmt_stop, ID);
}

void CCANopen::reset_node(unsigned char ID) const {
    send_nmt(nmt_reset_node, ID);
}

void CCANopen::reset_communication(unsigned char ID) const {
    send_nmt(nmt_reset_communication, ID);
}

void CCANopen::send_nmt(unsigned char command, unsigned char ID) const {
    unsigned char data[max_frame_length] = {command, ID};
    canDriver->write(nmt_cobid, 2, data, data_frame);
}

int CCANopen::nodeguard(unsigned char ID, unsigned int timeout) {
    const unsigned int cobid = guarding_cobid + (ID & node_mask);
    unsigned char no_data[max_frame_length] = {};
    canDriver->write(cobid, 0, no_data, remote_request);
    reset_timedelay(timeout * 1000U);
    do {
        u_sleep(poll_pause_us);
        bus_frame received;
        while (read_frame(received) == 0) {
            if (received.cobid == cobid) {
                return guarded_state(received);
            }
        }
    } while (timedelay() != 0);
    if ((can_debug & trace_guarding) != 0) {
        std::printf("NodeGuard: No Response from node %u!\n", ID);
    }
    return -1;
}

// The state in a guarding answer without its toggle bit, 0 for one that the master does not know.
int CCANopen::guarded_state(const bus_frame& received) const {
    int state = 0;
    const char* text = "Unknown Nodeguard response";
    for (const guarded_state_text& known : guarded_states) {
        if (known.state == (received.data[0] & 0x7F)) {
            state = known.state;
            text = known.text;
        }
    }
    if ((can_debug & trace_guarding) != 0) {
        std::printf("NodeGuard: node %u %s\n", received.cobid & node_mask, text);
    }
    return state;
}

// Treats a single frame that nobody waits for: a TPDO goes into its PDO. Returns 1 for a TPDO, else 0.
int CCANopen::messagehandler(unsigned int cobid, unsigned int length, unsigned char* candata) {
    bus_frame received = {.cobid = cobid, .length = length};
    std::memcpy(received.data.data(), candata, received.data.size());
    tpdo_index->start_pass();
    return handle_frame(received);
}

// The same for one of the frames of a pass of the index.
int CCANopen::handle_frame(const bus_frame& received) {
    const bool tpdo = is_tpdo(received.cobid);
    if (tpdo) {
        const int position = tpdo_index->find(received.cobid);
        if (position != TpdoIndex::no_position) {
            PDO& pdo = (*tpdo_index)[position];
            pdo.create_tpdo(received.data.data());
            ++pdo.PDO_updated;
        }
    }
    if ((can_debug & show_frames) != 0) {
        show_frame(received.cobid, received.length, received.data.data());
    }
    return tpdo ? 1 : 0;
}

// Decodes a frame into the pending line, which may hold what the driver wrote about it, and hands the line to
// the callback, which prints it unless the program has registered another.
void CCANopen::show_frame(unsigned int cobid, unsigned int length, const unsigned char* candata) {
    if (decode_message(cobid, static_cast<uint8_t>(length), candata) != 0) {
        clear_message();
    }
    if (get_message()[0] != '\0') {
        m_CallbackFunc(get_message());
        clear_message();
    }
}

// Starts the time-out clock, which wraps every 2^32 microseconds (71.6 minutes). There is no correction for
// the wrap.
void CCANopen::reset_timedelay(unsigned int delay) {
    newtime = now_us() + delay;
}

// 1 while the time-out runs, 0 once the time has come.
int CCANopen::timedelay() {
    return newtime > now_us() ? 1 : 0;
}

// The driver's next frame, with the bytes past its length zero.
int CCANopen::read_frame(bus_frame& received) {
    received.data.fill(0);
    return canDriver->read(received.cobid, received.length, received.data.data());
}
