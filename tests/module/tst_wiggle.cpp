#include "ReferenceWarp.h"
#include "common/Wiggle.h"

#include <QtTest>

#include <cmath>
#include <map>

namespace {

QImage randomImage(int w, int h, std::mt19937 &rng)
{
    QImage image(w, h, QImage::Format_RGBA8888);
    for (int y = 0; y < h; ++y) {
        auto *line = reinterpret_cast<quint32 *>(image.scanLine(y));
        for (int x = 0; x < w; ++x)
            line[x] = rng();
    }
    return image;
}

} // namespace

class TestWiggle : public QObject {
    Q_OBJECT

private slots:
    void gridSizeCoversImage_data();
    void gridSizeCoversImage();
    void offsetDistribution_data();
    void offsetDistribution();
    void warpMatchesReference_data();
    void warpMatchesReference();
    void edgesNeverSampleOutside();
    void settingMappings_data();
    void settingMappings();
};

void TestWiggle::gridSizeCoversImage_data()
{
    QTest::addColumn<int>("w");
    QTest::addColumn<int>("h");
    QTest::addColumn<int>("gw");
    QTest::addColumn<int>("gh");
    QTest::newRow("1080p") << 1920 << 1080 << 80 << 45;
    QTest::newRow("odd") << 25 << 1 << 2 << 1;
    QTest::newRow("exact cell") << 24 << 48 << 1 << 2;
}

// Fault: the last partial cell is dropped.
void TestWiggle::gridSizeCoversImage()
{
    QFETCH(int, w);
    QFETCH(int, h);
    QFETCH(int, gw);
    QFETCH(int, gh);
    std::mt19937 rng(1);
    WiggleGrid grid;
    makeWiggleGrid(grid, w, h, 1.0f, rng);
    QCOMPARE(grid.width, gw);
    QCOMPARE(grid.height, gh);
    QCOMPARE(grid.offsetsX.size(), size_t(gw * gh));
}

void TestWiggle::offsetDistribution_data()
{
    QTest::addColumn<float>("amount");
    QTest::addColumn<float>("low");
    QTest::addColumn<double>("highShare");
    QTest::newRow("setting 0 gives 0.1 px") << 0.1f << 0.0f << 0.1;
    QTest::newRow("exactly 2") << 2.0f << 2.0f << 0.0;
    QTest::newRow("1.25") << 1.25f << 1.0f << 0.25;
}

// Fault: the fraction is not a probability, a magnitude is off by one, or
// one sign is favoured.
void TestWiggle::offsetDistribution()
{
    QFETCH(float, amount);
    QFETCH(float, low);
    QFETCH(double, highShare);
    std::mt19937 rng(20261122);
    WiggleGrid grid;
    // 200 x 200 cells: 80,000 draws, so each share is within 0.01 by far.
    makeWiggleGrid(grid, 4800, 4800, amount, rng);
    int high = 0, negative = 0, nonZero = 0, total = 0;
    for (const auto *offsets : {&grid.offsetsX, &grid.offsetsY}) {
        for (float v : *offsets) {
            const float magnitude = std::fabs(v);
            QVERIFY2(magnitude == low || magnitude == low + 1.0f, qPrintable(QString::number(v)));
            high += magnitude == low + 1.0f;
            negative += v < 0;
            nonZero += v != 0;
            ++total;
        }
    }
    QVERIFY(std::fabs(double(high) / total - highShare) < 0.01);
    QVERIFY(std::fabs(double(negative) / nonZero - 0.5) < 0.02);
}

// Rolled fields of every amount, and fields makeWiggleGrid never rolls: small
// whole offsets of every sign (many pixels land exactly half-way between two
// offsets), fractional ones, and whole ones too large for exact integer
// blending. Field ranges: 0 rolled, >0 whole offsets in -range..range, -1
// quarter-pixel fractions.
void TestWiggle::warpMatchesReference_data()
{
    QTest::addColumn<int>("w");
    QTest::addColumn<int>("h");
    QTest::addColumn<float>("amount");
    QTest::addColumn<int>("range");
    QTest::newRow("small odd") << 37 << 29 << 3.7f << 0;
    QTest::newRow("one row") << 100 << 1 << 2.5f << 0;
    QTest::newRow("one column") << 1 << 60 << 4.0f << 0;
    QTest::newRow("wide") << 301 << 97 << 1.25f << 0;
    QTest::newRow("tiny amount") << 64 << 64 << 0.1f << 0;
    QTest::newRow("1080p") << 1920 << 1080 << 2.5f << 0;
    QTest::newRow("largest setting at 4K") << 3840 << 2160 << 4.0f << 0;
    QTest::newRow("whole -3..3 at 1080p") << 1920 << 1080 << 1.0f << 3;
    QTest::newRow("fractional") << 180 << 100 << 1.0f << -1;
    QTest::newRow("whole -40..40") << 1000 << 90 << 1.0f << 40;
    QTest::newRow("whole -300..300") << 500 << 400 << 1.0f << 300;
}

