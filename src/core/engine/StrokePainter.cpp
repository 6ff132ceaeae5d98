#include "engine/StrokePainter.h"

#include "common/Log.h"
#include "engine/FloodFill.h"
#include "engine/ShapePath.h"

#include <QElapsedTimer>
#include <QPainter>

#include <algorithm>
#include <cmath>
#include <memory>

QPainterPath smoothedPath(const QVector<QPointF> &points, qreal sx, qreal sy, qreal ox, qreal oy)
{
    QPainterPath path;
    const qsizetype n = points.size();
    if (n < 2)
        return path;
    auto map = [&](const QPointF &p) { return QPointF(p.x() * sx + ox, p.y() * sy + oy); };
    path.moveTo(map(points[0]));
    if (n == 2) {
        path.lineTo(map(points[1]));
        return path;
    }
    for (qsizetype i = 1; i <= n - 2; ++i) {
        const QPointF mid = (points[i] + points[i + 1]) * 0.5;
        path.quadTo(map(points[i]), map(mid));
    }
    path.lineTo(map(points[n - 1]));
    return path;
}

QPen strokePen(const QColor &color, qreal width)
{
    return QPen(QBrush(color), width, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
}

namespace {

void drawShape(QPainter &painter, const Stroke &stroke)
{
    const QRectF rect = shapeRect(stroke.points[0], stroke.points[1], false);
    if (isDegenerateShapeRect(rect))
        return;
    const QColor color = stroke.shapeErase ? QColor(Qt::black) : stroke.color;
    painter.setCompositionMode(stroke.shapeErase ? QPainter::CompositionMode_Clear
                                                 : QPainter::CompositionMode_SourceOver);
    if (stroke.shapeMode == ShapeModeOutline) {
        painter.setPen(strokePen(color, stroke.width));
        painter.setBrush(Qt::NoBrush);
    } else {
        painter.setPen(Qt::NoPen);
        painter.setBrush(QBrush(color));
    }
    painter.drawPath(shapePath(stroke.shapeType, rect, stroke.arrowDirection));
}

void drawLine(QPainter &painter, const Stroke &stroke)
{
    const QColor color = stroke.eraser ? QColor(Qt::transparent) : stroke.color;
    painter.setCompositionMode(stroke.eraser ? QPainter::CompositionMode_Clear
                                             : QPainter::CompositionMode_SourceOver);
    if (stroke.points.size() == 1) {
        painter.setPen(Qt::NoPen);
        painter.setBrush(QBrush(color));
        const qreal r = 0.5 * stroke.width;
        painter.drawEllipse(stroke.points[0], r, r);
        return;
    }
    painter.setPen(strokePen(color, stroke.width));
    painter.setBrush(Qt::NoBrush);
    const QPointF first = stroke.points[0];
    const bool zeroLength = std::all_of(stroke.points.cbegin(), stroke.points.cend(),
                                        [&first](const QPointF &p) { return p == first; });
    // A path of one repeated point strokes nothing; the round cap still
    // makes it a dot when drawn as a point.
    if (zeroLength)
        painter.drawPoint(first);
    else
        painter.drawPath(smoothedPath(stroke.points));
}

void fillAt(QImage &layer, const Stroke &stroke, int tolerance)
{
    const QPointF seed = stroke.points[0];
    if (!(seed.x() > -1.0 && seed.y() > -1.0 && seed.x() < layer.width() &&
          seed.y() < layer.height()))
        return; // also rejects NaN before the integer conversion
    floodFill(layer, int(seed.x()), int(seed.y()), packRgba8888(stroke.color), tolerance);
}

} // namespace

void drawStroke(QPainter &painter, const Stroke &stroke)
{
    if (stroke.points.isEmpty() || stroke.fill)
        return;
    if (stroke.shape) {
        if (stroke.points.size() >= 2)
            drawShape(painter, stroke);
        return;
    }
    drawLine(painter, stroke);
}

QRect strokeBounds(const Stroke &stroke, const QSize &canvasSize)
{
    const QRect canvas(QPoint(0, 0), canvasSize);
    if (stroke.fill || stroke.shape)
        return canvas;
    if (stroke.points.isEmpty())
        return {};
    // Quadratic curves through the points stay inside the points' hull.
    qreal left = stroke.points[0].x(), right = left;
    qreal top = stroke.points[0].y(), bottom = top;
    for (const QPointF &p : stroke.points) {
        left = std::min(left, p.x());
        right = std::max(right, p.x());
        top = std::min(top, p.y());
        bottom = std::max(bottom, p.y());
    }
    const qreal margin = qreal(stroke.width) / 2 + 2;
    if (!std::isfinite(left + right + top + bottom + margin) || margin > 1e6 ||
        std::max({std::fabs(left), std::fabs(right), std::fabs(top), std::fabs(bottom)}) > 1e6)
        return canvas;
    return QRectF(QPointF(left - margin, top - margin), QPointF(right + margin, bottom + margin))
        .toAlignedRect()
        .intersected(canvas);
}

void paintStroke(QImage &layer, const Stroke &stroke, int fillTolerance)
{
    if (stroke.points.isEmpty() || layer.isNull())
        return;
    if (stroke.fill) {
        fillAt(layer, stroke, fillTolerance);
        return;
    }
    QPainter painter(&layer);
    painter.setRenderHint(QPainter::Antialiasing);
    drawStroke(painter, stroke);
}

void replayStrokes(QImage &layer, const QVector<Stroke> &strokes, int fillTolerance)
{
    if (layer.isNull())
        return;
    layer.fill(Qt::transparent);
    auto painter = std::make_unique<QPainter>(&layer);
    painter->setRenderHint(QPainter::Antialiasing);
    for (const Stroke &stroke : strokes) {
        if (stroke.points.isEmpty())
            continue;
        if (stroke.fill) {
            painter.reset();
            fillAt(layer, stroke, fillTolerance);
            painter = std::make_unique<QPainter>(&layer);
            painter->setRenderHint(QPainter::Antialiasing);
            continue;
        }
        drawStroke(*painter, stroke);
    }
}

bool bakeLiveStroke(QImage &layer, Stroke &current, float brushSize, const QSize &canvasSize)
{
    const qsizetype n = current.points.size();
    if (n <= BakeThreshold)
        return false;
    Stroke baked = current;
    baked.points = current.points.mid(0, n - (BakeKeptTail - 1));
    QElapsedTimer timer;
    timer.start();
    paintStroke(layer, baked, 0);
    pdLog("[PD] bake: %zu pts in %lld ms | brush %.0f px | canvas %dx%d", size_t(n - BakeKeptTail),
          static_cast<long long>(timer.elapsed()), double(brushSize), canvasSize.width(),
          canvasSize.height());
    current.points = current.points.mid(n - BakeKeptTail);
    return true;
}
