// Renders the gauges in chosen states, or shows the serial terminal window; script/pictures takes its
// pictures.
//
//     gallery gauges DIRECTORY    writes dial.png, thermometer.png and lamp.png, a row of states each
//     gallery terminal DEVICE     shows the serial terminal window on a serial device, and prints where its
//                                 widgets are: name, x, y, width and height, a line each

#include <QApplication>
#include <QDir>
#include <QImage>
#include <QPainter>
#include <QString>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "mainwindow.h"
#include "widgets/led.h"
#include "widgets/manometer.h"
#include "widgets/thermometer.h"

namespace {

constexpr double pixel_ratio = 1.5;  // the gauges follow the device: sharp on every screen
constexpr int gap = 12;
constexpr int caption_height = 22;
constexpr int caption_points = 9;

// A widget in one state, and what to write below it.
struct Exhibit {
    std::unique_ptr<QWidget> widget;
    QString caption;
};

// Writes the widgets side by side, each in the middle of a column.
bool write_row(const std::vector<Exhibit>& exhibits, const QSize& size, int column_width,
               const QString& file) {
    const int width = static_cast<int>(exhibits.size()) * (column_width + gap) + gap;
    const QSize whole(width, size.height() + caption_height + 2 * gap);
    QImage image(whole * pixel_ratio, QImage::Format_RGB32);
    image.setDevicePixelRatio(pixel_ratio);
    image.fill(Qt::white);
    QPainter painter(&image);
    QFont font(QStringLiteral("DejaVu Sans"));
    font.setPointSize(caption_points);
    painter.setFont(font);
    int left = gap;
    for (const Exhibit& exhibit : exhibits) {
        exhibit.widget->resize(size);
        const QPoint place(left + (column_width - size.width()) / 2, gap);
        exhibit.widget->render(&painter, place, {}, QWidget::DrawChildren);
        painter.drawText(QRect(left, gap + size.height(), column_width, caption_height), Qt::AlignCenter,
                         exhibit.caption);
        left += column_width + gap;
    }
    painter.end();
    return image.save(file, "PNG", 0);
}

// The speed dial as on the panel.
Exhibit dial(int rpm, const char* caption) {
    auto gauge = std::make_unique<ManoMeter>(nullptr);
    gauge->setMaximum(2500);
    gauge->setNominal(900);
    gauge->setCritical(1500);
    gauge->setSuffix(QStringLiteral(" [rpm]"));
    gauge->setValue(rpm);
    return {std::move(gauge), QString::fromUtf8(caption)};
}

Exhibit thermometer(int value, const char* caption) {
    auto gauge = std::make_unique<ThermoMeter>(nullptr);
    gauge->setValue(value);
    return {std::move(gauge), QString::fromUtf8(caption)};
}

Exhibit lamp(const QColor& color, bool enabled, const char* caption) {
    auto led = std::make_unique<Led>(nullptr);
    led->setColor(color);
    led->setEnabled(enabled);
    return {std::move(led), QString::fromUtf8(caption)};
}

bool write_gauges(const QDir& directory) {
    std::vector<Exhibit> dials;
    dials.push_back(dial(0, "0: at rest"));
    dials.push_back(dial(600, "600: below the green band"));
    dials.push_back(dial(1234, "1234: in the green band"));
    dials.push_back(dial(1800, "1800: red"));
    dials.push_back(dial(-300, "-300: backwards"));
    std::vector<Exhibit> thermometers;
    thermometers.push_back(thermometer(0, "0: at rest"));
    thermometers.push_back(thermometer(20, "20: blue"));
    thermometers.push_back(thermometer(45, "45: green"));
    thermometers.push_back(thermometer(70, "70: red"));
    std::vector<Exhibit> lamps;
    lamps.push_back(lamp(Qt::red, true, "red, on"));
    lamps.push_back(lamp(Qt::red, false, "red, off"));
    lamps.push_back(lamp(Qt::green, true, "green, on"));
    lamps.push_back(lamp(Qt::green, false, "green, off"));
    return write_row(dials, {165, 165}, 165, directory.filePath(QStringLiteral("dial.png"))) &&
           write_row(thermometers, {90, 200}, 110, directory.filePath(QStringLiteral("thermometer.png"))) &&
           write_row(lamps, {42, 42}, 80, directory.filePath(QStringLiteral("lamp.png")));
}

void print_places(const QWidget& window) {
    for (const QWidget* widget : window.findChildren<QWidget*>()) {
        const QPoint place = widget->mapTo(&window, QPoint(0, 0));
        if (widget->isVisible() && !widget->objectName().isEmpty()) {
            std::printf("%s %d %d %d %d\n", qPrintable(widget->objectName()), place.x(), place.y(),
                        widget->width(), widget->height());
        }
    }
    std::puts("end");
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    const QApplication application(argc, argv);
    const std::string deed = argc == 3 ? argv[1] : "";
    if (deed == "gauges") {
        return write_gauges(QDir(QString::fromLocal8Bit(argv[2]))) ? 0 : 1;
    }
    if (deed == "terminal") {
        MainWindow window(nullptr, argv[2]);
        window.show();
        print_places(window);
        return QApplication::exec();
    }
    std::fputs("usage: gallery gauges DIRECTORY | terminal DEVICE\n", stderr);
    return 2;
}
