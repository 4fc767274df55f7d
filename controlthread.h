/// @file
/// The link to the vehicle controller.
///
/// The controller hangs on a serial line, 8 data bits, no parity, one stop bit, no flow control. The panel is
/// the master: once per cycle it takes what the controller has sent and then sends one command frame. There
/// is no framing, checksum or acknowledgement.
///
/// Command frame, panel to controller: the four bytes of vehicle/commandframe.h, from the start those of the
/// neutral frame. Telemetry, controller to panel: the 13 slots of vehicle/telemetry.h, of which the first byte
/// counts; they are passed on in slot order.
///
/// @par Two threads, no lock
/// The GUI thread calls the slots, the link thread runs `run`. All that both touch is atomic: the frame's
/// bytes, the period, the flags, and the line's descriptor. The GUI thread alone opens and closes the line;
/// the link thread alone reads and writes it. That no descriptor is closed between the link thread's look at
/// its number and the system call is a handshake of two flags, each side raising its own before it looks at
/// the other's (both sequentially consistent, so at least one of them sees the other):
/// - the link thread sets `linjaVarattu`, then touches the line only if `kaynnistysLippu` is set, then clears
///   `linjaVarattu`;
/// - the GUI thread clears `kaynnistysLippu`, then waits until `linjaVarattu` is clear, then closes.
///
/// The link thread never waits for the GUI thread, and the GUI thread waits for at most one read or write,
/// none of which ever waits for the line. A cycle that finds the line closed counts 0 bytes, and sends
/// nothing.

#ifndef CONTROLTHREAD_H
#define CONTROLTHREAD_H

#include <QString>
#include <QThread>
#include <array>
#include <atomic>
#include <cstdint>
#include <string>

#include "nodevik/util/serial.h"
#include "vehicle/commandframe.h"

class LineGuard;

/// The link to the vehicle controller: a serial line, and a thread that reads and sends once per cycle.
///
/// Calling order: `AvaaPortti`, `start`, ..., `SuljePortti`; then, if wanted, `AvaaPortti` and `start` again.
/// The slots are called from the thread that the object lives in.
class ControlThread : public QThread {
    Q_OBJECT

public:
    static constexpr const char* oletuslaite = "/dev/ttyS0";  ///< the vehicle's line

    /// A closed link, with the command frame 0, 103, 110, 'P' and a period of 200 ms.
    ///
    /// @param device  path of the serial device that `AvaaPortti` opens
    /// @param guard   holds the line while it is open, in case the application ends without closing it; must
    ///                outlive this object. nullptr for none
    explicit ControlThread(std::string device = oletuslaite, LineGuard* guard = nullptr);

    /// Ends the link as `LopetaYhteys` does, but without a word.
    ~ControlThread() override;

    /// Ends and joins the thread if it runs, then closes the line if it is open and sends "Portti kiinni".
    /// The link may be opened again.
    ///
    /// When the thread was cycling, its last act is one frame that brings the vehicle to rest: 0, 103, 110,
    /// 'P'. The device keeps the settings that `AvaaPortti` gave it: what is still on its way out leaves at
    /// its own speed. Should the line not take this frame, the guard is left to it.
    void LopetaYhteys();

    /// One cycle of the link: reads what has arrived, waits 10 ms, reports, sends the command frame.
    ///
    /// Emits `LahetaArvot` with the first byte of each of the receive buffer's first 13 slots and the number
    /// of bytes that this read brought (0 to 100). Slots beyond that number keep what an earlier read left
    /// there, zero at first. Emits `VilkutaLed` when the whole frame was sent, otherwise "Send failure";
    /// neither when the line was closed meanwhile.
    ///
    /// A line that cannot be read ends the process (@see serial::read).
    void ReadAndSendData();

Q_SIGNALS:
    /// A line for the panel's status view: "Started", "Send failure", "Portti auki", "fail" or "Portti
    /// kiinni".
    ///
    /// The panel switches its lamps by the texts "Portti auki" and "Portti kiinni".
    void LahetaTeksti(const QString& teksti);

    /// The telemetry of one cycle, in slot order, and the number of bytes read in it.
    void LahetaArvot(uint8_t RPM1, uint8_t RPM2, uint8_t Jannite1, uint8_t Jannite2, uint8_t Virta1,
                     uint8_t Virta2, uint8_t Kapasiteetti1, uint8_t Kapasiteetti2, uint8_t Fix,
                     uint8_t Suunta1, uint8_t Suunta2, uint8_t Nopeus1, uint8_t Nopeus2, int bytes);

    /// One command frame was sent.
    void VilkutaLed();

public Q_SLOTS:
    /// Stores the set-points for the frames to come, the low 8 bits of each.
    ///
    /// @param Data1  throttle
    /// @param Data2  direction
    /// @param Data3  bucket
    void ReceiveData(int Data1, int Data2, int Data3);

    /// Opens the line, sends "Portti auki", waits 300 ms and arms the cycle. Blocks its caller for that long,
    /// and until a cycle closed just before has ended.
    ///
    /// As long as the line comes as descriptor 0, which counts as closed, it is closed again, "fail" is sent,
    /// and the next attempt follows at once. A device that cannot be opened ends the process (@see
    /// serial::open).
    ///
    /// @param Index   0 to 4: 9600, 19200, 38400, 57600, 115200 baud; any other opens nothing and sends
    ///                "fail"
    /// @param nopeus  pause between two cycles, in milliseconds
    void AvaaPortti(int Index, int nopeus);

    /// Closes the line, sends "Portti kiinni" and ends the cycle; the thread ends soon after, by itself.
    ///
    /// Nothing is sent to the vehicle. A line that is not open may be closed.
    void SuljePortti();

    /// Chooses the motor command of the frames to come: 'Q' when @p Mon is true, else 'P'.
    void MoottoriOn(bool Mon);

protected:
    /// The thread's body: waits for the start flag, sends "Started", then cycles until the line is closed.
    void run() override;

private:
    bool OdotaKaynnistysta();
    bool SaaKiertaa() const;
    void Tauko() const;
    int LueLinja();
    void LahetaViesti();
    void PysaytaAjoneuvo();
    void LopetaSaie();
    void OtaLinja();
    void VapautaVartija();
    void SuljeLinja();
    void OdotaEdellinenLoppuun() const;

    std::string laite;
    LineGuard* vartija;
    serial ohjuri;
    int linja = -1;              // descriptor of the last opening, -1 once it is closed
    bool lepoviestiJai = false;  // the line did not take the frame that brings the vehicle to rest
    std::array<std::atomic<std::uint8_t>, vehicle::frame_bytes> Message = {
        vehicle::neutral_frame[0], vehicle::neutral_frame[1], vehicle::neutral_frame[2],
        vehicle::neutral_frame[3]};
    std::atomic<int> aika = 200;
    std::atomic<bool> lopetusLippu = false;     // ends the cycle
    std::atomic<bool> kaynnistysLippu = false;  // begins the cycle: the link thread may use the line
    std::atomic<bool> linjaVarattu = false;     // the link thread is at the line
    std::atomic<bool> odottaa = false;          // the link thread waits for the start flag
    std::atomic<bool> loppumassa = false;       // closed under a running link thread, which has not ended yet
    std::atomic<bool> lopetetaan = false;       // the thread is to end, whatever it does
};

#endif
