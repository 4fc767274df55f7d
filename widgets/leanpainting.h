/// @file
/// Plain labels and frames, painted at a fraction of the cost.
///
/// A panel that shows numbers many times a second spends most of its work on what stands around them: a label
/// has its text shaped anew for each paint, although the same few digits come again and again, and a frame is
/// drawn anew whenever anything on it changes, although only its edge is its own. The class here answers the
/// paint events of such widgets in their place, with the same pixels: a label's text is set by a Typesetter,
/// and a frame of which only the inside is asked for, or a label of which only empty space is, paints nothing.

#ifndef WIDGETS_LEANPAINTING_H
#define WIDGETS_LEANPAINTING_H

#include <QFont>
#include <QObject>
#include <QSet>
#include <list>

#include "widgets/typesetter.h"

class QFrame;
class QLabel;
class QPaintEvent;

/// Paints labels and frames in their place.
///
/// It paints where it knows what the toolkit would: in the Fusion style, enabled labels with one line of plain
/// text from left to right. All else is left to the widget itself, at each paint anew, so that nothing has to
/// be known when a widget is taken over, and everything may change later.
class LeanPainting : public QObject {
    Q_OBJECT

public:
    /// @param parent  owner, or nullptr
    explicit LeanPainting(QObject* parent = nullptr);

    /// Takes the painting of @p label over, until one of both is destroyed.
    void takeOver(QLabel* label);

    /// Takes the painting of @p frame over, until one of both is destroyed. Subclasses of QFrame that draw inside
    /// of it are not for this.
    void takeOver(QFrame* frame);

    /// @return true when the paint event of a widget taken over was answered here
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    bool paint(QLabel& label, const QPaintEvent& event);

    Typesetter& setterFor(const QFont& font);

    /// Labels of one font show the same digits, so they share what is known of it.
    struct FontSetter {
        QFont font;
        Typesetter setter;
    };
    QSet<QObject*> m_labels;          ///< taken over
    std::list<FontSetter> m_setters;  ///< of the fonts seen last
};

#endif
