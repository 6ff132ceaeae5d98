// Qt first: libobs's SIMD aliases break the compiler's intrinsics headers
// when they come before them.
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
#include "files/CanvasDirectory.h"
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
    void removedSourceClosesTheEditorUnwritten();
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

// Faults: the editor left open on a source the user deleted from its scene,
// or writing that source's files again afterwards.
void TestEditorHost::removedSourceClosesTheEditorUnwritten()
{
    OBSSceneAutoRelease scene = obs_scene_create_private("removal scene");
    Editing e("removed");
    obs_sceneitem_t *item = obs_scene_add(scene, e.source);
    QVERIFY(QTest::qWaitForWindowExposed(e.window.get()));
    strokeAcross(e.canvas);
    // What the host does when the user deletes the source from the scene.
    obs_sceneitem_remove(item);
    obs_source_remove(e.source);
    QTRY_VERIFY_WITH_TIMEOUT(!e.window->isVisible(), 10000);
    QTest::qWait(1600);
    CanvasSaver::waitForPendingSaves();
    QVERIFY(!QFileInfo::exists(e.file("/canvas.png")));
    QVERIFY(!QFileInfo::exists(e.file("/canvas_layers.json")));
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
