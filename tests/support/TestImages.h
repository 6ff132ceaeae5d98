#pragma once

#include <QColor>
#include <QImage>
#include <QtEndian>

// A picture where every opaque pixel is unique to its position and a third
// of the pixels are fully transparent, so misplaced or blended pixels show.
inline QImage pattern(int w, int h)
{
    QImage image(w, h, QImage::Format_RGBA8888);
    for (int y = 0; y < h; ++y) {
        auto *line = reinterpret_cast<quint32 *>(image.scanLine(y));
        for (int x = 0; x < w; ++x) {
            const bool opaque = ((x / 7) + (y / 5)) % 3 != 0;
            line[x] = opaque ? qToLittleEndian<quint32>(0xFF000000u | quint32(x % 256) |
                                                        quint32(y % 256) << 8 |
                                                        quint32((x + y) % 256) << 16)
                             : 0u;
        }
    }
    return image;
}

inline QImage solid(int w, int h, QColor color)
{
    QImage image(w, h, QImage::Format_RGBA8888);
    image.fill(color);
    return image;
}
