#include "Screenshot.h"

#include "widgets/Icons.h"
#include "widgets/TintedIcon.h"

#include <QGridLayout>

#include <QLabel>
#include <QSvgRenderer>
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
    void productIcons_data();
    void productIcons();
    void iconSheetScreenshot();
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

void TestTintedIcon::productIcons_data()
{
    QTest::addColumn<QString>("svg");
    const QList<QPair<const char *, QString>> icons = {{"undo", Icons::Undo},
                                                       {"redo", Icons::Redo},
                                                       {"brush", Icons::Brush},
                                                       {"eraser", Icons::Eraser},
                                                       {"fill", Icons::FillBucket},
                                                       {"shapes filled", Icons::ShapesFilled},
                                                       {"shapes outline", Icons::ShapesOutline},
                                                       {"jitter", Icons::Jitter},
                                                       {"preview", Icons::Preview},
                                                       {"layers", Icons::Layers},
                                                       {"person", Icons::Person},
                                                       {"people", Icons::People},
                                                       {"pin", Icons::Pin},
                                                       {"eye", Icons::Eye},
                                                       {"eye off", Icons::EyeOff},
                                                       {"drawing", Icons::Drawing}};
    for (const auto &[name, svg] : icons)
        QTest::newRow(name) << svg;
}

// Every icon is a valid 24x24 drawing in the given colour only, not touching
// the pixmap's border.
void TestTintedIcon::productIcons()
{
    QFETCH(QString, svg);
    QVERIFY(svg.contains(QStringLiteral("ICON_COLOR")));
    QSvgRenderer renderer(svg.toUtf8().replace("ICON_COLOR", "#000000"));
    QVERIFY(renderer.isValid());
    QCOMPARE(renderer.defaultSize(), QSize(24, 24));

    const QImage image = tintedSvgPixmap(svg, QColor(0, 128, 255), QSize(48, 48)).toImage();
    int opaque = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const QColor c = image.pixelColor(x, y);
            if (c.alpha() < 250)
                continue;
            ++opaque;
            // Premultiplied edges may round by a step or two.
            QVERIFY2(c.red() <= 2 && qAbs(c.green() - 128) <= 2 && c.blue() >= 253,
                     qPrintable(c.name()));
        }
    }
    QVERIFY2(opaque > 100, qPrintable(QString::number(opaque)));
}

void TestTintedIcon::iconSheetScreenshot()
{
    QWidget sheet;
    auto *grid = new QGridLayout(&sheet);
    const QList<QString> icons = {
        Icons::Undo,       Icons::Redo,         Icons::Brush,         Icons::Eraser,
        Icons::FillBucket, Icons::ShapesFilled, Icons::ShapesOutline, Icons::Jitter,
        Icons::Preview,    Icons::Layers,       Icons::Person,        Icons::People,
        Icons::Pin,        Icons::Eye,          Icons::EyeOff,        Icons::Drawing};
    const QColor ink = sheet.palette().color(QPalette::ButtonText);
    for (int i = 0; i < icons.size(); ++i) {
        auto *big = new QLabel;
        big->setPixmap(tintedSvgPixmap(icons[i], ink, QSize(48, 48)));
        auto *small = new QLabel;
        small->setPixmap(tintedSvgPixmap(icons[i], ink, QSize(20, 20)));
        grid->addWidget(big, (i / 8) * 2, i % 8);
        grid->addWidget(small, (i / 8) * 2 + 1, i % 8);
    }
    QVERIFY(saveScreenshot(&sheet, QStringLiteral("icons")));
}

int runTintedIconTests(int argc, char **argv)
{
    TestTintedIcon test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_tinted_icon.moc"
