#include "LogCapture.h"
#include "SignalLog.h"

#include "canvas/CanvasWidget.h"

#include <QPointingDevice>
#include <QtTest>

#include <memory>

namespace {

// Mouse events as the window system delivers them to the widget.
void mouse(QWidget *w, QEvent::Type type, QPointF pos, Qt::MouseButton button,
           Qt::MouseButtons buttons, Qt::KeyboardModifiers mods = Qt::NoModifier)
{
    QMouseEvent event(type, pos, w->mapToGlobal(pos), button, buttons, mods);
    QApplication::sendEvent(w, &event);
}

void press(QWidget *w, QPointF pos, Qt::MouseButton button = Qt::LeftButton,
           Qt::KeyboardModifiers mods = Qt::NoModifier)
{
    mouse(w, QEvent::MouseButtonPress, pos, button, button, mods);
}

void moveTo(QWidget *w, QPointF pos, Qt::MouseButtons buttons = Qt::LeftButton,
            Qt::KeyboardModifiers mods = Qt::NoModifier)
{
    mouse(w, QEvent::MouseMove, pos, Qt::NoButton, buttons, mods);
}

void release(QWidget *w, QPointF pos, Qt::MouseButton button = Qt::LeftButton,
             Qt::KeyboardModifiers mods = Qt::NoModifier)
{
    mouse(w, QEvent::MouseButtonRelease, pos, button, Qt::NoButton, mods);
}

void drag(QWidget *w, const QList<QPointF> &points)
{
    press(w, points.first());
    for (int i = 1; i < points.size(); ++i)
        moveTo(w, points[i]);
    release(w, points.last());
}

void wheel(QWidget *w, QPointF pos, int deltaY)
{
    QWheelEvent event(pos, w->mapToGlobal(pos), QPoint(), QPoint(0, deltaY), Qt::NoButton,
                      Qt::NoModifier, Qt::NoScrollPhase, false);
    QApplication::sendEvent(w, &event);
}

const QPointingDevice *pen()
{
    static QPointingDevice device(
        "test pen", 4242, QInputDevice::DeviceType::Stylus, QPointingDevice::PointerType::Pen,
        QInputDevice::Capability::Position | QInputDevice::Capability::Pressure, 1, 3);
    return &device;
}

void tablet(QWidget *w, QEvent::Type type, QPointF pos, qreal pressure)
{
    const Qt::MouseButton button = type == QEvent::TabletMove ? Qt::NoButton : Qt::LeftButton;
    const Qt::MouseButtons buttons =
        type == QEvent::TabletRelease ? Qt::MouseButtons() : Qt::MouseButtons(Qt::LeftButton);
    QTabletEvent event(type, pen(), pos, w->mapToGlobal(pos), pressure, 0, 0, 0, 0, 0,
                       Qt::NoModifier, button, buttons);
    QApplication::sendEvent(w, &event);
    QVERIFY(event.isAccepted());
}

// A shown widget whose canvas maps 1:1 to widget pixels unless sized otherwise.
std::unique_ptr<CanvasWidget> shownCanvas(int cw = 400, int ch = 300, QSize size = {400, 300})
{
    auto widget = std::make_unique<CanvasWidget>(cw, ch);
    widget->resize(size);
    widget->show();
    if (!QTest::qWaitForWindowExposed(widget.get()))
        return nullptr;
    return widget;
}

QImage solid(int w, int h, QColor color)
{
    QImage image(w, h, QImage::Format_RGBA8888);
    image.fill(color);
    return image;
}

void loadSolid(CanvasWidget &widget, QColor color)
{
    CanvasLayer layer;
    layer.name = "L";
    layer.image = solid(widget.canvasWidth(), widget.canvasHeight(), color);
    widget.setLayers({layer}, 0);
}

} // namespace

