#pragma once

#include "coop/CoopProtocol.h"

#include <QList>
#include <QString>

#include <functional>
#include <memory>
#include <optional>

class EditorSource;
class QWidget;

// A source found in the current scene, as the dock shows and opens it.
struct DockSource {
    QString name;
    QString uuid;
    // The editor's view of the source; null when the source is gone or has
    // no canvas record. Keeps no reference to the source itself.
    std::function<std::unique_ptr<EditorSource>()> editorSource;
};

// What a hotkey of a source asks for.
enum class SourceAction { OpenEditor, ClearLayer, Undo, Redo, WiggleOn, WiggleOff };

// What the dock needs of the host application, so the dock itself stays free
// of the host's API.
class DockHost {
public:
    virtual ~DockHost() = default;

    virtual QWidget *mainWindow() = 0;
    // The current scene's name; empty when there is no current scene.
    virtual QString currentSceneName() = 0;
    // Sources of the type in the current scene, also inside groups at any
    // depth, from the top of the scene's source list down.
    virtual QList<DockSource> findSources(const char *typeId) = 0;
    // Adds a new source of the type at the top of the current scene and
    // returns it; empty when there is no current scene or the host refused.
    virtual std::optional<DockSource> createSourceOnTop(const char *typeId,
                                                        const QString &name) = 0;
    // Creates the shared co-op picture if needed, at the host's video size.
    virtual void prepareCoopCanvas() = 0;
    // The port co-op sessions are hosted on and joined at.
    virtual quint16 coopPort() const { return coop::DefaultPort; }
};
