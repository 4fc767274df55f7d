// The plotting client's decoder and model, fed by the library's own batches and by raw records.

#include "tools/plot_view/curvemodel.h"

#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <string>
#include <vector>

#include "nodevik/util/clientfunctions.h"

using namespace plot;

namespace {

using Record = std::array<std::uint8_t, plot_record_size>;

// A model and the batch that goes to it next.
class CurveModelTest : public testing::Test {
protected:
    CurveModelTest() { batch.resetmessage(); }

    void deliver() {
        model.take({batch.getmessage(), static_cast<std::size_t>(batch.getmessagesize())});
        batch.resetmessage();
    }

    std::vector<CurvePoint> points(std::uint8_t table) const {
        const auto found = model.curves().find(table);
        return found == model.curves().end()
                   ? std::vector<CurvePoint>()
                   : found->second.points(0, std::numeric_limits<std::uint32_t>::max());
    }

    CClientFunctions batch;
    CurveModel model;
};

using Points = std::vector<CurvePoint>;

}  // namespace

TEST(PlotRecord, IgnoresTheBytesThatALayoutDoesNotName) {
    Record record;
    record.fill(0xEE);
    record[0] = 1;
    record[1] = 7;
    const Record sample = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xF8, 0x3F};  // 1.5
    std::copy(sample.begin() + 4, sample.begin() + 12, record.begin() + 4);
    const auto decoded = decode_plot_record(record);
    ASSERT_TRUE(decoded.has_value());
    EXPECT_EQ(std::get<PlotSample>(*decoded).table, 7);
    EXPECT_EQ(std::get<PlotSample>(*decoded).sample, 1.5);
}

TEST(PlotRecord, DecodesAScaleLittleEndianWithItsSigns) {
    const Record record = {12, 0xEE, 0xEE, 0xEE, 0x2C, 1,    0,    0,    0,    0,
                           0,  0,    0,    0,    0,    0xC0, 0xFE, 0xFF, 0xFF, 0xFF};
    const auto decoded = decode_plot_record(record);
    ASSERT_TRUE(decoded.has_value());
    EXPECT_EQ(std::get<PlotScale>(*decoded).table, 300U);
    EXPECT_EQ(std::get<PlotScale>(*decoded).scale, -2.0);
    EXPECT_EQ(std::get<PlotScale>(*decoded).level, -2);
}

TEST(PlotRecord, CommandsWithoutALayoutDecodeToNothing) {
    for (unsigned command = 0; command < 256; ++command) {
        Record record{};
        record[0] = static_cast<std::uint8_t>(command);
        const bool known = (command >= 1 && command <= 9) || command == 12 || command == 14;
        EXPECT_EQ(decode_plot_record(record).has_value(), known) << command;
    }
}

TEST_F(CurveModelTest, SamplesGoToTheCurrentPositionOfTheirTable) {
    batch.addmsg_data(3, 1.5);
    batch.addmsg_data(4, -2.5);
    batch.addmsg_nextsamplepos();
    batch.addmsg_data(3, 2.5);
    deliver();
    EXPECT_EQ(points(3), (Points{{0, 1.5}, {1, 2.5}}));
    EXPECT_EQ(points(4), (Points{{0, -2.5}}));
    EXPECT_EQ(model.position(), 1U);
}

TEST_F(CurveModelTest, ASampleAtATakenPositionReplacesTheOneThere) {
    batch.addmsg_data(0, 1.0);
    batch.addmsg_nextsamplepos();
    batch.addmsg_samplepos(0);
    batch.addmsg_data(0, 9.0);
    deliver();
    EXPECT_EQ(points(0), (Points{{0, 9.0}}));
}

TEST_F(CurveModelTest, ASamplePositionIsGoneToAtOnce) {
    batch.addmsg_samplepos(70000);
    batch.addmsg_data(0, 1.0);
    deliver();
    EXPECT_EQ(points(0), (Points{{70000, 1.0}}));
}

TEST_F(CurveModelTest, ShortNamesAreTakenWholeUpToFourteenCharacters) {
    batch.addmsg_name(0, "speed");
    batch.addmsg_name(1, "fourteen chars");
    deliver();
    EXPECT_EQ(model.curves().at(0).name, "speed");
    EXPECT_EQ(model.curves().at(1).name, "fourteen chars");
}

