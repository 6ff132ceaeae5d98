// The dock on a real libobs: finding and creating canvas sources, opening
// editors, the source's hotkeys, a source deleted from its scene, the first
// start's dock placement, the update prompt and the co-op button's flows.

// Qt first: libobs's SIMD aliases break the compiler's intrinsics headers
// when they come before them.
#include <QDialogButtonBox>
#include <QDockWidget>
#include <QLineEdit>
#include <QMainWindow>
#include <QMessageBox>
#include <QPushButton>
#include <QScrollArea>
#include <QTcpServer>
#include <QtTest>

#include "FakeHttpServer.h"
#include "ModalScript.h"
#include "ObsHost.h"
#include "Screenshot.h"
#include "TestImages.h"

#include "CanvasSource.h"
#include "FrontendApi.h"
#include "ModuleLifetime.h"
#include "ObsDockHost.h"
#include "SourceRegistry.h"
#include "canvas/CanvasWidget.h"
#include "coop/CoopSession.h"
#include "dock/DockPlacement.h"
#include "dock/PluginDock.h"
#include "dock/SetupDialog.h"
#include "editor/DrawingWindow.h"
#include "files/CanvasDirectory.h"
#include "files/CanvasSaver.h"
#include "settings/SettingsKeys.h"
#include "update/UpdateChecker.h"

#include <obs.hpp>

namespace {

const QString CoopTitle = QStringLiteral("Pennoria: Draw Co-op");

// Real libobs scenes as the "current scene", and a real main window.
class TestFrontend final : public FrontendApi {
public:
    obs_source_t *scene = nullptr;
    QMainWindow *window = nullptr;
    obs_source_t *currentScene() override { return scene ? obs_source_get_ref(scene) : nullptr; }
    QMainWindow *mainWindow() override { return window; }
};

quint16 freePort()
{
    QTcpServer probe;
    probe.listen(QHostAddress::Any, 0);
    return probe.serverPort();
}

// Adds a new source to the scene (on top) and returns it; the scene holds it.
obs_source_t *addSource(obs_scene_t *scene, const char *typeId, const char *name)
{
    OBSSourceAutoRelease source = obs_source_create(typeId, name, nullptr, nullptr);
    obs_scene_add(scene, source);
    return source.Get();
}

// The scene's item names, bottom first as the host lists them.
QStringList itemNames(obs_scene_t *scene)
{
    QStringList names;
    obs_scene_enum_items(
        scene,
        [](obs_scene_t *, obs_sceneitem_t *item, void *param) {
            *static_cast<QStringList *>(param)
                << obs_source_get_name(obs_sceneitem_get_source(item));
            return true;
        },
        &names);
    return names;
}

template <typename List, typename Text> QStringList texts(const List &list, Text text)
{
    QStringList out;
    for (const auto &entry : list)
        out << text(entry);
    return out;
}

QStringList namesOf(const QList<DockSource> &sources)
{
    return texts(sources, [](const DockSource &s) { return s.name; });
}

QStringList buttonTexts(QWidget *modal)
{
    return texts(modal->findChildren<QPushButton *>(), [](QPushButton *b) { return b->text(); });
}

// Clicks the modal's button of that text, else closes the modal.
void click(QWidget *modal, const QString &text)
{
    for (QPushButton *button : modal->findChildren<QPushButton *>())
        if (button->text().remove('&') == text)
            return button->click();
    modal->close();
}

// Confirms a question box, or a dialog (after typing text into its field).
void accept(QWidget *modal, const QString &text = QString())
{
    if (auto *box = qobject_cast<QMessageBox *>(modal))
        return box->button(QMessageBox::Yes)->click();
    if (!text.isNull())
        modal->findChild<QLineEdit *>()->setText(text);
    modal->findChild<QDialogButtonBox *>()->button(QDialogButtonBox::Ok)->click();
}

QString messageText(QWidget *modal)
{
    return qobject_cast<QMessageBox *>(modal) ? static_cast<QMessageBox *>(modal)->text() : "";
}

QList<DrawingWindow *> openEditors()
{
    QList<DrawingWindow *> windows;
    for (QWidget *widget : QApplication::topLevelWidgets())
        if (auto *window = qobject_cast<DrawingWindow *>(widget); window && window->isVisible())
            windows << window;
    return windows;
}

// The co-op button's background: "green", "amber" or "plain".
QString tone(QPushButton *button)
{
    const QColor c = button->grab().toImage().pixelColor(4, button->height() / 2);
    if (c.hsvSaturation() < 80)
        return "plain";
    return c.hsvHue() > 90 ? "green" : "amber";
}

} // namespace

