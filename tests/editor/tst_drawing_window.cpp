#include "EditorTestInput.h"
#include "LogCapture.h"
#include "Screenshot.h"

#include "canvas/CanvasWidget.h"
#include "coop/CoopCanvas.h"
#include "coop/CoopSession.h"
#include "editor/CoopUsersPopup.h"
#include "editor/DrawingWindow.h"
#include "engine/Stroke.h"
#include "layers/LayerPanel.h"
#include "widgets/ColorPickerWidget.h"
#include "widgets/LongPressButton.h"

#include <QButtonGroup>
#include <QFrame>
#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <QRegularExpression>
#include <QSettings>
#include <QShortcut>
#include <QSlider>
#include <QSpinBox>
#include <QTemporaryDir>
#include <QThread>
#include <QToolButton>
#include <QtTest>

#include <memory>

using namespace EditorTestInput;

namespace {

std::unique_ptr<DrawingWindow> newWindow(bool coop = false)
{
    return std::make_unique<DrawingWindow>(nullptr, nullptr, coop);
}

QSettings store()
{
    return QSettings(QStringLiteral("PennoriaDraw"), QStringLiteral("Canvas"));
}

// Every pop-up of the window with the slot that opens it and its button.
struct PopupCase {
    QFrame *popup;
    QWidget *anchor;
    std::function<void()> open;
    std::function<bool()> isOpen;
};

PopupCase popupCase(DrawingWindow *w, const QString &name)
{
    if (name == "colorPickerSection")
        return {w->colorSection(), w->colorButton(), [w] { w->toggleColorPicker(); },
                [w] { return w->isColorSectionOpen(); }};
    if (name == "jitterPopup")
        return {w->jitterPopup(), w->jitterButton(), [w] { w->onJitterBtnLongPress(); },
                [w] { return w->isJitterPopupOpen(); }};
    if (name == "fillPopup")
        return {w->fillPopup(), w->fillButton(), [w] { w->onFbBtnLongPress(); },
                [w] { return w->isFillPopupOpen(); }};
    if (name == "shapesPopup")
        return {w->shapesPopup(), w->shapesButton(), [w] { w->shapesButton()->click(); },
                [w] { return w->isShapesPopupOpen(); }};
    if (name == "previewPopup")
        return {w->previewPopup(), w->previewButton(), [w] { w->onPreviewBtnLongPress(); },
                [w] { return w->isPreviewPopupOpen(); }};
    return {w->layersPopup(), w->layersButton(), [w] { w->onLayersClicked(); },
            [w] { return w->isLayersPopupOpen(); }};
}

QString popupStyle(const QString &name)
{
    return QStringLiteral("#%1 { background: palette(window); border: 1px solid palette(mid); "
                          "border-radius: 4px; }")
        .arg(name);
}

QStringList labelTexts(QWidget *row)
{
    QStringList texts;
    for (QLabel *label : row->findChildren<QLabel *>(Qt::FindDirectChildrenOnly))
        texts << label->text();
    return texts;
}

QStringList kickTooltips(QWidget *row)
{
    QStringList tips;
    for (QToolButton *button : row->findChildren<QToolButton *>(Qt::FindDirectChildrenOnly))
        tips << button->text() + " " + button->toolTip();
    return tips;
}

CoopUser user(int id, const QString &nick, int ping, bool host, bool self)
{
    CoopUser u;
    u.id = id;
    u.nick = nick;
    u.pingMs = ping;
    u.isHost = host;
    u.isSelf = self;
    return u;
}

QString undoLine(const char *kind, const char *key, int active, const char *activeWin,
                 const QByteArray &focus)
{
    return QString::asprintf("[PD-Undo] %-16s key=%s | thisActive=%d activeWin=%s focus=%s recv=%s",
                             kind, key, active, activeWin, focus.constData(), focus.constData());
}

// A source whose hand-off of the live image takes longer than the editor's
// budget, as a busy graphics thread can make it.
class SlowSource final : public EditorSource {
public:
    int liveImages = 0;
    QSize canvasSize() const override { return QSize(640, 360); }
    QString canvasKey() const override { return QString(); }
    void commit(const QVector<Stroke> &, const QImage &) override {}
    void setLiveImage(const QImage &) override
    {
        ++liveImages;
        QThread::msleep(12);
    }
    void setJitterEnabled(bool) override {}
    void setJitterAmount(float) override {}
    void setJitterInterval(float) override {}
    QImage captureScene() override { return QImage(); }
    void setRemovedCallback(std::function<void()>) override {}
};
} // namespace

class TestDrawingWindow : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void titleAndControlRow();
    void popupsAreHiddenFramesWithTheirStyle_data();
    void popupsAreHiddenFramesWithTheirStyle();
    void brushSpinAboveSliderRange();
    void brushSliderDrivesSpinAndCanvas();
    void wiggleSpeedMapsToInterval_data();
    void wiggleSpeedMapsToInterval();
    void wiggleAmountMapsToPixels_data();
    void wiggleAmountMapsToPixels();
    void colourAndOpacityReachCanvasAndSwatch();
    void pressOutsidePopupClosesIt_data();
    void pressOutsidePopupClosesIt();
    void wiggleOffClosesItsPopup();
    void toolChangeClosesShapesPopup();
    void shapeModeSetsShapesIcon();
    void layersDoNothingWhilePinned();
    void popupStaysInsideWindow();

    void settingsAppliedWithClamps_data();
    void settingsAppliedWithClamps();
    void settingsWrittenOnClose();

    void ctrlZInSpinBoxUndoes();
    void redoChords_data();
    void redoChords();
    void inactiveWindowOnlyLogs();
    void coopWindowNeitherLogsNorClaims();

    void coopWindowFlavour();
    void coopStrokesGoToSharedPicture();
    void usersPopupRowsAsHost();
    void usersPopupRowsAsClient();
    void usersPopupAlignsWithButton();
    void usersPopupFollowsLiveSession();
    void coopWindowFollowsSession();

    void slowHandOffIsLogged();
    void screenshotsOfPopups();

