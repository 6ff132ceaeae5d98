#include "LogCapture.h"
#include "SignalLog.h"

#include "canvas/CanvasWidget.h"
#include "widgets/Icons.h"
#include "widgets/TintedIcon.h"

#include <QPointingDevice>
#include <QScreen>
#include <QtTest>

#include <memory>

namespace {

using P = QPointF;
using Points = QList<QPointF>;

// Mouse input as the window system sends it: a move holds `button`, a release nothing.
void send(QWidget *w, QEvent::Type type, QPointF pos, Qt::MouseButton button = Qt::LeftButton,
          Qt::KeyboardModifiers mods = {})
{
    const bool move = type == QEvent::MouseMove;
    QMouseEvent event(type, pos, w->mapToGlobal(pos), move ? Qt::NoButton : button,
                      type == QEvent::MouseButtonRelease ? Qt::NoButton : button, mods);
    QApplication::sendEvent(w, &event);
}

// Press at the first point, move through the others, release at the last.
void drag(QWidget *w, const QList<QPointF> &points, bool release = true)
{
    send(w, QEvent::MouseButtonPress, points.first());
    for (const QPointF &p : points.mid(1))
        send(w, QEvent::MouseMove, p);
    if (release)
        send(w, QEvent::MouseButtonRelease, points.last());
}

// One wheel event with vertical angle (x) and pixel (y) deltas.
void wheel(QWidget *w, QPointF pos, QPoint delta)
{
    QWheelEvent event(pos, w->mapToGlobal(pos), QPoint(0, delta.y()), QPoint(0, delta.x()),
                      Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase, false);
    QApplication::sendEvent(w, &event);
}

// A 400 x 300 surface on screen; solid layers, bottom first, the last one active.
std::unique_ptr<CanvasWidget> shownCanvas(QSize size = {400, 300}, QList<QColor> layers = {})
{
    auto w = std::make_unique<CanvasWidget>(size.width(), size.height());
    QList<CanvasLayer> solid;
    for (const QColor &color : layers) {
        solid.append({color.name(), QImage(size, QImage::Format_RGBA8888)});
        solid.last().image.fill(color);
    }
    if (!solid.isEmpty())
        w->setLayers(solid, int(solid.size()) - 1);
    w->resize(400, 300);
    w->show();
    if (!QTest::qWaitForWindowExposed(w.get()))
        qFatal("the surface was never shown");
    return w;
}

QColor layerPixel(CanvasWidget &w, QPointF p, int layer = 0)
{
    return w.document()->layerImage(layer).pixelColor(p.toPoint());
}

QList<Stroke> committedBy(CanvasWidget *w, const std::function<void()> &action)
{
    QList<Stroke> strokes;
    auto c = QObject::connect(w, &CanvasWidget::strokeCommitted, [&](auto &s) { strokes << s; });
    action();
    QObject::disconnect(c);
    return strokes;
}

void tablet(QWidget *w, QEvent::Type type, QPointF pos, qreal pressure)
{
    static const QPointingDevice pen("pen", 42, QInputDevice::DeviceType::Stylus,
                                     QPointingDevice::PointerType::Pen,
                                     QInputDevice::Capability::Pressure, 1, 3);
    QTabletEvent event(type, &pen, pos, w->mapToGlobal(pos), pressure, 0, 0, 0, 0, 0, {},
                       type == QEvent::TabletMove ? Qt::NoButton : Qt::LeftButton,
                       type == QEvent::TabletRelease ? Qt::NoButton : Qt::LeftButton);
    QApplication::sendEvent(w, &event);
    QVERIFY(event.isAccepted());
}

QImage shot(QWidget *w)
{
    return w->grab().toImage().convertToFormat(QImage::Format_RGB32);
}

void leave(QWidget *w)
{
    QEvent event(QEvent::Leave);
    QApplication::sendEvent(w, &event);
}

// Collects the areas the widget repaints.
struct PaintLog : QObject {
    QRegion painted;
    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() == QEvent::Paint)
            painted += static_cast<QPaintEvent *>(event)->region();
        return false;
    }
};

} // namespace

class TestCanvasWidget : public QObject {
    Q_OBJECT

private slots:
    void view_data();
    void view();
    void tools_data();
    void tools();
    void longDragUntilUndone();
    void pointer_data();
    void pointer();
    void dragRepaintsOnlyTheStroke();
    void wiggleWarpsThePicture();
};

