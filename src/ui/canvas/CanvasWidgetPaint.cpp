#include "canvas/CanvasWidget.h"

#include "engine/ShapePath.h"
#include "engine/StrokePainter.h"

#include <QPaintEvent>
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

QRect CanvasWidget::widgetArea(const QRectF &canvasArea) const
{
    const QRect target = canvasRect();
    const qreal sx = qreal(target.width()) / canvasWidth();
    const qreal sy = qreal(target.height()) / canvasHeight();
    const QRectF area(target.x() + canvasArea.x() * sx, target.y() + canvasArea.y() * sy,
                      canvasArea.width() * sx, canvasArea.height() * sy);
    return area.toAlignedRect().adjusted(-2, -2, 2, 2);
}

QRect CanvasWidget::pointerArea() const
{
    const bool ring = m_tool == int(Tool::Brush) || m_tool == int(Tool::Eraser);
    const qreal r = ring ? qreal(m_brushSize) * 0.5 * m_fitScale * m_zoom : 8.0;
    const QRect outline = QRectF(m_pointer.x() - r, m_pointer.y() - r, 2 * r, 2 * r)
                              .toAlignedRect()
                              .adjusted(-3, -3, 3, 3);
    const QRect icon(int(m_pointer.x() + r * 0.7071), int(m_pointer.y() + r * 0.7071), 16, 16);
    return outline | icon.adjusted(-1, -1, 1, 1);
}

bool CanvasWidget::shapeBeingDragged() const
{
    if (!m_drawing || m_tool != int(Tool::Shapes))
        return false;
    return !isDegenerateShapeRect(shapeRect(m_shapeStart, m_shapeEnd, m_constrainShape));
}

Stroke CanvasWidget::shapePreview() const
{
    Stroke preview;
    preview.shape = true;
    preview.points = {m_shapeStart,
                      constrainedShapeEnd(m_shapeStart, m_shapeEnd, m_constrainShape)};
    preview.color = m_brushColor;
    preview.width = m_brushSize;
    preview.shapeType = m_shapeType;
    preview.shapeMode = m_shapeMode;
    preview.arrowDirection = arrowDirection(preview.points[0], preview.points[1]);
    return preview;
}

QRect CanvasWidget::shapeArea() const
{
    if (!shapeBeingDragged())
        return {};
    const Stroke preview = shapePreview();
    const QRectF rect = shapeRect(preview.points[0], preview.points[1], false);
    const qreal grow = m_brushSize * 0.5 + 2.0;
    return shapePath(m_shapeType, rect, preview.arrowDirection)
        .boundingRect()
        .adjusted(-grow, -grow, grow, grow)
        .toAlignedRect();
}

void CanvasWidget::redrawLive(const QRect &area)
{
    const QRect clip = area & QRect(QPoint(0, 0), m_doc->size());
    if (clip.isEmpty())
        return;
    if (m_live.isNull()) {
        m_live = QImage(m_doc->size(), QImage::Format_ARGB32_Premultiplied);
        m_live.fill(Qt::transparent);
    }
    QPainter painter(&m_live);
    painter.setClipRect(clip);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    painter.fillRect(clip, Qt::transparent);
    painter.setRenderHint(QPainter::Antialiasing);
    // Drawn whole and clipped, so overlapping parts of a translucent stroke
    // blend the same way in every repainted piece.
    if (shapeBeingDragged() && !m_shapeErase)
        drawStroke(painter, shapePreview());
    else if (m_drawing && m_tool == int(Tool::Brush) && m_current.points.size() >= 2)
        drawStroke(painter, m_current);
    painter.end();
    update(widgetArea(clip));
}

void CanvasWidget::dropLive()
{
    m_live = QImage();
}

QImage CanvasWidget::displayComposite()
{
    const QImage flat = m_doc->flatComposite();
    const bool brush = m_drawing && m_tool == int(Tool::Brush) && !m_current.eraser &&
                       m_current.points.size() >= 2;
    if (!brush && (!shapeBeingDragged() || m_shapeErase))
        return flat; // a hole cannot be previewed; the overlay outlines it
    QImage out = flat.copy();
    QPainter painter(&out);
    painter.setRenderHint(QPainter::Antialiasing);
    drawStroke(painter, brush ? m_current : shapePreview());
    return out;
}

namespace {

// Draws the part of an image stretched over target that falls in exposed.
void drawExposed(QPainter &painter, const QRect &target, const QImage &image, const QRect &exposed)
{
    const QRect visible = target & exposed;
    if (visible.isEmpty() || image.isNull())
        return;
    const qreal sx = qreal(image.width()) / target.width();
    const qreal sy = qreal(image.height()) / target.height();
    const QRectF source((visible.x() - target.x()) * sx, (visible.y() - target.y()) * sy,
                        visible.width() * sx, visible.height() * sy);
    painter.drawImage(QRectF(visible), image, source);
}

} // namespace

// Only the exposed part is drawn, from the document's cached composite as it
// is: a pointer move repaints a few hundred pixels, not the frame.
void CanvasWidget::paintEvent(QPaintEvent *event)
{
    const QRect exposed = event->rect();
    QPainter painter(this);
    painter.fillRect(exposed, QColor(40, 40, 40));

    const QRect target = canvasRect();
    if (m_previewEnabled && !m_previewImage.isNull()) {
        painter.setOpacity(m_previewOpacity);
        drawExposed(painter, target, m_previewImage, exposed);
        painter.setOpacity(1.0);
    } else {
        painter.setBrushOrigin(target.topLeft());
        painter.fillRect(target & exposed, checkerBrush());
        painter.setBrushOrigin(0, 0);
    }

    m_doc->rebuildPartials();
    if (m_wiggleEnabled && !m_wiggleImage.isNull()) {
        drawExposed(painter, target, m_wiggleImage, exposed);
    } else {
        drawExposed(painter, target, m_doc->flatComposite(), exposed);
        drawExposed(painter, target, m_live, exposed);
    }

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
