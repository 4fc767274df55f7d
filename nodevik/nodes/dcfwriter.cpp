// The DCF of a device description: the lines of its file, with values and commissioning put in (CiA 306-1, clause 5).

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "nodevik/nodes/devicedescription.h"
#include "nodevik/nodes/edsdocument.h"
#include "nodevik/nodes/edstext.h"

namespace {

/// Longest line of a file (CiA 306-1, 6.2).
constexpr std::size_t longest_line = 255;
constexpr std::string_view value_key = "ParameterValue";

/// Why a text cannot stand behind a key; empty when it can.
std::string unfit_for_a_line(std::string_view key, std::string_view text) {
    if (std::any_of(text.begin(), text.end(), [](char c) { return c < ' ' || c > '~'; })) {
        return "has characters that a DCF cannot hold";
    }
    return key.size() + 1 + text.size() > longest_line ? "is longer than a line of a DCF can be" : "";
}

std::string_view file_name_of(std::string_view path) {
    return path.substr(path.rfind('/') + 1);
}

}  // namespace

/// Writes one description once.
class DcfWriter {
public:
    DcfWriter(const DeviceDescription& description, const DeviceDescription::DcfOptions& options)
        : document_(*description.document_), description_(description), options_(options) {}

    std::string text();

private:
    using Object = DeviceDescription::Object;
    using Entry = DeviceDescription::Entry;

    /// What a key of a section is to be; an empty value takes its line away.
    struct Change {
        std::string_view key;
        std::string value;
    };

    void look_at_the_objects();
    void write(std::string_view line) { (text_ += line) += document_.line_end(); }
    void write_key(std::string_view key, std::string_view value) {
        write(std::string(key) + "=" + std::string(value));
    }
    void write_blank();
    void write_section(const eds::Section& section);
    void write_changed(const eds::Section& section, std::vector<Change> changes);
    void write_line(const eds::Line& line, std::vector<Change>& changes, std::vector<bool>& done);
    void write_list(const eds::Section& section);
    void write_commissioning();
    void write_compact_values(const Object& object);
    void write_object(const Object& object);
    void write_value(const Entry& entry);
    std::vector<Change> file_changes() const;
    std::vector<Change> commissioning_changes() const;

    const eds::Document& document_;
    const DeviceDescription& description_;
    const DeviceDescription::DcfOptions& options_;
    std::string text_;
    std::map<unsigned int, const Entry*> entries_;  // by the line of their section
    std::map<unsigned int, const Object*>
        compact_;                           // with members that have no section, by the line of their section
    std::vector<const Object*> unwritten_;  // with a value, and without any section
    std::set<std::string> written_;         // sections, in small letters
};

std::string DcfWriter::text() {
    look_at_the_objects();
    for (std::size_t i = 0; i < document_.preamble(); ++i) {
        write(document_.lines()[i].text);
    }
    bool commissioned = !description_.commissioning_set_;
    for (const eds::Section& section : document_.sections()) {
        commissioned = commissioned || eds::find_word(section.name, "devicecom") == 0;
    }
    for (const eds::Section& section : document_.sections()) {
        std::string name(section.name);
        std::transform(name.begin(), name.end(), name.begin(), eds::lower);
        if (!written_.insert(name).second) {
            continue;
        }
        write_section(section);
        if (name == "deviceinfo" && !commissioned) {
            write_commissioning();
            commissioned = true;
        }
    }
    if (!commissioned) {
        write_commissioning();
    }
    if (!unwritten_.empty() && written_.count("optionalobjects") == 0) {
        write_blank();
        write("[OptionalObjects]");
        write_key("SupportedObjects", std::to_string(unwritten_.size()));
        for (std::size_t i = 0; i < unwritten_.size(); ++i) {
            write_key(std::to_string(i + 1), "0x" + eds::hexadecimal(unwritten_[i]->index, 4));
        }
    }
    for (const Object* object : unwritten_) {
        write_object(*object);
    }
    return std::move(text_);
}

void DcfWriter::look_at_the_objects() {
    const auto has_value = [](const Entry& entry) { return !entry.parameter_text.empty(); };
    for (const Object& object : description_.objects_) {
        bool has_sections = object.line != 0;
        for (const Entry& entry : object.entries) {
            has_sections = has_sections || entry.line != 0;
            if (entry.line != 0) {
                entries_.emplace(entry.line, &entry);
            } else if (object.line != 0) {
                compact_.emplace(object.line, &object);
            }
        }
        if (!has_sections && std::any_of(object.entries.begin(), object.entries.end(), has_value)) {
            unwritten_.push_back(&object);
        }
    }
}

