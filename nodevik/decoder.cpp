#include "nodevik/decoder.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "nodevik/util/vt100.h"

namespace {

// Name of this source unit in messages.
constexpr const char* source_unit = "nodevik/decoder";
// The place number that the message of a failed open_log carries, as one character.
constexpr int open_log_place = 197;

constexpr int default_color = 2;

}  // namespace

char CDecoder::m_Message[message_size] = "";
int CDecoder::m_MessageColor = default_color;
CDecoder::message_callback CDecoder::m_CallbackFunc = CDecoder::print_message_callback;
bool CDecoder::m_isLogOpen = false;
char CDecoder::m_LogFilename[filename_size] = "";

CDecoder::CDecoder() : m_TypeFilter(0) {}

CDecoder::~CDecoder() {
    if (m_isLogOpen) {
        close_log();
    }
}

void CDecoder::set_typefilter(uint32_t filter) {
    m_TypeFilter = filter;
}

int CDecoder::decode_message(uint32_t id, uint8_t len, const void* data) const {
    const auto* bytes = static_cast<const uint8_t*>(data);
    clear_message();
    add_printf("id 0x%08x  len %u  data %02x %02x %02x %02x %02x %02x %02x %02x", id, len, bytes[0], bytes[1],
               bytes[2], bytes[3], bytes[4], bytes[5], bytes[6], bytes[7]);
    return 0;
}

void CDecoder::switch_type(uint32_t type, bool enable) {
    if (enable) {
        m_TypeFilter |= type;
    } else {
        m_TypeFilter &= ~type;
    }
}

void CDecoder::print_message(uint32_t id, uint8_t len, const void* data) const {
    m_CallbackFunc(m_Message);
    clear_message();
    if (decode_message(id, len, data) != 0) {
        clear_message();
    }
}

void CDecoder::print() {
    if (m_Message[0] == '\0') {
        return;
    }
    if (m_isLogOpen) {
        // Flushed line by line: the log is wanted most when the process ends without closing it.
        m_Outfile << m_Message << '\n' << std::flush;
    }
    VT100::set_fg_color(static_cast<unsigned char>(m_MessageColor));
    std::puts(m_Message);
    VT100::modesoff();
    clear_message();
}

void CDecoder::print_message_callback(const char* /*line*/) {
    print();
}

void CDecoder::register_callback(message_callback callback) {
    m_CallbackFunc = callback;
}

void CDecoder::add_printf(const char* format, ...) {
    const std::size_t used = std::strlen(m_Message);
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(m_Message + used, message_size - used, format, arguments);
    va_end(arguments);
    if (length < 0) {
        m_Message[used] = '\0';
    }
}

void CDecoder::add_text(const char* text) {
    const std::size_t used = std::strlen(m_Message);
    const std::size_t count = std::min(std::strlen(text), message_size - 1 - used);
    std::memcpy(m_Message + used, text, count);
    m_Message[used + count] = '\0';
}

void CDecoder::clear_message() {
    m_Message[0] = '\0';
}

const char* CDecoder::get_message() {
    return m_Message;
}

int CDecoder::get_message_color() {
    return m_MessageColor;
}

int CDecoder::open_log(const char* filename) {
    if (m_isLogOpen) {
        std::puts("LOG is already OPEN!");
        return 0;
    }
    std::snprintf(m_LogFilename, sizeof m_LogFilename, "%s", filename);
    m_Outfile.open(filename, std::ios::out | std::ios::app);
    if (!m_Outfile.good()) {
        std::printf("%s:%c - Error while opening a file '%s'\n", source_unit, open_log_place, filename);
        return -1;
    }
    m_Outfile << "\n\n<<<<<<<<<<<<<<<<LOG OPENED>>>>>>>>>>>>>>>>\n\n" << std::flush;
    m_isLogOpen = true;
    return 0;
}

void CDecoder::close_log() {
    m_Outfile << "\n\n<<<<<<<<<<<<<<<<LOG CLOSED>>>>>>>>>>>>>>>>\n\n" << std::flush;
    m_isLogOpen = false;
    m_Outfile.close();
}
