// The bare dialog as a program of its own, whose start is timed beside the panel's.

#include <QApplication>

#include "benchmarks/plaindialog.h"

int main(int argc, char** argv) {
    QApplication application(argc, argv);
    PlainDialog dialog;
    dialog.show();
    return QApplication::exec();
}
