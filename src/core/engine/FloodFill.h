#pragma once

#include <QColor>
#include <QImage>

// The colour as the 32-bit word an RGBA8888 pixel holds in memory on a
// little-endian machine: alpha<<24 | blue<<16 | green<<8 | red.
quint32 packRgba8888(const QColor &color);

// Fills the 4-connected region around (x, y) with fillWord, in place. The
// image is converted to RGBA8888 first when needed. A seed of alpha 32 or more
// matches pixels whose every byte is within tolerance of the seed; a nearly
// transparent seed matches pixels whose alpha is at most tolerance.
void floodFill(QImage &image, int x, int y, quint32 fillWord, int tolerance);