void DcfWriter::write_blank() {
    if (!text_.empty()) {
        write("");
    }
}

void DcfWriter::write_section(const eds::Section& section) {
    const auto is = [&](std::string_view name) { return eds::is_key(section.name, name); };
    constexpr std::string_view values = "value";
    const std::string_view name = section.name;
    if (is("fileinfo")) {
        write_changed(section, file_changes());
    } else if (eds::find_word(name, "devicecom") == 0) {
        write_changed(section, commissioning_changes());
    } else if (is("optionalobjects") && !unwritten_.empty()) {
        write_list(section);
    } else if (const auto entry = entries_.find(section.line); entry != entries_.end()) {
        write_changed(section, {{value_key, entry->second->parameter_text}});
    } else if (const auto object = compact_.find(section.line); object != compact_.end()) {
        write_changed(section, {});
        write_compact_values(*object->second);
    } else if (name.size() > values.size() &&
               eds::same_word(name.substr(name.size() - values.size()), values) &&
               eds::hex_digit(name.front()) >= 0) {
        return;  // written behind its object's section
    } else {
        write_changed(section, {});
    }
}

/// Writes a section as it stands but for some keys; those that it lacks stand behind its last key.
void DcfWriter::write_changed(const eds::Section& section, std::vector<Change> changes) {
    write(section.heading);
    std::vector<bool> done(changes.size());
    std::size_t last_key = section.first;
    for (std::size_t i = section.first; i < section.end; ++i) {
        if (document_.lines()[i].is_key) {
            last_key = i + 1;
        }
    }
    for (std::size_t i = section.first; i < last_key; ++i) {
        write_line(document_.lines()[i], changes, done);
    }
    for (std::size_t i = 0; i < changes.size(); ++i) {
        if (!done[i] && !changes[i].value.empty()) {
            write_key(changes[i].key, changes[i].value);
        }
    }
    for (std::size_t i = last_key; i < section.end; ++i) {
        write(document_.lines()[i].text);
    }
}

void DcfWriter::write_line(const eds::Line& line, std::vector<Change>& changes, std::vector<bool>& done) {
    const auto change = std::find_if(changes.begin(), changes.end(), [&](const Change& c) {
        return line.is_key && eds::is_key(line.key, c.key);
    });
    if (change == changes.end()) {
        write(line.text);
        return;
    }
    const auto place = static_cast<std::size_t>(change - changes.begin());
    const bool first = !done[place];
    done[place] = true;
    if (!first || change->value.empty()) {
        return;
    }
    if (eds::utf8(line.value) == change->value ||
        eds::utf8(eds::without_comment(line.value)) == change->value) {
        write(line.text);
    } else {
        write_key(line.key, change->value);
    }
}

std::vector<DcfWriter::Change> DcfWriter::file_changes() const {
    std::vector<Change> changes;
    const auto change = [&](std::string_view key, const std::string& value) {
        if (!value.empty()) {
            changes.push_back({key, value});
        }
    };
    change("FileName", options_.file_name);
    change("ModificationTime", options_.modification_time);
    change("ModificationDate", options_.modification_date);
    change("ModifiedBy", options_.modified_by);
    if (!description_.is_dcf_) {
        change("LastEDS", std::string(file_name_of(description_.file_)));
    }
    return changes;
}

std::vector<DcfWriter::Change> DcfWriter::commissioning_changes() const {
    if (!description_.commissioning_set_) {
        return {};
    }
    const auto& commissioning = description_.commissioning_;
    const auto number = [](std::uint32_t value) {
        return value == 0 ? std::string() : std::to_string(value);
    };
    const auto& serial = commissioning.lss_serial_number;
    return {{"NodeID", number(commissioning.node_id)},
            {"NodeName", commissioning.node_name},
            {"Baudrate", number(commissioning.baud_rate_kbit)},
            {"NetNumber", number(commissioning.net_number)},
            {"NetworkName", commissioning.network_name},
            {"CANopenManager", commissioning.canopen_manager ? "1" : "0"},
            {"LSS_SerialNumber", serial ? std::to_string(*serial) : std::string()}};
}

void DcfWriter::write_commissioning() {
    write_blank();
    write("[DeviceComissioning]");
    for (const Change& change : commissioning_changes()) {
        if (!change.value.empty()) {
            write_key(change.key, change.value);
        }
    }
    write("");
}

