/// @file
/// The plotting window: curves of a feed or a file, their names, and what can be done with them.

#ifndef TOOLS_PLOT_VIEW_PLOTWINDOW_H
#define TOOLS_PLOT_VIEW_PLOTWINDOW_H

#include <QLabel>
#include <QMainWindow>
#include <QTimer>
#include <QUdpSocket>
#include <memory>

#include "tools/plot_view/legend.h"
#include "tools/plot_view/livefeed.h"
#include "tools/plot_view/plotfile.h"
#include "tools/plot_view/plotview.h"

namespace plot {

/// The main window. Everything in it is an action of its menus, with a key.
class PlotWindow : public QMainWindow {
    Q_OBJECT

public:
    PlotWindow();

    /// Shows a feed's curves from now on, received by UDP on every address of the machine.
    /// @param port    0 lets the system pick one, see port()
    /// @param step_s  seconds from one sample position to the next; 0 when nobody knows
    /// @return        why that is impossible; empty if it is not
    QString listen(quint16 port, double step_s);

    /// The port that the feed is received on; 0 without a feed.
    quint16 port() const { return socket_.localPort(); }

    /// Shows a recording instead of what was shown; a feed is no longer listened to. Curves that differ very much in size
    /// get scales of their own.
    /// @param recording  what was read
    /// @param path       the file that it was read from
    void show_recording(Recording recording, const QString& path);

    /// Reads a file and shows it; what is wrong with it is told in a message.
    void open(const QString& path);

    /// Writes the curves that are switched on, at the times that are shown, as a table.
    /// @return why that failed; empty if it did not
    QString save_table(const QString& path) const;

    /// Saves the names and the field as a picture, PNG.
    /// @return why that failed; empty if it did not
    QString save_picture(const QString& path);

    /// The field with the curves.
    PlotView& view() { return *view_; }

    /// The names of the curves.
    Legend& legend() { return *legend_; }

Q_SIGNALS:
    /// The feed has stopped its client: its picture stands.
    void feedStopped();

protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    template <typename Does>
    QAction* add(QMenu& menu, const char* text, const QList<QKeySequence>& keys, const char* tip, Does does);
    void add_file_menu();
    void add_view_menu();
    void add_curves_menu();
    void add_tool_bar();
    void receive();
    void refresh();
    void show_state();
    void tell(const QString& what);
    void choose_file();
    void choose_table();
    void choose_picture();

    PlotView* view_;
    Legend* legend_;
    QLabel* words_;
    QLabel* source_;
    QAction* pause_ = nullptr;
    QAction* home_ = nullptr;
    QAction* fit_ = nullptr;
    QAction* own_scales_ = nullptr;
    QAction* dark_ = nullptr;
    QAction* reload_ = nullptr;
    QList<QAction*> zooms_of_values_;
    QList<QAction*> buttons_;

    QUdpSocket socket_;
    LiveFeed feed_;
    QTimer refresh_;  // so that many batches are one drawing
    bool stop_told_ = false;
    QString path_;   // of the recording
    QString notes_;  // about it
};

}  // namespace plot

#endif
