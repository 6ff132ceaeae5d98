#pragma once

#include <QApplication>
#include <QTimer>
#include <QWidget>
#include <QtTest>

// Input as the window system delivers it, through the application so its
// event filters see every event, and widgets reached by their object names.
namespace EditorTestInput {

// A brush stroke across the middle of the widget.
inline void strokeAcross(QWidget *w)
{
    const int y = w->height() / 2;
    QTest::mousePress(w, Qt::LeftButton, {}, QPoint(w->width() / 5, y));
    for (int i = 1; i <= 10; ++i)
        QTest::mouseMove(w, QPoint(w->width() * (20 + 6 * i) / 100, y + (i % 2) * 6));
    QTest::mouseRelease(w, Qt::LeftButton, {}, QPoint(w->width() * 4 / 5, y));
}

template <typename T = QWidget> T *named(const QObject *root, const char *name)
{
    return root->findChild<T *>(QLatin1String(name));
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
