/// @file
/// A node's object dictionary (CiA 301, 7.4): all that a node can be told and asked, by index and subindex.

#ifndef SIMULATOR_NODE_NODEDICTIONARY_H
#define SIMULATOR_NODE_NODEDICTIONARY_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace node_simulator {

/// The value of an object, as it travels: numbers least significant byte first.
using Bytes = std::vector<std::uint8_t>;

/// Result of an access: 0 done, anything else the abort code that the client gets (CiA 301, 7.2.4.3.17).
using AbortCode = std::uint32_t;

inline constexpr AbortCode access_done = 0;
inline constexpr AbortCode abort_toggle = 0x05030000;          ///< toggle bit not alternated
inline constexpr AbortCode abort_timeout = 0x05040000;         ///< the client fell silent
inline constexpr AbortCode abort_command = 0x05040001;         ///< command specifier not valid or unknown
inline constexpr AbortCode abort_block_size = 0x05040002;      ///< block size outside 1 to 127
inline constexpr AbortCode abort_sequence = 0x05040003;        ///< no such segment number in the sub-block
inline constexpr AbortCode abort_crc = 0x05040004;             ///< check sum of a block transfer wrong
inline constexpr AbortCode abort_memory = 0x05040005;          ///< out of memory
inline constexpr AbortCode abort_access = 0x06010000;          ///< unsupported access
inline constexpr AbortCode abort_write_only = 0x06010001;      ///< read of a write-only object
inline constexpr AbortCode abort_read_only = 0x06010002;       ///< write to a read-only object
inline constexpr AbortCode abort_no_object = 0x06020000;       ///< no such index
inline constexpr AbortCode abort_incompatible = 0x06040043;    ///< general parameter incompatibility
inline constexpr AbortCode abort_not_mappable = 0x06040041;    ///< object cannot be mapped to the PDO
inline constexpr AbortCode abort_pdo_length = 0x06040042;      ///< the mapped objects exceed the PDO
inline constexpr AbortCode abort_too_long = 0x06070012;        ///< length of service parameter too high
inline constexpr AbortCode abort_too_short = 0x06070013;       ///< length of service parameter too low
inline constexpr AbortCode abort_no_subindex = 0x06090011;     ///< no such subindex
inline constexpr AbortCode abort_invalid_value = 0x06090030;   ///< invalid value
inline constexpr AbortCode abort_value_too_high = 0x06090031;  ///< value too high
inline constexpr AbortCode abort_value_too_low = 0x06090032;   ///< value too low
inline constexpr AbortCode abort_not_stored = 0x08000020;      ///< data cannot be stored
inline constexpr AbortCode abort_device_state = 0x08000022;    ///< not in the present device state

/// Who may do what with an object.
enum class Access { read_only, write_only, read_write };

/// Into which PDOs an object can be mapped.
enum class Mapping { none, transmit, receive, both };

/// One object or subobject.
struct DictionaryObject {
    Access access = Access::read_only;
    Mapping mapping = Mapping::none;
    std::size_t smallest = 0;  ///< fewest bytes that a write may bring
    std::size_t largest = 0;   ///< most bytes that a write may bring
    Bytes value;
    Bytes initial;                            ///< the value after a reset, unless another one is stored
    bool volatile_value = false;              ///< is never stored
    std::optional<Bytes> stored;              ///< the value after a reset that a client has had stored
    std::function<AbortCode(Bytes&)> accept;  ///< may refuse or adapt a new value; may be empty
    std::function<void()> changed;            ///< called after each write; may be empty

    /// The value as an unsigned number; values of more than 8 bytes count by their first 8.
    std::uint64_t number() const;

    /// Sets the value from a number, in its present size, without any check.
    void set_number(std::uint64_t number);
};

/// The objects of one node. References to objects stay valid as long as the dictionary.
class NodeDictionary {
public:
    /// Adds an unsigned number of @p size bytes (1 to 8). @return the object, to be refined
    DictionaryObject& add_number(std::uint16_t index, std::uint8_t subindex, Access access, std::size_t size,
                                 std::uint64_t value);

    /// Adds a string or domain of at most @p largest bytes. @return the object, to be refined
    DictionaryObject& add_bytes(std::uint16_t index, std::uint8_t subindex, Access access,
                                std::size_t largest, std::string_view value);

    /// The object at @p index and @p subindex, or null.
    DictionaryObject* find(std::uint16_t index, std::uint8_t subindex);

    /// The object at @p index and @p subindex, which exists.
    DictionaryObject& at(std::uint16_t index, std::uint8_t subindex);

    /// What a client reads from the object: into @p value.
    AbortCode read(std::uint16_t index, std::uint8_t subindex, Bytes& value);

    /// What a client's write of @p bytes does.
    AbortCode write(std::uint16_t index, std::uint8_t subindex, std::span<const std::uint8_t> bytes);

    /// Whether a client may begin to write @p size bytes to the object.
    AbortCode may_write(std::uint16_t index, std::uint8_t subindex, std::size_t size);

    /// Stores the values of the objects from @p first to @p last that can be written and read.
    void store(std::uint16_t first, std::uint16_t last);

    /// Forgets the stored values of the objects from @p first to @p last; the next reset brings the initial ones.
    void forget_stored(std::uint16_t first, std::uint16_t last);

    /// Sets every object from @p first to @p last back to its stored value, or else to its initial one.
    void reset(std::uint16_t first, std::uint16_t last);

private:
    template <typename Change>
    void for_each(std::uint16_t first, std::uint16_t last, Change change);
    AbortCode missing(std::uint16_t index) const;

    std::map<std::uint32_t, DictionaryObject> objects_;  // by index << 8 | subindex
};

}  // namespace node_simulator

#endif
