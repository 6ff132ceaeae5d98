#include "Screenshot.h"

#include "widgets/ColorPickerWidget.h"

#include <QApplication>
#include <QClipboard>
#include <QLineEdit>
#include <QSignalSpy>
#include <QSpinBox>
#include <QtTest>

namespace {

struct Picker {
    ColorPickerWidget widget;
    QSpinBox *red;
    QSpinBox *green;
    QSpinBox *blue;
    QLineEdit *hex;

    Picker()
    {
        widget.resize(300, 292);
        widget.show();
        red = widget.findChild<QSpinBox *>(QStringLiteral("redSpin"));
        green = widget.findChild<QSpinBox *>(QStringLiteral("greenSpin"));
        blue = widget.findChild<QSpinBox *>(QStringLiteral("blueSpin"));
        hex = widget.findChild<QLineEdit *>(QStringLiteral("hexEdit"));
    }

    QColor spins() const { return QColor(red->value(), green->value(), blue->value()); }

    // One user edit of the whole field, as a paste over the selected text.
    void pasteHex(const QString &text)
    {
        QApplication::clipboard()->setText(text);
        hex->setFocus();
        hex->selectAll();
        QTest::keyClick(hex, Qt::Key_V, Qt::ControlModifier);
    }
};

QImage hueBarPixels(ColorPickerWidget &widget)
{
    return widget.grab(widget.hueRect()).toImage().convertToFormat(QImage::Format_RGB32);
}

} // namespace

class TestColorPicker : public QObject {
    Q_OBJECT

private slots:
    void initialState();
    void setColorNeverEmits();
    void hexWithoutHashSelectsOrangeOnce();
    void hexIncompleteDoesNothing_data();
    void hexIncompleteDoesNothing();
    void hexTypedKeyByKeyEndsOnColour();
    void spinsEmitAndWriteHex();
    void greyKeepsHueMarker();
    void bottomOfHueBarIsHueOne();
    void hueBarTopToBottom();
    void dragOutOfSquareClamps();
    void rightButtonPicksNothing();
    void screenshot();
};

void TestColorPicker::initialState()
{
    Picker p;
    QVERIFY(p.red && p.green && p.blue && p.hex);
    QCOMPARE(p.widget.color(), QColor(Qt::black));
    QCOMPARE(p.hex->text(), QStringLiteral("#000000"));
    QCOMPARE(p.hex->maxLength(), 7);
    QCOMPARE(p.hex->placeholderText(), QStringLiteral("#rrggbb"));
    QCOMPARE(p.widget.minimumSize(), QSize(280, 292));
    QCOMPARE(p.widget.squareRect(), QRect(0, 0, 276, 220));
    QCOMPARE(p.widget.hueRect(), QRect(282, 0, 18, 220));
}

void TestColorPicker::setColorNeverEmits()
{
    Picker p;
    QSignalSpy spy(&p.widget, &ColorPickerWidget::colorChanged);
    p.widget.setColor(QColor(18, 52, 86));
    p.widget.setColor(QColor(200, 200, 200, 10));
    p.widget.setColor(QColor()); // invalid: ignored
    QCOMPARE(spy.count(), 0);
    QCOMPARE(p.widget.color(), QColor(200, 200, 200, 10));
    QCOMPARE(p.spins(), QColor(200, 200, 200));
    QCOMPARE(p.hex->text(), QStringLiteral("#C8C8C8"));
}

void TestColorPicker::hexWithoutHashSelectsOrangeOnce()
{
    Picker p;
    QSignalSpy spy(&p.widget, &ColorPickerWidget::colorChanged);
    p.pasteHex(QStringLiteral("ff8800"));
    QCOMPARE(spy.count(), 1);
    QCOMPARE(spy.at(0).at(0).value<QColor>(), QColor(255, 136, 0));
    QCOMPARE(p.widget.color(), QColor(255, 136, 0));
    QCOMPARE(p.spins(), QColor(255, 136, 0));
    QCOMPARE(p.hex->text(), QStringLiteral("ff8800")); // left as typed
    QVERIFY(qAbs(p.widget.hue() - 32.0 / 360.0) < 0.003);
}

void TestColorPicker::hexIncompleteDoesNothing_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("four digits") << QStringLiteral("#ff88");
    QTest::newRow("not hex") << QStringLiteral("#gg0000");
    QTest::newRow("colour name") << QStringLiteral("red");
    QTest::newRow("empty") << QString();
    QTest::newRow("hash only") << QStringLiteral("#");
}

void TestColorPicker::hexIncompleteDoesNothing()
{
    QFETCH(QString, text);
    Picker p;
    p.widget.setColor(QColor(10, 20, 30));
    QSignalSpy spy(&p.widget, &ColorPickerWidget::colorChanged);
    p.pasteHex(text);
    QCOMPARE(spy.count(), 0);
    QCOMPARE(p.widget.color(), QColor(10, 20, 30));
    QCOMPARE(p.spins(), QColor(10, 20, 30));
    QCOMPARE(p.hex->text(), text);
}

void TestColorPicker::hexTypedKeyByKeyEndsOnColour()
{
    Picker p;
    QSignalSpy spy(&p.widget, &ColorPickerWidget::colorChanged);
    p.hex->setFocus();
    p.hex->selectAll();
    QTest::keyClicks(p.hex, QStringLiteral("#ff88"));
    // "#ff8" on the way is the short form of #ffff88.
    QCOMPARE(spy.count(), 1);
    QCOMPARE(spy.last().at(0).value<QColor>(), QColor(255, 255, 136));
    QTest::keyClicks(p.hex, QStringLiteral("00"));
    QCOMPARE(spy.count(), 2);
    QCOMPARE(spy.last().at(0).value<QColor>(), QColor(255, 136, 0));
}

