#pragma once

#include <QPainterPath>
#include <QPointF>
#include <QRectF>

// Geometry of the shapes tool, in canvas coordinates.

// The end point after the Shift constraint: a square in the drag's quadrant.
QPointF constrainedShapeEnd(const QPointF &start, const QPointF &end, bool constrain);

// The rectangle spanned by a drag (normalised), optionally constrained.
QRectF shapeRect(const QPointF &start, const QPointF &end, bool constrain);

// 0 right, 1 down, 2 left, 3 up; 0 for a drag of no length.
int arrowDirection(const QPointF &start, const QPointF &end);

// True when the rectangle is too small to draw (under 0.5 in both dimensions).
bool isDegenerateShapeRect(const QRectF &rect);

// The outline of a shape type in rect; empty for a degenerate rect or an
// unknown type.
QPainterPath shapePath(int shapeType, const QRectF &rect, int arrowDirection);
