#include "nodevik/nodes/nodewatch.h"

#include <algorithm>

#include "nodevik/codetexts.h"
#include "nodevik/util/assertion.h"
#include "nodevik/util/monotonicclock.h"

namespace {

constexpr unsigned int highest_node = 127;
constexpr std::uint64_t nanoseconds_per_millisecond = 1'000'000;

// Function codes of the default identifiers (CiA 301, 7.3.5).
constexpr unsigned int emergency_id = 0x080;
constexpr unsigned int first_tpdo_id = 0x180;
constexpr unsigned int last_tpdo_id = 0x480;
constexpr unsigned int sdo_answer_id = 0x580;
constexpr unsigned int error_control_id = 0x700;

constexpr unsigned int emergency_size = 8;
constexpr unsigned int toggle_bit = 0x80;
constexpr unsigned int remote_request = 2;

bool is_node(unsigned int number) {
    return number >= 1 && number <= highest_node;
}

bool is_state(unsigned int state) {
    return state == static_cast<unsigned int>(NodeState::operational) ||
           state == static_cast<unsigned int>(NodeState::pre_operational) ||
           state == static_cast<unsigned int>(NodeState::stopped);
}

bool is_tpdo(unsigned int id) {
    return id >= first_tpdo_id && id <= last_tpdo_id && (id & 0x80) != 0;
}

}  // namespace

const char* node_state_name(NodeState state) {
    const char* text = node_state_text(static_cast<std::uint32_t>(state));
    return text != nullptr ? text : "Unknown";
}

const char* NodeEmergency::text() const {
    const char* words = emergency_text(code);
    if (words == nullptr) {
        words = emergency_class_text(code);
    }
    return words != nullptr ? words : "Unknown";
}

NodeWatch::NodeWatch(ObservedDriver& bus)
    : driver(&bus),
      nodes(std::make_unique<NodeStatus[]>(highest_node + 1)),
      watches(std::make_unique<Watch[]>(highest_node + 1)) {
    const bool is_observing = driver->add_observer(*this) == 0;
    NODEVIK_ASSERT("nodevik/nodes/nodewatch", is_observing);
}

NodeWatch::~NodeWatch() {
    driver->remove_observer(*this);
}

int NodeWatch::expect_heartbeat(unsigned int node, unsigned int consumer_time_ms) {
    if (!is_node(node)) {
        return -1;
    }
    Watch watch;
    watch.period_ns = consumer_time_ms * nanoseconds_per_millisecond;
    begin(node, watch);
    return 0;
}

int NodeWatch::guard(unsigned int node, unsigned int guard_time_ms, unsigned int life_time_factor) {
    if (!is_node(node) || life_time_factor == 0) {
        return -1;
    }
    Watch watch;
    watch.period_ns = guard_time_ms * nanoseconds_per_millisecond;
    watch.factor = life_time_factor;
    watch.deadline = guard_time_ms != 0 ? 0 : no_deadline;
    begin(node, watch);
    return 0;
}

int NodeWatch::ignore(unsigned int node) {
    return expect_heartbeat(node, 0);
}

const NodeStatus& NodeWatch::node(unsigned int number) const {
    return nodes[is_node(number) ? number : 0];
}

void NodeWatch::process(std::uint64_t now_ns) {
    for (unsigned int half = 0; half < watched_nodes.size(); ++half) {
        // A copy: the listener may change the watch.
        for (std::uint64_t left = watched_nodes[half]; left != 0; left &= left - 1) {
            const unsigned int number = half * 64 + static_cast<unsigned int>(__builtin_ctzll(left));
            const Watch& watch = watches[number];
            if (watch.deadline > now_ns) {
                continue;
            }
            if (watch.factor != 0) {
                ask(number, now_ns);
            } else {
                lose(number);
            }
        }
    }
}

std::uint64_t NodeWatch::next_deadline(std::uint64_t now_ns) const {
    std::uint64_t first = no_deadline;
    for (unsigned int half = 0; half < watched_nodes.size(); ++half) {
        for (std::uint64_t left = watched_nodes[half]; left != 0; left &= left - 1) {
            first = std::min(first,
                             watches[half * 64 + static_cast<unsigned int>(__builtin_ctzll(left))].deadline);
        }
    }
    return std::max(first, now_ns);
}

void NodeWatch::frame_passed(const ObservedFrame& frame) {
    if (frame.direction != ObservedFrame::Direction::received || frame.extended || frame.remote ||
        frame.error) {
        return;
    }
    const unsigned int number = frame.identifier & highest_node;
    // 0x701 to 0x77F, what comes most often, in one comparison.
    if (frame.identifier - (error_control_id + 1) < highest_node) {
        note_state(number, frame);
        return;
    }
    const unsigned int id = frame.identifier & ~highest_node;
    const bool is_of_node = id == error_control_id || id == sdo_answer_id || is_tpdo(id) ||
                            (id == emergency_id && number != 0);  // 0x080 itself is SYNC
    if (!is_of_node) {
        return;
    }
    if (number == 0) {
        ++ignored_frames.node_zero;
    } else if (id == emergency_id) {
        note_emergency(number, frame);
    } else {
        NodeStatus& status = nodes[number];
        status.heard_ns = frame.monotonic_time_ns();
        if (id != sdo_answer_id) {
            ++status.tpdos[(id - first_tpdo_id) >> 8];
        }
    }
}

