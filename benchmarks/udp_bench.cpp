// Speed of CAN over UDP on the loopback network: frames through the driver, SDO transfers with a node in
// another process.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <string>
#include <vector>

#include "nodevik/canopen.h"
#include "nodevik/udpdriver.h"
#include "tests/support/loopbacksocket.h"
#include "tests/support/nodeprocess.h"

namespace {

constexpr int batch = 100;
constexpr unsigned node = 1;
constexpr unsigned short domain_object = 0x2001;

// Keeps what the library reports on its way out of the figures.
class QuietOutput {
public:
    QuietOutput() {
        std::fflush(stdout);
        const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
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

void open_driver(udpDriver& driver, unsigned peer_port) {
    const QuietOutput quiet;
    driver.open(0, 0, 0);
    driver.endpoint().set_client_destination_address(127, 0, 0, 1, peer_port);
}

unsigned port_of(udpDriver& driver) {
    return local_port(driver.endpoint().server_socket());
}

// A master and a node in another process.
class Conversation {
public:
    Conversation()
        : peer_(open_and_tell()), process_(NODE_SIMULATOR, {"--peer", "127.0.0.1:" + std::to_string(peer_)}) {
        {
            const QuietOutput quiet;
            driver_.endpoint().set_client_destination_address(127, 0, 0, 1, process_.port());
        }
        master.load_driver(driver_);
        master.set_debug(0);
        wait_readable(driver_.endpoint().server_socket());  // the boot-up message
        master.read_all_messages();
    }

    CCANopen master;

private:
    unsigned open_and_tell() {
        open_driver(driver_, 9);
        return port_of(driver_);
    }

    udpDriver driver_;
    unsigned peer_;
    NodeProcess process_;
};

void frames_written(benchmark::State& state) {
    LoopbackSocket peer;
    udpDriver driver;
    open_driver(driver, peer.port());
    std::array<unsigned char, 8> data{1, 2, 3, 4, 5, 6, 7, 8};
    for (auto run : state) {
        for (int i = 0; i < batch; ++i) {
            driver.write(0x201, 8, data.data(), 0);
        }
        state.PauseTiming();
        for (int i = 0; i < batch; ++i) {
            peer.receive();
        }
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * batch);
}

void frames_read(benchmark::State& state) {
    LoopbackSocket peer;
    udpDriver driver;
    open_driver(driver, peer.port());
    const std::string datagram("\x81\1\0\0\x8\0\0\0abcdefgh", 16);
    std::array<unsigned char, 8> data{};
    unsigned identifier = 0;
    unsigned length = 0;
    for (auto run : state) {
        state.PauseTiming();
        for (int i = 0; i < batch; ++i) {
            peer.send(port_of(driver), datagram);
        }
        state.ResumeTiming();
        for (int i = 0; i < batch; ++i) {
            while (driver.read(identifier, length, data.data()) != 0) {
            }
        }
    }
    state.SetItemsProcessed(state.iterations() * batch);
}

void sdo_round_trip(benchmark::State& state) {
    Conversation conversation;
    int value = 0;
    for (auto run : state) {
        if (conversation.master.sdo_read(node, 0x1000, 0, value) != 0) {
            state.SkipWithError("no answer");
            break;
        }
    }
}

void segmented_download(benchmark::State& state) {
    Conversation conversation;
    std::vector<char> bytes(static_cast<std::size_t>(state.range(0)), 'x');
    for (auto run : state) {
        if (conversation.master.sdo_write_segment(node, domain_object, 0, static_cast<unsigned>(bytes.size()),
                                                  bytes.data()) != 0) {
            state.SkipWithError("transfer failed");
            break;
        }
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void segmented_upload(benchmark::State& state) {
    Conversation conversation;
    std::vector<char> bytes(static_cast<std::size_t>(state.range(0)), 'x');
    conversation.master.sdo_write_segment(node, domain_object, 0, static_cast<unsigned>(bytes.size()),
                                          bytes.data());
    for (auto run : state) {
        auto length = static_cast<unsigned>(bytes.size());
        if (conversation.master.sdo_read_segment(node, domain_object, 0, length, bytes.data()) != 0) {
            state.SkipWithError("transfer failed");
            break;
        }
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

BENCHMARK(frames_written)->UseRealTime();
BENCHMARK(frames_read)->UseRealTime();
BENCHMARK(sdo_round_trip)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(segmented_download)->Arg(1000)->Arg(10000)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(segmented_upload)->Arg(1000)->Arg(10000)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
