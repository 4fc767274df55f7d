#include "simulator/node/canopennode.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace node_simulator {

namespace {

constexpr std::uint32_t sync_identifier = 0x80;
constexpr std::uint64_t sync_producer_bit = 0x40000000;
constexpr std::uint64_t cobid_bits = 0x7FF;
constexpr std::uint32_t guarding_base = 0x700;
constexpr std::uint32_t emergency_base = 0x80;
constexpr std::uint32_t sdo_request_base = 0x600;
constexpr unsigned remembered_errors = 8;
constexpr unsigned channels = 4;
constexpr std::size_t largest_bytes = 10'000;
constexpr std::size_t largest_domain_bytes = 1'000'000;
constexpr std::uint16_t code_guarding_lost = 0x8130;
constexpr std::uint64_t contact_bits = 0x11;  // of the error register, by that code alone
constexpr std::uint32_t highest_node = 127;
constexpr std::uint16_t code_pdo_too_short = 0x8210;

constexpr std::uint32_t device_type = 0x000F0191;  // profile 401, all four kinds of inputs and outputs

// Bits of the error register by the upper digit of the error code (CiA 301, 7.5.2.2).
struct ErrorClass {
    unsigned digit;
    unsigned bits;
};
constexpr std::array<ErrorClass, 6> error_classes{
    {{0x2, 0x03}, {0x3, 0x05}, {0x4, 0x09}, {0x8, 0x11}, {0x5, 0x21}, {0xF, 0x81}}};

unsigned error_register_of(std::uint16_t code) {
    const auto* found = std::find_if(error_classes.begin(), error_classes.end(),
                                     [code](const ErrorClass& entry) { return entry.digit == code >> 12; });
    return found == error_classes.end() ? 0x01 : found->bits;
}

void keep_earlier(std::optional<Time>& earliest, const std::optional<Time>& time) {
    if (time && (!earliest || *time < *earliest)) {
        earliest = time;
    }
}

}  // namespace

LssIdentity NodeSettings::identity() const {
    return {0x00000000, 0x00000401, 0x00010000, serial.value_or(node)};
}

CanopenNode::CanopenNode(const NodeSettings& settings)
    : settings_(settings), sdo_(dictionary_, settings.node, settings.blocks, settings.faults) {
    add_identity();
    add_errors();
    add_control();
    add_storage();
    add_samples();
    add_process_data();
    pdos_ = std::make_unique<NodePdos>(dictionary_, settings_.node, settings_.strict_counts);
}

std::vector<SentFrame> CanopenNode::power_on(Time now) {
    powered_ = true;
    dictionary_.reset(0x0000, 0xFFFF);
    boot(now);
    return finish(now);
}

void CanopenNode::power_off() {
    powered_ = false;
    state_ = NmtState::initialising;
}

std::vector<SentFrame> CanopenNode::receive(const CanFrame& frame, Time now) {
    if (!powered_) {
        return {};
    }
    if (frame.identifier == 0) {
        if (frame.length >= 2 && (frame.data[1] == 0 || frame.data[1] == settings_.node)) {
            command(frame.data[0], now);
        }
    } else if (frame.identifier == guarding_base + settings_.node) {
        if (frame.remote) {
            guard(now);
        }
    } else if (frame.identifier > guarding_base && frame.identifier <= guarding_base + highest_node) {
        hear_heartbeat(frame, now);
    } else if (!communicates()) {
        return {};
    } else if (frame.identifier == sdo_request_base + settings_.node) {
        if (const std::optional<CanFrame> answer = sdo_.answer(frame, now)) {
            send(*answer, true);
        }
        while (const std::optional<CanFrame> segment = sdo_.more()) {
            send(*segment, true);
        }
    } else if (frame.identifier == (dictionary_.at(0x1005, 0).number() & cobid_bits)) {
        handle_sync(now);
    } else {
        handle_pdo(frame);
    }
    return finish(now);
}

