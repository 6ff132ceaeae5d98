#include "canvas/CanvasWidget.h"

#include "engine/FloodFill.h"
#include "engine/ShapePath.h"
#include "engine/StrokePainter.h"

#include <QMouseEvent>
#include <QPointingDevice>
#include <QTabletEvent>
#include <QWheelEvent>

#include <cmath>

QPointF CanvasWidget::mapToCanvas(const QPointF &widgetPos) const
{
    const double scale = double(m_zoom) * double(m_fitScale);
    return {(widgetPos.x() - m_base.x() - m_pan.x()) / scale,
            (widgetPos.y() - m_base.y() - m_pan.y()) / scale};
}

void CanvasWidget::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    const float cw = float(canvasWidth());
    const float ch = float(canvasHeight());
    m_fitScale = std::min(float(width()) / cw, float(height()) / ch);
    m_base = QPoint(int((float(width()) - m_fitScale * cw) * 0.5f),
                    int((float(height()) - m_fitScale * ch) * 0.5f));
    clampPan();
    dropWiggleFrame();
}

void CanvasWidget::clampPan()
{
    const float spanX = m_zoom * m_fitScale * canvasWidth() - m_fitScale * canvasWidth();
    const float spanY = m_zoom * m_fitScale * canvasHeight() - m_fitScale * canvasHeight();
    m_pan.setX(std::max(std::min(float(m_pan.x()), 0.0f), -spanX));
    m_pan.setY(std::max(std::min(float(m_pan.y()), 0.0f), -spanY));
}

void CanvasWidget::wheelEvent(QWheelEvent *event)
{
    event->accept();
    // One step per notch (120 eighths of a degree); touchpads send fractions
    // of a notch, which add up. Pixel deltas count alike when there is no angle.
    constexpr int Notch = 120;
    const int delta =
        event->angleDelta().y() != 0 ? event->angleDelta().y() : event->pixelDelta().y();
    m_wheelRemainder += delta;
    const int steps = m_wheelRemainder / Notch;
    m_wheelRemainder -= steps * Notch;
    float next = m_zoom;
    for (int i = 0; i < std::abs(steps); ++i)
        next = steps > 0 ? next * ZoomStep : next / ZoomStep;
    zoomAbout(event->position(), std::clamp(next, 1.0f, MaxZoom));
}

void CanvasWidget::zoomAbout(const QPointF &pos, float next)
{
    const float old = m_zoom;
    if (qFuzzyCompare(next, old))
        return;
    const double ratio = double(next) / double(old);
    m_pan.setX(pos.x() - (pos.x() - (m_base.x() + m_pan.x())) * ratio - m_base.x());
    m_pan.setY(pos.y() - (pos.y() - (m_base.y() + m_pan.y())) * ratio - m_base.y());
    m_zoom = next;
    clampPan();
    update();
}

void CanvasWidget::enterEvent(QEnterEvent *event)
{
    m_pointerInside = true;
    update(pointerArea());
    QWidget::enterEvent(event);
}

void CanvasWidget::leaveEvent(QEvent *event)
{
    m_pointerInside = false;
    update(pointerArea());
    QWidget::leaveEvent(event);
}

void CanvasWidget::mousePressEvent(QMouseEvent *event)
{
    if (event->button() == Qt::MiddleButton) {
        m_panning = true;
        m_panStartPos = event->position();
        m_panStartOffset = m_pan;
        setCursor(Qt::ClosedHandCursor);
        event->accept();
        return;
    }
    if (event->button() != Qt::LeftButton)
        return;
    const QPointF canvasPos = mapToCanvas(event->position());
    switch (Tool(m_tool)) {
    case Tool::FillBucket:
        pressFill(canvasPos);
        break;
    case Tool::Shapes:
        m_drawing = true;
        m_doc->captureSnapshot();
        m_shapeStart = m_shapeEnd = canvasPos;
        m_constrainShape = event->modifiers() & Qt::ShiftModifier;
        break;
    case Tool::Brush:
    case Tool::Eraser:
        pressStroke(canvasPos);
        break;
    }
}

