// Qt first: libobs's SIMD aliases break the compiler's intrinsics headers
// when they come before them.
#include <QElapsedTimer>
#include <QImage>
#include <QPushButton>
#include <QSpinBox>
#include <QtTest>

#include "EditorTestInput.h"
#include "ObsHost.h"

#include "CanvasSource.h"
#include "FrontendApi.h"
#include "ObsEditorSource.h"
#include "SourceRegistry.h"
#include "canvas/CanvasWidget.h"
#include "editor/DrawingWindow.h"
#include "engine/CanvasDocument.h"
#include "files/CanvasDirectory.h"
#include "files/CanvasFiles.h"
#include "files/CanvasSaver.h"

#include <obs-module.h>

#include <memory>

using namespace EditorTestInput;

namespace {

constexpr int Width = 640;
constexpr int Height = 360;

// A canvas source of the real libobs and an editor open on it.
struct Editing {
    OBSSourceAutoRelease source;
    std::unique_ptr<DrawingWindow> window;
    CanvasWidget *canvas = nullptr;

    explicit Editing(const char *name)
        : source(obs_source_create("pennoria_canvas", name, nullptr, nullptr))
    {
        window = std::make_unique<DrawingWindow>(makeEditorSource(source), nullptr);
        window->resize(900, 600);
        window->show();
        canvas = window->findChild<CanvasWidget *>();
    }
    CanvasSourceData *record() const
    {
        return static_cast<CanvasSourceData *>(obs_obj_get_data(source));
    }
    QString file(const char *name) const
    {
        return canvasDirectory(QString::fromUtf8(obs_source_get_uuid(source))) + name;
    }
    QImage savedImage() const
    {
        return QImage(file("/canvas.png")).convertToFormat(QImage::Format_RGBA8888);
    }
};

// Hands the capture a real libobs scene as the "current scene".
class SceneFrontend final : public FrontendApi {
public:
    obs_source_t *scene = nullptr;
    obs_source_t *currentScene() override { return obs_source_get_ref(scene); }
    QMainWindow *mainWindow() override { return nullptr; }
};

QImage solid(QColor color)
{
    QImage image(Width, Height, QImage::Format_RGBA8888);
    image.fill(color);
    return image;
}

} // namespace

class TestEditorHost : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void cleanup() { CanvasSaver::waitForPendingSaves(); }

    void editorSourceContract();
    void liveUpdatesAreThrottled();
    void changesCommitAtOnceAndSaveAfterTheLastOne();
    void endingTheEditor_data();
    void endingTheEditor();
    void controlsReachSource();
    void savedDrawingLoadsAndCommits();
    void previewShowsCurrentScene();

private:
    ObsHost m_host;
};

void TestEditorHost::initTestCase()
{
    ObsHost::Options options;
    options.width = Width;
    options.height = Height;
    QVERIFY2(m_host.start(options), qPrintable(m_host.error()));
}

void TestEditorHost::cleanupTestCase()
{
    FrontendApi::setInstance(nullptr);
    m_host.stop();
}

// Faults: an editor source for a co-op source or none; a wrong key or size;
// the reference released early or never.
void TestEditorHost::editorSourceContract()
{
    QVERIFY(!makeEditorSource(nullptr));
    OBSSourceAutoRelease coop = obs_source_create("pennoria_coop_canvas", "co", nullptr, nullptr);
    QVERIFY(!makeEditorSource(coop));

    obs_source_t *raw = obs_source_create("pennoria_canvas", "held", nullptr, nullptr);
    std::unique_ptr<EditorSource> source = makeEditorSource(raw);
    QVERIFY(source);
    QCOMPARE(source->canvasKey(), QString::fromUtf8(obs_source_get_uuid(raw)));
    QCOMPARE(source->canvasSize(), QSize(Width, Height));
    QVERIFY(!source->coop());
    obs_source_release(raw);
    obs_wait_for_destroy_queue();
    QVERIFY(SourceRegistry::instance().find(raw));
    source.reset();
    QTRY_VERIFY_WITH_TIMEOUT((obs_wait_for_destroy_queue(), !SourceRegistry::instance().find(raw)),
                             10000);
}

