#include "recorder/replymark.h"

#include <gtest/gtest.h>

#include <vector>

namespace vehicle_recorder {
namespace {

std::vector<std::uint8_t> reply_with(std::uint8_t second, std::uint8_t step, std::uint8_t value) {
    std::vector<std::uint8_t> bytes;
    for (std::size_t slot = 0; slot < vehicle::slot_count; slot++) {
        const auto filler = static_cast<std::uint8_t>(second + slot * step);
        bytes.insert(bytes.end(), {value, filler, static_cast<std::uint8_t>(filler + 0x10)});
    }
    return bytes;
}

std::optional<ReplyMark> learned(const std::vector<std::vector<std::uint8_t>>& replies) {
    ReplyMarkLearner learner;
    for (const auto& reply : replies) {
        learner.look_at(reply);
    }
    return learner.mark();
}

TEST(ReplyMark, IsWhatStandsInEveryReplyBesideTheValues) {
    ReplyMarkLearner learner;
    for (std::size_t i = 0; i < ReplyMarkLearner::replies; i++) {
        EXPECT_FALSE(learner.is_ready());
        EXPECT_FALSE(learner.mark());
        learner.look_at(reply_with(0xA0, 1, 5));
    }
    ASSERT_TRUE(learner.is_ready());
    const std::optional<ReplyMark> mark = learner.mark();
    ASSERT_TRUE(mark);
    EXPECT_EQ(mark->size(), 26U);
    EXPECT_FALSE(mark->has(0));
    EXPECT_FALSE(mark->contradicts(0, 99));
    EXPECT_TRUE(mark->has(1));
    EXPECT_FALSE(mark->contradicts(1, 0xA0));
    EXPECT_TRUE(mark->contradicts(1, 0xA1));
    EXPECT_FALSE(mark->contradicts(38, 0xBC));
}

TEST(ReplyMark, BytesThatAreAllAlikeAreNone) {
    EXPECT_FALSE(learned(std::vector(ReplyMarkLearner::replies, reply_with(0, 0, 5))));
}

TEST(ReplyMark, BytesThatChangeAreNone) {
    std::vector<std::vector<std::uint8_t>> replies;
    for (std::size_t i = 0; i < ReplyMarkLearner::replies; i++) {
        replies.push_back(reply_with(static_cast<std::uint8_t>(i * 16), 1, 5));
    }
    EXPECT_FALSE(learned(replies));
}

TEST(ReplyMark, SomeOddRepliesDoNotHideIt) {
    std::vector<std::vector<std::uint8_t>> replies(ReplyMarkLearner::replies - 4, reply_with(0xA0, 1, 5));
    replies.insert(replies.begin(), 4, reply_with(0x11, 7, 5));
    ASSERT_TRUE(learned(replies));
    EXPECT_FALSE(learned(replies)->contradicts(1, 0xA0));
    replies[4] = replies[0];
    EXPECT_FALSE(learned(replies));
}

TEST(ReplyMark, OtherLengthsAreNotLookedAt) {
    ReplyMarkLearner learner;
    for (int i = 0; i < 100; i++) {
        learner.look_at(std::vector<std::uint8_t>(38));
        learner.look_at(std::vector<std::uint8_t>(40));
    }
    EXPECT_FALSE(learner.is_ready());
}

TEST(ReplyMark, IsForgottenWhenTold) {
    ReplyMarkLearner learner;
    for (std::size_t i = 0; i < ReplyMarkLearner::replies; i++) {
        learner.look_at(reply_with(0xA0, 1, 5));
    }
    learner.forget();
    EXPECT_FALSE(learner.is_ready());
    EXPECT_FALSE(learner.mark());
}

}  // namespace
}  // namespace vehicle_recorder
