#include "BenchSummary.h"

#include "ReferenceFill.h"
#include "engine/FloodFill.h"

#include <QImage>

#include <opencv2/imgproc.hpp>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr int W = 1920;
constexpr int H = 1080;
constexpr quint32 Red = 0xff0000ffu; // opaque red as an RGBA8888 word
constexpr int Tolerance = 200;

// OpenCV's fill with the same rule on an RGBA8888 image: 4-connected, fixed
// range against the seed; a transparent seed takes any colour and alphas up
// to the tolerance.
void opencvFill(QImage &image, int x, int y, quint32 fill, int tolerance)
{
    cv::Mat mat(image.height(), image.width(), CV_8UC4, image.bits(), size_t(image.bytesPerLine()));
    const cv::Vec4b seed = mat.at<cv::Vec4b>(y, x);
    const cv::Scalar value(fill & 0xff, (fill >> 8) & 0xff, (fill >> 16) & 0xff, fill >> 24);
    cv::Scalar low, high;
    if (seed[3] >= 32) {
        low = high = cv::Scalar::all(tolerance);
    } else {
        low = cv::Scalar(255, 255, 255, seed[3]);
        high = cv::Scalar(255, 255, 255, tolerance - seed[3]);
    }
    cv::floodFill(mat, cv::Point(x, y), value, nullptr, low, high, 4 | cv::FLOODFILL_FIXED_RANGE);
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
