#pragma once

#include "common/Wiggle.h"

#include <QImage>
#include <QPoint>

#include <QString>

#include <algorithm>
#include <cmath>
#include <tuple>

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

// Whether pixel (x, y)'s blended offset is exactly half a pixel on either
// axis, worked out in double precision: there the warp rounds a
// single-precision value, which may fall on either side.
inline bool warpBlendIsHalf(const WiggleGrid &grid, int x, int y)
{
    const auto axis = [](int p, int cells) {
        const double g = (p - 12) / 24.0;
        const int first = std::clamp(int(std::floor(g)), 0, cells - 1);
        return std::tuple(first, std::min(first + 1, cells - 1), g - std::floor(g));
    };
    const auto [i0, i1, tx] = axis(x, grid.width);
    const auto [j0, j1, ty] = axis(y, grid.height);
    for (const std::vector<float> *v : {&grid.offsetsX, &grid.offsetsY}) {
        const auto at = [&](int i, int j) { return double((*v)[size_t(j * grid.width + i)]); };
        const double blend = at(i0, j0) * (1 - tx) * (1 - ty) + at(i1, j0) * tx * (1 - ty) +
                             at(i0, j1) * (1 - tx) * ty + at(i1, j1) * tx * ty;
        if (std::abs(std::abs(blend - std::trunc(blend)) - 0.5) < 1e-9)
            return true;
    }
    return false;
}

// Compares a warp made elsewhere (the GPU's) with the CPU warp of the same
// 32-bit picture and field: every pixel must hold the same bytes, except
// where the blend is an exact half, where a whole texel next to the CPU's
// choice is allowed. Returns "" or the first pixel that breaks the rule.
inline QString warpMismatch(const QImage &shown, const QImage &picture, const WiggleGrid &grid)
{
    if (shown.size() != picture.size())
        return QStringLiteral("size");
    const QImage expected = warpImage(picture, grid);
    const auto word = [](const QImage &image, int x, int y) {
        return reinterpret_cast<const quint32 *>(image.constScanLine(y))[x];
    };
    for (int y = 0; y < shown.height(); ++y) {
        for (int x = 0; x < shown.width(); ++x) {
            const quint32 got = word(shown, x, y);
            if (got == word(expected, x, y))
                continue;
            bool neighbour = false;
            if (warpBlendIsHalf(grid, x, y)) {
                const QPoint from = referenceWarpSource(grid, x, y, shown.width(), shown.height());
                for (int dy = -1; dy <= 1 && !neighbour; ++dy)
                    for (int dx = -1; dx <= 1 && !neighbour; ++dx)
                        neighbour =
                            got == word(picture, std::clamp(from.x() + dx, 0, shown.width() - 1),
                                        std::clamp(from.y() + dy, 0, shown.height() - 1));
            }
            if (!neighbour)
                return QStringLiteral("pixel %1,%2").arg(x).arg(y);
        }
    }
    return QString();
}
