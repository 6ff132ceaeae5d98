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
#include <vector>

// The canvas source's render inside a real libobs (OpenGL on the X display):
// a render that uploads a pending live image and one that only draws. Prints
// summary lines in the format of pd_bench.
namespace {

constexpr int Runs = 40;

double renderOnceMs(obs_source_t *source)
{
    obs_enter_graphics();
    gs_texrender_t *texrender = gs_texrender_create(GS_RGBA, GS_ZS_NONE);
    double ms = -1;
    if (gs_texrender_begin(texrender, 1920, 1080)) {
        gs_ortho(0.0f, 1920.0f, 0.0f, 1080.0f, -100.0f, 100.0f);
        const auto t0 = std::chrono::steady_clock::now();
        obs_source_video_render(source);
        gs_flush();
        ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0)
                 .count();
        gs_texrender_end(texrender);
    }
    gs_texrender_destroy(texrender);
    obs_leave_graphics();
    return ms;
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
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
    {
        OBSSourceAutoRelease source =
            obs_source_create("pennoria_canvas", "bench canvas", nullptr, nullptr);
        auto *record = static_cast<CanvasSourceData *>(obs_obj_get_data(source));
        const QImage rgba = drawnLayer(5u, 80);
        const QImage argb = rgba.convertToFormat(QImage::Format_ARGB32_Premultiplied);

        std::vector<double> pending, pendingConverted, drawOnly;
        for (int i = 0; i < Runs; ++i) {
            record->setLiveImage(rgba);
            pending.push_back(renderOnceMs(source));
            drawOnly.push_back(renderOnceMs(source));
            const auto t0 = std::chrono::steady_clock::now();
            record->setLiveImage(argb); // the conversion happens here, on the caller's thread
            const double convertMs =
                std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0)
                    .count();
            pendingConverted.push_back(convertMs + renderOnceMs(source));
        }
        std::printf("\n== Source render in libobs (medians of %d, software OpenGL)\n", Runs);
        std::printf("source_render_pending_rgba_1080p: ours %.2f ms (upload of a pending RGBA8888 "
                    "live image and the draw)\n",
                    median(pending));
        std::printf("source_render_pending_argb_1080p: ours %.2f ms (setLiveImage's conversion "
                    "from ARGB32 premultiplied, then the upload and the draw)\n",
                    median(pendingConverted));
        std::printf("source_render_nothing_pending_1080p: ours %.2f ms (draw only)\n",
                    median(drawOnly));
    }
    host.stop();
    return 0;
}
