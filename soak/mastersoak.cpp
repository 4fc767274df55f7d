#include "soak/mastersoak.h"

#include <fcntl.h>
#include <poll.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <stdexcept>

#include "soak/footprint.h"

namespace soak {

namespace {

constexpr std::array<unsigned, 5> node_numbers{1, 2, 3, 5, 8};
constexpr const char* node_list = "1,2,3,5,8";

// Of the answers so many follow an answer of another node to another question, which has to be told apart.
constexpr const char* foreign_percent = "20";

constexpr int stopped = 4;
constexpr int operational = 5;
constexpr int pre_operational = 127;

constexpr unsigned limit_ms = 30'000;     // for what has to come: only a hang takes as long
constexpr unsigned away_patience_ms = 5;  // for the state of a node that is away
constexpr unsigned deed_percent = 30;     // of the cycles that are followed by a deed
constexpr unsigned shortest_absence = 5;  // in cycles
constexpr unsigned longest_absence = 60;
constexpr unsigned segment_bytes = 7;

constexpr unsigned short numbers_object = 0x2002;  // subindices 1 to 4: numbers of 1 to 4 bytes
constexpr unsigned short bytes_object = 0x2001;
constexpr unsigned short missing_object = 0x5000;
constexpr int no_object = 0x06020000;

std::uint64_t now_us() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000 +
           static_cast<std::uint64_t>(now.tv_nsec) / 1000;
}

}  // namespace

const std::array<MasterSoak::Deed, 10> MasterSoak::deeds{{
    {30, &MasterSoak::write_and_read},
    {20, &MasterSoak::write_and_read_segments},
    {3, &MasterSoak::read_what_is_not_there},
    {15, &MasterSoak::guard},
    {8, &MasterSoak::stop_and_start},
    {4, &MasterSoak::reset},
    {8, &MasterSoak::vanish},
    {4, &MasterSoak::vanish_in_a_transfer},
    {1, &MasterSoak::kill_all},
    {7, &MasterSoak::talk_in_vain},
}};

MasterSoak::Node::Node(unsigned node)
    : number(node),
      digital_out(0x200 + node),
      analogue_out(0x300 + node),
      digital_in(0x180 + node),
      analogue_in(0x280 + node) {
    for (unsigned i = 0; i < channels; ++i) {
        digital_out.mapcopy(i, outputs[i]);
        digital_in.mapcopy(i, inputs[i]);
        analogue_out.mapcopy(2 * i, analogue_outputs[i]);
        analogue_in.mapcopy(2 * i, analogue_inputs[i]);
    }
}

// Different values in every channel, and other ones than in the cycle before.
void MasterSoak::Node::set_outputs(unsigned value) {
    for (unsigned i = 0; i < channels; ++i) {
        outputs[i] = static_cast<unsigned char>(value + 31 * i + number);
        analogue_outputs[i] = static_cast<short>(value * (i + 1) + number);
    }
}

MasterSoak::MasterSoak(const MasterOptions& options)
    : options_(options), random_(options.seed), driver_(options.directory + "/master.log") {
    driver_.open(0, 0, 0);
    driver_.lose(options.lose_frame);
    bus_ = std::make_unique<NodeBus>(
        options.simulator, node_list, local_port(driver_.endpoint().server_socket()), options.directory,
        std::vector<std::string>{"--foreign", foreign_percent, "--seed", std::to_string(options.seed)});
    master_.load_driver(driver_);
    master_.set_debug(0);
    master_.discard_late_sdo_answers(true);
    for (const unsigned number : node_numbers) {
        Node& node = *nodes_.emplace_back(std::make_unique<Node>(number));
        master_.add_rpdo(node.digital_out);
        master_.add_rpdo(node.analogue_out);
        master_.add_tpdo(node.digital_in);
        master_.add_tpdo(node.analogue_in);
    }
}

