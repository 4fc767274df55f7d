/// @file
/// A long run of the CANopen master against nodes that vanish and return.
///
/// One cycle in every period: new outputs for all nodes, SYNC, and every node that is there answers with its
/// two TPDOs, which carry what its outputs were set to. Between two cycles there is one of these, drawn at
/// random:
///
/// | Deed        | What has to come of it                                                                   |
/// |-------------|------------------------------------------------------------------------------------------|
/// | expedited   | a number of 1 to 4 bytes is written to a node, and read back the same                    |
/// | segmented   | the same with 1 to 600 bytes                                                             |
/// | refused     | an object that no node has: its abort code                                               |
/// | guarded     | the state of a node                                                                      |
/// | stopped     | a node goes through stopped and pre-operational, and works again                         |
/// | reset       | a node, or its communication, is reset; it boots, and works again                        |
/// | vanishing   | a node loses its power: no TPDO, no state, no SDO answer, until it returns               |
/// | torn        | the same in the middle of a segmented transfer, which fails                              |
/// | killed      | the process of all nodes is killed, and started again later                              |
/// | in vain     | an SDO transfer with a node that is away, or a look for its state: no answer             |
///
/// A node returns some cycles later, announces itself with its boot-up message, is started and works again.
/// The driver keeps a journal of all frames, the nodes a log: whoever started the run holds them against each
/// other.

#ifndef SOAK_MASTERSOAK_H
#define SOAK_MASTERSOAK_H

#include <array>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "nodevik/canopen.h"
#include "nodevik/pdo.h"
#include "soak/nodebus.h"
#include "soak/witnessdriver.h"

namespace soak {

/// What a run is to be like.
struct MasterOptions {
    std::string simulator;         ///< path of node-simulator
    std::string directory;         ///< where journal and logs go
    std::uint32_t seed = 1;        ///< the same seed draws the same deeds
    unsigned seconds = 120;        ///< how long the run takes
    unsigned cycles = 0;           ///< how many cycles instead of how long; 0 not
    unsigned period_ms = 10;       ///< from one cycle to the next
    std::uint64_t lose_frame = 0;  ///< the frame of this number is lost silently; 0 none
    bool leak = false;             ///< loses a descriptor now and then, to be found out
};

/// What a run has counted.
struct MasterFigures {
    std::uint64_t cycles = 0;
    std::uint64_t worst_gap_us = 0;     ///< longest time from one cycle's beginning to the next one's
    std::uint64_t pdos_sent = 0;        ///< PDOs for the nodes
    std::uint64_t pdos_arrived = 0;     ///< PDOs of the nodes
    std::uint64_t pdo_values = 0;       ///< values in them, each found to be the one that was set
    std::uint64_t sdo_done = 0;         ///< transfers that came to their right end, aborts by a node included
    std::uint64_t sdo_bytes = 0;        ///< bytes of objects moved by them
    std::uint64_t sdo_failed_away = 0;  ///< transfers with a node that was away, or went
    std::uint64_t sdo_failed_present = 0;  ///< transfers with a node that was there: the master's loss
    std::uint64_t sdo_late = 0;    ///< the same, but the node answered only after the master's time-out
    std::uint64_t guarded = 0;     ///< states told by nodes
    std::uint64_t missed = 0;      ///< states asked for in vain, of nodes that were away
    std::uint64_t vanished = 0;    ///< nodes that went
    std::uint64_t returned = 0;    ///< nodes that were switched on again
    std::uint64_t reappeared = 0;  ///< of these the ones whose return the master has seen
    std::uint64_t kills = 0;       ///< of all nodes at once
    long memory_start_kib = 0;     ///< resident memory after warming up
    long memory_end_kib = 0;       ///< resident memory at the end
    long descriptors_start = 0;    ///< open descriptors after warming up
    long descriptors_end = 0;      ///< open descriptors at the end
};

/// The run. What goes wrong ends it with std::runtime_error, whose text says what.
class MasterSoak {
public:
    explicit MasterSoak(const MasterOptions& options);

    /// Runs until the time or the number of cycles is over.
    void run();

    /// What has been counted so far.
    const MasterFigures& figures() const { return figures_; }

    /// The frames that have passed.
    const FrameCounts& frames() const { return driver_.counts(); }

private:
    static constexpr unsigned channels = 4;

    // A node as the master sees it: its outputs and inputs, in two PDOs each way.
    struct Node {
        explicit Node(unsigned number);
        void set_outputs(unsigned value);
        bool inputs_are_outputs() const { return inputs == outputs && analogue_inputs == analogue_outputs; }

        unsigned number;
        bool present = false;
        std::uint64_t returns_in_cycle = 0;
        unsigned boot_ups_before = 0;
        std::array<unsigned char, channels> outputs{};
        std::array<unsigned char, channels> inputs{};
        std::array<short, channels> analogue_outputs{};
        std::array<short, channels> analogue_inputs{};
        PDO digital_out;
        PDO analogue_out;
        PDO digital_in;
        PDO analogue_in;
    };

    // A deed: how often it is drawn, and what it does. Together they are drawn in all cases.
    struct Deed {
        unsigned percent;
        void (MasterSoak::*act)();
    };
    static const std::array<Deed, 10> deeds;

    void warm_up();
    void cycle();
    void exchange();
    void collect_tpdos(bool by_repeats);
    void check_tpdos();
    void wait_for_frames(int wait_ms);
    void act();
    void bring_back();
    void pause();
    void take_footprint(long& memory_kib, long& descriptors) const;

    void write_and_read();
    void write_and_read_segments();
    void read_what_is_not_there();
    void guard();
    void stop_and_start();
    void reset();
    void vanish();
    void vanish_in_a_transfer();
    void kill_all();
    void talk_in_vain();

    void expect_state(const Node& node, int state);
    void operate(Node& node);
    void await_boot_up(Node& node);
    void leaves(Node& node);
    template <typename Transfer>
    bool succeeds(const Node& node, unsigned bytes, Transfer transfer);
    void drain();
    Node* any(bool present);
    unsigned draw(unsigned lowest, unsigned highest);
    [[noreturn]] void fail(const std::string& what) const;

    MasterOptions options_;
    MasterFigures figures_;
    std::mt19937 random_;
    WitnessDriver driver_;
    CCANopen master_;
    std::unique_ptr<NodeBus> bus_;
    std::vector<std::unique_ptr<Node>> nodes_;
    std::array<char, 600> written_{};
    std::array<char, 600> read_{};
    std::uint64_t restart_in_cycle_ = 0;
    std::uint64_t cycle_began_us_ = 0;
    std::uint64_t next_cycle_us_ = 0;
};

}  // namespace soak

#endif
