#pragma once

#include "engine/Stroke.h"

#include <QImage>
#include <QMutex>
#include <QObject>
#include <QString>

#include <atomic>
#include <cstdint>

// The shared co-op picture: every participant's strokes land here. The
// session's signals arrive on the main thread; the co-op sources poll
// version() and read image() from the graphics thread.
class CoopCanvas : public QObject {
    Q_OBJECT

public:
    static constexpr int DefaultFillTolerance = 200;

    static CoopCanvas &instance();

    // Separate canvases are only useful to tests; the module uses instance().
    explicit CoopCanvas(QObject *parent = nullptr);

    QImage image() const;
    int width() const;
    int height() const;
    // The host's video size; the picture keeps its top-left when it changes.
    // Sizes that are not positive are ignored.
    void setCanvasSize(int width, int height);

    void addLocalStroke(const Stroke &stroke, int tolerance);
    void clear();
    void clearLocal();
    void notifyChanged();

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

public slots:
    void onRemoteStroke(const Stroke &stroke, const QString &fromNick);
    void onRemoteClear();
    void onCanvasStateReceived(const QImage &received);
    void onSessionEnded();

private:
    void paint(const Stroke &stroke, int tolerance);

    mutable QMutex m_mutex;
    QImage m_image;
    int m_width = 1920;
    int m_height = 1080;
    std::atomic<uint64_t> m_version{1};
    const int m_fillTolerance = DefaultFillTolerance;
    std::atomic<bool> m_jitterEnabled{false};
    std::atomic<float> m_jitterAmountPx{2.5f};
    std::atomic<float> m_jitterInterval{1.0f / 6.0f};
};
