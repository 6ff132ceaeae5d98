#include "Screenshot.h"

#include "editor/TintedIcon.h"

#include <QLabel>
#include <QtTest>

namespace {

const QString squareSvg = QStringLiteral(
    "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"24\" height=\"24\" viewBox=\"0 0 24 24\">"
    "<rect x=\"0\" y=\"0\" width=\"24\" height=\"24\" fill=\"ICON_COLOR\"/></svg>");

const QString twoColourSvg =
    QStringLiteral("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"20\" height=\"20\">"
                   "<rect x=\"0\" y=\"0\" width=\"10\" height=\"20\" fill=\"#00ff00\"/>"
                   "<rect x=\"10\" y=\"0\" width=\"10\" height=\"20\" fill=\"#0000ff\"/></svg>");

QImage render(const QIcon &icon, const QSize &size)
{
    return icon.pixmap(size).toImage().convertToFormat(QImage::Format_ARGB32);
}

} // namespace

class TestTintedIcon : public QObject {
    Q_OBJECT

private slots:
    void placeholderReplaced();
    void alphaOfColourDropped();
    void svgWithoutPlaceholderKeepsColours();
    void nonSquareSizeCentres_data();
    void nonSquareSizeCentres();
    void hostileSvgGivesTransparentPixmap_data();
    void hostileSvgGivesTransparentPixmap();
    void transparentPixmapHelper();
};

void TestTintedIcon::placeholderReplaced()
{
    const QIcon icon = tintedSvgIcon(squareSvg, QColor(255, 136, 0), QSize(24, 24));
    const QImage image = render(icon, QSize(24, 24));
    QCOMPARE(image.size(), QSize(24, 24));
    for (const QPoint p : {QPoint(0, 0), QPoint(12, 12), QPoint(23, 23)})
        QCOMPARE(image.pixelColor(p), QColor(255, 136, 0));
}

void TestTintedIcon::alphaOfColourDropped()
{
    const QImage image = tintedSvgPixmap(squareSvg, QColor(10, 20, 30, 40), QSize(8, 8)).toImage();
    QCOMPARE(image.pixelColor(4, 4), QColor(10, 20, 30));
}

void TestTintedIcon::svgWithoutPlaceholderKeepsColours()
{
    const QImage image = render(tintedSvgIcon(twoColourSvg, Qt::red, QSize(20, 20)), QSize(20, 20));
    QCOMPARE(image.pixelColor(2, 10), QColor(0, 255, 0));
    QCOMPARE(image.pixelColor(17, 10), QColor(0, 0, 255));
}

void TestTintedIcon::nonSquareSizeCentres_data()
{
    QTest::addColumn<QSize>("size");
    QTest::addColumn<QRect>("drawn");
    QTest::newRow("wide") << QSize(40, 20) << QRect(10, 0, 20, 20);
    QTest::newRow("tall") << QSize(18, 30) << QRect(0, 6, 18, 18);
}

void TestTintedIcon::nonSquareSizeCentres()
{
    QFETCH(QSize, size);
    QFETCH(QRect, drawn);
    const QImage image = tintedSvgPixmap(squareSvg, Qt::red, size).toImage();
    QCOMPARE(image.size(), size);
    for (int y = 0; y < size.height(); ++y) {
        for (int x = 0; x < size.width(); ++x) {
            const QColor c = image.pixelColor(x, y);
            if (drawn.contains(x, y))
                QVERIFY2(c == QColor(Qt::red), qPrintable(QStringLiteral("%1,%2").arg(x).arg(y)));
            else
                QVERIFY2(c.alpha() == 0, qPrintable(QStringLiteral("%1,%2").arg(x).arg(y)));
        }
    }
}

void TestTintedIcon::hostileSvgGivesTransparentPixmap_data()
{
    QTest::addColumn<QString>("svg");
    QTest::newRow("empty") << QString();
    QTest::newRow("not svg") << QStringLiteral("ICON_COLOR ICON_COLOR");
    QTest::newRow("truncated") << squareSvg.left(40);
    QTest::newRow("zero size") << QStringLiteral(
        "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"0\" height=\"0\"/>");
}

void TestTintedIcon::hostileSvgGivesTransparentPixmap()
{
    QFETCH(QString, svg);
    const QImage image = tintedSvgPixmap(svg, Qt::red, QSize(16, 16)).toImage();
    QCOMPARE(image.size(), QSize(16, 16));
    QCOMPARE(image.pixelColor(8, 8).alpha(), 0);
}

void TestTintedIcon::transparentPixmapHelper()
{
    const QPixmap pixmap = transparentPixmap(QSize(16, 12));
    QCOMPARE(pixmap.size(), QSize(16, 12));
    QVERIFY(pixmap.hasAlphaChannel());
    QCOMPARE(pixmap.toImage().pixelColor(15, 11).alpha(), 0);
    QVERIFY(transparentPixmap(QSize(-3, 5)).isNull());
}

int runTintedIconTests(int argc, char **argv)
{
    TestTintedIcon test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_tinted_icon.moc"
