#include "recorder/readthrough.h"

#include <cstdio>

#include "program/failure.h"
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
}

void tell_damage(const RecordingReader& reader) {
    if (const std::string damage = reader.damage_text(); !damage.empty()) {
        std::fprintf(stderr, "vehicle-recorder: %s\n", damage.c_str());
    }
}

void demand_frames(const RecordingReader& reader, bool frames) {
    if (!frames) {
        const std::string damage = reader.damage_text();
        throw program::Failure(program::ExitStatus::bad_file, damage.empty()
                                                                  ? reader.path() + " has no frames"
                                                                  : damage + "; it has no frames");
    }
    tell_damage(reader);
}

}  // namespace vehicle_recorder
