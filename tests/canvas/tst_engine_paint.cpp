#include "LogCapture.h"

#include "engine/FloodFill.h"
#include "engine/StrokePainter.h"

#include <QPainter>
#include <QRegularExpression>
#include <QtTest>

#include <cmath>

namespace {

QImage blank(int w, int h)
{
    QImage image(w, h, QImage::Format_RGBA8888);
    image.fill(Qt::transparent);
    return image;
}

Stroke brush(QVector<QPointF> points, QColor color = Qt::red, float width = 8.0f)
{
    Stroke s;
    s.points = std::move(points);
    s.color = color;
    s.width = width;
    return s;
}

int alphaAt(const QImage &image, int x, int y)
{
    return qAlpha(image.pixel(x, y));
}

} // namespace

class TestEnginePaint : public QObject {
    Q_OBJECT

private slots:
    void smoothedPathShape();
    void smoothedPathMapsCoordinates();
    void clickDotHasDiameterWidth_data();
    void clickDotHasDiameterWidth();
    void singlePointIsFilledCircle();
    void eraserClears();
    void emptyStrokePaintsNothing();
    void bakeLeavesTailAndLogs();
    void bakeOfLongStrokeEqualsOneGo();
    void shortStrokeIsNotBaked();
    void replayMatchesStrokeByStroke();
    void fillStrokeUsesTruncatedSeed();
    void hostileFillSeedIgnored();
    void eraseFilledShapeClearsExactlyTheShape();
    void eraseOutlineShapeClearsBand();
};

void TestEnginePaint::smoothedPathShape()
{
    QVERIFY(smoothedPath({}).isEmpty());
    QVERIFY(smoothedPath({QPointF(1, 1)}).isEmpty());

    const QPainterPath line = smoothedPath({QPointF(1, 2), QPointF(5, 6)});
    QCOMPARE(line.elementCount(), 2);
    QCOMPARE(QPointF(line.elementAt(1)), QPointF(5, 6));

    // Quadratic through p1 ending at the midpoint of p1 and p2, then a line.
    const QPainterPath curve =
        smoothedPath({QPointF(0, 0), QPointF(10, 0), QPointF(10, 10), QPointF(20, 10)});
    QCOMPARE(QPointF(curve.elementAt(0)), QPointF(0, 0));
    QCOMPARE(curve.elementAt(0).type, QPainterPath::MoveToElement);
    int curves = 0;
    QList<QPointF> ends;
    for (int i = 0; i < curve.elementCount(); ++i) {
        const auto e = curve.elementAt(i);
        if (e.type == QPainterPath::CurveToElement) {
            ++curves;
            ends << QPointF(curve.elementAt(i + 2));
        }
    }
    QCOMPARE(curves, 2);
    QCOMPARE(ends, QList<QPointF>({QPointF(10, 5), QPointF(15, 10)}));
    const auto last = curve.elementAt(curve.elementCount() - 1);
    QCOMPARE(last.type, QPainterPath::LineToElement);
    QCOMPARE(QPointF(last), QPointF(20, 10));
}

void TestEnginePaint::smoothedPathMapsCoordinates()
{
    const QPainterPath path = smoothedPath({QPointF(1, 2), QPointF(3, 4)}, 2.0, 0.5, 10, 20);
    QCOMPARE(QPointF(path.elementAt(0)), QPointF(12, 21));
    QCOMPARE(QPointF(path.elementAt(1)), QPointF(16, 22));
}

void TestEnginePaint::clickDotHasDiameterWidth_data()
{
    QTest::addColumn<float>("width");
    QTest::newRow("8") << 8.0f;
    QTest::newRow("20") << 20.0f;
    QTest::newRow("3") << 3.0f;
}

void TestEnginePaint::clickDotHasDiameterWidth()
{
    QFETCH(float, width);
    // A click is recorded as two equal points; the round cap makes it a dot.
    QImage layer = blank(64, 64);
    const QPointF c(32, 32);
    paintStroke(layer, brush({c, c}, Qt::red, width), 200);
    const double r = width / 2.0;
    for (int y = 0; y < 64; ++y) {
        for (int x = 0; x < 64; ++x) {
            const double d = std::hypot(x + 0.5 - c.x(), y + 0.5 - c.y());
            if (d < r - 1.0)
                QCOMPARE(layer.pixel(x, y), qRgba(255, 0, 0, 255));
            else if (d > r + 1.0)
                QCOMPARE(alphaAt(layer, x, y), 0);
        }
    }
}

