#include "EditorTestInput.h"
#include "LogCapture.h"
#include "Screenshot.h"

#include "canvas/CanvasWidget.h"
#include "coop/CoopCanvas.h"
#include "coop/CoopEditorSource.h"
#include "coop/CoopSession.h"
#include "editor/CoopUsersPopup.h"
#include "editor/DrawingWindow.h"
#include "editor/EditorStyle.h"
#include "editor/EditorWindows.h"
#include "widgets/ColorPickerWidget.h"

#include <QAbstractSpinBox>
#include <QLabel>
#include <QPushButton>
#include <QSettings>
#include <QShortcut>
#include <QSlider>
#include <QStyle>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QThread>
#include <QToolButton>

#include <memory>

using namespace EditorTestInput;

namespace {

QSettings store()
{
    return QSettings(QStringLiteral("PennoriaDraw"), QStringLiteral("Canvas"));
}

std::unique_ptr<DrawingWindow> shown(std::unique_ptr<EditorSource> source = nullptr)
{
    auto window = std::make_unique<DrawingWindow>(std::move(source), nullptr);
    window->resize(1100, 720);
    window->show();
    window->activateWindow();
    if (!QTest::qWaitForWindowActive(window.get()))
        qWarning("editor not active");
    return window;
}

CanvasWidget *canvasOf(const QWidget *window)
{
    return window->findChild<CanvasWidget *>();
}

void click(QWidget *window, const QString &path)
{
    QObject *parent = window;
    for (const QString &name : path.split('/'))
        parent = named<QObject>(parent, qPrintable(name));
    if (auto *button = qobject_cast<QAbstractButton *>(parent))
        button->click();
}

// A click in the middle of target as the window system delivers it: to the
// window first, where pop-ups see it.
void clickThroughWindow(QWidget *target)
{
    QWidget *window = target->window();
    QTest::mouseClick(window->windowHandle(), Qt::LeftButton, {},
                      target->mapTo(window, target->rect().center()));
}

quint16 freePort()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    return probe.serverPort();
}

// OBS's default dark theme ("Yami") and its light variant, as they set the palette.
QPalette theme(bool dark)
{
    QPalette palette = QApplication::style()->standardPalette();
    const QList<std::pair<QPalette::ColorRole, QColor>> roles =
        dark ? QList<std::pair<QPalette::ColorRole, QColor>>{{QPalette::Window, "#1d1f26"},
                                                             {QPalette::Base, "#272a33"},
                                                             {QPalette::Light, "#4e5566"},
                                                             {QPalette::Mid, "#1d1f26"},
                                                             {QPalette::Dark, "#272a33"},
                                                             {QPalette::Highlight, "#284cb8"},
                                                             {QPalette::Button, "#3c404d"}}
             : QList<std::pair<QPalette::ColorRole, QColor>>{
                   {QPalette::Window, "#d3d3d3"}, {QPalette::Base, "#e5e5e5"},
                   {QPalette::Light, "#fefefe"},  {QPalette::Mid, "#d3d3d3"},
                   {QPalette::Dark, "#e5e5e5"},   {QPalette::Highlight, "#8cb5ff"},
                   {QPalette::Button, "#f3f3f3"}};
    for (const auto &[role, color] : roles)
        palette.setColor(role, color);
    const QColor text = dark ? QColor(Qt::white) : QColor(Qt::black);
    for (QPalette::ColorRole role :
         {QPalette::WindowText, QPalette::Text, QPalette::ButtonText, QPalette::HighlightedText})
        palette.setColor(role, text);
    return palette;
}

// The strongest contrast of any pixel in area against the area's most common
// colour, its background: what the text (or icon) in it reaches at its core.
double inkContrast(const QImage &image, const QRect &area)
{
    QHash<QRgb, int> counts;
    const QRect r = area.intersected(image.rect());
    for (int y = r.top(); y <= r.bottom(); ++y)
        for (int x = r.left(); x <= r.right(); ++x)
            ++counts[image.pixel(x, y)];
    QRgb background = 0;
    for (auto it = counts.cbegin(); it != counts.cend(); ++it)
        if (it.value() > counts.value(background))
            background = it.key();
    double best = 1.0;
    for (auto it = counts.cbegin(); it != counts.cend(); ++it)
        best = std::max(best, EditorStyle::contrastRatio(QColor(it.key()), QColor(background)));
    return best;
}

