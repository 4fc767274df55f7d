#include "tools/bus.h"

#include <fcntl.h>
#include <linux/sock_diag.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "nodevik/candriverwords.h"
#include "nodevik/kvaserdriver.h"
#include "nodevik/socketcandriver.h"
#include "nodevik/util/monotonicclock.h"
#include "program/numbers.h"
#include "tools/failure.h"
#include "tools/udpframes.h"

namespace nodevik_tool {

namespace {

constexpr std::uint64_t nanoseconds_per_millisecond = 1'000'000;
constexpr std::uint64_t look_again_ns = 1'000'000;  // at a driver without a descriptor, or without room
constexpr unsigned int frames_of_a_crowd = 64;      // read without a look at the signals
constexpr std::int64_t highest_channel = 255;
constexpr std::int64_t lowest_bitrate = 1000;
constexpr std::int64_t highest_bitrate = 1000000;

// The number in a file of one line, or -1.
long number_in(const std::filesystem::path& file) {
    std::ifstream stream(file);
    std::string text;
    stream >> text;
    return text.empty() ? -1 : std::strtol(text.c_str(), nullptr, 0);
}

}  // namespace

UdpEnds parse_udp(const std::string& text) {
    const std::size_t comma = text.find(',');
    const std::string peer = text.substr(0, comma);
    const std::size_t colon = peer.rfind(':');
    UdpEnds ends;
    ends.host = peer.substr(0, colon);
    const auto port = program::whole_number(colon == std::string::npos ? "" : peer.substr(colon + 1), 1,
                                            program::highest_port);
    const auto local = comma == std::string::npos
                           ? std::optional<std::int64_t>(0)
                           : program::whole_number(text.substr(comma + 1), 1, program::highest_port);
    if (ends.host.empty() || !port || !local) {
        throw Failure(
            ExitStatus::usage,
            "--udp takes HOST:PORT or HOST:PORT,LOCALPORT, such as 127.0.0.1:5001, not '" + text + "'");
    }
    ends.port = static_cast<unsigned int>(*port);
    ends.local_port = static_cast<unsigned int>(*local);
    return ends;
}

KvaserChannel parse_kvaser(const std::string& text) {
    const std::size_t colon = text.find(':');
    KvaserChannel channel;
    const auto number = program::whole_number(text.substr(0, colon), 0, highest_channel);
    const auto bitrate = colon == std::string::npos
                             ? std::optional<std::int64_t>(channel.bitrate)
                             : program::whole_number(text.substr(colon + 1), lowest_bitrate, highest_bitrate);
    if (!number || !bitrate) {
        throw Failure(ExitStatus::usage,
                      "--kvaser takes CHANNEL or CHANNEL:BITRATE, such as 0:500000, not '" + text + "'");
    }
    channel.number = static_cast<unsigned int>(*number);
    channel.bitrate = static_cast<unsigned int>(*bitrate);
    return channel;
}

std::vector<CanInterface> can_interfaces(const std::string& directory) {
    std::vector<CanInterface> result;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(directory, error)) {
        if (number_in(entry.path() / "type") == ARPHRD_CAN) {
            const long flags = number_in(entry.path() / "flags");
            result.push_back({entry.path().filename(), flags >= 0 && (flags & IFF_UP) != 0});
        }
    }
    std::sort(result.begin(), result.end(),
              [](const CanInterface& left, const CanInterface& right) { return left.name < right.name; });
    return result;
}

std::string only_interface(const std::vector<CanInterface>& interfaces) {
    std::vector<std::string> up;
    std::string list;
    for (const CanInterface& interface : interfaces) {
        list += (list.empty() ? "" : ", ") + interface.name + (interface.up ? " is up" : " is down");
        if (interface.up) {
            up.push_back(interface.name);
        }
    }
    if (up.size() == 1) {
        return up.front();
    }
    if (up.empty()) {
        throw Failure(ExitStatus::no_bus,
                      interfaces.empty()
                          ? "this machine has no CAN interface; name a bus with --can, --udp or --kvaser"
                          : "no CAN interface is up (" + list + "); bring one up with 'ip link set " +
                                interfaces.front().name +
                                " up type can bitrate 500000', or name a bus with --udp or --kvaser");
    }
    throw Failure(ExitStatus::usage, "several CAN interfaces are up (" + list + "); name one with --can");
}

LibraryReports::LibraryReports() {
    std::fflush(stdout);
    results_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    const int reports = memfd_create("reports", MFD_CLOEXEC);
    if (reports < 0 || dup2(reports, STDOUT_FILENO) < 0) {
        throw Failure(ExitStatus::no_bus,
                      std::string("no room for the library's reports: ") + std::strerror(errno));
    }
    close(reports);
}

LibraryReports::~LibraryReports() {
    std::fflush(stdout);
    dup2(results_, STDOUT_FILENO);
    close(results_);
}

std::string LibraryReports::take_last() const {
    std::fflush(stdout);
    std::string text(static_cast<std::size_t>(std::max<off_t>(lseek(STDOUT_FILENO, 0, SEEK_END), 0)), '\0');
    const ssize_t count = pread(STDOUT_FILENO, text.data(), text.size(), 0);
    text.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    if (ftruncate(STDOUT_FILENO, 0) == 0) {
        lseek(STDOUT_FILENO, 0, SEEK_SET);
    }
    std::istringstream lines(text);
    text.clear();
    for (std::string line; std::getline(lines, line);) {
        const std::size_t end = line.find_last_not_of(' ');
        if (end != std::string::npos && line.find("-Errorcounter = ") == std::string::npos) {
            text = line.substr(0, end + 1);
        }
    }
    for (const std::string_view ahead : {"::open() - ", "Virhe: "}) {
        if (const std::size_t at = text.find(ahead); at != std::string::npos) {
            text.erase(0, at + ahead.size());
        }
    }
    return text;
}

