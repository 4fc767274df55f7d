/// @file
/// Curves and bars over the time of a recording, as part of an HTML page.
///
/// A chart is a figure of rows that share one axis of time. The curves are SVG that is stretched to the width there is;
/// all that is read stands in HTML beside it, so that it keeps its size on a telephone and on paper. Each chart has a
/// text for those who do not see it, and its values as a table.
///
/// Where a point of a curve stands for many values, the curve goes through their mean, and a lighter band behind it
/// reaches from the lowest to the highest.

#ifndef RECORDER_CHART_H
#define RECORDER_CHART_H

#include <optional>
#include <string>
#include <vector>

#include "recorder/phrasing.h"
#include "recorder/report.h"

namespace vehicle_recorder {

/// How the values of a row are joined.
enum class CurveKind {
    line,  ///< by lines from value to value
    steps  ///< each value stays until the next one
};

/// One row of a chart.
struct CurveRow {
    std::string name;                    ///< what it shows
    std::string unit;                    ///< behind its numbers; may be empty
    const Series* series = nullptr;      ///< the values
    CurveKind kind = CurveKind::line;    ///< how they are joined
    int colour = 1;                      ///< 1 to 4 of the page's
    std::optional<Extremes> range = {};  ///< what the axis shows at least
    std::optional<double> mark = {};     ///< a value with a line of its own: rest, a limit
    std::string mark_name;               ///< what that value is
    bool limit = false;                  ///< the mark is a limit that should not be passed
    bool tall = false;                   ///< twice as high as others
};

/// Draws the charts of one report.
class Charts {
public:
    Charts(const Report& report, const Phrasing& phrasing) : report_(report), phrasing_(phrasing) {}

    /// Curves, one below the other.
    /// @param strip  a series of 1 and 0 that is drawn as a strip below them; may be null
    /// @param strip_name  what the strip shows
    std::string curves(const std::string& heading, const std::vector<CurveRow>& rows, const Series* strip,
                       const std::string& strip_name) const;

    /// How often each fault occurred in each stretch of time.
    std::string faults(const std::string& heading) const;

    /// How often each duration occurred.
    std::string spread(const std::string& heading, const std::string& what, const Spread& spread) const;

private:
    std::string row(const CurveRow& row) const;
    std::string time_axis() const;
    std::string closed_areas() const;
    std::string table(const std::vector<CurveRow>& rows) const;
    std::string number(double value, const std::string& unit) const;

    const Report& report_;
    const Phrasing& phrasing_;
};

}  // namespace vehicle_recorder

#endif