void TestCanvasWidget::view_data()
{
    QTest::addColumn<QSize>("canvas");
    QTest::addColumn<QList<QPoint>>("wheel"); // angle and pixel deltas of each event
    QTest::addColumn<QPointF>("at");
    QTest::addColumn<QPointF>("panBy");
    QTest::addColumn<QPointF>("click");
    QTest::addColumn<QPointF>("lands"); // on the canvas
    const QSize c(400, 300);
    const QPointF mid(200, 150), corner(0, 0), no;
    const QList<QPoint> none, in{{120, 0}};
    // Fitted into the 400 x 300 widget: scale 2 with 50 px bars, or 1.5 with 125 px bars.
    QTest::newRow("fit wide") << QSize(200, 100) << none << mid << no << P(100, 150) << P(50, 50);
    QTest::newRow("fit tall") << QSize(100, 200) << none << mid << no << P(200, 150) << P(50, 100);
    QTest::newRow("3 notches") << c << in + in + in << mid << no << P(239.0625, 150) << P(220, 150);
    QTest::newRow("about the pointer") << c << in << P(123, 77) << no << P(148, 77) << P(143, 77);
    QTest::newRow("back out to one") << c << QList<QPoint>{{120, 0}, {-120, 0}, {-120, 0}}
                                     << P(300, 200) << no << P(10, 10) << P(10, 10);
    QTest::newRow("capped at 32") << c << QList<QPoint>(200, {120, 0}) << mid << no << P(264, 150)
                                  << P(202, 150);
    // Touchpads send parts of a notch; they add up to one step.
    QTest::newRow("7/8 notch") << c << QList<QPoint>(7, {15, 0}) << mid << no << P(240, 150)
                               << P(240, 150);
    QTest::newRow("8/8 notch") << c << QList<QPoint>(8, {15, 0}) << mid << no << P(240, 150)
                               << P(232, 150);
    QTest::newRow("8/8 in pixels")
        << c << QList<QPoint>(8, {0, 15}) << mid << no << P(240, 150) << P(232, 150);
    // Zoomed 1.25 about the corner, the pan reaches 100 x 75 px at most.
    QTest::newRow("pan") << c << in << corner << P(-20, -10) << P(100, 100) << P(96, 88);
    QTest::newRow("pan clamped") << c << in << corner << P(-700, -650) << mid << P(240, 180);
    QTest::newRow("pan clamped at 0") << c << in << corner << P(90, 90) << mid << P(160, 120);
    QTest::newRow("no pan at one") << c << none << mid << P(-50, -30) << P(20, 10) << P(20, 10);
}

// The view is seen through where a click lands on the canvas.
void TestCanvasWidget::view()
{
    QFETCH(QSize, canvas);
    QFETCH(QList<QPoint>, wheel);
    QFETCH(QPointF, at);
    QFETCH(QPointF, panBy);
    QFETCH(QPointF, click);
    QFETCH(QPointF, lands);
    auto w = shownCanvas(canvas, {Qt::red});
    for (QPoint delta : wheel)
        ::wheel(w.get(), at, delta);
    if (!panBy.isNull()) {
        send(w.get(), QEvent::MouseButtonPress, P(200, 150), Qt::MiddleButton);
        QCOMPARE(w->cursor().shape(), Qt::ClosedHandCursor);
        send(w.get(), QEvent::MouseMove, P(200, 150) + panBy, Qt::MiddleButton);
        send(w.get(), QEvent::MouseButtonRelease, P(200, 150) + panBy, Qt::MiddleButton);
        QCOMPARE(w->cursor().shape(), Qt::BlankCursor);
    }
    // However deep the zoom, the canvas stays on screen.
    QCOMPARE(w->grab().toImage().pixelColor(200, 150), QColor(Qt::red));
    const QList<Stroke> dot = committedBy(w.get(), [&] { drag(w.get(), {click}); });
    QCOMPARE(dot.size(), 1);
    if ((dot[0].points[0] - lands).manhattanLength() > 1e-3)
        QCOMPARE(dot[0].points[0], lands);
}

