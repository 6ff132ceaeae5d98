#include "engine/ShapePath.h"
#include "engine/Stroke.h"

#include <QtTest>

#include <cmath>

namespace {

const QRectF R(10, 20, 200, 100); // centre (110, 70)
constexpr double Pi = 3.14159265358979323846;

// The polygon vertices of a closed path, without the closing repeat.
QList<QPointF> vertices(const QPainterPath &path)
{
    QList<QPointF> out;
    for (int i = 0; i < path.elementCount(); ++i)
        out << QPointF(path.elementAt(i));
    if (out.size() > 1 && out.first() == out.last())
        out.removeLast();
    return out;
}

bool near(const QPointF &a, const QPointF &b)
{
    return std::abs(a.x() - b.x()) < 1e-3 && std::abs(a.y() - b.y()) < 1e-3;
}

void compareVertices(const QList<QPointF> &actual, const QList<QPointF> &expected)
{
    QCOMPARE(actual.size(), expected.size());
    for (int i = 0; i < actual.size(); ++i)
        QVERIFY2(near(actual[i], expected[i]),
                 qPrintable(QString("vertex %1: (%2, %3) expected (%4, %5)")
                                .arg(i)
                                .arg(actual[i].x())
                                .arg(actual[i].y())
                                .arg(expected[i].x())
                                .arg(expected[i].y())));
}

} // namespace

class TestShapes : public QObject {
    Q_OBJECT

private slots:
    void rectangleAndEllipse();
    void polygons();
    void starIsSquareWithoutShift();
    void pentagonAndHexagonStretch();
    void arrowVertices_data();
    void arrowVertices();
    void heartCurve();
    void cross();
    void everyShapeFitsItsRect();
    void arrowDirectionByQuadrant_data();
    void arrowDirectionByQuadrant();
    void shiftMakesSquareInDragQuadrant_data();
    void shiftMakesSquareInDragQuadrant();
    void mirroredDragGivesSameRect();
    void degenerateAndUnknown();
};

void TestShapes::rectangleAndEllipse()
{
    const QPainterPath rect = shapePath(ShapeRectangle, R, 0);
    QCOMPARE(rect.boundingRect(), R);
    compareVertices(vertices(rect), {R.topLeft(), R.topRight(), R.bottomRight(), R.bottomLeft()});
    const QPainterPath ellipse = shapePath(ShapeEllipse, R, 0);
    QCOMPARE(ellipse.boundingRect(), R);
    QVERIFY(ellipse.contains(QPointF(209, 70)));
    QVERIFY(!ellipse.contains(QPointF(205, 25)));
}

void TestShapes::polygons()
{
    compareVertices(vertices(shapePath(ShapeTriangle, R, 0)),
                    {QPointF(110, 20), QPointF(210, 120), QPointF(10, 120)});
    compareVertices(vertices(shapePath(ShapeDiamond, R, 0)),
                    {QPointF(110, 20), QPointF(210, 70), QPointF(110, 120), QPointF(10, 70)});
}

void TestShapes::starIsSquareWithoutShift()
{
    const QList<QPointF> v = vertices(shapePath(ShapeStar, R, 0));
    QCOMPARE(v.size(), 10);
    QVERIFY(near(v[0], QPointF(110, 20)));
    for (int i = 0; i < 10; ++i) {
        const double angle = i * Pi / 5 - Pi / 2;
        const double r = i % 2 == 0 ? 50.0 : 20.0;
        QVERIFY(near(v[i], QPointF(110 + r * std::cos(angle), 70 + r * std::sin(angle))));
    }
    const QRectF bounds = shapePath(ShapeStar, R, 0).boundingRect();
    QVERIFY(bounds.width() <= 100.0 + 1e-6);
    QVERIFY(bounds.height() <= 100.0 + 1e-6);
}