private:
    QTemporaryDir m_settings;
    LogCapture m_log;
};

void TestDrawingWindow::initTestCase()
{
    QVERIFY(m_settings.isValid());
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, m_settings.path());
    QSettings::setPath(QSettings::IniFormat, QSettings::UserScope, m_settings.path());
}

void TestDrawingWindow::init()
{
    store().clear();
    LogCapture::clear();
}

void TestDrawingWindow::cleanup()
{
    CoopCanvas::instance().clear();
}

void TestDrawingWindow::slowHandOffIsLogged()
{
    auto source = std::make_unique<SlowSource>();
    SlowSource *slow = source.get();
    DrawingWindow window(std::move(source), nullptr, false);
    window.resize(900, 600);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    QWidget *canvas = window.canvas();
    QTest::qWait(40); // past the shared throttle of any earlier window
    LogCapture::clear();
    press(canvas, QPointF(100, 100));
    moveTo(canvas, QPointF(160, 120));
    release(canvas, QPointF(160, 120));

    QCOMPARE(slow->liveImages, 1);
    const QStringList lines = LogCapture::matching("[PD] onDrawingUpdated:");
    QCOMPARE(lines.size(), 1);
    static const QRegularExpression format(
        QStringLiteral("^\\[PD\\] onDrawingUpdated: composite \\d+ ms \\| upload (\\d+) ms$"));
    const QRegularExpressionMatch match = format.match(lines.first());
    QVERIFY2(match.hasMatch(), qPrintable(lines.first()));
    QVERIFY(match.captured(1).toInt() >= 12);
}

void TestDrawingWindow::titleAndControlRow()
{
    auto w = newWindow();
    QCOMPARE(w->windowTitle(), QString("Pennoria Canvas \u2014 Draw"));
    QVERIFY(!w->isModal());
    QCOMPARE(w->colorButton()->size(), QSize(28, 28));
    QCOMPARE(w->colorButton()->toolTip(), QString("Toggle colour picker"));
    QCOMPARE(w->colorButton()->styleSheet(),
             QString("background-color: #ff000000; border: 1px solid #888;"));
    QCOMPARE(w->undoButton()->toolTip(), QString("Undo  (Ctrl+Z)"));
    QCOMPARE(w->redoButton()->toolTip(), QString("Redo  (Ctrl+Y  /  Ctrl+Shift+Z)"));
    QCOMPARE(w->undoButton()->iconSize(), QSize(24, 24));
    QVERIFY(!w->undoButton()->isEnabled());
    QVERIFY(!w->redoButton()->isEnabled());
    QCOMPARE(w->brushSlider()->width(), 110);
    QCOMPARE(w->brushSlider()->maximum(), 150);
    QCOMPARE(w->brushSpin()->maximum(), 9999);
    QCOMPARE(w->brushSpin()->suffix(), QString(" px"));
    QCOMPARE(w->brushSpin()->value(), 8);

    const QStringList tips{"Brush", "Eraser", "Fill Bucket  (hold for tolerance)", "Shapes"};
    for (int id = 0; id < 4; ++id) {
        QAbstractButton *button = w->toolGroup()->button(id);
        QCOMPARE(button->toolTip(), tips[id]);
        QCOMPARE(button->size(), QSize(32, 32));
        QCOMPARE(button->iconSize(), QSize(20, 20));
        QVERIFY(button->isCheckable());
    }
    QCOMPARE(w->toolGroup()->checkedId(), 0);
    QVERIFY(w->fillButton()->showIndicator);
    QCOMPARE(w->jitterButton()->toolTip(), QString("Jitter  (hold for amount)"));
    QVERIFY(w->jitterButton()->isCheckable());
    QVERIFY(!w->toolGroup()->buttons().contains(w->jitterButton()));
    QCOMPARE(w->previewButton()->toolTip(), QString("Preview Scene  (hold for opacity)"));
    QCOMPARE(w->layersButton()->toolTip(), QString("Layers"));
    QVERIFY(w->layersButton()->autoRaise());
    QCOMPARE(w->clearButton()->text(), QString("Clear"));
    QCOMPARE(w->clearButton()->minimumWidth(), 64);

    auto *toolBox = w->findChild<QFrame *>("toolBox");
    QVERIFY(toolBox);
    QCOMPARE(toolBox->frameStyle(), 17);
    QCOMPARE(toolBox->styleSheet(),
             QString("QFrame#toolBox { border: 1px solid palette(mid); border-radius: 3px;         "
                     "         background: palette(button); padding: 1px; }QPushButton { border: "
                     "none; border-radius: 2px; padding: 2px; min-width: 0px; }QPushButton:checked "
                     "{ background: palette(highlight);                       color: "
                     "palette(highlighted-text); }QPushButton:hover:!checked { background: "
                     "palette(midlight); }"));

    CanvasWidget *canvas = w->canvas();
    QCOMPARE(canvas->canvasWidth(), 1920);
    QCOMPARE(canvas->minimumSize(), QSize(320, 180));
    QCOMPARE(canvas->focusPolicy(), Qt::StrongFocus);
    QCOMPARE(w->saveTimer()->interval(), 1500);
    QVERIFY(w->saveTimer()->isSingleShot());
    QCOMPARE(w->previewTimer()->interval(), 100);
}

