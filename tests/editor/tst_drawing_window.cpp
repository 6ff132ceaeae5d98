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
#include "files/CanvasDirectory.h"
#include "files/CanvasSaver.h"
#include "widgets/ColorPickerWidget.h"
#include "widgets/LongPressButton.h"

#include <QAbstractSpinBox>
#include <QLabel>
#include <QSettings>
#include <QShortcut>
#include <QStyle>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QThread>
#include <QToolButton>

using namespace EditorTestInput;

namespace {

QSettings store()
{
    return QSettings(QStringLiteral("PennoriaDraw"), QStringLiteral("Canvas"));
}

// Records what the editor hands its source; a slow one takes longer over the
// live image than the editor's budget, as a busy graphics thread can.
struct FakeSource final : EditorSource {
    explicit FakeSource(QString k = QString(), int liveMs = 0) : key(k), ms(liveMs) {}
    QString key;
    int ms;
    int liveImages = 0, strokes = -1;
    bool jitterOn = false;
    float amount = 0.0f, interval = 0.0f;
    QImage scene;
    std::function<void()> removed;
    QSize canvasSize() const override { return QSize(640, 360); }
    QString canvasKey() const override { return key; }
    void commit(const QVector<Stroke> &all, const QImage &) override { strokes = int(all.size()); }
    void setLiveImage(const QImage &) override { ++liveImages, QThread::msleep(ms); }
    void setJitterEnabled(bool on) override { jitterOn = on; }
    void setJitterAmount(float px) override { amount = px; }
    void setJitterInterval(float seconds) override { interval = seconds; }
    QImage captureScene() override { return scene; }
    void setRemovedCallback(std::function<void()> callback) override { removed = callback; }
};

// An editor on a fake source, shown and active.
struct Shown {
    FakeSource *source;
    std::unique_ptr<DrawingWindow> window;
    CanvasWidget *canvas;
    explicit Shown(std::unique_ptr<FakeSource> owned = std::make_unique<FakeSource>())
        : source(owned.get()), window(std::make_unique<DrawingWindow>(std::move(owned), nullptr)),
          canvas(window->findChild<CanvasWidget *>())
    {
        window->resize(1100, 720);
        window->show();
        window->activateWindow();
        static_cast<void>(QTest::qWaitForWindowActive(window.get()));
    }
    DrawingWindow *operator->() const { return window.get(); }
    template <typename T = QWidget> T *find(const QString &name) const
    {
        return window->findChild<T *>(name);
    }
    // Clicks the button at a path of object names ("dockedLayerPanel/pinButton").
    void click(const QString &path) const
    {
        QObject *parent = window.get();
        for (const QString &name : path.split('/'))
            parent = parent->findChild<QObject *>(name);
        qobject_cast<QAbstractButton *>(parent)->click();
    }
};

// Each pop-up and the button that opens it: a long press on the buttons with
// a corner mark, a click on the others.
const std::pair<const char *, const char *> Popups[] = {
    {"colorPickerSection", "colorButton"}, {"jitterPopup", "jitterButton"},
    {"fillPopup", "fillButton"},           {"shapesPopup", "shapesButton"},
    {"previewPopup", "previewButton"},     {"layersPopup", "layersButton"}};

void openWith(QWidget *button)
{
    auto *marked = qobject_cast<LongPressButton *>(button);
    marked && marked->showIndicator ? longPress(button) : QTest::mouseClick(button, Qt::LeftButton);
}

// A click in the middle of target as the window system delivers it: to the
// window first, where pop-ups see it.
void clickThroughWindow(QWidget *target)
{
    QTest::mouseClick(target->window()->windowHandle(), Qt::LeftButton, {},
                      target->mapTo(target->window(), target->rect().center()));
}

// OBS's default dark theme ("Yami") and its light variant, as they set the
// palette: window, base, light, mid, highlight, button, then the text roles.
QPalette theme(bool dark)
{
    QPalette palette = QApplication::style()->standardPalette();
    const QStringList colors = QString(dark ? "1d1f26 272a33 4e5566 1d1f26 284cb8 3c404d ffffff"
                                            : "d3d3d3 e5e5e5 fefefe d3d3d3 8cb5ff f3f3f3 000000")
                                   .split(' ');
    const QPalette::ColorRole roles[] = {
        QPalette::Window,     QPalette::Base,           QPalette::Light,      QPalette::Mid,
        QPalette::Highlight,  QPalette::Button,         QPalette::WindowText, QPalette::Text,
        QPalette::ButtonText, QPalette::HighlightedText};
    for (int i = 0; i < 10; ++i)
        palette.setColor(roles[i], QColor('#' + colors[std::min(i, 6)]));
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
    const QColor background(
        std::max_element(counts.keyValueBegin(), counts.keyValueEnd(), [](auto a, auto b) {
            return a.second < b.second;
        })->first);
    double best = 1.0;
    for (auto it = counts.cbegin(); it != counts.cend(); ++it)
        best = std::max(best, EditorStyle::contrastRatio(QColor(it.key()), background));
    return best;
}

// Every piece of text inside root as drawn in picture (root's origin at offset).
void checkTextReads(const QImage &picture, QWidget *root, const QPoint &offset)
{
    for (QWidget *w : root->findChildren<QWidget *>()) {
        const QString text = w->property("text").toString();
        if (!w->isVisible() || text.isEmpty())
            continue;
        const double contrast = inkContrast(picture, QRect(w->mapTo(root, offset), w->size()));
        QVERIFY2(contrast >= EditorStyle::MinimumContrast,
                 qPrintable(QString("%1 \"%2\" %3:1").arg(root->objectName(), text).arg(contrast)));
    }
}

// The visible rows of a users pop-up: each part's text and tooltip.
QStringList rowTexts(const QWidget *popup)
{
    QStringList rows;
    for (const QWidget *row : popup->findChildren<QWidget *>("userRow")) {
        QStringList parts;
        for (const QWidget *part : row->findChildren<QWidget *>())
            parts << (part->property("text").toString() + " " + part->toolTip()).trimmed();
        if (!row->isHidden())
            rows << parts.join('|');
    }
    return rows;
}

// The canvas's tool state on one line: "brush=8 tool=0 color=#ff000000 ...".
QString canvasState(const CanvasWidget *c)
{
    return QString("brush=%1 tool=%2 color=%3 fill=%4 amount=%5 interval=%6 wiggle=%7 ")
               .arg(QString::number(c->brushSize()), QString::number(c->tool()),
                    c->brushColor().name(QColor::HexArgb), QString::number(c->fillTolerance()),
                    QString::number(c->wiggleAmount()), QString::number(c->wiggleInterval()),
                    QString::number(c->wiggleEnabled())) +
           QString("shape=%1 mode=%2 erase=%3 preview=%4 ")
               .arg(c->shapeType())
               .arg(c->shapeMode())
               .arg(c->shapeErase())
               .arg(QString::number(c->previewOpacity()));
}

void row(const char *tag, const char *key, const QVariant &stored, const char *shownBy,
         const QVariant &shown, const char *change, const QVariant &to, const QVariant &saved,
         const char *before, const char *after)
{
    QTest::newRow(tag) << QString(key) << QString(shownBy) << QString(change) << QString(before)
                       << QString(after) << stored << shown << to << saved;
}

} // namespace

