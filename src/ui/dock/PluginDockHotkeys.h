#pragma once

#include "dock/DockHost.h"
#include "engine/CanvasDocument.h"
#include "files/CanvasSaver.h"

#include <QObject>

#include <memory>

class EditorSource;

// A canvas source's drawing as its hotkeys change it while no editor is open:
// loaded from the canvas files at the first press and kept, with its undo
// history, until an editor opens on the source or the source goes away. Each
// change is shown by the source and saved as an editor's change is.
class HotkeyCanvas : public QObject {
    Q_OBJECT

public:
    // Deletes itself later when the source is removed.
    HotkeyCanvas(std::unique_ptr<EditorSource> source, QObject *parent);
    ~HotkeyCanvas() override;

    // Clear the active layer, undo or redo; other actions are ignored.
    void run(SourceAction action);

private:
    std::unique_ptr<EditorSource> m_source;
    CanvasDocument m_document;
    CanvasSaver m_saver;
};
