/// @file
/// One line of text that is laid out once, for measuring it and for drawing it.
///
/// Shaping a text costs more than drawing its glyphs, and asking the font's metrics first and having the
/// painter draw after shapes it twice. A gauge places its texts by their sizes at every change of its value.

#ifndef WIDGETS_TEXTLINE_H
#define WIDGETS_TEXTLINE_H

#include <QGlyphRun>
#include <QList>
#include <QSize>
#include <QSizeF>
#include <QString>
#include <QTextLayout>

class QPainter;

/// A text in a font.
class TextLine {
public:
    /// Lays @p text out in one line.
    ///
    /// @param text    without line breaks
    /// @param font    font of the text; keeping the font from one text to the next saves looking it up again
    /// @param device  what the text is drawn on, whose dots per inch the font's point size is scaled by
    TextLine(const QString& text, const QFont& font, const QPaintDevice* device);

    /// @return what QFontMetrics::size() tells for the text with Qt::TextSingleLine: width and height in
    ///         logical units, rounded up
    QSize size() const;

    /// @return width and height in logical units, not rounded
    QSizeF extent() const;

    /// @return distance from the line's start to its last glyph's end in logical units, without what of that
    ///         glyph hangs over the end: what an alignment goes by
    double advance() const;

    /// @return distance of the baseline from the line's upper edge, in logical units
    double ascent() const;

    /// @return the glyphs of the line
    QList<QGlyphRun> glyphRuns() const;

    /// Draws the text in the painter's pen.
    ///
    /// @param painter  open, its transformation set
    /// @param origin   start of the baseline
    void draw(QPainter& painter, const QPointF& origin) const;

private:
    QTextLayout m_layout;
};

#endif
