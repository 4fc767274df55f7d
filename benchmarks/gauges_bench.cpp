/// @file
/// Speed of the gauges: value changes with repaint.
///
///     gauges_bench                    wall-clock microseconds of every scenario
///     gauges_bench SCENARIO COUNT     runs one scenario COUNT times and prints nothing
///
/// The second form is for counting instructions: under `valgrind --tool=callgrind`, the difference of two run
/// lengths divided by the difference of their counts is the cost of one change, free of start-up.

#include <QApplication>
#include <QImage>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "widgets/led.h"
#include "widgets/manometer.h"
#include "widgets/thermometer.h"

namespace {

constexpr QSize dial_size(121, 121);
constexpr QSize thermometer_size(40, 131);
constexpr QSize lamp_size(21, 21);

/// An image like that of a window on a screen of @p ratio pixels per unit.
QImage makeScreen(const QSize& size, qreal ratio) {
    QImage screen(size * ratio, QImage::Format_RGB32);
    screen.setDevicePixelRatio(ratio);
    screen.fill(Qt::lightGray);
    return screen;
}

/// Gives @p widget a window on the platform, as every shown widget has.
void makeWindow(QWidget& widget) {
    widget.winId();
}

/// Paints @p area of @p widget, and only of it, as a repaint of its window does.
void paint(QWidget& widget, const QRect& area, QImage& screen) {
    widget.render(&screen, area.topLeft(), area, QWidget::RenderFlags());
}

/// Changes the value of @p meter and paints what shows it, before and after, or all of it with its background
/// drawn anew.
template <typename Meter>
void change(Meter& meter, double value, bool redraw, QImage& screen) {
    const QRect before = meter.valueArea();
    meter.setValue(value);
    if (redraw) {
        meter.updateWithBackground();
    }
    paint(meter, redraw ? meter.rect() : before | meter.valueArea(), screen);
}

/// The panel's speed dial.
class Dial : public ManoMeter {
public:
    Dial() {
        resize(dial_size);
        setMaximum(2500);
        setNominal(900);
        setCritical(1500);
        setSuffix(QStringLiteral(" [rpm]"));
    }
    using ManoMeter::updateWithBackground;
    using ManoMeter::valueArea;
};

void runDial(int count, qreal ratio, bool redraw) {
    Dial dial;
    makeWindow(dial);
    QImage screen = makeScreen(dial_size, ratio);
    for (int i = 0; i < count; ++i) {
        change(dial, i * 7 % 2500, redraw, screen);
    }
}

/// The panel's battery voltage.
class Battery : public ThermoMeter {
public:
    Battery() { resize(thermometer_size); }
    using ThermoMeter::updateWithBackground;
    using ThermoMeter::valueArea;
};

void runThermometer(int count, qreal ratio, bool redraw) {
    Battery battery;
    makeWindow(battery);
    QImage screen = makeScreen(thermometer_size, ratio);
    for (int i = 0; i < count; ++i) {
        change(battery, i * 7 % 800 / 10.0, redraw, screen);
    }
}

/// Switches a lamp as the panel does: by enabling and disabling it.
void runLamp(int count) {
    Led lamp;
    lamp.resize(lamp_size);
    lamp.setColor(QColor(0, 255, 0));
    makeWindow(lamp);
    QImage screen = makeScreen(lamp_size, 1);
    for (int i = 0; i < count; ++i) {
        lamp.setEnabled(i % 2 == 0);
        paint(lamp, lamp.rect(), screen);
    }
}

struct Scenario {
    const char* name;
    void (*run)(int count);
};

constexpr std::array scenarios = {
    Scenario{"dial", [](int count) { runDial(count, 1, false); }},
    Scenario{"dial-redrawn", [](int count) { runDial(count, 1, true); }},
    Scenario{"dial-ratio2", [](int count) { runDial(count, 2, false); }},
    Scenario{"dial-ratio2-redrawn", [](int count) { runDial(count, 2, true); }},
    Scenario{"thermometer", [](int count) { runThermometer(count, 1, false); }},
    Scenario{"thermometer-redrawn", [](int count) { runThermometer(count, 1, true); }},
    Scenario{"thermometer-ratio2", [](int count) { runThermometer(count, 2, false); }},
    Scenario{"thermometer-ratio2-redrawn", [](int count) { runThermometer(count, 2, true); }},
    Scenario{"lamp", [](int count) { runLamp(count); }},
};

/// Microseconds of one change in @p scenario, the best of several runs.
double microseconds(const Scenario& scenario) {
    using Clock = std::chrono::steady_clock;
    constexpr int runs = 3;
    constexpr int count = 300;
    scenario.run(count / 10);
    double best = 0;
    for (int run = 0; run < runs; ++run) {
        const auto start = Clock::now();
        scenario.run(count);
        const std::chrono::duration<double, std::micro> took = Clock::now() - start;
        best = run == 0 ? took.count() : std::min(best, took.count());
    }
    return best / count;
}

}  // namespace

int main(int argc, char** argv) {
    const QApplication application(argc, argv);
    if (argc == 1) {
        for (const Scenario& scenario : scenarios) {
            std::printf("%s %.1f\n", scenario.name, microseconds(scenario));
        }
        return 0;
    }
    for (const Scenario& scenario : scenarios) {
        if (argc == 3 && std::strcmp(argv[1], scenario.name) == 0) {
            scenario.run(std::atoi(argv[2]));
            return 0;
        }
    }
    std::fprintf(stderr, "usage: %s [SCENARIO COUNT]\n", argv[0]);
    return 2;
}
