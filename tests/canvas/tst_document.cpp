#include "SignalLog.h"

#include "engine/CanvasDocument.h"

#include <QPainter>
#include <QtTest>

namespace {

QImage filled(int w, int h, QColor color, QImage::Format format = LayerFormat)
{
    QImage image(w, h, format);
    image.fill(color);
    return image;
}

// A document of `count` layers named L0, L1, ... bottom up.
void populate(CanvasDocument &doc, int count)
{
    for (int i = 1; i < count; ++i)
        doc.addLayer();
    for (int i = 0; i < count; ++i)
        doc.renameLayer(i, QString("L%1").arg(i));
}

QStringList names(const CanvasDocument &doc)
{
    QStringList out;
    for (int i = 0; i < doc.layerCount(); ++i)
        out << doc.layerName(i);
    return out;
}

// One undoable action: fills rect of the active layer.
void paintActive(CanvasDocument &doc, QColor color, QRect rect = {})
{
    if (rect.isNull())
        rect = QRect(QPoint(0, 0), doc.size());
    doc.captureSnapshot();
    QPainter(&doc.activeImage()).fillRect(rect, color);
    doc.markPainted(rect);
    doc.commitSnapshot();
}

} // namespace

class TestDocument : public QObject {
    Q_OBJECT

private slots:
    void freshDocumentAndNames();
    void deleteLayer_data();
    void deleteLayer();
    void moveLayer_data();
    void moveLayer();
    void setLayersNormalises();
    void visibilityAndOpacity();
    void undoRedoRoundTrip();
    void stacksTravelWithLayer();
    void clearIsUndoableAndLocal();
    void undoKeepsOnlyChangedTiles();
};

void TestDocument::freshDocumentAndNames()
{
    CanvasDocument doc(64, 48);
    QCOMPARE(doc.layerImage(0), filled(64, 48, Qt::transparent));
    QVERIFY(doc.layerVisible(0) && doc.layerOpacity(0) == 1.0f && !doc.canUndo());
    QVERIFY(doc.compositeDirty() && doc.belowDirty() && doc.aboveDirty());
    doc.addLayer();
    doc.addLayer();
    doc.renameLayer(2, "Sky");
    doc.deleteLayer(0);
    doc.addLayer();
    QCOMPARE(names(doc), QStringList({"Layer 2", "Sky", "Layer 3"}));
    QStringList log;
    recordSignals(&doc, &log);
    doc.addLayer();
    QCOMPARE(doc.layerName(3), QString("Layer 4"));
    QCOMPARE(log, QStringList({"undo(0)", "redo(0)", "layers", "active(3)"}));
    // Bad indices are ignored silently.
    log.clear();
    for (int bad : {-1, 4}) {
        doc.renameLayer(bad, "x");
        doc.setLayerVisible(bad, false);
        doc.setActiveLayer(bad);
        doc.moveLayerDown(bad);
        doc.moveLayerUp(bad);
    }
    QVERIFY(log.isEmpty());
    QCOMPARE(doc.layerName(9), QString());
}

void TestDocument::deleteLayer_data()
{
    QTest::addColumn<int>("count");
    QTest::addColumn<int>("active");
    QTest::addColumn<int>("deleted");
    QTest::addColumn<QString>("expected"); // layer numbers bottom up, then the active index
    QTest::newRow("active top of three") << 3 << 2 << 2 << "01 1";
    QTest::newRow("below active") << 3 << 2 << 0 << "12 1";
    QTest::newRow("above active") << 3 << 0 << 2 << "01 0";
    QTest::newRow("active bottom") << 3 << 0 << 0 << "12 0";
    QTest::newRow("middle active") << 3 << 1 << 1 << "02 0";
    QTest::newRow("last layer ignored") << 1 << 0 << 0 << "0 0";
    QTest::newRow("negative ignored") << 2 << 1 << -1 << "01 1";
    QTest::newRow("past end ignored") << 2 << 1 << 2 << "01 1";
}

