#pragma once

#include "common/Wiggle.h"

#include <QImage>

#include <algorithm>
#include <cmath>

// The wiggle warp written out as plainly as the rule reads: one pixel at a
// time, on one thread. Tests and benchmarks compare the real warp with it.
inline QImage referenceWarp(const QImage &input, const WiggleGrid &grid)
{
    const QImage src = input.convertToFormat(QImage::Format_RGBA8888);
    QImage out(src.size(), QImage::Format_RGBA8888);
    const int w = src.width(), h = src.height();
    for (int y = 0; y < h; ++y) {
        const float gy = (float(y) - 12.0f) / 24.0f;
        const int j0 = std::clamp(int(std::floor(gy)), 0, grid.height - 1);
        const int j1 = std::min(j0 + 1, grid.height - 1);
        const float ty = gy - std::floor(gy);
        for (int x = 0; x < w; ++x) {
            const float gx = (float(x) - 12.0f) / 24.0f;
            const int i0 = std::clamp(int(std::floor(gx)), 0, grid.width - 1);
            const int i1 = std::min(i0 + 1, grid.width - 1);
            const float tx = gx - std::floor(gx);
            auto blend = [&](const std::vector<float> &v) {
                return v[size_t(j0) * grid.width + i0] * ((1 - tx) * (1 - ty)) +
                       v[size_t(j0) * grid.width + i1] * (tx * (1 - ty)) +
                       v[size_t(j1) * grid.width + i0] * ((1 - tx) * ty) +
                       v[size_t(j1) * grid.width + i1] * (tx * ty);
            };
            const int sx = std::clamp(x + int(std::round(blend(grid.offsetsX))), 0, w - 1);
            const int sy = std::clamp(y + int(std::round(blend(grid.offsetsY))), 0, h - 1);
            out.setPixel(x, y, src.pixel(sx, sy));
        }
    }
    return out;
}
