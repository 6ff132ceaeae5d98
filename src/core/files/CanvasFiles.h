#pragma once

#include "engine/CanvasDocument.h"
#include "engine/CanvasLayer.h"

#include <QImage>
#include <QList>
#include <QMutex>
#include <QSize>
#include <QString>

#include <type_traits>

// A canvas on disk, in canvasDirectory(key): the index "/canvas_layers.json"
// names the save's generation and one PNG per layer; "/canvas.png" is the
// flattened picture the canvas source shows. Every save writes its new layer
// files under names no earlier save used, then switches to them by replacing
// the index in one rename, and only then removes the files the new index no
// longer names. Whatever moment a save dies at, the index names one complete
// save. Folders of the first format ("/canvas_layer_<index>.png", an index
// without file names) still load.
namespace CanvasFiles {
QString layerFileName(int index); // "/canvas_layer_<index>.png", the first format
QString indexFileName();          // "/canvas_layers.json"
QString flattenedFileName();      // "/canvas.png"

// Bounds on what a load reads, so a damaged or hostile folder can neither
// exhaust memory nor hang the caller.
constexpr qint64 MaxIndexBytes = 1 << 20;
// At most this many canvas-size layers are loaded, and never more pixels
// than the fixed cap in all (16 layers of a 3840 x 2160 canvas).
constexpr int LayerBudget = 16;
constexpr qint64 MaxBudgetPixels = qint64(LayerBudget) * 3840 * 2160;
// A layer image may be larger than the canvas (the output size changed
// since), but only this many times.
constexpr int MaxLayerScale = 4;
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

// Writes one save as described above. Nothing is written when the snapshot
// equals what the folder already holds (as loaded or last written by this
// process). A folder that could not be read completely is first moved aside
// into a dated "damaged-..." folder inside it, and the log says so.
// Returns false (and logs why) when the save did not take effect; a
// superseded or unchanged snapshot counts as written.
bool writeCanvasFiles(const CanvasSaveSnapshot &snapshot);

enum class CanvasLoad { Layers, Flattened, Blank };

// What a folder holds, read for a canvas of the given size. Thread-safe and
// free of widgets, so it can run on a worker.
struct CanvasFolder {
    CanvasLoad kind = CanvasLoad::Blank;
    // Canvas-size RGBA8888 images; for Flattened the picture as one layer,
    // for Blank one transparent layer.
    QList<CanvasLayer> layers;
    int activeLayer = 0;
    // False when something on disk could not be read (index, layer, budget);
    // the folder is then moved aside before the first save that changes it.
    bool complete = true;
};

// The layered files when the index is usable, else "/canvas.png" as one
// layer, else Blank. Sizes are checked from the image headers before any
// decoding, only regular files are opened, and the decoded pixels stay
// within the budget above. Waits for a save of this process in progress.
CanvasFolder readCanvasFolder(const QString &directory, QSize canvasSize);

// An image file of exactly `expected` size, converted to RGBA8888; a null
// image when it is missing, not a regular file, of another size (checked
// before decoding) or unreadable. Used for the source's "/canvas.png".
QImage loadCanvasImage(const QString &path, QSize expected);

// Gives what was read to a canvas (CanvasWidget or CanvasDocument); the
// caller commits the canvas's flattened image to its source unless Blank.
template <typename Canvas> CanvasLoad applyCanvasFolder(const CanvasFolder &folder, Canvas &canvas)
{
    if (folder.kind != CanvasLoad::Blank)
        canvas.setLayers(folder.layers, folder.activeLayer);
    return folder.kind;
}

// The editor's load in one call, on the calling thread.
template <typename Canvas> CanvasLoad loadCanvasAtStart(const QString &directory, Canvas &canvas)
{
    QSize size;
    if constexpr (std::is_base_of_v<CanvasDocument, Canvas>)
        size = canvas.size();
    else
        size = canvas.document()->size();
    return applyCanvasFolder(readCanvasFolder(directory, size), canvas);
}
