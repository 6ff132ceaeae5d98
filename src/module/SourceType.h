#pragma once

#include <obs-module.h>

// The source-info record of a video-only input source whose per-source
// Record is built from the host's source and offers tick(float), render(),
// width() and height(). The source draws itself (custom draw): its texture
// picks the technique, which divides a premultiplied picture by its alpha,
// so the host's effect (null, or a filter's) goes unused. Every callback
// ignores a null record, and nothing is thrown back into the host.
template <typename Record>
obs_source_info videoSourceInfo(const char *id, const char *(*displayName)(void *))
{
    obs_source_info info = {};
    info.id = id;
    info.type = OBS_SOURCE_TYPE_INPUT;
    info.output_flags = OBS_SOURCE_VIDEO | OBS_SOURCE_CUSTOM_DRAW;
    info.get_name = displayName;
    info.create = [](obs_data_t *, obs_source_t *source) -> void * {
        try {
            return new Record(source);
        } catch (...) {
            return nullptr;
        }
    };
    info.destroy = [](void *data) { delete static_cast<Record *>(data); };
    info.get_width = [](void *data) -> uint32_t {
        return data ? static_cast<Record *>(data)->width() : 0;
    };
    info.get_height = [](void *data) -> uint32_t {
        return data ? static_cast<Record *>(data)->height() : 0;
    };
    info.video_tick = [](void *data, float seconds) {
        if (data)
            static_cast<Record *>(data)->tick(seconds);
    };
    info.video_render = [](void *data, gs_effect_t *) {
        if (data)
            static_cast<Record *>(data)->render();
    };
    return info;
}