void MasterSoak::run() {
    restart_in_cycle_ = 1;
    cycle();
    warm_up();
    take_footprint(figures_.memory_start_kib, figures_.descriptors_start);
    const std::uint64_t first = figures_.cycles;
    const std::uint64_t end_us = now_us() + std::uint64_t{options_.seconds} * 1'000'000;
    while (options_.cycles > 0 ? figures_.cycles - first < options_.cycles : now_us() < end_us) {
        cycle();
        if (options_.leak && figures_.cycles % 100 == 0) {
            static_cast<void>(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0));
        }
        if (draw(1, 100) <= deed_percent) {
            act();
        }
    }
    // Whoever is still away comes back.
    for (unsigned i = 0; i < longest_absence; ++i) {
        cycle();
    }
    drain();
    take_footprint(figures_.memory_end_kib, figures_.descriptors_end);
    driver_.note("life " + std::to_string(bus_->life()) + " ends");
}

// Every deed twice, with a node that is away beside it, and all nodes back at the end.
void MasterSoak::warm_up() {
    for (int round = 0; round < 2; ++round) {
        for (const Deed& deed : deeds) {
            vanish();
            (this->*deed.act)();
            for (unsigned i = 0; i <= longest_absence; ++i) {
                cycle();
            }
        }
    }
}

void MasterSoak::cycle() {
    pause();
    const std::uint64_t began_us = now_us();
    if (cycle_began_us_ != 0) {
        figures_.worst_gap_us = std::max(figures_.worst_gap_us, began_us - cycle_began_us_);
    }
    cycle_began_us_ = began_us;
    ++figures_.cycles;
    bring_back();
    exchange();
}

// Waits for the cycle's time. Cycles that a deed has held up are not made up for.
void MasterSoak::pause() {
    const std::uint64_t now = now_us();
    if (now < next_cycle_us_) {
        poll(nullptr, 0, static_cast<int>((next_cycle_us_ - now + 999) / 1000));
    }
    next_cycle_us_ = std::max(now_us(), next_cycle_us_) + std::uint64_t{options_.period_ms} * 1000;
}

void MasterSoak::exchange() {
    master_.read_all_messages();
    master_.all_tdpos_updated(1);
    for (const auto& node : nodes_) {
        node->set_outputs(static_cast<unsigned>(figures_.cycles));
    }
    // All values are new in each cycle, so that both ways of sending send all of them.
    if (figures_.cycles % 2 == 0) {
        master_.send_all_rpdos();
    } else {
        master_.send_only_changed_rpdos();
    }
    figures_.pdos_sent += 2 * nodes_.size();
    master_.sync();
    collect_tpdos(figures_.cycles % 3 == 0);
    check_tpdos();
}

// Takes frames until the TPDOs of all nodes that are there have come.
void MasterSoak::collect_tpdos(bool by_repeats) {
    std::array<std::array<unsigned, 2>, node_numbers.size()> updates{};
    const std::uint64_t end_us = now_us() + std::uint64_t{limit_ms} * 1000;
    for (bool complete = false; !complete;) {
        if (by_repeats) {
            if (master_.read_all_until_duplicate_tpdo() != 0) {
                fail("a TPDO came twice in one cycle");
            }
        } else if (master_.read_all_messages() != 0) {
            fail("the driver failed to read");
        }
        complete = true;
        for (std::size_t i = 0; i < nodes_.size(); ++i) {
            Node& node = *nodes_[i];
            updates[i][0] += node.digital_in.PDO_updated;
            updates[i][1] += node.analogue_in.PDO_updated;
            node.digital_in.PDO_updated = node.analogue_in.PDO_updated = 0;
            complete = complete && (!node.present || (updates[i][0] > 0 && updates[i][1] > 0));
        }
        if (!complete) {
            if (now_us() > end_us) {
                fail("a node that is there has not sent its TPDOs");
            }
            wait_for_frames(1);
        }
    }
    for (std::size_t i = 0; i < nodes_.size(); ++i) {
        nodes_[i]->digital_in.PDO_updated = updates[i][0];
        nodes_[i]->analogue_in.PDO_updated = updates[i][1];
    }
}

