#pragma once

#include "dock/DockHost.h"

struct obs_source;
typedef struct obs_source obs_source_t;

// The dock's view of the running host: the front end's main window and
// current scene, and libobs scenes, groups and sources.
class ObsDockHost final : public DockHost {
public:
    explicit ObsDockHost(quint16 coopPort = coop::DefaultPort) : m_coopPort(coopPort) {}

    QWidget *mainWindow() override;
    QString currentSceneName() override;
    QList<DockSource> findSources(const char *typeId) override;
    std::optional<DockSource> createSourceOnTop(const char *typeId, const QString &name) override;
    void prepareCoopCanvas() override;
    quint16 coopPort() const override { return m_coopPort; }

    // The dock's entry for a source; it keeps only a weak reference.
    static DockSource dockSourceOf(obs_source_t *source);

private:
    const quint16 m_coopPort;
};
