#include "simulator/node/lssslave.h"

#include <algorithm>
#include <span>

namespace node_simulator {

namespace {

constexpr std::uint32_t answer_identifier = 0x7E4;
constexpr Time ms = 1000;

enum Command : unsigned {
    switch_state_global = 0x04,
    configure_node = 0x11,
    configure_bit_timing = 0x13,
    activate_bit_timing = 0x15,
    store_configuration = 0x17,
    switch_selective_first = 0x40,
    switched = 0x44,
    identify_first = 0x46,
    identify_non_configured = 0x4C,
    identified = 0x4F,
    non_configured = 0x50,
    fastscan_command = 0x51,
    inquire_first = 0x5A,
    inquire_node = 0x5E
};

constexpr unsigned fastscan_begin = 0x80;
constexpr unsigned highest_bit = 31;
constexpr unsigned highest_node = 127;
constexpr unsigned reserved_bit_timing = 5;
constexpr unsigned highest_bit_timing = 8;

// The bounds of an identity: vendor, product, lowest and highest revision, lowest and highest serial number.
constexpr std::size_t bounds = 6;

CanFrame answer(unsigned command, unsigned first = 0) {
    return make_frame(answer_identifier, {command, first, 0, 0, 0, 0, 0, 0});
}

// Whether the bits from 31 down to `lowest` are the same.
bool same_upper_bits(std::uint32_t one, std::uint32_t other, unsigned lowest) {
    return (one ^ other) >> lowest == 0;
}

}  // namespace

LssSlave::LssSlave(const LssIdentity& identity, std::uint8_t node)
    : identity_(identity), stored_(node), active_(node), pending_(node) {}

void LssSlave::power_on() {
    active_ = stored_;
    pending_ = stored_;
    in_configuration_ = false;
    wants_to_start_ = false;
    selected_parts_ = 0;
    identified_parts_ = 0;
    fastscan_position_ = 0;
    silent_until_ = 0;
}

void LssSlave::reset_communication() {
    active_ = pending_;
    in_configuration_ = false;
    wants_to_start_ = false;
}

std::optional<CanFrame> LssSlave::hear(const CanFrame& frame, Time now) {
    if (frame.length != 8 || frame.remote) {
        return std::nullopt;
    }
    const unsigned command = frame.data[0];
    const auto number = static_cast<std::uint32_t>(load_le(std::span(frame.data).subspan(1, 4)));
    const bool selects =
        command >= switch_selective_first && command < switch_selective_first + identity_.size();
    const bool identifies = command >= identify_first && command < identify_first + bounds;
    if (!selects) {
        selected_parts_ = 0;  // the four frames come one after the other
    }
    if (!identifies) {
        identified_parts_ = 0;
    }
    if (selects) {
        return switch_selective(command - switch_selective_first, number);
    }
    if (identifies) {
        return identify(command - identify_first, number);
    }
    switch (command) {
        case switch_state_global:
            switch_global(frame.data[1]);
            return std::nullopt;
        case identify_non_configured:
            return active_ == no_node ? std::optional(answer(non_configured)) : std::nullopt;
        case fastscan_command:
            return fastscan(frame);
        default:
            return in_configuration_ ? configure(frame, now) : std::nullopt;
    }
}

void LssSlave::switch_global(unsigned mode) {
    if (mode > 1) {
        return;
    }
    in_configuration_ = mode == 1;
    if (!in_configuration_ && active_ == no_node && pending_ != no_node) {
        wants_to_start_ = true;
    }
}

std::optional<CanFrame> LssSlave::switch_selective(std::size_t part, std::uint32_t number) {
    // The first number begins anew, wherever an earlier selection broke off.
    const bool in_turn =
        !in_configuration_ && (part == 0 || part == selected_parts_) && identity_[part] == number;
    selected_parts_ = in_turn ? part + 1 : 0;
    if (selected_parts_ != identity_.size()) {
        return std::nullopt;
    }
    selected_parts_ = 0;
    in_configuration_ = true;
    return answer(switched);
}

std::optional<CanFrame> LssSlave::identify(std::size_t part, std::uint32_t number) {
    bool fits = part == 0 || part == identified_parts_;
    switch (part) {
        case 0:
        case 1:
            fits = fits && number == identity_[part];
            break;
        case 2:
        case 4:
            fits = fits && number <= identity_[1 + part / 2];
            break;
        default:
            fits = fits && number >= identity_[1 + part / 2];
            break;
    }
    identified_parts_ = fits ? part + 1 : 0;
    if (identified_parts_ != bounds) {
        return std::nullopt;
    }
    identified_parts_ = 0;
    return answer(identified);
}

std::optional<CanFrame> LssSlave::fastscan(const CanFrame& frame) {
    const auto number = static_cast<std::uint32_t>(load_le(std::span(frame.data).subspan(1, 4)));
    const unsigned bit = frame.data[5];
    const unsigned part = frame.data[6];
    const unsigned next = frame.data[7];
    if (in_configuration_ || active_ != no_node || pending_ != no_node) {
        return std::nullopt;
    }
    if (bit == fastscan_begin) {
        fastscan_position_ = 0;
        return answer(identified);
    }
    if (bit > highest_bit || part >= identity_.size() || next >= identity_.size() ||
        part != fastscan_position_ || !same_upper_bits(identity_[part], number, bit)) {
        return std::nullopt;
    }
    fastscan_position_ = next;
    if (bit == 0 && next < part) {
        in_configuration_ = true;
    }
    return answer(identified);
}

std::optional<CanFrame> LssSlave::configure(const CanFrame& frame, Time now) {
    const unsigned command = frame.data[0];
    switch (command) {
        case configure_node: {
            const std::uint8_t node = frame.data[1];
            const bool valid = (node >= 1 && node <= highest_node) || node == no_node;
            pending_ = valid ? node : pending_;
            return answer(command, valid ? 0 : 1);
        }
        case configure_bit_timing: {
            const unsigned index = frame.data[2];
            const bool valid =
                frame.data[1] == 0 && index <= highest_bit_timing && index != reserved_bit_timing;
            return answer(command, valid ? 0 : 1);
        }
        case activate_bit_timing:
            silent_until_ = now + 2 * load_le(std::span(frame.data).subspan(1, 2)) * ms;
            return std::nullopt;
        case store_configuration:
            stored_ = pending_;
            return answer(command);
        case inquire_node:
            return answer(command, active_);
        default:
            break;
    }
    if (command < inquire_first || command >= inquire_first + identity_.size()) {
        return std::nullopt;
    }
    CanFrame number = answer(command);
    store_le(std::span(number.data).subspan(1, 4), identity_[command - inquire_first]);
    return number;
}

}  // namespace node_simulator
