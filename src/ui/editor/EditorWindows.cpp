#include "editor/EditorWindows.h"

#include "editor/DrawingWindow.h"

#include <QHash>
#include <QPointer>

namespace {

QHash<QString, QPointer<DrawingWindow>> &openWindows()
{
    static QHash<QString, QPointer<DrawingWindow>> windows;
    return windows;
}

void bringToFront(DrawingWindow *window)
{
    window->showNormal();
    window->raise();
    window->activateWindow();
}

} // namespace

namespace EditorWindows {

DrawingWindow *raise(const QString &key)
{
    DrawingWindow *window = openWindows().value(key);
    // A closed editor is on its way out even before it is deleted.
    if (!window || !window->isVisible()) {
        openWindows().remove(key);
        return nullptr;
    }
    bringToFront(window);
    return window;
}

DrawingWindow *find(const QString &key)
{
    DrawingWindow *window = openWindows().value(key);
    return window && window->isVisible() ? window : nullptr;
}

void closeAll()
{
    const auto windows = openWindows().values();
    openWindows().clear();
    for (DrawingWindow *window : windows)
        if (window)
            window->close();
}

DrawingWindow *open(const QString &key, std::unique_ptr<EditorSource> source, QWidget *parent)
{
    auto *window = new DrawingWindow(std::move(source), parent);
    window->setAttribute(Qt::WA_DeleteOnClose);
    openWindows().insert(key, window);
    bringToFront(window);
    return window;
}

} // namespace EditorWindows