class TestDock : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void cleanupTestCase();

    void findsCanvasesTopFirstInNestedGroups();
    void chooserScrollsAndOpensTheChosenCanvas();
    void firstDrawCreatesCanvasOnTopAndOpensIt();
    void setupNeedsANonBlankName();
    void missingRecordWarns();
    void drawTwiceRaisesTheOpenWindow();
    void deletedSceneItemClosesEditorAndWritesNothing();
    void hotkeysActOnTheDrawingOrThroughTheEditor();
    void dockShownDockedOnFirstStartOnly();
    void updatePromptOffersTheDownload();

    void hostingFailsThenHostsAsAnon();
    void joiningAmberThenGreenThenLeft();

private:
    QPushButton *drawButton() const { return m_dock->findChild<QPushButton *>("drawButton"); }
    QPushButton *coopButton() const { return m_dock->findChild<QPushButton *>("coopButton"); }
    static void pressHotkey(obs_source_t *source, const char *name);

    ObsHost m_host;
    TestFrontend m_frontend;
    QMainWindow *m_main = nullptr;
    PluginDock *m_dock = nullptr;
    OBSSceneAutoRelease m_scene;
    quint16 m_port = 0; // co-op, on a port free on this machine
};

void TestDock::initTestCase()
{
    QVERIFY2(m_host.start(), qPrintable(m_host.error()));
    m_port = freePort();
    m_main = new QMainWindow;
    m_main->resize(400, 200);
    m_frontend.window = m_main;
    FrontendApi::setInstance(&m_frontend);
    m_dock = new PluginDock(std::make_unique<ObsDockHost>(m_port), new UpdateChecker({}, QString()),
                            m_main);
    m_main->setCentralWidget(m_dock);
    m_main->show();
    connectSourceHotkeys(m_dock);
    obs_hotkey_enable_callback_rerouting(true);
}

void TestDock::init()
{
    m_scene = obs_scene_create_private("Dock Scene");
    m_frontend.scene = obs_scene_get_source(m_scene);
}

void TestDock::cleanup()
{
    CoopSession::instance().stop();
    for (DrawingWindow *window : openEditors())
        window->close();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    CanvasSaver::waitForPendingSaves();
    m_frontend.scene = nullptr;
    m_scene = nullptr;
}

void TestDock::cleanupTestCase()
{
    shutDownModule(m_dock);
    delete m_main;
    FrontendApi::setInstance(nullptr);
    m_host.stop();
}

void TestDock::pressHotkey(obs_source_t *source, const char *name)
{
    struct Find {
        obs_source_t *source;
        const char *name;
        obs_hotkey_id id = OBS_INVALID_HOTKEY_ID;
    } find{source, name};
    obs_enum_hotkeys(
        [](void *data, obs_hotkey_id id, obs_hotkey_t *hotkey) {
            auto *f = static_cast<Find *>(data);
            auto *weak = static_cast<obs_weak_source_t *>(obs_hotkey_get_registerer(hotkey));
            if (obs_hotkey_get_registerer_type(hotkey) == OBS_HOTKEY_REGISTERER_SOURCE &&
                obs_weak_source_references_source(weak, f->source) &&
                qstrcmp(obs_hotkey_get_name(hotkey), f->name) == 0)
                f->id = id;
            return true;
        },
        &find);
    QVERIFY2(find.id != OBS_INVALID_HOTKEY_ID, name);
    obs_hotkey_trigger_routed_callback(find.id, true);
    obs_hotkey_trigger_routed_callback(find.id, false);
    QCoreApplication::processEvents();
}

// Fault: groups are not searched, the order is bottom first, types mixed, a
// source pasted as a reference listed once per item.
void TestDock::findsCanvasesTopFirstInNestedGroups()
{
    addSource(m_scene, "pennoria_canvas", "Bottom");
    obs_sceneitem_t *outer = obs_scene_add_group2(m_scene, "Outer", false);
    obs_sceneitem_t *inner =
        obs_scene_add_group2(obs_sceneitem_group_get_scene(outer), "Inner", false);
    addSource(obs_sceneitem_group_get_scene(inner), "pennoria_canvas", "Deep");
    addSource(obs_sceneitem_group_get_scene(inner), "pennoria_coop_canvas", "Deep Co-op");
    obs_source_t *top = addSource(m_scene, "pennoria_canvas", "Top");
    obs_scene_add(obs_sceneitem_group_get_scene(inner), top);

    ObsDockHost host;
    QCOMPARE(namesOf(host.findSources("pennoria_canvas")), (QStringList{"Top", "Deep", "Bottom"}));
    QCOMPARE(namesOf(host.findSources("pennoria_coop_canvas")), QStringList{"Deep Co-op"});
    QCOMPARE(host.currentSceneName(), QStringLiteral("Dock Scene"));
    m_frontend.scene = nullptr;
    QVERIFY(host.findSources("pennoria_canvas").isEmpty());
    QVERIFY(!host.createSourceOnTop("pennoria_canvas", "Nowhere"));
}

