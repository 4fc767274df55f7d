#include "nodevik/nodes/edsreader.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <system_error>
#include <utility>

#include "nodevik/nodes/edstext.h"

namespace {

using eds::Line;
using eds::Section;

// Tables of keys, in small letters and without blanks; the enumerations number their rows.

enum ObjectKey : std::size_t {
    parameter_name,
    object_type,
    sub_number,
    data_type,
    access_type,
    default_value_key,
    low_limit,
    high_limit,
    pdo_mapping,
    obj_flags,
    compact_sub_obj,
    inverted_srad,
    parameter_value,
    denotation_key,
    upload_file,
    download_file,
    param_refd
};
constexpr std::array<std::string_view, 17> object_words = {
    "parametername",  "objecttype", "subnumber",  "datatype",     "accesstype",    "defaultvalue",
    "lowlimit",       "highlimit",  "pdomapping", "objflags",     "compactsubobj", "invertedsrad",
    "parametervalue", "denotation", "uploadfile", "downloadfile", "paramrefd"};

constexpr std::array<std::string_view, 12> file_info_words = {
    "filename",     "fileversion", "filerevision",     "edsversion",       "description", "creationtime",
    "creationdate", "createdby",   "modificationtime", "modificationdate", "modifiedby",  "lasteds"};

enum DeviceInfoKey : std::size_t {
    vendor_name,
    vendor_number,
    product_name,
    product_number,
    revision_number,
    order_code,
    boot_up_master,
    boot_up_slave,
    granularity,
    dynamic_channels,
    group_messaging,
    rx_pdos,
    tx_pdos,
    lss_supported,
    compact_pdo,
    first_baud_rate
};
constexpr std::array<unsigned int, 8> baud_rates_kbit = {10, 20, 50, 125, 250, 500, 800, 1000};
constexpr std::array<std::string_view, first_baud_rate + baud_rates_kbit.size()> device_info_words = {
    "vendorname",     "vendornumber",       "productname",       "productnumber", "revisionnumber",
    "ordercode",      "simplebootupmaster", "simplebootupslave", "granularity",   "dynamicchannelssupported",
    "groupmessaging", "nrofrxpdo",          "nroftxpdo",         "lss_supported", "compactpdo",
    "baudrate_10",    "baudrate_20",        "baudrate_50",       "baudrate_125",  "baudrate_250",
    "baudrate_500",   "baudrate_800",       "baudrate_1000"};

enum CommissioningKey : std::size_t {
    node_id_key,
    node_name,
    node_refd,
    baud_rate,
    net_number,
    network_name,
    net_refd,
    canopen_manager,
    lss_serial_number
};
constexpr std::array<std::string_view, 9> commissioning_words = {
    "nodeid",      "nodename", "noderefd",       "baudrate",        "netnumber",
    "networkname", "netrefd",  "canopenmanager", "lss_serialnumber"};

constexpr std::array<std::string_view, 7> dummy_words = {"dummy0001", "dummy0002", "dummy0003", "dummy0004",
                                                         "dummy0005", "dummy0006", "dummy0007"};
constexpr std::array<std::string_view, 1> comments_words = {"lines"};
constexpr std::array<std::string_view, 1> list_words = {"supportedobjects"};
constexpr std::array<std::string_view, 1> compact_words = {"nrofentries"};

struct AccessRow {
    std::string_view word;
    ObjectAccess access;
};
constexpr std::array<AccessRow, 6> access_rows = {{{"ro", ObjectAccess::read_only},
                                                   {"wo", ObjectAccess::write_only},
                                                   {"rw", ObjectAccess::read_write},
                                                   {"rwr", ObjectAccess::read_write_input},
                                                   {"rww", ObjectAccess::read_write_output},
                                                   {"const", ObjectAccess::constant}}};

constexpr std::uint32_t place_of(std::uint16_t index, unsigned int subindex) {
    return static_cast<std::uint32_t>(index) << 8 | subindex;
}
constexpr std::uint16_t index_of(std::uint32_t place) {
    return static_cast<std::uint16_t>(place >> 8);
}

/// A decimal number that is the whole text.
std::optional<unsigned int> decimal(std::string_view text) {
    unsigned int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() && !text.empty() ? std::optional(number)
                                                                                     : std::nullopt;
}

/// The hexadecimal digits that a text begins with, at most @p most of them.
std::string_view leading_hex(std::string_view text, std::size_t most) {
    std::size_t length = 0;
    while (length < text.size() && length < most && eds::hex_digit(text[length]) >= 0) {
        ++length;
    }
    return text.substr(0, length);
}

unsigned int hex_value(std::string_view digits) {
    unsigned int value = 0;
    for (const char c : digits) {
        value = value << 4 | static_cast<unsigned int>(eds::hex_digit(c));
    }
    return value;
}

/// A text for a reason: in quotes, not too long.
std::string quoted(std::string_view text) {
    constexpr std::size_t most = 60;
    return "\"" + eds::utf8(text.substr(0, most)) + (text.size() > most ? "...\"" : "\"");
}

/// Sections that the standard knows and this reader has no use for: modular devices, tools, links between objects.
bool is_passed_over(std::string_view name) {
    constexpr std::array<std::string_view, 4> known = {"supportedmodules", "connectedmodules",
                                                       "dynamicchannels", "tools"};
    if (std::any_of(known.begin(), known.end(),
                    [&](std::string_view word) { return eds::same_word(name, word); })) {
        return true;
    }
    const auto begins = [&](std::string_view word) {
        return name.size() > word.size() && eds::same_word(name.substr(0, word.size()), word) &&
               name[word.size()] >= '0' && name[word.size()] <= '9';
    };
    constexpr std::string_view links = "objectlinks";
    return begins("m") || begins("tool") ||
           (name.size() > links.size() && eds::same_word(name.substr(name.size() - links.size()), links));
}

/// The list that an object belongs into (CiA 306-1, 4.6.3).
DeviceDescription::Object::List proper_list(std::uint16_t index) {
    using List = DeviceDescription::Object::List;
    if (index == 0x1000 || index == 0x1001 || index == 0x1018) {
        return List::mandatory;
    }
    return index >= 0x2000 && index < 0x6000 ? List::manufacturer : List::optional;
}

}  // namespace

