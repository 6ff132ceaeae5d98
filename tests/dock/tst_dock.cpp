// Qt first: libobs's SIMD aliases break the compiler's intrinsics headers
// when they come before them.
#include <QDialogButtonBox>
#include <QDockWidget>
#include <QLabel>
#include <QLineEdit>
#include <QMainWindow>
#include <QMessageBox>
#include <QPushButton>
#include <QScreen>
#include <QScrollArea>
#include <QSettings>
#include <QTcpServer>
#include <QtTest>

#include "FakeHttpServer.h"
#include "ModalScript.h"
#include "ObsHost.h"
#include "Screenshot.h"

#include "FrontendApi.h"
#include "ObsDockHost.h"
#include "ObsEditorSource.h"
#include "SourceRegistry.h"
#include "coop/CoopSession.h"
#include "dock/CanvasChooser.h"
#include "dock/CoopDialogs.h"
#include "dock/DockPlacement.h"
#include "dock/PluginDock.h"
#include "dock/SetupDialog.h"
#include "editor/DrawingWindow.h"
#include "update/UpdateChecker.h"
#include "widgets/Icons.h"
#include "widgets/TintedIcon.h"

#include <obs.hpp>

namespace {

const QString CoopTitle = QStringLiteral("Pennoria: Draw Co-op");
const QString IdleTip = QStringLiteral("Host or join a Pennoria: Draw co-op session");
const QString GreenStyle = QStringLiteral(
    "QPushButton { background-color: #2e8b2e; border: 1px solid #246b24; border-radius: 4px; }");
const QString AmberStyle = QStringLiteral(
    "QPushButton { background-color: #c8861a; border: 1px solid #9c6712; border-radius: 4px; }");

// Real libobs scenes as the "current scene", and a real main window.
class TestFrontend final : public FrontendApi {
public:
    obs_source_t *scene = nullptr;
    QMainWindow *window = nullptr;
    obs_source_t *currentScene() override { return scene ? obs_source_get_ref(scene) : nullptr; }
    QMainWindow *mainWindow() override { return window; }
};

// Adds a new source to the scene (on top) and returns it; the scene holds it.
obs_source_t *addSource(obs_scene_t *scene, const char *typeId, const char *name)
{
    OBSSourceAutoRelease source = obs_source_create(typeId, name, nullptr, nullptr);
    obs_scene_add(scene, source);
    return source.Get();
}

struct ItemList {
    QStringList names;
};

bool listItem(obs_scene_t *, obs_sceneitem_t *item, void *param)
{
    static_cast<ItemList *>(param)->names << obs_source_get_name(obs_sceneitem_get_source(item));
    return true;
}

// The scene's item names, bottom first as the host lists them.
QStringList itemNames(obs_scene_t *scene)
{
    ItemList list;
    obs_scene_enum_items(scene, listItem, &list);
    return list.names;
}

QStringList namesOf(const QList<DockSource> &sources)
{
    QStringList names;
    for (const DockSource &source : sources)
        names << source.name;
    return names;
}

QPushButton *buttonWithText(QWidget *parent, const QString &text)
{
    for (QPushButton *button : parent->findChildren<QPushButton *>())
        if (button->text() == text)
            return button;
    return nullptr;
}

// Clicks the modal's button of that text, or closes the modal when there is none.
void clickText(QWidget *modal, const QString &text)
{
    if (QPushButton *button = buttonWithText(modal, text))
        button->click();
    else
        modal->close();
}

QString messageText(QWidget *modal)
{
    auto *box = qobject_cast<QMessageBox *>(modal);
    return box ? box->text() : QString();
}

void clickMessageButton(QWidget *modal, QMessageBox::StandardButton which)
{
    if (auto *box = qobject_cast<QMessageBox *>(modal)) {
        if (QAbstractButton *button = box->button(which)) {
            button->click();
            return;
        }
    }
    modal->close();
}

QList<DrawingWindow *> openEditors()
{
    QList<DrawingWindow *> windows;
    for (QWidget *widget : QApplication::topLevelWidgets())
        if (auto *window = qobject_cast<DrawingWindow *>(widget); window && window->isVisible())
            windows << window;
    return windows;
}

// Whether the button shows the people icon drawn in that colour.
bool showsPeopleIn(QPushButton *button, const QColor &color)
{
    const QImage shown =
        button->icon().pixmap(QSize(18, 18)).toImage().convertToFormat(QImage::Format_ARGB32);
    const QImage expected = tintedSvgPixmap(Icons::People, color, QSize(18, 18))
                                .toImage()
                                .convertToFormat(QImage::Format_ARGB32);
    return shown == expected;
}

QSettings coopSettings()
{
    return QSettings(QStringLiteral("PennoriaDraw"), QStringLiteral("Coop"));
}

} // namespace

