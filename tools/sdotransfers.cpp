#include "tools/sdotransfers.h"

#include <array>
#include <cstdio>
#include <optional>

#include "nodevik/util/monotonicclock.h"
#include "program/progress.h"
#include "tools/objects.h"

namespace nodevik_tool {

namespace {

constexpr std::size_t most_bytes = std::size_t{1}
                                   << 28;      // of an object that is read: no node has a longer one
constexpr std::uint64_t long_transfer = 2000;  // bytes from which on progress is shown

// Takes what a node sends.
class Collector final : public SdoSink {
public:
    bool write(const unsigned char* bytes, std::size_t size) override {
        if (bytes_.size() + size > most_bytes) {
            return false;
        }
        bytes_.insert(bytes_.end(), bytes, bytes + size);
        return true;
    }
    const ObjectBytes& bytes() const { return bytes_; }

private:
    ObjectBytes bytes_;
};

}  // namespace

std::string code_text(std::uint32_t abort_code) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "0x%08X", static_cast<unsigned int>(abort_code));
    return text.data();
}

std::string abort_text(const SdoResult& result) {
    return std::string(result.words()) + " (" + code_text(result.abort_code) + ")";
}

SdoTransfers::SdoTransfers(const Session& session, unsigned int node, SdoMode mode)
    : session_(&session),
      node_(node),
      mode_(mode),
      bus_(session.options.bus, session.reports, session.interrupts),
      client_(bus_.driver()) {}

SdoResult SdoTransfers::read(std::uint16_t index, std::uint8_t subindex, ObjectBytes& bytes) {
    Collector collector;
    const SdoResult result = run([&](const SdoCallback& ended, const SdoOptions& options) {
        client_.start_read({node_, index, subindex}, collector, ended, options);
    });
    bytes = collector.bytes();
    return result;
}

SdoResult SdoTransfers::write(std::uint16_t index, std::uint8_t subindex, const ObjectBytes& bytes) {
    return run([&](const SdoCallback& ended, const SdoOptions& options) {
        client_.start_write({node_, index, subindex}, bytes.data(), bytes.size(), ended, options);
    });
}

Failure SdoTransfers::failure(const SdoResult& result) const {
    const std::string object = "node " + std::to_string(node_) + ", " +
                               address_text(result.object.index, result.object.subindex) + ": ";
    switch (result.outcome) {
        case SdoOutcome::timed_out:
            return {ExitStatus::no_answer, object + "no answer within " +
                                               std::to_string(session_->options.timeout_ms) +
                                               " ms; is the node on, and is this its number and its bus?"};
        case SdoOutcome::driver_failed:
            return {ExitStatus::no_bus, object + "nothing could be sent: " + bus_.trouble()};
        case SdoOutcome::aborted_by_client:
            return {ExitStatus::refused, object + "the node's answer is wrong: " + abort_text(result)};
        default:
            return {ExitStatus::refused, object + "the node refuses: " + abort_text(result)};
    }
}

// Starts a transfer and serves the bus until it has ended.
template <typename Start>
SdoResult SdoTransfers::run(const Start& start) {
    program::Progress progress(!session_->options.quiet);
    SdoOptions options;
    options.mode = mode_;
    options.timeout_ms = session_->options.timeout_ms;
    options.progress = [&progress](std::uint64_t done, std::uint64_t total) {
        const bool is_known = total != sdo_unknown_size;
        if ((is_known ? total : done) >= long_transfer) {
            progress.update(done, is_known ? total : 0);
        }
    };
    std::optional<SdoResult> end;
    start([&end](const SdoResult& result) { end = result; }, options);
    try {
        while (!end) {
            bus_.read(client_.next_deadline());
            client_.process(monotonic_ns());
        }
    } catch (...) {
        client_.cancel(node_);  // the callback must not outlive this call
        throw;
    }
    return *end;
}

}  // namespace nodevik_tool
