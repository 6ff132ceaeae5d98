#pragma once

#include "engine/CanvasLayer.h"
#include "engine/Stroke.h"

#include <QImage>
#include <QList>
#include <QMutex>
#include <QString>
#include <QVector>

#include <optional>

// A canvas on disk: one PNG per layer, a JSON index of the layers and the
// flattened picture, all in canvasDirectory(key).
namespace CanvasFiles {
QString layerFileName(int index); // "/canvas_layer_<index>.png"
QString indexFileName();          // "/canvas_layers.json"
QString flattenedFileName();      // "/canvas.png"
// Layers beyond this many in an index are not loaded, so a hostile index
// cannot make us allocate thousands of canvas-size images.
constexpr int MaxLoadedLayers = 256;
} // namespace CanvasFiles

// The source's UUID when it has one, else its name, else empty. Both are
// UTF-8 and may be null.
QString canvasKeyFor(const char *uuid, const char *name);

// Everything a save needs, taken on the UI thread and then owned by the
// writer. The images are shallow copies of the layers.
struct CanvasSaveSnapshot {
    QString directory;
    QList<QImage> layerImages;
    QList<QString> layerNames;
    QList<bool> layerVisible;
    QList<float> layerOpacity;
    int activeLayer = 0;
    QImage flattened;
    // Order in which snapshots were taken; 0 means unordered. A snapshot older
    // than one already written to the same folder is dropped.
    quint64 sequence = 0;
};

// Serialises every write of canvas files in the process.
QMutex &canvasFileMutex();

// Writes the layer PNGs, removes layer files left over from a longer layer
// list, then writes the index and the flattened PNG. Every file is first
// written next to its target and renamed into place only once all of them
// were written, so a failed or interrupted save leaves the previous canvas.
// An index that cannot be written does not hold the pictures back: the layers
// and the flattened PNG still replace theirs and the old index stays.
// Returns false (and logs why) when nothing or not everything was written;
// a superseded snapshot counts as written.
bool writeCanvasFiles(const CanvasSaveSnapshot &snapshot);

struct CanvasLayerSet {
    QList<CanvasLayer> layers; // images may be null (missing or unreadable)
    int activeLayer = 0;
};

// Reads the index and the layer PNGs. Empty when there is no usable index: no
// file, unreadable, not JSON, or no non-empty "layers" array.
std::optional<CanvasLayerSet> readCanvasLayers(const QString &directory);

// The flattened PNG converted to RGBA8888, or a null image.
QImage readFlattenedCanvas(const QString &directory);

// Gives the layered files to a canvas (CanvasWidget or CanvasDocument).
// True when they were read; the caller then commits the canvas's flattened
// image to its source.
template <typename Canvas> bool loadCanvasFiles(const QString &directory, Canvas &canvas)
{
    std::optional<CanvasLayerSet> set = readCanvasLayers(directory);
    if (!set)
        return false;
    canvas.setLayers(set->layers, set->activeLayer);
    return true;
}

enum class CanvasLoad { Layers, Flattened, Blank };

// The editor's load: the layered files, else the flattened PNG as a single
// layer, else the canvas stays as it is. For anything but Blank the caller
// commits the canvas's flattened image to its source.
template <typename Canvas> CanvasLoad loadCanvasAtStart(const QString &directory, Canvas &canvas)
{
    if (loadCanvasFiles(directory, canvas))
        return CanvasLoad::Layers;
    const QImage flat = readFlattenedCanvas(directory);
    if (flat.isNull())
        return CanvasLoad::Blank;
    canvas.setStrokesAndImage(QVector<Stroke>(), flat);
    return CanvasLoad::Flattened;
}
