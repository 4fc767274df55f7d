// Recordings of frames as curves.

#include "tools/plot_view/framerecording.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

using namespace plot;

namespace {

using Texts = std::vector<std::string>;

std::string frame(double time, const std::string& identifier, const std::string& data,
                  const std::string& more = {}, const std::string& bus = "can0") {
    return "{\"time\":" + std::to_string(time) + ",\"bus\":\"" + bus + "\",\"id\":\"" + identifier +
           "\",\"length\":" + std::to_string(data.size() / 2) + ",\"data\":\"" + data + "\"" + more + "}\n";
}

Texts names(const Recording& recording) {
    Texts result;
    for (const Series& series : recording.data.series) {
        result.push_back(series.name);
    }
    return result;
}

Texts shown(const Recording& recording) {
    Texts result;
    for (const Series& series : recording.data.series) {
        if (series.shown) {
            result.push_back(series.name);
        }
    }
    return result;
}

std::vector<double> values(const Recording& recording, const std::string& name) {
    for (const Series& series : recording.data.series) {
        if (series.name == name) {
            return {series.values().begin(), series.values().end()};
        }
    }
    return {};
}

std::string object(const std::string& name, const std::string& value) {
    return R"({"index":"0x6040","sub":0,"name":")" + name + R"(","type":"u16","value":)" + value + "}";
}

using Values = std::vector<double>;

}  // namespace

TEST(ReadFrames, BytesThatChangeAreCurves) {
    const Recording recording =
        read_frames(frame(10, "0x185", "2a01") + frame(10.5, "0x185", "2b01") + frame(11, "0x185", "2c01"));
    EXPECT_EQ(names(recording), (Texts{"0x185 byte 0", "0x185 frames"}));
    EXPECT_EQ(shown(recording), (Texts{"0x185 byte 0"}));
    EXPECT_EQ(values(recording, "0x185 byte 0"), (Values{0x2A, 0x2B, 0x2C}));
    EXPECT_EQ(values(recording, "0x185 frames"), (Values{1, 2, 3}));
    EXPECT_EQ(recording.data.series[0].times()[1], 10.5);
    EXPECT_EQ(recording.notes, Texts());
}

TEST(ReadFrames, WhereNothingChangesTheCountsAreShown) {
    const Recording recording =
        read_frames(frame(0, "0x080", "") + frame(1, "0x080", "", ",\"remote\":true"));
    EXPECT_EQ(shown(recording), (Texts{"0x080 frames"}));
}

TEST(ReadFrames, NamedObjectsTakeThePlaceOfBytes) {
    const std::string node = R"(,"kind":"tpdo1","node":5,"objects":[)";
    const Recording recording = read_frames(
        frame(0, "0x185", "2a01", node + object("Motor speed", "298") + "," + object("On", "false") + "]") +
        frame(1, "0x185", "2b01", node + object("Motor speed", "-3.5") + "," + object("On", "true") + "]") +
        frame(2, "0x205", "00") + frame(3, "0x205", "01"));
    EXPECT_EQ(names(recording),
              (Texts{"5 Motor speed", "5 On", "0x205 byte 0", "0x185 frames", "0x205 frames"}));
    EXPECT_EQ(values(recording, "5 Motor speed"), (Values{298, -3.5}));
    EXPECT_EQ(values(recording, "5 On"), (Values{0, 1}));
}

TEST(ReadFrames, TakesWhatTheCommandForABusWrites) {
    const Recording recording = read_frames(
        R"({"time":1764000000.0,"bus":"can0","id":"0x181","length":8,"data":"0102030405060708","kind":"tpdo1",)"
        R"("node":1,"objects":[{"index":"0x6000","sub":1,"name":"Read input 8-bit/Read inputs 1","type":"u8","value":1}]})"
        "\n"
        R"({"time":1764000000.25,"bus":"can0","id":"0x701","length":1,"data":"05","kind":"heartbeat","node":1})"
        "\n"
        R"({"time":1764000000.3,"bus":"can0","id":"0x601","length":0,"data":"","kind":"guard","node":1,"remote":true})"
        "\n");
    EXPECT_EQ(names(recording),
              (Texts{"1 Read input 8-bit/Read inputs 1", "0x181 frames", "0x601 frames", "0x701 frames"}));
    EXPECT_EQ(values(recording, "1 Read input 8-bit/Read inputs 1"), Values{1});
    EXPECT_EQ(recording.notes, Texts());
}