bool EdsReader::read() {
    look_before_the_sections();
    sort_sections();
    read_file_info();
    read_device_info();
    read_commissioning();
    read_dummies();
    read_comments();
    for (std::size_t i = 0; i < lists_.size(); ++i) {
        read_list(lists_[i], static_cast<Object::List>(i + 1));
    }
    read_objects();
    add_compact_pdos();
    check_lists();
    tell_foreign_lines();
    auto& findings = description_.findings_;
    std::stable_sort(findings.begin(), findings.end(),
                     [](const auto& l, const auto& r) { return l.line < r.line; });
    description_.index_names();
    const bool usable = !description_.objects_.empty();
    if (!usable) {
        tell(Severity::error, 0, {}, {}, "has no object that can be used");
    }
    return usable;
}

// Findings.

void EdsReader::tell(Severity severity, unsigned int line, std::string_view section, std::string_view key,
                     std::string reason) {
    // A line may be of any length, and be spoken of very often.
    constexpr std::size_t most = 255;
    description_.findings_.push_back({severity, description_.file_, line, eds::utf8(section.substr(0, most)),
                                      eds::utf8(key.substr(0, most)), std::move(reason)});
}

void EdsReader::tell(Severity severity, const Section& section, const Line& line, std::string reason) {
    tell(severity, line.number, section.name, line.key, std::move(reason));
}

void EdsReader::tell_unknown_key(const Section& section, const Line& line) {
    std::string word(line.key);
    std::transform(word.begin(), word.end(), word.begin(), eds::lower);
    if (unknown_keys_.insert(std::move(word)).second) {
        tell(Severity::note, section, line, "is not known: passed over, here and elsewhere");
    }
}

void EdsReader::tell_foreign_lines() {
    if (foreign_lines_ > 0) {
        tell(Severity::warning, first_foreign_line_->number, first_foreign_section_, {},
             "is neither a key with a value nor a comment: passed over" +
                 (foreign_lines_ > 1 ? ", as " + std::to_string(foreign_lines_ - 1) + " more"
                                     : std::string()));
    }
}

// Sections.

void EdsReader::look_before_the_sections() {
    const auto& lines = document_.lines();
    const auto end = lines.begin() + static_cast<std::ptrdiff_t>(document_.preamble());
    const auto stray =
        std::find_if(lines.begin(), end, [](const Line& line) { return line.is_key || line.is_foreign; });
    if (stray != end) {
        tell(Severity::warning, stray->number, {}, stray->key,
             "stands before the first section: passed over");
    }
}

void EdsReader::sort_sections() {
    parts_.reserve(document_.sections().size());
    for (const Section& section : document_.sections()) {
        if (!section.is_sound) {
            tell(Severity::warning, section.line, section.name, {}, "does not end with ] alone");
        }
        take_section(section);
    }
    std::stable_sort(parts_.begin(), parts_.end(), [](const Part& l, const Part& r) {
        return std::pair(l.place, l.kind) < std::pair(r.place, r.kind);
    });
    const auto same = [&](const Part& kept, const Part& again) {
        if (kept.place != again.place || kept.kind != again.kind) {
            return false;
        }
        tell(Severity::warning, again.section->line, again.section->name, {},
             "stands again: what line " + std::to_string(kept.section->line) + " begins counts");
        return true;
    };
    parts_.erase(std::unique(parts_.begin(), parts_.end(), same), parts_.end());
}

void EdsReader::take_section(const Section& section) {
    struct Named {
        std::string_view word;
        const Section** place;
    };
    const std::array<Named, 10> named = {{{"fileinfo", &file_info_},
                                          {"deviceinfo", &device_info_},
                                          {"devicecomissioning", &commissioning_},
                                          {"devicecommissioning", &commissioning_},
                                          {"devicecommisioning", &commissioning_},
                                          {"dummyusage", &dummy_usage_},
                                          {"comments", &comments_},
                                          {"mandatoryobjects", lists_.data()},
                                          {"optionalobjects", &lists_[1]},
                                          {"manufacturerobjects", &lists_[2]}}};
    if (take_object_section(section)) {
        return;
    }
    const auto* found = std::find_if(named.begin(), named.end(),
                                     [&](const Named& n) { return eds::is_key(section.name, n.word); });
    if (found != named.end()) {
        take_once(*found->place, section);
    } else if (!is_passed_over(section.name)) {
        tell(Severity::note, section.line, section.name, {}, "is not known: passed over");
    }
}

