/// @file
/// The control panel: the window from which the operator drives the vehicle.
///
/// The operator moves three set-points, with the sliders or by dragging the mouse over the steering pad:
///
/// | Set-point           | Slider         | Range      | At the start |
/// |---------------------|----------------|------------|--------------|
/// | throttle (`Kaasu`)  | `KaasuSlider`  | 0 to 255   | 0            |
/// | direction (`Suunta`)| `SuuntaSlider` | 35 to 175  | 103          |
/// | bucket (`Kauha`)    | `KauhaSlider`  | 47 to 172  | 110          |
///
/// From the first opening of the port on, a timer hands them to the link (@see ControlThread) every 100 ms.
/// The link hands back what the vehicle reports; the panel shows it as numbers, bars, a dial and lamps.
///
/// The steering pad is the square of dialog coordinates x = 150 to 405 and y = 10 to 265. A press or a drag
/// in it moves all three sliders; the sliders hold the values within their ranges:
///
///     X = x - 150, left to right       direction: X on a press, 206 - X on a drag
///     Y = 265 - y, bottom to top       throttle:  |2 * (Y - 127)|
///                                      bucket:    220 in the lower half, 35 in the upper half
///
/// The form, with all texts and places, is `dialog.ui`.

#ifndef DIALOG_H
#define DIALOG_H

#include <QDialog>
#include <QPainter>
#include <QString>
#include <cstdint>
#include <memory>
#include <string>

#include "controlthread.h"
#include "vehicle/commandframe.h"

class QTimer;
class Ui_Dialog;

/// The control panel, with its own link to the vehicle.
class Dialog : public QDialog {
    Q_OBJECT

public:
    /// Makes the panel with the port closed; nothing is sent before the open button is pressed.
    ///
    /// @param parent  owner, or nullptr for a window of its own
    /// @param device  path of the serial device that the open button opens
    /// @param guard   of the link (@see ControlThread::ControlThread), or nullptr
    explicit Dialog(QWidget* parent = nullptr, std::string device = ControlThread::oletuslaite,
                    LineGuard* guard = nullptr);

    /// Ends and joins the link thread first, which brings a moving vehicle to rest (@see
    /// ControlThread::~ControlThread), then releases the form.
    ~Dialog() override;

    /// Ends the link, which brings a moving vehicle to rest and leaves the port closed (@see
    /// ControlThread::LopetaYhteys), then closes the panel. The way of every closing: window button, Escape,
    /// `close`, `accept`, `reject`.
    void done(int result) override;

Q_SIGNALS:
    /// The set-points for the frames to come: throttle, direction, bucket.
    void PaivitaData(int Kaasu, int Suunta, int Kauha);

    /// Asks the link to open the port.
    ///
    /// @param Index   of the speed list: 0 to 4 for 9600 to 115200 baud
    /// @param nopeus  pause between two frames, in milliseconds
    void AvaaPortti(int Index, int nopeus);

    /// Asks the link to close the port.
    void SuljePortti();

public Q_SLOTS:
    /// Takes the throttle set-point and shows it.
    void LueKaasu(int KaasuLuku);

    /// Takes the direction set-point and shows it, also as the control voltage of 19.5 mV for each step.
    void LueSuunta(int SuuntaLuku);

    /// Takes the bucket set-point and shows it, also as the control voltage of 19.5 mV for each step.
    void LueKauha(int KauhaLuku);

    /// Appends a line to the status view, which keeps its last 1,000 lines and up to 99 before them. "Portti
    /// auki" also lights the green lamp and puts the red one out, "Portti kiinni" the other way round.
    void KirjoitaIkkunaan(const QString& teksti);

    /// Opens the port at the chosen speed and rate: starts the 100 ms timer of the set-points, emits
    /// `AvaaPortti` and starts the link thread. Blocks for the link's pause of 300 ms, and until a cycle
    /// closed just before has ended.
    ///
    /// A device that cannot be opened ends the process (@see serial::open).
    void PortinAvaus();

    /// Emits `PaivitaData` with the current set-points.
    void paivitys();

    /// Shows one telemetry report.
    ///
    /// Of each pair the first byte is the high one. Speed R is shown as -trunc((R - 32767) * 3.27701 / 10)
    /// rpm; voltage, current and capacity as they are, 0 to 65535; the four latitude bytes, lowest first, as
    /// a signed 32-bit number.
    ///
    /// @param m_Nopeus2  not shown
    /// @param bytes      number of bytes that arrived in this cycle: while it is not 0, the receive lamp
    ///                   changes with each call; 0 puts it out
    void VastaanotaArvot(uint8_t m_Rpm1, uint8_t m_Rpm2, uint8_t m_Jannite1, uint8_t m_Jannite2,
                         uint8_t m_Virta1, uint8_t m_Virta2, uint8_t m_Kapasiteetti1, uint8_t m_Kapasiteetti2,
                         uint8_t Lat1, uint8_t Lat2, uint8_t Lat3, uint8_t Lat4, uint8_t m_Nopeus2,
                         int bytes);

    /// Shows or hides the pane at the right with the sliders and the diagnostics: 920 or 620 wide.
    void LisaIkkuna(bool on);

    /// Shows or hides the navigation pane at the bottom: 761 or 508 high.
    void NaviIkkuna(bool on);

    /// Changes the send lamp: called once for each frame sent.
    void VilkutaLed();

    /// Stores the drive mode, 2 (agile) or 1 (economical).
    void VaihdaAjotila(bool Ajotila2paalla);

    /// Emits `SuljePortti`. The timer of the set-points keeps running.
    void SuljeThread();

protected:
    /// Ends the link of a panel that is hidden already too.
    void closeEvent(QCloseEvent* event) override;

    /// Re-applies the form's texts when the language changes.
    void changeEvent(QEvent* event) override;

    /// Steers if the press is on the pad. Any button steers, but only the left one moves the position.
    void mousePressEvent(QMouseEvent* event) override;

    /// Steers while a button is held and the position is on the pad.
    void mouseMoveEvent(QMouseEvent* event) override;

    /// Ends the drag.
    void mouseReleaseEvent(QMouseEvent* event) override;

    /// Draws a blue cross at the stored position, on the pad or not.
    void paintEvent(QPaintEvent* event) override;

private:
    friend class DialogTest;  // reads what nothing shows, such as the drive mode

    void LuoYhteydet();
    void NimeaMittarit();
    void KevennaPiirtoa();
    void TallennaPaikka(const QMouseEvent* event);
    bool OnOhjauslevylla() const;
    void Ohjaa(int SuuntaLuku);
    void VaihdaVastaanottoLed(int bytes);

    QString Kaasu;
    QString Suunta;
    QString Kauha;
    QString YakseliTeksti;
    QString XakseliTeksti;
    QPainter painter;
    std::unique_ptr<Ui_Dialog> ui;
    ControlThread cthread;  // behind the form: joined before the form goes
    int Viesti1 = vehicle::rest_throttle;
    int Viesti2 = vehicle::straight_ahead;
    int Viesti3 = vehicle::rest_bucket;
    QTimer* updatetimer;
    int Xaxis = 0;  // last position of the mouse, in dialog coordinates
    int Yaxis = 0;
    bool LedLippu = false;  // phase of the receive lamp
    bool LedFlag = false;   // phase of the send lamp
    bool mousePressed = false;
    uint16_t Ajotila = 1;
};

#endif
