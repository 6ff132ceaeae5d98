#include "SignalLog.h"

#include "engine/CanvasDocument.h"

#include <QPainter>
#include <QtTest>

namespace {

QImage filled(int w, int h, QColor color, QImage::Format format = QImage::Format_RGBA8888)
{
    QImage image(w, h, format);
    image.fill(color);
    return image;
}

// Builds a document with `count` layers whose names are their creation
// order and whose pixels carry a distinct colour, so moves can be traced.
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

void paintActive(CanvasDocument &doc, QColor color)
{
    doc.captureSnapshot();
    doc.activeImage().fill(color);
    doc.markPainted();
    doc.commitSnapshot();
}

} // namespace

class TestDocument : public QObject {
    Q_OBJECT

private slots:
    void freshDocument();
    void addLayerNamesByCount();
    void deleteLayerActiveIndex_data();
    void deleteLayerActiveIndex();
    void deleteIgnored_data();
    void deleteIgnored();
    void moveLayerFollowsActive_data();
    void moveLayerFollowsActive();
    void moveDownUp_data();
    void moveDownUp();
    void setActiveLayerSignalsAndDirtyFlags();
    void setLayersNormalises();
    void setLayersEmptyAndClamped_data();
    void setLayersEmptyAndClamped();
    void setStrokesAndImage();
    void visibilityAndOpacity();
    void clearIsUndoableAndLocal();
    void undoDepthIsTwenty();
    void redoClearedByCommit();
    void stacksTravelWithLayer();
    void addLayerStartsEmptyStacks();
    void deleteLayerDropsItsStacks();
};

void TestDocument::freshDocument()
{
    CanvasDocument doc(64, 48);
    QCOMPARE(doc.layerCount(), 1);
    QCOMPARE(doc.layerName(0), QString("Layer 1"));
    QCOMPARE(doc.activeLayer(), 0);
    QCOMPARE(doc.layerImage(0), filled(64, 48, Qt::transparent));
    QVERIFY(doc.layerVisible(0));
    QCOMPARE(doc.layerOpacity(0), 1.0f);
    QVERIFY(!doc.canUndo());
    QVERIFY(!doc.canRedo());
    QVERIFY(doc.compositeDirty() && doc.belowDirty() && doc.aboveDirty());
}

void TestDocument::addLayerNamesByCount()
{
    CanvasDocument doc(8, 8);
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
}

void TestDocument::deleteLayerActiveIndex_data()
{
    QTest::addColumn<int>("count");
    QTest::addColumn<int>("active");
    QTest::addColumn<int>("deleted");
    QTest::addColumn<int>("expectedActive");
    QTest::addColumn<QStringList>("expectedNames");
    QTest::newRow("active top of three") << 3 << 2 << 2 << 1 << QStringList{"L0", "L1"};
    QTest::newRow("below active") << 3 << 2 << 0 << 1 << QStringList{"L1", "L2"};
    QTest::newRow("above active") << 3 << 0 << 2 << 0 << QStringList{"L0", "L1"};
    QTest::newRow("active bottom") << 3 << 0 << 0 << 0 << QStringList{"L1", "L2"};
    QTest::newRow("middle active") << 3 << 1 << 1 << 0 << QStringList{"L0", "L2"};
}

void TestDocument::deleteLayerActiveIndex()
{
    QFETCH(int, count);
    QFETCH(int, active);
    QFETCH(int, deleted);
    QFETCH(int, expectedActive);
    QFETCH(QStringList, expectedNames);
    CanvasDocument doc(8, 8);
    populate(doc, count);
    doc.setActiveLayer(active);
    QStringList log;
    recordSignals(&doc, &log);
    doc.deleteLayer(deleted);
    QCOMPARE(names(doc), expectedNames);
    QCOMPARE(doc.activeLayer(), expectedActive);
    QCOMPARE(log, QStringList(
                      {"undo(0)", "redo(0)", "layers", QString("active(%1)").arg(expectedActive)}));
}

void TestDocument::deleteIgnored_data()
{
    QTest::addColumn<int>("count");
    QTest::addColumn<int>("index");
    QTest::newRow("last layer") << 1 << 0;
    QTest::newRow("negative") << 2 << -1;
    QTest::newRow("past end") << 2 << 2;
}

