#include "simulator/node/nodepdo.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace node_simulator {

namespace {

constexpr std::uint64_t invalid_bit = 0x80000000;
constexpr std::uint64_t extended_bit = 0x20000000;
constexpr std::uint64_t cobid_bits = 0x7FF;
constexpr std::size_t most_pdos = 512;
constexpr std::size_t most_entries = 64;
constexpr std::size_t most_bytes = 8;
constexpr unsigned last_synchronous_type = 240;
constexpr unsigned first_event_type = 254;
constexpr Time inhibit_unit_us = 100;
constexpr Time event_unit_us = 1000;

// Identifiers that no PDO may have (CiA 301, 7.3.5, restricted CAN-IDs).
struct Range {
    std::uint32_t first;
    std::uint32_t last;
};
constexpr std::array<Range, 7> restricted{{{0x000, 0x07F},
                                           {0x080, 0x080},
                                           {0x101, 0x180},
                                           {0x581, 0x5FF},
                                           {0x601, 0x67F},
                                           {0x6E0, 0x6FF},
                                           {0x701, 0x7FF}}};

AbortCode check_cobid(std::uint64_t present, std::uint64_t wanted) {
    const auto identifier = static_cast<std::uint32_t>(wanted & cobid_bits);
    const bool becomes_valid = (wanted & invalid_bit) == 0;
    if ((wanted & extended_bit) != 0 || (wanted & ~(invalid_bit | 0x40000000 | cobid_bits)) != 0) {
        return abort_invalid_value;
    }
    if (becomes_valid && std::any_of(restricted.begin(), restricted.end(), [identifier](const Range& range) {
            return identifier >= range.first && identifier <= range.last;
        })) {
        return abort_invalid_value;
    }
    // A PDO in use keeps its identifier: it has to be switched off first.
    const bool is_valid = (present & invalid_bit) == 0;
    return is_valid && becomes_valid && ((present ^ wanted) & cobid_bits) != 0 ? abort_invalid_value
                                                                               : access_done;
}

// The number in an object that not every node has.
std::uint64_t number_of(const DictionaryObject* object) {
    return object == nullptr ? 0 : object->number();
}

AbortCode check_type(const Bytes& value) {
    return value[0] <= last_synchronous_type || value[0] >= first_event_type ? access_done
                                                                             : abort_invalid_value;
}

}  // namespace

bool NodePdos::Pdo::valid() const {
    return (cobid->number() & invalid_bit) == 0;
}

bool NodePdos::Pdo::event_driven() const {
    return type == nullptr || type->number() >= first_event_type;
}

NodePdos::NodePdos(NodeDictionary& dictionary, bool strict_counts) : dictionary_(dictionary) {
    find_all(transmit_pdos_, Mapping::transmit, strict_counts);
    find_all(receive_pdos_, Mapping::receive, strict_counts);
    reset();
}

// Finds the PDOs of a direction: those whose identifier and mapping there are.
void NodePdos::find_all(std::vector<Pdo>& pdos, Mapping direction, bool strict_counts) {
    const bool transmit = direction == Mapping::transmit;
    for (std::size_t number = 0; number < most_pdos; ++number) {
        const auto communication = static_cast<std::uint16_t>((transmit ? 0x1800 : 0x1400) + number);
        Pdo pdo;
        pdo.mapping_index = static_cast<std::uint16_t>((transmit ? 0x1A00 : 0x1600) + number);
        pdo.cobid = dictionary_.find(communication, 1);
        pdo.type = dictionary_.find(communication, 2);
        pdo.inhibit_time = transmit ? dictionary_.find(communication, 3) : nullptr;
        pdo.event_time = transmit ? dictionary_.find(communication, 5) : nullptr;
        pdo.mapped_count = dictionary_.find(pdo.mapping_index, 0);
        for (std::size_t i = 1; i <= most_entries; ++i) {
            DictionaryObject* entry = dictionary_.find(pdo.mapping_index, static_cast<std::uint8_t>(i));
            if (entry == nullptr) {
                break;
            }
            pdo.entries.push_back(entry);
        }
        if (pdo.cobid != nullptr && pdo.mapped_count != nullptr) {
            pdos.push_back(pdo);
        }
    }
    // From here on they stay where they are.
    for (Pdo& pdo : pdos) {
        watch_communication(pdo);
        watch_mapping(pdo, direction, strict_counts);
    }
}

