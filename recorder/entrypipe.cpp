#include "recorder/entrypipe.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <string>
#include <utility>

namespace vehicle_recorder {

namespace {

constexpr int wanted_capacity = 1 << 20;
constexpr std::size_t least_capacity = 65'536;

// Beside the kinds of entries: a number of bytes that were not handed over.
constexpr std::uint32_t kind_of_loss = 1000;

struct Head {
    std::uint64_t time_us;
    std::uint32_t kind;
    std::uint32_t size;  // of what follows
};

// As long as head and data fit into this, a write(2) is taken whole or not at all (pipe(7)).
constexpr std::size_t most_data = PIPE_BUF - sizeof(Head);
constexpr std::size_t most_text = 4000;
static_assert(most_text <= most_data);

std::span<const std::uint8_t> bytes_of(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

// Settings travel as text: speed, format, flow control.
LineSettings settings_of(std::string_view text) {
    LineSettings settings;
    const std::size_t first = text.find(' ');
    const std::size_t second = text.find(' ', first + 1);
    settings.speed_baud = static_cast<unsigned>(std::stoul(std::string(text.substr(0, first))));
    settings.format = text.substr(first + 1, second - first - 1);
    settings.flow = text.substr(second + 1);
    return settings;
}

void fill(Entry& entry, std::span<const std::uint8_t> data) {
    const std::string_view text(reinterpret_cast<const char*>(data.data()), data.size());
    if (entry.kind == EntryKind::sent || entry.kind == EntryKind::received) {
        entry.bytes.assign(data.begin(), data.end());
    } else if (entry.kind == EntryKind::note) {
        entry.text = text;
    } else if (entry.kind == EntryKind::line) {
        entry.settings = settings_of(text);
    }
}

}  // namespace

EntrySender::EntrySender(int pipe) : pipe_(pipe) {
    fcntl(pipe_, F_SETFL, fcntl(pipe_, F_GETFL) | O_NONBLOCK);
    fcntl(pipe_, F_SETPIPE_SZ, wanted_capacity);
    capacity_ = std::max(static_cast<std::size_t>(std::max(fcntl(pipe_, F_GETPIPE_SZ), 0)), least_capacity);
}

EntrySender::~EntrySender() {
    close(pipe_);
}

void EntrySender::bytes(EntryKind kind, std::uint64_t time_us, std::span<const std::uint8_t> data) {
    while (!data.empty()) {
        const auto piece = data.first(std::min(data.size(), most_data));
        if (!has_room_for_bytes(time_us) || !send(static_cast<std::uint32_t>(kind), time_us, piece)) {
            lost_ += piece.size();
        }
        data = data.subspan(piece.size());
    }
}

void EntrySender::event(EntryKind kind, std::uint64_t time_us) {
    send(static_cast<std::uint32_t>(kind), time_us, {});
}

void EntrySender::note(std::uint64_t time_us, std::string_view text) {
    send(static_cast<std::uint32_t>(EntryKind::note), time_us, bytes_of(text.substr(0, most_text)));
}

void EntrySender::settings(std::uint64_t time_us, const LineSettings& settings) {
    const std::string text =
        std::to_string(settings.speed_baud) + " " + settings.format + " " + settings.flow;
    send(static_cast<std::uint32_t>(EntryKind::line), time_us, bytes_of(text));
}

void EntrySender::end(std::uint64_t time_us, int limit_ms) {
    pollfd room = {pipe_, POLLOUT, 0};
    if (state_ != State::gone && poll(&room, 1, limit_ms) > 0) {
        send_loss(time_us);
        event(EntryKind::end, time_us);
    }
}

void EntrySender::send_loss(std::uint64_t time_us) {
    std::array<std::uint8_t, sizeof lost_> count;
    std::memcpy(count.data(), &lost_, sizeof lost_);
    if (lost_ > 0 && send(kind_of_loss, time_us, count)) {
        lost_ = 0;
    }
}

bool EntrySender::send(std::uint32_t kind, std::uint64_t time_us, std::span<const std::uint8_t> data) {
    if (state_ == State::gone) {
        return false;
    }
    std::array<std::uint8_t, PIPE_BUF> block;
    const Head head = {.time_us = time_us, .kind = kind, .size = static_cast<std::uint32_t>(data.size())};
    std::memcpy(block.data(), &head, sizeof head);
    std::copy(data.begin(), data.end(), block.begin() + sizeof head);
    const std::size_t size = sizeof head + data.size();
    ssize_t written = -1;
    do {
        written = ::write(pipe_, block.data(), size);
    } while (written < 0 && errno == EINTR);
    if (written < 0) {
        state_ = errno == EAGAIN ? State::behind : State::gone;
    }
    return written == static_cast<ssize_t>(size);
}

std::size_t EntrySender::filled() const {
    int count = 0;
    return ioctl(pipe_, FIONREAD, &count) == 0 ? static_cast<std::size_t>(count) : 0;
}

bool EntrySender::has_room_for_bytes(std::uint64_t time_us) {
    if (state_ == State::gone) {
        return false;
    }
    const std::size_t limit = state_ == State::behind ? capacity_ / 2 : capacity_ / 4 * 3;
    if (filled() >= limit) {
        state_ = State::behind;
        return false;
    }
    state_ = State::taking;
    send_loss(time_us);
    return state_ == State::taking;
}

bool EntryReceiver::read(const TakeEntry& take_entry, const TakeLoss& take_loss) {
    constexpr std::size_t room = 65'536;
    const std::size_t before = begun_.size();
    begun_.resize(before + room);
    ssize_t count = -1;
    do {
        count = ::read(pipe_, begun_.data() + before, room);
    } while (count < 0 && errno == EINTR);
    begun_.resize(before + static_cast<std::size_t>(std::max<ssize_t>(count, 0)));

    std::span<const std::uint8_t> left = begun_;
    Head head = {};
    while (left.size() >= sizeof head) {
        std::memcpy(&head, left.data(), sizeof head);
        if (left.size() < sizeof head + head.size) {
            break;
        }
        const auto data = left.subspan(sizeof head, head.size);
        if (head.kind == kind_of_loss) {
            std::uint64_t lost = 0;
            std::memcpy(&lost, data.data(), sizeof lost);
            take_loss(lost);
        } else {
            Entry entry;
            entry.time_us = head.time_us;
            entry.kind = static_cast<EntryKind>(head.kind);
            fill(entry, data);
            take_entry(entry);
        }
        left = left.subspan(sizeof head + head.size);
    }
    begun_.erase(begun_.begin(), begun_.end() - static_cast<std::ptrdiff_t>(left.size()));
    return count > 0;
}

}  // namespace vehicle_recorder
