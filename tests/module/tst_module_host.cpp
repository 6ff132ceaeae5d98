// The module's contract with a real libobs started in this process: entry
// points, both source types, what the canvas source shows, its wiggle and
// performance line, the scene capture, and the co-op source following a new
// video size.

// Qt first: libobs's SIMD aliases break the compiler's intrinsics headers
// when they come before them.
#include <QApplication>
#include <QDir>
#include <QImage>
#include <QtTest>

#include "ObsHost.h"
#include "ReferenceWarp.h"
#include "TestImages.h"

#include "CanvasSource.h"
#include "CoopSource.h"
#include "FrontendApi.h"
#include "SceneCapture.h"
#include "SourceRegistry.h"
#include "SourceTexture.h"
#include "coop/CoopCanvas.h"
#include "dock/PluginDock.h"
#include "files/CanvasDirectory.h"
#include "settings/SettingsKeys.h"

#include <obs-module.h>
#include <util/platform.h>

#include <random>

extern "C" {
const char *obs_module_description(void);
void obs_module_post_load(void);
}

namespace {

const QImage Transparent = solid(1920, 1080, Qt::transparent);

// Hands the capture a real libobs scene as the "current scene".
class SceneFrontend final : public FrontendApi {
public:
    obs_source_t *scene = nullptr;
    obs_source_t *currentScene() override { return scene ? obs_source_get_ref(scene) : nullptr; }
    QMainWindow *mainWindow() override { return nullptr; }
};

struct Canvas {
    OBSSourceAutoRelease source;
    CanvasSourceData *record() const
    {
        return static_cast<CanvasSourceData *>(obs_obj_get_data(source));
    }
    QImage render() const { return ObsHost::renderSource(source, 1920, 1080); }
};

Canvas createCanvas(const char *name)
{
    return Canvas{obs_source_create("pennoria_canvas", name, nullptr, nullptr)};
}

} // namespace

class TestModuleHost : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();

    void startupLineAndDescription();
    void sourceTypesRegistered_data();
    void sourceTypesRegistered();
    void postLoadWithoutMainWindowAddsNothing();
    void registryFollowsCreateAndDestroy();
    void savedCanvasShownWhenSizeMatches_data();
    void savedCanvasShownWhenSizeMatches();
    void liveImageShowsUntilCommit();
    void wiggleSettingsReadAtCreate_data();
    void wiggleSettingsReadAtCreate();
    void wiggleFramesFollowTheInterval();
    void wiggleOnGpuMatchesCpuWarp_data();
    void wiggleOnGpuMatchesCpuWarp();
    void performanceLineFormat();
    void captureRendersSceneWithoutEditedCanvas();
    void coopSourceFollowsVideoSize();

private:
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

// Fault: the line is logged after registering, or twice, or reworded.
void TestModuleHost::startupLineAndDescription()
{
    const QStringList lines = m_host.logLines();
    const QString startup = QString::fromUtf8(
        "[PD-Perf] Pennoria: Draw 0.9.2 Beta loaded \xE2\x80\x94 perf logging active (look for "
        "'[PD-Perf]' lines; emitted ~every 5s per active source)");
    const int at = int(lines.indexOf(startup));
    QVERIFY2(at >= 0, "start-up line missing");
    QCOMPARE(lines.count(startup), 1);
    for (int i = 0; i < at; ++i)
        QVERIFY(!lines[i].contains("pennoria_canvas"));
    QCOMPARE(QString::fromUtf8(obs_module_description()),
             QString::fromUtf8("Pennoria: Draw 0.9.2 Beta \xE2\x80\x94 draw on a transparent "
                               "canvas source in any scene"));
}