/// Watches a node in a new way.
void NodeWatch::begin(unsigned int number, const Watch& watch) {
    const std::uint64_t bit = std::uint64_t{1} << number % 64;
    watches[number] = watch;
    nodes[number].is_lost = false;
    if (watch.period_ns != 0) {
        watched_nodes[number / 64] |= bit;
    } else {
        watched_nodes[number / 64] &= ~bit;
    }
}

/// Boot-up, heartbeat or the answer to a guarding request.
void NodeWatch::note_state(unsigned int number, const ObservedFrame& frame) {
    if (frame.length != 1) {
        ++ignored_frames.wrong_length;
        return;
    }
    const unsigned int byte = frame.data[0];
    if (byte == 0) {
        note_boot_up(number, frame.monotonic_time_ns());
        return;
    }
    Watch& watch = watches[number];
    const unsigned int state = byte & ~toggle_bit;
    const bool is_watched = watch.period_ns != 0;
    const bool has_toggle = (byte & toggle_bit) != 0;
    if (is_watched && (watch.factor != 0 ? !check_toggle(watch, has_toggle) : has_toggle)) {
        ++ignored_frames.wrong_toggles;
        return;
    }
    const std::uint64_t now_ns = frame.monotonic_time_ns();
    NodeStatus& status = nodes[number];
    if (!is_state(state)) {
        // No news; but a node that says something strange in time is not silent.
        ++ignored_frames.unknown_states;
        if (is_watched && watch.factor == 0 && watch.deadline != no_deadline) {
            watch.deadline = now_ns + watch.period_ns;
        }
        watch.is_asked = false;
        watch.unanswered = 0;
        return;
    }
    status.heard_ns = now_ns;
    if (is_watched && watch.factor == 0) {
        watch.deadline = now_ns + watch.period_ns;
    }
    watch.is_asked = false;
    watch.unanswered = 0;
    if (state != static_cast<unsigned int>(status.state)) {
        alive(number);  // a lost node has no state
        enter(number, static_cast<NodeState>(state));
    }
}

/// Whether the toggle bit of a guarding answer is the right one.
bool NodeWatch::check_toggle(Watch& watch, bool toggle) {
    if (watch.knows_toggle && watch.toggle != toggle) {
        return false;
    }
    watch.knows_toggle = true;
    watch.toggle = !toggle;
    return true;
}

void NodeWatch::note_boot_up(unsigned int number, std::uint64_t now_ns) {
    Watch& watch = watches[number];
    if (watch.factor == 0) {
        watch.deadline = no_deadline;
    }
    watch.knows_toggle = true;
    watch.toggle = false;
    watch.is_asked = false;
    watch.unanswered = 0;
    NodeStatus& status = nodes[number];
    ++status.boot_ups;
    status.heard_ns = now_ns;
    status.in_trouble = false;
    alive(number);
    if (listener != nullptr) {
        listener->booted(number);
    }
    enter(number, NodeState::boot_up);
}

void NodeWatch::note_emergency(unsigned int number, const ObservedFrame& frame) {
    if (frame.length != emergency_size) {
        ++ignored_frames.wrong_length;
        return;
    }
    NodeStatus& status = nodes[number];
    NodeEmergency& emergency = status.kept[status.emergencies % NodeStatus::kept_emergencies];
    emergency.code = static_cast<std::uint16_t>(frame.data[0] | frame.data[1] << 8);
    emergency.error_register = frame.data[2];
    std::copy_n(&frame.data[3], emergency.manufacturer.size(), emergency.manufacturer.begin());
    emergency.time_ns = frame.time_ns();
    ++status.emergencies;
    status.heard_ns = frame.monotonic_time_ns();
    status.in_trouble = !emergency.is_over() || emergency.error_register != 0;
    if (listener == nullptr) {
        return;
    }
    if (emergency.is_over()) {
        listener->emergency_over(number, emergency);
    } else {
        listener->emergency(number, emergency);
    }
}

/// A node that was lost is not any more.
void NodeWatch::alive(unsigned int number) {
    if (nodes[number].is_lost) {
        nodes[number].is_lost = false;
        if (listener != nullptr) {
            listener->back(number);
        }
    }
}

/// A node is silent. It is told once; the heartbeat is waited for again when it comes again.
void NodeWatch::lose(unsigned int number) {
    if (watches[number].factor == 0) {
        watches[number].deadline = no_deadline;
    }
    watches[number].knows_toggle = false;
    if (nodes[number].is_lost) {
        return;
    }
    nodes[number].is_lost = true;
    if (listener != nullptr) {
        listener->lost(number);
    }
    enter(number, NodeState::unknown);
}

void NodeWatch::enter(unsigned int number, NodeState state) {
    const NodeState before = nodes[number].state;
    if (before == state) {
        return;
    }
    nodes[number].state = state;
    if (listener != nullptr) {
        listener->state_changed(number, before, state);
    }
}

/// Sends the next guarding request, after a look at what became of the last one.
void NodeWatch::ask(unsigned int number, std::uint64_t now_ns) {
    Watch& watch = watches[number];
    watch.deadline += watch.period_ns;
    if (watch.deadline <= now_ns) {
        watch.deadline = now_ns + watch.period_ns;  // the first request, or process() was not called for long
    }
    if (watch.is_asked && ++watch.unanswered >= watch.factor) {
        watch.unanswered = watch.factor;
        lose(number);
        if (!watch.is_asked) {
            return;  // the listener has the node watched in another way from now on
        }
    }
    watch.is_asked = true;
    std::array<unsigned char, 8> no_data{};
    driver->write(error_control_id + number, 0, no_data.data(), remote_request);
}
