#include "nodevik/canlib.h"

#include <dlfcn.h>

#include <atomic>
#include <cstdio>
#include <mutex>

namespace {

constexpr const char* library_name = "libcanlib.so.1";

/// The functions of the loaded library, each under its name in the library.
struct can_functions {
    decltype(&::canInitializeLibrary) canInitializeLibrary;
    decltype(&::canOpenChannel) canOpenChannel;
    decltype(&::canSetBusParams) canSetBusParams;
    decltype(&::canGetBusParams) canGetBusParams;
    decltype(&::canSetBusOutputControl) canSetBusOutputControl;
    decltype(&::canBusOn) canBusOn;
    decltype(&::canBusOff) canBusOff;
    decltype(&::canClose) canClose;
    decltype(&::canRead) canRead;
    decltype(&::canReadWait) canReadWait;
    decltype(&::canWrite) canWrite;
    decltype(&::canReadStatus) canReadStatus;
    decltype(&::canReadErrorCounters) canReadErrorCounters;
    decltype(&::canIoCtl) canIoCtl;
    decltype(&::canGetErrorText) canGetErrorText;
};

/// Finds one function in the library; false when the library lacks it.
template <typename Function>
bool find_function(void* library, const char* name, Function& function) {
    // dlsym(3) gives functions as pointers to data; POSIX guarantees the conversion.
    function = reinterpret_cast<Function>(dlsym(library, name));
    return function != nullptr;
}

/// Finds all of them.
bool find_functions(void* library, can_functions& found) {
    return find_function(library, "canInitializeLibrary", found.canInitializeLibrary) &&
           find_function(library, "canOpenChannel", found.canOpenChannel) &&
           find_function(library, "canSetBusParams", found.canSetBusParams) &&
           find_function(library, "canGetBusParams", found.canGetBusParams) &&
           find_function(library, "canSetBusOutputControl", found.canSetBusOutputControl) &&
           find_function(library, "canBusOn", found.canBusOn) &&
           find_function(library, "canBusOff", found.canBusOff) &&
           find_function(library, "canClose", found.canClose) &&
           find_function(library, "canRead", found.canRead) &&
           find_function(library, "canReadWait", found.canReadWait) &&
           find_function(library, "canWrite", found.canWrite) &&
           find_function(library, "canReadStatus", found.canReadStatus) &&
           find_function(library, "canReadErrorCounters", found.canReadErrorCounters) &&
           find_function(library, "canIoCtl", found.canIoCtl) &&
           find_function(library, "canGetErrorText", found.canGetErrorText);
}

/// The loaded library, or null.
std::atomic<const can_functions*> loaded = nullptr;

/// Loads the library unless it is loaded.
void load() {
    static std::mutex loading;
    static can_functions functions;
    const std::lock_guard<std::mutex> guard(loading);
    if (loaded.load() != nullptr) {
        return;
    }
    void* library = dlopen(library_name, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        return;
    }
    if (!find_functions(library, functions)) {
        dlclose(library);
        return;
    }
    loaded.store(&functions);
}

/// Calls a function of the library, or fails when there is no library.
template <typename Function, typename... Arguments>
canStatus forward(Function can_functions::*function, Arguments... arguments) {
    const can_functions* library = loaded.load();
    return library != nullptr ? (library->*function)(arguments...) : canERR_DYNALOAD;
}

}  // namespace

void canInitializeLibrary() {
    load();
    if (const can_functions* library = loaded.load()) {
        library->canInitializeLibrary();
    }
}

canHandle canOpenChannel(int channel, int flags) {
    return forward(&can_functions::canOpenChannel, channel, flags);
}

canStatus canSetBusParams(canHandle handle, long freq, unsigned int tseg1, unsigned int tseg2,
                          unsigned int sjw, unsigned int noSamp, unsigned int syncmode) {
    return forward(&can_functions::canSetBusParams, handle, freq, tseg1, tseg2, sjw, noSamp, syncmode);
}

canStatus canGetBusParams(canHandle handle, long* freq, unsigned int* tseg1, unsigned int* tseg2,
                          unsigned int* sjw, unsigned int* noSamp, unsigned int* syncmode) {
    return forward(&can_functions::canGetBusParams, handle, freq, tseg1, tseg2, sjw, noSamp, syncmode);
}

canStatus canSetBusOutputControl(canHandle handle, unsigned int drivertype) {
    return forward(&can_functions::canSetBusOutputControl, handle, drivertype);
}

canStatus canBusOn(canHandle handle) {
    return forward(&can_functions::canBusOn, handle);
}

canStatus canBusOff(canHandle handle) {
    return forward(&can_functions::canBusOff, handle);
}

canStatus canClose(canHandle handle) {
    return forward(&can_functions::canClose, handle);
}

canStatus canRead(canHandle handle, long* id, void* msg, unsigned int* dlc, unsigned int* flag,
                  unsigned long* time) {
    return forward(&can_functions::canRead, handle, id, msg, dlc, flag, time);
}

canStatus canReadWait(canHandle handle, long* id, void* msg, unsigned int* dlc, unsigned int* flag,
                      unsigned long* time, unsigned long timeout) {
    return forward(&can_functions::canReadWait, handle, id, msg, dlc, flag, time, timeout);
}

canStatus canWrite(canHandle handle, long id, void* msg, unsigned int dlc, unsigned int flag) {
    return forward(&can_functions::canWrite, handle, id, msg, dlc, flag);
}

canStatus canReadStatus(canHandle handle, unsigned long* flags) {
    return forward(&can_functions::canReadStatus, handle, flags);
}

canStatus canReadErrorCounters(canHandle handle, unsigned int* txErr, unsigned int* rxErr,
                               unsigned int* ovErr) {
    return forward(&can_functions::canReadErrorCounters, handle, txErr, rxErr, ovErr);
}

canStatus canIoCtl(canHandle handle, unsigned int func, void* buf, unsigned int buflen) {
    return forward(&can_functions::canIoCtl, handle, func, buf, buflen);
}

canStatus canGetErrorText(canStatus err, char* buf, unsigned int bufsiz) {
    if (loaded.load() == nullptr) {
        std::snprintf(buf, bufsiz, "%s could not be loaded", library_name);
    }
    return forward(&can_functions::canGetErrorText, err, buf, bufsiz);
}