void TestModuleHost::sourceTypesRegistered_data()
{
    QTest::addColumn<QString>("id");
    QTest::addColumn<QString>("displayName");
    QTest::addColumn<QStringList>("hotkeys");
    const QStringList wiggle{"pennoria_draw.wiggle_on", "pennoria_draw.wiggle_off"};
    QTest::newRow("canvas") << "pennoria_canvas" << "Pennoria Canvas"
                            << QStringList{"pennoria_draw.open_editor", "pennoria_draw.clear_layer",
                                           "pennoria_draw.undo", "pennoria_draw.redo"} +
                                   wiggle;
    QTest::newRow("coop") << "pennoria_coop_canvas" << "Pennoria: Draw Co-op"
                          << QStringList{"pennoria_draw.open_coop_editor"} + wiggle;
}

// Fault: a type registered without CUSTOM_DRAW (drawn in the host's technique)
// or with properties, misnamed, a callback that dereferences a null record,
// or a hotkey not registered under the source (so neither listed with it nor
// saved with the scene collection).
void TestModuleHost::sourceTypesRegistered()
{
    QFETCH(QString, id);
    QFETCH(QString, displayName);
    const QByteArray idBytes = id.toUtf8();
    QCOMPARE(QString::fromUtf8(obs_source_get_display_name(idBytes.constData())), displayName);
    QCOMPARE(obs_get_source_output_flags(idBytes.constData()),
             uint32_t(OBS_SOURCE_VIDEO | OBS_SOURCE_CUSTOM_DRAW));
    QVERIFY(!obs_get_source_properties(idBytes.constData()));
    const obs_source_info &info = id == "pennoria_canvas" ? canvasSourceInfo() : coopSourceInfo();
    info.destroy(nullptr);
    info.video_tick(nullptr, 1.0f);
    info.video_render(nullptr, nullptr);
    QCOMPARE(info.get_width(nullptr) + info.get_height(nullptr), 0u);

    OBSSourceAutoRelease source = obs_source_create(idBytes.constData(), "keyed", nullptr, nullptr);
    OBSDataAutoRelease saved = obs_save_source(source);
    OBSDataAutoRelease bindings = obs_data_get_obj(saved, "hotkeys");
    QFETCH(QStringList, hotkeys);
    for (const QString &name : hotkeys)
        QVERIFY2(obs_data_has_user_value(bindings, name.toUtf8().constData()), qPrintable(name));
}

// Fault: the dock is built although the host runs without a front end.
void TestModuleHost::postLoadWithoutMainWindowAddsNothing()
{
    m_host.clearLog();
    obs_module_post_load();
    QStringList lines = m_host.logLines();
    lines.removeAll("Tried to call obs_frontend_get_main_window with no callbacks!");
    QVERIFY2(lines.isEmpty(), qPrintable(lines.join('\n')));
    for (QWidget *widget : QApplication::allWidgets())
        QVERIFY(!qobject_cast<PluginDock *>(widget));
}

// Fault: destroy leaves a dangling entry, or a record without a source
// erases someone else's.
void TestModuleHost::registryFollowsCreateAndDestroy()
{
    Canvas kept = createCanvas("kept canvas");
    const int before = SourceRegistry::instance().size();
    obs_source_t *raw = nullptr;
    {
        Canvas canvas = createCanvas("registry canvas");
        raw = canvas.source;
        QCOMPARE(SourceRegistry::instance().find(raw), canvas.record());
        QCOMPARE(SourceRegistry::instance().size(), before + 1);
    }
    QTRY_VERIFY_WITH_TIMEOUT((obs_wait_for_destroy_queue(), !SourceRegistry::instance().find(raw)),
                             5000);
    delete new CanvasSourceData(nullptr);
    QCOMPARE(SourceRegistry::instance().size(), before);
    QCOMPARE(SourceRegistry::instance().find(kept.source), kept.record());
}

void TestModuleHost::savedCanvasShownWhenSizeMatches_data()
{
    QTest::addColumn<QImage>("onDisk");
    QTest::addColumn<QImage>("shown");
    QTest::newRow("output size") << translucentStripes(1920, 1080)
                                 << translucentStripes(1920, 1080);
    QTest::newRow("other size ignored") << solid(1280, 720, Qt::red) << Transparent;
}