std::vector<SentFrame> CanopenNode::advance(Time now) {
    if (!powered_) {
        return {};
    }
    watch_guarding(now);
    watch_heartbeats(now);
    if (const std::optional<CanFrame> abort = sdo_.expire(now)) {
        send(*abort);
    }
    return finish(now);
}

std::optional<Time> CanopenNode::deadline() const {
    std::optional<Time> earliest;
    if (powered_) {
        keep_earlier(earliest, guarded_until_);
        keep_earlier(earliest, next_heartbeat_);
        keep_earlier(earliest, next_sync_);
        keep_earlier(earliest, sdo_.deadline());
        for (const Watched& watched : watched_) {
            keep_earlier(earliest, watched.lost_at);
        }
        if (state_ == NmtState::operational) {
            keep_earlier(earliest, pdos_->deadline());
        }
    }
    return earliest;
}

std::vector<SentFrame> CanopenNode::emergency(std::uint16_t code, std::span<const std::uint8_t> manufacturer,
                                              Time now) {
    if (!powered_) {
        return {};
    }
    raise_emergency(code, manufacturer);
    return finish(now);
}

std::vector<SentFrame> CanopenNode::set_input(std::uint8_t channel, std::uint8_t value, Time now) {
    dictionary_.at(0x6000, channel).set_number(value);
    return powered_ ? finish(now) : std::vector<SentFrame>{};
}

void CanopenNode::add_identity() {
    dictionary_.add_number(0x1000, 0, Access::read_only, 4, device_type);
    dictionary_.add_bytes(0x1008, 0, Access::read_only, 0, "node-simulator");
    dictionary_.add_bytes(0x1009, 0, Access::read_only, 0, "simulated hardware");
    dictionary_.add_bytes(0x100A, 0, Access::read_only, 0, "1.0");
    const LssIdentity identity = settings_.identity();
    dictionary_.add_number(0x1018, 0, Access::read_only, 1, identity.size());
    for (std::size_t i = 0; i < identity.size(); ++i) {
        dictionary_.add_number(0x1018, static_cast<std::uint8_t>(i + 1), Access::read_only, 4, identity[i]);
    }
}

void CanopenNode::add_errors() {
    dictionary_.add_number(0x1001, 0, Access::read_only, 1, 0).mapping = Mapping::transmit;
    DictionaryObject& count = dictionary_.add_number(0x1003, 0, Access::read_write, 1, 0);
    count.volatile_value = true;
    count.accept = [](Bytes& value) { return value[0] == 0 ? access_done : abort_invalid_value; };
    for (std::uint8_t i = 1; i <= remembered_errors; ++i) {
        dictionary_.add_number(0x1003, i, Access::read_only, 4, 0);
    }
    dictionary_.add_number(0x1014, 0, Access::read_only, 4, emergency_base + settings_.node);
    DictionaryObject& trigger = dictionary_.add_number(0x2010, 0, Access::write_only, 2, 0);
    trigger.changed = [this, &trigger] { raise_emergency(static_cast<std::uint16_t>(trigger.number()), {}); };
}

void CanopenNode::add_control() {
    const std::uint64_t producer = settings_.sync_period_us != 0 ? sync_producer_bit : 0;
    dictionary_.add_number(0x1005, 0, Access::read_write, 4, sync_identifier | producer).changed = [this] {
        next_sync_.reset();
    };
    dictionary_.add_number(0x1006, 0, Access::read_write, 4, settings_.sync_period_us).changed = [this] {
        next_sync_.reset();
    };
    dictionary_.add_number(0x100C, 0, Access::read_write, 2, 0);
    dictionary_.add_number(0x100D, 0, Access::read_write, 1, 0);
    dictionary_.add_number(0x1017, 0, Access::read_write, 2, settings_.heartbeat_ms).changed = [this] {
        next_heartbeat_.reset();
    };
    dictionary_.add_number(0x1016, 0, Access::read_only, 1, watched_.size());
    for (std::size_t i = 0; i < watched_.size(); ++i) {
        DictionaryObject& entry =
            dictionary_.add_number(0x1016, static_cast<std::uint8_t>(i + 1), Access::read_write, 4, 0);
        entry.accept = [this, i](Bytes& value) { return check_consumer(i, load_le(value)); };
        entry.changed = [this, i] { watched_[i] = {}; };
    }
    dictionary_.add_number(0x1200, 0, Access::read_only, 1, 2);
    dictionary_.add_number(0x1200, 1, Access::read_only, 4, sdo_request_base + settings_.node);
    dictionary_.add_number(0x1200, 2, Access::read_only, 4, 0x580U + settings_.node);
}