// Every piece of text inside root, as drawn in picture (root's origin at offset).
void checkTextReads(const QImage &picture, QWidget *root, const QPoint &offset, const QString &shot)
{
    for (QWidget *w : root->findChildren<QWidget *>()) {
        const auto *button = qobject_cast<QAbstractButton *>(w);
        const auto *label = qobject_cast<QLabel *>(w);
        const bool text = (label && !label->text().isEmpty()) ||
                          qobject_cast<QAbstractSpinBox *>(w) ||
                          (button && !button->text().isEmpty());
        if (!text || !w->isVisible() || w->width() < 4)
            continue;
        const double contrast = inkContrast(picture, QRect(w->mapTo(root, offset), w->size()));
        QVERIFY2(
            contrast >= EditorStyle::MinimumContrast,
            qPrintable(QString("%1: %2 \"%3\" %4:1")
                           .arg(shot, w->metaObject()->className(), w->property("text").toString())
                           .arg(contrast, 0, 'f', 2)));
    }
}

QStringList rowTexts(const QWidget *popup)
{
    QStringList rows;
    for (const QWidget *row : popup->findChildren<QWidget *>("userRow")) {
        if (row->isHidden())
            continue;
        QStringList parts;
        for (const QLabel *label : row->findChildren<QLabel *>())
            parts << label->text();
        for (const QToolButton *kick : row->findChildren<QToolButton *>())
            parts << kick->text() + " " + kick->toolTip();
        rows << parts.join('|');
    }
    return rows;
}

QVariant probe(CanvasWidget *canvas, const QString &what)
{
    const QMap<QString, std::function<QVariant()>> probes = {
        {"brush", [=] { return canvas->brushSize(); }},
        {"tool", [=] { return canvas->tool(); }},
        {"color", [=] { return canvas->brushColor().name(QColor::HexArgb); }},
        {"fill", [=] { return canvas->fillTolerance(); }},
        {"amount", [=] { return canvas->wiggleAmount(); }},
        {"interval", [=] { return canvas->wiggleInterval(); }},
        {"wiggle", [=] { return canvas->wiggleEnabled(); }},
        {"shape", [=] { return canvas->shapeType(); }},
        {"mode", [=] { return canvas->shapeMode(); }},
        {"erase", [=] { return canvas->shapeErase(); }},
        {"preview", [=] { return canvas->previewOpacity(); }}};
    return probes.value(what)();
}

bool same(const QVariant &a, const QVariant &b)
{
    bool numeric = false;
    const double x = a.toDouble(&numeric);
    if (numeric && a.typeId() != QMetaType::QString)
        return qAbs(x - b.toDouble()) < 1e-4;
    return a.toString() == b.toString();
}

// A source whose hand-off of the live image takes longer than the editor's
// budget, as a busy graphics thread can make it.
class SlowSource final : public EditorSource {
public:
    int liveImages = 0;
    QSize canvasSize() const override { return QSize(640, 360); }
    QString canvasKey() const override { return QString(); }
    void commit(const QVector<Stroke> &, const QImage &) override {}
    void setLiveImage(const QImage &) override { ++liveImages, QThread::msleep(12); }
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

    void settingsRoundTrip_data();
    void settingsRoundTrip();
    void popupsOpenAndClose_data();
    void popupsOpenAndClose();
    void popupClosingActions_data();
    void popupClosingActions();
    void enterClicksNothing();
    void narrowWindowKeepsControlsApart();
    void undoChords_data();
    void undoChords();
    void inactiveEditorStaysQuiet();
    void slowHandOffIsLogged();
    void usersPopupRows_data();
    void usersPopupRows();
    void coopEditor();
    void coopEditorFollowsSession();
    void themesReadable_data();
    void themesReadable();

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
    CoopSession::instance().stop();
    CoopCanvas::instance().clear();
    QApplication::setPalette(QApplication::style()->standardPalette());
}

