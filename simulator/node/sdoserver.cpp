#include "simulator/node/sdoserver.h"

#include <algorithm>

namespace node_simulator {

namespace {

constexpr std::size_t expedited_bytes = 4;
constexpr std::size_t segment_bytes = 7;
constexpr unsigned toggle_bit = 0x10;
constexpr unsigned last_segment_bit = 0x01;
constexpr unsigned size_bit = 0x01;
constexpr unsigned expedited_bit = 0x02;

// Client command specifiers, the upper three bits of a request's byte 0.
enum ClientCommand : unsigned {
    ccs_download_segment = 0,
    ccs_download = 1,
    ccs_upload = 2,
    ccs_upload_segment = 3,
    ccs_abort = 4,
    ccs_block_upload = 5,
    ccs_block_download = 6
};

constexpr unsigned abort_byte = 0x80;  // the one byte 0 that is an abort among the segments of a block

// Byte 0 of the frames of a block transfer; the low two bits tell the step, those of a download's client one bit.
constexpr unsigned block_step_bits = 0x03;
constexpr unsigned download_end_bit = 0x01;
constexpr unsigned block_crc_bit = 0x04;
constexpr unsigned block_size_bit = 0x02;
enum BlockStep : unsigned { block_initiate = 0, block_end = 1, block_sub_block = 2, block_start = 3 };
constexpr unsigned download_initiated = 0xA0;
constexpr unsigned download_sub_block = 0xA2;
constexpr unsigned download_ended = 0xA1;
constexpr unsigned upload_initiated = 0xC0;
constexpr unsigned upload_end = 0xC1;

}  // namespace

SdoServer::SdoServer(NodeDictionary& dictionary, std::uint8_t node, const BlockSettings& blocks,
                     const FaultSettings& faults)
    : dictionary_(dictionary), node_(node), blocks_(blocks), faults_(faults, node) {}

std::optional<CanFrame> SdoServer::answer(const CanFrame& request, Time now) {
    if (request.length != 8) {
        return std::nullopt;
    }
    last_heard_ = now;
    const unsigned command = request.data[0];
    if (transfer_ == Transfer::block_download && command != abort_byte) {
        return block_segment(request, now);
    }
    if (transfer_ == Transfer::block_download_end && request == last_segment_) {
        return std::nullopt;
    }
    switch (command >> 5) {
        case ccs_upload:
            address(request);
            return begin_upload();
        case ccs_download:
            address(request);
            return begin_download(request);
        case ccs_upload_segment:
            return transfer_ == Transfer::upload ? upload_segment(command) : abort(abort_command);
        case ccs_download_segment:
            return transfer_ == Transfer::download ? download_segment(request) : abort(abort_command);
        case ccs_abort:
            reset();
            return std::nullopt;
        case ccs_block_upload:
            if ((command & block_step_bits) == block_initiate) {
                address(request);
                return begin_block_upload(request);
            }
            return block_upload(request);
        case ccs_block_download:
            if ((command & download_end_bit) == 0) {
                address(request);
                return begin_block_download(request);
            }
            return transfer_ == Transfer::block_download_end ? end_block_download(request)
                                                             : abort(abort_command);
        default:
            address(request);
            return abort(abort_command);
    }
}

// Takes the index and subindex that a request names.
void SdoServer::address(const CanFrame& request) {
    index_ = static_cast<std::uint16_t>(load_le(std::span(request.data).subspan(1, 2)));
    subindex_ = request.data[3];
}

std::optional<CanFrame> SdoServer::expire(Time now) {
    if (!deadline() || now < *deadline()) {
        return std::nullopt;
    }
    if (answer_sub_block_at_) {
        return answer_sub_block();
    }
    return abort(abort_timeout);
}

std::optional<Time> SdoServer::deadline() const {
    if (answer_sub_block_at_) {
        return answer_sub_block_at_;
    }
    return transfer_ == Transfer::none ? std::nullopt : std::optional(last_heard_ + patience_us);
}

void SdoServer::reset() {
    transfer_ = Transfer::none;
    answer_sub_block_at_.reset();
}

// A frame that names no object: the state tells which transfer it belongs to.
CanFrame SdoServer::plain(unsigned command, unsigned first, unsigned second) const {
    return make_frame(0x580U + node_, {command, first, second, 0, 0, 0, 0, 0});
}

// An answer with the index and subindex of the transfer.
CanFrame SdoServer::response(unsigned command) const {
    return make_frame(0x580U + node_,
                      {command, index_ & 0xFFU, static_cast<unsigned>(index_) >> 8, subindex_, 0, 0, 0, 0});
}

CanFrame SdoServer::abort(AbortCode code) {
    reset();
    CanFrame frame = response(0x80);
    store_le(std::span(frame.data).subspan(4, 4), code);
    return frame;
}

CanFrame SdoServer::begin_upload() {
    transfer_ = Transfer::none;
    if (const AbortCode refused = dictionary_.read(index_, subindex_, value_); refused != access_done) {
        return abort(refused);
    }
    if (!value_.empty() && value_.size() <= expedited_bytes) {
        const unsigned unused = static_cast<unsigned>(expedited_bytes - value_.size());
        CanFrame frame = response(0x40 | unused << 2 | expedited_bit | size_bit);
        std::copy(value_.begin(), value_.end(), frame.data.begin() + 4);
        return frame;
    }
    transfer_ = Transfer::upload;
    endless_ = faults_.endless();
    moved_ = 0;
    toggle_ = 0;
    CanFrame frame = response(0x40 | size_bit);
    store_le(std::span(frame.data).subspan(4, 4), value_.size());
    return frame;
}

CanFrame SdoServer::upload_segment(unsigned command) {
    if ((command & toggle_bit) != toggle_) {
        return abort(abort_toggle);
    }
    const std::size_t count = std::min(segment_bytes, value_.size() - moved_);
    const bool last = moved_ + count == value_.size() && !endless_;
    const unsigned unused = endless_ ? 0 : static_cast<unsigned>(segment_bytes - count);
    const unsigned toggle = faults_.toggled() ? toggle_ ^ toggle_bit : toggle_;
    CanFrame frame = plain(toggle | unused << 1 | (last ? last_segment_bit : 0));
    std::copy_n(value_.begin() + static_cast<std::ptrdiff_t>(moved_), count, frame.data.begin() + 1);
    moved_ += count;
    toggle_ ^= toggle_bit;
    if (last) {
        transfer_ = Transfer::none;
    }
    return frame;
}

CanFrame SdoServer::begin_download(const CanFrame& request) {
    transfer_ = Transfer::none;
    if ((request.data[0] & expedited_bit) != 0) {
        return download_expedited(request);
    }
    const bool size_is_told = (request.data[0] & size_bit) != 0;
    if (const AbortCode refused = may_begin_download(request, size_is_told); refused != access_done) {
        return abort(refused);
    }
    transfer_ = Transfer::download;
    toggle_ = 0;
    value_.clear();
    return response(0x60);
}

// Takes the size that a request tells, and whether so much may be written.
AbortCode SdoServer::may_begin_download(const CanFrame& request, bool size_is_told) {
    announced_size_.reset();
    if (size_is_told) {
        announced_size_ = load_le(std::span(request.data).subspan(4, 4));
    }
    const DictionaryObject* object = dictionary_.find(index_, subindex_);
    const std::size_t size = announced_size_.value_or(object == nullptr ? 0 : object->largest);
    return dictionary_.may_write(index_, subindex_, size);
}

CanFrame SdoServer::download_expedited(const CanFrame& request) {
    std::size_t size = expedited_bytes;
    if ((request.data[0] & size_bit) != 0) {
        size -= request.data[0] >> 2 & 3;
    } else if (const DictionaryObject* object = dictionary_.find(index_, subindex_); object != nullptr) {
        size = std::min(size, object->largest);  // an unsized value is as long as the object
    }
    value_.assign(request.data.begin() + 4, request.data.begin() + 4 + static_cast<std::ptrdiff_t>(size));
    return finish_download(0x60);
}

CanFrame SdoServer::download_segment(const CanFrame& request) {
    const unsigned command = request.data[0];
    if ((command & toggle_bit) != toggle_) {
        return abort(abort_toggle);
    }
    const std::size_t count = segment_bytes - (command >> 1 & 7);
    value_.insert(value_.end(), request.data.begin() + 1,
                  request.data.begin() + 1 + static_cast<std::ptrdiff_t>(count));
    const unsigned confirmation = 0x20 | (faults_.toggled() ? toggle_ ^ toggle_bit : toggle_);
    toggle_ ^= toggle_bit;
    if (value_.size() > announced_size_.value_or(dictionary_.at(index_, subindex_).largest)) {
        return abort(abort_too_long);
    }
    if ((command & last_segment_bit) == 0) {
        return plain(confirmation);
    }
    if (value_.size() < announced_size_.value_or(0)) {
        return abort(abort_too_short);
    }
    return finish_download(confirmation);
}

CanFrame SdoServer::finish_download(unsigned command) {
    transfer_ = Transfer::none;
    if (const AbortCode refused = dictionary_.write(index_, subindex_, value_); refused != access_done) {
        return abort(refused);
    }
    const bool names_object = (command >> 5) == 3;
    return names_object ? response(command) : plain(command);
}

CanFrame SdoServer::begin_block_upload(const CanFrame& request) {
    reset();
    const unsigned block_size = request.data[4];
    const unsigned switch_threshold = request.data[5];
    if (!blocks_.supported) {
        return abort(abort_command);
    }
    if (block_size == 0 || block_size > largest_block) {
        return abort(abort_block_size);
    }
    if (const AbortCode refused = dictionary_.read(index_, subindex_, value_); refused != access_done) {
        return abort(refused);
    }
    if (switch_threshold != 0 && value_.size() <= switch_threshold) {
        return begin_upload();
    }
    with_crc_ = (request.data[0] & block_crc_bit) != 0;
    sender_.start(value_, block_size, faults_.endless());
    transfer_ = Transfer::block_upload_start;
    CanFrame frame = response(upload_initiated | block_crc_bit | block_size_bit);
    store_le(std::span(frame.data).subspan(4, 4), value_.size());
    return frame;
}

// The client's frames within a block upload: begin, the answer to a sub-block, the confirmation of the end.
std::optional<CanFrame> SdoServer::block_upload(const CanFrame& request) {
    const unsigned step = request.data[0] & block_step_bits;
    if (transfer_ == Transfer::block_upload_start && step == block_start) {
        transfer_ = Transfer::block_upload;
        return std::nullopt;
    }
    if (transfer_ == Transfer::block_upload_end && step == block_end) {
        reset();
        return std::nullopt;
    }
    if (transfer_ != Transfer::block_upload || step != block_sub_block) {
        return abort(abort_command);
    }
    const unsigned block_size = request.data[2];
    if (!sender_.acknowledge(request.data[1], block_size)) {
        return abort(abort_sequence);
    }
    if (sender_.finished()) {
        return end_block_upload();
    }
    if (block_size == 0 || block_size > largest_block) {
        return abort(abort_block_size);
    }
    return std::nullopt;
}

CanFrame SdoServer::end_block_upload() {
    transfer_ = Transfer::block_upload_end;
    const unsigned crc = with_crc_ ? sender_.crc() ^ (faults_.wrong_crc() ? 1U : 0U) : 0U;
    return plain(upload_end | sender_.unused() << 2, crc & 0xFF, crc >> 8);
}

std::optional<CanFrame> SdoServer::more() {
    if (transfer_ != Transfer::block_upload) {
        return std::nullopt;
    }
    const auto segment = sender_.next();
    if (!segment) {
        return std::nullopt;
    }
    CanFrame frame = plain(0);
    frame.data = *segment;
    return frame;
}

std::uint8_t SdoServer::next_block_size() {
    return blocks_.block_sizes[block_turn_++ % blocks_.block_sizes.size()];
}

CanFrame SdoServer::begin_block_download(const CanFrame& request) {
    reset();
    if (!blocks_.supported) {
        return abort(abort_command);
    }
    const bool size_is_told = (request.data[0] & block_size_bit) != 0;
    if (const AbortCode refused = may_begin_download(request, size_is_told); refused != access_done) {
        return abort(refused);
    }
    with_crc_ = (request.data[0] & block_crc_bit) != 0;
    const std::uint8_t block_size = next_block_size();
    receiver_.start(block_size);
    last_segment_.reset();
    transfer_ = Transfer::block_download;
    CanFrame frame = response(download_initiated | block_crc_bit);
    frame.data[4] = block_size;
    return frame;
}

std::optional<CanFrame> SdoServer::block_segment(const CanFrame& request, Time now) {
    last_segment_ = request;
    answer_sub_block_at_ = now + sub_block_patience_us;
    switch (receiver_.take(request.data)) {
        case BlockReceiver::Result::invalid:
            return abort(abort_sequence);
        case BlockReceiver::Result::waiting:
            break;
        case BlockReceiver::Result::complete:
            return answer_sub_block();
    }
    // Seven bytes of padding do not make a value too long.
    const std::size_t room = announced_size_.value_or(dictionary_.at(index_, subindex_).largest);
    if (receiver_.size() > room + segment_bytes) {
        return abort(abort_too_long);
    }
    return std::nullopt;
}

CanFrame SdoServer::answer_sub_block() {
    answer_sub_block_at_.reset();
    const unsigned last_good = receiver_.last_good();
    const std::uint8_t block_size = next_block_size();
    if (receiver_.finished()) {
        transfer_ = Transfer::block_download_end;
    } else {
        receiver_.next_block(block_size);
    }
    return plain(download_sub_block, last_good, block_size);
}

CanFrame SdoServer::end_block_download(const CanFrame& request) {
    value_ = receiver_.finish(request.data[0] >> 2 & 7U);
    if (with_crc_ && block_crc(value_) != load_le(std::span(request.data).subspan(1, 2))) {
        return abort(abort_crc);
    }
    if (value_.size() > announced_size_.value_or(value_.size())) {
        return abort(abort_too_long);
    }
    if (value_.size() < announced_size_.value_or(0)) {
        return abort(abort_too_short);
    }
    return finish_download(download_ended);
}

}  // namespace node_simulator
