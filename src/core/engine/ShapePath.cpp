#include "engine/ShapePath.h"

#include "engine/Stroke.h"

#include <QPolygonF>

#include <cmath>

namespace {

constexpr double Pi = 3.14159265358979323846;

QPainterPath closedPolygon(const QPolygonF &polygon)
{
    QPainterPath path;
    path.addPolygon(polygon);
    path.closeSubpath();
    return path;
}

QPainterPath arrowPath(const QRectF &rect, int direction)
{
    const float l = float(rect.left());
    const float t = float(rect.top());
    const float r = float(rect.right());
    const float b = float(rect.bottom());
    const float w = float(rect.width());
    const float h = float(rect.height());
    QPolygonF p;
    switch (direction) {
    case 2: // left
        p << QPointF(r, t + 0.28f * h) << QPointF(l + 0.4f * w, t + 0.28f * h)
          << QPointF(l + 0.4f * w, t) << QPointF(l, t + 0.5f * h) << QPointF(l + 0.4f * w, b)
          << QPointF(l + 0.4f * w, t + 0.72f * h) << QPointF(r, t + 0.72f * h);
        break;
    case 1: // down
        p << QPointF(l + 0.28f * w, t) << QPointF(l + 0.28f * w, t + 0.6f * h)
          << QPointF(l, t + 0.6f * h) << QPointF(l + 0.5f * w, b) << QPointF(r, t + 0.6f * h)
          << QPointF(r - 0.28f * w, t + 0.6f * h) << QPointF(r - 0.28f * w, t);
        break;
    case 3: // up
        p << QPointF(l + 0.28f * w, b) << QPointF(l + 0.28f * w, t + 0.4f * h)
          << QPointF(l, t + 0.4f * h) << QPointF(l + 0.5f * w, t) << QPointF(r, t + 0.4f * h)
          << QPointF(r - 0.28f * w, t + 0.4f * h) << QPointF(r - 0.28f * w, b);
        break;
    default: // right
        p << QPointF(l, t + 0.28f * h) << QPointF(l + 0.6f * w, t + 0.28f * h)
          << QPointF(l + 0.6f * w, t) << QPointF(r, t + 0.5f * h) << QPointF(l + 0.6f * w, b)
          << QPointF(l + 0.6f * w, t + 0.72f * h) << QPointF(l, t + 0.72f * h);
        break;
    }
    return closedPolygon(p);
}

QPainterPath heartPath(const QRectF &rect)
{
    const QPointF c = rect.center();
    const double w = rect.width();
    const double h = rect.height();
    const double baseY = rect.top() + 0.42 * h;
    QPainterPath path;
    for (int k = 0; k <= 80; ++k) {
        const double t = 2.0 * Pi * k / 80.0;
        const double s = std::sin(t);
        const double x = c.x() + 16.0 * s * s * s * (w / 34.0);
        const double y = baseY - (13.0 * std::cos(t) - 5.0 * std::cos(2 * t) -
                                  2.0 * std::cos(3 * t) - std::cos(4 * t)) *
                                     (h / 33.0);
        if (k == 0)
            path.moveTo(x, y);
        else
            path.lineTo(x, y);
    }
    path.closeSubpath();
    return path;
}

QPainterPath crossPath(const QRectF &rect)
{
    const QPointF c = rect.center();
    const double a = 0.28 * std::min(rect.width(), rect.height());
    const double l = rect.left(), t = rect.top(), r = rect.right(), b = rect.bottom();
    QPolygonF p;
    p << QPointF(c.x() - a, t) << QPointF(c.x() + a, t) << QPointF(c.x() + a, c.y() - a)
      << QPointF(r, c.y() - a) << QPointF(r, c.y() + a) << QPointF(c.x() + a, c.y() + a)
      << QPointF(c.x() + a, b) << QPointF(c.x() - a, b) << QPointF(c.x() - a, c.y() + a)
      << QPointF(l, c.y() + a) << QPointF(l, c.y() - a) << QPointF(c.x() - a, c.y() - a);
    return closedPolygon(p);
}

QPainterPath regularPolygon(const QRectF &rect, int count, double startAngle)
{
    const QPointF c = rect.center();
    QPolygonF p;
    for (int i = 0; i < count; ++i) {
        const double angle = 2.0 * i * Pi / count + startAngle;
        p << QPointF(c.x() + std::cos(angle) * rect.width() / 2.0,
                     c.y() + std::sin(angle) * rect.height() / 2.0);
    }
    return closedPolygon(p);
}

QPainterPath starPath(const QRectF &rect)
{
    const QPointF c = rect.center();
    const double outer = std::min(rect.width(), rect.height()) / 2.0;
    QPolygonF p;
    for (int i = 0; i < 10; ++i) {
        const double angle = i * Pi / 5.0 - Pi / 2.0;
        const double radius = (i % 2 == 0) ? outer : 0.4 * outer;
        p << QPointF(c.x() + std::cos(angle) * radius, c.y() + std::sin(angle) * radius);
    }
    return closedPolygon(p);
}

} // namespace

QPointF constrainedShapeEnd(const QPointF &start, const QPointF &end, bool constrain)
{
    if (!constrain)
        return end;
    const double dx = end.x() - start.x();
    const double dy = end.y() - start.y();
    const double d = std::max(std::abs(dx), std::abs(dy));
    return {dx >= 0 ? start.x() + d : start.x() - d, dy >= 0 ? start.y() + d : start.y() - d};
}

QRectF shapeRect(const QPointF &start, const QPointF &end, bool constrain)
{
    const QPointF e = constrainedShapeEnd(start, end, constrain);
    return {std::min(start.x(), e.x()), std::min(start.y(), e.y()), std::abs(e.x() - start.x()),
            std::abs(e.y() - start.y())};
}

int arrowDirection(const QPointF &start, const QPointF &end)
{
    const float dx = float(end.x()) - float(start.x());
    const float dy = float(end.y()) - float(start.y());
    if (dx == 0.0f && dy == 0.0f)
        return 0;
    if (std::abs(dx) >= std::abs(dy))
        return dx >= 0.0f ? 0 : 2;
    return dy > 0.0f ? 1 : 3;
}

bool isDegenerateShapeRect(const QRectF &rect)
{
    // NaN sizes also count as degenerate.
    return !(rect.width() >= 0.5 || rect.height() >= 0.5);
}

QPainterPath shapePath(int shapeType, const QRectF &rect, int direction)
{
    if (isDegenerateShapeRect(rect))
        return {};
    const QPointF c = rect.center();
    switch (shapeType) {
    case ShapeRectangle: {
        QPainterPath path;
        path.addRect(rect);
        return path;
    }
    case ShapeEllipse: {
        QPainterPath path;
        path.addEllipse(rect);
        return path;
    }
    case ShapeTriangle:
        return closedPolygon(QPolygonF{} << QPointF(c.x(), rect.top()) << rect.bottomRight()
                                         << rect.bottomLeft());
    case ShapeDiamond:
        return closedPolygon(QPolygonF{}
                             << QPointF(c.x(), rect.top()) << QPointF(rect.right(), c.y())
                             << QPointF(c.x(), rect.bottom()) << QPointF(rect.left(), c.y()));
    case ShapeStar:
        return starPath(rect);
    case ShapePentagon:
        return regularPolygon(rect, 5, -Pi / 2.0);
    case ShapeHexagon:
        return regularPolygon(rect, 6, 0.0);
    case ShapeArrow:
        return arrowPath(rect, direction);
    case ShapeHeart:
        return heartPath(rect);
    case ShapeCross:
        return crossPath(rect);
    default:
        return {};
    }
}