class TestDrawingWindow : public QObject {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY(m_settings.isValid());
        QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, m_settings.path());
    }
    void init() { store().clear(), LogCapture::clear(); }
    void cleanup()
    {
        CoopSession::instance().stop();
        QApplication::setPalette(QApplication::style()->standardPalette());
        CanvasSaver::waitForPendingSaves();
    }
    void settingsRoundTrip_data();
    void settingsRoundTrip();
    void popups_data();
    void popups();
    void toolRow();
    void undoChords_data();
    void undoChords();
    void liveImagesAndCommits();
    void drawingOnDisk();
    void coopEditor();
    void themesReadable();

private:
    void endDrawing(const QString &ending);
    QTemporaryDir m_settings;
    LogCapture m_log;
};

void TestDrawingWindow::settingsRoundTrip_data()
{
    for (const char *column : {"key", "shownBy", "change", "before", "after"})
        QTest::addColumn<QString>(column);
    for (const char *column : {"stored", "shown", "to", "saved"})
        QTest::addColumn<QVariant>(column);
    const QVariant click;
    row("size", "brushSize", 400, "brushSizeSlider", 150, "brushSizeSpin", 12, 12, "brush=400",
        "brush=12");
    row("tool", "tool", 2, "fillButton", true, "eraserButton", click, 1, "tool=2", "tool=1");
    row("colour", "color", "#2080f0", "", {}, "picker", "#80010203", "#010203", "color=#ff2080f0",
        "color=#ff010203");
    row("opacity", "opacity", 40, "opacityLabel", "40%", "opacitySlider", 70, 70, "color=#66000000",
        "color=#b2000000");
    row("fill", "fillTolerance", 12, "fillToleranceSpin", 12, "fillToleranceSlider", 99, 99,
        "fill=12", "fill=99");
    row("amount", "jitterAmount", 100, "jitterAmountSlider", 100, "jitterAmountSpin", 0, 0,
        "amount=4", "amount=0.1");
    row("speed", "jitterSpeed", 5, "jitterSpeedSpin", 5, "jitterSpeedSlider", 100, 100,
        "interval=500", "interval=33");
    row("wiggle", "jitterEnabled", true, "jitterButton", true, "jitterButton", click, false,
        "wiggle=1", "wiggle=0");
    row("shape", "shapeType", 7, "shapeArrow", true, "shapeStar", click, 4, "shape=7", "shape=4");
    row("mode", "shapeMode", 1, "shapeOutline", true, "shapeFilled", click, 0, "mode=1", "mode=0");
    row("erase", "shapeErase", true, "shapeEraseButton", true, "shapeEraseButton", click, false,
        "erase=1", "erase=0");
    row("preview", "previewOpacity", 33, "previewOpacitySpin", 33, "previewOpacitySlider", 80, 80,
        "preview=0.33", "preview=0.8");
}

