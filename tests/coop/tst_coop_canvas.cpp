#include "common/Log.h"
#include "coop/CoopCanvas.h"
#include "coop/CoopSession.h"
#include "engine/StrokePainter.h"

#include <QSignalSpy>
#include <QtTest>

#include <cmath>
#include <limits>

namespace {

QStringList g_logLines;

void captureLog(const char *line)
{
    g_logLines.append(QString::fromUtf8(line));
}

QImage transparent(int w, int h)
{
    QImage image(w, h, QImage::Format_RGBA8888);
    image.fill(Qt::transparent);
    return image;
}

// Every pixel distinct enough that a shifted or scaled copy cannot match.
QImage pattern(int w, int h)
{
    QImage image(w, h, QImage::Format_RGBA8888);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            image.setPixelColor(x, y, QColor(x % 256, y % 256, (x * 7 + y) % 256, 255 - (x % 50)));
    return image;
}

Stroke brush(QVector<QPointF> points, QColor color, float width)
{
    Stroke stroke;
    stroke.points = std::move(points);
    stroke.color = color;
    stroke.width = width;
    return stroke;
}

Stroke shape(int type, int mode, QPointF from, QPointF to, QColor color, bool erase = false)
{
    Stroke stroke = brush({from, to}, color, 6.0f);
    stroke.shape = true;
    stroke.shapeType = type;
    stroke.shapeMode = mode;
    stroke.shapeErase = erase;
    return stroke;
}

Stroke fill(QPointF seed, QColor color)
{
    Stroke stroke = brush({seed}, color, 1.0f);
    stroke.fill = true;
    return stroke;
}

const QColor Red(220, 20, 30, 255);
const QColor Blue(10, 40, 200, 160);

} // namespace

class TestCoopCanvas : public QObject {
    Q_OBJECT

private slots:
    void init();
    void cleanupTestCase();

    void startsTransparentAtDefaultSize();
    void largerHostPictureKeepsTopLeft();
    void smallerHostPictureIsPaddedTransparent();
    void sameSizeHostPictureIsTakenWhole();
    void nullHostPictureLeavesTransparentCanvas();
    void adoptionLogLine();
    void everyChangeRaisesVersionAndSignals();
    void remoteClearWipes();
    void sessionEndWipes();
    void canvasSizeChangeKeepsTopLeft();
    void canvasSizeIgnoresNonPositive();
    void jitterIntervalHasFloor();
    void strokesPaintLikeTheEngine_data();
    void strokesPaintLikeTheEngine();
    void shapeWithOnePointPaintsDot();
    void localStrokesPaintLikeRemoteOnes();
    void remoteFillUsesDefaultTolerance();
    void hostileStrokesDoNotCrash();
    void instanceFollowsTheSession();
};

void TestCoopCanvas::init()
{
    g_logLines.clear();
    setLogSink(captureLog);
}

void TestCoopCanvas::cleanupTestCase()
{
    setLogSink(nullptr);
}

void TestCoopCanvas::startsTransparentAtDefaultSize()
{
    CoopCanvas canvas;
    QCOMPARE(canvas.width(), 1920);
    QCOMPARE(canvas.height(), 1080);
    QCOMPARE(canvas.image(), transparent(1920, 1080));
    QCOMPARE(canvas.image().format(), QImage::Format_RGBA8888);
    QCOMPARE(canvas.version(), uint64_t(1));
    QCOMPARE(canvas.fillTolerance(), 200);
    QCOMPARE(canvas.jitterEnabled(), false);
    QCOMPARE(canvas.jitterAmountPx(), 2.5f);
    QCOMPARE(canvas.jitterInterval(), 1.0f / 6.0f);
}

void TestCoopCanvas::largerHostPictureKeepsTopLeft()
{
    CoopCanvas canvas;
    canvas.setCanvasSize(1280, 720);
    const QImage host = pattern(1920, 1080);
    canvas.onCanvasStateReceived(host);
    QCOMPARE(canvas.image().size(), QSize(1280, 720));
    QCOMPARE(canvas.image(), host.copy(0, 0, 1280, 720));
}

