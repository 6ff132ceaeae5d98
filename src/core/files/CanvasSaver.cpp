#include "files/CanvasSaver.h"

#include "common/Log.h"
#include "engine/CanvasDocument.h"
#include "files/CanvasDirectory.h"

#include <QDir>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <system_error>
#include <thread>

namespace {

std::atomic<quint64> g_nextSequence{1};

// One writer thread at a time, started when work arrives and ended when the
// queue is empty, so no thread outlives the module once it is idle.
class BackgroundWriter {
public:
    void enqueue(CanvasSaveSnapshot snapshot)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        const QString dir = QDir::cleanPath(snapshot.directory);
        bool replaced = false;
        for (CanvasSaveSnapshot &waiting : m_queue) {
            if (QDir::cleanPath(waiting.directory) == dir) {
                waiting = std::move(snapshot);
                replaced = true;
                break;
            }
        }
        if (!replaced)
            m_queue.push_back(std::move(snapshot));
        if (m_running)
            return;
        m_running = true;
        try {
            std::thread([this] { drain(); }).detach();
        } catch (const std::system_error &e) {
            pdLog("[PD] Canvas save: cannot start the writer thread (%s); saving on this thread",
                  e.what());
            lock.unlock();
            drain();
        }
    }

    bool waitIdle(std::chrono::steady_clock::time_point deadline)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_idle.wait_until(lock, deadline, [this] { return !m_running; });
    }

private:
    void drain()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        while (!m_queue.empty()) {
            const CanvasSaveSnapshot snapshot = std::move(m_queue.front());
            m_queue.pop_front();
            lock.unlock();
            writeCanvasFiles(snapshot);
            lock.lock();
        }
        m_running = false;
        m_idle.notify_all();
    }

    std::mutex m_mutex;
    std::condition_variable m_idle;
    std::deque<CanvasSaveSnapshot> m_queue;
    bool m_running = false;
};

BackgroundWriter &writer()
{
    static auto *instance = new BackgroundWriter; // outlives a writer still running at exit
    return *instance;
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

bool CanvasSaver::saveAsync(const CanvasDocument &document, const QImage &flattened) const
{
    if (!isEnabled())
        return false;
    enqueue(takeCanvasSnapshot(directory(), document, flattened));
    return true;
}

void CanvasSaver::enqueue(CanvasSaveSnapshot snapshot)
{
    writer().enqueue(std::move(snapshot));
}

bool CanvasSaver::waitForPendingSaves(std::chrono::milliseconds timeout)
{
    if (writer().waitIdle(std::chrono::steady_clock::now() + timeout))
        return true;
    pdLog("[PD] Canvas save still running after %lld ms; not waiting any longer",
          static_cast<long long>(timeout.count()));
    return false;
}

void CanvasSaver::waitForPendingSaves()
{
    while (!writer().waitIdle(std::chrono::steady_clock::now() + std::chrono::hours(1))) {
    }
}
