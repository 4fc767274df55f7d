#include "nodevik/observeddriver.h"

#include <time.h>

#include <algorithm>

#include "nodevik/candriverwords.h"
#include "nodevik/kvaserdriver.h"
#include "nodevik/socketcandriver.h"
#include "nodevik/udpdriver.h"
#include "nodevik/util/monotonicclock.h"

namespace {

std::uint64_t realtime_ns() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000 + static_cast<std::uint64_t>(now.tv_nsec);
}

ObservedDriver::Details details_of_socketcan(const CANdriver& driver) {
    const auto& known = static_cast<const SocketCanDriver&>(driver);
    return {known.receive_time_ns(), known.is_remote_request(), known.is_extended(), known.is_error_frame()};
}

// CANlib's time counts from an opening of its own, and is no time of the day.
ObservedDriver::Details details_of_kvaser(const CANdriver& driver) {
    const auto& known = static_cast<const KvaserDriver&>(driver);
    return {0, known.is_remote_request(), known.is_extended()};
}

ObservedDriver::Details details_of_observed(const CANdriver& driver) {
    return static_cast<const ObservedDriver&>(driver).last_details();
}

ObservedDriver::DetailsReader reader_for(const CANdriver& driver) {
    if (dynamic_cast<const SocketCanDriver*>(&driver) != nullptr) {
        return details_of_socketcan;
    }
    if (dynamic_cast<const KvaserDriver*>(&driver) != nullptr) {
        return details_of_kvaser;
    }
    if (dynamic_cast<const ObservedDriver*>(&driver) != nullptr) {
        return details_of_observed;
    }
    return nullptr;
}

}  // namespace

std::uint64_t ObservedFrame::time_ns() const {
    if (utc == 0) {
        utc = realtime_ns();
    }
    return utc;
}

std::uint64_t ObservedFrame::monotonic_time_ns() const {
    if (monotonic == 0) {
        monotonic = monotonic_ns();
    }
    return monotonic;
}

/// Shows a frame to the observers that were there when it passed.
inline void ObservedDriver::show(const ObservedFrame& frame) {
    if (count == 1) {
        observers[0]->frame_passed(frame);  // nobody comes after: whatever it does to the list, it is done
        return;
    }
    Showing here{0, count, showing};
    showing = &here;
    while (here.next < here.end) {
        observers[here.next++]->frame_passed(frame);
    }
    showing = here.outer;
}

inline void ObservedDriver::show_received(unsigned int id, unsigned int length, const unsigned char* data) {
    ObservedFrame frame(ObservedFrame::Direction::received, id, length, data);
    if (read_details != nullptr) {
        const Details details = read_details(*behind);
        frame.remote = details.remote;
        frame.extended = details.extended;
        frame.error = details.error;
        frame.set_times(details.time_ns, 0);
    }
    show(frame);
}

ObservedDriver::ObservedDriver(CANdriver& driver, DetailsReader reader)
    : behind(&driver),
      read_details(reader != nullptr ? reader : reader_for(driver)),
      passed_debug(driver.get_debug()),
      passed_filter(m_TypeFilter) {
    driver_debug = passed_debug;
    const auto* observed = dynamic_cast<const ObservedDriver*>(&driver);
    opened = observed != nullptr ? observed->opened : &driver;
}

ObservedDriver::~ObservedDriver() = default;

int ObservedDriver::add_observer(FrameObserver& observer) {
    FrameObserver** const end = observers.data() + count;
    if (count == max_observers || std::find(observers.data(), end, &observer) != end) {
        return -1;
    }
    observers[count++] = &observer;
    return 0;
}

int ObservedDriver::remove_observer(const FrameObserver& observer) {
    FrameObserver** const end = observers.data() + count;
    FrameObserver** const found = std::find(observers.data(), end, &observer);
    if (found == end) {
        return -1;
    }
    const auto position = static_cast<std::size_t>(found - observers.data());
    std::copy(found + 1, end, found);
    --count;
    for (Showing* at = showing; at != nullptr; at = at->outer) {
        at->next -= position < at->next ? 1 : 0;
        at->end -= position < at->end ? 1 : 0;
    }
    return 0;
}

int ObservedDriver::read_all() {
    unsigned int id = 0;
    unsigned int length = 0;
    std::array<unsigned char, can_driver::frame_size> data{};
    int result = 0;
    while ((result = ObservedDriver::read(id, length, data.data())) == 0) {
    }
    return result == 1 ? 0 : -1;
}

int ObservedDriver::descriptor() const {
    if (const auto* socketcan = dynamic_cast<const SocketCanDriver*>(opened)) {
        return socketcan->descriptor();
    }
    if (const auto* udp = dynamic_cast<const udpDriver*>(opened)) {
        return udp->descriptor();
    }
    return -1;
}

void ObservedDriver::set_typefilter(uint32_t filter) {
    CANdriver::set_typefilter(filter);
    passed_filter = filter;
    behind->set_typefilter(filter);
}

int ObservedDriver::decode_message(uint32_t id, uint8_t len, const void* data) const {
    return behind->decode_message(id, len, data);
}

int ObservedDriver::open(unsigned int speed, unsigned int mode, unsigned int port, bool silent) {
    check_words();
    return behind->open(speed, mode, port, silent);
}

void ObservedDriver::close() {
    check_words();
    behind->close();
}

int ObservedDriver::read(unsigned int& ID, unsigned int& length, unsigned char* data) {
    check_words();
    const int result = behind->read(ID, length, data);
    if (result == 0) [[likely]] {
        show_received(ID, length, data);
    }
    return result;
}

int ObservedDriver::write(unsigned int cobid, unsigned int length, unsigned char* data, unsigned int flags) {
    check_words();
    ObservedFrame frame(ObservedFrame::Direction::sent, cobid, length, data);
    if (flags != 0) {
        frame.remote = (flags & can_driver::write_remote) != 0;
    }
    // The mode that a driver was opened with is its own; as a member of the common base it can be named.
    frame.extended = can_driver::sends_extended(flags, opened->*(&ObservedDriver::frame_type));
    const int result = behind->write(cobid, length, data, flags);
    if (result < 0) {
        return result;
    }
    show(frame);
    return result;
}

int ObservedDriver::read_wait(unsigned int& ID, unsigned int& length, unsigned char* data, long timeout) {
    check_words();
    const int result = behind->read_wait(ID, length, data, timeout);
    if (result == 0) [[likely]] {
        show_received(ID, length, data);
    }
    return result;
}

int ObservedDriver::read_error_counters(unsigned int& txErr, unsigned int& rxErr, unsigned int& ovErr) {
    check_words();
    return behind->read_error_counters(txErr, rxErr, ovErr);
}

void ObservedDriver::reset_rx_errors() {
    check_words();
    behind->reset_rx_errors();
}

void ObservedDriver::reset_tx_errors() {
    check_words();
    behind->reset_tx_errors();
}

/// set_debug() and switch_type() cannot be overridden: what they have set is passed on before it counts.
void ObservedDriver::pass_words_on() {
    if (driver_debug != passed_debug) {
        passed_debug = driver_debug;
        behind->set_debug(driver_debug);
    }
    if (m_TypeFilter != passed_filter) {
        passed_filter = m_TypeFilter;
        behind->set_typefilter(m_TypeFilter);
    }
}
