#pragma once

#include "dock/DockHost.h"

#include <QHash>
#include <QPointer>
#include <QString>
#include <QWidget>

#include <memory>

class CoopModeDialog;
class DrawingWindow;
class QPushButton;
class UpdateChecker;

// The panel in the host's main window: "Draw" opens the editor for a canvas
// of the current scene (creating one first when there is none), the co-op
// button hosts, joins or leaves a co-op session and shows its state.
class PluginDock : public QWidget {
    Q_OBJECT

public:
    static constexpr const char *CanvasTypeId = "pennoria_canvas";
    static constexpr const char *CoopCanvasTypeId = "pennoria_coop_canvas";

    // Takes the update checker as a child and starts it.
    PluginDock(std::unique_ptr<DockHost> host, UpdateChecker *updateChecker, QWidget *parent);
    ~PluginDock() override;

public slots:
    void onButtonClicked();
    void onCoopButtonClicked();

private slots:
    void onUpdateAvailable(const QString &latestVersion, const QString &downloadUrl);
    void onConnectionError(const QString &message);
    void onKicked(const QString &reason);
    void updateCoopButton();

private:
    bool coopAvailable();
    void createCanvas();
    void chooseCanvas(const QList<DockSource> &canvases, bool withCoop);
    void openEditor(const DockSource &source);
    void openCoopEditor();
    void startHosting(const CoopModeDialog &choices);
    void askToJoin(const QString &nickname);

    QPushButton *m_drawButton = nullptr;
    QPushButton *m_coopButton = nullptr;
    // Open editor windows by their source's UUID.
    QHash<QString, QPointer<DrawingWindow>> m_windows;
    UpdateChecker *m_updateChecker = nullptr;
    std::unique_ptr<DockHost> m_host;
};