// Every field of the settings through its feature: applied to the control and
// the canvas at start, a change of the control reaching the canvas, its paired
// control and (wiggle) the source, collected on close with the geometry.
// Faults: a feature that skips, swaps or mis-maps a field (a wiggle speed off
// by one frame); a pair that does not follow; a control that does not reach
// the canvas or the stream.
void TestDrawingWindow::settingsRoundTrip()
{
    QFETCH(QString, key);
    QFETCH(QString, change);
    QFETCH(QVariant, to);
    QFETCH(QVariant, stored);
    store().setValue(key, stored);
    Shown w;
    QFETCH(QString, shownBy);
    if (QObject *shown = w.find<QObject>(shownBy)) {
        const char *property = qobject_cast<QAbstractButton *>(shown) ? "checked"
                               : qobject_cast<QLabel *>(shown)        ? "text"
                                                                      : "value";
        QTEST(shown->property(property), "shown");
    }
    QFETCH(QString, before);
    QVERIFY2(canvasState(w.canvas).contains(before + ' '), qPrintable(canvasState(w.canvas)));
    if (change == "picker") {
        emit w.find<ColorPickerWidget>(QString())->colorChanged(QColor(to.toString()));
    } else if (!to.isValid()) {
        w.click(change);
    } else {
        w.find<QObject>(change)->setProperty("value", to);
        QString partner = change;
        partner.replace("Spin", "X").replace("Slider", "Spin").replace("X", "Slider");
        if (const QObject *other = w.find<QObject>(partner))
            QCOMPARE(other->property("value").toInt(),
                     std::min(to.toInt(), other->property("maximum").toInt()));
    }
    QFETCH(QString, after);
    QVERIFY2(canvasState(w.canvas).contains(after + ' '), qPrintable(canvasState(w.canvas)));
    QCOMPARE(w.source->jitterOn, w.canvas->wiggleEnabled());
    QCOMPARE(w.source->amount, w.canvas->wiggleAmount());
    QCOMPARE(int(1000.0f * w.source->interval), w.canvas->wiggleInterval());
    w->resize(700, 500);
    w->close();
    QFETCH(QVariant, saved);
    QCOMPARE(store().value(key).toString(), saved.toString());
    QCOMPARE(DrawingWindow(nullptr, nullptr).size(), QSize(700, 500));
}