class TestCanvasInput : public QObject {
    Q_OBJECT

private slots:
    void fitOnResize();
    void clickPaintsDot();
    void brushDragSignalsAndPixels();
    void eraserClearsDuringDrag();
    void closeMovesAddNoPoint();
    void moveWithoutButtonAddsNothing();
    void longDragBakes();
    void zoomThreeNotches();
    void zoomOutAtOneDoesNothing();
    void pointUnderPointerStaysPut();
    void panIsZeroAtZoomOne();
    void panWhenZoomedIsClamped();
    void enterAndLeave();
    void penMatchesMouse();
    void otherTabletEventsDropped();
    void twentyFiveStrokesTwentyUndos();
    void newStrokeClearsRedo();
    void fillSignalsAndPixels();
    void fillOnSameColourStillAddsUndo();
    void fillOutsideCanvasDoesNothing();
    void shapeDragPreviewAndCommit();
    void shapeShiftOnRelease();
    void shapeClickCommitsNothing();
    void eraseFilledShapeActiveLayerOnly();
    void undoEndsDrag();
    void wiggleFrameAtDisplaySize();
    void paintsWithoutIcon();
};

void TestCanvasInput::fitOnResize()
{
    auto w = shownCanvas(200, 100, QSize(400, 300));
    QVERIFY(w);
    QCOMPARE(w->fitScale(), 2.0f);
    QCOMPARE(w->baseOffset(), QPoint(0, 50));
    QCOMPARE(w->canvasRect(), QRect(0, 50, 400, 200));
    QCOMPARE(w->mapToCanvas(QPointF(100, 150)), QPointF(50, 50));
    w->resize(300, 300);
    QCOMPARE(w->fitScale(), 1.5f);
    QCOMPARE(w->baseOffset(), QPoint(0, 75));
}

void TestCanvasInput::clickPaintsDot()
{
    auto w = shownCanvas();
    QVERIFY(w);
    w->setBrushColor(Qt::red);
    w->setBrushSize(10);
    QStringList log;
    recordStrokeSignals(w.get(), &log);
    QList<Stroke> coop;
    connect(w.get(), &CanvasWidget::coopStrokeSegment, [&](const Stroke &s) { coop << s; });
    QTest::mouseClick(w.get(), Qt::LeftButton, Qt::NoModifier, QPoint(100, 100));

    QCOMPARE(log, QStringList({"coop(1)", "undo(1)", "redo(0)", "committed(2)", "strokes"}));
    QCOMPARE(coop.size(), 1);
    QCOMPARE(coop[0].points, QVector<QPointF>({QPointF(100, 100)}));
    QCOMPARE(coop[0].color, QColor(Qt::red));
    QCOMPARE(coop[0].width, 10.0f);
    QCOMPARE(w->strokes().size(), 1);
    QCOMPARE(w->strokes()[0].points, QVector<QPointF>({QPointF(100, 100), QPointF(100, 100)}));

    const QImage layer = w->layerImage(0);
    QCOMPARE(layer.pixel(100, 100), qRgba(255, 0, 0, 255));
    QCOMPARE(layer.pixel(96, 100), qRgba(255, 0, 0, 255));
    QCOMPARE(qAlpha(layer.pixel(106, 100)), 0);
    QCOMPARE(qAlpha(layer.pixel(100, 94)), 0);
    QCOMPARE(w->flatComposite().pixel(100, 100), qRgba(255, 0, 0, 255));
    QVERIFY(!w->isDrawing());
    QVERIFY(w->currentStroke().points.isEmpty());
}

void TestCanvasInput::brushDragSignalsAndPixels()
{
    auto w = shownCanvas();
    QVERIFY(w);
    QStringList log;
    recordStrokeSignals(w.get(), &log);
    press(w.get(), QPointF(50, 50));
    QVERIFY(log.isEmpty());
    moveTo(w.get(), QPointF(80, 50));
    // Live brush strokes are not in the layer until release, only on screen.
    QCOMPARE(qAlpha(w->layerImage(0).pixel(65, 50)), 0);
    QCOMPARE(qAlpha(w->displayComposite().pixel(65, 50)), 255);
    moveTo(w.get(), QPointF(110, 60));
    release(w.get(), QPointF(110, 60));
    QCOMPARE(log, QStringList({"coop(2)", "updated", "coop(2)", "updated", "undo(1)", "redo(0)",
                               "committed(3)", "strokes"}));
    QCOMPARE(qAlpha(w->layerImage(0).pixel(65, 50)), 255);
}

