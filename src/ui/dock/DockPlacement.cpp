#include "dock/DockPlacement.h"

#include "settings/SettingsKeys.h"

#include <QDockWidget>
#include <QMainWindow>

bool showDockOnFirstStart(QMainWindow *mainWindow, const char *objectName)
{
    if (!mainWindow)
        return false;
    auto *frame = mainWindow->findChild<QDockWidget *>(QString::fromUtf8(objectName));
    if (!frame)
        return false;
    QSettings store = openSettings(SettingsStore::Canvas);
    if (readSetting(store, SettingsKeys::DockPlaced))
        return false;
    store.setValue(QLatin1String(SettingsKeys::DockPlaced.name), true);
    // A layout the host restored with the dock shown is the user's.
    if (!frame->isHidden())
        return false;

    frame->setFloating(false);
    auto *controls = mainWindow->findChild<QDockWidget *>(QStringLiteral("controlsDock"));
    if (controls && controls != frame && !controls->isFloating() &&
        mainWindow->dockWidgetArea(controls) != Qt::NoDockWidgetArea) {
        mainWindow->splitDockWidget(controls, frame, Qt::Vertical);
    } else {
        mainWindow->addDockWidget(Qt::RightDockWidgetArea, frame);
    }
    frame->show();
    return true;
}
