#include "nodevik/kvaserdriver.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>

#include "nodevik/arch.h"
#include "nodevik/candriverwords.h"

namespace {

/// A speed in bit/s and what stands for it in canSetBusParams().
struct bit_rate {
    unsigned int speed;
    long constant;
};

constexpr std::array<bit_rate, 7> bit_rates = {{
    {1000000, canBITRATE_1M},
    {500000, canBITRATE_500K},
    {250000, canBITRATE_250K},
    {125000, canBITRATE_125K},
    {100000, canBITRATE_100K},
    {62000, canBITRATE_62K},  // 62000 by name, although the rate is 62500 bit/s: 62500 is a plain frequency
    {50000, canBITRATE_50K},
}};

/// What canSetBusParams() takes for a speed in bit/s: a constant, or else the frequency itself.
long bus_rate(unsigned int speed) {
    for (const bit_rate& rate : bit_rates) {
        if (rate.speed == speed) {
            return rate.constant;
        }
    }
    return static_cast<long>(speed);
}

/// The canMSG flags of a frame to be sent, from the flags of CANdriver::write().
unsigned int message_flags(unsigned int write_flags, unsigned int frame_type) {
    const unsigned int width = can_driver::sends_extended(write_flags, frame_type) ? canMSG_EXT : canMSG_STD;
    return (write_flags & can_driver::write_remote) != 0 ? width | canMSG_RTR : width;
}

}  // namespace

KvaserDriver::KvaserDriver() = default;

KvaserDriver::~KvaserDriver() {
    if (isopen != 0) {
        KvaserDriver::close();
    }
}

int KvaserDriver::open(unsigned int speed, unsigned int mode, unsigned int port, bool silent) {
    frame_type = mode;
    canInitializeLibrary();
    if (has_debug(can_driver::debug_progress)) {
        std::printf("kvaserDriver::open() - Trying to open CAN channel %d with %s-bit mode\n",
                    static_cast<int>(port), can_driver::identifier_bits(frame_type));
    }
    h = canOpenChannel(static_cast<int>(port),
                       frame_type == 0 ? canOPEN_EXCLUSIVE : canOPEN_EXCLUSIVE | canOPEN_REQUIRE_EXTENDED);
    if (h < 0) {
        return open_failed("canOpenChannel", h);
    }
    stat = canSetBusParams(h, bus_rate(speed), 0, 0, 0, 0, 0);
    if (stat != canOK) {
        report_open_step("canSetBusParams");
        exit_if_fatal();
        return stat;
    }
    stat = canSetBusOutputControl(h, silent ? canDRIVER_SILENT : canDRIVER_NORMAL);
    if (stat != canOK) {
        return open_failed("canSetBusOutputControl", stat);
    }
    stat = canBusOn(h);
    if (stat < 0) {
        return open_failed("canBusOn", stat);
    }
    if (!read_bus_params(silent)) {
        return stat;
    }
    isopen = 1;
    return 0;
}

void KvaserDriver::close() {
    canBusOff(h);
    canClose(h);
    isopen = 0;
}

int KvaserDriver::read(unsigned int& ID, unsigned int& length, unsigned char* data) {
    report_not_open("\n\nRead: CAN connection is not Open !\n\n");
    std::fill_n(data, can_driver::frame_size, static_cast<unsigned char>(0));
    long id = 0;
    stat = canRead(h, &id, data, &length, &flags, &timestamp);
    note_frame_type();
    if (stat == canERR_NOMSG) {
        ID = 0;
        length = 0;
        unsigned int tx = 0;
        unsigned int rx = 0;
        unsigned int ov = 0;
        if (canReadErrorCounters(h, &tx, &rx, &ov) < 0) {
            show_error("canReadStatus() error.\n");
            print_kvaser_error_text(stat);
            exit_if_fatal();
        }
        return 1;
    }
    if (stat < 0) {
        return receive_failed(ID, length, "Kvaser driver: Read Error !");
    }
    return received(ID, length, data, id);
}

int KvaserDriver::write(unsigned int cobid, unsigned int length, unsigned char* data,
                        unsigned int write_flags) {
    report_not_open("\n\nWrite: CAN connection is not Open !\n\n");
    stat = canWrite(h, static_cast<long>(cobid), data, length, message_flags(write_flags, frame_type));
    if (stat < 0) {
        show_error("Kvaser driver: Write Error !\n");
        print_kvaser_error_text(stat);
        exit_if_fatal();
        canReadStatus(h, &canstatus);
        if (canstatus == canSTAT_TXERR) {
            read_error_counters(TXerrors, RXerrors, OVerrors);
            if (TXerrors != 0) {
                show_error("Transmit Error ! TX-Errorcounter = %u \n", TXerrors);
                if (has_debug(can_driver::debug_clear_counters)) {
                    reset_tx_errors();
                }
            }
        }
        return -1;
    }
    if (stat == canOK && has_debug(can_driver::debug_trace_sent)) {
        trace(cobid, length, data, " [T]");
    }
    return 0;
}

int KvaserDriver::read_wait(unsigned int& ID, unsigned int& length, unsigned char* data, long timeout) {
    report_not_open("\n\nReadWait: CAN connection is not Open !\n\n");
    std::fill_n(data, can_driver::frame_size, static_cast<unsigned char>(0));
    long id = 0;
    stat = canReadWait(h, &id, data, &length, &flags, &timestamp, static_cast<unsigned long>(timeout));
    note_frame_type();
    if (stat == canERR_NOMSG) {
        ID = 0;
        length = 0;
        return 1;
    }
    if (stat < 0) {
        return receive_failed(ID, length, "Kvaser Driver: ReadWait Error !\n");
    }
    return received(ID, length, data, id);
}

