// The field of the plotting window: its pixels, the mouse, the keys, and what assistive technology is told.

#include "tools/plot_view/plotview.h"

#include <QAccessible>
#include <QImage>
#include <QSignalSpy>
#include <QWheelEvent>
#include <QtTest>
#include <cmath>
#include <limits>

using namespace plot;

namespace {

constexpr double none = std::numeric_limits<double>::quiet_NaN();
constexpr int limit_ms = 30000;
constexpr std::uint32_t red = 0xFF0000;
constexpr std::uint32_t blue = 0x0000FF;

Series series_of(unsigned id, const std::vector<Point>& points, std::optional<std::uint32_t> color = red) {
    Series series;
    series.id = id;
    series.name = "curve " + std::to_string(id);
    series.color = color;
    series.width = 5;
    for (const Point& point : points) {
        series.append(point.time, point.value);
    }
    return series;
}

// A level line from 0 to 20.
Series level(unsigned id, double value, std::optional<std::uint32_t> color = red) {
    return series_of(id, {{0, value}, {10, value}, {20, value}}, color);
}

int count_pixels(const QImage& image, const QRectF& area, const QColor& color) {
    int count = 0;
    const QRect inside = area.toAlignedRect().intersected(image.rect());
    for (int y = inside.top(); y <= inside.bottom(); ++y) {
        for (int x = inside.left(); x <= inside.right(); ++x) {
            count += image.pixelColor(x, y) == color ? 1 : 0;
        }
    }
    return count;
}

QStringList descriptions;  // that were told to assistive technology

}  // namespace

// The toolkit's way to assistive technology starts with these two. They stand in for it: the offscreen platform leads to
// none.

bool QAccessible::isActive() {
    return true;
}

void QAccessible::updateAccessibility(QAccessibleEvent* event) {
    if (event->type() == QAccessible::DescriptionChanged) {
        descriptions += qobject_cast<QWidget*>(event->object())->accessibleDescription();
    }
}

class PlotViewTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() {
        view_ = std::make_unique<PlotView>();
        view_->set_dark(false);
        view_->resize(500, 400);
        view_->show();
        QVERIFY(QTest::qWaitForWindowExposed(view_.get(), limit_ms));
    }
    void cleanup() { view_.reset(); }

    void anEmptyFieldSaysSo() {
        const QRectF field = view_->field();
        QCOMPARE(grab().pixelColor(field.center().toPoint() + QPoint(3, 40)), view_->field_color());
        const QRectF middle(field.center() - QPointF(60, 12), QSizeF(120, 24));
        QVERIFY(count_pixels(grab(), middle, view_->field_color()) < 120 * 24);
    }

    void aCurveStandsAtItsHeightInItsColour() {
        show({series_of(0, {{0, 0}, {10, 5}, {20, 10}})});
        const QImage image = grab();
        for (const Point& point : {Point{1, 0.5}, {10, 5}, {15, 7.5}, {19, 9.5}}) {
            QCOMPARE(color_at(image, point.time, point.value), QColor(Qt::red));
        }
        QCOMPARE(color_at(image, 10.4, 7.3), QColor(Qt::white));
    }

    void timeGoesRightAndValuesGoUp() {
        show({series_of(0, {{0, 0}, {20, 10}})});
        const QRectF field = view_->field();
        QCOMPARE(view_->place(0, 0), field.bottomLeft());
        QCOMPARE(view_->place(20, 10), field.topRight());
        QCOMPARE(view_->time_at(field.center().x()), 10.0);
        QCOMPARE(view_->value_at(field.center().y()), 5.0);
    }

    void smallValuesAndSmallDifferencesFillTheField_data() {
        QTest::addColumn<double>("low");
        QTest::addColumn<double>("high");
        QTest::newRow("thousandths") << -0.001 << 0.001;
        QTest::newRow("a milliard and one") << 1e9 - 1 << 1e9 + 1;
        QTest::newRow("greatest numbers") << -1e300 << 1e300;
        QTest::newRow("least numbers") << 0.0 << 1e-290;
    }
    void smallValuesAndSmallDifferencesFillTheField() {
        QFETCH(double, low);
        QFETCH(double, high);
        show({series_of(0, {{0, low}, {10, high}, {20, low}})});
        QVERIFY(view_->place(0, low).y() - view_->place(0, high).y() > view_->field().height() / 2);
        const QImage image = grab();
        QCOMPARE(color_at(image, 5, low / 2 + high / 2), QColor(Qt::red));
        QVERIFY(count_pixels(image, QRectF(0, 0, view_->field().left() - 6, 400), window_color()) <
                view_->field().left() * 390);
    }

    void theValuesOfTheTimesShownFillTheField() {
        show({series_of(0, {{0, 0}, {10, 1}, {20, 1000}})});
        view_->show_time({0, 10});
        QVERIFY(view_->values_shown().high <= 2);
        view_->follow();
        QVERIFY(view_->values_shown().high >= 1000);
    }

    void onlyTheTimesShownAreDrawn() {
        show({series_of(0, {{-10, 5}, {-5, 5}, {0, 0}, {20, 0}, {25, 5}})}, {0, 20});
        const QRectF field = view_->field();
        QCOMPARE(count_pixels(grab(), QRectF(0, 0, field.left() - 1, 400), Qt::red), 0);
        QCOMPARE(count_pixels(grab(), QRectF(field.right() + 2, 0, 50, 400), Qt::red), 0);
    }

    void valuesThatAreNoneAreGaps() {
        show({series_of(0, {{0, 1}, {5, 1}, {8, none}, {12, 1}, {20, 1}})});
        const QImage image = grab();
        QCOMPARE(color_at(image, 3, 1), QColor(Qt::red));
        QVERIFY(color_at(image, 8, 1) != QColor(Qt::red));
        QVERIFY(color_at(image, 10.5, 1) != QColor(Qt::red));
        QCOMPARE(color_at(image, 15, 1), QColor(Qt::red));
    }

    void aSingleSampleIsADot() {
        show({series_of(0, {{10, 5}})}, {0, 20});
        const QImage image = grab();
        QCOMPARE(color_at(image, 10, 5), QColor(Qt::red));
        QVERIFY(color_at(image, 9, 5) != QColor(Qt::red));
    }

    void samplesThatStandFarApartHaveDots() {
        show({level(0, 5)});
        const QPoint sample = view_->place(10, 5).toPoint();
        const QPoint between = view_->place(5, 5).toPoint();
        const QImage image = grab();
        QCOMPARE(image.pixelColor(between - QPoint(0, 1)), QColor(Qt::red));
        QVERIFY(image.pixelColor(between - QPoint(0, 3)) != QColor(Qt::red));
        QCOMPARE(image.pixelColor(sample - QPoint(0, 3)), QColor(Qt::red));
    }

    // Wide lines that cross themselves a thousand times take seconds to draw: sharp ones of one pixel are drawn then, as
    // for a million of samples.
    void aRestlessCurveIsDrawnAsADenseOne_data() {
        QTest::addColumn<int>("samples");
        QTest::addColumn<bool>("sharp");
        QTest::newRow("some") << 20 << false;
        QTest::newRow("hundreds") << 700 << true;
        QTest::newRow("thousands") << 7000 << true;
    }
    void aRestlessCurveIsDrawnAsADenseOne() {
        QFETCH(int, samples);
        QFETCH(bool, sharp);
        Series series;
        series.color = red;
        for (int i = 0; i < samples; ++i) {
            series.append(i, i * 37 % 101);
        }
        show({series}, {0, samples - 1.0});
        const QImage image = grab();
        int soft = 0;
        const QRect inside = view_->field().toAlignedRect().adjusted(2, 2, -2, -2);
        for (int y = inside.top(); y <= inside.bottom(); ++y) {
            for (int x = inside.left(); x <= inside.right(); ++x) {
                const QColor color = image.pixelColor(x, y);
                soft += color.red() > color.green() + 10 && color != QColor(Qt::red) ? 1 : 0;
            }
        }
        QCOMPARE(soft == 0, sharp);
    }

    void dashesGoOnAlongALineOfManySamples() {
        Series series;
        series.id = 7;  // the first that has dashes
        for (int i = 0; i <= 80; ++i) {
            series.append(i, 5);
        }
        show({series}, {0, 80});
        const QImage image = grab();
        const int y = view_->place(40, 5).toPoint().y();
        std::vector<int> lengths;
        bool was_drawn = false;
        for (int x = static_cast<int>(view_->field().left()) + 2; x < view_->field().right() - 2; ++x) {
            const bool is_drawn = image.pixelColor(x, y).green() < 180;
            if (is_drawn != was_drawn) {
                lengths.push_back(0);
            }
            was_drawn = is_drawn;
            if (!lengths.empty()) {
                ++lengths.back();
            }
        }
        QVERIFY(lengths.size() > 20);
        for (std::size_t i = 2; i + 3 < lengths.size(); ++i) {
            QVERIFY2(std::abs(lengths[i] - lengths[i + 2]) <= 1, std::to_string(i).c_str());
        }
    }

    void ofManySamplesNoPeakIsMissed() {
        Series series;
        series.color = red;
        for (int i = 0; i < 200'000; ++i) {
            series.append(i, i == 123'456 ? 10 : 0);
        }
        show({series}, {0, 200'000});
        const QPointF peak = view_->place(123'456, 5);
        QVERIFY(count_pixels(grab(), QRectF(peak.x() - 2, peak.y(), 4, 1), Qt::red) > 0);
    }

    void theLineIsAsWideAsItWasAskedFor() {
        Series series = level(0, 5);
        series.width = 9;
        show({series});
        const QPoint middle = view_->place(5, 5).toPoint();
        const QImage image = grab();
        QCOMPARE(image.pixelColor(middle + QPoint(0, 3)), QColor(Qt::red));
        QVERIFY(image.pixelColor(middle + QPoint(0, 7)) != QColor(Qt::red));
    }

    void aColourThatIsFaintOnTheFieldGetsABorder() {
        show({level(0, 5, 0xFFFFFF)});
        const QImage image = grab();
        QCOMPARE(color_at(image, 5, 5), QColor(Qt::white));
        const QPointF line = view_->place(5, 5);
        const auto has_dark_pixels = [&](const QImage& picture) {
            bool found = false;
            for (int y = -6; y <= 6; ++y) {
                found = found || picture.pixelColor(line.toPoint() + QPoint(0, y)).lightness() < 140;
            }
            return found;
        };
        QVERIFY(has_dark_pixels(image));
        view_->set_curve_shown(0, false);
        QVERIFY(!has_dark_pixels(grab()));
        show({level(1, 5, 0xC0C0C0)});
        QVERIFY(!has_dark_pixels(grab()));
    }

    void curvesWithoutAColourDiffer() {
        show({level(0, 5, std::nullopt), level(1, 8, std::nullopt)});
        QVERIFY(view_->color_of(view_->data().series[0]) != view_->color_of(view_->data().series[1]));
        QCOMPARE(color_at(grab(), 5, 5), view_->color_of(view_->data().series[0]));
        QVERIFY(view_->style_of(series_of(0, {}, std::nullopt)) !=
                view_->style_of(series_of(7, {}, std::nullopt)));
        QCOMPARE(view_->style_of(series_of(7, {}, red)), Qt::SolidLine);
    }

    void theFieldIsLightOrDark() {
        show({level(0, 5)});
        const QPoint empty = view_->field().topLeft().toPoint() + QPoint(7, 7);
        QCOMPARE(grab().pixelColor(empty), QColor(Qt::white));
        view_->set_dark(true);
        QCOMPARE(grab().pixelColor(empty), view_->field_color());
        QVERIFY(view_->field_color().lightness() < 50);
    }

    void aDarkPaletteMakesADarkField() {
        QPalette palette;
        palette.setColor(QPalette::Window, Qt::black);
        QApplication::setPalette(palette);
        const PlotView view;
        QApplication::setPalette(QPalette());
        QVERIFY(view.is_dark());
        QVERIFY(!PlotView().is_dark());
    }

    void curvesAreSwitchedOffAndOn() {
        show({level(0, 5), level(1, 8, blue)});
        view_->set_curve_shown(0, false);
        QCOMPARE(count_pixels(grab(), view_->field(), Qt::red), 0);
        QVERIFY(count_pixels(grab(), view_->field(), Qt::blue) > 0);
        QVERIFY(!view_->shown_data().series[0].shown);
        QVERIFY(view_->shown_data().series[1].shown);
        view_->set_curve_shown(0, true);
        QVERIFY(count_pixels(grab(), view_->field(), Qt::red) > 0);
    }

    void allCurvesAreSwitchedAtOnce() {
        Series off = level(1, 8, blue);
        off.shown = false;
        show({level(0, 5), off});
        QVERIFY(!view_->is_curve_shown(view_->data().series[1]));
        view_->set_curves_shown(true);
        QVERIFY(view_->is_curve_shown(view_->data().series[1]));
        view_->set_curves_shown(false);
        QVERIFY(!view_->is_curve_shown(view_->data().series[0]));
    }

    void switchedCurvesStaySoInNewData() {
        show({level(0, 5), level(1, 8, blue)});
        view_->set_curve_shown(1, false);
        show({level(1, 8, blue), level(2, 9)});
        QVERIFY(!view_->is_curve_shown(view_->data().series[0]));
        view_->start_anew();
        QVERIFY(view_->is_curve_shown(view_->data().series[0]));
    }

    void theValuesOfCurvesThatAreOffDoNotCount() {
        show({level(0, 5), series_of(1, {{0, 0}, {20, 1e6}})});
        view_->set_curve_shown(1, false);
        QVERIFY(view_->values_shown().high < 10);
    }

    void eachCurveCanFillTheFieldByItself() {
        show({series_of(0, {{0, 1}, {20, 0}}), series_of(1, {{0, 0}, {20, 1e6}}, blue)});
        const QRectF upper_half(view_->field().topLeft(), view_->field().center() + QPointF(200, 0));
        QCOMPARE(count_pixels(grab(), upper_half, Qt::red), 0);
        view_->set_own_scales(true);
        QVERIFY(count_pixels(grab(), upper_half, Qt::red) > 0);
        QVERIFY(count_pixels(grab(), upper_half, Qt::blue) > 0);
        QCOMPARE(view_->values_shown(), (Interval{0, 1}));
        view_->choose_curve(1);
        view_->choose_curve(1);
        QCOMPARE(view_->values_shown().high, 1e6);
    }

    void theWheelZoomsInTimeAboutThePointer() {
        show({level(0, 5)});
        const QPointF pointer = view_->place(5, 5);
        wheel(pointer, 120, Qt::NoModifier);
        QVERIFY(!view_->is_following());
        QCOMPARE(view_->time_shown().span(), 16.0);
        QVERIFY(std::abs(view_->time_at(pointer.x()) - 5) < 1e-9);
        wheel(pointer, -120, Qt::NoModifier);
        QVERIFY(std::abs(view_->time_shown().span() - 20) < 1e-9);
    }

    void theWheelWithControlZoomsInValues() {
        show({series_of(0, {{0, 0}, {20, 10}})});
        const QPointF pointer = view_->place(5, 2);
        wheel(pointer, 120, Qt::ControlModifier);
        QVERIFY(!view_->is_fitting());
        QVERIFY(std::abs(view_->values_shown().span() - 8) < 1e-9);
        QVERIFY(std::abs(view_->value_at(pointer.y()) - 2) < 1e-9);
        QVERIFY(view_->is_following());
        view_->fit_values();
        QCOMPARE(view_->values_shown(), (Interval{0, 10}));
    }

    void theWheelWithShiftMovesInTime() {
        show({level(0, 5)});
        wheel(view_->place(5, 5), -120, Qt::ShiftModifier);
        QCOMPARE(view_->time_shown(), (Interval{2, 22}));
    }

    void zoomAndMovesHaveTheirLimits() {
        show({level(0, 5)});
        for (int i = 0; i < 300; ++i) {
            view_->zoom_time(0.5, 7);
        }
        QVERIFY(view_->time_shown().span() > 0);
        QVERIFY(view_->time_shown().contains(7));
        grab();
        for (int i = 0; i < 300; ++i) {
            view_->zoom_time(2, 7);
            view_->zoom_values(2, 0);
            view_->pan_time(1);
        }
        QVERIFY(view_->time_shown().span() <= 80);
        QVERIFY(view_->time_shown().low <= 20);
        QVERIFY(std::isfinite(view_->values_shown().span()));
        grab();
    }

    void draggingMovesInTimeAndTheValuesThatWereZoomed() {
        show({series_of(0, {{0, 0}, {20, 10}})});
        const QPoint from = view_->place(10, 5).toPoint();
        drag(from, from + QPoint(static_cast<int>(view_->field().width() / 4), 60));
        QVERIFY(std::abs(view_->time_shown().low + 5) < 0.2);
        QVERIFY(view_->is_fitting());
        view_->follow();
        view_->zoom_values(0.5, 5);
        const Interval before = view_->values_shown();
        drag(from, from + QPoint(0, 60));
        QVERIFY(view_->values_shown().low > before.low);
        QCOMPARE(view_->values_shown().span(), before.span());
    }

    void aClickThatTremblesMovesNothing() {
        show({level(0, 5)});
        const QPoint from = view_->place(10, 5).toPoint();
        drag(from, from + QPoint(2, 1));
        QVERIFY(view_->is_following());
    }

    void aDoubleClickReturns() {
        show({level(0, 5)});
        view_->zoom_time(0.5, 7);
        view_->zoom_values(0.5, 5);
        QTest::mouseDClick(view_.get(), Qt::LeftButton, Qt::NoModifier, view_->field().center().toPoint());
        QVERIFY(view_->is_following());
        QVERIFY(view_->is_fitting());
    }

    void newDataIsFollowedUntilSomebodyZooms() {
        show({level(0, 5)}, {0, 20});
        show({level(0, 5)}, {5, 25});
        QCOMPARE(view_->time_shown(), (Interval{5, 25}));
        view_->show_time({6, 8});
        show({level(0, 5)}, {10, 30});
        QCOMPARE(view_->time_shown(), (Interval{6, 8}));
        view_->follow();
        QCOMPARE(view_->time_shown(), (Interval{10, 30}));
    }

    void thePointerTellsTheValuesBelowIt() {
        show({series_of(0, {{0, 1}, {10, 2}, {20, 3}}), level(1, 7)});
        QTest::mouseMove(view_->windowHandle(), view_->place(11, 3).toPoint());
        QTRY_VERIFY_WITH_TIMEOUT(view_->cursor().has_value(), limit_ms);
        QVERIFY(view_->words().contains(QStringLiteral(" s: curve 0 2, curve 1 7")));
        const QImage with = grab();
        QEvent leave(QEvent::Leave);
        QApplication::sendEvent(view_.get(), &leave);
        QVERIFY(!view_->cursor().has_value());
        QVERIFY(with != grab());
    }

    void theCursorHasALineAndABoxWithTheColours() {
        show({level(0, 5)});
        const QImage without = grab();
        view_->set_cursor(10);
        const QImage with = grab();
        const int x = view_->place(10, 0).toPoint().x();
        int differing = 0;
        for (int y = static_cast<int>(view_->field().top()) + 1; y < view_->field().bottom(); ++y) {
            differing += with.pixel(x, y) != without.pixel(x, y) ? 1 : 0;
        }
        QVERIFY(differing > view_->field().height() / 2);
        const QRectF box(x + 10, view_->field().top(), 80, 60);
        QVERIFY(count_pixels(with, box, Qt::red) > count_pixels(without, box, Qt::red));
    }

    void theBoxStaysInTheField() {
        std::vector<Series> many;
        for (unsigned id = 0; id < 40; ++id) {
            many.push_back(level(id, id));
        }
        show(std::move(many));
        view_->set_cursor(20);
        const QImage with = grab();
        view_->set_cursor(std::nullopt);
        const QImage without = grab();
        const QRect below(0, static_cast<int>(view_->field().bottom()) + 2, 500, 400);
        QCOMPARE(with.copy(below), without.copy(below));
    }

    void farFromItsSamplesACurveHasNoValue() {
        show({series_of(0, {{5, 1}, {6, 2}}), level(1, 7)});
        view_->set_cursor(15);
        QVERIFY(view_->words().endsWith(QStringLiteral("curve 0 –, curve 1 7")));
    }

    void theKeysMoveTheCursorFromSampleToSample() {
        show({series_of(0, {{0, 1}, {10, 2}, {20, 3}}), series_of(1, {{12, 5}, {20, 6}}, blue)});
        press(Qt::Key_Right);
        QCOMPARE(view_->cursor(), 10.0);
        press(Qt::Key_Right);
        QCOMPARE(view_->cursor(), 12.0);
        press(Qt::Key_Left);
        press(Qt::Key_Left);
        QCOMPARE(view_->cursor(), 0.0);
        press(Qt::Key_Left);
        QCOMPARE(view_->cursor(), 0.0);
        press(Qt::Key_End);
        QCOMPARE(view_->cursor(), 20.0);
        press(Qt::Key_Home);
        QCOMPARE(view_->cursor(), 0.0);
        press(Qt::Key_Escape);
        QCOMPARE(view_->cursor(), std::nullopt);
    }

    void theCursorStepsOverSamplesThatShareAPixel() {
        Series series;
        for (int i = 0; i < 100'000; ++i) {
            series.append(i, i);
        }
        show({series}, {0, 100'000});
        view_->set_cursor(50'000);
        press(Qt::Key_Right);
        QVERIFY(*view_->cursor() - 50'000 >= 100'000 / view_->field().width() - 1);
    }

    void theFieldGoesWithTheCursor() {
        show({level(0, 5)});
        view_->show_time({9, 11});
        view_->set_cursor(10);
        press(Qt::Key_Right);
        QCOMPARE(view_->cursor(), 20.0);
        QVERIFY(view_->time_shown().contains(20));
    }

    void theKeysZoomAndMove() {
        show({level(0, 5)});
        press(Qt::Key_Plus);
        QCOMPARE(view_->time_shown(), (Interval{5, 15}));
        press(Qt::Key_PageDown);
        QCOMPARE(view_->time_shown(), (Interval{10, 20}));
        press(Qt::Key_PageUp);
        press(Qt::Key_Minus);
        QCOMPARE(view_->time_shown(), (Interval{0, 20}));
    }

    void theKeysChooseACurve() {
        show({series_of(0, {{0, 1}, {20, 3}}), level(1, 7, blue), level(2, 8)});
        view_->set_curve_shown(2, false);
        view_->set_cursor(10);
        press(Qt::Key_Down);
        QCOMPARE(view_->chosen_curve(), 0U);
        press(Qt::Key_Down);
        QCOMPARE(view_->chosen_curve(), 1U);
        QCOMPARE(view_->words(), QStringLiteral("10.00 s: curve 1 7"));
        press(Qt::Key_Right);
        QCOMPARE(view_->cursor(), 20.0);
        press(Qt::Key_Down);
        QCOMPARE(view_->chosen_curve(), std::nullopt);
        press(Qt::Key_Up);
        QCOMPARE(view_->chosen_curve(), 1U);
        view_->set_curve_shown(1, false);
        QCOMPARE(view_->chosen_curve(), std::nullopt);
    }

    void theChosenCurveIsWider() {
        show({level(0, 5), level(1, 7, blue)});
        const int before = count_pixels(grab(), view_->field(), Qt::blue);
        view_->choose_curve(-1);
        QVERIFY(count_pixels(grab(), view_->field(), Qt::blue) > before);
    }

    void assistiveTechnologyIsToldWhatTheCursorIsOn() {
        show({level(0, 5), level(1, 7)});
        const QAccessibleInterface* const told = QAccessible::queryAccessibleInterface(view_.get());
        QCOMPARE(told->role(), QAccessible::Chart);
        QCOMPARE(told->text(QAccessible::Name), QStringLiteral("Curves"));
        QCOMPARE(told->text(QAccessible::Description), QStringLiteral("2 of 2 curves, 0.00 s to 20.00 s"));
        QVERIFY(told->state().focusable);
        descriptions.clear();
        view_->set_cursor(0);
        press(Qt::Key_Right);
        QCOMPARE(descriptions, (QStringList{QStringLiteral("0.00 s: curve 0 5, curve 1 7"),
                                            QStringLiteral("10.00 s: curve 0 5, curve 1 7")}));
    }

    void theFocusIsSeen() {
        show({level(0, 5)});
        view_->setFocus();
        QApplication::setActiveWindow(view_.get());
        QTRY_VERIFY_WITH_TIMEOUT(view_->hasFocus(), limit_ms);
        const QColor frame = grab().pixelColor(1, 200);
        view_->clearFocus();
        QVERIFY(grab().pixelColor(1, 200) != frame);
    }

    void timesOfAClockAreShownWithTheirDate() {
        PlotData data;
        data.axis = TimeAxis::clock;
        data.series = {series_of(0, {{1'795'329'000, 1}, {1'795'329'020, 2}})};
        view_->show_data(std::make_shared<PlotData>(data), {1'795'329'000, 1'795'329'020});
        QVERIFY(view_->words().contains(QStringLiteral("2026-11-22 ")));
    }

    void linesThatLeadFarOutsideKeepTheirSlope() {
        show({series_of(0, {{0, 0}, {20, 1e9}})});
        view_->show_time({10, 10.001});
        view_->zoom_values(0.1, 500'025'000);
        QCOMPARE(color_at(grab(), 10.0005, 500'025'000), QColor(Qt::red));
        QVERIFY(color_at(grab(), 10.0005, 500'026'000) != QColor(Qt::red));
    }

private:
    void show(std::vector<Series> series, const Interval& home = {0, 20}) {
        auto data = std::make_shared<PlotData>();
        data->series = std::move(series);
        view_->show_data(data, home);
    }

    QImage grab() { return view_->grab().toImage().convertToFormat(QImage::Format_RGB32); }

    QColor color_at(const QImage& image, double time, double value) const {
        return image.pixelColor(view_->place(time, value).toPoint());
    }

    QColor window_color() const { return view_->palette().color(QPalette::Window); }

    void press(Qt::Key key) { QTest::keyClick(view_.get(), key); }

    void wheel(const QPointF& at, int turn, Qt::KeyboardModifiers modifiers) {
        QWheelEvent event(at, view_->mapToGlobal(at), QPoint(), QPoint(0, turn), Qt::NoButton, modifiers,
                          Qt::NoScrollPhase, false);
        QApplication::sendEvent(view_.get(), &event);
    }

    void drag(const QPoint& from, const QPoint& to) {
        QTest::mousePress(view_.get(), Qt::LeftButton, Qt::NoModifier, from);
        QTest::mouseMove(view_.get(), (from + to) / 2);
        QTest::mouseMove(view_.get(), to);
        QTest::mouseRelease(view_.get(), Qt::LeftButton, Qt::NoModifier, to);
    }

    std::unique_ptr<PlotView> view_;
};

QTEST_MAIN(PlotViewTest)
#include "plotview_test.moc"