void TestCanvasInput::eraserClearsDuringDrag()
{
    auto w = shownCanvas();
    QVERIFY(w);
    loadSolid(*w, Qt::blue);
    w->setTool(int(Tool::Eraser));
    w->setBrushSize(6);
    QStringList log;
    recordStrokeSignals(w.get(), &log);
    QList<Stroke> segments;
    connect(w.get(), &CanvasWidget::coopStrokeSegment, [&](const Stroke &s) { segments << s; });

    press(w.get(), QPointF(50, 50));
    QCOMPARE(qAlpha(w->layerImage(0).pixel(50, 50)), 0);
    moveTo(w.get(), QPointF(90, 50));
    QCOMPARE(qAlpha(w->layerImage(0).pixel(70, 50)), 0);
    QCOMPARE(w->layerImage(0).pixel(70, 60), qRgba(0, 0, 255, 255));
    QCOMPARE(qAlpha(w->flatComposite().pixel(70, 50)), 0);
    QVERIFY(!w->canUndo());
    QCOMPARE(segments.size(), 1);
    QCOMPARE(segments[0].points, QVector<QPointF>({QPointF(50, 50), QPointF(90, 50)}));
    QVERIFY(segments[0].eraser);
    QCOMPARE(segments[0].width, 6.0f);

    release(w.get(), QPointF(90, 50));
    QCOMPARE(log, QStringList({"updated", "coop(2)", "updated", "undo(1)", "redo(0)",
                               "committed(2)", "strokes"}));
    w->undo();
    QCOMPARE(w->layerImage(0).pixel(70, 50), qRgba(0, 0, 255, 255));
}

void TestCanvasInput::closeMovesAddNoPoint()
{
    auto w = shownCanvas();
    QVERIFY(w);
    QSignalSpy updated(w.get(), &CanvasWidget::strokeUpdated);
    press(w.get(), QPointF(10, 10));
    moveTo(w.get(), QPointF(11, 11)); // 2 squared pixels away
    moveTo(w.get(), QPointF(11.9, 10));
    QCOMPARE(w->currentStroke().points.size(), 1);
    QCOMPARE(updated.count(), 0);
    moveTo(w.get(), QPointF(12, 10)); // exactly 2 pixels: recorded
    QCOMPARE(w->currentStroke().points.size(), 2);
    QCOMPARE(updated.count(), 1);
    release(w.get(), QPointF(12, 10));
}

void TestCanvasInput::moveWithoutButtonAddsNothing()
{
    auto w = shownCanvas();
    QVERIFY(w);
    QSignalSpy updated(w.get(), &CanvasWidget::strokeUpdated);
    moveTo(w.get(), QPointF(30, 30), Qt::NoButton);
    moveTo(w.get(), QPointF(60, 30), Qt::NoButton);
    QVERIFY(w->currentStroke().points.isEmpty());
    QVERIFY(w->pointerInside());
    // Drawing but the button state says no button: still nothing recorded.
    press(w.get(), QPointF(10, 10));
    moveTo(w.get(), QPointF(50, 50), Qt::NoButton);
    QCOMPARE(w->currentStroke().points.size(), 1);
    QCOMPARE(updated.count(), 0);
    release(w.get(), QPointF(50, 50));
    QCOMPARE(w->strokes().size(), 1);
}

void TestCanvasInput::longDragBakes()
{
    LogCapture capture;
    auto w = shownCanvas();
    QVERIFY(w);
    press(w.get(), QPointF(10, 20));
    for (int i = 1; i <= 80; ++i)
        moveTo(w.get(), QPointF(10 + 3 * i, 20));
    QCOMPARE(w->currentStroke().points.size(), 20);
    QCOMPARE(capture.matching("[PD] bake: 61 pts in ").size(), 1);
    // The baked part is already in the layer while the drag goes on.
    QCOMPARE(qAlpha(w->layerImage(0).pixel(20, 20)), 255);
    QCOMPARE(qAlpha(w->layerImage(0).pixel(240, 20)), 0);
    release(w.get(), QPointF(250, 20));
    QCOMPARE(qAlpha(w->layerImage(0).pixel(240, 20)), 255);
    QCOMPARE(w->strokes().last().points.size(), 20);
}

void TestCanvasInput::zoomThreeNotches()
{
    auto w = shownCanvas();
    QVERIFY(w);
    for (int i = 0; i < 3; ++i)
        wheel(w.get(), QPointF(200, 150), 120);
    QCOMPARE(w->zoom(), 1.953125f);
    wheel(w.get(), QPointF(200, 150), -120);
    QCOMPARE(w->zoom(), 1.5625f);
}