// Watches the communication object: which identifier, when.
void NodePdos::watch_communication(Pdo& pdo) const {
    pdo.cobid->accept = [&pdo](Bytes& value) { return check_cobid(pdo.cobid->number(), load_le(value)); };
    pdo.cobid->changed = [&pdo] { pdo.frame.reset(); };
    if (pdo.type != nullptr) {
        pdo.type->accept = [](Bytes& value) { return check_type(value); };
        pdo.type->changed = [&pdo] {
            pdo.syncs = 0;
            pdo.event_at.reset();
        };
    }
    if (pdo.inhibit_time != nullptr) {
        pdo.inhibit_time->accept = [&pdo](Bytes&) { return pdo.valid() ? abort_device_state : access_done; };
    }
    if (pdo.event_time != nullptr) {
        pdo.event_time->changed = [&pdo] { pdo.event_at.reset(); };
    }
}

// Watches the mapping object: which objects, one after the other.
void NodePdos::watch_mapping(Pdo& pdo, Mapping direction, bool strict_counts) {
    // Many masters send the number in four bytes, and most nodes take its first.
    pdo.mapped_count->largest = strict_counts ? 1 : 4;
    pdo.mapped_count->accept = [this, &pdo, direction, strict_counts](Bytes& value) {
        return check_count(pdo, value, direction, strict_counts);
    };
    pdo.mapped_count->changed = [this, &pdo, direction] { resolve(pdo, direction); };
    for (DictionaryObject* entry : pdo.entries) {
        entry->accept = [this, &pdo, direction](Bytes& value) {
            DictionaryObject* object = nullptr;
            return pdo.valid() || pdo.mapped_count->number() != 0
                       ? abort_device_state
                       : check_entry(load_le(value), direction, object);
        };
    }
}

std::vector<std::string> NodePdos::unserved() const {
    std::vector<std::string> lines;
    const auto look_at = [this, &lines](const Pdo& pdo, Mapping direction) {
        for (std::size_t i = 0; i < pdo.entries.size() && i < pdo.mapped_count->number(); ++i) {
            DictionaryObject* object = nullptr;
            const std::uint64_t entry = pdo.entries[i]->number();
            if (check_entry(entry, direction, object) != access_done) {
                std::array<char, 32> line{};
                std::snprintf(line.data(), line.size(), "%04X: %08X", unsigned{pdo.mapping_index},
                              static_cast<unsigned>(entry));
                lines.emplace_back(line.data());
            }
        }
    };
    for (const Pdo& pdo : transmit_pdos_) {
        look_at(pdo, Mapping::transmit);
    }
    for (const Pdo& pdo : receive_pdos_) {
        look_at(pdo, Mapping::receive);
    }
    return lines;
}

void NodePdos::reset() {
    for (Pdo& pdo : transmit_pdos_) {
        resolve(pdo, Mapping::transmit);
    }
    for (Pdo& pdo : receive_pdos_) {
        resolve(pdo, Mapping::receive);
    }
}

void NodePdos::start() {
    for (Pdo& pdo : transmit_pdos_) {
        pdo.frame.reset();
        pdo.syncs = 0;
        pdo.not_before.reset();
        pdo.event_at.reset();
    }
    for (Pdo& pdo : receive_pdos_) {
        pdo.frame.reset();
    }
}

void NodePdos::sync(Time now, std::vector<CanFrame>& out) {
    // The inputs are sampled before the outputs change (CiA 301, 7.2.2.4).
    for (Pdo& pdo : transmit_pdos_) {
        if (!pdo.valid() || pdo.event_driven()) {
            continue;
        }
        if (const CanFrame frame = assemble(pdo); due_at_sync(pdo, frame)) {
            transmit(pdo, frame, now, out);
        }
    }
    for (Pdo& pdo : receive_pdos_) {
        if (pdo.frame) {
            apply(pdo, *pdo.frame);
            pdo.frame.reset();
        }
    }
}

RpdoResult NodePdos::receive(const CanFrame& frame) {
    RpdoResult result = RpdoResult::foreign;
    for (Pdo& pdo : receive_pdos_) {
        if (!pdo.valid() || (pdo.cobid->number() & cobid_bits) != frame.identifier) {
            continue;
        }
        if (frame.length < pdo.size) {
            return RpdoResult::too_short;
        }
        if (pdo.event_driven()) {
            apply(pdo, frame);
        } else {
            pdo.frame = frame;
        }
        result = RpdoResult::taken;
    }
    return result;
}

void NodePdos::poll(Time now, std::vector<CanFrame>& out) {
    for (Pdo& pdo : transmit_pdos_) {
        if (!pdo.valid() || !pdo.event_driven()) {
            continue;
        }
        const CanFrame frame = assemble(pdo);
        if (due_by_event(pdo, frame, now)) {
            transmit(pdo, frame, now, out);
        } else if (!pdo.event_at && number_of(pdo.event_time) != 0) {
            pdo.event_at = now + number_of(pdo.event_time) * event_unit_us;
        }
    }
}

