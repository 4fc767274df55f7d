#include "tools/plot_view/plotwindow.h"

#include <QAction>
#include <QApplication>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QMenuBar>
#include <QMessageBox>
#include <QMimeData>
#include <QNetworkProxy>
#include <QSaveFile>
#include <QStatusBar>
#include <QToolBar>
#include <QToolButton>
#include <QVBoxLayout>
#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "tools/plot_view/csvtable.h"

namespace plot {

namespace {

constexpr int refresh_ms = 20;
constexpr int most_datagrams = 500;              // between two looks at keyboard and mouse
constexpr int receive_buffer = 4 * 1024 * 1024;  // bytes
constexpr double most_different = 1000;  // times as large may a curve be as another one on the same axis
constexpr double zoom_of_a_key = 0.5;
constexpr double pan_of_a_key = 0.25;
constexpr auto table_filter = "Tables (*.csv)";
constexpr auto picture_filter = "Pictures (*.png)";
constexpr auto recording_filter = "Recordings (*.csv *.json *.jsonl *.txt);;All files (*)";

double middle_of(const Interval& interval) {
    return interval.low / 2 + interval.high / 2;
}

// Where zooming in time keeps still: at the cursor, or in the middle.
double still_time(const PlotView& view) {
    const auto cursor = view.cursor();
    return cursor && view.time_shown().contains(*cursor) ? *cursor : middle_of(view.time_shown());
}

// Whether curves that are shown at first differ so much in size that on one axis some would be flat.
bool needs_own_scales(const PlotData& data) {
    double least = std::numeric_limits<double>::infinity();
    double greatest = 0;
    for (const Series& series : data.series) {
        const auto extent = series.shown ? series.extent(0, series.size()) : std::nullopt;
        const double size = extent ? std::max(std::abs(extent->low), std::abs(extent->high)) : 0;
        least = size > 0 ? std::min(least, size) : least;
        greatest = std::max(greatest, size);
    }
    return greatest / least > most_different;
}

QString file_name(const QString& path) {
    return QFileInfo(path).fileName();
}

// Finishes what was written to a file; why it is not there, or empty.
QString commit(QSaveFile& file, bool is_written) {
    if (is_written && file.commit()) {
        return {};
    }
    return QStringLiteral("cannot be written: ") + file.errorString();
}

}  // namespace

PlotWindow::PlotWindow()
    : view_(new PlotView), legend_(new Legend(*view_)), words_(new QLabel), source_(new QLabel) {
    setWindowTitle(QStringLiteral("nodevik-plot"));
    setAcceptDrops(true);
    auto* const center = new QWidget;
    auto* const layout = new QVBoxLayout(center);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(legend_);
    layout->addWidget(view_, 1);
    setCentralWidget(center);
    for (QLabel* label : {words_, source_}) {
        label->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
        label->setTextFormat(Qt::PlainText);
        label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    }
    statusBar()->addWidget(words_, 3);
    statusBar()->addWidget(source_, 2);
    words_->setObjectName(QStringLiteral("words"));
    source_->setObjectName(QStringLiteral("source"));
    source_->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    add_file_menu();
    add_view_menu();
    add_curves_menu();
    add_tool_bar();
    socket_.setProxy(QNetworkProxy::NoProxy);  // else the system is asked for one, by a thread
    refresh_.setSingleShot(true);
    refresh_.setInterval(refresh_ms);
    connect(&refresh_, &QTimer::timeout, this, &PlotWindow::refresh);
    connect(&socket_, &QUdpSocket::readyRead, this, &PlotWindow::receive);
    connect(view_, &PlotView::viewChanged, this, &PlotWindow::show_state);
    connect(view_, &PlotView::wordsChanged, this, &PlotWindow::show_state);
    resize(900, 560);
    view_->setFocus();
    show_state();
}

// An action with its place in a menu, its keys and what a screen reader and a tip say of it.
template <typename Does>
QAction* PlotWindow::add(QMenu& menu, const char* text, const QList<QKeySequence>& keys, const char* tip,
                         Does does) {
    auto* const action = menu.addAction(QString::fromUtf8(text));
    action->setShortcuts(keys);
    action->setStatusTip(QString::fromUtf8(tip));
    action->setToolTip(QString::fromUtf8(tip) +
                       (keys.isEmpty()
                            ? QString()
                            : QStringLiteral(" (%1)").arg(keys.first().toString(QKeySequence::NativeText))));
    connect(action, &QAction::triggered, this, does);
    return action;
}

void PlotWindow::add_file_menu() {
    QMenu& menu = *menuBar()->addMenu(QStringLiteral("&File"));
    buttons_ += add(menu, "&Open…", {QKeySequence::Open}, "Open a table or a recording of frames",
                    [this] { choose_file(); });
    reload_ = add(menu, "&Read again", {Qt::Key_F5}, "Read the file again", [this] { open(path_); });
    menu.addSeparator();
    buttons_ += add(menu, "Export &table…", {QKeySequence::Save}, "Write what is shown as a table, CSV",
                    [this] { choose_table(); });
    buttons_ += add(menu, "Export &picture…", {Qt::CTRL | Qt::SHIFT | Qt::Key_S}, "Save the picture, PNG",
                    [this] { choose_picture(); });
    menu.addSeparator();
    add(menu, "&Quit", {Qt::CTRL | Qt::Key_Q}, "Close the window", [this] { close(); });
}

void PlotWindow::add_view_menu() {
    QMenu& menu = *menuBar()->addMenu(QStringLiteral("&View"));
    pause_ =
        add(menu, "&Pause", {Qt::Key_P}, "Keep the picture while the feed goes on", [this] { refresh(); });
    pause_->setCheckable(true);
    home_ = add(menu, "&Follow", {Qt::Key_F}, "Return to all of the file, or to the newest of the feed",
                [this] { view_->follow(); });
    menu.addSeparator();
    QAction* const closer =
        add(menu, "Zoom &in", {QKeySequence::ZoomIn, Qt::CTRL | Qt::Key_Equal}, "Show a shorter time",
            [this] { view_->zoom_time(zoom_of_a_key, still_time(*view_)); });
    QAction* const wider = add(menu, "Zoom &out", {QKeySequence::ZoomOut}, "Show a longer time",
                               [this] { view_->zoom_time(1 / zoom_of_a_key, still_time(*view_)); });
    QAction* const earlier = add(menu, "&Earlier", {Qt::CTRL | Qt::Key_Left}, "Move to earlier times",
                                 [this] { view_->pan_time(-pan_of_a_key); });
    QAction* const later = add(menu, "&Later", {Qt::CTRL | Qt::Key_Right}, "Move to later times",
                               [this] { view_->pan_time(pan_of_a_key); });
    menu.addSeparator();
    fit_ = add(menu, "Fit &values", {Qt::Key_V}, "Have the values shown fill the field",
               [this] { view_->fit_values(); });
    zooms_of_values_ +=
        add(menu, "Zoom in on va&lues", {Qt::CTRL | Qt::Key_Up}, "Show a smaller range of values",
            [this] { view_->zoom_values(zoom_of_a_key, middle_of(view_->values_shown())); });
    zooms_of_values_ +=
        add(menu, "Zoom out of val&ues", {Qt::CTRL | Qt::Key_Down}, "Show a greater range of values",
            [this] { view_->zoom_values(1 / zoom_of_a_key, middle_of(view_->values_shown())); });
    own_scales_ = add(menu, "Own &scales", {Qt::Key_S}, "Have each curve fill the field by itself",
                      [this](bool on) { view_->set_own_scales(on); });
    own_scales_->setCheckable(true);
    menu.addSeparator();
    dark_ = add(menu, "&Dark field", {Qt::Key_D}, "Make the field dark or light",
                [this](bool on) { view_->set_dark(on); });
    dark_->setCheckable(true);
    buttons_ += {pause_, home_, closer, wider, earlier, later, fit_, own_scales_};
}

void PlotWindow::add_curves_menu() {
    QMenu& menu = *menuBar()->addMenu(QStringLiteral("&Curves"));
    add(menu, "&All", {Qt::CTRL | Qt::Key_A}, "Switch all curves on",
        [this] { view_->set_curves_shown(true); });
    add(menu, "&None", {Qt::CTRL | Qt::SHIFT | Qt::Key_A}, "Switch all curves off",
        [this] { view_->set_curves_shown(false); });
    menu.addSeparator();
    add(menu, "Choose n&ext", {Qt::Key_Period}, "Have the cursor and the scale speak of the next curve",
        [this] { view_->choose_curve(1); });
    add(menu, "Choose &previous", {Qt::Key_Comma},
        "Have the cursor and the scale speak of the previous curve", [this] { view_->choose_curve(-1); });
}

void PlotWindow::add_tool_bar() {
    QToolBar& bar = *addToolBar(QStringLiteral("Tools"));
    bar.setToolButtonStyle(Qt::ToolButtonTextOnly);
    bar.setMovable(false);
    bar.addActions(buttons_);
    if (auto* const more = bar.findChild<QToolButton*>(QStringLiteral("qt_toolbar_ext_button"))) {
        more->setAccessibleName(QStringLiteral("More tools"));
    }
}

QString PlotWindow::listen(quint16 port, double step_s) {
    if (!socket_.bind(QHostAddress(QHostAddress::AnyIPv4), port)) {
        return QStringLiteral("UDP port %1 cannot be used: %2; choose another one, or 0 for any that is free")
            .arg(port)
            .arg(socket_.errorString());
    }
    socket_.setSocketOption(QAbstractSocket::ReceiveBufferSizeSocketOption, receive_buffer);
    feed_ = LiveFeed(step_s);
    path_.clear();
    notes_.clear();
    stop_told_ = false;
    view_->start_anew();
    refresh();
    return {};
}

// Takes what has arrived; what is left is taken after the keyboard and the mouse have had their turn.
void PlotWindow::receive() {
    QByteArray datagram;
    for (int count = 0; socket_.hasPendingDatagrams(); ++count) {
        if (count == most_datagrams) {
            QTimer::singleShot(0, this, &PlotWindow::receive);
            break;
        }
        datagram.resize(std::max<qint64>(socket_.pendingDatagramSize(), 0));
        const qint64 size = socket_.readDatagram(datagram.data(), datagram.size());
        feed_.take({reinterpret_cast<const std::uint8_t*>(datagram.constData()),
                    static_cast<std::size_t>(std::max<qint64>(size, 0))});
    }
    if (!refresh_.isActive()) {
        refresh_.start();
    }
}

void PlotWindow::refresh() {
    if (port() == 0 || pause_->isChecked()) {
        show_state();
        return;
    }
    view_->show_data(std::make_shared<PlotData>(feed_.data()), feed_.window());
    const bool stopped = feed_.stopped();
    if (stopped && !stop_told_) {
        Q_EMIT feedStopped();
    }
    stop_told_ = stopped;
}

void PlotWindow::show_recording(Recording recording, const QString& path) {
    socket_.close();
    refresh_.stop();
    pause_->setChecked(false);
    if (path != path_) {
        view_->start_anew();
        view_->set_own_scales(needs_own_scales(recording.data));
    }
    path_ = path;
    notes_.clear();
    for (const std::string& note : recording.notes) {
        notes_ += QStringLiteral("; ") + QString::fromStdString(note);
    }
    const auto duration = recording.data.duration();
    view_->show_data(std::make_shared<PlotData>(std::move(recording.data)),
                     duration.value_or(Interval{0, 1}));
    setWindowTitle(file_name(path) + QStringLiteral(" – nodevik-plot"));
}

void PlotWindow::open(const QString& path) {
    QApplication::setOverrideCursor(Qt::WaitCursor);
    QString reason;
    try {
        show_recording(read_recording(path.toStdString()), path);
    } catch (const BadFile& failure) {
        reason = QString::fromUtf8(failure.what());
    }
    QApplication::restoreOverrideCursor();
    if (!reason.isEmpty()) {
        tell(path + QStringLiteral(": ") + reason);
    }
}

QString PlotWindow::save_table(const QString& path) const {
    const PlotData shown = view_->shown_data();
    if (std::none_of(shown.series.begin(), shown.series.end(), [](const Series& one) { return one.shown; })) {
        return QStringLiteral("no curve is switched on");
    }
    const std::string table = write_table(shown, view_->time_shown());
    QSaveFile file(path);
    const auto size = static_cast<qint64>(table.size());
    return commit(file, file.open(QIODevice::WriteOnly) && file.write(table.data(), size) == size);
}

QString PlotWindow::save_picture(const QString& path) {
    const QPixmap picture = centralWidget()->grab();
    QSaveFile file(path);
    return commit(file, file.open(QIODevice::WriteOnly) && picture.save(&file, "PNG"));
}

// Brings menus, labels and title up to what is shown.
void PlotWindow::show_state() {
    const bool is_feed = port() != 0;
    pause_->setEnabled(is_feed);
    reload_->setEnabled(!path_.isEmpty());
    home_->setText(is_feed ? QStringLiteral("&Follow") : QStringLiteral("&Show all"));
    home_->setEnabled(!view_->is_following());
    fit_->setEnabled(!view_->is_fitting());
    own_scales_->setChecked(view_->has_own_scales());
    dark_->setChecked(view_->is_dark());
    for (QAction* action : std::as_const(zooms_of_values_)) {
        action->setEnabled(!view_->has_own_scales());
    }
    QString source = QStringLiteral("no file and no feed; Ctrl+O opens a file");
    if (is_feed) {
        source = QStringLiteral("port %1: %2 samples").arg(port()).arg(view_->data().samples());
        source += pause_->isChecked() ? QStringLiteral(", paused") : QString();
        source += feed_.stopped() ? QStringLiteral(", stopped by the feed") : QString();
    } else if (!path_.isEmpty()) {
        source = QStringLiteral("%1: %2 samples").arg(file_name(path_)).arg(view_->data().samples()) + notes_;
    }
    for (const auto& [label, text] : {std::pair(words_, view_->words()), {source_, source}}) {
        label->setText(text);
        label->setToolTip(text);
    }
}

// A message that waits for nobody: the feed goes on behind it.
void PlotWindow::tell(const QString& what) {
    auto* const message =
        new QMessageBox(QMessageBox::Warning, QStringLiteral("nodevik-plot"), what, QMessageBox::Ok, this);
    message->setAttribute(Qt::WA_DeleteOnClose);
    message->setTextFormat(Qt::PlainText);
    message->open();
}

void PlotWindow::choose_file() {
    const QString path = QFileDialog::getOpenFileName(this, QStringLiteral("Open"), path_,
                                                      QString::fromUtf8(recording_filter));
    if (!path.isEmpty()) {
        open(path);
    }
}

void PlotWindow::choose_table() {
    const QString path = QFileDialog::getSaveFileName(
        this, QStringLiteral("Export table"), QStringLiteral("curves.csv"), QString::fromUtf8(table_filter));
    const QString reason = path.isEmpty() ? QString() : save_table(path);
    if (!reason.isEmpty()) {
        tell(path + QStringLiteral(": ") + reason);
    }
}

void PlotWindow::choose_picture() {
    const QString path =
        QFileDialog::getSaveFileName(this, QStringLiteral("Export picture"), QStringLiteral("curves.png"),
                                     QString::fromUtf8(picture_filter));
    const QString reason = path.isEmpty() ? QString() : save_picture(path);
    if (!reason.isEmpty()) {
        tell(path + QStringLiteral(": ") + reason);
    }
}

void PlotWindow::dragEnterEvent(QDragEnterEvent* event) {
    if (event->mimeData()->hasUrls() && event->mimeData()->urls().first().isLocalFile()) {
        event->acceptProposedAction();
    }
}

void PlotWindow::dropEvent(QDropEvent* event) {
    open(event->mimeData()->urls().first().toLocalFile());
}

}  // namespace plot