bool EdsReader::take_object_section(const Section& section) {
    std::string_view name = section.name;
    if (name.size() > 2 && name[0] == '0' && eds::lower(name[1]) == 'x') {
        name.remove_prefix(2);
    }
    const std::string_view digits = leading_hex(name, 4);
    if (digits.empty()) {
        return false;
    }
    Part part;
    part.section = &section;
    const auto index = static_cast<std::uint16_t>(hex_value(digits));
    part.place = place_of(index, 0);
    const std::string_view rest = eds::trimmed(name.substr(digits.size()));
    if (rest.empty()) {
        part.kind = Part::Kind::object;
    } else if (eds::same_word(rest, "name")) {
        part.kind = Part::Kind::names;
    } else if (eds::same_word(rest, "value")) {
        part.kind = Part::Kind::values;
    } else if (eds::same_word(rest, "denotation")) {
        part.kind = Part::Kind::denotations;
    } else if (rest.size() > 3 && eds::same_word(rest.substr(0, 3), "sub")) {
        const std::string_view number = eds::trimmed(rest.substr(3));
        if (leading_hex(number, 3).size() != number.size() || number.size() > 3 || hex_value(number) > 0xFF) {
            tell(Severity::error, section.line, section.name, {}, "is no subindex, 0 to FF: passed over");
            return true;
        }
        part.kind = Part::Kind::member;
        part.place = place_of(index, hex_value(number));
    } else {
        return false;
    }
    parts_.push_back(part);
    return true;
}

void EdsReader::take_once(const Section*& place, const Section& section) {
    if (place == nullptr) {
        place = &section;
    } else {
        tell(Severity::warning, section.line, section.name, {},
             "stands again: what line " + std::to_string(place->line) + " begins counts");
    }
}

// Keys and their values.

void EdsReader::tell_again(const Section& section, const Line& line, const Line& first) {
    tell(Severity::warning, section, line, "stands again: line " + std::to_string(first.number) + " counts");
}

/// Finds the words of a table in a section. Keys that are a word and a number go into @p counted.
template <std::size_t size>
EdsReader::Keys<size> EdsReader::keys_of(const Section& section,
                                         const std::array<std::string_view, size>& words, Counted* counted) {
    Keys<size> keys = {};
    std::unordered_map<unsigned int, const Line*> seen;
    for (std::size_t at = section.first; at < section.end; ++at) {
        const Line& line = document_.lines()[at];
        if (line.is_foreign) {
            take_foreign_line(section, line);
        }
        if (!line.is_key) {
            continue;
        }
        const auto word = std::find_if(words.begin(), words.end(),
                                       [&](std::string_view w) { return eds::is_key(line.key, w); });
        if (word != words.end()) {
            const Line*& place = keys[static_cast<std::size_t>(word - words.begin())];
            if (place == nullptr) {
                place = &line;
            } else {
                tell_again(section, line, *place);
            }
        } else if (counted == nullptr || !take_counted(section, line, *counted, seen)) {
            tell_unknown_key(section, line);
        }
    }
    if (counted != nullptr) {
        std::sort(counted->keys.begin(), counted->keys.end(),
                  [](const Counted::Key& l, const Counted::Key& r) { return l.number < r.number; });
    }
    return keys;
}

/// Takes a key that is the word and a number. @return false when it is another one
bool EdsReader::take_counted(const Section& section, const Line& line, Counted& counted,
                             std::unordered_map<unsigned int, const Line*>& seen) {
    const std::size_t length = counted.word.size();
    const bool begins = line.key.size() > length && eds::same_word(line.key.substr(0, length), counted.word);
    const auto number = begins ? decimal(line.key.substr(length)) : std::nullopt;
    if (!number) {
        return false;
    }
    const auto [first, is_new] = seen.try_emplace(*number, &line);
    if (is_new) {
        counted.keys.push_back({*number, &line});
    } else {
        tell_again(section, line, *first->second);
    }
    return true;
}

void EdsReader::take_foreign_line(const Section& section, const Line& line) {
    if (foreign_lines_++ == 0) {
        first_foreign_line_ = &line;
        first_foreign_section_ = section.name;
    }
}

std::string EdsReader::text_of(const Line* line) const {
    return line == nullptr ? std::string() : eds::utf8(line->value);
}

std::optional<std::uint64_t> EdsReader::number_of(const Section& section, const Line* line,
                                                  std::uint64_t most) {
    const std::string_view text = line == nullptr ? std::string_view() : eds::without_comment(line->value);
    if (text.empty()) {
        return std::nullopt;
    }
    const eds::Number number = eds::parse_number(text, 0);
    if (!number.valid || number.negative || number.magnitude > most || object_text_has_node_id(text)) {
        const bool too_much = number.valid && !number.negative && number.magnitude > most;
        tell(Severity::error, section, *line,
             (too_much ? "is more than " + std::to_string(most) : std::string("is no number")) + ": " +
                 quoted(text));
        return std::nullopt;
    }
    if (*number.remark != '\0') {
        tell(Severity::warning, section, *line, number.remark + (": " + quoted(text)));
    }
    return number.magnitude;
}

