#include "tools/objects.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "program/numbers.h"
#include "tools/failure.h"
#include "tools/resultfile.h"
#include "tools/tell.h"

namespace nodevik_tool {

namespace {

constexpr std::int64_t highest_index = 0xFFFF;
constexpr std::int64_t highest_subindex = 0xFF;
constexpr std::size_t number_bytes = 8;  // longest number

// Why a file has no objects.
std::string reason_of(const DeviceDescription& description, const std::string& file) {
    for (const DescriptionFinding& finding : description.findings()) {
        if (finding.severity == DescriptionFinding::Severity::error) {
            return finding.text();
        }
    }
    return file + ": it has no object that can be used";
}

Failure no_object(const std::string& text, bool has_names) {
    return {ExitStatus::usage, "'" + text + "' is no object; right are 0x1018, 0x1018:1" +
                                   (has_names ? " and a name" : ", and with --eds a name")};
}

bool is_text(ObjectDataType type) {
    return type == ObjectDataType::visible_string;
}

}  // namespace

bool read_description(DeviceDescription& description, const std::string& file) {
    struct stat status {};
    const bool may_wait =
        stat(file.c_str(), &status) == 0 && (S_ISFIFO(status.st_mode) || S_ISCHR(status.st_mode));
    return may_wait ? description.parse(file_content(file), file) : description.load(file);
}

DeviceDescription load_description(const std::string& file) {
    DeviceDescription description;
    if (!read_description(description, file)) {
        throw Failure(ExitStatus::bad_file, reason_of(description, file));
    }
    return description;
}

bool has_errors(const DeviceDescription& description) {
    const auto& findings = description.findings();
    return std::any_of(findings.begin(), findings.end(), [](const DescriptionFinding& finding) {
        return finding.severity == DescriptionFinding::Severity::error;
    });
}

std::string errors_hint(const DeviceDescription& description) {
    return has_errors(description)
               ? "; the file has errors: 'nodevik eds check " + description.file() + "' tells more"
               : "";
}

void tell_errors(const DeviceDescription& description) {
    if (has_errors(description)) {
        tell(description.file() + " has errors, and what cannot be used is passed over; 'nodevik eds check " +
             description.file() + "' tells more");
    }
}

Descriptions::Descriptions(const std::vector<std::string>& words) {
    for (const std::string& word : words) {
        unsigned int node = 0;
        std::string file = word;
        const std::size_t equals = word.find('=');
        if (equals != std::string::npos) {
            const std::string ahead = word.substr(0, equals);
            if (const auto number = program::whole_number(ahead, 1, program::highest_node)) {
                node = static_cast<unsigned int>(*number);
                file = word.substr(equals + 1);
            } else if (program::whole_number(ahead, INT64_MIN, INT64_MAX) &&
                       access(word.c_str(), F_OK) != 0) {
                throw Failure(ExitStatus::usage, "--eds takes FILE or NODE=FILE, and '" + ahead +
                                                     "' is no node; right are 1 to 127");
            }
        }
        auto& place = files_[node];
        if (place != nullptr) {
            throw Failure(ExitStatus::usage, "--eds names two files for " +
                                                 (node == 0 ? "all nodes" : "node " + std::to_string(node)) +
                                                 ", " + place->file() + " and " + file +
                                                 "; of two kinds of nodes, name the nodes: NODE=FILE");
        }
        place = std::make_unique<DeviceDescription>(load_description(file));
    }
}

const DeviceDescription* Descriptions::of(unsigned int node) const {
    auto found = files_.find(node);
    if (found == files_.end()) {
        found = files_.find(0);
    }
    return found == files_.end() ? nullptr : found->second.get();
}

ObjectAddress parse_address(const std::string& text, const DeviceDescription* description) {
    // A number without 0x is a slip, for 1018 would be 0x03FA, unless its one digit is the same in both.
    const std::size_t colon = text.find(':');
    const std::string number = text.substr(0, colon);
    const bool is_clear = number.size() == 1 || number.rfind("0x", 0) == 0 || number.rfind("0X", 0) == 0;
    const auto index = is_clear ? program::whole_number(number, 0, highest_index) : std::nullopt;
    if (index) {
        ObjectAddress address;
        address.index = static_cast<std::uint16_t>(*index);
        if (colon == std::string::npos) {
            return address;
        }
        if (const auto subindex = program::whole_number(text.substr(colon + 1), 0, highest_subindex)) {
            address.subindex = static_cast<std::uint8_t>(*subindex);
            return address;
        }
    }
    if (index || description == nullptr) {
        throw no_object(text, description != nullptr);
    }
    if (const DeviceDescription::Object* object = description->object(text)) {
        ObjectAddress address;
        address.index = object->index;
        return address;
    }
    const auto entries = description->entries_named(text);
    if (const DeviceDescription::Entry* entry = description->entry(text)) {
        return {entry->index, entry->subindex};
    }
    if (entries.empty() && program::whole_number(number, 0, INT64_MAX)) {
        throw no_object(text, true);
    }
    std::string list;
    for (const DeviceDescription::Entry* entry : entries) {
        list += (list.empty() ? "" : ", ") + address_text(entry->index, entry->subindex);
    }
    throw Failure(ExitStatus::usage, list.empty() ? "no object of " + description->file() + " is named '" +
                                                        text + "'" + errors_hint(*description)
                                                  : "'" + text + "' is the name of several: " + list);
}

std::string index_text(std::uint16_t index) {
    std::array<char, 8> text{};
    std::snprintf(text.data(), text.size(), "0x%04X", static_cast<unsigned int>(index));
    return text.data();
}

std::string address_text(std::uint16_t index, std::uint8_t subindex) {
    return index_text(index) + ":" + std::to_string(subindex);
}

std::string ValueForm::name() const {
    switch (kind) {
        case Kind::typed:
            return object_type_short_name(type);
        case Kind::raw:
            return "oct";
        default:
            return "hex";
    }
}

ValueForm parse_form(const std::string& word) {
    if (word.empty()) {
        return {};
    }
    if (word == "hex") {
        return {ValueForm::Kind::hex, ObjectDataType::none};
    }
    if (word == "oct") {
        return {ValueForm::Kind::raw, ObjectDataType::none};
    }
    const ObjectDataType type = object_data_type(std::string_view(word));
    if (type == ObjectDataType::none || word != object_type_short_name(type)) {
        throw Failure(
            ExitStatus::usage,
            "'" + word + "' is no type; right are bool, u8 to u64, i8 to i64, r32, r64, str, oct and hex");
    }
    return {ValueForm::Kind::typed, type};
}

ValueForm entry_form(const DeviceDescription::Entry* entry) {
    if (entry == nullptr || entry->type == ObjectDataType::none) {
        return {};
    }
    if (entry->type == ObjectDataType::domain || entry->type == ObjectDataType::octet_string) {
        return {ValueForm::Kind::hex, ObjectDataType::none};
    }
    return {ValueForm::Kind::typed, entry->type};
}

std::string odd_size(const ValueForm& form, const ObjectBytes& bytes) {
    const std::size_t size = form.kind == ValueForm::Kind::typed ? object_size(form.type) : 0;
    if (size == 0 || size == bytes.size()) {
        return {};
    }
    return "has " + std::to_string(bytes.size()) + " bytes, and " + object_type_name(form.type) + " has " +
           std::to_string(size);
}

ObjectBytes parse_value(const ValueForm& form, const DeviceDescription::Entry* entry, const std::string& text,
                        unsigned int node) {
    if (form.kind == ValueForm::Kind::raw || (form.kind == ValueForm::Kind::typed && is_text(form.type))) {
        return {text.begin(), text.end()};
    }
    const ObjectDataType type = form.kind == ValueForm::Kind::hex ? ObjectDataType::octet_string : form.type;
    const bool by_entry = entry != nullptr && entry->type == type;
    const ObjectParse parsed = by_entry ? entry->parse(text, node) : parse_object(type, text, node);
    if (!parsed.bytes) {
        throw Failure(ExitStatus::usage, "the value '" + text + "' " + parsed.remark);
    }
    if (!parsed.remark.empty()) {
        tell("the value '" + text + "' " + parsed.remark);
    }
    return *parsed.bytes;
}

std::string value_text(const ValueForm& form, const ObjectBytes& bytes) {
    switch (form.kind) {
        case ValueForm::Kind::typed:
            return printable(format_object(form.type, bytes));
        case ValueForm::Kind::raw:
            return {bytes.begin(), bytes.end()};
        case ValueForm::Kind::hex:
            return format_object(ObjectDataType::octet_string, bytes);
        case ValueForm::Kind::unknown:
            break;
    }
    std::string text = format_object(ObjectDataType::octet_string, bytes);
    if (!bytes.empty() && bytes.size() <= number_bytes) {
        text += "  " + std::to_string(little_endian(bytes));
    }
    return text;
}

nlohmann::ordered_json value_json(const ValueForm& form, const ObjectBytes& bytes) {
    if (form.kind == ValueForm::Kind::unknown && !bytes.empty() && bytes.size() <= number_bytes) {
        return little_endian(bytes);
    }
    if (form.kind != ValueForm::Kind::typed) {
        return plain_hex(bytes);
    }
    const std::string text = format_object(form.type, bytes);
    const bool is_number = object_is_integer(form.type) || object_is_real(form.type);
    if (is_number &&
        (bytes.empty() || (object_is_real(form.type) && bytes.size() < object_size(form.type)))) {
        return nullptr;
    }
    if (form.type == ObjectDataType::boolean) {
        return text != "0";
    }
    if (object_is_real(form.type)) {
        return std::strtod(text.c_str(), nullptr);  // one that is no number becomes null
    }
    if (object_is_signed(form.type)) {
        return static_cast<std::int64_t>(std::strtoll(text.c_str(), nullptr, 10));
    }
    if (object_is_integer(form.type)) {
        return static_cast<std::uint64_t>(std::strtoull(text.c_str(), nullptr, 10));
    }
    return text;
}

nlohmann::ordered_json entry_json(unsigned int node, std::uint16_t index, std::uint8_t subindex,
                                  const ValueForm& form, const ObjectBytes& bytes, const std::string& name) {
    nlohmann::ordered_json object{
        {"node", node},        {"index", index_text(index)},       {"sub", subindex},
        {"type", form.name()}, {"value", value_json(form, bytes)}, {"hex", plain_hex(bytes)}};
    if (!name.empty()) {
        object["name"] = name;
    }
    return object;
}

nlohmann::ordered_json described_json(const DeviceDescription::Entry& entry,
                                      const std::optional<ObjectBytes>& bytes, const std::string& text) {
    if (bytes) {
        return value_json(entry_form(&entry), *bytes);
    }
    return text.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(text);
}

std::uint64_t little_endian(const ObjectBytes& bytes) {
    std::uint64_t number = 0;
    for (std::size_t i = std::min(bytes.size(), number_bytes); i > 0; --i) {
        number = number << 8 | bytes[i - 1];
    }
    return number;
}

std::string plain_hex(const ObjectBytes& bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 0xF];
    }
    return text;
}

}  // namespace nodevik_tool
