#include "widgets/PaintedIcons.h"

#include "engine/ShapePath.h"
#include "engine/Stroke.h"
#include "widgets/TintedIcon.h"

#include <QPainter>
#include <QPainterPath>
#include <QPen>

namespace {

QPen iconPen(const QColor &color, qreal width)
{
    QPen pen(color, width);
    pen.setCapStyle(Qt::RoundCap);
    pen.setJoinStyle(Qt::RoundJoin);
    return pen;
}

} // namespace

QIcon jitterWavesIcon(const QColor &color, const QSize &size)
{
    QPixmap pixmap = transparentPixmap(size);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(iconPen(color, 1.3));
    painter.setBrush(Qt::NoBrush);
    const qreal s = size.width() / 20.0;
    for (const qreal y : {5.5, 10.0, 14.5}) {
        QPainterPath wave(QPointF(2 * s, y * s));
        wave.quadTo(QPointF(5.5 * s, (y - 2) * s), QPointF(9 * s, y * s));
        wave.quadTo(QPointF(12.5 * s, (y + 2) * s), QPointF(16 * s, y * s));
        painter.drawPath(wave);
    }
    return QIcon(pixmap);
}

QIcon shapeOutlineIcon(int shapeType, const QColor &color, const QSize &size)
{
    QPixmap pixmap = transparentPixmap(size);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(iconPen(color, 1.5));
    painter.setBrush(Qt::NoBrush);
    const qreal inset = 0.15 * size.width();
    const QRectF rect = QRectF(QPointF(0, 0), QSizeF(size)).adjusted(inset, inset, -inset, -inset);
    switch (shapeType) {
    case ShapeRectangle:
        painter.drawRect(rect);
        break;
    case ShapeEllipse:
        painter.drawEllipse(rect);
        break;
    default:
        painter.drawPath(shapePath(shapeType, rect, 0));
        break;
    }
    return QIcon(pixmap);
}
