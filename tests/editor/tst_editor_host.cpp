// Qt first: libobs's SIMD aliases break the compiler's intrinsics headers
// when they come before them.
#include <QDir>
#include <QElapsedTimer>
#include <QImage>
#include <QPushButton>
#include <QSlider>
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
#include "widgets/LongPressButton.h"

#include <obs-module.h>

#include <atomic>
#include <memory>

using namespace EditorTestInput;

namespace {

constexpr uint32_t Width = 640;
constexpr uint32_t Height = 360;

struct CanvasRef {
    OBSSourceAutoRelease source;
    CanvasSourceData *record() const
    {
        return static_cast<CanvasSourceData *>(obs_obj_get_data(source));
    }
    QString directory() const
    {
        return canvasDirectory(QString::fromUtf8(obs_source_get_uuid(source)));
    }
};

CanvasRef createCanvas(const char *name)
{
    CanvasRef ref;
    ref.source = obs_source_create("pennoria_canvas", name, nullptr, nullptr);
    return ref;
}

std::unique_ptr<DrawingWindow> openEditor(const CanvasRef &canvas)
{
    auto window = std::make_unique<DrawingWindow>(makeEditorSource(canvas.source), nullptr, false);
    window->resize(900, 600);
    window->show();
    return window;
}

// Hands the capture a real libobs scene as the "current scene".
class SceneFrontend final : public FrontendApi {
public:
    obs_source_t *scene = nullptr;
    obs_source_t *currentScene() override { return obs_source_get_ref(scene); }
    QMainWindow *mainWindow() override { return nullptr; }
};

QImage solid(QColor color)
{
    QImage image(int(Width), int(Height), QImage::Format_RGBA8888);
    image.fill(color);
    return image;
}

} // namespace

class TestEditorHost : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void cleanup();

    void editorSourceOnlyForCanvasSources();
    void editorSourceLetsTheSourceGo();
    void liveUpdatesAreThrottled();
    void strokeCommitsAtOnceAndSavesLater();
    void laterChangeRestartsSaveDelay();
    void closeWritesFilesAtOnce();
    void escapeWritesFilesAtOnce();
    void removedSourceClosesWithoutWriting();
    void wiggleControlsReachSource();
    void clearCommitsEmptyCanvas();
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

void TestEditorHost::cleanup()
{
    CanvasSaver::waitForPendingSaves();
}

void TestEditorHost::editorSourceOnlyForCanvasSources()
{
    QVERIFY(!makeEditorSource(nullptr));
    OBSSourceAutoRelease coop =
        obs_source_create("pennoria_coop_canvas", "not a canvas", nullptr, nullptr);
    QVERIFY(coop);
    QVERIFY(!makeEditorSource(coop));

    CanvasRef canvas = createCanvas("editor source");
    std::unique_ptr<EditorSource> source = makeEditorSource(canvas.source);
    QVERIFY(source);
    QCOMPARE(source->canvasKey(), QString::fromUtf8(obs_source_get_uuid(canvas.source)));
    QCOMPARE(source->canvasSize(), QSize(int(Width), int(Height)));
}

// The editor must not keep a deleted source alive: its view holds a weak
// reference, reports the destruction and then does nothing.
void TestEditorHost::editorSourceLetsTheSourceGo()
{
    obs_source_t *raw = obs_source_create("pennoria_canvas", "held", nullptr, nullptr);
    std::unique_ptr<EditorSource> source = makeEditorSource(raw);
    QVERIFY(source);
    std::atomic<bool> removed{false};
    source->setRemovedCallback([&removed] { removed = true; });
    obs_source_release(raw);
    QTRY_VERIFY_WITH_TIMEOUT((obs_wait_for_destroy_queue(), !SourceRegistry::instance().find(raw)),
                             10000);
    QVERIFY(removed);
    source->commit({}, QImage(int(Width), int(Height), QImage::Format_RGBA8888));
}

void TestEditorHost::liveUpdatesAreThrottled()
{
    CanvasRef canvas = createCanvas("live canvas");
    auto window = openEditor(canvas);
    QVERIFY(QTest::qWaitForWindowExposed(window.get()));
    CanvasWidget *surface = window->canvas();
    CanvasSourceData *record = canvas.record();
    QCOMPARE(record->liveImageCount(), 0);

    // Moves far more often than every 33 ms for about half a second.
    QElapsedTimer clock;
    clock.start();
    press(surface, QPointF(40, 100));
    int moves = 0;
    while (clock.elapsed() < 500) {
        ++moves;
        moveTo(surface, QPointF(40 + (moves % 200) * 3, 100 + (moves % 2) * 40));
        QTest::qWait(2);
    }
    const qint64 dragMs = clock.elapsed();
    const int updates = record->liveImageCount();
    QVERIFY2(updates >= 1, qPrintable(QString::number(updates)));
    QVERIFY2(updates <= dragMs / DrawingWindow::LiveUpdateIntervalMs + 1,
             qPrintable(QString("%1 updates in %2 ms").arg(updates).arg(dragMs)));
    QVERIFY(updates < moves);

    // A dropped update is not delivered later.
    QTest::qWait(200);
    QCOMPARE(record->liveImageCount(), updates);
    const int commits = record->commitCount();
    release(surface, QPointF(500, 100));
    QCOMPARE(record->commitCount(), commits + 1);
    QCOMPARE(record->liveImageCount(), updates);
    qInfo("%d moves, %d live updates in %lld ms", moves, updates, dragMs);
    window->hide();
}