void TestDocument::deleteIgnored()
{
    QFETCH(int, count);
    QFETCH(int, index);
    CanvasDocument doc(8, 8);
    populate(doc, count);
    QStringList log;
    recordSignals(&doc, &log);
    doc.deleteLayer(index);
    QCOMPARE(doc.layerCount(), count);
    QVERIFY(log.isEmpty());
}

void TestDocument::moveLayerFollowsActive_data()
{
    QTest::addColumn<int>("active");
    QTest::addColumn<int>("from");
    QTest::addColumn<int>("to");
    QTest::addColumn<QStringList>("expectedNames");
    QTest::addColumn<int>("expectedActive");
    const QStringList down{"L0", "L3", "L1", "L2", "L4"};
    const QStringList up{"L0", "L2", "L3", "L1", "L4"};
    QTest::newRow("down, moved is active") << 3 << 3 << 1 << down << 1;
    QTest::newRow("down, active inside range") << 1 << 3 << 1 << down << 2;
    QTest::newRow("down, active at from-1") << 2 << 3 << 1 << down << 3;
    QTest::newRow("down, active above from") << 4 << 3 << 1 << down << 4;
    QTest::newRow("down, active below to") << 0 << 3 << 1 << down << 0;
    QTest::newRow("up, moved is active") << 1 << 1 << 3 << up << 3;
    QTest::newRow("up, active inside range") << 2 << 1 << 3 << up << 1;
    QTest::newRow("up, active at to") << 3 << 1 << 3 << up << 2;
    QTest::newRow("up, active outside") << 4 << 1 << 3 << up << 4;
}

void TestDocument::moveLayerFollowsActive()
{
    QFETCH(int, active);
    QFETCH(int, from);
    QFETCH(int, to);
    QFETCH(QStringList, expectedNames);
    QFETCH(int, expectedActive);
    CanvasDocument doc(8, 8);
    populate(doc, 5);
    doc.setActiveLayer(active);
    const QString activeName = doc.layerName(active);
    QStringList log;
    recordSignals(&doc, &log);
    doc.moveLayer(from, to);
    QCOMPARE(names(doc), expectedNames);
    QCOMPARE(doc.activeLayer(), expectedActive);
    QCOMPARE(doc.layerName(doc.activeLayer()), activeName);
    QCOMPARE(log, QStringList({"layers", QString("active(%1)").arg(expectedActive)}));

    log.clear();
    doc.moveLayer(2, 2);
    doc.moveLayer(-1, 2);
    doc.moveLayer(0, 5);
    QVERIFY(log.isEmpty());
}

void TestDocument::moveDownUp_data()
{
    QTest::addColumn<bool>("down");
    QTest::addColumn<int>("index");
    QTest::addColumn<int>("active");
    QTest::addColumn<QStringList>("expectedNames");
    QTest::addColumn<int>("expectedActive");
    QTest::newRow("down active") << true << 2 << 2 << QStringList{"L0", "L2", "L1"} << 1;
    QTest::newRow("down below active") << true << 2 << 1 << QStringList{"L0", "L2", "L1"} << 2;
    QTest::newRow("down other") << true << 2 << 0 << QStringList{"L0", "L2", "L1"} << 0;
    QTest::newRow("down bottom ignored") << true << 0 << 0 << QStringList{"L0", "L1", "L2"} << 0;
    QTest::newRow("up active") << false << 0 << 0 << QStringList{"L1", "L0", "L2"} << 1;
    QTest::newRow("up above active") << false << 0 << 1 << QStringList{"L1", "L0", "L2"} << 0;
    QTest::newRow("up top ignored") << false << 2 << 2 << QStringList{"L0", "L1", "L2"} << 2;
}

void TestDocument::moveDownUp()
{
    QFETCH(bool, down);
    QFETCH(int, index);
    QFETCH(int, active);
    QFETCH(QStringList, expectedNames);
    QFETCH(int, expectedActive);
    CanvasDocument doc(8, 8);
    populate(doc, 3);
    doc.setActiveLayer(active);
    if (down)
        doc.moveLayerDown(index);
    else
        doc.moveLayerUp(index);
    QCOMPARE(names(doc), expectedNames);
    QCOMPARE(doc.activeLayer(), expectedActive);
}

