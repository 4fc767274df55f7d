#include "tools/output.h"

#include <limits.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "nodevik/util/monotonicclock.h"
#include "tools/failure.h"

namespace nodevik_tool {

namespace {

constexpr std::uint64_t patience_ns = 40'000'000;  // with a reader that does not read

}  // namespace

void Output::line(std::string_view text) {
    bytes(text);
    bytes("\n");
}

void Output::bytes(std::string_view bytes) {
    collected_ += bytes;
    if (collected_.size() >= collected_bytes) {
        flush();
    }
}

void Output::object(const nlohmann::ordered_json& object) {
    line(object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
}

void Output::hurry() {
    deadline_ns_ = monotonic_ns() + patience_ns;
}

// Waits until something can be written; false when it takes too long.
bool Output::wait_for_room() const {
    for (;;) {
        try {
            return interrupts_->wait(descriptor_, POLLOUT, deadline_ns_) != 0;
        } catch (const Interrupted&) {
            if (deadline_ns_ == no_deadline) {
                throw;
            }
            // It is in a hurry already, and a second Ctrl-C takes nothing away.
        }
    }
}

void Output::flush() {
    std::string_view rest = collected_;
    while (!rest.empty()) {
        // So many bytes never block where poll() has said that there is room (pipe(7)).
        if (!wait_for_room()) {
            break;
        }
        const ssize_t count =
            write(descriptor_, rest.data(), std::min(rest.size(), static_cast<std::size_t>(PIPE_BUF)));
        if (count < 0 && errno == EPIPE) {
            collected_.clear();
            throw ClosedPipe();
        }
        if (count < 0 && errno != EINTR && errno != EAGAIN) {
            const int reason = errno;
            collected_.clear();
            throw Failure(ExitStatus::bad_file,
                          std::string("standard output takes nothing more: ") + std::strerror(reason));
        }
        rest.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    }
    collected_.clear();
}

}  // namespace nodevik_tool
