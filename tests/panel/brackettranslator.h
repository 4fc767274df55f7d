/// @file
/// A language for tests.

#ifndef TESTS_PANEL_BRACKETTRANSLATOR_H
#define TESTS_PANEL_BRACKETTRANSLATOR_H

#include <QString>
#include <QTranslator>

/// Translates every text to itself in brackets.
class BracketTranslator : public QTranslator {
public:
    QString translate(const char* /*context*/, const char* source, const char* /*disambiguation*/,
                      int /*n*/) const override {
        return QLatin1Char('[') + QString::fromUtf8(source) + QLatin1Char(']');
    }
    bool isEmpty() const override { return false; }
};

#endif
