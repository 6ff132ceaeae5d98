// Qt first: libobs's SIMD aliases break the compiler's intrinsics headers
// when they come before them.
#include <QApplication>
#include <QImage>

#include "BenchDrawing.h"
#include "ObsHost.h"

#include "CanvasSource.h"

#include <obs.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <numeric>
#include <vector>

// The canvas source on the host's graphics thread inside a real libobs
// (OpenGL on the X display), at 720p, 1080p and 4K: a render that uploads a
// pending live image, one that only draws, and a drawing session with the
// wiggle on (60 frames per second, a live image every second frame, twelve
// wiggle frames per second), whose tick and render are timed per frame.
// Prints summary lines in the format of pd_bench.
namespace {

constexpr int Runs = 40;
constexpr int SessionFrames = 120;

double msSince(std::chrono::steady_clock::time_point t0)
{
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
}

// The time until the render is handed to the GPU. The result is then read
// back, untimed, so that no render starts while the last one still runs on
// the (software) GPU: an upload would otherwise wait for the draw before it.
double renderOnceMs(obs_source_t *source, uint32_t width, uint32_t height)
{
    obs_enter_graphics();
    gs_texrender_t *texrender = gs_texrender_create(GS_RGBA, GS_ZS_NONE);
    gs_stagesurf_t *stage = gs_stagesurface_create(width, height, GS_RGBA);
    double ms = -1;
    if (gs_texrender_begin(texrender, width, height)) {
        gs_ortho(0.0f, float(width), 0.0f, float(height), -100.0f, 100.0f);
        const auto t0 = std::chrono::steady_clock::now();
        obs_source_video_render(source);
        gs_flush();
        ms = msSince(t0);
        gs_texrender_end(texrender);
        gs_stage_texture(stage, gs_texrender_get_texture(texrender));
        uint8_t *data = nullptr;
        uint32_t linesize = 0;
        if (gs_stagesurface_map(stage, &data, &linesize))
            gs_stagesurface_unmap(stage);
    }
    gs_stagesurface_destroy(stage);
    gs_texrender_destroy(texrender);
    obs_leave_graphics();
    return ms;
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

double mean(const std::vector<double> &values)
{
    return values.empty()
               ? 0
               : std::accumulate(values.begin(), values.end(), 0.0) / double(values.size());
}

void measure(const char *label, uint32_t width, uint32_t height)
{
    if (ObsHost::resetVideo({width, height, 1}) != OBS_VIDEO_SUCCESS) {
        std::printf("source_render_%s: video reset failed\n", label);
        return;
    }
    OBSSourceAutoRelease source =
        obs_source_create("pennoria_canvas", "bench canvas", nullptr, nullptr);
    auto *record = static_cast<CanvasSourceData *>(obs_obj_get_data(source));
    const QImage rgba = drawnLayer(5u, 80, int(width), int(height));
    const QImage argb = rgba.convertToFormat(QImage::Format_ARGB32_Premultiplied);

    // Each hand-off is timed with the render that uploads it: the editor's
    // premultiplied image is taken as it is, a straight one is converted in
    // setLiveImage, on the caller's thread.
    struct Pending {
        std::vector<double> handOff, total;
    } straight, premultiplied;
    const auto handOffAndRender = [&](const QImage &image, Pending &pending) {
        const auto t0 = std::chrono::steady_clock::now();
        record->setLiveImage(image);
        pending.handOff.push_back(msSince(t0));
        pending.total.push_back(pending.handOff.back() + renderOnceMs(source, width, height));
    };
    std::vector<double> drawOnly;
    for (int i = 0; i < Runs; ++i) {
        handOffAndRender(rgba, straight);
        drawOnly.push_back(renderOnceMs(source, width, height));
        handOffAndRender(argb, premultiplied);
    }

    // The drawing session with the wiggle on; the host's own tick (once a
    // second) runs beside it and is not counted.
    record->setJitterAmount(2.5f);
    record->setJitterInterval(1.0f / 12.0f);
    record->setJitterEnabled(true);
    std::vector<double> ticks, renders;
    for (int frame = 0; frame < SessionFrames; ++frame) {
        if (frame % 2 == 0)
            record->setLiveImage(frame % 4 == 0 ? rgba : argb);
        const auto t0 = std::chrono::steady_clock::now();
        canvasSourceInfo().video_tick(record, 1.0f / 60.0f);
        ticks.push_back(msSince(t0));
        renders.push_back(renderOnceMs(source, width, height));
    }
    record->setJitterEnabled(false);

    std::printf("source_render_pending_rgba_%s: ours %.2f ms (setLiveImage's conversion of a "
                "straight RGBA8888 image, %.2f ms on the caller's thread, then the upload and the "
                "draw)\n",
                label, median(straight.total), median(straight.handOff));
    std::printf("source_render_pending_argb_%s: ours %.2f ms (setLiveImage's shallow copy of the "
                "editor's ARGB32 premultiplied image, %.2f ms on the caller's thread, then the "
                "upload and the divided draw)\n",
                label, median(premultiplied.total), median(premultiplied.handOff));
    std::printf("source_render_nothing_pending_%s: ours %.2f ms (draw only)\n", label,
                median(drawOnly));
    std::printf("source_tick_wiggle_drawing_%s: ours avg %.3f ms, max %.3f ms (tick with the "
                "wiggle on, 30 live images/s, 12 wiggle frames/s)%s\n",
                label, mean(ticks), *std::max_element(ticks.begin(), ticks.end()),
                width == 1920
                    ? (mean(ticks) <= 1.0 ? " target <= 1 ms: met" : " target <= 1 ms: MISSED")
                    : "");
    std::printf("source_render_wiggle_drawing_%s: ours avg %.2f ms, median %.2f ms (render with "
                "the wiggle on the GPU: upload of each new live image, field upload, draw)\n",
                label, mean(renders), median(renders));
}

} // namespace

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    ObsHost host;
    if (!host.start()) {
        std::printf("source_render: libobs did not start: %s\n", qPrintable(host.error()));
        return 1;
    }
    std::printf("\n== Source render in libobs (medians of %d, software OpenGL)\n", Runs);
    measure("720p", 1280, 720);
    measure("1080p", 1920, 1080);
    measure("4k", 3840, 2160);
    host.stop();
    return 0;
}