void TestShapes::pentagonAndHexagonStretch()
{
    QList<QPointF> pentagon;
    for (int i = 0; i < 5; ++i) {
        const double a = 2 * i * Pi / 5 - Pi / 2;
        pentagon << QPointF(110 + std::cos(a) * 100, 70 + std::sin(a) * 50);
    }
    compareVertices(vertices(shapePath(ShapePentagon, R, 0)), pentagon);
    QList<QPointF> hexagon;
    for (int i = 0; i < 6; ++i) {
        const double a = 2 * i * Pi / 6;
        hexagon << QPointF(110 + std::cos(a) * 100, 70 + std::sin(a) * 50);
    }
    compareVertices(vertices(shapePath(ShapeHexagon, R, 0)), hexagon);
    QVERIFY(near(hexagon[0], QPointF(210, 70)));
}

void TestShapes::arrowVertices_data()
{
    QTest::addColumn<int>("direction");
    QTest::addColumn<QList<QPointF>>("expected");
    // L 10, T 20, R 210, B 120, W 200, H 100.
    QTest::newRow("right") << 0 << QList<QPointF>{{10, 48},   {130, 48}, {130, 20}, {210, 70},
                                                  {130, 120}, {130, 92}, {10, 92}};
    QTest::newRow("left") << 2 << QList<QPointF>{{210, 48}, {90, 48}, {90, 20}, {10, 70},
                                                 {90, 120}, {90, 92}, {210, 92}};
    QTest::newRow("down") << 1 << QList<QPointF>{{66, 20},  {66, 80},  {10, 80}, {110, 120},
                                                 {210, 80}, {154, 80}, {154, 20}};
    QTest::newRow("up") << 3 << QList<QPointF>{{66, 120}, {66, 60},  {10, 60},  {110, 20},
                                               {210, 60}, {154, 60}, {154, 120}};
}

void TestShapes::arrowVertices()
{
    QFETCH(int, direction);
    QFETCH(QList<QPointF>, expected);
    compareVertices(vertices(shapePath(ShapeArrow, R, direction)), expected);
}

void TestShapes::heartCurve()
{
    const QPainterPath heart = shapePath(ShapeHeart, R, 0);
    QList<QPointF> v;
    for (int i = 0; i < heart.elementCount(); ++i)
        v << QPointF(heart.elementAt(i));
    QVERIFY(v.size() >= 81);
    // t = 0: the notch at the top centre.
    QVERIFY(near(v[0], QPointF(110, 20 + 42 - 5.0 * 100 / 33)));
    // t = pi/2: the right lobe, 16 units of w/34 from the centre.
    QVERIFY(near(v[20], QPointF(110 + 16.0 * 200 / 34, 62 - (0 + 5 - 0 - 1) * 100.0 / 33)));
    // t = pi: the bottom tip.
    QVERIFY(near(v[40], QPointF(110, 62 + 17 * 100.0 / 33)));
    QVERIFY(near(v[80], v[0]));
}

void TestShapes::cross()
{
    const double a = 28; // 0.28 * min(200, 100)
    compareVertices(vertices(shapePath(ShapeCross, R, 0)), {{110 - a, 20},
                                                            {110 + a, 20},
                                                            {110 + a, 70 - a},
                                                            {210, 70 - a},
                                                            {210, 70 + a},
                                                            {110 + a, 70 + a},
                                                            {110 + a, 120},
                                                            {110 - a, 120},
                                                            {110 - a, 70 + a},
                                                            {10, 70 + a},
                                                            {10, 70 - a},
                                                            {110 - a, 70 - a}});
}

void TestShapes::everyShapeFitsItsRect()
{
    for (int type = 0; type < ShapeTypeCount; ++type) {
        for (int dir = 0; dir < 4; ++dir) {
            const QPainterPath path = shapePath(type, R, dir);
            QVERIFY(!path.isEmpty());
            QVERIFY2(R.adjusted(-1e-3, -1e-3, 1e-3, 1e-3).contains(path.boundingRect()),
                     qPrintable(QString::number(type)));
        }
    }
}

