#pragma once

#include "dock/DockHost.h"

// The dock's view of the running host: the front end's main window and
// current scene, and libobs scenes, groups and sources.
class ObsDockHost final : public DockHost {
public:
    QWidget *mainWindow() override;
    QString currentSceneName() override;
    QList<DockSource> findSources(const char *typeId) override;
    bool createSourceOnTop(const char *typeId, const QString &name) override;
    std::unique_ptr<EditorSource> editorSource(const DockSource &source) override;
    void prepareCoopCanvas() override;
};
