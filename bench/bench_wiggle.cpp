#include "BenchSummary.h"

#include "ReferenceWarp.h"
#include "common/Wiggle.h"

#include <QImage>

#include <opencv2/imgproc.hpp>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>

namespace {

// A random picture, its wiggle field at the largest setting but one, and the
// same displacement as an OpenCV map of whole source coordinates.
struct WarpCase {
    QImage image;
    WiggleGrid grid;
    cv::Mat map;
    WarpCase(const std::string &name, int w, int h)
    {
        std::mt19937 rng(42);
        image = QImage(w, h, QImage::Format_ARGB32_Premultiplied);
        for (int y = 0; y < h; ++y) {
            auto *line = reinterpret_cast<quint32 *>(image.scanLine(y));
            for (int x = 0; x < w; ++x)
                line[x] = qPremultiply(rng());
        }
        makeWiggleGrid(grid, w, h, 2.5f, rng);
        map = cv::Mat(h, w, CV_16SC2);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                const QPoint from = referenceWarpSource(grid, x, y, w, h);
                map.at<cv::Vec2s>(y, x) = cv::Vec2s(short(from.x()), short(from.y()));
            }
        const QImage ours = warpImage(image, grid);
        if (ours != referenceWarp(image, grid) || ours != library()) {
            std::fprintf(stderr, "wiggle warp: output differs from the reference or OpenCV\n");
            std::abort();
        }
        BenchSummary::setLibrary(name, "cv::remap");
        BenchSummary::addNote(name, "output identical to cv::remap's with the same displacement");
    }
    QImage library() const
    {
        QImage out(image.size(), image.format());
        const cv::Mat src(image.height(), image.width(), CV_8UC4,
                          const_cast<uchar *>(image.constBits()), size_t(image.bytesPerLine()));
        cv::Mat dst(out.height(), out.width(), CV_8UC4, out.bits(), size_t(out.bytesPerLine()));
        cv::remap(src, dst, map, cv::noArray(), cv::INTER_NEAREST, cv::BORDER_REPLICATE);
        return out;
    }
};

void registerWarp(const char *label, int w, int h, double maxMs)
{
    const std::string name = std::string("wiggle_warp_") + label;
    auto input = std::make_shared<std::unique_ptr<WarpCase>>();
    auto get = [input, name, w, h]() -> const WarpCase & {
        if (!*input)
            *input = std::make_unique<WarpCase>(name, w, h);
        return **input;
    };
    BenchSummary::setTarget(name, {maxMs, 1.3, 0});
    BenchSummary::addScaling("wiggle_warp (per megapixel)", name, w * double(h) / 1e6);
    benchmark::RegisterBenchmark((name + "/ours").c_str(),
                                 [get](benchmark::State &state) {
                                     const WarpCase &c = get();
                                     for (auto _ : state)
                                         benchmark::DoNotOptimize(warpImage(c.image, c.grid));
                                 })
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
    benchmark::RegisterBenchmark((name + "/library").c_str(),
                                 [get](benchmark::State &state) {
                                     const WarpCase &c = get();
                                     for (auto _ : state)
                                         benchmark::DoNotOptimize(c.library());
                                 })
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
    registerFloor(name, w, h);
}

const bool registered = [] {
    registerWarp("720p", 1280, 720, 0);
    registerWarp("1080p", 1920, 1080, 4.0);
    registerWarp("4K", 3840, 2160, 0);
    return true;
}();

} // namespace
