// <execution> pulls in TBB, whose headers must come before Qt's "emit" macro.
#include <execution>

#include "module/Wiggle.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace {

// A uniform number in [0, 1) from one 32-bit draw (24 bits of mantissa).
float uniform01(std::mt19937 &rng)
{
    return float(rng() >> 8) * (1.0f / 16777216.0f);
}

struct ColumnWeight {
    int i0;
    int i1;
    float tx;
};

} // namespace

void makeWiggleGrid(WiggleGrid &grid, int imageWidth, int imageHeight, float amountPx,
                    std::mt19937 &rng)
{
    constexpr int cell = WiggleGrid::CellSize;
    grid.width = std::max(0, (imageWidth + cell - 1) / cell);
    grid.height = std::max(0, (imageHeight + cell - 1) / cell);
    const size_t cells = size_t(grid.width) * size_t(grid.height);
    grid.offsetsX.resize(cells);
    grid.offsetsY.resize(cells);

    const float whole = std::trunc(amountPx);
    const float fraction = amountPx - whole;
    for (size_t i = 0; i < cells; ++i) {
        const float u1 = uniform01(rng);
        const float u2 = uniform01(rng);
        const float u3 = uniform01(rng);
        const float u4 = uniform01(rng);
        float dx = fraction > u1 ? whole + 1.0f : whole;
        float dy = fraction > u2 ? whole + 1.0f : whole;
        if (!(u3 < 0.5f))
            dx = -dx;
        if (!(u4 < 0.5f))
            dy = -dy;
        grid.offsetsX[i] = dx;
        grid.offsetsY[i] = dy;
    }
}

QImage warpImage(const QImage &input, const WiggleGrid &grid)
{
    if (input.isNull())
        return input;
    const QImage src = input.format() == QImage::Format_RGBA8888
                           ? input
                           : input.convertToFormat(QImage::Format_RGBA8888);
    if (grid.isEmpty() || grid.offsetsX.size() < size_t(grid.width) * size_t(grid.height))
        return src;

    const int w = src.width();
    const int h = src.height();
    constexpr float cell = float(WiggleGrid::CellSize);
    constexpr float half = cell / 2.0f;

    std::vector<ColumnWeight> columns(static_cast<size_t>(w));
    for (int x = 0; x < w; ++x) {
        const float gx = (float(x) - half) / cell;
        const float fl = std::floor(gx);
        const int i0 = std::clamp(int(fl), 0, grid.width - 1);
        columns[size_t(x)] = {i0, std::min(i0 + 1, grid.width - 1), gx - fl};
    }

    QImage out(w, h, QImage::Format_RGBA8888);
    std::vector<int> rows(static_cast<size_t>(h));
    std::iota(rows.begin(), rows.end(), 0);

    const uchar *srcBits = src.constBits();
    const qsizetype srcStride = src.bytesPerLine();
    uchar *outBits = out.bits();
    const qsizetype outStride = out.bytesPerLine();
    const float *offX = grid.offsetsX.data();
    const float *offY = grid.offsetsY.data();
    const int gw = grid.width;

    std::for_each(std::execution::par, rows.begin(), rows.end(), [&](int y) {
        const float gy = (float(y) - half) / cell;
        const float fl = std::floor(gy);
        const int j0 = std::clamp(int(fl), 0, grid.height - 1);
        const int j1 = std::min(j0 + 1, grid.height - 1);
        const float ty = gy - fl;
        const float *topX = offX + size_t(j0) * gw;
        const float *botX = offX + size_t(j1) * gw;
        const float *topY = offY + size_t(j0) * gw;
        const float *botY = offY + size_t(j1) * gw;
        auto *dst = reinterpret_cast<quint32 *>(outBits + y * outStride);
        for (int x = 0; x < w; ++x) {
            const ColumnWeight &c = columns[size_t(x)];
            const float wTL = (1.0f - c.tx) * (1.0f - ty);
            const float wTR = c.tx * (1.0f - ty);
            const float wBL = (1.0f - c.tx) * ty;
            const float wBR = c.tx * ty;
            const float ox =
                topX[c.i0] * wTL + topX[c.i1] * wTR + botX[c.i0] * wBL + botX[c.i1] * wBR;
            const float oy =
                topY[c.i0] * wTL + topY[c.i1] * wTR + botY[c.i0] * wBL + botY[c.i1] * wBR;
            const int sx = std::clamp(x + int(std::round(ox)), 0, w - 1);
            const int sy = std::clamp(y + int(std::round(oy)), 0, h - 1);
            dst[x] = reinterpret_cast<const quint32 *>(srcBits + sy * srcStride)[sx];
        }
    });
    return out;
}

float wiggleAmountPxFromSetting(int amount)
{
    return float(std::clamp(amount, 0, 100)) * 0.039f + 0.1f;
}

int wiggleFramesPerSecondFromSetting(int speed)
{
    return std::max(1, std::clamp(speed, 0, 100) * 29 / 100 + 1);
}
