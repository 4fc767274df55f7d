// Lines cut off at the edges of an area.

#include "tools/plot_view/lineclip.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace plot;

namespace {

const QRectF area(0, 0, 10, 10);

using Pieces = QList<QPolygonF>;

}  // namespace

TEST(LineClip, LeavesWhatIsInside) {
    const QPolygonF line = {{1, 1}, {5, 9}, {9, 1}};
    EXPECT_EQ(clipped(line, area), Pieces{line});
    EXPECT_EQ(clipped({QPointF(0, 0), QPointF(10, 10)}, area), (Pieces{{QPointF(0, 0), QPointF(10, 10)}}));
}

TEST(LineClip, TakesAwayWhatIsOutside) {
    EXPECT_EQ(clipped({QPointF(-5, -5), QPointF(-5, 20)}, area), Pieces());
    EXPECT_EQ(clipped({QPointF(-5, 6), QPointF(6, 20)}, area), Pieces());
    EXPECT_EQ(clipped({QPointF(20, 20)}, area), Pieces());
    EXPECT_EQ(clipped({}, area), Pieces());
}

TEST(LineClip, CutsAtTheEdgesWithTheSameSlope) {
    EXPECT_EQ(clipped({QPointF(-10, 5), QPointF(20, 5)}, area), (Pieces{{QPointF(0, 5), QPointF(10, 5)}}));
    const Pieces pieces = clipped({QPointF(5, -1e9), QPointF(6, 1e9)}, area);
    ASSERT_EQ(pieces.size(), 1);
    EXPECT_NEAR(pieces[0][0].x(), 5.5, 1e-6);
    EXPECT_NEAR(pieces[0][0].y(), 0, 1e-3);
    EXPECT_NEAR(pieces[0][1].y(), 10, 1e-3);
}

TEST(LineClip, BeginsAnewWhereTheLineComesBack) {
    const Pieces pieces = clipped({QPointF(2, 5), QPointF(2, 20), QPointF(8, 20), QPointF(8, 5)}, area);
    EXPECT_EQ(pieces, (Pieces{{QPointF(2, 5), QPointF(2, 10)}, {QPointF(8, 10), QPointF(8, 5)}}));
}

TEST(LineClip, ASinglePointInsideStays) {
    EXPECT_EQ(clipped({QPointF(3, 3)}, area), (Pieces{{QPointF(3, 3)}}));
}
