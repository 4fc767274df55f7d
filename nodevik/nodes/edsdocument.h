/// @file
/// The lines and sections of an EDS or DCF file (CiA 306-1, clause 6.2). Private to this room.
///
/// The file is split here, by a hundred lines of our own. What Debian 12 has in INI readers was tried first:
///
/// - libinih, as built there, does not hand out line numbers, cuts lines at 200 characters and cuts values at " ;",
///   also in names;
/// - libsimpleini and libiniparser know no lines at all;
/// - libini-config knows them, but refuses a file with a Latin-1 character in it, and takes 6.3 seconds for 5,000
///   objects: it looks each section up in a list.
///
/// And none keeps what it does not know, which a DCF made from a file has to give back.

#ifndef NODEVIK_NODES_EDSDOCUMENT_H
#define NODEVIK_NODES_EDSDOCUMENT_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace eds {

/// A line of a file: `key = value`, a comment, or whatever else it is.
struct Line {
    std::string_view text;    ///< all of it, without its end
    std::string_view key;     ///< without the blanks around it; empty when the line is no `key = value`
    std::string_view value;   ///< without the blanks around it
    unsigned int number = 0;  ///< from 1
    bool is_key = false;
    bool is_foreign = false;  ///< neither `key = value`, nor a comment, nor blank
};

/// A section: its name, and which lines follow its heading.
struct Section {
    std::string_view name;
    std::string_view heading;  ///< the line with the name
    unsigned int line = 0;     ///< where the heading stands
    std::size_t first = 0;     ///< first line behind the heading, in Document::lines()
    std::size_t end = 0;       ///< behind its last line
    bool is_sound = true;      ///< the heading is `[name]` and a comment at most
};

/// A file's text, split. Lines and sections point into it, so it stays where it is.
class Document {
public:
    /// @param text  the file; lines may end with LF, CRLF or CR, a byte order mark of UTF-8 may stand first
    explicit Document(std::string text);
    Document(const Document&) = delete;
    Document& operator=(const Document&) = delete;
    ~Document() = default;

    /// All lines but the headings of sections.
    const std::vector<Line>& lines() const { return lines_; }
    /// The sections as they stand.
    const std::vector<Section>& sections() const { return sections_; }
    /// How many lines stand before the first section.
    std::size_t preamble() const { return sections_.empty() ? lines_.size() : sections_.front().first; }
    /// How the file ends its first line: "\n", "\r\n" or "\r".
    const char* line_end() const { return line_end_; }

private:
    void add_heading(std::string_view text, std::string_view content, unsigned int number);
    void add_line(std::string_view text, std::string_view content, unsigned int number);

    std::string text_;
    std::vector<Line> lines_;
    std::vector<Section> sections_;
    const char* line_end_ = "\n";
};

}  // namespace eds

#endif
