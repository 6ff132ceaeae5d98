#pragma once

#include "PerfWindow.h"
#include "SourceHotkeys.h"
#include "SourceTexture.h"
#include "SourceWiggle.h"
#include "engine/Stroke.h"

#include <QImage>
#include <QMutex>
#include <QVector>

#include <cstdint>

struct obs_source_info;

// The record behind one "pennoria_canvas" source: the flattened drawing, the
// live image pushed while drawing, the wiggle state and one GPU texture of
// the output size. It enters itself in the SourceRegistry for its life. The
// editor calls the public operations on the UI thread; the host calls tick
// and render on its graphics thread.
class CanvasSourceData {
public:
    explicit CanvasSourceData(obs_source_t *source);
    ~CanvasSourceData();
    CanvasSourceData(const CanvasSourceData &) = delete;
    CanvasSourceData &operator=(const CanvasSourceData &) = delete;

    obs_source_t *source() const { return m_source; }
    uint32_t width() const { return m_width; }
    uint32_t height() const { return m_height; }

    QVector<Stroke> strokes() const;
    // Both take the editor's premultiplied image as it is (a shallow copy);
    // an image in another format is converted here, once.
    void setLiveImage(const QImage &image);
    void commit(const QVector<Stroke> &strokes, const QImage &image);
    void setJitterEnabled(bool on);
    void setJitterAmount(float px);
    void setJitterInterval(float seconds);

    bool jitterEnabled() const;
    float jitterAmount() const;
    float jitterInterval() const;
    void setRenderSuppressed(bool suppressed);

    void tick(float seconds);
    void render();

    // The canvas file this source shows, "" when the source has no key.
    QString flattenedImagePath() const;

    // How many live images and commits the editor has handed over so far.
    int liveImageCount() const;
    int commitCount() const;

    // For the performance summary: counters of the current window.
    PerfWindow perfSnapshot() const;
    void setPerfWindowStart(int64_t ns);

private:
    void loadFlattenedImage();
    // Under the lock: the picture that is new since the last upload, or a
    // null image.
    QImage takeDueImage();

    obs_source_t *m_source;
    uint32_t m_width = 1920;
    uint32_t m_height = 1080;
    SourceTexture m_texture{PixelAlpha::Premultiplied};

    mutable QMutex m_mutex;
    QVector<Stroke> m_strokes;
    QImage m_canvasImage;
    QImage m_liveImage;
    bool m_canvasDirty = false;
    bool m_livePending = false;
    bool m_jitterEnabled = false;
    float m_jitterAmountPx = 2.5f;
    float m_jitterInterval = 1.0f / 6.0f;
    bool m_renderSuppressed = false;
    int m_liveImageCount = 0;
    int m_commitCount = 0;

    // Touched only on the graphics thread.
    SourceWiggle m_wiggle;
    PerfWindow m_perf;

    SourceHotkeys m_hotkeys;
};

const obs_source_info &canvasSourceInfo();