void TestColorPicker::spinsEmitAndWriteHex()
{
    Picker p;
    QSignalSpy spy(&p.widget, &ColorPickerWidget::colorChanged);
    p.green->setValue(171);
    QCOMPARE(spy.count(), 1);
    QCOMPARE(spy.at(0).at(0).value<QColor>(), QColor(0, 171, 0));
    QCOMPARE(p.hex->text(), QStringLiteral("#00AB00"));
}

void TestColorPicker::greyKeepsHueMarker()
{
    Picker p;
    p.widget.setColor(QColor(0, 0, 255));
    const QImage before = hueBarPixels(p.widget);
    const double hue = p.widget.hue();
    p.red->setValue(128);
    p.green->setValue(128);
    p.blue->setValue(128);
    QCOMPARE(p.widget.color(), QColor(128, 128, 128));
    QCOMPARE(p.widget.hue(), hue);
    QCOMPARE(p.widget.saturation(), 0.0);
    QCOMPARE(hueBarPixels(p.widget), before);
    // The marker sits at blue, two thirds down the bar.
    const int y = qRound(hue * 219);
    QCOMPARE(y, 146);
    QCOMPARE(before.pixelColor(9, y), QColor(Qt::white));
    QCOMPARE(before.pixelColor(9, y + 1), QColor(Qt::black));
}

void TestColorPicker::bottomOfHueBarIsHueOne()
{
    Picker p;
    p.widget.setColor(QColor(0, 0, 255));
    QSignalSpy spy(&p.widget, &ColorPickerWidget::colorChanged);
    const QRect bar = p.widget.hueRect();
    QTest::mousePress(&p.widget, Qt::LeftButton, {}, QPoint(bar.center().x(), bar.bottom()));
    QTest::mouseRelease(&p.widget, Qt::LeftButton, {}, QPoint(bar.center().x(), bar.bottom()));
    QCOMPARE(p.widget.hue(), 1.0);
    QCOMPARE(spy.count(), 1);
    QCOMPARE(p.widget.color(), QColor(255, 0, 0));
    QCOMPARE(p.hex->text(), QStringLiteral("#FF0000"));
}

void TestColorPicker::hueBarTopToBottom()
{
    Picker p;
    // The marker stays on blue, away from the rows looked at.
    p.widget.setColor(QColor(0, 0, 255));
    const QImage bar = hueBarPixels(p.widget);
    // Away from the frame, the bar runs red, yellow, green, cyan, blue, magenta.
    const QList<QPair<int, QColor>> stops = {{1, QColor(255, 0, 0)},
                                             {36, QColor(255, 255, 0)},
                                             {73, QColor(0, 255, 0)},
                                             {110, QColor(0, 255, 255)},
                                             {183, QColor(255, 0, 255)}};
    for (const auto &[y, expected] : stops) {
        const QColor c = bar.pixelColor(9, y);
        QVERIFY2(qAbs(c.red() - expected.red()) < 40 && qAbs(c.green() - expected.green()) < 40 &&
                     qAbs(c.blue() - expected.blue()) < 40,
                 qPrintable(QStringLiteral("y %1: %2").arg(y).arg(c.name())));
    }
}

void TestColorPicker::dragOutOfSquareClamps()
{
    Picker p;
    p.widget.setColor(QColor(255, 0, 0));
    QSignalSpy spy(&p.widget, &ColorPickerWidget::colorChanged);
    QTest::mousePress(&p.widget, Qt::LeftButton, {}, QPoint(100, 100));
    QCOMPARE(spy.count(), 1);
    QTest::mouseMove(&p.widget, QPoint(-50, 400));
    QCOMPARE(p.widget.saturation(), 0.0);
    QCOMPARE(p.widget.value(), 0.0);
    QCOMPARE(p.widget.color(), QColor(0, 0, 0));
    // Crossing the hue bar does not switch targets.
    QTest::mouseMove(&p.widget, QPoint(290, -30));
    QCOMPARE(p.widget.saturation(), 1.0);
    QCOMPARE(p.widget.value(), 1.0);
    QCOMPARE(p.widget.hue(), 0.0);
    QCOMPARE(p.widget.color(), QColor(255, 0, 0));
    QCOMPARE(spy.count(), 3);
    QTest::mouseRelease(&p.widget, Qt::LeftButton, {}, QPoint(290, -30));
    QTest::mouseMove(&p.widget, QPoint(10, 10));
    QCOMPARE(spy.count(), 3);
}

void TestColorPicker::rightButtonPicksNothing()
{
    Picker p;
    QSignalSpy spy(&p.widget, &ColorPickerWidget::colorChanged);
    QTest::mouseClick(&p.widget, Qt::RightButton, {}, QPoint(100, 100));
    QTest::mouseClick(&p.widget, Qt::LeftButton, {}, QPoint(279, 100)); // the gap
    QTest::mouseClick(&p.widget, Qt::LeftButton, {}, QPoint(100, 250)); // below the square
    QCOMPARE(spy.count(), 0);
}

void TestColorPicker::screenshot()
{
    Picker p;
    p.widget.setColor(QColor(255, 136, 0));
    QVERIFY(QTest::qWaitForWindowExposed(&p.widget));
    QVERIFY(saveScreenshot(&p.widget, QStringLiteral("color_picker")));
}

int runColorPickerTests(int argc, char **argv)
{
    TestColorPicker test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_color_picker.moc"