void TestDrawingWindow::popupsAreHiddenFramesWithTheirStyle_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("frameStyle");
    QTest::newRow("colour") << "colorPickerSection" << 0;
    QTest::newRow("jitter") << "jitterPopup" << 17;
    QTest::newRow("fill") << "fillPopup" << 17;
    QTest::newRow("shapes") << "shapesPopup" << 17;
    QTest::newRow("preview") << "previewPopup" << 17;
    QTest::newRow("layers") << "layersPopup" << 17;
}

void TestDrawingWindow::popupsAreHiddenFramesWithTheirStyle()
{
    QFETCH(QString, name);
    QFETCH(int, frameStyle);
    auto w = newWindow();
    auto *popup = w->findChild<QFrame *>(name);
    QVERIFY(popup);
    QCOMPARE(popup->parentWidget(), w.get());
    QVERIFY(popup->isHidden());
    QCOMPARE(popup->frameStyle(), frameStyle);
    QVERIFY(popup->styleSheet().startsWith(popupStyle(name)));
}

void TestDrawingWindow::brushSpinAboveSliderRange()
{
    auto w = newWindow();
    w->show();
    QSpinBox *spin = w->brushSpin();
    spin->setFocus();
    spin->selectAll();
    QTest::keyClicks(spin, "400");
    QCOMPARE(spin->value(), 400);
    QCOMPARE(w->canvas()->brushSize(), 400.0f);
    QCOMPARE(w->brushSlider()->value(), 150);
}

void TestDrawingWindow::brushSliderDrivesSpinAndCanvas()
{
    auto w = newWindow();
    w->brushSlider()->setValue(42);
    QCOMPARE(w->brushSpin()->value(), 42);
    QCOMPARE(w->canvas()->brushSize(), 42.0f);
}

void TestDrawingWindow::wiggleSpeedMapsToInterval_data()
{
    QTest::addColumn<int>("percent");
    QTest::addColumn<int>("intervalMs");
    QTest::newRow("0") << 0 << 1000;
    QTest::newRow("20") << 20 << 166;
    QTest::newRow("100") << 100 << 33;
}

void TestDrawingWindow::wiggleSpeedMapsToInterval()
{
    QFETCH(int, percent);
    QFETCH(int, intervalMs);
    auto w = newWindow();
    w->jitterSpeedSpin()->setValue(percent == 50 ? 49 : 50);
    w->jitterSpeedSpin()->setValue(percent);
    QCOMPARE(w->jitterSpeedSlider()->value(), percent);
    QCOMPARE(w->canvas()->wiggleInterval(), intervalMs);
    w->jitterSpeedSlider()->setValue(50);
    w->jitterSpeedSlider()->setValue(percent);
    QCOMPARE(w->jitterSpeedSpin()->value(), percent);
    QCOMPARE(w->canvas()->wiggleInterval(), intervalMs);
}

void TestDrawingWindow::wiggleAmountMapsToPixels_data()
{
    QTest::addColumn<int>("percent");
    QTest::addColumn<float>("pixels");
    QTest::newRow("0") << 0 << 0.1f;
    QTest::newRow("50") << 50 << 2.05f;
    QTest::newRow("100") << 100 << 4.0f;
}

void TestDrawingWindow::wiggleAmountMapsToPixels()
{
    QFETCH(int, percent);
    QFETCH(float, pixels);
    auto w = newWindow();
    w->jitterAmountSlider()->setValue(percent == 30 ? 31 : 30);
    w->jitterAmountSlider()->setValue(percent);
    QCOMPARE(w->jitterAmountSpin()->value(), percent);
    QCOMPARE(w->canvas()->wiggleAmount(), pixels);
}

void TestDrawingWindow::colourAndOpacityReachCanvasAndSwatch()
{
    auto w = newWindow();
    w->onColorChanged(QColor(10, 200, 30, 12));
    QCOMPARE(w->brushColor(), QColor(10, 200, 30));
    QCOMPARE(w->canvas()->brushColor(), QColor(10, 200, 30));
    w->opacitySlider()->setValue(50);
    QCOMPARE(w->opacityLabel()->text(), QString("50%"));
    QCOMPARE(w->canvas()->brushColor(), QColor(10, 200, 30, 127));
    QCOMPARE(w->colorButton()->styleSheet(),
             QString("background-color: #7f0ac81e; border: 1px solid #888;"));
    w->onColorChanged(QColor());
    QCOMPARE(w->brushColor(), QColor(10, 200, 30));
}

void TestDrawingWindow::pressOutsidePopupClosesIt_data()
{
    QTest::addColumn<QString>("name");
    for (const char *name : {"colorPickerSection", "jitterPopup", "fillPopup", "shapesPopup",
                             "previewPopup", "layersPopup"})
        QTest::newRow(name) << QString(name);
}

void TestDrawingWindow::pressOutsidePopupClosesIt()
{
    QFETCH(QString, name);
    auto w = newWindow();
    w->resize(1100, 720);
    w->show();
    QVERIFY(QTest::qWaitForWindowExposed(w.get()));
    const PopupCase c = popupCase(w.get(), name);

    c.open();
    QVERIFY(c.isOpen());
    QVERIFY(c.popup->isVisible());
    // Below its button, inside the window.
    QVERIFY(c.popup->y() >= c.anchor->mapTo(w.get(), QPoint(0, 0)).y() + c.anchor->height());

    // A press inside the pop-up or on its button leaves it to them.
    QTest::mousePress(c.popup, Qt::LeftButton, {}, QPoint(2, 2));
    QTest::mouseRelease(c.popup, Qt::LeftButton, {}, QPoint(2, 2));
    QVERIFY(c.isOpen());
    QTest::mousePress(c.anchor, Qt::LeftButton, {}, QPoint(3, 3));
    QVERIFY(c.isOpen());
    QVERIFY(c.popup->isVisible());
    QTest::mouseRelease(c.anchor, Qt::LeftButton, {}, QPoint(3, 3));

    if (!c.isOpen()) // the button's click toggled it shut itself
        c.open();
    QVERIFY(c.isOpen());
    QTest::mousePress(w->clearButton(), Qt::LeftButton, {}, QPoint(3, 3));
    QVERIFY(!c.isOpen());
    QVERIFY(c.popup->isHidden());
    QTest::mouseRelease(w->clearButton(), Qt::LeftButton, {}, QPoint(3, 3));
}

