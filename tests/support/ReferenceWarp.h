#pragma once

#include "common/Wiggle.h"

#include <QImage>
#include <QPoint>

#include <algorithm>
#include <cmath>

// The wiggle warp written out as plainly as the rule reads, one pixel at a
// time on one thread: where output pixel (x, y) takes its value from.
inline QPoint referenceWarpSource(const WiggleGrid &grid, int x, int y, int w, int h)
{
    const float gx = (float(x) - 12.0f) / 24.0f, gy = (float(y) - 12.0f) / 24.0f;
    const int i0 = std::clamp(int(std::floor(gx)), 0, grid.width - 1);
    const int j0 = std::clamp(int(std::floor(gy)), 0, grid.height - 1);
    const int i1 = std::min(i0 + 1, grid.width - 1), j1 = std::min(j0 + 1, grid.height - 1);
    const float tx = gx - std::floor(gx), ty = gy - std::floor(gy);
    auto blend = [&](const std::vector<float> &v) {
        return v[size_t(j0) * grid.width + i0] * ((1 - tx) * (1 - ty)) +
               v[size_t(j0) * grid.width + i1] * (tx * (1 - ty)) +
               v[size_t(j1) * grid.width + i0] * ((1 - tx) * ty) +
               v[size_t(j1) * grid.width + i1] * (tx * ty);
    };
    return {std::clamp(x + int(std::round(blend(grid.offsetsX))), 0, w - 1),
            std::clamp(y + int(std::round(blend(grid.offsetsY))), 0, h - 1)};
}

// The warp of a 32-bit image: every pixel moved whole, the format kept.
inline QImage referenceWarp(const QImage &src, const WiggleGrid &grid)
{
    QImage out(src.size(), src.format());
    for (int y = 0; y < src.height(); ++y)
        for (int x = 0; x < src.width(); ++x) {
            const QPoint from = referenceWarpSource(grid, x, y, src.width(), src.height());
            reinterpret_cast<quint32 *>(out.scanLine(y))[x] =
                reinterpret_cast<const quint32 *>(src.constScanLine(from.y()))[from.x()];
        }
    return out;
}
