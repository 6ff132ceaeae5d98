// Qt first: libobs's SIMD aliases break the compiler's intrinsics headers
// when they come before them.
#include <QApplication>
#include <QDir>
#include <QImage>
#include <QtTest>

#include "ObsHost.h"
#include "TestImages.h"

#include "CanvasSource.h"
#include "FrontendApi.h"
#include "SceneCapture.h"
#include "SourceRegistry.h"
#include "dock/PluginDock.h"
#include "files/CanvasDirectory.h"

#include <obs-module.h>
#include <util/platform.h>

extern "C" {
uint32_t obs_module_ver(void);
const char *obs_module_description(void);
void obs_module_post_load(void);
}

namespace {

const char *const StartupLine =
    "[PD-Perf] Pennoria: Draw 0.9.2 Beta loaded \xE2\x80\x94 perf logging active (look for "
    "'[PD-Perf]' lines; emitted ~every 5s per active source)";

// Hands the capture a real libobs scene as the "current scene".
class SceneFrontend final : public FrontendApi {
public:
    obs_source_t *scene = nullptr;
    obs_source_t *currentScene() override { return obs_source_get_ref(scene); }
    QMainWindow *mainWindow() override { return nullptr; }
};

struct SourceRef {
    OBSSourceAutoRelease source;
    CanvasSourceData *record() const
    {
        return static_cast<CanvasSourceData *>(obs_obj_get_data(source));
    }
};

} // namespace

class TestModuleHost : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();

    void startupLineComesBeforeRegistration();
    void moduleVersionAndDescription();
    void bothSourceTypesRegistered_data();
    void bothSourceTypesRegistered();
    void postLoadWithoutMainWindowAddsNothing();
    void registryFollowsCreateAndDestroy();
    void destroyingUnregisteredRecordLeavesRegistry();
    void canvasDirectorySanitisesKey_data();
    void canvasDirectorySanitisesKey();

    void savedCanvasAppearsPixelForPixel();
    void canvasOfOtherSizeIsIgnored();
    void liveImageShowsUntilCommit();
    void commitDropsPendingLiveImage();
    void wiggleSettingsReadAtCreate();
    void jitterIntervalHasFloor();
    void coopSourceIsTransparent();
    void wiggleShowsWarpedFramesUntilTurnedOff();
    void wiggleFramesFollowTheInterval();
    void performanceLineFormat();
    void captureShowsSceneWithoutEditedCanvas();
    void captureOfEmptySceneIsTransparent();
    void captureWithoutSceneIsNull();

private:
    SourceRef createCanvas(const char *name);
    void writeCanvasPng(obs_source_t *source, const QImage &image);

    ObsHost m_host;
};

void TestModuleHost::initTestCase()
{
    QVERIFY2(m_host.start(), qPrintable(m_host.error()));
}

void TestModuleHost::cleanupTestCase()
{
    m_host.stop();
}

SourceRef TestModuleHost::createCanvas(const char *name)
{
    SourceRef ref;
    ref.source = obs_source_create("pennoria_canvas", name, nullptr, nullptr);
    return ref;
}

void TestModuleHost::writeCanvasPng(obs_source_t *source, const QImage &image)
{
    const QString dir = canvasDirectory(QString::fromUtf8(obs_source_get_uuid(source)));
    QVERIFY(QDir().mkpath(dir));
    QVERIFY(image.save(dir + "/canvas.png"));
}

void TestModuleHost::startupLineComesBeforeRegistration()
{
    const QStringList lines = m_host.logLines();
    const int startup = int(lines.indexOf(QString::fromUtf8(StartupLine)));
    QVERIFY2(startup >= 0, "start-up line missing");
    // libobs logs nothing of its own between loading a module and its first
    // registration, so the line must precede every registration error too.
    for (int i = 0; i < startup; ++i)
        QVERIFY(!lines[i].contains("pennoria_canvas"));
    QCOMPARE(lines.count(QString::fromUtf8(StartupLine)), 1);
}

