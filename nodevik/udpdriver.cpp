#include "nodevik/udpdriver.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr std::size_t identifier_at = 0;
constexpr std::size_t length_at = 4;
constexpr std::size_t data_at = 8;
constexpr std::size_t data_size = 8;
constexpr int datagram_size = 16;
constexpr unsigned stop_length = 2;

uint32_t load_le32(const unsigned char* bytes) {
    return static_cast<uint32_t>(bytes[0]) | static_cast<uint32_t>(bytes[1]) << 8 |
           static_cast<uint32_t>(bytes[2]) << 16 | static_cast<uint32_t>(bytes[3]) << 24;
}

void store_le32(unsigned char* bytes, uint32_t value) {
    for (int i = 0; i < 4; ++i) {
        bytes[i] = static_cast<unsigned char>(value >> (8 * i));
    }
}

// The endpoint moves plain characters.
char* characters(unsigned char* bytes) {
    return reinterpret_cast<char*>(bytes);
}

// Frames can only pass through an open driver: anything else is a mistake in the caller's order.
void require_open(bool is_open, const char* message) {
    if (!is_open) {
        std::puts(message);
        std::exit(1);
    }
}

}  // namespace

udpDriver::~udpDriver() {
    if (isopen) {
        prepare_stop();
        udpDriver::write(0, stop_length, &candata[0], 0);
    }
}

int udpDriver::open(unsigned speed, unsigned mode, unsigned /*port*/) {
    frame_type = mode;
    if (mode == 0) {
        std::puts("Trying to open CAN channel with 11-bit mode");
    } else if (mode == 1) {
        std::puts("Trying to open CAN channel with 28-bit mode");
    }
    u.start_server(speed, nullptr);
    u.open(nullptr);
    isopen = 1;
    return 0;
}

int udpDriver::open(unsigned int speed, unsigned int mode, unsigned int port, bool /*silent*/) {
    return open(speed, mode, port);
}

void udpDriver::close() {
    prepare_stop();
    write(0, stop_length, &candata[0], 0);
    isopen = 0;
}

// NMT "stop remote node" for every node (CiA 301, 7.2.8.3.1.2), so that no output keeps its last command.
void udpDriver::prepare_stop() {
    std::fill(std::begin(candata), std::end(candata), static_cast<unsigned char>(0));
    candata[0] = 2;
}

int udpDriver::read(unsigned int& ID, unsigned int& length, unsigned char* data) {
    require_open(isopen, "\n\nRead: CAN connection is not Open !\n");
    const int count = u.server_receive(static_cast<int>(netdata.size()) - 1, characters(netdata.data()));
    ID = load_le32(&netdata[identifier_at]) & 0x7FF;
    length = load_le32(&netdata[length_at]) & 0x1F;
    std::copy_n(&netdata[data_at], data_size, data);
    if (count == 0) {
        return 1;
    }
    return count > 0 ? 0 : count;
}

int udpDriver::write(unsigned int cobid, unsigned int length, unsigned char* data, unsigned int /*flags*/) {
    require_open(isopen, "\n\nWrite: CAN connection is not Open !\n");
    store_le32(&netdata[identifier_at], cobid);
    store_le32(&netdata[length_at], length);
    std::copy_n(data, data_size, &netdata[data_at]);
    if (u.client_send(datagram_size, characters(netdata.data())) < 0) {
        std::puts("udpDriver: Write Error !");
        return -1;
    }
    return 0;
}

int udpDriver::read_wait(unsigned int& /*ID*/, unsigned int& /*length*/, unsigned char* data) {
    require_open(isopen, "\n\nReadWait: CAN connection is not Open !\n");
    std::fill_n(data, data_size, static_cast<unsigned char>(0));
    return 0;
}

int udpDriver::read_error_counters(unsigned int& /*txErr*/, unsigned int& /*rxErr*/,
                                   unsigned int& /*ovErr*/) {
    return 0;
}

void udpDriver::reset_rx_errors() {}

void udpDriver::reset_tx_errors() {}
