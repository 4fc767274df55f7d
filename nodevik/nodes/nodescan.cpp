#include "nodevik/nodes/nodescan.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>

#include "nodevik/nodes/buswait.h"
#include "nodevik/nodes/objectvalue.h"
#include "nodevik/nodes/sdotransfer.h"
#include "nodevik/util/assertion.h"
#include "nodevik/util/monotonicclock.h"

namespace {

constexpr unsigned int highest_node = 127;
constexpr std::size_t longest_name = 255;
constexpr std::uint64_t nanoseconds_per_millisecond = 1'000'000;

// A node that cannot be asked yet is looked at again after this time.
constexpr std::uint64_t retry_ns = nanoseconds_per_millisecond;

// So long before the first request may be aborted no more is asked but first questions.
constexpr unsigned int abort_margin_ms = 20;

// A node that has left so many questions in a row unanswered is asked nothing more.
constexpr unsigned int most_silences = 2;

// Base identifiers of the predefined connection set (CiA 301, 7.3.5).
constexpr unsigned int emergency_base = 0x080;
constexpr std::array<unsigned int, 4> tpdo_bases{0x180, 0x280, 0x380, 0x480};
constexpr unsigned int error_control_base = 0x700;

// What nodes are asked for: a number, or a name.
struct Question {
    std::uint16_t index;
    std::uint8_t subindex;
    std::optional<std::uint32_t> ScannedNode::*number;
    std::string ScannedNode::*name;
};
constexpr std::array<Question, 8> questions{{{0x1000, 0, &ScannedNode::device_type, nullptr},
                                             {0x1018, 1, &ScannedNode::vendor, nullptr},
                                             {0x1018, 2, &ScannedNode::product, nullptr},
                                             {0x1018, 3, &ScannedNode::revision, nullptr},
                                             {0x1018, 4, &ScannedNode::serial, nullptr},
                                             {0x1008, 0, nullptr, &ScannedNode::name},
                                             {0x1009, 0, nullptr, &ScannedNode::hardware_version},
                                             {0x100A, 0, nullptr, &ScannedNode::software_version}}};
constexpr std::size_t first_of_identity = 1;
constexpr std::size_t first_of_names = 5;

bool is_asked(std::size_t question, const NodeScanOptions& options) {
    return question < first_of_identity || (question < first_of_names ? options.identity : options.names);
}

// A frame of a node's SDO server that begins to answer a request, or refuses it because of the object.
bool answers_request(const unsigned char* data) {
    constexpr std::uint32_t about_object = 0x06;
    return (data[0] & 0xE0) == 0x40 ||
           (data[0] == sdo::abort_transfer && sdo::load_le32(&data[4]) >> 24 == about_object);
}

}  // namespace

/// A node number, and what is known of it.
struct NODEVIK_LOCAL NodeScan::Node : SdoSink {
    enum class Step : unsigned char {
        left_out,  ///< not in the range
        waits,     ///< is to be asked
        asked,     ///< the client is asking it
        settles,   ///< has answered all; another one with its number may still do so
        over       ///< all is known
    };

    ScannedNode found;
    Step step = Step::left_out;
    std::size_t question = 0;
    unsigned int attempt = 0;
    unsigned int silences = 0;     // questions in a row without an answer
    bool told = false;             // Found has been called
    std::uint64_t settled_ns = 0;  // when it has settled; 0 not known yet
    std::array<unsigned char, 4> number{};

    // For each question: how often it was asked, how many answers came, and the first of them.
    struct Answers {
        unsigned int asked = 0;
        unsigned int came = 0;
        sdo::Frame first{};
    };
    std::array<Answers, questions.size()> answers;

    // Takes a name; what does not fit ends the transfer.
    bool write(const unsigned char* bytes, std::size_t size) override {
        std::string& name = found.*questions[question].name;
        name.append(reinterpret_cast<const char*>(bytes), std::min(size, longest_name - name.size()));
        return name.size() < longest_name;
    }
};

const char* NodeScanResult::words() const {
    switch (outcome) {
        case NodeScanOutcome::done:
            return "done";
        case NodeScanOutcome::driver_failed:
            return "the driver took no frame";
        case NodeScanOutcome::cancelled:
            break;
    }
    return "cancelled";
}

NodeScan::NodeScan(ObservedDriver& observed, SdoClient& sdo)
    : driver(&observed), client(&sdo), table(std::make_unique<Node[]>(highest_node + 1)) {
    const bool is_observing = driver->add_observer(*this) == 0;
    NODEVIK_ASSERT("nodevik/nodes/nodescan", is_observing);
}

