// Writes a recording as a drive makes one: recording_source FILE SECONDS
//
// A frame each 20 ms and a reply of 39 bytes in three pieces; each hundredth reply is short, each two hundredth is
// missing, and the port is closed and opened again each hour.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "program/file.h"
#include "recorder/recording.h"
#include "vehicle/commandframe.h"
#include "vehicle/telemetry.h"

namespace {

using namespace vehicle_recorder;

constexpr std::uint64_t cycle_us = 20'000;
constexpr std::uint64_t cycles_an_hour = 3'600'000'000 / cycle_us;
constexpr std::size_t written_at_once = 1 << 20;

// A reply: the motor's speed, voltage, current, capacity and latitude follow the number of the cycle.
std::vector<std::uint8_t> reply_of(std::uint64_t number) {
    std::vector<std::uint8_t> reply(vehicle::reply_bytes);
    const auto set = [&reply](std::size_t slot, std::uint64_t value) {
        reply[slot * vehicle::slot_bytes] = static_cast<std::uint8_t>(value & 0xFF);
        reply[slot * vehicle::slot_bytes + 1] = static_cast<std::uint8_t>(0xA0 + slot);
        reply[slot * vehicle::slot_bytes + 2] = static_cast<std::uint8_t>(0xB0 + slot);
    };
    const std::uint64_t raw_speed = 32767 - number % 7000;
    set(0, raw_speed >> 8);
    set(1, raw_speed);
    set(2, 480 >> 8);
    set(3, 480 - number % 20);
    set(4, 0);
    set(5, number % 200);
    set(7, 100 - number / 20'000);
    set(8, number);
    return reply;
}

class Source {
public:
    explicit Source(std::FILE* file) : file_(file), text_(text_of(header_of_now("/dev/ttyUSB0"))) {}

    void flush() {
        std::fwrite(text_.data(), 1, text_.size(), file_);
        text_.clear();
    }

    void event(std::uint64_t time_us, EntryKind kind) { write(entry(time_us, kind)); }

    void settings(std::uint64_t time_us, unsigned speed_baud) {
        Entry line = entry(time_us, EntryKind::line);
        line.settings.speed_baud = speed_baud;
        write(line);
    }

    void note(std::uint64_t time_us, const char* text) {
        Entry note = entry(time_us, EntryKind::note);
        note.text = text;
        write(note);
    }

    void bytes(std::uint64_t time_us, EntryKind kind, std::span<const std::uint8_t> bytes) {
        Entry piece = entry(time_us, kind);
        piece.bytes.assign(bytes.begin(), bytes.end());
        write(piece);
    }

private:
    static Entry entry(std::uint64_t time_us, EntryKind kind) {
        Entry entry;
        entry.time_us = time_us;
        entry.kind = kind;
        return entry;
    }

    void write(const Entry& entry) {
        formatter_.append(text_, entry);
        if (text_.size() > written_at_once) {
            flush();
        }
    }

    std::FILE* file_;
    std::string text_;
    EntryFormatter formatter_;
};

void write_cycle(Source& source, std::uint64_t number, std::uint64_t time_us, std::mt19937& random) {
    const auto throttle = static_cast<std::uint8_t>(number / 50 % 256);
    const vehicle::FrameBytes frame = {throttle, vehicle::straight_ahead, vehicle::rest_bucket,
                                       vehicle::motor_on};
    source.bytes(time_us, EntryKind::sent, frame);
    if (number % 200 == 199) {
        return;
    }
    const std::vector<std::uint8_t> reply = reply_of(number);
    const std::size_t length = number % 100 == 50 ? 20 : reply.size();
    std::uint64_t piece_us = time_us + 3000 + random() % 500;
    for (std::size_t begin = 0; begin < length; begin += 13) {
        const std::size_t end = begin + 13 < length ? begin + 13 : length;
        source.bytes(piece_us, EntryKind::received, std::span(reply).subspan(begin, end - begin));
        piece_us += 3000 + random() % 500;
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fputs("usage: recording_source FILE SECONDS\n", stderr);
        return 2;
    }
    const program::File file(std::fopen(argv[1], "we"));
    if (!file) {
        std::perror(argv[1]);
        return 5;
    }
    Source source(file.get());
    std::mt19937 random(1);
    const std::uint64_t cycles = std::strtoull(argv[2], nullptr, 10) * 1'000'000 / cycle_us;
    std::uint64_t time_us = 0;
    for (std::uint64_t number = 0; number < cycles; ++number) {
        if (number % cycles_an_hour == 0) {
            if (number > 0) {
                source.event(time_us, EntryKind::close);
                time_us += 1'000'000;
            }
            source.event(time_us, EntryKind::open);
            source.settings(time_us + 100, 115'200);
            time_us += 300'000;
        }
        write_cycle(source, number, time_us, random);
        time_us += cycle_us + random() % 100;
    }
    source.bytes(time_us, EntryKind::sent, vehicle::neutral_frame);
    source.event(time_us + 200, EntryKind::close);
    source.note(time_us + 1000, "the program ended with status 0");
    source.event(time_us + 1100, EntryKind::end);
    source.flush();
    return std::fflush(file.get()) == 0 ? 0 : 5;
}