void TestCanvasInput::zoomOutAtOneDoesNothing()
{
    auto w = shownCanvas();
    QVERIFY(w);
    wheel(w.get(), QPointF(10, 10), -120);
    QCOMPARE(w->zoom(), 1.0f);
    QCOMPARE(w->panOffset(), QPointF(0, 0));
    // Zooming out from a small zoom stops at 1.0 with the pan forced back.
    wheel(w.get(), QPointF(300, 200), 120);
    wheel(w.get(), QPointF(300, 200), -120);
    wheel(w.get(), QPointF(300, 200), -120);
    QCOMPARE(w->zoom(), 1.0f);
    QCOMPARE(w->panOffset(), QPointF(0, 0));
}

void TestCanvasInput::pointUnderPointerStaysPut()
{
    auto w = shownCanvas();
    QVERIFY(w);
    const QList<QPointF> pointers = {QPointF(123, 77), QPointF(300, 250), QPointF(200, 150)};
    for (const QPointF &p : pointers) {
        const QPointF before = w->mapToCanvas(p);
        wheel(w.get(), p, 120);
        const QPointF after = w->mapToCanvas(p);
        QVERIFY2(std::abs(before.x() - after.x()) < 1e-3 && std::abs(before.y() - after.y()) < 1e-3,
                 qPrintable(QString("(%1,%2) -> (%3,%4)")
                                .arg(before.x())
                                .arg(before.y())
                                .arg(after.x())
                                .arg(after.y())));
    }
}

void TestCanvasInput::panIsZeroAtZoomOne()
{
    auto w = shownCanvas();
    QVERIFY(w);
    press(w.get(), QPointF(100, 100), Qt::MiddleButton);
    QVERIFY(w->isPanning());
    QCOMPARE(w->cursor().shape(), Qt::ClosedHandCursor);
    moveTo(w.get(), QPointF(150, 130), Qt::MiddleButton);
    moveTo(w.get(), QPointF(20, 10), Qt::MiddleButton);
    QCOMPARE(w->panOffset(), QPointF(0, 0));
    release(w.get(), QPointF(20, 10), Qt::MiddleButton);
    QVERIFY(!w->isPanning());
    QCOMPARE(w->cursor().shape(), Qt::BlankCursor);
    QVERIFY(w->strokes().isEmpty());
}

void TestCanvasInput::panWhenZoomedIsClamped()
{
    auto w = shownCanvas();
    QVERIFY(w);
    wheel(w.get(), QPointF(0, 0), 120); // zoom 1.25 about the corner: pan stays 0
    QCOMPARE(w->panOffset(), QPointF(0, 0));
    press(w.get(), QPointF(200, 150), Qt::MiddleButton);
    moveTo(w.get(), QPointF(180, 140), Qt::MiddleButton);
    QCOMPARE(w->panOffset(), QPointF(-20, -10));
    moveTo(w.get(), QPointF(-500, -500), Qt::MiddleButton);
    QCOMPARE(w->panOffset(), QPointF(-100, -75)); // 0.25 of the fitted size
    moveTo(w.get(), QPointF(900, 900), Qt::MiddleButton);
    QCOMPARE(w->panOffset(), QPointF(0, 0));
    release(w.get(), QPointF(900, 900), Qt::MiddleButton);
}

void TestCanvasInput::enterAndLeave()
{
    auto w = shownCanvas();
    QVERIFY(w);
    QEnterEvent enter(QPointF(5, 5), QPointF(5, 5), w->mapToGlobal(QPointF(5, 5)));
    QApplication::sendEvent(w.get(), &enter);
    QVERIFY(w->pointerInside());
    QEvent leave(QEvent::Leave);
    QApplication::sendEvent(w.get(), &leave);
    QVERIFY(!w->pointerInside());
}

