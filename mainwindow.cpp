#include "mainwindow.h"

#include <QTimer>
#include <array>
#include <cstdint>
#include <utility>

#include "descriptorzero.h"
#include "ui_mainwindow.h"

namespace {

constexpr std::array<unsigned int, 5> line_speeds = {9600, 19200, 38400, 57600, 115200};

constexpr int read_period_ms = 300;

}  // namespace

MainWindow::MainWindow(QWidget* parent, std::string device)
    : QMainWindow(parent),
      ui(std::make_unique<Ui_MainWindow>()),
      device_path(std::move(device)),
      dialog(nullptr, device_path),
      cthread(device_path) {
    ui->setupUi(this);
    timer = new QTimer(this);
    // The panel comes last among the children: some of its widgets bear the names of the window's own, which
    // are to be found first.
    dialog.setParent(this, dialog.windowFlags());
    for (const unsigned int speed : line_speeds) {
        ui->PortinNopeus->addItem(QString::number(speed));
    }
    ui->PortinNopeus->setCurrentIndex(0);
    connect(timer, &QTimer::timeout, this, &MainWindow::readLoop);
    connect(ui->OhjausNappi, &QPushButton::clicked, this, &MainWindow::OpenDialog);
    connect(ui->AvaaporttiNappi, &QPushButton::clicked, this, &MainWindow::OpenPort);
    connect(ui->SuljeporttiNappi, &QPushButton::clicked, this, &MainWindow::ClosePort);
}

MainWindow::~MainWindow() = default;

void MainWindow::readLoop() {
    bytes = ohjuri.read();
    ui->lcdNumber_bytes->display(bytes);
    // The middle byte is signed, its neighbours are not: this is how the log has always been read.
    ui->textEdit->append(QString::number(static_cast<uint8_t>(ohjuri.buffer[0])));
    ui->textEdit->append(QString::number(static_cast<int8_t>(ohjuri.buffer[1])));
    ui->textEdit->append(QString::number(static_cast<uint8_t>(ohjuri.buffer[2])));
    ui->textEdit->append(QStringLiteral(" "));
}

void MainWindow::writeLoop() {}

void MainWindow::OpenDialog() {
    dialog.open();
}

void MainWindow::OpenPort() {
    Baudrate = line_speeds.at(static_cast<std::size_t>(ui->PortinNopeus->currentIndex()));
    while (ohjuri.open(device_path.data(), static_cast<int>(Baudrate)) <= 0) {
        ohjuri.close();
        fill_descriptor_zero();
    }
    ui->textEdit->append(QStringLiteral("Serial port opened"));
    timer->start(read_period_ms);
}

void MainWindow::ClosePort() {
    ohjuri.close();
    fill_descriptor_zero();
    ui->textEdit->append(QStringLiteral("Serial port closed"));
    timer->stop();
    cthread.quit();
}

void MainWindow::changeEvent(QEvent* event) {
    QMainWindow::changeEvent(event);
    if (event->type() == QEvent::LanguageChange) {
        ui->retranslateUi(this);
    }
}
