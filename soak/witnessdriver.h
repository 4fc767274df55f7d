/// @file
/// A CAN driver that keeps a journal of every frame that passes, beside carrying it over UDP.
///
/// The journal has one line for each frame, in the words that node-simulator's log has for it, so that the
/// two can be held against each other, and one for whatever else the program tells it:
///
///     in  601 8 40 00 10 00 00 00 00 00      the master sent it, into the nodes
///     out 581 8 43 00 10 00 91 01 0f 00      it came out of the nodes

#ifndef SOAK_WITNESSDRIVER_H
#define SOAK_WITNESSDRIVER_H

#include <array>
#include <cstdint>
#include <functional>
#include <string>

#include "nodevik/udpdriver.h"
#include "program/file.h"

namespace soak {

/// What has passed through the driver so far.
struct FrameCounts {
    std::uint64_t asked = 0;     ///< frames that the master asked the driver to send
    std::uint64_t sent = 0;      ///< of these the ones that the driver reported as sent
    std::uint64_t received = 0;  ///< frames that the driver delivered
};

/// A udpDriver with a journal.
class WitnessDriver : public udpDriver {
public:
    /// @param journal  file that is written anew; a program without its journal ends with std::system_error
    explicit WitnessDriver(const std::string& journal);

    /// What has passed.
    const FrameCounts& counts() const { return counts_; }

    /// Number of boot-up messages (0x700 + node, one byte 0) that have come from a node.
    ///
    /// @param node  1 to 127
    unsigned boot_ups(unsigned node) const { return boot_ups_.at(node); }

    /// Number of SDO answers (0x580 + node) that have come from a node.
    ///
    /// @param node  1 to 127
    unsigned sdo_answers(unsigned node) const { return sdo_answers_.at(node); }

    /// Number of SDO requests (0x600 + node) that have been sent to a node.
    ///
    /// @param node  1 to 127
    unsigned sdo_requests(unsigned node) const { return sdo_requests_.at(node); }

    /// Adds a line of the program's own to the journal.
    void note(const std::string& line);

    /// Has @p deed done once, right after @p frames more frames have been sent; 0 calls that off.
    void after_sending(unsigned frames, std::function<void()> deed);

    /// Loses the frame of this number, counted from 1, without a word: it counts as sent and stands in the
    /// journal.
    void lose(std::uint64_t frame) { lost_frame_ = frame; }

    int read(unsigned int& ID, unsigned int& length, unsigned char* data) override;
    int write(unsigned int cobid, unsigned int length, unsigned char* data, unsigned int flags) override;

private:
    void record(const char* direction, unsigned cobid, unsigned length, const unsigned char* data);

    program::File journal_;
    FrameCounts counts_;
    std::array<unsigned, 128> boot_ups_{};
    std::array<unsigned, 128> sdo_answers_{};
    std::array<unsigned, 128> sdo_requests_{};
    std::function<void()> deed_;
    unsigned frames_until_deed_ = 0;
    std::uint64_t lost_frame_ = 0;
};

}  // namespace soak

#endif