void TestDrawingWindow::popups_data()
{
    QTest::addColumn<QString>("popup");
    QTest::addColumn<QString>("anchor");
    QTest::addColumn<QStringList>("closers"); // clicks that leave the pop-up of no use
    QTest::addColumn<int>("tool");
    const char *closers[] = {"",
                             "jitterButton",
                             "",
                             "eraserButton",
                             "previewButton",
                             "popupLayerPanel/pinButton layersButton"};
    const int tools[] = {0, 0, 2, 1, 0, 0};
    for (int i = 0; i < 6; ++i)
        QTest::newRow(Popups[i].first)
            << QString(Popups[i].first) << QString(Popups[i].second)
            << QString(closers[i]).split(' ', Qt::SkipEmptyParts) << tools[i];
}

// Faults: a pop-up that opens elsewhere than under its button or outside the
// window, does not fold on a second click of its button, stays open on a
// press outside or closes on one inside; the press that closes it paints a
// dot; turning the wiggle or the preview off, choosing another tool or pinning
// the layers leaves a useless pop-up open; Layers opens a pop-up while pinned.
void TestDrawingWindow::popups()
{
    QFETCH(QString, popup);
    QFETCH(QString, anchor);
    QFETCH(QStringList, closers);
    Shown w;
    auto *frame = w.find(popup);
    auto *button = w.find(anchor);
    const bool held = qobject_cast<LongPressButton *>(button);
    openWith(button);
    QVERIFY(frame->isVisible());
    QVERIFY(frame->y() >= button->mapTo(w.window.get(), QPoint(0, button->height())).y());
    QVERIFY(QRect(4, 4, w->width() - 8, w->height() - 8).contains(frame->geometry()));
    QTest::mouseClick(frame, Qt::LeftButton, {}, QPoint(2, 2));
    QTest::mouseClick(button, Qt::LeftButton);
    QCOMPARE(frame->isVisible(), held); // a click on its button folds it
    if (!held)
        openWith(button);
    w->resize(900, 720);
    QTRY_VERIFY(frame->isVisible() && frame->geometry().right() <= w->width() - 4);
    clickThroughWindow(w.canvas);
    QVERIFY(frame->isHidden());
    QVERIFY(!w.canvas->canUndo());

    openWith(button); // the wiggle and the preview are on since the click above
    for (const QString &path : closers)
        w.click(path);
    QCOMPARE(frame->isVisible(), closers.isEmpty());
    QTEST(w.canvas->tool(), "tool");
    if (popup == "layersPopup") {
        QVERIFY(w.find("dockedLayerPanel")->isVisible());
        w.click("dockedLayerPanel/pinButton");
        w.click("layersButton");
        QVERIFY(frame->isVisible());
    }
}

