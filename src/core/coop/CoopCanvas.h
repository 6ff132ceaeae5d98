#pragma once

#include "engine/Stroke.h"

#include <QImage>
#include <QMutex>
#include <QObject>
#include <QRect>
#include <QString>
#include <QThreadPool>

#include <atomic>
#include <cstdint>
#include <functional>
#include <vector>

// The shared co-op picture: every participant's strokes land here. Painting
// runs on the canvas's own worker thread, in the order the changes were asked
// for; image() is the newest finished picture, shared implicitly, and
// version() counts the changes it holds. The co-op sources poll version() and
// read image() from the graphics thread; changed() and pictureChanged() reach
// the main thread after each finished batch.
class CoopCanvas : public QObject {
    Q_OBJECT

public:
    static constexpr int DefaultFillTolerance = 200;

    static CoopCanvas &instance();

    // Separate canvases are only useful to tests; the module uses instance().
    explicit CoopCanvas(QObject *parent = nullptr);
    ~CoopCanvas() override;

    QImage image() const;
    int width() const { return m_width.load(); }
    int height() const { return m_height.load(); }
    // The host's video size; the picture keeps its top-left when it changes.
    // Sizes that are not positive are ignored.
    void setCanvasSize(int width, int height);

    // Each returns the version() from which image() shows the change.
    uint64_t addLocalStroke(const Stroke &stroke, int tolerance);
    uint64_t clear();
    // Clears and tells the session, unless the session does not let this
    // user clear (a guest whose host keeps that to itself): then false.
    bool clearLocal();
    // Hands done, on context's thread, the picture holding every change asked
    // for before this call. For the welcome of a newcomer.
    void snapshot(QObject *context, std::function<void(const QImage &)> done);

    uint64_t version() const { return m_version.load(); }
    int fillTolerance() const { return m_fillTolerance; }

    bool jitterEnabled() const { return m_jitterEnabled.load(); }
    float jitterAmountPx() const { return m_jitterAmountPx.load(); }
    float jitterInterval() const { return m_jitterInterval.load(); }
    void setJitterEnabled(bool on) { m_jitterEnabled.store(on); }
    void setJitterAmountPx(float px) { m_jitterAmountPx.store(px); }
    void setJitterInterval(float seconds);

signals:
    void changed();
    // The part of the picture that changed since the last emission.
    void pictureChanged(const QRect &bounds);

public slots:
    // These return the version from which image() shows the change, too.
    uint64_t onRemoteStroke(const Stroke &stroke, const QString &fromNick);
    uint64_t onRemoteClear();
    uint64_t onCanvasStateReceived(const QImage &received);
    uint64_t onSessionEnded();

private:
    struct Job {
        enum class Kind { Paint, Clear, Adopt, Resize, Snapshot };
        Kind kind = Kind::Paint;
        Stroke stroke;
        int tolerance = DefaultFillTolerance;
        QImage image;
        QSize size;
        std::function<void(const QImage &)> snapshotDone;
    };

    uint64_t post(Job job);
    void drain();
    QRect apply(Job &job);
    void publish(const QRect &dirty, uint64_t version);
    void notifyMainThread();

    // Worker side: m_work is touched only by the worker.
    QImage m_work;
    // Shared with readers: the newest finished picture.
    mutable QMutex m_pictureMutex;
    QImage m_front;
    QRect m_unannounced;
    bool m_notifyQueued = false;
    // Queue of changes not yet painted.
    QMutex m_jobMutex;
    std::vector<Job> m_jobs;
    bool m_drainQueued = false;
    uint64_t m_posted = 1;

    std::atomic<int> m_width{1920};
    std::atomic<int> m_height{1080};
    std::atomic<uint64_t> m_version{1};
    const int m_fillTolerance = DefaultFillTolerance;
    std::atomic<bool> m_jitterEnabled{false};
    std::atomic<float> m_jitterAmountPx{2.5f};
    std::atomic<float> m_jitterInterval{1.0f / 6.0f};
    // Last: its threads touch the members above until it is destroyed.
    QThreadPool m_painter;
};
