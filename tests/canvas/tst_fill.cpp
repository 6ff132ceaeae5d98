#include "ReferenceFill.h"

#include "engine/FloodFill.h"

#include <QtTest>

#include <random>

namespace {

constexpr quint32 Red = 0xff0000ffu; // RGBA8888 word of opaque red

QImage blank(int w, int h)
{
    QImage image(w, h, QImage::Format_RGBA8888);
    image.fill(Qt::transparent);
    return image;
}

quint32 word(const QImage &image, int x, int y)
{
    return reinterpret_cast<const quint32 *>(image.constScanLine(y))[x];
}

void setWord(QImage &image, int x, int y, quint32 value)
{
    reinterpret_cast<quint32 *>(image.scanLine(y))[x] = value;
}

// Fills a copy of a straight image both ways: as it is, and premultiplied the
// way layers are stored. The two must agree with the breadth-first oracle.
void compareWithOracle(const QImage &image, int x, int y, quint32 fill, int tolerance,
                       const char *what)
{
    // Straight values a premultiplied layer can hold, read back as the fill
    // reads them, so both forms match alike.
    const QImage premultiplied = image.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    QImage straight(image.size(), QImage::Format_RGBA8888);
    for (int py = 0; py < image.height(); ++py)
        for (int px = 0; px < image.width(); ++px)
            straight.setPixel(px, py, qUnpremultiply(premultiplied.pixel(px, py)));
    QImage expected = straight.copy();
    referenceBfsFill(expected, x, y, fill, tolerance);
    QImage ours = straight.copy();
    floodFill(ours, x, y, fill, tolerance);
    QVERIFY2(ours == expected, what);
    QImage layer = premultiplied;
    // Two straight colours can be one premultiplied word: the seed then
    // already has the fill colour, and nothing changes.
    const bool alreadyFilled = layer.pixel(x, y) == premultipliedArgb(fill);
    floodFill(layer, x, y, fill, tolerance);
    QCOMPARE(layer.format(), QImage::Format_ARGB32_Premultiplied);
    QVERIFY2(layer == (alreadyFilled ? straight : expected)
                          .convertToFormat(QImage::Format_ARGB32_Premultiplied),
             what);
}

} // namespace

class TestFill : public QObject {
    Q_OBJECT

private slots:
    void packsLittleEndianWord();
    void rules_data();
    void rules();
    void comparesWithSeedNotNeighbour();
    void seedOfFillColourChangesNothing();
    void seedOutsideIgnored();
    void otherFormatsBecomeRgba();
    void matchesOracleOnRandomImages();
    void matchesOracleOnMazes_data();
    void matchesOracleOnMazes();
    void seedOutsideItsOwnRuleStillFilled();
};

void TestFill::packsLittleEndianWord()
{
    QCOMPARE(packRgba8888(QColor(0x11, 0x22, 0x33, 0x44)), 0x44332211u);
    QImage image = blank(1, 1);
    image.setPixelColor(0, 0, QColor(0x11, 0x22, 0x33, 0x44));
    QCOMPARE(word(image, 0, 0), 0x44332211u);
    QCOMPARE(premultipliedArgb(0x80ff8040u), qPremultiply(qRgba(0x40, 0x80, 0xff, 0x80)));
}

// Seed 0xff404040 (opaque grey 64) in colour mode, or a transparent seed in
// alpha mode; one neighbour between the seed and a third pixel like the seed.
void TestFill::rules_data()
{
    QTest::addColumn<quint32>("seed");
    QTest::addColumn<quint32>("neighbour");
    QTest::addColumn<int>("tolerance");
    QTest::addColumn<bool>("filled");
    QTest::newRow("red within") << 0xff404040u << 0xff404050u << 16 << true;
    QTest::newRow("red beyond") << 0xff404040u << 0xff404051u << 16 << false;
    QTest::newRow("green beyond") << 0xff404040u << 0xff405140u << 16 << false;
    QTest::newRow("blue beyond") << 0xff404040u << 0xff514040u << 16 << false;
    QTest::newRow("alpha within") << 0xff404040u << 0xf0404040u << 15 << true;
    QTest::newRow("alpha beyond") << 0xff404040u << 0xf0404040u << 14 << false;
    QTest::newRow("zero tolerance exact") << 0xff404040u << 0xff404040u << 0 << true;
    QTest::newRow("alpha mode, colour ignored") << 0u << 0x64ffffffu << 100 << true;
    QTest::newRow("alpha mode, too opaque") << 0u << 0x65000000u << 100 << false;
    QTest::newRow("alpha 31 seed is alpha mode") << 0x1f00ff00u << 0x60ff0000u << 100 << true;
    QTest::newRow("alpha 32 seed is colour mode") << 0x2000ff00u << 0x60ff0000u << 100 << false;
    QTest::newRow("tolerance 255 floods opaque") << 0u << 0xff000000u << 255 << true;
}

void TestFill::rules()
{
    QFETCH(quint32, seed);
    QFETCH(quint32, neighbour);
    QFETCH(int, tolerance);
    QFETCH(bool, filled);
    QImage image = blank(3, 2);
    for (int x : {0, 2})
        setWord(image, x, 0, seed);
    setWord(image, 1, 0, neighbour);
    setWord(image, 0, 1, 0xff808080u);
    setWord(image, 1, 1, 0xff808080u);
    setWord(image, 2, 1, 0xff808080u);
    compareWithOracle(image, 0, 0, Red, tolerance, "rule");
    floodFill(image, 0, 0, Red, tolerance);
    QCOMPARE(word(image, 0, 0), Red);
    QCOMPARE(word(image, 1, 0) == Red, filled);
    QCOMPARE(word(image, 2, 0) == Red, filled);
}