void TestEditorHost::strokeCommitsAtOnceAndSavesLater()
{
    CanvasRef canvas = createCanvas("saved later");
    auto window = openEditor(canvas);
    QVERIFY(QTest::qWaitForWindowExposed(window.get()));
    CanvasSourceData *record = canvas.record();
    const QString dir = canvas.directory();
    const int commits = record->commitCount();

    strokeAcross(window->canvas());
    QElapsedTimer sinceChange;
    sinceChange.start();
    QCOMPARE(record->commitCount(), commits + 1);
    QCOMPARE(record->strokes().size(), 1);
    const QImage drawn = window->canvas()->flatComposite().convertToFormat(QImage::Format_RGBA8888);
    QCOMPARE(record->canvasImage(), drawn);
    QVERIFY(drawn != solid(Qt::transparent));
    QVERIFY(!QFileInfo::exists(dir + "/canvas.png"));

    QTRY_VERIFY_WITH_TIMEOUT(QFileInfo::exists(dir + "/canvas.png"), 15000);
    const qint64 waited = sinceChange.elapsed();
    QVERIFY2(waited >= 1400, qPrintable(QString("files after %1 ms").arg(waited)));
    CanvasSaver::waitForPendingSaves();
    QCOMPARE(QImage(dir + "/canvas.png").convertToFormat(QImage::Format_RGBA8888), drawn);
    QCOMPARE(readCanvasFolder(dir, QSize(Width, Height)).kind, CanvasLoad::Layers);
    window->hide();
}

void TestEditorHost::laterChangeRestartsSaveDelay()
{
    CanvasRef canvas = createCanvas("restarted delay");
    auto window = openEditor(canvas);
    QVERIFY(QTest::qWaitForWindowExposed(window.get()));
    const QString dir = canvas.directory();

    strokeAcross(window->canvas());
    QTest::qWait(1000);
    QVERIFY(!QFileInfo::exists(dir + "/canvas.png"));
    window->canvas()->addLayer(); // a structural change counts as a change
    QElapsedTimer sinceChange;
    sinceChange.start();
    QTRY_VERIFY_WITH_TIMEOUT(QFileInfo::exists(dir + "/canvas.png"), 15000);
    QVERIFY2(sinceChange.elapsed() >= 1400,
             qPrintable(QString("files after %1 ms").arg(sinceChange.elapsed())));
    CanvasSaver::waitForPendingSaves();
    QCOMPARE(readCanvasFolder(dir, QSize(Width, Height)).layers.size(), 2);
    window->hide();
}

void TestEditorHost::closeWritesFilesAtOnce()
{
    CanvasRef canvas = createCanvas("closed at once");
    auto window = openEditor(canvas);
    QVERIFY(QTest::qWaitForWindowExposed(window.get()));
    const QString dir = canvas.directory();
    strokeAcross(window->canvas());
    const QImage drawn = window->canvas()->flatComposite().convertToFormat(QImage::Format_RGBA8888);
    QVERIFY(window->saveTimer()->isActive());

    window->close();
    QVERIFY(!window->saveTimer()->isActive());
    CanvasSaver::waitForPendingSaves();
    QCOMPARE(QImage(dir + "/canvas.png").convertToFormat(QImage::Format_RGBA8888), drawn);
}

void TestEditorHost::escapeWritesFilesAtOnce()
{
    CanvasRef canvas = createCanvas("escaped");
    auto window = openEditor(canvas);
    QVERIFY(QTest::qWaitForWindowExposed(window.get()));
    const QString dir = canvas.directory();
    strokeAcross(window->canvas());
    const QImage drawn = window->canvas()->flatComposite().convertToFormat(QImage::Format_RGBA8888);
    QVERIFY(window->saveTimer()->isActive());

    // A dialog ends on Escape without a close event.
    QTest::keyClick(window.get(), Qt::Key_Escape);
    QVERIFY(!window->isVisible());
    QVERIFY(!window->saveTimer()->isActive());
    CanvasSaver::waitForPendingSaves();
    QCOMPARE(QImage(dir + "/canvas.png").convertToFormat(QImage::Format_RGBA8888), drawn);
}

