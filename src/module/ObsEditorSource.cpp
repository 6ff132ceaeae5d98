#include "ObsEditorSource.h"

#include "CanvasSource.h"
#include "FrontendApi.h"
#include "SceneCapture.h"
#include "SourceRegistry.h"
#include "files/CanvasFiles.h"

#include <obs.hpp>

#include <mutex>

namespace {

// The editor's view of a canvas source. It holds only a weak reference, so
// that deleting the source's last scene item in the host destroys the source
// (and so reaches the editor through "destroy"); every call takes a strong
// reference for its own duration and does nothing once the source is gone.
class ObsEditorSource final : public EditorSource {
public:
    ObsEditorSource(obs_source_t *source, const CanvasSourceData &record)
        : m_source(OBSGetWeakRef(source)), m_size(int(record.width()), int(record.height())),
          m_key(canvasKeyFor(obs_source_get_uuid(source), obs_source_get_name(source))),
          m_removeSignal(obs_source_get_signal_handler(source), "remove",
                         &ObsEditorSource::onRemoved, this),
          m_destroySignal(obs_source_get_signal_handler(source), "destroy",
                          &ObsEditorSource::onRemoved, this)
    {}

    // The signal members go first and wait for a callback running on another
    // thread; the handler outlives the source while they are connected.
    ~ObsEditorSource() override = default;

    QSize canvasSize() const override { return m_size; }
    QString canvasKey() const override { return m_key; }

    void commit(const QVector<Stroke> &strokes, const QImage &image) override
    {
        withRecord([&](CanvasSourceData &record) { record.commit(strokes, image); });
    }
    void setLiveImage(const QImage &image) override
    {
        withRecord([&](CanvasSourceData &record) { record.setLiveImage(image); });
    }
    void setJitterEnabled(bool on) override
    {
        withRecord([&](CanvasSourceData &record) { record.setJitterEnabled(on); });
    }
    void setJitterAmount(float px) override
    {
        withRecord([&](CanvasSourceData &record) { record.setJitterAmount(px); });
    }
    void setJitterInterval(float seconds) override
    {
        withRecord([&](CanvasSourceData &record) { record.setJitterInterval(seconds); });
    }

    QImage captureScene() override
    {
        QImage image;
        withRecord([&](CanvasSourceData &record) {
            image = ::captureScene(record, FrontendApi::instance());
        });
        return image;
    }

    void setRemovedCallback(std::function<void()> callback) override
    {
        std::lock_guard<std::mutex> lock(m_callbackMutex);
        m_removed = std::move(callback);
    }

private:
    template <typename Use> void withRecord(Use use)
    {
        OBSSourceAutoRelease source = obs_weak_source_get_source(m_source);
        if (CanvasSourceData *record = source ? SourceRegistry::instance().find(source) : nullptr)
            use(*record);
    }

    static void onRemoved(void *data, calldata_t *)
    {
        auto *self = static_cast<ObsEditorSource *>(data);
        if (!self)
            return;
        std::lock_guard<std::mutex> lock(self->m_callbackMutex);
        if (self->m_removed)
            self->m_removed();
    }

    const OBSWeakSource m_source;
    const QSize m_size;
    const QString m_key;
    std::mutex m_callbackMutex;
    std::function<void()> m_removed;
    OBSSignal m_removeSignal;
    OBSSignal m_destroySignal;
};

} // namespace

std::unique_ptr<EditorSource> makeEditorSource(obs_source_t *source)
{
    CanvasSourceData *record = source ? SourceRegistry::instance().find(source) : nullptr;
    if (!record)
        return nullptr;
    return std::make_unique<ObsEditorSource>(source, *record);
}