void TestModuleHost::moduleVersionAndDescription()
{
    QCOMPARE(obs_module_ver(), uint32_t(LIBOBS_API_VER));
    QCOMPARE(QString::fromUtf8(obs_module_description()),
             QString::fromUtf8("Pennoria: Draw 0.9.2 Beta \xE2\x80\x94 draw on a transparent "
                               "canvas source in any scene"));
}

void TestModuleHost::bothSourceTypesRegistered_data()
{
    QTest::addColumn<QString>("id");
    QTest::addColumn<QString>("displayName");
    QTest::newRow("canvas") << "pennoria_canvas" << "Pennoria Canvas";
    QTest::newRow("coop") << "pennoria_coop_canvas" << "Pennoria: Draw Co-op";
}

void TestModuleHost::bothSourceTypesRegistered()
{
    QFETCH(QString, id);
    QFETCH(QString, displayName);
    const QByteArray idBytes = id.toUtf8();
    QCOMPARE(QString::fromUtf8(obs_source_get_display_name(idBytes.constData())), displayName);
    QCOMPARE(obs_get_source_output_flags(idBytes.constData()), uint32_t(OBS_SOURCE_VIDEO));
    QVERIFY(!obs_get_source_properties(idBytes.constData()));
}

void TestModuleHost::postLoadWithoutMainWindowAddsNothing()
{
    m_host.clearLog();
    obs_module_post_load();
    // Only the front-end library's own note that there is no front end.
    QStringList lines = m_host.logLines();
    lines.removeAll("Tried to call obs_frontend_get_main_window with no callbacks!");
    QVERIFY2(lines.isEmpty(), qPrintable(lines.join('\n')));
    for (QWidget *widget : QApplication::allWidgets())
        QVERIFY(!qobject_cast<PluginDock *>(widget));
}

void TestModuleHost::registryFollowsCreateAndDestroy()
{
    const int before = SourceRegistry::instance().size();
    obs_source_t *raw = nullptr;
    {
        SourceRef canvas = createCanvas("registry canvas");
        QVERIFY(canvas.source);
        raw = canvas.source;
        QCOMPARE(SourceRegistry::instance().find(raw), canvas.record());
        QCOMPARE(SourceRegistry::instance().size(), before + 1);
    }
    // libobs destroys released sources on its destruction thread.
    QTRY_VERIFY_WITH_TIMEOUT((obs_wait_for_destroy_queue(), !SourceRegistry::instance().find(raw)),
                             5000);
    QCOMPARE(SourceRegistry::instance().find(raw), nullptr);
    QCOMPARE(SourceRegistry::instance().size(), before);
}

void TestModuleHost::destroyingUnregisteredRecordLeavesRegistry()
{
    SourceRef kept = createCanvas("kept canvas");
    const int before = SourceRegistry::instance().size();
    auto *stray = new CanvasSourceData(nullptr);
    canvasSourceInfo().destroy(stray);
    canvasSourceInfo().destroy(nullptr);
    QCOMPARE(SourceRegistry::instance().size(), before);
    QCOMPARE(SourceRegistry::instance().find(kept.source), kept.record());
}

void TestModuleHost::canvasDirectorySanitisesKey_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("leaf");
    QTest::newRow("uuid") << "0c6f7a3e-1b2c-4d5e-8f90-a1b2c3d4e5f6"
                          << "0c6f7a3e-1b2c-4d5e-8f90-a1b2c3d4e5f6";
    QTest::newRow("slash and space") << "My Canvas/1" << "My_Canvas_1";
    QTest::newRow("dots kept") << "a.b_c-d" << "a.b_c-d";
    QTest::newRow("non-latin letters kept")
        << QString::fromUtf8("Zeichnung\xC3\xA4") << QString::fromUtf8("Zeichnung\xC3\xA4");
    QTest::newRow("punctuation") << "..\\x:y*z" << ".._x_y_z";
}

void TestModuleHost::canvasDirectorySanitisesKey()
{
    QFETCH(QString, key);
    QFETCH(QString, leaf);
    const QString base = canvasDirectory(QString());
    QCOMPARE(base, QDir(m_host.settingsDir()).absoluteFilePath("PennoriaDraw"));
    QCOMPARE(canvasDirectory(key), base + "/" + leaf);
}

