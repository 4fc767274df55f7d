#include "recorder/writinghalf.h"

#include <poll.h>

#include <algorithm>

#include "recorder/entrypipe.h"

namespace vehicle_recorder {

namespace {

constexpr int forever = -1;

int wait_ms(const RecordingWriter& writer, std::uint64_t now_us) {
    const std::uint64_t due_us = writer.due_us();
    if (due_us == UINT64_MAX) {
        return forever;
    }
    return due_us <= now_us ? 0
                            : static_cast<int>(std::min<std::uint64_t>((due_us - now_us) / 1000 + 1, 1000));
}

}  // namespace

void write_what_comes(int pipe, RecordingWriter& writer, std::uint64_t start_us) {
    EntryReceiver receiver(pipe);
    const auto now_us = [start_us] { return monotonic_now_us() - start_us; };
    bool ended = false;
    const auto take = [&](const Entry& entry) {
        if (entry.kind == EntryKind::end) {
            ended = writer.end(entry.time_us) || true;
        } else {
            writer.write(entry);
        }
    };
    for (bool is_there = true; is_there;) {
        pollfd waiting = {pipe, POLLIN, 0};
        if (poll(&waiting, 1, wait_ms(writer, now_us())) > 0) {
            is_there = receiver.read(take, [&](std::uint64_t count) { writer.lose(count); });
        }
        writer.tick(now_us());
    }
    if (!ended) {
        Entry note;
        note.time_us = now_us();
        note.kind = EntryKind::note;
        note.text = "the process that carried the line was ended";
        writer.write(note);
        writer.flush(now_us());
    }
}

}  // namespace vehicle_recorder
