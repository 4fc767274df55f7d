/// @file
/// Layer setting services: giving nodes their numbers and bit rates over the bus itself (CiA 305).
///
/// A node that has no number yet takes no SDO. What it does know is who it is: vendor, product, revision and serial
/// number, as in its identity object. By these the master finds it and talks to it. The master sends on 0x7E5, the nodes
/// answer on 0x7E4, always eight bytes; byte 0 is the command, numbers stand least significant byte first behind it.
/// A node *waits*, or it is in *configuration*, where it takes a node number and a bit rate:
///
/// | Service                   | The master sends                         | A node answers               |
/// |---------------------------|------------------------------------------|------------------------------|
/// | switch all                | 04, 0 waiting or 1 configuration         |                              |
/// | switch one                | 40 41 42 43, each with a number          | 44 if all four are its own   |
/// | find one without a number | 51, many times                           | 4F if what is asked fits     |
/// | identify                  | 46 to 4B: vendor, product, two ranges    | 4F if it is within them      |
/// | who has no node number    | 4C                                       | 50                           |
/// | node number, bit timing   | 11 number, 13 table index                | 11, 13 and an error or 0     |
/// | change the bit timing now | 15 delay                                 |                              |
/// | store                     | 17                                       | 17 and an error or 0         |
/// | ask                       | 5A 5B 5C 5D 5E                           | the same and the number      |
///
/// Nodes say no by silence, so that each no costs a time-out. In configuration there should be one node at a time: the
/// answers of several to one question destroy each other on the bus, but for those that are the same to the bit. Over
/// UDP each of them arrives.
///
/// @code
/// ObservedDriver driver(bus);
/// Lss lss(driver);
/// lss.start_assign(
///     [](const LssIdentity& who) { return number_of(who.serial); },
///     [](const LssAssignment& node) { std::printf("node %u: %s\n", node.node, lss_words(node.outcome)); },
///     true, [](const LssResult& result) { std::printf("%u nodes\n", result.answers); });
/// lss.wait();                                  // or the loop of sdoclient.h, with process() and next_deadline()
/// @endcode
///
/// One service at a time. There is no locking: master, driver and callbacks belong to one thread.

#ifndef NODEVIK_NODES_LSS_H
#define NODEVIK_NODES_LSS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>

#include "nodevik/observeddriver.h"
#include "nodevik/util/export.h"

/// Who a node is (CiA 301, object 1018h, subindices 1 to 4). No two nodes have all four alike.
struct LssIdentity {
    std::uint32_t vendor = 0;    ///< vendor-ID
    std::uint32_t product = 0;   ///< product code
    std::uint32_t revision = 0;  ///< revision number
    std::uint32_t serial = 0;    ///< serial number
};

/// A range of identities: one vendor, one product, inclusive bounds of the revision and the serial number.
struct LssRange {
    std::uint32_t vendor = 0;                     ///< vendor-ID
    std::uint32_t product = 0;                    ///< product code
    std::uint32_t lowest_revision = 0;            ///< revision number, at least
    std::uint32_t highest_revision = UINT32_MAX;  ///< revision number, at most
    std::uint32_t lowest_serial = 0;              ///< serial number, at least
    std::uint32_t highest_serial = UINT32_MAX;    ///< serial number, at most
};

/// What is known beforehand of the node that a fastscan looks for. Each known number saves 32 of its 133 questions.
struct LssKnown {
    std::array<bool, 4> known{};           ///< vendor, product, revision, serial number: whether it is known
    std::array<std::uint32_t, 4> value{};  ///< the number, where it is
};

/// How a service has ended.
enum class LssOutcome : unsigned char {
    done,       ///< it is done
    no_answer,  ///< nobody answered: there is no such node
    refused,    ///< the node refused, see LssResult::error
    several,    ///< it is done, but more than one node answered where one was to: they have the same identity
    lost,       ///< a node that had answered fell silent in the middle
    driver_failed,  ///< the driver took no frame for as long as an answer may take
    cancelled       ///< cancel() was called, or the caller gave no number
};

/// An outcome in words.
/// @return text with static storage, never null
NODEVIK_EXPORT const char* lss_words(LssOutcome outcome);

/// The end of a service.
struct LssResult {
    LssOutcome outcome = LssOutcome::cancelled;  ///< how it has ended
    LssIdentity identity;                        ///< of the node that was found or asked
    unsigned int node = 0;                       ///< asked for the node number: 1 to 127, or Lss::no_node
    unsigned int answers =
        0;  ///< answers to the last question; of start_assign() the nodes that have their number
    unsigned char error = 0;     ///< refused: the node's error code; 255 says that `specific` tells it
    unsigned char specific = 0;  ///< refused: the manufacturer's error code

