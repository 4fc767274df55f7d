#include "nodevik/nodes/edsdocument.h"

#include <algorithm>
#include <utility>

#include "nodevik/nodes/edstext.h"

namespace eds {

Document::Document(std::string text) : text_(std::move(text)) {
    constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";
    std::string_view rest = text_;
    if (rest.substr(0, byte_order_mark.size()) == byte_order_mark) {
        rest.remove_prefix(byte_order_mark.size());
    }
    lines_.reserve(static_cast<std::size_t>(std::count(rest.begin(), rest.end(), '\n')) + 1);
    for (unsigned int number = 1; !rest.empty(); ++number) {
        const auto* end =
            std::find_if(rest.begin(), rest.end(), [](char c) { return c == '\n' || c == '\r'; });
        const auto length = static_cast<std::size_t>(end - rest.begin());
        const std::string_view line = rest.substr(0, length);
        rest.remove_prefix(length);
        const bool crlf = rest.substr(0, 2) == "\r\n";
        if (number == 1 && !rest.empty()) {
            line_end_ = crlf ? "\r\n" : rest.front() == '\r' ? "\r" : "\n";
        }
        rest.remove_prefix(std::min<std::size_t>(crlf ? 2 : 1, rest.size()));
        const std::string_view content = trimmed(line);
        if (!content.empty() && content.front() == '[') {
            add_heading(line, content, number);
        } else {
            add_line(line, content, number);
        }
    }
    if (!sections_.empty()) {
        sections_.back().end = lines_.size();
    }
}

void Document::add_heading(std::string_view text, std::string_view content, unsigned int number) {
    if (!sections_.empty()) {
        sections_.back().end = lines_.size();
    }
    const std::size_t close = content.find(']');
    const std::string_view behind = close == content.npos ? "" : trimmed(content.substr(close + 1));
    Section section;
    section.name = trimmed(content.substr(1, close == content.npos ? close : close - 1));
    section.heading = text;
    section.line = number;
    section.first = lines_.size();
    section.end = lines_.size();
    section.is_sound = close != content.npos && (behind.empty() || behind.front() == ';');
    sections_.push_back(section);
}

void Document::add_line(std::string_view text, std::string_view content, unsigned int number) {
    Line line;
    line.text = text;
    line.number = number;
    if (!content.empty() && content.front() != ';') {
        const std::size_t equals = content.find('=');
        line.is_key = equals != content.npos && equals > 0;
        line.is_foreign = !line.is_key;
        if (line.is_key) {
            line.key = trimmed(content.substr(0, equals));
            line.value = trimmed(content.substr(equals + 1));
        }
    }
    lines_.push_back(line);
}

}  // namespace eds