NodeScan::~NodeScan() {
    closing = true;
    cancel();
    driver->remove_observer(*this);
}

int NodeScan::start_asking(Found found, Callback end, const NodeScanOptions& how) {
    const bool valid = how.first >= 1 && how.first <= how.last && how.last <= highest_node;
    if (!valid || !begin(Task::asking, found, end)) {
        return -1;
    }
    options = how;
    options.timeout_ms = std::max(options.timeout_ms, 1U);
    options.attempts = std::max(options.attempts, 1U);
    options.burst = std::max(options.burst, 1U);
    for (unsigned int node = options.first; node <= options.last; ++node) {
        table[node].step = Node::Step::waits;
    }
    cursor = options.first;
    wake = now;
    ask_next();
    return 0;
}

int NodeScan::start_listening(unsigned int duration_ms, Found found, Callback end) {
    if (!begin(Task::listening, found, end)) {
        return -1;
    }
    options = NodeScanOptions();
    end_ns = now + duration_ms * nanoseconds_per_millisecond;
    wake = end_ns;
    return 0;
}

void NodeScan::cancel() {
    if (busy()) {
        finish(NodeScanOutcome::cancelled);
    }
}

NodeScanResult NodeScan::wait() {
    while (busy()) {
        driver->read_all();
        client->process(monotonic_ns());
        process(monotonic_ns());
        if (busy()) {
            wait_for_frames(*driver, std::min(next_deadline(), client->next_deadline()));
        }
    }
    return result;
}

void NodeScan::process(std::uint64_t now_ns) {
    now = now_ns;
    if (busy() && now >= wake) {
        go_on();
    }
}

std::vector<ScannedNode> NodeScan::nodes() const {
    std::vector<ScannedNode> result_nodes;
    for (unsigned int node = 1; node <= highest_node; ++node) {
        if (table[node].told) {
            result_nodes.push_back(table[node].found);
        }
    }
    return result_nodes;
}

void NodeScan::frame_passed(const ObservedFrame& frame) {
    if (task == Task::none || frame.extended || frame.error || frame.remote) {
        return;
    }
    const unsigned int number = frame.identifier & highest_node;
    if (frame.direction == ObservedFrame::Direction::sent) {
        if (number != 0 && frame.identifier == sdo::request_id + number) {
            unsent = number == unsent ? 0 : unsent;
            refused_since = 0;
        }
        return;
    }
    if (number < options.first || number > options.last ||
        frame.identifier > error_control_base + highest_node) {
        return;
    }
    now = frame.monotonic_time_ns();
    hear(table[number], frame);
    if (task == Task::asking && now >= wake) {
        go_on();  // the client has taken an answer: the next question need not wait
    }
}

/// Begins a scan, unless one is under way.
bool NodeScan::begin(Task next, Found& found, Callback& end) {
    if (busy() || closing) {
        return false;
    }
    task = next;
    ++scans;
    report = std::move(found);
    callback = std::move(end);
    result = NodeScanResult();
    now = monotonic_ns();
    done_nodes = 0;
    queue.clear();
    asked_first = 0;
    asked_further = 0;
    unsent = 0;
    refused_since = 0;
    for (unsigned int node = 1; node <= highest_node; ++node) {
        table[node] = Node();
        table[node].found.node = node;
    }
    return true;
}

/// Does what there is to do: tells the nodes of which all is known, asks the next ones, ends the scan.
void NodeScan::go_on() {
    if (task == Task::listening) {
        if (now >= end_ns) {
            finish(NodeScanOutcome::done);
        }
        return;
    }
    if (going_on) {
        return;  // a callback reads the bus
    }
    going_on = true;
    wake = no_deadline;
    for (unsigned int number = options.first; number <= options.last && busy(); ++number) {
        Node& node = table[number];
        if (node.step != Node::Step::settles) {
            continue;
        }
        if (node.settled_ns == 0) {
            node.settled_ns =
                now + (node.found.answers ? options.settle_ms * nanoseconds_per_millisecond : 0);
        }
        if (now >= node.settled_ns) {
            close(node);
        } else {
            wake = std::min(wake, node.settled_ns);
        }
    }
    if (busy()) {
        ask_next();
    }
    going_on = false;
    if (!busy()) {
        return;
    }
    const bool is_stuck =
        refused_since != 0 && now - refused_since >= driver_patience_ms * nanoseconds_per_millisecond;
    if (is_stuck) {
        finish(NodeScanOutcome::driver_failed);
    } else if (done_nodes > options.last - options.first) {
        finish(NodeScanOutcome::done);
    }
}

