#include "simulator/node/nodedictionary.h"

#include <algorithm>

#include "simulator/node/canframe.h"

namespace node_simulator {

namespace {

std::uint32_t key_of(std::uint16_t index, std::uint8_t subindex) {
    return static_cast<std::uint32_t>(index) << 8 | subindex;
}

}  // namespace

std::uint64_t DictionaryObject::number() const {
    return load_le(std::span(value).first(std::min<std::size_t>(value.size(), 8)));
}

void DictionaryObject::set_number(std::uint64_t number) {
    store_le(value, number);
}

DictionaryObject& NodeDictionary::add_number(std::uint16_t index, std::uint8_t subindex, Access access,
                                             std::size_t size, std::uint64_t value) {
    DictionaryObject& object = objects_[key_of(index, subindex)];
    object.access = access;
    object.smallest = size;
    object.largest = size;
    object.value.resize(size);
    object.set_number(value);
    object.initial = object.value;
    return object;
}

DictionaryObject& NodeDictionary::add_bytes(std::uint16_t index, std::uint8_t subindex, Access access,
                                            std::size_t largest, std::string_view value) {
    DictionaryObject& object = objects_[key_of(index, subindex)];
    object.access = access;
    object.largest = largest;
    object.value.assign(value.begin(), value.end());
    object.initial = object.value;
    return object;
}

DictionaryObject* NodeDictionary::find(std::uint16_t index, std::uint8_t subindex) {
    const auto found = objects_.find(key_of(index, subindex));
    return found == objects_.end() ? nullptr : &found->second;
}

DictionaryObject& NodeDictionary::at(std::uint16_t index, std::uint8_t subindex) {
    return objects_.at(key_of(index, subindex));
}

AbortCode NodeDictionary::read(std::uint16_t index, std::uint8_t subindex, Bytes& value) {
    const DictionaryObject* object = find(index, subindex);
    if (object == nullptr) {
        return missing(index);
    }
    if (object->access == Access::write_only) {
        return abort_write_only;
    }
    value = object->value;
    return access_done;
}

AbortCode NodeDictionary::may_write(std::uint16_t index, std::uint8_t subindex, std::size_t size) {
    const DictionaryObject* object = find(index, subindex);
    if (object == nullptr) {
        return missing(index);
    }
    if (object->access == Access::read_only) {
        return abort_read_only;
    }
    if (size > object->largest) {
        return object->largest > 8 ? abort_memory : abort_too_long;
    }
    return size < object->smallest ? abort_too_short : access_done;
}

AbortCode NodeDictionary::write(std::uint16_t index, std::uint8_t subindex,
                                std::span<const std::uint8_t> bytes) {
    if (const AbortCode refused = may_write(index, subindex, bytes.size()); refused != access_done) {
        return refused;
    }
    DictionaryObject& object = at(index, subindex);
    Bytes value(bytes.begin(), bytes.end());
    if (object.accept) {
        if (const AbortCode refused = object.accept(value); refused != access_done) {
            return refused;
        }
    }
    object.value = std::move(value);
    if (object.changed) {
        object.changed();
    }
    return access_done;
}

// Changes every object from `first` to `last`.
template <typename Change>
void NodeDictionary::for_each(std::uint16_t first, std::uint16_t last, Change change) {
    const auto end = objects_.upper_bound(key_of(last, 0xFF));
    for (auto entry = objects_.lower_bound(key_of(first, 0)); entry != end; ++entry) {
        change(entry->second);
    }
}

void NodeDictionary::store(std::uint16_t first, std::uint16_t last) {
    for_each(first, last, [](DictionaryObject& object) {
        if (object.access == Access::read_write && !object.volatile_value) {
            object.stored = object.value;
        }
    });
}

void NodeDictionary::forget_stored(std::uint16_t first, std::uint16_t last) {
    for_each(first, last, [](DictionaryObject& object) { object.stored.reset(); });
}

void NodeDictionary::reset(std::uint16_t first, std::uint16_t last) {
    for_each(first, last,
             [](DictionaryObject& object) { object.value = object.stored.value_or(object.initial); });
}

// An index without any subindex does not exist; otherwise it is the subindex that is missing.
AbortCode NodeDictionary::missing(std::uint16_t index) const {
    const auto next = objects_.lower_bound(key_of(index, 0));
    const bool index_exists = next != objects_.end() && next->first >> 8 == index;
    return index_exists ? abort_no_subindex : abort_no_object;
}

}  // namespace node_simulator
