#include "ReferenceFill.h"
#include "engine/FloodFill.h"

#include <QtTest>

#include <random>
#include <vector>

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

// The region is the 4-connected component of matching pixels around the seed,
// whatever the visiting order: a depth-first search finds the same set.
QImage referenceFill(QImage image, int x, int y, quint32 fill, int tolerance)
{
    const quint32 seed = word(image, x, y);
    if (seed == fill)
        return image;
    const bool colour = (seed >> 24) >= 32;
    auto matches = [&](quint32 p) {
        if (!colour)
            return int(p >> 24) <= tolerance;
        int diff = 0;
        for (int s = 0; s < 32; s += 8)
            diff = std::max(diff, std::abs(int((seed >> s) & 0xff) - int((p >> s) & 0xff)));
        return diff <= tolerance;
    };
    const int w = image.width();
    const int h = image.height();
    std::vector<char> inRegion(size_t(w * h), 0);
    std::vector<QPoint> stack{QPoint(x, y)};
    inRegion[size_t(y * w + x)] = 1;
    const QImage original = image.copy();
    while (!stack.empty()) {
        const QPoint p = stack.back();
        stack.pop_back();
        for (const QPoint d : {QPoint(0, 1), QPoint(1, 0), QPoint(0, -1), QPoint(-1, 0)}) {
            const QPoint n = p + d;
            if (n.x() < 0 || n.y() < 0 || n.x() >= w || n.y() >= h)
                continue;
            char &mark = inRegion[size_t(n.y() * w + n.x())];
            if (!mark && matches(word(original, n.x(), n.y()))) {
                mark = 1;
                stack.push_back(n);
            }
        }
    }
    for (int py = 0; py < h; ++py)
        for (int px = 0; px < w; ++px)
            if (inRegion[size_t(py * w + px)])
                setWord(image, px, py, fill);
    return image;
}

} // namespace

class TestFill : public QObject {
    Q_OBJECT

private slots:
    void packsLittleEndianWord();
    void fillsTransparentLayerCompletely();
    void stopsAtOutlineAboveTolerance();
    void tolerance255FloodsThroughEverything();
    void colourModeComparesAllChannels_data();
    void colourModeComparesAllChannels();
    void comparesWithSeedNotNeighbour();
    void diagonalGapDoesNotLeak();
    void seedOfFillColourChangesNothing();
    void seedOutsideIgnored_data();
    void seedOutsideIgnored();
    void convertsOtherFormats();
    void matchesReferenceOnRandomImages();
    void matchesBreadthFirstOnMazes_data();
    void matchesBreadthFirstOnMazes();
    void fillColourInsideTheRule();
    void seedOutsideItsOwnRuleStillFilled();
};

void TestFill::packsLittleEndianWord()
{
    QCOMPARE(packRgba8888(QColor(0x11, 0x22, 0x33, 0x44)), 0x44332211u);
    QImage image = blank(1, 1);
    image.setPixelColor(0, 0, QColor(0x11, 0x22, 0x33, 0x44));
    QCOMPARE(word(image, 0, 0), 0x44332211u);
}

void TestFill::fillsTransparentLayerCompletely()
{
    QImage image = blank(37, 23);
    floodFill(image, 5, 5, Red, 200);
    for (int y = 0; y < 23; ++y)
        for (int x = 0; x < 37; ++x)
            QCOMPARE(word(image, x, y), Red);
}

void TestFill::stopsAtOutlineAboveTolerance()
{
    // A closed square outline of alpha 230 on an empty layer, with a soft
    // (alpha 100) ring inside that is still flooded.
    QImage image = blank(20, 20);
    for (int i = 4; i <= 15; ++i) {
        setWord(image, i, 4, 0xe6000000u);
        setWord(image, i, 15, 0xe6000000u);
        setWord(image, 4, i, 0xe6000000u);
        setWord(image, 15, i, 0xe6000000u);
    }
    setWord(image, 8, 8, 0x64000000u);
    floodFill(image, 10, 10, Red, 200);
    QCOMPARE(word(image, 10, 10), Red);
    QCOMPARE(word(image, 8, 8), Red);
    QCOMPARE(word(image, 5, 5), Red);
    QCOMPARE(word(image, 4, 10), 0xe6000000u);
    QCOMPARE(word(image, 0, 0), 0u);
    QCOMPARE(word(image, 19, 19), 0u);
}