/// Writes the list of the optional objects with those that are written out from now on.
void DcfWriter::write_list(const eds::Section& section) {
    unsigned long highest = 0;
    std::size_t named = 0;
    for (std::size_t i = section.first; i < section.end; ++i) {
        const eds::Line& line = document_.lines()[i];
        const eds::Number number = line.is_key ? eds::parse_number(line.key, 0) : eds::Number();
        named += number.valid ? 1 : 0;
        highest = number.valid ? std::max<unsigned long>(highest, number.magnitude) : highest;
    }
    std::vector<std::string> keys;
    for (std::size_t i = 0; i < unwritten_.size(); ++i) {
        keys.push_back(std::to_string(highest + i + 1));
    }
    std::vector<Change> changes = {{"SupportedObjects", std::to_string(named + unwritten_.size())}};
    for (std::size_t i = 0; i < unwritten_.size(); ++i) {
        changes.push_back({keys[i], "0x" + eds::hexadecimal(unwritten_[i]->index, 4)});
    }
    write_changed(section, std::move(changes));
}

void DcfWriter::write_compact_values(const Object& object) {
    std::vector<const Entry*> entries;
    for (const Entry& entry : object.entries) {
        if (entry.line == 0 && !entry.parameter_text.empty()) {
            entries.push_back(&entry);
        }
    }
    if (entries.empty()) {
        return;
    }
    write("[" + eds::hexadecimal(object.index, 4) + "Value]");
    write_key("NrOfEntries", std::to_string(entries.size()));
    for (const Entry* entry : entries) {
        write_key(std::to_string(entry->subindex), entry->parameter_text);
    }
    write("");
}

/// Writes out an object that the file only implies.
void DcfWriter::write_object(const Object& object) {
    const std::string index = eds::hexadecimal(object.index, 4);
    write_blank();
    write("[" + index + "]");
    write_key("ParameterName", object.name);
    write_key("ObjectType", "0x9");
    write_key("SubNumber", std::to_string(object.entries.size()));
    for (const Entry& entry : object.entries) {
        write("");
        write("[" + index + "sub" + eds::hexadecimal(entry.subindex, entry.subindex > 15 ? 2 : 1) + "]");
        write_key("ParameterName", entry.name);
        write_key("ObjectType", "0x7");
        write_key("DataType", "0x" + eds::hexadecimal(static_cast<unsigned int>(entry.type), 4));
        write_key("AccessType", object_access_name(entry.access));
        write_key("DefaultValue", entry.default_text);
        write_key("PDOMapping", "0");
        if (!entry.parameter_text.empty()) {
            write_key(value_key, entry.parameter_text);
        }
    }
}

// What the description is told.

std::string DeviceDescription::set_commissioning(const Commissioning& commissioning) {
    if (commissioning.node_id > 127) {
        return "the node number is not 1 to 127";
    }
    struct Name {
        const char* key;
        const std::string& text;
        const std::string& before;
    };
    const Name names[] = {{"NodeName", commissioning.node_name, commissioning_.node_name},
                          {"NetworkName", commissioning.network_name, commissioning_.network_name}};
    for (const Name& name : names) {
        const std::string reason = unfit_for_a_line(name.key, name.text);
        if (!reason.empty() && name.text != name.before) {  // what the file has keeps its line
            return std::string(name.key) + " " + reason;
        }
    }
    commissioning_ = commissioning;
    commissioning_set_ = true;
    return {};
}

std::string DeviceDescription::set_value(std::uint16_t index, std::uint8_t subindex, std::string_view text) {
    Entry* entry = find_entry(index, subindex);
    if (entry == nullptr) {
        return "is not described";
    }
    text = eds::trimmed(text);
    if (!text.empty()) {
        const ObjectParse result = entry->parse(text, node_id() == 0 ? 1 : node_id());
        std::string reason = result.bytes ? unfit_for_a_line(value_key, text) : result.remark;
        if (!reason.empty()) {
            return reason;
        }
    }
    entry->parameter_text = text;
    return {};
}

std::string DeviceDescription::set_value(std::uint16_t index, std::uint8_t subindex,
                                         const ObjectBytes& bytes) {
    const Entry* found = entry(index, subindex);
    if (found == nullptr) {
        return "is not described";
    }
    std::string text = found->format(bytes);
    const bool would_change =
        text != eds::trimmed(text) || (text.size() > 1 && text.front() == '"' && text.back() == '"');
    if (would_change) {
        text = "\"" + text + "\"";
    }
    return set_value(index, subindex, text);
}

std::string DeviceDescription::dcf(const DcfOptions& options) const {
    return document_ == nullptr ? std::string() : DcfWriter(*this, options).text();
}
