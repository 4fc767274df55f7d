/// @file
/// The PDOs of a node as its description has them, and names for the frames of a bus.
///
/// A node's process data objects are described by two objects each (CiA 301, 7.5.2.35 to .38): the communication
/// parameters (0x1400 on for what the node receives, 0x1800 on for what it transmits) with COB-ID and transmission
/// type, and the mapping parameters (0x1600 on, 0x1A00 on), one word for each object in the frame: index, subindex,
/// bits.
///
///     unsigned short status = 0;
///     PDO tpdo;
///     const auto pdos = described_pdos(drive, 5);            // of node 5
///     const DescribedPdo* first = find_pdo(pdos, DescribedPdo::Direction::transmit, 1);
///     std::string reason = first->fill(tpdo);                // COB-ID, transmission type, mapping list, length
///     reason = first->map(tpdo, "Statusword", status);       // the variable follows each received frame
///     master.add_tpdo(tpdo);
///
/// What cannot be done is told by a reason, and nothing is changed then: no message, no end of the process.

#ifndef NODEVIK_NODES_DEVICEPDO_H
#define NODEVIK_NODES_DEVICEPDO_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "nodevik/nodes/devicedescription.h"
#include "nodevik/pdo.h"
#include "nodevik/util/export.h"

/// A process data object of a node. It points into the description that it was made from, which has to outlive it.
struct NODEVIK_EXPORT DescribedPdo {
    /// As seen from the node.
    enum class Direction : std::uint8_t { receive, transmit };

    /// An object that is mapped into the frame.
    struct Item {
        std::uint16_t index = 0;    ///< of the object; a place holder's is its data type, 1 to 7
        std::uint8_t subindex = 0;  ///< of the entry in that object
        unsigned int bits = 0;      ///< length in the frame
        unsigned int position = 0;  ///< first bit in the frame
        const DeviceDescription::Entry* entry =
            nullptr;  ///< null when the file has none, as for place holders
    };

    const DeviceDescription* description = nullptr;  ///< of the node
    Direction direction = Direction::transmit;       ///< which way it goes
    unsigned int number = 0;                         ///< 1 to 512
    std::uint32_t cob_id = 0;                        ///< as the node's object has it, flags in bits 29 to 31
    bool valid = false;                              ///< bit 31 is clear, and there is a COB-ID
    std::uint8_t transmission_type = 255;  ///< when it passes (CiA 301, 7.5.2.35 and .37); 255 when not told
    std::vector<Item> items;               ///< in the frame's order
    unsigned int bits = 0;                 ///< length of all items
    std::string fault;  ///< why the mapping is not usable: too long, an entry missing; else empty

    /// Fills COB-ID, transmission type, mapping list and length of a master's PDO; variables that are mapped stay.
    /// @return why it was not filled; empty when it was
    std::string fill(PDO& pdo) const;

    /// Maps a variable to an object of the frame, by name.
    ///
    /// A BOOLEAN or an object of one bit goes to an integer of 1, 2 or 4 bytes, or a bool; any other object starts at a
    /// whole byte and has the variable's size, is signed as it is, or REAL for float and double.
    ///
    /// @param pdo       the PDO that has been filled from this one
    /// @param name      as DeviceDescription::entry() takes it
    /// @param variable  lives as long as the PDO is in use
    /// @return why it was not mapped; empty when it was
    template <typename T>
    std::string map(PDO& pdo, std::string_view name, T& variable) const {
        static_assert(std::is_arithmetic<T>::value, "a number is mapped");
        constexpr Variable kind = std::is_floating_point<T>::value ? Variable::real
                                  : std::is_same<T, char>::value || std::is_same<T, bool>::value
                                      ? Variable::any_integer
                                  : std::is_signed<T>::value ? Variable::signed_integer
                                                             : Variable::unsigned_integer;
        return map_variable(pdo, name, &variable, sizeof(T), kind);
    }

private:
    enum class Variable : std::uint8_t { signed_integer, unsigned_integer, any_integer, real };

    NODEVIK_LOCAL std::string map_variable(PDO& pdo, std::string_view name, void* variable, std::size_t size,
                                           Variable kind) const;
};

/// The PDOs that a node has after power-on, or that its DCF wants: by direction, receive first, and number.
/// @param description  of the node
/// @param node_id      1 to 127
NODEVIK_EXPORT std::vector<DescribedPdo> described_pdos(const DeviceDescription& description,
                                                        unsigned int node_id);

/// One PDO of several, or null.
/// @param number  1 to 512
NODEVIK_EXPORT const DescribedPdo* find_pdo(const std::vector<DescribedPdo>& pdos,
                                            DescribedPdo::Direction direction, unsigned int number);

/// An object that a frame is about.
struct NODEVIK_EXPORT FrameObject {
    std::uint16_t index = 0;    ///< of the object
    std::uint8_t subindex = 0;  ///< of the entry in that object
    const DeviceDescription::Entry* entry =
        nullptr;                       ///< null when the file has the object, but not this entry
    std::string name;                  ///< "Identity object/Vendor-ID"
    std::optional<ObjectBytes> value;  ///< when the frame holds all of it; none without an entry
};

/// Names for the frames of a bus, from the descriptions of its nodes: what a line about the frame can be followed by.
class NODEVIK_EXPORT FrameNames {
public:
    /// Adds a node, or gives it another description.
    /// @param node_id      1 to 127; others are passed over
    /// @param description  kept as a pointer: it must stay where and as it is
    void add_node(unsigned int node_id, const DeviceDescription& description);

    /// What a frame is about.
    ///
    /// For an SDO the name of the object, with its value when the frame holds all of it: "Identity object/Vendor-
    /// ID=497". For a PDO the names of its objects and their values, as the description maps them: "Statusword=567,
    /// Torque=-3". Segments name no object.
    ///
    /// @param id      identifier, 11 bits
    /// @param length  number of bytes, 0 to 8
    /// @param data    the bytes
    /// @return empty when nothing is known about it
    std::string names(unsigned int id, unsigned int length, const unsigned char* data) const;

    /// The same one by one, for programs. Entries point into the descriptions.
    /// @param id      identifier, 11 bits
    /// @param length  number of bytes, 0 to 8
    /// @param data    the bytes
    /// @return in the frame's order; empty when nothing is known about it
    std::vector<FrameObject> objects(unsigned int id, unsigned int length, const unsigned char* data) const;

private:
    NODEVIK_LOCAL std::vector<FrameObject> pdo_objects(const DescribedPdo& pdo, unsigned int length,
                                                       const unsigned char* data) const;
    NODEVIK_LOCAL std::vector<FrameObject> sdo_objects(unsigned int id, const unsigned char* data) const;

    std::array<const DeviceDescription*, 128> nodes_ = {};
    std::map<unsigned int, DescribedPdo>
        pdos_;  // by COB-ID; a node that transmits goes before one that receives
};

#endif
