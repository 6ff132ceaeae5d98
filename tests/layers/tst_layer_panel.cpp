#include "Screenshot.h"

#include "canvas/CanvasWidget.h"
#include "common/Log.h"
#include "layers/LayerPanel.h"

#include <QFrame>
#include <QLabel>
#include <QPointer>
#include <QRegularExpression>
#include <QScrollArea>
#include <QSignalSpy>
#include <QToolButton>
#include <QtTest>

namespace {

QStringList g_log;
void captureLog(const char *line)
{
    g_log.append(QString::fromUtf8(line));
}

template <typename T> T *part(QWidget *row, const char *name)
{
    return row->findChild<T *>(QLatin1String(name));
}

QStringList rowNames(const LayerPanel &panel)
{
    QStringList names;
    for (QWidget *row : panel.rows())
        names << part<QLabel>(row, "name")->text();
    return names;
}

QStringList layerNames(const CanvasWidget &canvas)
{
    QStringList names;
    for (int i = 0; i < canvas.layerCount(); ++i)
        names << canvas.layerName(i);
    return names;
}

void settle()
{
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QCoreApplication::processEvents();
}

QImage filled(int w, int h, const QColor &color)
{
    QImage image(w, h, QImage::Format_RGBA8888);
    image.fill(color);
    return image;
}

// A canvas of three layers, "Layer 3" on top and active, and a shown panel.
struct Fixture {
    CanvasWidget canvas{64, 48};
    LayerPanel panel{&canvas};

    explicit Fixture(int layers = 3)
    {
        for (int i = 1; i < layers; ++i)
            canvas.addLayer();
        panel.resize(260, 300);
        panel.show();
        QVERIFY(QTest::qWaitForWindowExposed(&panel));
    }

    QWidget *row(int r) const { return panel.rows().at(r); }
    QPoint centre(int r) const { return QPoint(110, LayerPanel::RowHeight / 2); }
};

} // namespace

class TestLayerPanel : public QObject {
    Q_OBJECT

private slots:
    void init() { g_log.clear(); }
    void initTestCase() { setLogSink(captureLog); }
    void cleanupTestCase() { setLogSink(nullptr); }

    void footer();
    void rowsTopLayerFirst();
    void deleteDisabledWithOneLayer();
    void addAndDeleteButtons();
    void builtHiddenRebuildsAtFirstShow();
    void minimumHeights_data();
    void minimumHeights();
    void pinning();
    void clickActivatesLayer();
    void dragThreshold_data();
    void dragThreshold();
    void dragTopRowBelowLast();
    void dropOnOwnSlotsDoesNothing_data();
    void dropOnOwnSlotsDoesNothing();
    void dragNonActiveRowUp();
    void dropIndicatorBetweenRows();
    void visibilityClickWhileRowIsRebuilt();
    void moveButtonsWhileRowIsRebuilt();
    void thumbnailsFollowPixels();
    void panelOutlivesCanvas();
    void screenshots();
};

void TestLayerPanel::footer()
{
    Fixture f(1);
    QCOMPARE(f.panel.minimumWidth(), 220);
    QToolButton *pin = f.panel.pinButton();
    QVERIFY(pin->isCheckable());
    QVERIFY(!pin->isChecked());
    QCOMPARE(pin->toolTip(), QStringLiteral("Pin panel to the side"));
    QCOMPARE(pin->iconSize(), QSize(18, 18));
    QCOMPARE(f.panel.deleteButton()->text(), QString(QChar(0x2212)));
    QCOMPARE(f.panel.deleteButton()->toolTip(), QStringLiteral("Delete active layer"));
    auto *add = f.panel.findChild<QToolButton *>(QStringLiteral("addButton"));
    QCOMPARE(add->text(), QStringLiteral("+"));
    QCOMPARE(add->toolTip(), QStringLiteral("Add layer"));
}

