/// @file
/// Objects and their values as a command line and its results have them.

#ifndef TOOLS_OBJECTS_H
#define TOOLS_OBJECTS_H

#include <cstdint>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "nodevik/nodes/devicedescription.h"
#include "nodevik/nodes/objectvalue.h"

namespace nodevik_tool {

/// Reads an EDS or DCF file, or a pipe that brings one, whatever is in it.
/// @param file  its name
/// @return as DeviceDescription::load()
/// @throws Failure  a pipe cannot be read
bool read_description(DeviceDescription& description, const std::string& file);

/// Reads an EDS or DCF file.
/// @param file  name of the file
/// @throws Failure  it cannot be used
DeviceDescription load_description(const std::string& file);

/// Whether something in a description could not be used and was passed over.
bool has_errors(const DeviceDescription& description);

/// What follows a message about something that a description lacks: nothing, or that the file has errors.
std::string errors_hint(const DeviceDescription& description);

/// Tells that something in a description could not be used, when there is something.
void tell_errors(const DeviceDescription& description);

/// The descriptions that --eds names.
class Descriptions {
public:
    /// Reads the files.
    /// @param words  "FILE", for every node, or "NODE=FILE"
    /// @throws Failure  a file cannot be used, or two are for the same nodes
    explicit Descriptions(const std::vector<std::string>& words);

    /// The description of a node, or null.
    const DeviceDescription* of(unsigned int node) const;

private:
    std::map<unsigned int, std::unique_ptr<DeviceDescription>> files_;  // 0: of every other node
};

/// An object that the command line names.
struct ObjectAddress {
    std::uint16_t index = 0;
    std::optional<std::uint8_t> subindex;  ///< nothing when only the object is named
};

/// Reads "0x1018:1", "0x1018" or a name. An index of several digits needs its 0x.
/// @param description  has the names; may be null
/// @throws Failure  it is none of them, no object has the name, or several have
ObjectAddress parse_address(const std::string& text, const DeviceDescription* description);

/// "0x1018".
std::string index_text(std::uint16_t index);

/// "0x1018:1".
std::string address_text(std::uint16_t index, std::uint8_t subindex);

/// How a value is written.
struct ValueForm {
    /// The kinds of it.
    enum class Kind : unsigned char {
        unknown,  ///< nobody has said it
        typed,    ///< by a data type
        raw,      ///< bytes as they are
        hex       ///< bytes as pairs of hexadecimal digits
    };
    Kind kind = Kind::unknown;
    ObjectDataType type = ObjectDataType::none;  ///< of typed

    /// "u32", "oct"; "hex" when nobody has said it.
    std::string name() const;
};

/// The form that a word for --type names.
/// @param word  may be empty: unknown
/// @throws Failure  it names none
ValueForm parse_form(const std::string& word);

/// The form of an entry of a description.
/// @param entry  may be null: unknown
ValueForm entry_form(const DeviceDescription::Entry* entry);

/// Why a value is none of its form: "has 4 bytes, and UNSIGNED16 has 2"; empty when it has the length of the form's type,
/// or that has none.
std::string odd_size(const ValueForm& form, const ObjectBytes& bytes);

/// Makes a value of a text, and tells what is odd about it.
/// @param form   not unknown
/// @param entry  has limits; may be null
/// @param node   for values with $NODEID
/// @throws Failure  the text is no such value
ObjectBytes parse_value(const ValueForm& form, const DeviceDescription::Entry* entry, const std::string& text,
                        unsigned int node);

/// Makes a text of a value; unknown is hexadecimal, and up to 8 bytes also the number. Characters that would spoil a
/// line are written as "\x0A".
std::string value_text(const ValueForm& form, const ObjectBytes& bytes);

/// A value in JSON: a number, a truth, or a text; null when there are no bytes of a number.
nlohmann::ordered_json value_json(const ValueForm& form, const ObjectBytes& bytes);

/// An entry of a node in JSON.
///
/// @param node   1 to 127
/// @param bytes  its value
/// @param name   empty when nobody knows it
nlohmann::ordered_json entry_json(unsigned int node, std::uint16_t index, std::uint8_t subindex,
                                  const ValueForm& form, const ObjectBytes& bytes, const std::string& name);

/// A value of a description in JSON: as value_json(), or as the file has it when it cannot be told without a node's number.
/// @param bytes  the value, nothing when it is not known
/// @param text   what the file has; empty when it has none: null
nlohmann::ordered_json described_json(const DeviceDescription::Entry& entry,
                                      const std::optional<ObjectBytes>& bytes, const std::string& text);

/// The number that bytes are, least significant first; of more than 8 the first 8 count.
std::uint64_t little_endian(const ObjectBytes& bytes);

/// Bytes as "02000000".
std::string plain_hex(const ObjectBytes& bytes);

}  // namespace nodevik_tool

#endif
