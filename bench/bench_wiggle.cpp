#include "BenchSummary.h"

#include "ReferenceWarp.h"
#include "common/Wiggle.h"

#include <QImage>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>

namespace {

constexpr int W = 1920;
constexpr int H = 1080;

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
