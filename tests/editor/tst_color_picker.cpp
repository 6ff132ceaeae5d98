#include "widgets/ColorPickerWidget.h"

#include <QApplication>
#include <QLineEdit>
#include <QSpinBox>
#include <QtTest>

namespace {

// A 300 px wide picker: the square spans x 0..275 and y 0..219, the hue bar
// x 282..299. It records the colours it emits by name, from before the first
// setColor(), which never emits.
struct Picker {
    ColorPickerWidget widget;
    QStringList emitted;
    QLineEdit *hex = widget.findChild<QLineEdit *>("hexEdit");

    explicit Picker(const QColor &start = Qt::black)
    {
        QObject::connect(&widget, &ColorPickerWidget::colorChanged,
                         [this](const QColor &c) { emitted << c.name(); });
        widget.resize(300, 292);
        widget.setColor(start);
        widget.show();
        QVERIFY(QTest::qWaitForWindowExposed(&widget));
    }
    QSpinBox *spin(const char *name) { return widget.findChild<QSpinBox *>(name); }
    QString spins()
    {
        return QColor(spin("redSpin")->value(), spin("greenSpin")->value(),
                      spin("blueSpin")->value())
            .name();
    }
    QImage shot() { return widget.grab().toImage().convertToFormat(QImage::Format_RGB32); }
};

} // namespace

class TestColorPicker : public QObject {
    Q_OBJECT

private slots:
    void hexTyping_data();
    void hexTyping();
    void spinsApplyWhenComplete();
    void clicks_data();
    void clicks();
    void dragOutOfSquareClamps();
};

void TestColorPicker::hexTyping_data()
{
    QTest::addColumn<QString>("keys");
    QTest::addColumn<bool>("enter");
    QTest::addColumn<QStringList>("emitted");
    QTest::addColumn<QString>("field");
    const QStringList none, orange{"#ff8800"};
    QTest::newRow("six digits") << "ff8800" << false << orange << "ff8800";
    QTest::newRow("with hash") << "#ff8800" << false << orange << "#ff8800";
    QTest::newRow("six, then enter") << "ff8800" << true << orange << "#FF8800";
    QTest::newRow("short form, enter") << "#f80" << true << orange << "#FF8800";
    QTest::newRow("short form typed") << "f80" << false << none << "f80";
    QTest::newRow("four digits") << "#ff88" << true << none << "#0A141E";
    QTest::newRow("not hex") << "#gg0000" << true << none << "#0A141E";
    QTest::newRow("colour name") << "red" << true << none << "#0A141E";
    QTest::newRow("empty") << "" << true << none << "#0A141E";
}

// Only a whole colour applies: "#ff8" on the way to "#ff8800" would be yellow.
void TestColorPicker::hexTyping()
{
    QFETCH(QString, keys);
    QFETCH(bool, enter);
    QFETCH(QStringList, emitted);
    QFETCH(QString, field);
    Picker p(QColor(10, 20, 30));
    p.hex->setFocus();
    p.hex->selectAll();
    QTest::keyClicks(p.hex, keys);
    if (enter)
        QTest::keyClick(p.hex, Qt::Key_Return);
    QCOMPARE(p.emitted, emitted);
    QCOMPARE(p.hex->text(), field);
    QCOMPARE(p.spins(), emitted.value(0, "#0a141e"));
}

void TestColorPicker::spinsApplyWhenComplete()
{
    Picker p;
    QSpinBox *green = p.spin("greenSpin");
    green->setFocus();
    green->selectAll();
    QTest::keyClicks(green, "171");
    QVERIFY(p.emitted.isEmpty()); // not 1, 17, then 171
    QTest::keyClick(green, Qt::Key_Return);
    QTest::keyClick(green, Qt::Key_Up); // a step applies at once
    QCOMPARE(p.emitted, QStringList({"#00ab00", "#00ac00"}));
    QCOMPARE(p.hex->text(), QStringLiteral("#00AC00"));
    p.spin("redSpin")->setValue(172); // yellow
    const QImage bar = p.shot().copy(282, 0, 18, 220);
    p.spin("blueSpin")->setValue(172); // grey has no hue: the bar's marker stays
    QCOMPARE(p.emitted.last(), QStringLiteral("#acacac"));
    QCOMPARE(p.shot().copy(282, 0, 18, 220), bar);
}

