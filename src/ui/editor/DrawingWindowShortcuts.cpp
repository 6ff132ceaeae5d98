// Application-wide event filter: claims the undo and redo chords while this
// window is active, whatever widget has the focus, before any shortcut of the
// host application can take them; and closes pop-ups on a press outside.

#include "editor/DrawingWindow.h"

#include "canvas/CanvasWidget.h"
#include "common/Log.h"

#include <QApplication>
#include <QKeyEvent>
#include <QMouseEvent>

namespace {

QByteArray classNameOf(const QObject *object)
{
    return object ? QByteArray(object->metaObject()->className()) : QByteArray("(null)");
}

} // namespace

bool DrawingWindow::eventFilter(QObject *watched, QEvent *event)
{
    const QEvent::Type type = event->type();
    if ((type == QEvent::ShortcutOverride || type == QEvent::KeyPress) && !m_coopMode && m_canvas) {
        if (routeUndoShortcut(watched, event))
            return true;
    }
    if (type == QEvent::MouseButtonPress) {
        const auto *press = static_cast<QMouseEvent *>(event);
        dismissPopupsOutside(press->globalPosition().toPoint());
    }
    return QDialog::eventFilter(watched, event);
}

bool DrawingWindow::routeUndoShortcut(QObject *watched, QEvent *event)
{
    auto *key = static_cast<QKeyEvent *>(event);
    const bool ctrl = key->modifiers().testFlag(Qt::ControlModifier);
    const bool shift = key->modifiers().testFlag(Qt::ShiftModifier);
    const int code = key->key();
    if (!ctrl || (code != Qt::Key_Z && code != Qt::Key_Y))
        return false;

    const bool isOverride = event->type() == QEvent::ShortcutOverride;
    const bool active = isActiveWindow();
    pdLog("[PD-Undo] %-16s key=%s%s | thisActive=%d activeWin=%s focus=%s recv=%s",
          isOverride ? "ShortcutOverride" : "KeyPress", code == Qt::Key_Z ? "Z" : "Y",
          shift ? "+Shift" : "", active ? 1 : 0,
          classNameOf(QApplication::activeWindow()).constData(),
          classNameOf(QApplication::focusWidget()).constData(), classNameOf(watched).constData());
    if (!active)
        return false;
    if (isOverride) {
        event->accept();
        return true;
    }
    if (code == Qt::Key_Z && !shift) {
        m_canvas->undo();
        pdLog("[PD-Undo]   -> canvas UNDO");
    } else {
        m_canvas->redo();
        pdLog("[PD-Undo]   -> canvas REDO");
    }
    return true;
}
