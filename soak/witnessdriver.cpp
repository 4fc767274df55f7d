#include "soak/witnessdriver.h"

#include <cerrno>
#include <system_error>
#include <utility>

namespace soak {

namespace {

constexpr unsigned function_code_mask = 0x780;
constexpr unsigned node_mask = 0x7F;
constexpr unsigned sdo_answer_code = 0x580;
constexpr unsigned sdo_request_code = 0x600;
constexpr unsigned heartbeat_code = 0x700;
constexpr unsigned most_bytes = 8;

}  // namespace

WitnessDriver::WitnessDriver(const std::string& journal) : journal_(std::fopen(journal.c_str(), "we")) {
    if (!journal_) {
        throw std::system_error(errno, std::generic_category(), journal);
    }
}

void WitnessDriver::note(const std::string& line) {
    std::fprintf(journal_.get(), "%s\n", line.c_str());
}

void WitnessDriver::after_sending(unsigned frames, std::function<void()> deed) {
    frames_until_deed_ = frames;
    deed_ = std::move(deed);
}

int WitnessDriver::read(unsigned int& ID, unsigned int& length, unsigned char* data) {
    const int result = udpDriver::read(ID, length, data);
    if (result != 0) {
        return result;
    }
    ++counts_.received;
    const unsigned node = ID & node_mask;
    const unsigned code = ID & function_code_mask;
    sdo_answers_[node] += code == sdo_answer_code ? 1 : 0;
    boot_ups_[node] += code == heartbeat_code && length == 1 && data[0] == 0 ? 1 : 0;
    record("out", ID, length, data);
    return result;
}

int WitnessDriver::write(unsigned int cobid, unsigned int length, unsigned char* data, unsigned int flags) {
    ++counts_.asked;
    sdo_requests_[cobid & node_mask] += (cobid & function_code_mask) == sdo_request_code ? 1 : 0;
    record("in ", cobid, length, data);
    const int result = counts_.asked == lost_frame_ ? 0 : udpDriver::write(cobid, length, data, flags);
    counts_.sent += result == 0 ? 1 : 0;
    if (frames_until_deed_ > 0 && --frames_until_deed_ == 0) {
        deed_();
    }
    return result;
}

void WitnessDriver::record(const char* direction, unsigned cobid, unsigned length,
                           const unsigned char* data) {
    std::fprintf(journal_.get(), "%s %03x %u", direction, cobid, length);
    for (unsigned i = 0; i < length && i < most_bytes; ++i) {
        std::fprintf(journal_.get(), " %02x", static_cast<unsigned>(data[i]));
    }
    std::fputc('\n', journal_.get());
}

}  // namespace soak
