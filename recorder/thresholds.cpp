#include "recorder/thresholds.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <utility>

#include "vehicle/commandframe.h"

namespace vehicle_recorder {

namespace {

struct Name {
    std::string_view word;  // on the command line
    Quantity quantity;
    Phrase phrase;
    const char* unit;
};

constexpr Phrase no_reply = {"no whole reply for", "ei kokonaista vastausta"};
constexpr Phrase passed_upwards = {"above", "yli"};
constexpr Phrase passed_downwards = {"below", "alle"};

constexpr std::array<Name, 4> names = {{
    {"rpm", Quantity::rpm, phrases::speed, " rpm"},
    {"voltage", Quantity::voltage, phrases::voltage, ""},
    {"current", Quantity::current, phrases::current, ""},
    {"capacity", Quantity::capacity, phrases::capacity, " Ah"},
}};

std::int64_t value_of(const vehicle::Telemetry& telemetry, Quantity quantity) {
    switch (quantity) {
        case Quantity::rpm:
            return telemetry.speed_rpm;
        case Quantity::voltage:
            return telemetry.voltage;
        case Quantity::current:
            return telemetry.current;
        case Quantity::capacity:
            return telemetry.capacity_ah;
        case Quantity::silence:
            break;
    }
    return 0;
}

// A reply after which nothing has come for so long is at its end.
constexpr std::uint64_t reply_pause_us = 15'000;

// What comes without a frame is no reply.
constexpr std::size_t most_heard = 4096;

// How far a value must come back.
std::int64_t hysteresis(const Threshold& threshold) {
    constexpr std::int64_t part = 50;
    return threshold.quantity == Quantity::silence
               ? 0
               : std::max<std::int64_t>(std::abs(threshold.limit) / part, 1);
}

}  // namespace

std::optional<Threshold> read_threshold(std::string_view text, bool above) {
    const std::size_t middle = text.find('=');
    const auto* const name = std::find_if(
        names.begin(), names.end(), [&](const Name& one) { return one.word == text.substr(0, middle); });
    if (middle == std::string_view::npos || name == names.end()) {
        return std::nullopt;
    }
    const std::string_view number = text.substr(middle + 1);
    Threshold threshold = {.quantity = name->quantity, .above = above, .limit = 0};
    const auto [end, failure] =
        std::from_chars(number.data(), number.data() + number.size(), threshold.limit);
    constexpr std::int64_t highest = 1'000'000;  // beyond all that a reply can tell
    const bool is_right = failure == std::errc() && end == number.data() + number.size() &&
                          std::abs(threshold.limit) <= highest;
    return is_right ? std::optional(threshold) : std::nullopt;
}

std::string describe(const Threshold& threshold, std::int64_t value, Language language) {
    if (threshold.quantity == Quantity::silence) {
        return std::string(no_reply.in(language)) + " " + std::to_string(value) + " ms";
    }
    const auto* const name = std::find_if(
        names.begin(), names.end(), [&](const Name& one) { return one.quantity == threshold.quantity; });
    const Phrase& way = threshold.above ? passed_upwards : passed_downwards;
    return std::string(name->phrase.in(language)) + " " + std::to_string(value) + name->unit + ", " +
           way.in(language) + " " + std::to_string(threshold.limit) + name->unit;
}

ThresholdWatch::ThresholdWatch(const std::vector<Threshold>& thresholds, Alarm alarm)
    : alarm_(std::move(alarm)) {
    for (const Threshold& threshold : thresholds) {
        Watched watched;
        watched.threshold = threshold;
        watched_.push_back(watched);
    }
}

void ThresholdWatch::add(const Entry& entry) {
    tick(entry.time_us);
    switch (entry.kind) {
        case EntryKind::open:
            open();
            break;
        case EntryKind::close:
            is_open_ = false;
            break;
        case EntryKind::sent:
            for (std::size_t i = 0; i < entry.bytes.size(); i++) {
                if (++sent_ == vehicle::frame_bytes) {
                    sent_ = 0;
                    take_frame(entry.time_us);
                }
            }
            break;
        case EntryKind::received:
            if (heard_.size() > most_heard) {
                heard_.clear();
            }
            heard_.insert(heard_.end(), entry.bytes.begin(), entry.bytes.end());
            heard_us_ = entry.time_us;
            taken_ = false;
            break;
        default:
            break;
    }
    tick(entry.time_us);
}

void ThresholdWatch::open() {
    is_open_ = true;
    heard_.clear();
    heard_before_ = 0;
    taken_ = false;
    sent_ = 0;
    silent_since_us_.reset();
}

// What came since the frame before is one reply or more, the end of one that began before that, or the beginning of one.
void ThresholdWatch::take_frame(std::uint64_t time_us) {
    if (!silent_since_us_) {
        silent_since_us_ = time_us;
    }
    take_reply();
    const bool may_go_on = !taken_ && heard_before_ == 0 && heard_.size() < vehicle::reply_bytes;
    if (!may_go_on) {
        heard_.clear();
    }
    heard_before_ = heard_.size();
}

// The last of the replies that have come, if they are whole.
void ThresholdWatch::take_reply() {
    if (taken_ || heard_.empty() || heard_.size() % vehicle::reply_bytes != 0) {
        return;
    }
    taken_ = true;
    silent_since_us_ = heard_us_;
    const std::uint8_t* const last = heard_.data() + heard_.size() - vehicle::reply_bytes;
    const vehicle::Telemetry telemetry = vehicle::telemetry_of(vehicle::slots_of(last));
    for (Watched& watched : watched_) {
        if (watched.threshold.quantity != Quantity::silence) {
            look(watched, value_of(telemetry, watched.threshold.quantity));
        }
    }
}

void ThresholdWatch::tick(std::uint64_t now_us) {
    if (now_us - heard_us_ >= reply_pause_us) {
        take_reply();
    }
    for (Watched& watched : watched_) {
        if (watched.threshold.quantity == Quantity::silence) {
            const bool counts = is_open_ && silent_since_us_ && now_us > *silent_since_us_;
            look(watched, counts ? static_cast<std::int64_t>((now_us - *silent_since_us_) / 1000) : 0);
        }
        tell(watched, now_us);
    }
}

void ThresholdWatch::look(Watched& watched, std::int64_t value) {
    const Threshold& threshold = watched.threshold;
    const std::int64_t beyond = threshold.above ? value - threshold.limit : threshold.limit - value;
    watched.value = value;
    if (beyond > 0) {
        watched.passed = true;
    } else if (beyond <= -hysteresis(threshold)) {
        watched.passed = watched.told = false;
    }
}

void ThresholdWatch::tell(Watched& watched, std::uint64_t now_us) const {
    const bool is_soon = watched.told_us && now_us < *watched.told_us + least_pause_us;
    if (watched.passed && !watched.told && !is_soon) {
        watched.told = true;
        watched.told_us = now_us;
        alarm_(watched.threshold, watched.value);
    }
}

}  // namespace vehicle_recorder
