/// @file
/// A stand-in for CANlib: a shared library of the same name and functions, which a test scripts and
/// questions.
///
/// The test loads it as the driver does, and gets at its state with canlib_standin().

#ifndef TESTS_NODEVIK_CANLIBSTANDIN_H
#define TESTS_NODEVIK_CANLIBSTANDIN_H

#include <array>
#include <map>
#include <string>
#include <vector>

/// What the stand-in answers, and what it has been asked.
struct CanlibStandin {
    /// Every call in order, as it would be written: "canOpenChannel(0, 8)". Results are not among the
    /// arguments.
    std::vector<std::string> calls;

    /// What a function returns, by its name; 0 for those that are not in it.
    std::map<std::string, int> results;

    /// Texts of canGetErrorText(); "text of <code>" for the codes that are not in it.
    std::map<int, std::string> texts;

    /// Whether canGetErrorText() writes no text.
    bool lacks_texts = false;

    /// What canRead() and canReadWait() deliver, whatever they return; the data only when they return 0.
    long id = 0;
    std::array<unsigned char, 8> data = {};
    unsigned int length = 0;
    unsigned int flags = 0;
    unsigned long time = 0;

    /// Data of the last canWrite().
    std::vector<unsigned char> written;

    /// What canReadStatus() delivers, unless it fails.
    unsigned long status = 0;

    /// What canReadErrorCounters() delivers, unless it fails.
    unsigned int tx_errors = 0;
    unsigned int rx_errors = 0;
    unsigned int overruns = 0;

    /// What canGetBusParams() delivers, unless it fails.
    long freq = 0;
    unsigned int tseg1 = 0;
    unsigned int tseg2 = 0;
    unsigned int sjw = 0;
    unsigned int samples = 0;
    unsigned int syncmode = 0;
};

/// Type of canlib_standin(), which the stand-in library exports: the state that all its functions share.
using canlib_standin_function = CanlibStandin* (*)();

#endif