void TestDrawingWindow::settingsRoundTrip_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QVariant>("stored");
    QTest::addColumn<QString>("shownBy");
    QTest::addColumn<QVariant>("shown");
    QTest::addColumn<QString>("change");
    QTest::addColumn<QVariant>("to");
    QTest::addColumn<QVariant>("saved");
    QTest::addColumn<QString>("probe");
    QTest::addColumn<QVariant>("before");
    QTest::addColumn<QVariant>("after");
    const QVariant none;
    QTest::newRow("size") << "brushSize" << QVariant(400) << "brushSizeSlider" << QVariant(150)
                          << "brushSizeSpin" << QVariant(12) << QVariant(12) << "brush"
                          << QVariant(400) << QVariant(12);
    QTest::newRow("tool") << "tool" << QVariant(2) << "fillButton" << QVariant(true)
                          << "eraserButton" << none << QVariant(1) << "tool" << QVariant(2)
                          << QVariant(1);
    QTest::newRow("colour") << "color" << QVariant("#2080f0") << "" << none << "picker"
                            << QVariant("#010203") << QVariant("#010203") << "color"
                            << QVariant("#ff2080f0") << QVariant("#ff010203");
    QTest::newRow("opacity") << "opacity" << QVariant(40) << "opacityLabel" << QVariant("40%")
                             << "opacitySlider" << QVariant(70) << QVariant(70) << "color"
                             << QVariant("#66000000") << QVariant("#b2000000");
    QTest::newRow("fill") << "fillTolerance" << QVariant(12) << "fillToleranceSpin" << QVariant(12)
                          << "fillToleranceSlider" << QVariant(99) << QVariant(99) << "fill"
                          << QVariant(12) << QVariant(99);
    QTest::newRow("amount") << "jitterAmount" << QVariant(100) << "jitterAmountSlider"
                            << QVariant(100) << "jitterAmountSpin" << QVariant(0) << QVariant(0)
                            << "amount" << QVariant(4.0) << QVariant(0.1);
    QTest::newRow("speed") << "jitterSpeed" << QVariant(5) << "jitterSpeedSpin" << QVariant(5)
                           << "jitterSpeedSlider" << QVariant(100) << QVariant(100) << "interval"
                           << QVariant(500) << QVariant(33);
    QTest::newRow("wiggle") << "jitterEnabled" << QVariant(true) << "jitterButton" << QVariant(true)
                            << "jitterButton" << none << QVariant(false) << "wiggle"
                            << QVariant(true) << QVariant(false);
    QTest::newRow("shape") << "shapeType" << QVariant(7) << "shapeArrow" << QVariant(true)
                           << "shapeStar" << none << QVariant(4) << "shape" << QVariant(7)
                           << QVariant(4);
    QTest::newRow("mode") << "shapeMode" << QVariant(1) << "shapeOutline" << QVariant(true)
                          << "shapeFilled" << none << QVariant(0) << "mode" << QVariant(1)
                          << QVariant(0);
    QTest::newRow("erase") << "shapeErase" << QVariant(true) << "shapeEraseButton" << QVariant(true)
                           << "shapeEraseButton" << none << QVariant(false) << "erase"
                           << QVariant(true) << QVariant(false);
    QTest::newRow("preview") << "previewOpacity" << QVariant(33) << "previewOpacitySpin"
                             << QVariant(33) << "previewOpacitySlider" << QVariant(80)
                             << QVariant(80) << "preview" << QVariant(0.33) << QVariant(0.8);
}

// Every field of the settings, through its feature: applied to the control and
// the canvas at start, the control's change reaching the canvas (and its
// paired control), collected on close. Faults: a feature that skips, swaps or
// mis-maps a field; a pair that does not follow; a control that does not
// reach the canvas.
void TestDrawingWindow::settingsRoundTrip()
{
    QFETCH(QString, key);
    QFETCH(QVariant, stored);
    QFETCH(QString, shownBy);
    QFETCH(QString, change);
    QFETCH(QVariant, to);
    QFETCH(QString, probe);
    store().setValue(key, stored);
    auto w = shown();
    CanvasWidget *canvas = canvasOf(w.get());
    if (!shownBy.isEmpty()) {
        const QObject *control = named<QObject>(w.get(), qPrintable(shownBy));
        QVERIFY(control);
        const char *property = qobject_cast<const QAbstractButton *>(control) ? "checked"
                               : qobject_cast<const QLabel *>(control)        ? "text"
                                                                              : "value";
        QTEST(control->property(property), "shown");
    }
    QFETCH(QVariant, before);
    QVERIFY2(same(::probe(canvas, probe), before), qPrintable(::probe(canvas, probe).toString()));

    if (change == "picker") {
        emit w->findChild<ColorPickerWidget *>()->colorChanged(QColor(to.toString()));
    } else if (auto *button = w->findChild<QAbstractButton *>(change)) {
        button->click();
    } else {
        QObject *control = named<QObject>(w.get(), qPrintable(change));
        control->setProperty("value", to);
        const bool spin = change.endsWith("Spin");
        QString partner = change;
        partner.replace(spin ? "Spin" : "Slider", spin ? "Slider" : "Spin");
        if (QObject *other = w->findChild<QObject *>(partner))
            QCOMPARE(other->property("value").toInt(),
                     std::min(to.toInt(), other->property("maximum").toInt()));
    }
    QFETCH(QVariant, after);
    QVERIFY2(same(::probe(canvas, probe), after), qPrintable(::probe(canvas, probe).toString()));

    w->resize(700, 500);
    w->close();
    QFETCH(QVariant, saved);
    QVERIFY2(same(store().value(key), saved), qPrintable(store().value(key).toString()));
    // The next editor opens where this one was.
    auto next = std::make_unique<DrawingWindow>(nullptr, nullptr);
    QCOMPARE(next->size(), QSize(700, 500));
}

