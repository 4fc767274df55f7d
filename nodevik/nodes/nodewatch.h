/// @file
/// Who is on the bus, in which state, and in trouble or not: a table of the nodes, kept from the frames that pass.
///
/// Every node tells of itself on three identifiers (CiA 301):
///
/// | Frame              | Identifier | Data                                                       | Clause      |
/// |--------------------|------------|------------------------------------------------------------|-------------|
/// | boot-up            | 700 + node | 00, once, when the node has started                        | 7.2.8.3.3   |
/// | heartbeat          | 700 + node | its state, by itself, in its period: 04, 05, 7F            | 7.2.8.3.2.2 |
/// | guarding answer    | 700 + node | the same with a toggle bit, when a remote frame asks       | 7.2.8.3.2.1 |
/// | emergency          | 080 + node | code (2 bytes), error register, 5 bytes of the maker's own | 7.2.7       |
///
/// The watch notes them for all nodes. For those that it is told to, it also notices silence: a heartbeat that does not
/// come in its time, or guarding requests, which the watch sends, that stay without an answer.
///
/// @code
/// ObservedDriver driver(bus);
/// NodeWatch watch(driver);                     // observes from now on
/// watch.set_listener(&panel);                  // a NodeListener of the program's own
/// watch.expect_heartbeat(5, 300);              // lost after 300 ms without one
/// watch.guard(6, 100, 3);                      // asked every 100 ms, lost after 3 requests without an answer
/// for (;;) {
///     pollfd entry{bus.descriptor(), POLLIN, 0};
///     const std::uint64_t now = monotonic_ns();
///     poll(&entry, 1, milliseconds_until(watch.next_deadline(now), now));
///     master.read_all_messages();              // or driver.read_all(): the frames reach the watch
///     watch.process(monotonic_ns());
/// }
/// @endcode
///
/// A frame of a wrong length, of node 0 or with an unknown state is counted and changes nothing.
///
/// Nothing is allocated after construction. There is no locking: watch, driver and listener belong to one thread.

#ifndef NODEVIK_NODES_NODEWATCH_H
#define NODEVIK_NODES_NODEWATCH_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "nodevik/observeddriver.h"
#include "nodevik/util/export.h"

/// States of a node, as it tells them (CiA 301, 7.2.8.3.2).
enum class NodeState : unsigned char {
    boot_up = 0,            ///< it has started, and told no state yet
    stopped = 4,            ///< it does nothing but NMT
    operational = 5,        ///< it does everything
    pre_operational = 127,  ///< it does everything but PDOs
    unknown = 255           ///< it has told none, or is lost
};

/// The state in words, as the decoder prints it; "Unknown" for unknown.
/// @return text with static storage
NODEVIK_EXPORT const char* node_state_name(NodeState state);

/// An emergency message (CiA 301, 7.2.7).
struct NODEVIK_EXPORT NodeEmergency {
    std::uint16_t code = 0;                      ///< 0x00xx: an error is over
    std::uint8_t error_register = 0;             ///< what still is wrong, object 0x1001; 0 nothing
    std::array<std::uint8_t, 5> manufacturer{};  ///< bytes of the maker's own
    std::uint64_t time_ns = 0;                   ///< when it came: ObservedFrame::time_ns()

    /// Whether it tells that an error is over. Others may be left: error_register says so.
    bool is_over() const { return code < 0x100; }

    /// The code in words; its class if the code is not known.
    /// @return text with static storage, never null
    const char* text() const;
};

/// What is known of a node.
struct NodeStatus {
    static constexpr std::size_t kept_emergencies = 8;  ///< how many emergencies are kept, the last ones

    NodeState state = NodeState::unknown;  ///< as it told last; unknown when it told none, or is lost
    bool is_lost = false;                  ///< it was watched and has fallen silent
    bool in_trouble = false;        ///< its last emergency has left something wrong; a boot-up clears it
    std::uint64_t heard_ns = 0;     ///< its last good frame, ObservedFrame::monotonic_time_ns(); 0 none yet
    std::uint64_t boot_ups = 0;     ///< boot-up messages
    std::uint64_t emergencies = 0;  ///< emergency messages, those that told of an end among them
    std::array<std::uint64_t, 4> tpdos{};  ///< frames of its first four TPDOs, by their default identifiers

    /// One of the emergencies that are kept, the last 8.
    ///
    /// @param age  0 for the newest
    /// @return null if there is none
    const NodeEmergency* emergency(std::size_t age) const {
        return age < kept_emergencies && age < emergencies ? &kept[(emergencies - 1 - age) % kept_emergencies]
                                                           : nullptr;
    }

    std::array<NodeEmergency, kept_emergencies> kept{};  ///< a ring: use emergency()
};

/// Who is told what happens to the nodes. Every operation does nothing unless it is overridden. The watch may be changed
/// from within.
class NODEVIK_EXPORT NodeListener {
public:
    /// The state in the table has changed. Called after the others of the same cause.
    virtual void state_changed(unsigned int /*node*/, NodeState /*before*/, NodeState /*now*/) {}

    /// A watched node has fallen silent. Its state becomes unknown.
    virtual void lost(unsigned int /*node*/) {}

    /// A node that was lost is heard again.
    virtual void back(unsigned int /*node*/) {}

    /// A node has started.
    virtual void booted(unsigned int /*node*/) {}

    /// A node tells of an error.
    virtual void emergency(unsigned int /*node*/, const NodeEmergency& /*emergency*/) {}