void TestDrawingWindow::wiggleOffClosesItsPopup()
{
    auto w = newWindow();
    w->show();
    w->jitterButton()->click();
    QVERIFY(w->canvas()->wiggleEnabled());
    w->onJitterBtnLongPress();
    QVERIFY(w->isJitterPopupOpen());
    w->jitterButton()->click();
    QVERIFY(!w->canvas()->wiggleEnabled());
    QVERIFY(!w->isJitterPopupOpen());
    QVERIFY(w->jitterPopup()->isHidden());
}

void TestDrawingWindow::toolChangeClosesShapesPopup()
{
    auto w = newWindow();
    w->show();
    w->shapesButton()->click();
    QCOMPARE(w->canvas()->tool(), int(Tool::Shapes));
    QVERIFY(w->isShapesPopupOpen());
    w->shapesButton()->click(); // a second click folds the pop-up, the tool stays
    QVERIFY(!w->isShapesPopupOpen());
    QCOMPARE(w->canvas()->tool(), int(Tool::Shapes));
    w->shapesButton()->click();
    QVERIFY(w->isShapesPopupOpen());
    w->toolGroup()->button(1)->click();
    QCOMPARE(w->canvas()->tool(), int(Tool::Eraser));
    QVERIFY(!w->isShapesPopupOpen());
    QVERIFY(w->shapesPopup()->isHidden());
}

void TestDrawingWindow::shapeModeSetsShapesIcon()
{
    auto w = newWindow();
    const QImage filled = w->shapesButton()->icon().pixmap(20, 20).toImage();
    w->shapeModeGroup()->button(1)->click();
    QCOMPARE(w->canvas()->shapeMode(), 1);
    const QImage outline = w->shapesButton()->icon().pixmap(20, 20).toImage();
    QVERIFY(outline != filled);
    w->shapeTypeGroup()->button(4)->click();
    QCOMPARE(w->canvas()->shapeType(), 4);
    w->shapeEraseButton()->click();
    QVERIFY(w->canvas()->shapeErase());
    QCOMPARE(w->shapeTypeGroup()->button(4)->toolTip(), QString("Star"));
    QCOMPARE(w->shapeModeGroup()->button(0)->toolTip(), QString("Filled"));
    QCOMPARE(w->shapeEraseButton()->toolTip(), QString("Erase shape area"));
}

void TestDrawingWindow::layersDoNothingWhilePinned()
{
    auto w = newWindow();
    w->resize(1100, 720);
    w->show();
    QVERIFY(QTest::qWaitForWindowExposed(w.get()));
    w->layersButton()->click();
    QVERIFY(w->isLayersPopupOpen());
    QVERIFY(w->layersPopup()->isVisible());

    w->popupLayerPanel()->pinButton()->click();
    QVERIFY(w->isLayersPinned());
    QVERIFY(!w->isLayersPopupOpen());
    QVERIFY(w->layersPopup()->isHidden());
    QVERIFY(w->dockedLayerPanel()->isVisible());
    QVERIFY(w->popupLayerPanel()->isPinned());
    QVERIFY(w->dockedLayerPanel()->isPinned());

    w->layersButton()->click();
    QVERIFY(!w->isLayersPopupOpen());
    QVERIFY(w->layersPopup()->isHidden());

    w->dockedLayerPanel()->pinButton()->click();
    QVERIFY(!w->isLayersPinned());
    QVERIFY(w->dockedLayerPanel()->isHidden());
    w->layersButton()->click();
    QVERIFY(w->isLayersPopupOpen());
}

void TestDrawingWindow::popupStaysInsideWindow()
{
    auto w = newWindow();
    w->resize(1100, 720);
    w->show();
    QVERIFY(QTest::qWaitForWindowExposed(w.get()));
    w->layersButton()->click();
    QFrame *popup = w->layersPopup();
    QCOMPARE(popup->x() + popup->width(), w->width() - 4);
    w->resize(1000, 720);
    QTRY_COMPARE(popup->x() + popup->width(), w->width() - 4);
}

void TestDrawingWindow::settingsAppliedWithClamps_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QVariant>("stored");
    QTest::addColumn<QString>("probe");
    QTest::addColumn<QVariant>("expected");

    QTest::newRow("tool 7") << "tool" << QVariant(7) << "tool" << QVariant(3);
    QTest::newRow("tool -2") << "tool" << QVariant(-2) << "tool" << QVariant(0);
    QTest::newRow("fill 999") << "fillTolerance" << QVariant(999) << "fill" << QVariant(255);
    QTest::newRow("bad colour") << "color" << QVariant("#12345") << "color"
                                << QVariant(QColor(Qt::black));
    QTest::newRow("colour") << "color" << QVariant("#2080f0") << "color"
                            << QVariant(QColor(0x20, 0x80, 0xf0));
    QTest::newRow("brush 0") << "brushSize" << QVariant(0) << "brush" << QVariant("1 0 1");
    QTest::newRow("brush 400") << "brushSize" << QVariant(400) << "brush"
                               << QVariant("400 400 150");
    QTest::newRow("mode 5") << "shapeMode" << QVariant(5) << "mode" << QVariant(1);
    QTest::newRow("mode -1") << "shapeMode" << QVariant(-1) << "mode" << QVariant(0);
    QTest::newRow("shape 12") << "shapeType" << QVariant(12) << "shape" << QVariant(9);
    QTest::newRow("jitter speed 300")
        << "jitterSpeed" << QVariant(300) << "speed" << QVariant("100 33");
    QTest::newRow("jitter on") << "jitterEnabled" << QVariant(true) << "jitter" << QVariant(true);
    QTest::newRow("opacity 40") << "opacity" << QVariant(40) << "opacity" << QVariant("40% 102");
    QTest::newRow("preview -5") << "previewOpacity" << QVariant(-5) << "preview" << QVariant("0 0");
}