void TestDrawingWindow::popupsOpenAndClose_data()
{
    QTest::addColumn<QString>("popup");
    QTest::addColumn<QString>("anchor");
    QTest::addColumn<bool>("hold");
    QTest::newRow("colour") << "colorPickerSection" << "colorButton" << false;
    QTest::newRow("wiggle") << "jitterPopup" << "jitterButton" << true;
    QTest::newRow("fill") << "fillPopup" << "fillButton" << true;
    QTest::newRow("shapes") << "shapesPopup" << "shapesButton" << false;
    QTest::newRow("preview") << "previewPopup" << "previewButton" << true;
    QTest::newRow("layers") << "layersPopup" << "layersButton" << false;
}

// Faults: a pop-up that opens elsewhere than under its button or outside the
// window, stays open on a press outside, closes on a press inside, or lets
// the press that closes it paint a dot on the canvas.
void TestDrawingWindow::popupsOpenAndClose()
{
    QFETCH(QString, popup);
    QFETCH(QString, anchor);
    QFETCH(bool, hold);
    auto w = shown();
    auto *frame = named<QWidget>(w.get(), qPrintable(popup));
    auto *button = named<QWidget>(w.get(), qPrintable(anchor));
    CanvasWidget *canvas = canvasOf(w.get());
    const auto open = [&] { hold ? longPress(button) : QTest::mouseClick(button, Qt::LeftButton); };
    QVERIFY(frame->isHidden());
    open();
    QVERIFY(frame->isVisible());
    QVERIFY(frame->y() >= button->mapTo(w.get(), QPoint(0, button->height())).y());
    QVERIFY(QRect(4, 4, w->width() - 8, w->height() - 8).contains(frame->geometry()));

    QTest::mouseClick(frame, Qt::LeftButton, {}, QPoint(2, 2));
    QTest::mousePress(button, Qt::LeftButton, {}, QPoint(3, 3));
    QVERIFY(frame->isVisible());
    QTest::mouseRelease(button, Qt::LeftButton, {}, QPoint(3, 3));
    if (frame->isHidden()) // the button's click toggled it shut itself
        open();
    w->resize(900, 720);
    QTRY_VERIFY(frame->geometry().right() <= w->width() - 4);

    clickThroughWindow(canvas);
    QVERIFY(frame->isHidden());
    QVERIFY(!canvas->canUndo());
    QVERIFY(canvas->currentStroke().points.isEmpty());
}

void TestDrawingWindow::popupClosingActions_data()
{
    QTest::addColumn<QStringList>("before");
    QTest::addColumn<QString>("popup");
    QTest::addColumn<QString>("opener");
    QTest::addColumn<QStringList>("after");
    QTest::addColumn<int>("tool");
    QTest::newRow("wiggle off") << QStringList{"jitterButton"} << "jitterPopup"
                                << "jitterButton" << QStringList{"jitterButton"} << 0;
    QTest::newRow("preview off") << QStringList{"previewButton"} << "previewPopup"
                                 << "previewButton" << QStringList{"previewButton"} << 0;
    QTest::newRow("other tool") << QStringList() << "shapesPopup" << "shapesButton"
                                << QStringList{"eraserButton"} << 1;
    QTest::newRow("shapes again folds")
        << QStringList() << "shapesPopup" << "shapesButton" << QStringList{"shapesButton"} << 3;
    QTest::newRow("pinned layers") << QStringList() << "layersPopup" << "layersButton"
                                   << QStringList{"popupLayerPanel/pinButton", "layersButton"} << 0;
}

