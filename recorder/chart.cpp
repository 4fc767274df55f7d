#include "recorder/chart.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "recorder/html.h"
#include "recorder/reportphrases.h"

namespace vehicle_recorder {

namespace {

namespace words = report_phrases;

// Drawings are this wide and high in their own units, whatever their size on the page.
constexpr double drawing_width = 1000;
constexpr double drawing_height = 100;

constexpr int table_rows = 12;
constexpr std::int64_t second_us = 1'000'000;
constexpr std::int64_t minute_us = 60 * second_us;
constexpr std::int64_t hour_us = 60 * minute_us;
constexpr std::int64_t day_us = 24 * hour_us;

constexpr std::int64_t time_steps_us[] = {
    1000,           2000,        5000,          10'000,        20'000,         50'000,         100'000,
    200'000,        500'000,     second_us,     2 * second_us, 5 * second_us,  10 * second_us, 15 * second_us,
    30 * second_us, minute_us,   2 * minute_us, 5 * minute_us, 10 * minute_us, 15 * minute_us, 30 * minute_us,
    hour_us,        2 * hour_us, 3 * hour_us,   6 * hour_us,   12 * hour_us,   day_us};
constexpr std::int64_t most_time_ticks = 8;

struct FaultLook {
    Fault fault;
    Phrase name;
    const char* style;  // class in the page's style
};

constexpr std::array<FaultLook, FaultCounts::kinds> fault_looks = {{{Fault::lost, words::lost, "f1"},
                                                                    {Fault::late, words::late, "f2"},
                                                                    {Fault::cut, words::cut, "f3"},
                                                                    {Fault::garbled, words::garbled, "f4"}}};

// The time that a drawing shows: never nothing.
std::int64_t shown_time_us(const Report& report) {
    return std::max<std::int64_t>(report.length_us, 1000);
}

// What an axis shows: an end on each side, and the values with a line and a number.
struct Scale {
    double low = 0;
    double high = 1;
    std::vector<double> ticks;

    double y(double value) const { return drawing_height * (high - value) / (high - low); }
};

// The roundest distance that divides `range` into at most `most` parts.
double round_step(double range, int most) {
    const double rough = range / most;
    const double power = std::pow(10, std::floor(std::log10(rough)));
    for (const double factor : {1.0, 2.0, 2.5, 5.0}) {
        if (factor * power >= rough * (1 - 1e-9)) {
            return factor * power;
        }
    }
    return 10 * power;
}

Scale scale_of(const CurveRow& row) {
    constexpr double margin = 0.08;
    Scale scale;
    if (!row.series->extremes()) {
        return scale;
    }
    const Extremes values = *row.series->extremes();
    if (row.range) {
        scale.low = std::min(row.range->min, values.min);
        scale.high = std::max(row.range->max, values.max);
    } else {
        // Around a value that never changes there is a number on each side of it, off the edges.
        const double space =
            std::max(margin * (values.max - values.min), values.max == values.min ? 1.5 : 1e-3);
        scale.low = values.min - space;
        scale.high = values.max + space;
    }
    const double step = round_step(scale.high - scale.low, row.tall ? 5 : 3);
    const auto first = static_cast<std::int64_t>(std::ceil(scale.low / step - 1e-6));
    const auto last = static_cast<std::int64_t>(std::floor(scale.high / step + 1e-6));
    for (std::int64_t number = first; number <= last; ++number) {
        scale.ticks.push_back(static_cast<double>(number) * step);
    }
    return scale;
}

// The `d` of a path, point by point; what lies on a level line between two others is left out.
class Path {
public:
    void move(double x, double y) {
        flush();
        data_ += "M" + coordinate(x) + " " + coordinate(y);
        x_ = x;
        y_ = y;
        drawn_ = false;
    }

    void line(double x, double y) {
        drawn_ = true;
        if (coordinate(y) == coordinate(y_)) {
            x_ = x;
            pending_ = true;
            return;
        }
        flush();
        data_ += "L" + coordinate(x) + " " + coordinate(y);
        x_ = x;
        y_ = y;
    }