void TestEnginePaint::singlePointIsFilledCircle()
{
    QImage one = blank(40, 40);
    QImage two = blank(40, 40);
    paintStroke(one, brush({QPointF(20, 20)}, Qt::blue, 10), 200);
    paintStroke(two, brush({QPointF(20, 20), QPointF(20, 20)}, Qt::blue, 10), 200);
    QCOMPARE(one.pixel(20, 20), qRgba(0, 0, 255, 255));
    QCOMPARE(alphaAt(one, 20, 26), 0);
    QCOMPARE(alphaAt(one, 26, 20), 0);
    QCOMPARE(alphaAt(one, 20, 16), 255);
    for (int y = 0; y < 40; ++y)
        for (int x = 0; x < 40; ++x)
            QVERIFY(std::abs(alphaAt(one, x, y) - alphaAt(two, x, y)) <= 40);
}

void TestEnginePaint::eraserClears()
{
    QImage layer = blank(40, 20);
    layer.fill(QColor(0, 255, 0));
    Stroke eraser = brush({QPointF(0, 10), QPointF(40, 10)}, QColor(), 6);
    eraser.eraser = true;
    paintStroke(layer, eraser, 200);
    for (int x = 0; x < 40; ++x) {
        QCOMPARE(alphaAt(layer, x, 10), 0);
        QCOMPARE(alphaAt(layer, x, 8), 0);
        QCOMPARE(layer.pixel(x, 2), qRgba(0, 255, 0, 255));
        QCOMPARE(layer.pixel(x, 17), qRgba(0, 255, 0, 255));
    }
    Stroke dot = brush({QPointF(20, 3)}, QColor(), 4);
    dot.eraser = true;
    paintStroke(layer, dot, 200);
    QCOMPARE(alphaAt(layer, 20, 3), 0);
}

void TestEnginePaint::emptyStrokePaintsNothing()
{
    QImage layer = blank(8, 8);
    const QImage before = layer.copy();
    paintStroke(layer, Stroke{}, 200);
    Stroke shapeOnePoint;
    shapeOnePoint.shape = true;
    shapeOnePoint.points = {QPointF(1, 1)};
    shapeOnePoint.color = Qt::red;
    paintStroke(layer, shapeOnePoint, 200);
    QCOMPARE(layer, before);
    QImage null;
    paintStroke(null, brush({QPointF(1, 1)}), 200);
    QVERIFY(null.isNull());
}

void TestEnginePaint::bakeLeavesTailAndLogs()
{
    LogCapture log;
    QImage layer = blank(300, 40);
    Stroke current;
    current.color = Qt::black;
    current.width = 8;
    for (int i = 0; i < 81; ++i)
        current.points << QPointF(10 + 3 * i, 20);
    const QPointF firstKept = current.points[61];
    QVERIFY(bakeLiveStroke(layer, current, 8.0f, QSize(300, 40)));
    QCOMPARE(current.points.size(), 20);
    QCOMPARE(current.points.first(), firstKept);
    QCOMPARE(current.points.last(), QPointF(250, 20));
    // Baked up to and including the first kept point, nothing beyond its cap.
    QCOMPARE(alphaAt(layer, 10, 20), 255);
    QCOMPARE(alphaAt(layer, int(firstKept.x()) - 1, 20), 255);
    QCOMPARE(alphaAt(layer, int(firstKept.x()) + 6, 20), 0);

    const QStringList lines = log.matching("[PD] bake:");
    QCOMPARE(lines.size(), 1);
    const QRegularExpression re(
        QStringLiteral("^\\[PD\\] bake: 61 pts in \\d+ ms \\| brush 8 px \\| canvas 300x40$"));
    QVERIFY2(re.match(lines.first()).hasMatch(), qPrintable(lines.first()));
}

void TestEnginePaint::bakeOfLongStrokeEqualsOneGo()
{
    // A straight, opaque, pixel-aligned stroke: painting it in baked pieces and
    // painting it whole must give the same pixels (the joints overlap exactly).
    LogCapture log;
    QVector<QPointF> points;
    for (int i = 0; i < 200; ++i)
        points << QPointF(8 + 2.5 * i, 16);
    const Stroke whole = brush(points, QColor(20, 40, 200), 8);

    QImage oneGo = blank(520, 32);
    paintStroke(oneGo, whole, 200);

    QImage baked = blank(520, 32);
    Stroke current = brush({}, QColor(20, 40, 200), 8);
    int bakes = 0;
    for (const QPointF &p : points) {
        current.points << p;
        bakes += bakeLiveStroke(baked, current, 8, QSize(520, 32)) ? 1 : 0;
        QVERIFY(current.points.size() <= BakeThreshold);
    }
    paintStroke(baked, current, 200);
    QVERIFY(bakes >= 2);
    QCOMPARE(log.matching("[PD] bake:").size(), bakes);
    QCOMPARE(baked, oneGo);
}

void TestEnginePaint::shortStrokeIsNotBaked()
{
    LogCapture log;
    QImage layer = blank(100, 10);
    Stroke current = brush({});
    for (int i = 0; i < 80; ++i)
        current.points << QPointF(i, 5);
    QVERIFY(!bakeLiveStroke(layer, current, 8, layer.size()));
    QCOMPARE(current.points.size(), 80);
    QCOMPARE(alphaAt(layer, 5, 5), 0);
    QVERIFY(log.matching("[PD] bake:").isEmpty());
}