void TestFill::comparesWithSeedNotNeighbour()
{
    // +10 per pixel: each neighbour is close to the one before, but only the
    // first three are within 25 of the seed.
    QImage image = blank(8, 1);
    for (int x = 0; x < 8; ++x)
        setWord(image, x, 0, 0xff000000u | quint32(100 + 10 * x));
    floodFill(image, 0, 0, Red, 25);
    for (int x = 0; x < 8; ++x)
        QCOMPARE(word(image, x, 0) == Red, x <= 2);
}

void TestFill::seedOfFillColourChangesNothing()
{
    QImage image = blank(4, 4);
    setWord(image, 1, 1, Red);
    floodFill(image, 1, 1, Red, 255);
    QCOMPARE(word(image, 0, 0), 0u);
    QImage layer(4, 4, QImage::Format_ARGB32_Premultiplied);
    layer.fill(QColor(255, 0, 0, 128));
    const QImage before = layer.copy();
    floodFill(layer, 1, 1, 0x800000ffu, 255);
    QCOMPARE(layer, before);
}

void TestFill::seedOutsideIgnored()
{
    QImage image = blank(4, 4);
    for (const QPoint seed :
         {QPoint(-1, 2), QPoint(2, -1), QPoint(4, 2), QPoint(2, 4), QPoint(INT_MIN, INT_MAX)})
        floodFill(image, seed.x(), seed.y(), Red, 200);
    QCOMPARE(image, blank(4, 4));
    QImage null;
    floodFill(null, 0, 0, Red, 200);
    QVERIFY(null.isNull());
}

void TestFill::otherFormatsBecomeRgba()
{
    QImage image(6, 6, QImage::Format_ARGB32);
    image.fill(Qt::transparent);
    floodFill(image, 0, 0, Red, 10);
    QCOMPARE(image.format(), QImage::Format_RGBA8888);
    QCOMPARE(image.pixel(5, 5), qRgb(255, 0, 0));
}

void TestFill::matchesOracleOnRandomImages()
{
    std::mt19937 rng(1234);
    // A small palette makes large connected regions likely; translucent
    // entries exercise the straight comparison of premultiplied pixels.
    const quint32 palette[] = {0x00000000u, 0x10ffffffu, 0xff2030f0u, 0xff2838e8u,
                               0x80808080u, 0xff000000u, 0x1f00ff00u, 0x9a3060c0u};
    for (int round = 0; round < 200; ++round) {
        const int w = 1 + int(rng() % 48), h = 1 + int(rng() % 48);
        QImage image = blank(w, h);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                setWord(image, x, y, palette[rng() % 8]);
        const int tolerance = int(rng() % 270) - 10;
        const quint32 fill = round % 3 == 0 ? palette[rng() % 8] : (rng() | 0xff000000u);
        compareWithOracle(image, int(rng() % quint32(w)), int(rng() % quint32(h)), fill, tolerance,
                          qPrintable(QString("round %1").arg(round)));
    }
}

void TestFill::matchesOracleOnMazes_data()
{
    QTest::addColumn<int>("w");
    QTest::addColumn<int>("h");
    QTest::addColumn<int>("cell");
    QTest::addColumn<int>("tolerance");
    QTest::addColumn<quint32>("fill");
    QTest::newRow("1080p corridors") << 1920 << 1080 << 4 << 200 << Red;
    QTest::newRow("thin corridors") << 301 << 203 << 2 << 200 << Red;
    // The fill colour matches the rule: filled pixels must not be taken again.
    QTest::newRow("fill inside the rule") << 300 << 200 << 3 << 200 << 0x40ff0000u;
    QTest::newRow("through walls") << 200 << 100 << 4 << 255 << Red;
}

void TestFill::matchesOracleOnMazes()
{
    QFETCH(int, w);
    QFETCH(int, h);
    QFETCH(int, cell);
    QFETCH(int, tolerance);
    QFETCH(quint32, fill);
    compareWithOracle(mazeImage(w, h, cell, 99u), 1, 1, fill, tolerance, "maze");
    // A perfect maze is connected: its last cell is reached too.
    QImage ours = mazeImage(w, h, cell, 99u);
    floodFill(ours, 1, 1, fill, tolerance);
    QCOMPARE(word(ours, 1 + ((w - 1) / cell - 1) * cell, 1 + ((h - 1) / cell - 1) * cell), fill);
}

void TestFill::seedOutsideItsOwnRuleStillFilled()
{
    // A nearly transparent seed (alpha 20) with tolerance 10: the seed itself
    // does not pass the rule, yet it is filled and the region grows from it.
    QImage image = blank(8, 8);
    setWord(image, 3, 3, 0x14000000u);
    for (int x = 0; x < 8; ++x)
        setWord(image, x, 5, 0x30000000u);
    compareWithOracle(image, 3, 3, Red, 10, "low tolerance");
    floodFill(image, 3, 3, Red, 10);
    QCOMPARE(word(image, 0, 0), Red);
    QCOMPARE(word(image, 0, 6), 0u);
    // With a negative tolerance nothing passes: only the seed changes.
    QImage lone = blank(4, 4);
    floodFill(lone, 1, 1, Red, -1);
    QCOMPARE(word(lone, 1, 1), Red);
    QCOMPARE(word(lone, 2, 1), 0u);
}

QTEST_MAIN(TestFill)
#include "tst_fill.moc"