void TestCanvasInput::penMatchesMouse()
{
    auto byMouse = shownCanvas();
    auto byPen = shownCanvas();
    QVERIFY(byMouse && byPen);
    const QList<QPointF> path = {QPointF(40, 40), QPointF(80, 60), QPointF(120, 50),
                                 QPointF(160, 90)};
    for (CanvasWidget *w : {byMouse.get(), byPen.get()}) {
        w->setBrushSize(12);
        w->setBrushColor(QColor(10, 120, 30, 200));
    }
    drag(byMouse.get(), path);

    QList<Stroke> committed;
    connect(byPen.get(), &CanvasWidget::strokeCommitted, [&](const Stroke &s) { committed << s; });
    tablet(byPen.get(), QEvent::TabletPress, path[0], 0.1);
    for (int i = 1; i < path.size(); ++i)
        tablet(byPen.get(), QEvent::TabletMove, path[i], 0.2 + 0.25 * i);
    tablet(byPen.get(), QEvent::TabletRelease, path.last(), 0.0);
    // Hovering after release adds nothing.
    tablet(byPen.get(), QEvent::TabletMove, QPointF(300, 200), 0.0);

    QCOMPARE(committed.size(), 1);
    QCOMPARE(committed[0].points, QVector<QPointF>(path.begin(), path.end()));
    QCOMPARE(committed[0].width, 12.0f);
    QCOMPARE(byPen->layerImage(0), byMouse->layerImage(0));
    QVERIFY(!byPen->isDrawing());
}

void TestCanvasInput::otherTabletEventsDropped()
{
    auto w = shownCanvas();
    QVERIFY(w);
    QTabletEvent enter(QEvent::TabletEnterProximity, pen(), QPointF(5, 5), QPointF(5, 5), 0, 0, 0,
                       0, 0, 0, Qt::NoModifier, Qt::NoButton, Qt::NoButton);
    QApplication::sendEvent(w.get(), &enter);
    QVERIFY(w->strokes().isEmpty());
    QVERIFY(!w->isDrawing());
}

void TestCanvasInput::twentyFiveStrokesTwentyUndos()
{
    auto w = shownCanvas();
    QVERIFY(w);
    for (int i = 0; i < 25; ++i)
        drag(w.get(), {QPointF(10, 10 + 10 * i), QPointF(100, 10 + 10 * i)});
    int undos = 0;
    while (w->canUndo()) {
        w->undo();
        ++undos;
    }
    QCOMPARE(undos, 20);
    // Strokes 0..4 remain: their snapshots fell off the bottom of the stack.
    QCOMPARE(qAlpha(w->layerImage(0).pixel(50, 50)), 255);
    QCOMPARE(qAlpha(w->layerImage(0).pixel(50, 60)), 0);
    w->undo();
    QCOMPARE(qAlpha(w->layerImage(0).pixel(50, 50)), 255);
}

void TestCanvasInput::newStrokeClearsRedo()
{
    auto w = shownCanvas();
    QVERIFY(w);
    drag(w.get(), {QPointF(10, 10), QPointF(60, 10)});
    w->undo();
    QVERIFY(w->canRedo());
    QSignalSpy redo(w.get(), &CanvasWidget::redoAvailabilityChanged);
    drag(w.get(), {QPointF(10, 30), QPointF(60, 30)});
    QVERIFY(!w->canRedo());
    QCOMPARE(redo.count(), 1);
    QCOMPARE(redo.first().first().toBool(), false);
}

void TestCanvasInput::fillSignalsAndPixels()
{
    auto w = shownCanvas(200, 100, QSize(400, 300));
    QVERIFY(w);
    w->setTool(int(Tool::FillBucket));
    w->setBrushColor(QColor(0, 200, 0));
    QStringList log;
    recordStrokeSignals(w.get(), &log);
    QList<Stroke> committed;
    connect(w.get(), &CanvasWidget::strokeCommitted, [&](const Stroke &s) { committed << s; });
    // Widget (101, 153) is canvas (50.5, 51.5): the seed is (50, 51).
    press(w.get(), QPointF(101, 153));
    moveTo(w.get(), QPointF(150, 160));
    release(w.get(), QPointF(150, 160));
    QCOMPARE(log, QStringList({"undo(1)", "redo(0)", "committed(1)", "coop(1)", "strokes"}));
    QCOMPARE(committed.size(), 1);
    QVERIFY(committed[0].fill);
    QCOMPARE(committed[0].points, QVector<QPointF>({QPointF(50, 51)}));
    QCOMPARE(committed[0].width, 8.0f);
    QCOMPARE(w->layerImage(0).pixel(0, 0), qRgba(0, 200, 0, 255));
    QCOMPARE(w->layerImage(0).pixel(199, 99), qRgba(0, 200, 0, 255));
    QCOMPARE(w->strokes().size(), 1);
}