// Faults: turning the wiggle or the preview off, choosing another tool or
// pinning the layers leaves a pop-up of no use open; a click on Layers
// while they are pinned opens the pop-up anyway.
void TestDrawingWindow::popupClosingActions()
{
    QFETCH(QStringList, before);
    QFETCH(QString, popup);
    QFETCH(QString, opener);
    QFETCH(QStringList, after);
    auto w = shown();
    for (const QString &path : before)
        click(w.get(), path);
    auto *frame = named<QWidget>(w.get(), qPrintable(popup));
    auto *button = named<QWidget>(w.get(), qPrintable(opener));
    before.isEmpty() ? QTest::mouseClick(button, Qt::LeftButton) : longPress(button);
    QVERIFY(frame->isVisible());
    for (const QString &path : after)
        click(w.get(), path);
    QVERIFY(frame->isHidden());
    QTEST(canvasOf(w.get())->tool(), "tool");
    QVERIFY(!canvasOf(w.get())->wiggleEnabled() && !canvasOf(w.get())->previewEnabled());
    if (popup == "layersPopup") {
        auto *docked = named<QWidget>(w.get(), "dockedLayerPanel");
        QVERIFY(docked->isVisible());
        click(w.get(), "dockedLayerPanel/pinButton");
        QVERIFY(docked->isHidden());
        click(w.get(), "layersButton");
        QVERIFY(frame->isVisible());
    }
}

// Fault: Enter after typing a size clicks a button of the dialog (Brush).
void TestDrawingWindow::enterClicksNothing()
{
    auto w = shown();
    click(w.get(), "eraserButton");
    auto *spin = named<QAbstractSpinBox>(w.get(), "brushSizeSpin");
    spin->setFocus();
    spin->selectAll();
    QTest::keyClicks(spin, "12");
    QTest::keyClick(spin, Qt::Key_Return);
    QCOMPARE(canvasOf(w.get())->brushSize(), 12.0f);
    auto *shapes = named<QWidget>(w.get(), "shapesButton");
    shapes->setFocus();
    QTest::keyClick(shapes, Qt::Key_Enter);
    QCOMPARE(canvasOf(w.get())->tool(), int(Tool::Eraser));
    QVERIFY(w->isVisible());
}

// Fault: at the narrowest width the window allows, tool buttons lie on each other.
void TestDrawingWindow::narrowWindowKeepsControlsApart()
{
    auto w = shown();
    for (const int width : {640, w->minimumSizeHint().width()}) {
        w->resize(width, 600);
        QTRY_COMPARE(w->width(), std::max(width, w->minimumWidth()));
        QCoreApplication::processEvents();
        const int canvasTop = canvasOf(w.get())->mapTo(w.get(), QPoint()).y();
        QList<QRect> taken;
        for (QWidget *c : w->findChildren<QWidget *>()) {
            if (!c->isVisible() ||
                !(qobject_cast<QAbstractButton *>(c) || qobject_cast<QSlider *>(c) ||
                  qobject_cast<QAbstractSpinBox *>(c)))
                continue;
            const QRect r(c->mapTo(w.get(), QPoint()), c->size());
            if (r.top() >= canvasTop)
                continue;
            QVERIFY2(w->rect().contains(r), qPrintable(c->objectName()));
            for (const QRect &other : std::as_const(taken))
                QVERIFY2(!other.intersects(r), qPrintable(c->objectName()));
            taken << r;
        }
        QVERIFY(taken.size() >= 10);
    }
}

void TestDrawingWindow::undoChords_data()
{
    QTest::addColumn<int>("key");
    QTest::addColumn<bool>("shift");
    QTest::addColumn<QString>("keyText");
    QTest::addColumn<QString>("action");
    QTest::newRow("Ctrl+Z") << int(Qt::Key_Z) << false << "Z" << "UNDO";
    QTest::newRow("Ctrl+Y") << int(Qt::Key_Y) << false << "Y" << "REDO";
    QTest::newRow("Ctrl+Shift+Y") << int(Qt::Key_Y) << true << "Y+Shift" << "REDO";
    QTest::newRow("Ctrl+Shift+Z") << int(Qt::Key_Z) << true << "Z+Shift" << "REDO";
}

// With the focus in the size spin box the chords act on the drawing, each
// logged once as an override and once as a press. Faults: a chord mapped to
// the wrong action, left to the focused widget, or logged differently.
void TestDrawingWindow::undoChords()
{
    QFETCH(int, key);
    QFETCH(bool, shift);
    QFETCH(QString, keyText);
    QFETCH(QString, action);
    auto w = shown();
    CanvasWidget *canvas = canvasOf(w.get());
    strokeAcross(canvas);
    if (action == "REDO")
        canvas->undo();
    named<QWidget>(w.get(), "brushSizeSpin")->setFocus();
    QWidget *focus = QApplication::focusWidget();
    LogCapture::clear();
    QTest::keyClick(focus, Qt::Key(key),
                    shift ? Qt::ControlModifier | Qt::ShiftModifier : Qt::ControlModifier);
    QCOMPARE(canvas->canUndo(), action == "REDO");
    QCOMPARE(named<QAbstractSpinBox>(w.get(), "brushSizeSpin")->text(), QString("8 px"));
    QStringList expected;
    for (const char *kind : {"ShortcutOverride", "KeyPress"})
        expected << QString::asprintf(
            "[PD-Undo] %-16s key=%s | thisActive=1 activeWin=DrawingWindow focus=%s recv=%s", kind,
            qPrintable(keyText), focus->metaObject()->className(),
            focus->metaObject()->className());
    QCOMPARE(LogCapture::matching("[PD-Undo]"), expected << "[PD-Undo]   -> canvas " + action);
}

