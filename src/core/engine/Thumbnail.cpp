#include "engine/Thumbnail.h"

#include <QPainter>

QImage layerThumbnail(const QImage &layer, const QSize &size)
{
    if (size.isEmpty())
        return {};
    QImage out(size, QImage::Format_RGBA8888);
    const QRgb light = qRgb(240, 240, 240);
    const QRgb dark = qRgb(180, 180, 180);
    for (int y = 0; y < size.height(); ++y)
        for (int x = 0; x < size.width(); ++x)
            out.setPixel(x, y, ((x / 8 + y / 8) & 1) ? light : dark);
    if (!layer.isNull()) {
        const QImage scaled = layer.scaled(size, Qt::KeepAspectRatio, Qt::FastTransformation);
        QPainter painter(&out);
        painter.drawImage((size.width() - scaled.width()) / 2,
                          (size.height() - scaled.height()) / 2, scaled);
    }
    return out;
}
