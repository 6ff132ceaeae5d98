#include "editor/PopupHost.h"

#include "editor/EditorStyle.h"
#include "widgets/LongPressButton.h"

#include <QApplication>
#include <QLayout>
#include <QMouseEvent>

#include <algorithm>

namespace {

QRect globalRect(const QWidget *widget)
{
    return QRect(widget->mapToGlobal(QPoint(0, 0)), widget->size());
}

// Layouts of a hidden frame and of the panels in it are only settled once
// they are activated, which a child outside any layout never gets by itself.
void settle(QFrame *popup)
{
    popup->ensurePolished();
    for (QWidget *child : popup->findChildren<QWidget *>(Qt::FindDirectChildrenOnly)) {
        if (child->layout())
            child->layout()->activate();
    }
    if (popup->layout())
        popup->layout()->activate();
    popup->adjustSize();
}

} // namespace

PopupHost::PopupHost(QWidget *window) : QObject(window), m_window(window)
{}

QFrame *PopupHost::create(const QString &objectName, QWidget *anchor, int frameStyle,
                          const QString &moreStyle)
{
    auto *popup = new QFrame(m_window);
    popup->setObjectName(objectName);
    popup->setFrameStyle(frameStyle);
    popup->setStyleSheet(EditorStyle::popupStyle(objectName, m_window->palette()) + moreStyle);
    popup->setAutoFillBackground(true);
    popup->hide();
    m_entries.push_back({popup, anchor});
    return popup;
}

QFrame *PopupHost::createHeld(const QString &objectName, LongPressButton *button)
{
    QFrame *popup = create(objectName, button, QFrame::Box | QFrame::Plain);
    connect(button, &LongPressButton::longPressed, popup, [this, popup] { toggle(popup); });
    return popup;
}

const PopupHost::Entry *PopupHost::find(const QFrame *popup) const
{
    const auto it = std::find_if(m_entries.begin(), m_entries.end(),
                                 [popup](const Entry &e) { return e.popup == popup; });
    return it == m_entries.end() ? nullptr : &*it;
}

void PopupHost::place(const Entry &entry)
{
    if (!entry.popup || !entry.anchor)
        return;
    QFrame *popup = entry.popup;
    const QPoint below = entry.anchor->mapTo(m_window, QPoint(0, entry.anchor->height() + 4));
    const int x = std::max(std::min(below.x(), m_window->width() - 4 - popup->width()), 4);
    const int y = std::max(std::min(below.y(), m_window->height() - 4 - popup->height()), 4);
    popup->move(x, y);
}

void PopupHost::open(QFrame *popup)
{
    const Entry *entry = find(popup);
    if (!entry)
        return;
    popup->show();
    settle(popup);
    place(*entry);
    popup->raise();
}

void PopupHost::close(QFrame *popup)
{
    if (popup)
        popup->hide();
}

void PopupHost::toggle(QFrame *popup)
{
    if (isOpen(popup))
        close(popup);
    else
        open(popup);
}

void PopupHost::refit(QFrame *popup)
{
    const Entry *entry = find(popup);
    if (!entry || !isOpen(popup))
        return;
    settle(popup);
    place(*entry);
}

void PopupHost::placeAll()
{
    for (const Entry &entry : m_entries) {
        if (isOpen(entry.popup))
            place(entry);
    }
}

bool PopupHost::closeOutside(const QPoint &globalPos)
{
    bool closed = false;
    for (const Entry &entry : m_entries) {
        if (!isOpen(entry.popup) || globalRect(entry.popup).contains(globalPos))
            continue;
        if (entry.anchor && globalRect(entry.anchor).contains(globalPos))
            continue; // the button toggles its pop-up itself
        entry.popup->hide();
        closed = true;
    }
    return closed;
}

bool PopupHost::shields(QObject *watched, const QPoint &globalPos) const
{
    if (!m_shielded || !m_shielded->isVisible())
        return false;
    // A press reaches the top-level window first and the widget under it next.
    auto *widget = qobject_cast<QWidget *>(watched);
    if (!widget)
        widget = QApplication::widgetAt(globalPos);
    return widget && (widget == m_shielded || m_shielded->isAncestorOf(widget));
}

bool PopupHost::filterMouse(QObject *watched, QMouseEvent *event)
{
    switch (event->type()) {
    case QEvent::MouseButtonPress: {
        const QPoint globalPos = event->globalPosition().toPoint();
        if (!closeOutside(globalPos) || !shields(watched, globalPos))
            return false;
        m_swallowUntilRelease = true;
        return true;
    }
    case QEvent::MouseMove:
        return m_swallowUntilRelease && event->buttons() != Qt::NoButton;
    case QEvent::MouseButtonRelease:
        if (!m_swallowUntilRelease)
            return false;
        m_swallowUntilRelease = false;
        return true;
    default:
        return false;
    }
}
