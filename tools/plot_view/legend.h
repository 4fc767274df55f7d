/// @file
/// The names of the curves, each a box to check.

#ifndef TOOLS_PLOT_VIEW_LEGEND_H
#define TOOLS_PLOT_VIEW_LEGEND_H

#include <QCheckBox>
#include <QScrollArea>
#include <vector>

#include "tools/plot_view/plotview.h"

namespace plot {

/// Switches the curves of a view on and off by their names. The names wrap; of more rows than it has room for, the rest
/// is scrolled to.
class Legend : public QScrollArea {
    Q_OBJECT

public:
    /// @param view    whose curves it names; outlives it
    /// @param parent  as of every widget
    explicit Legend(PlotView& view, QWidget* parent = nullptr);

    /// The boxes, in the order of the curves.
    const std::vector<QCheckBox*>& boxes() const { return boxes_; }

    QSize sizeHint() const override { return wanted_size(); }
    QSize minimumSizeHint() const override { return {0, 0}; }

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    void follow_view();
    void make_boxes();
    QSize wanted_size() const;
    void fit_height();
    QIcon swatch(const Series& series) const;

    PlotView& view_;
    QWidget* names_;
    std::vector<QCheckBox*> boxes_;
    std::vector<unsigned> ids_;  // of the boxes' curves
};

}  // namespace plot

#endif
