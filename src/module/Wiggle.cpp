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

// std::round (halves away from zero) without the library call: v - trunc(v)
// is exact for the small offsets used here.
inline int roundHalfAway(float v)
{
    int whole = int(v);
    const float rest = v - float(whole);
    whole += int(rest >= 0.5f) - int(rest <= -0.5f);
    return whole;
}

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
    const int gw = grid.width;
    const int gh = grid.height;
    constexpr float cell = float(WiggleGrid::CellSize);
    constexpr float half = cell / 2.0f;

    // Column weights, and every grid row's offsets spread out to one value
    // per image column (left and right cell of each column), so the per-pixel
    // loop reads only contiguous arrays and vectorises.
    std::vector<float> tx(static_cast<size_t>(w)), oneMinusTx(static_cast<size_t>(w));
    std::vector<float> spread(static_cast<size_t>(gh) * 4 * w);
    for (int x = 0; x < w; ++x) {
        const float gx = (float(x) - half) / cell;
        const float fl = std::floor(gx);
        const int i0 = std::clamp(int(fl), 0, gw - 1);
        const int i1 = std::min(i0 + 1, gw - 1);
        tx[size_t(x)] = gx - fl;
        oneMinusTx[size_t(x)] = 1.0f - tx[size_t(x)];
        for (int j = 0; j < gh; ++j) {
            float *row = spread.data() + size_t(j) * 4 * w;
            row[x] = grid.offsetsX[size_t(j) * gw + i0];
            row[w + x] = grid.offsetsX[size_t(j) * gw + i1];
            row[2 * w + x] = grid.offsetsY[size_t(j) * gw + i0];
            row[3 * w + x] = grid.offsetsY[size_t(j) * gw + i1];
        }
    }

    QImage out(w, h, QImage::Format_RGBA8888);
    std::vector<int> rows(static_cast<size_t>(h));
    std::iota(rows.begin(), rows.end(), 0);

    const uchar *srcBits = src.constBits();
    const qsizetype srcStride = src.bytesPerLine();
    uchar *outBits = out.bits();
    const qsizetype outStride = out.bytesPerLine();

    std::for_each(std::execution::par, rows.begin(), rows.end(), [&](int y) {
        thread_local std::vector<int> sx;
        thread_local std::vector<int> sy;
        sx.resize(size_t(w));
        sy.resize(size_t(w));

        const float gy = (float(y) - half) / cell;
        const float fl = std::floor(gy);
        const int j0 = std::clamp(int(fl), 0, gh - 1);
        const int j1 = std::min(j0 + 1, gh - 1);
        const float ty = gy - fl;
        const float oneMinusTy = 1.0f - ty;
        const float *top = spread.data() + size_t(j0) * 4 * w;
        const float *bottom = spread.data() + size_t(j1) * 4 * w;
        const float *tlX = top, *trX = top + w, *tlY = top + 2 * w, *trY = top + 3 * w;
        const float *blX = bottom, *brX = bottom + w, *blY = bottom + 2 * w, *brY = bottom + 3 * w;
        const float *txs = tx.data();
        const float *omtx = oneMinusTx.data();
        int *sxs = sx.data();
        int *sys = sy.data();
        for (int x = 0; x < w; ++x) {
            const float wTL = omtx[x] * oneMinusTy;
            const float wTR = txs[x] * oneMinusTy;
            const float wBL = omtx[x] * ty;
            const float wBR = txs[x] * ty;
            const float ox = tlX[x] * wTL + trX[x] * wTR + blX[x] * wBL + brX[x] * wBR;
            const float oy = tlY[x] * wTL + trY[x] * wTR + blY[x] * wBL + brY[x] * wBR;
            sxs[x] = std::clamp(x + roundHalfAway(ox), 0, w - 1);
            sys[x] = std::clamp(y + roundHalfAway(oy), 0, h - 1);
        }
        auto *dst = reinterpret_cast<quint32 *>(outBits + y * outStride);
        for (int x = 0; x < w; ++x)
            dst[x] = reinterpret_cast<const quint32 *>(srcBits + sys[x] * srcStride)[sxs[x]];
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
