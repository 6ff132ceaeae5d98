#include "SceneCapture.h"

#include "CanvasSource.h"
#include "FrontendApi.h"

#include <obs.hpp>

#include <cstring>

namespace {

// Creates and always destroys the renderer and staging surface of one capture.
struct CaptureTargets {
    gs_texrender_t *texrender;
    gs_stagesurf_t *stage;

    CaptureTargets(uint32_t w, uint32_t h)
        : texrender(gs_texrender_create(GS_RGBA, GS_ZS_NONE)),
          stage(gs_stagesurface_create(w, h, GS_RGBA))
    {}
    ~CaptureTargets()
    {
        gs_stagesurface_destroy(stage);
        gs_texrender_destroy(texrender);
    }
    CaptureTargets(const CaptureTargets &) = delete;
    CaptureTargets &operator=(const CaptureTargets &) = delete;
};

} // namespace

QImage captureScene(CanvasSourceData &record)
{
    return captureScene(record, FrontendApi::instance());
}

QImage captureScene(CanvasSourceData &record, FrontendApi &frontend)
{
    OBSSourceAutoRelease scene = frontend.currentScene();
    if (!scene)
        return {};
    const uint32_t w = record.width();
    const uint32_t h = record.height();
    QImage image;

    obs_enter_graphics();
    record.setRenderSuppressed(true);
    {
        CaptureTargets targets(w, h);
        if (targets.texrender && targets.stage && gs_texrender_begin(targets.texrender, w, h)) {
            vec4 clear;
            vec4_zero(&clear);
            gs_clear(GS_CLEAR_COLOR, &clear, 0.0f, 0);
            gs_ortho(0.0f, float(w), 0.0f, float(h), -100.0f, 100.0f);
            obs_source_video_render(scene);
            gs_texrender_end(targets.texrender);
            gs_stage_texture(targets.stage, gs_texrender_get_texture(targets.texrender));
            uint8_t *data = nullptr;
            uint32_t linesize = 0;
            if (gs_stagesurface_map(targets.stage, &data, &linesize)) {
                image = QImage(int(w), int(h), QImage::Format_RGBA8888);
                for (uint32_t y = 0; y < h; ++y)
                    std::memcpy(image.scanLine(int(y)), data + size_t(y) * linesize, size_t(w) * 4);
                gs_stagesurface_unmap(targets.stage);
            }
        }
    }
    record.setRenderSuppressed(false);
    obs_leave_graphics();
    return image;
}