// Fault: the saved drawing is not loaded, loaded scaled, loaded at any size,
// or its straight colours are taken as premultiplied.
void TestModuleHost::savedCanvasShownWhenSizeMatches()
{
    QFETCH(QImage, onDisk);
    QFETCH(QImage, shown);
    // The folder is named by the UUID, only known once the source exists:
    // write the file, then load a source with the same UUID.
    Canvas first = createCanvas("saved canvas");
    const QString dir = canvasDirectory(QString::fromUtf8(obs_source_get_uuid(first.source)));
    QVERIFY(QDir().mkpath(dir));
    QVERIFY(onDisk.save(dir + "/canvas.png"));
    OBSDataAutoRelease saved = obs_save_source(first.source);
    first.source = nullptr;

    Canvas loaded{obs_load_source(saved)};
    QCOMPARE_LE(maxByteDifference(loaded.render(), shown), 1);
}

// Fault: a commit keeps showing the pending live image, the strokes are not
// kept for the editor, or the colours shown are not the straight ones within
// 1: red and blue swapped, premultiplied colours not divided by alpha (dark
// translucent edges), a straight image taken as premultiplied.
void TestModuleHost::liveImageShowsUntilCommit()
{
    Canvas canvas = createCanvas("live canvas");
    const QImage live = translucentStripes(1920, 1080);
    canvas.record()->setLiveImage(live.convertToFormat(QImage::Format_ARGB32_Premultiplied));
    QCOMPARE_LE(maxByteDifference(canvas.render(), live), 1);
    QCOMPARE_LE(maxByteDifference(canvas.render(), live), 1);

    canvas.record()->setLiveImage(solid(1920, 1080, Qt::blue));
    const QImage committed = translucentStripes(1920, 1080, 2); // straight
    Stroke stroke;
    stroke.points = {QPointF(1, 2), QPointF(3, 4)};
    canvas.record()->commit({stroke}, committed);
    QCOMPARE_LE(maxByteDifference(canvas.render(), committed), 1);
    QCOMPARE_LE(maxByteDifference(canvas.render(), committed), 1);
    QCOMPARE(canvas.record()->strokes().value(0).points, stroke.points);
}

void TestModuleHost::wiggleSettingsReadAtCreate_data()
{
    QTest::addColumn<QVariant>("enabled");
    QTest::addColumn<int>("amount");
    QTest::addColumn<int>("speed");
    QTest::addColumn<bool>("on");
    QTest::addColumn<float>("px");
    QTest::addColumn<float>("interval");
    QTest::newRow("highest") << QVariant(true) << 100 << 100 << true << 4.0f << 1.0f / 30;
    QTest::newRow("below range") << QVariant() << -5 << 0 << false << 0.1f << 1.0f;
    QTest::newRow("above range") << QVariant(false) << 900 << 400 << false << 4.0f << 1.0f / 30;
}

// Fault: the source reads other keys than the editor writes, or another clamp.
void TestModuleHost::wiggleSettingsReadAtCreate()
{
    QFETCH(QVariant, enabled);
    QFETCH(int, amount);
    QFETCH(int, speed);
    {
        QSettings store = openSettings(SettingsStore::Canvas);
        store.clear();
        if (enabled.isValid())
            store.setValue("jitterEnabled", enabled);
        store.setValue("jitterAmount", amount);
        store.setValue("jitterSpeed", speed);
    }
    Canvas canvas = createCanvas("wiggle settings canvas");
    openSettings(SettingsStore::Canvas).clear();
    QTEST(canvas.record()->jitterEnabled(), "on");
    QTEST(canvas.record()->jitterAmount(), "px");
    QTEST(canvas.record()->jitterInterval(), "interval");
    canvas.record()->setJitterEnabled(false);
}

