#include "coop/CoopSource.h"

#include <obs.h>

#include <QImage>

#include <cstdint>

namespace {

// Until the shared co-op picture exists the source shows a transparent
// picture of the output size.
struct CoopSourceData {
    obs_source_t *source = nullptr;
    gs_texture_t *texture = nullptr;
    uint32_t width = 1920;
    uint32_t height = 1080;
};

const char *coopGetName(void *)
{
    return "Pennoria: Draw Co-op";
}

void *coopCreate(obs_data_t *, obs_source_t *source)
{
    auto *data = new CoopSourceData;
    data->source = source;
    obs_video_info ovi;
    if (obs_get_video_info(&ovi) && ovi.base_width && ovi.base_height) {
        data->width = ovi.base_width;
        data->height = ovi.base_height;
    }
    QImage blank(int(data->width), int(data->height), QImage::Format_RGBA8888);
    blank.fill(Qt::transparent);
    obs_enter_graphics();
    data->texture = gs_texture_create(data->width, data->height, GS_RGBA, 1, nullptr, GS_DYNAMIC);
    if (data->texture)
        gs_texture_set_image(data->texture, blank.constBits(), uint32_t(blank.bytesPerLine()),
                             false);
    obs_leave_graphics();
    return data;
}

void coopDestroy(void *data)
{
    auto *record = static_cast<CoopSourceData *>(data);
    if (!record)
        return;
    if (record->texture) {
        obs_enter_graphics();
        gs_texture_destroy(record->texture);
        obs_leave_graphics();
    }
    delete record;
}

uint32_t coopWidth(void *data)
{
    return data ? static_cast<CoopSourceData *>(data)->width : 0;
}

uint32_t coopHeight(void *data)
{
    return data ? static_cast<CoopSourceData *>(data)->height : 0;
}

void coopTick(void *, float)
{}

void coopRender(void *data, gs_effect_t *effect)
{
    auto *record = static_cast<CoopSourceData *>(data);
    if (!record || !record->texture || !effect)
        return;
    gs_effect_set_texture(gs_effect_get_param_by_name(effect, "image"), record->texture);
    gs_draw_sprite(record->texture, 0, record->width, record->height);
}

obs_source_info makeInfo()
{
    obs_source_info info = {};
    info.id = "pennoria_coop_canvas";
    info.type = OBS_SOURCE_TYPE_INPUT;
    info.output_flags = OBS_SOURCE_VIDEO;
    info.get_name = coopGetName;
    info.create = coopCreate;
    info.destroy = coopDestroy;
    info.get_width = coopWidth;
    info.get_height = coopHeight;
    info.video_tick = coopTick;
    info.video_render = coopRender;
    return info;
}

} // namespace

const obs_source_info &coopSourceInfo()
{
    static const obs_source_info info = makeInfo();
    return info;
}
