#include "tools/blocksegments.h"

namespace nodevik_tool {

namespace {

constexpr unsigned int number_mask = 0x7F;
constexpr unsigned int last_bit = 0x80;
constexpr unsigned int abort_byte = 0x80;
constexpr unsigned int most_segments = 127;

// What a frame of the specifier 5 is, by its two lowest bits (CiA 301, 7.2.4.3.9).
constexpr unsigned int block_specifier = 5;
constexpr unsigned int initiation = 0;
constexpr unsigned int confirmation = 2;
constexpr unsigned int start = 3;

}  // namespace

unsigned int BlockSegments::take(const ShownFrame& frame, const FrameKind& kind) {
    const bool is_request = kind.word == "sdo-request";
    if ((!is_request && kind.word != "sdo-answer") || frame.remote || frame.length != frame.data.size()) {
        return 0;
    }
    const Sender from = is_request ? Sender::client : Sender::server;
    Transfer& transfer = transfers_[kind.node];
    const unsigned int byte = frame.data[0];
    if (transfer.sender == from && byte != abort_byte && (byte & number_mask) == transfer.next) {
        const unsigned int number = transfer.next++;
        const bool is_last = (byte & last_bit) != 0;
        transfer.last = is_last ? number : 0;
        if (is_last || number == transfer.size) {
            transfer.sender = Sender::nobody;  // until it is confirmed
        }
        return number;
    }
    if (transfer.sender == from || byte == abort_byte) {
        transfer = Transfer();
    }
    follow(transfer, from, frame);
    return 0;
}

/// Has a side send a block from now on.
void BlockSegments::begin(Transfer& transfer, Sender sender, unsigned int size) {
    const bool is_possible = size >= 1 && size <= most_segments;
    transfer = Transfer();
    transfer.sender = is_possible ? sender : Sender::nobody;
    transfer.size = size;
}

/// Looks what a frame that is no segment has for the transfer.
void BlockSegments::follow(Transfer& transfer, Sender from, const ShownFrame& frame) {
    if (frame.data[0] >> 5 != block_specifier) {
        return;
    }
    const Sender other = from == Sender::client ? Sender::server : Sender::client;
    switch (frame.data[0] & 3) {
        case initiation:
            begin(transfer, from == Sender::server ? Sender::client : Sender::nobody, frame.data[4]);
            break;
        case start:
            begin(transfer, other, transfer.size);
            break;
        case confirmation:
            if (transfer.last != 0 && transfer.last == frame.data[1]) {
                transfer = Transfer();
            } else {
                begin(transfer, other, frame.data[2]);
            }
            break;
        default:
            transfer = Transfer();  // the end
            break;
    }
}

}  // namespace nodevik_tool