void TestDocument::deleteLayer()
{
    QFETCH(int, count);
    QFETCH(int, active);
    QFETCH(int, deleted);
    QFETCH(QString, expected);
    CanvasDocument doc(8, 8);
    populate(doc, count);
    doc.setActiveLayer(active);
    QStringList log;
    recordSignals(&doc, &log);
    doc.deleteLayer(deleted);
    QCOMPARE(names(doc).join("").remove('L') + ' ' + QString::number(doc.activeLayer()), expected);
    QCOMPARE(log, doc.layerCount() == count
                      ? QStringList()
                      : QStringList({"undo(0)", "redo(0)", "layers",
                                     QString("active(%1)").arg(doc.activeLayer())}));
}

// Moves by drag (from, to) or by one step (to = -1: down, -2: up); the
// active layer follows its own layer.
void TestDocument::moveLayer_data()
{
    QTest::addColumn<int>("active");
    QTest::addColumn<int>("from");
    QTest::addColumn<int>("to");
    QTest::addColumn<QString>("expected"); // layer numbers bottom up, then the active index
    QTest::newRow("down, moved is active") << 3 << 3 << 1 << "03124 1";
    QTest::newRow("down, active inside range") << 1 << 3 << 1 << "03124 2";
    QTest::newRow("down, active at from-1") << 2 << 3 << 1 << "03124 3";
    QTest::newRow("down, active above from") << 4 << 3 << 1 << "03124 4";
    QTest::newRow("down, active below to") << 0 << 3 << 1 << "03124 0";
    QTest::newRow("up, moved is active") << 1 << 1 << 3 << "02314 3";
    QTest::newRow("up, active inside range") << 2 << 1 << 3 << "02314 1";
    QTest::newRow("up, active at to") << 3 << 1 << 3 << "02314 2";
    QTest::newRow("up, active outside") << 4 << 1 << 3 << "02314 4";
    QTest::newRow("same place ignored") << 1 << 2 << 2 << "01234 1";
    QTest::newRow("bad index ignored") << 1 << 0 << 5 << "01234 1";
    QTest::newRow("step down active") << 2 << 2 << -1 << "02134 1";
    QTest::newRow("step down below active") << 1 << 2 << -1 << "02134 2";
    QTest::newRow("step down other") << 0 << 2 << -1 << "02134 0";
    QTest::newRow("step down bottom ignored") << 0 << 0 << -1 << "01234 0";
    QTest::newRow("step up active") << 0 << 0 << -2 << "10234 1";
    QTest::newRow("step up above active") << 1 << 0 << -2 << "10234 0";
    QTest::newRow("step up top ignored") << 4 << 4 << -2 << "01234 4";
}

void TestDocument::moveLayer()
{
    QFETCH(int, active);
    QFETCH(int, from);
    QFETCH(int, to);
    QFETCH(QString, expected);
    CanvasDocument doc(8, 8);
    populate(doc, 5);
    doc.setActiveLayer(active);
    QStringList log;
    recordSignals(&doc, &log);
    const QString activeName = doc.layerName(active);
    if (to == -1)
        doc.moveLayerDown(from);
    else if (to == -2)
        doc.moveLayerUp(from);
    else
        doc.moveLayer(from, to);
    QCOMPARE(names(doc).join("").remove('L') + ' ' + QString::number(doc.activeLayer()), expected);
    QCOMPARE(doc.layerName(doc.activeLayer()), activeName);
    const bool moved = !expected.startsWith("01234");
    QCOMPARE(log, moved ? QStringList({"layers", QString("active(%1)").arg(doc.activeLayer())})
                        : QStringList());
}

