#include "simulator/node/describedobjects.h"

#include <array>
#include <cstdio>
#include <optional>

namespace node_simulator {

namespace {

Access access_of(const DeviceDescription::Entry& entry) {
    if (!entry.writable()) {
        return Access::read_only;
    }
    return entry.readable() ? Access::read_write : Access::write_only;
}

// A TPDO takes what can be read, an RPDO what can be written, unless the access says which of the two is meant.
Mapping mapping_of(const DeviceDescription::Entry& entry) {
    if (!entry.pdo_mapping || object_size(entry.type) == 0) {
        return Mapping::none;
    }
    switch (entry.access) {
        case ObjectAccess::read_write_input:
        case ObjectAccess::read_only:
        case ObjectAccess::constant:
            return Mapping::transmit;
        case ObjectAccess::read_write_output:
        case ObjectAccess::write_only:
            return Mapping::receive;
        case ObjectAccess::read_write:
        case ObjectAccess::unknown:
            break;
    }
    return Mapping::both;
}

std::size_t largest_of(const DeviceDescription::Entry& entry) {
    if (!entry.writable()) {
        return 0;
    }
    return entry.is_domain || entry.type == ObjectDataType::domain ? largest_domain : largest_string;
}

// Refuses values outside of the limits of an entry.
std::function<AbortCode(Bytes&)> limits_of(const DeviceDescription::Entry& entry, std::uint8_t node) {
    const std::optional<ObjectBytes> low = entry.low(node);
    const std::optional<ObjectBytes> high = entry.high(node);
    if (!low && !high) {
        return {};
    }
    return [type = entry.type, low, high](Bytes& value) {
        if (high && compare_objects(type, value, *high) > 0) {
            return abort_value_too_high;
        }
        return low && compare_objects(type, value, *low) < 0 ? abort_value_too_low : access_done;
    };
}

std::string place_of(const DeviceDescription::Object& object, const DeviceDescription::Entry& entry) {
    std::array<char, 16> place{};
    std::snprintf(place.data(), place.size(), object.is_single() ? "%04X" : "%04Xsub%X",
                  unsigned{entry.index}, unsigned{entry.subindex});
    return std::string(place.data()) + " (" + entry.full_name() + ")";
}

}  // namespace

std::vector<std::string> add_described_objects(const DeviceDescription& description, std::uint8_t node,
                                               NodeDictionary& dictionary) {
    std::vector<std::string> left_out;
    for (const DeviceDescription::Object& object : description.objects()) {
        for (const DeviceDescription::Entry& entry : object.entries) {
            const bool is_domain = entry.is_domain || entry.type == ObjectDataType::domain;
            if (entry.type == ObjectDataType::none && !is_domain) {
                left_out.push_back(place_of(object, entry) + ": no data type that has values");
                continue;
            }
            const ObjectBytes value = entry.value(node).value_or(ObjectBytes());
            const std::size_t size = is_domain ? 0 : object_size(entry.type);
            DictionaryObject& added =
                size != 0 ? dictionary.add_number(entry.index, entry.subindex, access_of(entry), size, 0)
                          : dictionary.add_bytes(entry.index, entry.subindex, access_of(entry),
                                                 largest_of(entry), "");
            if (!value.empty()) {
                added.value.assign(value.begin(), value.end());
                added.initial = added.value;
            }
            added.mapping = mapping_of(entry);
            added.accept = limits_of(entry, node);
        }
    }
    return left_out;
}

}  // namespace node_simulator
