/// @file
/// Writing HTML and SVG as text.

#ifndef RECORDER_HTML_H
#define RECORDER_HTML_H

#include <string>
#include <string_view>

namespace vehicle_recorder {

/// A text as it stands in HTML, in an attribute too: `&`, `<`, `>` and quotation marks are written as references, and
/// what is no character of HTML as U+FFFD.
std::string html_escaped(std::string_view text);

/// A coordinate of a drawing, one decimal at most: "12.5", "-3".
std::string coordinate(double value);

}  // namespace vehicle_recorder

#endif
