#include <QApplication>
#include <QSocketNotifier>
#include <csignal>

#include "descriptorzero.h"
#include "dialog.h"
#include "lineguard.h"
#include "terminationsignals.h"

namespace {

// Notices the guard's end when it comes, not at the next opening of the port.
void watch(LineGuard& guard, QObject* parent) {
    if (guard.descriptor() == -1) {
        return;
    }
    auto* const notifier = new QSocketNotifier(guard.descriptor(), QSocketNotifier::Read, parent);
    QObject::connect(notifier, &QSocketNotifier::activated, notifier,
                     [notifier, &guard] { notifier->setEnabled(guard.look()); });
}

}  // namespace

int main(int argc, char** argv) {
    put_null_on_descriptor_zero();
    // Whoever reads what the panel prints may go away; the panel must not go with it.
    std::signal(SIGPIPE, SIG_IGN);
    // Before the toolkit starts threads and connects to the display: the guard shares neither.
    LineGuard guard(argv);
    QApplication application(argc, argv);
    // Taken over until the panel is gone: a second signal must not keep it from bringing the vehicle to rest.
    const TerminationSignals signals_of_the_system;
    Dialog dialog(nullptr, ControlThread::oletuslaite, &guard);
    watch(guard, &dialog);
    // A termination signal closes the panel as its window button would, which brings the vehicle to rest.
    QObject::connect(&signals_of_the_system, &TerminationSignals::received, &dialog, &QWidget::close);
    dialog.show();
    return QApplication::exec();
}
