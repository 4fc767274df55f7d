#include "controlthread.h"

#include <QDeadlineTimer>
#include <algorithm>
#include <utility>

#include "descriptorzero.h"
#include "lineguard.h"
#include "vehicle/telemetry.h"

static_assert(std::atomic<int>::is_always_lock_free && std::atomic<bool>::is_always_lock_free &&
              std::atomic<std::uint8_t>::is_always_lock_free);

namespace {

constexpr std::array<int, 5> line_speeds = {9600, 19200, 38400, 57600, 115200};

constexpr unsigned long reply_pause_ms = 10;
constexpr unsigned long opening_pause_ms = 300;
constexpr qint64 pause_slice_us = 10000;

// Announces, as long as it lives, that the link thread is at the line, and tells whether it may be.
class AtTheLine {
public:
    AtTheLine(std::atomic<bool>& announced, const std::atomic<bool>& permission)
        : announced_(announced), permitted_(announce(announced) && permission) {}
    ~AtTheLine() { announced_ = false; }
    AtTheLine(const AtTheLine&) = delete;
    AtTheLine& operator=(const AtTheLine&) = delete;

    bool permitted() const { return permitted_; }

private:
    static bool announce(std::atomic<bool>& announced) {
        announced = true;
        return true;
    }

    std::atomic<bool>& announced_;
    const bool permitted_;
};

}  // namespace

ControlThread::ControlThread(std::string device, LineGuard* guard)
    : laite(std::move(device)), vartija(guard) {}

ControlThread::~ControlThread() {
    LopetaSaie();
    VapautaVartija();
}

void ControlThread::LopetaYhteys() {
    LopetaSaie();
    if (kaynnistysLippu) {
        OtaLinja();
        VapautaVartija();
        put_null_on_descriptor(linja);  // closes the line without changing its settings
        SuljeLinja();
        Q_EMIT LahetaTeksti(QStringLiteral("Portti kiinni"));
    }
}

void ControlThread::ReadAndSendData() {
    const int bytes = LueLinja();
    const vehicle::Slots slots = vehicle::slots_of(ohjuri.buffer);
    msleep(reply_pause_ms);
    Q_EMIT LahetaArvot(slots[0], slots[1], slots[2], slots[3], slots[4], slots[5], slots[6], slots[7],
                       slots[8], slots[9], slots[10], slots[11], slots[12], bytes);
    LahetaViesti();
}

void ControlThread::ReceiveData(int Data1, int Data2, int Data3) {
    Message[0].store(static_cast<std::uint8_t>(Data1), std::memory_order_relaxed);
    Message[1].store(static_cast<std::uint8_t>(Data2), std::memory_order_relaxed);
    Message[2].store(static_cast<std::uint8_t>(Data3), std::memory_order_relaxed);
}

void ControlThread::AvaaPortti(int Index, int nopeus) {
    if (Index < 0 || Index >= static_cast<int>(line_speeds.size())) {
        Q_EMIT LahetaTeksti(QStringLiteral("fail"));
        return;
    }
    const int speed = line_speeds[static_cast<std::size_t>(Index)];
    while ((linja = ohjuri.open(laite.data(), speed)) <= 0) {
        OtaLinja();
        SuljeLinja();
        Q_EMIT LahetaTeksti(QStringLiteral("fail"));
    }
    lepoviestiJai = false;
    if (vartija != nullptr) {
        vartija->hold(linja);
    }
    Q_EMIT LahetaTeksti(QStringLiteral("Portti auki"));
    msleep(opening_pause_ms);
    aika.store(nopeus, std::memory_order_relaxed);
    OdotaEdellinenLoppuun();
    kaynnistysLippu = true;
}

void ControlThread::SuljePortti() {
    OtaLinja();
    VapautaVartija();
    SuljeLinja();
    Q_EMIT LahetaTeksti(QStringLiteral("Portti kiinni"));
    lopetusLippu = true;
}

void ControlThread::MoottoriOn(bool Mon) {
    Message[3].store(Mon ? vehicle::motor_on : vehicle::motor_off, std::memory_order_relaxed);
}