// Fault: any slip in the blend, rounding, clamping or row split.
void TestWiggle::warpMatchesReference()
{
    QFETCH(int, w);
    QFETCH(int, h);
    QFETCH(float, amount);
    QFETCH(int, range);
    std::mt19937 rng(uint(w * 31 + h + range));
    const QImage input = randomImage(w, h, rng);
    WiggleGrid grid;
    makeWiggleGrid(grid, w, h, amount, rng);
    for (std::vector<float> *offsets : {&grid.offsetsX, &grid.offsetsY}) {
        for (float &v : *offsets) {
            if (range < 0)
                v = float(int(rng() % 2001) - 1000) / 250.0f;
            else if (range > 0)
                v = float(int(rng() % unsigned(2 * range + 1)) - range);
        }
    }
    const QImage warped = warpImage(input, grid);
    QCOMPARE(warped.format(), QImage::Format_RGBA8888);
    QCOMPARE(warped, referenceWarp(input, grid));
}

void TestWiggle::edgesNeverSampleOutside()
{
    // Large offsets on a small image: every output pixel must still be one
    // of the input's pixels (each pixel value is unique, so this also shows
    // where it came from).
    QImage input(30, 20, QImage::Format_RGBA8888);
    for (int y = 0; y < 20; ++y)
        for (int x = 0; x < 30; ++x)
            reinterpret_cast<quint32 *>(input.scanLine(y))[x] = quint32(0xFF000000u | y << 8 | x);
    WiggleGrid grid;
    grid.width = 2;
    grid.height = 1;
    grid.offsetsX = {-40.0f, 40.0f};
    grid.offsetsY = {-40.0f, 40.0f};
    const QImage warped = warpImage(input, grid);
    for (int y = 0; y < 20; ++y) {
        for (int x = 0; x < 30; ++x) {
            const quint32 v = reinterpret_cast<const quint32 *>(warped.constScanLine(y))[x];
            QVERIFY((v & 0xFF) < 30);
            QVERIFY(((v >> 8) & 0xFF) < 20);
        }
    }
    QCOMPARE(reinterpret_cast<const quint32 *>(warped.constScanLine(0))[0] & 0xFFFF, 0u);
    QCOMPARE(reinterpret_cast<const quint32 *>(warped.constScanLine(19))[29] & 0xFFFF,
             quint32(19 << 8 | 29));
    QVERIFY(warpImage(QImage(), grid).isNull());
}

void TestWiggle::settingMappings_data()
{
    QTest::addColumn<int>("setting");
    QTest::addColumn<float>("amountPx");
    QTest::addColumn<int>("fps");
    QTest::newRow("zero") << 0 << 0.1f << 1;
    QTest::newRow("defaults") << 50 << 2.05f << 15;
    QTest::newRow("speed default 20") << 20 << 0.88f << 6;
    QTest::newRow("max") << 100 << 4.0f << 30;
    QTest::newRow("clamped high") << 250 << 4.0f << 30;
    QTest::newRow("clamped low") << -3 << 0.1f << 1;
}

// Fault: the speed-to-frame-rate mapping is off by one, or not clamped.
void TestWiggle::settingMappings()
{
    QFETCH(int, setting);
    QFETCH(float, amountPx);
    QFETCH(int, fps);
    QVERIFY(qFuzzyCompare(wiggleAmountPxFromSetting(setting), amountPx));
    QCOMPARE(wiggleFramesPerSecondFromSetting(setting), fps);
}

QTEST_APPLESS_MAIN(TestWiggle)
#include "tst_wiggle.moc"