Bus::Bus(const BusOptions& options, const LibraryReports& reports, const Interrupts& interrupts, Use use)
    : reports_(&reports),
      interrupts_(&interrupts),
      frames_at_once_(use == Use::listen ? frames_of_a_crowd : 1) {
    if (!options.udp.empty()) {
        open_udp(options.udp);
    } else if (!options.kvaser.empty()) {
        open_kvaser(options.kvaser, use);
    } else {
        open_can(options.can.empty() ? only_interface(can_interfaces()) : options.can, use);
    }
}

Bus::~Bus() = default;

void Bus::open_udp(const std::string& text) {
    const UdpEnds ends = parse_udp(text);
    auto driver = std::make_unique<UdpFrames>();
    std::string reason;
    {
        const SuddenEnd sudden_end;  // the host's name is looked up
        reason = driver->open(ends.host, ends.port, ends.local_port);
    }
    if (!reason.empty()) {
        throw Failure(ExitStatus::no_bus, reason);
    }
    name_ = "udp";
    has_all_frames_ = false;
    descriptor_ = driver->descriptor();
    observed_ = std::make_unique<ObservedDriver>(*driver, &UdpFrames::details);
    driver_ = std::move(driver);
}

void Bus::open_can(const std::string& interface_name, Use use) {
    auto driver = std::make_unique<SocketCanDriver>();
    driver->set_debug(0);
    if (use == Use::listen) {
        driver->receive_also(SocketCanDriver::every_kind);
    }
    if (driver->open(interface_name.c_str(), 0, use == Use::listen) != 0) {
        throw Failure(ExitStatus::no_bus, trouble());
    }
    enlarge_receive_buffer(driver->descriptor());
    name_ = interface_name;
    descriptor_ = driver->descriptor();
    observed_ = std::make_unique<ObservedDriver>(*driver);
    driver_ = std::move(driver);
}

void Bus::open_kvaser(const std::string& text, Use use) {
    const KvaserChannel channel = parse_kvaser(text);
    auto driver = std::make_unique<KvaserDriver>();
    driver->set_debug(0);
    if (driver->open(channel.bitrate, 0, channel.number, use == Use::listen) != 0) {
        throw Failure(ExitStatus::no_bus,
                      trouble() + "; is CANlib installed, the adapter plugged in, and CHANNEL its number?");
    }
    kvaser_bitrate_ = channel.bitrate;
    name_ = "kvaser" + std::to_string(channel.number);
    observed_ = std::make_unique<ObservedDriver>(*driver);
    driver_ = std::move(driver);
}

unsigned int Bus::bit_rate() const {
    const auto* can = dynamic_cast<const SocketCanDriver*>(driver_.get());
    return can != nullptr ? can->bit_rate() : kvaser_bitrate_;
}

bool Bus::is_bus_off() const {
    const auto* can = dynamic_cast<const SocketCanDriver*>(driver_.get());
    return can != nullptr && can->is_bus_off();
}

std::uint64_t Bus::dropped_frames() const {
    // What the kernel tells beside a frame (SO_RXQ_OVFL) lacks those that were dropped after it.
    std::array<std::uint32_t, SK_MEMINFO_VARS> memory{};
    socklen_t size = sizeof memory;
    if (descriptor_ >= 0 && getsockopt(descriptor_, SOL_SOCKET, SO_MEMINFO, memory.data(), &size) == 0) {
        return memory[SK_MEMINFO_DROPS];
    }
    if (const auto* can = dynamic_cast<const SocketCanDriver*>(driver_.get())) {
        return can->dropped_frames();
    }
    const auto* udp = dynamic_cast<const UdpFrames*>(driver_.get());
    return udp != nullptr ? udp->dropped_frames() : 0;
}

void Bus::read(std::uint64_t deadline_ns, const Output* results) {
    std::uint64_t until = deadline_ns;
    if (descriptor_ < 0) {
        until = std::min(until, monotonic_ns() + look_again_ns);
    }
    interrupts_->wait(descriptor_, POLLIN, until, results != nullptr ? results->descriptor() : -1);
    unsigned int id = 0;
    unsigned int length = 0;
    std::array<unsigned char, can_driver::frame_size> data{};
    for (unsigned int frames = 0; frames < frames_at_once_; ++frames) {
        const int result = observed_->read(id, length, data.data());
        if (result == 1) {
            return;
        }
        if (result != 0) {
            throw Failure(ExitStatus::no_bus, trouble());
        }
    }
}

void Bus::send(unsigned int identifier, unsigned int length, std::array<unsigned char, 8> data,
               unsigned int flags, unsigned int patience_ms, const Output* results) {
    const std::uint64_t limit = monotonic_ns() + patience_ms * nanoseconds_per_millisecond;
    while (observed_->write(identifier, length, data.data(), flags) < 0) {
        const std::uint64_t now = monotonic_ns();
        if (now >= limit) {
            throw Failure(ExitStatus::no_bus, trouble());
        }
        do {
            read(now + look_again_ns, results);
        } while (monotonic_ns() < now + look_again_ns);
    }
}

std::string Bus::trouble() const {
    const std::string report = reports_->take_last();
    if (!report.empty()) {
        return report;
    }
    const auto* udp = dynamic_cast<const UdpFrames*>(driver_.get());
    if (udp != nullptr && udp->last_error() != 0) {
        return std::string("the UDP peer cannot be reached: ") + std::strerror(udp->last_error()) +
               "; look at its address, and whether the network is up";
    }
    return "the bus cannot be used: the driver does not say why";
}

}  // namespace nodevik_tool
