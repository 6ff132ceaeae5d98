#pragma once

#include <QTimer>
#include <QWidget>
#include <QtTest>

// Simulated input for the editor's tests.
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

// Holds a long-press button down past its timer, as a user holding it would.
inline void longPress(QWidget *button)
{
    QTest::mousePress(button, Qt::LeftButton);
    QTimer *timer = button->findChild<QTimer *>("longPressTimer");
    QTimerEvent event(timer->timerId());
    QCoreApplication::sendEvent(timer, &event);
    QTest::mouseRelease(button, Qt::LeftButton);
}

} // namespace EditorTestInput
