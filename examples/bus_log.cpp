// Shows the decoder and the log: prints what passes on the bus, one coloured line per frame.
//
//     bus_log MASTER_PORT NODE_PORT SECONDS [LOGFILE]
//
// SYNC, which comes too often to be read, is left out.

#include <charconv>
#include <cstdio>
#include <string_view>

#include "nodevik/arch.h"
#include "nodevik/canopen.h"
#include "nodevik/udpdriver.h"

namespace {

constexpr unsigned decode_frames = 4;  // the bit of the debug word

// A whole number from 1 to `highest`, or 0.
unsigned positive(std::string_view text, unsigned highest) {
    unsigned number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() && number <= highest ? number : 0;
}

}  // namespace

int main(int argc, char** argv) {
    const unsigned master_port = argc > 3 ? positive(argv[1], 65535) : 0;
    const unsigned node_port = argc > 3 ? positive(argv[2], 65535) : 0;
    const unsigned seconds = argc > 3 ? positive(argv[3], 10'000'000) : 0;
    if (argc > 5 || master_port == 0 || node_port == 0 || seconds == 0) {
        std::fputs("usage: bus_log MASTER_PORT NODE_PORT SECONDS [LOGFILE]\n", stderr);
        return 2;
    }

    CCANopen master;
    udpDriver driver;
    driver.open(master_port, 0, 0);
    driver.endpoint().set_client_destination_address(127, 0, 0, 1, node_port);
    master.load_driver(driver);
    master.set_debug(decode_frames);
    master.show_sync(false);
    if (argc > 4 && master.open_log(argv[4]) != 0) {
        return 1;  // the library has said why
    }
    for (unsigned tick = 0; tick < seconds * 100; ++tick) {
        master.read_all_messages();
        m_sleep(10);
    }
}