void TestCanvasWidget::tools_data()
{
    QTest::addColumn<int>("tool"); // 4: shapes cutting holes, 5: the brush by pen
    QTest::addColumn<Points>("path");
    QTest::addColumn<bool>("shift"); // at release
    QTest::addColumn<QStringList>("log");
    QTest::addColumn<Points>("committed");
    QTest::addColumn<Points>("streamed"); // the co-op segments' points
    QTest::addColumn<QPointF>("probe");
    QTest::addColumn<QColor>("during"); // what the surface shows there before release
    QTest::addColumn<QColor>("after");  // the active layer there after release
    const QColor red(Qt::red), green(Qt::green), none(Qt::transparent);
    const Points dot{{100, 100}}, dots{{100, 100}, {100, 100}}, line{{50, 50}, {80, 50}, {110, 60}};
    const Points pairs{line[0], line[1], line[1], line[2]}, shape{{100, 80}, {40, 40}};
    const QStringList move{"coop(2)", "updated"}, undo{"undo(1)", "redo(0)"};
    const QStringList click = undo + QStringList{"committed(2)", "strokes"};
    const QStringList drag = move + move + undo + QStringList{"committed(3)", "strokes"};
    const QStringList shaped =
        QStringList{"updated"} + undo + QStringList{"committed(2)", "coop(2)", "strokes"};
    QTest::newRow("brush click") << 0 << dot << false << QStringList{"coop(1)"} + click << dots
                                 << dot << P(100, 100) << green << red;
    // A pen is a mouse: pressure changes nothing, hovering and proximity add nothing.
    QTest::newRow("pen drag") << 5 << line << false << drag << line << pairs << P(65, 50) << red
                              << red;
    QTest::newRow("brush drag") << 0 << line << false << drag << line << pairs << P(65, 50) << red
                                << red;
    // Moves closer than 2 px to the last kept point are dropped.
    QTest::newRow("close moves") << 0 << Points{{10, 10}, {11, 11}, {11.9, 10}, {12, 10}, {40, 10}}
                                 << false << drag << Points{{10, 10}, {12, 10}, {40, 10}}
                                 << Points{{10, 10}, {12, 10}, {12, 10}, {40, 10}} << P(11, 10)
                                 << red << red;
    QTest::newRow("eraser click") << 1 << dot << false << QStringList{"updated", "coop(1)"} + click
                                  << dots << dot << P(100, 100) << green << none;
    QTest::newRow("eraser drag") << 1 << line << false << QStringList{"updated"} + drag << line
                                 << pairs << P(65, 50) << green << none;
    QTest::newRow("fill") << 2 << Points{{101.5, 153.7}, {140, 160}} << false
                          << undo + QStringList{"committed(1)", "coop(1)", "strokes"}
                          << Points{{101, 153}} << Points{{101, 153}} << P(300, 250) << red << red;
    QTest::newRow("fill outside") << 2 << Points{{-5, 10}} << false << QStringList() << Points()
                                  << Points() << P(10, 10) << green << none;
    QTest::newRow("shape") << 3 << shape << false << shaped << shape << shape << P(70, 60) << red
                           << red;
    // Shift squares the shape when the button is released.
    QTest::newRow("shape, shift") << 3 << Points{{10, 10}, {50, 30}} << true << shaped
                                  << Points{{10, 10}, {50, 50}} << Points{{10, 10}, {50, 50}}
                                  << P(30, 40) << green << red;
    QTest::newRow("shape erasing")
        << 4 << shape << false << shaped << shape << shape << P(70, 60) << QColor(Qt::blue) << none;
    QTest::newRow("shape click") << 3 << Points{{30, 30}, {30, 30}} << false
                                 << QStringList{"updated"} << Points() << Points() << P(30, 30)
                                 << green << none;
}

