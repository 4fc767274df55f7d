#include "nodevik/nodes/devicedescription.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <memory>
#include <utility>

#include "nodevik/nodes/edsdocument.h"
#include "nodevik/nodes/edsreader.h"
#include "nodevik/nodes/edstext.h"

namespace {

/// A name made comparable: small letters, one blank where there are several, no zeros before a number at its end.
std::string comparable(std::string_view name) {
    std::string result;
    result.reserve(name.size());
    for (const char c : eds::trimmed(name)) {
        if (!eds::is_blank(c)) {
            result += eds::lower(c);
        } else if (result.back() != ' ') {
            result += ' ';
        }
    }
    const std::size_t before = result.find_last_not_of("0123456789");
    const std::size_t digits = before == result.npos ? 0 : before + 1;
    const std::size_t zeros = std::min(result.find_first_not_of('0', digits), result.size()) - digits;
    if (digits + zeros < result.size()) {
        result.erase(digits, zeros);
    }
    return result;
}

std::string with_limit(const char* words, const std::string& limit) {
    return std::string(words) + limit;
}

/// The contents of a file. @return false with errno(3) when it cannot be read
bool read_whole(const std::string& path, std::string& text) {
    struct Close {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };
    const std::unique_ptr<std::FILE, Close> file(std::fopen(path.c_str(), "rbe"));
    if (file == nullptr) {
        return false;
    }
    constexpr std::size_t piece = 65536;
    for (std::size_t got = piece; got > 0;) {
        const std::size_t size = text.size();
        text.resize(size + piece);
        got = std::fread(&text[size], 1, piece, file.get());
        text.resize(size + got);
    }
    return std::ferror(file.get()) == 0;
}

bool is_utf16(const std::string& text) {
    return text.size() > 1 && (text.compare(0, 2, "\xFF\xFE") == 0 || text.compare(0, 2, "\xFE\xFF") == 0);
}

}  // namespace

const char* object_access_name(ObjectAccess access) {
    switch (access) {
        case ObjectAccess::read_only:
            return "ro";
        case ObjectAccess::write_only:
            return "wo";
        case ObjectAccess::read_write:
            return "rw";
        case ObjectAccess::read_write_input:
            return "rwr";
        case ObjectAccess::read_write_output:
            return "rww";
        case ObjectAccess::constant:
            return "const";
        case ObjectAccess::unknown:
            break;
    }
    return "unknown";
}

std::string DescriptionFinding::text() const {
    std::string result = file;
    if (line > 0) {
        result += ":" + std::to_string(line);
    }
    result += ":";
    if (!section.empty()) {
        result += " [" + section + "]";
    }
    if (!key.empty()) {
        result += " " + key;
    }
    return result + (section.empty() && key.empty() ? " " : ": ") + reason;
}

// Entries.

std::string DeviceDescription::Entry::full_name() const {
    return object_name.empty() ? name : object_name + "/" + name;
}

bool DeviceDescription::Entry::readable() const {
    return access != ObjectAccess::write_only;
}

bool DeviceDescription::Entry::writable() const {
    return access != ObjectAccess::read_only && access != ObjectAccess::constant;
}

const std::string& DeviceDescription::Entry::value_text() const {
    return parameter_text.empty() ? default_text : parameter_text;
}

namespace {

std::optional<ObjectBytes> value_of(ObjectDataType type, const std::string& text, unsigned int node_id) {
    return text.empty() ? std::nullopt : parse_object(type, text, node_id).bytes;
}

}  // namespace

std::optional<ObjectBytes> DeviceDescription::Entry::value(unsigned int node_id) const {
    return value_of(type, value_text(), node_id);
}

std::optional<ObjectBytes> DeviceDescription::Entry::default_value(unsigned int node_id) const {
    return value_of(type, default_text, node_id);
}

std::optional<ObjectBytes> DeviceDescription::Entry::low(unsigned int node_id) const {
    return value_of(type, low_text, node_id);
}

std::optional<ObjectBytes> DeviceDescription::Entry::high(unsigned int node_id) const {
    return value_of(type, high_text, node_id);
}

ObjectParse DeviceDescription::Entry::parse(std::string_view text, unsigned int node_id) const {
    ObjectParse result = parse_object(type, text, node_id);
    if (result.bytes) {
        std::string reason = out_of_limits(*result.bytes, node_id);
        if (!reason.empty()) {
            return {std::nullopt, std::move(reason)};
        }
    }
    return result;
}

std::string DeviceDescription::Entry::out_of_limits(const ObjectBytes& bytes, unsigned int node_id) const {
    const auto least = low(node_id);
    if (least && compare_objects(type, bytes, *least) < 0) {
        return with_limit("is below the low limit ", low_text);
    }
    const auto most = high(node_id);
    if (most && compare_objects(type, bytes, *most) > 0) {
        return with_limit("is above the high limit ", high_text);
    }
    return {};
}

