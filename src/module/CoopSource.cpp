#include "CoopSource.h"

#include "PerfWindow.h"
#include "common/Wiggle.h"
#include "coop/CoopCanvas.h"
#include "coop/CoopSession.h"

#include <obs.h>
#include <util/platform.h>

#include <QImage>
#include <QMetaObject>

#include <atomic>

namespace {

std::atomic<int> g_liveCoopSources{0};

} // namespace

void CoopSourceData::upload(const QImage &image)
{
    if (image.width() != int(width) || image.height() != int(height))
        return;
    const QImage rgba = image.format() == QImage::Format_RGBA8888
                            ? image
                            : image.convertToFormat(QImage::Format_RGBA8888);
    gs_texture_set_image(texture, rgba.constBits(), uint32_t(rgba.bytesPerLine()), false);
    ++perf.uploads;
}

namespace {

const char *coopGetName(void *)
{
    return "Pennoria: Draw Co-op";
}

void *coopCreate(obs_data_t *, obs_source_t *source)
{
    auto *data = new CoopSourceData;
    data->source = source;
    data->rng.seed(uint32_t(os_gettime_ns()));
    ++g_liveCoopSources;

    syncCoopCanvasSize();
    CoopCanvas &canvas = CoopCanvas::instance();
    data->width = uint32_t(canvas.width());
    data->height = uint32_t(canvas.height());
    const QImage picture = canvas.image();

    obs_enter_graphics();
    data->texture = gs_texture_create(data->width, data->height, GS_RGBA, 1, nullptr, GS_DYNAMIC);
    if (data->texture && !picture.isNull() && picture.width() == int(data->width) &&
        picture.height() == int(data->height))
        gs_texture_set_image(data->texture, picture.constBits(), uint32_t(picture.bytesPerLine()),
                             false);
    obs_leave_graphics();

    data->lastUploadedVersion = canvas.version();
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
    if (g_liveCoopSources.fetch_sub(1) == 1) {
        // Deferred, so that a co-op source re-created in the same moment keeps
        // the session alive.
        CoopSession *session = &CoopSession::instance();
        QMetaObject::invokeMethod(
            session,
            [session] {
                if (g_liveCoopSources.load() == 0 && session->role() != CoopSession::Role::None)
                    session->stop();
            },
            Qt::QueuedConnection);
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

void coopTick(void *data, float seconds)
{
    auto *record = static_cast<CoopSourceData *>(data);
    const CoopCanvas &canvas = CoopCanvas::instance();
    if (!record || !canvas.jitterEnabled())
        return;
    const int64_t t0 = int64_t(os_gettime_ns());
    record->jitterElapsed += seconds;
    const bool step = record->jitterElapsed >= canvas.jitterInterval();
    if (step)
        record->jitterElapsed = 0.0f;
    const uint64_t version = canvas.version();
    if (!step && version == record->lastWiggledVersion) {
        record->perf.countTick(t0, int64_t(os_gettime_ns()), false);
        return;
    }
    const QImage picture = canvas.image();
    if (picture.isNull())
        return;
    if (step || record->grid.isEmpty())
        makeWiggleGrid(record->grid, picture.width(), picture.height(), canvas.jitterAmountPx(),
                       record->rng);
    record->wiggledImage = warpImage(picture, record->grid);
    record->wiggleReady = true;
    record->lastWiggledVersion = version;
    record->perf.countTick(t0, int64_t(os_gettime_ns()), true);
}

void coopRender(void *data, gs_effect_t *effect)
{
    auto *record = static_cast<CoopSourceData *>(data);
    if (!record || !record->texture || !effect)
        return;
    const int64_t t0 = int64_t(os_gettime_ns());
    const CoopCanvas &canvas = CoopCanvas::instance();
    const bool wiggleOn = canvas.jitterEnabled();
    if (!wiggleOn) {
        const uint64_t version = canvas.version();
        if (version != record->lastUploadedVersion || record->showedWiggle) {
            record->upload(canvas.image());
            record->lastUploadedVersion = version;
            record->showedWiggle = false;
        }
    } else if (record->wiggleReady) {
        record->upload(record->wiggledImage);
        record->wiggleReady = false;
        record->showedWiggle = true;
    }

    gs_effect_set_texture(gs_effect_get_param_by_name(effect, "image"), record->texture);
    gs_draw_sprite(record->texture, 0, record->width, record->height);
    record->perf.countRender(t0, int64_t(os_gettime_ns()), record->source, "CO-OP ", wiggleOn);
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

void syncCoopCanvasSize()
{
    obs_video_info ovi;
    if (obs_get_video_info(&ovi) && ovi.base_width && ovi.base_height)
        CoopCanvas::instance().setCanvasSize(int(ovi.base_width), int(ovi.base_height));
}

int liveCoopSourceCount()
{
    return g_liveCoopSources.load();
}
