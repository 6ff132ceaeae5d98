// Qt first: libobs's SIMD aliases break the compiler's intrinsics headers
// when they come before them.
#include <QtTest>

#include "EditorTestInput.h"
#include "ObsHost.h"

#include "CanvasSource.h"
#include "ObsEditorSource.h"
#include "SourceRegistry.h"
#include "canvas/CanvasWidget.h"
#include "editor/DrawingWindow.h"
#include "files/CanvasDirectory.h"
#include "files/CanvasSaver.h"

#include <obs-module.h>

#include <atomic>

// The editor on the real libobs: what only the host shows.
class TestEditorHost : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY2(m_host.start({640, 360}), qPrintable(m_host.error())); }
    void cleanupTestCase() { m_host.stop(); }
    void editorSourceContract();
    void removedSourceClosesTheEditorUnwritten();

private:
    ObsHost m_host;
};

// Faults: an editor source for a co-op source or none; a wrong key or size;
// the source kept alive by its editor.
void TestEditorHost::editorSourceContract()
{
    QVERIFY(!makeEditorSource(nullptr));
    OBSSourceAutoRelease coop = obs_source_create("pennoria_coop_canvas", "co", nullptr, nullptr);
    QVERIFY(!makeEditorSource(coop));

    obs_source_t *raw = obs_source_create("pennoria_canvas", "held", nullptr, nullptr);
    std::unique_ptr<EditorSource> source = makeEditorSource(raw);
    QVERIFY(source);
    QCOMPARE(source->canvasKey(), QString::fromUtf8(obs_source_get_uuid(raw)));
    QCOMPARE(source->canvasSize(), QSize(640, 360));
    QVERIFY(!source->coop());
    // The editor must not keep a deleted source alive: its view holds a weak
    // reference, reports the destruction and then does nothing.
    std::atomic<bool> removed{false};
    source->setRemovedCallback([&removed] { removed = true; });
    obs_source_release(raw);
    QTRY_VERIFY_WITH_TIMEOUT((obs_wait_for_destroy_queue(), !SourceRegistry::instance().find(raw)),
                             10000);
    QVERIFY(removed);
    source->commit({}, QImage(640, 360, QImage::Format_RGBA8888));
}

// Faults: strokes that do not reach the source; the editor left open on a
// source the user deleted from its scene, or writing its files afterwards.
void TestEditorHost::removedSourceClosesTheEditorUnwritten()
{
    OBSSceneAutoRelease scene = obs_scene_create_private("removal scene");
    OBSSourceAutoRelease source = obs_source_create("pennoria_canvas", "removed", nullptr, nullptr);
    obs_sceneitem_t *item = obs_scene_add(scene, source);
    DrawingWindow window(makeEditorSource(source), nullptr);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    EditorTestInput::strokeAcross(window.findChild<CanvasWidget *>());
    const auto *record = static_cast<CanvasSourceData *>(obs_obj_get_data(source));
    QCOMPARE(record->strokes().size(), 1);
    QVERIFY(record->liveImageCount() >= 1);

    // What the host does when the user deletes the source from the scene.
    obs_sceneitem_remove(item);
    obs_source_remove(source);
    QTRY_VERIFY_WITH_TIMEOUT(!window.isVisible(), 10000);
    QTest::qWait(1600);
    CanvasSaver::waitForPendingSaves();
    const QString dir = canvasDirectory(QString::fromUtf8(obs_source_get_uuid(source)));
    QVERIFY(!QFileInfo::exists(dir + "/canvas.png"));
    QVERIFY(!QFileInfo::exists(dir + "/canvas_layers.json"));
}

QTEST_MAIN(TestEditorHost)
#include "tst_editor_host.moc"