// Reading.

bool DeviceDescription::load(const std::string& path) {
    std::string text;
    if (read_whole(path, text)) {
        return parse(std::move(text), path);
    }
    const int error = errno;
    *this = DeviceDescription();
    file_ = path;
    findings_.push_back({DescriptionFinding::Severity::error,
                         path,
                         0,
                         {},
                         {},
                         std::string("cannot be read: ") + std::strerror(error)});
    return false;
}

bool DeviceDescription::parse(std::string text, const std::string& file) {
    *this = DeviceDescription();
    file_ = file;
    if (is_utf16(text)) {
        findings_.push_back({DescriptionFinding::Severity::error,
                             file,
                             1,
                             {},
                             {},
                             "is UTF-16: a device description is ASCII, UTF-8 or Latin-1"});
        return false;
    }
    const auto document = std::make_shared<const eds::Document>(std::move(text));
    document_ = document;
    return EdsReader(*document, *this).read();
}

// Finding objects.

std::size_t DeviceDescription::entry_count() const {
    std::size_t count = 0;
    for (const Object& object : objects_) {
        count += object.entries.size();
    }
    return count;
}

const DeviceDescription::Object* DeviceDescription::object(std::uint16_t index) const {
    const auto found =
        std::lower_bound(objects_.begin(), objects_.end(), index,
                         [](const Object& object, std::uint16_t wanted) { return object.index < wanted; });
    return found != objects_.end() && found->index == index ? &*found : nullptr;
}

const DeviceDescription::Entry* DeviceDescription::entry(std::uint16_t index, std::uint8_t subindex) const {
    const Object* found = object(index);
    if (found == nullptr) {
        return nullptr;
    }
    const auto place =
        std::lower_bound(found->entries.begin(), found->entries.end(), subindex,
                         [](const Entry& entry, std::uint8_t wanted) { return entry.subindex < wanted; });
    return place != found->entries.end() && place->subindex == subindex ? &*place : nullptr;
}

DeviceDescription::Entry* DeviceDescription::find_entry(std::uint16_t index, std::uint8_t subindex) {
    return const_cast<Entry*>(std::as_const(*this).entry(index, subindex));
}

void DeviceDescription::index_names() {
    names_.clear();
    names_.reserve(entry_count());
    for (std::size_t o = 0; o < objects_.size(); ++o) {
        for (std::size_t e = 0; e < objects_[o].entries.size(); ++e) {
            names_.push_back({comparable(objects_[o].entries[e].full_name()), static_cast<std::uint32_t>(o),
                              static_cast<std::uint32_t>(e)});
        }
    }
    std::stable_sort(names_.begin(), names_.end(),
                     [](const NamedEntry& l, const NamedEntry& r) { return l.name < r.name; });
}

std::vector<const DeviceDescription::Entry*> DeviceDescription::entries_named(std::string_view name) const {
    struct Less {
        bool operator()(const NamedEntry& l, const std::string& r) const { return l.name < r; }
        bool operator()(const std::string& l, const NamedEntry& r) const { return l < r.name; }
    };
    std::vector<const Entry*> entries;
    const auto [first, last] = std::equal_range(names_.begin(), names_.end(), comparable(name), Less());
    std::transform(first, last, std::back_inserter(entries),
                   [&](const NamedEntry& named) { return &objects_[named.object].entries[named.entry]; });
    const auto exact = [&](const Entry* entry) { return entry->full_name() == name; };
    if (std::any_of(entries.begin(), entries.end(), exact)) {
        entries.erase(
            std::remove_if(entries.begin(), entries.end(), [&](const Entry* entry) { return !exact(entry); }),
            entries.end());
    }
    return entries;
}

const DeviceDescription::Entry* DeviceDescription::entry(std::string_view name) const {
    const auto entries = entries_named(name);
    return entries.size() == 1 ? entries.front() : nullptr;
}

const DeviceDescription::Object* DeviceDescription::object(std::string_view name) const {
    const std::string wanted = comparable(name);
    const Object* similar = nullptr;
    const Object* exact = nullptr;
    std::size_t similar_count = 0;
    std::size_t exact_count = 0;
    for (const Object& candidate : objects_) {
        if (candidate.name == name) {
            exact = &candidate;
            ++exact_count;
        }
        if (comparable(candidate.name) == wanted) {
            similar = &candidate;
            ++similar_count;
        }
    }
    if (exact_count > 0) {
        return exact_count == 1 ? exact : nullptr;
    }
    return similar_count == 1 ? similar : nullptr;
}
