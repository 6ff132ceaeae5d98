// <execution> pulls in TBB, whose headers must come before Qt's "emit" macro.
#include <execution>

#include "common/Wiggle.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
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

// The row kernels are also built for AVX2 where the toolchain can pick the
// variant at load time.
#if defined(__GNUC__) && !defined(__clang__) && defined(__x86_64__) && defined(__linux__)
#define PD_ROW_KERNEL __attribute__((target_clones("avx2", "default")))
#else
#define PD_ROW_KERNEL
#endif

namespace {

constexpr int Cell = WiggleGrid::CellSize;
constexpr int HalfCell = Cell / 2;
constexpr int CellArea = Cell * Cell;

// Where each column (or row) sits in the grid: its two cells and its weight.
struct Axis {
    std::vector<int> first, second;  // cell indices, clamped
    std::vector<float> t, oneMinusT; // weight of the second cell, as the blend uses it
    std::vector<int> phase;          // t * 24 as an exact integer 0..23

    Axis(int length, int cells)
        : first(size_t(length)), second(size_t(length)), t(size_t(length)),
          oneMinusT(size_t(length)), phase(size_t(length))
    {
        for (int i = 0; i < length; ++i) {
            const float g = (float(i) - float(HalfCell)) / float(Cell);
            const float fl = std::floor(g);
            first[size_t(i)] = std::clamp(int(fl), 0, cells - 1);
            second[size_t(i)] = std::min(first[size_t(i)] + 1, cells - 1);
            t[size_t(i)] = g - fl;
            oneMinusT[size_t(i)] = 1.0f - t[size_t(i)];
            phase[size_t(i)] = ((i - HalfCell) % Cell + Cell) % Cell;
        }
    }
};

// The blended offset of one pixel in single precision, term by term in the
// order that defines the result; every path of the warp rounds this value.
inline float blendOffset(const std::vector<float> &offsets, int gw, const Axis &cols,
                         const Axis &rows, int x, int y)
{
    const size_t top = size_t(rows.first[size_t(y)]) * size_t(gw);
    const size_t bottom = size_t(rows.second[size_t(y)]) * size_t(gw);
    const size_t left = size_t(cols.first[size_t(x)]);
    const size_t right = size_t(cols.second[size_t(x)]);
    const float tx = cols.t[size_t(x)], omtx = cols.oneMinusT[size_t(x)];
    const float ty = rows.t[size_t(y)], omty = rows.oneMinusT[size_t(y)];
    return offsets[top + left] * (omtx * omty) + offsets[top + right] * (tx * omty) +
           offsets[bottom + left] * (omtx * ty) + offsets[bottom + right] * (tx * ty);
}

// Whole offsets small enough for exact integer blending. The weights are
// multiples of 1/576, so 576 times the blend is an integer N and rounding it
// is integer work. The single-precision blend differs from N/576 by less
// than m * (8 * g + 19) * 2^-24 (m the largest offset, g the largest grid
// coordinate), which stays below the 1/576 that separates a value that is
// not a tie from the nearest half; only exact ties need the float value.
bool integerBlendIsExact(const WiggleGrid &grid, int w, int h)
{
    float largest = 0.0f;
    for (const std::vector<float> *offsets : {&grid.offsetsX, &grid.offsetsY}) {
        for (const float v : *offsets) {
            if (!(std::fabs(v) <= 40.0f) || v != std::trunc(v))
                return false;
            largest = std::max(largest, std::fabs(v));
        }
    }
    const double g = double(std::max(w, h)) / Cell + 1.0;
    return double(largest) * (8.0 * g + 19.0) < double(1 << 24) / CellArea / 2.0;
}

// One grid row's offsets blended horizontally for every image column, times
// 24: (24 - a) * left + a * right, with a the column's phase.
void spreadRow(std::vector<int16_t> &out, const std::vector<float> &offsets, int gw, int j,
               const Axis &cols)
{
    const size_t w = cols.t.size();
    int16_t *row = out.data() + size_t(j) * w;
    const float *cells = offsets.data() + size_t(j) * size_t(gw);
    for (size_t x = 0; x < w; ++x) {
        const int a = cols.phase[x];
        row[x] = int16_t((Cell - a) * int(cells[cols.first[x]]) + a * int(cells[cols.second[x]]));
    }
}

// One row of the integer path, in 16-bit lanes for the vectoriser: every
// pixel's source column and row, and a flag per pixel (bit 0 for x, bit 1 for
// y) where the blend is an exact half, whose single-precision value may fall
// on either side. N = 576 times the blend, |N| <= 576 * 40; round(N / 576)
// with halves away from zero is a multiply-high and a shift (exact below
// 2^15). Returns whether any flag is set.
PD_ROW_KERNEL int rowSources(const int16_t *__restrict topX, const int16_t *__restrict bottomX,
                             const int16_t *__restrict topY, const int16_t *__restrict bottomY,
                             int wt, int b, int y, int w, int h, int16_t *__restrict sourceX,
                             int16_t *__restrict sourceY, int16_t *__restrict ties)
{
    const int16_t wt16 = int16_t(wt), b16 = int16_t(b), y16 = int16_t(y);
    const int16_t lastX = int16_t(w - 1), lastY = int16_t(h - 1);
    int16_t any = 0;
    for (int x = 0; x < w; ++x) {
        const int16_t nx = int16_t(wt16 * topX[x] + b16 * bottomX[x]);
        const int16_t ny = int16_t(wt16 * topY[x] + b16 * bottomY[x]);
        const uint16_t mx = uint16_t((nx < 0 ? -nx : nx) + CellArea / 2);
        const uint16_t my = uint16_t((ny < 0 ? -ny : ny) + CellArea / 2);
        const uint16_t qx = uint16_t(uint16_t((uint32_t(mx) * 7282u) >> 16) >> 6);
        const uint16_t qy = uint16_t(uint16_t((uint32_t(my) * 7282u) >> 16) >> 6);
        const int16_t tie =
            int16_t((uint16_t(qx * CellArea) == mx) | (uint16_t(qy * CellArea) == my) << 1);
        const int16_t sx = int16_t(x + (nx < 0 ? -qx : qx));
        const int16_t sy = int16_t(y16 + (ny < 0 ? -qy : qy));
        sourceX[x] = sx < 0 ? int16_t(0) : sx > lastX ? lastX : sx;
        sourceY[x] = sy < 0 ? int16_t(0) : sy > lastY ? lastY : sy;
        ties[x] = tie;
        any |= tie;
    }
    return any;
}

PD_ROW_KERNEL void gatherRow(const quint32 *__restrict src, int strideWords,
                             const int16_t *__restrict sourceX, const int16_t *__restrict sourceY,
                             int w, quint32 *__restrict dst)
{
    for (int x = 0; x < w; ++x)
        dst[x] = src[int(sourceY[x]) * strideWords + int(sourceX[x])];
}

} // namespace

