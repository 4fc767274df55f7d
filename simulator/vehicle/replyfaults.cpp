#include "simulator/vehicle/replyfaults.h"

#include <algorithm>

namespace vehicle_simulator {

namespace {

using Bytes = std::vector<std::uint8_t>;

// How far a random fault goes. Together they leave the line time to catch up: a panel that takes up to 100
// bytes in each cycle is given some 50.
constexpr int most_writes = 13;
constexpr int longest_pause_ms = 15;
constexpr int most_garbage = 120;
constexpr int longest_delay_ms = 150;

// `bytes` in `count` parts as equal as can be, the longer ones first; fewer parts if there are fewer bytes.
std::vector<Bytes> split_evenly(const Bytes& bytes, std::size_t count) {
    std::vector<Bytes> parts;
    std::size_t begin = 0;
    for (std::size_t left = std::min(count, bytes.size()); left > 0; --left) {
        const std::size_t length = (bytes.size() - begin + left - 1) / left;
        const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(begin);
        parts.emplace_back(first, first + static_cast<std::ptrdiff_t>(length));
        begin += length;
    }
    return parts;
}

}  // namespace

std::vector<Piece> ReplyFaults::apply(const ReplyFrame& reply) {
    ++replies_;
    random_fault_.clear();
    const bool random = plan_.random_percent > 0 && draw(1, 100) <= plan_.random_percent;
    if (!random && replies_ % plan_.every != 0) {
        return {{.after_ms = 0, .bytes = Bytes(reply.begin(), reply.end())}};
    }
    const FaultPlan plan = random ? draw_fault() : plan_;
    if (plan.mute) {
        return {};
    }
    Bytes bytes = garbage(plan.garbage);
    const std::size_t kept = static_cast<std::size_t>(plan.cut.value_or(static_cast<int>(reply_length)));
    bytes.insert(bytes.end(), reply.begin(), reply.begin() + static_cast<std::ptrdiff_t>(kept));

    std::vector<Piece> pieces;
    int after_ms = plan.delay_ms;
    for (Bytes& part : split_evenly(bytes, static_cast<std::size_t>(plan.split))) {
        pieces.push_back({.after_ms = after_ms, .bytes = std::move(part)});
        after_ms += plan.split_pause_ms;
    }
    return pieces;
}

// A plan with one fault of random kind and size, told in random_fault_.
FaultPlan ReplyFaults::draw_fault() {
    constexpr int kinds = 5;
    FaultPlan plan;
    switch (draw(1, kinds)) {
        case 1:
            plan.mute = true;
            random_fault_ = "muted";
            break;
        case 2:
            plan.cut = draw(1, static_cast<int>(reply_length) - 1);
            random_fault_ = "short " + std::to_string(*plan.cut);
            break;
        case 3:
            plan.split = draw(2, most_writes);
            plan.split_pause_ms = draw(1, longest_pause_ms);
            random_fault_ =
                "split " + std::to_string(plan.split) + " pause " + std::to_string(plan.split_pause_ms);
            break;
        case 4:
            plan.garbage = draw(1, most_garbage);
            random_fault_ = "garbage " + std::to_string(plan.garbage);
            break;
        default:
            plan.delay_ms = draw(1, longest_delay_ms);
            random_fault_ = "delayed " + std::to_string(plan.delay_ms);
            break;
    }
    return plan;
}

// The next random number from `lowest` to `highest`, the same on every system.
int ReplyFaults::draw(int lowest, int highest) {
    const auto count = static_cast<std::uint32_t>(highest - lowest + 1);
    return lowest + static_cast<int>(random_() % count);
}

std::vector<std::uint8_t> ReplyFaults::garbage(int count) {
    Bytes bytes(static_cast<std::size_t>(count));
    std::generate(bytes.begin(), bytes.end(), [this] { return static_cast<std::uint8_t>(random_() & 0xFF); });
    return bytes;
}

}  // namespace vehicle_simulator