// Store and restore (CiA 301, 7.5.2.13 and 7.5.2.14). Reading tells that it is done on command.
void CanopenNode::add_storage() {
    struct Range {
        std::uint16_t first;
        std::uint16_t last;
    };
    constexpr std::array<Range, 3> ranges{{{0x1000, 0x9FFF}, {0x1000, 0x1FFF}, {0x6000, 0x9FFF}}};
    constexpr std::uint64_t save = 0x65766173;
    constexpr std::uint64_t load = 0x64616F6C;
    constexpr std::uint64_t on_command = 1;
    for (const std::uint16_t index : {std::uint16_t{0x1010}, std::uint16_t{0x1011}}) {
        dictionary_.add_number(index, 0, Access::read_only, 1, ranges.size());
        for (std::size_t i = 0; i < ranges.size(); ++i) {
            DictionaryObject& object = dictionary_.add_number(index, static_cast<std::uint8_t>(i + 1),
                                                              Access::read_write, 4, on_command);
            object.accept = [this, index, range = ranges[i]](Bytes& value) {
                if (load_le(value) != (index == 0x1010 ? save : load)) {
                    return abort_not_stored;
                }
                store_le(value, on_command);
                if (index == 0x1010) {
                    dictionary_.store(range.first, range.last);
                } else {
                    dictionary_.forget_stored(range.first, range.last);
                }
                return access_done;
            };
        }
    }
    dictionary_.add_number(0x1020, 0, Access::read_only, 1, 2);
    dictionary_.add_number(0x1020, 1, Access::read_write, 4, 0);
    dictionary_.add_number(0x1020, 2, Access::read_write, 4, 0);
}

void CanopenNode::add_samples() {
    dictionary_.add_bytes(0x2000, 0, Access::read_write, largest_bytes, "a text of more than four bytes");
    dictionary_.add_bytes(0x2001, 0, Access::read_write, largest_domain_bytes, "domain");
    dictionary_.add_number(0x2002, 0, Access::read_only, 1, 8);
    for (std::uint8_t size = 1; size <= 8; ++size) {
        dictionary_.add_number(0x2002, size, Access::read_write, size, 0);
    }
    dictionary_.add_number(0x2003, 0, Access::write_only, 4, 0);
    dictionary_.add_number(0x2004, 0, Access::read_write, 1, 10).accept = [](Bytes& value) {
        if (value[0] > 100) {
            return abort_value_too_high;
        }
        return value[0] < 10 ? abort_value_too_low : access_done;
    };
    dictionary_.add_number(0x2005, 0, Access::read_write, 2, 0).accept = [this](Bytes&) {
        return state_ == NmtState::pre_operational ? access_done : abort_device_state;
    };
}

void CanopenNode::add_process_data() {
    wire(0x6200, 0x6000, 1);
    wire(0x6411, 0x6401, 2);
}

// Adds outputs and inputs; what is written to an output is what the input reads.
void CanopenNode::wire(std::uint16_t output, std::uint16_t input, std::size_t size) {
    dictionary_.add_number(output, 0, Access::read_only, 1, channels);
    dictionary_.add_number(input, 0, Access::read_only, 1, channels);
    for (std::uint8_t channel = 1; channel <= channels; ++channel) {
        DictionaryObject& to = dictionary_.add_number(input, channel, Access::read_only, size, 0);
        to.mapping = Mapping::transmit;
        DictionaryObject& from = dictionary_.add_number(output, channel, Access::read_write, size, 0);
        from.mapping = Mapping::receive;
        from.changed = [&from, &to] { to.value = from.value; };
    }
}

