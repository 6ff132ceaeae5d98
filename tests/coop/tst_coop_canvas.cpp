#include "TestImages.h"

#include "common/Log.h"
#include "coop/CoopCanvas.h"
#include "coop/CoopSession.h"
#include "engine/StrokePainter.h"

#include <QPainter>
#include <QSignalSpy>
#include <QTimer>
#include <QtTest>

namespace {

QStringList g_logLines;

void captureLog(const char *line)
{
    g_logLines.append(QString::fromUtf8(line));
}

QImage transparent(int w, int h)
{
    return solid(w, h, Qt::transparent);
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
constexpr int Wait = 10000;

} // namespace

class TestCoopCanvas : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        g_logLines.clear();
        setLogSink(captureLog);
    }
    void cleanupTestCase() { setLogSink(nullptr); }

    // The host's picture is cropped or padded at the top-left, never scaled.
    void adoptsHostPicture_data()
    {
        QTest::addColumn<QSize>("canvasSize");
        QTest::addColumn<QImage>("host");
        QTest::newRow("larger") << QSize(128, 72) << pattern(192, 108);
        QTest::newRow("smaller") << QSize(192, 108) << pattern(128, 72);
        QTest::newRow("same size, other format")
            << QSize(64, 48) << pattern(64, 48).convertToFormat(QImage::Format_ARGB32);
        QTest::newRow("null") << QSize(40, 30) << QImage();
    }

    void adoptsHostPicture()
    {
        QFETCH(QSize, canvasSize);
        QFETCH(QImage, host);
        CoopCanvas canvas;
        canvas.setCanvasSize(canvasSize.width(), canvasSize.height());
        canvas.onCanvasStateReceived(pattern(8, 8));
        canvas.onCanvasStateReceived(host);
        QImage expected = transparent(canvasSize.width(), canvasSize.height());
        QPainter(&expected).drawImage(0, 0, host.convertToFormat(QImage::Format_RGBA8888));
        QTRY_COMPARE_WITH_TIMEOUT(canvas.image(), expected, Wait);
        QCOMPARE(canvas.image().format(), QImage::Format_RGBA8888);
        QCOMPARE(g_logLines.last(), QStringLiteral("[PD-Coop] adopted host canvas state (%1x%2)")
                                        .arg(host.width())
                                        .arg(host.height()));
    }

    // Each change says from which version it shows; the main thread hears
    // what changed, and a segment's bounds are just its own.
    void versionsAndChangedBounds()
    {
        CoopCanvas canvas;
        QSignalSpy changed(&canvas, &CoopCanvas::changed);
        QSignalSpy bounds(&canvas, &CoopCanvas::pictureChanged);
        canvas.setCanvasSize(400, 300);
        QTRY_COMPARE_WITH_TIMEOUT(changed.size(), 1, Wait);
        QCOMPARE(bounds.takeFirst()[0].toRect(), QRect(0, 0, 400, 300));
        const Stroke segment = brush({{100, 100}, {110, 104}}, Red, 8);
        const uint64_t painted = canvas.addLocalStroke(segment, 200);
        QCOMPARE(painted, uint64_t(3)); // after the first picture and the size change
        QTRY_COMPARE_WITH_TIMEOUT(canvas.version(), painted, Wait);
        QImage expected = transparent(400, 300);
        paintStroke(expected, segment, 200);
        QCOMPARE(canvas.image(), expected);
        QTRY_VERIFY_WITH_TIMEOUT(changed.size() >= 2, Wait);
        QRect seen;
        for (const QList<QVariant> &emission : bounds)
            seen |= emission[0].toRect();
        QVERIFY2(seen.contains(QRect(96, 96, 18, 12)) && seen.width() * seen.height() < 400 * 300,
                 qPrintable(QStringLiteral("%1x%2").arg(seen.width()).arg(seen.height())));

        bounds.clear();
        QCOMPARE(canvas.clear(), painted + 1);
        QTRY_VERIFY_WITH_TIMEOUT(!bounds.isEmpty(), Wait);
        QCOMPARE(bounds.last()[0].toRect(), QRect(0, 0, 400, 300));
        QCOMPARE(canvas.image(), transparent(400, 300));
    }

    // Painting never holds up the caller: a heavy stroke is still to come
    // when the call returns.
    void paintsOffTheCallingThread()
    {
        CoopCanvas canvas;
        Stroke heavy = brush({}, Red, 1000);
        for (int i = 0; i < 100; ++i)
            heavy.points.append(QPointF(i * 37 % 1920, i * 91 % 1080));
        const uint64_t before = canvas.version();
        canvas.onRemoteStroke(heavy, QStringLiteral("peer"));
        QCOMPARE(canvas.version(), before);
        QTRY_COMPARE_WITH_TIMEOUT(canvas.version(), before + 1, Wait);
    }

    void canvasSizeChangeKeepsTopLeft()
    {
        CoopCanvas canvas;
        canvas.setCanvasSize(100, 80);
        canvas.onCanvasStateReceived(pattern(100, 80));
        canvas.setCanvasSize(0, 720);
        canvas.setCanvasSize(1280, -1);
        canvas.setCanvasSize(60, 120);
        canvas.setCanvasSize(60, 120); // the same size again is no change
        QCOMPARE(canvas.width(), 60);
        QImage expected = transparent(60, 120);
        QPainter(&expected).drawImage(0, 0, pattern(100, 80));
        QTRY_COMPARE_WITH_TIMEOUT(canvas.image(), expected, Wait);
        QCOMPARE(canvas.clear(), uint64_t(5)); // two sizes, one picture, this clear
    }

    // The engine's own painting (its rules are tested there): a few kinds.
    void strokesPaintLikeTheEngine_data()
    {
        QTest::addColumn<QVector<Stroke>>("strokes");
        const Stroke outline = shape(ShapeRectangle, ShapeModeOutline, {20, 20}, {180, 140}, Red);
        Stroke eraser = brush({{0, 75}, {200, 75}}, QColor(), 12);
        eraser.eraser = true;
        QTest::newRow("brush and eraser")
            << QVector<Stroke>{brush({{10, 10}, {60, 40}, {120, 30}, {150, 90}}, Blue, 9), eraser};
        QTest::newRow("dot") << QVector<Stroke>{brush({{50.5, 60.25}}, Red, 17)};
        QTest::newRow("fill inside outline") << QVector<Stroke>{outline, fill({100.9, 80.2}, Blue)};
        QTest::newRow("star, erase shape")
            << QVector<Stroke>{shape(ShapeStar, 0, {170, 130}, {25, 15}, Blue),
                               shape(ShapeEllipse, 0, {40, 30}, {160, 120}, Blue, true)};
    }

    void strokesPaintLikeTheEngine()
    {
        QFETCH(QVector<Stroke>, strokes);
        CoopCanvas canvas;
        canvas.setCanvasSize(200, 150);
        QImage layer = transparent(200, 150);
        for (const Stroke &stroke : strokes) {
            canvas.onRemoteStroke(stroke, QStringLiteral("peer"));
            paintStroke(layer, stroke, 200);
        }
        QTRY_COMPARE_WITH_TIMEOUT(canvas.image(), layer, Wait);
        QVERIFY(layer != transparent(200, 150) || strokes.last().fill);
    }

    void shapeWithOnePointPaintsDot()
    {
        CoopCanvas canvas;
        canvas.setCanvasSize(120, 120);
        Stroke lone = shape(ShapeHeart, 0, {60, 60}, {60, 60}, Red);
        lone.points.resize(1);
        lone.width = 21.0f;
        canvas.onRemoteStroke(lone, QStringLiteral("peer"));
        QImage expected = transparent(120, 120);
        paintStroke(expected, brush({{60, 60}}, Red, 21.0f), 200);
        QTRY_COMPARE_WITH_TIMEOUT(canvas.image(), expected, Wait);
    }

    // Remote fills use the editor's default tolerance; local ones their own.
    void fillTolerance()
    {
        QImage base(120, 20, QImage::Format_RGBA8888); // a soft gradient
        for (int x = 0; x < 120; ++x)
            for (int y = 0; y < 20; ++y)
                base.setPixelColor(x, y, QColor(2 * x, 0, 0, 255));
        const Stroke seed = fill({0, 0}, Blue);
        QImage expected = base, expectedStrict = base;
        paintStroke(expected, seed, 200);
        paintStroke(expectedStrict, seed, 0);
        QVERIFY(expected != expectedStrict);
        CoopCanvas remote, local;
        for (CoopCanvas *canvas : {&remote, &local}) {
            canvas->setCanvasSize(120, 20);
            canvas->onCanvasStateReceived(base);
        }
        remote.onRemoteStroke(seed, QStringLiteral("peer"));
        local.addLocalStroke(seed, 0);
        QTRY_COMPARE_WITH_TIMEOUT(remote.image(), expected, Wait);
        QTRY_COMPARE_WITH_TIMEOUT(local.image(), expectedStrict, Wait);
    }

    void instanceFollowsTheSession()
    {
        CoopCanvas &canvas = CoopCanvas::instance();
        QCOMPARE(canvas.thread(), CoopSession::instance().thread());
        canvas.setCanvasSize(80, 60);
        CoopSession &session = CoopSession::instance();
        emit session.canvasStateReceived(pattern(80, 60));
        QTRY_COMPARE_WITH_TIMEOUT(canvas.image(), pattern(80, 60), Wait);
        emit session.clearReceived(QStringLiteral("bob"));
        QTRY_COMPARE_WITH_TIMEOUT(canvas.image(), transparent(80, 60), Wait);
        const Stroke dot = brush({{40, 30}}, Red, 20);
        emit session.strokeReceived(dot, QStringLiteral("bob"));
        QImage expected = transparent(80, 60);
        paintStroke(expected, dot, 200);
        QTRY_COMPARE_WITH_TIMEOUT(canvas.image(), expected, Wait);
        emit session.sessionEnded();
        QTRY_COMPARE_WITH_TIMEOUT(canvas.image(), transparent(80, 60), Wait);
    }

    // A joiner's picture and the strokes relayed after it add up to the host's
    // picture, with the host drawing all the while.
    void joinerSeesEveryStrokeOnce()
    {
        CoopCanvas &shared = CoopCanvas::instance();
        shared.setCanvasSize(320, 180);
        QVERIFY(CoopSession::instance().host(QStringLiteral("Host"), 0));
        int drawn = 0;
        QTimer pen;
        connect(&pen, &QTimer::timeout, this, [&] {
            ++drawn;
            shared.addLocalStroke(brush({{double(drawn % 320), double(drawn % 180)}}, Blue, 9),
                                  200);
        });
        pen.start(1);
        QTest::qWait(50);

        CoopSession guest;
        CoopCanvas guestCanvas;
        guestCanvas.setCanvasSize(320, 180);
        connect(&guest, &CoopSession::strokeReceived, &guestCanvas, &CoopCanvas::onRemoteStroke);
        connect(&guest, &CoopSession::canvasStateReceived, &guestCanvas,
                &CoopCanvas::onCanvasStateReceived);
        guest.join("127.0.0.1", "Guest", CoopSession::instance().hostPort());
        QTRY_VERIFY_WITH_TIMEOUT(guest.isWelcomed(), Wait);
        QTest::qWait(100);
        pen.stop();
        // Blue over blue is not idempotent: a stroke twice or missed shows.
        QTRY_COMPARE_WITH_TIMEOUT(guestCanvas.image(), shared.image(), Wait);
        QVERIFY(drawn > 5);
        CoopSession::instance().stop();
    }

    // A guest whose host keeps clearing to itself cannot clear.
    void clearLocalFollowsTheHostsRule()
    {
        CoopSession host;
        QVERIFY(host.host(QStringLiteral("Host"), 0));
        CoopCanvas &shared = CoopCanvas::instance();
        CoopSession::instance().join("127.0.0.1", "Guest", host.hostPort());
        QTRY_VERIFY_WITH_TIMEOUT(CoopSession::instance().isWelcomed(), Wait);
        const uint64_t before = shared.version();
        QVERIFY(!shared.clearLocal());
        QCOMPARE(shared.version(), before);
        CoopSession::instance().stop();
        QVERIFY(shared.clearLocal());
    }
};

QTEST_MAIN(TestCoopCanvas)
#include "tst_coop_canvas.moc"