void TestDrawingWindow::settingsAppliedWithClamps()
{
    QFETCH(QString, key);
    QFETCH(QVariant, stored);
    QFETCH(QString, probe);
    QFETCH(QVariant, expected);
    {
        QSettings s = store();
        s.setValue(key, stored);
    }
    auto w = newWindow();
    QVariant actual;
    if (probe == "tool") {
        QCOMPARE(w->canvas()->tool(), expected.toInt());
        actual = w->toolGroup()->checkedId();
    } else if (probe == "fill") {
        QCOMPARE(w->fillSpin()->value(), expected.toInt());
        QCOMPARE(w->canvas()->fillTolerance(), expected.toInt());
        actual = w->fillSlider()->value();
    } else if (probe == "color") {
        QCOMPARE(w->canvas()->brushColor(), expected.value<QColor>());
        QCOMPARE(w->colorPicker()->color(), expected.value<QColor>());
        actual = w->brushColor();
    } else if (probe == "brush") {
        actual = QString("%1 %2 %3")
                     .arg(w->brushSpin()->value())
                     .arg(w->canvas()->brushSize())
                     .arg(w->brushSlider()->value());
    } else if (probe == "mode") {
        QCOMPARE(w->canvas()->shapeMode(), expected.toInt());
        actual = w->shapeModeGroup()->checkedId();
    } else if (probe == "shape") {
        QCOMPARE(w->canvas()->shapeType(), expected.toInt());
        actual = w->shapeTypeGroup()->checkedId();
    } else if (probe == "speed") {
        QCOMPARE(w->jitterSpeedSpin()->value(), w->jitterSpeedSlider()->value());
        actual = QString("%1 %2")
                     .arg(w->jitterSpeedSlider()->value())
                     .arg(w->canvas()->wiggleInterval());
    } else if (probe == "jitter") {
        QCOMPARE(w->canvas()->wiggleEnabled(), expected.toBool());
        actual = w->jitterButton()->isChecked();
    } else if (probe == "opacity") {
        actual =
            QString("%1 %2").arg(w->opacityLabel()->text()).arg(w->canvas()->brushColor().alpha());
    } else if (probe == "preview") {
        actual = QString("%1 %2").arg(w->previewSpin()->value()).arg(w->canvas()->previewOpacity());
    }
    QCOMPARE(actual, expected);
}

void TestDrawingWindow::settingsWrittenOnClose()
{
    auto w = newWindow();
    w->show();
    w->brushSpin()->setValue(400);
    w->toolGroup()->button(2)->click();
    w->onColorChanged(QColor(1, 2, 3));
    w->opacitySlider()->setValue(70);
    w->fillSlider()->setValue(12);
    w->jitterAmountSpin()->setValue(77);
    w->jitterSpeedSpin()->setValue(5);
    w->jitterButton()->click();
    w->shapeTypeGroup()->button(7)->click();
    w->shapeModeGroup()->button(1)->click();
    w->shapeEraseButton()->click();
    w->previewSpin()->setValue(33);
    w->close();

    QSettings s = store();
    QCOMPARE(s.value("brushSize").toInt(), 400);
    QCOMPARE(s.value("tool").toInt(), 2);
    QCOMPARE(s.value("color").toString(), QString("#010203"));
    QCOMPARE(s.value("opacity").toInt(), 70);
    QCOMPARE(s.value("fillTolerance").toInt(), 12);
    QCOMPARE(s.value("jitterAmount").toInt(), 77);
    QCOMPARE(s.value("jitterSpeed").toInt(), 5);
    QCOMPARE(s.value("jitterEnabled").toBool(), true);
    QCOMPARE(s.value("shapeType").toInt(), 7);
    QCOMPARE(s.value("shapeMode").toInt(), 1);
    QCOMPARE(s.value("shapeErase").toBool(), true);
    QCOMPARE(s.value("previewOpacity").toInt(), 33);
    QVERIFY(!s.value("windowGeometry").toByteArray().isEmpty());

    // The next window starts where this one left off.
    auto next = newWindow();
    QCOMPARE(next->brushSpin()->value(), 400);
    QCOMPARE(next->toolGroup()->checkedId(), 2);
    QCOMPARE(next->canvas()->brushColor(), QColor(1, 2, 3, 178));
    QCOMPARE(next->geometry().size(), w->geometry().size());
}

void TestDrawingWindow::ctrlZInSpinBoxUndoes()
{
    auto w = newWindow();
    w->resize(1100, 720);
    w->show();
    w->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(w.get()));
    strokeAcross(w->canvas());
    QVERIFY(w->canvas()->canUndo());
    QVERIFY(w->undoButton()->isEnabled());

    w->brushSpin()->setFocus();
    QWidget *focus = QApplication::focusWidget();
    QVERIFY(focus == w->brushSpin() || focus->parentWidget() == w->brushSpin());
    const QByteArray focusClass = focus->metaObject()->className();
    LogCapture::clear();
    QTest::keyClick(focus, Qt::Key_Z, Qt::ControlModifier);

    QVERIFY(!w->canvas()->canUndo());
    QVERIFY(w->canvas()->canRedo());
    QCOMPARE(w->brushSpin()->value(), 8);
    QCOMPARE(LogCapture::matching("[PD-Undo]"),
             QStringList({undoLine("ShortcutOverride", "Z", 1, "DrawingWindow", focusClass),
                          undoLine("KeyPress", "Z", 1, "DrawingWindow", focusClass),
                          "[PD-Undo]   -> canvas UNDO"}));
}

