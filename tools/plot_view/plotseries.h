/// @file
/// Samples over time, so kept that a million of them are drawn as quickly as a thousand.
///
/// A picture is some thousand pixels wide. What a column of pixels shows of the samples that fall into it is where
/// the line enters, where it leaves, and the lowest and the highest value between: no more is drawn of them. The
/// lowest and highest values are kept for blocks of samples, and for blocks of such blocks, so that those of any
/// stretch are found without a look at every sample.

#ifndef TOOLS_PLOT_VIEW_PLOTSERIES_H
#define TOOLS_PLOT_VIEW_PLOTSERIES_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace plot {

/// All numbers from one to another, both included.
struct Interval {
    double low;   ///< the lowest
    double high;  ///< the highest, not below #low

    bool operator==(const Interval&) const = default;

    /// The length.
    double span() const { return high - low; }

    /// Whether a number belongs to it.
    bool contains(double number) const { return low <= number && number <= high; }

    /// The smallest interval that holds both.
    Interval united(const Interval& other) const;
};

/// The smallest interval that holds both, where either may be missing.
std::optional<Interval> united(const std::optional<Interval>& one, const std::optional<Interval>& other);

/// A value at its time.
struct Point {
    double time;
    double value;

    bool operator==(const Point&) const = default;
};

/// One curve: samples in the order of their times, and how it is drawn.
class Series {
public:
    std::string name;                    ///< what it is called
    unsigned id = 0;                     ///< its number among the series of a window, which it keeps
    std::optional<std::uint32_t> color;  ///< 0xRRGGBB, if somebody asked for one
    std::optional<std::uint8_t> width;   ///< of the line in pixels, if somebody asked for one
    bool shown = true;                   ///< whether it is drawn until the user says otherwise

    /// Adds a sample behind all others.
    /// @param time   a finite number; unless sort_by_time() follows, not before that of the last sample
    /// @param value  any number; one that is not finite makes a gap in the line
    void append(double time, double value);

    /// Brings the samples into the order of their times. Those of one time stay in their order.
    void sort_by_time();

    /// Number of samples.
    std::size_t size() const { return times_.size(); }

    /// Whether there is no sample.
    bool empty() const { return times_.empty(); }

    /// The times of all samples.
    std::span<const double> times() const { return times_; }

    /// The values of all samples.
    std::span<const double> values() const { return values_; }

    /// Number of the first sample that is not before @p time; size() if there is none.
    std::size_t first_from(double time) const;

    /// Number of the first sample behind @p time; size() if there is none.
    std::size_t first_behind(double time) const;

    /// Number of the sample whose time is nearest to @p time; none without samples.
    std::optional<std::size_t> nearest(double time) const;

    /// From the first to the last time; none without samples.
    std::optional<Interval> duration() const;

    /// The lowest and highest finite value.
    /// @param begin  number of the first sample
    /// @param end    number behind that of the last one
    /// @return       none if no value in between is finite
    std::optional<Interval> extent(std::size_t begin, std::size_t end) const;

    /// From the lowest to the highest point of the line through the samples at the times of @p time, also where it only
    /// enters and leaves between two samples.
    std::optional<Interval> extent(const Interval& time) const;

    /// The line that shows the samples in a picture.
    ///
    /// With few samples they are all in it. With more, each column of pixels gets four at most: its first and last
    /// sample, and the lowest and highest value between at the time of the first.
    /// @param time     what the picture shows; the samples next to it at both sides are included
    /// @param columns  width of the picture in pixels, at least 1
    /// @return         points in the order of their times; one whose value is not finite is a gap
    std::vector<Point> line(const Interval& time, std::size_t columns) const;

private:
    struct Block {
        double low;
        double high;
        void include(double value);
        void include(const Block& other);
    };

    std::optional<Interval> crossing(double time) const;
    static Block nothing();
    void build_blocks();
    void add_to_blocks(std::size_t number);
    void append_column(std::size_t begin, std::size_t end, std::vector<Point>& points) const;

    std::vector<double> times_;
    std::vector<double> values_;
    std::array<std::vector<Block>, 5> levels_;  // blocks of 16 samples, of 256, of 4096, ..., of a million
};

/// What the numbers of the time axis are.
enum class TimeAxis : std::uint8_t {
    positions,  ///< numbers of samples
    seconds,    ///< seconds since some beginning
    clock       ///< seconds since 1970-01-01 UTC, shown as local time
};

/// All that a window shows.
struct PlotData {
    TimeAxis axis = TimeAxis::seconds;
    std::vector<Series> series;

    /// From the first to the last time of all series; none without samples.
    std::optional<Interval> duration() const;

    /// Number of samples of all series.
    std::size_t samples() const;
};

}  // namespace plot

#endif
