#pragma once

#include <QList>
#include <QString>

#include <memory>

class EditorSource;
class QWidget;

// A source found in the current scene. The handle keeps the host's reference
// to the source for as long as any copy of the entry lives.
struct DockSource {
    QString name;
    QString uuid;
    std::shared_ptr<void> handle;
};

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
    // Adds a new source of the type at the top of the current scene. False
    // when there is no current scene or the host refused the source.
    virtual bool createSourceOnTop(const char *typeId, const QString &name) = 0;
    // The editor's view of a found canvas source; null when the source has
    // no canvas record.
    virtual std::unique_ptr<EditorSource> editorSource(const DockSource &source) = 0;
    // Creates the shared co-op picture if needed, at the host's video size.
    virtual void prepareCoopCanvas() = 0;
};