// Starts to communicate with what the communication objects now hold.
void CanopenNode::boot(Time now) {
    sdo_.reset();
    pdos_->reset();
    guard_toggle_ = 0;
    guarded_until_.reset();
    watched_ = {};
    next_heartbeat_.reset();
    next_sync_.reset();
    if (dictionary_.at(0x1017, 0).number() != 0) {
        next_heartbeat_ = now + dictionary_.at(0x1017, 0).number() * 1000;
    }
    send(make_frame(guarding_base + settings_.node, {0}));
    enter(settings_.self_starting ? NmtState::operational : NmtState::pre_operational);
}

void CanopenNode::enter(NmtState state) {
    if (state == NmtState::operational && state_ != NmtState::operational) {
        pdos_->start();
    }
    if (state == NmtState::stopped) {
        sdo_.reset();
    }
    state_ = state;
}

void CanopenNode::command(unsigned code, Time now) {
    switch (code) {
        case 1:
            enter(NmtState::operational);
            break;
        case 2:
            enter(NmtState::stopped);
            break;
        case 128:
            enter(NmtState::pre_operational);
            break;
        case 129:
            dictionary_.reset(0x0000, 0xFFFF);
            boot(now);
            break;
        case 130:
            dictionary_.reset(0x1000, 0x1FFF);
            boot(now);
            break;
        default:
            break;
    }
}

// Answers a guarding request; a node with a heartbeat is not guarded (CiA 301, 7.2.8.2.2).
void CanopenNode::guard(Time now) {
    if (dictionary_.at(0x1017, 0).number() != 0) {
        return;
    }
    send(make_frame(guarding_base + settings_.node, {static_cast<unsigned>(state_) | guard_toggle_}), true);
    guard_toggle_ ^= 0x80;
    const Time life_us = dictionary_.at(0x100C, 0).number() * dictionary_.at(0x100D, 0).number() * 1000;
    guarded_until_ = life_us == 0 ? std::nullopt : std::optional(now + life_us);
}

// A node whose master has fallen silent says so and leaves operational.
void CanopenNode::watch_guarding(Time now) {
    if (!guarded_until_ || now < *guarded_until_) {
        return;
    }
    guarded_until_.reset();
    lose_contact();
}

// Somebody whom the node depends on has fallen silent: it says so and leaves operational.
void CanopenNode::lose_contact() {
    raise_emergency(code_guarding_lost, {});
    if (state_ == NmtState::operational) {
        enter(NmtState::pre_operational);
    }
}

// The heartbeat of another node. The time begins with the first one; a boot-up message ends it until the next.
void CanopenNode::hear_heartbeat(const CanFrame& frame, Time now) {
    if (frame.remote || frame.length != 1) {
        return;
    }
    for (std::size_t i = 0; i < watched_.size(); ++i) {
        const std::uint64_t entry = dictionary_.at(0x1016, static_cast<std::uint8_t>(i + 1)).number();
        const Time time_us = (entry & 0xFFFF) * 1000;
        if ((entry >> 16 & 0xFF) != frame.identifier - guarding_base || time_us == 0) {
            continue;
        }
        Watched& watched = watched_[i];
        const bool booted = frame.data[0] == 0;
        watched.lost_at = booted ? std::nullopt : std::optional(now + time_us);
        if (!booted && std::exchange(watched.lost, false) &&
            dictionary_.at(0x1001, 0).number() == contact_bits) {
            raise_emergency(0, {});
        }
    }
}

void CanopenNode::watch_heartbeats(Time now) {
    for (Watched& watched : watched_) {
        if (watched.lost_at && now >= *watched.lost_at) {
            watched.lost_at.reset();
            watched.lost = true;
            lose_contact();
        }
    }
}