void TestDocument::setLayersNormalises()
{
    CanvasDocument doc(4, 3);
    paintActive(doc, Qt::red);
    doc.appendStroke(Stroke{});
    QList<CanvasLayer> layers(4);
    layers[1].image = filled(4, 3, QColor(255, 0, 0, 128), QImage::Format_RGBA8888);
    layers[2].image = filled(6, 5, Qt::blue, QImage::Format_ARGB32);
    layers[3].image = filled(2, 2, Qt::green, QImage::Format_RGBA8888);
    layers[3].visible = false;
    layers[3].opacity = 7.0f;
    QStringList log;
    recordSignals(&doc, &log);
    doc.setLayers(layers, 9);
    QCOMPARE(log, QStringList({"undo(0)", "redo(0)", "layers", "active(3)"}));
    QVERIFY(!doc.canUndo() && doc.strokes().isEmpty());
    // Straight images come in premultiplied; other sizes are cropped or padded.
    QCOMPARE(doc.layerImage(0), filled(4, 3, Qt::transparent));
    QCOMPARE(doc.layerImage(1), filled(4, 3, QColor(255, 0, 0, 128)));
    QCOMPARE(doc.layerImage(2), filled(4, 3, Qt::blue));
    const QImage small = doc.layerImage(3);
    QCOMPARE(small.format(), LayerFormat);
    QCOMPARE(small.pixel(1, 1), qRgb(0, 255, 0));
    QCOMPARE(small.pixel(2, 0), 0u);
    QCOMPARE(small.pixel(0, 2), 0u);
    QVERIFY(!doc.layerVisible(3));
    QCOMPARE(doc.layerOpacity(3), 1.0f);

    doc.setLayers({}, -4);
    QCOMPARE(names(doc), QStringList{"Layer 1"});
    QCOMPARE(doc.activeLayer(), 0);

    // A single-layer load keeps the image's own size.
    populate(doc, 3);
    log.clear();
    doc.setStrokesAndImage({Stroke{}, Stroke{}}, filled(5, 2, Qt::red, QImage::Format_RGBA8888));
    QCOMPARE(log, QStringList({"undo(0)", "redo(0)", "layers", "active(0)"}));
    QCOMPARE(names(doc), QStringList{"Layer 1"});
    QCOMPARE(doc.strokes().size(), 2);
    QCOMPARE(doc.layerImage(0), filled(5, 2, Qt::red));
}

// A layer switch leaves the flat picture valid; visibility and opacity
// invalidate everything.
void TestDocument::visibilityAndOpacity()
{
    CanvasDocument doc(4, 4);
    populate(doc, 3);
    doc.flatComposite();
    QStringList log;
    recordSignals(&doc, &log);
    doc.setActiveLayer(0);
    QCOMPARE(log, QStringList({"undo(0)", "redo(0)", "active(0)"}));
    QVERIFY(!doc.compositeDirty() && doc.belowDirty() && doc.aboveDirty());
    doc.flatComposite();
    log.clear();
    doc.setLayerVisible(0, false);
    doc.setLayerOpacity(0, -3.0f);
    QCOMPARE(log, QStringList({"layers", "strokes", "layers", "strokes"}));
    QVERIFY(!doc.layerVisible(0));
    QCOMPARE(doc.layerOpacity(0), 0.0f);
    QVERIFY(doc.compositeDirty() && doc.belowDirty() && doc.aboveDirty());
}

void TestDocument::undoRedoRoundTrip()
{
    CanvasDocument doc(100, 70);
    paintActive(doc, Qt::red, QRect(3, 3, 20, 20));
    const QImage afterRed = doc.activeImage().copy();
    paintActive(doc, Qt::green, QRect(60, 40, 30, 25));
    const QImage afterGreen = doc.activeImage().copy();
    doc.flatComposite();
    QStringList log;
    recordSignals(&doc, &log);
    doc.appendStroke(Stroke{});
    doc.undo();
    QCOMPARE(log, QStringList({"strokes", "undo(1)", "redo(1)"}));
    QCOMPARE(doc.activeImage(), afterRed);
    QVERIFY(doc.strokes().isEmpty() && doc.compositeDirty());
    doc.undo();
    QCOMPARE(doc.activeImage(), filled(100, 70, Qt::transparent));
    doc.redo();
    doc.redo();
    QCOMPARE(doc.activeImage(), afterGreen);
    QVERIFY(!doc.canRedo());
    doc.undo();
    log.clear();
    paintActive(doc, Qt::blue, QRect(0, 0, 5, 5));
    QCOMPARE(log, QStringList({"undo(1)", "redo(0)"}));
    QVERIFY(!doc.canRedo());

    // At most twenty entries: the oldest one left goes back to the fifth action.
    for (int i = 0; i < 25; ++i)
        paintActive(doc, QColor(i * 10, 0, 0));
    int undos = 0;
    for (; doc.canUndo(); ++undos)
        doc.undo();
    QCOMPARE(undos, 20);
    QCOMPARE(doc.layerImage(0), filled(100, 70, QColor(40, 0, 0)));
    log.clear();
    doc.undo();
    QVERIFY(log.isEmpty());
    QCOMPARE(doc.redoDepth(), 20);
}

