#include "simulator/node/answerfaults.h"

namespace node_simulator {

namespace {

// The answer of the next node to somebody else's question: the serial number of its identity object.
CanFrame foreign_answer(const CanFrame& answer) {
    const std::uint32_t node = (answer.identifier & 0x7F) % 127 + 1;
    return make_frame(0x580 + node, {0x43, 0x18, 0x10, 0x04, node, 0, 0, 0});
}

}  // namespace

AnswerFaults::AnswerFaults(const FaultSettings& settings) : settings_(settings), random_(settings.seed) {}

std::vector<TimedFrame> AnswerFaults::disturb(const CanFrame& answer, Time now) {
    if (settings_.most && struck_ >= *settings_.most) {
        return {{answer, now}};
    }
    const unsigned struck_before = struck_;
    std::vector<TimedFrame> frames;
    if (strikes(settings_.lost)) {
        return frames;
    }
    if (strikes(settings_.foreign)) {
        frames.push_back({foreign_answer(answer), now});
    }
    const Time due = strikes(settings_.late) ? now + Time{settings_.delay_ms} * 1000 : now;
    frames.push_back({answer, due});
    if (strikes(settings_.duplicated)) {
        frames.push_back({answer, due});
    }
    if (struck_ > struck_before) {
        struck_ = struck_before + 1;  // an answer counts once, however many faults it has
    }
    return frames;
}

bool AnswerFaults::loses_request() {
    return (!settings_.most || struck_ < *settings_.most) && strikes(settings_.unheard);
}

bool AnswerFaults::strikes(unsigned percent) {
    const bool struck = percent != 0 && random_() % 100 < percent;
    struck_ += struck ? 1 : 0;
    return struck;
}

TransferFaults::TransferFaults(const FaultSettings& settings, std::uint8_t node)
    : settings_(settings), random_(settings.seed + node) {}

bool TransferFaults::strikes(unsigned percent) {
    const bool may_strike = percent != 0 && (!settings_.most || struck_ < *settings_.most);
    const bool struck = may_strike && random_() % 100 < percent;
    struck_ += struck ? 1 : 0;
    return struck;
}

}  // namespace node_simulator
