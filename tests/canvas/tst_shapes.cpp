#include "engine/ShapePath.h"
#include "engine/Stroke.h"

#include <QtTest>

#include <cmath>

namespace {

const QRectF R(10, 20, 200, 100); // L 10, T 20, R 210, B 120, centre (110, 70)
constexpr double Pi = 3.14159265358979323846;

// The polygon vertices of a path, without the closing repeat.
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

// Points on the ellipse of R at the angles 2 pi i / n + phase.
QList<QPointF> onEllipse(int n, double phase)
{
    QList<QPointF> out;
    for (int i = 0; i < n; ++i)
        out << QPointF(110 + std::cos(2 * i * Pi / n + phase) * 100,
                       70 + std::sin(2 * i * Pi / n + phase) * 50);
    return out;
}

} // namespace

class TestShapes : public QObject {
    Q_OBJECT

private slots:
    void polygonVertices_data();
    void polygonVertices();
    void ellipseStarAndHeart();
    void arrowDirectionByQuadrant();
    void shiftMakesSquareInDragQuadrant_data();
    void shiftMakesSquareInDragQuadrant();
    void degenerateAndUnknown();
};

void TestShapes::polygonVertices_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<int>("direction");
    QTest::addColumn<QList<QPointF>>("expected");
    const double a = 28; // cross arm half-width: 0.28 * min(200, 100)
    QTest::newRow("rectangle") << int(ShapeRectangle) << 0
                               << QList<QPointF>{{10, 20}, {210, 20}, {210, 120}, {10, 120}};
    QTest::newRow("triangle") << int(ShapeTriangle) << 0
                              << QList<QPointF>{{110, 20}, {210, 120}, {10, 120}};
    QTest::newRow("diamond") << int(ShapeDiamond) << 0
                             << QList<QPointF>{{110, 20}, {210, 70}, {110, 120}, {10, 70}};
    QTest::newRow("pentagon stretches") << int(ShapePentagon) << 0 << onEllipse(5, -Pi / 2);
    QTest::newRow("hexagon from the right") << int(ShapeHexagon) << 0 << onEllipse(6, 0);
    QTest::newRow("arrow right") << int(ShapeArrow) << 0
                                 << QList<QPointF>{{10, 48},   {130, 48}, {130, 20}, {210, 70},
                                                   {130, 120}, {130, 92}, {10, 92}};
    QTest::newRow("arrow left") << int(ShapeArrow) << 2
                                << QList<QPointF>{{210, 48}, {90, 48}, {90, 20}, {10, 70},
                                                  {90, 120}, {90, 92}, {210, 92}};
    QTest::newRow("arrow down") << int(ShapeArrow) << 1
                                << QList<QPointF>{{66, 20},  {66, 80},  {10, 80}, {110, 120},
                                                  {210, 80}, {154, 80}, {154, 20}};
    QTest::newRow("arrow up") << int(ShapeArrow) << 3
                              << QList<QPointF>{{66, 120}, {66, 60},  {10, 60},  {110, 20},
                                                {210, 60}, {154, 60}, {154, 120}};
    QTest::newRow("unknown direction points right")
        << int(ShapeArrow) << 99 << QList<QPointF>{{10, 48},   {130, 48}, {130, 20}, {210, 70},
                                                   {130, 120}, {130, 92}, {10, 92}};
    QTest::newRow("cross") << int(ShapeCross) << 0
                           << QList<QPointF>{{110 - a, 20},  {110 + a, 20},  {110 + a, 70 - a},
                                             {210, 70 - a},  {210, 70 + a},  {110 + a, 70 + a},
                                             {110 + a, 120}, {110 - a, 120}, {110 - a, 70 + a},
                                             {10, 70 + a},   {10, 70 - a},   {110 - a, 70 - a}};
}