void TestCanvasInput::fillOnSameColourStillAddsUndo()
{
    auto w = shownCanvas();
    QVERIFY(w);
    loadSolid(*w, Qt::black);
    w->setTool(int(Tool::FillBucket));
    const QImage before = w->layerImage(0);
    QSignalSpy committed(w.get(), &CanvasWidget::strokeCommitted);
    QTest::mouseClick(w.get(), Qt::LeftButton, Qt::NoModifier, QPoint(20, 20));
    QVERIFY(w->canUndo());
    QCOMPARE(committed.count(), 1);
    QCOMPARE(w->layerImage(0), before);
    w->undo();
    QCOMPARE(w->layerImage(0), before);
}

void TestCanvasInput::fillOutsideCanvasDoesNothing()
{
    auto w = shownCanvas(200, 100, QSize(400, 300)); // canvas spans widget y 50..250
    QVERIFY(w);
    w->setTool(int(Tool::FillBucket));
    QStringList log;
    recordStrokeSignals(w.get(), &log);
    QTest::mouseClick(w.get(), Qt::LeftButton, Qt::NoModifier, QPoint(100, 20));
    QTest::mouseClick(w.get(), Qt::LeftButton, Qt::NoModifier, QPoint(100, 290));
    QVERIFY(log.isEmpty());
    QVERIFY(!w->canUndo());
    QCOMPARE(qAlpha(w->layerImage(0).pixel(10, 10)), 0);
}

void TestCanvasInput::shapeDragPreviewAndCommit()
{
    auto w = shownCanvas();
    QVERIFY(w);
    w->setTool(int(Tool::Shapes));
    w->setShapeType(ShapeRectangle);
    w->setBrushColor(Qt::red);
    QStringList log;
    recordStrokeSignals(w.get(), &log);
    QList<Stroke> committed;
    connect(w.get(), &CanvasWidget::strokeCommitted, [&](const Stroke &s) { committed << s; });

    press(w.get(), QPointF(100, 80));
    moveTo(w.get(), QPointF(40, 40));
    QCOMPARE(qAlpha(w->layerImage(0).pixel(70, 60)), 0);
    QCOMPARE(w->displayComposite().pixel(70, 60), qRgba(255, 0, 0, 255));
    release(w.get(), QPointF(40, 40));
    QCOMPARE(log,
             QStringList({"updated", "undo(1)", "redo(0)", "committed(2)", "coop(2)", "strokes"}));
    QCOMPARE(committed.size(), 1);
    const Stroke &s = committed[0];
    QVERIFY(s.shape);
    QCOMPARE(s.points, QVector<QPointF>({QPointF(100, 80), QPointF(40, 40)}));
    QCOMPARE(s.arrowDirection, 2);
    QCOMPARE(s.width, 8.0f);
    QCOMPARE(w->layerImage(0).pixel(70, 60), qRgba(255, 0, 0, 255));
    QCOMPARE(qAlpha(w->layerImage(0).pixel(70, 90)), 0);
    QCOMPARE(qAlpha(w->layerImage(0).pixel(110, 60)), 0);
}

void TestCanvasInput::shapeShiftOnRelease()
{
    auto w = shownCanvas();
    QVERIFY(w);
    w->setTool(int(Tool::Shapes));
    QList<Stroke> committed;
    connect(w.get(), &CanvasWidget::strokeCommitted, [&](const Stroke &s) { committed << s; });
    press(w.get(), QPointF(10, 10));
    moveTo(w.get(), QPointF(50, 30));
    release(w.get(), QPointF(50, 30), Qt::LeftButton, Qt::ShiftModifier);
    QCOMPARE(committed.size(), 1);
    QCOMPARE(committed[0].points, QVector<QPointF>({QPointF(10, 10), QPointF(50, 50)}));
}