    /// Whether it is done, by one node.
    bool ok() const { return outcome == LssOutcome::done; }
};

/// What became of one node in Lss::start_assign().
struct LssAssignment {
    LssOutcome outcome =
        LssOutcome::lost;       ///< done; refused; lost if it did not boot; several if there are twins
    LssIdentity identity;       ///< who it is
    unsigned int node = 0;      ///< the number that it was given
    bool stored = false;        ///< it has stored it
    unsigned int boot_ups = 0;  ///< boot-up messages with that number that came
};

/// How long things take. The defaults suit most nodes; some are slower.
struct LssTiming {
    unsigned int answer_ms = 500;  ///< longest wait for an answer, at least 1
    unsigned int scan_ms =
        100;  ///< the same for each question of a fastscan and of an identification, and for
              ///< further answers where there may be several, at least 1
    unsigned int gap_us =
        1000;  ///< pause between two frames that are not answered: some nodes lose them else
    unsigned int store_ms = 2000;    ///< longest wait for the answer of a store, at least 1
    unsigned int boot_up_ms = 2000;  ///< longest wait for a boot-up message, at least 1

    /// Ends a step of a fastscan with its first answer instead of waiting for those of all nodes. It takes much less
    /// time, and is safe where answers come in order and none is late: one node, a quiet bus.
    bool first_answer_ends_step = false;
};

/// The LSS master of a bus.
class NODEVIK_EXPORT Lss : public FrameObserver {
public:
    /// Node number of a node that has none.
    static constexpr unsigned int no_node = 255;

    /// Called once when a service has ended. It may start the next one, and does not destroy the master.
    using Callback = std::function<void(const LssResult& result)>;

    /// Tells the number that a node shall have: 1 to 127; 0 ends the assignment.
    using Chooser = std::function<unsigned int(const LssIdentity& identity)>;

    /// Called for each node of an assignment.
    using AssignmentCallback = std::function<void(const LssAssignment& assignment)>;

    /// Begins to observe.
    ///
    /// Ends the process by an assertion when the driver has 8 observers already.
    ///
    /// @param driver  frames are sent through it; it outlives the master
    explicit Lss(ObservedDriver& driver);

    /// Ends the service that is under way as cancel() does, and ceases to observe.
    ~Lss();

    Lss(const Lss&) = delete;
    Lss& operator=(const Lss&) = delete;

    /// Replaces the times; they hold from the next frame on.
    void set_timing(const LssTiming& times) { timing = times; }

    /// @name Services
    /// The first frame is sent at once; the callback is never called from within the call that starts.
    ///
    /// @retval 0   the service has begun: the callback will be called, once
    /// @retval -1  it has not, and the callback will not be called: one is under way, or an argument is out of range
    /// @{

    /// Switches every node (CiA 305, 6.3.2). In waiting, a node that had no number begins with the one that it was given.
    /// @param configuration  true: into configuration, false: waiting
    /// @param callback       called at the end, may be empty
    int start_switch_all(bool configuration, Callback callback = {});

    /// Switches one node into configuration (6.3.3). Bring all others into waiting first.
    int start_switch_one(const LssIdentity& identity, Callback callback = {});

    /// Gives the node in configuration a number (6.4.2).
    /// @param node  1 to 127, or no_node to take it away
    int start_set_node(unsigned int node, Callback callback = {});

    /// Gives the node in configuration a bit rate, which start_activate() brings into force (6.4.3).
    /// @param rate_kbit  1000, 800, 500, 250, 125, 50, 20 or 10 kbit/s, or 0: the node finds it by itself
    int start_set_bit_rate(unsigned int rate_kbit, Callback callback = {});

    /// Has every node in configuration change its bit rate (6.4.4). They are silent for twice the delay, in the middle
    /// of which the program changes its own; then the service ends.
    /// @param delay_ms  0 to 65535
    int start_activate(unsigned int delay_ms, Callback callback = {});

    /// Has the node in configuration store number and bit rate (6.4.5).
    int start_store(Callback callback = {});

    /// Asks the node in configuration who it is (6.5.2).
    int start_inquire_identity(Callback callback = {});

    /// Asks the node in configuration for its number (6.5.3).
    int start_inquire_node(Callback callback = {});

    /// Asks whether there are nodes of a range (6.6.2), with a number or without. Not all nodes know this service.
    int start_identify(const LssRange& range, Callback callback = {});

    /// Asks whether there are nodes without a number (6.6.4). Not all nodes know this service.
    int start_identify_unconfigured(Callback callback = {});

    /// Finds one node without a number and brings it into configuration (6.7). Of several it is the one with the
    /// smallest numbers.
    /// @param known     what is known of it beforehand
    /// @param callback  called at the end, with the identity
    int start_fastscan(const LssKnown& known, Callback callback = {});