// Faults: an editor that logs, or takes, Ctrl+Z meant for the host's window.
void TestDrawingWindow::inactiveEditorStaysQuiet()
{
    auto w = shown();
    strokeAcross(canvasOf(w.get()));
    QWidget host;
    int hostUndos = 0;
    connect(new QShortcut(QKeySequence("Ctrl+Z"), &host), &QShortcut::activated,
            [&hostUndos] { ++hostUndos; });
    host.show();
    host.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&host));
    LogCapture::clear();
    QTest::keyClick(&host, Qt::Key_Z, Qt::ControlModifier);
    QCOMPARE(hostUndos, 1);
    QVERIFY(canvasOf(w.get())->canUndo());
    QCOMPARE(LogCapture::matching("[PD-Undo]"), QStringList());
}

// Faults: a slow hand-off not logged, logged in another form, or the live
// image not handed over.
void TestDrawingWindow::slowHandOffIsLogged()
{
    auto source = std::make_unique<SlowSource>();
    SlowSource *slow = source.get();
    auto w = shown(std::move(source));
    QWidget *canvas = canvasOf(w.get());
    QTest::qWait(40); // past the shared throttle of any earlier window
    LogCapture::clear();
    mouse(canvas, QEvent::MouseButtonPress, QPointF(100, 100), Qt::LeftButton);
    mouse(canvas, QEvent::MouseMove, QPointF(160, 120), Qt::LeftButton);
    mouse(canvas, QEvent::MouseButtonRelease, QPointF(160, 120), Qt::NoButton);
    QCOMPARE(slow->liveImages, 1);
    const QStringList lines = LogCapture::matching("[PD] onDrawingUpdated:");
    QCOMPARE(lines.size(), 1);
    const QRegularExpressionMatch match =
        QRegularExpression("^\\[PD\\] onDrawingUpdated: composite \\d+ ms \\| upload (\\d+) ms$")
            .match(lines.first());
    QVERIFY2(match.hasMatch() && match.captured(1).toInt() >= 12, qPrintable(lines.first()));
}

void TestDrawingWindow::usersPopupRows_data()
{
    QTest::addColumn<bool>("asHost");
    QTest::addColumn<QStringList>("rows");
    QTest::newRow("host") << true
                          << QStringList{"Ada  (host)  (you)|\u2014", "Anon|35 ms|\u2715 Kick Anon",
                                         "Bob|\u2026|\u2715 Kick Bob"};
    QTest::newRow("client") << false
                            << QStringList{"Ada  (host)|\u2026", "Anon|35 ms", "Bob  (you)|\u2014"};
}

// Faults: a nameless user not shown as Anon, a wrong ping text, a kick button
// for a client or on one's own row, a kick of the wrong user, stale rows.
void TestDrawingWindow::usersPopupRows()
{
    QFETCH(bool, asHost);
    CoopUsersPopup popup;
    QSignalSpy kicks(&popup, &CoopUsersPopup::kickRequested);
    popup.setUsers({{9, "Old", 1, false, false}}, asHost);
    popup.setUsers(
        {{0, "Ada", -1, true, asHost}, {2, "", 35, false, false}, {3, "Bob", -1, false, !asHost}},
        asHost);
    QTEST(rowTexts(&popup), "rows");
    QCOMPARE(popup.findChildren<QLabel *>("usersHeader").last()->text(),
             QString("<b>Connected \u2014 3</b>"));
    if (asHost) {
        popup.findChildren<QWidget *>("userRow").last()->findChild<QToolButton *>()->click();
        QCOMPARE(kicks.size(), 1);
        QCOMPARE(kicks.first().first().toInt(), 3);
    }
}

