#include "widgets/functions.h"

#include <QtTest>
#include <cmath>
#include <csignal>
#include <limits>

#include "tests/support/childprocess.h"

class FunctionsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void roundsARange_data();
    void roundsARange();
    void keepsTheScaleInPlaceWithoutLeft();
    void roundsToAnyNumberOfSteps_data();
    void roundsToAnyNumberOfSteps();
    void tellsWhetherAnEndChanged();
    void countsNotANumberAsChanged();
    void takesSingleValues();
    void endsTheProcessOnAnEmptyOrReversedRange_data();
    void endsTheProcessOnAnEmptyOrReversedRange();
};

void FunctionsTest::roundsARange_data() {
    QTest::addColumn<double>("minimum");
    QTest::addColumn<double>("maximum");
    QTest::addColumn<double>("low");
    QTest::addColumn<double>("high");
    QTest::newRow("speed dial") << 0.0 << 2500.0 << 0.0 << 2520.0;
    QTest::newRow("0 to 300") << 0.0 << 300.0 << 0.0 << 320.0;
    QTest::newRow("0 to 100") << 0.0 << 100.0 << 0.0 << 120.0;
    QTest::newRow("0 to 5000") << 0.0 << 5000.0 << 0.0 << 5000.0;
    QTest::newRow("0 to 80, round already") << 0.0 << 80.0 << 0.0 << 80.0;
    QTest::newRow("-20 to 40") << -20.0 << 40.0 << -20.0 << 60.0;
    QTest::newRow("10 to 17") << 10.0 << 17.0 << 10.0 << 18.0;
    QTest::newRow("-7 to -2") << -7.0 << -2.0 << -7.0 << 1.0;
    QTest::newRow("0 to 1, the last slide stops short")
        << 0.0 << 1.0 << -0x1.333333333333p-3 << 0x1.0cccccccccccep+0;
    QTest::newRow("-5 to 0") << -5.0 << 0.0 << -5.0 << 3.0;
    QTest::newRow("-16 to -8, whole steps") << -16.0 << -8.0 << -16.0 << -8.0;
    QTest::newRow("-20 to -10") << -20.0 << -10.0 << -20.5 << -8.5;
    QTest::newRow("-100 to -50") << -100.0 << -50.0 << -106.0 << -26.0;
    QTest::newRow("-2500 to -1") << -2500.0 << -1.0 << -2560.0 << 0.0;
    QTest::newRow("-33.3 to 12.5") << -33.3 << 12.5 << -40.0 << 40.0;
    QTest::newRow("-7.1 to -2.1, remainder in single precision")
        << -7.1 << -2.1 << -0x1.0000003333333p+3 << -0x1.9999998p-24;
    QTest::newRow("-0.7 to -0.2, remainder in single precision")
        << -0.7 << -0.2 << -0x1.666666ccccccdp-1 << 0x1.999996666666ap-4;
    QTest::newRow("-16777217 is -16777216 in single precision")
        << -16777217.0 << -16777200.0 << -16777217.0 << -16777197.0;
    QTest::newRow("a thousandth") << 0.0 << 0.001 << -0x1.8p-63 << 0x1.3a92a30553261p-10;
}

void FunctionsTest::roundsARange() {
    QFETCH(double, minimum);
    QFETCH(double, maximum);
    QFETCH(double, low);
    QFETCH(double, high);
    double drawn_low = 3;
    double drawn_high = 4;
    QVERIFY(range(minimum, maximum, drawn_low, drawn_high, 8, true, 5.0));
    // To the bit: QCOMPARE would take near values for the same.
    QVERIFY2(drawn_low == low, QByteArray::number(drawn_low, 'g', 17).constData());
    QVERIFY2(drawn_high == high, QByteArray::number(drawn_high, 'g', 17).constData());
}

void FunctionsTest::keepsTheScaleInPlaceWithoutLeft() {
    double low = 0;
    double high = 1;
    QVERIFY(range(10.0, 17.0, low, high, 8, false, 5.0));
    QCOMPARE(low, 9.0);
    QCOMPARE(high, 17.0);
}

void FunctionsTest::roundsToAnyNumberOfSteps_data() {
    QTest::addColumn<unsigned>("steps");
    QTest::addColumn<double>("maximum");
    QTest::addColumn<double>("increment");
    QTest::addColumn<double>("high");
    QTest::newRow("ten") << 10U << 2500.0 << 5.0 << 2500.0;
    QTest::newRow("four by ones") << 4U << 10.0 << 1.0 << 12.0;
    QTest::newRow("one") << 1U << 12.0 << 5.0 << 15.0;
}

void FunctionsTest::roundsToAnyNumberOfSteps() {
    QFETCH(unsigned, steps);
    QFETCH(double, maximum);
    QFETCH(double, increment);
    double low = -1;
    double high = -1;
    QVERIFY(range(0.0, maximum, low, high, steps, true, increment));
    QCOMPARE(low, 0.0);
    QTEST(high, "high");
}

void FunctionsTest::tellsWhetherAnEndChanged() {
    double low = 0;
    double high = 2520;
    QVERIFY(!range(0.0, 2500.0, low, high, 8, true, 5.0));
    low = 1;
    QVERIFY(range(0.0, 2500.0, low, high, 8, true, 5.0));
    high = 1;
    QVERIFY(range(0.0, 2500.0, low, high, 8, true, 5.0));
    QCOMPARE(low, 0.0);
    QCOMPARE(high, 2520.0);
}

void FunctionsTest::countsNotANumberAsChanged() {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    double low = nan;
    double high = 2520;
    QVERIFY(range(0.0, 2500.0, low, high, 8, true, 5.0));
    high = nan;
    QVERIFY(range(0.0, 2500.0, low, high, 8, true, 5.0));
}

void FunctionsTest::takesSingleValues() {
    float low = 0;
    float high = 1;
    QVERIFY(range(-20.0F, 40.0F, low, high, 8, true, 5.0F));
    QCOMPARE(low, -20.0F);
    QCOMPARE(high, 60.0F);
}

void FunctionsTest::endsTheProcessOnAnEmptyOrReversedRange_data() {
    QTest::addColumn<double>("maximum");
    QTest::newRow("empty") << 5.0;
    QTest::newRow("reversed") << 4.0;
    QTest::newRow("not a number") << std::numeric_limits<double>::quiet_NaN();
}

void FunctionsTest::endsTheProcessOnAnEmptyOrReversedRange() {
    QFETCH(double, maximum);
    const ChildResult result = run_in_child([maximum] {
        std::signal(SIGABRT, SIG_DFL);
        double low = 0;
        double high = 1;
        range(5.0, maximum, low, high, 8, true, 5.0);
    });
    QCOMPARE(result.signal, SIGABRT);
    QCOMPARE(result.err, std::string("widgets/functions: Assertion failed: m_max > m_min\n"));
    QCOMPARE(result.out, std::string());
}

QTEST_GUILESS_MAIN(FunctionsTest)
#include "functions_test.moc"
