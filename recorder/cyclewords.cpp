#include "recorder/cyclewords.h"

#include <array>
#include <cstdio>

#include "recorder/notewords.h"

namespace vehicle_recorder {

namespace {

constexpr Phrase frame_word = {"frame ", "viesti "};
constexpr Phrase neutral = {" (at rest)", " (lepo)"};
constexpr Phrase step_lost = {"no motor command, the step is lost: ",
                              "ei moottorikäskyä, tahti on kadonnut: "};
constexpr Phrase reply_to = {"reply to ", "vastaus viestiin "};
constexpr Phrase after = {" after ", ", viive "};
constexpr Phrase late = {", late", ", myöhässä"};
constexpr Phrase too_short = {"short, ", "vajaa, "};
constexpr Phrase garbled = {"garbled, ", "virheellinen, "};
constexpr Phrase of_all = {" of 39 bytes", " tavua 39:stä"};
constexpr Phrase ahead = {" bytes ahead of it: ", " vierasta tavua edellä: "};
constexpr Phrase unreadable = {" bytes that read as no reply", " tavua, jotka eivät ole vastaus"};
constexpr Phrase missing = {": missing", ": puuttuu"};
constexpr Phrase closed = {": not known, the line was closed", ": ei tiedossa, portti suljettiin"};
constexpr Phrase no_frame = {"answer to no frame: ", "ei vastaa mihinkään viestiin: "};
constexpr Phrase byte_word = {" bytes", " tavua"};

constexpr Phrase opened = {"the line is opened", "portti avataan"};
constexpr Phrase settings = {"the line is set to ", "portin asetukset: "};
constexpr Phrase baud = {" baud, ", " baudia, "};
constexpr Phrase flow_control = {", flow control ", ", vuonohjaus "};
constexpr Phrase line_closed = {"the line is closed", "portti suljetaan"};
constexpr Phrase noted = {"note: ", "huomautus: "};
constexpr Phrase ended = {"the recording is ended", "tallenne päättyy"};

// "0.5", "12.041": milliseconds with as many decimals as microseconds have.
std::string milliseconds(std::uint64_t time_us) {
    std::array<char, 32> room;
    std::snprintf(room.data(), room.size(), "%llu.%03llu ms", static_cast<unsigned long long>(time_us / 1000),
                  static_cast<unsigned long long>(time_us % 1000));
    return room.data();
}

std::string hex_of(const std::vector<std::uint8_t>& bytes) {
    constexpr std::size_t most = 12;
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < bytes.size() && i < most; i++) {
        text += i == 0 ? "" : " ";
        text += digits[bytes[i] >> 4U];
        text += digits[bytes[i] & 0xFU];
    }
    return text + (bytes.size() > most ? " ..." : "");
}

std::string telemetry_words(const vehicle::Telemetry& telemetry, Language language) {
    const auto named = [language](const Phrase& name, auto number) {
        return std::string(name.in(language)) + " " + std::to_string(number);
    };
    return named(phrases::speed, telemetry.speed_rpm) + " rpm, " +
           named(phrases::voltage, telemetry.voltage) + ", " + named(phrases::current, telemetry.current) +
           ", " + named(phrases::capacity, telemetry.capacity_ah) + " Ah, " +
           named(phrases::latitude, telemetry.latitude);
}

std::string content_words(const Reply& reply, ReplyState state, Language language) {
    const std::string count = std::to_string(reply.bytes.size());
    if (state == ReplyState::too_short) {
        return too_short.in(language) + count + of_all.in(language) + ": " + hex_of(reply.bytes);
    }
    if (const std::optional<vehicle::Telemetry> telemetry = reply.telemetry()) {
        const std::string noise =
            reply.ahead > 0 ? garbled.in(language) + std::to_string(reply.ahead) + ahead.in(language) : "";
        return noise + telemetry_words(*telemetry, language);
    }
    return garbled.in(language) + count + unreadable.in(language) + ": " + hex_of(reply.bytes);
}

}  // namespace

std::string frame_words(const Cycle& cycle, Language language) {
    std::string text = frame_word.in(language) + std::to_string(cycle.number) + ": ";
    if (cycle.step_lost) {
        return text + step_lost.in(language) + hex_of({cycle.frame.begin(), cycle.frame.end()});
    }
    const vehicle::Command command = vehicle::command_of(cycle.frame);
    const auto named = [language](const Phrase& name, unsigned number) {
        return std::string(name.in(language)) + " " + std::to_string(number) + ", ";
    };
    text += named(phrases::throttle, command.throttle) + named(phrases::direction, command.direction) +
            named(phrases::bucket, command.bucket);
    text += (command.motor == vehicle::motor_on ? phrases::motor_on : phrases::motor_off).in(language);
    return text + (cycle.frame == vehicle::neutral_frame ? neutral.in(language) : "");
}

std::string reply_words(const Cycle& cycle, Language language) {
    if (cycle.number == 0) {
        return no_frame.in(language) + std::to_string(cycle.reply->bytes.size()) + byte_word.in(language) +
               ": " + hex_of(cycle.reply->bytes);
    }
    std::string text = reply_to.in(language) + std::to_string(cycle.number);
    if (!cycle.reply) {
        return text + (cycle.state == ReplyState::closed ? closed : missing).in(language);
    }
    text += after.in(language) + milliseconds(cycle.delay_us().value_or(0));
    text += cycle.late ? late.in(language) : "";
    return text + ": " + content_words(*cycle.reply, cycle.state, language);
}

std::string event_words(const Entry& entry, Language language) {
    switch (entry.kind) {
        case EntryKind::open:
            return opened.in(language);
        case EntryKind::line:
            return settings.in(language) + std::to_string(entry.settings.speed_baud) + baud.in(language) +
                   entry.settings.format +
                   (entry.settings.flow == "none" ? "" : flow_control.in(language) + entry.settings.flow);
        case EntryKind::close:
            return line_closed.in(language);
        case EntryKind::note:
            return noted.in(language) + note_words(entry.text, language);
        default:
            return ended.in(language);
    }
}

}  // namespace vehicle_recorder
