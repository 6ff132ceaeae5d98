#include "canvas/CanvasWidget.h"

#include "engine/ShapePath.h"
#include "engine/StrokePainter.h"

#include <QPainter>
#include <QPainterPathStroker>

namespace {

const QBrush &checkerBrush()
{
    static const QBrush brush = [] {
        QPixmap tile(32, 32);
        tile.fill(QColor(48, 48, 48));
        QPainter painter(&tile);
        painter.fillRect(0, 0, 16, 16, QColor(64, 64, 64));
        painter.fillRect(16, 16, 16, 16, QColor(64, 64, 64));
        painter.end();
        return QBrush(tile);
    }();
    return brush;
}

// Draws a path so that it shows on any background: dark first, then white in
// Difference mode.
void drawContrastPath(QPainter &painter, const QPainterPath &path, qreal darkWidth,
                      Qt::PenCapStyle cap, Qt::PenJoinStyle join)
{
    painter.save();
    painter.setBrush(Qt::NoBrush);
    painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
    painter.setPen(QPen(QColor(0, 0, 0, 180), darkWidth, Qt::SolidLine, cap, join));
    painter.drawPath(path);
    painter.setCompositionMode(QPainter::CompositionMode_Difference);
    painter.setPen(QPen(Qt::white, 1.5, Qt::SolidLine, cap, join));
    painter.drawPath(path);
    painter.restore();
}

} // namespace

QRect CanvasWidget::canvasRect() const
{
    const float scale = m_fitScale * m_zoom;
    return {int(m_base.x() + m_pan.x()), int(m_base.y() + m_pan.y()), int(canvasWidth() * scale),
            int(canvasHeight() * scale)};
}

bool CanvasWidget::shapeBeingDragged() const
{
    if (!m_drawing || m_tool != int(Tool::Shapes))
        return false;
    return !isDegenerateShapeRect(shapeRect(m_shapeStart, m_shapeEnd, m_constrainShape));
}

QImage CanvasWidget::displayComposite()
{
    const QImage flat = m_doc->flatComposite();
    if (shapeBeingDragged()) {
        if (m_shapeErase)
            return flat; // a hole cannot be previewed; the overlay outlines it
        QImage out = flat.copy();
        Stroke preview;
        preview.shape = true;
        preview.points = {m_shapeStart,
                          constrainedShapeEnd(m_shapeStart, m_shapeEnd, m_constrainShape)};
        preview.color = m_brushColor;
        preview.width = m_brushSize;
        preview.shapeType = m_shapeType;
        preview.shapeMode = m_shapeMode;
        preview.arrowDirection = arrowDirection(preview.points[0], preview.points[1]);
        QPainter painter(&out);
        painter.setRenderHint(QPainter::Antialiasing);
        drawStroke(painter, preview);
        return out;
    }
    if (m_drawing && m_tool == int(Tool::Brush) && !m_current.eraser &&
        m_current.points.size() >= 2) {
        QImage out = flat.copy();
        QPainter painter(&out);
        painter.setRenderHint(QPainter::Antialiasing);
        drawStroke(painter, m_current);
        return out;
    }
    return flat;
}

void CanvasWidget::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.fillRect(rect(), QColor(40, 40, 40));

    const QRect target = canvasRect();
    if (m_previewEnabled && !m_previewImage.isNull()) {
        painter.setOpacity(m_previewOpacity);
        painter.drawImage(target, m_previewImage);
        painter.setOpacity(1.0);
    } else {
        painter.setBrushOrigin(target.topLeft());
        painter.fillRect(target, checkerBrush());
        painter.setBrushOrigin(0, 0);
    }

    m_doc->rebuildPartials();
    if (m_wiggleEnabled && !m_wiggleImage.isNull())
        painter.drawImage(target, m_wiggleImage);
    else
        painter.drawImage(target, displayComposite());

    paintOverlays(painter, target);
    if (m_pointerInside)
        paintPointer(painter);
}

void CanvasWidget::paintOverlays(QPainter &painter, const QRect &target)
{
    const qreal scale = qreal(m_fitScale) * qreal(m_zoom);
    const qreal ox = m_base.x() + m_pan.x();
    const qreal oy = m_base.y() + m_pan.y();
    const bool wiggleShown = m_wiggleEnabled && !m_wiggleImage.isNull();
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setClipRect(target);

    // The wiggle frame lags the pointer: draw the part of the live stroke that
    // came after it, on screen.
    if (wiggleShown && m_drawing && m_tool == int(Tool::Brush) && m_current.points.size() >= 2) {
        const qsizetype from =
            std::clamp<qsizetype>(m_wigglePoints - 1, 0, m_current.points.size() - 2);
        const QPainterPath tail = smoothedPath(m_current.points.mid(from), scale, scale, ox, oy);
        painter.setPen(strokePen(m_current.color, m_current.width * scale));
        painter.setBrush(Qt::NoBrush);
        painter.drawPath(tail);
    }

    if (shapeBeingDragged() && (m_shapeErase || wiggleShown)) {
        const QRectF r = shapeRect(m_shapeStart, m_shapeEnd, m_constrainShape);
        const QRectF screen(r.x() * scale + ox, r.y() * scale + oy, r.width() * scale,
                            r.height() * scale);
        const int direction = arrowDirection(
            m_shapeStart, constrainedShapeEnd(m_shapeStart, m_shapeEnd, m_constrainShape));
        const QPainterPath path = shapePath(m_shapeType, screen, direction);
        const qreal penWidth = m_brushSize * scale;
        if (m_shapeErase) {
            QPainterPath outline = path;
            if (m_shapeMode == ShapeModeOutline) {
                QPainterPathStroker stroker;
                stroker.setWidth(penWidth);
                stroker.setCapStyle(Qt::RoundCap);
                stroker.setJoinStyle(Qt::RoundJoin);
                outline = stroker.createStroke(path).simplified();
            }
            drawContrastPath(painter, outline, 2.5, Qt::RoundCap, Qt::RoundJoin);
        } else if (m_shapeMode == ShapeModeOutline) {
            painter.setPen(strokePen(m_brushColor, penWidth));
            painter.setBrush(Qt::NoBrush);
            painter.drawPath(path);
        } else {
            painter.setPen(Qt::NoPen);
            painter.setBrush(m_brushColor);
            painter.drawPath(path);
        }
    }
    painter.restore();
}

void CanvasWidget::paintPointer(QPainter &painter)
{
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    const QPointF p = m_pointer;
    qreal r = 0.0;
    if (m_tool == int(Tool::Brush) || m_tool == int(Tool::Eraser)) {
        r = qreal(m_brushSize) * 0.5 * m_fitScale * m_zoom;
        QPainterPath circle;
        circle.addEllipse(p, r, r);
        drawContrastPath(painter, circle, 1.5, Qt::SquareCap, Qt::BevelJoin);
    } else {
        constexpr qreal arm = 8.0;
        QPainterPath cross;
        cross.moveTo(p.x() - arm, p.y());
        cross.lineTo(p.x() + arm, p.y());
        cross.moveTo(p.x(), p.y() - arm);
        cross.lineTo(p.x(), p.y() + arm);
        drawContrastPath(painter, cross, 1.5, Qt::SquareCap, Qt::BevelJoin);
        r = arm;
    }
    if (!m_toolCursorIcon.isNull()) {
        painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
        painter.drawPixmap(int(p.x() + r * 0.7071), int(p.y() + r * 0.7071), m_toolCursorIcon);
    }
    painter.restore();
}
