/// @file
/// Rounding of a requested range to a scale that can be labelled.
///
/// A scale of eight intervals from 0 to 2500 would read 312.5, 625, 937.5: nobody reads that off a dial.
/// range() widens the ends until the intervals are whole multiples of an increment: 0 to 2520 with a step of
/// 315.

#ifndef WIDGETS_FUNCTIONS_H
#define WIDGETS_FUNCTIONS_H

#include <cmath>
#include <type_traits>

#include "widgets/assertion.h"

/// Rounds the range from @p m_minimum to @p m_maximum to @p steps equal intervals.
///
/// The step of the result is a multiple of @p inc (or of a tenth, a hundredth ... of it, where the range is
/// too narrow for it) and the drawn ends lie at whole steps from zero. Examples with 8 steps, @p left
/// and 5.0: 0 to 2500 gives 0 to 2520, -20 to 40 gives -20 to 60, 0 to 1 gives -0.15 to 1.05 (-0.15 + 0.15 is
/// just above 0 in binary arithmetic, so that the last slide does not happen).
///
/// @tparam T         floating-point type of the values
/// @param m_minimum  requested lower end, finite
/// @param m_maximum  requested upper end, finite; the work grows with its distance from zero, counted in
///                   steps
/// @param m_min      in: the lower end drawn so far; out: the new one, not above @p m_minimum
/// @param m_max      in: the upper end drawn so far; out: the new one
/// @param steps      number of intervals, at least 1
/// @param left       slide the scale up until it starts at the last step not above @p m_minimum
/// @param inc        increment to start from, above 0
/// @return           true when @p m_min or @p m_max changed (not-a-number counts as changed)
/// @pre              @p m_maximum above @p m_minimum: otherwise the process ends with the assertion "m_max >
///                   m_min"
template <typename T>
bool range(std::type_identity_t<T> m_minimum, std::type_identity_t<T> m_maximum, T& m_min, T& m_max,
           unsigned steps, bool left, std::type_identity_t<T> inc) {
    const T max_tmp = m_max;
    const T min_tmp = m_min;
    m_max = m_maximum;
    m_min = m_minimum;
    GAUGES_ASSERT("widgets/functions", m_max > m_min);

    const T step_count = static_cast<T>(steps);
    const T diff = std::abs(m_max - m_min);
    T scale = 0;
    T factor = 0;
    while (step_count * inc > m_maximum - m_minimum && inc / 10 > 0) {
        inc /= 10;
    }
    while (diff > scale) {
        factor += inc;
        scale = step_count * factor;
    }

    bool done = false;
    while (!done) {
        if (m_max < 0) {
            // By the number of steps, not by their size, and in single precision: the scales of negative
            // ranges are drawn so.
            m_max = m_min - static_cast<T>(std::fmod(static_cast<float>(m_min), static_cast<float>(steps)));
        } else {
            m_max = 0;
        }
        while (m_maximum > m_max) {
            m_max += factor;
        }
        m_min = m_max - scale;
        if (m_minimum >= m_min) {
            done = true;
        } else {
            factor += inc;
            scale = step_count * factor;
        }
    }
    if (left) {
        while (m_min + factor <= m_minimum) {
            m_min += factor;
            m_max += factor;
        }
    }
    return m_max != max_tmp || m_min != min_tmp;
}

/// The instance that the gauges use.
extern template bool range<double>(double, double, double&, double&, unsigned, bool, double);

#endif