void CanvasWidget::pressFill(const QPointF &canvasPos)
{
    const double tx = std::trunc(canvasPos.x());
    const double ty = std::trunc(canvasPos.y());
    if (!(tx >= 0 && ty >= 0 && tx < canvasWidth() && ty < canvasHeight()))
        return;
    const int x = int(tx);
    const int y = int(ty);
    m_doc->captureSnapshot();
    floodFill(m_doc->activeImage(), x, y, packRgba8888(m_brushColor), m_fillTolerance);
    m_doc->markPainted();

    Stroke stroke;
    stroke.points = {QPointF(x, y)};
    stroke.color = m_brushColor;
    stroke.width = 8.0f;
    stroke.fill = true;
    m_doc->appendStroke(stroke);
    rewarpWiggle();
    update();
    m_doc->commitSnapshot();
    emit strokeCommitted(stroke);
    emit coopStrokeSegment(stroke);
    emit strokesChanged();
}

void CanvasWidget::pressStroke(const QPointF &canvasPos)
{
    m_drawing = true;
    m_moved = false;
    m_doc->captureSnapshot();
    m_wigglePoints = 0;
    m_current.points.clear();
    m_current.color = m_brushColor;
    m_current.width = m_brushSize;
    m_current.eraser = m_tool == int(Tool::Eraser);
    m_current.fill = false;
    m_current.points.append(canvasPos);
    if (m_current.eraser) {
        const QRect dot = strokeBounds(m_current, m_doc->size());
        paintStroke(m_doc->activeImage(), m_current, m_fillTolerance);
        m_doc->markPainted(dot);
        update(widgetArea(dot));
        emit strokeUpdated();
    }
}

void CanvasWidget::mouseMoveEvent(QMouseEvent *event)
{
    const QRect pointerBefore = pointerArea();
    m_pointer = event->position();
    m_pointerInside = true;
    if (m_panning) {
        m_pan = m_panStartOffset + (event->position() - m_panStartPos);
        clampPan();
        update();
        return;
    }
    update(pointerBefore | pointerArea());
    if (m_drawing && m_tool == int(Tool::Shapes)) {
        const QRect before = shapeArea();
        m_shapeEnd = mapToCanvas(event->position());
        m_constrainShape = event->modifiers() & Qt::ShiftModifier;
        redrawLive(before | shapeArea());
        emit strokeUpdated();
        return;
    }
    if (m_tool == int(Tool::FillBucket) || !m_drawing || !(event->buttons() & Qt::LeftButton))
        return;
    moveStroke(mapToCanvas(event->position()));
}

void CanvasWidget::moveStroke(const QPointF &canvasPos)
{
    if (!m_current.points.isEmpty()) {
        const QPointF d = canvasPos - m_current.points.last();
        if (float(d.x() * d.x() + d.y() * d.y()) < MinSampleSpacingSquared)
            return;
    }
    m_current.points.append(canvasPos);
    const qsizetype n = m_current.points.size();
    if (m_current.eraser) {
        Stroke segment;
        segment.points = {n >= 2 ? m_current.points[n - 2] : canvasPos, canvasPos};
        segment.color = m_current.color;
        segment.width = m_current.width;
        segment.eraser = true;
        const QRect area = strokeBounds(segment, m_doc->size());
        paintStroke(m_doc->activeImage(), segment, m_fillTolerance);
        m_doc->markPainted(area);
        update(widgetArea(area));
        emit coopStrokeSegment(segment);
    } else {
        // Taken before the bake shortens the stroke: it covers the baked part.
        const QRect liveBounds = strokeBounds(m_current, m_doc->size());
        // A new point reshapes the smoothed path from its last three points on.
        Stroke reshaped = m_current;
        reshaped.points = m_current.points.mid(std::max<qsizetype>(0, n - 3));
        QRect changed = strokeBounds(reshaped, m_doc->size());
        if (bakeLiveStroke(m_doc->activeImage(), m_current, m_brushSize, m_doc->size())) {
            m_doc->markPainted(liveBounds);
            changed = liveBounds;
            rewarpWiggle();
        }
        redrawLive(changed);
        const qsizetype live = m_current.points.size();
        if (live >= 2) {
            Stroke segment;
            segment.points = {m_current.points[live - 2], m_current.points[live - 1]};
            segment.color = m_current.color;
            segment.width = m_current.width;
            emit coopStrokeSegment(segment);
        }
    }
    m_moved = true;
    emit strokeUpdated();
}

