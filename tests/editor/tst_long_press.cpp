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
    void pressTable_data();
    void pressTable();
    void cornerMark();
};

// Faults: a long press that also clicks or toggles; a flag left set so the
// next short press is swallowed; a right press that starts the timer; a timer
// of the wrong length or kind.
void TestLongPress::pressTable_data()
{
    QTest::addColumn<bool>("rightButton");
    QTest::addColumn<bool>("held");
    QTest::addColumn<bool>("checkedBefore");
    QTest::addColumn<int>("clicks");
    QTest::addColumn<int>("longPresses");
    QTest::addColumn<bool>("checkedAfter");
    QTest::newRow("short press clicks and toggles") << false << false << false << 1 << 0 << true;
    QTest::newRow("long press only") << false << true << false << 0 << 1 << false;
    QTest::newRow("long press keeps checked") << false << true << true << 0 << 1 << true;
    QTest::newRow("right press starts nothing") << true << true << false << 0 << 0 << false;
}

void TestLongPress::pressTable()
{
    QFETCH(bool, rightButton);
    QFETCH(bool, held);
    QFETCH(bool, checkedBefore);
    LongPressButton button(QStringLiteral("Fill"));
    button.setCheckable(true);
    button.setChecked(checkedBefore);
    button.resize(80, 32);
    button.show();
    QVERIFY(QTest::qWaitForWindowExposed(&button));
    auto *timer = button.findChild<QTimer *>(QStringLiteral("longPressTimer"));
    QVERIFY(timer && timer->interval() == 333 && timer->isSingleShot());
    QCOMPARE(timer->timerType(), Qt::PreciseTimer);
    QSignalSpy clicked(&button, &QPushButton::clicked);
    QSignalSpy longPressed(&button, &LongPressButton::longPressed);

    const Qt::MouseButton mouseButton = rightButton ? Qt::RightButton : Qt::LeftButton;
    QTest::mousePress(&button, mouseButton);
    QCOMPARE(timer->isActive(), !rightButton);
    if (held && timer->isActive()) {
        QTimerEvent event(timer->timerId());
        QCoreApplication::sendEvent(timer, &event);
    }
    QTest::mouseRelease(&button, mouseButton);
    QVERIFY(!timer->isActive());
    QVERIFY(!button.isDown());
    QTEST(int(clicked.count()), "clicks");
    QTEST(int(longPressed.count()), "longPresses");
    QTEST(button.isChecked(), "checkedAfter");

    // Whatever came before, the next short press is an ordinary click.
    const int before = int(clicked.count());
    QTest::mouseClick(&button, Qt::LeftButton);
    QCOMPARE(int(clicked.count()), before + 1);
}

// Faults: no corner mark, or one in the wrong place or over the whole button.
void TestLongPress::cornerMark()
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
    QVERIFY2(corner.red() > corner.green() + 60 && plain.pixelColor(57, 27) != corner,
             qPrintable(corner.name()));
    for (const QPoint outside : {QPoint(30, 15), QPoint(52, 27)})
        QCOMPARE(marked.pixelColor(outside), plain.pixelColor(outside));
}

int runLongPressTests(int argc, char **argv)
{
    TestLongPress test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_long_press.moc"