TEST_F(CurveModelTest, LongNamesAreAssembledFromTheirParts) {
    const std::string names[] = {"fifteen letters", "twenty-four characters!!", "twenty-five characters!!!",
                                 std::string(255, 'x'), std::string(256, 'y')};
    for (const std::string& name : names) {
        batch.addmsg_name(5, name.c_str());
        deliver();
        EXPECT_EQ(model.curves().at(5).name, name);
    }
}

TEST_F(CurveModelTest, ALongNameStandsOnlyWhenItsLastPartHasCome) {
    batch.addmsg_name(2, "old");
    deliver();
    batch.addmsg_name(2, "a name of two parts");
    const std::uint8_t* bytes = batch.getmessage();
    model.take({bytes + plot_record_size, plot_record_size});
    EXPECT_EQ(model.curves().at(2).name, "old");
    model.take({bytes, plot_record_size});
    EXPECT_EQ(model.curves().at(2).name, "a name of two parts");
}

TEST_F(CurveModelTest, PartsOfANameOfAnotherLengthStartAnew) {
    batch.addmsg_name(2, "a name of two parts");
    model.take({batch.getmessage(), plot_record_size});
    batch.resetmessage();
    batch.addmsg_name(2, "another of two parts");
    model.take({batch.getmessage() + plot_record_size, plot_record_size});
    EXPECT_EQ(model.curves().at(2).name, "");
    model.take({batch.getmessage(), plot_record_size});
    EXPECT_EQ(model.curves().at(2).name, "another of two parts");
}

TEST_F(CurveModelTest, APartBeyondTheNamesLengthCountsForNothing) {
    model.take(Record{14, 1, 2, 15, 'x'});
    EXPECT_EQ(model.curves().at(1).name, "");
}

TEST_F(CurveModelTest, ANameThatIsShorterThanItsLengthSaysEndsAtItsPadding) {
    model.take(Record{14, 1, 0, 12, 'x', 'y'});
    EXPECT_EQ(model.curves().at(1).name, "xy");
}

TEST_F(CurveModelTest, ColourAndWidthAreKeptPerTable) {
    EXPECT_FALSE(model.curves().contains(6));
    batch.addmsg_color(6, BRIGHT_PURPLE, 3);
    batch.addmsg_color(7, static_cast<int>(0x7F000000U | YELLOW), 0);
    deliver();
    EXPECT_TRUE(model.curves().at(6).has_color);
    EXPECT_EQ(model.curves().at(6).color, 0xFF00FFU);
    EXPECT_EQ(model.curves().at(6).width, 3);
    EXPECT_EQ(model.curves().at(7).color, 0x008080U);
    EXPECT_EQ(model.curves().at(7).width, 1);
}

TEST_F(CurveModelTest, TheRangeIsHeldToWhatCanBeShown) {
    EXPECT_EQ(model.range(), 500U);
    for (const auto& [sent, taken] : {std::pair(250, 250U), {0, 2U}, {-1, CurveModel::longest_range}}) {
        batch.addmsg_range(sent);
        deliver();
        EXPECT_EQ(model.range(), taken);
    }
}

TEST_F(CurveModelTest, TheShownPositionsFollowTheNewestSample) {
    batch.addmsg_range(10);
    batch.addmsg_samplepos(9);
    batch.addmsg_data(0, 1.0);
    deliver();
    EXPECT_EQ(model.first_shown(), 0U);
    EXPECT_EQ(model.last_shown(), 9U);
    batch.addmsg_nextsamplepos();
    batch.addmsg_data(0, 1.0);
    deliver();
    EXPECT_EQ(model.first_shown(), 1U);
    EXPECT_EQ(model.last_shown(), 10U);
    batch.addmsg_samplepos(3);
    batch.addmsg_data(0, 1.0);
    deliver();
    EXPECT_EQ(model.first_shown(), 0U);
}

