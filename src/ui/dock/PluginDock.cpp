#include "dock/PluginDock.h"

#include "common/Text.h"
#include "coop/CoopCanvas.h"
#include "coop/CoopEditorSource.h"
#include "coop/CoopSession.h"
#include "dock/CanvasChooser.h"
#include "dock/PluginDockHotkeys.h"
#include "dock/SetupDialog.h"
#include "editor/DrawingWindow.h"
#include "editor/EditorWindows.h"
#include "source/EditorSource.h"
#include "update/UpdateChecker.h"
#include "widgets/Icons.h"
#include "widgets/TintedIcon.h"

#include <QDesktopServices>
#include <QHBoxLayout>
#include <QMessageBox>
#include <QPushButton>
#include <QUrl>
#include <QVBoxLayout>

PluginDock::PluginDock(std::unique_ptr<DockHost> host, UpdateChecker *updateChecker,
                       QWidget *parent)
    : QWidget(parent), m_updateChecker(updateChecker), m_host(std::move(host))
{
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(6, 6, 6, 6);
    auto *row = new QHBoxLayout;
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(6);

    m_drawButton = new QPushButton(QStringLiteral("  ") + uiText("Dock.Draw"), this);
    m_drawButton->setObjectName(QStringLiteral("drawButton"));
    m_drawButton->setIcon(
        tintedSvgIcon(Icons::Drawing, palette().color(QPalette::ButtonText), QSize(16, 16)));
    m_drawButton->setIconSize(QSize(16, 16));
    m_drawButton->setToolTip(uiText("Dock.Tooltip.Draw"));
    m_drawButton->setMinimumHeight(32);
    row->addWidget(m_drawButton, 1);
    connect(m_drawButton, &QPushButton::clicked, this, &PluginDock::onButtonClicked);

    m_coopButton = new QPushButton(this);
    m_coopButton->setObjectName(QStringLiteral("coopButton"));
    m_coopButton->setFixedSize(32, 32);
    m_coopButton->setIconSize(QSize(18, 18));
    row->addWidget(m_coopButton);
    connect(m_coopButton, &QPushButton::clicked, this, &PluginDock::onCoopButtonClicked);

    layout->addLayout(row);
    layout->addStretch();

    if (m_updateChecker) {
        m_updateChecker->setParent(this);
        connect(m_updateChecker, &UpdateChecker::updateAvailable, this,
                &PluginDock::onUpdateAvailable);
        m_updateChecker->start();
    }

    CoopCanvas::instance();
    m_host->prepareCoopCanvas();

    CoopSession &session = CoopSession::instance();
    connect(&session, &CoopSession::roleChanged, this, &PluginDock::updateCoopButton);
    connect(&session, &CoopSession::hostingStarted, this, &PluginDock::updateCoopButton);
    connect(&session, &CoopSession::connectedToHost, this, &PluginDock::updateCoopButton);
    connect(&session, &CoopSession::sessionEnded, this, &PluginDock::updateCoopButton);
    connect(&session, &CoopSession::connectionError, this, &PluginDock::onConnectionError);
    connect(&session, &CoopSession::kicked, this, &PluginDock::onKicked);
    updateCoopButton();
}

// The update checker, a child, waits for its worker when it is deleted.
PluginDock::~PluginDock() = default;

bool PluginDock::coopAvailable()
{
    return CoopSession::instance().role() != CoopSession::Role::None &&
           !m_host->findSources(CoopCanvasTypeId).isEmpty();
}

void PluginDock::onButtonClicked()
{
    const QList<DockSource> canvases = m_host->findSources(CanvasTypeId);
    const bool withCoop = coopAvailable();
    if (canvases.size() == 1 && !withCoop)
        openEditor(canvases.first());
    else if (canvases.isEmpty() && withCoop)
        openCoopEditor();
    else if (canvases.isEmpty())
        createCanvas();
    else
        chooseCanvas(canvases, withCoop);
}

