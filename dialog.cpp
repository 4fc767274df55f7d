#include "dialog.h"

#include <QMetaType>
#include <QMouseEvent>
#include <QPaintEvent>
#include <QPalette>
#include <QTextCursor>
#include <QTextDocument>
#include <QTimer>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <initializer_list>
#include <utility>

#include "ui_dialog.h"
#include "vehicle/commandframe.h"
#include "vehicle/telemetry.h"
#include "widgets/leanpainting.h"

namespace {

constexpr std::array<const char*, 5> baud_rates = {"9600", "19200", "38400", "57600", "115200"};

constexpr int update_period_ms = 100;

constexpr int narrow_width = 620;
constexpr int wide_width = 920;
constexpr int low_height = 508;
constexpr int high_height = 761;

constexpr int pad_left = 150;
constexpr int pad_top = 10;
constexpr int pad_right = 405;
constexpr int pad_bottom = 265;
constexpr int pad_middle = 127;
constexpr int forward_bucket = 35;
constexpr int reverse_bucket = 220;

constexpr int cross_arm = 10;

// The status view keeps so many lines, and for a while some more: to take a line away at the top costs as much
// as the number of lines below it, so that is done for many at once.
constexpr int status_lines = 1000;
constexpr int surplus_status_lines = 100;

// Black on light, whatever the desktop's own colours: the gauges' faces are light, and so are the pad and its
// cross made for a light ground.
QPalette light_palette() {
    struct Colour {
        QPalette::ColorRole role;
        QRgb enabled;
        QRgb disabled;
    };
    constexpr QRgb black = 0xff000000;
    constexpr QRgb white = 0xffffffff;
    constexpr QRgb ground = 0xffefefef;
    constexpr QRgb faint = 0xffbebebe;
    constexpr std::array<Colour, 20> colours = {{
        {QPalette::WindowText, black, faint},
        {QPalette::Button, ground, ground},
        {QPalette::Light, white, white},
        {QPalette::Midlight, 0xffcacaca, 0xffcacaca},
        {QPalette::Dark, 0xff9f9f9f, faint},
        {QPalette::Mid, 0xffb8b8b8, 0xffb8b8b8},
        {QPalette::Text, black, faint},
        {QPalette::BrightText, white, white},
        {QPalette::ButtonText, black, faint},
        {QPalette::Base, white, ground},
        {QPalette::Window, ground, ground},
        {QPalette::Shadow, 0xff767676, 0xffb1b1b1},
        {QPalette::Highlight, 0xff308cc6, 0xff919191},
        {QPalette::HighlightedText, white, white},
        {QPalette::Link, 0xff0000ff, 0xff0000ff},
        {QPalette::LinkVisited, 0xffff00ff, 0xffff00ff},
        {QPalette::AlternateBase, 0xfff7f7f7, 0xfff7f7f7},
        {QPalette::ToolTipBase, 0xffffffdc, 0xffffffdc},
        {QPalette::ToolTipText, black, black},
        {QPalette::PlaceholderText, 0x80000000, 0x80000000},
    }};
    QPalette palette;
    for (const Colour& colour : colours) {
        palette.setColor(colour.role, QColor::fromRgba(colour.enabled));
        palette.setColor(QPalette::Disabled, colour.role, QColor::fromRgba(colour.disabled));
    }
    return palette;
}

// What the cross around a position covers, with a pixel's room for its pen.
QRect cross_area(int x, int y) {
    constexpr int reach = cross_arm + 1;
    return {x - reach, y - reach, 2 * reach + 1, 2 * reach + 1};
}

void keep_last_lines(QTextDocument& text) {
    if (text.blockCount() >= status_lines + surplus_status_lines) {
        QTextCursor surplus(&text);
        surplus.movePosition(QTextCursor::NextBlock, QTextCursor::KeepAnchor,
                             text.blockCount() - status_lines);
        surplus.removeSelectedText();
    }
}

struct ShownNumber {
    QLabel* label;
    int number;
};

// Shows numbers on labels that stand side by side in one frame. If most of them change, the frame repaints all of
// them as one area: the toolkit keeps account of every single area, which takes longer than to paint a few
// labels more.
void show_numbers(std::initializer_list<ShownNumber> numbers) {
    QRect area;
    std::size_t changes = 0;
    for (const auto& [label, number] : numbers) {
        const QString text = QString::number(number);
        if (label->text() != text) {
            label->setText(text);
            ++changes;
        }
        area |= label->geometry();
    }
    if (4 * changes >= 3 * numbers.size()) {
        numbers.begin()->label->parentWidget()->update(area);
    }
}

}  // namespace

