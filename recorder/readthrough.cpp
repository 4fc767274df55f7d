#include "recorder/readthrough.h"

#include <cstdio>

#include "program/progress.h"

namespace vehicle_recorder {

void read_through(RecordingReader& reader, const Interrupts& interrupts, bool progress,
                  const std::function<bool(const Entry&)>& take) {
    constexpr unsigned entries_between_looks = 1024;
    program::Progress bar(progress);
    Entry entry;
    unsigned entries = 0;
    while (reader.next(entry) && take(entry)) {
        if (++entries == entries_between_looks) {
            entries = 0;
            interrupts.check();
            bar.update(reader.position(), reader.size());
        }
    }
    interrupts.check();
    bar.clear();
    if (const std::string damage = reader.damage_text(); !damage.empty()) {
        std::fprintf(stderr, "vehicle-recorder: %s\n", damage.c_str());
    }
}

}  // namespace vehicle_recorder