void TestColorPicker::clicks_data()
{
    QTest::addColumn<QPoint>("at");
    QTest::addColumn<Qt::MouseButton>("button");
    QTest::addColumn<bool>("picks");
    // The square: white at the left, the hue at the right, black at the bottom.
    for (QPoint at : {QPoint(3, 3), QPoint(272, 40), QPoint(150, 160), QPoint(100, 217)})
        QTest::addRow("square %d,%d", at.x(), at.y()) << at << Qt::LeftButton << true;
    // The bar: red, yellow, green, cyan, blue, magenta and red again.
    for (int y : {36, 73, 110, 146, 183, 217})
        QTest::addRow("bar %d", y) << QPoint(290, y) << Qt::LeftButton << true;
    QTest::newRow("right button") << QPoint(100, 100) << Qt::RightButton << false;
    QTest::newRow("the gap") << QPoint(279, 100) << Qt::LeftButton << false;
    QTest::newRow("below the square") << QPoint(100, 250) << Qt::LeftButton << false;
}

// What is picked is what is shown under the pointer, and only the marker moves
// there from the old colour's place (a ring in the square, a line on the bar).
void TestColorPicker::clicks()
{
    QFETCH(QPoint, at);
    QFETCH(Qt::MouseButton, button);
    QFETCH(bool, picks);
    Picker p(Qt::red); // its markers: the square's top right corner, the bar's top
    const QImage before = p.shot();
    QTest::mouseClick(&p.widget, button, {}, at);
    QCOMPARE(p.emitted.size(), picks ? 1 : 0);
    if (!picks)
        return;
    const QColor got(p.emitted[0]), shown = before.pixelColor(at);
    QVERIFY2(qAbs(got.red() - shown.red()) + qAbs(got.green() - shown.green()) +
                     qAbs(got.blue() - shown.blue()) <
                 60,
             qPrintable(p.emitted[0] + " under " + shown.name()));
    const bool bar = at.x() >= 282;
    const QRect area = bar ? QRect(282, 0, 18, 220) : QRect(0, 0, 276, 220);
    auto near = [bar](QPoint a, QPoint b) {
        return qAbs(a.y() - b.y()) <= (bar ? 2 : 8) && (bar || qAbs(a.x() - b.x()) <= 8);
    };
    const QImage after = p.shot();
    int atNew = 0;
    for (int y = area.top(); y <= area.bottom(); ++y)
        for (int x = area.left(); x <= area.right(); ++x) {
            if (before.pixel(x, y) == after.pixel(x, y))
                continue;
            QVERIFY2(near({x, y}, at) || near({x, y}, {275, 0}),
                     qPrintable(QString("%1,%2").arg(x).arg(y)));
            atNew += near({x, y}, at);
        }
    QVERIFY(atNew > 0);
}

void TestColorPicker::dragOutOfSquareClamps()
{
    Picker p(Qt::red);
    QTest::mousePress(&p.widget, Qt::LeftButton, {}, QPoint(100, 100));
    QTest::mouseMove(&p.widget, QPoint(-50, 400));
    QTest::mouseMove(&p.widget, QPoint(290, -30)); // over the bar: still the square
    QTest::mouseRelease(&p.widget, Qt::LeftButton, {}, QPoint(290, -30));
    QTest::mouseMove(&p.widget, QPoint(10, 10));
    QCOMPARE(p.emitted.mid(1), QStringList({"#000000", "#ff0000"}));
}

int runColorPickerTests(int argc, char **argv)
{
    TestColorPicker test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_color_picker.moc"
