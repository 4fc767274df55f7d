/// @file
/// A long run of SDO transfers with five nodes at once, whose answers are lost, late, doubled, foreign, wrongly toggled,
/// of a wrong check sum or without an end at random, and whose requests are lost.
///
/// Each node always has a transfer under way, drawn at random:
///
/// | Kind      | Object                  | What has to come of it                                                |
/// |-----------|-------------------------|-----------------------------------------------------------------------|
/// | expedited | a number of 1 to 4 bytes | a write that is done has been done; a read that is done brings what  |
/// | segmented | 5 to 200 bytes          | was written last, or, where a write has failed, that or what was      |
/// | block     | 1 to 20,000 bytes       | there before                                                          |
/// | refused   | one that no node has    | an abort, unless a fault comes first; never data                      |
///
/// Some are cancelled. Every transfer ends, and ends once. Two transfers in a row with a node are about different
/// objects: an answer that comes twice answers the next request as well if that is the same, and nobody could tell. After a
/// transfer that may have left late segments behind, the node is left alone for a while, for the same reason.

#ifndef SOAK_NODESOAK_H
#define SOAK_NODESOAK_H

#include <array>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "nodevik/nodes/sdoclient.h"
#include "nodevik/udpdriver.h"
#include "soak/nodebus.h"

namespace soak {

/// What a run is to be like.
struct NodeOptions {
    std::string simulator;   ///< path of node-simulator
    std::string directory;   ///< where the figures go
    std::uint32_t seed = 1;  ///< the same seed draws the same transfers and faults
    unsigned seconds = 120;  ///< how long the run takes
    unsigned transfers = 0;  ///< how many transfers instead of how long; 0 not
    unsigned pause_ms = 5;   ///< between two transfers with a node
    std::uint64_t spoil =
        0;  ///< from the read of this number on, the data are changed, to be found out; 0 not
    std::uint64_t forget = 0;       ///< the end of the transfer of this number is not noted; 0 none
    std::uint64_t repeat = 0;       ///< the end of the transfer of this number is noted twice; 0 none
    unsigned patience_ms = 60'000;  ///< for a transfer; only one that hangs takes as long
    bool leak = false;              ///< loses a descriptor now and then
};

/// What a run has counted.
struct NodeFigures {
    std::uint64_t started = 0;            ///< transfers
    std::uint64_t ended = 0;              ///< of these the ones that have ended
    std::uint64_t done = 0;               ///< with all data passed
    std::uint64_t done_expedited = 0;     ///< numbers
    std::uint64_t done_segmented = 0;     ///< by segments
    std::uint64_t done_blocks = 0;        ///< by blocks
    std::uint64_t bytes = 0;              ///< bytes in transfers that were done
    std::uint64_t compared = 0;           ///< bytes read that were found to be those that were written
    std::uint64_t aborted_by_node = 0;    ///< by outcome, as SdoOutcome has them
    std::uint64_t aborted_by_client = 0;  ///< a fault was found out
    std::uint64_t timed_out = 0;
    std::uint64_t driver_failed = 0;
    std::uint64_t cancelled = 0;
    std::uint64_t dropped = 0;   ///< frames that were no answers
    std::uint64_t worst_us = 0;  ///< longest transfer
    long memory_start_kib = 0;   ///< resident memory after warming up
    long memory_end_kib = 0;     ///< resident memory at the end
    long descriptors_start = 0;  ///< open descriptors after warming up
    long descriptors_end = 0;    ///< open descriptors at the end
};

/// The run. What goes wrong ends it with std::runtime_error, whose text says what.
class NodeSoak {
public:
    explicit NodeSoak(const NodeOptions& options);

    /// What is under way is cancelled, and no longer looked at.
    ~NodeSoak() { is_over_ = true; }

    NodeSoak(const NodeSoak&) = delete;
    NodeSoak& operator=(const NodeSoak&) = delete;

    /// Runs until the time or the number of transfers is over.
    void run();

    /// What has been counted so far.
    const NodeFigures& figures() const { return figures_; }

private:
    static constexpr std::size_t objects = 7;
    static constexpr std::size_t longest = 20'000;

    // Bytes that follow from a number: what was written need not be kept.
    struct Value {
        std::uint32_t seed = 0;
        std::size_t size = 0;
        unsigned char at(std::size_t place) const;
    };

    // What an object of a node may hold: the last value that was confirmed, and those that were not, since.
    struct Content {
        bool is_known = false;
        std::vector<Value> candidates;
    };

    // A node, and the transfer with it.
    struct Node : SdoSink {
        bool begin(std::uint64_t) override;
        bool write(const unsigned char* bytes, std::size_t size) override;

        unsigned number = 0;
        std::array<Content, objects> contents;
        std::vector<unsigned char> room;
        std::size_t filled = 0;
        std::uint64_t transfer = 0;  // its number; 0 none is under way
        std::size_t object = 0;
        bool is_write = false;
        bool is_cancelled = false;
        Value value;
        std::uint64_t began_ns = 0;
        std::uint64_t next_ns = 0;
    };

    void transfer_until(std::uint64_t end_ns, std::uint64_t count);
    void step(bool may_start);
    void start(Node& node);
    int start_write(Node& node, SdoOptions options);
    int start_read(Node& node, SdoOptions options);
    SdoCallback end_of(Node& node);
    void ended(Node& node, std::uint64_t transfer, const SdoResult& result);
    void count(const SdoResult& result);
    void compare(Node& node, std::size_t size);
    unsigned draw(unsigned lowest, unsigned highest);
    void fail(const Node& node, const std::string& what);

    NodeOptions options_;
    NodeFigures figures_;
    std::mt19937 random_;
    udpDriver bus_;
    ObservedDriver driver_{bus_};
    std::unique_ptr<NodeBus> simulated_;
    std::vector<std::unique_ptr<Node>> nodes_;
    std::uint64_t reads_ = 0;
    std::string problem_;  // the first; the run ends with it once the library's calls are over
    bool is_over_ = false;
    SdoClient client_{driver_};
};

}  // namespace soak

#endif
