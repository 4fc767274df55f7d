// A long run of SDO transfers with simulated nodes that make every fault there is; see nodesoak.h.
//
//     node-soak --simulator FILE --directory DIR [--seed N] [--seconds S | --transfers N] [--pause-ms MS]
//               [--patience-ms MS] [--spoil N] [--forget N] [--repeat N] [--leak]
//
// Leaves its figures in DIR/figures; see runprogram.h. With a problem it ends with status 1.

#include <cstdio>
#include <string_view>

#include "soak/nodesoak.h"
#include "soak/runprogram.h"

namespace {

using soak::NodeFigures;
using soak::NodeOptions;
using soak::parse;

constexpr soak::NamedFigure<NodeFigures, std::uint64_t> figures[] = {
    {"started", &NodeFigures::started},
    {"ended", &NodeFigures::ended},
    {"done", &NodeFigures::done},
    {"done_expedited", &NodeFigures::done_expedited},
    {"done_segmented", &NodeFigures::done_segmented},
    {"done_blocks", &NodeFigures::done_blocks},
    {"bytes", &NodeFigures::bytes},
    {"compared", &NodeFigures::compared},
    {"aborted_by_node", &NodeFigures::aborted_by_node},
    {"aborted_by_client", &NodeFigures::aborted_by_client},
    {"timed_out", &NodeFigures::timed_out},
    {"driver_failed", &NodeFigures::driver_failed},
    {"cancelled", &NodeFigures::cancelled},
    {"dropped", &NodeFigures::dropped},
    {"worst_us", &NodeFigures::worst_us},
};
constexpr soak::NamedFigure<NodeFigures, long> footprints[] = {
    {"memory_start_kib", &NodeFigures::memory_start_kib},
    {"memory_end_kib", &NodeFigures::memory_end_kib},
    {"descriptors_start", &NodeFigures::descriptors_start},
    {"descriptors_end", &NodeFigures::descriptors_end},
};

bool store(std::string_view name, std::string_view value, NodeOptions& options) {
    return (name == "--seed" && parse(value, options.seed)) ||
           (name == "--seconds" && parse(value, options.seconds)) ||
           (name == "--transfers" && parse(value, options.transfers)) ||
           (name == "--pause-ms" && parse(value, options.pause_ms)) ||
           (name == "--patience-ms" && parse(value, options.patience_ms)) ||
           (name == "--spoil" && parse(value, options.spoil)) ||
           (name == "--forget" && parse(value, options.forget)) ||
           (name == "--repeat" && parse(value, options.repeat));
}

void write_figures(std::FILE* file, const soak::NodeSoak& run) {
    for (const auto& figure : figures) {
        soak::write_figure(file, figure.name, run.figures().*figure.value);
    }
    for (const auto& footprint : footprints) {
        soak::write_figure(file, footprint.name, run.figures().*footprint.value);
    }
}

}  // namespace

int main(int argc, char** argv) {
    NodeOptions options;
    if (!soak::parse_options(argc, argv, options, store)) {
        std::fputs(
            "usage: node-soak --simulator FILE --directory DIR [--seed N] [--seconds S | --transfers N]\n"
            "                 [--pause-ms MS] [--patience-ms MS] [--spoil N] [--forget N] [--repeat N] "
            "[--leak]\n",
            stderr);
        return soak::usage_status;
    }
    return soak::run_program<soak::NodeSoak>("node-soak", options, write_figures);
}
