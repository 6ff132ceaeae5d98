#include "LogCapture.h"

#include "engine/CanvasLayer.h"
#include "engine/StrokePainter.h"

#include <QPainter>
#include <QRegularExpression>
#include <QtTest>

#include <cmath>

namespace {

QImage blank(int w, int h, QColor color = Qt::transparent)
{
    QImage image(w, h, LayerFormat);
    image.fill(color);
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

Stroke fillStroke(QPointF seed, QColor color)
{
    Stroke fill = brush({seed}, color);
    fill.fill = true;
    return fill;
}

} // namespace

class TestEnginePaint : public QObject {
    Q_OBJECT

private slots:
    void smoothedPathShape();
    void dotHasDiameterWidth_data();
    void dotHasDiameterWidth();
    void eraserAndEmptyStrokes();
    void bakeKeepsTailAndEqualsOneGo();
    void boundsCoverThePaint();
    void replayMatchesStrokeByStroke();
    void fillSeeds();
    void eraseShapes();
};

void TestEnginePaint::smoothedPathShape()
{
    QVERIFY(smoothedPath({}).isEmpty());
    QVERIFY(smoothedPath({QPointF(1, 1)}).isEmpty());
    const QPainterPath line = smoothedPath({QPointF(1, 2), QPointF(3, 4)}, 2.0, 0.5, 10, 20);
    QCOMPARE(line.elementCount(), 2);
    QCOMPARE(QPointF(line.elementAt(0)), QPointF(12, 21));
    QCOMPARE(QPointF(line.elementAt(1)), QPointF(16, 22));

    // Quadratics through each inner point ending at the next midpoint, then a line.
    const QPainterPath curve =
        smoothedPath({QPointF(0, 0), QPointF(10, 0), QPointF(10, 10), QPointF(20, 10)});
    QList<QPointF> ends;
    for (int i = 0; i < curve.elementCount(); ++i)
        if (curve.elementAt(i).type == QPainterPath::CurveToElement)
            ends << QPointF(curve.elementAt(i + 2));
    QCOMPARE(ends, QList<QPointF>({QPointF(10, 5), QPointF(15, 10)}));
    const auto last = curve.elementAt(curve.elementCount() - 1);
    QCOMPARE(last.type, QPainterPath::LineToElement);
    QCOMPARE(QPointF(last), QPointF(20, 10));
}

void TestEnginePaint::dotHasDiameterWidth_data()
{
    QTest::addColumn<float>("width");
    QTest::addColumn<int>("points");
    QTest::newRow("click of 8") << 8.0f << 2;
    QTest::newRow("click of 20") << 20.0f << 2;
    QTest::newRow("click of 3") << 3.0f << 2;
    QTest::newRow("single point of 10") << 10.0f << 1;
}

// A click is recorded as two equal points (a round cap makes it a dot); a
// single point is a filled circle of the same diameter.
void TestEnginePaint::dotHasDiameterWidth()
{
    QFETCH(float, width);
    QFETCH(int, points);
    QImage layer = blank(64, 64);
    const QPointF c(32, 32);
    paintStroke(layer, brush(QVector<QPointF>(points, c), Qt::red, width), 200);
    const double r = width / 2.0;
    for (int y = 0; y < 64; ++y)
        for (int x = 0; x < 64; ++x) {
            const double d = std::hypot(x + 0.5 - c.x(), y + 0.5 - c.y());
            if (d < r - 1.0)
                QCOMPARE(layer.pixel(x, y), qRgb(255, 0, 0));
            else if (d > r + 1.0)
                QCOMPARE(alphaAt(layer, x, y), 0);
        }
}

// The eraser clears its path, a single point a dot; strokes without points,
// shapes with one point and null layers paint nothing.
void TestEnginePaint::eraserAndEmptyStrokes()
{
    QImage erased = blank(40, 20, QColor(0, 255, 0));
    Stroke eraser = brush({QPointF(0, 10), QPointF(40, 10)}, QColor(), 6);
    eraser.eraser = true;
    paintStroke(erased, eraser, 200);
    eraser.points = {QPointF(20, 3)};
    paintStroke(erased, eraser, 200);
    QCOMPARE(alphaAt(erased, 20, 3), 0);
    for (int x = 0; x < 40; ++x) {
        QCOMPARE(alphaAt(erased, x, 8), 0);
        QCOMPARE(erased.pixel(x, 17), qRgb(0, 255, 0));
    }
    QImage layer = blank(8, 8);
    Stroke shapeOnePoint = brush({QPointF(1, 1)});
    shapeOnePoint.shape = true;
    for (const Stroke &stroke : {Stroke{}, shapeOnePoint})
        paintStroke(layer, stroke, 200);
    QCOMPARE(layer, blank(8, 8));
    QImage null;
    paintStroke(null, brush({QPointF(1, 1)}), 200);
    QVERIFY(null.isNull());
}

// A long live stroke is baked into the layer up to and including the first
// point it keeps; painting it in baked pieces gives the same pixels as one go
// (for a straight, opaque, pixel-aligned stroke the joints overlap exactly).
void TestEnginePaint::bakeKeepsTailAndEqualsOneGo()
{
    LogCapture log;
    QVector<QPointF> points;
    for (int i = 0; i < 200; ++i)
        points << QPointF(8 + 2.5 * i, 16);
    QImage oneGo = blank(520, 32);
    paintStroke(oneGo, brush(points, QColor(20, 40, 200)), 200);

    QImage baked = blank(520, 32);
    Stroke current = brush({}, QColor(20, 40, 200));
    int bakes = 0;
    for (const QPointF &p : points) {
        current.points << p;
        const QPointF firstKept = current.points.size() > BakeThreshold
                                      ? current.points[current.points.size() - BakeKeptTail]
                                      : QPointF();
        if (bakeLiveStroke(baked, current, 8, QSize(520, 32))) {
            ++bakes;
            QCOMPARE(current.points.size(), BakeKeptTail);
            QCOMPARE(current.points.first(), firstKept);
            QCOMPARE(alphaAt(baked, int(firstKept.x()) - 1, 16), 255);
            QCOMPARE(alphaAt(baked, int(firstKept.x()) + 6, 16), 0);
        }
        QVERIFY(current.points.size() <= BakeThreshold);
    }
    paintStroke(baked, current, 200);
    QCOMPARE(bakes, 2);
    QCOMPARE(baked, oneGo);
    const QStringList lines = log.matching("[PD] bake:");
    QCOMPARE(lines.size(), bakes);
    QVERIFY2(QRegularExpression("^\\[PD\\] bake: 61 pts in \\d+ ms \\| brush 8 px \\| canvas "
                                "520x32$")
                 .match(lines.first())
                 .hasMatch(),
             qPrintable(lines.first()));
}

// Everything a brush or eraser stroke paints lies inside its bounds (the
// composite rebuilds only there); fills and shapes give the whole canvas.
void TestEnginePaint::boundsCoverThePaint()
{
    const QSize size(120, 90);
    for (float width : {1.0f, 7.0f, 33.0f}) {
        const Stroke stroke =
            brush({QPointF(20.3, 30.7), QPointF(60, 10), QPointF(90.5, 70.2)}, Qt::black, width);
        QImage layer = blank(120, 90);
        paintStroke(layer, stroke, 0);
        const QRect bounds = strokeBounds(stroke, size);
        for (int y = 0; y < 90; ++y)
            for (int x = 0; x < 120; ++x)
                if (alphaAt(layer, x, y))
                    QVERIFY2(bounds.contains(x, y), qPrintable(QString("%1,%2").arg(x).arg(y)));
    }
    QCOMPARE(strokeBounds(fillStroke(QPointF(1, 1), Qt::red), size), QRect(QPoint(), size));
    QCOMPARE(strokeBounds(brush({QPointF(qInf(), 1)}), size), QRect(QPoint(), size));
}

void TestEnginePaint::replayMatchesStrokeByStroke()
{
    Stroke eraser = brush({QPointF(0, 40), QPointF(64, 40)}, QColor(), 4);
    eraser.eraser = true;
    Stroke shape = brush({QPointF(5, 45), QPointF(25, 60)}, Qt::green);
    shape.shape = true;
    shape.shapeType = ShapeEllipse;
    const QVector<Stroke> strokes{
        brush({QPointF(2, 2), QPointF(30, 30), QPointF(60, 4)}, QColor(255, 0, 0, 200), 5),
        fillStroke(QPointF(50, 50), Qt::blue), eraser, shape};
    QImage expected = blank(64, 64);
    for (const Stroke &s : strokes)
        paintStroke(expected, s, 100);
    QImage replayed = blank(64, 64, Qt::white); // replay starts from a cleared layer
    replayStrokes(replayed, strokes, 100);
    QCOMPARE(replayed, expected);
    QCOMPARE(replayed.pixel(63, 63), qRgb(0, 0, 255));
}

// A fill stroke's seed is truncated to a pixel; seeds outside the layer or not
// finite change nothing.
void TestEnginePaint::fillSeeds()
{
    QImage layer = blank(10, 10);
    QPainter(&layer).fillRect(5, 0, 1, 10, Qt::black);
    for (const QPointF &seed : {QPointF(-5, 1), QPointF(1, 10), QPointF(1e12, 1),
                                QPointF(qQNaN(), 2), QPointF(2, qInf())})
        paintStroke(layer, fillStroke(seed, Qt::red), 200);
    QCOMPARE(alphaAt(layer, 0, 0), 0);
    paintStroke(layer, fillStroke(QPointF(6.9, 2.7), QColor(255, 0, 0, 128)), 10);
    QCOMPARE(layer.pixelColor(9, 9), QColor(255, 0, 0, 128));
    QCOMPARE(alphaAt(layer, 4, 2), 0);
}

// "Erase shape area" clears the complement of what the same shape paints
// (filled), or the band its pen covers (outline).
void TestEnginePaint::eraseShapes()
{
    for (int type = 0; type < ShapeTypeCount; ++type) {
        Stroke shape = brush({QPointF(10.3, 12.6), QPointF(70.8, 40.1)}, Qt::black);
        shape.shape = true;
        shape.shapeType = type;
        QImage painted = blank(80, 50);
        paintStroke(painted, shape, 200);
        QImage erased = blank(80, 50, QColor(200, 100, 50));
        shape.shapeErase = true;
        shape.color = Qt::yellow; // ignored when erasing
        paintStroke(erased, shape, 200);
        for (int y = 0; y < 50; ++y)
            for (int x = 0; x < 80; ++x) {
                const int a = alphaAt(painted, x, y);
                QVERIFY2(std::abs((255 - a) - alphaAt(erased, x, y)) <= 1,
                         qPrintable(QString("type %1 at %2,%3").arg(type).arg(x).arg(y)));
                if (a == 0)
                    QCOMPARE(erased.pixel(x, y), qRgb(200, 100, 50));
            }
    }
    QImage layer = blank(60, 60, Qt::red);
    Stroke outline = brush({QPointF(10, 10), QPointF(50, 50)}, Qt::black, 4);
    outline.shape = outline.shapeErase = true;
    outline.shapeMode = ShapeModeOutline;
    paintStroke(layer, outline, 200);
    QCOMPARE(alphaAt(layer, 10, 30), 0);
    QCOMPARE(alphaAt(layer, 30, 11), 0);
    QCOMPARE(layer.pixel(30, 30), qRgb(255, 0, 0));
    QCOMPARE(layer.pixel(2, 2), qRgb(255, 0, 0));
}

QTEST_MAIN(TestEnginePaint)
#include "tst_engine_paint.moc"
