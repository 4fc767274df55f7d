// What is seen of a feed.

#include "tools/plot_view/livefeed.h"

#include <gtest/gtest.h>

#include <limits>

#include "nodevik/util/clientfunctions.h"

using namespace plot;

namespace {

class LiveFeedTest : public testing::Test {
protected:
    LiveFeedTest() { batch.resetmessage(); }

    void deliver() {
        feed.take({batch.getmessage(), static_cast<std::size_t>(batch.getmessagesize())});
        batch.resetmessage();
    }

    CClientFunctions batch;
    LiveFeed feed;
};

}  // namespace

TEST_F(LiveFeedTest, TablesAreSeriesWithTheirNamesColoursAndWidths) {
    batch.addmsg_name(2, "speed");
    batch.addmsg_color(2, BRIGHT_RED, 3);
    batch.addmsg_samplepos(7);
    batch.addmsg_data(2, 1.5);
    batch.addmsg_data(5, 2.5);
    deliver();
    const PlotData data = feed.data();
    ASSERT_EQ(data.series.size(), 2U);
    EXPECT_EQ(data.axis, TimeAxis::positions);
    EXPECT_EQ(data.series[0].id, 2U);
    EXPECT_EQ(data.series[0].name, "speed");
    EXPECT_EQ(data.series[0].color, 0xFF0000U);
    EXPECT_EQ(data.series[0].width, 3);
    EXPECT_EQ(data.series[0].times()[0], 7);
    EXPECT_EQ(data.series[0].values()[0], 1.5);
    EXPECT_EQ(data.series[1].id, 5U);
    EXPECT_EQ(data.series[1].name, "table 5");
    EXPECT_EQ(data.series[1].color, std::nullopt);
    EXPECT_EQ(data.series[1].width, 1);
}

TEST_F(LiveFeedTest, WantsItsRangeUpToTheNewestSampleToBeSeen) {
    EXPECT_EQ(feed.window(), (Interval{0, 499}));
    batch.addmsg_range(10);
    batch.addmsg_samplepos(14);
    batch.addmsg_data(0, 1);
    deliver();
    EXPECT_EQ(feed.window(), (Interval{5, 14}));
}

TEST_F(LiveFeedTest, WithAStepPositionsAreTimes) {
    feed = LiveFeed(0.5);
    batch.addmsg_range(11);
    batch.addmsg_samplepos(4);
    batch.addmsg_data(0, 1);
    deliver();
    EXPECT_EQ(feed.data().axis, TimeAxis::seconds);
    EXPECT_EQ(feed.data().series.at(0).times()[0], 2);
    EXPECT_EQ(feed.window(), (Interval{0, 5}));
}

TEST_F(LiveFeedTest, WhileDrawingIsStoppedItStaysAsItWasAtThatRecord) {
    batch.addmsg_data(0, 1);
    batch.addmsg_stopdraw(true);
    batch.addmsg_data(0, 2);
    batch.addmsg_range(10);
    deliver();
    EXPECT_EQ(feed.data().series.at(0).values()[0], 1);
    EXPECT_EQ(feed.window(), (Interval{0, 499}));
    batch.addmsg_data(0, 3);
    deliver();
    EXPECT_EQ(feed.data().series.at(0).values()[0], 1);
    batch.addmsg_stopdraw(false);
    deliver();
    EXPECT_EQ(feed.data().series.at(0).values()[0], 3);
    EXPECT_EQ(feed.window(), (Interval{0, 9}));
}

TEST_F(LiveFeedTest, WhatIsNoFiniteNumberIsNoSample) {
    batch.addmsg_data(0, 1);
    batch.addmsg_nextsamplepos();
    batch.addmsg_data(0, std::numeric_limits<double>::quiet_NaN());
    deliver();
    EXPECT_EQ(feed.data().series.at(0).size(), 1U);
}

TEST_F(LiveFeedTest, TellsWhenTheFeedStopsItsClient) {
    EXPECT_FALSE(feed.stopped());
    batch.addmsg_stop(1);
    deliver();
    EXPECT_TRUE(feed.stopped());
}