std::optional<Time> NodePdos::deadline() const {
    std::optional<Time> earliest;
    const auto consider = [&earliest](const std::optional<Time>& time) {
        if (time && (!earliest || *time < *earliest)) {
            earliest = time;
        }
    };
    for (const Pdo& pdo : transmit_pdos_) {
        if (!pdo.valid() || !pdo.event_driven()) {
            continue;
        }
        consider(pdo.event_at);
        if (pdo.frame && assemble(pdo) != *pdo.frame) {
            consider(pdo.not_before);
        }
    }
    return earliest;
}

// Whether `entry` (index, subindex, length in bits) can be mapped, and to which object.
AbortCode NodePdos::check_entry(std::uint64_t entry, Mapping direction, DictionaryObject*& object) const {
    const auto index = static_cast<std::uint16_t>(entry >> 16);
    const auto subindex = static_cast<std::uint8_t>(entry >> 8);
    object = dictionary_.find(index, subindex);
    if (object == nullptr) {
        return abort_no_object;
    }
    const bool mappable = object->mapping == direction || object->mapping == Mapping::both;
    const bool fits = mappable && (entry & 0xFF) == object->value.size() * 8;
    return fits ? access_done : abort_not_mappable;
}

AbortCode NodePdos::check_count(Pdo& pdo, Bytes& value, Mapping direction, bool strict_counts) const {
    if (std::any_of(value.begin() + 1, value.end(), [](std::uint8_t byte) { return byte != 0; })) {
        return strict_counts ? abort_too_long : abort_value_too_high;
    }
    value.resize(1);
    if (pdo.valid()) {
        return abort_device_state;
    }
    if (value[0] > pdo.entries.size()) {
        return abort_value_too_high;
    }
    std::size_t size = 0;
    for (std::size_t i = 0; i < value[0]; ++i) {
        DictionaryObject* object = nullptr;
        const AbortCode refused = check_entry(pdo.entries[i]->number(), direction, object);
        if (refused != access_done) {
            return refused;
        }
        size += object->value.size();
    }
    return size > most_bytes ? abort_pdo_length : access_done;
}

// Looks up the mapped objects of `pdo`, whose entries have been checked.
void NodePdos::resolve(Pdo& pdo, Mapping direction) const {
    pdo.mapped.clear();
    pdo.size = 0;
    pdo.frame.reset();
    for (std::size_t i = 0; i < pdo.entries.size() && i < pdo.mapped_count->number(); ++i) {
        DictionaryObject* object = nullptr;
        if (check_entry(pdo.entries[i]->number(), direction, object) == access_done &&
            pdo.size + object->value.size() <= most_bytes) {
            pdo.mapped.push_back(object);
            pdo.size += object->value.size();
        }
    }
}

CanFrame NodePdos::assemble(const Pdo& pdo) {
    CanFrame frame;
    frame.identifier = static_cast<std::uint32_t>(pdo.cobid->number() & cobid_bits);
    for (const DictionaryObject* object : pdo.mapped) {
        std::copy(object->value.begin(), object->value.end(), frame.data.begin() + frame.length);
        frame.length = static_cast<std::uint8_t>(frame.length + object->value.size());
    }
    return frame;
}

void NodePdos::apply(const Pdo& pdo, const CanFrame& frame) {
    auto from = frame.data.begin();
    for (DictionaryObject* object : pdo.mapped) {
        std::copy_n(from, object->value.size(), object->value.begin());
        from += static_cast<std::ptrdiff_t>(object->value.size());
        if (object->changed) {
            object->changed();
        }
    }
}

void NodePdos::transmit(Pdo& pdo, const CanFrame& frame, Time now, std::vector<CanFrame>& out) {
    out.push_back(frame);
    pdo.frame = frame;
    pdo.syncs = 0;
    const Time inhibit_us = number_of(pdo.inhibit_time) * inhibit_unit_us;
    const Time event_us = number_of(pdo.event_time) * event_unit_us;
    pdo.not_before = now + inhibit_us;
    pdo.event_at = event_us == 0 ? std::nullopt : std::optional(now + event_us);
}

bool NodePdos::due_at_sync(Pdo& pdo, const CanFrame& frame) {
    const std::uint64_t type = pdo.type->number();
    if (type == 0) {
        return !pdo.frame || *pdo.frame != frame;
    }
    return ++pdo.syncs >= type;
}

bool NodePdos::due_by_event(const Pdo& pdo, const CanFrame& frame, Time now) {
    if (pdo.mapped.empty()) {
        return false;
    }
    if (pdo.event_at && now >= *pdo.event_at) {
        return true;
    }
    const bool changed = !pdo.frame || *pdo.frame != frame;
    return changed && (!pdo.not_before || now >= *pdo.not_before);
}

}  // namespace node_simulator
