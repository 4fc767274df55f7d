#include "simulator/node/socketcanlink.h"

#include <array>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace node_simulator {

namespace {

// Sockets of this machine that receive every frame of the interface, or every frame of some kinds.
int count_receivers(const std::string& interface) {
    int receivers = 0;
    for (const char* list : {"/proc/net/can/rcvlist_all", "/proc/net/can/rcvlist_fil"}) {
        std::ifstream table(list);
        for (std::string line; std::getline(table, line);) {
            std::istringstream words(line);
            std::string device;
            words >> device;
            receivers += device == interface ? 1 : 0;
        }
    }
    return receivers;
}

}  // namespace

SocketCanLink::SocketCanLink(const std::string& interface) : interface_(interface) {
    driver_.set_debug(0);
    driver_.receive_also(SocketCanDriver::remote_requests);  // guarding
    if (driver_.open(interface.c_str(), 0, false) != 0) {
        throw std::runtime_error("cannot open the CAN interface " + interface);
    }
}

std::string SocketCanLink::announcement() const {
    return "can " + interface_;
}

bool SocketCanLink::receive(std::optional<CanFrame>& frame) {
    unsigned identifier = 0;
    unsigned length = 0;
    std::array<unsigned char, 8> data;
    if (driver_.read(identifier, length, data.data()) != 0) {
        return false;
    }
    frame = CanFrame{identifier, static_cast<std::uint8_t>(length), data, driver_.is_remote_request()};
    return true;
}

void SocketCanLink::send(const CanFrame& frame) {
    std::array<unsigned char, 8> data = frame.data;
    driver_.write(frame.identifier, frame.length, data.data(), 0);
}

void SocketCanLink::fill_in(std::string& argument) const {
    replace_all(argument, "{can}", interface_);
}

void SocketCanLink::expect_command() {
    receivers_before_ = count_receivers(interface_);
}

bool SocketCanLink::is_heard() const {
    return count_receivers(interface_) > receivers_before_;
}

}  // namespace node_simulator