// Each tool on the active layer of two (green below): the signals, what is
// committed and streamed, what shows during the drag and what the layer keeps.
void TestCanvasWidget::tools()
{
    QFETCH(int, tool);
    QFETCH(Points, path);
    QFETCH(bool, shift);
    QFETCH(QStringList, log);
    QFETCH(Points, committed);
    QFETCH(Points, streamed);
    QFETCH(QPointF, probe);
    QFETCH(QColor, during);
    QFETCH(QColor, after);
    const QColor start = tool == 1 || tool == 4 ? Qt::blue : Qt::transparent;
    auto w = shownCanvas({400, 300}, {Qt::green, start});
    w->setTool(tool == 5 ? 0 : std::min(tool, 3));
    w->setShapeErase(tool == 4);
    w->setBrushColor(Qt::red);
    w->setBrushSize(10);
    QStringList actual;
    recordStrokeSignals(w.get(), &actual);
    QList<QPointF> sent;
    connect(w.get(), &CanvasWidget::coopStrokeSegment, [&](const Stroke &s) {
        sent += s.points;
        QVERIFY(s.eraser ? tool == int(Tool::Eraser) : s.color == Qt::red);
    });
    const QList<Stroke> done = committedBy(w.get(), [&] {
        if (tool == 5) {
            tablet(w.get(), QEvent::TabletEnterProximity, path[0], 0);
            tablet(w.get(), QEvent::TabletPress, path[0], 0.1);
            for (const QPointF &p : path.mid(1))
                tablet(w.get(), QEvent::TabletMove, p, p.x() / 200);
        } else {
            drag(w.get(), path, false);
        }
        QCOMPARE(w->displayComposite().pixelColor(probe.toPoint()), during);
        if (tool == 5) {
            tablet(w.get(), QEvent::TabletRelease, path.last(), 0);
            tablet(w.get(), QEvent::TabletMove, P(300, 200), 0);
        } else {
            send(w.get(), QEvent::MouseButtonRelease, path.last(), Qt::LeftButton,
                 shift ? Qt::ShiftModifier : Qt::NoModifier);
        }
    });
    QCOMPARE(actual, log);
    QCOMPARE(sent, streamed);
    QCOMPARE(done.isEmpty() ? Points() : done[0].points, committed);
    if (!done.isEmpty() && !done[0].fill) // the brush size, whatever the pen's pressure
        QCOMPARE(done[0].width, 10.0f);
    QCOMPARE(layerPixel(*w, probe, 1), after);
    QCOMPARE(layerPixel(*w, probe, 0), QColor(Qt::green));
    w->undo();
    QCOMPARE(layerPixel(*w, probe, 1), start);
}

// A long stroke's baked part stays on screen; an undo ends the drag for good.
void TestCanvasWidget::longDragUntilUndone()
{
    LogCapture capture;
    auto w = shownCanvas();
    drag(w.get(), {P(10, 100), P(60, 100)});
    Points path;
    for (int i = 0; i <= 80; ++i)
        path << P(10 + 3 * i, 20);
    drag(w.get(), path, false);
    QCOMPARE(capture.matching("[PD] bake: 61 pts in ").size(), 1);
    for (int x : {20, 240})
        QCOMPARE(w->grab().toImage().pixelColor(x, 20), QColor(Qt::black));
    const QList<Stroke> s = committedBy(w.get(), [&] {
        w->undo();
        send(w.get(), QEvent::MouseMove, P(260, 30));
        send(w.get(), QEvent::MouseButtonRelease, P(260, 30));
    });
    QVERIFY(s.isEmpty());
    for (QPointF p : {P(20, 20), P(30, 100), P(258, 28)})
        QCOMPARE(layerPixel(*w, p).alpha(), 0);
}

void TestCanvasWidget::pointer_data()
{
    QTest::addColumn<QList<int>>("tools"); // chosen in turn
    QTest::addColumn<bool>("zoomed");
    QTest::addColumn<double>("radius"); // on screen; the cross has 8 px arms
    QTest::addColumn<QString>("icon");
    // A 60 px brush on the 800 x 600 canvas shown at half size; one notch zooms 1.25.
    QTest::newRow("brush") << QList<int>{0} << false << 15.0 << Icons::Brush;
    QTest::newRow("brush zoomed") << QList<int>{0} << true << 18.75 << Icons::Brush;
    QTest::newRow("eraser") << QList<int>{1} << false << 15.0 << Icons::Eraser;
    QTest::newRow("fill") << QList<int>{2} << false << 8.0 << Icons::FillBucket;
    QTest::newRow("shapes keep the icon") << QList<int>{1, 3} << false << 8.0 << Icons::Eraser;
}