// Faults: Enter after typing a size, or on a focused tool, clicks a button of
// the dialog (auto-default buttons); at the narrowest width the window allows
// controls lie on each other.
void TestDrawingWindow::toolRow()
{
    Shown w;
    strokeAcross(w.canvas);
    w.click("eraserButton");
    auto *spin = w.find<QAbstractSpinBox>("brushSizeSpin");
    spin->setFocus();
    spin->selectAll();
    QTest::keyClicks(spin, "12");
    QTest::keyClick(spin, Qt::Key_Return);
    QCOMPARE(w.canvas->brushSize(), 12.0f);
    w.find("shapesButton")->setFocus();
    QTest::keyClick(w.find("shapesButton"), Qt::Key_Enter);
    QCOMPARE(w.canvas->tool(), int(Tool::Eraser));
    QCOMPARE(w.source->strokes, 1); // not cleared

    for (const int width : {640, w->minimumSizeHint().width()}) {
        w->resize(width, 600);
        QTRY_COMPARE(w->width(), std::max(width, w->minimumWidth()));
        QList<QRect> taken;
        for (QAbstractButton *c : w->findChildren<QAbstractButton *>()) {
            const QRect r(c->mapTo(w.window.get(), QPoint()), c->size());
            if (!c->isVisible())
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
    QTest::addColumn<int>("modifiers");
    QTest::addColumn<QString>("logged"); // the key as the lines name it, empty for no lines
    QTest::addColumn<QString>("action");
    const int ctrl = Qt::ControlModifier;
    const int shift = Qt::ControlModifier | Qt::ShiftModifier;
    QTest::newRow("Ctrl+Z") << int(Qt::Key_Z) << ctrl << "Z" << "UNDO";
    QTest::newRow("Ctrl+Y") << int(Qt::Key_Y) << ctrl << "Y" << "REDO";
    QTest::newRow("Ctrl+Shift+Y") << int(Qt::Key_Y) << shift << "Y+Shift" << "REDO";
    QTest::newRow("Ctrl+Shift+Z") << int(Qt::Key_Z) << shift << "Z+Shift" << "REDO";
    QTest::newRow("host window active") << int(Qt::Key_Z) << ctrl << "" << "HOST";
}

// With the focus in the size spin box the chords act on the drawing, each
// logged once as an override and once as a press; with the host's window
// active the editor neither acts nor logs. Faults: a chord mapped to the
// wrong action or left to the focused widget; a different log line; log
// lines, or an undo, for a chord meant for the host.
void TestDrawingWindow::undoChords()
{
    QFETCH(int, key);
    QFETCH(int, modifiers);
    QFETCH(QString, logged);
    QFETCH(QString, action);
    Shown w;
    strokeAcross(w.canvas);
    if (action == "REDO")
        w.canvas->undo();
    QWidget host;
    int hostUndos = 0;
    connect(new QShortcut(QKeySequence("Ctrl+Z"), &host), &QShortcut::activated,
            [&hostUndos] { ++hostUndos; });
    QWidget *focus = action == "HOST" ? &host : w.find("brushSizeSpin");
    if (focus == &host) {
        host.show();
        host.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&host));
    }
    focus->setFocus();
    focus = QApplication::focusWidget() ? QApplication::focusWidget() : focus;
    LogCapture::clear();
    QTest::keyClick(focus, Qt::Key(key), Qt::KeyboardModifiers(modifiers));
    QCOMPARE(w.canvas->canUndo(), action != "UNDO");
    QCOMPARE(hostUndos, int(action == "HOST"));
    QStringList expected;
    const char *at = focus->metaObject()->className();
    for (const char *kind : {"ShortcutOverride", "KeyPress"})
        expected << QString::asprintf(
            "[PD-Undo] %-16s key=%s | thisActive=1 activeWin=DrawingWindow focus=%s recv=%s", kind,
            qPrintable(logged), at, at);
    expected << "[PD-Undo]   -> canvas " + action;
    QCOMPARE(LogCapture::matching("[PD-Undo]"), logged.isEmpty() ? QStringList() : expected);
}