// Whether entry `place` of the heartbeats to watch may become `wanted`: no node is watched twice.
AbortCode CanopenNode::check_consumer(std::size_t place, std::uint64_t wanted) {
    const auto node_of = [](std::uint64_t entry) { return (entry & 0xFFFF) == 0 ? 0 : entry >> 16 & 0xFF; };
    for (std::size_t i = 0; i < watched_.size(); ++i) {
        const std::uint64_t entry = dictionary_.at(0x1016, static_cast<std::uint8_t>(i + 1)).number();
        if (i != place && node_of(wanted) != 0 && node_of(entry) == node_of(wanted)) {
            return abort_incompatible;
        }
    }
    return access_done;
}

void CanopenNode::beat(Time now) {
    const Time period_us = dictionary_.at(0x1017, 0).number() * 1000;
    if (period_us == 0) {
        return;
    }
    if (next_heartbeat_ && now < *next_heartbeat_) {
        return;
    }
    send(make_frame(guarding_base + settings_.node, {static_cast<unsigned>(state_)}));
    next_heartbeat_ = now + period_us;
}

void CanopenNode::produce_sync(Time now) {
    const std::uint64_t cobid = dictionary_.at(0x1005, 0).number();
    const Time period_us = dictionary_.at(0x1006, 0).number();
    if (!communicates() || (cobid & sync_producer_bit) == 0 || period_us == 0) {
        next_sync_.reset();
        return;
    }
    if (!next_sync_) {
        next_sync_ = now + period_us;
    } else if (now >= *next_sync_) {
        next_sync_ = now + period_us;
        send(make_frame(static_cast<std::uint32_t>(cobid & cobid_bits), {}));
        handle_sync(now);
    }
}

void CanopenNode::handle_sync(Time now) {
    if (state_ != NmtState::operational) {
        return;
    }
    std::vector<CanFrame> frames;
    pdos_->sync(now, frames);
    for (const CanFrame& frame : frames) {
        send(frame);
    }
}

void CanopenNode::handle_pdo(const CanFrame& frame) {
    if (state_ == NmtState::operational && pdos_->receive(frame) == RpdoResult::too_short) {
        raise_emergency(code_pdo_too_short, {});
    }
}

void CanopenNode::raise_emergency(std::uint16_t code, std::span<const std::uint8_t> manufacturer) {
    DictionaryObject& error_register = dictionary_.at(0x1001, 0);
    if (code == 0) {
        error_register.set_number(0);
    } else {
        error_register.set_number(error_register.number() | error_register_of(code));
        remember_error(code);
    }
    CanFrame frame =
        make_frame(emergency_base + settings_.node,
                   {code & 0xFFU, static_cast<unsigned>(code) >> 8, error_register.value[0], 0, 0, 0, 0, 0});
    const std::size_t count = std::min<std::size_t>(manufacturer.size(), 5);
    std::copy_n(manufacturer.begin(), count, frame.data.begin() + 3);
    if (communicates()) {
        send(frame);
    }
}

// The newest error stands at subindex 1.
void CanopenNode::remember_error(std::uint16_t code) {
    DictionaryObject& count = dictionary_.at(0x1003, 0);
    const auto known =
        static_cast<std::uint8_t>(std::min<std::uint64_t>(count.number() + 1, remembered_errors));
    for (std::uint8_t i = known; i > 1; --i) {
        dictionary_.at(0x1003, i).value = dictionary_.at(0x1003, static_cast<std::uint8_t>(i - 1)).value;
    }
    dictionary_.at(0x1003, 1).set_number(code);
    count.set_number(known);
}

void CanopenNode::send(const CanFrame& frame, bool answer) {
    out_.push_back({frame, answer});
}

// Adds what has become due, and hands everything over.
std::vector<SentFrame> CanopenNode::finish(Time now) {
    beat(now);
    produce_sync(now);
    if (state_ == NmtState::operational) {
        std::vector<CanFrame> frames;
        pdos_->poll(now, frames);
        for (const CanFrame& frame : frames) {
            send(frame);
        }
    }
    return std::exchange(out_, {});
}

bool CanopenNode::communicates() const {
    return state_ == NmtState::operational || state_ == NmtState::pre_operational;
}

}  // namespace node_simulator
