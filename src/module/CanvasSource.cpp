#include "CanvasSource.h"

#include "SourceRegistry.h"
#include "files/CanvasDirectory.h"
#include "files/CanvasFiles.h"

#include <obs.h>
#include <util/platform.h>

#include <QMutexLocker>
#include <QSettings>

#include <algorithm>

namespace {

QImage toRgba(const QImage &image)
{
    return image.format() == QImage::Format_RGBA8888
               ? image
               : image.convertToFormat(QImage::Format_RGBA8888);
}

} // namespace

CanvasSourceData::CanvasSourceData(obs_source_t *source)
    : m_source(source), m_rng(uint32_t(os_gettime_ns()))
{
    obs_video_info ovi;
    if (obs_get_video_info(&ovi) && ovi.base_width && ovi.base_height) {
        m_width = ovi.base_width;
        m_height = ovi.base_height;
    }
    m_canvasImage = QImage(int(m_width), int(m_height), QImage::Format_RGBA8888);
    m_canvasImage.fill(Qt::transparent);
    loadFlattenedImage();
    loadWiggleSettings();
    createTexture();
}

CanvasSourceData::~CanvasSourceData()
{
    if (m_texture) {
        obs_enter_graphics();
        gs_texture_destroy(m_texture);
        obs_leave_graphics();
    }
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
        m_canvasImage = loaded;
}

void CanvasSourceData::loadWiggleSettings()
{
    QSettings settings(QStringLiteral("PennoriaDraw"), QStringLiteral("Canvas"));
    m_jitterEnabled = settings.value(QStringLiteral("jitterEnabled"), false).toBool();
    m_jitterAmountPx =
        wiggleAmountPxFromSetting(settings.value(QStringLiteral("jitterAmount"), 50).toInt());
    const int fps =
        wiggleFramesPerSecondFromSetting(settings.value(QStringLiteral("jitterSpeed"), 20).toInt());
    m_jitterInterval = 1.0f / float(fps);
}

void CanvasSourceData::createTexture()
{
    obs_enter_graphics();
    m_texture = gs_texture_create(m_width, m_height, GS_RGBA, 1, nullptr, GS_DYNAMIC);
    if (m_texture)
        gs_texture_set_image(m_texture, m_canvasImage.constBits(),
                             uint32_t(m_canvasImage.bytesPerLine()), false);
    obs_leave_graphics();
}

QImage CanvasSourceData::canvasImage() const
{
    QMutexLocker lock(&m_mutex);
    return m_canvasImage;
}

QVector<Stroke> CanvasSourceData::strokes() const
{
    QMutexLocker lock(&m_mutex);
    return m_strokes;
}

void CanvasSourceData::setLiveImage(const QImage &image)
{
    const QImage converted = toRgba(image);
    QMutexLocker lock(&m_mutex);
    m_liveImage = converted;
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
    const QImage converted = toRgba(image);
    QMutexLocker lock(&m_mutex);
    if (&strokes != &m_strokes)
        m_strokes = strokes;
    m_canvasImage = converted;
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
    m_jitterElapsed += seconds;
    const bool step = m_jitterElapsed >= m_jitterInterval;
    if (step)
        m_jitterElapsed = 0.0f;
    if (!step && !m_livePending) {
        m_perf.countTick(t0, int64_t(os_gettime_ns()), false);
        return;
    }
    const QImage input = !m_liveImage.isNull() ? m_liveImage : m_canvasImage;
    if (input.isNull())
        return;
    m_livePending = false;
    const float amount = m_jitterAmountPx;
    lock.unlock();

    if (step || m_grid.isEmpty())
        makeWiggleGrid(m_grid, input.width(), input.height(), amount, m_rng);
    QImage warped = warpImage(input, m_grid);

    lock.relock();
    m_wiggledImage = std::move(warped);
    m_wiggleReady = true;
    m_perf.countTick(t0, int64_t(os_gettime_ns()), true);
}

void CanvasSourceData::upload(const QImage &image)
{
    const QImage converted = toRgba(image);
    if (converted.width() != int(m_width) || converted.height() != int(m_height))
        return;
    gs_texture_set_image(m_texture, converted.constBits(), uint32_t(converted.bytesPerLine()),
                         false);
    ++m_perf.uploads;
}

void CanvasSourceData::render(gs_effect_t *effect)
{
    const int64_t t0 = int64_t(os_gettime_ns());
    QMutexLocker lock(&m_mutex);
    if (m_renderSuppressed || !m_texture || !effect)
        return;
    if (!m_jitterEnabled) {
        if (m_livePending && !m_liveImage.isNull()) {
            upload(m_liveImage);
            m_livePending = false;
            m_canvasDirty = false;
        } else if (m_canvasDirty) {
            upload(m_canvasImage);
            m_canvasDirty = false;
        }
    } else if (m_wiggleReady) {
        upload(m_wiggledImage);
        m_canvasDirty = false;
        m_wiggleReady = false;
        m_livePending = false;
    } else if (m_canvasDirty) {
        upload(m_canvasImage);
        m_canvasDirty = false;
    }
    const bool wiggleOn = m_jitterEnabled;
    lock.unlock();

    gs_effect_set_texture(gs_effect_get_param_by_name(effect, "image"), m_texture);
    gs_draw_sprite(m_texture, 0, m_width, m_height);
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

namespace {

const char *canvasGetName(void *)
{
    return "Pennoria Canvas";
}

void *canvasCreate(obs_data_t *, obs_source_t *source)
{
    auto *data = new CanvasSourceData(source);
    SourceRegistry::instance().insert(source, data);
    return data;
}

void canvasDestroy(void *data)
{
    auto *record = static_cast<CanvasSourceData *>(data);
    if (!record)
        return;
    SourceRegistry::instance().erase(record->source());
    delete record;
}

uint32_t canvasWidth(void *data)
{
    return data ? static_cast<CanvasSourceData *>(data)->width() : 0;
}

uint32_t canvasHeight(void *data)
{
    return data ? static_cast<CanvasSourceData *>(data)->height() : 0;
}

void canvasTick(void *data, float seconds)
{
    if (data)
        static_cast<CanvasSourceData *>(data)->tick(seconds);
}

void canvasRender(void *data, gs_effect_t *effect)
{
    if (data)
        static_cast<CanvasSourceData *>(data)->render(effect);
}

obs_source_info makeInfo()
{
    obs_source_info info = {};
    info.id = "pennoria_canvas";
    info.type = OBS_SOURCE_TYPE_INPUT;
    info.output_flags = OBS_SOURCE_VIDEO;
    info.get_name = canvasGetName;
    info.create = canvasCreate;
    info.destroy = canvasDestroy;
    info.get_width = canvasWidth;
    info.get_height = canvasHeight;
    info.video_tick = canvasTick;
    info.video_render = canvasRender;
    return info;
}

} // namespace

const obs_source_info &canvasSourceInfo()
{
    static const obs_source_info info = makeInfo();
    return info;
}
