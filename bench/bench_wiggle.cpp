#include "BenchSummary.h"

#include "module/Wiggle.h"

#include <QImage>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>

namespace {

constexpr int W = 1920;
constexpr int H = 1080;

// The rule as plainly as it reads: one pixel at a time, on one thread.
QImage referenceWarp(const QImage &src, const WiggleGrid &grid)
{
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

struct WarpInput {
    QImage image;
    WiggleGrid grid;
    WarpInput()
    {
        std::mt19937 rng(42);
        image = QImage(W, H, QImage::Format_RGBA8888);
        for (int y = 0; y < H; ++y) {
            auto *line = reinterpret_cast<quint32 *>(image.scanLine(y));
            for (int x = 0; x < W; ++x)
                line[x] = rng();
        }
        makeWiggleGrid(grid, W, H, 2.5f, rng);
        if (warpImage(image, grid) != referenceWarp(image, grid)) {
            std::fprintf(stderr, "wiggle warp: output differs from the reference\n");
            std::abort();
        }
        BenchSummary::setTarget("wiggle_warp_1080p", {4.0, 4.0});
    }
};

const WarpInput &input()
{
    static const WarpInput in;
    return in;
}

void wiggleWarpOurs(benchmark::State &state)
{
    const WarpInput &in = input();
    for (auto _ : state)
        benchmark::DoNotOptimize(warpImage(in.image, in.grid));
}

void wiggleWarpReference(benchmark::State &state)
{
    const WarpInput &in = input();
    for (auto _ : state)
        benchmark::DoNotOptimize(referenceWarp(in.image, in.grid));
}

} // namespace

BENCHMARK(wiggleWarpOurs)
    ->Name("wiggle_warp_1080p/ours")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(wiggleWarpReference)
    ->Name("wiggle_warp_1080p/reference")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
