#include "engine/LayerEdit.h"

#include <cstring>

namespace {

QImage copyRect(const QImage &image, const QRect &rect)
{
    return image.copy(rect);
}

void writeRect(QImage &image, const QPoint &at, const QImage &pixels)
{
    const int bytes = pixels.width() * 4;
    for (int y = 0; y < pixels.height(); ++y)
        std::memcpy(image.scanLine(at.y() + y) + at.x() * 4, pixels.constScanLine(y),
                    size_t(bytes));
}

bool rectDiffers(const QImage &a, const QImage &b, const QRect &rect)
{
    const size_t bytes = size_t(rect.width()) * 4;
    for (int y = rect.top(); y <= rect.bottom(); ++y)
        if (std::memcmp(a.constScanLine(y) + rect.left() * 4, b.constScanLine(y) + rect.left() * 4,
                        bytes) != 0)
            return true;
    return false;
}

} // namespace

qsizetype LayerEdit::bytes() const
{
    qsizetype total = 0;
    for (const Tile &tile : tiles)
        total += tile.pixels.sizeInBytes();
    return total;
}

LayerEdit changedTiles(const QImage &before, const QImage &after, const QRect &area)
{
    LayerEdit edit;
    if (before.size() != after.size() || before.format() != after.format() || before.depth() != 32)
        return edit;
    const QRect region = area.intersected(before.rect());
    if (region.isEmpty() || before.constBits() == after.constBits())
        return edit;
    constexpr int T = LayerEdit::TileSize;
    for (int ty = region.top() / T * T; ty <= region.bottom(); ty += T) {
        for (int tx = region.left() / T * T; tx <= region.right(); tx += T) {
            const QRect tile = QRect(tx, ty, T, T).intersected(before.rect());
            if (rectDiffers(before, after, tile))
                edit.tiles.append({tile.topLeft(), copyRect(before, tile)});
        }
    }
    return edit;
}

LayerEdit applyEdit(QImage &image, const LayerEdit &edit)
{
    LayerEdit reverse;
    for (const LayerEdit::Tile &tile : edit.tiles) {
        const QRect rect(tile.at, tile.pixels.size());
        if (!image.rect().contains(rect) || tile.pixels.format() != image.format())
            continue;
        reverse.tiles.append({tile.at, copyRect(image, rect)});
        writeRect(image, tile.at, tile.pixels);
    }
    return reverse;
}