void MasterSoak::check_tpdos() {
    for (const auto& node : nodes_) {
        const unsigned expected = node->present ? 1 : 0;
        if (node->digital_in.PDO_updated != expected || node->analogue_in.PDO_updated != expected) {
            fail("node " + std::to_string(node->number) + " has sent " +
                 std::to_string(node->digital_in.PDO_updated) + " and " +
                 std::to_string(node->analogue_in.PDO_updated) + " TPDOs after one SYNC instead of " +
                 std::to_string(expected));
        }
        if (!node->present) {
            continue;
        }
        if (!node->inputs_are_outputs()) {
            fail("the inputs of node " + std::to_string(node->number) +
                 " are not what its outputs were set to");
        }
        figures_.pdos_arrived += 2;
        figures_.pdo_values += 2 * std::uint64_t{channels};
    }
}

void MasterSoak::wait_for_frames(int wait_ms) {
    pollfd entry{driver_.endpoint().server_socket(), POLLIN, 0};
    poll(&entry, 1, wait_ms);
}

void MasterSoak::act() {
    constexpr unsigned all_percent = 100;
    unsigned drawn = draw(1, all_percent);
    for (const Deed& deed : deeds) {
        if (drawn <= deed.percent) {
            (this->*deed.act)();
            return;
        }
        drawn -= deed.percent;
    }
}

// Starts the process again, and switches the nodes on, whose time has come.
void MasterSoak::bring_back() {
    if (!bus_->alive()) {
        if (figures_.cycles < restart_in_cycle_) {
            return;
        }
        driver_.note("life " + std::to_string(bus_->life() + 1) + " begins");
        bus_->start();
        driver_.endpoint().set_client_destination_address(127, 0, 0, 1, bus_->port());
        for (const auto& node : nodes_) {
            await_boot_up(*node);
        }
        if (bus_->life() > 1) {  // at first they come without having been away
            figures_.returned += nodes_.size();
            figures_.reappeared += nodes_.size();
        }
        return;
    }
    for (const auto& node : nodes_) {
        if (!node->present && figures_.cycles >= node->returns_in_cycle) {
            node->boot_ups_before = driver_.boot_ups(node->number);
            bus_->on(node->number);
            ++figures_.returned;
            await_boot_up(*node);
            ++figures_.reappeared;
        }
    }
}

void MasterSoak::take_footprint(long& memory_kib, long& descriptors) const {
    memory_kib = resident_memory_kib();
    descriptors = open_descriptors();
}

// Does a transfer with a node that is there, and tells whether it came to its right end. If not, it was the
// master's loss, unless the node's answers come only now: then the machine was busy for longer than the
// master waits.
template <typename Transfer>
bool MasterSoak::succeeds(const Node& node, unsigned bytes, Transfer transfer) {
    const unsigned requests_before = driver_.sdo_requests(node.number);
    const unsigned answers_before = driver_.sdo_answers(node.number);
    const bool done = transfer();
    const unsigned requests = driver_.sdo_requests(node.number) - requests_before;
    const unsigned answers = driver_.sdo_answers(node.number) - answers_before;
    if (!done || answers < requests) {
        drain();  // a late answer would be taken for that to a later request
    }
    if (done) {
        ++figures_.sdo_done;
        figures_.sdo_bytes += bytes;
        return true;
    }
    if (driver_.sdo_answers(node.number) - answers_before > answers) {
        ++figures_.sdo_late;
        return false;
    }
    ++figures_.sdo_failed_present;
    fail("an SDO transfer with node " + std::to_string(node.number) + ", which is there, failed after " +
         std::to_string(requests) + " requests and " + std::to_string(answers) + " answers");
}

// Takes all that the nodes have to say to what they were sent.
void MasterSoak::drain() {
    bus_->settle();
    master_.read_all_messages();
}