bool EdsReader::flag_of(const Section& section, const Line* line) {
    return number_of(section, line, 1).value_or(0) == 1;
}

std::optional<std::uint32_t> EdsReader::optional_number_of(const Section& section, const Line* line) {
    const auto number = number_of(section, line, 0xFFFFFFFF);
    return number ? std::optional(static_cast<std::uint32_t>(*number)) : std::nullopt;
}

// Sections beside the objects.

void EdsReader::read_file_info() {
    if (file_info_ == nullptr) {
        return;
    }
    auto& info = description_.file_info_;
    const std::array<std::string*, file_info_words.size()> places = {
        &info.file_name,         &info.file_version,      &info.file_revision, &info.eds_version,
        &info.description,       &info.creation_time,     &info.creation_date, &info.created_by,
        &info.modification_time, &info.modification_date, &info.modified_by,   &info.last_eds};
    const auto keys = keys_of(*file_info_, file_info_words);
    for (std::size_t i = 0; i < places.size(); ++i) {
        *places[i] = text_of(keys[i]);
    }
}

void EdsReader::read_device_info() {
    if (device_info_ == nullptr) {
        return;
    }
    auto& info = description_.device_info_;
    const Section& section = *device_info_;
    const auto keys = keys_of(section, device_info_words);
    info.vendor_name = text_of(keys[vendor_name]);
    info.vendor_number = optional_number_of(section, keys[vendor_number]);
    info.product_name = text_of(keys[product_name]);
    info.product_number = optional_number_of(section, keys[product_number]);
    info.revision_number = optional_number_of(section, keys[revision_number]);
    info.order_code = text_of(keys[order_code]);
    info.simple_boot_up_master = flag_of(section, keys[boot_up_master]);
    info.simple_boot_up_slave = flag_of(section, keys[boot_up_slave]);
    info.granularity = static_cast<unsigned int>(number_of(section, keys[granularity], 64).value_or(0));
    info.dynamic_channels = number_of(section, keys[dynamic_channels], 0xFFFF).value_or(0) != 0;
    info.group_messaging = flag_of(section, keys[group_messaging]);
    info.receive_pdos = static_cast<unsigned int>(number_of(section, keys[rx_pdos], 512).value_or(0));
    info.transmit_pdos = static_cast<unsigned int>(number_of(section, keys[tx_pdos], 512).value_or(0));
    info.lss = flag_of(section, keys[lss_supported]);
    info.compact_pdo = static_cast<unsigned int>(number_of(section, keys[compact_pdo], 0xFF).value_or(0));
    for (std::size_t i = 0; i < baud_rates_kbit.size(); ++i) {
        if (flag_of(section, keys[first_baud_rate + i])) {
            info.baud_rates_kbit.push_back(baud_rates_kbit[i]);
        }
    }
}

void EdsReader::read_commissioning() {
    description_.is_dcf_ = commissioning_ != nullptr;
    if (commissioning_ == nullptr) {
        return;
    }
    auto& commissioning = description_.commissioning_;
    const Section& section = *commissioning_;
    const auto keys = keys_of(section, commissioning_words);
    commissioning.node_id = static_cast<unsigned int>(number_of(section, keys[node_id_key], 127).value_or(0));
    commissioning.node_name = text_of(keys[node_name]);
    commissioning.baud_rate_kbit =
        static_cast<unsigned int>(number_of(section, keys[baud_rate], 0xFFFF).value_or(0));
    commissioning.net_number = optional_number_of(section, keys[net_number]).value_or(0);
    commissioning.network_name = text_of(keys[network_name]);
    commissioning.canopen_manager = flag_of(section, keys[canopen_manager]);
    commissioning.lss_serial_number = optional_number_of(section, keys[lss_serial_number]);
}

void EdsReader::read_dummies() {
    if (dummy_usage_ == nullptr) {
        return;
    }
    const auto keys = keys_of(*dummy_usage_, dummy_words);
    for (std::size_t i = 0; i < keys.size(); ++i) {
        description_.dummies_[i + 1] = flag_of(*dummy_usage_, keys[i]);
    }
}

void EdsReader::read_comments() {
    if (comments_ == nullptr) {
        return;
    }
    Counted lines;
    lines.word = "line";
    const auto keys = keys_of(*comments_, comments_words, &lines);
    for (const Counted::Key& line : lines.keys) {
        description_.comments_.push_back(text_of(line.line));
    }
    const auto count = number_of(*comments_, keys[0], 0xFFFFFFFF);
    if (count && *count != lines.keys.size()) {
        tell(Severity::warning, *comments_, *keys[0],
             "is not the number of lines, " + std::to_string(lines.keys.size()));
    }
}

