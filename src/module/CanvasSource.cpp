#include "CanvasSource.h"

#include "SourceRegistry.h"
#include "SourceType.h"
#include "common/SourceIds.h"
#include "files/CanvasDirectory.h"
#include "files/CanvasFiles.h"
#include "settings/EditorSettings.h"

#include <obs.h>
#include <util/platform.h>

#include <QMutexLocker>

#include <algorithm>
#include <utility>

namespace {

// The engine's own format, so the editor's images pass untouched.
constexpr QImage::Format Shown = QImage::Format_ARGB32_Premultiplied;

QImage toShown(const QImage &image)
{
    return image.format() == Shown ? image : image.convertToFormat(Shown);
}

} // namespace

CanvasSourceData::CanvasSourceData(obs_source_t *source)
    : m_source(source),
      m_hotkeys(source,
                {{"pennoria_draw.open_editor", obs_module_text("Hotkey.OpenEditor"),
                  SourceAction::OpenEditor},
                 {"pennoria_draw.clear_layer", obs_module_text("Hotkey.ClearLayer"),
                  SourceAction::ClearLayer},
                 {"pennoria_draw.undo", obs_module_text("Hotkey.Undo"), SourceAction::Undo},
                 {"pennoria_draw.redo", obs_module_text("Hotkey.Redo"), SourceAction::Redo}})
{
    obs_video_info ovi;
    if (obs_get_video_info(&ovi) && ovi.base_width && ovi.base_height) {
        m_width = ovi.base_width;
        m_height = ovi.base_height;
    }
    m_canvasImage = QImage(int(m_width), int(m_height), Shown);
    m_canvasImage.fill(Qt::transparent);
    loadFlattenedImage();
    const WiggleSettings wiggle = loadWiggleSettings();
    m_jitterEnabled = wiggle.enabled;
    m_jitterAmountPx = wiggle.amountPx();
    m_jitterInterval = wiggle.intervalSeconds();
    m_texture.create(m_width, m_height, m_canvasImage);
    if (m_source)
        SourceRegistry::instance().insert(m_source, this);
}

CanvasSourceData::~CanvasSourceData()
{
    if (m_source)
        SourceRegistry::instance().erase(m_source);
}

QString CanvasSourceData::flattenedImagePath() const
{
    const char *uuid = m_source ? obs_source_get_uuid(m_source) : nullptr;
    const QString dir = canvasDirectory(uuid ? QString::fromUtf8(uuid) : QString());
    return dir.isEmpty() ? QString() : dir + QStringLiteral("/canvas.png");
}

void CanvasSourceData::loadFlattenedImage()
{
    const QImage loaded = loadCanvasImage(flattenedImagePath(), QSize(int(m_width), int(m_height)));
    if (!loaded.isNull())
        m_canvasImage = toShown(loaded);
}

QVector<Stroke> CanvasSourceData::strokes() const
{
    QMutexLocker lock(&m_mutex);
    return m_strokes;
}

void CanvasSourceData::setLiveImage(const QImage &image)
{
    const QImage shown = toShown(image);
    QMutexLocker lock(&m_mutex);
    m_liveImage = shown;
    m_livePending = true;
    ++m_liveImageCount;
}

int CanvasSourceData::liveImageCount() const
{
    QMutexLocker lock(&m_mutex);
    return m_liveImageCount;
}

int CanvasSourceData::commitCount() const
{
    QMutexLocker lock(&m_mutex);
    return m_commitCount;
}

void CanvasSourceData::commit(const QVector<Stroke> &strokes, const QImage &image)
{
    const QImage shown = toShown(image);
    QMutexLocker lock(&m_mutex);
    if (&strokes != &m_strokes)
        m_strokes = strokes;
    m_canvasImage = shown;
    m_liveImage = QImage();
    m_canvasDirty = true;
    m_livePending = false;
    ++m_commitCount;
}

void CanvasSourceData::setJitterEnabled(bool on)
{
    QMutexLocker lock(&m_mutex);
    m_jitterEnabled = on;
    if (!on)
        m_canvasDirty = true;
}

void CanvasSourceData::setJitterAmount(float px)
{
    QMutexLocker lock(&m_mutex);
    m_jitterAmountPx = px;
}

void CanvasSourceData::setJitterInterval(float seconds)
{
    QMutexLocker lock(&m_mutex);
    m_jitterInterval = std::max(seconds, 0.01f);
}

bool CanvasSourceData::jitterEnabled() const
{
    QMutexLocker lock(&m_mutex);
    return m_jitterEnabled;
}

float CanvasSourceData::jitterAmount() const
{
    QMutexLocker lock(&m_mutex);
    return m_jitterAmountPx;
}

float CanvasSourceData::jitterInterval() const
{
    QMutexLocker lock(&m_mutex);
    return m_jitterInterval;
}

void CanvasSourceData::setRenderSuppressed(bool suppressed)
{
    QMutexLocker lock(&m_mutex);
    m_renderSuppressed = suppressed;
}

void CanvasSourceData::tick(float seconds)
{
    const int64_t t0 = int64_t(os_gettime_ns());
    QMutexLocker lock(&m_mutex);
    if (!m_jitterEnabled)
        return;
    const bool due = m_wiggle.advance(seconds, m_jitterInterval);
    // The first field waits for a due frame or a new picture.
    const bool rolled =
        (due || m_livePending) && m_wiggle.roll(int(m_width), int(m_height), m_jitterAmountPx, due);
    lock.unlock();
    m_perf.countTick(t0, int64_t(os_gettime_ns()), rolled);
}

QImage CanvasSourceData::takeDueImage()
{
    if (m_livePending && !m_liveImage.isNull()) {
        m_livePending = false;
        m_canvasDirty = false;
        // Let go once uploaded: an editor image still shared here would be
        // copied before the editor changes it again.
        return std::exchange(m_liveImage, QImage());
    }
    if (!m_canvasDirty)
        return QImage();
    m_canvasDirty = false;
    return m_canvasImage;
}

void CanvasSourceData::render()
{
    const int64_t t0 = int64_t(os_gettime_ns());
    QMutexLocker lock(&m_mutex);
    if (m_renderSuppressed || m_texture.isNull())
        return;
    // Each new picture is uploaded once; the wiggle displaces it on the GPU.
    if (m_texture.upload(takeDueImage()))
        ++m_perf.uploads;
    const bool wiggleOn = m_jitterEnabled;
    lock.unlock();

    if (const WiggleGrid *grid = wiggleOn ? m_wiggle.takeNewGrid() : nullptr)
        m_texture.setWiggleGrid(*grid);
    m_texture.draw(wiggleOn);
    m_perf.countRender(t0, int64_t(os_gettime_ns()), m_source, "", wiggleOn);
}

PerfWindow CanvasSourceData::perfSnapshot() const
{
    return m_perf;
}

void CanvasSourceData::setPerfWindowStart(int64_t ns)
{
    m_perf.windowStart = ns;
}

const obs_source_info &canvasSourceInfo()
{
    static const obs_source_info info = videoSourceInfo<CanvasSourceData>(
        CanvasSourceId, [](void *) { return obs_module_text("Source.Canvas"); });
    return info;
}
