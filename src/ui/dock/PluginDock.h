#pragma once

#include "common/SourceIds.h"
#include "dock/DockHost.h"

#include <QHash>
#include <QPointer>
#include <QString>
#include <QWidget>

#include <memory>

class CoopModeDialog;
class DrawingWindow;
class HotkeyCanvas;
class QPushButton;
class UpdateChecker;

// The panel in the host's main window: "Draw" opens the editor for a canvas
// of the current scene (creating one first when there is none), the co-op
// button hosts, joins or leaves a co-op session and shows its state.
class PluginDock : public QWidget {
    Q_OBJECT

public:
    static constexpr const char *CanvasTypeId = CanvasSourceId;
    static constexpr const char *CoopCanvasTypeId = CoopSourceId;

    // Takes the update checker as a child and starts it.
    PluginDock(std::unique_ptr<DockHost> host, UpdateChecker *updateChecker, QWidget *parent);
    ~PluginDock() override;

    // A hotkey of a canvas source, or of a co-op source, was pressed.
    void runSourceAction(const DockSource &source, SourceAction action);
    void runCoopAction(SourceAction action);

    // For unloading: closes every editor (each saves as it closes) and ends
    // the update check's request.
    void closeEditors();
    void cancelUpdateCheck();

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
    void runInEditor(DrawingWindow *window, SourceAction action);
    void dropHotkeyCanvas(const QString &uuid);
    void startHosting(const CoopModeDialog &choices);
    void askToJoin(const QString &nickname);

    QPushButton *m_drawButton = nullptr;
    QPushButton *m_coopButton = nullptr;
    // Drawings changed by hotkeys while no editor is open, by source UUID.
    QHash<QString, QPointer<HotkeyCanvas>> m_hotkeyCanvases;
    UpdateChecker *m_updateChecker = nullptr;
    std::unique_ptr<DockHost> m_host;
};
