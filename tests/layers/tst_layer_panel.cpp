#include "LogCapture.h"
#include "Screenshot.h"

#include "canvas/CanvasWidget.h"
#include "layers/LayerPanel.h"
#include "widgets/ColorPickerWidget.h"
#include "widgets/Icons.h"
#include "widgets/TintedIcon.h"

#include <QFrame>
#include <QLabel>
#include <QScrollArea>
#include <QStyle>
#include <QToolButton>
#include <QtTest>

namespace {

void settle()
{
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QCoreApplication::processEvents();
}

template <typename T = QToolButton> T *part(QWidget *parent, const char *name)
{
    return parent->findChild<T *>(QLatin1String(name));
}

// A canvas of `layers` layers named "Layer 1".., the top one active, and a
// shown panel. States are written bottom layer first: "-" marks a hidden
// layer, "*" the active one.
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
        settle();
    }
    QList<QWidget *> rows() const { return panel.findChildren<QWidget *>("layerRow"); }
    QWidget *row(int r) const { return rows().at(r); }

    QString layers() const
    {
        QStringList out;
        for (int i = 0; i < canvas.layerCount(); ++i)
            out << (canvas.layerVisible(i) ? "" : "-") + canvas.layerName(i) +
                       (i == canvas.activeLayer() ? "*" : "");
        return out.join(' ');
    }
    // What the rows show, in the same notation; "?" marks an eye that does not
    // match its state and "!" a move button enabled at the wrong end.
    QString shown() const
    {
        QStringList out;
        const QList<QWidget *> all = rows();
        for (QWidget *row : all) {
            const bool active = row->styleSheet().contains("highlight");
            const QColor ink =
                panel.palette().color(active ? QPalette::HighlightedText : QPalette::ButtonText);
            auto *eye = part(row, "visibilityButton");
            const QString &svg = eye->isChecked() ? Icons::Eye : Icons::EyeOff;
            const bool eyeOk = eye->icon().pixmap(16).toImage() ==
                               tintedSvgIcon(svg, ink, QSize(16, 16)).pixmap(16).toImage();
            const bool movesOk = part(row, "upButton")->isEnabled() == (row != all.first()) &&
                                 part(row, "downButton")->isEnabled() == (row != all.last());
            out.prepend(QString(eye->isChecked() ? "" : "-") + (eyeOk ? "" : "?") +
                        (movesOk ? "" : "!") + part<QLabel>(row, "name")->text() +
                        (active ? "*" : ""));
        }
        return out.join(' ');
    }
};

} // namespace

class TestLayerPanel : public QObject {
    Q_OBJECT

private slots:
    void clicks_data();
    void clicks();
    void drop_data();
    void drop();
    void thumbnailsFollowTheirLayer();
    void builtHiddenRebuildsAtFirstShow();
    void heights_data();
    void heights();
    void screenshots();
};

void TestLayerPanel::clicks_data()
{
    QTest::addColumn<int>("count");
    QTest::addColumn<int>("active");
    QTest::addColumn<QString>("button"); // empty: the row itself
    QTest::addColumn<int>("row");        // the top row is 0; -1 the footer
    QTest::addColumn<QString>("layers");
    QTest::newRow("bottom row") << 3 << 2 << "" << 2 << "Layer 1* Layer 2 Layer 3";
    QTest::newRow("middle row") << 3 << 2 << "" << 1 << "Layer 1 Layer 2* Layer 3";
    QTest::newRow("eye, middle") << 3 << 2 << "visibilityButton" << 1
                                 << "Layer 1 -Layer 2 Layer 3*";
    QTest::newRow("eye, bottom") << 3 << 1 << "visibilityButton" << 2
                                 << "-Layer 1 Layer 2* Layer 3";
    QTest::newRow("up, bottom") << 3 << 2 << "upButton" << 2 << "Layer 2 Layer 1 Layer 3*";
    QTest::newRow("up, middle") << 3 << 1 << "upButton" << 1 << "Layer 1 Layer 3 Layer 2*";
    QTest::newRow("down, top") << 3 << 2 << "downButton" << 0 << "Layer 1 Layer 3* Layer 2";
    QTest::newRow("down, middle") << 3 << 0 << "downButton" << 1 << "Layer 2 Layer 1* Layer 3";
    QTest::newRow("delete middle") << 3 << 1 << "deleteButton" << -1 << "Layer 1* Layer 3";
    QTest::newRow("delete top") << 3 << 2 << "deleteButton" << -1 << "Layer 1 Layer 2*";
    QTest::newRow("delete last") << 1 << 0 << "deleteButton" << -1 << "Layer 1*";
    QTest::newRow("add") << 3 << 0 << "addButton" << -1 << "Layer 1 Layer 2 Layer 3 Layer 4*";
}

