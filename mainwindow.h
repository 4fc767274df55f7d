/// @file
/// A small terminal window on the controller's serial line.
///
/// It shows the first three bytes of every read as numbers, and opens a control panel of its own as a dialog.
/// The application starts with the control panel instead (@see Dialog); whoever shows this window too must
/// see to it that only one of them has the line open at a time.

#ifndef MAINWINDOW_H
#define MAINWINDOW_H

#include <QMainWindow>
#include <QString>
#include <memory>
#include <string>

#include "controlthread.h"
#include "dialog.h"
#include "nodevik/util/serial.h"

class QTimer;
class Ui_MainWindow;

/// The serial terminal window.
class MainWindow : public QMainWindow {
    Q_OBJECT

public:
    /// Makes the window with the line closed.
    ///
    /// @param parent  owner, or nullptr
    /// @param device  path of the serial device that the window and its panel open
    explicit MainWindow(QWidget* parent = nullptr, std::string device = "/dev/ttyS0");

    ~MainWindow() override;

public Q_SLOTS:
    /// Reads what has arrived, shows the count, and logs the receive buffer's first three bytes, whatever the
    /// count: byte 0 as 0 to 255, byte 1 as -128 to 127, byte 2 as 0 to 255, and a blank line.
    ///
    /// A line that cannot be read ends the process (@see serial::read).
    void readLoop();

    /// Does nothing: the slider's value is shown, never sent.
    void writeLoop();

    /// Opens the window's own control panel, modal to this window.
    void OpenDialog();

    /// Opens the line at the chosen speed, logs "Serial port opened" and begins to read every 300 ms.
    ///
    /// A device that cannot be opened ends the process (@see serial::open).
    void OpenPort();

    /// Closes the line, logs "Serial port closed" and ends the reading.
    void ClosePort();

protected:
    /// Re-applies the form's texts when the language changes.
    void changeEvent(QEvent* event) override;

private:
    unsigned int Baudrate = 0;
    QString viestiteksti;  // not used
    std::unique_ptr<Ui_MainWindow> ui;
    QTimer* timer;
    std::string device_path;
    serial ohjuri;
    Dialog dialog;
    ControlThread cthread;  // never started
    int bytes = 0;          // count of the last read
};

#endif