void TestDocument::setActiveLayerSignalsAndDirtyFlags()
{
    CanvasDocument doc(8, 8);
    populate(doc, 3);
    doc.setCompositeClean();
    doc.setBelowClean();
    doc.setAboveClean();
    QStringList log;
    recordSignals(&doc, &log);
    doc.setActiveLayer(0);
    QCOMPARE(log, QStringList({"undo(0)", "redo(0)", "active(0)"}));
    QVERIFY(!doc.compositeDirty());
    QVERIFY(doc.belowDirty() && doc.aboveDirty());
    log.clear();
    doc.setActiveLayer(0);
    doc.setActiveLayer(3);
    QVERIFY(log.isEmpty());
}

void TestDocument::setLayersNormalises()
{
    CanvasDocument doc(4, 3);
    QList<CanvasLayer> layers(4);
    layers[0].name = "null";
    layers[1].name = "argb";
    layers[1].image = filled(4, 3, QColor(255, 0, 0, 128), QImage::Format_ARGB32);
    layers[2].name = "large";
    layers[2].image = filled(6, 5, Qt::blue);
    layers[3].name = "small";
    layers[3].image = filled(2, 2, Qt::green);
    layers[3].visible = false;
    layers[3].opacity = 0.25f;
    QStringList log;
    recordSignals(&doc, &log);
    doc.setLayers(layers, 2);
    QCOMPARE(log, QStringList({"undo(0)", "redo(0)", "layers", "active(2)"}));

    QCOMPARE(doc.layerImage(0), filled(4, 3, Qt::transparent));
    QCOMPARE(doc.layerImage(1).format(), QImage::Format_RGBA8888);
    QCOMPARE(doc.layerImage(1).pixelColor(3, 2), QColor(255, 0, 0, 128));
    QCOMPARE(doc.layerImage(2), filled(4, 3, Qt::blue));
    QImage small = doc.layerImage(3);
    QCOMPARE(small.size(), QSize(4, 3));
    QCOMPARE(small.format(), QImage::Format_RGBA8888);
    QCOMPARE(small.pixelColor(1, 1), QColor(Qt::green));
    QCOMPARE(small.pixelColor(2, 0).alpha(), 0);
    QCOMPARE(small.pixelColor(0, 2).alpha(), 0);
    QVERIFY(!doc.layerVisible(3));
    QCOMPARE(doc.layerOpacity(3), 0.25f);
}

void TestDocument::setLayersEmptyAndClamped_data()
{
    QTest::addColumn<int>("count");
    QTest::addColumn<int>("requested");
    QTest::addColumn<int>("expected");
    QTest::newRow("empty list") << 0 << 3 << 0;
    QTest::newRow("too high") << 2 << 9 << 1;
    QTest::newRow("negative") << 2 << -4 << 0;
}

void TestDocument::setLayersEmptyAndClamped()
{
    QFETCH(int, count);
    QFETCH(int, requested);
    QFETCH(int, expected);
    CanvasDocument doc(4, 4);
    paintActive(doc, Qt::red);
    doc.appendStroke(Stroke{});
    doc.setLayers(QList<CanvasLayer>(count), requested);
    QCOMPARE(doc.layerCount(), std::max(1, count));
    QCOMPARE(doc.activeLayer(), expected);
    if (count == 0)
        QCOMPARE(doc.layerName(0), QString("Layer 1"));
    QVERIFY(!doc.canUndo());
    QVERIFY(doc.strokes().isEmpty());
}

void TestDocument::setStrokesAndImage()
{
    CanvasDocument doc(4, 4);
    populate(doc, 3);
    Stroke stroke;
    stroke.points = {QPointF(1, 1)};
    QStringList log;
    recordSignals(&doc, &log);
    // No size normalisation here: the image keeps its own size.
    doc.setStrokesAndImage({stroke, stroke}, filled(5, 2, Qt::red, QImage::Format_ARGB32));
    QCOMPARE(log, QStringList({"undo(0)", "redo(0)", "layers", "active(0)"}));
    QCOMPARE(names(doc), QStringList{"Layer 1"});
    QCOMPARE(doc.strokes().size(), 2);
    QCOMPARE(doc.layerImage(0), filled(5, 2, Qt::red));
}

