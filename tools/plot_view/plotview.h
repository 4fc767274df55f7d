/// @file
/// The field of a plot: axes, curves, and a cursor that tells their values.

#ifndef TOOLS_PLOT_VIEW_PLOTVIEW_H
#define TOOLS_PLOT_VIEW_PLOTVIEW_H

#include <QPixmap>
#include <QPointF>
#include <QRectF>
#include <QString>
#include <QWidget>
#include <memory>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "tools/plot_view/plotseries.h"
#include "tools/plot_view/ticks.h"

namespace plot {

/// Draws curves over time.
///
/// The values that are shown fill the field, unless somebody has zoomed or moved them. The time follows what the source
/// of the data wants to be seen, until somebody has zoomed or moved it. Mouse: the wheel zooms in time about the
/// pointer, with Ctrl in values, with Shift it moves in time; dragging moves; a double click returns to the start.
/// Keys: left and right move the cursor from sample to sample, Home and End to the first and last one shown, up and down
/// choose a curve for it, Escape takes it away, Page up and down move in time, plus and minus zoom.
///
/// The curves are drawn once into a picture and only the cursor moves over it: with many curves the drawing takes
/// longer than a pointer may lag behind the hand.
class PlotView : public QWidget {
    Q_OBJECT

public:
    explicit PlotView(QWidget* parent = nullptr);

    /// Shows other data. Curves that were there before, by Series::id, stay switched on or off.
    /// @param data  the curves, not null
    /// @param home  the times that are seen while the view follows
    void show_data(std::shared_ptr<const PlotData> data, const Interval& home);

    /// What is shown.
    const PlotData& data() const { return *data_; }

    /// Forgets which curves were switched on or off, the zoom, the scales and the cursor: for data from elsewhere.
    void start_anew();

    /// Whether a curve is switched on.
    bool is_curve_shown(const Series& series) const;

    /// Switches a curve on or off.
    void set_curve_shown(unsigned id, bool shown);

    /// Switches all curves on or off.
    void set_curves_shown(bool shown);

    /// The data with the curves that are switched on as Series::shown.
    PlotData shown_data() const;

    /// The times from the left to the right edge of the field.
    Interval time_shown() const { return time_; }

    /// Shows these times, or as many of them as make sense, and follows no longer.
    void show_time(const Interval& time);

    /// Whether the times are those that the source wants to be seen.
    bool is_following() const { return !chosen_time_; }

    /// Returns to the times that the source wants to be seen.
    void follow();

    /// Shows a shorter (factor below 1) or longer time; @p about stays where it is.
    void zoom_time(double factor, double about);

    /// Moves in time by a share of what is shown; backwards if negative.
    void pan_time(double share);

    /// The values from the lower to the upper edge of the field.
    Interval values_shown() const { return values_; }

    /// Whether the values shown fill the field.
    bool is_fitting() const { return !chosen_values_; }

    /// Has the values shown fill the field, from now on too.
    void fit_values();

    /// Shows a smaller (factor below 1) or greater range of values; @p about stays where it is.
    void zoom_values(double factor, double about);

    /// Whether each curve fills the field by itself.
    bool has_own_scales() const { return own_scales_; }

    /// Gives each curve a scale of its own: the axis is then that of the chosen curve, or else of the first.
    void set_own_scales(bool own);

    /// Whether the field is dark.
    bool is_dark() const { return dark_; }

    /// Makes the field dark or light.
    void set_dark(bool dark);

    /// The colour of a curve on this field: its own, or one from a row that colour-blind eyes tell apart.
    QColor color_of(const Series& series) const;

    /// The pattern of a curve's line: what tells those apart that share a colour of that row.
    Qt::PenStyle style_of(const Series& series) const;

    /// Whether a curve's colour hardly stands out against the field: its line has a border then.
    bool is_faint(const Series& series) const;

    /// The colour of lines and texts on the field, also of those borders.
    QColor ink_color() const;

    /// The colour of the field behind the curves.
    QColor field_color() const;

    /// Where the cursor stands; none without one.
    std::optional<double> cursor() const { return cursor_; }

    /// Puts the cursor at a time, or takes it away.
    void set_cursor(std::optional<double> time);

    /// Moves the cursor to the next sample that is at least a pixel away; without a cursor it starts in the middle.
    /// @param direction  1 forwards, -1 backwards
    void step_cursor(int direction);

    /// Chooses the next (1) or previous (-1) of the curves that are switched on for the cursor and the axis; none comes
    /// before the first and behind the last.
    void choose_curve(int direction);

    /// The chosen curve's number; none if all are meant.
    std::optional<unsigned> chosen_curve() const { return chosen_; }

    /// The time and the values at the cursor, or what is shown if there is no cursor, in words.
    QString words() const;

    /// Where the curves are drawn, in the widget's coordinates.
    QRectF field() const { return field_; }

    /// The point of the field at which a value stands.
    QPointF place(double time, double value) const;

    /// The time at a place of the field.
    double time_at(double x) const;

    /// The value at a place of the field, on the axis that is shown.
    double value_at(double y) const;

    /// Draws all again at the next paint event, as after a change.
    void redraw();

    QSize sizeHint() const override { return {640, 400}; }
    QSize minimumSizeHint() const override { return {240, 160}; }

Q_SIGNALS:
    /// Times, values, curves or colours that are shown have changed.
    void viewChanged();

    /// The words have changed.
    void wordsChanged();

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void changeEvent(QEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void leaveEvent(QEvent* event) override;

private:
    // Where a drag began, and what was shown then.
    struct Drag {
        QPointF from;
        Interval time;
        Interval values;
        bool has_begun = false;
    };

    std::vector<const Series*> shown_series() const;
    const Series* axis_series() const;
    Interval everything() const;
    Interval axis_of(const Series& series) const;
    int most_value_ticks() const;
    void arrange();
    void arrange_time_ticks();
    void seek(double start, int direction);
    void changed();
    void tell_words();
    QString value_words(const Series& series) const;
    QPointF place_on(const Interval& axis, double time, double value) const;

    void draw_picture();
    void paint_grid(QPainter& painter) const;
    void paint_labels(QPainter& painter) const;
    void paint_curves(QPainter& painter) const;
    void paint_curve(QPainter& painter, const Series& series) const;
    double drawn_length(const Series& series, const std::vector<Point>& points) const;
    void paint_line(QPainter& painter, const Series& series, const std::vector<Point>& points) const;
    void paint_hint(QPainter& painter) const;
    void paint_cursor(QPainter& painter) const;
    void paint_values(QPainter& painter, double x) const;

    std::shared_ptr<const PlotData> data_;
    Interval home_{0, 1};
    std::set<std::pair<unsigned, bool>> switched_;  // curves that were switched, and how
    std::optional<Interval> chosen_time_;
    std::optional<Interval> chosen_values_;
    std::optional<double> cursor_;
    std::optional<unsigned> chosen_;
    std::optional<Drag> drag_;
    bool cursor_of_mouse_ = false;
    bool own_scales_ = false;
    bool dark_;

    QRectF field_;
    Interval time_{0, 1};
    Interval values_{0, 1};
    std::vector<Tick> time_ticks_;
    std::vector<Tick> value_ticks_;
    QPixmap picture_;  // all but the cursor; null when it is to be drawn anew
};

}  // namespace plot

#endif