void TestLayerPanel::clicks()
{
    QFETCH(int, count);
    QFETCH(int, active);
    QFETCH(QString, button);
    QFETCH(int, row);
    QFETCH(QString, layers);
    Fixture f(count);
    f.canvas.setActiveLayer(active);
    settle();
    QWidget *target = row < 0 ? &f.panel : f.row(row);
    if (button.isEmpty())
        QTest::mouseClick(target, Qt::LeftButton, {}, QPoint(110, 19));
    else
        QTest::mouseClick(part(target, button.toLatin1()), Qt::LeftButton);
    settle();
    QCOMPARE(f.layers(), layers);
    QCOMPARE(f.shown(), layers);
    QCOMPARE(part(&f.panel, "deleteButton")->isEnabled(), f.canvas.layerCount() > 1);
}

void TestLayerPanel::drop_data()
{
    QTest::addColumn<int>("row");      // pressed; the top row is 0
    QTest::addColumn<QPoint>("nudge"); // the first move
    QTest::addColumn<int>("slot");     // 0 above the top row .. 4 below the last; -1 no drag
    QTest::addColumn<QString>("layers");
    const QPoint down(0, 10), up(0, -10);
    QTest::newRow("top below all") << 0 << down << 4 << "Layer 4* Layer 1 Layer 2 Layer 3";
    QTest::newRow("top between 1 and 2") << 0 << down << 2 << "Layer 1 Layer 2 Layer 4* Layer 3";
    QTest::newRow("bottom above all") << 3 << up << 0 << "Layer 2 Layer 3 Layer 4 Layer 1*";
    QTest::newRow("bottom between 0 and 1") << 3 << up << 1 << "Layer 2 Layer 3 Layer 1* Layer 4";
    QTest::newRow("middle down one") << 1 << down << 3 << "Layer 1 Layer 3* Layer 2 Layer 4";
    QTest::newRow("middle up one") << 2 << up << 1 << "Layer 1 Layer 3 Layer 2* Layer 4";
    QTest::newRow("own slot") << 1 << up << 1 << "Layer 1 Layer 2 Layer 3* Layer 4";
    QTest::newRow("slot below own") << 1 << down << 2 << "Layer 1 Layer 2 Layer 3* Layer 4";
    // A drag starts 8 px (|dx| + |dy|) away from the press.
    const QString still = "Layer 1 Layer 2 Layer 3 Layer 4*";
    QTest::newRow("7 right: a click") << 0 << QPoint(7, 0) << -1 << still;
    QTest::newRow("3 right 4 down: a click") << 0 << QPoint(3, 4) << -1 << still;
    QTest::newRow("4 right 4 down") << 0 << QPoint(4, 4) << 1 << still;
    QTest::newRow("8 up") << 0 << QPoint(0, -8) << 0 << still;
}

// A press activates the row; a drag drops it at the slot the indicator marks.
void TestLayerPanel::drop()
{
    QFETCH(int, row);
    QFETCH(QPoint, nudge);
    QFETCH(int, slot);
    QFETCH(QString, layers);
    Fixture f(4);
    QTest::mousePress(f.row(row), Qt::LeftButton, {}, QPoint(110, 19));
    settle(); // the press rebuilt the rows
    QWidget *list = f.row(0)->parentWidget();
    const QPoint pressed(110, row * 39 + 19),
        end = slot < 0 ? pressed + nudge : QPoint(110, slot * 39);
    QTest::mouseMove(list, pressed + nudge);
    QCOMPARE(f.row(row)->styleSheet().contains("dashed"), slot >= 0);
    QTest::mouseMove(list, end);
    auto *indicator = part<QFrame>(&f.panel, "dropIndicator");
    QCOMPARE(indicator->isVisible(), slot >= 0 && slot != row && slot != row + 1);
    if (indicator->isVisible()) // on the gap; the last one on the bottom row's lower edge
        QCOMPARE(indicator->y(), std::max(0, slot * 39 - (slot == 4 ? 1 : 0) - 2));
    QTest::mouseRelease(list, Qt::LeftButton, {}, end);
    settle();
    QVERIFY(!indicator->isVisible());
    QCOMPARE(f.layers(), layers);
    QCOMPARE(f.shown(), layers);
}

