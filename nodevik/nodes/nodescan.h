/// @file
/// Who is on a bus: found by asking every node number, or by listening alone, with the nodes' identities and names.
///
/// A node that is switched on and not stopped answers SDO requests (CiA 301, 7.2.4), and every node has a device type.
/// So the scan asks each number for it, and whoever answers, be it with an abort, is there. Those it asks further:
///
/// | Object        | Says                                                       | Every node has it |
/// |---------------|------------------------------------------------------------|-------------------|
/// | 1000:00       | device type: profile, and what of it                       | yes               |
/// | 1018:01       | vendor-ID                                                  | yes               |
/// | 1018:02 to 04 | product code, revision number, serial number               | no                |
/// | 1008:00       | name of the device                                         | no                |
/// | 1009:00       | hardware version                                           | no                |
/// | 100A:00       | software version                                           | no                |
///
/// All numbers are asked at the same time, so that the 120 that nobody has cost one time-out together. The requests are
/// paced: a CAN interface has a transmit queue of ten frames, as a rule, and refuses the eleventh. What is refused is
/// sent later, and no number is left out.
///
/// A node that is stopped does not answer. It shows itself by what it sends without being asked, and so does everybody in
/// a scan that only listens: boot-up, heartbeat, emergency, and the TPDOs and SDO answers whose identifiers hold a node
/// number from the beginning on (the predefined connection set, CiA 301, 7.3.5).
///
/// @code
/// ObservedDriver driver(bus);
/// SdoClient sdo(driver);
/// NodeScan scan(driver, sdo);
/// scan.start_asking([](const ScannedNode& node) { std::printf("node %u: %s\n", node.node, node.name.c_str()); });
/// scan.wait();                                 // or the loop of sdoclient.h, with process() and next_deadline()
/// @endcode
///
/// One scan at a time. There is no locking: scan, client, driver and callbacks belong to one thread.

#ifndef NODEVIK_NODES_NODESCAN_H
#define NODEVIK_NODES_NODESCAN_H

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "nodevik/nodes/sdoclient.h"
#include "nodevik/observeddriver.h"
#include "nodevik/util/export.h"
#include "nodevik/util/monotonicclock.h"

/// What a node has sent without being asked by the scan. The values are bits.
enum ScanEvidence : unsigned int {
    scan_heard_boot_up = 1,         ///< boot-up message
    scan_heard_error_control = 2,   ///< heartbeat, or answer to node guarding
    scan_heard_emergency = 4,       ///< emergency
    scan_heard_process_data = 8,    ///< one of TPDO 1 to 4, where they are at first
    scan_heard_service_answer = 16  ///< answer of its SDO server, to whomever
};

/// A node that a scan has found.
struct ScannedNode {
    unsigned int node = 0;   ///< 1 to 127
    bool answers = false;    ///< it has answered the scan; else it was only heard
    unsigned int heard = 0;  ///< bits of ScanEvidence

    /// Two different answers came to one request: there are two nodes with this number. What is said of the node is a
    /// mixture of both then.
    bool is_duplicate = false;

    /// An answer came more often than it was asked for, each time the same: two nodes of one kind may have this number,
    /// or the way to the bus doubles frames.
    bool is_repeated = false;

    /// @name Numbers, where the node has told them
    /// @{
    std::optional<std::uint32_t> device_type;  ///< 1000:00
    std::optional<std::uint32_t> vendor;       ///< 1018:01
    std::optional<std::uint32_t> product;      ///< 1018:02
    std::optional<std::uint32_t> revision;     ///< 1018:03
    std::optional<std::uint32_t> serial;       ///< 1018:04
    /// @}

    /// @name Names, UTF-8, empty where the node has told none. At most 255 bytes of each are read
    /// @{
    std::string name;              ///< 1008:00
    std::string hardware_version;  ///< 1009:00
    std::string software_version;  ///< 100A:00
    /// @}
};

/// How a scan asks. The defaults suit 125 kbit/s and more.
struct NodeScanOptions {
    unsigned int first = 1;   ///< lowest node number
    unsigned int last = 127;  ///< highest node number
    bool identity = true;     ///< asks those that are there for 1018:01 to 04
    bool names = true;        ///< asks those that are there for 1008, 1009 and 100A

    unsigned int timeout_ms = 500;  ///< longest wait for each answer, at least 1
    unsigned int attempts = 1;      ///< how often each object is asked for when no answer comes, at least 1

    /// Most requests that may be in the transmit queue at the same time, at least 1. As many nodes are asked for identity
    /// and names at a time.
    unsigned int burst = 4;

    /// After so many microseconds a request to a node that does not answer is taken to have left the queue: the time of a
    /// frame on a busy bus.
    unsigned int frame_us = 1250;

    /// How long a node's last answer may be followed by that of another one with the same number, in milliseconds.
    unsigned int settle_ms = 50;
};

/// How a scan has ended.
enum class NodeScanOutcome : unsigned char {
    done,           ///< every number has been asked, or the time of listening is over
    driver_failed,  ///< the driver has taken no frame for NodeScan::driver_patience_ms
    cancelled       ///< cancel() was called
};

/// The end of a scan.
struct NodeScanResult {
    NodeScanOutcome outcome = NodeScanOutcome::cancelled;  ///< how it has ended
    unsigned int found = 0;                                ///< nodes that were found
    unsigned int answering = 0;                            ///< of these, nodes that answered

    /// Whether it went to its end.
    bool ok() const { return outcome == NodeScanOutcome::done; }

    /// The outcome in words.
    /// @return text with static storage, never null
    NODEVIK_EXPORT const char* words() const;
};