int KvaserDriver::read_error_counters(unsigned int& txErr, unsigned int& rxErr, unsigned int& ovErr) {
    canReadErrorCounters(h, &txErr, &rxErr, &ovErr);
    return 0;
}

void KvaserDriver::reset_rx_errors() {
    canReadStatus(h, &canstatus);
    canIoCtl(h, canIOCTL_FLUSH_RX_BUFFER, nullptr, 0);
}

void KvaserDriver::reset_tx_errors() {
    canReadStatus(h, &canstatus);
    canIoCtl(h, canIOCTL_FLUSH_TX_BUFFER, nullptr, 0);
}

void KvaserDriver::print_kvaser_error_text(canStatus status) {
    static char buffer[100];
    std::fill(std::begin(buffer), std::end(buffer), '\0');
    canGetErrorText(status, buffer, sizeof buffer);
    show_error("Kvaser Error Status = %d (%s)\n", status, buffer);
}

canStatus KvaserDriver::get_kvaser_error_text(canStatus status, char* buffer, int size) {
    return canGetErrorText(status, buffer, static_cast<unsigned int>(size));
}

/// Ends the process after an error report, if the debug word wants that.
void KvaserDriver::exit_if_fatal() const {
    if (has_debug(can_driver::debug_fatal)) {
        std::exit(1);
    }
}

/// Reports that the driver is not open, when it is not.
void KvaserDriver::report_not_open(const char* text) const {
    if (isopen == 0) {
        show_error("%s", text);
        exit_if_fatal();
    }
}

/// Reports that a step of open() failed, with the text of the stored status.
void KvaserDriver::report_open_step(const char* function) const {
    char buffer[500] = "";
    canGetErrorText(stat, buffer, sizeof buffer);
    show_error("kvaserDriver::open() - %s() : %s\n", function, buffer);
}

/// Reports that a step of open() failed with a code of its own; returns this code.
canStatus KvaserDriver::open_failed(const char* function, canStatus code) {
    // The first line tells the stored status: when the channel was not opened, the one before this call.
    report_open_step(function);
    print_kvaser_error_text(code);
    exit_if_fatal();
    return code;
}

/// Reads the bus parameters of a channel that has just been opened, and prints them if the debug word wants
/// that. False, and the status is stored, when there are none.
bool KvaserDriver::read_bus_params(bool silent) {
    long freq = 0;
    unsigned int tseg1 = 0;
    unsigned int tseg2 = 0;
    unsigned int sjw = 0;
    unsigned int noSamp = 0;
    unsigned int syncmode = 0;
    stat = canGetBusParams(h, &freq, &tseg1, &tseg2, &sjw, &noSamp, &syncmode);
    if (stat == canOK && has_debug(can_driver::debug_progress)) {
        print_bus_params(freq, tseg1, tseg2, sjw, noSamp, silent);
    }
    return stat == canOK;
}

/// Prints the bus parameters of a channel that has just been opened.
void KvaserDriver::print_bus_params(long freq, unsigned int tseg1, unsigned int tseg2, unsigned int sjw,
                                    unsigned int noSamp, bool silent) const {
    std::printf("kvaserDriver::open() - Channel speed = %li\n", freq);
    std::printf("kvaserDriver::open() - Channel opened in %ssilent mode\n", silent ? "" : "non ");
    std::printf(
        "kvaserDriver::open() - Time segment 1, the number of quanta from (but not including) the Sync "
        "Segment to the sampling point = %u\n",
        tseg1);
    std::printf(
        "kvaserDriver::open() - Time segment 2, the number of quanta from the sampling point to the end of "
        "the bit = %u\n",
        tseg2);
    std::printf("kvaserDriver::open() - Syncronization Jump Width (1,2,3,4) = %u\n", sjw);
    std::printf("kvaserDriver::open() - The number of sampling points = %u\n", noSamp);
}

/// Notes the identifier width of the frame that CANlib's flags belong to.
void KvaserDriver::note_frame_type() {
    if ((flags & canMSG_STD) != 0) {
        read_frame_type = 0;
    }
    if ((flags & canMSG_EXT) != 0) {
        read_frame_type = 1;
    }
}

/// Hands over a frame that CANlib has delivered. A warning (positive status) delivers none.
int KvaserDriver::received(unsigned int& ID, unsigned int length, const unsigned char* data, long id) {
    if (stat == canOK) {
        ID = static_cast<unsigned int>(id);
        if (has_debug(can_driver::debug_trace_received)) {
            trace(ID, length, data, " [R]");
        }
    }
    return 0;
}

/// Reports a failed reception and, when receive errors are all that the status tells, their counter.
int KvaserDriver::receive_failed(unsigned int& ID, unsigned int& length, const char* text) {
    ID = 0;
    length = 0;
    show_error("%s", text);
    print_kvaser_error_text(stat);
    exit_if_fatal();
    canReadStatus(h, &canstatus);
    if (canstatus == canSTAT_RXERR) {
        read_error_counters(TXerrors, RXerrors, OVerrors);
        if (RXerrors != 0) {
            show_error("Read Error ! RX-Errorcounter = %u \n", RXerrors);
            if (has_debug(can_driver::debug_clear_counters)) {
                reset_rx_errors();
            }
        }
    }
    return -1;
}

/// Builds the line of a frame, which tells the direction at its end.
void KvaserDriver::trace(unsigned int id, unsigned int length, const unsigned char* data,
                         const char* direction) const {
    print_message(id, static_cast<uint8_t>(length), data);
    add_text(direction);
}
