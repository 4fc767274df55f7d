#include "soak/nodesoak.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>

#include "nodevik/util/monotonicclock.h"
#include "soak/footprint.h"

namespace soak {

namespace {

constexpr std::array<unsigned, 5> node_numbers{1, 2, 3, 5, 8};
constexpr const char* node_list = "1,2,3,5,8";
const std::vector<std::string> faults{"--lost",       "1",         "--late",      "2", "--delay",   "20",
                                      "--duplicated", "2",         "--foreign",   "2", "--unheard", "1",
                                      "--toggled",    "1",         "--wrong-crc", "5", "--endless", "3",
                                      "--block-size", "127,4,31,1"};

// Of a run that is told by its time, and of a short one.
constexpr unsigned warm_up_transfers = 1000;
constexpr unsigned short_warm_up_transfers = 100;
constexpr unsigned answer_timeout_ms = 100;
constexpr std::size_t most_candidates = 8;

// Segments name no object: one that comes late, after its transfer has ended, may be taken for a segment of the next one,
// and nobody could tell. So that a node has sent all that is late, its next transfer waits for many times that delay.
constexpr unsigned quiet_ms = 100;
constexpr std::uint64_t ns_per_ms = 1'000'000;
constexpr std::uint64_t longest_wait_ns = 100 * ns_per_ms;

// Objects that every simulated node has, and one that none has, with the sizes that they take.
struct Object {
    std::uint16_t index;
    std::uint8_t subindex;
    std::size_t smallest;
    std::size_t largest;
    SdoMode mode;
};
constexpr std::array<Object, 7> object_table{{{0x2002, 1, 1, 1, SdoMode::automatic},
                                              {0x2002, 2, 2, 2, SdoMode::automatic},
                                              {0x2002, 3, 3, 3, SdoMode::automatic},
                                              {0x2002, 4, 4, 4, SdoMode::automatic},
                                              {0x2001, 0, 5, 200, SdoMode::segmented},
                                              {0x2006, 0, 1, 20'000, SdoMode::block},
                                              {0x5000, 0, 1, 100, SdoMode::automatic}}};
constexpr std::size_t missing_object = 6;
constexpr std::uint32_t no_object = 0x06020000;

// How often each object is drawn, in percent.
constexpr std::array<unsigned, 7> shares{12, 12, 12, 12, 25, 24, 3};

}  // namespace

unsigned char NodeSoak::Value::at(std::size_t place) const {
    return static_cast<unsigned char>((seed + place * 2654435761U) >> 13 ^ place);
}

bool NodeSoak::Node::begin(std::uint64_t) {
    filled = 0;
    return true;
}

bool NodeSoak::Node::write(const unsigned char* bytes, std::size_t size) {
    if (size > room.size() - filled) {
        return false;
    }
    std::copy_n(bytes, size, room.data() + filled);
    filled += size;
    return true;
}

NodeSoak::NodeSoak(const NodeOptions& options) : options_(options), random_(options.seed) {
    bus_.open(0, 0, 0);
    std::vector<std::string> words = faults;
    words.insert(words.end(), {"--seed", std::to_string(options.seed)});
    simulated_ = std::make_unique<NodeBus>(options_.simulator, node_list, local_port(bus_.descriptor()), "",
                                           std::move(words));
    for (const unsigned number : node_numbers) {
        auto& node = nodes_.emplace_back(std::make_unique<Node>());
        node->number = number;
        node->room.resize(longest + 1);
        for (Content& content : node->contents) {
            content.candidates.reserve(most_candidates + 1);
        }
    }
    client_.set_pace(16, 500);
}

void NodeSoak::run() {
    simulated_->start();
    bus_.endpoint().set_client_destination_address(127, 0, 0, 1, simulated_->port());
    const bool is_counted = options_.transfers != 0;
    transfer_until(no_deadline, is_counted ? short_warm_up_transfers : warm_up_transfers);
    figures_.memory_start_kib = resident_memory_kib();
    figures_.descriptors_start = open_descriptors();
    transfer_until(is_counted ? no_deadline : monotonic_ns() + options_.seconds * 1000 * ns_per_ms,
                   is_counted ? figures_.started + options_.transfers : UINT64_MAX);
    figures_.memory_end_kib = resident_memory_kib();
    figures_.descriptors_end = open_descriptors();
}

// Transfers until the time has come or so many have been started, and lets the last ones end.
void NodeSoak::transfer_until(std::uint64_t end_ns, std::uint64_t count) {
    const auto is_idle = [](const auto& node) { return node->transfer == 0; };
    bool may_start = true;
    while (may_start || !std::all_of(nodes_.begin(), nodes_.end(), is_idle)) {
        step(may_start);
        may_start = may_start && monotonic_ns() < end_ns && figures_.started < count;
    }
}

// Starts what may be started, and waits for what comes next.
void NodeSoak::step(bool may_start) {
    std::uint64_t wake = client_.next_deadline();
    const std::uint64_t now = monotonic_ns();
    for (const auto& node : nodes_) {
        if (node->transfer == 0 && may_start && now >= node->next_ns) {
            start(*node);
            wake = std::min(wake, client_.next_deadline());
        } else if (node->transfer == 0 && may_start) {
            wake = std::min(wake, node->next_ns);
        } else if (node->transfer != 0 && now - node->began_ns > options_.patience_ms * ns_per_ms) {
            fail(*node, "has not ended");
        } else if (node->transfer != 0 && draw(1, 20'000) == 1) {
            node->is_cancelled = true;
            client_.cancel(node->number);
        }
    }
    pollfd entry{bus_.descriptor(), POLLIN, 0};
    poll(&entry, 1, milliseconds_until(std::min(wake, now + longest_wait_ns), now));
    driver_.read_all();
    client_.process(monotonic_ns());
    if (!problem_.empty()) {
        throw std::runtime_error(problem_);
    }
}

void NodeSoak::start(Node& node) {
    std::size_t object = node.object;
    while (object == node.object) {
        unsigned drawn = draw(1, 100);
        for (object = 0; object + 1 < shares.size() && drawn > shares[object]; ++object) {
            drawn -= shares[object];
        }
    }
    node.object = object;
    node.is_write = draw(0, 1) == 1 && node.contents[object].candidates.size() < most_candidates;
    node.is_cancelled = false;
    node.began_ns = monotonic_ns();
    node.transfer = ++figures_.started;
    node.filled = 0;
    SdoOptions how;
    how.mode = object_table[object].mode;
    how.timeout_ms = answer_timeout_ms;
    how.block_size = draw(1, 127);
    if ((node.is_write ? start_write(node, how) : start_read(node, how)) != 0) {
        fail(node, "does not start");
    }
    if (options_.leak && figures_.started % 100 == 0) {
        static_cast<void>(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0));
    }
}

int NodeSoak::start_write(Node& node, SdoOptions how) {
    const Object& object = object_table[node.object];
    node.value.seed = static_cast<std::uint32_t>(random_());
    node.value.size = draw(static_cast<unsigned>(object.smallest), static_cast<unsigned>(object.largest));
    node.contents[node.object].candidates.push_back(node.value);
    // The client reads the bytes while the transfer lasts: they stand in the node's own room.
    for (std::size_t i = 0; i < node.value.size; ++i) {
        node.room[i] = node.value.at(i);
    }
    return client_.start_write({node.number, object.index, object.subindex}, node.room.data(),
                               node.value.size, end_of(node), std::move(how));
}

int NodeSoak::start_read(Node& node, SdoOptions how) {
    const SdoObject object{node.number, object_table[node.object].index, object_table[node.object].subindex};
    if (draw(0, 1) == 1) {
        return client_.start_read(object, node, end_of(node), std::move(how));
    }
    return client_.start_read(object, node.room.data(), node.room.size(), end_of(node), std::move(how));
}

SdoCallback NodeSoak::end_of(Node& node) {
    return [this, &node, transfer = node.transfer](const SdoResult& result) {
        if (is_over_ || transfer == options_.forget) {
            return;
        }
        ended(node, transfer, result);
        if (transfer == options_.repeat) {
            ended(node, transfer, result);
        }
    };
}

void NodeSoak::ended(Node& node, std::uint64_t transfer, const SdoResult& result) {
    if (node.transfer != transfer) {
        fail(node, "had another before it, which ended twice");
        return;
    }
    count(result);
    figures_.worst_us = std::max(figures_.worst_us, (monotonic_ns() - node.began_ns) / 1000);
    if (result.outcome == SdoOutcome::cancelled && !node.is_cancelled) {
        fail(node, "was cancelled by nobody");
    }
    Content& content = node.contents[node.object];
    if (node.object == missing_object) {
        const bool was_refused = result.outcome == SdoOutcome::aborted_by_node;
        if (result.ok() ||
            (was_refused && result.abort_code != no_object && result.abort_code >> 24 != 0x05)) {
            fail(node, std::string("of an object that no node has ended with: ") + result.words());
        }
        content.candidates.clear();
    } else if (result.ok() && node.is_write) {
        if (result.bytes != node.value.size) {
            fail(node, "is done with another number of bytes");
        }
        content = {true, {node.value}};
    } else if (result.ok()) {
        compare(node, result.bytes);
    }
    node.transfer = 0;
    const bool may_leave_segments = !result.ok() || (result.by_blocks && !node.is_write);
    node.next_ns = monotonic_ns() + (may_leave_segments ? quiet_ms : options_.pause_ms) * ns_per_ms;
}

void NodeSoak::count(const SdoResult& result) {
    ++figures_.ended;
    switch (result.outcome) {
        case SdoOutcome::done:
            ++figures_.done;
            figures_.bytes += result.bytes;
            ++(result.by_blocks ? figures_.done_blocks
                                : (result.object.index == object_table[0].index ? figures_.done_expedited
                                                                                : figures_.done_segmented));
            break;
        case SdoOutcome::aborted_by_node:
            ++figures_.aborted_by_node;
            break;
        case SdoOutcome::aborted_by_client:
            ++figures_.aborted_by_client;
            break;
        case SdoOutcome::timed_out:
            ++figures_.timed_out;
            break;
        case SdoOutcome::driver_failed:
            ++figures_.driver_failed;
            break;
        case SdoOutcome::cancelled:
            ++figures_.cancelled;
            break;
    }
    const SdoClient::Dropped& dropped = client_.dropped();
    figures_.dropped =
        dropped.unexpected + dropped.foreign + dropped.doubled + dropped.malformed + dropped.out_of_order;
}

// Looks for what was read among what the object may hold; it holds that then, and nothing else.
void NodeSoak::compare(Node& node, std::size_t size) {
    if (options_.spoil != 0 && ++reads_ >= options_.spoil) {
        node.room[0] = static_cast<unsigned char>(node.room[0] + 1);
    }
    Content& content = node.contents[node.object];
    const auto is_read = [&node, size](const Value& value) {
        if (value.size != size) {
            return false;
        }
        for (std::size_t i = 0; i < size; ++i) {
            if (node.room[i] != value.at(i)) {
                return false;
            }
        }
        return true;
    };
    const auto found = std::find_if(content.candidates.begin(), content.candidates.end(), is_read);
    if (found != content.candidates.end()) {
        const Value value = *found;
        content.is_known = true;
        content.candidates.assign(1, value);
        figures_.compared += size;
    } else if (content.is_known) {
        fail(node, "has read what was never written");
    }
}

unsigned NodeSoak::draw(unsigned lowest, unsigned highest) {
    return std::uniform_int_distribution<unsigned>(lowest, highest)(random_);
}

void NodeSoak::fail(const Node& node, const std::string& what) {
    if (problem_.empty()) {
        problem_ = "transfer " + std::to_string(node.transfer) + " with node " + std::to_string(node.number) +
                   " " + what;
    }
}

}  // namespace soak