// Fault: the list is not capped, or another entry than the clicked one opens.
void TestDock::chooserScrollsAndOpensTheChosenCanvas()
{
    for (int i = 1; i <= 10; ++i)
        addSource(m_scene, "pennoria_canvas", qPrintable(QStringLiteral("Canvas %1").arg(i)));
    int listHeight = -1;
    QStringList entries;
    ModalScript script({[&](QWidget *modal) {
        listHeight = modal->findChild<QScrollArea *>()->height();
        entries = buttonTexts(modal);
        saveScreenshot(modal, "chooser-ten");
        click(modal, "Canvas 8");
    }});
    drawButton()->click();
    QVERIFY(script.finished());
    QCOMPARE(listHeight, 284);
    QCOMPARE(entries.value(0), QStringLiteral("Canvas 10"));
    QCOMPARE(entries.size(), 10);
    QCOMPARE(openEditors().size(), 1);
    QCOMPARE(openEditors().first()->windowTitle(),
             QStringLiteral("Pennoria: Draw [Dock Scene: Canvas 8]"));
}

// Fault: the name is not trimmed, the source goes to the bottom, the first
// press only creates it, or a cancelled dialog still creates one.
void TestDock::firstDrawCreatesCanvasOnTopAndOpensIt()
{
    ModalScript cancel({[](QWidget *modal) { static_cast<QDialog *>(modal)->reject(); }});
    drawButton()->click();
    QVERIFY(cancel.finished());
    QVERIFY(itemNames(m_scene).isEmpty());

    addSource(m_scene, "pennoria_coop_canvas", "Existing Co-op");
    QString defaultName;
    ModalScript script({[&](QWidget *modal) {
        defaultName = modal->findChild<QLineEdit *>()->text();
        saveScreenshot(modal, "setup-dialog");
        accept(modal, QStringLiteral("  My Canvas  "));
    }});
    drawButton()->click();
    QVERIFY(script.finished());
    QCOMPARE(defaultName, QStringLiteral("Pennoria Canvas"));
    QCOMPARE(itemNames(m_scene), (QStringList{"Existing Co-op", "My Canvas"}));
    QCOMPARE(openEditors().size(), 1);
    QCOMPARE(openEditors().first()->windowTitle(),
             QStringLiteral("Pennoria: Draw [Dock Scene: My Canvas]"));
}

// Fault: blank names can be confirmed, or Enter confirms them.
void TestDock::setupNeedsANonBlankName()
{
    SetupDialog dialog(nullptr, QStringLiteral("Pennoria Canvas"));
    QPushButton *ok = dialog.findChild<QDialogButtonBox *>()->button(QDialogButtonBox::Ok);
    auto *edit = dialog.findChild<QLineEdit *>();
    QCOMPARE(edit->selectedText(), QStringLiteral("Pennoria Canvas"));
    dialog.show();
    edit->setText(QStringLiteral("    "));
    QVERIFY(!ok->isEnabled());
    QTest::keyClick(edit, Qt::Key_Return);
    QVERIFY(dialog.isVisible());
    QTest::keyClicks(edit, QStringLiteral("x"));
    QVERIFY(ok->isEnabled());
    QCOMPARE(dialog.name(), QStringLiteral("x"));
}

// Fault: a source without a record opens a dead editor or nothing at all.
void TestDock::missingRecordWarns()
{
    obs_source_t *canvas = addSource(m_scene, "pennoria_canvas", "Lost");
    CanvasSourceData *record = SourceRegistry::instance().find(canvas);
    SourceRegistry::instance().erase(canvas);
    QString text;
    ModalScript script({[&](QWidget *modal) {
        text = messageText(modal);
        saveScreenshot(modal, "missing-record-warning");
        modal->close();
    }});
    drawButton()->click();
    SourceRegistry::instance().insert(canvas, record);
    QVERIFY(script.finished());
    QCOMPARE(text, QStringLiteral("Could not locate the canvas source data.\nTry restarting OBS."));
    QVERIFY(openEditors().isEmpty());
}

