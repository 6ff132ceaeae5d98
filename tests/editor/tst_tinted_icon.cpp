#include "widgets/Icons.h"
#include "widgets/TintedIcon.h"

#include <QSvgRenderer>
#include <QtTest>

static const QString squareSvg = QStringLiteral(
    "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"24\" height=\"24\" viewBox=\"0 0 24 24\">"
    "<rect x=\"0\" y=\"0\" width=\"24\" height=\"24\" fill=\"ICON_COLOR\"/></svg>");

class TestTintedIcon : public QObject {
    Q_OBJECT

private slots:
    void drawnWhereExpected_data();
    void drawnWhereExpected();
    void productIcons();
};

// Faults: the placeholder not replaced or replaced with the alpha in it; an
// SVG's own colours lost; a stretched or uncentred drawing; a hostile text
// that crashes or draws garbage; a disabled icon that looks enabled.
void TestTintedIcon::drawnWhereExpected_data()
{
    QTest::addColumn<QString>("svg");
    QTest::addColumn<QSize>("size");
    QTest::addColumn<QRect>("drawn"); // red inside, transparent outside
    QTest::addColumn<QColor>("ink");
    const QColor red(255, 0, 0, 40); // the alpha is dropped
    QTest::newRow("square") << squareSvg << QSize(24, 24) << QRect(0, 0, 24, 24) << red;
    QTest::newRow("own colours") << QString(squareSvg).replace("ICON_COLOR", "#ff0000")
                                 << QSize(24, 24) << QRect(0, 0, 24, 24) << QColor(Qt::blue);
    QTest::newRow("wide centres") << squareSvg << QSize(40, 20) << QRect(10, 0, 20, 20) << red;
    QTest::newRow("tall centres") << squareSvg << QSize(18, 30) << QRect(0, 6, 18, 18) << red;
    QTest::newRow("empty") << QString() << QSize(16, 16) << QRect() << red;
    QTest::newRow("truncated") << squareSvg.left(40) << QSize(16, 16) << QRect() << red;
    QTest::newRow("zero size")
        << QStringLiteral("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"0\" height=\"0\"/>")
        << QSize(16, 16) << QRect() << red;
}

void TestTintedIcon::drawnWhereExpected()
{
    QFETCH(QString, svg);
    QFETCH(QSize, size);
    QFETCH(QRect, drawn);
    QFETCH(QColor, ink);
    const QIcon icon = tintedSvgIcon(svg, ink, size);
    const QImage image = icon.pixmap(size).toImage();
    QCOMPARE(image.size(), size);
    const QImage disabled = icon.pixmap(size, QIcon::Disabled).toImage();
    for (int y = 0; y < size.height(); ++y) {
        for (int x = 0; x < size.width(); ++x) {
            const QString at = QStringLiteral("%1,%2").arg(x).arg(y);
            const QColor expected = drawn.contains(x, y) ? QColor(Qt::red) : QColor(0, 0, 0, 0);
            QVERIFY2(image.pixelColor(x, y).rgba() == expected.rgba(), qPrintable(at));
            QVERIFY2(qAbs(disabled.pixelColor(x, y).alphaF() - expected.alphaF() * 0.35f) < 0.02f,
                     qPrintable(at));
        }
    }
    QVERIFY(transparentPixmap(QSize(-3, 5)).isNull());
}

// Faults: a product icon that does not follow the colour, is broken or empty.
void TestTintedIcon::productIcons()
{
    for (const QString *svg :
         {&Icons::Undo, &Icons::Redo, &Icons::Brush, &Icons::Eraser, &Icons::FillBucket,
          &Icons::ShapesFilled, &Icons::ShapesOutline, &Icons::Jitter, &Icons::Preview,
          &Icons::Layers, &Icons::Person, &Icons::People, &Icons::Pin, &Icons::Eye, &Icons::EyeOff,
          &Icons::Drawing}) {
        QSvgRenderer renderer(QString(*svg).replace("ICON_COLOR", "#000000").toUtf8());
        QVERIFY2(renderer.isValid() && renderer.defaultSize() == QSize(24, 24), qPrintable(*svg));
        const QImage image = tintedSvgPixmap(*svg, QColor(0, 128, 255), QSize(48, 48)).toImage();
        int opaque = 0;
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 0; x < image.width(); ++x) {
                const QColor c = image.pixelColor(x, y);
                // Premultiplied edges may round by a step or two.
                const bool tinted = c.red() <= 2 && qAbs(c.green() - 128) <= 2 && c.blue() >= 253;
                QVERIFY2(c.alpha() < 250 || tinted, qPrintable(*svg));
                opaque += c.alpha() >= 250;
            }
        }
        QVERIFY2(opaque > 100, qPrintable(*svg));
    }
}

int runTintedIconTests(int argc, char **argv)
{
    TestTintedIcon test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_tinted_icon.moc"
