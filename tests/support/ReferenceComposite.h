#pragma once

#include "engine/CanvasLayer.h"

#include <QImage>
#include <QPainter>

// The flat composite as three whole-image QPainter blits onto a transparent
// premultiplied image: below, the active layer at its opacity (when
// visible), above.
inline QImage referenceFlatComposite(const QImage &below, const QImage &active, bool activeVisible,
                                     float activeOpacity, const QImage &above)
{
    QImage out(active.size(), LayerFormat);
    out.fill(Qt::transparent);
    QPainter painter(&out);
    painter.drawImage(0, 0, below);
    painter.setOpacity(activeVisible ? activeOpacity : 0.0);
    painter.drawImage(0, 0, active);
    painter.setOpacity(1.0);
    painter.drawImage(0, 0, above);
    return out;
}