void TestShapes::arrowDirectionByQuadrant_data()
{
    QTest::addColumn<QPointF>("end");
    QTest::addColumn<int>("direction");
    QTest::newRow("none") << QPointF(0, 0) << 0;
    QTest::newRow("right") << QPointF(10, 3) << 0;
    QTest::newRow("right-up") << QPointF(10, -3) << 0;
    QTest::newRow("diagonal down-right") << QPointF(5, 5) << 0;
    QTest::newRow("diagonal up-left") << QPointF(-5, -5) << 2;
    QTest::newRow("left") << QPointF(-10, 3) << 2;
    QTest::newRow("down") << QPointF(3, 10) << 1;
    QTest::newRow("down-left") << QPointF(-3, 10) << 1;
    QTest::newRow("up") << QPointF(3, -10) << 3;
    QTest::newRow("up-left") << QPointF(-3, -10) << 3;
    QTest::newRow("straight down") << QPointF(0, 1) << 1;
    QTest::newRow("straight up") << QPointF(0, -1) << 3;
}

void TestShapes::arrowDirectionByQuadrant()
{
    QFETCH(QPointF, end);
    QFETCH(int, direction);
    const QPointF start(100, 100);
    QCOMPARE(arrowDirection(start, start + end), direction);
}

void TestShapes::shiftMakesSquareInDragQuadrant_data()
{
    QTest::addColumn<QPointF>("end");
    QTest::addColumn<QPointF>("constrained");
    QTest::newRow("down-right") << QPointF(30, 10) << QPointF(130, 130);
    QTest::newRow("down-left") << QPointF(-10, 40) << QPointF(60, 140);
    QTest::newRow("up-right") << QPointF(20, -5) << QPointF(120, 80);
    QTest::newRow("up-left") << QPointF(-7, -3) << QPointF(93, 93);
    QTest::newRow("flat") << QPointF(12, 0) << QPointF(112, 112);
}

void TestShapes::shiftMakesSquareInDragQuadrant()
{
    QFETCH(QPointF, end);
    QFETCH(QPointF, constrained);
    const QPointF start(100, 100);
    QCOMPARE(constrainedShapeEnd(start, start + end, true), constrained);
    QCOMPARE(constrainedShapeEnd(start, start + end, false), start + end);
    const QRectF rect = shapeRect(start, start + end, true);
    QCOMPARE(rect.width(), rect.height());
    // Every shape then fits a square.
    for (int type = 0; type < ShapeTypeCount; ++type) {
        const QRectF bounds = shapePath(type, rect, 0).boundingRect();
        QVERIFY(rect.adjusted(-1e-3, -1e-3, 1e-3, 1e-3).contains(bounds));
    }
}

void TestShapes::mirroredDragGivesSameRect()
{
    const QRectF forward = shapeRect(QPointF(10, 20), QPointF(50, 35), false);
    const QRectF backward = shapeRect(QPointF(50, 35), QPointF(10, 20), false);
    QCOMPARE(forward, QRectF(10, 20, 40, 15));
    QCOMPARE(backward, forward);
    QCOMPARE(arrowDirection(QPointF(50, 35), QPointF(10, 20)), 2);
    QCOMPARE(arrowDirection(QPointF(15, 50), QPointF(10, 20)), 3);
}

void TestShapes::degenerateAndUnknown()
{
    QVERIFY(shapePath(ShapeRectangle, QRectF(5, 5, 0.4, 0.4), 0).isEmpty());
    QVERIFY(!shapePath(ShapeRectangle, QRectF(5, 5, 0.4, 10), 0).isEmpty());
    QVERIFY(!shapePath(ShapeStar, QRectF(5, 5, 0.5, 0), 0).isEmpty());
    QVERIFY(shapePath(ShapeTypeCount, R, 0).isEmpty());
    QVERIFY(shapePath(-1, R, 0).isEmpty());
    QVERIFY(shapePath(ShapeEllipse, QRectF(0, 0, qQNaN(), qQNaN()), 0).isEmpty());
    QVERIFY(!shapePath(ShapeArrow, R, 99).isEmpty()); // unknown direction points right
}

QTEST_MAIN(TestShapes)
#include "tst_shapes.moc"