// Fault: a second editor opens on the same source, or a closed one is raised.
void TestDock::drawTwiceRaisesTheOpenWindow()
{
    addSource(m_scene, "pennoria_canvas", "Twice");
    drawButton()->click();
    QPointer<DrawingWindow> first = openEditors().value(0);
    QVERIFY(first);
    first->showMinimized();
    drawButton()->click();
    QCOMPARE(openEditors(), QList<DrawingWindow *>{first.data()});
    QVERIFY(!first->isMinimized());
    first->close();
    QTRY_VERIFY(first.isNull());
    drawButton()->click();
    QCOMPARE(openEditors().size(), 1);
}

// Fault: the editor keeps the source alive (a strong reference), so deleting
// it from the scene the way the host's Sources list does leaves the editor
// open and writing canvas files of a source that is in no scene.
void TestDock::deletedSceneItemClosesEditorAndWritesNothing()
{
    obs_source_t *canvas = addSource(m_scene, "pennoria_canvas", "Deleted");
    const QString dir = canvasDirectory(QString::fromUtf8(obs_source_get_uuid(canvas)));
    drawButton()->click();
    QPointer<DrawingWindow> editor = openEditors().value(0);
    QVERIFY(editor);
    obs_sceneitem_remove(obs_scene_find_source(m_scene, "Deleted"));
    QTRY_VERIFY(editor.isNull());
    CanvasSaver::waitForPendingSaves();
    QVERIFY(!QDir(dir).exists());
}

// Fault: without an editor a hotkey does nothing, acts on another document,
// is not shown, not saved, or cannot be undone; with an editor open it
// changes the source behind the editor's back (so the editor's next stroke
// brings the cleared layer back).
void TestDock::hotkeysActOnTheDrawingOrThroughTheEditor()
{
    obs_source_t *canvas = addSource(m_scene, "pennoria_canvas", "Hotkeyed");
    const QString dir = canvasDirectory(QString::fromUtf8(obs_source_get_uuid(canvas)));
    QVERIFY(QDir().mkpath(dir));
    const QImage drawing = pattern(1920, 1080);
    QVERIFY(drawing.save(dir + "/canvas.png"));
    auto *record = SourceRegistry::instance().find(canvas);
    record->commit({}, drawing);
    const auto shown = [canvas] { return ObsHost::renderSource(canvas, 1920, 1080); };
    const auto saved = [dir] {
        CanvasSaver::waitForPendingSaves();
        return QImage(dir + "/canvas.png").convertToFormat(QImage::Format_RGBA8888);
    };

    const QImage blank = solid(1920, 1080, Qt::transparent);
    pressHotkey(canvas, "pennoria_draw.clear_layer");
    QTRY_COMPARE(shown(), blank);
    QCOMPARE(saved(), blank);
    pressHotkey(canvas, "pennoria_draw.undo");
    QTRY_COMPARE(shown(), drawing);
    pressHotkey(canvas, "pennoria_draw.redo");
    QTRY_COMPARE(shown(), blank);
    QCOMPARE(saved(), blank);
    pressHotkey(canvas, "pennoria_draw.wiggle_on");
    QVERIFY(record->jitterEnabled());
    QVERIFY(readSetting(openSettings(SettingsStore::Canvas), SettingsKeys::JitterEnabled));
    pressHotkey(canvas, "pennoria_draw.wiggle_off");
    QVERIFY(!record->jitterEnabled());

    QVERIFY(openEditors().isEmpty());
    pressHotkey(canvas, "pennoria_draw.open_editor");
    QCOMPARE(openEditors().size(), 1);
    auto *surface = openEditors().first()->findChild<CanvasWidget *>();
    const QPoint at = surface->rect().center();
    QTest::mousePress(surface, Qt::LeftButton, {}, at);
    QTest::mouseMove(surface, at + QPoint(40, 30));
    QTest::mouseRelease(surface, Qt::LeftButton, {}, at + QPoint(40, 30));
    const QImage drawn = shown();
    QVERIFY(drawn != blank);
    pressHotkey(canvas, "pennoria_draw.clear_layer");
    QTRY_COMPARE(shown(), blank);
    QVERIFY(surface->canUndo());
    pressHotkey(canvas, "pennoria_draw.undo");
    QTRY_COMPARE(shown(), drawn);
}

