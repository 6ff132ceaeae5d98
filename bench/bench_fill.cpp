#include "BenchSummary.h"

#include "ReferenceFill.h"
#include "engine/FloodFill.h"

#include <QImage>

#include <opencv2/imgproc.hpp>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace {

constexpr int W = 1920;
constexpr int H = 1080;
constexpr quint32 Red = 0xff0000ffu; // opaque red as an RGBA8888 word
constexpr int Tolerance = 200;

// OpenCV's fill on the same buffer. cv::floodFill takes one or three
// channels, so each RGBA8888 pixel is one 32-bit channel, 4-connected, with a
// fixed range from the transparent seed up to the largest positive word: on
// these inputs (transparent corridors, opaque walls) exactly the pixels the
// transparent-seed rule at tolerance 200 takes.
void opencvFill(QImage &image, int x, int y, quint32 fill, int)
{
    cv::Mat mat(image.height(), image.width(), CV_32SC1, image.bits(),
                size_t(image.bytesPerLine()));
    cv::floodFill(mat, cv::Point(x, y), cv::Scalar(double(qint32(fill))), nullptr, cv::Scalar(0),
                  cv::Scalar(double(std::numeric_limits<qint32>::max())),
                  4 | cv::FLOODFILL_FIXED_RANGE);
}

struct FillInputs {
    QImage empty;
    QImage maze;
    FillInputs()
    {
        empty = QImage(W, H, QImage::Format_RGBA8888);
        empty.fill(Qt::transparent);
        maze = mazeImage(W, H, 4, 7u);
        for (const char *name : {"flood_fill_empty_1080p", "flood_fill_maze_1080p"}) {
            BenchSummary::setLibrary(name, "cv::floodFill");
            BenchSummary::setTarget(name, {0, 1.3, 0});
            BenchSummary::addNote(name, "pixels identical to cv::floodFill's");
        }
        for (const QImage *input : {&empty, &maze}) {
            QImage ours = input->copy();
            QImage reference = input->copy();
            QImage library = input->copy();
            floodFill(ours, 2, 2, Red, Tolerance);
            referenceBfsFill(reference, 2, 2, Red, Tolerance);
            opencvFill(library, 2, 2, Red, Tolerance);
            if (ours != reference || ours != library) {
                std::fprintf(stderr, "flood fill: pixels differ from the reference or OpenCV\n");
                std::abort();
            }
        }
    }
};

const FillInputs &inputs()
{
    static const FillInputs in;
    return in;
}

template <void (*Fill)(QImage &, int, int, quint32, int), bool Maze>
void runFill(benchmark::State &state)
{
    const QImage &input = Maze ? inputs().maze : inputs().empty;
    QImage image = input.copy();
    for (auto _ : state) {
        state.PauseTiming();
        std::memcpy(image.bits(), input.constBits(), size_t(input.sizeInBytes()));
        state.ResumeTiming();
        Fill(image, 2, 2, Red, Tolerance);
        benchmark::DoNotOptimize(image.constBits());
    }
}

const bool registered = [] {
    registerFloor("flood_fill_empty_1080p", W, H);
    registerFloor("flood_fill_maze_1080p", W, H);
    return true;
}();

} // namespace

BENCHMARK(runFill<floodFill, false>)
    ->Name("flood_fill_empty_1080p/ours")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(runFill<opencvFill, false>)
    ->Name("flood_fill_empty_1080p/library")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(runFill<floodFill, true>)
    ->Name("flood_fill_maze_1080p/ours")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(runFill<opencvFill, true>)
    ->Name("flood_fill_maze_1080p/library")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
