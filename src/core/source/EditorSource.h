#pragma once

#include "engine/Stroke.h"

#include <QImage>
#include <QSize>
#include <QString>
#include <QVector>

#include <functional>

class CoopFacet;

// What the editor window needs of the picture it edits: a canvas source of the
// host, or the shared co-op picture. The module implements it over a host
// source and holds a strong reference to it for as long as this object lives;
// destroying it disconnects from the source's signals and releases the
// reference. Every call happens on the UI thread except the removal callback.
class EditorSource {
public:
    virtual ~EditorSource() = default;

    // The source's output size, which is the canvas size.
    virtual QSize canvasSize() const = 0;
    // Names the canvas folder: the source's UUID, else its name, else empty.
    // Empty means the drawing is not kept on disk.
    virtual QString canvasKey() const = 0;

    virtual void commit(const QVector<Stroke> &strokes, const QImage &image) = 0;
    // The user cleared the drawing; blank is what the canvas shows now.
    virtual void cleared(const QImage &blank) { commit(QVector<Stroke>(), blank); }
    virtual void setLiveImage(const QImage &image) = 0;
    virtual void setJitterEnabled(bool on) = 0;
    virtual void setJitterAmount(float px) = 0;
    virtual void setJitterInterval(float seconds) = 0;

    // The current scene rendered without this source at its size; null when
    // there is nothing to show.
    virtual QImage captureScene() = 0;

    // Runs callback, on whatever thread the host uses, when the source is
    // removed from a scene or destroyed, or the shared picture's session ends.
    // The callback must only queue work.
    virtual void setRemovedCallback(std::function<void()> callback) = 0;

    // The picture several people draw on together; null for a source that one
    // person draws on.
    virtual CoopFacet *coop() { return nullptr; }
};