// The widget draws the brush's outline and the tool's icon while the pointer is inside.
void TestCanvasWidget::pointer()
{
    QFETCH(QList<int>, tools);
    QFETCH(bool, zoomed);
    QFETCH(double, radius);
    QFETCH(QString, icon);
    auto w = shownCanvas(QSize(800, 600));
    QCOMPARE(w->cursor().shape(), Qt::BlankCursor);
    const QColor ink(0, 255, 0); // only the icon has this colour
    QPalette palette = w->palette();
    palette.setColor(QPalette::ButtonText, ink);
    w->setPalette(palette);
    for (int tool : tools)
        w->setTool(tool);
    w->setBrushSize(60);
    const QPoint p(200, 150);
    if (zoomed)
        wheel(w.get(), p, {120, 0});
    leave(w.get()); // showing the window may have put the pointer inside
    const QImage outside = shot(w.get());
    send(w.get(), QEvent::MouseMove, p, Qt::NoButton);
    const QImage inside = shot(w.get());

    int left = p.x(); // the outline's left edge on the pointer's row
    while (left > 0 && inside.pixel(left - 1, p.y()) == outside.pixel(left - 1, p.y()))
        --left;
    while (left > 0 && inside.pixel(left - 1, p.y()) != outside.pixel(left - 1, p.y()))
        --left;
    QVERIFY2(qAbs(p.x() - left - radius) <= 2, qPrintable(QString::number(p.x() - left)));
    const QImage expected = tintedSvgPixmap(icon, ink, QSize(16, 16)).toImage();
    const QPoint corner(int(p.x() + radius * 0.7071), int(p.y() + radius * 0.7071));
    for (int y = 0; y < 16; ++y)
        for (int x = 0; x < 16; ++x)
            QCOMPARE(inside.pixelColor(corner + QPoint(x, y)) == ink,
                     qAlpha(expected.pixel(x, y)) == 255);
    leave(w.get());
    QCOMPARE(shot(w.get()), outside);
}

// A move repaints only its stroke part and the pointer; the screen shows a full repaint.
void TestCanvasWidget::dragRepaintsOnlyTheStroke()
{
    for (int tool : {int(Tool::Brush), int(Tool::Eraser), int(Tool::Shapes)}) {
        auto w = shownCanvas(QSize(800, 600), {Qt::blue}); // shown at half size
        w->setTool(tool);
        w->setBrushColor(Qt::red);
        w->setBrushSize(20); // 5 px on screen either side
        PaintLog log;
        w->installEventFilter(&log);
        const QPoint p0(100, 100), p1(120, 104), p2(140, 110);
        drag(w.get(), {p0, p1}, false);
        QCoreApplication::processEvents();
        log.painted = QRegion();
        LogCapture capture;
        send(w.get(), QEvent::MouseMove, p2);
        QCoreApplication::processEvents();
        // A move is no event for the log (an eraser drag once wrote a line per move).
        QVERIFY(capture.matching("[PD] FlatComposite").isEmpty());

        const QPoint from = tool == int(Tool::Shapes) ? p0 : p1; // a shape grows from its start
        QVERIFY((QRegion(QRect(from, p2).adjusted(-5, -5, 5, 5)) - log.painted).isEmpty());
        QVERIFY(QRect(p0, p2).adjusted(-40, -40, 40, 40).contains(log.painted.boundingRect()));
        const QImage full = shot(w.get());
        const QColor middle = full.pixelColor((p1 + p2) / 2);
        QVERIFY(tool == int(Tool::Eraser) || middle == QColor(Qt::red));
        QVERIFY(middle != QColor(Qt::blue));
        QCOMPARE(
            w->screen()->grabWindow(w->winId()).toImage().convertToFormat(QImage::Format_RGB32),
            full);
    }
}

void TestCanvasWidget::wiggleWarpsThePicture()
{
    auto w = shownCanvas();
    drag(w.get(), {P(50, 150), P(350, 150)});
    leave(w.get());
    const QImage still = shot(w.get());
    auto *timer = w->findChild<QTimer *>("wiggleTimer");
    QVERIFY(!timer->isActive());
    for (auto [asked, interval] : {std::pair(5, 17), {16, 17}, {18, 18}, {66, 66}}) {
        w->setWiggleInterval(asked); // at most about 60 frames per second
        QCOMPARE(timer->interval(), interval);
    }
    w->setWiggleAmount(6);
    w->setWiggleEnabled(true);
    QVERIFY(timer->isActive());
    w->onJitterTick();
    QVERIFY(shot(w.get()) != still);
    w->setWiggleEnabled(false);
    QVERIFY(!timer->isActive());
    QCOMPARE(shot(w.get()), still);
}

QTEST_MAIN(TestCanvasWidget)
#include "tst_canvas_widget.moc"
