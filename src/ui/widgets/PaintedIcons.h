#pragma once

#include <QColor>
#include <QIcon>
#include <QSize>

// Icons drawn by code rather than from SVG text, in one colour on a
// transparent pixmap of exactly the given size.

// Three waves, the Jitter button's icon.
QIcon jitterWavesIcon(const QColor &color, const QSize &size);

// The outline of a shape type (ShapeType) inset by 0.15 x the icon width.
QIcon shapeOutlineIcon(int shapeType, const QColor &color, const QSize &size);