// Fault: the host's hidden, floating dock stays hidden on a fresh profile,
// floats over the preview, or is shown again after the user hid it.
void TestDock::dockShownDockedOnFirstStartOnly()
{
    openSettings(SettingsStore::Canvas).remove(SettingsKeys::DockPlaced.name);
    QMainWindow window;
    window.setCentralWidget(new QWidget(&window));
    auto *controls = new QDockWidget(QStringLiteral("Controls"), &window);
    controls->setObjectName(QStringLiteral("controlsDock"));
    window.addDockWidget(Qt::BottomDockWidgetArea, controls);
    auto *frame = new QDockWidget(QStringLiteral("Pennoria: Draw"), &window);
    frame->setObjectName(QStringLiteral("pennoria-draw-dock"));
    window.addDockWidget(Qt::RightDockWidgetArea, frame);
    frame->setFloating(true);
    frame->hide();
    window.show();

    QVERIFY(showDockOnFirstStart(&window, "pennoria-draw-dock"));
    QVERIFY(frame->isVisible());
    QVERIFY(!frame->isFloating());
    QCOMPARE(window.dockWidgetArea(frame), Qt::BottomDockWidgetArea);
    saveScreenshot(&window, "dock-first-start");
    frame->hide();
    QVERIFY(!showDockOnFirstStart(&window, "pennoria-draw-dock"));
    QVERIFY(frame->isHidden());
}

// Fault: a newer version is not offered, or the prompt defaults to No.
void TestDock::updatePromptOffersTheDownload()
{
    for (const char *name : {"http_proxy", "HTTP_PROXY", "all_proxy", "ALL_PROXY"})
        qunsetenv(name);
    FakeHttpServer server(R"({"version":"1.0"})");
    UpdateServer entry{L"127.0.0.1", L"/api/software/pennoria-draw/version", "loopback.test", false,
                       server.port()};
    QString text;
    bool yesIsDefault = false;
    ModalScript script({[&](QWidget *modal) {
        auto *box = qobject_cast<QMessageBox *>(modal);
        text = box->text();
        yesIsDefault = box->defaultButton() == box->button(QMessageBox::Yes);
        saveScreenshot(modal, "update-prompt");
        box->button(QMessageBox::No)->click();
    }});
    auto *dock = new PluginDock(
        std::make_unique<ObsDockHost>(),
        new UpdateChecker({entry}, QStringLiteral("https://example.test/dl")), nullptr);
    QTRY_VERIFY_WITH_TIMEOUT(script.finished(), 20000);
    QCOMPARE(text, QStringLiteral("Update available: 1.0"));
    QVERIFY(yesIsDefault);
    delete dock;
    QCOMPARE(server.connections(), 1);
}

// Fault: a port that cannot be bound fails silently; a blank nickname is
// hosted as blank; the co-op canvas is not added on top; the button does not
// turn green; the chooser does not lead with co-op; Stop keeps the session.
void TestDock::hostingFailsThenHostsAsAnon()
{
    addSource(m_scene, "pennoria_canvas", "Local");
    openSettings(SettingsStore::Coop).setValue("nickname", "Previous");
    auto squatter = std::make_unique<QTcpServer>();
    QVERIFY(squatter->listen(QHostAddress::Any, m_port));
    QString prefilled, failure;
    ModalScript script({
        [](QWidget *modal) { accept(modal, QStringLiteral("Shared")); },
        [&](QWidget *modal) {
            prefilled = modal->findChild<QLineEdit *>()->text();
            saveScreenshot(modal, "coop-host-join-dialog");
            click(modal, QStringLiteral("Host"));
        },
        [&](QWidget *modal) {
            failure = messageText(modal);
            modal->close();
        },
    });
    coopButton()->click();
    QVERIFY(script.finished());
    QCOMPARE(script.seen(), (QStringList{"Create Co-op Canvas", CoopTitle, CoopTitle}));
    QCOMPARE(prefilled, QStringLiteral("Previous"));
    CoopSession &session = CoopSession::instance();
    QCOMPARE(failure, "Could not start hosting:\n" + session.lastError());
    QCOMPARE(session.role(), CoopSession::Role::None);
    QCOMPARE(itemNames(m_scene), (QStringList{"Local", "Shared"}));

    squatter.reset();
    ModalScript again({
        [](QWidget *modal) {
            modal->findChild<QLineEdit *>()->setText(QStringLiteral("   "));
            click(modal, QStringLiteral("Host"));
        },
        [](QWidget *modal) { modal->close(); },
    });
    coopButton()->click();
    QVERIFY(again.finished());
    QCOMPARE(session.role(), CoopSession::Role::Host);
    QCOMPARE(session.nickname(), QStringLiteral("Anon"));
    QCOMPARE(openSettings(SettingsStore::Coop).value("nickname").toString(), "Anon");
    QCOMPARE(tone(coopButton()), QStringLiteral("green"));
    saveScreenshot(m_dock, "dock-hosting");

    QStringList entries;
    ModalScript chooser({[&](QWidget *modal) {
        entries = buttonTexts(modal);
        click(modal, QStringLiteral("  Co-op Canvas (hosting)"));
    }});
    drawButton()->click();
    QCOMPARE(entries, (QStringList{"  Co-op Canvas (hosting)", "Local"}));
    QVERIFY(openEditors().value(0) && openEditors().first()->isCoopMode());
    ModalScript stop({[](QWidget *modal) { accept(modal); }});
    coopButton()->click();
    QCOMPARE(session.role(), CoopSession::Role::None);
    QCOMPARE(tone(coopButton()), QStringLiteral("plain"));
}

