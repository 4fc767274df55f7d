#include "recorder/entrypipe.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <numeric>
#include <optional>
#include <string>
#include <vector>

using namespace vehicle_recorder;

namespace {

// Both ends, and what has come through.
class Passage {
public:
    Passage() {
        std::signal(SIGPIPE, SIG_IGN);
        std::array<int, 2> ends = {-1, -1};
        if (pipe(ends.data()) != 0) {
            std::abort();
        }
        reading_ = ends[0];
        receiver_.emplace(reading_);
        sender = std::make_unique<EntrySender>(ends[1]);
    }
    ~Passage() { stop_reading(); }
    Passage(const Passage&) = delete;
    Passage& operator=(const Passage&) = delete;

    bool read() {
        return receiver_->read([this](const Entry& entry) { entries.push_back(entry); },
                               [this](std::uint64_t count) { lost += count; });
    }

    void read_to_the_end() {
        sender.reset();
        while (read()) {
        }
    }

    void stop_reading() {
        if (reading_ >= 0) {
            close(reading_);
            reading_ = -1;
        }
    }

    int reading() const { return reading_; }

    std::unique_ptr<EntrySender> sender;
    std::vector<Entry> entries;
    std::uint64_t lost = 0;

private:
    int reading_ = -1;
    std::optional<EntryReceiver> receiver_;
};

std::vector<std::uint8_t> counting(std::size_t size) {
    std::vector<std::uint8_t> bytes(size);
    std::iota(bytes.begin(), bytes.end(), std::uint8_t{0});
    return bytes;
}

Entry entry(EntryKind kind, std::uint64_t time_us, const std::vector<std::uint8_t>& bytes = {}) {
    Entry result;
    result.kind = kind;
    result.time_us = time_us;
    result.bytes = bytes;
    return result;
}

}  // namespace

TEST(EntryPipe, EveryKindArrivesAsItWasSent) {
    Passage passage;
    LineSettings settings;
    settings.speed_baud = 38400;
    settings.format = "8N2";
    settings.flow = "rtscts";
    passage.sender->event(EntryKind::open, 1);
    passage.sender->settings(2, settings);
    passage.sender->bytes(EntryKind::sent, 3, counting(4));
    passage.sender->bytes(EntryKind::received, 4, counting(39));
    passage.sender->note(5, "in words");
    passage.sender->event(EntryKind::close, 6);
    passage.sender->end(7, 1000);
    passage.read_to_the_end();

    Entry line = entry(EntryKind::line, 2);
    line.settings = settings;
    Entry note = entry(EntryKind::note, 5);
    note.text = "in words";
    EXPECT_EQ(passage.entries,
              (std::vector<Entry>{entry(EntryKind::open, 1), line, entry(EntryKind::sent, 3, counting(4)),
                                  entry(EntryKind::received, 4, counting(39)), note,
                                  entry(EntryKind::close, 6), entry(EntryKind::end, 7)}));
    EXPECT_EQ(passage.lost, 0U);
}

TEST(EntryPipe, BytesThatAreTooManyForOnePieceArriveInOrder) {
    Passage passage;
    const std::vector<std::uint8_t> bytes = counting(10'000);
    passage.sender->bytes(EntryKind::received, 1, bytes);
    passage.read_to_the_end();
    std::vector<std::uint8_t> all;
    for (const Entry& piece : passage.entries) {
        all.insert(all.end(), piece.bytes.begin(), piece.bytes.end());
    }
    EXPECT_EQ(all, bytes);
}

TEST(EntryPipe, LongNoteIsCut) {
    Passage passage;
    passage.sender->note(1, std::string(9000, 'n'));
    passage.read_to_the_end();
    ASSERT_EQ(passage.entries.size(), 1U);
    EXPECT_EQ(passage.entries[0].text, std::string(4000, 'n'));
}

TEST(EntryPipe, ReaderThatDoesNotReadHoldsNobodyUpAndLossesAreCounted) {
    Passage passage;
    const std::vector<std::uint8_t> piece = counting(100);
    constexpr std::uint64_t pieces = 40'000;  // four times what the pipe takes
    for (std::uint64_t i = 0; i < pieces; i++) {
        passage.sender->bytes(EntryKind::sent, i, piece);
    }
    EXPECT_EQ(passage.sender->state(), EntrySender::State::behind);
    EXPECT_GT(passage.sender->lost(), 0U);
    passage.sender->event(EntryKind::close, pieces);  // what is rare still finds room
    passage.sender->end(pieces + 1, 1000);
    passage.read_to_the_end();

    ASSERT_GE(passage.entries.size(), 2U);
    EXPECT_EQ(passage.entries[passage.entries.size() - 2], entry(EntryKind::close, pieces));
    EXPECT_EQ(passage.entries.back(), entry(EntryKind::end, pieces + 1));
    std::uint64_t arrived = 0;
    for (std::size_t i = 0; i + 2 < passage.entries.size(); i++) {
        EXPECT_EQ(passage.entries[i], entry(EntryKind::sent, i, piece));
        arrived += piece.size();
    }
    EXPECT_EQ(arrived + passage.lost, pieces * piece.size());
}

TEST(EntryPipe, ReaderThatReadsAgainIsTakingAgainAndGetsToKnowTheLossFirst) {
    Passage passage;
    const std::vector<std::uint8_t> piece = counting(100);
    while (passage.sender->state() == EntrySender::State::taking) {
        passage.sender->bytes(EntryKind::sent, 1, piece);
    }
    const std::size_t limit = 200;
    for (std::size_t i = 0; i < limit && passage.sender->state() != EntrySender::State::taking; i++) {
        passage.read();
        passage.sender->bytes(EntryKind::sent, 2, piece);
    }
    EXPECT_EQ(passage.sender->state(), EntrySender::State::taking);
    EXPECT_EQ(passage.sender->lost(), 0U);
}

TEST(EntryPipe, ReaderThatIsGoneIsNoticed) {
    Passage passage;
    passage.stop_reading();
    passage.sender->bytes(EntryKind::sent, 1, counting(4));
    EXPECT_EQ(passage.sender->state(), EntrySender::State::gone);
    passage.sender->end(2, 60'000);  // waits for nothing
}

TEST(EntryPipe, EntryThatComesInPartsIsHandedOnWhenItIsWhole) {
    Passage whole;
    whole.sender->bytes(EntryKind::sent, 7, counting(50));
    std::array<char, 200> block = {};
    const ssize_t size = ::read(whole.reading(), block.data(), block.size());
    ASSERT_GT(size, 50);

    std::array<int, 2> ends = {-1, -1};
    ASSERT_EQ(pipe(ends.data()), 0);
    EntryReceiver receiver(ends[0]);
    std::vector<Entry> entries;
    const auto take = [&](const Entry& one) { entries.push_back(one); };
    const auto lose = [](std::uint64_t) {};
    for (ssize_t i = 0; i < size; i++) {
        EXPECT_TRUE(entries.empty());
        ASSERT_EQ(::write(ends[1], block.data() + i, 1), 1);
        EXPECT_TRUE(receiver.read(take, lose));
    }
    close(ends[1]);
    EXPECT_FALSE(receiver.read(take, lose));
    EXPECT_EQ(entries, std::vector<Entry>{entry(EntryKind::sent, 7, counting(50))});
    close(ends[0]);
}
