#include "nodevik/nodes/devicepdo.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <optional>
#include <utility>

#include "nodevik/nodes/edstext.h"

namespace {

constexpr unsigned int most_pdos = 512;
constexpr std::uint32_t not_valid = 0x80000000;
constexpr unsigned int most_bits = 64;

/// The number that an entry has as its value, by its index and subindex.
std::optional<std::uint64_t> number_at(const DeviceDescription& description, unsigned int index,
                                       unsigned int subindex, unsigned int node_id) {
    const auto* entry =
        description.entry(static_cast<std::uint16_t>(index), static_cast<std::uint8_t>(subindex));
    const auto bytes = entry == nullptr ? std::nullopt : entry->value(node_id);
    if (!bytes || !object_is_integer(entry->type)) {
        return std::nullopt;
    }
    std::uint64_t number = 0;
    for (std::size_t i = bytes->size(); i > 0; --i) {
        number = number << 8 | (*bytes)[i - 1];
    }
    return number;
}

void read_mapping(DescribedPdo& pdo, unsigned int index, unsigned int node_id) {
    const std::uint64_t count = number_at(*pdo.description, index, 0, node_id).value_or(0);
    if (count > most_bits) {
        pdo.fault = "maps " + std::to_string(count) + " objects";
        return;
    }
    for (unsigned int subindex = 1; subindex <= count; ++subindex) {
        const auto word = number_at(*pdo.description, index, subindex, node_id);
        if (!word) {
            pdo.fault = "has no mapping entry " + std::to_string(subindex);
            return;
        }
        DescribedPdo::Item item;
        item.index = static_cast<std::uint16_t>(*word >> 16);
        item.subindex = static_cast<std::uint8_t>(*word >> 8);
        item.bits = static_cast<unsigned int>(*word & 0xFF);
        item.position = pdo.bits;
        item.entry = pdo.description->entry(item.index, item.subindex);
        pdo.bits += item.bits;
        pdo.items.push_back(item);
    }
    if (pdo.bits > most_bits) {
        pdo.fault = "maps " + std::to_string(pdo.bits) + " bits";
    }
}

void add_pdos(std::vector<DescribedPdo>& pdos, const DeviceDescription& description, unsigned int node_id,
              DescribedPdo::Direction direction) {
    const bool transmit = direction == DescribedPdo::Direction::transmit;
    const unsigned int communication = transmit ? 0x1800 : 0x1400;
    const auto& objects = description.objects();
    auto object = std::lower_bound(objects.begin(), objects.end(), communication,
                                   [](const auto& o, unsigned int index) { return o.index < index; });
    for (; object != objects.end() && object->index < communication + most_pdos; ++object) {
        DescribedPdo pdo;
        pdo.description = &description;
        pdo.direction = direction;
        pdo.number = object->index - communication + 1;
        pdo.cob_id =
            static_cast<std::uint32_t>(number_at(description, object->index, 1, node_id).value_or(not_valid));
        pdo.valid = (pdo.cob_id & not_valid) == 0;
        pdo.transmission_type =
            static_cast<std::uint8_t>(number_at(description, object->index, 2, node_id).value_or(255));
        read_mapping(pdo, object->index + 0x200U, node_id);
        pdos.push_back(std::move(pdo));
    }
}

/// Some bits of a frame as the value of an entry: an integer is filled up with its sign to its size.
ObjectBytes bits_of(std::uint64_t frame, const DescribedPdo::Item& item) {
    const std::uint64_t mask = item.bits >= 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << item.bits) - 1;
    std::uint64_t number = frame >> item.position & mask;
    const bool negative = object_is_signed(item.entry->type) && (number >> (item.bits - 1) & 1) != 0;
    number |= negative ? ~mask : 0;
    const std::size_t whole = object_is_integer(item.entry->type) ? object_size(item.entry->type) : 0;
    ObjectBytes bytes(std::max<std::size_t>(whole, (item.bits + 7) / 8));
    for (auto& byte : bytes) {
        byte = static_cast<std::uint8_t>(number);
        number >>= 8;
    }
    return bytes;
}

std::uint64_t frame_number(const unsigned char* data, unsigned int length) {
    std::uint64_t number = 0;
    for (unsigned int i = std::min(length, 8U); i > 0; --i) {
        number = number << 8 | data[i - 1];
    }
    return number;
}

