#include "editor/HistoryControls.h"

#include "canvas/CanvasWidget.h"
#include "common/Log.h"
#include "common/Text.h"
#include "widgets/Icons.h"
#include "widgets/TintedIcon.h"

#include <QApplication>
#include <QKeyEvent>
#include <QToolButton>

namespace {

QByteArray classNameOf(const QObject *object)
{
    return object ? QByteArray(object->metaObject()->className()) : QByteArray("(null)");
}

QToolButton *rowButton(QWidget *parent, const QString &name, const QString &svg, const QColor &ink,
                       const QString &tooltip)
{
    const QSize iconSize(24, 24);
    auto *button = new QToolButton(parent);
    button->setObjectName(name);
    button->setFixedSize(28, 28);
    button->setIcon(tintedSvgIcon(svg, ink, iconSize));
    button->setIconSize(iconSize);
    button->setToolTip(tooltip);
    button->setEnabled(false);
    return button;
}

} // namespace

HistoryControls::HistoryControls(const EditorContext &context) : EditorFeature(context)
{
    m_undo = rowButton(context.window, QStringLiteral("undoButton"), Icons::Undo, context.iconColor,
                       uiText("Editor.Tooltip.Undo"));
    m_redo = rowButton(context.window, QStringLiteral("redoButton"), Icons::Redo, context.iconColor,
                       uiText("Editor.Tooltip.Redo"));
    CanvasWidget *canvas = context.canvas;
    connect(canvas, &CanvasWidget::undoAvailabilityChanged, m_undo, &QToolButton::setEnabled);
    connect(canvas, &CanvasWidget::redoAvailabilityChanged, m_redo, &QToolButton::setEnabled);
    connect(m_undo, &QToolButton::clicked, canvas, &CanvasWidget::undo);
    connect(m_redo, &QToolButton::clicked, canvas, &CanvasWidget::redo);
    QCoreApplication::instance()->installEventFilter(this);
}

bool HistoryControls::eventFilter(QObject *watched, QEvent *event)
{
    const QEvent::Type type = event->type();
    if (type != QEvent::ShortcutOverride && type != QEvent::KeyPress)
        return false;
    auto *key = static_cast<QKeyEvent *>(event);
    const bool ctrl = key->modifiers().testFlag(Qt::ControlModifier);
    const bool shift = key->modifiers().testFlag(Qt::ShiftModifier);
    const int code = key->key();
    // A chord meant for another window is no business of this editor, not
    // even for its log.
    if (!ctrl || (code != Qt::Key_Z && code != Qt::Key_Y) || !m_context.window->isActiveWindow())
        return false;

    const bool isOverride = type == QEvent::ShortcutOverride;
    pdLog("[PD-Undo] %-16s key=%s%s | thisActive=%d activeWin=%s focus=%s recv=%s",
          isOverride ? "ShortcutOverride" : "KeyPress", code == Qt::Key_Z ? "Z" : "Y",
          shift ? "+Shift" : "", 1, classNameOf(QApplication::activeWindow()).constData(),
          classNameOf(QApplication::focusWidget()).constData(), classNameOf(watched).constData());
    if (isOverride) {
        // Accepting the override keeps any application shortcut from taking the
        // chord, so it arrives here again as a key press.
        event->accept();
        return true;
    }
    if (code == Qt::Key_Z && !shift) {
        m_context.canvas->undo();
        pdLog("[PD-Undo]   -> canvas UNDO");
    } else {
        m_context.canvas->redo();
        pdLog("[PD-Undo]   -> canvas REDO");
    }
    return true;
}