QImage warpImage(const QImage &input, const WiggleGrid &grid)
{
    if (input.isNull())
        return input;
    // Whole pixels are moved, never blended, so any 32-bit format is kept.
    const bool wordFormat = input.format() == QImage::Format_RGBA8888 ||
                            input.format() == QImage::Format_RGBA8888_Premultiplied ||
                            input.format() == QImage::Format_ARGB32 ||
                            input.format() == QImage::Format_ARGB32_Premultiplied;
    const QImage src = wordFormat ? input : input.convertToFormat(QImage::Format_RGBA8888);
    if (grid.isEmpty() || grid.offsetsX.size() < size_t(grid.width) * size_t(grid.height) ||
        grid.offsetsY.size() < size_t(grid.width) * size_t(grid.height))
        return src;

    const int w = src.width();
    const int h = src.height();
    const int gw = grid.width;
    const int gh = grid.height;
    const Axis cols(w, gw);
    const Axis rows(h, gh);

    QImage out(w, h, src.format());
    std::vector<int> rowIndices(static_cast<size_t>(h));
    std::iota(rowIndices.begin(), rowIndices.end(), 0);
    const uchar *srcBits = src.constBits();
    const qsizetype srcStride = src.bytesPerLine();
    uchar *outBits = out.bits();
    const qsizetype outStride = out.bytesPerLine();

    // Source columns and rows (with their offsets of at most 40) travel in
    // 16-bit lanes.
    if (integerBlendIsExact(grid, w, h) && w < 32768 - 64 && h < 32768 - 64 &&
        qint64(srcStride / 4) * h < (qint64(1) << 31)) {
        std::vector<int16_t> spreadX(size_t(gh) * size_t(w)), spreadY(spreadX.size());
        std::vector<int> gridRows(static_cast<size_t>(gh));
        std::iota(gridRows.begin(), gridRows.end(), 0);
        std::for_each(std::execution::par, gridRows.begin(), gridRows.end(), [&](int j) {
            spreadRow(spreadX, grid.offsetsX, gw, j, cols);
            spreadRow(spreadY, grid.offsetsY, gw, j, cols);
        });

        std::for_each(std::execution::par, rowIndices.begin(), rowIndices.end(), [&](int y) {
            thread_local std::vector<int16_t> sourceX, sourceY, ties;
            sourceX.resize(size_t(w));
            sourceY.resize(size_t(w));
            ties.resize(size_t(w) + 4);
            const int b = rows.phase[size_t(y)];
            const size_t top = size_t(rows.first[size_t(y)]) * size_t(w);
            const size_t bottom = size_t(rows.second[size_t(y)]) * size_t(w);
            int16_t *sx = sourceX.data();
            int16_t *sy = sourceY.data();
            const int16_t *tie = ties.data();
            if (rowSources(spreadX.data() + top, spreadX.data() + bottom, spreadY.data() + top,
                           spreadY.data() + bottom, Cell - b, b, y, w, h, sx, sy, ties.data())) {
                // Exact halves take the single-precision blend; four flags at a time.
                for (int x0 = 0; x0 < w; x0 += 4) {
                    quint64 four = 0;
                    std::memcpy(&four, tie + x0, sizeof four);
                    if (!four)
                        continue;
                    for (int x = x0; x < std::min(x0 + 4, w); ++x) {
                        if (tie[x] & 1)
                            sx[x] = int16_t(std::clamp(
                                x + roundHalfAway(blendOffset(grid.offsetsX, gw, cols, rows, x, y)),
                                0, w - 1));
                        if (tie[x] & 2)
                            sy[x] = int16_t(std::clamp(
                                y + roundHalfAway(blendOffset(grid.offsetsY, gw, cols, rows, x, y)),
                                0, h - 1));
                    }
                }
            }
            gatherRow(reinterpret_cast<const quint32 *>(srcBits), int(srcStride / 4), sx, sy, w,
                      reinterpret_cast<quint32 *>(outBits + y * outStride));
        });
        return out;
    }

    // Any other field (fractional or large offsets): the blend in single
    // precision for every pixel.
    std::for_each(std::execution::par, rowIndices.begin(), rowIndices.end(), [&](int y) {
        auto *dst = reinterpret_cast<quint32 *>(outBits + y * outStride);
        for (int x = 0; x < w; ++x) {
            const int sx = std::clamp(
                x + roundHalfAway(blendOffset(grid.offsetsX, gw, cols, rows, x, y)), 0, w - 1);
            const int sy = std::clamp(
                y + roundHalfAway(blendOffset(grid.offsetsY, gw, cols, rows, x, y)), 0, h - 1);
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