/// Tells whether byte 0 of an SDO frame is that of one that names its object.
bool names_an_object(unsigned int command, bool request) {
    switch (command & 0xE0) {
        case 0x80:
        case 0x40:
            return true;
        case 0x20:
            return request;
        case 0x60:
            return !request;
        case 0xA0:
            return (command & 3) == 0;
        case 0xC0:
            return (command & 1) == 0;
        default:
            return false;
    }
}

/// How many bytes of an expedited transfer's frame are data; 0 when it has none or does not say.
unsigned int expedited_length(unsigned int command, bool request) {
    const bool is_expedited = (command & 0xE3) == (request ? 0x23U : 0x43U);
    return is_expedited ? 4 - (command >> 2 & 3) : 0;
}

PDO::maptype byte_type(std::size_t size, bool is_signed) {
    switch (size) {
        case 1:
            return is_signed ? PDO::char1 : PDO::uchar1;
        case 2:
            return is_signed ? PDO::short2 : PDO::ushort2;
        case 4:
            return is_signed ? PDO::int4 : PDO::uint4;
        default:
            return is_signed ? PDO::longlong8 : PDO::ulonglong8;
    }
}

}  // namespace

std::vector<DescribedPdo> described_pdos(const DeviceDescription& description, unsigned int node_id) {
    std::vector<DescribedPdo> pdos;
    add_pdos(pdos, description, node_id, DescribedPdo::Direction::receive);
    add_pdos(pdos, description, node_id, DescribedPdo::Direction::transmit);
    return pdos;
}

const DescribedPdo* find_pdo(const std::vector<DescribedPdo>& pdos, DescribedPdo::Direction direction,
                             unsigned int number) {
    const auto found = std::find_if(pdos.begin(), pdos.end(), [&](const DescribedPdo& pdo) {
        return pdo.direction == direction && pdo.number == number;
    });
    return found == pdos.end() ? nullptr : &*found;
}

std::string DescribedPdo::fill(PDO& pdo) const {
    constexpr std::uint32_t extended = 0x20000000;
    const std::uint32_t id = cob_id & 0x7FF;
    if (!fault.empty()) {
        return fault;
    }
    if (!valid) {
        return "is not valid";
    }
    if ((cob_id & extended) != 0 || id < 0x181 || id > 0x57F) {
        return "has the COB-ID 0x" + eds::hexadecimal(cob_id & 0x1FFFFFFF, 3);
    }
    pdo.set_cobid(id);
    pdo.set_transmission_type(transmission_type);
    pdo.obj_info.mappingcount = static_cast<int>(items.size());
    std::transform(items.begin(), items.end(), pdo.obj_info.pdo_mappings, [](const Item& item) {
        return static_cast<int>(static_cast<std::uint32_t>(item.index) << 16 |
                                static_cast<std::uint32_t>(item.subindex) << 8 | item.bits);
    });
    pdo.set_len(static_cast<int>((bits + 7) / 8));
    return {};
}

std::string DescribedPdo::map_variable(PDO& pdo, std::string_view name, void* variable, std::size_t size,
                                       Variable kind) const {
    const DeviceDescription::Entry* wanted = description->entry(name);
    const auto item = std::find_if(items.begin(), items.end(),
                                   [&](const Item& i) { return wanted != nullptr && i.entry == wanted; });
    if (item == items.end()) {
        return wanted == nullptr ? "is no object of the description, or several" : "is not in the PDO";
    }
    if (!fault.empty()) {
        return fault;
    }
    if (pdo.mapCounter >= 64) {
        return "finds 64 variables mapped already";
    }
    if (item->bits == 1 || wanted->type == ObjectDataType::boolean) {
        if (kind == Variable::real || size > 4) {
            return "is one bit, which goes to an integer of at most 4 bytes";
        }
        pdo.mapbitref(item->position, static_cast<unsigned int>(size), variable);
        return {};
    }
    if (item->position % 8 != 0 || item->bits != 8 * size) {
        return "has " + std::to_string(item->bits) + " bits from bit " + std::to_string(item->position) +
               " on, the variable has " + std::to_string(size) + " bytes";
    }
    const bool fits = kind == Variable::any_integer ? !object_is_real(wanted->type)
                      : kind == Variable::real
                          ? object_is_real(wanted->type)
                          : !object_is_real(wanted->type) &&
                                object_is_signed(wanted->type) == (kind == Variable::signed_integer);
    if (!fits) {
        return std::string("is ") + object_type_name(wanted->type) + ", the variable is not";
    }
    const unsigned int first = item->position / 8;
    for (int i = 0; i < pdo.mapCounter; ++i) {
        // Compared as PDO::mapref() does, which ends the process.
        if (pdo.PDOmap[i].pos < first + size &&
            first < static_cast<unsigned int>(pdo.PDOmap[i].pos) + pdo.PDOmap[i].len) {
            return "overlaps a variable that is mapped already";
        }
    }
    pdo.mapref(first, byte_type(size, kind == Variable::signed_integer), variable);
    return {};
}

