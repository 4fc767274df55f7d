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
    ccs_abort = 4
};

}  // namespace

SdoServer::SdoServer(NodeDictionary& dictionary, std::uint8_t node) : dictionary_(dictionary), node_(node) {}

std::optional<CanFrame> SdoServer::answer(const CanFrame& request, Time now) {
    if (request.length != 8) {
        return std::nullopt;
    }
    last_heard_ = now;
    const unsigned command = request.data[0];
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
    return abort(abort_timeout);
}

std::optional<Time> SdoServer::deadline() const {
    return transfer_ == Transfer::none ? std::nullopt : std::optional(last_heard_ + patience_us);
}

void SdoServer::reset() {
    transfer_ = Transfer::none;
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
    const bool last = moved_ + count == value_.size();
    const unsigned unused = static_cast<unsigned>(segment_bytes - count);
    CanFrame frame = make_frame(0x580U + node_,
                                {toggle_ | unused << 1 | (last ? last_segment_bit : 0), 0, 0, 0, 0, 0, 0, 0});
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
    announced_size_.reset();
    if ((request.data[0] & size_bit) != 0) {
        announced_size_ = load_le(std::span(request.data).subspan(4, 4));
    }
    const DictionaryObject* object = dictionary_.find(index_, subindex_);
    const std::size_t size = announced_size_.value_or(object == nullptr ? 0 : object->largest);
    if (const AbortCode refused = dictionary_.may_write(index_, subindex_, size); refused != access_done) {
        return abort(refused);
    }
    transfer_ = Transfer::download;
    toggle_ = 0;
    value_.clear();
    return response(0x60);
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
    const unsigned confirmation = 0x20 | toggle_;
    toggle_ ^= toggle_bit;
    if (value_.size() > announced_size_.value_or(dictionary_.at(index_, subindex_).largest)) {
        return abort(abort_too_long);
    }
    if ((command & last_segment_bit) == 0) {
        return make_frame(0x580U + node_, {confirmation, 0, 0, 0, 0, 0, 0, 0});
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
    const bool segment = (command >> 5) == 1;
    return segment ? make_frame(0x580U + node_, {command, 0, 0, 0, 0, 0, 0, 0}) : response(command);
}

}  // namespace node_simulator