    /// Finds every node without a number and gives it one: all into waiting, then fastscan, number, store if wanted, into
    /// waiting, until nobody is left. A node is done when its boot-up message has come.
    ///
    /// @param chooser   tells each node's number
    /// @param assigned  called for each node that was found
    /// @param store     whether the nodes store their numbers; the refusal of that is told, and the node used
    /// @param callback  called at the end: done, or no_answer if nobody was there at all; `answers` nodes have their
    ///                  numbers. It ends with cancelled when the chooser gives none, and with lost when a node does not
    ///                  leave configuration
    int start_assign(Chooser chooser, AssignmentCallback assigned, bool store, Callback callback = {});
    /// @}

    /// Whether a service is under way.
    bool busy() const { return task != Task::none; }

    /// Ends the service that is under way. Nodes stay in the state in which they are.
    void cancel();

    /// Reads the bus itself until the service that is under way has ended, for programs without a loop.
    /// @return its result; that of the last one if none is under way
    LssResult wait();

    /// Looks after the time: sends the next frames, and ends what nobody answers.
    /// @param now_ns  the time, see monotonic_ns()
    void process(std::uint64_t now_ns);

    /// When process() is to be called next, at the latest.
    /// @return nanoseconds of CLOCK_MONOTONIC; no_deadline when no service is under way
    std::uint64_t next_deadline() const;

    /// Frames on the answers' identifier that answered nothing: late, malformed, of a service that is over.
    std::uint64_t dropped() const { return dropped_frames; }

    /// Takes the answers. Called by the driver.
    void frame_passed(const ObservedFrame& frame) override;

private:
    enum class Task : unsigned char {
        none,
        send_only,
        switch_one,
        set_value,
        inquire_identity,
        inquire_node,
        identify,
        fastscan,
        assign
    };
    // Where an assignment stands.
    enum class Stage : unsigned char { all_waiting, scan, set_node, store, wait_for_boot_up, give_up };
    // Where a fastscan stands.
    enum class Scan : unsigned char { begin, bits, check };
    using Frame = std::array<unsigned char, 8>;

    NODEVIK_LOCAL bool begin(Task next, Callback& end);
    NODEVIK_LOCAL void ask(const Frame& frame, unsigned int answer, std::uint64_t wait_ns, bool all_answers);
    NODEVIK_LOCAL void try_to_send();
    NODEVIK_LOCAL void step_over();
    NODEVIK_LOCAL void finish(LssOutcome outcome);
    NODEVIK_LOCAL void ask_part(unsigned int part);
    NODEVIK_LOCAL void take_selection();
    NODEVIK_LOCAL void take_value();
    NODEVIK_LOCAL void take_identity();
    NODEVIK_LOCAL void take_identification();
    NODEVIK_LOCAL void begin_scan();
    NODEVIK_LOCAL void begin_part(unsigned int next);
    NODEVIK_LOCAL void ask_bit();
    NODEVIK_LOCAL void check_part();
    NODEVIK_LOCAL void take_scan();
    NODEVIK_LOCAL void scan_over(LssOutcome outcome);
    NODEVIK_LOCAL void take_assignment();
    NODEVIK_LOCAL void leave_configuration(Stage next);
    NODEVIK_LOCAL void assignment_over();
    NODEVIK_LOCAL LssOutcome judge_error(LssResult& into) const;

    ObservedDriver* driver;
    LssTiming timing;
    Callback callback;
    Chooser choose;
    AssignmentCallback report;
    LssResult result;

    Task task = Task::none;
    bool closing = false;
    std::uint64_t now = 0;
    Frame frame_out{};
    bool waits_to_send = false;  // the driver has not taken it yet
    unsigned int awaited = 0;    // byte 0 of the answer; 0 none
    bool takes_all = false;      // answers are counted until the time is over
    std::uint64_t step_ns = 0;   // how long the step waits
    std::uint64_t deadline = 0;
    unsigned int step_answers = 0;
    Frame first_answer{};
    std::uint64_t dropped_frames = 0;

    std::array<std::uint32_t, 6> numbers{};  // of a selection, an identification or a scan
    unsigned int part = 0;                   // which of them
    unsigned int bit = 0;
    Scan scan = Scan::begin;
    LssKnown known;

    Stage stage = Stage::all_waiting;
    LssAssignment assignment;
    LssIdentity before;  // the last node that did not take its number
    bool had_failure = false;
    bool stores = false;
    unsigned int assigned_nodes = 0;
    unsigned int found_nodes = 0;
    LssOutcome end_of_assignment = LssOutcome::done;
};

#endif