void TestEditorHost::removedSourceClosesWithoutWriting()
{
    OBSSceneAutoRelease scene = obs_scene_create_private("removal scene");
    CanvasRef canvas = createCanvas("removed canvas");
    obs_sceneitem_t *item = obs_scene_add(scene, canvas.source);
    QVERIFY(item);
    auto window = openEditor(canvas);
    QVERIFY(QTest::qWaitForWindowExposed(window.get()));
    strokeAcross(window->canvas());
    QVERIFY(window->saveTimer()->isActive());

    // What the host does when the user deletes the source from the scene.
    obs_sceneitem_remove(item);
    obs_source_remove(canvas.source);
    QTRY_VERIFY_WITH_TIMEOUT(!window->isVisible(), 10000);
    QVERIFY(!window->saveTimer()->isActive());
    QTest::qWait(2000);
    CanvasSaver::waitForPendingSaves();
    const QString dir = canvas.directory();
    QVERIFY(!QFileInfo::exists(dir + "/canvas.png"));
    QVERIFY(!QFileInfo::exists(dir + "/canvas_layer_0.png"));
    QVERIFY(!QFileInfo::exists(dir + "/canvas_layers.json"));
}

void TestEditorHost::wiggleControlsReachSource()
{
    CanvasRef canvas = createCanvas("wiggle canvas");
    auto window = openEditor(canvas);
    CanvasSourceData *record = canvas.record();

    window->jitterButton()->click();
    QVERIFY(record->jitterEnabled());
    window->jitterSpeedSpin()->setValue(0);
    QCOMPARE(record->jitterInterval(), 1.0f);
    QCOMPARE(window->canvas()->wiggleInterval(), 1000);
    window->jitterSpeedSpin()->setValue(100);
    QCOMPARE(record->jitterInterval(), 1.0f / 30.0f);
    QCOMPARE(window->canvas()->wiggleInterval(), 33);
    window->jitterAmountSlider()->setValue(100);
    QCOMPARE(record->jitterAmount(), 4.0f);
    window->jitterButton()->click();
    QVERIFY(!record->jitterEnabled());
    window->hide();
}

void TestEditorHost::clearCommitsEmptyCanvas()
{
    CanvasRef canvas = createCanvas("cleared canvas");
    auto window = openEditor(canvas);
    QVERIFY(QTest::qWaitForWindowExposed(window.get()));
    strokeAcross(window->canvas());
    QCOMPARE(canvas.record()->strokes().size(), 1);
    window->clearButton()->click();
    QCOMPARE(canvas.record()->strokes().size(), 0);
    QCOMPARE(canvas.record()->canvasImage(), solid(Qt::transparent));
    window->hide();
}

void TestEditorHost::savedDrawingLoadsAndCommits()
{
    CanvasRef canvas = createCanvas("loaded canvas");
    CanvasDocument document{int(Width), int(Height)};
    document.addLayer();
    document.activeImage() = solid(QColor(200, 30, 40));
    document.markPainted();
    document.renameLayer(1, "Red");
    QVERIFY(writeCanvasFiles(
        takeCanvasSnapshot(canvas.directory(), document, document.flatComposite())));
    const int commits = canvas.record()->commitCount();

    auto window = openEditor(canvas);
    QCOMPARE(window->canvas()->layerCount(), 2);
    QCOMPARE(window->canvas()->layerName(1), QString("Red"));
    QVERIFY(canvas.record()->commitCount() > commits);
    QCOMPARE(canvas.record()->canvasImage(), solid(QColor(200, 30, 40)));
    window->hide();
}

void TestEditorHost::previewShowsCurrentScene()
{
    OBSSceneAutoRelease scene = obs_scene_create_private("preview scene");
    CanvasRef backdrop = createCanvas("backdrop");
    backdrop.record()->commit({}, solid(QColor(0, 0, 255)));
    obs_scene_add(scene, backdrop.source);
    CanvasRef edited = createCanvas("edited");
    SceneFrontend frontend;
    frontend.scene = obs_scene_get_source(scene);
    FrontendApi::setInstance(&frontend);

    auto window = openEditor(edited);
    QVERIFY(QTest::qWaitForWindowExposed(window.get()));
    window->previewButton()->click();
    QVERIFY(window->canvas()->previewEnabled());
    QVERIFY(window->previewTimer()->isActive());
    window->previewSpin()->setValue(40);
    QCOMPARE(window->canvas()->previewOpacity(), 0.4f);
    // The backdrop shows through where nothing is drawn.
    const QImage shown = window->canvas()->grab().toImage();
    const QPoint middle = window->canvas()->rect().center();
    QVERIFY2(shown.pixelColor(middle).blue() > shown.pixelColor(middle).red(),
             qPrintable(shown.pixelColor(middle).name()));
    window->previewButton()->click();
    QVERIFY(!window->previewTimer()->isActive());
    window->hide();
    FrontendApi::setInstance(nullptr);
}

QTEST_MAIN(TestEditorHost)
#include "tst_editor_host.moc"
