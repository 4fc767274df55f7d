/// @file
/// Work of the whole panel, on the offscreen platform: its start, and one telemetry frame after another.
///
///     panel_bench all COUNT          shows COUNT frames with all panes shown, and prints nothing
///     panel_bench small COUNT        shows them on the panel as it starts
///     panel_bench unchanged COUNT    shows COUNT times the same frame, all panes shown: only the lamps change
///     panel_bench start|start-plain  ends at the first paint of the panel, or of a plain dialog
///
/// For counting instructions: under `valgrind --tool=callgrind`, the difference of two run lengths divided by
/// the difference of their counts is the cost of one frame, free of start-up.

#include <QApplication>
#include <QCheckBox>
#include <QEvent>
#include <QEventLoop>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "benchmarks/plaindialog.h"
#include "dialog.h"

namespace {

/// Shows @p window, and ends the process without any of its tidying up when the window was painted.
void start(QWidget& window) {
    class PaintWatch : public QObject {
    public:
        bool eventFilter(QObject* /*watched*/, QEvent* event) override {
            painted = painted || event->type() == QEvent::Paint;
            return false;
        }
        bool painted = false;
    };
    PaintWatch watch;
    window.installEventFilter(&watch);
    window.show();
    while (!watch.painted) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    std::_Exit(EXIT_SUCCESS);
}

uint8_t low(int number) {
    return static_cast<uint8_t>(number & 0xFF);
}

uint8_t high(int number) {
    return static_cast<uint8_t>(number >> 8 & 0xFF);
}

/// Hands the panel telemetry number @p i, as the link does after each frame that it sent, and lets it paint.
/// Every number but that of the bytes is another than in the frame before.
void show_frame(Dialog& panel, int i) {
    const int rpm = 32767 - i * 97 % 7000;
    const int voltage = 12000 + i * 263 % 3000;
    const int current = i * 771 % 40000;
    const int capacity = 256 + i * 263 % 40000;  // beyond the bar, which keeps what it showed
    const int latitude = 1000 + i * 37;
    constexpr int bytes = 13;
    panel.VastaanotaArvot(high(rpm), low(rpm), high(voltage), low(voltage), high(current), low(current),
                          high(capacity), low(capacity), low(latitude), high(latitude), 4, 0, 0, bytes);
    panel.VilkutaLed();
    QCoreApplication::processEvents();
}

void check(Dialog& panel, const char* box) {
    panel.findChild<QCheckBox*>(QLatin1StringView(box))->setChecked(true);
}

void run(std::string_view scenario, int count) {
    Dialog panel;
    if (scenario != "small") {
        check(panel, "Ohj2Check");
        check(panel, "Navigointi_Check");
    }
    panel.show();
    QCoreApplication::processEvents();
    for (int i = 0; i < count; ++i) {
        show_frame(panel, scenario == "unchanged" ? 0 : i);
    }
}

}  // namespace

int main(int argc, char** argv) {
    QApplication application(argc, argv);
    const std::string_view scenario = argc > 1 ? argv[1] : "";
    if (scenario == "start") {
        Dialog panel;
        start(panel);
    }
    if (scenario == "start-plain") {
        PlainDialog plain;
        start(plain);
    }
    if (argc == 3 && (scenario == "all" || scenario == "small" || scenario == "unchanged")) {
        run(scenario, std::atoi(argv[2]));
        return 0;
    }
    std::fprintf(stderr, "usage: %s all|small|unchanged COUNT | start | start-plain\n", argv[0]);
    return 2;
}