// Fault: frames come every tick, the gathered time is not reset, a live image
// waits for the next frame, or turning the wiggle off keeps the warped picture.
void TestModuleHost::wiggleFramesFollowTheInterval()
{
    Canvas canvas = createCanvas("wiggle rate canvas");
    const QImage drawing = pattern(1920, 1080);
    canvas.record()->commit({}, drawing);
    QCOMPARE(canvas.render(), drawing);
    // 100 s: the host's own ticks (about 1 s each) never make a frame due.
    canvas.record()->setJitterAmount(4.0f);
    canvas.record()->setJitterInterval(100.0f);
    canvas.record()->setJitterEnabled(true);
    const auto tick = [&](float seconds) {
        canvasSourceInfo().video_tick(canvas.record(), seconds);
    };

    tick(40.0f);
    tick(40.0f);
    QCOMPARE(canvas.render(), drawing);
    tick(40.0f); // 120 s gathered: one frame is due
    const QImage first = canvas.render();
    QVERIFY(first != drawing);
    // Every output pixel is an input pixel at most 4 px away in each axis.
    for (int y = 500; y < 520; ++y) {
        for (int x = 900; x < 930; ++x) {
            bool found = false;
            for (int dy = -4; dy <= 4 && !found; ++dy)
                for (int dx = -4; dx <= 4 && !found; ++dx)
                    found = drawing.pixel(x + dx, y + dy) == first.pixel(x, y);
            QVERIFY2(found, qPrintable(QString("pixel %1,%2").arg(x).arg(y)));
        }
    }
    tick(60.0f);
    QCOMPARE(canvas.render(), first);
    tick(45.0f);
    QVERIFY(canvas.render() != first);

    // A live image between two frames shows at once (a plain colour looks
    // the same warped), its translucent colour divided back to straight.
    const QImage live = solid(1920, 1080, QColor(250, 100, 5, 153));
    canvas.record()->setLiveImage(live.convertToFormat(QImage::Format_ARGB32_Premultiplied));
    tick(0.0f);
    QCOMPARE_LE(maxByteDifference(canvas.render(), live), 1);
    canvas.record()->commit({}, drawing);
    canvas.record()->setJitterEnabled(false);
    QCOMPARE(canvas.render(), drawing);
    canvas.record()->setJitterInterval(0.0f);
    QCOMPARE(canvas.record()->jitterInterval(), 0.01f);
}

void TestModuleHost::wiggleOnGpuMatchesCpuWarp_data()
{
    QTest::addColumn<QSize>("size");
    QTest::addColumn<float>("amount");
    QTest::newRow("2 px at 1080p") << QSize(1920, 1080) << 2.0f;
    QTest::newRow("2.5 px, partial last cells") << QSize(1001, 601) << 2.5f;
    QTest::newRow("30 px, clamped at every edge") << QSize(640, 360) << 30.0f;
}

// Fault: the effect blends a pixel's offset from the wrong cells (or only
// the nearest), swaps the axes, flips an offset's sign, rounds otherwise
// than halves away from zero, reads past an edge instead of clamping, or
// changes a texel's bytes (its straight alpha included).
void TestModuleHost::wiggleOnGpuMatchesCpuWarp()
{
    QFETCH(QSize, size);
    QFETCH(float, amount);
    // Every texel holds its own position, so no two are alike and a texel
    // taken from the wrong place shows; the alpha runs through every value.
    QImage picture(size, QImage::Format_RGBA8888);
    for (int y = 0; y < size.height(); ++y) {
        uchar *texel = picture.scanLine(y);
        for (int x = 0; x < size.width(); ++x, texel += 4) {
            texel[0] = uchar(x);
            texel[1] = uchar(y);
            texel[2] = uchar((x >> 8) | (y >> 8) << 4);
            texel[3] = uchar(x + 2 * y);
        }
    }
    std::mt19937 rng(20240611u);
    WiggleGrid grid;
    makeWiggleGrid(grid, size.width(), size.height(), amount, rng);

    SourceTexture texture(PixelAlpha::Straight);
    QVERIFY(texture.create(uint32_t(size.width()), uint32_t(size.height()), picture));
    QVERIFY(texture.setWiggleGrid(grid));
    const QImage shown = ObsHost::render([&] { texture.draw(true); }, uint32_t(size.width()),
                                         uint32_t(size.height()));
    const QString mismatch = warpMismatch(shown, picture, grid);
    QVERIFY2(mismatch.isEmpty(), qPrintable(mismatch));
}

