#include "nodevik/nodes/buswait.h"

#include <poll.h>

#include "nodevik/arch.h"
#include "nodevik/util/monotonicclock.h"

namespace {

constexpr unsigned int poll_pause_us = 200;  // between two looks at a driver without a descriptor

}  // namespace

void wait_for_frames(const ObservedDriver& driver, std::uint64_t deadline) {
    pollfd bus{driver.descriptor(), POLLIN, 0};
    if (bus.fd < 0) {
        u_sleep(poll_pause_us);
        return;
    }
    poll(&bus, 1, milliseconds_until(deadline, monotonic_ns()));
    if ((bus.revents & ~POLLIN) != 0) {
        m_sleep(1);  // the interface is in trouble: it says so at once each time
    }
}
