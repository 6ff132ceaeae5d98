#include "ObsEditorSource.h"

#include "CanvasSource.h"
#include "FrontendApi.h"
#include "SceneCapture.h"
#include "SourceRegistry.h"
#include "files/CanvasFiles.h"

#include <obs.h>

#include <mutex>

namespace {

const char *const RemovalSignals[] = {"remove", "destroy"};

// Holds a strong reference to a canvas source and its signal connections for
// as long as it lives.
class ObsEditorSource final : public EditorSource {
public:
    // Takes over the strong reference `source`.
    ObsEditorSource(obs_source_t *source, CanvasSourceData *record)
        : m_source(source), m_record(record)
    {
        signal_handler_t *handler = obs_source_get_signal_handler(m_source);
        for (const char *signal : RemovalSignals)
            signal_handler_connect(handler, signal, &ObsEditorSource::onRemoved, this);
    }

    ~ObsEditorSource() override
    {
        // Disconnecting waits for a callback that is running on another thread.
        signal_handler_t *handler = obs_source_get_signal_handler(m_source);
        for (const char *signal : RemovalSignals)
            signal_handler_disconnect(handler, signal, &ObsEditorSource::onRemoved, this);
        obs_source_release(m_source);
    }

    ObsEditorSource(const ObsEditorSource &) = delete;
    ObsEditorSource &operator=(const ObsEditorSource &) = delete;

    QSize canvasSize() const override
    {
        return QSize(int(m_record->width()), int(m_record->height()));
    }

    QString canvasKey() const override
    {
        return canvasKeyFor(obs_source_get_uuid(m_source), obs_source_get_name(m_source));
    }

    void commit(const QVector<Stroke> &strokes, const QImage &image) override
    {
        m_record->commit(strokes, image);
    }
    void setLiveImage(const QImage &image) override { m_record->setLiveImage(image); }
    void setJitterEnabled(bool on) override { m_record->setJitterEnabled(on); }
    void setJitterAmount(float px) override { m_record->setJitterAmount(px); }
    void setJitterInterval(float seconds) override { m_record->setJitterInterval(seconds); }

    QImage captureScene() override { return ::captureScene(*m_record, FrontendApi::instance()); }

    void setRemovedCallback(std::function<void()> callback) override
    {
        std::lock_guard<std::mutex> lock(m_callbackMutex);
        m_removed = std::move(callback);
    }

private:
    static void onRemoved(void *data, calldata_t *)
    {
        auto *self = static_cast<ObsEditorSource *>(data);
        if (!self)
            return;
        std::lock_guard<std::mutex> lock(self->m_callbackMutex);
        if (self->m_removed)
            self->m_removed();
    }

    obs_source_t *m_source;
    CanvasSourceData *m_record;
    std::mutex m_callbackMutex;
    std::function<void()> m_removed;
};

} // namespace

std::unique_ptr<EditorSource> makeEditorSource(obs_source_t *source)
{
    if (!source)
        return nullptr;
    CanvasSourceData *record = SourceRegistry::instance().find(source);
    if (!record)
        return nullptr;
    obs_source_t *ref = obs_source_get_ref(source);
    if (!ref)
        return nullptr;
    return std::make_unique<ObsEditorSource>(ref, record);
}
