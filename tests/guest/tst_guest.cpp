// The guest program's rules: what it remembers, how it reads an address, and
// how every end of a session reaches the user and leaves the program ready to
// join again. Each case runs a real host session on a free loopback port.
#include "GuestApp.h"
#include "HostAddress.h"

#include "LogCapture.h"
#include "canvas/CanvasWidget.h"
#include "coop/CoopProtocol.h"
#include "coop/CoopSession.h"
#include "editor/DrawingWindow.h"
#include "engine/CanvasDocument.h"
#include "settings/CoopSettings.h"

#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QSettings>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

namespace {

constexpr int Wait = 10000;

quint16 freePort()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    return probe.serverPort();
}

// Answers the next modal message box with a button and keeps what it said.
struct BoxAnswer : QObject {
    explicit BoxAnswer(QMessageBox::StandardButton answer)
    {
        connect(&timer, &QTimer::timeout, this, [this, answer] {
            auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
            if (!box || seen)
                return;
            seen = true;
            title = box->windowTitle();
            text = box->text();
            icon = box->icon();
            box->button(answer)->click();
        });
        timer.start(20);
    }
    QTimer timer;
    bool seen = false;
    QString title;
    QString text;
    QMessageBox::Icon icon = QMessageBox::NoIcon;
};

template <typename T> T *widget(const char *name)
{
    for (QWidget *top : QApplication::topLevelWidgets()) {
        if (auto *found = top->findChild<T *>(QLatin1String(name)))
            return found;
    }
    return nullptr;
}

DrawingWindow *openEditor()
{
    for (QWidget *top : QApplication::topLevelWidgets()) {
        if (auto *editor = qobject_cast<DrawingWindow *>(top); editor && editor->isVisible())
            return editor;
    }
    return nullptr;
}

void joinFromConnectWindow(const QString &address)
{
    widget<QLineEdit>("addressEdit")->setText(address);
    widget<QPushButton>("joinButton")->click();
}

} // namespace