// Fault: the window is not closed after five seconds, counters are not
// reset, or a field of the line is swapped.
void TestModuleHost::performanceLineFormat()
{
    Canvas canvas = createCanvas("perf canvas");
    canvas.record()->setJitterEnabled(false); // marks the picture for one upload
    canvas.render();
    m_host.clearLog();
    canvas.record()->setPerfWindowStart(int64_t(os_gettime_ns()) - 6000000000LL);
    canvas.render();
    const QStringList lines = m_host.linesStartingWith("[PD-Perf] 'perf canvas'");
    QCOMPARE(lines.size(), 1);
    static const QRegularExpression format(
        R"(^\[PD-Perf\] 'perf canvas' 6\.\ds \| render 2 calls, \d+\.\d ms total \(avg \d+ us, )"
        R"(max \d+ us\) \| tick 0 calls, 0\.0 ms total \(avg 0 us, max 0 us\) \| uploads 1, )"
        R"(jitters 0 \| wiggle off$)");
    QVERIFY2(format.match(lines.first()).hasMatch(), qPrintable(lines.first()));
    QCOMPARE(canvas.record()->perfSnapshot().renderCalls, 0);
}

// Fault: the edited canvas shows in its own backdrop or stays hidden after,
// an empty scene gives a null picture, or a missing scene is not null.
void TestModuleHost::captureRendersSceneWithoutEditedCanvas()
{
    OBSSceneAutoRelease scene = obs_scene_create_private("capture scene");
    Canvas backdrop = createCanvas("backdrop canvas");
    Canvas edited = createCanvas("edited canvas");
    SceneFrontend frontend;
    frontend.scene = obs_scene_get_source(scene);
    QCOMPARE(captureScene(*edited.record(), frontend), Transparent);

    const QImage drawing = pattern(1920, 1080);
    const QImage red = solid(1920, 1080, Qt::red);
    backdrop.record()->commit({}, drawing);
    edited.record()->commit({}, red);
    obs_scene_add(scene, backdrop.source);
    obs_scene_add(scene, edited.source); // on top: would hide the backdrop
    QCOMPARE(captureScene(*edited.record(), frontend), drawing);
    QCOMPARE(ObsHost::renderSource(frontend.scene, 1920, 1080), red);

    frontend.scene = nullptr;
    QVERIFY(captureScene(*edited.record(), frontend).isNull());
}

// Fault: an older co-op source keeps its texture size after the video size
// changed and skips every picture of the new size, or stays visible after
// the session ends.
void TestModuleHost::coopSourceFollowsVideoSize()
{
    OBSSceneAutoRelease scene = obs_scene_create("video size scene");
    OBSSourceAutoRelease coop =
        obs_source_create("pennoria_coop_canvas", "sized coop", nullptr, nullptr);
    obs_scene_add(scene, coop);
    CoopCanvas &canvas = CoopCanvas::instance();
    canvas.onCanvasStateReceived(pattern(1920, 1080)); // adopted on the picture's own thread
    QTRY_COMPARE(ObsHost::renderSource(coop, 1920, 1080), pattern(1920, 1080));

    QCOMPARE(ObsHost::resetVideo({1280, 720, 1}), int(OBS_VIDEO_SUCCESS));
    QTRY_COMPARE_WITH_TIMEOUT(obs_source_get_width(coop), 1280u, 10000);
    QCOMPARE(obs_source_get_height(coop), 720u);
    QCOMPARE(ObsHost::renderSource(coop, 1280, 720), pattern(1920, 1080).copy(0, 0, 1280, 720));
    canvas.onSessionEnded();
    QTRY_COMPARE(ObsHost::renderSource(coop, 1280, 720), solid(1280, 720, Qt::transparent));
    QCOMPARE(ObsHost::resetVideo({}), int(OBS_VIDEO_SUCCESS));
}

QTEST_MAIN(TestModuleHost)
#include "tst_module_host.moc"