// Faults: every move handed to the source, or none; a dropped update sent
// later; a slow hand-off not logged, or in another form; a commit or a Clear
// that leaves the stream behind; no scene behind the canvas, or a capture
// timer left running.
void TestDrawingWindow::liveImagesAndCommits()
{
    Shown w(std::make_unique<FakeSource>(QString(), 12));
    QTest::qWait(40); // past the shared throttle of any earlier window
    LogCapture::clear();
    QElapsedTimer clock;
    clock.start();
    QTest::mousePress(w.canvas, Qt::LeftButton, {}, QPoint(100, 100));
    for (int move = 1; clock.elapsed() < 300; ++move)
        QTest::mouseMove(w.canvas, QPoint(100 + move % 300, 100 + move % 2 * 20));
    const int live = w.source->liveImages;
    QVERIFY2(live >= 2 && live <= clock.elapsed() / DrawingWindow::LiveUpdateIntervalMs + 1,
             qPrintable(QString::number(live)));
    QTest::qWait(100);
    QTest::mouseRelease(w.canvas, Qt::LeftButton, {}, QPoint(160, 120));
    QCOMPARE(w.source->liveImages, live);
    QCOMPARE(w.source->strokes, 1);
    const QStringList lines = LogCapture::matching("[PD] onDrawingUpdated:");
    QCOMPARE(lines.size(), live);
    QVERIFY2(
        lines.first().contains(QRegularExpression("^\\[PD\\] onDrawingUpdated: composite \\d+ ms "
                                                  "\\| upload (1[2-9]|[2-9]\\d|\\d{3,}) ms$")),
        qPrintable(lines.first()));
    w.click("clearButton");
    QCOMPARE(w.source->strokes, 0);

    w.source->scene = QImage(640, 360, QImage::Format_RGBA8888);
    w.source->scene.fill(Qt::blue);
    w.click("previewButton");
    QVERIFY(w.find<QTimer>("previewTimer")->isActive());
    const QColor middle = w.canvas->grab().toImage().pixelColor(w.canvas->rect().center());
    QVERIFY2(middle.blue() > 200 && middle.red() < 50, qPrintable(middle.name()));
    w.click("previewButton");
    QVERIFY(!w.find<QTimer>("previewTimer")->isActive());
}

// Faults: files written at once, or not 1.5 s after the last change (a timer
// not restarted, or blind to changes of the layers); the last changes lost on
// Escape or close; a removed source's files written again; the saved drawing
// not loaded, or not shown on the stream, by the next editor.
void TestDrawingWindow::drawingOnDisk()
{
    for (const QString ending : {"wait", "close", "escape", "removed"})
        endDrawing(ending);
}

// Ends an editor with a change 1 s old: by waiting for the save, closing,
// Escape or the removal of its source.
void TestDrawingWindow::endDrawing(const QString &ending)
{
    const QString key = "disk-" + ending;
    const QString file = canvasDirectory(key) + "/canvas_layers.json";
    {
        Shown w(std::make_unique<FakeSource>(key));
        strokeAcross(w.canvas);
        QTest::qWait(1000);
        w.canvas->addLayer();
        QElapsedTimer sinceChange;
        sinceChange.start();
        if (ending == "wait") {
            QTRY_VERIFY_WITH_TIMEOUT(QFileInfo::exists(file), 15000);
            QVERIFY(sinceChange.elapsed() >= 1400);
        } else if (ending == "removed") {
            w.source->removed();
            QTRY_VERIFY(!w->isVisible());
            QTest::qWait(1600);
        } else {
            QVERIFY(!QFileInfo::exists(file));
            ending == "close" ? void(w->close()) : QTest::keyClick(w.window.get(), Qt::Key_Escape);
            QVERIFY(!w->isVisible());
        }
        CanvasSaver::waitForPendingSaves();
    }
    QCOMPARE(QFileInfo::exists(file), ending != "removed");
    if (QFileInfo::exists(file)) {
        Shown next(std::make_unique<FakeSource>(key));
        QCOMPARE(next.canvas->layerCount(), 2);
        QVERIFY(next.canvas->flatComposite() != next.canvas->document()->blankImage());
        QCOMPARE(next.source->strokes, 0); // the loaded picture went to the stream
    }
}