void TestModuleHost::savedCanvasAppearsPixelForPixel()
{
    // The folder is named by the UUID, which is only known once the source
    // exists: create once to learn it, write the file, then load a source
    // with the same UUID through its saved data.
    SourceRef first = createCanvas("saved canvas");
    const QByteArray uuid = obs_source_get_uuid(first.source);
    const QImage drawing = pattern(1920, 1080);
    writeCanvasPng(first.source, drawing);
    OBSDataAutoRelease saved = obs_save_source(first.source);
    first.source = nullptr;

    OBSSourceAutoRelease loaded = obs_load_source(saved);
    QVERIFY(loaded);
    QCOMPARE(QByteArray(obs_source_get_uuid(loaded)), uuid);
    auto *record = static_cast<CanvasSourceData *>(obs_obj_get_data(loaded));
    QCOMPARE(record->canvasImage(), drawing);
    QCOMPARE(ObsHost::renderSource(loaded, 1920, 1080), drawing);
}

void TestModuleHost::canvasOfOtherSizeIsIgnored()
{
    SourceRef first = createCanvas("small canvas");
    writeCanvasPng(first.source, solid(1280, 720, Qt::red));
    OBSDataAutoRelease saved = obs_save_source(first.source);
    first.source = nullptr;

    OBSSourceAutoRelease loaded = obs_load_source(saved);
    auto *record = static_cast<CanvasSourceData *>(obs_obj_get_data(loaded));
    QCOMPARE(record->canvasImage(), solid(1920, 1080, Qt::transparent));
    QCOMPARE(ObsHost::renderSource(loaded, 1920, 1080), solid(1920, 1080, Qt::transparent));
}

void TestModuleHost::liveImageShowsUntilCommit()
{
    SourceRef canvas = createCanvas("live canvas");
    const QImage live = pattern(1920, 1080);
    canvas.record()->setLiveImage(live.convertToFormat(QImage::Format_ARGB32));
    QCOMPARE(ObsHost::renderSource(canvas.source, 1920, 1080), live);
    // Nothing new pending: the texture keeps the live picture.
    QCOMPARE(ObsHost::renderSource(canvas.source, 1920, 1080), live);

    const QImage committed = solid(1920, 1080, QColor(10, 200, 30));
    Stroke stroke;
    stroke.points = {QPointF(1, 2), QPointF(3, 4)};
    canvas.record()->commit({stroke}, committed);
    QCOMPARE(ObsHost::renderSource(canvas.source, 1920, 1080), committed);
    QCOMPARE(canvas.record()->strokes().size(), 1);
    QCOMPARE(canvas.record()->strokes().first().points, stroke.points);
}

void TestModuleHost::commitDropsPendingLiveImage()
{
    SourceRef canvas = createCanvas("dropped live canvas");
    canvas.record()->setLiveImage(pattern(1920, 1080));
    const QImage committed = solid(1920, 1080, QColor(0, 0, 255));
    canvas.record()->commit({}, committed);
    QCOMPARE(ObsHost::renderSource(canvas.source, 1920, 1080), committed);
    QCOMPARE(ObsHost::renderSource(canvas.source, 1920, 1080), committed);
}

void TestModuleHost::wiggleSettingsReadAtCreate()
{
    {
        QSettings settings("PennoriaDraw", "Canvas");
        settings.setValue("jitterEnabled", true);
        settings.setValue("jitterAmount", 100);
        settings.setValue("jitterSpeed", 100);
    }
    SourceRef canvas = createCanvas("wiggle settings canvas");
    QCOMPARE(canvas.record()->jitterEnabled(), true);
    QCOMPARE(canvas.record()->jitterAmount(), 4.0f);
    QCOMPARE(canvas.record()->jitterInterval(), 1.0f / 30.0f);
    canvas.record()->setJitterEnabled(false);
    {
        QSettings settings("PennoriaDraw", "Canvas");
        settings.setValue("jitterAmount", -5);
        settings.setValue("jitterSpeed", 0);
        settings.remove("jitterEnabled");
    }
    SourceRef other = createCanvas("wiggle defaults canvas");
    QCOMPARE(other.record()->jitterEnabled(), false);
    QCOMPARE(other.record()->jitterAmount(), 0.1f);
    QCOMPARE(other.record()->jitterInterval(), 1.0f);
    QSettings("PennoriaDraw", "Canvas").clear();
}

