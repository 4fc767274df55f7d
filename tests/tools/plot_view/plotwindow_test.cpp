// The plotting window: names to switch curves by, menus and keys, feeds, files.

#include "tools/plot_view/plotwindow.h"

#include <QAccessible>
#include <QAction>
#include <QDropEvent>
#include <QFileDialog>
#include <QImage>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QMimeData>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QToolBar>
#include <QtTest>

#include "nodevik/util/clientfunctions.h"
#include "tests/support/loopbacksocket.h"

using namespace plot;

namespace {

constexpr int limit_ms = 30000;

Recording recording_of(unsigned curves) {
    Recording recording;
    for (unsigned id = 0; id < curves; ++id) {
        Series series;
        series.id = id;
        series.name = "curve number " + std::to_string(id);
        series.append(0, id);
        series.append(10, id + 1);
        recording.data.series.push_back(std::move(series));
    }
    return recording;
}

}  // namespace

class PlotWindowTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() {
        window_ = std::make_unique<PlotWindow>();
        window_->show();
        window_->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(window_.get(), limit_ms));
        batch_.resetmessage();
    }
    void cleanup() { window_.reset(); }

    void sixteenNamesWrapAndFit() {
        window_->resize(700, 500);
        window_->show_recording(recording_of(16), QStringLiteral("x.csv"));
        const auto& boxes = window_->legend().boxes();
        QCOMPARE(boxes.size(), std::size_t{16});
        const auto seen = [&] {
            std::set<int> rows;
            for (const QCheckBox* box : boxes) {
                const QRect place(box->mapTo(window_->legend().viewport(), QPoint()), box->size());
                if (!window_->legend().viewport()->rect().contains(place) ||
                    box->width() < box->sizeHint().width()) {
                    return std::size_t{0};
                }
                rows.insert(place.y());
            }
            return rows.size();
        };
        QTRY_VERIFY_WITH_TIMEOUT(seen() > 2, limit_ms);
        window_->resize(1600, 500);
        QTRY_COMPARE_WITH_TIMEOUT(seen(), std::size_t{2}, limit_ms);
        QVERIFY(window_->view().height() > 300);
    }

    void moreNamesThanHaveRoomAreScrolledTo() {
        window_->resize(500, 400);
        window_->show_recording(recording_of(200), QStringLiteral("x.csv"));
        QTRY_VERIFY_WITH_TIMEOUT(window_->view().height() > 150, limit_ms);
        window_->legend().boxes().back()->setFocus();
        const auto is_seen = [&] {
            const QCheckBox* box = window_->legend().boxes().back();
            return window_->legend().viewport()->rect().contains(
                box->mapTo(window_->legend().viewport(), box->rect().center()));
        };
        window_->legend().ensureWidgetVisible(window_->legend().boxes().back());
        QTRY_VERIFY_WITH_TIMEOUT(is_seen(), limit_ms);
    }

    void aClickOnANameSwitchesItsCurve() {
        show_two_curves();
        QCheckBox* const box = window_->legend().boxes()[1];
        QTest::mouseClick(box, Qt::LeftButton, Qt::NoModifier, QPoint(box->width() - 12, box->height() / 2));
        QVERIFY(!is_shown(1));
        QVERIFY(is_shown(0));
        QTest::mouseClick(box, Qt::LeftButton, Qt::NoModifier, QPoint(box->width() - 12, box->height() / 2));
        QVERIFY(is_shown(1));
    }

    void theKeyboardReachesTheNames() {
        show_two_curves();
        QCheckBox* const box = window_->legend().boxes()[0];
        for (int i = 0; i < 30 && !box->hasFocus(); ++i) {
            QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        }
        QVERIFY(box->hasFocus());
        QTest::keyClick(box, Qt::Key_Space);
        QVERIFY(!is_shown(0));
    }

    void namesAreCheckBoxesForAssistiveTechnology() {
        Recording recording = recording_of(1);
        recording.data.series[0].name = "R&D";
        window_->show_recording(std::move(recording), QStringLiteral("x.csv"));
        QAccessibleInterface* const box = QAccessible::queryAccessibleInterface(window_->legend().boxes()[0]);
        QCOMPARE(box->role(), QAccessible::CheckBox);
        QCOMPARE(box->text(QAccessible::Name), QStringLiteral("R&D"));
        QVERIFY(box->state().checked);
        box->actionInterface()->doAction(QAccessibleActionInterface::toggleAction());
        QVERIFY(!box->state().checked);
        QVERIFY(!is_shown(0));
    }

    void everyActionHasANameAKeyAndAWord() {
        std::set<QKeySequence> keys;
        int count = 0;
        for (QAction* menu : window_->menuBar()->actions()) {
            for (QAction* action : menu->menu()->actions()) {
                if (action->isSeparator()) {
                    continue;
                }
                ++count;
                QVERIFY2(!action->shortcut().isEmpty(), qPrintable(action->text()));
                QVERIFY2(keys.insert(action->shortcut()).second, qPrintable(action->text()));
                QVERIFY2(!action->statusTip().isEmpty(), qPrintable(action->text()));
            }
        }
        QVERIFY(count >= 18);
    }

    void keysSwitchAllCurves() {
        show_two_curves();
        press(Qt::Key_A, Qt::ControlModifier | Qt::ShiftModifier);
        QVERIFY(!is_shown(0) && !is_shown(1));
        QVERIFY(!window_->legend().boxes()[0]->isChecked());
        press(Qt::Key_A, Qt::ControlModifier);
        QVERIFY(is_shown(0) && is_shown(1));
        QVERIFY(window_->legend().boxes()[0]->isChecked());
    }

    void keysZoomMoveAndReturn() {
        show_two_curves();
        press(Qt::Key_Plus, Qt::ControlModifier);
        QCOMPARE(window_->view().time_shown(), (Interval{2.5, 7.5}));
        press(Qt::Key_Right, Qt::ControlModifier);
        QCOMPARE(window_->view().time_shown(), (Interval{3.75, 8.75}));
        press(Qt::Key_Left, Qt::ControlModifier);
        press(Qt::Key_Minus, Qt::ControlModifier);
        QCOMPARE(window_->view().time_shown(), (Interval{0, 10}));
        QVERIFY(!window_->view().is_following());
        press(Qt::Key_F);
        QVERIFY(window_->view().is_following());
        press(Qt::Key_Up, Qt::ControlModifier);
        QVERIFY(!window_->view().is_fitting());
        press(Qt::Key_Down, Qt::ControlModifier);
        press(Qt::Key_V);
        QVERIFY(window_->view().is_fitting());
    }

    void keysChangeScalesAndColours() {
        show_two_curves();
        press(Qt::Key_S);
        QVERIFY(window_->view().has_own_scales());
        press(Qt::Key_S);
        QVERIFY(!window_->view().has_own_scales());
        const bool dark = window_->view().is_dark();
        press(Qt::Key_D);
        QCOMPARE(window_->view().is_dark(), !dark);
        press(Qt::Key_Period);
        QCOMPARE(window_->view().chosen_curve(), 0U);
        QVERIFY(window_->legend().boxes()[0]->font().bold());
        press(Qt::Key_Comma);
        QCOMPARE(window_->view().chosen_curve(), std::nullopt);
    }

    void theStatusBarTellsWhatTheCursorIsOn() {
        show_two_curves();
        QTest::keyClick(&window_->view(), Qt::Key_End);
        QCOMPARE(label("words"), QStringLiteral("10.00 s: curve number 0 1, curve number 1 2"));
    }

    void aFeedIsShownAsItComes() {
        start_feed();
        QCOMPARE(window_->view().data().series.at(0).name, "speed");
        QVERIFY(label("source").endsWith(QStringLiteral(": 1 samples")));
        QCOMPARE(window_->view().time_shown(), (Interval{0, 19}));
        batch_.addmsg_samplepos(30);
        batch_.addmsg_data(0, 2);
        send();
        QTRY_COMPARE_WITH_TIMEOUT(window_->view().time_shown(), (Interval{11, 30}), limit_ms);
    }

    void whilePausedThePictureStaysAndTheFeedIsTaken() {
        start_feed();
        press(Qt::Key_P);
        QVERIFY(label("source").endsWith(QStringLiteral(", paused")));
        batch_.addmsg_nextsamplepos();
        batch_.addmsg_data(0, 2);
        batch_.addmsg_stop(1);
        QSignalSpy stopped(window_.get(), &PlotWindow::feedStopped);
        send();
        QTRY_VERIFY_WITH_TIMEOUT(label("source").endsWith(QStringLiteral(", paused, stopped by the feed")),
                                 limit_ms);
        QCOMPARE(window_->view().data().samples(), std::size_t{1});
        press(Qt::Key_P);
        QTRY_COMPARE_WITH_TIMEOUT(window_->view().data().samples(), std::size_t{2}, limit_ms);
        QCOMPARE(stopped.count(), 1);
        QVERIFY(label("source").endsWith(QStringLiteral(": 2 samples, stopped by the feed")));
    }

    void aZoomedFeedStaysUntilItIsFollowedAgain() {
        start_feed();
        window_->view().show_time({2, 4});
        batch_.addmsg_samplepos(30);
        batch_.addmsg_data(0, 2);
        send();
        QTRY_COMPARE_WITH_TIMEOUT(window_->view().data().samples(), std::size_t{2}, limit_ms);
        QCOMPARE(window_->view().time_shown(), (Interval{2, 4}));
        press(Qt::Key_F);
        QCOMPARE(window_->view().time_shown(), (Interval{11, 30}));
    }

    void manyBatchesLoseNothing() {
        start_feed();
        for (int i = 0; i < 2000; ++i) {
            batch_.addmsg_nextsamplepos();
            batch_.addmsg_data(0, i);
            send();
            if (i % 100 == 0) {
                QCoreApplication::processEvents();
            }
        }
        QTRY_COMPARE_WITH_TIMEOUT(window_->view().data().samples(), std::size_t{2001}, limit_ms);
    }

    void emptyAndForeignDatagramsDoNoHarm() {
        start_feed();
        sender_.send(window_->port(), "");
        sender_.send(window_->port(), "hello");
        sender_.send(window_->port(), std::string(5000, '\xFF'));
        batch_.addmsg_nextsamplepos();
        batch_.addmsg_data(0, 2);
        send();
        QTRY_COMPARE_WITH_TIMEOUT(window_->view().data().samples(), std::size_t{2}, limit_ms);
        QCOMPARE(window_->view().data().series.size(), std::size_t{1});
    }

    void aTakenPortIsTold() {
        const LoopbackSocket holder;
        const QString reason = window_->listen(static_cast<quint16>(holder.port()), 0);
        QVERIFY2(reason.startsWith(QStringLiteral("UDP port %1 cannot be used: ").arg(holder.port())),
                 qPrintable(reason));
        QVERIFY(reason.endsWith(QStringLiteral("; choose another one, or 0 for any that is free")));
    }

    void aFileIsOpenedInTheFeedsPlace() {
        start_feed();
        window_->open(file("drive.csv", "time,a,state\n0,1,x\n5,2,y\n"));
        QCOMPARE(window_->port(), quint16{0});
        QCOMPARE(window_->view().data().series.size(), std::size_t{1});
        QCOMPARE(window_->windowTitle(), QStringLiteral("drive.csv – nodevik-plot"));
        QCOMPARE(label("source"),
                 QStringLiteral("drive.csv: 2 samples; column 'state' is text and left out"));
        QCOMPARE(window_->view().time_shown(), (Interval{0, 5}));
    }

    void aBadFileIsToldAndWhatIsShownStays() {
        show_two_curves();
        window_->open(directory_.filePath(QStringLiteral("missing.csv")));
        auto* const message = window_->findChild<QMessageBox*>();
        QVERIFY(message != nullptr);
        QVERIFY(message->text().endsWith(
            QStringLiteral("missing.csv: cannot be opened: No such file or directory")));
        QCOMPARE(window_->view().data().series.size(), std::size_t{2});
        QTest::keyClick(message, Qt::Key_Return);
        QTRY_VERIFY_WITH_TIMEOUT(window_->findChild<QMessageBox*>() == nullptr, limit_ms);
    }

    void curvesThatDifferVeryMuchInSizeGetTheirOwnScales() {
        window_->open(file("alike.csv", "time,a,b\n0,1,-900\n1,0,500\n"));
        QVERIFY(!window_->view().has_own_scales());
        window_->open(file("differing.csv", "time,motor,latitude\n0,1,601700000\n1,0,601700001\n"));
        QVERIFY(window_->view().has_own_scales());
        window_->open(file("flat.csv", "time,a\n0,0\n1,0\n"));
        QVERIFY(!window_->view().has_own_scales());
    }

    void aFileIsReadAgain() {
        const QString path = file("again.csv", "time,a,b\n0,1,2\n1,1,2\n");
        window_->open(path);
        window_->view().set_curve_shown(1, false);
        file("again.csv", "time,a,b\n0,1,2\n1,1,2\n2,1,2\n");
        press(Qt::Key_F5);
        QCOMPARE(window_->view().data().samples(), std::size_t{6});
        QVERIFY(!is_shown(1));
    }

    void aFileCanBeDropped() {
        const QString path = file("dropped.csv", "time,a\n0,1\n1,2\n");
        QMimeData data;
        data.setUrls({QUrl::fromLocalFile(path)});
        QDragEnterEvent enter(QPoint(9, 9), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(window_.get(), &enter);
        QVERIFY(enter.isAccepted());
        QDropEvent drop(QPointF(9, 9), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(window_.get(), &drop);
        QCOMPARE(window_->view().data().samples(), std::size_t{2});
    }

    void aTableHasTheCurvesAndTimesThatAreShown() {
        window_->open(file("drive.csv", "time,a,b\n0,0.1,1\n1,0.2,2\n2,0.3,3\n"));
        window_->view().set_curve_shown(1, false);
        window_->view().show_time({0.5, 2});
        const QString path = directory_.filePath(QStringLiteral("table.csv"));
        QCOMPARE(window_->save_table(path), QString());
        QCOMPARE(content(path), QByteArray("time,a\n1,0.2\n2,0.3\n"));
        window_->view().set_curves_shown(false);
        QCOMPARE(window_->save_table(path), QStringLiteral("no curve is switched on"));
        QCOMPARE(content(path), QByteArray("time,a\n1,0.2\n2,0.3\n"));
    }

    void aPictureHasTheNamesAndTheField() {
        show_two_curves();
        const QString path = directory_.filePath(QStringLiteral("picture.png"));
        QCOMPARE(window_->save_picture(path), QString());
        const QImage image(path);
        QCOMPARE(image.size(), window_->centralWidget()->size());
        const QPoint field = window_->view().mapTo(window_->centralWidget(), QPoint());
        QCOMPARE(image.copy(QRect(field, window_->view().size())).convertToFormat(QImage::Format_RGB32),
                 window_->view().grab().toImage().convertToFormat(QImage::Format_RGB32));
    }

    void filesThatCannotBeWrittenAreTold() {
        show_two_curves();
        const QString path = QStringLiteral("/nowhere/x");
        QCOMPARE(window_->save_table(path), QStringLiteral("cannot be written: No such file or directory"));
        QCOMPARE(window_->save_picture(path), QStringLiteral("cannot be written: No such file or directory"));
    }

    void theDialogsAreWorkedByKeys() {
        window_->open(file("drive.csv", "time,a\n0,1\n1,2\n"));
        const QString table = directory_.filePath(QStringLiteral("typed.csv"));
        answer_dialog(table);
        press(Qt::Key_S, Qt::ControlModifier);
        QCOMPARE(content(table), QByteArray("time,a\n0,1\n1,2\n"));
        QVERIFY(is_active_again());
        answer_dialog(directory_.filePath(QStringLiteral("typed.png")));
        press(Qt::Key_S, Qt::ControlModifier | Qt::ShiftModifier);
        QVERIFY(!QImage(directory_.filePath(QStringLiteral("typed.png"))).isNull());
        QVERIFY(is_active_again());
        file("other.csv", "time,b,c\n0,1,2\n1,2,3\n");
        answer_dialog(directory_.filePath(QStringLiteral("other.csv")));
        press(Qt::Key_O, Qt::ControlModifier);
        QCOMPARE(window_->view().data().series.size(), std::size_t{2});
    }

    void namesFollowTheFeed() {
        start_feed();
        batch_.addmsg_name(0, "renamed");
        batch_.addmsg_name(3, "new");
        send();
        QTRY_COMPARE_WITH_TIMEOUT(window_->legend().boxes().size(), std::size_t{2}, limit_ms);
        QCOMPARE(window_->legend().boxes()[0]->text(), QStringLiteral("renamed"));
        QCOMPARE(window_->legend().boxes()[1]->text(), QStringLiteral("new"));
    }

private:
    void show_two_curves() { window_->show_recording(recording_of(2), QStringLiteral("x.csv")); }

    bool is_shown(std::size_t number) {
        return window_->view().is_curve_shown(window_->view().data().series.at(number));
    }

    void press(Qt::Key key, Qt::KeyboardModifiers modifiers = Qt::NoModifier) {
        QTest::keyClick(window_.get(), key, modifiers);
    }

    // After a dialog.
    bool is_active_again() {
        window_->activateWindow();
        return QTest::qWaitForWindowActive(window_.get(), limit_ms);
    }

    QString label(const char* name) { return window_->findChild<QLabel*>(QString::fromLatin1(name))->text(); }

    void send() {
        sender_.send(window_->port(), {reinterpret_cast<const char*>(batch_.getmessage()),
                                       static_cast<std::size_t>(batch_.getmessagesize())});
        batch_.resetmessage();
    }

    // A feed of one curve with one sample, its range 20.
    void start_feed() {
        QCOMPARE(window_->listen(0, 0), QString());
        QVERIFY(window_->port() != 0);
        batch_.addmsg_range(20);
        batch_.addmsg_name(0, "speed");
        batch_.addmsg_data(0, 1);
        send();
        QTRY_COMPARE_WITH_TIMEOUT(window_->view().data().samples(), std::size_t{1}, limit_ms);
    }

    QString file(const char* name, const char* text) {
        const QString path = directory_.filePath(QString::fromLatin1(name));
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(text) < 0) {
            qFatal("a file of the test cannot be written");
        }
        return path;
    }

    static QByteArray content(const QString& path) {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("missing");
    }

    // Puts a name into the next dialog and accepts it.
    static void answer_dialog(const QString& path) {
        QTimer::singleShot(0, [path] {
            auto* const dialog = qobject_cast<QFileDialog*>(QApplication::activeModalWidget());
            if (dialog == nullptr) {
                qFatal("no dialog is open");
            }
            auto* const name = dialog->findChild<QLineEdit*>();
            name->setText(path);  // typing would open a list of names, which takes the next key
            QTest::keyClick(name, Qt::Key_Return);
        });
    }

    std::unique_ptr<PlotWindow> window_;
    QTemporaryDir directory_;
    LoopbackSocket sender_;
    CClientFunctions batch_;
};

QTEST_MAIN(PlotWindowTest)
#include "plotwindow_test.moc"
