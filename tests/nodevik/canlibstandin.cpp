// The stand-in library itself: built as libcanlib.so.1 in a directory of its own.

#include "tests/nodevik/canlibstandin.h"

#include <algorithm>
#include <cstdio>
#include <mutex>
#include <sstream>

namespace {

CanlibStandin& state() {
    static CanlibStandin standin;
    return standin;
}

// Calls are noted one at a time.
std::mutex one_call;

// Notes a call and gives what it is to return.
template <typename... Arguments>
int called(const std::string& name, Arguments... arguments) {
    const std::lock_guard<std::mutex> guard(one_call);
    std::ostringstream call;
    [[maybe_unused]] const char* separator = "";
    call << name << '(';
    ((call << separator << arguments, separator = ", "), ...);
    call << ')';
    state().calls.push_back(call.str());
    const auto result = state().results.find(name);
    return result != state().results.end() ? result->second : 0;
}

void deliver_frame(int result, long* id, void* msg, unsigned int* dlc, unsigned int* flag,
                   unsigned long* time) {
    *id = state().id;
    *dlc = state().length;
    *flag = state().flags;
    *time = state().time;
    if (result == 0) {
        std::copy_n(state().data.begin(), state().data.size(), static_cast<unsigned char*>(msg));
    }
}

}  // namespace

extern "C" {

CanlibStandin* canlib_standin() {
    return &state();
}

void canInitializeLibrary() {
    called("canInitializeLibrary");
}

int canOpenChannel(int channel, int flags) {
    return called("canOpenChannel", channel, flags);
}

int canSetBusParams(int handle, long freq, unsigned int tseg1, unsigned int tseg2, unsigned int sjw,
                    unsigned int noSamp, unsigned int syncmode) {
    return called("canSetBusParams", handle, freq, tseg1, tseg2, sjw, noSamp, syncmode);
}

int canGetBusParams(int handle, long* freq, unsigned int* tseg1, unsigned int* tseg2, unsigned int* sjw,
                    unsigned int* noSamp, unsigned int* syncmode) {
    const int result = called("canGetBusParams", handle);
    if (result == 0) {
        *freq = state().freq;
        *tseg1 = state().tseg1;
        *tseg2 = state().tseg2;
        *sjw = state().sjw;
        *noSamp = state().samples;
        *syncmode = state().syncmode;
    }
    return result;
}

int canSetBusOutputControl(int handle, unsigned int drivertype) {
    return called("canSetBusOutputControl", handle, drivertype);
}

int canBusOn(int handle) {
    return called("canBusOn", handle);
}

int canBusOff(int handle) {
    return called("canBusOff", handle);
}

int canClose(int handle) {
    return called("canClose", handle);
}

int canRead(int handle, long* id, void* msg, unsigned int* dlc, unsigned int* flag, unsigned long* time) {
    const int result = called("canRead", handle);
    deliver_frame(result, id, msg, dlc, flag, time);
    return result;
}

int canReadWait(int handle, long* id, void* msg, unsigned int* dlc, unsigned int* flag, unsigned long* time,
                unsigned long timeout) {
    const int result = called("canReadWait", handle, timeout);
    deliver_frame(result, id, msg, dlc, flag, time);
    return result;
}

int canWrite(int handle, long id, void* msg, unsigned int dlc, unsigned int flag) {
    const auto* bytes = static_cast<const unsigned char*>(msg);
    state().written.assign(bytes, bytes + dlc);
    return called("canWrite", handle, id, dlc, flag);
}

int canReadStatus(int handle, unsigned long* flags) {
    const int result = called("canReadStatus", handle);
    if (result == 0) {
        *flags = state().status;
    }
    return result;
}

int canReadErrorCounters(int handle, unsigned int* txErr, unsigned int* rxErr, unsigned int* ovErr) {
    const int result = called("canReadErrorCounters", handle);
    if (result == 0) {
        *txErr = state().tx_errors;
        *rxErr = state().rx_errors;
        *ovErr = state().overruns;
    }
    return result;
}

int canIoCtl(int handle, unsigned int func, void* buf, unsigned int buflen) {
    return called("canIoCtl", handle, func, buf, buflen);
}

int canGetErrorText(int err, char* buf, unsigned int bufsiz) {
    const auto text = state().texts.find(err);
    if (state().lacks_texts) {
        return called("canGetErrorText", err, bufsiz);
    }
    if (text != state().texts.end()) {
        std::snprintf(buf, bufsiz, "%s", text->second.c_str());
    } else {
        std::snprintf(buf, bufsiz, "text of %d", err);
    }
    return called("canGetErrorText", err, bufsiz);
}
}
