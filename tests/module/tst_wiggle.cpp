#include "ReferenceWarp.h"

#include "common/Wiggle.h"

#include <QtTest>

#include <cmath>

namespace {

QImage randomImage(int w, int h, std::mt19937 &rng, QImage::Format format = QImage::Format_RGBA8888)
{
    QImage image(w, h, format);
    for (int y = 0; y < h; ++y) {
        auto *line = reinterpret_cast<quint32 *>(image.scanLine(y));
        for (int x = 0; x < w; ++x)
            line[x] = format == QImage::Format_RGBA8888 ? rng() : qPremultiply(rng());
    }
    return image;
}

} // namespace

class TestWiggle : public QObject {
    Q_OBJECT

private slots:
    void gridSizeCoversImage();
    void offsetDistribution_data();
    void offsetDistribution();
    void warpMatchesReference_data();
    void warpMatchesReference();
    void amountMapping();
    void framesPerSecondMapping_data();
    void framesPerSecondMapping();
};

void TestWiggle::gridSizeCoversImage()
{
    std::mt19937 rng(1);
    WiggleGrid grid;
    for (const auto &[w, h, gw, gh] :
         {std::array{1920, 1080, 80, 45}, std::array{25, 1, 2, 1}, std::array{24, 48, 1, 2}}) {
        makeWiggleGrid(grid, w, h, 1.0f, rng);
        QCOMPARE(grid.width, gw);
        QCOMPARE(grid.height, gh);
        QCOMPARE(grid.offsetsX.size(), size_t(gw * gh));
        QCOMPARE(grid.offsetsY.size(), size_t(gw * gh));
    }
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

// Each offset has the amount's whole part or one more, the fraction being the
// chance of the larger, and either sign equally often.
void TestWiggle::offsetDistribution()
{
    QFETCH(float, amount);
    QFETCH(float, low);
    QFETCH(double, highShare);
    std::mt19937 rng(20261122);
    WiggleGrid grid;
    makeWiggleGrid(grid, 4800, 4800, amount, rng); // 80,000 draws per axis
    for (const auto *offsets : {&grid.offsetsX, &grid.offsetsY}) {
        int high = 0, negative = 0, nonZero = 0;
        for (float v : *offsets) {
            const float magnitude = std::fabs(v);
            QVERIFY2(magnitude == low || magnitude == low + 1.0f, qPrintable(QString::number(v)));
            high += magnitude == low + 1.0f;
            nonZero += v != 0;
            negative += v < 0;
        }
        QVERIFY(std::fabs(double(high) / offsets->size() - highShare) < 0.01);
        QVERIFY(std::fabs(double(negative) / nonZero - 0.5) < 0.02);
    }
}

// Random fields and hand-made ones it never rolls: small whole offsets of every
// sign (many exact halves between cells), fractional offsets and whole
// offsets too large for exact integer blending or larger than the image
// (clamped at every edge). The format is kept.
void TestWiggle::warpMatchesReference_data()
{
    QTest::addColumn<int>("w");
    QTest::addColumn<int>("h");
    QTest::addColumn<float>("amount");
    QTest::addColumn<int>(
        "range"); // 0: rolled; > 0: whole offsets in -range..range; -1: fractional
    QTest::addColumn<bool>("premultiplied");
    QTest::newRow("small odd") << 37 << 29 << 3.7f << 0 << false;
    QTest::newRow("one row") << 100 << 1 << 2.5f << 0 << false;
    QTest::newRow("one column") << 1 << 60 << 4.0f << 0 << false;
    QTest::newRow("tiny amount, premultiplied") << 64 << 64 << 0.1f << 0 << true;
    QTest::newRow("1080p premultiplied") << 1920 << 1080 << 2.5f << 0 << true;
    QTest::newRow("largest setting at 4K") << 3840 << 2160 << 4.0f << 0 << false;
    QTest::newRow("whole -3..3 at 1080p") << 1920 << 1080 << 1.0f << 3 << false;
    QTest::newRow("fractional") << 180 << 100 << 1.0f << -1 << false;
    QTest::newRow("whole -40..40") << 1000 << 90 << 1.0f << 40 << false;
    QTest::newRow("whole -300..300") << 500 << 400 << 1.0f << 300 << true;
}

// Fault: any slip in the blend, rounding, clamping or row split.
void TestWiggle::warpMatchesReference()
{
    QFETCH(int, w);
    QFETCH(int, h);
    QFETCH(float, amount);
    QFETCH(int, range);
    QFETCH(bool, premultiplied);
    std::mt19937 rng(uint(w * 7 + h + range));
    const QImage input = randomImage(
        w, h, rng, premultiplied ? QImage::Format_ARGB32_Premultiplied : QImage::Format_RGBA8888);
    WiggleGrid grid;
    makeWiggleGrid(grid, w, h, amount, rng);
    for (std::vector<float> *offsets : {&grid.offsetsX, &grid.offsetsY})
        for (float &v : *offsets)
            if (range > 0)
                v = float(int(rng() % unsigned(2 * range + 1)) - range);
            else if (range < 0)
                v = float(int(rng() % 2001) - 1000) / 250.0f;
    const QImage warped = warpImage(input, grid);
    QCOMPARE(warped.format(), input.format());
    QCOMPARE(warped, referenceWarp(input, grid));
    QVERIFY(warpImage(QImage(), grid).isNull());
}

void TestWiggle::amountMapping()
{
    for (const auto &[setting, px] :
         {std::pair{0, 0.1f}, std::pair{50, 2.05f}, std::pair{20, 0.88f}, std::pair{100, 4.0f},
          std::pair{250, 4.0f}, std::pair{-3, 0.1f}})
        QVERIFY2(qFuzzyCompare(wiggleAmountPxFromSetting(setting), px),
                 qPrintable(QString::number(setting)));
}

// Frames per second = speed * 29 / 100 + 1 in integer division: the rows sit
// on both sides of the steps, where an off-by-one in the scale, the divisor
// or the rounding shows.
void TestWiggle::framesPerSecondMapping_data()
{
    QTest::addColumn<int>("speed");
    QTest::addColumn<int>("fps");
    const int rows[][2] = {{-3, 1},  {0, 1},   {3, 1},   {4, 2},   {20, 6},  {24, 7},   {50, 15},
                           {68, 20}, {69, 21}, {96, 28}, {97, 29}, {99, 29}, {100, 30}, {250, 30}};
    for (const auto &row : rows)
        QTest::addRow("speed %d", row[0]) << row[0] << row[1];
}

void TestWiggle::framesPerSecondMapping()
{
    QFETCH(int, speed);
    QFETCH(int, fps);
    QCOMPARE(wiggleFramesPerSecondFromSetting(speed), fps);
}

QTEST_APPLESS_MAIN(TestWiggle)
#include "tst_wiggle.moc"
