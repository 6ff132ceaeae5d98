#pragma once

#include <QColor>
#include <QImage>
#include <QtEndian>

#include <algorithm>
#include <cstdlib>

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

// Stripes of non-grey colours, opaque, translucent and clear, whose values
// survive premultiplication exactly (channels in fives, alpha in 51sts);
// first picks the colour of the first stripe.
inline QImage translucentStripes(int w, int h, int first = 0)
{
    const QColor colours[] = {
        {200, 40, 120}, {250, 100, 5, 153}, {10, 200, 60, 51}, {0, 5, 255, 204}, Qt::transparent};
    QImage image(w, h, QImage::Format_RGBA8888);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            image.setPixelColor(x, y, colours[(x / 16 + first) % 5]);
    return image;
}

// The largest difference of one byte between two 32-bit images (256 when
// their sizes differ).
inline int maxByteDifference(const QImage &a, const QImage &b)
{
    int most = a.size() == b.size() ? 0 : 256;
    for (int y = 0; y < a.height() && most < 256; ++y)
        for (int i = 0; i < a.width() * 4; ++i)
            most = std::max(most, std::abs(a.constScanLine(y)[i] - b.constScanLine(y)[i]));
    return most;
}

inline QImage solid(int w, int h, QColor color)
{
    QImage image(w, h, QImage::Format_RGBA8888);
    image.fill(color);
    return image;
}
