#include "widgets/typesetter.h"

#include <QGlyphRun>
#include <QPainter>
#include <QtMath>
#include <algorithm>
#include <cmath>
#include <utility>

namespace {

// Stands for the line's start before the first character, and for its end behind the last.
constexpr char16_t line_end = 0;

quint32 pairOf(char16_t character, char16_t next) {
    return static_cast<quint32>(character) << 16U | next;
}

/// Tells whether each character of @p text has a glyph of its own in a font for Latin scripts, from left to
/// right: what joins, mirrors or stacks its characters is shaped as a whole.
bool isPlain(const QString& text) {
    return std::all_of(text.begin(), text.end(), [](QChar character) {
        const char16_t code = character.unicode();
        constexpr char16_t soft_hyphen = 0xAD;
        return (code >= u' ' && code <= u'~') || (code > 0xA0 && code <= 0xFF && code != soft_hyphen);
    });
}

/// Tells whether a line in @p font is its glyphs and nothing else.
bool isUndecorated(const QFont& font) {
    return !font.underline() && !font.overline() && !font.strikeOut() &&
           font.capitalization() == QFont::MixedCase;
}

/// @p number cut to what the text layout counts in.
double inSixtyFourths(double number) {
    return std::trunc(number * 64) / 64;
}

}  // namespace

void Typesetter::set(const QString& text, const QFont& font, const QPaintDevice* device) {
    const bool same_glyphs = m_dots_per_inch == device->logicalDpiY() && m_font == font;
    if (same_glyphs && m_text == text) {
        return;
    }
    if (!same_glyphs) {
        m_known = {};
        m_font = font;
        m_dots_per_inch = device->logicalDpiY();
    }
    m_text = text;
    m_shaped.reset();
    if (!compose()) {
        m_shaped.emplace(text, font, device);
        m_width = m_shaped->extent().width();
        m_advance = m_shaped->advance();
        m_height = m_shaped->extent().height();
        m_ascent = m_shaped->ascent();
        learn();
    }
}

QSize Typesetter::size() const {
    return {qCeil(m_width), qCeil(m_height)};
}

void Typesetter::draw(QPainter& painter, const QPointF& origin) const {
    if (m_shaped) {
        m_shaped->draw(painter, origin);
        return;
    }
    QGlyphRun run;
    run.setRawFont(m_known.font);
    run.setRawData(m_glyphs.constData(), m_positions.constData(), static_cast<int>(m_glyphs.size()));
    // To the sixty-fourth where a layout draws: a baseline between two rows of pixels falls on the same one.
    const double top = inSixtyFourths(origin.y() - m_ascent);
    painter.drawGlyphRun(QPointF(inSixtyFourths(origin.x()), top + m_ascent), run);
}

/// Sets the line from known glyphs; returns false when one of its pairs is new.
bool Typesetter::compose() {
    if (!m_known.font.isValid()) {
        return false;
    }
    m_glyphs.clear();
    m_positions.clear();
    char16_t previous = line_end;
    double x = 0;
    for (const QChar character : std::as_const(m_text)) {
        const auto advance = m_known.advances.constFind(pairOf(previous, character.unicode()));
        if (advance == m_known.advances.constEnd()) {
            return false;
        }
        x += *advance;
        m_glyphs.append(m_known.of_character.value(character.unicode()));
        m_positions.append(QPointF(x, 0));
        previous = character.unicode();
    }
    const auto rest = m_known.advances.constFind(pairOf(previous, line_end));
    if (rest == m_known.advances.constEnd()) {
        return false;
    }
    m_width = x + *rest;
    m_advance = m_width - m_known.overhangs.value(previous);
    m_height = m_known.height;  // a line that was shaped before may have glyphs of another, higher font
    m_ascent = m_known.ascent;
    return true;
}

/// Remembers the glyphs of the line just shaped, if each belongs to one character. A font that draws a
/// character in more than one way is given up: which way it takes does not follow from two neighbours.
void Typesetter::learn() {
    if (m_known.are_contextual || m_text.isEmpty() || !isPlain(m_text) || !isUndecorated(m_font)) {
        return;
    }
    const QList<QGlyphRun> runs = m_shaped->glyphRuns();
    if (runs.size() != 1 || runs.first().glyphIndexes().size() != m_text.size() ||
        (m_known.font.isValid() && m_known.font != runs.first().rawFont())) {
        return;
    }
    m_known.font = runs.first().rawFont();
    m_known.height = m_height;
    m_known.ascent = m_ascent;
    const QList<quint32> glyphs = runs.first().glyphIndexes();
    const QList<QPointF> positions = runs.first().positions();
    char16_t previous = line_end;
    double x = 0;
    for (qsizetype i = 0; i < glyphs.size() && !m_known.are_contextual; ++i) {
        const char16_t character = m_text[i].unicode();
        remember(previous, character, positions[i].x() - x);
        m_known.are_contextual = m_known.are_contextual ||
                                 m_known.of_character.value(character, glyphs[i]) != glyphs[i] ||
                                 positions[i].y() != positions.first().y();
        m_known.of_character.insert(character, glyphs[i]);
        x = positions[i].x();
        previous = character;
    }
    remember(previous, line_end, m_width - x);
    m_known.overhangs.insert(previous, m_width - m_advance);
    if (m_known.are_contextual) {
        m_known.font = QRawFont();
    }
}

void Typesetter::remember(char16_t character, char16_t next, double advance) {
    const quint32 pair = pairOf(character, next);
    m_known.are_contextual = m_known.are_contextual || m_known.advances.value(pair, advance) != advance;
    m_known.advances.insert(pair, advance);
}
