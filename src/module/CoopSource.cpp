#include "CoopSource.h"

#include "SourceType.h"
#include "common/SourceIds.h"
#include "coop/CoopCanvas.h"
#include "coop/CoopSession.h"

#include <obs.h>
#include <util/platform.h>

#include <QMetaObject>

namespace {

std::atomic<int> g_liveCoopSources{0};
std::atomic<bool> g_resizeQueued{false};

// Called every frame on the graphics thread: when the host's video size no
// longer matches the shared picture, the picture is resized once on the
// main thread, and every co-op source follows it at its next render.
void followVideoSize()
{
    obs_video_info ovi;
    if (!obs_get_video_info(&ovi) || !ovi.base_width || !ovi.base_height)
        return;
    CoopCanvas &canvas = CoopCanvas::instance();
    if (int(ovi.base_width) == canvas.width() && int(ovi.base_height) == canvas.height())
        return;
    if (g_resizeQueued.exchange(true))
        return;
    QMetaObject::invokeMethod(
        &canvas,
        [] {
            g_resizeQueued = false;
            syncCoopCanvasSize();
        },
        Qt::QueuedConnection);
}

} // namespace

CoopSourceData::CoopSourceData(obs_source_t *source_)
    : source(source_),
      hotkeys(source_, {{"pennoria_draw.open_coop_editor", obs_module_text("Hotkey.OpenCoopEditor"),
                         SourceAction::OpenEditor}})
{
    ++g_liveCoopSources;
    syncCoopCanvasSize();
    CoopCanvas &canvas = CoopCanvas::instance();
    shownWidth = uint32_t(canvas.width());
    shownHeight = uint32_t(canvas.height());
    texture.create(width(), height(), canvas.image());
    lastUploadedVersion = canvas.version();
}

CoopSourceData::~CoopSourceData()
{
    if (g_liveCoopSources.fetch_sub(1) != 1)
        return;
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

void CoopSourceData::resize(uint32_t w, uint32_t h)
{
    if (!texture.create(w, h))
        return;
    shownWidth = w;
    shownHeight = h;
    lastUploadedVersion = 0; // the new texture waits for its picture
}

void CoopSourceData::show(const QImage &picture)
{
    if (picture.isNull())
        return;
    if (uint32_t(picture.width()) != texture.width() ||
        uint32_t(picture.height()) != texture.height())
        resize(uint32_t(picture.width()), uint32_t(picture.height()));
    if (texture.upload(picture))
        ++perf.uploads;
}

void CoopSourceData::tick(float seconds)
{
    followVideoSize();
    const CoopCanvas &canvas = CoopCanvas::instance();
    if (uint32_t(canvas.width()) != texture.width() ||
        uint32_t(canvas.height()) != texture.height())
        resize(uint32_t(canvas.width()), uint32_t(canvas.height()));
    if (!canvas.jitterEnabled())
        return;
    const int64_t t0 = int64_t(os_gettime_ns());
    const bool due = wiggle.advance(seconds, canvas.jitterInterval());
    const uint64_t version = canvas.version();
    // The first field waits for a due frame or a new picture.
    const bool rolled =
        (due || version != lastWiggledVersion) &&
        wiggle.roll(int(texture.width()), int(texture.height()), canvas.jitterAmountPx(), due);
    lastWiggledVersion = version;
    perf.countTick(t0, int64_t(os_gettime_ns()), rolled);
}

void CoopSourceData::render()
{
    if (texture.isNull())
        return;
    const int64_t t0 = int64_t(os_gettime_ns());
    const CoopCanvas &canvas = CoopCanvas::instance();
    const bool wiggleOn = canvas.jitterEnabled();
    // Each new picture is uploaded once; the wiggle displaces it on the GPU.
    const uint64_t version = canvas.version();
    if (version != lastUploadedVersion) {
        show(canvas.image());
        lastUploadedVersion = version;
    }
    if (const WiggleGrid *grid = wiggleOn ? wiggle.takeNewGrid() : nullptr)
        texture.setWiggleGrid(*grid);
    texture.draw(wiggleOn);
    perf.countRender(t0, int64_t(os_gettime_ns()), source, "CO-OP ", wiggleOn);
}

const obs_source_info &coopSourceInfo()
{
    static const obs_source_info info = videoSourceInfo<CoopSourceData>(
        CoopSourceId, [](void *) { return obs_module_text("Source.CoopCanvas"); });
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