void MasterSoak::write_and_read() {
    const Node* node = any(true);
    if (node == nullptr) {
        return;
    }
    const unsigned size = draw(1, 4);
    const auto subindex = static_cast<unsigned char>(size);
    const auto mask = size == 4 ? 0xFFFFFFFFU : (1U << (8 * size)) - 1;
    const auto value = static_cast<int>(static_cast<unsigned>(random_()) & mask);
    const bool written = succeeds(*node, size, [&] {
        return master_.sdo_write(node->number, numbers_object, subindex, size, value) == 0;
    });
    int back = 0;
    const bool read = written && succeeds(*node, size, [&] {
                          return master_.sdo_read(node->number, numbers_object, subindex, back) == 0;
                      });
    if (read && back != value) {
        fail("node " + std::to_string(node->number) + " gave " + std::to_string(back) + " back for " +
             std::to_string(value));
    }
}

void MasterSoak::write_and_read_segments() {
    const Node* node = any(true);
    if (node == nullptr) {
        return;
    }
    const unsigned size = draw(1, static_cast<unsigned>(written_.size()));
    std::generate_n(written_.begin(), size, [this] { return static_cast<char>(random_()); });
    const bool written = succeeds(*node, size, [&] {
        return master_.sdo_write_segment(node->number, bytes_object, 0, size, written_.data()) == 0;
    });
    unsigned length = static_cast<unsigned>(read_.size());
    const bool read =
        written && succeeds(*node, size, [&] {
            return master_.sdo_read_segment(node->number, bytes_object, 0, length, read_.data()) == 0;
        });
    if (read && (length != size || !std::equal(written_.begin(), written_.begin() + size, read_.begin()))) {
        fail("node " + std::to_string(node->number) + " gave " + std::to_string(length) +
             " other bytes back for " + std::to_string(size));
    }
}

void MasterSoak::read_what_is_not_there() {
    const Node* node = any(true);
    if (node == nullptr) {
        return;
    }
    // The abort is the right end of this transfer.
    succeeds(*node, 0, [&] {
        int code = 0;
        return master_.sdo_read(node->number, missing_object, 0, code) == -1 && code == no_object;
    });
}

void MasterSoak::guard() {
    if (const Node* node = any(true)) {
        expect_state(*node, operational);
    }
}

void MasterSoak::stop_and_start() {
    if (Node* node = any(true)) {
        master_.stop_node(static_cast<unsigned char>(node->number));
        expect_state(*node, stopped);
        master_.set_preoperational(static_cast<unsigned char>(node->number));
        expect_state(*node, pre_operational);
        operate(*node);
    }
}

void MasterSoak::reset() {
    Node* node = any(true);
    if (node == nullptr) {
        return;
    }
    node->boot_ups_before = driver_.boot_ups(node->number);
    if (draw(0, 1) == 0) {
        master_.reset_node(static_cast<unsigned char>(node->number));
    } else {
        master_.reset_communication(static_cast<unsigned char>(node->number));
    }
    await_boot_up(*node);
}

void MasterSoak::vanish() {
    if (Node* node = any(true)) {
        bus_->off(node->number);
        leaves(*node);
    }
}

void MasterSoak::vanish_in_a_transfer() {
    Node* node = any(true);
    if (node == nullptr) {
        return;
    }
    const unsigned segments = draw(5, 80);
    const unsigned size = segments * segment_bytes;
    std::generate_n(written_.begin(), size, [this] { return static_cast<char>(random_()); });
    // The request that opens the transfer, and then one for each segment: some are still to come.
    bool gone = false;
    driver_.after_sending(draw(1, segments - 2), [this, node, &gone] {
        bus_->off(node->number);
        gone = true;
    });
    const int result = master_.sdo_write_segment(node->number, bytes_object, 0, size, written_.data());
    driver_.after_sending(0, {});
    if (result != -1) {
        fail("a transfer in the middle of which the node went ended with " + std::to_string(result));
    }
    if (!gone) {  // the machine was too busy for the transfer to come so far
        bus_->off(node->number);
    }
    ++figures_.sdo_failed_away;
    leaves(*node);
}

