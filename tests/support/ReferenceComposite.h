#pragma once

#include <QImage>
#include <QPainter>

// The flat composite as three QPainter blits onto a transparent RGBA8888
// image: below, the active layer at its opacity (when visible), above.
inline QImage referenceFlatComposite(const QImage &below, const QImage &active, bool activeVisible,
                                     float activeOpacity, const QImage &above)
{
    QImage out(active.size(), QImage::Format_RGBA8888);
    out.fill(Qt::transparent);
    QPainter painter(&out);
    painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
    if (!below.isNull())
        painter.drawImage(0, 0, below);
    if (activeVisible) {
        painter.setOpacity(activeOpacity);
        painter.drawImage(0, 0, active);
        painter.setOpacity(1.0);
    }
    if (!above.isNull())
        painter.drawImage(0, 0, above);
    painter.end();
    return out;
}