class TestDock : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void cleanupTestCase();

    void buildsWithIdleButtons();
    void canvasTwoGroupsDeepIsFound();
    void chooserListsTopFirst();
    void chooserOfTenScrollsAt284();
    void drawWithoutCanvasCreatesOneOnTop();
    void cancelledSetupCreatesNothing();
    void blankNameCannotBeConfirmed();
    void missingRecordWarns();
    void drawTwiceRaisesTheOpenWindow();
    void dockFrameIsCentredAtLeastMinimum();
    void updatePromptOffersTheDownload();

    void coopSetupCancelledOpensNoHostDialog();
    void hostWithEmptyNicknameIsAnon();
    void hostFailureShowsTheSystemText();
    void clickWhileConnectingLeaves();
    void welcomedClientShowsConnected();
    void refusedConnectionShowsOneWarning();

private:
    void freshScene(const char *name);
    // Waits until port 42069 can be bound (other tests may hold it for a while).
    static bool waitForCoopPortFree();
    static bool listenOnCoopPort(QTcpServer &server);
    QPushButton *drawButton() const { return m_dock->findChild<QPushButton *>("drawButton"); }
    QPushButton *coopButton() const { return m_dock->findChild<QPushButton *>("coopButton"); }

    ObsHost m_host;
    TestFrontend m_frontend;
    QMainWindow *m_main = nullptr;
    PluginDock *m_dock = nullptr;
    OBSSceneAutoRelease m_scene;
};

void TestDock::initTestCase()
{
    QVERIFY2(m_host.start(), qPrintable(m_host.error()));
    m_main = new QMainWindow;
    m_main->resize(400, 200);
    m_frontend.window = m_main;
    FrontendApi::setInstance(&m_frontend);
    m_dock =
        new PluginDock(std::make_unique<ObsDockHost>(), new UpdateChecker({}, QString()), m_main);
    m_main->setCentralWidget(m_dock);
    m_main->show();
}

void TestDock::init()
{
    freshScene("Dock Scene");
}

