#include "recorder/cyclewords.h"

#include <gtest/gtest.h>

namespace vehicle_recorder {
namespace {

Cycle answered(std::size_t bytes, std::size_t ahead = 0, bool is_whole = true) {
    Cycle cycle;
    cycle.number = 12;
    cycle.time_us = 1000000;
    cycle.frame = {40, 103, 110, 'Q'};
    Reply reply;
    reply.first_us = 1012041;
    reply.last_us = 1012041;
    reply.bytes.assign(bytes, 0);
    reply.ahead = ahead;
    reply.is_whole = is_whole;
    cycle.reply = reply;
    cycle.state = ahead > 0 ? ReplyState::garbled : is_whole ? ReplyState::whole : ReplyState::too_short;
    return cycle;
}

std::string english(const Cycle& cycle) {
    return reply_words(cycle, Language::english);
}

TEST(FrameWords, TellSetPointsAndMotor) {
    const Cycle cycle = answered(39);
    EXPECT_EQ(frame_words(cycle, Language::english),
              "frame 12: throttle 40, direction 103, bucket 110, motor on");
    EXPECT_EQ(frame_words(cycle, Language::finnish),
              "viesti 12: kaasu 40, suunta 103, kauha 110, moottori päällä");
}

TEST(FrameWords, TellTheFrameThatBringsToRest) {
    Cycle cycle = answered(39);
    cycle.frame = {0, 103, 110, 'P'};
    EXPECT_EQ(frame_words(cycle, Language::english),
              "frame 12: throttle 0, direction 103, bucket 110, motor off (at rest)");
}

TEST(FrameWords, DoNotGuessWhenTheStepIsLost) {
    Cycle cycle = answered(39);
    cycle.frame = {110, 'P', 0, 103};
    cycle.step_lost = true;
    EXPECT_EQ(frame_words(cycle, Language::english),
              "frame 12: no motor command, the step is lost: 6e 50 00 67");
}

TEST(ReplyWords, TellTelemetryAsThePanelShowsIt) {
    Cycle cycle = answered(39);
    cycle.reply->bytes[0] = 0x70;
    cycle.reply->bytes[3] = 0xBD;
    cycle.reply->bytes[6] = 2;
    cycle.reply->bytes[9] = 8;
    cycle.reply->bytes[15] = 6;
    cycle.reply->bytes[21] = 100;
    cycle.reply->bytes[24] = 0xFF;
    cycle.reply->bytes[27] = 0xFF;
    cycle.reply->bytes[30] = 0xFF;
    cycle.reply->bytes[33] = 0xFF;
    EXPECT_EQ(
        english(cycle),
        "reply to 12 after 12.041 ms: speed 1280 rpm, voltage 520, current 6, capacity 100 Ah, latitude -1");
    EXPECT_EQ(reply_words(cycle, Language::finnish),
              "vastaus viestiin 12, viive 12.041 ms: nopeus 1280 rpm, jännite 520, virta 6, kapasiteetti "
              "100 Ah, "
              "leveysaste -1");
}

TEST(ReplyWords, TellWhatIsWrong) {
    EXPECT_EQ(english(answered(2, 0, false)), "reply to 12 after 12.041 ms: short, 2 of 39 bytes: 00 00");
    EXPECT_EQ(
        english(answered(44, 5)),
        "reply to 12 after 12.041 ms: garbled, 5 bytes ahead of it: speed 10737 rpm, voltage 0, current 0, "
        "capacity 0 Ah, latitude 0");
    EXPECT_EQ(english(answered(13, 13, false)),
              "reply to 12 after 12.041 ms: garbled, 13 bytes that read as no reply: 00 00 00 00 00 00 00 00 "
              "00 00 00 "
              "00 ...");
    Cycle late = answered(1, 0, false);
    late.late = true;
    EXPECT_EQ(english(late), "reply to 12 after 12.041 ms, late: short, 1 of 39 bytes: 00");
}

TEST(ReplyWords, TellThatThereIsNone) {
    Cycle cycle = answered(39);
    cycle.reply.reset();
    cycle.state = ReplyState::missing;
    EXPECT_EQ(english(cycle), "reply to 12: missing");
    cycle.state = ReplyState::closed;
    EXPECT_EQ(english(cycle), "reply to 12: not known, the line was closed");
}

TEST(ReplyWords, TellOfBytesThatAnswerNoFrame) {
    Cycle cycle = answered(3, 3, false);
    cycle.number = 0;
    EXPECT_EQ(english(cycle), "answer to no frame: 3 bytes: 00 00 00");
}

TEST(EventWords, TellWhatBecomesOfTheLine) {
    Entry entry;
    const auto words = [&entry](EntryKind kind) {
        entry.kind = kind;
        return event_words(entry, Language::english);
    };
    entry.settings = {.speed_baud = 9600, .format = "8N1", .flow = "none"};
    entry.text = "the program ended with status 0";
    EXPECT_EQ(words(EntryKind::open), "the line is opened");
    EXPECT_EQ(words(EntryKind::line), "the line is set to 9600 baud, 8N1");
    EXPECT_EQ(words(EntryKind::close), "the line is closed");
    EXPECT_EQ(words(EntryKind::note), "note: the program ended with status 0");
    EXPECT_EQ(words(EntryKind::end), "the recording is ended");
    entry.settings.flow = "rtscts";
    EXPECT_EQ(words(EntryKind::line), "the line is set to 9600 baud, 8N1, flow control rtscts");
}

}  // namespace
}  // namespace vehicle_recorder