    void step(double x, double y) {
        line(x, y_);
        line(x, y);
    }

    std::string data() {
        flush();
        return data_;
    }

private:
    // A lone point is drawn as a dot by the round ends of a line without length.
    void flush() {
        if (pending_ || (!drawn_ && !data_.empty())) {
            data_ += "H" + coordinate(x_);
        }
        pending_ = false;
    }

    std::string data_;
    double x_ = 0;
    double y_ = 0;
    bool drawn_ = true;
    bool pending_ = false;
};

double middle_us(const TimeBuckets<Stretch>& stretches, std::size_t index) {
    return (static_cast<double>(index) + 0.5) * static_cast<double>(stretches.width_us());
}

double x_of(double time_us, std::int64_t shown_us) {
    return std::min(drawing_width, drawing_width * time_us / static_cast<double>(shown_us));
}

std::string curve_data(const CurveRow& row, const Scale& scale, std::int64_t shown_us) {
    const TimeBuckets<Stretch>& stretches = row.series->stretches();
    Path path;
    for (std::size_t index = 0; index < stretches.size(); ++index) {
        const Stretch& stretch = stretches[index];
        if (stretch.count == 0) {
            continue;
        }
        const double x = x_of(middle_us(stretches, index), shown_us);
        const double y = scale.y(stretch.mean());
        if (!stretch.joined) {
            path.move(x, y);
        } else if (row.kind == CurveKind::steps) {
            path.step(x, y);
        } else {
            path.line(x, y);
        }
    }
    return path.data();
}

// From the lowest to the highest where the two differ: outlines, along the highest and back along the lowest.
std::string band_data(const CurveRow& row, const Scale& scale, std::int64_t shown_us) {
    const TimeBuckets<Stretch>& stretches = row.series->stretches();
    std::string data;
    std::string there;
    std::string back;
    bool is_wide = false;
    const auto end_outline = [&] {
        data += is_wide ? "M" + there.substr(1) + back + "Z" : "";
        there.clear();
        back.clear();
        is_wide = false;
    };
    for (std::size_t index = 0; index < stretches.size(); ++index) {
        const Stretch& stretch = stretches[index];
        if (stretch.count == 0) {
            continue;
        }
        if (!stretch.joined) {
            end_outline();
        }
        const bool wide = stretch.min < stretch.max;
        const std::string x = "L" + coordinate(x_of(middle_us(stretches, index), shown_us)) + " ";
        if (!wide && !is_wide) {
            there.clear();  // an outline begins at the last point ahead of it
            back.clear();
        }
        there += x + coordinate(scale.y(stretch.max));
        back.insert(0, x + coordinate(scale.y(stretch.min)));
        if (!wide && is_wide) {
            end_outline();
            there = x + coordinate(scale.y(stretch.max));
            back = there;
        }
        is_wide = is_wide || wide;
    }
    end_outline();
    return data;
}

std::string drawing(const std::string& name, const std::string& content) {
    return "<svg viewBox=\"0 0 1000 100\" preserveAspectRatio=\"none\" role=\"img\" aria-label=\"" +
           html_escaped(name) + "\">" + content + "</svg>\n";
}

std::string rectangle(const std::string& style, double x, double y, double width, double height) {
    return "<rect class=\"" + style + "\" x=\"" + coordinate(x) + "\" y=\"" + coordinate(y) + "\" width=\"" +
           coordinate(width) + "\" height=\"" + coordinate(height) + "\"/>";
}

std::string level_line(const std::string& style, double y) {
    return "<path class=\"" + style + "\" d=\"M0 " + coordinate(y) + "H1000\"/>";
}

std::string scale_number(double top_percent, const std::string& number) {
    return "<span style=\"top:" + coordinate(top_percent) + "%\">" + html_escaped(number) + "</span>";
}

std::string cell(const std::string& text) {
    return "<td>" + html_escaped(text) + "</td>";
}

std::string heading_cell(const std::string& text) {
    return "<th scope=\"col\">" + html_escaped(text) + "</th>";
}

std::string row_heading(const std::string& text) {
    return "<th scope=\"row\">" + html_escaped(text) + "</th>";
}

std::string details(const std::string& summary, const std::string& head, const std::string& body) {
    return "<details><summary>" + html_escaped(summary) + "</summary><div class=\"wide\"><table><thead><tr>" +
           head + "</tr></thead><tbody>" + body + "</tbody></table></div></details>\n";
}

// What a series was between two times.
Stretch between(const Series& series, std::int64_t from_us, std::int64_t to_us) {
    const TimeBuckets<Stretch>& stretches = series.stretches();
    Stretch sum;
    for (std::size_t index = 0; index < stretches.size(); ++index) {
        const auto middle = static_cast<std::int64_t>(middle_us(stretches, index));
        if (middle >= from_us && middle < to_us) {
            sum.absorb(stretches[index]);
        }
    }
    return sum;
}

// The stretches of time in which a series is 1.
std::string strip_data(const Series& series, std::int64_t shown_us) {
    const TimeBuckets<Stretch>& stretches = series.stretches();
    const auto edge = [&](std::size_t index) {
        return x_of(static_cast<double>(index) * static_cast<double>(stretches.width_us()), shown_us);
    };
    std::string data;
    std::optional<double> on_since;
    std::size_t end = 0;  // behind the last stretch with a value
    const auto end_at = [&](double x) {
        if (on_since) {
            data += rectangle("strip", *on_since, 0, std::max(1.0, x - *on_since), drawing_height);
        }
        on_since.reset();
    };
    for (std::size_t index = 0; index < stretches.size(); ++index) {
        const Stretch& stretch = stretches[index];
        if (stretch.count == 0) {
            continue;
        }
        if (!stretch.joined) {
            end_at(edge(end));
        } else if (stretch.max == 0) {
            end_at(edge(index));
        }
        if (stretch.max > 0 && !on_since) {
            on_since = edge(index);
        }
        end = index + 1;
        if (stretch.last == 0) {
            end_at(edge(end));
        }
    }
    end_at(edge(end));
    return data;
}

std::string figure(const std::string& heading, const std::string& legend, const std::string& content) {
    return "<figure>\n<figcaption><h3>" + html_escaped(heading) + "</h3>" + legend + "</figcaption>\n" +
           content + "</figure>\n";
}

// `notes` is HTML, `name` a text.
std::string row_frame(const std::string& name, const std::string& notes, const std::string& scale,
                      const std::string& plot, const std::string& style) {
    return "<div class=\"row " + style + "\"><div class=\"name\"><b>" + html_escaped(name) + "</b>" + notes +
           "</div><div class=\"plot\"><div class=\"scale\" aria-hidden=\"true\">" + scale + "</div>" + plot +
           "</div></div>\n";
}

}  // namespace

std::string Charts::number(double value, const std::string& unit) const {
    return phrasing_.plain(value) + (unit.empty() ? "" : "\u00a0" + unit);
}

std::string Charts::closed_areas() const {
    const std::int64_t shown = shown_time_us(report_);
    std::string areas;
    std::int64_t closed_since = 0;
    const auto area_until = [&](std::int64_t time_us) {
        const double begin = x_of(static_cast<double>(closed_since), shown);
        const double width = x_of(static_cast<double>(time_us), shown) - begin;
        if (width > 0) {
            areas += rectangle("closed", begin, 0, width, drawing_height);
        }
    };
    for (const Opening& opening : report_.openings.entries) {
        area_until(opening.opened_us);
        closed_since = opening.closed_us.value_or(shown);
    }
    if (report_.openings.count == report_.openings.entries.size()) {
        area_until(shown);
    }
    return areas;
}

std::string Charts::time_axis() const {
    const std::int64_t shown = shown_time_us(report_);
    const auto* const found = std::find_if(std::begin(time_steps_us), std::end(time_steps_us),
                                           [&](std::int64_t step) { return shown / step < most_time_ticks; });
    const std::int64_t days = shown / (most_time_ticks * day_us) + 1;
    const std::int64_t step = found == std::end(time_steps_us) ? days * day_us : *found;
    const int decimals = step >= minute_us ? -1 : step >= second_us ? 0 : step >= 100'000 ? 1 : 3;
    const std::int64_t local = report_.header.wall_us + report_.header.utc_offset_min * minute_us;
    std::int64_t time = (step - local % step) % step;
    std::string ticks;
    for (int number = 0; time <= shown; time += step, ++number) {
        const double place = 100 * static_cast<double>(time) / static_cast<double>(shown);
        const std::string side = place < 4 ? " begin" : place > 96 ? " end" : "";
        ticks += "<span class=\"tick" + side + (number % 2 == 1 ? " minor" : "") +
                 "\" style=\"left:" + coordinate(place) + "%\">" +
                 phrasing_.time_of_day(report_.header, time, decimals) + "</span>";
    }
    return "<div class=\"row axis\" aria-hidden=\"true\"><div class=\"name\"></div><div class=\"plot\">" +
           ticks + "</div></div>\n";
}

std::string Charts::row(const CurveRow& row) const {
    const Scale scale = scale_of(row);
    std::string content = closed_areas();
    std::string numbers;
    for (const double tick : scale.ticks) {
        content += level_line("grid", scale.y(tick));
        numbers += scale_number(scale.y(tick), phrasing_.plain(tick));
    }
    const bool mark_shown =
        row.mark && row.series->extremes() && *row.mark <= scale.high && *row.mark >= scale.low;
    if (mark_shown) {
        content += level_line(row.limit ? "limit" : "mark", scale.y(*row.mark));
    }
    const std::int64_t shown = shown_time_us(report_);
    const std::string colour = "c" + std::to_string(row.colour);
    if (const std::string band = band_data(row, scale, shown); !band.empty()) {
        content += "<path class=\"band " + colour + "\" d=\"" + band + "\"/>";
    }
    content += "<path class=\"curve " + colour + "\" d=\"" + curve_data(row, scale, shown) + "\"/>";
    std::string note = phrasing_(words::nothing);
    std::string description = row.name + ": " + note;
    if (const std::optional<Extremes>& extremes = row.series->extremes()) {
        const char* const to = extremes->min < 0 || extremes->max < 0 ? " \u2026 " : "\u2013";
        note = (extremes->min == extremes->max ? "" : phrasing_.plain(extremes->min) + to) +
               number(extremes->max, row.unit);
        description = row.name + ": " + note + "; " + phrasing_(words::at_first) + " " +
                      number(row.series->first(), row.unit) + ", " + phrasing_(words::at_last) + " " +
                      number(row.series->last(), row.unit);
    }
    std::string notes = "<span>" + html_escaped(note) + "</span>";
    if (mark_shown) {
        notes += std::string("<span class=\"sign") + (row.limit ? " limit" : "") + "\">" +
                 html_escaped(row.mark_name) + "</span>";
    }
    return row_frame(row.name, notes, numbers, drawing(description, content), row.tall ? "tall" : "");
}

std::string Charts::table(const std::vector<CurveRow>& rows) const {
    const std::int64_t shown = shown_time_us(report_);
    std::string head = heading_cell(phrasing_(words::time_of_day));
    for (const CurveRow& row : rows) {
        head += heading_cell(row.name + (row.unit.empty() ? "" : " (" + row.unit + ")"));
    }
    std::string body;
    for (int piece = 0; piece < table_rows; ++piece) {
        const std::int64_t from = shown * piece / table_rows;
        const std::int64_t to = piece + 1 == table_rows ? INT64_MAX : shown * (piece + 1) / table_rows;
        body += "<tr>" + row_heading(phrasing_.time_of_day(report_.header, from));
        for (const CurveRow& row : rows) {
            const Stretch sum = between(*row.series, from, to);
            const std::string low = phrasing_.plain(sum.min);
            body += cell(sum.count == 0       ? "\u2013"
                         : sum.min == sum.max ? low
                                              : low + " \u2026 " + phrasing_.plain(sum.max));
        }
        body += "</tr>";
    }
    return details(phrasing_(words::table), head, body);
}

std::string Charts::curves(const std::string& heading, const std::vector<CurveRow>& rows, const Series* strip,
                           const std::string& strip_name) const {
    std::string content;
    for (const CurveRow& one : rows) {
        content += row(one);
    }
    std::vector<CurveRow> in_table = rows;
    if (strip != nullptr) {
        const std::string on = strip->extremes() && strip->extremes()->max > 0
                                   ? strip_data(*strip, shown_time_us(report_))
                                   : std::string();
        content += row_frame(strip_name, "", "", drawing(strip_name, closed_areas() + on), "low");
        CurveRow strip_row;
        strip_row.name = strip_name;
        strip_row.series = strip;
        in_table.push_back(strip_row);
    }
    return figure(heading, "", content + time_axis() + table(in_table));
}

std::string Charts::faults(const std::string& heading) const {
    const std::int64_t shown = shown_time_us(report_);
    const TimeBuckets<FaultCounts>& buckets = report_.faults_over_time;
    std::uint64_t most = 0;
    for (std::size_t index = 0; index < buckets.size(); ++index) {
        most = std::max(most, buckets[index].all());
    }
    if (most == 0) {
        return {};
    }
    const double step = std::max(1.0, round_step(static_cast<double>(most), 3));
    const double high = std::ceil(static_cast<double>(most) / step) * step;
    std::string content = closed_areas();
    std::string numbers;
    const auto steps = static_cast<int>(std::lround(high / step));
    for (int number = 0; number <= steps; ++number) {
        const double tick = number * step;
        const double y = drawing_height * (high - tick) / high;
        content += level_line("grid", y);
        numbers += scale_number(y, phrasing_.plain(tick));
    }
    const auto width_us = static_cast<double>(buckets.width_us());
    for (std::size_t index = 0; index < buckets.size(); ++index) {
        const double begin = x_of(static_cast<double>(index) * width_us, shown);
        const double width = x_of(static_cast<double>(index + 1) * width_us, shown) - begin;
        double y = drawing_height;
        for (const FaultLook& look : fault_looks) {
            if (const std::uint64_t count = buckets[index][look.fault]; count > 0) {
                const double height = drawing_height * static_cast<double>(count) / high;
                y -= height;
                content += rectangle(look.style, begin, y, std::max(2.0, 0.8 * width), height);
            }
        }
    }
    std::string legend = "<ul class=\"legend\">";
    std::string description = heading + ":";
    std::string head = heading_cell(phrasing_(words::time_of_day));
    for (const FaultLook& look : fault_looks) {
        const std::string name = phrasing_(look.name);
        const std::string count = phrasing_.whole(report_.faults[look.fault]);
        legend.append("<li><i class=\"").append(look.style).append("\"></i>");
        legend.append(name).append(" ").append(count).append("</li>");
        description.append(" ").append(name).append(" ").append(count).append(".");
        head += heading_cell(name);
    }
    legend += "</ul>";
    std::string body;
    for (int piece = 0; piece < table_rows; ++piece) {
        const std::int64_t from = shown * piece / table_rows;
        const std::int64_t to = piece + 1 == table_rows ? INT64_MAX : shown * (piece + 1) / table_rows;
        FaultCounts sum;
        for (std::size_t index = 0; index < buckets.size(); ++index) {
            const auto middle = static_cast<std::int64_t>((static_cast<double>(index) + 0.5) * width_us);
            if (middle >= from && middle < to) {
                sum.absorb(buckets[index]);
            }
        }
        body += "<tr>" + row_heading(phrasing_.time_of_day(report_.header, from));
        for (const FaultLook& look : fault_looks) {
            body += cell(phrasing_.whole(sum[look.fault]));
        }
        body += "</tr>";
    }
    return figure(heading, legend,
                  row_frame("", "", numbers, drawing(description, content), "tall") + time_axis() +
                      details(phrasing_(words::table), head, body));
}

std::string Charts::spread(const std::string& heading, const std::string& what, const Spread& spread) const {
    constexpr int most_bars = 40;
    constexpr int fewest_bars = 20;
    constexpr double all_but_the_outermost = 0.99;
    if (spread.count() == 0) {
        return {};
    }
    const double low_us = static_cast<double>(spread.percentile_us(1 - all_but_the_outermost));
    const double high_us = static_cast<double>(spread.percentile_us(all_but_the_outermost));
    // Bars are not narrower than durations are told apart, and a narrow spread still looks like one.
    const double narrowest = std::max(1.0, high_us / 1024);
    const double width_us = round_step(std::max((high_us - low_us) / most_bars, narrowest), 1);
    const auto step = static_cast<std::int64_t>(std::ceil(width_us));
    const std::int64_t filled =
        (static_cast<std::int64_t>(high_us) - static_cast<std::int64_t>(low_us)) / step + 1;
    const std::int64_t space = std::max<std::int64_t>(0, (fewest_bars - filled) / 2);
    const std::int64_t begin =
        std::max<std::int64_t>(0, static_cast<std::int64_t>(low_us) / step - space) * step;
    const std::int64_t bars = (static_cast<std::int64_t>(high_us) - begin) / step + 1 + space;
    const std::int64_t end = begin + bars * step;

    std::vector<std::uint64_t> counts;
    for (std::int64_t from = begin; from < end; from += step) {
        counts.push_back(spread.between(from == begin ? 0 : from, from + step));
    }
    counts.push_back(spread.between(end, INT64_MAX));
    const auto most = static_cast<double>(*std::max_element(counts.begin(), counts.end()));
    const double bar = drawing_width / static_cast<double>(counts.size());
    const auto label = [&](std::int64_t time_us) {
        return phrasing_.plain(static_cast<double>(time_us) / 1000) + "\u00a0ms";
    };
    std::string content;
    std::string body;
    for (std::size_t index = 0; index < counts.size(); ++index) {
        if (counts[index] == 0) {
            continue;
        }
        const bool last = index + 1 == counts.size();
        const double height = std::max(1.0, drawing_height * static_cast<double>(counts[index]) / most);
        content += rectangle(last ? "f2" : "bar", static_cast<double>(index) * bar + 0.1 * bar,
                             drawing_height - height, 0.8 * bar, height);
        const std::int64_t from = begin + static_cast<std::int64_t>(index) * step;
        body += "<tr>" +
                row_heading(last         ? label(from) + " " + phrasing_(words::or_longer)
                            : index == 0 ? "< " + label(from + step)
                                         : label(from) + " \u2013 " + label(from + step)) +
                cell(phrasing_.whole(counts[index])) + "</tr>";
    }
    content += level_line("grid", drawing_height);
    const auto label_every = static_cast<std::size_t>(std::ceil(static_cast<double>(bars) / 6));
    std::string ticks;
    for (std::size_t index = 0, number = 0; index < counts.size(); index += label_every, ++number) {
        const double place = 100 * static_cast<double>(index) / static_cast<double>(counts.size());
        if (place > 92) {
            break;  // beside "or longer" there is no room
        }
        ticks += std::string("<span class=\"tick") + (place < 4 ? " begin" : "") +
                 (number % 2 == 1 ? " minor" : "") + "\" style=\"left:" + coordinate(place) + "%\">" +
                 label(begin + static_cast<std::int64_t>(index) * step) + "</span>";
    }
    const std::string description = heading + ": " + phrasing_(words::median) + " " +
                                    phrasing_.milliseconds(static_cast<double>(spread.percentile_us(0.5))) +
                                    ", " + phrasing_.milliseconds(static_cast<double>(spread.shortest_us())) +
                                    " \u2026 " +
                                    phrasing_.milliseconds(static_cast<double>(spread.longest_us()));
    return figure(
        heading, "<p>" + html_escaped(what) + "</p>",
        row_frame("", "", scale_number(0, phrasing_.plain(most)), drawing(description, content), "tall") +
            "<div class=\"row axis\" aria-hidden=\"true\"><div class=\"name\"></div><div class=\"plot\">" +
            ticks + "</div></div>\n" +
            details(phrasing_(words::table), heading_cell(heading) + heading_cell(phrasing_(words::times)),
                    body));
}

}  // namespace vehicle_recorder
