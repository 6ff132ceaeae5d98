#pragma once

#include "files/CanvasFiles.h"

#include <QImage>
#include <QString>

#include <chrono>

class CanvasDocument;

// The snapshot of a document for a save: shallow copies of the layer images,
// so taking it copies no pixels.
CanvasSaveSnapshot takeCanvasSnapshot(const QString &directory, const CanvasDocument &document,
                                      const QImage &flattened);

// Saves one canvas, named by its key. With an empty key nothing is ever
// written. The calling thread only takes the snapshot and hands it to the
// process's background writer, which writes the snapshots in order, keeping
// only the newest one still waiting for a folder.
class CanvasSaver {
public:
    explicit CanvasSaver(QString canvasKey = QString()) : m_key(std::move(canvasKey)) {}

    const QString &canvasKey() const { return m_key; }
    bool isEnabled() const { return !m_key.isEmpty(); }
    QString directory() const;

    // False when the key is empty and nothing was handed over.
    bool saveAsync(const CanvasDocument &document, const QImage &flattened) const;
    // The same hand-off, for closing the editor: returns at once.
    bool saveNow(const CanvasDocument &document, const QImage &flattened) const
    {
        return saveAsync(document, flattened);
    }

    // Hands a snapshot to the background writer.
    static void enqueue(CanvasSaveSnapshot snapshot);

    // Blocks until every handed-over snapshot is written, or the timeout has
    // passed; true when nothing is pending any more. For OBS exit, a scene
    // collection change and module unload.
    static bool waitForPendingSaves(std::chrono::milliseconds timeout);
    // Without a bound; for tests and benchmarks.
    static void waitForPendingSaves();

private:
    QString m_key;
};
