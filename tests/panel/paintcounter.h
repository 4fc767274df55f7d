/// @file
/// Counts how often a widget is painted.

#ifndef TESTS_PANEL_PAINTCOUNTER_H
#define TESTS_PANEL_PAINTCOUNTER_H

#include <QEvent>
#include <QObject>
#include <QWidget>

/// Counts the paint events of a widget, from construction on.
class PaintCounter : public QObject {
public:
    explicit PaintCounter(QWidget* widget) { widget->installEventFilter(this); }
    bool eventFilter(QObject* /*watched*/, QEvent* event) override {
        count += event->type() == QEvent::Paint ? 1 : 0;
        return false;
    }
    int count = 0;
};

#endif
