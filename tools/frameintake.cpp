#include "tools/frameintake.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "tools/failure.h"

namespace nodevik_tool {

namespace {

constexpr int look_again_ms = 1;  // at a driver without a descriptor
constexpr std::size_t most_in_a_batch = 256;
constexpr int last_batches = 100;  // more than a kernel keeps for a socket

int open_event() {
    return eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
}

// Makes an event's descriptor readable.
void raise(int event) {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t count = write(event, &one, sizeof one);
}

// Makes it wait for the next time.
void clear(int event) {
    std::uint64_t times = 0;
    [[maybe_unused]] const ssize_t count = ::read(event, &times, sizeof times);
}

}  // namespace

FrameIntake::FrameIntake(Bus& bus, std::size_t room)
    : bus_(&bus), room_(room), news_(open_event()), stop_(open_event()) {
    bus_->driver().add_observer(*this);
    try {
        if (news_ < 0 || stop_ < 0) {
            throw std::system_error(errno, std::generic_category());
        }
        thread_ = std::thread(&FrameIntake::run, this);
    } catch (const std::system_error& error) {
        end();
        throw Failure(ExitStatus::no_bus, "the system has no room for a thread: " +
                                              std::string(std::strerror(error.code().value())));
    }
}

FrameIntake::~FrameIntake() {
    end();
}

void FrameIntake::end() {
    stop();
    close(news_);
    close(stop_);
}

void FrameIntake::stop() {
    if (thread_.joinable()) {
        raise(stop_);
        thread_.join();
    }
    bus_->driver().remove_observer(*this);
}

FrameIntake::News FrameIntake::take() {
    clear(news_);
    News news;
    const std::scoped_lock lock(mutex_);
    news.frames.swap(collected_.frames);
    news.remark.swap(collected_.remark);
    news.trouble = collected_.trouble;
    return news;
}

void FrameIntake::run() {
    while (wait()) {
        if (read() == Reading::failed) {
            return;
        }
    }
    // What the kernel still has; a bus whose frames never cease must not keep the thread.
    for (int batches = 0; batches < last_batches && read() == Reading::more; ++batches) {
    }
}

// Waits for frames; false when reading is to end.
bool FrameIntake::wait() const {
    const int descriptor = bus_->descriptor();
    std::array<pollfd, 2> entries{{{stop_, POLLIN, 0}, {descriptor, POLLIN, 0}}};
    while (poll(entries.data(), entries.size(), descriptor < 0 ? look_again_ms : -1) < 0 && errno == EINTR) {
    }
    return entries[0].revents == 0;
}

// Reads what waits, up to a batch.
FrameIntake::Reading FrameIntake::read() {
    unsigned int identifier = 0;
    unsigned int length = 0;
    std::array<unsigned char, 8> data{};
    int result = 0;
    while (batch_.size() < most_in_a_batch && result == 0) {
        result = bus_->driver().read(identifier, length, data.data());
    }
    if (result < 0 && !bus_->is_bus_off()) {
        // An interface that is unplugged goes down first, and one that went down may be up again: asked once more, the
        // driver knows.
        result = bus_->driver().read(identifier, length, data.data());
    }
    // A controller that is bus-off may be restarted: its frames are waited for.
    const bool is_bus_off = bus_->is_bus_off();
    const bool is_lost = result < 0 && !is_bus_off;
    const bool has_remark = is_bus_off && !has_told_bus_off_;
    has_told_bus_off_ = is_bus_off;
    pass_on(has_remark ? bus_->trouble() : "", is_lost ? bus_->trouble() : "");
    if (is_lost) {
        return Reading::failed;
    }
    return result == 0 ? Reading::more : Reading::all;
}

// Puts the batch where take() finds it.
void FrameIntake::pass_on(std::string remark, const std::string& trouble) {
    if (batch_.empty() && remark.empty() && trouble.empty()) {
        return;
    }
    const std::scoped_lock lock(mutex_);
    const std::size_t count = std::min(room_ - collected_.frames.size(), batch_.size());
    collected_.frames.insert(collected_.frames.end(), batch_.begin(),
                             batch_.begin() + static_cast<std::ptrdiff_t>(count));
    left_out_ += batch_.size() - count;
    batch_.clear();
    if (!remark.empty()) {
        collected_.remark = std::move(remark);
    }
    collected_.trouble = trouble;
    raise(news_);
}

void FrameIntake::frame_passed(const ObservedFrame& frame) {
    batch_.push_back(shown_frame(frame, bus_->name()));
}

}  // namespace nodevik_tool