// The co-op editor, this process joined to a host on a free port. Faults:
// undo, redo or preview offered where nothing can be undone or previewed; the
// shared size, tolerance or wiggle not taken; a second Draw press opening a
// second editor; strokes or a Clear not shared, or files written; the host's
// picture, strokes or clears not reaching the canvas; the
// users pop-up not following the session, its closing click painting, kick
// buttons for a client; the editor left open after the session ended.
void TestDrawingWindow::coopEditor()
{
    QTcpServer freePort;
    const quint16 port = freePort.listen(QHostAddress::LocalHost) ? freePort.serverPort() : 0;
    freePort.close();
    QImage hostPicture(800, 450, QImage::Format_RGBA8888);
    hostPicture.fill(Qt::transparent);
    hostPicture.setPixelColor(50, 50, QColor(0, 128, 255));
    CoopSession host;
    host.setCanvasProvider([hostPicture] { return hostPicture; });
    QVERIFY2(host.host("Host", port), qPrintable(host.lastError()));
    CoopCanvas &shared = CoopCanvas::instance();
    shared.setCanvasSize(800, 450);
    store().setValue("jitterEnabled", true);
    store().setValue("fillTolerance", 12);

    const QString key = CoopEditorSource::EditorKey;
    QPointer<DrawingWindow> w = EditorWindows::open(key, makeCoopEditorSource(), nullptr);
    QVERIFY(QTest::qWaitForWindowActive(w));
    QCOMPARE(EditorWindows::raise(key), w.data());
    QCOMPARE(w->windowTitle(), QString("Pennoria: Draw \u2014 Co-op Canvas"));
    for (const char *absent : {"undoButton", "redoButton", "previewButton", "layersPopup"})
        QVERIFY2(!w->findChild<QWidget *>(absent), absent);
    auto *canvas = w->findChild<CanvasWidget *>();
    QCOMPARE(QSize(canvas->canvasWidth(), canvas->canvasHeight()), QSize(800, 450));
    QCOMPARE(canvas->fillTolerance(), 200);
    QVERIFY(shared.jitterEnabled());
    strokeAcross(canvas);
    // The shared picture is painted on its own thread, straight alpha.
    const QImage blank = canvas->document()->blankImage().convertToFormat(QImage::Format_RGBA8888);
    QTRY_VERIFY(shared.image() != blank);
    w->findChild<QAbstractButton *>("clearButton")->click();
    QTRY_COMPARE(shared.image(), blank);
    QVERIFY(!w->findChild<QTimer *>("saveTimer")->isActive());

    CoopSession::instance().join("127.0.0.1", "Me", port);
    QTRY_COMPARE_WITH_TIMEOUT(canvas->flatComposite().pixelColor(50, 50), QColor(0, 128, 255),
                              10000);
    auto *users = w->findChild<CoopUsersPopup *>();
    auto *usersButton = w->findChild<QWidget *>("layersButton");
    QTest::mouseClick(usersButton, Qt::LeftButton);
    QTRY_COMPARE_WITH_TIMEOUT(rowTexts(users).size(), 2, 10000);
    QCOMPARE(rowTexts(users).last(), QString("Me  (you)|\u2014"));
    QVERIFY(!users->findChild<QToolButton *>());
    const QPoint corner = usersButton->mapToGlobal(QPoint(32, 34));
    QCOMPARE(users->geometry().topRight() + QPoint(1, 0), corner);
    clickThroughWindow(canvas);
    QVERIFY(users->isHidden());
    QVERIFY(!canvas->canUndo());
    QVERIFY(users->testAttribute(Qt::WA_NoMouseReplay)); // nor replayed on a real display
    const Stroke stroke{{{400, 300}, {700, 300}}, QColor(200, 0, 0), 30.0f};
    host.sendStroke(stroke);
    QTRY_COMPARE_WITH_TIMEOUT(canvas->flatComposite().pixelColor(600, 300), stroke.color, 10000);
    host.sendClear();
    QTRY_COMPARE_WITH_TIMEOUT(canvas->flatComposite().pixel(600, 300), 0u, 10000);
    host.stop();
    QTRY_VERIFY_WITH_TIMEOUT(!w || !w->isVisible(), 10000);
    QVERIFY(!EditorWindows::raise(key));
    shared.setJitterEnabled(false);
    shared.setCanvasSize(1920, 1080);
}