void TestShapes::polygonVertices()
{
    QFETCH(int, type);
    QFETCH(int, direction);
    QFETCH(QList<QPointF>, expected);
    const QList<QPointF> actual = vertices(shapePath(type, R, direction));
    QCOMPARE(actual.size(), expected.size());
    for (int i = 0; i < actual.size(); ++i)
        QVERIFY2(near(actual[i], expected[i]),
                 qPrintable(
                     QString("vertex %1: (%2, %3)").arg(i).arg(actual[i].x()).arg(actual[i].y())));
}

void TestShapes::ellipseStarAndHeart()
{
    const QPainterPath ellipse = shapePath(ShapeEllipse, R, 0);
    QCOMPARE(ellipse.boundingRect(), R);
    QVERIFY(ellipse.contains(QPointF(209, 70)));
    QVERIFY(!ellipse.contains(QPointF(205, 25)));

    // The star is never stretched: radius min(w, h) / 2, inner 0.4 of it.
    const QList<QPointF> star = vertices(shapePath(ShapeStar, R, 0));
    QCOMPARE(star.size(), 10);
    for (int i = 0; i < 10; ++i) {
        const double angle = i * Pi / 5 - Pi / 2, r = i % 2 == 0 ? 50.0 : 20.0;
        QVERIFY(near(star[i], QPointF(110 + r * std::cos(angle), 70 + r * std::sin(angle))));
    }

    QList<QPointF> heart;
    const QPainterPath path = shapePath(ShapeHeart, R, 0);
    for (int i = 0; i < path.elementCount(); ++i)
        heart << QPointF(path.elementAt(i));
    QVERIFY(heart.size() >= 81);
    QVERIFY(near(heart[0], QPointF(110, 62 - 5.0 * 100 / 33))); // t = 0: the notch
    QVERIFY(near(heart[20], QPointF(110 + 16.0 * 200 / 34, 62 - 4 * 100.0 / 33))); // right lobe
    QVERIFY(near(heart[40], QPointF(110, 62 + 17 * 100.0 / 33))); // t = pi: the tip
    QVERIFY(near(heart[80], heart[0]));
}

// Right or left when |dx| >= |dy|, else down or up; no drag points right.
void TestShapes::arrowDirectionByQuadrant()
{
    const QPointF s(100, 100);
    const std::pair<QPointF, int> rows[] = {
        {{0, 0}, 0},  {{10, 3}, 0},  {{10, -3}, 0}, {{5, 5}, 0}, {{-5, -5}, 2}, {{-10, 3}, 2},
        {{3, 10}, 1}, {{-3, 10}, 1}, {{3, -10}, 3}, {{0, 1}, 1}, {{0, -1}, 3}};
    for (const auto &[end, direction] : rows)
        QVERIFY2(arrowDirection(s, s + end) == direction,
                 qPrintable(QString("%1, %2").arg(end.x()).arg(end.y())));
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
    // A drag the other way gives the same rectangle.
    QCOMPARE(shapeRect(start + end, start, false), shapeRect(start, start + end, false));
    QCOMPARE(shapeRect(start, start + end, false).topLeft(),
             QPointF(std::min(100.0, start.x() + end.x()), std::min(100.0, start.y() + end.y())));
}

void TestShapes::degenerateAndUnknown()
{
    QVERIFY(shapePath(ShapeRectangle, QRectF(5, 5, 0.4, 0.4), 0).isEmpty());
    QVERIFY(!shapePath(ShapeRectangle, QRectF(5, 5, 0.4, 10), 0).isEmpty());
    QVERIFY(!shapePath(ShapeStar, QRectF(5, 5, 0.5, 0), 0).isEmpty());
    QVERIFY(shapePath(ShapeTypeCount, R, 0).isEmpty());
    QVERIFY(shapePath(-1, R, 0).isEmpty());
    QVERIFY(shapePath(ShapeEllipse, QRectF(0, 0, qQNaN(), qQNaN()), 0).isEmpty());
}

QTEST_MAIN(TestShapes)
#include "tst_shapes.moc"
