/// @file
/// Lines of text that are set from glyphs known before: numbers that change many times a second.
///
/// Shaping a text takes as long as drawing it, and a gauge or a label shows the same few characters in ever
/// new orders. What a character of a line looks like and how far the next one stands from it follows from
/// the two characters, kerning included. So a typesetter shapes a line as a whole only as long as one of its
/// pairs of characters is new to it, remembers what came out, and sets every other line from what it
/// remembers, to the same pixels.

#ifndef WIDGETS_TYPESETTER_H
#define WIDGETS_TYPESETTER_H

#include <QFont>
#include <QHash>
#include <QList>
#include <QPointF>
#include <QRawFont>
#include <QSize>
#include <QSizeF>
#include <QString>
#include <optional>

#include "widgets/textline.h"

class QPaintDevice;
class QPainter;

/// Sets lines of text one after the other. What it remembers is of one font at one resolution: another one
/// makes it start afresh.
class Typesetter {
public:
    /// Sets @p text, in whose place the next call puts another.
    ///
    /// @param text    without line breaks
    /// @param font    font of the text
    /// @param device  what the text is drawn on, whose dots per inch the font's point size is scaled by
    void set(const QString& text, const QFont& font, const QPaintDevice* device);

    /// @return width and height of the line in logical units
    QSizeF extent() const { return {m_width, m_height}; }

    /// @return extent() rounded up, which is what QFontMetrics::size() tells for the text with
    ///         Qt::TextSingleLine
    QSize size() const;

    /// @return distance from the line's start to its last glyph's end in logical units, without what of that
    ///         glyph hangs over the end: what an alignment goes by
    double advance() const { return m_advance; }

    /// @return distance of the baseline from the line's upper edge, in logical units
    double ascent() const { return m_ascent; }

    /// @return whether the line stands as it was shaped as a whole, for tests and for the curious
    bool wasShaped() const { return m_shaped.has_value(); }

    /// Draws the line in the painter's pen.
    ///
    /// @param painter  open, its transformation set
    /// @param origin   start of the baseline
    void draw(QPainter& painter, const QPointF& origin) const;

private:
    bool compose();
    void learn();
    void remember(char16_t character, char16_t next, double advance);

    QString m_text;
    QFont m_font;
    int m_dots_per_inch = 0;
    double m_width = 0;
    double m_advance = 0;
    double m_height = 0;
    double m_ascent = 0;
    std::optional<TextLine> m_shaped;  ///< the line, unless it was composed
    QList<quint32> m_glyphs;           ///< of the composed line
    QList<QPointF> m_positions;        ///< of the composed line's glyphs, on the baseline from 0

    /// What is known of the font.
    struct Glyphs {
        QRawFont font;                          ///< invalid as long as no glyph is known
        double height = 0;                      ///< of a line of these glyphs only
        double ascent = 0;                      ///< of a line of these glyphs only
        QHash<char16_t, quint32> of_character;  ///< index of a character's glyph
        QHash<quint32, double> advances;        ///< distance of the starts of two neighbours
        QHash<char16_t, double> overhangs;      ///< what of a character at the end hangs over it
        bool are_contextual = false;            ///< they depend on more than two neighbours: none is composed
    };
    Glyphs m_known;
};

#endif