// Fault: a refused connection is reported twice or not at all; the address
// is not remembered or trimmed; the button is not amber until the welcome and
// green after it; leaving keeps the session; Draw does not open the co-op
// editor when co-op is the only canvas.
void TestDock::joiningAmberThenGreenThenLeft()
{
    addSource(m_scene, "pennoria_coop_canvas", "Co-op");
    openSettings(SettingsStore::Coop).setValue("lastJoinIp", "192.0.2.1");
    QString prefilledAddress, refusal;
    const auto pickJoin = [](QWidget *modal) { click(modal, QStringLiteral("Join")); };
    const auto join = [&](QWidget *modal) {
        prefilledAddress = modal->findChild<QLineEdit *>()->text();
        saveScreenshot(modal, "coop-join-dialog");
        accept(modal, QStringLiteral(" 127.0.0.1 "));
    };
    ModalScript refused({pickJoin, join, [&](QWidget *modal) {
                             refusal = messageText(modal);
                             modal->close();
                         }});
    coopButton()->click();
    QTRY_VERIFY_WITH_TIMEOUT(refused.finished(), 10000);
    QTest::qWait(300);
    QCOMPARE(refused.unexpected(), 0);
    QCOMPARE(prefilledAddress, QStringLiteral("192.0.2.1"));
    QVERIFY2(refusal.contains(QStringLiteral("refused"), Qt::CaseInsensitive), qPrintable(refusal));
    CoopSession &session = CoopSession::instance();
    QCOMPARE(session.role(), CoopSession::Role::None);

    auto silentHost = std::make_unique<QTcpServer>(); // accepts, never welcomes
    QVERIFY(silentHost->listen(QHostAddress::Any, m_port));
    ModalScript script({pickJoin, join});
    coopButton()->click();
    QVERIFY(script.finished());
    QCOMPARE(prefilledAddress, QStringLiteral("127.0.0.1"));
    QTRY_VERIFY(silentHost->hasPendingConnections());
    QCOMPARE(session.role(), CoopSession::Role::Client);
    QCOMPARE(tone(coopButton()), QStringLiteral("amber"));
    ModalScript leave({[](QWidget *modal) { accept(modal); }});
    coopButton()->click();
    QCOMPARE(session.role(), CoopSession::Role::None);
    QCOMPARE(tone(coopButton()), QStringLiteral("plain"));

    silentHost.reset();
    CoopSession hostSession;
    QVERIFY2(hostSession.host(QStringLiteral("Host"), m_port), qPrintable(hostSession.lastError()));
    ModalScript rejoin({pickJoin, join});
    coopButton()->click();
    QTRY_VERIFY_WITH_TIMEOUT(session.isWelcomed(), 10000);
    QCOMPARE(tone(coopButton()), QStringLiteral("green"));
    drawButton()->click();
    QVERIFY(openEditors().value(0) && openEditors().first()->isCoopMode());
    ModalScript ended({[](QWidget *modal) { modal->close(); }});
    hostSession.stop();
    QTRY_COMPARE_WITH_TIMEOUT(session.role(), CoopSession::Role::None, 10000);
    QTest::qWait(300); // a message about the end, if any, is closed here
}

QTEST_MAIN(TestDock)
#include "tst_dock.moc"
