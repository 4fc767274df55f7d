// Lines for the panel's status view, each one painted: status_bench append COUNT, for callgrind.

#include <QApplication>
#include <QCheckBox>
#include <QString>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "dialog.h"

int main(int argc, char** argv) {
    const QApplication application(argc, argv);
    if (argc != 3 || std::strcmp(argv[1], "append") != 0) {
        std::fprintf(stderr, "usage: status_bench append COUNT\n");
        return EXIT_FAILURE;
    }
    Dialog panel;
    panel.show();
    panel.findChild<QCheckBox*>(QStringLiteral("Ohj2Check"))->setChecked(true);
    QApplication::processEvents();
    const int count = std::atoi(argv[2]);
    for (int i = 0; i < count; i++) {
        panel.KirjoitaIkkunaan(QStringLiteral("Send failure"));
        QApplication::processEvents();
    }
    return EXIT_SUCCESS;
}