// Screenshots of the editor and every pop-up in OBS's dark and light themes,
// measured. Faults: text, borders or pings in the background's colour
// (palette(mid) is the window colour in OBS's themes); a hovered tool whose
// icon fades into the hover colour; disabled undo that looks enabled; a black
// colour swatch that vanishes on a dark tool row; in the host's list of
// users a nameless user not shown as Anon, a kick of the wrong user, stale rows.
void TestDrawingWindow::themesReadable()
{
    for (const QString theme : {"_dark", "_light"}) {
        QApplication::setPalette(::theme(theme == "_dark"));
        const QColor window = QApplication::palette().color(QPalette::Window);
        const auto reads = [&](const QImage &picture, QPoint at) {
            return EditorStyle::contrastRatio(picture.pixelColor(at), window) >=
                   EditorStyle::MinimumContrast;
        };
        Shown w;
        strokeAcross(w.canvas);
        w.canvas->undo();
        emit w.find<ColorPickerWidget>(QString())->colorChanged(Qt::black);
        saveScreenshot(w.window.get(), "editor_window" + theme);
        QImage picture = w->grab().toImage();
        checkTextReads(picture, w.window.get(), QPoint());
        QVERIFY(reads(picture, w.find("colorButton")->mapTo(w.window.get(), QPoint(0, 14))));
        const auto iconContrast = [&](const char *name) {
            return inkContrast(w.find(name)->grab().toImage(), QRect(6, 6, 16, 16));
        };
        w.find("eraserButton")->setAttribute(Qt::WA_UnderMouse);
        QVERIFY(iconContrast("eraserButton") >= EditorStyle::MinimumContrast);
        QVERIFY(iconContrast("undoButton") < 0.6 * iconContrast("redoButton"));

        for (const auto &[name, anchor] : Popups) {
            auto *frame = w.find(name);
            openWith(w.find(anchor));
            QTest::qWait(50); // rows added to a shown panel appear with the next events
            saveScreenshot(w.window.get(), QString("editor_") + name + theme);
            picture = w->grab().toImage();
            checkTextReads(picture, frame, frame->pos());
            QVERIFY2(reads(picture, frame->pos() + QPoint(0, frame->height() / 2)), name);
            clickThroughWindow(w.canvas);
        }

        CoopUsersPopup users; // a window of its own, shot and measured by itself
        QSignalSpy kicks(&users, &CoopUsersPopup::kickRequested);
        users.setUsers({{9, "Old", 1, false, false}}, true);
        users.setUsers({{0, "Ada", -1, true, true}, {2, "", 35, false, false}, {3, "Bo", -1}},
                       true);
        QCOMPARE(rowTexts(&users),
                 QStringList({"Ada  (host)  (you)|\u2014", "Anon|35 ms|\u2715 Kick Anon",
                              "Bo|\u2026|\u2715 Kick Bo"}));
        QCOMPARE(users.findChildren<QLabel *>("usersHeader").last()->text(),
                 QString("<b>Connected \u2014 3</b>"));
        users.findChildren<QToolButton *>().last()->click();
        QCOMPARE(kicks.value(0).value(0).toInt(), 3);
        users.show();
        QVERIFY(QTest::qWaitForWindowExposed(&users));
        saveScreenshot(&users, "editor_coopUsersPopup" + theme);
        picture = users.grab().toImage();
        checkTextReads(picture, &users, QPoint());
        QVERIFY(reads(picture, QPoint(0, picture.height() / 2)));
    }
}

QTEST_MAIN(TestDrawingWindow)
#include "tst_drawing_window.moc"
