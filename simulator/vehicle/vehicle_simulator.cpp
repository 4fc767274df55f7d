// The vehicle controller's end of the panel's serial line, on a pseudo-terminal.

#include <csignal>
#include <cstdio>
#include <system_error>

#include "program/file.h"
#include "program/standardoptions.h"
#include "simulator/vehicle/vehicleline.h"
#include "simulator/vehicle/vehiclelog.h"
#include "simulator/vehicle/vehicleoptions.h"
#include "simulator/vehicle/vehiclesession.h"

namespace {

constexpr int usage_status = 2;

volatile std::sig_atomic_t end_asked = 0;

void ask_for_end(int) {
    end_asked = 1;
}

// Lets SIGINT and SIGTERM set end_asked, but only while the session waits; returns the mask to wait with.
sigset_t take_over_signals() {
    struct sigaction action = {};
    action.sa_handler = ask_for_end;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    sigset_t ending;
    sigemptyset(&ending);
    sigaddset(&ending, SIGINT);
    sigaddset(&ending, SIGTERM);
    sigset_t waiting_mask;
    sigprocmask(SIG_BLOCK, &ending, &waiting_mask);
    sigdelset(&waiting_mask, SIGINT);
    sigdelset(&waiting_mask, SIGTERM);
    return waiting_mask;
}

int run(const vehicle_simulator::VehicleOptions& options) {
    program::File log_file;
    if (!options.log_file.empty()) {
        log_file.reset(std::fopen(options.log_file.c_str(), "we"));
        if (!log_file) {
            std::fprintf(stderr, "vehicle-simulator: cannot write the log to ");
            std::perror(options.log_file.c_str());
            return usage_status;
        }
    }
    vehicle_simulator::VehicleLine line;
    const sigset_t waiting_mask = take_over_signals();
    std::printf("%s\n", line.path().c_str());
    std::fflush(stdout);
    vehicle_simulator::VehicleLog log(log_file ? log_file.get() : stdout);
    vehicle_simulator::VehicleSession(options, line, log).run(end_asked, waiting_mask);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const auto [options, error] =
        vehicle_simulator::parse_vehicle_options({argv + 1, static_cast<size_t>(argc - 1)});
    if (!error.empty()) {
        std::fprintf(stderr, "vehicle-simulator: %s\nTry 'vehicle-simulator --help'.\n", error.c_str());
        return usage_status;
    }
    if (options.help) {
        std::fputs(vehicle_simulator::vehicle_help().c_str(), stdout);
        return 0;
    }
    if (options.version) {
        program::print_version();
        return 0;
    }
    try {
        return run(options);
    } catch (const std::system_error& failure) {
        std::fprintf(stderr, "vehicle-simulator: %s\n", failure.what());
        return 1;
    }
}
