#pragma once

#include "files/CanvasFiles.h"

#include <QImage>
#include <QString>

#include <functional>

class CanvasDocument;

// The snapshot of a document for a save: shallow copies of the layer images,
// so taking it copies no pixels.
CanvasSaveSnapshot takeCanvasSnapshot(const QString &directory, const CanvasDocument &document,
                                      const QImage &flattened);

// Saves one canvas, named by its key. With an empty key nothing is ever
// written. The calling thread only takes the snapshot; saveAsync writes it on
// a detached worker thread, saveNow on the calling thread (used on close).
class CanvasSaver {
public:
    // Runs on the worker thread once the files are written or not.
    using Written = std::function<void(bool ok)>;

    explicit CanvasSaver(QString canvasKey = QString()) : m_key(std::move(canvasKey)) {}

    const QString &canvasKey() const { return m_key; }
    bool isEnabled() const { return !m_key.isEmpty(); }
    QString directory() const;

    // False when the key is empty and nothing was started.
    bool saveAsync(const CanvasDocument &document, const QImage &flattened,
                   Written written = {}) const;
    // False when the key is empty or the files were not all written.
    bool saveNow(const CanvasDocument &document, const QImage &flattened) const;

    // Blocks until every worker started by saveAsync has finished; for
    // unloading the module and for tests.
    static void waitForPendingSaves();

private:
    QString m_key;
};