// The co-op flavour. Faults: undo, redo or preview offered where nothing can
// be undone or previewed; the shared picture's size, tolerance or wiggle not
// taken; strokes or a clear not shared; files written; Ctrl+Z claimed.
void TestDrawingWindow::coopEditor()
{
    CoopCanvas &shared = CoopCanvas::instance();
    shared.setCanvasSize(800, 450);
    store().setValue("jitterEnabled", true);
    store().setValue("jitterAmount", 100);
    store().setValue("fillTolerance", 12);
    auto w = shown(makeCoopEditorSource());
    QVERIFY(w->isCoopMode());
    QCOMPARE(w->windowTitle(), QString("Pennoria: Draw \u2014 Co-op Canvas"));
    for (const char *absent : {"undoButton", "redoButton", "previewButton", "layersPopup"})
        QVERIFY2(!w->findChild<QWidget *>(absent), absent);
    QCOMPARE(named<QWidget>(w.get(), "layersButton")->toolTip(), QString("Connected users"));
    CanvasWidget *canvas = canvasOf(w.get());
    QCOMPARE(QSize(canvas->canvasWidth(), canvas->canvasHeight()), QSize(800, 450));
    QCOMPARE(canvas->fillTolerance(), 200);
    QVERIFY(shared.jitterEnabled());
    QCOMPARE(shared.jitterAmountPx(), 4.0f);

    const uint64_t before = shared.version();
    strokeAcross(canvas);
    QVERIFY(shared.version() > before);
    QVERIFY(shared.image() != canvas->document()->blankImage());
    QVERIFY(!named<QTimer>(w.get(), "saveTimer")->isActive());
    int shortcuts = 0;
    connect(new QShortcut(QKeySequence("Ctrl+Z"), w.get()), &QShortcut::activated,
            [&shortcuts] { ++shortcuts; });
    LogCapture::clear();
    QTest::keyClick(w.get(), Qt::Key_Z, Qt::ControlModifier);
    QCOMPARE(shortcuts, 1);
    QVERIFY(LogCapture::matching("[PD-Undo]").isEmpty());
    click(w.get(), "clearButton");
    QCOMPARE(shared.image(), canvas->document()->blankImage());
    shared.setJitterEnabled(false);
    shared.setCanvasSize(1920, 1080);
}

// A live session, this process joined to a host. Faults: a second Draw press
// opening a second co-op editor; the host's picture, strokes or clears not
// reaching the editor; the users pop-up not following the session or its
// closing click painting; the editor left open after the session ended.
void TestDrawingWindow::coopEditorFollowsSession()
{
    const quint16 port = freePort();
    QImage hostPicture(1920, 1080, QImage::Format_RGBA8888);
    hostPicture.fill(Qt::transparent);
    hostPicture.fill(Qt::transparent);
    for (int y = 0; y < 100; ++y)
        for (int x = 0; x < 100; ++x)
            hostPicture.setPixelColor(x, y, QColor(0, 128, 255));
    CoopSession host;
    host.setCanvasProvider([hostPicture] { return hostPicture; });
    QVERIFY2(host.host("Host", port), qPrintable(host.lastError()));
    CoopSession::instance().join("127.0.0.1", "Me", port);
    QTRY_VERIFY_WITH_TIMEOUT(CoopSession::instance().isWelcomed(), 10000);

    const QString key = CoopEditorSource::EditorKey;
    QPointer<DrawingWindow> w = EditorWindows::open(key, makeCoopEditorSource(), nullptr);
    QVERIFY(QTest::qWaitForWindowExposed(w));
    QCOMPARE(EditorWindows::raise(key), w.data());
    CanvasWidget *canvas = canvasOf(w);
    QTRY_COMPARE_WITH_TIMEOUT(canvas->flatComposite().pixelColor(50, 50), QColor(0, 128, 255),
                              10000);

    auto *users = w->findChild<CoopUsersPopup *>();
    click(w, "layersButton");
    QVERIFY(users->isVisible());
    QTRY_COMPARE_WITH_TIMEOUT(rowTexts(users).size(), 2, 10000);
    QCOMPARE(rowTexts(users).last(), QString("Me  (you)|\u2014"));
    const QPoint corner = named<QWidget>(w, "layersButton")->mapToGlobal(QPoint(32, 32));
    QCOMPARE(users->geometry().topRight() + QPoint(1, 0), corner + QPoint(0, 2));
    clickThroughWindow(canvas);
    QVERIFY(users->isHidden());
    QVERIFY(!canvas->canUndo());

    Stroke stroke;
    stroke.points = {{400, 400}, {800, 400}};
    stroke.color = QColor(200, 0, 0);
    stroke.width = 30.0f;
    host.sendStroke(stroke);
    QTRY_COMPARE_WITH_TIMEOUT(canvas->flatComposite().pixelColor(600, 400), QColor(200, 0, 0),
                              10000);
    host.sendClear();
    QTRY_COMPARE_WITH_TIMEOUT(canvas->flatComposite().pixelColor(600, 400), QColor(Qt::transparent),
                              10000);
    host.stop();
    QTRY_VERIFY_WITH_TIMEOUT(!w || !w->isVisible(), 10000);
    QVERIFY(!EditorWindows::raise(key));
}