void TestLayerPanel::rowsTopLayerFirst()
{
    Fixture f;
    f.canvas.renameLayer(1, QStringLiteral("Sketch"));
    settle();
    QCOMPARE(rowNames(f.panel), QStringList({"Layer 3", "Sketch", "Layer 1"}));
    QCOMPARE(f.panel.rowLayers(), QList<int>({2, 1, 0}));
    QCOMPARE(f.row(0)->styleSheet(), QStringLiteral("background: palette(highlight);"));
    QCOMPARE(f.row(1)->styleSheet(), QString());
    QCOMPARE(part<QLabel>(f.row(0), "name")->styleSheet(),
             QStringLiteral("color: palette(highlighted-text);"));
    QCOMPARE(f.row(0)->height(), 38);
    QCOMPARE(f.row(1)->y() - f.row(0)->y(), 39);

    // Up is off for the top layer, down for the bottom one.
    QVERIFY(!part<QToolButton>(f.row(0), "upButton")->isEnabled());
    QVERIFY(part<QToolButton>(f.row(0), "downButton")->isEnabled());
    QVERIFY(part<QToolButton>(f.row(2), "upButton")->isEnabled());
    QVERIFY(!part<QToolButton>(f.row(2), "downButton")->isEnabled());
    QCOMPARE(part<QToolButton>(f.row(0), "upButton")->text(), QString(QChar(0x25B2)));
    QCOMPARE(part<QToolButton>(f.row(0), "downButton")->text(), QString(QChar(0x25BC)));
}

void TestLayerPanel::deleteDisabledWithOneLayer()
{
    Fixture f(1);
    QCOMPARE(f.panel.rows().size(), 1);
    QVERIFY(!f.panel.deleteButton()->isEnabled());
    QSignalSpy layers(&f.canvas, &CanvasWidget::layersChanged);
    f.panel.onDeleteLayer();
    QCOMPARE(f.canvas.layerCount(), 1);
    QCOMPARE(layers.count(), 0);
    QVERIFY(!part<QToolButton>(f.row(0), "upButton")->isEnabled());
    QVERIFY(!part<QToolButton>(f.row(0), "downButton")->isEnabled());
}

void TestLayerPanel::addAndDeleteButtons()
{
    Fixture f(1);
    auto *add = f.panel.findChild<QToolButton *>(QStringLiteral("addButton"));
    QTest::mouseClick(add, Qt::LeftButton);
    QCOMPARE(f.canvas.layerCount(), 2);
    QVERIFY(f.panel.deleteButton()->isEnabled());
    QCOMPARE(rowNames(f.panel), QStringList({"Layer 2", "Layer 1"}));

    f.canvas.setActiveLayer(0);
    QTest::mouseClick(f.panel.deleteButton(), Qt::LeftButton);
    settle();
    QCOMPARE(layerNames(f.canvas), QStringList({"Layer 2"}));
    QVERIFY(!f.panel.deleteButton()->isEnabled());
}

void TestLayerPanel::builtHiddenRebuildsAtFirstShow()
{
    CanvasWidget canvas(32, 32);
    canvas.addLayer();
    LayerPanel panel(&canvas);
    QVERIFY(panel.rows().isEmpty());
    canvas.addLayer();
    QVERIFY(panel.rows().isEmpty());
    QVERIFY(g_log.isEmpty());

    panel.show();
    QCOMPARE(rowNames(panel), QStringList({"Layer 3", "Layer 2", "Layer 1"}));
    QCOMPARE(g_log.size(), 1);
    QVERIFY2(
        QRegularExpression(QStringLiteral("^\\[PD\\] LayerPanel::rebuild: 3 layers in \\d+ ms$"))
            .match(g_log.at(0))
            .hasMatch(),
        qPrintable(g_log.at(0)));

    // Showing again only refreshes thumbnails.
    panel.hide();
    panel.show();
    QCOMPARE(g_log.size(), 1);
}

void TestLayerPanel::minimumHeights_data()
{
    QTest::addColumn<int>("layers");
    QTest::addColumn<int>("minimum");
    QTest::newRow("1") << 1 << 39;
    QTest::newRow("2") << 2 << 78;
    QTest::newRow("9") << 9 << 351;
    QTest::newRow("10") << 10 << 380;
    QTest::newRow("14") << 14 << 380;
}

void TestLayerPanel::minimumHeights()
{
    QFETCH(int, layers);
    QFETCH(int, minimum);
    Fixture f(layers);
    QCOMPARE(f.panel.scrollArea()->minimumHeight(), minimum);
    QCOMPARE(f.panel.scrollArea()->maximumHeight(), 380);
}

