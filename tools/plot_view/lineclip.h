/// @file
/// Cuts lines off at the edges of an area. Painters lose their precision far outside the picture, and a line whose ends
/// were merely moved to its edges would run elsewhere.

#ifndef TOOLS_PLOT_VIEW_LINECLIP_H
#define TOOLS_PLOT_VIEW_LINECLIP_H

#include <QList>
#include <QPointF>
#include <QPolygonF>
#include <QRectF>

namespace plot {

/// The pieces of a line that lie in an area.
/// @param line  corner after corner, of finite coordinates
/// @param area  what is to be seen
/// @return      the pieces in their order; a line of one point inside gives a piece of one point
QList<QPolygonF> clipped(const QPolygonF& line, const QRectF& area);

}  // namespace plot

#endif