// Painting refreshes the active layer's row only; showing the panel refreshes all.
void TestLayerPanel::thumbnailsFollowTheirLayer()
{
    Fixture f(4);
    QList<CanvasLayer> layers;
    for (QColor c : {Qt::red, Qt::green, Qt::blue, Qt::white}) {
        layers.append({c.name(), QImage(64, 48, QImage::Format_RGBA8888)});
        layers.last().image.fill(c);
    }
    f.canvas.setLayers(layers, 1);
    f.canvas.setTool(int(Tool::FillBucket));
    f.canvas.resize(64, 48);
    f.canvas.show();
    QVERIFY(QTest::qWaitForWindowExposed(&f.canvas));
    settle();
    auto thumbnails = [&] {
        QStringList out;
        for (QWidget *row : f.rows())
            out.prepend(
                part<QLabel>(row, "thumbnail")->pixmap().toImage().pixelColor(20, 14).name());
        return out.join(' ');
    };
    QCOMPARE(thumbnails(), QStringLiteral("#ff0000 #00ff00 #0000ff #ffffff"));
    f.canvas.setBrushColor(Qt::yellow);
    QTest::mouseClick(&f.canvas, Qt::LeftButton, {}, QPoint(10, 10));
    QCOMPARE(thumbnails(), QStringLiteral("#ff0000 #ffff00 #0000ff #ffffff"));
    f.panel.hide();
    f.canvas.setBrushColor(Qt::black);
    QTest::mouseClick(&f.canvas, Qt::LeftButton, {}, QPoint(10, 10));
    f.panel.show();
    QCOMPARE(thumbnails(), QStringLiteral("#ff0000 #000000 #0000ff #ffffff"));
}

// Built hidden, the panel waits for its first show; it outlives its canvas.
void TestLayerPanel::builtHiddenRebuildsAtFirstShow()
{
    LogCapture log;
    auto *canvas = new CanvasWidget(32, 32);
    LayerPanel panel(canvas);
    canvas->addLayer();
    canvas->addLayer();
    QVERIFY(panel.findChildren<QWidget *>("layerRow").isEmpty());
    panel.show();
    QCOMPARE(panel.findChildren<QWidget *>("layerRow").size(), 3);
    panel.hide();
    panel.show(); // only refreshes the thumbnails
    QCOMPARE(log.matching("[PD] LayerPanel::rebuild: 3 layers in ").size(), 1);
    delete canvas;
    panel.onAddLayer();
    panel.onDeleteLayer();
    panel.rebuild();
    settle();
    QVERIFY(panel.findChildren<QWidget *>("layerRow").isEmpty());
}

void TestLayerPanel::heights_data()
{
    QTest::addColumn<int>("layers");
    QTest::addColumn<bool>("pinned");
    QTest::addColumn<int>("minimum");
    QTest::addColumn<int>("maximum");
    QTest::newRow("1") << 1 << false << 39 << 380;
    QTest::newRow("9") << 9 << false << 351 << 380;
    QTest::newRow("10") << 10 << false << 380 << 380;
    QTest::newRow("pinned") << 3 << true << 0 << QWIDGETSIZE_MAX;
}

// Unpinned the list grows to ten rows, pinned it fills; the pin button only asks.
void TestLayerPanel::heights()
{
    QFETCH(int, layers);
    QFETCH(bool, pinned);
    QFETCH(int, minimum);
    QFETCH(int, maximum);
    Fixture f(layers);
    QSignalSpy asked(&f.panel, &LayerPanel::pinToggled);
    f.panel.setPinned(!pinned);
    f.panel.setPinned(pinned);
    f.panel.rebuild();
    QCOMPARE(part(&f.panel, "pinButton")->isChecked(), pinned);
    QTest::mouseClick(part(&f.panel, "pinButton"), Qt::LeftButton);
    QCOMPARE(asked.count(), 1);
    auto *list = f.panel.findChild<QScrollArea *>();
    QCOMPARE(list->minimumHeight(), minimum);
    QCOMPARE(list->maximumHeight(), maximum);
}

// The panel and the colour picker in a dark and a light theme, for a person to look at.
void TestLayerPanel::screenshots()
{
    const QPalette light = QApplication::style()->standardPalette();
    QPalette dark = light;
    for (auto role : {QPalette::Window, QPalette::Base, QPalette::Button})
        dark.setColor(role, QColor(40, 40, 44));
    for (auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        dark.setColor(role, QColor(230, 230, 230));
    for (const auto &[theme, palette] : {std::pair("_dark", dark), {"_light", light}}) {
        QApplication::setPalette(palette);
        Fixture f;
        f.canvas.renameLayer(0, "Background");
        f.canvas.setLayerVisible(1, false);
        settle();
        QVERIFY(saveScreenshot(&f.panel, QString("layer_panel") + theme));
        ColorPickerWidget picker;
        picker.setColor(QColor(255, 136, 0));
        picker.resize(300, 292);
        QVERIFY(saveScreenshot(&picker, QString("color_picker") + theme));
    }
}

QTEST_MAIN(TestLayerPanel)
#include "tst_layer_panel.moc"