void TestDocument::visibilityAndOpacity()
{
    CanvasDocument doc(4, 4);
    doc.setCompositeClean();
    QStringList log;
    recordSignals(&doc, &log);
    doc.setLayerVisible(0, false);
    doc.setLayerOpacity(0, 3.0f);
    doc.setLayerVisible(5, false);
    QCOMPARE(log, QStringList({"layers", "strokes", "layers", "strokes"}));
    QVERIFY(!doc.layerVisible(0));
    QCOMPARE(doc.layerOpacity(0), 1.0f);
    QVERIFY(doc.compositeDirty() && doc.belowDirty());
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
    QCOMPARE(doc.layerImage(1), filled(4, 4, Qt::blue));
    QVERIFY(doc.strokes().isEmpty());
    doc.undo();
    QCOMPARE(doc.layerImage(0), filled(4, 4, Qt::red));
    QCOMPARE(doc.layerImage(1), filled(4, 4, Qt::blue));
}

void TestDocument::undoDepthIsTwenty()
{
    CanvasDocument doc(4, 4);
    for (int i = 0; i < 25; ++i)
        paintActive(doc, QColor(i * 10, 0, 0));
    int undos = 0;
    while (doc.canUndo()) {
        doc.undo();
        ++undos;
    }
    QCOMPARE(undos, 20);
    // The oldest surviving snapshot is the state after the fifth stroke.
    QCOMPARE(doc.layerImage(0), filled(4, 4, QColor(40, 0, 0)));
    QStringList log;
    recordSignals(&doc, &log);
    doc.undo();
    QVERIFY(log.isEmpty());
    QCOMPARE(doc.redoDepth(), 20);
}

void TestDocument::redoClearedByCommit()
{
    CanvasDocument doc(4, 4);
    paintActive(doc, Qt::red);
    paintActive(doc, Qt::green);
    QStringList log;
    recordSignals(&doc, &log);
    doc.undo();
    QCOMPARE(log, QStringList({"strokes", "undo(1)", "redo(1)"}));
    QCOMPARE(doc.layerImage(0), filled(4, 4, Qt::red));
    log.clear();
    paintActive(doc, Qt::blue);
    QCOMPARE(log, QStringList({"undo(1)", "redo(0)"}));
    QVERIFY(!doc.canRedo());
}

void TestDocument::stacksTravelWithLayer()
{
    CanvasDocument doc(4, 4);
    paintActive(doc, Qt::red);
    doc.addLayer();
    doc.setActiveLayer(0);
    doc.undo();
    QVERIFY(doc.canRedo());
    QStringList log;
    recordSignals(&doc, &log);
    doc.setActiveLayer(1);
    QCOMPARE(log, QStringList({"undo(0)", "redo(0)", "active(1)"}));
    log.clear();
    doc.setActiveLayer(0);
    QCOMPARE(log, QStringList({"undo(0)", "redo(1)", "active(0)"}));
    doc.redo();
    QCOMPARE(doc.layerImage(0), filled(4, 4, Qt::red));
}

void TestDocument::addLayerStartsEmptyStacks()
{
    CanvasDocument doc(4, 4);
    paintActive(doc, Qt::red);
    doc.addLayer();
    QVERIFY(!doc.canUndo());
    doc.setActiveLayer(0);
    QVERIFY(doc.canUndo());
}

void TestDocument::deleteLayerDropsItsStacks()
{
    CanvasDocument doc(4, 4);
    paintActive(doc, Qt::red);
    doc.addLayer();
    paintActive(doc, Qt::blue);
    QStringList log;
    recordSignals(&doc, &log);
    doc.deleteLayer(1);
    QCOMPARE(log, QStringList({"undo(1)", "redo(0)", "layers", "active(0)"}));
    doc.undo();
    QCOMPARE(doc.layerImage(0), filled(4, 4, Qt::transparent));
}

QTEST_APPLESS_MAIN(TestDocument)
#include "tst_document.moc"
