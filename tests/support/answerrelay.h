/// @file
/// A relay between a master on a scripted driver and a node, which delays, doubles, reorders and loses the
/// node's answers, in the time of a scripted clock.

#ifndef TESTS_SUPPORT_ANSWERRELAY_H
#define TESTS_SUPPORT_ANSWERRELAY_H

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <utility>
#include <vector>

#include "tests/support/scriptedcandriver.h"
#include "tests/support/scriptedclock.h"

/// Passes each frame that is sent to the node at once, and the node's answer on when it is due.
class AnswerRelay {
public:
    /// The node: makes the answer to a frame.
    using Node = std::function<ScriptedFrame(const ScriptedFrame& request)>;

    /// @param driver  has to live as long as the relay, which takes its on_write and on_read
    /// @param clock   has to live as long as the relay
    /// @param node    answers each frame
    AnswerRelay(ScriptedCanDriver& driver, const ScriptedClock& clock, Node node)
        : driver_(driver), clock_(clock), node_(std::move(node)) {
        driver_.on_write = [this](const ScriptedFrame& request) { take(request); };
        driver_.on_read = [this](unsigned long) { deliver(); };
    }

    AnswerRelay(const AnswerRelay&) = delete;
    AnswerRelay& operator=(const AnswerRelay&) = delete;

    /// Disturbs the answers to the next requests, in their order.
    ///
    /// @param copies  for each request the copies of its answer that arrive, each as its delay in microseconds;
    ///                none: the answer is lost. Answers to later requests arrive once and at once
    void deliver_after_us(const std::vector<std::vector<std::uint64_t>>& copies) {
        copies_.assign(copies.begin(), copies.end());
    }

private:
    void take(const ScriptedFrame& request) {
        const ScriptedFrame answer = node_(request);
        std::vector<std::uint64_t> delays{0};
        if (!copies_.empty()) {
            delays = copies_.front();
            copies_.pop_front();
        }
        for (const std::uint64_t delay_us : delays) {
            under_way_.emplace(clock_.now_us + delay_us, answer);
        }
    }

    void deliver() {
        while (!under_way_.empty() && under_way_.begin()->first <= clock_.now_us) {
            driver_.queue(under_way_.begin()->second);
            under_way_.erase(under_way_.begin());
        }
    }

    ScriptedCanDriver& driver_;
    const ScriptedClock& clock_;
    Node node_;
    std::deque<std::vector<std::uint64_t>> copies_;
    std::multimap<std::uint64_t, ScriptedFrame> under_way_;  // by the time they are due
};

#endif