void TestModuleHost::jitterIntervalHasFloor()
{
    SourceRef canvas = createCanvas("interval canvas");
    canvas.record()->setJitterInterval(0.0f);
    QCOMPARE(canvas.record()->jitterInterval(), 0.01f);
    canvas.record()->setJitterInterval(0.25f);
    QCOMPARE(canvas.record()->jitterInterval(), 0.25f);
}

void TestModuleHost::coopSourceIsTransparent()
{
    OBSSourceAutoRelease coop = obs_source_create("pennoria_coop_canvas", "coop", nullptr, nullptr);
    QVERIFY(coop);
    QCOMPARE(obs_source_get_width(coop), 1920u);
    QCOMPARE(obs_source_get_height(coop), 1080u);
    QCOMPARE(SourceRegistry::instance().find(coop), nullptr);
    QCOMPARE(ObsHost::renderSource(coop, 1920, 1080), solid(1920, 1080, Qt::transparent));
}

void TestModuleHost::wiggleShowsWarpedFramesUntilTurnedOff()
{
    SourceRef canvas = createCanvas("wiggle canvas");
    const QImage drawing = pattern(1920, 1080);
    canvas.record()->commit({}, drawing);
    QCOMPARE(ObsHost::renderSource(canvas.source, 1920, 1080), drawing);

    canvas.record()->setJitterAmount(4.0f);
    canvas.record()->setJitterInterval(0.01f);
    canvas.record()->setJitterEnabled(true);
    // The host's graphics thread ticks the source; the next due tick warps.
    QImage first;
    QTRY_VERIFY_WITH_TIMEOUT(
        (first = ObsHost::renderSource(canvas.source, 1920, 1080), first != drawing), 10000);

    // Every output pixel is an input pixel at most 4 px away in each axis.
    for (int y = 500; y < 540; ++y) {
        for (int x = 900; x < 960; ++x) {
            bool found = false;
            for (int dy = -4; dy <= 4 && !found; ++dy)
                for (int dx = -4; dx <= 4 && !found; ++dx)
                    found = drawing.pixel(x + dx, y + dy) == first.pixel(x, y);
            QVERIFY2(found, qPrintable(QString("pixel %1,%2").arg(x).arg(y)));
        }
    }
    // A later due tick rolls a new field.
    QTRY_VERIFY_WITH_TIMEOUT(ObsHost::renderSource(canvas.source, 1920, 1080) != first, 10000);

    canvas.record()->setJitterEnabled(false);
    QCOMPARE(ObsHost::renderSource(canvas.source, 1920, 1080), drawing);
}

void TestModuleHost::wiggleFramesFollowTheInterval()
{
    SourceRef canvas = createCanvas("wiggle rate canvas");
    const QImage drawing = pattern(1920, 1080);
    canvas.record()->commit({}, drawing);
    QCOMPARE(ObsHost::renderSource(canvas.source, 1920, 1080), drawing);
    // An interval of 100 s: the host's own ticks (about 1 s each here) never
    // make a frame due, only the large steps below do.
    canvas.record()->setJitterAmount(4.0f);
    canvas.record()->setJitterInterval(100.0f);
    canvas.record()->setJitterEnabled(true);
    void *data = canvas.record();
    const auto tick = canvasSourceInfo().video_tick;

    tick(data, 40.0f);
    QCOMPARE(ObsHost::renderSource(canvas.source, 1920, 1080), drawing);
    tick(data, 40.0f);
    QCOMPARE(ObsHost::renderSource(canvas.source, 1920, 1080), drawing);
    tick(data, 40.0f); // 120 s gathered: one frame is due
    const QImage first = ObsHost::renderSource(canvas.source, 1920, 1080);
    QVERIFY(first != drawing);
    // The gathered time starts again: the next frame needs another 100 s.
    tick(data, 60.0f);
    QCOMPARE(ObsHost::renderSource(canvas.source, 1920, 1080), first);
    tick(data, 45.0f);
    QVERIFY(ObsHost::renderSource(canvas.source, 1920, 1080) != first);

    // A live image between two frames shows at once (warped with the same
    // field; a plain colour looks the same warped).
    const QImage live = solid(1920, 1080, QColor(20, 40, 60));
    canvas.record()->setLiveImage(live);
    tick(data, 0.0f);
    QCOMPARE(ObsHost::renderSource(canvas.source, 1920, 1080), live);
    canvas.record()->setJitterEnabled(false);
}