void TestFill::tolerance255FloodsThroughEverything()
{
    QImage image = blank(20, 20);
    for (int i = 0; i < 20; ++i)
        setWord(image, 10, i, 0xff000000u);
    floodFill(image, 2, 2, Red, 255);
    for (int y = 0; y < 20; ++y)
        for (int x = 0; x < 20; ++x)
            QCOMPARE(word(image, x, y), Red);
}

void TestFill::colourModeComparesAllChannels_data()
{
    QTest::addColumn<quint32>("neighbour");
    QTest::addColumn<int>("tolerance");
    QTest::addColumn<bool>("filled");
    // Seed is 0xff404040 (opaque grey 64).
    QTest::newRow("red within") << 0xff404050u << 16 << true;
    QTest::newRow("red beyond") << 0xff404051u << 16 << false;
    QTest::newRow("blue beyond") << 0xff514040u << 16 << false;
    QTest::newRow("alpha within") << 0xf0404040u << 15 << true;
    QTest::newRow("alpha beyond") << 0xf0404040u << 14 << false;
    QTest::newRow("zero tolerance exact") << 0xff404040u << 0 << true;
}

void TestFill::colourModeComparesAllChannels()
{
    QFETCH(quint32, neighbour);
    QFETCH(int, tolerance);
    QFETCH(bool, filled);
    QImage image = blank(3, 1);
    setWord(image, 0, 0, 0xff404040u);
    setWord(image, 1, 0, neighbour);
    setWord(image, 2, 0, 0xff404040u);
    floodFill(image, 0, 0, Red, tolerance);
    QCOMPARE(word(image, 0, 0), Red);
    QCOMPARE(word(image, 1, 0) == Red, filled);
    QCOMPARE(word(image, 2, 0) == Red, filled);
}

void TestFill::comparesWithSeedNotNeighbour()
{
    // A gradient of +10 per pixel: each neighbour is close to the previous one
    // but only the first three are within 25 of the seed.
    QImage image = blank(8, 1);
    for (int x = 0; x < 8; ++x)
        setWord(image, x, 0, 0xff000000u | quint32(100 + 10 * x));
    floodFill(image, 0, 0, Red, 25);
    for (int x = 0; x < 8; ++x)
        QCOMPARE(word(image, x, 0) == Red, x <= 2);
}

void TestFill::diagonalGapDoesNotLeak()
{
    // A diagonal line of opaque pixels separates the two triangles.
    QImage image = blank(16, 16);
    for (int i = 0; i < 16; ++i)
        setWord(image, i, i, 0xff000000u);
    floodFill(image, 12, 2, Red, 100);
    for (int y = 0; y < 16; ++y)
        for (int x = 0; x < 16; ++x) {
            const quint32 expected = x > y ? Red : (x == y ? 0xff000000u : 0u);
            QCOMPARE(word(image, x, y), expected);
        }
}

void TestFill::seedOfFillColourChangesNothing()
{
    QImage image = blank(4, 4);
    setWord(image, 1, 1, Red);
    const QImage before = image.copy();
    floodFill(image, 1, 1, Red, 255);
    QCOMPARE(image, before);
}

void TestFill::seedOutsideIgnored_data()
{
    QTest::addColumn<QPoint>("seed");
    QTest::newRow("left") << QPoint(-1, 2);
    QTest::newRow("top") << QPoint(2, -1);
    QTest::newRow("right") << QPoint(4, 2);
    QTest::newRow("bottom") << QPoint(2, 4);
    QTest::newRow("far") << QPoint(INT_MIN, INT_MAX);
}

