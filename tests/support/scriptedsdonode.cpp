#include "tests/support/scriptedsdonode.h"

#include <algorithm>
#include <utility>

namespace {

using Data = ScriptedSdoNode::Data;

std::uint32_t number(const Data& frame) {
    return static_cast<std::uint32_t>(frame[4]) | static_cast<std::uint32_t>(frame[5]) << 8 |
           static_cast<std::uint32_t>(frame[6]) << 16 | static_cast<std::uint32_t>(frame[7]) << 24;
}

void set_number(Data& frame, std::uint64_t value) {
    for (int i = 0; i < 4; ++i) {
        frame[4 + i] = static_cast<std::uint8_t>(value >> (8 * i));
    }
}

std::uint32_t object_of(const Data& frame) {
    return static_cast<std::uint32_t>(frame[2]) << 16 | static_cast<std::uint32_t>(frame[1]) << 8 | frame[3];
}

Data about(std::uint32_t key, unsigned int specifier) {
    return {static_cast<std::uint8_t>(specifier), static_cast<std::uint8_t>(key >> 8),
            static_cast<std::uint8_t>(key >> 16), static_cast<std::uint8_t>(key)};
}

}  // namespace

std::uint16_t ScriptedSdoNode::crc(const Bytes& bytes) {
    unsigned int value = 0;
    for (const std::uint8_t byte : bytes) {
        value ^= static_cast<unsigned int>(byte) << 8;
        for (int bit = 0; bit < 8; ++bit) {
            value = (value & 0x8000U) != 0 ? (value << 1 ^ 0x1021U) : value << 1;
        }
        value &= 0xFFFFU;
    }
    return static_cast<std::uint16_t>(value);
}

ScriptedSdoNode::Answers ScriptedSdoNode::receive(const Data& frame) {
    answers_.clear();
    if (lost_requests.count(++requests) != 0) {
        return {};
    }
    const unsigned int first = answered + 1;
    if (frame[0] == 0x80) {
        aborts.push_back(number(frame));
        last_abort = frame;
        state_ = State::idle;
        return {};
    }
    switch (state_) {
        case State::idle:
            initiate(frame);
            break;
        case State::upload:
            upload_segment(frame);
            break;
        case State::download:
            download_segment(frame);
            break;
        case State::block_start:
            if (frame[0] == 0xA3) {
                state_ = State::block_upload;
                send_block();
            } else {
                abort(0x05040001);
            }
            break;
        case State::block_upload:
            block_confirmed(frame);
            break;
        case State::block_upload_end:
            if (frame[0] == 0xA1) {
                ++reads;
                state_ = State::idle;
            } else {
                abort(0x05040001);
            }
            break;
        case State::block_download:
            block_segment(frame);
            break;
        case State::block_end:
            block_end(frame);
            break;
    }
    Answers answers = std::move(answers_);
    answers_ = {};
    if (tamper && !answers.empty()) {
        tamper(first, answers);
    }
    return answers;
}

void ScriptedSdoNode::answer(Data frame) {
    ++answered;
    answers_.push_back(frame);
}

void ScriptedSdoNode::abort(std::uint32_t code) {
    Data frame = about(key_, 0x80);
    set_number(frame, code);
    state_ = State::idle;
    answer(frame);
}

void ScriptedSdoNode::initiate(const Data& frame) {
    const unsigned int command = frame[0] >> 5;
    key_ = object_of(frame);
    at_ = 0;
    toggle_ = false;
    const bool is_block = command == 5 || command == 6;
    if (is_block && !knows_blocks) {
        if (refusal != 0) {
            abort(refusal);
        }
        return;
    }
    if (command == 2 || command == 5) {
        if (objects.count(key_) == 0) {
            abort(0x06020000);
            return;
        }
        data_ = objects[key_];
        if (command == 2 || (switches && data_.size() <= frame[5])) {
            begin_upload(frame);
            return;
        }
        size_ = frame[4];
        if (size_ < 1 || size_ > most_block_size) {
            abort(0x05040002);
            return;
        }
        crc_ = can_crc && (frame[0] & 4) != 0;
        Data first = about(key_, 0xC0U | (can_crc ? 4U : 0U) | (tells_size ? 2U : 0U));
        set_number(first, tells_size ? data_.size() : 0);
        state_ = State::block_start;
        answer(first);
        return;
    }
    data_.clear();
    announced_ = -1;
    if (command == 6) {
        crc_ = can_crc && (frame[0] & 4) != 0;
        if ((frame[0] & 2) != 0) {
            announced_ = number(frame);
        }
        Data first = about(key_, 0xA0U | (can_crc ? 4U : 0U));
        size_ = block_size();
        first[4] = static_cast<std::uint8_t>(size_);
        sequence_ = 0;
        last_ = gap_told_ = false;
        state_ = State::block_download;
        answer(first);
    } else if (command == 1) {
        if ((frame[0] & 2) != 0) {
            data_.assign(&frame[4], &frame[4] + ((frame[0] & 1) != 0 ? 4 - (frame[0] >> 2 & 3) : 4));
            objects[key_] = data_;
            ++writes;
        } else {
            if ((frame[0] & 1) != 0) {
                announced_ = number(frame);
            }
            state_ = State::download;
        }
        answer(about(key_, 0x60));
    } else {
        abort(0x05040001);
    }
}

