#pragma once

#include <QColor>
#include <QImage>

// The colour as the 32-bit word an RGBA8888 pixel holds in memory on a
// little-endian machine: alpha<<24 | blue<<16 | green<<8 | red.
quint32 packRgba8888(const QColor &color);

// That word premultiplied, as an ARGB32_Premultiplied pixel holds it.
quint32 premultipliedArgb(quint32 rgbaWord);

// Fills the 4-connected region around (x, y) with fillWord (a straight RGBA8888
// word), in place. Layers in ARGB32_Premultiplied are filled as they are
// (with the word premultiplied); other formats are converted to RGBA8888
// first. A seed of alpha 32 or more matches pixels whose every straight
// channel is within tolerance of the seed's; a nearly transparent seed
// matches pixels whose alpha is at most tolerance.
void floodFill(QImage &image, int x, int y, quint32 fillWord, int tolerance);
