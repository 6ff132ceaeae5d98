#pragma once

#include <QApplication>
#include <QMouseEvent>
#include <QTimer>
#include <QWidget>
#include <QtTest>

// Input as the window system delivers it, through the application so its
// event filters see every event, and widgets reached by their object names.
namespace EditorTestInput {

inline void mouse(QWidget *w, QEvent::Type type, QPointF pos, Qt::MouseButtons buttons)
{
    const Qt::MouseButton button = type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton;
    QMouseEvent event(type, pos, w->mapToGlobal(pos), button, buttons, Qt::NoModifier);
    QApplication::sendEvent(w, &event);
}

// A brush stroke across the middle of the widget.
inline void strokeAcross(QWidget *w)
{
    const qreal y = w->height() / 2.0;
    mouse(w, QEvent::MouseButtonPress, QPointF(w->width() * 0.2, y), Qt::LeftButton);
    for (int i = 1; i <= 10; ++i)
        mouse(w, QEvent::MouseMove, QPointF(w->width() * (0.2 + 0.06 * i), y + (i % 2) * 6),
              Qt::LeftButton);
    mouse(w, QEvent::MouseButtonRelease, QPointF(w->width() * 0.8, y), Qt::NoButton);
}

template <typename T = QWidget> T *named(const QObject *root, const char *name)
{
    T *child = root->findChild<T *>(QLatin1String(name));
    if (!child)
        qWarning("no %s named %s", T::staticMetaObject.className(), name);
    return child;
}

// Holds a long-press button down past its timer, as a user holding it would.
inline void longPress(QWidget *button)
{
    QTest::mousePress(button, Qt::LeftButton);
    QTimer *timer = named<QTimer>(button, "longPressTimer");
    QTimerEvent event(timer->timerId());
    QCoreApplication::sendEvent(timer, &event);
    QTest::mouseRelease(button, Qt::LeftButton);
}

} // namespace EditorTestInput