Dialog::Dialog(QWidget* parent, std::string device, LineGuard* guard)
    : QDialog(parent), ui(std::make_unique<Ui_Dialog>()), cthread(std::move(device), guard) {
    setPalette(light_palette());
    ui->setupUi(this);
    updatetimer = new QTimer(this);
    for (const char* rate : baud_rates) {
        ui->comboBox_bauds->addItem(QLatin1StringView(rate));
    }
    ui->comboBox_bauds->setCurrentIndex(0);
    ui->Browser_Kaasu->setText(QString::number(vehicle::rest_throttle));
    ui->Browser_Suunta->setText(QString::number(vehicle::straight_ahead));
    ui->Browser_Kauha->setText(QString::number(vehicle::rest_bucket));
    setFixedSize(narrow_width, low_height);
    LuoYhteydet();
    NimeaMittarit();
    KevennaPiirtoa();
}

Dialog::~Dialog() = default;

void Dialog::LuoYhteydet() {
    connect(ui->KaasuSlider, &QScrollBar::valueChanged, this, &Dialog::LueKaasu);
    connect(ui->SuuntaSlider, &QScrollBar::valueChanged, this, &Dialog::LueSuunta);
    connect(ui->KauhaSlider, &QScrollBar::valueChanged, this, &Dialog::LueKauha);
    connect(ui->Ohj2Check, &QCheckBox::toggled, this, &Dialog::LisaIkkuna);
    connect(ui->Navigointi_Check, &QCheckBox::toggled, this, &Dialog::NaviIkkuna);
    connect(&cthread, &ControlThread::VilkutaLed, this, &Dialog::VilkutaLed);
    connect(ui->radioButton, &QRadioButton::toggled, &cthread, &ControlThread::MoottoriOn);
    connect(ui->Ajotila2, &QRadioButton::toggled, this, &Dialog::VaihdaAjotila);
    connect(updatetimer, &QTimer::timeout, this, &Dialog::paivitys);
    connect(this, &Dialog::PaivitaData, &cthread, &ControlThread::ReceiveData);
    connect(&cthread, &ControlThread::LahetaTeksti, this, &Dialog::KirjoitaIkkunaan);
    connect(ui->pushButton_open, &QPushButton::clicked, this, &Dialog::PortinAvaus);
    connect(this, &Dialog::AvaaPortti, &cthread, &ControlThread::AvaaPortti);
    connect(ui->pushButton_close, &QPushButton::clicked, this, &Dialog::SuljeThread);
    connect(this, &Dialog::SuljePortti, &cthread, &ControlThread::SuljePortti);
    // The telemetry crosses threads by this type name; its stream operators come with the type.
    qRegisterMetaType<uint8_t>("uint8_t");
    connect(&cthread, &ControlThread::LahetaArvot, this, &Dialog::VastaanotaArvot);
}

// Screen readers tell the gauges and lamps by these names: no caption on the form is bound to one of them.
void Dialog::NimeaMittarit() {
    ui->thermometer->setAccessibleName(tr("Akun jännite"));
    ui->Nopeus_manometer->setAccessibleName(tr("Moottorin kierrosnopeus"));
    ui->RedLed->setAccessibleName(tr("Portti kiinni"));
    ui->GreenLed->setAccessibleName(tr("Portti auki"));
    ui->SendLed->setAccessibleName(tr("Lähettää"));
    ui->ReceiveLed->setAccessibleName(tr("Vastaanottaa"));
    ui->FixLed->setAccessibleName(tr("Yhteys"));
}