void FrameNames::add_node(unsigned int node_id, const DeviceDescription& description) {
    if (node_id < 1 || node_id > 127) {
        return;
    }
    const DeviceDescription* former = std::exchange(nodes_[node_id], &description);
    if (former != nullptr) {
        pdos_.clear();
    }
    for (unsigned int id = 1; id < nodes_.size(); ++id) {
        if (nodes_[id] == nullptr || (former == nullptr && id != node_id)) {
            continue;
        }
        for (DescribedPdo& pdo : described_pdos(*nodes_[id], id)) {
            const unsigned int cob_id = pdo.cob_id & 0x7FF;
            const auto there = pdos_.find(cob_id);
            if (pdo.valid &&
                (there == pdos_.end() || (there->second.direction == DescribedPdo::Direction::receive &&
                                          pdo.direction == DescribedPdo::Direction::transmit))) {
                pdos_[cob_id] = std::move(pdo);
            }
        }
    }
}

std::string FrameNames::names(unsigned int id, unsigned int length, const unsigned char* data) const {
    std::string text;
    for (const FrameObject& object : objects(id, length, data)) {
        text += (text.empty() ? "" : ", ") + object.name;
        text += object.value ? "=" + object.entry->format(*object.value) : "";
    }
    return text;
}

std::vector<FrameObject> FrameNames::objects(unsigned int id, unsigned int length,
                                             const unsigned char* data) const {
    const unsigned int function = id & 0x780;
    if ((function == 0x580 || function == 0x600) && id <= 0x7FF) {
        return length == 8 ? sdo_objects(id, data) : std::vector<FrameObject>();
    }
    const auto pdo = pdos_.find(id);
    return pdo == pdos_.end() ? std::vector<FrameObject>() : pdo_objects(pdo->second, length, data);
}

std::vector<FrameObject> FrameNames::pdo_objects(const DescribedPdo& pdo, unsigned int length,
                                                 const unsigned char* data) const {
    const std::uint64_t frame = frame_number(data, length);
    std::vector<FrameObject> objects;
    for (const DescribedPdo::Item& item : pdo.items) {
        if (item.entry != nullptr && item.bits != 0 &&
            item.position + item.bits <= 8 * std::min(length, 8U)) {
            objects.push_back(
                {item.index, item.subindex, item.entry, item.entry->full_name(), bits_of(frame, item)});
        }
    }
    return objects;
}

std::vector<FrameObject> FrameNames::sdo_objects(unsigned int id, const unsigned char* data) const {
    const DeviceDescription* description = nodes_[id & 0x7F];
    const bool request = (id & 0x780) == 0x600;
    if (description == nullptr || !names_an_object(data[0], request)) {
        return {};
    }
    const auto index = static_cast<std::uint16_t>(data[1] | data[2] << 8);
    const auto* object = description->object(index);
    FrameObject found{index, data[3], description->entry(index, data[3]), {}, {}};
    if (found.entry == nullptr) {
        if (object == nullptr) {
            return {};
        }
        found.name = object->name + ":" + std::to_string(data[3]);
        return {found};
    }
    found.name = found.entry->full_name();
    if (const unsigned int length = expedited_length(data[0], request); length != 0) {
        found.value.emplace(data + 4, data + 4 + length);
    }
    return {found};
}