void EdsReader::read_list(const Section* section, Object::List list) {
    if (section == nullptr) {
        return;
    }
    Counted entries;
    const auto keys = keys_of(*section, list_words, &entries);
    std::size_t named = 0;
    for (const Counted::Key& entry : entries.keys) {
        const auto index = number_of(*section, entry.line, 0xFFFF);
        if (!index) {
            continue;
        }
        ++named;
        const Listed here = {list, entry.line->number, section->name, entry.line->key};
        const auto [first, is_new] = listed_.try_emplace(static_cast<std::uint16_t>(*index), here);
        if (!is_new) {
            tell(Severity::warning, *section, *entry.line,
                 "is " + eds::hexadecimal(static_cast<unsigned int>(*index), 4) + " again: line " +
                     std::to_string(first->second.line) + " counts");
        }
    }
    const auto count = number_of(*section, keys[0], 0xFFFFFFFF);
    if (count && *count != named) {
        tell(Severity::warning, *section, *keys[0],
             "is not the number of objects named, " + std::to_string(named));
    }
}

// Objects.

void EdsReader::read_objects() {
    for (std::size_t first = 0, end = 0; first < parts_.size(); first = end) {
        while (end < parts_.size() && index_of(parts_[end].place) == index_of(parts_[first].place)) {
            ++end;
        }
        read_object(first, end);
    }
}

/// Makes the object of the parts from @p first to before @p end: all of one index, its own section first.
void EdsReader::read_object(std::size_t first, std::size_t end) {
    const auto is_member = [](const Part& part) { return part.kind == Part::Kind::member; };
    const auto begin_it = parts_.begin() + static_cast<std::ptrdiff_t>(first);
    const auto end_it = parts_.begin() + static_cast<std::ptrdiff_t>(end);
    const bool has_members = std::any_of(begin_it, end_it, is_member);
    const bool has_section = begin_it->kind == Part::Kind::object;
    if (!has_section && !has_members) {
        tell(Severity::error, begin_it->section->line, begin_it->section->name, {},
             "belongs to no object: passed over");
        return;
    }
    Object object;
    object.index = index_of(begin_it->place);
    object.name = eds::hexadecimal(object.index, 4);
    object.code = ObjectCode::record;
    ObjectKeys keys = {};
    const Section& section = *begin_it->section;
    if (has_section) {
        keys = keys_of(section, object_words);
        object.line = section.line;
        object.code = code_of(section, keys, has_members);
        const std::string name = text_of(keys[parameter_name]);
        if (name.empty()) {
            tell(Severity::warning, section.line, section.name, {},
                 "has no ParameterName: named by its index");
        } else {
            object.name = name;
        }
    } else {
        tell(Severity::warning, section.line, section.name, {},
             "is a member of an object without a section: named by its index");
    }
    if (object.is_single() && has_section && !has_members) {
        Entry entry;
        entry.index = object.index;
        entry.name = object.name;
        fill_entry(entry, section, keys, object.code);
        object.entries.push_back(std::move(entry));
    }
    for (auto part = begin_it; part != end_it; ++part) {
        if (!is_member(*part)) {
            continue;
        }
        const ObjectKeys member_keys = keys_of(*part->section, object_words);
        Entry entry;
        entry.index = object.index;
        entry.subindex = static_cast<std::uint8_t>(part->place & 0xFF);
        entry.object_name = object.name;
        entry.name = text_of(member_keys[parameter_name]);
        if (entry.name.empty()) {
            tell(Severity::warning, part->section->line, part->section->name, {},
                 "has no ParameterName: named by its section");
            entry.name = eds::utf8(part->section->name);
        }
        const auto code = number_of(*part->section, member_keys[object_type], 0xFF);
        fill_entry(entry, *part->section, member_keys,
                   code == 2U ? ObjectCode::domain : ObjectCode::variable);
        object.entries.push_back(std::move(entry));
    }
    if (has_section && !object.is_single()) {
        add_compact_members(object, section, keys);
        check_member_count(object, section, keys);
    }
    for (auto part = begin_it; part != end_it; ++part) {
        if (part->kind != Part::Kind::object && part->kind != Part::Kind::member) {
            read_compact_texts(object, *part);
        }
    }
    description_.objects_.push_back(std::move(object));
}

ObjectCode EdsReader::code_of(const Section& section, const ObjectKeys& keys, bool has_members) {
    const auto number = number_of(section, keys[object_type], 0xFF);
    const bool is_code = number && (*number == 0 || *number == 2 || (*number >= 5 && *number <= 9));
    if (number && !is_code) {
        tell(Severity::error, section, *keys[object_type], "is no object type: " + std::to_string(*number));
    }
    const auto code = is_code       ? static_cast<ObjectCode>(*number)
                      : has_members ? ObjectCode::record
                                    : ObjectCode::variable;
    if (has_members &&
        (code == ObjectCode::variable || code == ObjectCode::domain || code == ObjectCode::null)) {
        tell(Severity::warning, section.line, section.name, {},
             "has members and is no array or record: taken as a record");
        return ObjectCode::record;
    }
    return code;
}

void EdsReader::fill_entry(Entry& entry, const Section& section, const ObjectKeys& keys, ObjectCode code) {
    entry.line = section.line;
    entry.is_domain = code == ObjectCode::domain;
    entry.type = type_of(section, keys, code, entry);
    read_access(entry, section, keys);
    entry.pdo_mapping = flag_of(section, keys[pdo_mapping]);
    entry.flags = optional_number_of(section, keys[obj_flags]).value_or(0);
    entry.denotation = text_of(keys[denotation_key]);
    entry.upload_file = text_of(keys[upload_file]);
    entry.download_file = text_of(keys[download_file]);
    read_values(entry, section, keys);
}

