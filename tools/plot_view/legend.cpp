#include "tools/plot_view/legend.h"

#include <QIcon>
#include <QPainter>
#include <QPixmap>
#include <QScrollBar>
#include <algorithm>

#include "tools/plot_view/flowlayout.h"

namespace plot {

namespace {

constexpr QSize swatch_size(24, 12);
constexpr int most_rows = 5;
constexpr int gap = 4;

}  // namespace

Legend::Legend(PlotView& view, QWidget* parent) : QScrollArea(parent), view_(view), names_(new QWidget) {
    setAccessibleName(QStringLiteral("Names of the curves"));
    setFrameShape(QFrame::NoFrame);
    setFocusPolicy(Qt::NoFocus);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    auto* const layout = new FlowLayout(names_);
    layout->setContentsMargins(gap, gap, gap, 0);
    layout->setSpacing(gap);
    setWidgetResizable(true);
    setWidget(names_);
    connect(&view_, &PlotView::viewChanged, this, &Legend::follow_view);
    follow_view();
}

// A line as the curve's on a piece of its field.
QIcon Legend::swatch(const Series& series) const {
    const qreal ratio = devicePixelRatioF();
    QPixmap pixmap(swatch_size * ratio);
    pixmap.setDevicePixelRatio(ratio);
    pixmap.fill(view_.field_color());
    QPainter painter(&pixmap);
    const QLineF line(0, swatch_size.height() / 2.0, swatch_size.width(), swatch_size.height() / 2.0);
    if (view_.is_faint(series)) {
        painter.setPen(QPen(view_.ink_color(), 5, Qt::SolidLine, Qt::FlatCap));
        painter.drawLine(line);
    }
    painter.setPen(QPen(view_.color_of(series), 3, view_.style_of(series), Qt::FlatCap));
    painter.drawLine(line);
    return QIcon(pixmap);
}

void Legend::make_boxes() {
    for (QCheckBox* box : boxes_) {
        delete box;
    }
    boxes_.clear();
    ids_.clear();
    for (const Series& series : view_.data().series) {
        auto* const box = new QCheckBox(names_);
        box->setIconSize(swatch_size);
        connect(box, &QCheckBox::toggled, this,
                [this, id = series.id](bool on) { view_.set_curve_shown(id, on); });
        names_->layout()->addWidget(box);
        box->show();
        boxes_.push_back(box);
        ids_.push_back(series.id);
    }
}

void Legend::follow_view() {
    const auto& series = view_.data().series;
    if (!std::equal(series.begin(), series.end(), ids_.begin(), ids_.end(),
                    [](const Series& one, unsigned id) { return one.id == id; })) {
        make_boxes();
    }
    for (std::size_t i = 0; i < series.size(); ++i) {
        QCheckBox& box = *boxes_[i];
        const QString name = QString::fromStdString(series[i].name);
        const QSignalBlocker no_echo(box);
        box.setChecked(view_.is_curve_shown(series[i]));
        const QString look = QStringLiteral("%1 %2 %3")
                                 .arg(view_.color_of(series[i]).name())
                                 .arg(view_.is_dark())
                                 .arg(devicePixelRatioF());
        if (box.property("look") != look) {
            box.setProperty("look", look);
            box.setIcon(swatch(series[i]));
        }
        if (box.accessibleName() != name) {
            box.setText(QString(name).replace(QLatin1Char('&'), QStringLiteral("&&")));
            box.setAccessibleName(name);
        }
        QFont font = box.font();
        if (const bool chosen = view_.chosen_curve() == series[i].id; font.bold() != chosen) {
            font.setBold(chosen);
            box.setFont(font);
        }
    }
    fit_height();
}

QSize Legend::wanted_size() const {
    if (boxes_.empty()) {
        return {0, 0};
    }
    const int row = boxes_.front()->sizeHint().height() + gap;
    const int wanted = names_->layout()->heightForWidth(viewport()->width());
    return {names_->layout()->minimumSize().width(), std::min(wanted, most_rows * row + gap)};
}

void Legend::fit_height() {
    if (const int height = wanted_size().height(); height != maximumHeight()) {
        setFixedHeight(height);
    }
}

void Legend::resizeEvent(QResizeEvent* event) {
    QScrollArea::resizeEvent(event);
    fit_height();
}

}  // namespace plot
