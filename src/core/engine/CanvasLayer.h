#pragma once

#include "engine/LayerEdit.h"

#include <QImage>
#include <QList>
#include <QString>

// Layers are stored premultiplied in Qt's native raster format: QPainter and
// the composite blend without converting. Straight-alpha images from files,
// the wire or callers are converted when they come in.
constexpr QImage::Format LayerFormat = QImage::Format_ARGB32_Premultiplied;

// One raster layer. Its undo and redo stacks live here only while another
// layer is active; the active layer's stacks are held by the document.
struct CanvasLayer {
    QString name;
    QImage image; // LayerFormat, canvas size
    bool visible = true;
    float opacity = 1.0f;
    QList<LayerEdit> undoStack;
    QList<LayerEdit> redoStack;
};