void TestCoopCanvas::smallerHostPictureIsPaddedTransparent()
{
    CoopCanvas canvas;
    const QImage host = pattern(1280, 720);
    canvas.onCanvasStateReceived(host);
    const QImage image = canvas.image();
    QCOMPARE(image.size(), QSize(1920, 1080));
    QCOMPARE(image.copy(0, 0, 1280, 720), host);
    QImage expected = transparent(1920, 1080);
    for (int y = 0; y < 720; ++y)
        memcpy(expected.scanLine(y), host.constScanLine(y), size_t(host.bytesPerLine()));
    QCOMPARE(image, expected);
}

void TestCoopCanvas::sameSizeHostPictureIsTakenWhole()
{
    CoopCanvas canvas;
    canvas.setCanvasSize(64, 48);
    // Another format: converted, not rejected.
    const QImage host = pattern(64, 48).convertToFormat(QImage::Format_ARGB32);
    canvas.onCanvasStateReceived(host);
    QCOMPARE(canvas.image().format(), QImage::Format_RGBA8888);
    QCOMPARE(canvas.image(), host.convertToFormat(QImage::Format_RGBA8888));
}

void TestCoopCanvas::nullHostPictureLeavesTransparentCanvas()
{
    CoopCanvas canvas;
    canvas.setCanvasSize(40, 30);
    canvas.onCanvasStateReceived(pattern(40, 30));
    canvas.onCanvasStateReceived(QImage());
    QCOMPARE(canvas.image(), transparent(40, 30));
    QCOMPARE(g_logLines.last(), QStringLiteral("[PD-Coop] adopted host canvas state (0x0)"));
}

void TestCoopCanvas::adoptionLogLine()
{
    CoopCanvas canvas;
    canvas.setCanvasSize(1280, 720);
    canvas.onCanvasStateReceived(pattern(1920, 1080));
    QCOMPARE(g_logLines,
             QStringList{QStringLiteral("[PD-Coop] adopted host canvas state (1920x1080)")});
}

void TestCoopCanvas::everyChangeRaisesVersionAndSignals()
{
    CoopCanvas canvas;
    QSignalSpy spy(&canvas, &CoopCanvas::changed);
    uint64_t seen = canvas.version();
    QList<std::function<void()>> changes = {
        [&] { canvas.notifyChanged(); },
        [&] { canvas.onRemoteStroke(brush({{5, 5}}, Red, 4), QStringLiteral("bob")); },
        [&] { canvas.onRemoteClear(); },
        [&] { canvas.onCanvasStateReceived(pattern(8, 8)); },
        [&] { canvas.onSessionEnded(); },
        [&] { canvas.clearLocal(); },
        [&] { canvas.addLocalStroke(brush({{5, 5}}, Red, 4), 200); },
    };
    for (int i = 0; i < changes.size(); ++i) {
        changes[i]();
        QCOMPARE(canvas.version(), seen + 1);
        QCOMPARE(spy.count(), i + 1);
        seen = canvas.version();
    }
    // clear() alone leaves the notification to its caller.
    canvas.clear();
    QCOMPARE(canvas.version(), seen);
    QCOMPARE(spy.count(), changes.size());
}

void TestCoopCanvas::remoteClearWipes()
{
    CoopCanvas canvas;
    canvas.setCanvasSize(100, 80);
    canvas.onCanvasStateReceived(pattern(100, 80));
    canvas.onRemoteClear();
    QCOMPARE(canvas.image(), transparent(100, 80));
}

void TestCoopCanvas::sessionEndWipes()
{
    CoopCanvas canvas;
    canvas.setCanvasSize(100, 80);
    canvas.onCanvasStateReceived(pattern(100, 80));
    canvas.onSessionEnded();
    QCOMPARE(canvas.image(), transparent(100, 80));
}

void TestCoopCanvas::canvasSizeChangeKeepsTopLeft()
{
    CoopCanvas canvas;
    canvas.setCanvasSize(100, 80);
    const QImage picture = pattern(100, 80);
    canvas.onCanvasStateReceived(picture);
    const uint64_t before = canvas.version();
    canvas.setCanvasSize(60, 120);
    QCOMPARE(canvas.version(), before + 1);
    QImage expected = transparent(60, 120);
    for (int y = 0; y < 80; ++y)
        memcpy(expected.scanLine(y), picture.constScanLine(y), 60 * 4);
    QCOMPARE(canvas.image(), expected);
    // The same size again is no change.
    canvas.setCanvasSize(60, 120);
    QCOMPARE(canvas.version(), before + 1);
}