void EdsReader::read_access(Entry& entry, const Section& section, const ObjectKeys& keys) {
    const std::string_view word =
        keys[access_type] == nullptr ? "" : eds::without_comment(keys[access_type]->value);
    const auto* row = std::find_if(access_rows.begin(), access_rows.end(),
                                   [&](const AccessRow& r) { return eds::same_word(r.word, word); });
    if (row != access_rows.end()) {
        entry.access = row->access;
    } else if (!word.empty()) {
        tell(Severity::error, section, *keys[access_type], "is no access type: " + quoted(word));
    } else if (entry.is_domain) {
        entry.access = ObjectAccess::read_write;
    } else {
        tell(Severity::warning, section.line, section.name, {}, "has no AccessType");
    }
}

void EdsReader::read_values(Entry& entry, const Section& section, const ObjectKeys& keys) {
    Limits limits;
    if (object_is_integer(entry.type) || object_is_real(entry.type)) {
        limits.low = read_value(entry, section, keys[low_limit], entry.low_text);
        limits.high = read_value(entry, section, keys[high_limit], entry.high_text);
    }
    const auto default_value = read_value(entry, section, keys[default_value_key], entry.default_text);
    const auto parameter = read_value(entry, section, keys[parameter_value], entry.parameter_text);
    check_limits(entry, section, keys, limits, default_value, parameter);
}

/// Reads a value; what is none is told and left out.
std::optional<ObjectBytes> EdsReader::read_value(const Entry& entry, const Section& section, const Line* line,
                                                 std::string& text) {
    if (line == nullptr || line->value.empty()) {
        return std::nullopt;
    }
    const bool is_text =
        entry.type == ObjectDataType::visible_string || entry.type == ObjectDataType::unicode_string;
    const std::string_view value = is_text ? line->value : eds::without_comment(line->value);
    if (value.empty()) {
        return std::nullopt;
    }
    if (entry.type == ObjectDataType::none) {
        text = eds::utf8(value);
        return std::nullopt;
    }
    ObjectParse result = parse_object(entry.type, value, 1);
    if (!result.remark.empty()) {
        tell(result.bytes ? Severity::warning : Severity::error, section, *line,
             result.remark + ": " + quoted(value));
    }
    if (result.bytes) {
        text = eds::utf8(value);
    }
    return std::move(result.bytes);
}

void EdsReader::check_limits(Entry& entry, const Section& section, const ObjectKeys& keys, Limits& limits,
                             const std::optional<ObjectBytes>& default_value,
                             const std::optional<ObjectBytes>& parameter) {
    if (limits.low && limits.high && compare_objects(entry.type, *limits.low, *limits.high) > 0) {
        tell(Severity::error, section, *keys[low_limit],
             "is above the HighLimit, " + entry.high_text + ": both passed over");
        entry.low_text.clear();
        entry.high_text.clear();
        return;
    }
    const auto check = [&](const std::optional<ObjectBytes>& value, std::size_t key) {
        if (value && limits.low && compare_objects(entry.type, *value, *limits.low) < 0) {
            tell(Severity::warning, section, *keys[key], "is below the LowLimit, " + entry.low_text);
        }
        if (value && limits.high && compare_objects(entry.type, *value, *limits.high) > 0) {
            tell(Severity::warning, section, *keys[key], "is above the HighLimit, " + entry.high_text);
        }
    };
    check(default_value, default_value_key);
    check(parameter, parameter_value);
}

ObjectDataType EdsReader::type_of(const Section& section, const ObjectKeys& keys, ObjectCode code,
                                  const Entry& entry) {
    const auto number = number_of(section, keys[data_type], 0xFFFFFFFF);
    if (!number) {
        if (code == ObjectCode::domain || code == ObjectCode::deftype || code == ObjectCode::defstruct ||
            code == ObjectCode::null) {
            return code == ObjectCode::domain ? ObjectDataType::domain : ObjectDataType::none;
        }
        const bool counts = entry.subindex == 0 && !entry.object_name.empty();
        tell(Severity::warning, section.line, section.name, {},
             counts ? "has no DataType: taken as UNSIGNED8" : "has no DataType: taken as DOMAIN");
        return counts ? ObjectDataType::unsigned8 : ObjectDataType::domain;
    }
    const ObjectDataType type = defined_type(*number);
    const bool is_structure = *number >= 0x20 && *number < 0x40;
    if (type != ObjectDataType::none || is_structure || *number == 0) {
        return type;
    }
    tell(Severity::error, section, *keys[data_type],
         "is no data type, taken as DOMAIN: " + quoted(keys[data_type]->value));
    return ObjectDataType::domain;
}

