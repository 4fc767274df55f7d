#include "simulator/node/canopennode.h"

#include <algorithm>
#include <string>
#include <utility>

#include "simulator/node/builtindescription.h"
#include "simulator/node/describedobjects.h"

namespace node_simulator {

namespace {

constexpr std::uint64_t sync_producer_bit = 0x40000000;
constexpr std::uint64_t cobid_bits = 0x7FF;
constexpr std::uint32_t guarding_base = 0x700;
constexpr std::uint32_t emergency_base = 0x80;
constexpr std::uint32_t sdo_request_base = 0x600;
constexpr std::uint16_t code_guarding_lost = 0x8130;
constexpr std::uint64_t contact_bits = 0x11;  // of the error register, by that code alone
constexpr std::uint32_t highest_node = 127;
constexpr std::uint16_t code_pdo_too_short = 0x8210;

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
    LssIdentity identity{};
    for (std::size_t i = 0; i < identity.size(); ++i) {
        const auto* entry = described_as().entry(0x1018, static_cast<std::uint8_t>(i + 1));
        const std::optional<ObjectBytes> value = entry == nullptr ? std::nullopt : entry->value(node);
        identity[i] = value ? static_cast<std::uint32_t>(
                                  load_le(std::span(*value).first(std::min<std::size_t>(value->size(), 4))))
                            : 0;
    }
    identity[3] = serial.value_or(identity[3]);
    return identity;
}

const DeviceDescription& NodeSettings::described_as() const {
    return description == nullptr ? built_in_description() : *description;
}

CanopenNode::CanopenNode(const NodeSettings& settings)
    : settings_(settings), sdo_(dictionary_, settings.node, settings.blocks, settings.faults) {
    add_objects();
    watch_objects();
    if (settings_.description == nullptr) {
        watch_samples();
    }
    pdos_ = std::make_unique<NodePdos>(dictionary_, settings_.strict_counts);
    for (const std::string& mapping : pdos_->unserved()) {
        left_out_.push_back("mapping " + mapping + ": no such object, or not of that size");
    }
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
    } else if (frame.identifier == (number(0x1005, 0) & cobid_bits)) {
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
    if (DictionaryObject* input = dictionary_.find(0x6000, channel); input != nullptr) {
        input->set_number(value);
    }
    return powered_ ? finish(now) : std::vector<SentFrame>{};
}

// Adds what the description has, and lets the settings have their way.
void CanopenNode::add_objects() {
    left_out_ = add_described_objects(settings_.described_as(), settings_.node, dictionary_);
    const LssIdentity identity = settings_.identity();
    for (std::size_t i = 0; i < identity.size(); ++i) {
        preset(0x1018, static_cast<std::uint8_t>(i + 1), identity[i]);
    }
    if (settings_.heartbeat_ms != 0) {
        preset(0x1017, 0, settings_.heartbeat_ms);
    }
    if (settings_.sync_period_us != 0) {
        preset(0x1005, 0, number(0x1005, 0) | sync_producer_bit);
        preset(0x1006, 0, settings_.sync_period_us);
    }
}

// Sets the number that an object has from the start, if the node has that object.
void CanopenNode::preset(std::uint16_t index, std::uint8_t subindex, std::uint64_t number) {
    if (DictionaryObject* object = dictionary_.find(index, subindex); object != nullptr) {
        object->set_number(number);
        object->initial = object->value;
    }
}

// The number in an object; 0 if the node does not have it.
std::uint64_t CanopenNode::number(std::uint16_t index, std::uint8_t subindex) {
    const DictionaryObject* object = dictionary_.find(index, subindex);
    return object == nullptr ? 0 : object->number();
}

// Calls for each object of an index from subindex 1 on, as far as there are such.
template <typename Call>
void CanopenNode::for_each_sub(std::uint16_t index, Call call) {
    for (unsigned subindex = 1; subindex < 0xFF; ++subindex) {
        DictionaryObject* object = dictionary_.find(index, static_cast<std::uint8_t>(subindex));
        if (object == nullptr) {
            return;
        }
        call(subindex, *object);
    }
}

// Lets the objects of the communication profile do what they stand for.
void CanopenNode::watch_objects() {
    if (DictionaryObject* count = dictionary_.find(0x1003, 0); count != nullptr) {
        count->volatile_value = true;
        count->accept = [](Bytes& value) { return value[0] == 0 ? access_done : abort_invalid_value; };
    }
    const auto restart = [this](std::uint16_t index, std::optional<Time> CanopenNode::*next) {
        if (DictionaryObject* object = dictionary_.find(index, 0); object != nullptr) {
            object->changed = [this, next] { (this->*next).reset(); };
        }
    };
    restart(0x1005, &CanopenNode::next_sync_);
    restart(0x1006, &CanopenNode::next_sync_);
    restart(0x1017, &CanopenNode::next_heartbeat_);
    for_each_sub(0x1016, [this](unsigned subindex, DictionaryObject& entry) {
        const std::size_t place = subindex - 1;
        watched_.emplace_back();
        entry.accept = [this, place](Bytes& value) { return check_consumer(place, load_le(value)); };
        entry.changed = [this, place] { watched_[place] = {}; };
    });
    watch_storage(0x1010);
    watch_storage(0x1011);
}

// Store and restore (CiA 301, 7.5.2.13 and 7.5.2.14). Reading tells that it is done on command.
void CanopenNode::watch_storage(std::uint16_t index) {
    struct Range {
        std::uint16_t first;
        std::uint16_t last;
    };
    constexpr std::array<Range, 4> ranges{
        {{0x1000, 0x9FFF}, {0x1000, 0x1FFF}, {0x6000, 0x9FFF}, {0x2000, 0x5FFF}}};
    constexpr std::uint64_t save = 0x65766173;
    constexpr std::uint64_t load = 0x64616F6C;
    const bool stores = index == 0x1010;
    for_each_sub(index, [&](unsigned subindex, DictionaryObject& object) {
        const Range range = ranges[std::min<std::size_t>(subindex, ranges.size()) - 1];
        object.volatile_value = true;
        object.accept = [this, stores, range, &object](Bytes& value) {
            if (load_le(value) != (stores ? save : load)) {
                return abort_not_stored;
            }
            value = object.value;
            if (stores) {
                dictionary_.store(range.first, range.last);
            } else {
                dictionary_.forget_stored(range.first, range.last);
            }
            return access_done;
        };
    });
}

// The built-in node's own objects that do more than hold a value.
void CanopenNode::watch_samples() {
    DictionaryObject& trigger = dictionary_.at(0x2010, 0);
    trigger.changed = [this, &trigger] { raise_emergency(static_cast<std::uint16_t>(trigger.number()), {}); };
    dictionary_.at(0x2005, 0).accept = [this](Bytes&) {
        return state_ == NmtState::pre_operational ? access_done : abort_device_state;
    };
    wire(0x6200, 0x6000);
    wire(0x6411, 0x6401);
}

// What is written to an output is what the input of the same subindex reads.
void CanopenNode::wire(std::uint16_t output, std::uint16_t input) {
    for_each_sub(output, [this, input](unsigned subindex, DictionaryObject& from) {
        DictionaryObject& to = dictionary_.at(input, static_cast<std::uint8_t>(subindex));
        from.changed = [&from, &to] { to.value = from.value; };
    });
}

void CanopenNode::boot(Time now) {
    sdo_.reset();
    pdos_->reset();
    guard_toggle_ = 0;
    guarded_until_.reset();
    guarding_lost_ = false;
    std::fill(watched_.begin(), watched_.end(), Watched());
    next_heartbeat_.reset();
    next_sync_.reset();
    if (number(0x1017, 0) != 0) {
        next_heartbeat_ = now + number(0x1017, 0) * 1000;
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
    if (number(0x1017, 0) != 0) {
        return;
    }
    send(make_frame(guarding_base + settings_.node, {static_cast<unsigned>(state_) | guard_toggle_}), true);
    if (std::exchange(guarding_lost_, false)) {
        find_contact();
    }
    guard_toggle_ ^= 0x80;
    const Time life_us = number(0x100C, 0) * number(0x100D, 0) * 1000;
    guarded_until_ = life_us == 0 ? std::nullopt : std::optional(now + life_us);
}

// A node whose master has fallen silent says so and leaves operational.
void CanopenNode::watch_guarding(Time now) {
    if (!guarded_until_ || now < *guarded_until_) {
        return;
    }
    guarded_until_.reset();
    guarding_lost_ = true;
    lose_contact();
}

// Somebody whom the node depends on has fallen silent: it says so and leaves operational.
void CanopenNode::lose_contact() {
    raise_emergency(code_guarding_lost, {});
    if (state_ == NmtState::operational) {
        enter(NmtState::pre_operational);
    }
}

// It is heard again: the error is over, unless there are others.
void CanopenNode::find_contact() {
    if (number(0x1001, 0) == contact_bits) {
        raise_emergency(0, {});
    }
}

// The heartbeat of another node. The time begins with the first one; a boot-up message ends it until the next.
void CanopenNode::hear_heartbeat(const CanFrame& frame, Time now) {
    if (frame.remote || frame.length != 1) {
        return;
    }
    for (std::size_t i = 0; i < watched_.size(); ++i) {
        const std::uint64_t entry = number(0x1016, static_cast<std::uint8_t>(i + 1));
        const Time time_us = (entry & 0xFFFF) * 1000;
        if ((entry >> 16 & 0xFF) != frame.identifier - guarding_base || time_us == 0) {
            continue;
        }
        Watched& watched = watched_[i];
        const bool booted = frame.data[0] == 0;
        watched.lost_at = booted ? std::nullopt : std::optional(now + time_us);
        if (!booted && std::exchange(watched.lost, false)) {
            find_contact();
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
        const std::uint64_t entry = number(0x1016, static_cast<std::uint8_t>(i + 1));
        if (i != place && node_of(wanted) != 0 && node_of(entry) == node_of(wanted)) {
            return abort_incompatible;
        }
    }
    return access_done;
}

void CanopenNode::beat(Time now) {
    const Time period_us = number(0x1017, 0) * 1000;
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
    const std::uint64_t cobid = number(0x1005, 0);
    const Time period_us = number(0x1006, 0);
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
    const std::uint64_t errors = code == 0 ? 0 : number(0x1001, 0) | error_register_of(code);
    if (DictionaryObject* error_register = dictionary_.find(0x1001, 0); error_register != nullptr) {
        error_register->set_number(errors);
    }
    if (code != 0) {
        remember_error(code);
    }
    CanFrame frame = make_frame(
        emergency_base + settings_.node,
        {code & 0xFFU, static_cast<unsigned>(code) >> 8, static_cast<unsigned>(errors), 0, 0, 0, 0, 0});
    const std::size_t count = std::min<std::size_t>(manufacturer.size(), 5);
    std::copy_n(manufacturer.begin(), count, frame.data.begin() + 3);
    if (communicates()) {
        send(frame);
    }
}

// The newest error stands at subindex 1.
void CanopenNode::remember_error(std::uint16_t code) {
    std::uint64_t newer = code;
    std::uint64_t known = 0;
    for_each_sub(0x1003, [&newer, &known](unsigned /*subindex*/, DictionaryObject& error) {
        const std::uint64_t older = error.number();
        error.set_number(newer);
        newer = older;
        ++known;
    });
    if (DictionaryObject* count = dictionary_.find(0x1003, 0); count != nullptr) {
        count->set_number(std::min(count->number() + 1, known));
    }
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
