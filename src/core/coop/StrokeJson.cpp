#include "coop/StrokeJson.h"

#include <QJsonArray>

#include <algorithm>
#include <cmath>

namespace coop {

namespace {

int readClampedInt(const QJsonValue &value, int lo, int hi)
{
    const double d = value.toDouble(0.0);
    if (std::isnan(d))
        return 0;
    return int(std::clamp(d, double(lo), double(hi)));
}

// Any JSON number becomes an unsigned 32-bit value, modulo 2^32.
quint32 readArgb(const QJsonValue &value)
{
    double d = value.toDouble(0.0);
    if (!std::isfinite(d))
        return 0;
    d = std::fmod(std::trunc(d), 4294967296.0);
    if (d < 0)
        d += 4294967296.0;
    return quint32(d);
}

} // namespace

QJsonObject strokeToJson(const Stroke &stroke)
{
    QJsonArray pts;
    for (const QPointF &p : stroke.points) {
        pts.append(double(float(p.x())));
        pts.append(double(float(p.y())));
    }
    QJsonObject o;
    o.insert(QStringLiteral("pts"), pts);
    o.insert(QStringLiteral("col"), double(stroke.color.rgba()));
    o.insert(QStringLiteral("w"), double(stroke.width));
    o.insert(QStringLiteral("er"), stroke.eraser);
    o.insert(QStringLiteral("fl"), stroke.fill);
    o.insert(QStringLiteral("sh"), stroke.shape);
    o.insert(QStringLiteral("st"), stroke.shapeType);
    o.insert(QStringLiteral("sm"), stroke.shapeMode);
    o.insert(QStringLiteral("se"), stroke.shapeErase);
    o.insert(QStringLiteral("sa"), stroke.arrowDirection);
    return o;
}

bool strokeFromJson(const QJsonValue &value, Stroke *out)
{
    if (!value.isObject())
        return false;
    const QJsonObject o = value.toObject();
    const QJsonValue ptsValue = o.value(QLatin1String("pts"));
    if (!ptsValue.isArray())
        return false;
    const QJsonArray pts = ptsValue.toArray();
    const qsizetype count = pts.size();
    if (count < 2 || count % 2 != 0 || count > qsizetype(MaxStrokePoints) * 2)
        return false;

    Stroke s;
    s.points.reserve(count / 2);
    for (qsizetype i = 0; i < count; i += 2) {
        double xy[2];
        for (int k = 0; k < 2; ++k) {
            const double d = pts.at(i + k).toDouble(0.0);
            if (!std::isfinite(d))
                return false;
            xy[k] = std::clamp(d, -MaxCoordinate, MaxCoordinate);
        }
        s.points.append(QPointF(float(xy[0]), float(xy[1])));
    }

    s.color = QColor::fromRgba(readArgb(o.value(QLatin1String("col"))));
    double w = o.value(QLatin1String("w")).toDouble(8.0);
    if (!std::isfinite(w))
        w = 8.0;
    s.width = float(std::clamp(w, MinStrokeWidth, MaxStrokeWidth));
    s.eraser = o.value(QLatin1String("er")).toBool(false);
    s.fill = o.value(QLatin1String("fl")).toBool(false);
    s.shape = o.value(QLatin1String("sh")).toBool(false);
    s.shapeType = readClampedInt(o.value(QLatin1String("st")), 0, 9);
    s.shapeMode = readClampedInt(o.value(QLatin1String("sm")), 0, 1);
    s.shapeErase = o.value(QLatin1String("se")).toBool(false);
    s.arrowDirection = readClampedInt(o.value(QLatin1String("sa")), 0, 3);
    *out = s;
    return true;
}

double paintCost(const Stroke &stroke, double pictureArea)
{
    if (stroke.points.isEmpty())
        return 0.0;
    if (stroke.fill || (stroke.shape && stroke.points.size() >= 2))
        return pictureArea;
    const double width = std::max(double(stroke.width), 1.0);
    double length = 0.0;
    for (qsizetype i = 1; i < stroke.points.size(); ++i) {
        const QPointF d = stroke.points[i] - stroke.points[i - 1];
        length += std::hypot(d.x(), d.y());
    }
    return (length + width) * width;
}

} // namespace coop
