#pragma once

#include <QImage>
#include <QList>
#include <QString>

// One raster layer. Its undo and redo stacks live here only while another
// layer is active; the active layer's stacks are held by the document.
struct CanvasLayer {
    QString name;
    QImage image; // RGBA8888, canvas size
    bool visible = true;
    float opacity = 1.0f;
    QList<QImage> undoStack;
    QList<QImage> redoStack;
};