/// The scan of a bus.
class NODEVIK_EXPORT NodeScan : public FrameObserver {
public:
    /// How long the driver may refuse frames until a scan gives up, in milliseconds.
    static constexpr unsigned int driver_patience_ms = 2000;

    /// Called for each node that was found, once. It may call cancel().
    using Found = std::function<void(const ScannedNode& node)>;

    /// Called when a number is done with: how many are, of how many.
    using Progress = std::function<void(unsigned int done, unsigned int total)>;

    /// Called once when a scan has ended. It may start the next one, and does not destroy the scan.
    using Callback = std::function<void(const NodeScanResult& result)>;

    /// Begins to observe.
    ///
    /// Ends the process by an assertion when the driver has 8 observers already.
    ///
    /// @param driver  what the nodes send passes through it; it outlives the scan
    /// @param client  asks the nodes, through the same driver; it outlives the scan
    NodeScan(ObservedDriver& driver, SdoClient& client);

    /// Ends the scan that is under way as cancel() does, and ceases to observe.
    ~NodeScan();

    NodeScan(const NodeScan&) = delete;
    NodeScan& operator=(const NodeScan&) = delete;

    /// @name Starting
    /// No callback is called from within the call that starts. What an earlier scan has found is forgotten.
    ///
    /// @retval 0   the scan has begun: the callback will be called, once
    /// @retval -1  it has not, and no callback will be called: one is under way, or the numbers are out of range
    /// @{

    /// Asks the nodes.
    ///
    /// A node with which the client is busy is asked when it no longer is.
    ///
    /// @param found     called for each node when all is known of it, may be empty
    /// @param callback  called at the end, may be empty
    /// @param options   whom to ask what, and how fast
    int start_asking(Found found, Callback callback = {}, const NodeScanOptions& options = {});

    /// Listens only: nothing is sent.
    ///
    /// @param duration_ms  how long, in milliseconds; more than the longest heartbeat time on the bus
    /// @param found        called for each node when it is heard for the first time, may be empty
    /// @param callback     called at the end, may be empty
    int start_listening(unsigned int duration_ms, Found found, Callback callback = {});
    /// @}

    /// Has the progress of scans told; an empty function ends that.
    void set_progress(Progress tell) { progress = std::move(tell); }

    /// Whether a scan is under way.
    bool busy() const { return task != Task::none; }

    /// Ends the scan that is under way: its requests are cancelled, and the callback is called.
    void cancel();

    /// Reads the bus itself until the scan that is under way has ended, for programs without a loop. Other transfers of
    /// the client go on meanwhile.
    /// @return its result; that of the last one if none is under way
    NodeScanResult wait();

    /// Looks after the time, and asks the next nodes. In a loop it follows SdoClient::process().
    /// @param now_ns  the time, see monotonic_ns()
    void process(std::uint64_t now_ns);

    /// When process() is to be called next, at the latest.
    /// @return nanoseconds of CLOCK_MONOTONIC; no_deadline when no scan is under way, or only answers are waited for
    std::uint64_t next_deadline() const { return busy() ? wake : no_deadline; }

    /// The nodes that the last scan has found, or the one that is under way has so far, in the order of their numbers.
    std::vector<ScannedNode> nodes() const;

    /// Hears the nodes. Called by the driver.
    void frame_passed(const ObservedFrame& frame) override;

private:
    enum class Task : unsigned char { none, asking, listening };
    struct NODEVIK_LOCAL Node;

    NODEVIK_LOCAL bool begin(Task next, Found& found, Callback& end);
    NODEVIK_LOCAL void go_on();
    NODEVIK_LOCAL void ask_next();
    NODEVIK_LOCAL void leave_queue(unsigned int node);
    NODEVIK_LOCAL bool has_room() const;
    NODEVIK_LOCAL bool has_to_wait(const Node& node) const;
    NODEVIK_LOCAL void ask(Node& node);
    NODEVIK_LOCAL void take(Node& node, const SdoResult& result);
    NODEVIK_LOCAL void take_value(Node& node, const SdoResult& result);
    NODEVIK_LOCAL void step_on(Node& node);
    NODEVIK_LOCAL void close(Node& node);
    NODEVIK_LOCAL void tell(Node& node);
    NODEVIK_LOCAL void hear(Node& node, const ObservedFrame& frame);
    NODEVIK_LOCAL void compare_answer(Node& node, const ObservedFrame& frame);
    NODEVIK_LOCAL void finish(NodeScanOutcome outcome);

    ObservedDriver* driver;
    SdoClient* client;
    std::unique_ptr<Node[]> table;  // by node number
    NodeScanOptions options;
    Found report;
    Progress progress;
    Callback callback;
    NodeScanResult result;

    Task task = Task::none;
    unsigned int scans = 0;  // that have begun
    bool going_on = false;
    bool closing = false;
    std::uint64_t now = 0;
    std::uint64_t wake = 0;       // when there is something to do
    std::uint64_t end_ns = 0;     // of listening
    unsigned int cursor = 1;      // the node that is looked at first
    unsigned int done_nodes = 0;  // whose numbers are done with
    std::vector<unsigned int>
        queue;                     // nodes whose first requests may still be in the driver's queue, in order
    std::uint64_t queue_ns = 0;    // when the first of them was sent, or became the first
    unsigned int asked_first = 0;  // nodes that are being asked for the device type
    std::uint64_t aborts_ns = 0;   // from when on the client may abort such requests, which takes frames too
    unsigned int asked_further = 0;   // nodes that are being asked for more than the device type
    unsigned int unsent = 0;          // the node whose request the driver has not taken yet; 0 none
    std::uint64_t refused_since = 0;  // since when the driver takes nothing; 0 it does
};

#endif