void CanvasWidget::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() == Qt::MiddleButton) {
        if (m_panning) {
            m_panning = false;
            setCursor(Qt::BlankCursor);
        }
        event->accept();
        return;
    }
    if (event->button() != Qt::LeftButton || !m_drawing)
        return;
    if (m_tool == int(Tool::Shapes))
        releaseShape(event->modifiers() & Qt::ShiftModifier);
    else if (m_tool == int(Tool::Brush) || m_tool == int(Tool::Eraser))
        releaseStroke();
}

void CanvasWidget::releaseStroke()
{
    m_drawing = false;
    if (!m_current.points.isEmpty()) {
        if (!m_moved) {
            Stroke click;
            click.points = {m_current.points.first()};
            click.color = m_current.color;
            click.width = m_current.width;
            click.eraser = m_current.eraser;
            emit coopStrokeSegment(click);
        }
        if (m_current.points.size() == 1)
            m_current.points.append(m_current.points.first());
        m_doc->appendStroke(m_current);
        if (!m_current.eraser) {
            paintStroke(m_doc->activeImage(), m_current, m_fillTolerance);
            m_doc->markPainted(strokeBounds(m_current, m_doc->size()));
        }
        m_doc->commitSnapshot();
        emit strokeCommitted(m_current);
        emit strokesChanged();
    }
    m_current.points.clear();
    dropLive();
    rewarpWiggle();
    update();
}

void CanvasWidget::releaseShape(bool constrain)
{
    m_drawing = false;
    m_constrainShape = constrain;
    if (m_shapeStart != m_shapeEnd) {
        const QPointF end = constrainedShapeEnd(m_shapeStart, m_shapeEnd, constrain);
        Stroke stroke;
        stroke.points = {QPointF(float(m_shapeStart.x()), float(m_shapeStart.y())),
                         QPointF(float(end.x()), float(end.y()))};
        stroke.color = m_brushColor;
        stroke.width = m_brushSize;
        stroke.shape = true;
        stroke.shapeType = m_shapeType;
        stroke.shapeMode = m_shapeMode;
        stroke.shapeErase = m_shapeErase;
        stroke.arrowDirection = arrowDirection(m_shapeStart, end);
        m_doc->appendStroke(stroke);
        paintStroke(m_doc->activeImage(), stroke, m_fillTolerance);
        m_doc->markPainted();
        m_doc->commitSnapshot();
        emit strokeCommitted(stroke);
        emit coopStrokeSegment(stroke);
        emit strokesChanged();
    }
    m_shapeStart = m_shapeEnd = QPointF();
    dropLive();
    rewarpWiggle();
    update();
}

void CanvasWidget::tabletEvent(QTabletEvent *event)
{
    event->accept();
    QEvent::Type type;
    Qt::MouseButton button = Qt::NoButton;
    Qt::MouseButtons buttons = Qt::NoButton;
    switch (event->type()) {
    case QEvent::TabletPress:
        m_penDown = true;
        type = QEvent::MouseButtonPress;
        button = Qt::LeftButton;
        buttons = Qt::LeftButton;
        break;
    case QEvent::TabletMove:
        type = QEvent::MouseMove;
        buttons = m_penDown ? Qt::LeftButton : Qt::NoButton;
        break;
    case QEvent::TabletRelease:
        type = QEvent::MouseButtonRelease;
        button = Qt::LeftButton;
        break;
    default:
        return;
    }
    QMouseEvent mouse(type, event->position(), event->globalPosition(), button, buttons,
                      event->modifiers(), QPointingDevice::primaryPointingDevice());
    switch (type) {
    case QEvent::MouseButtonPress:
        mousePressEvent(&mouse);
        break;
    case QEvent::MouseMove:
        mouseMoveEvent(&mouse);
        break;
    default:
        mouseReleaseEvent(&mouse);
        m_penDown = false;
        break;
    }
}
