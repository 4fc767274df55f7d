#include "recorder/report.h"

#include <numeric>

namespace vehicle_recorder {

std::uint64_t FaultCounts::all() const {
    return std::accumulate(counts.begin(), counts.end(), std::uint64_t{0});
}

void FaultCounts::absorb(const FaultCounts& later) {
    for (std::size_t kind = 0; kind < kinds; ++kind) {
        counts[kind] += later.counts[kind];
    }
}

}  // namespace vehicle_recorder
