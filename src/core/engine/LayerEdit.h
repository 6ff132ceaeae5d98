#pragma once

#include <QImage>
#include <QList>
#include <QPoint>
#include <QRect>

// The pixels one action changed on a layer, kept as the tiles that differ
// rather than as a whole frame. Applying an edit writes its tiles back and
// yields the edit that reverses it, so undo and redo are the same operation.
struct LayerEdit {
    static constexpr int TileSize = 64;

    struct Tile {
        QPoint at; // top-left corner in the layer
        QImage pixels;
    };
    QList<Tile> tiles;

    qsizetype bytes() const;
};

// The tiles of `before` inside area whose pixels differ from `after` (two
// images of the same size and format).
LayerEdit changedTiles(const QImage &before, const QImage &after, const QRect &area);

// Writes the edit's tiles into image and returns the pixels they replaced.
LayerEdit applyEdit(QImage &image, const LayerEdit &edit);