void TestCoopCanvas::canvasSizeIgnoresNonPositive()
{
    CoopCanvas canvas;
    canvas.setCanvasSize(0, 720);
    canvas.setCanvasSize(1280, -1);
    QCOMPARE(canvas.width(), 1920);
    QCOMPARE(canvas.height(), 1080);
    QCOMPARE(canvas.version(), uint64_t(1));
}

void TestCoopCanvas::jitterIntervalHasFloor()
{
    CoopCanvas canvas;
    canvas.setJitterInterval(0.001f);
    QCOMPARE(canvas.jitterInterval(), 0.01f);
    canvas.setJitterInterval(0.5f);
    QCOMPARE(canvas.jitterInterval(), 0.5f);
}

void TestCoopCanvas::strokesPaintLikeTheEngine_data()
{
    QTest::addColumn<QVector<Stroke>>("strokes");

    const Stroke outline = shape(ShapeRectangle, ShapeModeOutline, {20, 20}, {180, 140}, Red);
    QTest::newRow("brush") << QVector<Stroke>{
        brush({{10, 10}, {60, 40}, {120, 30}, {150, 90}, {90, 130}}, Blue, 9)};
    QTest::newRow("dot") << QVector<Stroke>{brush({{50.5, 60.25}}, Red, 17)};
    Stroke eraser = brush({{0, 75}, {200, 75}}, QColor(), 12);
    eraser.eraser = true;
    Stroke eraserDot = brush({{100, 100}}, Red, 30);
    eraserDot.eraser = true;
    QTest::newRow("eraser") << QVector<Stroke>{shape(ShapeRectangle, 0, {0, 0}, {200, 150}, Red),
                                               eraser, eraserDot};
    QTest::newRow("fill inside outline") << QVector<Stroke>{outline, fill({100.9, 80.2}, Blue)};
    QTest::newRow("fill outside picture") << QVector<Stroke>{outline, fill({-3, 500}, Blue)};
    for (int type = 0; type < ShapeTypeCount; ++type) {
        for (int mode : {0, ShapeModeOutline}) {
            const QByteArray name = "shape " + QByteArray::number(type) +
                                    (mode == ShapeModeOutline ? " outline" : " filled");
            Stroke s = shape(type, mode, {170, 130}, {25, 15}, Blue);
            s.arrowDirection = type % 4;
            QTest::newRow(name.constData()) << QVector<Stroke>{s};
        }
    }
    for (int direction = 0; direction < 4; ++direction) {
        Stroke arrow = shape(ShapeArrow, 0, {30, 20}, {160, 140}, Red);
        arrow.arrowDirection = direction;
        QTest::newRow(qPrintable(QStringLiteral("arrow %1").arg(direction)))
            << QVector<Stroke>{arrow};
    }
    QTest::newRow("erase shape") << QVector<Stroke>{
        shape(ShapeRectangle, 0, {0, 0}, {200, 150}, Red),
        shape(ShapeEllipse, 0, {40, 30}, {160, 120}, Blue, true),
        shape(ShapeStar, ShapeModeOutline, {10, 10}, {90, 90}, Blue, true)};
}

void TestCoopCanvas::strokesPaintLikeTheEngine()
{
    QFETCH(QVector<Stroke>, strokes);
    CoopCanvas canvas;
    canvas.setCanvasSize(200, 150);
    QImage layer = transparent(200, 150);
    for (const Stroke &stroke : strokes) {
        canvas.onRemoteStroke(stroke, QStringLiteral("peer"));
        paintStroke(layer, stroke, 200);
    }
    QCOMPARE(canvas.image(), layer);
    QVERIFY(layer != transparent(200, 150) || strokes.last().fill);
}

void TestCoopCanvas::shapeWithOnePointPaintsDot()
{
    CoopCanvas canvas;
    canvas.setCanvasSize(120, 120);
    Stroke lone = shape(ShapeHeart, 0, {60, 60}, {60, 60}, Red);
    lone.points.resize(1);
    lone.width = 21.0f;
    canvas.onRemoteStroke(lone, QStringLiteral("peer"));

    QImage expected = transparent(120, 120);
    paintStroke(expected, brush({{60, 60}}, Red, 21.0f), 200);
    QVERIFY(expected != transparent(120, 120));
    QCOMPARE(canvas.image(), expected);
}

