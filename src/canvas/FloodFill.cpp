#include "canvas/FloodFill.h"

#include <algorithm>
#include <cstdlib>
#include <vector>

namespace {

constexpr size_t MaxReservedIndices = 262144;

int maxByteDifference(quint32 a, quint32 b)
{
    int diff = 0;
    for (int shift = 0; shift < 32; shift += 8)
        diff = std::max(diff, std::abs(int((a >> shift) & 0xff) - int((b >> shift) & 0xff)));
    return diff;
}

} // namespace

quint32 packRgba8888(const QColor &color)
{
    const QRgb rgb = color.rgba();
    return (quint32(qAlpha(rgb)) << 24) | (quint32(qBlue(rgb)) << 16) |
           (quint32(qGreen(rgb)) << 8) | quint32(qRed(rgb));
}

void floodFill(QImage &image, int x, int y, quint32 fillWord, int tolerance)
{
    const int width = image.width();
    const int height = image.height();
    if (x < 0 || y < 0 || x >= width || y >= height)
        return;
    if (quint64(width) * quint64(height) > quint64(0xffffffffu))
        return;
    if (image.format() != QImage::Format_RGBA8888)
        image = image.convertToFormat(QImage::Format_RGBA8888);

    uchar *bits = image.bits();
    const qsizetype stride = image.bytesPerLine();
    auto pixel = [bits, stride](int px, int py) -> quint32 & {
        return reinterpret_cast<quint32 *>(bits + py * stride)[px];
    };

    const quint32 seed = pixel(x, y);
    if (seed == fillWord)
        return;

    const bool colourMode = (seed >> 24) >= 32;
    auto matches = [&](quint32 p) {
        return colourMode ? maxByteDifference(seed, p) <= tolerance : int(p >> 24) <= tolerance;
    };

    const size_t count = size_t(width) * size_t(height);
    std::vector<bool> visited(count, false);
    std::vector<quint32> work;
    work.reserve(std::min(count / 4, MaxReservedIndices));

    const quint32 w = quint32(width);
    auto visit = [&](int nx, int ny) {
        const quint32 index = quint32(ny) * w + quint32(nx);
        if (visited[index] || !matches(pixel(nx, ny)))
            return;
        visited[index] = true;
        work.push_back(index);
    };

    visited[quint32(y) * w + quint32(x)] = true;
    work.push_back(quint32(y) * w + quint32(x));
    for (size_t cursor = 0; cursor < work.size(); ++cursor) {
        const int px = int(work[cursor] % w);
        const int py = int(work[cursor] / w);
        pixel(px, py) = fillWord;
        if (px > 0)
            visit(px - 1, py);
        if (px < width - 1)
            visit(px + 1, py);
        if (py > 0)
            visit(px, py - 1);
        if (py < height - 1)
            visit(px, py + 1);
    }
}
