/// @file
/// Which nodes are there and which have gone, of a bus that is only listened to.

#ifndef TOOLS_HEARTBEATWATCH_H
#define TOOLS_HEARTBEATWATCH_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "nodevik/nodes/nodewatch.h"

namespace nodevik_tool {

/// A NodeWatch that finds out by itself which heartbeats there are, and in which time.
///
/// Nobody tells a program that only listens how long a node's heartbeat time is (0x1017), so it is measured: the middle
/// of the last five times between two heartbeats. A node is lost when after three heartbeats, two of which tell a time
/// each, none has come for two and a half times that long, and at least for shortest_silence_ms. Its next heartbeat, or
/// a boot-up, begins a new measurement.
///
/// Answers to node guarding (CiA 301, 7.2.8.3.2.1) come when somebody asks. They look like heartbeats but for their
/// toggle bit, and a node that answers so is never lost.
class HeartbeatWatch final : public FrameObserver {
public:
    /// So long a silence is never a loss: a busy machine delays frames of UDP.
    static constexpr unsigned int shortest_silence_ms = 100;

    /// Begins to observe. It sends nothing.
    /// @param driver  outlives the watch
    explicit HeartbeatWatch(ObservedDriver& driver);

    /// Ceases to observe.
    ~HeartbeatWatch() { driver_->remove_observer(*this); }

    HeartbeatWatch(const HeartbeatWatch&) = delete;
    HeartbeatWatch& operator=(const HeartbeatWatch&) = delete;

    /// Sets who is told, see NodeWatch::set_listener().
    void set_listener(NodeListener* listener) { watch_.set_listener(listener); }

    /// What is known of a node, see NodeWatch::node().
    const NodeStatus& node(unsigned int number) const { return watch_.node(number); }

    /// The heartbeat time of a node.
    /// @param number  1 to 127
    /// @return milliseconds, rounded; nothing when fewer than two heartbeats have come
    std::optional<std::uint64_t> heartbeat_ms(unsigned int number) const;

    /// Whether a node answers to guarding.
    bool is_guarded(unsigned int number) const { return beats_[number].is_guarded; }

    /// Looks for nodes that have fallen silent, see NodeWatch::process().
    void process(std::uint64_t now_ns) { watch_.process(now_ns); }

    /// When process() is to be called next, see NodeWatch::next_deadline().
    std::uint64_t next_deadline(std::uint64_t now_ns) const { return watch_.next_deadline(now_ns); }

    /// Measures heartbeats. Called by the driver.
    void frame_passed(const ObservedFrame& frame) override;

private:
    static constexpr std::size_t nodes = 128;
    static constexpr std::size_t kept_times = 5;

    // The heartbeats of a node.
    struct Beats {
        std::uint64_t last_ns = 0;                      // when the last one came; 0 none yet
        std::array<std::uint64_t, kept_times> times{};  // between two, a ring
        std::size_t measured = 0;                       // how many times have been measured
        bool is_guarded = false;
    };

    void note(unsigned int number, const ObservedFrame& frame);
    void measure(unsigned int number, std::uint64_t time_ns);
    static std::uint64_t middle(const Beats& beats);

    ObservedDriver* driver_;
    std::array<Beats, nodes> beats_{};  // by node number
    NodeWatch watch_;                   // is shown each frame by this class, which first says what to expect
};

}  // namespace nodevik_tool

#endif