// Faults: every move sent to the source; the throttle not shared or never
// restarted; a dropped update delivered later.
void TestEditorHost::liveUpdatesAreThrottled()
{
    Editing e("live canvas");
    QVERIFY(QTest::qWaitForWindowExposed(e.window.get()));
    QCOMPARE(e.record()->liveImageCount(), 0);
    QElapsedTimer clock;
    clock.start();
    mouse(e.canvas, QEvent::MouseButtonPress, QPointF(40, 100), Qt::LeftButton);
    int moves = 0;
    while (clock.elapsed() < 500) {
        ++moves;
        mouse(e.canvas, QEvent::MouseMove, QPointF(40 + (moves % 200) * 3, 100 + (moves % 2) * 40),
              Qt::LeftButton);
        QTest::qWait(2);
    }
    const qint64 dragMs = clock.elapsed();
    const int updates = e.record()->liveImageCount();
    QVERIFY2(updates >= 1 && updates <= dragMs / DrawingWindow::LiveUpdateIntervalMs + 1,
             qPrintable(QString("%1 updates in %2 ms").arg(updates).arg(dragMs)));
    QVERIFY(updates < moves);
    QTest::qWait(200);
    QCOMPARE(e.record()->liveImageCount(), updates);
    const int commits = e.record()->commitCount();
    mouse(e.canvas, QEvent::MouseButtonRelease, QPointF(500, 100), Qt::NoButton);
    QCOMPARE(e.record()->commitCount(), commits + 1);
    QCOMPARE(e.record()->liveImageCount(), updates);
}

// Faults: a commit that waits for the save; files written at once, or not
// 1500 ms after the last change (a timer that is not restarted, or ignores
// changes of the layers).
void TestEditorHost::changesCommitAtOnceAndSaveAfterTheLastOne()
{
    Editing e("saved later");
    QVERIFY(QTest::qWaitForWindowExposed(e.window.get()));
    const int commits = e.record()->commitCount();
    strokeAcross(e.canvas);
    QCOMPARE(e.record()->commitCount(), commits + 1);
    QCOMPARE(e.record()->strokes().size(), 1);
    const QImage drawn = e.canvas->flatComposite();
    QCOMPARE(e.record()->canvasImage(), drawn);
    QVERIFY(drawn != solid(Qt::transparent));

    QTest::qWait(1000);
    QVERIFY(!QFileInfo::exists(e.file("/canvas.png")));
    e.canvas->addLayer();
    QElapsedTimer sinceChange;
    sinceChange.start();
    QTRY_VERIFY_WITH_TIMEOUT(QFileInfo::exists(e.file("/canvas.png")), 15000);
    QVERIFY2(sinceChange.elapsed() >= 1400, qPrintable(QString::number(sinceChange.elapsed())));
    CanvasSaver::waitForPendingSaves();
    QCOMPARE(e.savedImage(), drawn);
    QVERIFY(QFileInfo::exists(e.file("/canvas_layer_1.png")));
    QVERIFY(QFileInfo::exists(e.file("/canvas_layers.json")));
}

void TestEditorHost::endingTheEditor_data()
{
    QTest::addColumn<QString>("how");
    QTest::addColumn<bool>("writes");
    QTest::newRow("close") << "close" << true;
    QTest::newRow("escape") << "escape" << true;
    QTest::newRow("source removed from its scene") << "removed" << false;
}

// Faults: the drawing lost on Escape or close (the last 1.5 s of it); a
// removed source's files written again after the user deleted it.
void TestEditorHost::endingTheEditor()
{
    QFETCH(QString, how);
    QFETCH(bool, writes);
    OBSSceneAutoRelease scene = obs_scene_create_private("ending scene");
    Editing e("ending");
    obs_sceneitem_t *item = obs_scene_add(scene, e.source);
    QVERIFY(QTest::qWaitForWindowExposed(e.window.get()));
    strokeAcross(e.canvas);
    const QImage drawn = e.canvas->flatComposite();
    auto *saveTimer = named<QTimer>(e.window.get(), "saveTimer");
    QVERIFY(saveTimer->isActive());

    if (how == "close") {
        e.window->close();
    } else if (how == "escape") {
        QTest::keyClick(e.window.get(), Qt::Key_Escape);
    } else {
        // What the host does when the user deletes the source from the scene.
        obs_sceneitem_remove(item);
        obs_source_remove(e.source);
    }
    QTRY_VERIFY_WITH_TIMEOUT(!e.window->isVisible(), 10000);
    QVERIFY(!saveTimer->isActive());
    if (!writes)
        QTest::qWait(2000);
    CanvasSaver::waitForPendingSaves();
    QCOMPARE(QFileInfo::exists(e.file("/canvas.png")), writes);
    QCOMPARE(QFileInfo::exists(e.file("/canvas_layers.json")), writes);
    if (writes)
        QCOMPARE(e.savedImage(), drawn);
}

