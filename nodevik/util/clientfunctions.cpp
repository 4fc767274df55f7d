#include "nodevik/util/clientfunctions.h"

#include <algorithm>
#include <cstring>

#include "nodevik/util/assertion.h"

namespace {

constexpr const char* unit = "nodevik/util/clientfunctions";

// Copies a text of at most `size` characters and fills the rest with zeros; a full field has no terminator.
void put_text(char* field, std::size_t size, const char* text) {
    const std::size_t length = strnlen(text, size);
    std::fill(std::copy_n(text, length, field), field + size, '\0');
}

std::uint8_t low_byte(int value) {
    return static_cast<std::uint8_t>(value);
}

}  // namespace

void CClientFunctions::addmsg_data(int no, double d) {
    protocolMessage.setdata.commandno = 1;
    protocolMessage.setdata.tableno = low_byte(no);
    protocolMessage.setdata.sample = d;
    addmessage(protocolMessage);
}

void CClientFunctions::addmsg_name(int no, const char* name) {
    const std::size_t length = std::strlen(name);
    if (length <= MEASURENAME_MAX) {
        protocolMessage = {};
        protocolMessage.setname.commandno = 2;
        protocolMessage.setname.tableno = low_byte(no);
        put_text(protocolMessage.setname.name, sizeof protocolMessage.setname.name, name);
        addmessage(protocolMessage);
        return;
    }
    Ssetlongname& part = protocolMessage.setlongname;
    part.commandno = 14;
    part.tableno = low_byte(no);
    part.namelength = static_cast<std::uint8_t>(length);
    for (std::size_t i = 0; i * sizeof part.name < length; ++i) {
        part.namepartno = static_cast<std::uint8_t>(i);
        put_text(part.name, sizeof part.name, name + i * sizeof part.name);
        addmessage(protocolMessage);
    }
}

void CClientFunctions::addmsg_nextsamplepos() {
    protocolMessage.commandno = 3;
    addmessage(protocolMessage);
}

void CClientFunctions::addmsg_color(int no, int color, unsigned char w) {
    protocolMessage.setcolor.commandno = 4;
    protocolMessage.setcolor.tableno = low_byte(no);
    protocolMessage.setcolor.color = static_cast<std::uint32_t>(color);
    protocolMessage.setcolor.width = w;
    addmessage(protocolMessage);
}

void CClientFunctions::addmsg_range(int r) {
    protocolMessage.setrange.commandno = 5;
    protocolMessage.setrange.range = static_cast<std::uint32_t>(r);
    addmessage(protocolMessage);
}

void CClientFunctions::addmsg_resetsamples() {
    protocolMessage.commandno = 6;
    addmessage(protocolMessage);
}

void CClientFunctions::addmsg_stop(int state) {
    protocolMessage.setstate.commandno = 7;
    protocolMessage.setstate.state = low_byte(state);
    addmessage(protocolMessage);
}

void CClientFunctions::addmsg_samplepos(int p) {
    protocolMessage.setsamplepos.commandno = 8;
    protocolMessage.setsamplepos.pos = static_cast<std::uint32_t>(p);
    addmessage(protocolMessage);
}

void CClientFunctions::addmsg_stopdraw(bool state) {
    protocolMessage.setstate.commandno = 9;
    protocolMessage.setstate.state = state ? 1 : 0;
    addmessage(protocolMessage);
}

void CClientFunctions::addmsg_scale(int n, double s, int l) {
    protocolMessage.setscale.commandno = 12;
    protocolMessage.setscale.tableno = static_cast<std::uint32_t>(n);
    protocolMessage.setscale.scale = s;
    protocolMessage.setscale.level = l;
    addmessage(protocolMessage);
}

void CClientFunctions::addmessage(ProtocolMessage& m) {
    NODEVIK_ASSERT(unit, messagesize < 89);
    message[messagesize] = m;
    ++messagesize;
}

void CClientFunctions::resetmessage() {
    messagesize = 0;
}

unsigned char* CClientFunctions::getmessage() {
    return message[0].bytes;
}

int CClientFunctions::getmessagesize() {
    return messagesize * static_cast<int>(sizeof(ProtocolMessage));
}

int CClientFunctions::getmessagebuffersize() {
    return static_cast<int>(sizeof message);
}