class TestGuest : public QObject {
    Q_OBJECT

public:
    enum class End {
        Unreachable,
        NotACoopHost,
        OtherVersion,
        WrongPassword,
        Kicked,
        HostStopped,
        HostGone
    };
    Q_ENUM(End)

private slots:
    void initTestCase()
    {
        QVERIFY(m_settingsDir.isValid());
        QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, m_settingsDir.path());
    }
    void init() { m_guest = std::make_unique<GuestApp>(CoopSession::instance()); }
    void cleanup()
    {
        m_guest.reset();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QCoreApplication::processEvents();
    }

    // Fault: a port typed after the address is ignored, or an IPv6 address is
    // cut at its first colon.
    void addressParsing_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("host");
        QTest::addColumn<int>("port");
        QTest::newRow("address alone") << " 203.0.113.7 " << "203.0.113.7" << 4321;
        QTest::newRow("host:port") << "localhost:5000" << "localhost" << 5000;
        QTest::newRow("IPv6 alone") << "::1" << "::1" << 4321;
        QTest::newRow("[IPv6]:port") << "[::1]:5000" << "::1" << 5000;
        QTest::newRow("port not a number") << "localhost:abc" << "localhost" << 0;
        QTest::newRow("port out of range") << "localhost:70000" << "localhost" << 0;
        QTest::newRow("bracket not closed") << "[::1:5000" << "" << 0;
    }
    void addressParsing()
    {
        QFETCH(QString, text);
        const HostAddress address = HostAddress::parse(text, 4321); // 4321: the fallback port
        QTEST(address.host, "host");
        QTEST(int(address.port), "port");
    }

    // Fault: the connect window forgets the last host or nickname, or keeps
    // them under other keys than the dock's join dialog reads.
    void remembersAddressAndNickname()
    {
        CoopSettings::setLastJoinIp(QStringLiteral("203.0.113.7"));
        CoopSettings::setNickname(QStringLiteral("Mia"));
        m_guest.reset(); // the connect window reads the store when it is made
        m_guest = std::make_unique<GuestApp>(CoopSession::instance());
        m_guest->start();
        QCOMPARE(widget<QLineEdit>("addressEdit")->text(), QStringLiteral("203.0.113.7"));
        QCOMPARE(widget<QLineEdit>("nicknameEdit")->text(), QStringLiteral("Mia"));

        BoxAnswer refused(QMessageBox::Ok);
        widget<QLineEdit>("nicknameEdit")->setText(QStringLiteral("  "));
        joinFromConnectWindow(QStringLiteral(" 127.0.0.1:%1 ").arg(freePort()));
        const QSettings store(QStringLiteral("PennoriaDraw"), QStringLiteral("Coop"));
        QVERIFY(store.value("lastJoinIp").toString().startsWith("127.0.0.1:"));
        QCOMPARE(store.value("nickname").toString(), QStringLiteral("Anon"));
        QTRY_VERIFY_WITH_TIMEOUT(refused.seen, Wait);
    }

    // Fault: an end of the session shows no message, the wrong kind of box or
    // another text than the dock's, or leaves the guest stuck (still in the
    // session, the editor open, the connect window locked).
    void sessionEndMessages_data()
    {
        QTest::addColumn<End>("end");
        QTest::addColumn<QMessageBox::Icon>("icon");
        QTest::addColumn<QString>("text");
        QTest::newRow("unreachable host") << End::Unreachable << QMessageBox::Warning << "refused";
        QTest::newRow("not a co-op host")
            << End::NotACoopHost << QMessageBox::Warning << "closed the connection";
        QTest::newRow("host of another version")
            << End::OtherVersion << QMessageBox::Warning << "another version";
        QTest::newRow("wrong password")
            << End::WrongPassword << QMessageBox::Warning << "Wrong password.";
        QTest::newRow("kicked") << End::Kicked << QMessageBox::Information
                                << "You were kicked by the host. Sorry!";
        QTest::newRow("host ended the session")
            << End::HostStopped << QMessageBox::Warning << "Lost connection to the host.";
        QTest::newRow("lost connection")
            << End::HostGone << QMessageBox::Warning << "Lost connection to the host.";
    }
    void sessionEndMessages()
    {
        QFETCH(End, end);
        const quint16 port = freePort();
        auto host = std::make_unique<CoopSession>();
        QTcpServer stranger; // not a co-op host of this version
        if (end == End::NotACoopHost || end == End::OtherVersion) {
            QVERIFY(stranger.listen(QHostAddress::LocalHost, port));
            connect(&stranger, &QTcpServer::newConnection, &stranger, [&stranger, end] {
                QTcpSocket *socket = stranger.nextPendingConnection();
                if (end == End::OtherVersion)
                    socket->write(coop::encodeFrame({{"t", "welcome"}, {"id", 1}, {"ver", 1}}));
                else
                    socket->disconnectFromHost();
            });
        } else if (end == End::WrongPassword) {
            CoopHostOptions options;
            options.password = QStringLiteral("secret");
            QVERIFY(host->host(QStringLiteral("Host"), port, options));
            widget<QLineEdit>("passwordEdit")->setText(QStringLiteral("guess"));
        } else if (end != End::Unreachable) {
            QVERIFY(host->host(QStringLiteral("Host"), port));
        }
        m_guest->start();
        BoxAnswer message(QMessageBox::Ok);
        joinFromConnectWindow(QStringLiteral("127.0.0.1:%1").arg(port));
        QVERIFY(!widget<QPushButton>("joinButton")->isEnabled());

        if (host->role() == CoopSession::Role::Host && end != End::WrongPassword) {
            QTRY_VERIFY_WITH_TIMEOUT(openEditor(), Wait);
            QVERIFY(openEditor()->isCoopMode());
            QVERIFY(!widget<QLineEdit>("addressEdit")->isVisible());
            QTRY_COMPARE_WITH_TIMEOUT(host->users().size(), 2, Wait);
            if (end == End::Kicked)
                host->kick(host->users().at(1).id);
            else if (end == End::HostStopped)
                host->stop();
            else
                host.reset();
        }

        QTRY_VERIFY_WITH_TIMEOUT(message.seen, Wait);
        QCOMPARE(message.title, QStringLiteral("Pennoria: Draw Co-op"));
        QTEST(message.icon, "icon");
        QFETCH(QString, text);
        QVERIFY2(message.text.contains(text, Qt::CaseInsensitive), qPrintable(message.text));
        QCOMPARE(CoopSession::instance().role(), CoopSession::Role::None);
        QTRY_VERIFY(!openEditor());
        QVERIFY(widget<QLineEdit>("addressEdit")->isVisible());
        QVERIFY(widget<QPushButton>("joinButton")->isEnabled());
    }

    // Fault: the guest draws at its own size instead of the host's, its
    // strokes do not reach the host, closing the editor leaves the guest
    // connected (the host still lists it), or answering No leaves anyway.
    void drawingAndLeaving()
    {
        const quint16 port = freePort();
        CoopSession host;
        QImage hostPicture(1280, 720, QImage::Format_RGBA8888);
        hostPicture.fill(Qt::transparent);
        host.setCanvasProvider([hostPicture] { return hostPicture; });
        QVERIFY(host.host(QStringLiteral("Host"), port));
        QSignalSpy strokes(&host, &CoopSession::strokeReceived);
        m_guest->start();
        widget<QLineEdit>("nicknameEdit")->setText(QStringLiteral("Guest"));
        joinFromConnectWindow(QStringLiteral("127.0.0.1:%1").arg(port));
        QTRY_VERIFY_WITH_TIMEOUT(openEditor(), Wait);

        DrawingWindow *editor = openEditor();
        auto *canvas = editor->findChild<CanvasWidget *>();
        QVERIFY(canvas);
        QCOMPARE(canvas->document()->width(), 1280);
        QTest::mousePress(canvas, Qt::LeftButton, {}, QPoint(40, 40));
        QTest::mouseMove(canvas, QPoint(90, 60));
        QTest::mouseRelease(canvas, Qt::LeftButton, {}, QPoint(90, 60));
        QTRY_VERIFY_WITH_TIMEOUT(!strokes.isEmpty(), Wait);
        QCOMPARE(strokes.first().at(1).toString(), QStringLiteral("Guest"));

        for (const QMessageBox::StandardButton answer : {QMessageBox::No, QMessageBox::Yes}) {
            BoxAnswer question(answer);
            QMetaObject::invokeMethod(editor, &QWidget::close, Qt::QueuedConnection);
            QTRY_VERIFY_WITH_TIMEOUT(question.seen, Wait);
            QCOMPARE(question.text, QStringLiteral("Leave the co-op session?"));
            QCOMPARE(openEditor() != nullptr, answer == QMessageBox::No);
        }
        QTRY_COMPARE_WITH_TIMEOUT(host.users().size(), 1, Wait);
        QCOMPARE(CoopSession::instance().role(), CoopSession::Role::None);
        QVERIFY(widget<QLineEdit>("addressEdit")->isVisible());
    }

    // Fault: closing the connect window during a connection attempt leaves
    // the socket open or the program running.
    void closingWhileConnectingEndsTheProgram()
    {
        QTcpServer mute; // accepts and never answers
        QVERIFY(mute.listen(QHostAddress::LocalHost, 0));
        QSignalSpy finished(m_guest.get(), &GuestApp::finished);
        m_guest->start();
        joinFromConnectWindow(QStringLiteral("127.0.0.1:%1").arg(mute.serverPort()));
        QTRY_VERIFY_WITH_TIMEOUT(mute.hasPendingConnections(), Wait);
        widget<QLineEdit>("addressEdit")->window()->close();
        QCOMPARE(finished.size(), 1);
        QCOMPARE(CoopSession::instance().role(), CoopSession::Role::None);
    }

private:
    QTemporaryDir m_settingsDir;
    std::unique_ptr<GuestApp> m_guest;
    LogCapture m_log; // keeps the session's log lines out of the output
};

QTEST_MAIN(TestGuest)
#include "tst_guest.moc"
