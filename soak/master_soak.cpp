// A long run of the CANopen master against simulated nodes that vanish and return; see mastersoak.h.
//
//     master-soak --simulator FILE --directory DIR [--seed N] [--seconds S | --cycles N] [--period-ms MS]
//                 [--lose-frame N] [--leak]
//
// Leaves its figures in DIR/figures, one a line, name and number, and "problem TEXT" when something went
// wrong; then it ends with status 1.

#include <cstdio>
#include <string>
#include <string_view>

#include "soak/mastersoak.h"
#include "soak/runprogram.h"

namespace {

using soak::MasterFigures;
using soak::MasterOptions;
using soak::parse;

constexpr soak::NamedFigure<MasterFigures, std::uint64_t> figures[] = {
    {"cycles", &MasterFigures::cycles},
    {"worst_gap_us", &MasterFigures::worst_gap_us},
    {"pdos_sent", &MasterFigures::pdos_sent},
    {"pdos_arrived", &MasterFigures::pdos_arrived},
    {"pdo_values", &MasterFigures::pdo_values},
    {"sdo_done", &MasterFigures::sdo_done},
    {"sdo_bytes", &MasterFigures::sdo_bytes},
    {"sdo_failed_away", &MasterFigures::sdo_failed_away},
    {"sdo_failed_present", &MasterFigures::sdo_failed_present},
    {"sdo_late", &MasterFigures::sdo_late},
    {"guarded", &MasterFigures::guarded},
    {"missed", &MasterFigures::missed},
    {"vanished", &MasterFigures::vanished},
    {"returned", &MasterFigures::returned},
    {"reappeared", &MasterFigures::reappeared},
    {"kills", &MasterFigures::kills},
};

constexpr soak::NamedFigure<MasterFigures, long> footprints[] = {
    {"memory_start_kib", &MasterFigures::memory_start_kib},
    {"memory_end_kib", &MasterFigures::memory_end_kib},
    {"descriptors_start", &MasterFigures::descriptors_start},
    {"descriptors_end", &MasterFigures::descriptors_end},
};

bool store(std::string_view name, std::string_view value, MasterOptions& options) {
    return (name == "--seed" && parse(value, options.seed)) ||
           (name == "--seconds" && parse(value, options.seconds)) ||
           (name == "--cycles" && parse(value, options.cycles)) ||
           (name == "--period-ms" && parse(value, options.period_ms)) ||
           (name == "--lose-frame" && parse(value, options.lose_frame));
}

void write_figures(std::FILE* file, const soak::MasterSoak& run) {
    soak::write_figure(file, "frames_asked", run.frames().asked);
    soak::write_figure(file, "frames_sent", run.frames().sent);
    soak::write_figure(file, "frames_received", run.frames().received);
    for (const auto& figure : figures) {
        soak::write_figure(file, figure.name, run.figures().*figure.value);
    }
    for (const auto& footprint : footprints) {
        soak::write_figure(file, footprint.name, run.figures().*footprint.value);
    }
}

}  // namespace

int main(int argc, char** argv) {
    MasterOptions options;
    if (!soak::parse_options(argc, argv, options, store)) {
        std::fputs(
            "usage: master-soak --simulator FILE --directory DIR [--seed N] [--seconds S | --cycles N]\n"
            "                   [--period-ms MS] [--lose-frame N] [--leak]\n",
            stderr);
        return soak::usage_status;
    }
    return soak::run_program<soak::MasterSoak>("master-soak", options, write_figures);
}
