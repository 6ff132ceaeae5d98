#include "coop/CoopCanvas.h"

#include "common/Log.h"
#include "coop/CoopSession.h"
#include "engine/StrokePainter.h"

#include <QMutexLocker>
#include <QPainter>
#include <QPointer>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

QImage transparentImage(int width, int height)
{
    QImage image(width, height, QImage::Format_RGBA8888);
    image.fill(Qt::transparent);
    return image;
}

// A width x height picture with source at (0, 0): cropped where larger,
// transparent where smaller, never scaled.
QImage fitTopLeft(const QImage &source, int width, int height)
{
    if (source.size() == QSize(width, height))
        return source;
    QImage out = transparentImage(width, height);
    QPainter painter(&out);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    painter.drawImage(0, 0, source);
    return out;
}

// Where a brush stroke can have painted: its points' box grown by half the
// width and a pixel of antialiasing. Fills reach anywhere.
QRect strokeBounds(const Stroke &stroke, const QRect &picture)
{
    if (stroke.points.isEmpty())
        return {};
    if (stroke.fill)
        return picture;
    const int count =
        stroke.shape ? std::min<int>(2, int(stroke.points.size())) : int(stroke.points.size());
    double left = stroke.points[0].x(), right = left;
    double top = stroke.points[0].y(), bottom = top;
    for (int i = 1; i < count; ++i) {
        left = std::min(left, stroke.points[i].x());
        right = std::max(right, stroke.points[i].x());
        top = std::min(top, stroke.points[i].y());
        bottom = std::max(bottom, stroke.points[i].y());
    }
    const double margin = std::max(double(stroke.width), 1.0) / 2.0 + 2.0;
    const QRectF box(QPointF(left - margin, top - margin),
                     QPointF(right + margin, bottom + margin));
    if (!std::isfinite(box.width()) || !std::isfinite(box.height()))
        return picture;
    return box.toAlignedRect().intersected(picture);
}

} // namespace

CoopCanvas &CoopCanvas::instance()
{
    static CoopCanvas *canvas = [] {
        CoopSession &session = CoopSession::instance();
        auto *created = new CoopCanvas;
        // The slots run on the session's thread whoever asked first.
        if (created->thread() != session.thread())
            created->moveToThread(session.thread());
        connect(&session, &CoopSession::strokeReceived, created, &CoopCanvas::onRemoteStroke);
        connect(&session, &CoopSession::clearReceived, created, &CoopCanvas::onRemoteClear);
        connect(&session, &CoopSession::canvasStateReceived, created,
                &CoopCanvas::onCanvasStateReceived);
        connect(&session, &CoopSession::sessionEnded, created, &CoopCanvas::onSessionEnded);
        session.setCanvasSnapshot(
            [created](QObject *context, std::function<void(const QImage &)> done) {
                created->snapshot(context, std::move(done));
            });
        return created;
    }();
    return *canvas;
}

CoopCanvas::CoopCanvas(QObject *parent) : QObject(parent)
{
    m_work = transparentImage(width(), height());
    m_front = transparentImage(width(), height());
    m_painter.setMaxThreadCount(1);
}

CoopCanvas::~CoopCanvas()
{
    m_painter.waitForDone();
}

QImage CoopCanvas::image() const
{
    QMutexLocker lock(&m_pictureMutex);
    return m_front;
}

void CoopCanvas::setCanvasSize(int width, int height)
{
    if (width <= 0 || height <= 0)
        return;
    if (width == m_width.load() && height == m_height.load())
        return;
    m_width.store(width);
    m_height.store(height);
    Job job;
    job.kind = Job::Kind::Resize;
    job.size = QSize(width, height);
    post(std::move(job));
}

void CoopCanvas::setJitterInterval(float seconds)
{
    m_jitterInterval.store(std::max(seconds, 0.01f));
}

uint64_t CoopCanvas::addLocalStroke(const Stroke &stroke, int tolerance)
{
    Job job;
    job.stroke = stroke;
    job.tolerance = tolerance;
    const uint64_t version = post(std::move(job));
    CoopSession::instance().sendStroke(stroke);
    return version;
}

uint64_t CoopCanvas::clear()
{
    Job job;
    job.kind = Job::Kind::Clear;
    job.size = QSize(width(), height());
    return post(std::move(job));
}

bool CoopCanvas::clearLocal()
{
    CoopSession &session = CoopSession::instance();
    if (!session.mayClear())
        return false;
    clear();
    session.sendClear();
    return true;
}

void CoopCanvas::snapshot(QObject *context, std::function<void(const QImage &)> done)
{
    const QPointer<QObject> guard(context);
    Job job;
    job.kind = Job::Kind::Snapshot;
    // Back through this object, which outlives its painting thread; the
    // context is checked on its own thread.
    job.snapshotDone = [this, guard, done](const QImage &picture) {
        QMetaObject::invokeMethod(
            this,
            [guard, done, picture] {
                if (guard)
                    done(picture);
            },
            Qt::QueuedConnection);
    };
    post(std::move(job));
}