/// The data type of a number, through the definition in [A0] and its member 1 when the file has one there.
ObjectDataType EdsReader::defined_type(std::uint64_t number) {
    const ObjectDataType type =
        number > 0xFFFF ? ObjectDataType::none : object_data_type(static_cast<unsigned int>(number));
    if (type != ObjectDataType::none || number < 0x40 || number > 0xFFFF) {
        return type;
    }
    const auto [known, is_new] =
        defined_types_.try_emplace(static_cast<std::uint16_t>(number), ObjectDataType::none);
    if (is_new) {
        known->second = look_up_type(known->first);
    }
    return known->second;
}

ObjectDataType EdsReader::look_up_type(std::uint16_t number) const {
    const std::uint32_t place = place_of(number, 1);
    const auto part = std::lower_bound(parts_.begin(), parts_.end(), place,
                                       [](const Part& p, std::uint32_t wanted) { return p.place < wanted; });
    if (part == parts_.end() || part->place != place || part->kind != Part::Kind::member) {
        return ObjectDataType::none;
    }
    for (std::size_t at = part->section->first; at < part->section->end; ++at) {
        const Line& line = document_.lines()[at];
        if (line.is_key && eds::is_key(line.key, object_words[default_value_key])) {
            const eds::Number base = eds::parse_number(eds::without_comment(line.value), 0);
            return base.valid && base.magnitude <= 0xFF
                       ? object_data_type(static_cast<unsigned int>(base.magnitude))
                       : ObjectDataType::none;
        }
    }
    return ObjectDataType::none;
}

void EdsReader::check_member_count(const Object& object, const Section& section, const ObjectKeys& keys) {
    const auto count = number_of(section, keys[sub_number], 0xFF);
    std::size_t members = 0;
    std::size_t decimal_count =
        0;  // subindices 0 to 9, 10 to 19 and so on without a gap, as if counted in decimal
    for (const Entry& entry : object.entries) {
        members += entry.subindex != 0xFF ? 1 : 0;
        const unsigned int read_as_decimal = 10U * (entry.subindex >> 4) + (entry.subindex & 15U);
        decimal_count += read_as_decimal == decimal_count && (entry.subindex & 15U) < 10 ? 1 : 0;
    }
    if (members == 0) {
        tell(Severity::error, section.line, section.name, {}, "is an array or record without members");
    }
    if (count && *count != members && keys[compact_sub_obj] == nullptr) {
        tell(Severity::warning, section, *keys[sub_number],
             "is not the number of members, " + std::to_string(members) + ": " +
                 quoted(keys[sub_number]->value));
    }
    if (count && *count == members && decimal_count == members && members > 10) {
        tell(Severity::warning, section, *keys[sub_number],
             "fits members that are numbered in decimal: taken as hexadecimal all the same");
    }
}

/// Adds the members that CompactSubObj stands for; those with a section of their own stay as they are.
void EdsReader::add_compact_members(Object& object, const Section& section, const ObjectKeys& keys) {
    const auto count = number_of(section, keys[compact_sub_obj], 254).value_or(0);
    if (count == 0) {
        return;
    }
    std::array<bool, 256> taken = {};
    for (const Entry& entry : object.entries) {
        taken[entry.subindex] = true;
    }
    Entry model;
    model.index = object.index;
    model.object_name = object.name;
    model.subindex = 1;
    fill_entry(model, section, keys, ObjectCode::variable);
    model.line = 0;
    if (!taken[0]) {
        Entry highest;
        highest.index = object.index;
        highest.object_name = object.name;
        highest.name = "NrOfObjects";
        highest.type = ObjectDataType::unsigned8;
        highest.access = ObjectAccess::read_only;
        highest.default_text = std::to_string(count);
        object.entries.push_back(std::move(highest));
    }
    for (unsigned int subindex = 1; subindex <= count; ++subindex) {
        if (!taken[subindex]) {
            model.subindex = static_cast<std::uint8_t>(subindex);
            model.name = object.name + std::to_string(subindex);
            object.entries.push_back(model);
        }
    }
    std::sort(object.entries.begin(), object.entries.end(),
              [](const Entry& l, const Entry& r) { return l.subindex < r.subindex; });
}

/// Takes the names, values or denotations of a compact array's members.
void EdsReader::read_compact_texts(Object& object, const Part& part) {
    const Section& section = *part.section;
    Counted lines;
    const auto keys = keys_of(section, compact_words, &lines);
    for (const Counted::Key& line : lines.keys) {
        const auto entry = std::find_if(object.entries.begin(), object.entries.end(),
                                        [&](const Entry& e) { return e.subindex == line.number; });
        if (entry == object.entries.end() || line.number == 0) {
            tell(Severity::error, section, *line.line, "is no member of the object: passed over");
        } else if (part.kind == Part::Kind::names) {
            entry->name = text_of(line.line);
        } else if (part.kind == Part::Kind::denotations) {
            entry->denotation = text_of(line.line);
        } else {
            read_value(*entry, section, line.line, entry->parameter_text);
        }
    }
    const auto count = number_of(section, keys[0], 0xFFFFFFFF);
    if (count && *count != lines.keys.size()) {
        tell(Severity::warning, section, *keys[0],
             "is not the number of entries, " + std::to_string(lines.keys.size()));
    }
}

// PDOs without sections (CiA 306-1, CompactPDO), and the lists.

