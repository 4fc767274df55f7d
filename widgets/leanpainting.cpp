#include "widgets/leanpainting.h"

#include <QEvent>
#include <QFrame>
#include <QLabel>
#include <QPaintEvent>
#include <QPainter>
#include <QPen>
#include <QStyle>
#include <algorithm>
#include <string_view>

namespace {

/// Tells whether the style is the one that paints labels and frames as it is done here.
bool isFusion(const QWidget& widget) {
    return !widget.testAttribute(Qt::WA_StyleSheet) &&
           widget.style()->metaObject()->className() == std::string_view("QFusionStyle");
}

/// Tells whether @p text is shown as it stands: no markup, no mnemonic, one line, begun at the left.
bool isOnePlainLine(const QString& text) {
    return !text.isRightToLeft() && std::none_of(text.begin(), text.end(), [](QChar character) {
        return character == u'<' || character == u'&' || character < u' ' ||
               character == QChar::LineSeparator || character == QChar::ParagraphSeparator;
    });
}

/// Tells whether @p label shows nothing but one line of text, unchanged, from left to right.
bool isPlain(const QLabel& label) {
    constexpr Qt::TextInteractionFlags links = Qt::LinksAccessibleByMouse | Qt::LinksAccessibleByKeyboard;
    return label.isEnabled() && label.frameShape() == QFrame::NoFrame && !label.wordWrap() &&
           label.layoutDirection() == Qt::LeftToRight && label.indent() <= 0 && label.margin() == 0 &&
           (label.textFormat() == Qt::AutoText || label.textFormat() == Qt::PlainText) &&
           !(label.textInteractionFlags() & ~links) && !label.text().isEmpty() &&
           isOnePlainLine(label.text());
}

/// Where @p line starts in @p area.
QPointF placed(const Typesetter& line, const QRect& area, Qt::Alignment alignment) {
    QPointF place = area.topLeft();
    const double height = line.extent().height();
    if (alignment & Qt::AlignHCenter) {
        place.rx() += (area.width() - line.advance()) / 2;
    } else if (alignment & Qt::AlignRight) {
        place.rx() += area.width() - line.advance();
    }
    if (alignment & Qt::AlignVCenter) {
        place.ry() += (area.height() - height) / 2;
    } else if (alignment & Qt::AlignBottom) {
        place.ry() += area.height() - height;
    }
    return place;
}

/// Tells whether @p frame draws nothing but the lines along its edge.
bool isEdgeOnly(const QFrame& frame) {
    switch (frame.frameShape()) {
        case QFrame::NoFrame:
        case QFrame::Box:
        case QFrame::Panel:
        case QFrame::StyledPanel:
        case QFrame::WinPanel:
            return true;
        default:
            return false;
    }
}

}  // namespace

LeanPainting::LeanPainting(QObject* parent) : QObject(parent) {}

void LeanPainting::takeOver(QLabel* label) {
    m_labels.insert(label);
    label->installEventFilter(this);
    connect(label, &QObject::destroyed, this, [this](QObject* gone) { m_labels.remove(gone); });
}

void LeanPainting::takeOver(QFrame* frame) {
    frame->installEventFilter(this);
}

bool LeanPainting::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() != QEvent::Paint) {
        return false;
    }
    const auto& paint_event = static_cast<const QPaintEvent&>(*event);
    if (m_labels.contains(watched)) {
        return paint(static_cast<QLabel&>(*watched), paint_event);
    }
    const auto& frame = static_cast<const QFrame&>(*watched);
    return isEdgeOnly(frame) && frame.contentsRect().contains(paint_event.rect()) && isFusion(frame);
}

bool LeanPainting::paint(QLabel& label, const QPaintEvent& event) {
    if (!isPlain(label) || !isFusion(label)) {
        return false;
    }
    Typesetter& line = setterFor(label.font());
    line.set(label.text(), label.font(), &label);
    const QRect area = label.contentsRect();
    const QPointF place = placed(line, area, label.alignment());
    const QRectF text(place, line.extent());
    if (!QRectF(area).contains(text)) {
        return false;  // the toolkit knows what it cuts
    }
    // Slanted and accented glyphs hang over their line, by less than its height.
    const double overhang = line.extent().height();
    const QRectF ink = text.adjusted(-overhang, -overhang, overhang, overhang);
    if (!event.rect().intersects(ink.toAlignedRect())) {
        return true;
    }
    QPainter painter(&label);
    painter.setPen(QPen(label.palette().brush(label.foregroundRole()), 1));
    line.draw(painter, place + QPointF(0, line.ascent()));
    return true;
}

Typesetter& LeanPainting::setterFor(const QFont& font) {
    constexpr std::size_t most_fonts = 8;
    const auto known = std::find_if(m_setters.begin(), m_setters.end(),
                                    [&font](const FontSetter& entry) { return entry.font == font; });
    if (known != m_setters.end()) {
        return known->setter;
    }
    if (m_setters.size() == most_fonts) {
        m_setters.pop_front();
    }
    m_setters.emplace_back().font = font;
    return m_setters.back().setter;
}