void TestDocument::stacksTravelWithLayer()
{
    CanvasDocument doc(4, 4);
    paintActive(doc, Qt::red);
    doc.addLayer();
    QVERIFY(!doc.canUndo());
    paintActive(doc, Qt::blue);
    doc.setActiveLayer(0);
    doc.undo();
    QStringList log;
    recordSignals(&doc, &log);
    doc.setActiveLayer(1);
    QCOMPARE(log, QStringList({"undo(1)", "redo(0)", "active(1)"}));
    log.clear();
    doc.setActiveLayer(0);
    QCOMPARE(log, QStringList({"undo(0)", "redo(1)", "active(0)"}));
    doc.redo();
    QCOMPARE(doc.layerImage(0), filled(4, 4, Qt::red));
    // Deleting a layer drops its stacks with it.
    doc.setActiveLayer(1);
    log.clear();
    doc.deleteLayer(1);
    QCOMPARE(log, QStringList({"undo(1)", "redo(0)", "layers", "active(0)"}));
    doc.undo();
    QCOMPARE(doc.layerImage(0), filled(4, 4, Qt::transparent));
}

void TestDocument::clearIsUndoableAndLocal()
{
    CanvasDocument doc(4, 4);
    paintActive(doc, Qt::red);
    doc.addLayer();
    paintActive(doc, Qt::blue);
    doc.setActiveLayer(0);
    doc.appendStroke(Stroke{});
    QStringList log;
    recordSignals(&doc, &log);
    doc.clear();
    QCOMPARE(log, QStringList({"undo(1)", "redo(0)", "layers", "strokes"}));
    QCOMPARE(doc.layerImage(0), filled(4, 4, Qt::transparent));
    QVERIFY(doc.strokes().isEmpty());
    doc.undo();
    QCOMPARE(doc.layerImage(0), filled(4, 4, Qt::red));
    QCOMPARE(doc.layerImage(1), filled(4, 4, Qt::blue));
}

// An entry holds the tiles the action changed, not a frame: a small stroke on
// a 1080p layer costs a few tiles, and every area marked between capture and
// commit is restored.
void TestDocument::undoKeepsOnlyChangedTiles()
{
    CanvasDocument doc(1920, 1080);
    doc.captureSnapshot();
    QPainter painter(&doc.activeImage());
    painter.fillRect(QRect(10, 10, 20, 20), Qt::red);
    painter.fillRect(QRect(1800, 1000, 100, 70), Qt::blue);
    painter.end();
    doc.markPainted(QRect(10, 10, 20, 20));
    doc.markPainted(QRect(1800, 1000, 100, 70));
    doc.commitSnapshot();
    const qsizetype tile = LayerEdit::TileSize * LayerEdit::TileSize * 4;
    QCOMPARE(doc.layers()[0].undoStack.size(), 0); // the active layer's stack is the document's
    doc.addLayer();
    const LayerEdit &entry = doc.layers()[0].undoStack.first();
    QVERIFY2(entry.bytes() <= 7 * tile, qPrintable(QString::number(entry.bytes())));
    doc.setActiveLayer(0);
    doc.undo();
    QCOMPARE(doc.activeImage(), filled(1920, 1080, Qt::transparent));
    doc.redo();
    QCOMPARE(doc.activeImage().pixel(1899, 1069), qRgb(0, 0, 255));
    QCOMPARE(doc.activeImage().pixel(29, 29), qRgb(255, 0, 0));
}

QTEST_APPLESS_MAIN(TestDocument)
#include "tst_document.moc"