void MasterSoak::kill_all() {
    if (!bus_->alive()) {
        return;
    }
    bus_->kill();
    driver_.note("life " + std::to_string(bus_->life()) + " ends");
    ++figures_.kills;
    restart_in_cycle_ = figures_.cycles + draw(shortest_absence, longest_absence);
    for (const auto& node : nodes_) {
        figures_.vanished += node->present ? 1 : 0;
        node->present = false;
        node->boot_ups_before = driver_.boot_ups(node->number);
    }
}

void MasterSoak::talk_in_vain() {
    const Node* node = any(false);
    if (node == nullptr) {
        return;
    }
    int value = 0;
    unsigned length = static_cast<unsigned>(read_.size());
    const unsigned kind = draw(0, 4);
    int result = 0;
    switch (kind) {
        case 0:
            result = master_.sdo_read(node->number, numbers_object, 1, value);
            break;
        case 1:
            result = master_.sdo_write(node->number, numbers_object, 1, 1, 1);
            break;
        case 2:
            result = master_.sdo_read_segment(node->number, bytes_object, 0, length, read_.data());
            break;
        case 3:
            result = master_.sdo_write_segment(node->number, bytes_object, 0, 100, written_.data());
            break;
        default:
            result = master_.nodeguard(static_cast<unsigned char>(node->number), away_patience_ms);
            break;
    }
    if (result != -1) {
        fail("node " + std::to_string(node->number) + " is away, yet was talked to, with the result " +
             std::to_string(result));
    }
    ++(kind < 4 ? figures_.sdo_failed_away : figures_.missed);
}

void MasterSoak::expect_state(const Node& node, int state) {
    const int told = master_.nodeguard(static_cast<unsigned char>(node.number), limit_ms);
    if (told != state) {
        fail("node " + std::to_string(node.number) + " has told the state " + std::to_string(told) +
             " instead of " + std::to_string(state));
    }
    ++figures_.guarded;
}

// Starts a node that is pre-operational.
void MasterSoak::operate(Node& node) {
    master_.start_node(static_cast<unsigned char>(node.number));
    expect_state(node, operational);
}

// The master sees a node come back, by its boot-up message, and puts it to work.
void MasterSoak::await_boot_up(Node& node) {
    const std::uint64_t end_us = now_us() + std::uint64_t{limit_ms} * 1000;
    while (driver_.boot_ups(node.number) == node.boot_ups_before) {
        if (now_us() > end_us) {
            fail("node " + std::to_string(node.number) + " has not announced itself");
        }
        wait_for_frames(1);
        master_.read_all_messages();
    }
    if (driver_.boot_ups(node.number) != node.boot_ups_before + 1) {
        fail("node " + std::to_string(node.number) + " has announced itself more than once");
    }
    expect_state(node, pre_operational);
    operate(node);
    node.present = true;
}

// A node has gone: the master does not find it any more.
void MasterSoak::leaves(Node& node) {
    node.present = false;
    node.returns_in_cycle = figures_.cycles + draw(shortest_absence, longest_absence);
    ++figures_.vanished;
    if (master_.nodeguard(static_cast<unsigned char>(node.number), away_patience_ms) != -1) {
        fail("node " + std::to_string(node.number) + " has gone, yet tells its state");
    }
    ++figures_.missed;
}

// A node that is there, or away, at random; null when there is none.
MasterSoak::Node* MasterSoak::any(bool present) {
    std::vector<Node*> found;
    for (const auto& node : nodes_) {
        if (node->present == present) {
            found.push_back(node.get());
        }
    }
    return found.empty() ? nullptr : found[draw(0, static_cast<unsigned>(found.size()) - 1)];
}

unsigned MasterSoak::draw(unsigned lowest, unsigned highest) {
    return lowest + static_cast<unsigned>(random_()) % (highest - lowest + 1);
}

void MasterSoak::fail(const std::string& what) const {
    throw std::runtime_error(what + " (cycle " + std::to_string(figures_.cycles) + ")");
}

}  // namespace soak
