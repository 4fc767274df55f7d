// Speed of SDO transfers over UDP on the loopback network, held against what else could be done in the same run.
//
//     sdo_bench
//
// prints a figure per line. What is compared is measured in turns, and the median of the turns taken, so that a busy
// machine slows both down.

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "nodevik/nodes/sdoclient.h"
#include "nodevik/udpdriver.h"
#include "nodevik/util/monotonicclock.h"
#include "tests/support/loopbacksocket.h"
#include "tests/support/nodeprocess.h"

namespace {

constexpr int turns = 15;
constexpr int round_trips = 300;
constexpr std::size_t large = 100'000;

void require(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "sdo_bench: %s\n", what);
        std::exit(1);
    }
}

double seconds_of(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double> values) {
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2),
                     values.end());
    return values[values.size() / 2];
}

// What the library prints on its way stays out of the figures.
class QuietOutput {
public:
    QuietOutput() {
        std::fflush(stdout);
        const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
        dup2(nowhere, STDOUT_FILENO);
        close(nowhere);
    }
    ~QuietOutput() {
        std::fflush(stdout);
        dup2(kept_, STDOUT_FILENO);
        close(kept_);
    }
    QuietOutput(const QuietOutput&) = delete;
    QuietOutput& operator=(const QuietOutput&) = delete;

private:
    int kept_ = dup(STDOUT_FILENO);
};

// An SDO client on a port of its own.
class Client {
public:
    Client() {
        const QuietOutput quiet;
        bus.open(0, 0, 0);
        bus.endpoint().set_client_destination_address(127, 0, 0, 1, 9);
    }
    ~Client() { peer_gone(); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    unsigned port() { return local_port(bus.descriptor()); }

    void speak_to(unsigned peer_port) {
        const QuietOutput quiet;
        bus.endpoint().set_client_destination_address(127, 0, 0, 1, peer_port);
    }

    // Reads the bus until no transfer is under way. Segments of a block come faster than a program falls asleep and
    // wakes up, so it looks some times before it waits.
    void finish() {
        while (sdo.active() != 0) {
            pollfd entry{bus.descriptor(), POLLIN, 0};
            poll(&entry, 1, milliseconds_until(sdo.next_deadline(), monotonic_ns()));
            for (int look = 0; look < 20 && sdo.active() != 0; ++look) {
                driver.read_all();
            }
            sdo.process(monotonic_ns());
        }
    }

    udpDriver bus;
    ObservedDriver driver{bus};
    SdoClient sdo{driver};

private:
    void peer_gone() { speak_to(9); }
};

// The same question and answer without a library: one datagram there, one back.
class BarePair {
public:
    BarePair()
        : receiver_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)),
          sender_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        require(bind(receiver_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0,
                "no socket");
    }
    ~BarePair() {
        close(receiver_);
        close(sender_);
    }
    BarePair(const BarePair&) = delete;
    BarePair& operator=(const BarePair&) = delete;

    unsigned port() const { return local_port(receiver_); }

    void speak_to(unsigned peer_port) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(static_cast<std::uint16_t>(peer_port));
        require(connect(sender_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0,
                "no peer");
    }

    void round_trip() const {
        constexpr unsigned char question[16] = {0x01, 0x06, 0,    0, 8, 0, 0, 0,
                                                0x40, 0x00, 0x10, 0, 0, 0, 0, 0};
        require(send(sender_, question, sizeof question, 0) == sizeof question, "nothing sent");
        std::array<unsigned char, 64> answer{};
        do {
            pollfd entry{receiver_, POLLIN, 0};
            require(poll(&entry, 1, 1000) == 1, "no answer");
            require(recv(receiver_, answer.data(), answer.size(), 0) == 16, "no frame");
        } while (answer[1] != 0x05);
    }

private:
    int receiver_;
    int sender_;
};

void compare_round_trips() {
    Client client;
    NodeProcess for_client(NODE_SIMULATOR, {"--peer", "127.0.0.1:" + std::to_string(client.port())});
    client.speak_to(for_client.port());
    BarePair bare;
    NodeProcess for_bare(NODE_SIMULATOR, {"--peer", "127.0.0.1:" + std::to_string(bare.port())});
    bare.speak_to(for_bare.port());
    std::vector<double> ratios;
    std::vector<double> times;
    for (int turn = 0; turn < turns; ++turn) {
        const double with = seconds_of([&client] {
            for (int i = 0; i < round_trips; ++i) {
                std::array<unsigned char, 4> value{};
                client.sdo.start_read({1, 0x1000, 0}, value.data(), value.size(),
                                      [](const SdoResult& result) { require(result.ok(), result.words()); });
                client.finish();
            }
        });
        const double without = seconds_of([&bare] {
            for (int i = 0; i < round_trips; ++i) {
                bare.round_trip();
            }
        });
        ratios.push_back(with / without);
        times.push_back(with / round_trips * 1e6);
    }
    std::printf("round-trip-us %.1f\nround-trip-ratio %.2f\n", median(times), median(ratios));
}

void compare_kinds() {
    Client client;
    NodeProcess process(NODE_SIMULATOR, {"--peer", "127.0.0.1:" + std::to_string(client.port())});
    client.speak_to(process.port());
    std::vector<unsigned char> data(large, 0x5A);
    const auto time_of = [&](SdoMode mode, bool is_read) {
        SdoOptions options;
        options.mode = mode;
        options.timeout_ms = 5000;
        const auto ended = [](const SdoResult& result) {
            require(result.ok() && result.bytes == large, result.words());
        };
        return seconds_of([&] {
            if (is_read) {
                client.sdo.start_read({1, 0x2006, 0}, data.data(), data.size(), ended, options);
            } else {
                client.sdo.start_write({1, 0x2006, 0}, data.data(), data.size(), ended, options);
            }
            client.finish();
        });
    };
    for (const bool is_read : {false, true}) {
        std::vector<double> ratios;
        std::vector<double> segments;
        std::vector<double> blocks;
        for (int turn = 0; turn < turns; ++turn) {
            segments.push_back(time_of(SdoMode::segmented, is_read));
            blocks.push_back(time_of(SdoMode::block, is_read));
            ratios.push_back(segments.back() / blocks.back());
        }
        if (!is_read) {
            std::printf("segments-ms %.1f\nblocks-ms %.1f\n", median(segments) * 1e3, median(blocks) * 1e3);
        }
        std::printf("%s-ratio %.1f\n", is_read ? "read" : "write", median(ratios));
    }
}

// Nodes on a bus need a while for an answer: here 2 ms each.
void compare_numbers() {
    Client client;
    NodeProcess process(NODE_SIMULATOR, {"--peer", "127.0.0.1:" + std::to_string(client.port()), "--nodes",
                                         "1,2,3,4,5,6,7,8,9,10", "--late", "100", "--delay", "2"});
    client.speak_to(process.port());
    const auto time_of = [&client](unsigned count) {
        return seconds_of([&] {
            for (int i = 0; i < 20; ++i) {
                std::array<std::array<unsigned char, 4>, 11> values{};
                for (unsigned number = 1; number <= count; ++number) {
                    client.sdo.start_read(
                        {number, 0x1000, 0}, values[number].data(), 4,
                        [](const SdoResult& result) { require(result.ok(), result.words()); });
                }
                client.finish();
            }
        });
    };
    std::vector<double> ratios;
    for (int turn = 0; turn < turns; ++turn) {
        ratios.push_back(time_of(10) / time_of(1));
    }
    std::printf("ten-ratio %.2f\n", median(ratios));
}

}  // namespace

int main() {
    compare_round_trips();
    compare_kinds();
    compare_numbers();
    return 0;
}
