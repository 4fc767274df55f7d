/// @file
/// Makes a device description of a file's sections (CiA 306-1). Private to this room.

#ifndef NODEVIK_NODES_EDSREADER_H
#define NODEVIK_NODES_EDSREADER_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "nodevik/nodes/devicedescription.h"
#include "nodevik/nodes/edsdocument.h"

/// Reads one document into one description, once.
class EdsReader {
public:
    EdsReader(const eds::Document& document, DeviceDescription& description)
        : document_(document), description_(description) {}

    /// Fills the description, which has to be empty. @return false when no object is left
    bool read();

private:
    using Severity = DescriptionFinding::Severity;
    using Entry = DeviceDescription::Entry;
    using Object = DeviceDescription::Object;

    /// The section of an object, and what of the object it tells.
    struct Part {
        enum class Kind : std::uint8_t { object, member, names, values, denotations };
        std::uint32_t place = 0;  ///< index << 8 | subindex
        Kind kind = Kind::object;
        const eds::Section* section = nullptr;
    };

    /// The keys of one section: where each word of a table stands, null when it does not.
    template <std::size_t size>
    using Keys = std::array<const eds::Line*, size>;
    static constexpr std::size_t object_key_count = 17;
    using ObjectKeys = Keys<object_key_count>;

    /// Keys that are a word and a number: `1=0x1000`, `Line1=...`.
    struct Counted {
        struct Key {
            unsigned int number = 0;
            const eds::Line* line = nullptr;
        };
        std::string_view word;  ///< what stands before the number
        std::vector<Key> keys;  ///< by rising number
    };

    /// Values of a description that a text has been read into, for the comparison with the limits.
    struct Limits {
        std::optional<ObjectBytes> low, high;
    };

    void tell(Severity severity, unsigned int line, std::string_view section, std::string_view key,
              std::string reason);
    void tell(Severity severity, const eds::Section& section, const eds::Line& line, std::string reason);
    void tell_unknown_key(const eds::Section& section, const eds::Line& line);
    void tell_foreign_lines();
    void take_foreign_line(const eds::Section& section, const eds::Line& line);

    void look_before_the_sections();
    void sort_sections();
    void take_section(const eds::Section& section);
    bool take_object_section(const eds::Section& section);
    void take_once(const eds::Section*& place, const eds::Section& section);

    template <std::size_t size>
    Keys<size> keys_of(const eds::Section& section, const std::array<std::string_view, size>& words,
                       Counted* counted = nullptr);
    bool take_counted(const eds::Section& section, const eds::Line& line, Counted& counted,
                      std::unordered_map<unsigned int, const eds::Line*>& seen);
    void tell_again(const eds::Section& section, const eds::Line& line, const eds::Line& first);
    std::string text_of(const eds::Line* line) const;
    std::optional<std::uint64_t> number_of(const eds::Section& section, const eds::Line* line,
                                           std::uint64_t most);
    bool flag_of(const eds::Section& section, const eds::Line* line);
    std::optional<std::uint32_t> optional_number_of(const eds::Section& section, const eds::Line* line);

    void read_file_info();
    void read_device_info();
    void read_commissioning();
    void read_dummies();
    void read_comments();
    void read_list(const eds::Section* section, Object::List list);

    void read_objects();
    void read_object(std::size_t first, std::size_t end);
    ObjectCode code_of(const eds::Section& section, const ObjectKeys& keys, bool has_members);
    void fill_entry(Entry& entry, const eds::Section& section, const ObjectKeys& keys, ObjectCode code);
    void read_access(Entry& entry, const eds::Section& section, const ObjectKeys& keys);
    void read_values(Entry& entry, const eds::Section& section, const ObjectKeys& keys);
    std::optional<ObjectBytes> read_value(const Entry& entry, const eds::Section& section,
                                          const eds::Line* line, std::string& text);
    void check_limits(Entry& entry, const eds::Section& section, const ObjectKeys& keys, Limits& limits,
                      const std::optional<ObjectBytes>& default_value,
                      const std::optional<ObjectBytes>& parameter);
    ObjectDataType type_of(const eds::Section& section, const ObjectKeys& keys, ObjectCode code,
                           const Entry& entry);
    ObjectDataType defined_type(std::uint64_t number);
    ObjectDataType look_up_type(std::uint16_t number) const;
    void check_member_count(const Object& object, const eds::Section& section, const ObjectKeys& keys);
    void add_compact_members(Object& object, const eds::Section& section, const ObjectKeys& keys);
    void read_compact_texts(Object& object, const Part& part);
    const Part* find_part(std::uint16_t index, Part::Kind kind) const;

    void add_compact_pdos();
    void add_compact_pdo(std::uint16_t communication, std::uint16_t mapping, bool transmit,
                         unsigned int number);
    void check_lists();

    const eds::Document& document_;
    DeviceDescription& description_;

    const eds::Section* file_info_ = nullptr;
    const eds::Section* device_info_ = nullptr;
    const eds::Section* commissioning_ = nullptr;
    const eds::Section* dummy_usage_ = nullptr;
    const eds::Section* comments_ = nullptr;
    std::array<const eds::Section*, 3> lists_ = {};
    std::vector<Part> parts_;

    struct Listed {
        Object::List list = Object::List::none;
        unsigned int line = 0;
        std::string_view section;
        std::string_view key;
    };
    std::map<std::uint16_t, Listed> listed_;
    std::unordered_map<std::uint16_t, ObjectDataType> defined_types_;  // that were looked up

    std::unordered_set<std::string> unknown_keys_;
    std::size_t foreign_lines_ = 0;
    const eds::Line* first_foreign_line_ = nullptr;
    std::string_view first_foreign_section_;
};

#endif