void TestLayerPanel::pinning()
{
    Fixture f(2);
    QSignalSpy toggled(&f.panel, &LayerPanel::pinToggled);
    f.panel.setPinned(true);
    QVERIFY(f.panel.pinButton()->isChecked());
    QCOMPARE(toggled.count(), 0);
    QCOMPARE(f.panel.scrollArea()->minimumHeight(), 0);
    QCOMPARE(f.panel.scrollArea()->maximumHeight(), QWIDGETSIZE_MAX);
    // Rebuilds while pinned leave the heights alone.
    f.canvas.addLayer();
    QCOMPARE(f.panel.scrollArea()->minimumHeight(), 0);

    f.panel.setPinned(false);
    QVERIFY(!f.panel.pinButton()->isChecked());
    QCOMPARE(f.panel.scrollArea()->minimumHeight(), 117);
    QCOMPARE(f.panel.scrollArea()->maximumHeight(), 380);

    // The button only tells; the window decides.
    QTest::mouseClick(f.panel.pinButton(), Qt::LeftButton);
    QCOMPARE(toggled.count(), 1);
    QVERIFY(!f.panel.isPinned());
}

void TestLayerPanel::clickActivatesLayer()
{
    Fixture f;
    QSignalSpy active(&f.canvas, &CanvasWidget::activeLayerChanged);
    QTest::mouseClick(f.row(2), Qt::LeftButton, {}, f.centre(2));
    QCOMPARE(f.canvas.activeLayer(), 0);
    QCOMPARE(active.count(), 1);
    QCOMPARE(f.row(2)->styleSheet(), QStringLiteral("background: palette(highlight);"));
    QCOMPARE(f.row(0)->styleSheet(), QString());
    QCOMPARE(f.canvas.layerCount(), 3);
    QVERIFY(!f.panel.isDragging());
}

void TestLayerPanel::dragThreshold_data()
{
    QTest::addColumn<QPoint>("offset");
    QTest::addColumn<bool>("drags");
    QTest::newRow("7 right") << QPoint(7, 0) << false;
    QTest::newRow("7 up") << QPoint(0, -7) << false;
    QTest::newRow("3 right 4 down") << QPoint(3, 4) << false;
    QTest::newRow("4 right 4 down") << QPoint(4, 4) << true;
    QTest::newRow("8 left") << QPoint(-8, 0) << true;
}

void TestLayerPanel::dragThreshold()
{
    QFETCH(QPoint, offset);
    QFETCH(bool, drags);
    Fixture f;
    QTest::mousePress(f.row(0), Qt::LeftButton, {}, f.centre(0));
    QCOMPARE(f.panel.dragRow(), 0);
    QTest::mouseMove(f.row(0), f.centre(0) + offset);
    QCOMPARE(f.panel.isDragging(), drags);
    QCOMPARE(f.row(0)->styleSheet(),
             drags ? QStringLiteral("background: palette(mid); border: 1px dashed "
                                    "palette(bright-text);")
                   : QStringLiteral("background: palette(highlight);"));
    QSignalSpy layers(&f.canvas, &CanvasWidget::layersChanged);
    QTest::mouseRelease(f.row(0), Qt::LeftButton, {}, f.centre(0) + offset);
    QCOMPARE(layers.count(), 0);
    QCOMPARE(f.panel.dragRow(), -1);
    QVERIFY(!f.panel.isDragging());
    QCOMPARE(f.row(0)->styleSheet(), QStringLiteral("background: palette(highlight);"));
}

void TestLayerPanel::dragTopRowBelowLast()
{
    Fixture f;
    f.canvas.renameLayer(2, QStringLiteral("Top"));
    settle();
    QWidget *top = f.row(0);
    QTest::mousePress(top, Qt::LeftButton, {}, f.centre(0));
    QTest::mouseMove(top, f.centre(0) + QPoint(0, 10));
    QVERIFY(f.panel.isDragging());
    // Past the bottom edge of the last row.
    const QPoint below = top->mapFromGlobal(f.row(2)->mapToGlobal(QPoint(110, 48)));
    QTest::mouseMove(top, below);
    QCOMPARE(f.panel.dropSlot(), 3);
    QVERIFY(f.panel.dropIndicator()->isVisible());

    QSignalSpy layers(&f.canvas, &CanvasWidget::layersChanged);
    QTest::mouseRelease(top, Qt::LeftButton, {}, below);
    QCOMPARE(layers.count(), 1);
    QCOMPARE(layerNames(f.canvas), QStringList({"Top", "Layer 1", "Layer 2"}));
    QCOMPARE(f.canvas.activeLayer(), 0);
    QCOMPARE(rowNames(f.panel), QStringList({"Layer 2", "Layer 1", "Top"}));
    QVERIFY(!f.panel.dropIndicator()->isVisible());
    settle();
    QVERIFY(!f.panel.isDragging());
}

