#pragma once

#include <QImage>
#include <QSize>

// A layer's picture fitted into size over a light checkerboard of 8-pixel
// cells, centred. Visibility and opacity are not applied.
QImage layerThumbnail(const QImage &layer, const QSize &size);