void TestDrawingWindow::redoChords_data()
{
    QTest::addColumn<int>("key");
    QTest::addColumn<bool>("shift");
    QTest::addColumn<QString>("keyText");
    QTest::newRow("Ctrl+Y") << int(Qt::Key_Y) << false << "Y";
    QTest::newRow("Ctrl+Shift+Y") << int(Qt::Key_Y) << true << "Y+Shift";
    QTest::newRow("Ctrl+Shift+Z") << int(Qt::Key_Z) << true << "Z+Shift";
}

void TestDrawingWindow::redoChords()
{
    QFETCH(int, key);
    QFETCH(bool, shift);
    QFETCH(QString, keyText);
    auto w = newWindow();
    w->resize(1100, 720);
    w->show();
    w->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(w.get()));
    strokeAcross(w->canvas());
    w->canvas()->undo();
    QVERIFY(w->canvas()->canRedo());

    w->clearButton()->setFocus();
    LogCapture::clear();
    const Qt::KeyboardModifiers mods =
        shift ? Qt::ControlModifier | Qt::ShiftModifier : Qt::ControlModifier;
    QTest::keyClick(w->clearButton(), Qt::Key(key), mods);

    QVERIFY(w->canvas()->canUndo());
    QVERIFY(!w->canvas()->canRedo());
    const QByteArray keyBytes = keyText.toLatin1();
    QCOMPARE(LogCapture::matching("[PD-Undo]"),
             QStringList({undoLine("ShortcutOverride", keyBytes, 1, "DrawingWindow", "QPushButton"),
                          undoLine("KeyPress", keyBytes, 1, "DrawingWindow", "QPushButton"),
                          "[PD-Undo]   -> canvas REDO"}));
}

void TestDrawingWindow::inactiveWindowOnlyLogs()
{
    auto w = newWindow();
    w->show();
    strokeAcross(w->canvas());
    QVERIFY(w->canvas()->canUndo());

    QWidget host;
    auto *hostButton = new QPushButton("host", &host);
    int hostShortcuts = 0;
    auto *shortcut = new QShortcut(QKeySequence("Ctrl+Z"), &host);
    connect(shortcut, &QShortcut::activated, [&hostShortcuts] { ++hostShortcuts; });
    host.show();
    host.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&host));
    hostButton->setFocus();
    QVERIFY(!w->isActiveWindow());

    LogCapture::clear();
    QTest::keyClick(hostButton, Qt::Key_Z, Qt::ControlModifier);

    QVERIFY(w->canvas()->canUndo());
    QCOMPARE(hostShortcuts, 1);
    const QStringList lines = LogCapture::matching("[PD-Undo]");
    QVERIFY(!lines.isEmpty());
    for (const QString &line : lines) {
        QVERIFY2(line.contains(" | thisActive=0 activeWin=QWidget focus=QPushButton recv="),
                 qPrintable(line));
        QVERIFY(!line.contains("-> canvas"));
    }
}

void TestDrawingWindow::coopWindowNeitherLogsNorClaims()
{
    auto w = newWindow(true);
    int shortcuts = 0;
    auto *shortcut = new QShortcut(QKeySequence("Ctrl+Z"), w.get());
    connect(shortcut, &QShortcut::activated, [&shortcuts] { ++shortcuts; });
    w->show();
    w->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(w.get()));
    strokeAcross(w->canvas());
    QVERIFY(w->canvas()->canUndo());
    w->clearButton()->setFocus();

    LogCapture::clear();
    QTest::keyClick(w->clearButton(), Qt::Key_Z, Qt::ControlModifier);
    QVERIFY(LogCapture::matching("[PD-Undo]").isEmpty());
    QCOMPARE(shortcuts, 1);
    QVERIFY(w->canvas()->canUndo());

    // The same chord in a local editor is claimed before the shortcut sees it.
    auto local = newWindow();
    auto *localShortcut = new QShortcut(QKeySequence("Ctrl+Z"), local.get());
    int localShortcuts = 0;
    connect(localShortcut, &QShortcut::activated, [&localShortcuts] { ++localShortcuts; });
    local->show();
    local->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(local.get()));
    local->clearButton()->setFocus();
    QTest::keyClick(local->clearButton(), Qt::Key_Z, Qt::ControlModifier);
    QCOMPARE(localShortcuts, 0);
    QCOMPARE(LogCapture::matching("[PD-Undo]   -> canvas UNDO").size(), 1);
}

void TestDrawingWindow::coopWindowFlavour()
{
    CoopCanvas::instance().setCanvasSize(800, 450);
    {
        QSettings s = store();
        s.setValue("jitterEnabled", true);
        s.setValue("jitterAmount", 100);
        s.setValue("jitterSpeed", 250);
    }
    auto w = newWindow(true);
    QVERIFY(w->isCoopMode());
    QCOMPARE(w->windowTitle(), QString("Pennoria: Draw \u2014 Co-op Canvas"));
    QVERIFY(w->undoButton()->isHidden());
    QVERIFY(w->redoButton()->isHidden());
    QVERIFY(w->previewButton()->isHidden());
    QVERIFY(!w->layersPopup());
    QVERIFY(!w->dockedLayerPanel());
    QCOMPARE(w->layersButton()->toolTip(), QString("Connected users"));
    QCOMPARE(w->layersButton()->iconSize(), QSize(18, 18));
    QCOMPARE(w->canvas()->canvasWidth(), 800);
    QCOMPARE(w->canvas()->canvasHeight(), 450);
    QCOMPARE(w->canvas()->fillTolerance(), 200);
    QVERIFY(CoopCanvas::instance().jitterEnabled());
    QCOMPARE(CoopCanvas::instance().jitterAmountPx(), 4.0f);
    QCOMPARE(CoopCanvas::instance().jitterInterval(), 1.0f / 30.0f);
    QVERIFY(w->canvasKey().isEmpty());
    CoopCanvas::instance().setJitterEnabled(false);
    CoopCanvas::instance().setCanvasSize(1920, 1080);
}