void TestDock::cleanup()
{
    CoopSession::instance().stop();
    for (DrawingWindow *window : openEditors())
        window->close();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

void TestDock::cleanupTestCase()
{
    delete m_main;
    m_frontend.scene = nullptr;
    m_scene = nullptr;
    FrontendApi::setInstance(nullptr);
    m_host.stop();
}

void TestDock::freshScene(const char *name)
{
    m_scene = obs_scene_create_private(name);
    m_frontend.scene = obs_scene_get_source(m_scene);
}

bool TestDock::waitForCoopPortFree()
{
    return QTest::qWaitFor(
        [] {
            QTcpServer probe;
            return probe.listen(QHostAddress::Any, CoopPort);
        },
        60000);
}

bool TestDock::listenOnCoopPort(QTcpServer &server)
{
    return QTest::qWaitFor([&server] { return server.listen(QHostAddress::Any, CoopPort); }, 60000);
}

void TestDock::buildsWithIdleButtons()
{
    QCOMPARE(drawButton()->text(), QStringLiteral("  Draw"));
    QCOMPARE(drawButton()->toolTip(),
             QStringLiteral("Open or create a Pennoria Canvas on the current scene"));
    QCOMPARE(drawButton()->iconSize(), QSize(16, 16));
    QCOMPARE(drawButton()->minimumHeight(), 32);
    QCOMPARE(coopButton()->size(), QSize(32, 32));
    QCOMPARE(coopButton()->iconSize(), QSize(18, 18));
    QCOMPARE(coopButton()->toolTip(), IdleTip);
    QCOMPARE(coopButton()->styleSheet(), QString());
    QVERIFY(showsPeopleIn(coopButton(), coopButton()->palette().color(QPalette::ButtonText)));
    QVERIFY(saveScreenshot(m_dock, "dock-idle"));
}

void TestDock::canvasTwoGroupsDeepIsFound()
{
    addSource(m_scene, "pennoria_canvas", "Bottom");
    obs_sceneitem_t *outer = obs_scene_add_group2(m_scene, "Outer", false);
    QVERIFY(outer);
    obs_sceneitem_t *inner =
        obs_scene_add_group2(obs_sceneitem_group_get_scene(outer), "Inner", false);
    QVERIFY(inner);
    addSource(obs_sceneitem_group_get_scene(inner), "pennoria_canvas", "Deep");
    addSource(obs_sceneitem_group_get_scene(inner), "pennoria_coop_canvas", "Deep Co-op");
    addSource(m_scene, "pennoria_canvas", "Top");

    ObsDockHost host;
    QCOMPARE(namesOf(host.findSources("pennoria_canvas")), (QStringList{"Top", "Deep", "Bottom"}));
    QCOMPARE(namesOf(host.findSources("pennoria_coop_canvas")), QStringList{"Deep Co-op"});
    QCOMPARE(host.currentSceneName(), QStringLiteral("Dock Scene"));

    m_frontend.scene = nullptr;
    QVERIFY(host.findSources("pennoria_canvas").isEmpty());
    QVERIFY(host.currentSceneName().isEmpty());
    QVERIFY(!host.createSourceOnTop("pennoria_canvas", "Nowhere"));
}

void TestDock::chooserListsTopFirst()
{
    addSource(m_scene, "pennoria_canvas", "Lower");
    obs_sceneitem_t *group = obs_scene_add_group2(m_scene, "Group", false);
    addSource(obs_sceneitem_group_get_scene(group), "pennoria_canvas", "Grouped");
    addSource(m_scene, "pennoria_canvas", "Upper");

    QStringList entries;
    ModalScript script({[&](QWidget *modal) {
        for (QPushButton *button : modal->findChildren<QPushButton *>())
            entries << button->text();
        saveScreenshot(modal, "chooser");
        modal->close();
    }});
    drawButton()->click();
    QVERIFY(script.finished());
    QCOMPARE(script.seen(), QStringList{"Select Canvas"});
    QCOMPARE(entries, (QStringList{"Upper", "Grouped", "Lower"}));
    QVERIFY(openEditors().isEmpty());
}

void TestDock::chooserOfTenScrollsAt284()
{
    for (int i = 1; i <= 10; ++i)
        addSource(m_scene, "pennoria_canvas", qPrintable(QStringLiteral("Canvas %1").arg(i)));

    int listHeight = -1;
    int buttons = 0;
    QString first;
    ModalScript script({[&](QWidget *modal) {
        auto *scroll = modal->findChild<QScrollArea *>();
        listHeight = scroll ? scroll->height() : -1;
        buttons = int(modal->findChildren<QPushButton *>().size());
        first = modal->findChildren<QPushButton *>().value(0)->text();
        saveScreenshot(modal, "chooser-ten");
        modal->close();
    }});
    drawButton()->click();
    QVERIFY(script.finished());
    QCOMPARE(listHeight, 284);
    QCOMPARE(buttons, 10);
    QCOMPARE(first, QStringLiteral("Canvas 10"));
    QCOMPARE(CanvasChooser::listHeight(2), 68);
}

void TestDock::drawWithoutCanvasCreatesOneOnTop()
{
    addSource(m_scene, "pennoria_coop_canvas", "Existing Co-op");
    OBSSceneAutoRelease other = obs_scene_create_private("Nested Scene");
    obs_scene_add(m_scene, obs_scene_get_source(other));

    QString title;
    QString defaultName;
    bool focused = false;
    ModalScript script({[&](QWidget *modal) {
        title = modal->windowTitle();
        auto *edit = modal->findChild<QLineEdit *>();
        defaultName = edit->text();
        focused = edit->hasFocus() || modal->focusWidget() == edit;
        saveScreenshot(modal, "setup-dialog");
        edit->setText(QStringLiteral("  My Canvas  "));
        modal->findChild<QDialogButtonBox *>()->button(QDialogButtonBox::Ok)->click();
    }});
    drawButton()->click();
    QVERIFY(script.finished());
    QCOMPARE(title, QStringLiteral("New Pennoria Canvas"));
    QCOMPARE(defaultName, QStringLiteral("Pennoria Canvas"));
    QVERIFY(focused);
    QCOMPARE(itemNames(m_scene), (QStringList{"Existing Co-op", "Nested Scene", "My Canvas"}));
    ObsDockHost host;
    QCOMPARE(namesOf(host.findSources("pennoria_canvas")), QStringList{"My Canvas"});
    // Nothing is opened on creation.
    QVERIFY(openEditors().isEmpty());
}

void TestDock::cancelledSetupCreatesNothing()
{
    ModalScript script({[](QWidget *modal) { static_cast<QDialog *>(modal)->reject(); }});
    drawButton()->click();
    QVERIFY(script.finished());
    QVERIFY(itemNames(m_scene).isEmpty());
}

void TestDock::blankNameCannotBeConfirmed()
{
    SetupDialog dialog(nullptr, QStringLiteral("Pennoria Canvas"));
    QPushButton *ok = dialog.findChild<QDialogButtonBox *>()->button(QDialogButtonBox::Ok);
    QCOMPARE(ok->text(), QString::fromUtf8("OK \xE2\x80\x94 Create Canvas"));
    QCOMPARE(dialog.width(), 340);
    QVERIFY(ok->isEnabled());
    auto *edit = dialog.findChild<QLineEdit *>();
    QCOMPARE(edit->selectedText(), QStringLiteral("Pennoria Canvas"));
    QCOMPARE(edit->placeholderText(),
             QString::fromUtf8("Enter a name for this canvas\xE2\x80\xA6"));
    dialog.show();
    edit->setText(QStringLiteral("    "));
    QVERIFY(!ok->isEnabled());
    QTest::keyClick(edit, Qt::Key_Return);
    QVERIFY(dialog.isVisible());
    QCOMPARE(dialog.result(), int(QDialog::Rejected));
    QTest::keyClicks(edit, QStringLiteral("x"));
    QVERIFY(ok->isEnabled());
    QCOMPARE(dialog.name(), QStringLiteral("x"));
    edit->clear();
    QVERIFY(!ok->isEnabled());
}

void TestDock::missingRecordWarns()
{
    obs_source_t *canvas = addSource(m_scene, "pennoria_canvas", "Lost");
    CanvasSourceData *record = SourceRegistry::instance().find(canvas);
    SourceRegistry::instance().erase(canvas);

    QString title;
    QString text;
    ModalScript script({[&](QWidget *modal) {
        title = modal->windowTitle();
        text = messageText(modal);
        saveScreenshot(modal, "missing-record-warning");
        clickMessageButton(modal, QMessageBox::Ok);
    }});
    drawButton()->click();
    if (record)
        SourceRegistry::instance().insert(canvas, record);
    QVERIFY(script.finished());
    QCOMPARE(title, QStringLiteral("Pennoria: Draw"));
    QCOMPARE(text, QStringLiteral("Could not locate the canvas source data.\nTry restarting OBS."));
    QVERIFY(openEditors().isEmpty());
}

void TestDock::drawTwiceRaisesTheOpenWindow()
{
    obs_source_t *canvas = addSource(m_scene, "pennoria_canvas", "Twice");
    if (!makeEditorSource(canvas))
        QSKIP("makeEditorSource is still a stub that finds no canvas record");

    drawButton()->click();
    QCOMPARE(openEditors().size(), 1);
    QPointer<DrawingWindow> first = openEditors().first();
    QCOMPARE(first->windowTitle(), QStringLiteral("Pennoria: Draw [Dock Scene: Twice]"));
    QVERIFY(!first->isCoopMode());
    first->showMinimized();

    drawButton()->click();
    QCOMPARE(openEditors().size(), 1);
    QCOMPARE(openEditors().first(), first.data());
    QVERIFY(!first->isMinimized());

    first->close();
    QTRY_VERIFY(first.isNull());
    drawButton()->click();
    QCOMPARE(openEditors().size(), 1);
}

void TestDock::dockFrameIsCentredAtLeastMinimum()
{
    QMainWindow window;
    auto *frame = new QDockWidget(QStringLiteral("Pennoria: Draw"), &window);
    frame->setObjectName(QStringLiteral("pennoria-draw-dock"));
    frame->setWidget(new QWidget(frame));
    window.addDockWidget(Qt::RightDockWidgetArea, frame);
    frame->setFloating(true);

    placeDockFrame(&window, "pennoria-draw-dock");
    const QRect available = window.screen()->availableGeometry();
    const QSize hint = frame->sizeHint();
    const QSize expected(std::max(hint.width(), 280), std::max(hint.height(), 120));
    QCOMPARE(frame->geometry(),
             QRect(QPoint(available.x() + (available.width() - expected.width()) / 2,
                          available.y() + (available.height() - expected.height()) / 2),
                   expected));

    // Another object name: nothing to place, nothing happens.
    const QRect before = frame->geometry();
    placeDockFrame(&window, "other-dock");
    placeDockFrame(nullptr, "pennoria-draw-dock");
    QCOMPARE(frame->geometry(), before);
}

void TestDock::updatePromptOffersTheDownload()
{
    for (const char *name : {"http_proxy", "HTTP_PROXY", "all_proxy", "ALL_PROXY"})
        qunsetenv(name);
    FakeHttpServer server(R"({"version":"1.0"})");
    UpdateServer entry;
    entry.host = L"127.0.0.1";
    entry.path = L"/api/software/pennoria-draw/version";
    entry.logName = "loopback.test";
    entry.secure = false;
    entry.port = server.port();

    QString title;
    QString text;
    QString informative;
    bool yesIsDefault = false;
    ModalScript script({[&](QWidget *modal) {
        auto *box = qobject_cast<QMessageBox *>(modal);
        title = modal->windowTitle();
        text = box ? box->text() : QString();
        informative = box ? box->informativeText() : QString();
        yesIsDefault = box && box->defaultButton() == box->button(QMessageBox::Yes);
        saveScreenshot(modal, "update-prompt");
        clickMessageButton(modal, QMessageBox::No);
    }});
    auto *dock = new PluginDock(
        std::make_unique<ObsDockHost>(),
        new UpdateChecker({entry}, QStringLiteral("https://example.test/dl")), nullptr);
    QTRY_VERIFY_WITH_TIMEOUT(script.finished(), 20000);
    QCOMPARE(title, QStringLiteral("Pennoria: Draw"));
    QCOMPARE(text, QStringLiteral("Update available: 1.0"));
    QCOMPARE(informative, QStringLiteral("Would you like to update now?"));
    QVERIFY(yesIsDefault);
    delete dock;
    QCOMPARE(server.connections(), 1);
}

void TestDock::coopSetupCancelledOpensNoHostDialog()
{
    QString defaultName;
    ModalScript script({[&](QWidget *modal) {
        defaultName = modal->findChild<QLineEdit *>()->text();
        saveScreenshot(modal, "coop-setup-dialog");
        static_cast<QDialog *>(modal)->reject();
    }});
    coopButton()->click();
    QTest::qWait(200);
    QCOMPARE(script.seen(), QStringList{"Create Co-op Canvas"});
    QCOMPARE(script.unexpected(), 0);
    QCOMPARE(defaultName, QStringLiteral("Pennoria Co-op Canvas"));
    QVERIFY(itemNames(m_scene).isEmpty());
    QCOMPARE(CoopSession::instance().role(), CoopSession::Role::None);
}

void TestDock::hostWithEmptyNicknameIsAnon()
{
    addSource(m_scene, "pennoria_canvas", "Local");
    coopSettings().setValue("nickname", "Previous");

    QString prefilled;
    QString hostedText;
    ModalScript script({
        [](QWidget *modal) {
            modal->findChild<QLineEdit *>()->setText(QStringLiteral("Shared"));
            modal->findChild<QDialogButtonBox *>()->button(QDialogButtonBox::Ok)->click();
        },
        [&](QWidget *modal) {
            auto *nickname = modal->findChild<QLineEdit *>();
            prefilled = nickname->text();
            saveScreenshot(modal, "coop-host-join-dialog");
            nickname->setText(QStringLiteral("   "));
            // Other tests use the port too: wait for it right before hosting.
            waitForCoopPortFree();
            clickText(modal, QStringLiteral("Host"));
        },
        [&](QWidget *modal) {
            hostedText = messageText(modal);
            saveScreenshot(modal, "coop-hosting-info");
            clickMessageButton(modal, QMessageBox::Ok);
        },
    });
    coopButton()->click();
    QVERIFY(script.finished());
    QCOMPARE(script.seen(), (QStringList{"Create Co-op Canvas", CoopTitle, CoopTitle}));
    QCOMPARE(prefilled, QStringLiteral("Previous"));
    QCOMPARE(coopSettings().value("nickname").toString(), QStringLiteral("Anon"));
    CoopSession &session = CoopSession::instance();
    QVERIFY2(session.role() == CoopSession::Role::Host, qPrintable(hostedText));
    QCOMPARE(session.nickname(), QStringLiteral("Anon"));
    QCOMPARE(hostedText,
             QStringLiteral("Now hosting a Pennoria: Draw Co-op server on port 42069!\n\n"
                            "Please give your friends your public IP address so they can join.\n\n"
                            "If you have not port forwarded port 42069 already, please do so now, "
                            "then stop and re-start the server."));
    // The co-op canvas went on top of the scene.
    QCOMPARE(itemNames(m_scene), (QStringList{"Local", "Shared"}));
    QCOMPARE(coopButton()->toolTip(),
             QString::fromUtf8("Hosting co-op on port 42069 \xE2\x80\x94 click to stop"));
    QCOMPARE(coopButton()->styleSheet(), GreenStyle);
    QVERIFY(showsPeopleIn(coopButton(), Qt::white));
    QVERIFY(saveScreenshot(m_dock, "dock-hosting"));

    // Hosting with a co-op canvas in the scene: the chooser leads with it.
    QStringList entries;
    ModalScript chooser({[&](QWidget *modal) {
        for (QPushButton *button : modal->findChildren<QPushButton *>())
            entries << button->text();
        saveScreenshot(modal, "chooser-coop");
        clickText(modal, QStringLiteral("  Co-op Canvas (hosting)"));
    }});
    drawButton()->click();
    QVERIFY(chooser.finished());
    QCOMPARE(entries, (QStringList{"  Co-op Canvas (hosting)", "Local"}));
    QCOMPARE(openEditors().size(), 1);
    QVERIFY(openEditors().first()->isCoopMode());

    QString question;
    ModalScript stop({[&](QWidget *modal) {
        question = messageText(modal);
        saveScreenshot(modal, "coop-stop-question");
        clickMessageButton(modal, QMessageBox::Yes);
    }});
    coopButton()->click();
    QVERIFY(stop.finished());
    QCOMPARE(question, QStringLiteral("Stop hosting the co-op session?\n"
                                      "All joiners will be disconnected."));
    QCOMPARE(session.role(), CoopSession::Role::None);
    QCOMPARE(coopButton()->toolTip(), IdleTip);
    QCOMPARE(coopButton()->styleSheet(), QString());
}

void TestDock::hostFailureShowsTheSystemText()
{
    addSource(m_scene, "pennoria_coop_canvas", "Co-op");
    QTcpServer squatter;
    QVERIFY2(listenOnCoopPort(squatter), "port 42069 stayed busy");

    QString title;
    QString text;
    ModalScript script({
        [](QWidget *modal) { clickText(modal, QStringLiteral("Host")); },
        [&](QWidget *modal) {
            title = modal->windowTitle();
            text = messageText(modal);
            saveScreenshot(modal, "coop-host-failed");
            clickMessageButton(modal, QMessageBox::Ok);
        },
    });
    coopButton()->click();
    QVERIFY(script.finished());
    const QString lastError = CoopSession::instance().lastError();
    QVERIFY2(lastError.startsWith("Could not listen on port 42069: "), qPrintable(lastError));
    QCOMPARE(title, CoopTitle);
    QCOMPARE(text, QStringLiteral("Could not start hosting:\n") + lastError);
    QCOMPARE(CoopSession::instance().role(), CoopSession::Role::None);
    QCOMPARE(coopButton()->toolTip(), IdleTip);
}

void TestDock::clickWhileConnectingLeaves()
{
    addSource(m_scene, "pennoria_coop_canvas", "Co-op");
    coopSettings().setValue("lastJoinIp", "192.0.2.1");
    // Accepts at the kernel level but never answers, so no welcome comes.
    QTcpServer silentHost;
    QVERIFY2(listenOnCoopPort(silentHost), "port 42069 stayed busy");

    QString prefilledAddress;
    ModalScript script({
        [](QWidget *modal) {
            modal->findChild<QLineEdit *>()->setText(QStringLiteral("Joiner"));
            clickText(modal, QStringLiteral("Join"));
        },
        [&](QWidget *modal) {
            auto *address = modal->findChild<QLineEdit *>();
            prefilledAddress = address->text();
            saveScreenshot(modal, "coop-join-dialog");
            address->setText(QStringLiteral(" 127.0.0.1 "));
            modal->findChild<QDialogButtonBox *>()->button(QDialogButtonBox::Ok)->click();
        },
    });
    coopButton()->click();
    QVERIFY(script.finished());
    QCOMPARE(script.seen(), (QStringList{CoopTitle, "Join Co-op Session"}));
    QCOMPARE(prefilledAddress, QStringLiteral("192.0.2.1"));
    QCOMPARE(coopSettings().value("lastJoinIp").toString(), QStringLiteral("127.0.0.1"));
    QCOMPARE(coopSettings().value("nickname").toString(), QStringLiteral("Joiner"));

    CoopSession &session = CoopSession::instance();
    QCOMPARE(session.role(), CoopSession::Role::Client);
    QVERIFY(!session.isWelcomed());
    QCOMPARE(coopButton()->toolTip(), QString::fromUtf8("Connecting to host\xE2\x80\xA6"));
    QCOMPARE(coopButton()->styleSheet(), AmberStyle);
    // Let the connection come up at the socket level; still no welcome.
    QTRY_VERIFY(silentHost.hasPendingConnections());
    QCOMPARE(coopButton()->styleSheet(), AmberStyle);
    QVERIFY(showsPeopleIn(coopButton(), Qt::white));
    QVERIFY(saveScreenshot(m_dock, "dock-connecting"));

    QString question;
    ModalScript leave({[&](QWidget *modal) {
        question = messageText(modal);
        saveScreenshot(modal, "coop-leave-question");
        clickMessageButton(modal, QMessageBox::Yes);
    }});
    coopButton()->click();
    QVERIFY(leave.finished());
    QCOMPARE(leave.seen(), QStringList{CoopTitle});
    QCOMPARE(question, QStringLiteral("Leave the co-op session?"));
    QCOMPARE(session.role(), CoopSession::Role::None);
    QCOMPARE(coopButton()->toolTip(), IdleTip);
    QCOMPARE(coopButton()->styleSheet(), QString());
    QVERIFY(showsPeopleIn(coopButton(), coopButton()->palette().color(QPalette::ButtonText)));
    QTest::qWait(200);
    QCOMPARE(leave.unexpected(), 0);
}

void TestDock::welcomedClientShowsConnected()
{
    addSource(m_scene, "pennoria_coop_canvas", "Co-op");
    CoopSession hostSession;
    QVERIFY2(
        QTest::qWaitFor([&] { return hostSession.host(QStringLiteral("Host"), CoopPort); }, 60000),
        "port 42069 stayed busy");

    ModalScript script({
        [](QWidget *modal) {
            modal->findChild<QLineEdit *>()->setText(QStringLiteral("Guest"));
            clickText(modal, QStringLiteral("Join"));
        },
        [](QWidget *modal) {
            modal->findChild<QLineEdit *>()->setText(QStringLiteral("127.0.0.1"));
            modal->findChild<QDialogButtonBox *>()->button(QDialogButtonBox::Ok)->click();
        },
    });
    coopButton()->click();
    QVERIFY(script.finished());
    CoopSession &session = CoopSession::instance();
    QTRY_VERIFY_WITH_TIMEOUT(session.isWelcomed(), 10000);
    QCOMPARE(coopButton()->toolTip(),
             QString::fromUtf8("Connected to a co-op session \xE2\x80\x94 click to leave"));
    QCOMPARE(coopButton()->styleSheet(), GreenStyle);
    QVERIFY(showsPeopleIn(coopButton(), Qt::white));
    QVERIFY(saveScreenshot(m_dock, "dock-connected"));

    // Co-op available and no local canvas: Draw opens the co-op editor.
    drawButton()->click();
    QCOMPARE(openEditors().size(), 1);
    QVERIFY(openEditors().first()->isCoopMode());

    // The host going away ends the session with one warning.
    QString lost;
    ModalScript warning({[&](QWidget *modal) {
        lost = messageText(modal);
        clickMessageButton(modal, QMessageBox::Ok);
    }});
    hostSession.stop();
    QTRY_VERIFY_WITH_TIMEOUT(warning.finished(), 10000);
    QCOMPARE(lost, QStringLiteral("Lost connection to the host."));
    QCOMPARE(session.role(), CoopSession::Role::None);
    QCOMPARE(coopButton()->toolTip(), IdleTip);
}

void TestDock::refusedConnectionShowsOneWarning()
{
    addSource(m_scene, "pennoria_coop_canvas", "Co-op");

    QString title;
    QString text;
    ModalScript script({
        [](QWidget *modal) { clickText(modal, QStringLiteral("Join")); },
        [](QWidget *modal) {
            modal->findChild<QLineEdit *>()->setText(QStringLiteral("127.0.0.1"));
            // Nothing may listen on the port for the refusal: wait until free.
            waitForCoopPortFree();
            modal->findChild<QDialogButtonBox *>()->button(QDialogButtonBox::Ok)->click();
        },
        [&](QWidget *modal) {
            title = modal->windowTitle();
            text = messageText(modal);
            saveScreenshot(modal, "coop-connection-error");
            clickMessageButton(modal, QMessageBox::Ok);
        },
    });
    coopButton()->click();
    QTRY_VERIFY_WITH_TIMEOUT(script.finished(), 10000);
    QTest::qWait(500);
    QCOMPARE(script.unexpected(), 0);
    QCOMPARE(title, CoopTitle);
    QVERIFY2(text.contains(QStringLiteral("refused"), Qt::CaseInsensitive), qPrintable(text));
    QCOMPARE(CoopSession::instance().role(), CoopSession::Role::None);
    QCOMPARE(coopButton()->toolTip(), IdleTip);
    QCOMPARE(coopButton()->styleSheet(), QString());
}

QTEST_MAIN(TestDock)
#include "tst_dock.moc"
