#include "canvas/CanvasWidget.h"

#include "common/Log.h"

#include <QCoreApplication>
#include <QPointer>
#include <QThreadPool>

#include <chrono>

namespace {

// One set of counters for every editor in the process.
struct EditorJitterPerf {
    qint64 periodStartNs = 0;
    int ticks = 0;
    double totalMs = 0.0;
    double maxMs = 0.0;
};

EditorJitterPerf &jitterPerf()
{
    static EditorJitterPerf perf;
    return perf;
}

qint64 steadyNowNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

} // namespace

QSize CanvasWidget::wiggleDisplaySize() const
{
    return {std::max(1, int(canvasWidth() * m_fitScale)),
            std::max(1, int(canvasHeight() * m_fitScale))};
}

void CanvasWidget::makeWiggleFrame(bool newGrid)
{
    const QSize display = wiggleDisplaySize();
    const QImage source = shapeBeingDragged() ? m_doc->flatComposite() : displayComposite();
    if (newGrid)
        makeWiggleGrid(m_wiggleGrid, display.width(), display.height(), m_wiggleAmount * m_fitScale,
                       m_rng);
    m_wigglePoints = m_drawing ? int(m_current.points.size()) : 0;
    const auto frame = [source, display, grid = m_wiggleGrid] {
        return warpImage(source.scaled(display, Qt::IgnoreAspectRatio, Qt::FastTransformation),
                         grid);
    };
    if (m_wiggleImage.isNull()) {
        // The first frame shows at once; a stale worker frame is dropped.
        ++m_wiggleGeneration;
        m_wiggleImage = frame();
        update();
        return;
    }
    // A full-screen frame costs several milliseconds: it is made on a worker
    // while the current one stays up. A tick while one is being made is
    // skipped.
    if (m_wiggleBusy)
        return;
    m_wiggleBusy = true;
    QThreadPool::globalInstance()->start(
        [frame, generation = m_wiggleGeneration, guard = QPointer<CanvasWidget>(this)] {
            QImage warped = frame();
            QMetaObject::invokeMethod(
                QCoreApplication::instance(),
                [guard, generation, warped = std::move(warped)] {
                    if (!guard)
                        return;
                    guard->m_wiggleBusy = false;
                    if (generation != guard->m_wiggleGeneration || guard->m_wiggleImage.isNull() ||
                        warped.size() != guard->wiggleDisplaySize())
                        return;
                    guard->m_wiggleImage = warped;
                    guard->update();
                },
                Qt::QueuedConnection);
        });
}

void CanvasWidget::rewarpWiggle()
{
    if (m_wiggleEnabled && !m_wiggleGrid.isEmpty())
        makeWiggleFrame(false);
}

void CanvasWidget::regenerateWiggle()
{
    if (m_wiggleEnabled)
        makeWiggleFrame(true);
}

void CanvasWidget::onJitterTick()
{
    const qint64 start = steadyNowNs();
    makeWiggleFrame(true);

    EditorJitterPerf &perf = jitterPerf();
    const qint64 now = steadyNowNs();
    if (perf.periodStartNs == 0)
        perf.periodStartNs = start;
    const double ms = double(now - start) / 1e6;
    perf.ticks += 1;
    perf.totalMs += ms;
    perf.maxMs = std::max(perf.maxMs, ms);
    const double periodS = double(now - perf.periodStartNs) / 1e9;
    if (periodS >= 5.0) {
        const QSize display = wiggleDisplaySize();
        pdLog("[PD-Perf] editor-jitter %.1fs | %d ticks, %.1f ms total (avg %.2f ms, max %.2f "
              "ms) | disp %dx%d",
              periodS, perf.ticks, perf.totalMs, perf.ticks > 0 ? perf.totalMs / perf.ticks : 0.0,
              perf.maxMs, display.width(), display.height());
        perf = EditorJitterPerf{};
        perf.periodStartNs = now;
    }
}