// Faults: wiggle controls that reach only the editor's preview; a Clear that
// leaves the old drawing on the stream.
void TestEditorHost::controlsReachSource()
{
    Editing e("controls");
    CanvasSourceData *record = e.record();
    auto *jitter = named<QPushButton>(e.window.get(), "jitterButton");
    jitter->click();
    QVERIFY(record->jitterEnabled());
    named<QSpinBox>(e.window.get(), "jitterSpeedSpin")->setValue(0);
    QCOMPARE(record->jitterInterval(), 1.0f);
    named<QSpinBox>(e.window.get(), "jitterSpeedSpin")->setValue(100);
    QCOMPARE(record->jitterInterval(), 1.0f / 30.0f);
    named<QSpinBox>(e.window.get(), "jitterAmountSpin")->setValue(100);
    QCOMPARE(record->jitterAmount(), 4.0f);
    jitter->click();
    QVERIFY(!record->jitterEnabled());

    strokeAcross(e.canvas);
    QCOMPARE(record->strokes().size(), 1);
    named<QPushButton>(e.window.get(), "clearButton")->click();
    QCOMPARE(record->strokes().size(), 0);
    QCOMPARE(record->canvasImage(), solid(Qt::transparent));
}

// Faults: the saved drawing not loaded, or not shown on the stream at start.
void TestEditorHost::savedDrawingLoadsAndCommits()
{
    OBSSourceAutoRelease source = obs_source_create("pennoria_canvas", "loaded", nullptr, nullptr);
    CanvasDocument document{Width, Height};
    document.addLayer();
    document.activeImage() = solid(QColor(200, 30, 40));
    document.markPainted();
    document.renameLayer(1, "Red");
    const QString dir = canvasDirectory(QString::fromUtf8(obs_source_get_uuid(source)));
    QVERIFY(writeCanvasFiles(takeCanvasSnapshot(dir, document, document.flatComposite())));
    auto *record = static_cast<CanvasSourceData *>(obs_obj_get_data(source));
    const int commits = record->commitCount();

    DrawingWindow window(makeEditorSource(source), nullptr);
    auto *canvas = window.findChild<CanvasWidget *>();
    QCOMPARE(canvas->layerCount(), 2);
    QCOMPARE(canvas->layerName(1), QString("Red"));
    QVERIFY(record->commitCount() > commits);
    QCOMPARE(record->canvasImage(), solid(QColor(200, 30, 40)));
}

// Faults: no capture, a capture that is not shown, a timer left running.
void TestEditorHost::previewShowsCurrentScene()
{
    OBSSceneAutoRelease scene = obs_scene_create_private("preview scene");
    OBSSourceAutoRelease backdrop =
        obs_source_create("pennoria_canvas", "backdrop", nullptr, nullptr);
    static_cast<CanvasSourceData *>(obs_obj_get_data(backdrop))->commit({}, solid(Qt::blue));
    obs_scene_add(scene, backdrop);
    SceneFrontend frontend;
    frontend.scene = obs_scene_get_source(scene);
    FrontendApi::setInstance(&frontend);

    Editing e("edited");
    QVERIFY(QTest::qWaitForWindowExposed(e.window.get()));
    auto *timer = named<QTimer>(e.window.get(), "previewTimer");
    named<QPushButton>(e.window.get(), "previewButton")->click();
    QVERIFY(timer->isActive());
    named<QSpinBox>(e.window.get(), "previewOpacitySpin")->setValue(40);
    QCOMPARE(e.canvas->previewOpacity(), 0.4f);
    // The backdrop shows through where nothing is drawn.
    const QColor middle = e.canvas->grab().toImage().pixelColor(e.canvas->rect().center());
    QVERIFY2(middle.blue() > middle.red(), qPrintable(middle.name()));
    named<QPushButton>(e.window.get(), "previewButton")->click();
    QVERIFY(!timer->isActive());
    FrontendApi::setInstance(nullptr);
}

QTEST_MAIN(TestEditorHost)
#include "tst_editor_host.moc"