void PluginDock::createCanvas()
{
    QPointer<PluginDock> self(this);
    auto *dialog = new SetupDialog(m_host->mainWindow(), uiText("Setup.DefaultName"));
    const bool accepted = dialog->exec() == QDialog::Accepted;
    const QString name = dialog->name();
    dialog->deleteLater();
    if (!self || !accepted || name.isEmpty())
        return;
    if (const std::optional<DockSource> created = m_host->createSourceOnTop(CanvasTypeId, name))
        openEditor(*created);
}

void PluginDock::chooseCanvas(const QList<DockSource> &canvases, bool withCoop)
{
    QStringList names;
    for (const DockSource &canvas : canvases)
        names << canvas.name;
    CanvasChooser::CoopEntry coopEntry = CanvasChooser::CoopEntry::None;
    if (withCoop)
        coopEntry = CoopSession::instance().role() == CoopSession::Role::Host
                        ? CanvasChooser::CoopEntry::Hosting
                        : CanvasChooser::CoopEntry::Joined;

    QPointer<PluginDock> self(this);
    auto *chooser = new CanvasChooser(m_host->mainWindow(), names, coopEntry);
    const bool accepted = chooser->exec() == QDialog::Accepted;
    const bool coopChosen = chooser->coopChosen();
    const int chosen = chooser->chosenCanvas();
    chooser->deleteLater();
    if (!self || !accepted)
        return;
    if (coopChosen)
        openCoopEditor();
    else if (chosen >= 0 && chosen < canvases.size())
        openEditor(canvases[chosen]);
}

void PluginDock::openEditor(const DockSource &source)
{
    QWidget *mainWindow = m_host->mainWindow();
    std::unique_ptr<EditorSource> editorSource =
        source.editorSource ? source.editorSource() : nullptr;
    if (!editorSource) {
        QMessageBox::warning(mainWindow, uiText("App.Title"), uiText("Dock.SourceDataMissing"),
                             QMessageBox::Ok);
        return;
    }

    if (EditorWindows::raise(source.uuid))
        return;

    dropHotkeyCanvas(source.uuid);
    DrawingWindow *window = EditorWindows::open(source.uuid, std::move(editorSource), mainWindow);
    QString scene = m_host->currentSceneName();
    if (scene.isEmpty())
        scene = uiText("Dock.UnknownScene");
    window->setWindowTitle(uiText("Editor.Title.Source").arg(scene, source.name));
}

void PluginDock::openCoopEditor()
{
    if (!EditorWindows::raise(CoopEditorSource::EditorKey))
        EditorWindows::open(CoopEditorSource::EditorKey, makeCoopEditorSource(),
                            m_host->mainWindow());
}

void PluginDock::runCoopAction(SourceAction action)
{
    if (action == SourceAction::OpenEditor) {
        openCoopEditor();
        return;
    }
    if (action != SourceAction::WiggleOn && action != SourceAction::WiggleOff)
        return;
    if (DrawingWindow *window = EditorWindows::find(CoopEditorSource::EditorKey))
        runInEditor(window, action);
    else
        CoopCanvas::instance().setJitterEnabled(action == SourceAction::WiggleOn);
}

void PluginDock::closeEditors()
{
    EditorWindows::closeAll();
    qDeleteAll(m_hotkeyCanvases);
    m_hotkeyCanvases.clear();
}

void PluginDock::cancelUpdateCheck()
{
    // Its destructor ends the request and waits for the worker.
    delete m_updateChecker;
    m_updateChecker = nullptr;
}

void PluginDock::onUpdateAvailable(const QString &latestVersion, const QString &downloadUrl)
{
    QPointer<QMessageBox> box = new QMessageBox(m_host->mainWindow());
    box->setWindowTitle(uiText("App.Title"));
    box->setIcon(QMessageBox::Information);
    box->setText(uiText("Update.Available").arg(latestVersion));
    box->setInformativeText(uiText("Update.Question"));
    box->setStandardButtons(QMessageBox::Yes | QMessageBox::No);
    box->setDefaultButton(QMessageBox::Yes);
    const int answer = box->exec();
    delete box;
    if (answer == QMessageBox::Yes)
        QDesktopServices::openUrl(QUrl(downloadUrl));
}
