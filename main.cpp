#include <QApplication>

#include "descriptorzero.h"
#include "dialog.h"
#include "terminationsignals.h"

int main(int argc, char** argv) {
    put_null_on_descriptor_zero();
    QApplication application(argc, argv);
    // Taken over until the panel is gone: a second signal must not keep it from bringing the vehicle to rest.
    const TerminationSignals signals_of_the_system;
    Dialog dialog;
    // A termination signal closes the panel as its window button would, which brings the vehicle to rest.
    QObject::connect(&signals_of_the_system, &TerminationSignals::received, &dialog, &QWidget::close);
    dialog.show();
    return QApplication::exec();
}