void TestDrawingWindow::themesReadable_data()
{
    QTest::addColumn<bool>("dark");
    QTest::newRow("dark") << true;
    QTest::newRow("light") << false;
}

// Screenshots of the editor and every pop-up in OBS's dark and light themes,
// measured. Faults: text, borders or pings in a colour of the background
// (palette(mid) is the window colour in OBS's themes); a hovered tool whose
// icon fades into the hover colour; disabled undo that looks enabled; a black
// colour swatch that vanishes on a dark tool row.
void TestDrawingWindow::themesReadable()
{
    QFETCH(bool, dark);
    const QString suffix = dark ? "_dark" : "_light";
    QApplication::setPalette(theme(dark));
    auto w = shown();
    const QColor window = w->palette().color(QPalette::Window);
    strokeAcross(canvasOf(w.get()));
    canvasOf(w.get())->undo();
    emit w->findChild<ColorPickerWidget *>()->colorChanged(Qt::black);
    QImage picture = w->grab().toImage();
    saveScreenshot(w.get(), "editor_window" + suffix);
    checkTextReads(picture, w.get(), QPoint(), "window");
    auto *swatch = named<QWidget>(w.get(), "colorButton");
    const QPoint swatchEdge = swatch->mapTo(w.get(), QPoint(0, swatch->height() / 2));
    QVERIFY(EditorStyle::contrastRatio(picture.pixelColor(swatchEdge), window) >= 3.0);

    const auto iconContrast = [](QWidget *button) {
        return inkContrast(button->grab().toImage(),
                           QRect(6, 6, button->width() - 12, button->height() - 12));
    };
    auto *eraser = named<QWidget>(w.get(), "eraserButton");
    eraser->setAttribute(Qt::WA_UnderMouse);
    QVERIFY(iconContrast(eraser) >= EditorStyle::MinimumContrast);
    auto *undo = named<QWidget>(w.get(), "undoButton");
    auto *redo = named<QWidget>(w.get(), "redoButton");
    QVERIFY(!undo->isEnabled() && redo->isEnabled());
    QVERIFY2(iconContrast(undo) < 0.6 * iconContrast(redo),
             qPrintable(QString("%1 vs %2").arg(iconContrast(undo)).arg(iconContrast(redo))));

    const QList<std::pair<const char *, const char *>> popups = {
        {"colorPickerSection", "colorButton"}, {"jitterPopup", "jitterButton"},
        {"fillPopup", "fillButton"},           {"shapesPopup", "shapesButton"},
        {"previewPopup", "previewButton"},     {"layersPopup", "layersButton"}};
    for (const auto &[name, anchor] : popups) {
        auto *frame = named<QWidget>(w.get(), name);
        auto *button = named<QWidget>(w.get(), anchor);
        qobject_cast<QPushButton *>(button) && button->objectName() != "shapesButton"
            ? longPress(button)
            : QTest::mouseClick(button, Qt::LeftButton);
        QTest::qWait(50); // rows added to a shown panel appear with the next events
        picture = w->grab().toImage();
        saveScreenshot(w.get(), QString("editor_") + name + suffix);
        checkTextReads(picture, frame, frame->pos(), name);
        const QPoint border = frame->pos() + QPoint(0, frame->height() / 2);
        QVERIFY2(EditorStyle::contrastRatio(picture.pixelColor(border), window) >=
                     EditorStyle::MinimumContrast,
                 name);
        QTest::mouseClick(canvasOf(w.get()), Qt::LeftButton, {}, QPoint(5, 5));
    }

    // The users pop-up is a window of its own, shot and measured by itself.
    auto coop = shown(makeCoopEditorSource());
    click(coop.get(), "layersButton");
    auto *users = coop->findChild<CoopUsersPopup *>();
    users->setUsers({{0, "Ada", -1, true, true}, {2, "", 35, false, false}}, true);
    users->adjustSize();
    QTest::qWait(50);
    picture = users->grab().toImage();
    QVERIFY(picture.save(QStringLiteral(PD_BINARY_DIR "/screenshots/editor_coopUsersPopup") +
                         suffix + ".png"));
    checkTextReads(picture, users, QPoint(), "users");
    QVERIFY(EditorStyle::contrastRatio(picture.pixelColor(0, picture.height() / 2), window) >=
            EditorStyle::MinimumContrast);
}

QTEST_MAIN(TestDrawingWindow)
#include "tst_drawing_window.moc"