void TestDrawingWindow::coopStrokesGoToSharedPicture()
{
    CoopCanvas &shared = CoopCanvas::instance();
    shared.clear();
    auto w = newWindow(true);
    w->resize(1100, 720);
    w->show();
    QVERIFY(QTest::qWaitForWindowExposed(w.get()));
    const uint64_t before = shared.version();
    strokeAcross(w->canvas());
    // The shared picture paints on its own thread.
    QTRY_VERIFY(shared.version() > before);
    QVERIFY(shared.image() != w->canvas()->document()->blankImage());

    w->clearButton()->click();
    QTRY_COMPARE(shared.image(), w->canvas()->document()->blankImage());
    QCOMPARE(w->canvas()->flatComposite(), w->canvas()->document()->blankImage());
    QVERIFY(!w->saveTimer()->isActive());
}

void TestDrawingWindow::usersPopupRowsAsHost()
{
    CoopUsersPopup popup;
    QCOMPARE(popup.objectName(), QString("coopUsersPopup"));
    QVERIFY(popup.windowFlags().testFlag(Qt::Popup));
    QCOMPARE(popup.minimumWidth(), 220);
    QCOMPARE(popup.frameStyle(), 17);
    QCOMPARE(popup.styleSheet(), popupStyle("coopUsersPopup"));

    popup.setUsers({user(0, "Ada", -1, true, true), user(2, "", 35, false, false),
                    user(3, "Bob", -1, false, false)},
                   true);
    QCOMPARE(popup.header()->text(), QString("<b>Connected \u2014 3</b>"));
    QCOMPARE(popup.rows().size(), 3);
    QCOMPARE(labelTexts(popup.rows()[0]), QStringList({"Ada  (host)  (you)", "\u2014"}));
    QCOMPARE(labelTexts(popup.rows()[1]), QStringList({"Anon", "35 ms"}));
    QCOMPARE(labelTexts(popup.rows()[2]), QStringList({"Bob", "\u2026"}));
    QCOMPARE(kickTooltips(popup.rows()[0]), QStringList());
    QCOMPARE(kickTooltips(popup.rows()[1]), QStringList("\u2715 Kick Anon"));
    QCOMPARE(kickTooltips(popup.rows()[2]), QStringList("\u2715 Kick Bob"));

    QSignalSpy kicks(&popup, &CoopUsersPopup::kickRequested);
    popup.rows()[2]->findChild<QToolButton *>()->click();
    QCOMPARE(kicks.size(), 1);
    QCOMPARE(kicks.first().first().toInt(), 3);

    // A rebuild replaces every row; the old ones go later.
    QPointer<QWidget> oldRow = popup.rows()[0];
    popup.setUsers({user(0, "Ada", -1, true, true)}, true);
    QCOMPARE(popup.rows().size(), 1);
    QCOMPARE(popup.header()->text(), QString("<b>Connected \u2014 1</b>"));
    QVERIFY(oldRow);
    QTRY_VERIFY(!oldRow);
}

void TestDrawingWindow::usersPopupRowsAsClient()
{
    CoopUsersPopup popup;
    popup.setUsers({user(1, "Hosty", 12, true, false), user(4, "Me", -1, false, true),
                    user(5, "", -1, false, false)},
                   false);
    QCOMPARE(labelTexts(popup.rows()[0]), QStringList({"Hosty  (host)", "12 ms"}));
    QCOMPARE(labelTexts(popup.rows()[1]), QStringList({"Me  (you)", "\u2014"}));
    QCOMPARE(labelTexts(popup.rows()[2]), QStringList({"Anon", "\u2026"}));
    for (QWidget *row : popup.rows())
        QVERIFY(kickTooltips(row).isEmpty());
}

void TestDrawingWindow::usersPopupAlignsWithButton()
{
    auto w = newWindow(true);
    w->resize(1100, 720);
    w->show();
    QVERIFY(QTest::qWaitForWindowExposed(w.get()));
    w->layersButton()->click();
    CoopUsersPopup *popup = w->usersPopup();
    QVERIFY(popup->isVisible());
    QVERIFY(w->isUsersPopupOpen());
    QCOMPARE(popup->header()->text(), QString("<b>Connected \u2014 0</b>"));
    const QPoint corner = w->layersButton()->mapToGlobal(
        QPoint(w->layersButton()->width(), w->layersButton()->height()));
    QCOMPARE(popup->x() + popup->width(), corner.x());
    QCOMPARE(popup->y(), corner.y() + 2);
    w->onLayersClicked();
    QVERIFY(popup->isHidden());
    QVERIFY(!w->isUsersPopupOpen());
}