/// Whether the queue has room for another request.
bool NodeScan::has_room() const {
    return unsent == 0 && queue.size() + asked_further < options.burst;
}

/// Whether a node is not to be asked now: the client is busy with it, or about to abort the requests that nobody answers.
bool NodeScan::has_to_wait(const Node& node) const {
    const bool aborts_come = asked_first != 0 && now >= aborts_ns;
    return client->busy(node.found.node) || (node.question != 0 && aborts_come);
}

/// Asks as many of those that wait as may be.
void NodeScan::ask_next() {
    const std::uint64_t frame_ns = std::uint64_t{options.frame_us} * 1000;
    while (!queue.empty() && now - queue_ns >= frame_ns) {
        queue.erase(queue.begin());
        queue_ns += frame_ns;
    }
    const unsigned int total = options.last - options.first + 1;
    bool is_somebody_left = false;
    for (unsigned int i = 0; i < total; ++i) {
        const unsigned int number = options.first + (cursor - options.first + i) % total;
        Node& node = table[number];
        if (node.step != Node::Step::waits) {
            continue;
        }
        if (!has_room()) {
            is_somebody_left = true;
            cursor = number;
            break;
        }
        if (has_to_wait(node)) {
            wake = std::min(wake, now + retry_ns);
        } else {
            ask(node);
        }
    }
    if (unsent != 0) {
        wake = std::min(wake, now + retry_ns);
    } else if (is_somebody_left && !queue.empty()) {
        wake = std::min(wake, queue_ns + frame_ns);
    }
}

/// A node has answered: its request, and those that were sent before it, are no longer in the driver's queue.
void NodeScan::leave_queue(unsigned int node) {
    const auto place = std::find(queue.begin(), queue.end(), node);
    if (place != queue.end()) {
        queue.erase(queue.begin(), place + 1);
        queue_ns = now;
    }
}

/// Has the client ask a node.
void NodeScan::ask(Node& node) {
    const Question& question = questions[node.question];
    const unsigned int number = node.found.node;
    SdoOptions how;
    how.mode = SdoMode::segmented;
    how.timeout_ms = options.timeout_ms;
    SdoCallback end = [this, &node](const SdoResult& ended) { take(node, ended); };
    node.step = Node::Step::asked;
    ++node.answers[node.question].asked;
    unsent = number;
    if (node.question == 0) {
        queue_ns = queue.empty() ? now : queue_ns;
        queue.push_back(number);
        if (asked_first++ == 0) {
            aborts_ns = now + (options.timeout_ms - std::min(options.timeout_ms, abort_margin_ms)) *
                                  nanoseconds_per_millisecond;
        }
    } else {
        ++asked_further;
    }
    const SdoObject object{number, question.index, question.subindex};
    if (question.name != nullptr) {
        (node.found.*question.name).clear();
        client->start_read(object, node, std::move(end), std::move(how));
    } else {
        client->start_read(object, node.number.data(), node.number.size(), std::move(end), std::move(how));
    }
    if (unsent != 0 && refused_since == 0) {
        refused_since = now;
    }
}

/// The client has an answer, or knows that none comes.
void NodeScan::take(Node& node, const SdoResult& ended) {
    if (!busy()) {
        return;
    }
    wake = 0;
    unsent = node.found.node == unsent ? 0 : unsent;
    const Question& question = questions[node.question];
    if (question.name != nullptr && !ended.ok() && (node.found.*question.name).size() < longest_name) {
        (node.found.*question.name).clear();  // the half of a name is none
    }
    if (node.question != 0) {
        --asked_further;
    } else {
        --asked_first;
        if (ended.outcome != SdoOutcome::timed_out) {
            leave_queue(node.found.node);
        }
    }
    node.step = Node::Step::waits;
    switch (ended.outcome) {
        case SdoOutcome::done:
        case SdoOutcome::aborted_by_node:
        case SdoOutcome::aborted_by_client:
            node.found.answers = true;
            node.silences = 0;
            take_value(node, ended);
            step_on(node);
            break;
        case SdoOutcome::driver_failed:
            --node.answers[node.question].asked;  // and it is asked again
            break;
        case SdoOutcome::timed_out:
        case SdoOutcome::cancelled:
            if (ended.outcome == SdoOutcome::timed_out && ++node.attempt < options.attempts) {
                break;
            }
            ++node.silences;
            if (!node.found.answers || node.silences >= most_silences) {
                node.question = questions.size();
            }
            step_on(node);
            break;
    }
}