uint64_t CoopCanvas::onRemoteStroke(const Stroke &stroke, const QString &fromNick)
{
    Q_UNUSED(fromNick);
    Job job;
    job.stroke = stroke;
    job.tolerance = m_fillTolerance;
    return post(std::move(job));
}

uint64_t CoopCanvas::onRemoteClear()
{
    return clear();
}

uint64_t CoopCanvas::onSessionEnded()
{
    return clear();
}

uint64_t CoopCanvas::onCanvasStateReceived(const QImage &received)
{
    Job job;
    job.kind = Job::Kind::Adopt;
    job.image = received;
    job.size = QSize(width(), height());
    pdLog("[PD-Coop] adopted host canvas state (%dx%d)", received.width(), received.height());
    return post(std::move(job));
}

// ---- the painting thread ---------------------------------------------------

uint64_t CoopCanvas::post(Job job)
{
    QMutexLocker lock(&m_jobMutex);
    const bool change = job.kind != Job::Kind::Snapshot;
    m_jobs.push_back(std::move(job));
    if (change)
        ++m_posted;
    if (!m_drainQueued) {
        m_drainQueued = true;
        m_painter.start([this] { drain(); });
    }
    return m_posted;
}

void CoopCanvas::drain()
{
    for (;;) {
        std::vector<Job> jobs;
        {
            QMutexLocker lock(&m_jobMutex);
            if (m_jobs.empty()) {
                m_drainQueued = false;
                return;
            }
            jobs.swap(m_jobs);
        }
        QRect dirty;
        uint64_t applied = 0;
        for (Job &job : jobs) {
            if (job.kind == Job::Kind::Snapshot) {
                job.snapshotDone(m_work);
                continue;
            }
            dirty |= apply(job);
            ++applied;
        }
        if (applied > 0)
            publish(dirty, applied);
    }
}

QRect CoopCanvas::apply(Job &job)
{
    const QRect whole(0, 0, job.size.width(), job.size.height());
    switch (job.kind) {
    case Job::Kind::Paint: {
        Stroke &stroke = job.stroke;
        // A shape that never got its second point is painted as a brush dot.
        if (stroke.shape && stroke.points.size() < 2)
            stroke.shape = false;
        paintStroke(m_work, stroke, job.tolerance);
        return strokeBounds(stroke, m_work.rect());
    }
    case Job::Kind::Clear:
        if (m_work.size() != job.size || m_work.format() != QImage::Format_RGBA8888)
            m_work = QImage(job.size, QImage::Format_RGBA8888);
        m_work.fill(Qt::transparent);
        return whole;
    case Job::Kind::Adopt:
        m_work = fitTopLeft(job.image.convertToFormat(QImage::Format_RGBA8888), job.size.width(),
                            job.size.height());
        return whole;
    case Job::Kind::Resize:
        m_work = fitTopLeft(m_work, job.size.width(), job.size.height());
        return whole;
    case Job::Kind::Snapshot:
        break;
    }
    return {};
}

// Readers hold implicitly shared copies of the front picture. When none does,
// only the changed rows are copied into it; otherwise it is replaced by a
// fresh copy, leaving the readers' pictures as they were.
void CoopCanvas::publish(const QRect &dirty, uint64_t applied)
{
    const QRect area = dirty.intersected(m_work.rect());
    const bool small =
        qint64(area.width()) * area.height() * 4 < qint64(m_work.width()) * m_work.height();
    bool done = false;
    if (small) {
        QMutexLocker lock(&m_pictureMutex);
        if (m_front.isDetached() && m_front.size() == m_work.size() &&
            m_front.format() == m_work.format()) {
            const qsizetype rowBytes = qsizetype(area.width()) * 4;
            uchar *front = m_front.bits(); // also gives it a new cache key
            for (int y = area.top(); y <= area.bottom(); ++y)
                std::memcpy(front + qsizetype(y) * m_front.bytesPerLine() + area.left() * 4,
                            m_work.constScanLine(y) + area.left() * 4, size_t(rowBytes));
            done = true;
        }
    }
    QImage fresh = done ? QImage() : m_work.copy();
    {
        QMutexLocker lock(&m_pictureMutex);
        if (!done)
            std::swap(m_front, fresh);
        m_version.fetch_add(applied);
        m_unannounced |= dirty;
        if (m_notifyQueued)
            return;
        m_notifyQueued = true;
    }
    QMetaObject::invokeMethod(this, &CoopCanvas::notifyMainThread, Qt::QueuedConnection);
}

void CoopCanvas::notifyMainThread()
{
    QRect bounds;
    {
        QMutexLocker lock(&m_pictureMutex);
        bounds = std::exchange(m_unannounced, QRect());
        m_notifyQueued = false;
    }
    emit pictureChanged(bounds);
    emit changed();
}