void EdsReader::add_compact_pdos() {
    const auto& info = description_.device_info_;
    if (info.compact_pdo == 0) {
        return;
    }
    for (unsigned int number = 0; number < info.receive_pdos; ++number) {
        add_compact_pdo(static_cast<std::uint16_t>(0x1400 + number),
                        static_cast<std::uint16_t>(0x1600 + number), false, number);
    }
    for (unsigned int number = 0; number < info.transmit_pdos; ++number) {
        add_compact_pdo(static_cast<std::uint16_t>(0x1800 + number),
                        static_cast<std::uint16_t>(0x1A00 + number), true, number);
    }
    auto& objects = description_.objects_;
    std::sort(objects.begin(), objects.end(),
              [](const Object& l, const Object& r) { return l.index < r.index; });
}

/// Adds a PDO's communication and mapping object, each if the file has none.
void EdsReader::add_compact_pdo(std::uint16_t communication, std::uint16_t mapping, bool transmit,
                                unsigned int number) {
    const auto add_object = [&](std::uint16_t index, std::string name) -> Object& {
        Object object;
        object.index = index;
        object.code = ObjectCode::record;
        object.list = Object::List::optional;
        object.name = std::move(name);
        description_.objects_.push_back(std::move(object));
        return description_.objects_.back();
    };
    const auto add = [](Object& object, unsigned int subindex, const char* name, ObjectDataType type,
                        std::string value) {
        Entry entry;
        entry.index = object.index;
        entry.subindex = static_cast<std::uint8_t>(subindex);
        entry.object_name = object.name;
        entry.name = name;
        entry.type = type;
        entry.access = ObjectAccess::read_write;
        entry.default_text = std::move(value);
        object.entries.push_back(std::move(entry));
    };
    // add_compact_pdos() appends behind what the file has, which is sorted up to here.
    const auto is_new = [&](std::uint16_t index) {
        return !std::binary_search(
            parts_.begin(), parts_.end(), Part{place_of(index, 0), Part::Kind::object, nullptr},
            [](const Part& l, const Part& r) { return index_of(l.place) < index_of(r.place); });
    };
    const std::string which =
        std::string(transmit ? "Transmit" : "Receive") + " PDO " + std::to_string(number + 1);
    if (is_new(communication)) {
        struct Parameter {
            unsigned int subindex;
            const char* name;
            ObjectDataType type;
            std::string value;
        };
        const std::string base = eds::hexadecimal((transmit ? 0x180U : 0x200U) + 0x100U * number, 3);
        const std::array<Parameter, 6> parameters = {{
            {1, "COB-ID", ObjectDataType::unsigned32,
             number < 4 ? "$NODEID+0x" + base : std::string("0x80000000")},
            {2, "Transmission type", ObjectDataType::unsigned8, "255"},
            {3, "Inhibit time", ObjectDataType::unsigned16, "0"},
            {4, "Compatibility entry", ObjectDataType::unsigned8, "0"},
            {5, "Event timer", ObjectDataType::unsigned16, "0"},
            {6, "SYNC start value", ObjectDataType::unsigned8, "0"},
        }};
        const unsigned int mask = description_.device_info_.compact_pdo;
        Object& object = add_object(communication, which + " communication parameter");
        add(object, 0, "Highest subindex", ObjectDataType::unsigned8, {});
        object.entries.front().access = ObjectAccess::constant;
        for (const Parameter& parameter : parameters) {
            if ((mask >> (parameter.subindex - 1) & 1) != 0) {
                add(object, parameter.subindex, parameter.name, parameter.type, parameter.value);
            }
        }
        object.entries.front().default_text = std::to_string(object.entries.back().subindex);
    }
    if (is_new(mapping)) {
        Object& object = add_object(mapping, which + " mapping parameter");
        add(object, 0, "Number of mapped objects", ObjectDataType::unsigned8, "0");
        for (unsigned int subindex = 1; subindex <= 64; ++subindex) {
            add(object, subindex, "", ObjectDataType::unsigned32, "0");
            object.entries.back().name = "Mapped object " + std::to_string(subindex);
        }
    }
}

/// Puts the lists and the objects together: both count.
void EdsReader::check_lists() {
    for (Object& object : description_.objects_) {
        const auto listed = listed_.find(object.index);
        if (listed == listed_.end()) {
            if (object.line != 0 && object.index >= 0x1000) {
                tell(Severity::warning, object.line, eds::hexadecimal(object.index, 4), {},
                     "is in no list of objects: taken");
            }
            continue;
        }
        object.list = listed->second.list;
        if (object.list != proper_list(object.index) && object.index >= 0x1000) {
            tell(Severity::note, listed->second.line, listed->second.section, listed->second.key,
                 "is in the wrong list: " + eds::hexadecimal(object.index, 4));
        }
    }
    for (const auto& [index, listed] : listed_) {
        const auto& objects = description_.objects_;
        const bool is_there =
            std::binary_search(objects.begin(), objects.end(), Object{index, {}, {}, 0, {}, {}},
                               [](const Object& l, const Object& r) { return l.index < r.index; });
        if (!is_there) {
            tell(Severity::error, listed.line, listed.section, listed.key,
                 "is listed and has no section: " + eds::hexadecimal(index, 4));
        }
    }
}