/// Keeps what a node has told.
void NodeScan::take_value(Node& node, const SdoResult& ended) {
    const Question& question = questions[node.question];
    if (question.number != nullptr) {
        if (ended.ok() && ended.bytes != 0) {
            std::fill(node.number.begin() + static_cast<std::ptrdiff_t>(ended.bytes), node.number.end(), 0);
            node.found.*question.number = sdo::load_le32(node.number.data());
        }
        return;
    }
    // A name that is too long has been ended here; the beginning of it is better than none.
    std::string& name = node.found.*question.name;
    name.resize(std::min(name.find('\0'), name.size()));
    name = format_object(ObjectDataType::visible_string, reinterpret_cast<const std::uint8_t*>(name.data()),
                         name.size());
}

/// Goes on to the node's next question, or to its end.
void NodeScan::step_on(Node& node) {
    node.attempt = 0;
    do {
        ++node.question;
    } while (node.question < questions.size() && !is_asked(node.question, options));
    if (node.question >= questions.size()) {
        node.step = Node::Step::settles;
    }
}

/// All is known of a node number.
void NodeScan::close(Node& node) {
    const unsigned int scan = scans;
    node.step = Node::Step::over;
    ++done_nodes;
    if (node.found.answers || node.found.heard != 0) {
        tell(node);
    }
    if (busy() && scan == scans && progress) {
        const Progress tell_progress = progress;  // it may replace itself
        tell_progress(done_nodes, options.last - options.first + 1);
    }
}

void NodeScan::tell(Node& node) {
    node.told = true;
    ++result.found;
    result.answering += node.found.answers ? 1 : 0;
    if (const Found to = report) {  // it may cancel
        to(node.found);
    }
}

/// A node has sent something.
void NodeScan::hear(Node& node, const ObservedFrame& frame) {
    const unsigned int base = frame.identifier & ~highest_node;
    unsigned int evidence = 0;
    if (base == emergency_base) {
        evidence = scan_heard_emergency;
    } else if (std::find(tpdo_bases.begin(), tpdo_bases.end(), base) != tpdo_bases.end()) {
        evidence = scan_heard_process_data;
    } else if (base == sdo::answer_id) {
        evidence = scan_heard_service_answer;
        compare_answer(node, frame);
    } else if (base == error_control_base && frame.length == 1) {
        evidence = frame.data[0] == 0 ? scan_heard_boot_up : scan_heard_error_control;
    }
    node.found.heard |= evidence;
    // Somebody who has not answered in time, or is not asked at all.
    const bool is_news =
        evidence != 0 && !node.told && (task == Task::listening || node.step == Node::Step::over);
    if (is_news) {
        tell(node);
    }
}

/// Looks whether an answer tells of a second node with the same number.
void NodeScan::compare_answer(Node& node, const ObservedFrame& frame) {
    if (frame.length != sdo::frame_size || !answers_request(frame.data)) {
        return;
    }
    const std::uint32_t key = sdo::object_key(frame.data);
    const auto question = std::find_if(questions.begin(), questions.end(), [key](const Question& row) {
        return key == (row.index | static_cast<std::uint32_t>(row.subindex) << 16);
    });
    if (question == questions.end()) {
        return;
    }
    auto& answers = node.answers[static_cast<std::size_t>(question - questions.begin())];
    if (answers.asked == 0) {
        return;
    }
    if (answers.came++ == 0) {
        std::copy_n(frame.data, answers.first.size(), answers.first.begin());
    } else if (!std::equal(answers.first.begin(), answers.first.end(), frame.data)) {
        node.found.is_duplicate = true;
    } else if (answers.came > answers.asked) {
        node.found.is_repeated = true;
    }
}

void NodeScan::finish(NodeScanOutcome outcome) {
    task = Task::none;
    for (unsigned int number = options.first; number <= options.last; ++number) {
        if (table[number].step == Node::Step::asked) {
            table[number].step = Node::Step::over;
            client->cancel(number);
            if (client->busy(number)) {
                client->cancel(number);  // the driver does not take the abort: let it go
            }
        }
    }
    result.outcome = outcome;
    report = {};
    const NodeScanResult ended = result;
    if (const Callback end = std::exchange(callback, {})) {
        end(ended);
    }
}