void TestDrawingWindow::usersPopupFollowsLiveSession()
{
    CoopSession &hosting = CoopSession::instance();
    QVERIFY2(hosting.host("Ada", 0), qPrintable(hosting.lastError()));
    const quint16 port = hosting.hostPort();
    auto w = newWindow(true);
    w->resize(1100, 720);
    w->show();
    QVERIFY(QTest::qWaitForWindowExposed(w.get()));
    w->layersButton()->click();
    CoopUsersPopup *popup = w->usersPopup();
    QCOMPARE(popup->rows().size(), 1);
    QCOMPARE(labelTexts(popup->rows()[0]), QStringList({"Ada  (host)  (you)", "\u2014"}));

    CoopSession friendSession;
    friendSession.join("127.0.0.1", "Bea", port);
    QTRY_COMPARE_WITH_TIMEOUT(popup->rows().size(), 2, 10000);
    QCOMPARE(labelTexts(popup->rows()[1]).first(), QString("Bea"));
    QCOMPARE(kickTooltips(popup->rows()[1]), QStringList("\u2715 Kick Bea"));
    const QPoint corner = w->layersButton()->mapToGlobal(
        QPoint(w->layersButton()->width(), w->layersButton()->height()));
    QCOMPARE(popup->x() + popup->width(), corner.x());

    popup->rows()[1]->findChild<QToolButton *>()->click();
    QTRY_COMPARE_WITH_TIMEOUT(popup->rows().size(), 1, 10000);
    QTRY_COMPARE_WITH_TIMEOUT(friendSession.role(), CoopSession::Role::None, 10000);

    // Hidden, the pop-up is not rebuilt until it opens again.
    w->onLayersClicked();
    QVERIFY(popup->isHidden());
    CoopSession other;
    other.join("127.0.0.1", "", port);
    QTRY_COMPARE_WITH_TIMEOUT(hosting.users().size(), 2, 10000);
    QCOMPARE(popup->rows().size(), 1);
    w->onLayersClicked();
    QCOMPARE(popup->rows().size(), 2);
    QCOMPARE(labelTexts(popup->rows()[1]).first(), QString("Anon"));
    other.stop();
    hosting.stop();
}

void TestDrawingWindow::coopWindowFollowsSession()
{
    CoopCanvas &shared = CoopCanvas::instance();
    shared.clear();
    const QSize size(shared.width(), shared.height());
    QImage hostPicture(size, QImage::Format_RGBA8888);
    hostPicture.fill(Qt::transparent);
    for (int y = 0; y < 100; ++y)
        for (int x = 0; x < 100; ++x)
            hostPicture.setPixelColor(x, y, QColor(0, 128, 255));

    CoopSession hostSession;
    hostSession.setCanvasProvider([hostPicture] { return hostPicture; });
    QVERIFY2(hostSession.host("Host", 0), qPrintable(hostSession.lastError()));
    const quint16 port = hostSession.hostPort();
    auto w = newWindow(true);
    w->show();
    CanvasWidget *canvas = w->canvas();

    // Joining adopts the host's picture.
    CoopSession::instance().join("127.0.0.1", "Me", port);
    QTRY_COMPARE_WITH_TIMEOUT(canvas->flatComposite().pixelColor(50, 50), QColor(0, 128, 255),
                              10000);
    QCOMPARE(canvas->flatComposite().pixelColor(500, 500), QColor(Qt::transparent));

    // A stroke from the host lands on the canvas.
    Stroke stroke;
    stroke.points = {{400, 400}, {800, 400}};
    stroke.color = QColor(200, 0, 0);
    stroke.width = 30.0f;
    hostSession.sendStroke(stroke);
    QTRY_COMPARE_WITH_TIMEOUT(canvas->flatComposite().pixelColor(600, 400), QColor(200, 0, 0),
                              10000);
    QTRY_COMPARE(shared.image().pixelColor(600, 400), QColor(200, 0, 0));

    // A clear from the host wipes it.
    hostSession.sendClear();
    QTRY_COMPARE_WITH_TIMEOUT(canvas->flatComposite().pixelColor(600, 400), QColor(Qt::transparent),
                              10000);
    QCOMPARE(canvas->flatComposite().pixelColor(50, 50), QColor(Qt::transparent));
    CoopSession::instance().stop();
    hostSession.stop();
}

void TestDrawingWindow::screenshotsOfPopups()
{
    auto w = newWindow();
    w->resize(1100, 720);
    w->show();
    QVERIFY(QTest::qWaitForWindowExposed(w.get()));
    strokeAcross(w->canvas());
    QVERIFY(saveScreenshot(w.get(), "editor_window"));
    for (const char *name : {"colorPickerSection", "jitterPopup", "fillPopup", "shapesPopup",
                             "previewPopup", "layersPopup"}) {
        const PopupCase c = popupCase(w.get(), name);
        c.open();
        QVERIFY(c.isOpen());
        QTest::qWait(50); // rows added to a shown panel appear with the next events
        QVERIFY(saveScreenshot(w.get(), QString("editor_%1").arg(name)));
        QTest::mousePress(w->canvas(), Qt::LeftButton, {}, QPoint(5, 5));
        QTest::mouseRelease(w->canvas(), Qt::LeftButton, {}, QPoint(5, 5));
        QVERIFY(!c.isOpen());
    }

    // The users pop-up is a window of its own: draw it onto the editor's picture.
    auto coop = newWindow(true);
    coop->resize(1100, 720);
    coop->show();
    QVERIFY(QTest::qWaitForWindowExposed(coop.get()));
    coop->layersButton()->click();
    CoopUsersPopup *popup = coop->usersPopup();
    popup->setUsers({user(0, "Ada", -1, true, true), user(2, "", 35, false, false),
                     user(3, "Bob", -1, false, false)},
                    true);
    popup->adjustSize();
    QTest::qWait(50);
    QPixmap picture = coop->grab();
    {
        QPainter painter(&picture);
        painter.drawPixmap(coop->mapFromGlobal(popup->pos()), popup->grab());
    }
    const QString dir = QStringLiteral(PD_BINARY_DIR "/screenshots");
    QVERIFY(picture.save(dir + "/editor_coopUsersPopup.png"));
}

QTEST_MAIN(TestDrawingWindow)
#include "tst_drawing_window.moc"
