#include "dock/DockPlacement.h"

#include <QDockWidget>
#include <QGuiApplication>
#include <QMainWindow>
#include <QScreen>

#include <algorithm>

void placeDockFrame(QMainWindow *mainWindow, const char *objectName)
{
    if (!mainWindow)
        return;
    auto *frame = mainWindow->findChild<QDockWidget *>(QString::fromUtf8(objectName));
    if (!frame)
        return;
    QScreen *screen = mainWindow->screen();
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    if (!screen)
        return;
    const QRect available = screen->availableGeometry();
    const QSize hint = frame->sizeHint();
    const int width = std::max(hint.width(), 280);
    const int height = std::max(hint.height(), 120);
    frame->setGeometry(available.x() + (available.width() - width) / 2,
                       available.y() + (available.height() - height) / 2, width, height);
}
