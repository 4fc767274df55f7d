/// @file
/// The base of every drawn display widget: a still background that is painted once and kept, and a moving
/// foreground that is painted each time.
///
/// A gauge's dial, ticks and numbers cost hundreds of times what its needle costs, and they change next to
/// never while the needle changes ten times a second. So a drawn widget splits its picture in two:
/// paintBackground() draws what stands still into a transparent pixmap, and the widget's paint event draws
/// what moves and has the pixmap copied by drawBackground(), before (gauges with a needle) or after (a
/// highlight or a glass that lies on top).
///
/// The pixmap is painted again at the next paint event after
/// - the widget's size or the pixel ratio of the device it is shown on changed, or
/// - updateWithBackground(), which every setter calls whose property shows in the background.
/// A setter that moves only the foreground calls QWidget::update().

#ifndef WIDGETS_WIDGETWITHBACKGROUND_H
#define WIDGETS_WIDGETWITHBACKGROUND_H

#include <QPixmap>
#include <QSize>
#include <QWidget>
#include <memory>

/// A widget with a cached background.
///
/// A subclass implements paintBackground() and calls drawBackground() from its paint event. The two painters
/// are distinct, so each has its coordinate system set up anew.
class WidgetWithBackground : public QWidget {
    Q_OBJECT

public:
    /// Makes the widget with default window flags and an empty background of the widget's current size.
    ///
    /// @param parent  owner, or nullptr for a window of its own
    explicit WidgetWithBackground(QWidget* parent = nullptr);

    /// Releases the cached background.
    ~WidgetWithBackground() override;

protected:
    /// Copies the background to the widget's upper left corner, painting it first if it is out of date.
    ///
    /// Opens a painter of its own on the widget: the caller's painter must not be open.
    ///
    /// @pre called from the widget's paint event
    void drawBackground();

    /// Copies the background as drawBackground() does, with the caller's painter: a painter less to open.
    ///
    /// @param painter  newly opened on the widget, its transformation not touched yet
    void drawBackground(QPainter& painter);

    /// @return the background for the device that @p painter paints on, painted first if it is out of date;
    ///         null while the widget is empty
    /// @param painter  newly opened on the widget, its transformation not touched yet
    const QPixmap& background(const QPainter& painter);

    /// Copies @p pixmap to the widget's upper left corner, pixel by pixel where the painter neither turns nor
    /// mirrors.
    ///
    /// @param painter  newly opened on the widget, its transformation not touched yet
    /// @param pixmap   of the pixel ratio that background() has for the painter
    static void drawPixels(QPainter& painter, const QPixmap& pixmap);

    /// Paints the still part of the picture.
    ///
    /// @param painter  open on the transparent pixmap, in the widget's coordinates, whatever the device's
    ///                 pixel ratio
    virtual void paintBackground(QPainter& painter) = 0;

    /// Clears the pixmap to transparent black and has paintBackground() paint it.
    void repaintBackground();

    /// Has the background painted again at the next paint event, and asks for that event.
    void updateWithBackground();

    /// Tells whether the background is out of date.
    ///
    /// @return true from updateWithBackground() to the next paint and, whatever caused it, while the
    ///         background is being painted
    bool doRepaintBackground() const;

private:
    /// Tells whether the pixmap holds a background for this size and pixel ratio.
    bool isBackgroundCurrent(qreal ratio) const;

    std::unique_ptr<QPixmap> m_pixmap;  ///< the background
    bool m_modified = false;            ///< the background is to be painted again at the next paint
    QSize m_painted_size;  ///< the widget's size on the background; invalid before its first painting
};

#endif