void TestCanvasInput::shapeClickCommitsNothing()
{
    auto w = shownCanvas();
    QVERIFY(w);
    w->setTool(int(Tool::Shapes));
    QStringList log;
    recordStrokeSignals(w.get(), &log);
    QTest::mouseClick(w.get(), Qt::LeftButton, Qt::NoModifier, QPoint(30, 30));
    QVERIFY(log.isEmpty());
    QVERIFY(!w->canUndo());
    QVERIFY(w->document()->hasPendingSnapshot());
    QVERIFY(w->strokes().isEmpty());
}

void TestCanvasInput::eraseFilledShapeActiveLayerOnly()
{
    auto w = shownCanvas(100, 100, QSize(100, 100));
    QVERIFY(w);
    CanvasLayer bottom;
    bottom.name = "bottom";
    bottom.image = solid(100, 100, Qt::green);
    CanvasLayer top;
    top.name = "top";
    top.image = solid(100, 100, Qt::blue);
    w->setLayers({bottom, top}, 1);
    w->setTool(int(Tool::Shapes));
    w->setShapeErase(true);
    w->setShapeType(ShapeRectangle);
    drag(w.get(), {QPointF(20, 20), QPointF(60, 50)});
    const QImage layer = w->layerImage(1);
    for (int y = 0; y < 100; ++y)
        for (int x = 0; x < 100; ++x) {
            const bool inside = x >= 20 && x < 60 && y >= 20 && y < 50;
            QCOMPARE(qAlpha(layer.pixel(x, y)), inside ? 0 : 255);
        }
    QCOMPARE(w->layerImage(0).pixel(30, 30), qRgba(0, 255, 0, 255));
    QCOMPARE(w->flatComposite().pixel(30, 30), qRgba(0, 255, 0, 255));
}

void TestCanvasInput::undoEndsDrag()
{
    auto w = shownCanvas();
    QVERIFY(w);
    drag(w.get(), {QPointF(10, 10), QPointF(60, 10)});
    QSignalSpy committed(w.get(), &CanvasWidget::strokeCommitted);
    press(w.get(), QPointF(10, 50));
    moveTo(w.get(), QPointF(60, 50));
    w->undo();
    QVERIFY(!w->isDrawing());
    QVERIFY(w->currentStroke().points.isEmpty());
    moveTo(w.get(), QPointF(90, 50));
    release(w.get(), QPointF(90, 50));
    QCOMPARE(committed.count(), 0);
    QCOMPARE(qAlpha(w->layerImage(0).pixel(30, 50)), 0);
    QCOMPARE(qAlpha(w->layerImage(0).pixel(30, 10)), 0);
}

void TestCanvasInput::wiggleFrameAtDisplaySize()
{
    auto w = shownCanvas(800, 600, QSize(400, 300));
    QVERIFY(w);
    QCOMPARE(w->fitScale(), 0.5f);
    drag(w.get(), {QPointF(100, 100), QPointF(300, 100)});
    QVERIFY(w->wiggleFrame().isNull());
    w->setWiggleEnabled(true);
    QVERIFY(w->wiggleFrame().isNull());
    w->onJitterTick();
    const QImage frame = w->wiggleFrame();
    QCOMPARE(frame.size(), QSize(400, 300));
    QCOMPARE(frame.format(), LayerFormat);
    int opaque = 0;
    for (int x = 0; x < 400; ++x)
        opaque += qAlpha(frame.pixel(x, 100)) == 255 ? 1 : 0;
    QVERIFY(opaque > 50);
    w->grab(); // paints the frame and the live overlays
    w->resize(401, 300);
    QVERIFY(w->wiggleFrame().isNull());
    w->onJitterTick();
    QVERIFY(!w->wiggleFrame().isNull());
    w->setWiggleEnabled(false);
    QVERIFY(w->wiggleFrame().isNull());
}

void TestCanvasInput::paintsWithoutIcon()
{
    auto w = shownCanvas();
    QVERIFY(w);
    w->setPreviewEnabled(true);
    w->setPreviewImage(solid(10, 10, Qt::white));
    for (int tool = 0; tool < 4; ++tool) {
        w->setTool(tool);
        moveTo(w.get(), QPointF(50, 50), Qt::NoButton);
        const QImage shot = w->grab().toImage();
        QCOMPARE(shot.size(), QSize(400, 300));
    }
}

QTEST_MAIN(TestCanvasInput)
#include "tst_canvas_input.moc"
