#pragma once

#include <QImage>
#include <QPainter>
#include <QPainterPath>

#include <random>

// A layer that looks drawn: antialiased brush strokes of several widths and
// colours, some of them translucent, on a transparent 1080p image.
inline QImage drawnLayer(unsigned seed, int strokes = 40, int width = 1920, int height = 1080)
{
    std::mt19937 rng(seed);
    auto uniform = [&rng](double lo, double hi) {
        return std::uniform_real_distribution<double>(lo, hi)(rng);
    };
    QImage image(width, height, QImage::Format_RGBA8888);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    for (int i = 0; i < strokes; ++i) {
        QPainterPath path;
        QPointF p(uniform(0, width), uniform(0, height));
        path.moveTo(p);
        for (int k = 0; k < 12; ++k) {
            const QPointF control = p + QPointF(uniform(-80, 80), uniform(-80, 80));
            p += QPointF(uniform(-120, 120), uniform(-120, 120));
            path.quadTo(control, p);
        }
        const int alpha = i % 4 == 0 ? int(uniform(60, 200)) : 255;
        const QColor colour(int(uniform(0, 255)), int(uniform(0, 255)), int(uniform(0, 255)),
                            alpha);
        painter.setPen(QPen(colour, uniform(2, 30), Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        painter.drawPath(path);
    }
    return image;
}
