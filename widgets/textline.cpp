#include "widgets/textline.h"

#include <QPainter>
#include <QtMath>

TextLine::TextLine(const QString& text, const QFont& font, const QPaintDevice* device)
    : m_layout(text, font, device) {
    // Keeps the shaped glyphs from the layout to the drawing.
    m_layout.setCacheEnabled(true);
    m_layout.beginLayout();
    m_layout.createLine();
    m_layout.endLayout();
}

QSize TextLine::size() const {
    return {qCeil(extent().width()), qCeil(extent().height())};
}

QSizeF TextLine::extent() const {
    const QTextLine line = m_layout.lineAt(0);
    return {line.naturalTextWidth(), line.ascent() + line.descent()};
}

double TextLine::advance() const {
    return m_layout.lineAt(0).horizontalAdvance();
}

double TextLine::ascent() const {
    return m_layout.lineAt(0).ascent();
}

QList<QGlyphRun> TextLine::glyphRuns() const {
    return m_layout.lineAt(0).glyphRuns();
}

void TextLine::draw(QPainter& painter, const QPointF& origin) const {
    const QTextLine line = m_layout.lineAt(0);
    line.draw(&painter, origin - QPointF(0, line.ascent()));
}