void TestLayerPanel::dropOnOwnSlotsDoesNothing_data()
{
    QTest::addColumn<int>("slotY"); // in the dragged row's coordinates
    QTest::addColumn<int>("slot");
    QTest::newRow("own slot") << 2 << 1;
    QTest::newRow("slot below") << 38 + 5 << 2;
}

void TestLayerPanel::dropOnOwnSlotsDoesNothing()
{
    QFETCH(int, slotY);
    QFETCH(int, slot);
    Fixture f;
    f.canvas.setActiveLayer(1);
    settle();
    QWidget *middle = f.row(1);
    QTest::mousePress(middle, Qt::LeftButton, {}, QPoint(110, 19));
    QTest::mouseMove(middle, QPoint(130, 19));
    QVERIFY(f.panel.isDragging());
    QTest::mouseMove(middle, QPoint(110, slotY));
    QCOMPARE(f.panel.dropSlot(), slot);
    QVERIFY(!f.panel.dropIndicator()->isVisible());
    QSignalSpy layers(&f.canvas, &CanvasWidget::layersChanged);
    QTest::mouseRelease(middle, Qt::LeftButton, {}, QPoint(110, slotY));
    QCOMPARE(layers.count(), 0);
    QCOMPARE(layerNames(f.canvas), QStringList({"Layer 1", "Layer 2", "Layer 3"}));
}

void TestLayerPanel::dragNonActiveRowUp()
{
    Fixture f;
    // The press activates the bottom layer and the drag carries on over the
    // rebuilt rows.
    QTest::mousePress(f.row(2), Qt::LeftButton, {}, f.centre(2));
    QCOMPARE(f.canvas.activeLayer(), 0);
    QCOMPARE(f.panel.dragRow(), 2);
    settle(); // lays out the rebuilt rows and deletes the pressed one
    QVERIFY(f.panel.dragRow() == 2);
    QWidget *bottom = f.row(2);
    QTest::mouseMove(bottom, f.centre(2) + QPoint(0, -10));
    QVERIFY(f.panel.isDragging());
    const QPoint aboveAll = bottom->mapFromGlobal(f.row(0)->mapToGlobal(QPoint(110, 3)));
    QTest::mouseMove(bottom, aboveAll);
    QCOMPARE(f.panel.dropSlot(), 0);
    QTest::mouseRelease(bottom, Qt::LeftButton, {}, aboveAll);
    QCOMPARE(layerNames(f.canvas), QStringList({"Layer 2", "Layer 3", "Layer 1"}));
    QCOMPARE(f.canvas.activeLayer(), 2);
    settle();
}

void TestLayerPanel::dropIndicatorBetweenRows()
{
    Fixture f(4);
    QWidget *top = f.row(0);
    QTest::mousePress(top, Qt::LeftButton, {}, f.centre(0));
    // Just above the boundary between rows 1 and 2: slot 2.
    const QPoint between = top->mapFromGlobal(f.row(2)->mapToGlobal(QPoint(110, -5)));
    QTest::mouseMove(top, between);
    QCOMPARE(f.panel.dropSlot(), 2);
    QFrame *indicator = f.panel.dropIndicator();
    QVERIFY(indicator->isVisible());
    QCOMPARE(indicator->geometry(),
             QRect(3, 2 * 39 - 2, f.panel.scrollArea()->viewport()->width() - 6, 4));
    QVERIFY(saveScreenshot(&f.panel, QStringLiteral("layer_panel_dragging")));

    // The last slot sits one pixel higher, on the last row's bottom edge.
    const QPoint last = top->mapFromGlobal(f.row(3)->mapToGlobal(QPoint(110, 30)));
    QTest::mouseMove(top, last);
    QCOMPARE(f.panel.dropSlot(), 4);
    QCOMPARE(indicator->y(), 4 * 39 - 1 - 2);
    QTest::mouseRelease(top, Qt::LeftButton, {}, last);
    QCOMPARE(layerNames(f.canvas), QStringList({"Layer 4", "Layer 1", "Layer 2", "Layer 3"}));
}