// Every report changes a dozen labels, on frames that stay as they are.
void Dialog::KevennaPiirtoa() {
    auto* painting = new LeanPainting(this);
    for (QFrame* frame : findChildren<QFrame*>()) {
        if (auto* label = qobject_cast<QLabel*>(frame)) {
            painting->takeOver(label);
        } else if (frame->metaObject() == &QFrame::staticMetaObject) {
            painting->takeOver(frame);
        }
    }
}

void Dialog::LueKaasu(int KaasuLuku) {
    Kaasu = QString::number(KaasuLuku);
    ui->Browser_Kaasu->setText(Kaasu);
    Viesti1 = KaasuLuku;
}

void Dialog::LueSuunta(int SuuntaLuku) {
    Suunta = QString::number(SuuntaLuku);
    ui->Browser_Suunta->setText(Suunta);
    Viesti2 = SuuntaLuku;
    ui->SuuntaJannite->setValue(vehicle::control_voltage_mv(SuuntaLuku));
}

void Dialog::LueKauha(int KauhaLuku) {
    Kauha = QString::number(KauhaLuku);
    ui->Browser_Kauha->setText(Kauha);
    Viesti3 = KauhaLuku;
    ui->KauhaJannite->setValue(vehicle::control_voltage_mv(KauhaLuku));
}

void Dialog::KirjoitaIkkunaan(const QString& teksti) {
    ui->Browser_Status->append(teksti);
    keep_last_lines(*ui->Browser_Status->document());
    if (teksti == QLatin1StringView("Portti kiinni")) {
        ui->RedLed->setEnabled(true);
        ui->GreenLed->setEnabled(false);
    } else if (teksti == QLatin1StringView("Portti auki")) {
        ui->GreenLed->setEnabled(true);
        ui->RedLed->setEnabled(false);
    }
}

void Dialog::PortinAvaus() {
    updatetimer->start(update_period_ms);
    Q_EMIT AvaaPortti(ui->comboBox_bauds->currentIndex(), ui->RateSpinBox->value());
    cthread.start(QThread::InheritPriority);
}

void Dialog::paivitys() {
    Q_EMIT PaivitaData(Viesti1, Viesti2, Viesti3);
}

void Dialog::VastaanotaArvot(uint8_t m_Rpm1, uint8_t m_Rpm2, uint8_t m_Jannite1, uint8_t m_Jannite2,
                             uint8_t m_Virta1, uint8_t m_Virta2, uint8_t m_Kapasiteetti1,
                             uint8_t m_Kapasiteetti2, uint8_t Lat1, uint8_t Lat2, uint8_t Lat3, uint8_t Lat4,
                             uint8_t /*m_Nopeus2*/, int bytes) {
    VaihdaVastaanottoLed(bytes);
    const vehicle::Telemetry telemetry =
        vehicle::telemetry_of({m_Rpm1, m_Rpm2, m_Jannite1, m_Jannite2, m_Virta1, m_Virta2, m_Kapasiteetti1,
                               m_Kapasiteetti2, Lat1, Lat2, Lat3, Lat4, 0});
    ui->Latitude->setNum(telemetry.latitude);
    ui->Nopeus_manometer->setValue(telemetry.speed_rpm);
    show_numbers({{ui->JanniteArvo, telemetry.voltage}, {ui->VirtaArvo, telemetry.current}});
    ui->KapasiteettiArvo->setNum(telemetry.capacity_ah);
    ui->BatteryCapacity->setValue(telemetry.capacity_ah);
    // The high byte comes first, yet it goes to the label named LSB: the two columns are crossed over, and
    // the people at the panel know them so.
    show_numbers({{ui->Nopeus_LSB, m_Rpm1},
                  {ui->Nopeus_MSB, m_Rpm2},
                  {ui->Jannite_LSB, m_Jannite1},
                  {ui->Jannite_MSB, m_Jannite2},
                  {ui->Virta_LSB, m_Virta1},
                  {ui->Virta_MSB, m_Virta2},
                  {ui->Kapasiteetti_LSB, m_Kapasiteetti1},
                  {ui->Kapasiteetti_MSB, m_Kapasiteetti2}});
    ui->BytesRead->display(bytes);
}