void TestFill::seedOutsideIgnored()
{
    QFETCH(QPoint, seed);
    QImage image = blank(4, 4);
    const QImage before = image.copy();
    floodFill(image, seed.x(), seed.y(), Red, 200);
    QCOMPARE(image, before);

    QImage null;
    floodFill(null, 0, 0, Red, 200);
    QVERIFY(null.isNull());
}

void TestFill::convertsOtherFormats()
{
    QImage image(6, 6, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    floodFill(image, 0, 0, Red, 10);
    QCOMPARE(image.format(), QImage::Format_RGBA8888);
    QCOMPARE(image.pixel(5, 5), qRgba(255, 0, 0, 255));
}

void TestFill::matchesReferenceOnRandomImages()
{
    std::mt19937 rng(1234);
    // A small palette makes large connected regions likely.
    const quint32 palette[] = {0x00000000u, 0x10ffffffu, 0xff2030f0u, 0xff2838e8u,
                               0x80808080u, 0xff000000u, 0x1f00ff00u};
    for (int round = 0; round < 300; ++round) {
        const int w = 1 + int(rng() % 48);
        const int h = 1 + int(rng() % 48);
        QImage image = blank(w, h);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                setWord(image, x, y, palette[rng() % 7]);
        const int sx = int(rng() % quint32(w));
        const int sy = int(rng() % quint32(h));
        const int tolerance = int(rng() % 270) - 10;
        const quint32 fill = round % 3 == 0 ? palette[rng() % 7] : (rng() | 0x01000000u);
        const QImage expected = referenceFill(image, sx, sy, fill, tolerance);
        floodFill(image, sx, sy, fill, tolerance);
        QVERIFY2(image == expected, qPrintable(QString("round %1").arg(round)));
    }
}

void TestFill::matchesBreadthFirstOnMazes_data()
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
    // Tolerance 255 floods through the walls too.
    QTest::newRow("through walls") << 200 << 100 << 4 << 255 << Red;
}

void TestFill::matchesBreadthFirstOnMazes()
{
    QFETCH(int, w);
    QFETCH(int, h);
    QFETCH(int, cell);
    QFETCH(int, tolerance);
    QFETCH(quint32, fill);
    QImage ours = mazeImage(w, h, cell, 99u);
    QImage reference = ours.copy();
    floodFill(ours, 1, 1, fill, tolerance);
    referenceBfsFill(reference, 1, 1, fill, tolerance);
    QVERIFY(ours == reference);
    // A perfect maze is connected: its last cell is reached too.
    const int lastX = 1 + ((w - 1) / cell - 1) * cell;
    const int lastY = 1 + ((h - 1) / cell - 1) * cell;
    QCOMPARE(word(ours, lastX, lastY), fill);
}

void TestFill::fillColourInsideTheRule()
{
    // Pixels that already have the fill colour sit inside the region; the
    // fill must still reach what lies beyond them.
    QImage image = blank(40, 10);
    const quint32 fill = 0x20123456u; // alpha 32: matches a tolerance of 200
    for (int y = 0; y < 10; ++y)
        setWord(image, 20, y, fill);
    QImage reference = image.copy();
    floodFill(image, 0, 0, fill, 200);
    referenceBfsFill(reference, 0, 0, fill, 200);
    QVERIFY(image == reference);
    QCOMPARE(word(image, 39, 9), fill);
}

void TestFill::seedOutsideItsOwnRuleStillFilled()
{
    // A nearly transparent seed (alpha 20) with tolerance 10: the seed itself
    // does not pass the rule, yet it is filled and the region grows from it.
    QImage image = blank(8, 8);
    setWord(image, 3, 3, 0x14000000u);
    for (int x = 0; x < 8; ++x)
        setWord(image, x, 5, 0x30000000u);
    QImage reference = image.copy();
    floodFill(image, 3, 3, Red, 10);
    referenceBfsFill(reference, 3, 3, Red, 10);
    QVERIFY(image == reference);
    QCOMPARE(word(image, 3, 3), Red);
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