void TestLayerPanel::visibilityClickWhileRowIsRebuilt()
{
    Fixture f;
    QPointer<QWidget> oldRow = f.row(1);
    auto *eye = part<QToolButton>(oldRow, "visibilityButton");
    QVERIFY(eye->isChecked());
    QTest::mouseClick(eye, Qt::LeftButton);
    QVERIFY(!f.canvas.layerVisible(1));
    QCOMPARE(f.canvas.activeLayer(), 2); // the row itself was not clicked
    QVERIFY(f.row(1) != oldRow.data());
    settle();
    QVERIFY(oldRow.isNull());
    QVERIFY(!part<QToolButton>(f.row(1), "visibilityButton")->isChecked());

    QTest::mouseClick(part<QToolButton>(f.row(1), "visibilityButton"), Qt::LeftButton);
    settle();
    QVERIFY(f.canvas.layerVisible(1));
    QVERIFY(part<QToolButton>(f.row(1), "visibilityButton")->isChecked());
}

void TestLayerPanel::moveButtonsWhileRowIsRebuilt()
{
    Fixture f;
    QPointer<QWidget> oldRow = f.row(2);
    QTest::mouseClick(part<QToolButton>(oldRow, "upButton"), Qt::LeftButton);
    QCOMPARE(layerNames(f.canvas), QStringList({"Layer 2", "Layer 1", "Layer 3"}));
    settle();
    QVERIFY(oldRow.isNull());

    QTest::mouseClick(part<QToolButton>(f.row(0), "downButton"), Qt::LeftButton);
    QCOMPARE(layerNames(f.canvas), QStringList({"Layer 2", "Layer 3", "Layer 1"}));
    QCOMPARE(f.canvas.activeLayer(), 1);
    // Clicks in quick succession, each on a row the previous click replaced.
    QTest::mouseClick(part<QToolButton>(f.row(1), "downButton"), Qt::LeftButton);
    QTest::mouseClick(part<QToolButton>(f.row(2), "upButton"), Qt::LeftButton);
    settle();
    QCOMPARE(layerNames(f.canvas), QStringList({"Layer 2", "Layer 3", "Layer 1"}));
    QCOMPARE(rowNames(f.panel), QStringList({"Layer 1", "Layer 3", "Layer 2"}));
}

void TestLayerPanel::thumbnailsFollowPixels()
{
    Fixture f(2);
    QList<CanvasLayer> layers(2);
    layers[0].name = QStringLiteral("Red");
    layers[0].image = filled(64, 48, Qt::red);
    layers[1].name = QStringLiteral("Blue");
    layers[1].image = filled(64, 48, Qt::blue);
    f.canvas.setLayers(layers, 1);
    const QImage top = part<QLabel>(f.row(0), "thumbnail")->pixmap().toImage();
    const QImage bottom = part<QLabel>(f.row(1), "thumbnail")->pixmap().toImage();
    QCOMPARE(top.size(), QSize(40, 28));
    QCOMPARE(top.pixelColor(20, 14), QColor(Qt::blue));
    QCOMPARE(bottom.pixelColor(20, 14), QColor(Qt::red));

    // Clearing the active layer refreshes its thumbnail.
    f.canvas.clear();
    const QImage cleared = part<QLabel>(f.row(0), "thumbnail")->pixmap().toImage();
    QVERIFY(cleared.pixelColor(20, 14) != QColor(Qt::blue));
}

void TestLayerPanel::panelOutlivesCanvas()
{
    auto *canvas = new CanvasWidget(16, 16);
    LayerPanel panel(canvas);
    panel.show();
    QCOMPARE(panel.rows().size(), 1);
    delete canvas;
    panel.onAddLayer();
    panel.onDeleteLayer();
    panel.rebuild();
    QVERIFY(panel.rows().isEmpty());
}

void TestLayerPanel::screenshots()
{
    Fixture f(3);
    QList<CanvasLayer> layers(3);
    const QColor colours[] = {QColor(230, 90, 40), QColor(40, 160, 90), QColor(60, 90, 220)};
    const char *names[] = {"Background", "Sketch", "Ink"};
    for (int i = 0; i < 3; ++i) {
        layers[i].name = QString::fromLatin1(names[i]);
        layers[i].image = QImage(64, 48, QImage::Format_RGBA8888);
        layers[i].image.fill(Qt::transparent);
        for (int y = 8 * i; y < 8 * i + 24; ++y)
            for (int x = 10 * i; x < 10 * i + 30; ++x)
                layers[i].image.setPixelColor(x, y, colours[i]);
    }
    layers[1].visible = false;
    f.canvas.setLayers(layers, 2);
    settle();
    QVERIFY(saveScreenshot(&f.panel, QStringLiteral("layer_panel")));
}

QTEST_MAIN(TestLayerPanel)
#include "tst_layer_panel.moc"