void ControlThread::run() {
    if (OdotaKaynnistysta()) {
        lopetusLippu = false;
        Q_EMIT LahetaTeksti(QStringLiteral("Started"));
        while (SaaKiertaa()) {
            ReadAndSendData();
            Tauko();
        }
        PysaytaAjoneuvo();
    }
    loppumassa = false;
}

// A tight loop: the thread is started when the flag is set already, so that it ends at once.
bool ControlThread::OdotaKaynnistysta() {
    odottaa = true;
    while (!kaynnistysLippu && !loppumassa && !lopetetaan) {
    }
    odottaa = false;
    return kaynnistysLippu;
}

// The stop flag is kept beside the start flag, which a stop clears too: alone it would not do, since a stop
// that comes just before `run` clears it would be lost.
bool ControlThread::SaaKiertaa() const {
    return !lopetusLippu && kaynnistysLippu && !lopetetaan;
}

// The pause between two cycles, in slices, so that a stop does not have to wait for its end.
void ControlThread::Tauko() const {
    const int pause_ms = std::max(aika.load(std::memory_order_relaxed), 0);  // negative would never expire
    const QDeadlineTimer end(pause_ms, Qt::PreciseTimer);
    while (SaaKiertaa() && !end.hasExpired()) {
        const qint64 left_us = end.remainingTimeNSecs() / 1000 + 1;
        usleep(static_cast<unsigned long>(std::min(left_us, pause_slice_us)));
    }
}

int ControlThread::LueLinja() {
    const AtTheLine line(linjaVarattu, kaynnistysLippu);
    return line.permitted() ? ohjuri.read() : 0;
}

void ControlThread::LahetaViesti() {
    std::array<char, vehicle::frame_bytes> frame = {};
    std::transform(Message.begin(), Message.end(), frame.begin(), [](const std::atomic<std::uint8_t>& byte) {
        return static_cast<char>(byte.load(std::memory_order_relaxed));
    });
    constexpr int size = static_cast<int>(frame.size());
    bool sent = false;
    {
        const AtTheLine line(linjaVarattu, kaynnistysLippu);
        if (!line.permitted()) {
            return;
        }
        sent = ohjuri.write(frame.data(), size) == size;
    }
    if (sent) {
        Q_EMIT VilkutaLed();
    } else {
        Q_EMIT LahetaTeksti(QStringLiteral("Send failure"));
    }
}

// Leaves the vehicle at rest when the panel goes away without having closed the line.
void ControlThread::PysaytaAjoneuvo() {
    if (lopetetaan && kaynnistysLippu) {
        std::array<char, vehicle::frame_bytes> frame = {};
        std::copy(vehicle::neutral_frame.begin(), vehicle::neutral_frame.end(), frame.begin());
        constexpr int size = static_cast<int>(frame.size());
        lepoviestiJai = ohjuri.write(frame.data(), size) != size;
    }
}

void ControlThread::LopetaSaie() {
    lopetetaan = true;
    wait();
    static_cast<void>(loppumassa.load());  // the thread's last store: orders all it did before what follows
    lopetetaan = false;
}

// A running thread is told to end before its start flag goes: it may not have looked at that flag yet.
void ControlThread::OtaLinja() {
    if (kaynnistysLippu && isRunning()) {
        loppumassa = true;
    }
    kaynnistysLippu = false;
    while (linjaVarattu) {
        yieldCurrentThread();
    }
}

// Once nothing more is sent, and before the line is closed. A vehicle that has not been brought to rest is
// left to the guard.
void ControlThread::VapautaVartija() {
    if (vartija != nullptr && !lepoviestiJai) {
        vartija->release();
    }
}

// Closes what was opened and nothing else: closing a line that is not open would close descriptor 0, and a thread
// that starts in that moment would be given that number for a descriptor of its own.
void ControlThread::SuljeLinja() {
    if (linja >= 0) {
        ohjuri.close();
        linja = -1;
    }
    fill_descriptor_zero();
}

// Lets a thread that is about to end do so: a start of a thread that still runs would do nothing. A thread
// that waits for the start flag is left to it, and so is one that cycles because the line was open already.
void ControlThread::OdotaEdellinenLoppuun() const {
    while (!kaynnistysLippu && (loppumassa || (isRunning() && !odottaa))) {
        msleep(1);
    }
}