void TestCoopCanvas::localStrokesPaintLikeRemoteOnes()
{
    CoopCanvas local;
    CoopCanvas remote;
    for (CoopCanvas *c : {&local, &remote})
        c->setCanvasSize(200, 150);
    const QVector<Stroke> strokes = {
        brush({{10, 10}, {190, 140}}, Red, 7),
        shape(ShapeHexagon, ShapeModeOutline, {20, 20}, {120, 100}, Blue),
        fill({70, 60}, Red),
    };
    for (const Stroke &stroke : strokes) {
        local.addLocalStroke(stroke, 200);
        remote.onRemoteStroke(stroke, QString());
    }
    QCOMPARE(local.image(), remote.image());
}

void TestCoopCanvas::remoteFillUsesDefaultTolerance()
{
    // A soft gradient: how far the fill runs depends on the tolerance.
    CoopCanvas canvas;
    canvas.setCanvasSize(120, 20);
    QImage base(120, 20, QImage::Format_RGBA8888);
    for (int x = 0; x < 120; ++x)
        for (int y = 0; y < 20; ++y)
            base.setPixelColor(x, y, QColor(2 * x, 0, 0, 255));
    canvas.onCanvasStateReceived(base);
    const Stroke seed = fill({0, 0}, Blue);
    canvas.onRemoteStroke(seed, QStringLiteral("peer"));

    QImage expected = base;
    paintStroke(expected, seed, 200);
    QCOMPARE(canvas.image(), expected);

    CoopCanvas strict;
    strict.setCanvasSize(120, 20);
    strict.onCanvasStateReceived(base);
    strict.addLocalStroke(seed, 0);
    QImage expectedStrict = base;
    paintStroke(expectedStrict, seed, 0);
    QCOMPARE(strict.image(), expectedStrict);
}

void TestCoopCanvas::hostileStrokesDoNotCrash()
{
    CoopCanvas canvas;
    canvas.setCanvasSize(64, 64);
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    Stroke empty = brush({}, Red, 5);
    canvas.onRemoteStroke(empty, QString());
    QCOMPARE(canvas.image(), transparent(64, 64));
    Stroke emptyFill = fill({0, 0}, Red);
    emptyFill.points.clear();
    canvas.onRemoteStroke(emptyFill, QString());
    QCOMPARE(canvas.image(), transparent(64, 64));
    canvas.onRemoteStroke(fill({1e12, -1e12}, Red), QString());
    QCOMPARE(canvas.image(), transparent(64, 64));
    canvas.onRemoteStroke(fill({nan, nan}, Red), QString());
    canvas.onRemoteStroke(brush({{nan, 3}, {inf, -inf}, {4, 4}}, Red, 5), QString());
    canvas.onRemoteStroke(brush({{3, 3}, {9, 9}}, Red, -5), QString());
    canvas.onRemoteStroke(shape(9999, 7, {nan, 0}, {1e9, 1e9}, Red), QString());
    QCOMPARE(canvas.image().size(), QSize(64, 64));
}

void TestCoopCanvas::instanceFollowsTheSession()
{
    CoopCanvas &canvas = CoopCanvas::instance();
    QCOMPARE(&CoopCanvas::instance(), &canvas);
    QCOMPARE(canvas.thread(), CoopSession::instance().thread());
    canvas.setCanvasSize(80, 60);
    CoopSession &session = CoopSession::instance();

    emit session.canvasStateReceived(pattern(80, 60));
    QCOMPARE(canvas.image(), pattern(80, 60));
    emit session.clearReceived(QStringLiteral("bob"));
    QCOMPARE(canvas.image(), transparent(80, 60));

    const Stroke dot = brush({{40, 30}}, Red, 20);
    emit session.strokeReceived(dot, QStringLiteral("bob"));
    QImage expected = transparent(80, 60);
    paintStroke(expected, dot, 200);
    QCOMPARE(canvas.image(), expected);

    emit session.sessionEnded();
    QCOMPARE(canvas.image(), transparent(80, 60));
}

QTEST_MAIN(TestCoopCanvas)
#include "tst_coop_canvas.moc"
