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
    const QTextLine line = m_layout.lineAt(0);
    return {qCeil(line.naturalTextWidth()), qCeil(line.height())};
}

void TextLine::draw(QPainter& painter, const QPointF& origin) const {
    const QTextLine line = m_layout.lineAt(0);
    line.draw(&painter, origin - QPointF(0, line.ascent()));
}