void Dialog::LisaIkkuna(bool on) {
    setFixedWidth(on ? wide_width : narrow_width);
}

void Dialog::NaviIkkuna(bool on) {
    setFixedHeight(on ? high_height : low_height);
    ui->frame_Navi->setVisible(on);
}

void Dialog::VilkutaLed() {
    LedFlag = !LedFlag;
    ui->SendLed->setEnabled(LedFlag);
}

void Dialog::VaihdaAjotila(bool Ajotila2paalla) {
    Ajotila = Ajotila2paalla ? 2 : 1;
}

void Dialog::SuljeThread() {
    Q_EMIT SuljePortti();
}

void Dialog::done(int result) {
    cthread.LopetaYhteys();
    QDialog::done(result);
}

void Dialog::closeEvent(QCloseEvent* event) {
    cthread.LopetaYhteys();
    QDialog::closeEvent(event);
}

void Dialog::changeEvent(QEvent* event) {
    QDialog::changeEvent(event);
    if (event->type() == QEvent::LanguageChange) {
        ui->retranslateUi(this);
        NimeaMittarit();
    }
}

void Dialog::mousePressEvent(QMouseEvent* event) {
    mousePressed = true;
    if (event->button() == Qt::LeftButton) {
        TallennaPaikka(event);
    }
    if (OnOhjauslevylla()) {
        Ohjaa(Xaxis - pad_left);
    }
}

// A drag steers in the opposite sense of a press.
void Dialog::mouseMoveEvent(QMouseEvent* event) {
    if (!mousePressed) {
        return;
    }
    TallennaPaikka(event);
    if (OnOhjauslevylla()) {
        constexpr int drag_offset = 206;
        Ohjaa(drag_offset - (Xaxis - pad_left));
    }
}

void Dialog::mouseReleaseEvent(QMouseEvent* /*event*/) {
    mousePressed = false;
}

void Dialog::paintEvent(QPaintEvent* event) {
    if (!event->region().intersects(cross_area(Xaxis, Yaxis))) {
        return;
    }
    painter.begin(this);
    painter.setPen(Qt::blue);
    painter.drawLine(Xaxis - cross_arm, Yaxis - cross_arm, Xaxis + cross_arm, Yaxis + cross_arm);
    painter.drawLine(Xaxis - cross_arm, Yaxis + cross_arm, Xaxis + cross_arm, Yaxis - cross_arm);
    painter.end();
}

// The cross leaves its old place on the screen and comes up at the new one, on the pad or beside it.
void Dialog::TallennaPaikka(const QMouseEvent* event) {
    update(cross_area(Xaxis, Yaxis));
    Xaxis = event->position().toPoint().x();
    Yaxis = event->position().toPoint().y();
    update(cross_area(Xaxis, Yaxis));
}

bool Dialog::OnOhjauslevylla() const {
    return Xaxis >= pad_left && Xaxis <= pad_right && Yaxis >= pad_top && Yaxis <= pad_bottom;
}

// Moves the sliders to what the stored position asks for; they hold it within their ranges.
void Dialog::Ohjaa(int SuuntaLuku) {
    const int X = Xaxis - pad_left;
    const int Y = pad_bottom - Yaxis;
    XakseliTeksti = QString::number(X);
    YakseliTeksti = QString::number(Y);
    ui->Browser_X->setText(XakseliTeksti);
    ui->Browser_Y->setText(YakseliTeksti);
    const int from_middle = Y - pad_middle;
    ui->KauhaSlider->setValue(from_middle < 0 ? reverse_bucket : forward_bucket);
    ui->KaasuSlider->setValue(std::abs(2 * from_middle));
    ui->SuuntaSlider->setValue(SuuntaLuku);
    ui->frame_5->repaint();
}

// Alternates with each report that brought something, so that a silent line shows at once.
void Dialog::VaihdaVastaanottoLed(int bytes) {
    const bool lit = LedLippu && bytes != 0;
    ui->ReceiveLed->setEnabled(lit);
    LedLippu = !lit;
}
