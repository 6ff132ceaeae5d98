#include "Screenshot.h"

#include "widgets/LongPressButton.h"

#include <QSignalSpy>
#include <QTimer>
#include <QtTest>

// The press timer is driven by hand: releasing while it is still pending is a
// press shorter than 333 ms, delivering its timer event is the 333 ms mark.
class TestLongPress : public QObject {
    Q_OBJECT

private slots:
    void timerIsPreciseSingleShot333();
    void releaseBeforeTimeoutClicks();
    void timeoutLongPressesOnceWithoutClick();
    void longPressKeepsCheckedState();
    void shortPressStillToggles();
    void rightButtonDoesNotStartTimer();
    void realClockLongPress();
    void indicatorPaintsCorner();

private:
    static QTimer *pressTimer(LongPressButton *button)
    {
        return button->findChild<QTimer *>(QStringLiteral("longPressTimer"));
    }
    static void expire(QTimer *timer)
    {
        QTimerEvent event(timer->timerId());
        QCoreApplication::sendEvent(timer, &event);
    }
    static void show(QWidget *w)
    {
        w->resize(80, 32);
        w->show();
        QVERIFY(QTest::qWaitForWindowExposed(w));
    }
};

void TestLongPress::timerIsPreciseSingleShot333()
{
    LongPressButton button(QStringLiteral("Brush"));
    QTimer *timer = pressTimer(&button);
    QVERIFY(timer);
    QCOMPARE(timer->interval(), 333);
    QVERIFY(timer->isSingleShot());
    QCOMPARE(timer->timerType(), Qt::PreciseTimer);
    QVERIFY(!timer->isActive());
}

void TestLongPress::releaseBeforeTimeoutClicks()
{
    LongPressButton button(QStringLiteral("Brush"));
    show(&button);
    QSignalSpy clicked(&button, &QPushButton::clicked);
    QSignalSpy longPressed(&button, &LongPressButton::longPressed);

    QTest::mousePress(&button, Qt::LeftButton);
    QVERIFY(pressTimer(&button)->isActive());
    QVERIFY(pressTimer(&button)->remainingTime() > 0);
    QTest::mouseRelease(&button, Qt::LeftButton);

    QVERIFY(!pressTimer(&button)->isActive());
    QCOMPARE(clicked.count(), 1);
    QCOMPARE(longPressed.count(), 0);
}

void TestLongPress::timeoutLongPressesOnceWithoutClick()
{
    LongPressButton button(QStringLiteral("Brush"));
    show(&button);
    QSignalSpy clicked(&button, &QPushButton::clicked);
    QSignalSpy released(&button, &QPushButton::released);
    QSignalSpy longPressed(&button, &LongPressButton::longPressed);

    QTest::mousePress(&button, Qt::LeftButton);
    expire(pressTimer(&button));
    QCOMPARE(longPressed.count(), 1);
    QVERIFY(!pressTimer(&button)->isActive());
    QTest::mouseRelease(&button, Qt::LeftButton);

    QCOMPARE(longPressed.count(), 1);
    QCOMPARE(clicked.count(), 0);
    QCOMPARE(released.count(), 0);
    QVERIFY(!button.isDown());

    // The next short press is an ordinary click again.
    QTest::mouseClick(&button, Qt::LeftButton);
    QCOMPARE(clicked.count(), 1);
    QCOMPARE(longPressed.count(), 1);
}

void TestLongPress::longPressKeepsCheckedState()
{
    LongPressButton button(QStringLiteral("Eraser"));
    button.setCheckable(true);
    show(&button);
    QSignalSpy toggled(&button, &QPushButton::toggled);

    QTest::mousePress(&button, Qt::LeftButton);
    expire(pressTimer(&button));
    QTest::mouseRelease(&button, Qt::LeftButton);
    QVERIFY(!button.isChecked());

    button.setChecked(true);
    toggled.clear();
    QTest::mousePress(&button, Qt::LeftButton);
    expire(pressTimer(&button));
    QTest::mouseRelease(&button, Qt::LeftButton);
    QVERIFY(button.isChecked());
    QCOMPARE(toggled.count(), 0);
}

void TestLongPress::shortPressStillToggles()
{
    LongPressButton button(QStringLiteral("Eraser"));
    button.setCheckable(true);
    show(&button);
    QTest::mouseClick(&button, Qt::LeftButton);
    QVERIFY(button.isChecked());
}

void TestLongPress::rightButtonDoesNotStartTimer()
{
    LongPressButton button(QStringLiteral("Brush"));
    show(&button);
    QSignalSpy longPressed(&button, &LongPressButton::longPressed);
    QTest::mousePress(&button, Qt::RightButton);
    QVERIFY(!pressTimer(&button)->isActive());
    QTest::mouseRelease(&button, Qt::RightButton);
    QCOMPARE(longPressed.count(), 0);

    // A right press during a left hold leaves the running timer alone.
    QTest::mousePress(&button, Qt::LeftButton);
    QTest::mousePress(&button, Qt::RightButton);
    QVERIFY(pressTimer(&button)->isActive());
}

void TestLongPress::realClockLongPress()
{
    LongPressButton button(QStringLiteral("Brush"));
    show(&button);
    QSignalSpy clicked(&button, &QPushButton::clicked);
    QSignalSpy longPressed(&button, &LongPressButton::longPressed);
    QTest::mousePress(&button, Qt::LeftButton);
    QTRY_COMPARE(longPressed.count(), 1);
    QTest::mouseRelease(&button, Qt::LeftButton);
    QCOMPARE(clicked.count(), 0);
    QCOMPARE(longPressed.count(), 1);
}

void TestLongPress::indicatorPaintsCorner()
{
    LongPressButton button(QStringLiteral("Brush"));
    QPalette pal = button.palette();
    pal.setColor(QPalette::ButtonText, Qt::red);
    button.setPalette(pal);
    button.resize(60, 30);
    const QImage plain = button.grab().toImage();
    button.showIndicator = true;
    const QImage marked = button.grab().toImage();
    saveScreenshot(&button, QStringLiteral("long_press_button"));

    // The triangle's inside, one pixel from both edges, is tinted red.
    const QColor corner = marked.pixelColor(57, 27);
    QVERIFY2(corner.red() > corner.green() + 60, qPrintable(corner.name()));
    QVERIFY(plain.pixelColor(57, 27) != corner);
    // The rest of the button is untouched.
    QCOMPARE(marked.pixelColor(30, 15), plain.pixelColor(30, 15));
}

int runLongPressTests(int argc, char **argv)
{
    TestLongPress test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_long_press.moc"
