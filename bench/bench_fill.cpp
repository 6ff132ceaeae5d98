#include "BenchSummary.h"

#include "ReferenceFill.h"
#include "engine/FloodFill.h"

#include <QImage>

#include <cstdio>
#include <cstdlib>

namespace {

constexpr int W = 1920;
constexpr int H = 1080;
constexpr quint32 Red = 0xff0000ffu; // opaque red as an RGBA8888 word
constexpr int Tolerance = 200;

struct FillInputs {
    QImage empty;
    QImage maze;
    FillInputs()
    {
        empty = QImage(W, H, QImage::Format_RGBA8888);
        empty.fill(Qt::transparent);
        maze = mazeImage(W, H, 4, 7u);
        for (const QImage *input : {&empty, &maze}) {
            QImage ours = input->copy();
            QImage reference = input->copy();
            floodFill(ours, 2, 2, Red, Tolerance);
            referenceBfsFill(reference, 2, 2, Red, Tolerance);
            if (ours != reference) {
                std::fprintf(stderr, "flood fill: pixels differ from the reference\n");
                std::abort();
            }
        }
        BenchSummary::setTarget("flood_fill_empty_1080p", {5.0, 3.0});
        BenchSummary::setTarget("flood_fill_maze_1080p", {0.0, 3.0});
    }
};

const FillInputs &inputs()
{
    static const FillInputs in;
    return in;
}

template <void (*Fill)(QImage &, int, int, quint32, int)>
void runFill(benchmark::State &state, const QImage &input)
{
    for (auto _ : state) {
        state.PauseTiming();
        QImage image = input.copy();
        state.ResumeTiming();
        Fill(image, 2, 2, Red, Tolerance);
        benchmark::DoNotOptimize(image.constBits());
    }
}

void emptyOurs(benchmark::State &state)
{
    runFill<floodFill>(state, inputs().empty);
}
void emptyReference(benchmark::State &state)
{
    runFill<referenceBfsFill>(state, inputs().empty);
}
void mazeOurs(benchmark::State &state)
{
    runFill<floodFill>(state, inputs().maze);
}
void mazeReference(benchmark::State &state)
{
    runFill<referenceBfsFill>(state, inputs().maze);
}

} // namespace

BENCHMARK(emptyOurs)
    ->Name("flood_fill_empty_1080p/ours")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(emptyReference)
    ->Name("flood_fill_empty_1080p/reference")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(mazeOurs)
    ->Name("flood_fill_maze_1080p/ours")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(mazeReference)
    ->Name("flood_fill_maze_1080p/reference")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