    /// A node tells that an error is over (code 0x00xx); the error register says whether another one is left.
    virtual void emergency_over(unsigned int /*node*/, const NodeEmergency& /*emergency*/) {}

protected:
    NodeListener() = default;
    NodeListener(const NodeListener&) = default;             ///< there is nothing to copy
    NodeListener& operator=(const NodeListener&) = default;  ///< there is nothing to copy
    ~NodeListener() = default;
};

/// The table of the nodes 1 to 127.
class NODEVIK_EXPORT NodeWatch : public FrameObserver {
public:
    /// Frames that changed nothing.
    struct Ignored {
        std::uint64_t wrong_length = 0;    ///< no 1 byte of error control, no 8 bytes of an emergency
        std::uint64_t node_zero = 0;       ///< from a node 0, which cannot be
        std::uint64_t unknown_states = 0;  ///< a state that CiA 301 does not have
        std::uint64_t wrong_toggles =
            0;  ///< a toggle bit in a heartbeat, or one that did not change in guarding
    };

    /// Begins to observe. Ends the process by an assertion when the driver has 8 observers already.
    ///
    /// @param driver  guarding requests are sent through it; it outlives the watch
    explicit NodeWatch(ObservedDriver& driver);

    /// Ceases to observe.
    ~NodeWatch();

    NodeWatch(const NodeWatch&) = delete;
    NodeWatch& operator=(const NodeWatch&) = delete;

    /// Sets who is told.
    /// @param other  kept as a pointer; null for nobody
    void set_listener(NodeListener* other) { listener = other; }

    /// Watches a node by its heartbeat (CiA 301, 7.2.8.3.2.2): it is lost when as long as the consumer time no heartbeat
    /// has come. The watch begins with the first heartbeat; a boot-up ends it until the next one.
    ///
    /// @param node              1 to 127; guarding it ends
    /// @param consumer_time_ms  at least 1.5 times the node's producer time (0x1017), in milliseconds; 0 as ignore()
    /// @return 0, or -1 for another node number
    int expect_heartbeat(unsigned int node, unsigned int consumer_time_ms);

    /// Watches a node by guarding it (CiA 301, 7.2.8.3.2.1), for nodes that have no heartbeat: process() asks it for its
    /// state, at once and then in each guard time. It is lost when so many requests in a row had no answer.
    ///
    /// The toggle bit of an answer must have changed; that of the first answer after a boot-up is 0. What the driver
    /// does not send counts as a request without an answer.
    ///
    /// @param node              1 to 127; its heartbeat is no longer expected
    /// @param guard_time_ms     period of the requests, milliseconds (0x100C); 0 as ignore()
    /// @param life_time_factor  requests (0x100D), at least 1
    /// @return 0, or -1 for another node number or the factor 0
    int guard(unsigned int node, unsigned int guard_time_ms, unsigned int life_time_factor);

    /// Ends watching a node: it is no longer lost or found. Its frames are noted as before.
    ///
    /// @return 0, or -1 for another node number than 1 to 127
    int ignore(unsigned int node);

    /// What is known of a node.
    /// @param number  1 to 127; for others a status that never changes
    const NodeStatus& node(unsigned int number) const;

    /// Looks for the nodes whose time is over, and sends the guarding requests that are due.
    ///
    /// @param now_ns  the time, see monotonic_ns()
    void process(std::uint64_t now_ns);

    /// When process() is to be called next, at the latest.
    ///
    /// @param now_ns  the time
    /// @return nanoseconds of CLOCK_MONOTONIC, @p now_ns if something is due; no_deadline when nothing is waited for
    std::uint64_t next_deadline(std::uint64_t now_ns) const;

    /// Frames that changed nothing.
    const Ignored& ignored() const { return ignored_frames; }

    /// Notes what a frame tells. Called by the driver.
    void frame_passed(const ObservedFrame& frame) override;

private:
    // How a node is watched, and until when it may be silent.
    struct Watch {
        std::uint64_t deadline = UINT64_MAX;  // nothing is waited for
        std::uint64_t period_ns = 0;          // consumer time or guard time
        unsigned int factor = 0;              // of a guarded node, else 0
        unsigned int unanswered = 0;          // requests in a row
        bool is_asked = false;                // a request has no answer yet
        bool knows_toggle = false;            // of the next answer
        bool toggle = false;                  // of the next answer
    };

    NODEVIK_LOCAL void begin(unsigned int number, const Watch& watch);
    NODEVIK_LOCAL void note_state(unsigned int number, const ObservedFrame& frame);
    NODEVIK_LOCAL void note_boot_up(unsigned int number, std::uint64_t now_ns);
    NODEVIK_LOCAL void note_emergency(unsigned int number, const ObservedFrame& frame);
    NODEVIK_LOCAL static bool check_toggle(Watch& watch, bool toggle);
    NODEVIK_LOCAL void alive(unsigned int number);
    NODEVIK_LOCAL void lose(unsigned int number);
    NODEVIK_LOCAL void enter(unsigned int number, NodeState state);
    NODEVIK_LOCAL void ask(unsigned int number, std::uint64_t now_ns);

    ObservedDriver* driver;
    NodeListener* listener = nullptr;
    std::unique_ptr<NodeStatus[]> nodes;           // by node number
    std::unique_ptr<Watch[]> watches;              // by node number
    std::array<std::uint64_t, 2> watched_nodes{};  // a bit each
    Ignored ignored_frames;
};

#endif
