#include "coop/CoopCanvas.h"

#include "common/Log.h"
#include "coop/CoopSession.h"
#include "engine/StrokePainter.h"

#include <QMutexLocker>
#include <QPainter>

#include <algorithm>

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

} // namespace

CoopCanvas &CoopCanvas::instance()
{
    static CoopCanvas *canvas = [] {
        CoopSession &session = CoopSession::instance();
        auto *created = new CoopCanvas;
        // The slots paint on the session's thread whoever asked first.
        if (created->thread() != session.thread())
            created->moveToThread(session.thread());
        connect(&session, &CoopSession::strokeReceived, created, &CoopCanvas::onRemoteStroke);
        connect(&session, &CoopSession::clearReceived, created, &CoopCanvas::onRemoteClear);
        connect(&session, &CoopSession::canvasStateReceived, created,
                &CoopCanvas::onCanvasStateReceived);
        connect(&session, &CoopSession::sessionEnded, created, &CoopCanvas::onSessionEnded);
        session.setCanvasProvider([created] { return created->image(); });
        return created;
    }();
    return *canvas;
}

CoopCanvas::CoopCanvas(QObject *parent) : QObject(parent)
{
    m_image = transparentImage(m_width, m_height);
}

QImage CoopCanvas::image() const
{
    QMutexLocker lock(&m_mutex);
    return m_image;
}

int CoopCanvas::width() const
{
    QMutexLocker lock(&m_mutex);
    return m_width;
}

int CoopCanvas::height() const
{
    QMutexLocker lock(&m_mutex);
    return m_height;
}

void CoopCanvas::setCanvasSize(int width, int height)
{
    if (width <= 0 || height <= 0)
        return;
    {
        QMutexLocker lock(&m_mutex);
        if (width == m_width && height == m_height)
            return;
        m_width = width;
        m_height = height;
        m_image = fitTopLeft(m_image, width, height);
    }
    notifyChanged();
}

void CoopCanvas::setJitterInterval(float seconds)
{
    m_jitterInterval.store(std::max(seconds, 0.01f));
}

void CoopCanvas::paint(const Stroke &stroke, int tolerance)
{
    if (stroke.shape && stroke.points.size() < 2) {
        // A shape that never got its second point is painted as a brush dot.
        Stroke dot = stroke;
        dot.shape = false;
        QMutexLocker lock(&m_mutex);
        paintStroke(m_image, dot, tolerance);
        return;
    }
    QMutexLocker lock(&m_mutex);
    paintStroke(m_image, stroke, tolerance);
}

void CoopCanvas::addLocalStroke(const Stroke &stroke, int tolerance)
{
    paint(stroke, tolerance);
    notifyChanged();
    CoopSession::instance().sendStroke(stroke);
}

void CoopCanvas::clear()
{
    QMutexLocker lock(&m_mutex);
    if (m_image.size() != QSize(m_width, m_height) || m_image.format() != QImage::Format_RGBA8888)
        m_image = QImage(m_width, m_height, QImage::Format_RGBA8888);
    m_image.fill(Qt::transparent);
}

void CoopCanvas::clearLocal()
{
    clear();
    notifyChanged();
    CoopSession::instance().sendClear();
}

void CoopCanvas::notifyChanged()
{
    ++m_version;
    emit changed();
}

void CoopCanvas::onRemoteStroke(const Stroke &stroke, const QString &fromNick)
{
    Q_UNUSED(fromNick);
    paint(stroke, m_fillTolerance);
    notifyChanged();
}

void CoopCanvas::onRemoteClear()
{
    clear();
    notifyChanged();
}

void CoopCanvas::onSessionEnded()
{
    onRemoteClear();
}

void CoopCanvas::onCanvasStateReceived(const QImage &received)
{
    const QImage converted = received.convertToFormat(QImage::Format_RGBA8888);
    {
        QMutexLocker lock(&m_mutex);
        m_image = fitTopLeft(converted, m_width, m_height);
    }
    notifyChanged();
    pdLog("[PD-Coop] adopted host canvas state (%dx%d)", received.width(), received.height());
}
