#pragma once

#include <QApplication>
#include <QMouseEvent>
#include <QWidget>

// Mouse input as the window system delivers it, through the application so
// its event filters see every event.
namespace EditorTestInput {

inline void mouse(QWidget *w, QEvent::Type type, QPointF pos, Qt::MouseButton button,
                  Qt::MouseButtons buttons)
{
    QMouseEvent event(type, pos, w->mapToGlobal(pos), button, buttons, Qt::NoModifier);
    QApplication::sendEvent(w, &event);
}

inline void press(QWidget *w, QPointF pos)
{
    mouse(w, QEvent::MouseButtonPress, pos, Qt::LeftButton, Qt::LeftButton);
}

inline void moveTo(QWidget *w, QPointF pos)
{
    mouse(w, QEvent::MouseMove, pos, Qt::NoButton, Qt::LeftButton);
}

inline void release(QWidget *w, QPointF pos)
{
    mouse(w, QEvent::MouseButtonRelease, pos, Qt::LeftButton, Qt::NoButton);
}

// A brush stroke across the middle of the widget.
inline void strokeAcross(QWidget *w)
{
    const qreal y = w->height() / 2.0;
    press(w, QPointF(w->width() * 0.2, y));
    for (int i = 1; i <= 10; ++i)
        moveTo(w, QPointF(w->width() * (0.2 + 0.06 * i), y + (i % 2) * 6));
    release(w, QPointF(w->width() * 0.8, y));
}

} // namespace EditorTestInput
