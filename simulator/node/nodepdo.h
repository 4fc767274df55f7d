/// @file
/// The process data objects of a node (CiA 301, 7.2.2 and 7.5.2.35 to 7.5.2.38).
///
/// As many TPDOs and RPDOs as the node has objects for, each with a communication object (which identifier, when) and a mapping object
/// (which objects, one after the other). They take effect as soon as they are written:
///
/// | TPDO transmission type | sent                                                                      |
/// |------------------------|---------------------------------------------------------------------------|
/// | 0                      | at the next SYNC after its data changed                                   |
/// | 1 to 240               | at every n-th SYNC                                                        |
/// | 254, 255               | on entering operational, when its data changed (not before the inhibit    |
/// |                        | time is over) and when the event timer ran out                            |
///
/// An RPDO of type 0 to 240 takes effect at the SYNC after its arrival, of type 254 or 255 at once.
///
/// To change a mapping: set bit 31 of the identifier (the PDO is no more), set subindex 0 of the mapping to
/// 0, write the entries, set subindex 0 to their number, clear bit 31.

#ifndef SIMULATOR_NODE_NODEPDO_H
#define SIMULATOR_NODE_NODEPDO_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "simulator/node/canframe.h"
#include "simulator/node/nodedictionary.h"

namespace node_simulator {

/// What became of a frame that may be an RPDO.
enum class RpdoResult {
    foreign,   ///< not for this node
    taken,     ///< its data are in the objects, or will be at the next SYNC
    too_short  ///< fewer bytes than mapped: dropped
};

/// The PDOs of one node.
class NodePdos {
public:
    /// Finds the communication and mapping objects (1400h, 1600h, 1800h, 1A00h and on) in @p dictionary, and watches
    /// what is written to them.
    ///
    /// @param dictionary     the node's objects, the mapped ones among them; outlives this object
    /// @param strict_counts  whether the number of mapped objects is refused when it comes in more than one
    ///                       byte
    NodePdos(NodeDictionary& dictionary, bool strict_counts);

    /// What is mapped at first and cannot be served, a line each: "1A00: 60FD0020".
    std::vector<std::string> unserved() const;

    /// Looks the mapped objects up anew, after the dictionary was reset.
    void reset();

    /// Begins the exchange: the node has become operational.
    void start();

    /// A SYNC: puts the waiting RPDOs into effect and appends the TPDOs that are due to @p out.
    void sync(Time now, std::vector<CanFrame>& out);

    /// Takes @p frame if it is one of the RPDOs.
    RpdoResult receive(const CanFrame& frame);

    /// Appends the event-driven TPDOs that are due at @p now to @p out.
    void poll(Time now, std::vector<CanFrame>& out);

    /// When poll() has something to do; none while only events can bring something.
    std::optional<Time> deadline() const;

private:
    struct Pdo {
        DictionaryObject* cobid = nullptr;
        DictionaryObject* type = nullptr;
        DictionaryObject* inhibit_time = nullptr;  // in 100 us, TPDO only
        DictionaryObject* event_time = nullptr;    // in ms, TPDO only
        DictionaryObject* mapped_count = nullptr;
        std::vector<DictionaryObject*> entries;
        std::uint16_t mapping_index = 0;
        std::vector<DictionaryObject*> mapped;
        std::size_t size = 0;            // of the mapped objects together, in bytes
        std::optional<CanFrame> frame;   // TPDO: as last sent; RPDO: waiting for SYNC
        unsigned syncs = 0;              // since the last transmission
        std::optional<Time> not_before;  // end of the inhibit time
        std::optional<Time> event_at;    // end of the event time

        bool valid() const;
        bool event_driven() const;
    };

    void find_all(std::vector<Pdo>& pdos, Mapping direction, bool strict_counts);
    void watch_communication(Pdo& pdo) const;
    void watch_mapping(Pdo& pdo, Mapping direction, bool strict_counts);
    AbortCode check_entry(std::uint64_t entry, Mapping direction, DictionaryObject*& object) const;
    AbortCode check_count(Pdo& pdo, Bytes& value, Mapping direction, bool strict_counts) const;
    void resolve(Pdo& pdo, Mapping direction) const;
    static CanFrame assemble(const Pdo& pdo);
    static void apply(const Pdo& pdo, const CanFrame& frame);
    static void transmit(Pdo& pdo, const CanFrame& frame, Time now, std::vector<CanFrame>& out);
    static bool due_at_sync(Pdo& pdo, const CanFrame& frame);
    static bool due_by_event(const Pdo& pdo, const CanFrame& frame, Time now);

    NodeDictionary& dictionary_;
    std::vector<Pdo> transmit_pdos_;
    std::vector<Pdo> receive_pdos_;
};

}  // namespace node_simulator

#endif
