/// @file
/// Termination signals of the system, brought into the event loop.
///
/// A handler of a signal may call next to nothing (signal-safety(7)). This one writes a byte into a pipe; the
/// event loop finds it there and the application ends in its own time.

#ifndef TERMINATIONSIGNALS_H
#define TERMINATIONSIGNALS_H

#include <QObject>

/// Turns SIGINT, SIGTERM and SIGHUP into a Qt signal, as long as it lives.
///
/// A signal that the process was started with ignored (nohup(1)) stays ignored. The destructor restores what
/// was there before. At most one object exists at a time.
class TerminationSignals : public QObject {
    Q_OBJECT

public:
    /// Takes the signals over. Ends the process with status 1 when the system refuses a pipe.
    ///
    /// @param parent  owner, or nullptr
    explicit TerminationSignals(QObject* parent = nullptr);

    /// Restores the signals' earlier actions.
    ~TerminationSignals() override;

Q_SIGNALS:
    /// One or more termination signals have arrived. Emitted from the event loop of the object's thread.
    void received();

private:
    void EmptyPipe();
};

#endif
