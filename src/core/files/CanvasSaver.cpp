#include "files/CanvasSaver.h"

#include "common/Log.h"
#include "engine/CanvasDocument.h"
#include "files/CanvasDirectory.h"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>

namespace {

std::atomic<quint64> g_nextSequence{1};

struct PendingSaves {
    std::mutex mutex;
    std::condition_variable idle;
    int count = 0;

    void add()
    {
        std::lock_guard<std::mutex> lock(mutex);
        ++count;
    }
    void done()
    {
        std::lock_guard<std::mutex> lock(mutex);
        if (--count == 0)
            idle.notify_all();
    }
};

PendingSaves &pendingSaves()
{
    static PendingSaves *pending = new PendingSaves; // outlives detached workers at exit
    return *pending;
}

} // namespace

CanvasSaveSnapshot takeCanvasSnapshot(const QString &directory, const CanvasDocument &document,
                                      const QImage &flattened)
{
    CanvasSaveSnapshot s;
    s.directory = directory;
    const QList<CanvasLayer> &layers = document.layers();
    s.layerImages.reserve(layers.size());
    s.layerNames.reserve(layers.size());
    s.layerVisible.reserve(layers.size());
    s.layerOpacity.reserve(layers.size());
    for (const CanvasLayer &layer : layers) {
        s.layerImages.append(layer.image);
        s.layerNames.append(layer.name);
        s.layerVisible.append(layer.visible);
        s.layerOpacity.append(layer.opacity);
    }
    s.activeLayer = document.activeLayer();
    s.flattened = flattened;
    s.sequence = g_nextSequence.fetch_add(1);
    return s;
}

QString CanvasSaver::directory() const
{
    return m_key.isEmpty() ? QString() : canvasDirectory(m_key);
}

bool CanvasSaver::saveAsync(const CanvasDocument &document, const QImage &flattened,
                            Written written) const
{
    if (!isEnabled())
        return false;
    CanvasSaveSnapshot snapshot = takeCanvasSnapshot(directory(), document, flattened);
    PendingSaves &pending = pendingSaves();
    pending.add();
    auto work = [snapshot = std::move(snapshot), written = std::move(written), &pending]() {
        const bool ok = writeCanvasFiles(snapshot);
        if (written)
            written(ok);
        pending.done();
    };
    try {
        std::thread(work).detach();
    } catch (const std::system_error &e) {
        pdLog("[PD] Canvas save: cannot start a worker thread (%s); saving on this thread",
              e.what());
        work();
    }
    return true;
}

bool CanvasSaver::saveNow(const CanvasDocument &document, const QImage &flattened) const
{
    if (!isEnabled())
        return false;
    return writeCanvasFiles(takeCanvasSnapshot(directory(), document, flattened));
}

void CanvasSaver::waitForPendingSaves()
{
    PendingSaves &pending = pendingSaves();
    std::unique_lock<std::mutex> lock(pending.mutex);
    pending.idle.wait(lock, [&pending] { return pending.count == 0; });
}
