#include "SignalLog.h"

#include "canvas/CanvasWidget.h"
#include "widgets/Icons.h"
#include "widgets/TintedIcon.h"

#include <QtTest>

class TestCanvasWidget : public QObject {
    Q_OBJECT

private slots:
    void construction();
    void forwardsDocumentSignalsInOrder();
    void wiggleToggleAndIntervalFloor();
    void previewOpacityClamped();
    void toolCursorIconFollowsTool();
};

void TestCanvasWidget::construction()
{
    CanvasWidget widget(320, 180);
    QVERIFY(widget.hasMouseTracking());
    QVERIFY(widget.testAttribute(Qt::WA_TabletTracking));
    QCOMPARE(widget.cursor().shape(), Qt::BlankCursor);
    QCOMPARE(widget.sizePolicy().horizontalPolicy(), QSizePolicy::Expanding);
    QCOMPARE(widget.sizePolicy().verticalPolicy(), QSizePolicy::Expanding);
    QCOMPARE(widget.layerCount(), 1);
    QCOMPARE(widget.layerName(0), QString("Layer 1"));
    QCOMPARE(widget.brushColor(), QColor(Qt::black));
    QCOMPARE(widget.brushSize(), 8.0f);
    QCOMPARE(widget.tool(), 0);
    QCOMPARE(widget.fillTolerance(), 200);
    QCOMPARE(widget.wiggleAmount(), 2.5f);
    QCOMPARE(widget.wiggleInterval(), 50);
    QVERIFY(!widget.wiggleTimerActive());
    QCOMPARE(widget.zoom(), 1.0f);
    QCOMPARE(widget.previewOpacity(), 1.0f);
}

void TestCanvasWidget::forwardsDocumentSignalsInOrder()
{
    CanvasWidget widget(16, 16);
    QStringList log;
    recordSignals(&widget, &log);
    widget.addLayer();
    widget.clear();
    widget.undo();
    widget.setLayerVisible(0, false);
    QCOMPARE(log, QStringList({"undo(0)", "redo(0)", "layers", "active(1)", "undo(1)", "redo(0)",
                               "layers", "strokes", "strokes", "undo(0)", "redo(1)", "layers",
                               "strokes"}));
}

void TestCanvasWidget::wiggleToggleAndIntervalFloor()
{
    CanvasWidget widget(16, 16);
    widget.setWiggleInterval(5);
    QCOMPARE(widget.wiggleInterval(), 17);
    widget.setWiggleEnabled(true);
    QVERIFY(widget.wiggleTimerActive());
    widget.setWiggleEnabled(false);
    QVERIFY(!widget.wiggleTimerActive());
    QVERIFY(widget.wiggleFrame().isNull());
}

void TestCanvasWidget::previewOpacityClamped()
{
    CanvasWidget widget(16, 16);
    widget.setPreviewOpacity(1.5f);
    QCOMPARE(widget.previewOpacity(), 1.0f);
    widget.setPreviewOpacity(-1.0f);
    QCOMPARE(widget.previewOpacity(), 0.0f);
}

void TestCanvasWidget::toolCursorIconFollowsTool()
{
    CanvasWidget widget(16, 16);
    const QColor ink = widget.palette().color(QPalette::ButtonText);
    auto icon = [&](const QString &svg) {
        return tintedSvgPixmap(svg, ink, QSize(16, 16)).toImage();
    };
    QCOMPARE(widget.toolCursorIcon().size(), QSize(16, 16));
    QCOMPARE(widget.toolCursorIcon().toImage(), icon(Icons::Brush));
    widget.setTool(int(Tool::Eraser));
    QCOMPARE(widget.toolCursorIcon().toImage(), icon(Icons::Eraser));
    widget.setTool(int(Tool::Shapes));
    QCOMPARE(widget.toolCursorIcon().toImage(), icon(Icons::Eraser));
    widget.setTool(int(Tool::FillBucket));
    QCOMPARE(widget.toolCursorIcon().toImage(), icon(Icons::FillBucket));
    QVERIFY(icon(Icons::FillBucket) != icon(Icons::Eraser));
    QCOMPARE(widget.cursor().shape(), Qt::BlankCursor);
}

QTEST_MAIN(TestCanvasWidget)
#include "tst_canvas_widget.moc"