TEST(ReadFrames, ObjectsWithoutANumberAreNoCurves) {
    const Recording recording = read_frames(
        frame(0, "0x585", "00", ",\"objects\":[" + object("Name", "\"abc\"") + ",7,{\"name\":\"x\"}]"));
    EXPECT_EQ(names(recording), (Texts{"0x585 frames"}));
}

TEST(ReadFrames, TheSameNameOfTwoNodesIsTwoCurves) {
    const std::string list = R"(,"objects":[)" + object("Speed", "1") + "]";
    const Recording recording = read_frames(frame(0, "0x185", "", ",\"node\":5" + list) +
                                            frame(0, "0x186", "", ",\"node\":6" + list));
    EXPECT_EQ(shown(recording), (Texts{"5 Speed", "6 Speed"}));
}

TEST(ReadFrames, SeveralBusesAreNamed) {
    const Recording recording =
        read_frames(frame(0, "0x185", "00") + frame(1, "0x185", "01") + frame(2, "0x185", "00", "", "can1"));
    EXPECT_EQ(names(recording), (Texts{"can0 0x185 byte 0", "can0 0x185 frames", "can1 0x185 frames"}));
}

TEST(ReadFrames, ErrorsAreCountedTogether) {
    const Recording recording = read_frames(frame(0, "0x20000004", "0001000000000000", ",\"error\":true") +
                                            frame(1, "0x20000040", "0000000000000000", ",\"error\":true"));
    EXPECT_EQ(names(recording), (Texts{"error frames"}));
    EXPECT_EQ(values(recording, "error frames"), (Values{1, 2}));
}

TEST(ReadFrames, AtFirstSixteenCurvesAreShown) {
    std::string text;
    for (int identifier = 0; identifier < 5; ++identifier) {
        const std::string name = "0x18" + std::to_string(identifier);
        text += frame(0, name, "0000000000") + frame(1, name, "0101010101");
    }
    const Recording recording = read_frames(text);
    EXPECT_EQ(recording.data.series.size(), 30U);
    EXPECT_EQ(shown(recording).size(), shown_curves);
    EXPECT_EQ(shown(recording).back(), "0x183 byte 0");
}

TEST(ReadFrames, TimesOfAClockAreShownAsSuch) {
    EXPECT_EQ(read_frames(frame(1764000000, "0x080", "")).data.axis, TimeAxis::clock);
    EXPECT_EQ(read_frames(frame(3, "0x080", "")).data.axis, TimeAxis::seconds);
}

TEST(ReadFrames, LinesThatAreNoFramesAreLeftOutAndNoted) {
    const std::string good = frame(0, "0x080", "");
    for (const std::string& bad :
         {std::string("{\"time\":1,\"id\":\"0x0"), std::string("[1,2]"), std::string("12"),
          std::string("{\"node\":1,\"state\":\"lost\"}"), std::string("{\"time\":\"1\",\"id\":\"0x080\"}"),
          std::string("{\"time\":1,\"id\":\"0x080\",\"data\":\"0\"}"),
          std::string("{\"time\":1,\"id\":\"0x080\",\"data\":\"0x\"}"),
          std::string("{\"time\":1,\"id\":\"0x080\",\"data\":\"000102030405060708\"}"),
          std::string("{\"time\":null,\"id\":\"0x080\"}"), std::string("{\"time\":1,\"id\":7}")}) {
        const Recording recording = read_frames(good + bad + "\n\n" + good);
        EXPECT_EQ(values(recording, "0x080 frames").size(), 2U) << bad;
        EXPECT_EQ(recording.notes, Texts{"line 2 is no frame and left out"}) << bad;
    }
}

TEST(ReadFrames, ATornLineAtTheEndIsLeftOut) {
    const std::string good = frame(0, "0x080", "");
    const Recording recording = read_frames(good + good.substr(0, good.size() / 2));
    EXPECT_EQ(recording.notes, Texts{"line 2 is no frame and left out"});
}

TEST(ReadFrames, AFileWithoutFramesIsRefused) {
    try {
        read_frames("{\"node\":1}\n");
        FAIL();
    } catch (const BadFile& failure) {
        EXPECT_STREQ(failure.what(), "holds no frames as 'nodevik --json monitor' writes them");
    }
}