void TestEnginePaint::replayMatchesStrokeByStroke()
{
    QVector<Stroke> strokes;
    strokes << brush({QPointF(2, 2), QPointF(30, 30), QPointF(60, 4)}, QColor(255, 0, 0, 200), 5);
    Stroke fill;
    fill.fill = true;
    fill.points = {QPointF(50, 50)};
    fill.color = QColor(0, 0, 255);
    strokes << fill;
    Stroke eraser = brush({QPointF(0, 40), QPointF(64, 40)}, QColor(), 4);
    eraser.eraser = true;
    strokes << eraser;
    Stroke shape;
    shape.shape = true;
    shape.points = {QPointF(5, 45), QPointF(25, 60)};
    shape.color = Qt::green;
    shape.shapeType = ShapeEllipse;
    strokes << shape;

    QImage expected = blank(64, 64);
    for (const Stroke &s : strokes)
        paintStroke(expected, s, 100);
    QImage replayed(64, 64, QImage::Format_RGBA8888);
    replayed.fill(Qt::white); // replay starts from a cleared layer
    replayStrokes(replayed, strokes, 100);
    QCOMPARE(replayed, expected);
    QCOMPARE(replayed.pixel(63, 63), qRgba(0, 0, 255, 255));
}

void TestEnginePaint::fillStrokeUsesTruncatedSeed()
{
    QImage layer = blank(10, 10);
    for (int y = 0; y < 10; ++y)
        layer.setPixel(5, y, qRgba(0, 0, 0, 255));
    Stroke fill;
    fill.fill = true;
    fill.points = {QPointF(6.9, 2.7)};
    fill.color = QColor(255, 0, 0);
    paintStroke(layer, fill, 10);
    QCOMPARE(layer.pixel(6, 2), qRgba(255, 0, 0, 255));
    QCOMPARE(layer.pixel(9, 9), qRgba(255, 0, 0, 255));
    QCOMPARE(alphaAt(layer, 4, 2), 0);
}

void TestEnginePaint::hostileFillSeedIgnored()
{
    QImage layer = blank(10, 10);
    const QImage before = layer.copy();
    for (const QPointF &seed : {QPointF(-5, 1), QPointF(1, 10), QPointF(1e12, 1),
                                QPointF(qQNaN(), 2), QPointF(2, qInf())}) {
        Stroke fill;
        fill.fill = true;
        fill.points = {seed};
        fill.color = Qt::red;
        paintStroke(layer, fill, 200);
    }
    QCOMPARE(layer, before);
}

void TestEnginePaint::eraseFilledShapeClearsExactlyTheShape()
{
    // The cleared alpha is the complement of what the same shape paints.
    for (int type = 0; type < ShapeTypeCount; ++type) {
        Stroke shape;
        shape.shape = true;
        shape.points = {QPointF(10.3, 12.6), QPointF(70.8, 40.1)};
        shape.color = Qt::black;
        shape.shapeType = type;

        QImage painted = blank(80, 50);
        paintStroke(painted, shape, 200);

        QImage erased = blank(80, 50);
        erased.fill(QColor(200, 100, 50));
        shape.shapeErase = true;
        shape.color = Qt::yellow; // ignored when erasing
        paintStroke(erased, shape, 200);

        for (int y = 0; y < 50; ++y) {
            for (int x = 0; x < 80; ++x) {
                const int a = alphaAt(painted, x, y);
                const int e = alphaAt(erased, x, y);
                QVERIFY2(std::abs((255 - a) - e) <= 1,
                         qPrintable(QString("type %1 at %2,%3: %4 vs %5")
                                        .arg(type)
                                        .arg(x)
                                        .arg(y)
                                        .arg(a)
                                        .arg(e)));
                if (a == 0)
                    QCOMPARE(erased.pixel(x, y), qRgba(200, 100, 50, 255));
            }
        }
    }
}

void TestEnginePaint::eraseOutlineShapeClearsBand()
{
    QImage layer = blank(60, 60);
    layer.fill(Qt::red);
    Stroke shape;
    shape.shape = true;
    shape.shapeErase = true;
    shape.shapeMode = ShapeModeOutline;
    shape.width = 4;
    shape.points = {QPointF(10, 10), QPointF(50, 50)};
    paintStroke(layer, shape, 200);
    QCOMPARE(alphaAt(layer, 10, 30), 0);
    QCOMPARE(alphaAt(layer, 30, 11), 0);
    QCOMPARE(layer.pixel(30, 30), qRgba(255, 0, 0, 255));
    QCOMPARE(layer.pixel(2, 2), qRgba(255, 0, 0, 255));
}

QTEST_MAIN(TestEnginePaint)
#include "tst_engine_paint.moc"
