/// @file
/// The widget that draws the curves of a plotting client.

#ifndef TOOLS_PLOT_VIEW_CURVEVIEW_H
#define TOOLS_PLOT_VIEW_CURVEVIEW_H

#include <QWidget>
#include <cstdint>
#include <optional>
#include <span>

#include "tools/plot_view/curvemodel.h"

/// Draws the curves of the batches it is given on a black field.
///
/// Across go the sample positions, the newest at the right once the range is full. Upwards go the scaled
/// values: the field shows -100 to 100, and more (200, 500, 1000, ...) while a value shown needs it. The
/// names stand above the field in their curves' colours. While drawing is stopped the last picture stays.
class CurveView : public QWidget {
    Q_OBJECT

public:
    explicit CurveView(QWidget* parent = nullptr);

    /// Carries out a batch and shows the result.
    void take(std::span<const std::uint8_t> batch);

    /// What has been received.
    const CurveModel& model() const { return model_; }

    /// Where the curves are drawn, in the widget's coordinates.
    QRectF field() const;

    /// The point of the field at which a scaled value stands.
    QPointF place(std::uint32_t position, double value) const;

    QSize sizeHint() const override { return {640, 400}; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    const CurveModel& shown() const { return frozen_ ? *frozen_ : model_; }
    void paint_grid(QPainter& painter) const;
    void paint_names(QPainter& painter) const;
    void paint_curves(QPainter& painter) const;
    double needed_limit() const;

    CurveModel model_;
    double limit_ = 100.0;              // the field's upper end; the lower one is its negative
    std::optional<CurveModel> frozen_;  // what stood when drawing was stopped, while it is
};

#endif