void ScriptedSdoNode::begin_upload(const Data&) {
    if (expedites && !data_.empty() && data_.size() <= 4) {
        Data first = about(key_, 0x43U | static_cast<unsigned int>(4 - data_.size()) << 2);
        std::copy(data_.begin(), data_.end(), &first[4]);
        ++reads;
        answer(first);
        return;
    }
    Data first = about(key_, 0x40U | (tells_size ? 1U : 0U));
    set_number(first, tells_size ? data_.size() : 0);
    state_ = State::upload;
    answer(first);
}

void ScriptedSdoNode::upload_segment(const Data& frame) {
    if ((frame[0] & 0xE0) != 0x60) {
        abort(0x05040001);
        return;
    }
    if (((frame[0] & 0x10) != 0) != toggle_) {
        abort(0x05030000);
        return;
    }
    const std::size_t size = std::min<std::size_t>(7, data_.size() - at_);
    const bool is_last = at_ + size == data_.size();
    Data segment{};
    segment[0] = static_cast<std::uint8_t>((toggle_ ? 0x10U : 0U) | (7 - size) << 1 | (is_last ? 1U : 0U));
    std::copy_n(data_.begin() + static_cast<std::ptrdiff_t>(at_), size, &segment[1]);
    at_ += size;
    toggle_ = !toggle_;
    if (is_last) {
        ++reads;
        state_ = State::idle;
    }
    answer(segment);
}

void ScriptedSdoNode::download_segment(const Data& frame) {
    if ((frame[0] & 0xE0) != 0) {
        abort(0x05040001);
        return;
    }
    if (((frame[0] & 0x10) != 0) != toggle_) {
        abort(0x05030000);
        return;
    }
    data_.insert(data_.end(), &frame[1], &frame[1] + (7 - (frame[0] >> 1 & 7)));
    if ((frame[0] & 1) != 0) {
        if (announced_ >= 0 && data_.size() != static_cast<std::size_t>(announced_)) {
            abort(data_.size() > static_cast<std::size_t>(announced_) ? 0x06070012 : 0x06070013);
            return;
        }
        objects[key_] = data_;
        ++writes;
        state_ = State::idle;
    }
    Data confirmation{};
    confirmation[0] = toggle_ ? 0x30 : 0x20;
    toggle_ = !toggle_;
    answer(confirmation);
}

void ScriptedSdoNode::send_block() {
    last_ = false;
    for (sequence_ = 0; sequence_ < size_ && !last_;) {
        const std::size_t from = at_ + 7 * sequence_;
        const std::size_t size = std::min<std::size_t>(7, data_.size() - from);
        last_ = from + size == data_.size();
        Data segment{};
        segment[0] = static_cast<std::uint8_t>(++sequence_ | (last_ ? 0x80U : 0U));
        std::copy_n(data_.begin() + static_cast<std::ptrdiff_t>(from), size, &segment[1]);
        answer(segment);
    }
}

void ScriptedSdoNode::block_confirmed(const Data& frame) {
    if (frame[0] != 0xA2) {
        abort(0x05040001);
        return;
    }
    if (frame[1] > sequence_) {
        abort(0x05040003);
        return;
    }
    if (last_ && frame[1] == sequence_) {
        const std::size_t rest = data_.size() - at_ - 7 * (sequence_ - 1);
        Data end{};
        end[0] = static_cast<std::uint8_t>(0xC1 + 4 * (7 - rest));
        const unsigned int sum = crc_ ? crc(data_) : 0;
        end[1] = static_cast<std::uint8_t>(sum);
        end[2] = static_cast<std::uint8_t>(sum >> 8);
        state_ = State::block_upload_end;
        answer(end);
        return;
    }
    at_ += 7U * frame[1];
    size_ = frame[2];
    if (size_ < 1 || size_ > 127) {
        abort(0x05040002);
        return;
    }
    send_block();
}

void ScriptedSdoNode::block_segment(const Data& frame) {
    const unsigned int number_of_segment = frame[0] & 0x7FU;
    const bool is_last = (frame[0] & 0x80) != 0;
    if (number_of_segment == sequence_ + 1) {
        ++sequence_;
        last_ = is_last;
        data_.insert(data_.end(), &frame[1], &frame[8]);
    } else if (number_of_segment > sequence_ && answers_at_gap && !gap_told_) {
        confirm_block();
        gap_told_ = true;
        return;
    } else if (gap_told_) {
        return;
    }
    gap_told_ = false;
    if (is_last || number_of_segment == size_) {
        confirm_block();
    }
}

void ScriptedSdoNode::confirm_block() {
    Data confirmation{};
    size_ = block_size();
    confirmation[0] = 0xA2;
    confirmation[1] = static_cast<std::uint8_t>(sequence_);
    confirmation[2] = static_cast<std::uint8_t>(size_);
    sequence_ = 0;
    if (last_) {
        state_ = State::block_end;
    }
    answer(confirmation);
}

void ScriptedSdoNode::block_end(const Data& frame) {
    if ((frame[0] & 0xE3) != 0xC1) {
        abort(0x05040001);
        return;
    }
    data_.resize(data_.size() - (frame[0] >> 2 & 7));
    if (crc_ && crc(data_) != (frame[1] | frame[2] << 8)) {
        abort(0x05040004);
        return;
    }
    if (announced_ >= 0 && data_.size() != static_cast<std::size_t>(announced_)) {
        abort(data_.size() > static_cast<std::size_t>(announced_) ? 0x06070012 : 0x06070013);
        return;
    }
    objects[key_] = data_;
    ++writes;
    state_ = State::idle;
    answer({0xA1});
}
