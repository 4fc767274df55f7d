/// @file
/// What the panel's start is held against: a bare dialog of the panel's size with the toolkit's own widgets of
/// the panel's form, in the same fonts.

#ifndef BENCHMARKS_PLAINDIALOG_H
#define BENCHMARKS_PLAINDIALOG_H

#include <QCheckBox>
#include <QComboBox>
#include <QDialog>
#include <QFont>
#include <QFrame>
#include <QGroupBox>
#include <QLCDNumber>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QRadioButton>
#include <QScrollBar>
#include <QSpinBox>
#include <QTextBrowser>

/// The bare dialog.
class PlainDialog : public QDialog {
public:
    PlainDialog() {
        setFixedSize(width, height);
        add_with_text<QLabel>(33);
        add_labels(3, 14, false);
        add_labels(10, 12, false);
        add_labels(1, 12, true);
        add_labels(4, 14, true);
        add_frames(8, QFrame::StyledPanel);
        add_frames(7, QFrame::HLine);
        add<QTextBrowser>(6);
        add_with_text<QGroupBox>(1);
        add<QLCDNumber>(1);
        add<QProgressBar>(3);
        add<QScrollBar>(3);
        add_with_text<QPushButton>(2);
        add_with_text<QCheckBox>(2);
        add_with_text<QRadioButton>(3);
        add<QComboBox>(1);
        add<QSpinBox>(1);
    }

private:
    static constexpr int width = 620;
    static constexpr int height = 508;
    static constexpr int columns = 8;
    static constexpr int cell_width = width / columns;
    static constexpr int cell_height = height / 12;

    template <typename Widget>
    void add(int count) {
        for (; count > 0; --count) {
            place(new Widget(this));
        }
    }

    template <typename Widget>
    void add_with_text(int count) {
        for (; count > 0; --count) {
            place(new Widget(QStringLiteral("Widget"), this));
        }
    }

    void add_labels(int count, int points, bool bold) {
        QFont font(QStringLiteral("Bitstream Charter"), points);
        font.setBold(bold);
        for (; count > 0; --count) {
            auto* label = new QLabel(QStringLiteral("Widget"), this);
            label->setFont(font);
            place(label);
        }
    }

    void add_frames(int count, QFrame::Shape shape) {
        for (; count > 0; --count) {
            auto* frame = new QFrame(this);
            frame->setFrameShape(shape);
            place(frame);
        }
    }

    // Places widgets one after the other in a grid.
    void place(QWidget* widget) {
        widget->setGeometry(cell_width * (m_placed % columns), cell_height * (m_placed / columns),
                            cell_width - 4, cell_height - 4);
        ++m_placed;
    }

    int m_placed = 0;
};

#endif