TEST_F(CurveModelTest, ResetForgetsTheSamplesAndKeepsTheCurves) {
    batch.addmsg_name(0, "speed");
    batch.addmsg_samplepos(5);
    batch.addmsg_data(0, 1.0);
    batch.addmsg_resetsamples();
    deliver();
    EXPECT_FALSE(model.curves().at(0).has_samples());
    EXPECT_EQ(model.curves().at(0).name, "speed");
    EXPECT_EQ(model.position(), 0U);
    EXPECT_EQ(model.first_shown(), 0U);
}

TEST_F(CurveModelTest, WhileStoppedSamplesAndPositionsAreDropped) {
    batch.addmsg_data(0, 1.0);
    batch.addmsg_stop(2);
    batch.addmsg_nextsamplepos();
    batch.addmsg_samplepos(40);
    batch.addmsg_data(0, 2.0);
    batch.addmsg_name(0, "named");
    deliver();
    EXPECT_TRUE(model.stopped());
    EXPECT_EQ(points(0), (Points{{0, 1.0}}));
    EXPECT_EQ(model.position(), 0U);
    EXPECT_EQ(model.curves().at(0).name, "named");
    batch.addmsg_stop(0);
    batch.addmsg_nextsamplepos();
    batch.addmsg_data(0, 3.0);
    deliver();
    EXPECT_FALSE(model.stopped());
    EXPECT_EQ(points(0), (Points{{0, 1.0}, {1, 3.0}}));
}

TEST_F(CurveModelTest, WhileDrawingIsStoppedSamplesAreTaken) {
    batch.addmsg_stopdraw(true);
    batch.addmsg_data(0, 1.0);
    deliver();
    EXPECT_TRUE(model.drawing_stopped());
    EXPECT_EQ(points(0), (Points{{0, 1.0}}));
    batch.addmsg_stopdraw(false);
    deliver();
    EXPECT_FALSE(model.drawing_stopped());
}

TEST_F(CurveModelTest, ScaleMultipliesAndLevelAdds) {
    batch.addmsg_data(1, 3.0);
    batch.addmsg_scale(1, 2.5, -4);
    deliver();
    EXPECT_EQ(points(1), (Points{{0, 3.5}}));
}

TEST_F(CurveModelTest, AScaleForATableThatCanHaveNoSamplesTouchesNoOther) {
    batch.addmsg_data(44, 1.0);
    batch.addmsg_scale(300, 2.0, -1);  // 44 in its low byte
    deliver();
    EXPECT_EQ(points(44), (Points{{0, 1.0}}));
    EXPECT_EQ(model.curves().size(), 1U);
}

TEST_F(CurveModelTest, SamplesThatAreNoFiniteNumbersAreNotShown) {
    batch.addmsg_data(0, std::numeric_limits<double>::quiet_NaN());
    batch.addmsg_nextsamplepos();
    batch.addmsg_data(0, std::numeric_limits<double>::infinity());
    batch.addmsg_nextsamplepos();
    batch.addmsg_data(0, 1.0);
    deliver();
    EXPECT_EQ(points(0), (Points{{2, 1.0}}));
}

TEST_F(CurveModelTest, ACurveKeepsTheSamplesOfTheLongestRange) {
    for (std::uint32_t i = 0; i < CurveModel::longest_range + 5; ++i) {
        batch.addmsg_data(0, i);
        batch.addmsg_nextsamplepos();
        deliver();
    }
    const Points kept = points(0);
    EXPECT_EQ(kept.size(), CurveModel::longest_range);
    EXPECT_EQ(kept.front().position, 5U);
    batch.addmsg_samplepos(0);
    batch.addmsg_data(0, -1.0);
    deliver();
    EXPECT_EQ(points(0).size(), CurveModel::longest_range);
    EXPECT_EQ(points(0).front(), (CurvePoint{0, -1.0}));
}

TEST_F(CurveModelTest, UnknownCommandsAndARestOfARecordCountForNothing) {
    batch.addmsg_data(0, 1.0);
    std::vector<std::uint8_t> bytes(plot_record_size, 0xFF);
    bytes.insert(bytes.end(), batch.getmessage(), batch.getmessage() + plot_record_size);
    bytes.insert(bytes.end(), {6, 0, 0});
    model.take(bytes);
    EXPECT_EQ(points(0), (Points{{0, 1.0}}));
    model.take({});
    EXPECT_EQ(points(0), (Points{{0, 1.0}}));
}