void TestModuleHost::performanceLineFormat()
{
    SourceRef canvas = createCanvas("perf canvas");
    // Turning the wiggle off marks the picture for upload: the window below
    // sees that one upload.
    canvas.record()->setJitterEnabled(false);
    ObsHost::renderSource(canvas.source, 1920, 1080);
    m_host.clearLog();
    // Pretend the window began six seconds ago so the next render closes it.
    canvas.record()->setPerfWindowStart(int64_t(os_gettime_ns()) - 6000000000LL);
    ObsHost::renderSource(canvas.source, 1920, 1080);
    const QStringList lines = m_host.linesStartingWith("[PD-Perf] 'perf canvas'");
    QCOMPARE(lines.size(), 1);
    static const QRegularExpression format(
        R"(^\[PD-Perf\] 'perf canvas' 6\.\ds \| render 2 calls, \d+\.\d ms total \(avg \d+ us, )"
        R"(max \d+ us\) \| tick 0 calls, 0\.0 ms total \(avg 0 us, max 0 us\) \| uploads 1, )"
        R"(jitters 0 \| wiggle off$)");
    QVERIFY2(format.match(lines.first()).hasMatch(), qPrintable(lines.first()));
    QCOMPARE(canvas.record()->perfSnapshot().renderCalls, 0);
}

void TestModuleHost::captureShowsSceneWithoutEditedCanvas()
{
    OBSSceneAutoRelease scene = obs_scene_create_private("capture scene");
    SourceRef backdrop = createCanvas("backdrop canvas");
    SourceRef edited = createCanvas("edited canvas");
    const QImage drawing = pattern(1920, 1080);
    const QImage red = solid(1920, 1080, Qt::red);
    backdrop.record()->commit({}, drawing);
    edited.record()->commit({}, red);
    obs_scene_add(scene, backdrop.source);
    obs_scene_add(scene, edited.source); // on top: would hide the backdrop

    SceneFrontend frontend;
    frontend.scene = obs_scene_get_source(scene);
    const QImage captured = captureScene(*edited.record(), frontend);
    QCOMPARE(captured.size(), QSize(1920, 1080));
    QCOMPARE(captured, drawing);
    // The edited canvas draws again once the capture is over.
    QCOMPARE(ObsHost::renderSource(frontend.scene, 1920, 1080), red);
}

void TestModuleHost::captureOfEmptySceneIsTransparent()
{
    OBSSceneAutoRelease scene = obs_scene_create_private("empty scene");
    SourceRef edited = createCanvas("lonely canvas");
    SceneFrontend frontend;
    frontend.scene = obs_scene_get_source(scene);
    const QImage captured = captureScene(*edited.record(), frontend);
    QVERIFY(!captured.isNull());
    QCOMPARE(captured, solid(1920, 1080, Qt::transparent));
}

void TestModuleHost::captureWithoutSceneIsNull()
{
    SourceRef edited = createCanvas("sceneless canvas");
    SceneFrontend frontend;
    QVERIFY(captureScene(*edited.record(), frontend).isNull());
    // Without a front end (as in this process) there is no current scene.
    QVERIFY(captureScene(*edited.record()).isNull());
}

QTEST_MAIN(TestModuleHost)
#include "tst_module_host.moc"
