// The CAN-over-UDP driver, fed with arbitrary datagrams over the loopback interface.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

#include "nodevik/udpdriver.h"
#include "tests/fuzz/fuzzinput.h"

namespace {

// A port that was free a moment ago.
unsigned int free_port() {
    const int descriptor = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    bind(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address);
    getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length);
    close(descriptor);
    return ntohs(address.sin_port);
}

struct Line {
    Line() : port(free_port()), sender(socket(AF_INET, SOCK_DGRAM, 0)) {
        silence_standard_output();
        driver.open(port, 0, 0);
        driver.endpoint().set_client_destination_address(127, 0, 0, 1, port);
        target.sin_family = AF_INET;
        target.sin_port = htons(static_cast<std::uint16_t>(port));
        target.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    }
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;
    ~Line() { close(sender); }

    unsigned int port;
    int sender;
    sockaddr_in target = {};
    udpDriver driver;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Line line;
    FuzzInput input(data, size);
    while (!input.empty()) {
        std::vector<std::uint8_t> datagram(input.byte() % 4 == 0 ? input.word() % 2000 : input.byte() % 32);
        input.bytes(datagram);
        sendto(line.sender, datagram.data(), datagram.size(), 0, reinterpret_cast<sockaddr*>(&line.target),
               sizeof line.target);
        unsigned int id = 0;
        unsigned int length = 0;
        unsigned char frame[8];
        while (line.driver.read(id, length, frame) == 0) {
            if (id > 0x7FF || length > 0x1F) {
                std::abort();
            }
        }
    }
    return 0;
}
