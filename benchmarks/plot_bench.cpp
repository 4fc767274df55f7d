/// @file
/// Speed of the plotting window's field: drawing it anew, and moving its cursor.
///
///     plot_bench                    wall-clock milliseconds of every scenario
///     plot_bench SCENARIO COUNT     runs one scenario COUNT times and prints nothing
///
/// The second form is for counting instructions, as with gauges_bench.

#include <QApplication>
#include <QImage>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tools/plot_view/plotview.h"

namespace {

constexpr QSize field_size(900, 500);
constexpr unsigned curves = 16;
constexpr unsigned many_samples = 1'000'000;
constexpr unsigned few_samples = 2000;
constexpr unsigned restless_samples = 1000;

/// Curves with a ripple from sample to sample. They share their values, for making those takes longer than drawing them.
std::shared_ptr<plot::PlotData> make_data(unsigned samples) {
    plot::Series series;
    for (unsigned i = 0; i < samples; ++i) {
        series.append(
            i, samples == restless_samples ? i * 37 % 101 : std::sin(i * 6.0 / samples) + (i % 7) / 20.0);
    }
    auto data = std::make_shared<plot::PlotData>();
    for (unsigned id = 0; id < curves; ++id) {
        series.id = id;
        series.name = "curve " + std::to_string(id);
        data->series.push_back(series);
    }
    return data;
}

/// A view of all of it on a screen in memory.
class Field {
public:
    explicit Field(unsigned samples) : screen_(field_size, QImage::Format_RGB32) {
        view.resize(field_size);
        view.winId();
        view.show_data(make_data(samples), {0, static_cast<double>(samples)});
    }

    void paint() { view.render(&screen_, QPoint(), QRegion(), QWidget::RenderFlags()); }

    plot::PlotView view;

private:
    QImage screen_;
};

/// What is done over and over.
using Work = void (*)(Field& field, int number);

void redraw(Field& field, int) {
    field.view.redraw();
    field.paint();
}

/// Zooms in, a little more each time, so that other samples fall together.
void zoom(Field& field, int) {
    field.view.zoom_time(0.99, many_samples / 3.0);
    field.paint();
}

void move_cursor(Field& field, int number) {
    field.view.set_cursor(many_samples / 1000.0 * (number % 1000));
    field.paint();
}

struct Scenario {
    const char* name;
    unsigned samples;  ///< of each curve
    Work work;
};

constexpr std::array scenarios = {
    Scenario{"redraw-many", many_samples, redraw}, Scenario{"redraw-few", few_samples, redraw},
    Scenario{"redraw-restless", restless_samples, redraw}, Scenario{"zoom", many_samples, zoom},
    Scenario{"cursor", many_samples, move_cursor}};

/// Milliseconds that one call takes.
double run(const Scenario& scenario, int count) {
    Field field(scenario.samples);
    field.paint();
    const auto begin = std::chrono::steady_clock::now();
    for (int number = 0; number < count; ++number) {
        scenario.work(field, number);
    }
    const std::chrono::duration<double, std::milli> taken = std::chrono::steady_clock::now() - begin;
    return taken.count() / count;
}

}  // namespace

int main(int argc, char** argv) {
    const QApplication application(argc, argv);
    for (const Scenario& scenario : scenarios) {
        if (argc < 3) {
            std::printf("%s %.2f\n", scenario.name, run(scenario, 50));
        } else if (std::strcmp(argv[1], scenario.name) == 0) {
            run(scenario, std::atoi(argv[2]));
        }
    }
    return 0;
}
