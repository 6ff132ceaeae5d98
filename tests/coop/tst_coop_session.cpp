#include "RawPeer.h"

#include "common/Log.h"
#include "coop/CoopProtocol.h"
#include "coop/CoopSession.h"
#include "coop/StrokeJson.h"

#include <QJsonArray>
#include <QMessageAuthenticationCode>
#include <QPasswordDigestor>
#include <QSignalSpy>
#include <QTcpServer>
#include <QtTest>

#include <memory>
#include <vector>

namespace {

QStringList g_log;

void captureLog(const char *line)
{
    g_log.append(QString::fromUtf8(line));
}

constexpr int Wait = 10000;

Stroke segment(double x, double y, float width = 4)
{
    Stroke s;
    s.points = {QPointF(x, y), QPointF(x + 1, y + 1)};
    s.color = QColor::fromRgba(0xFF112233u);
    s.width = width;
    return s;
}

QJsonObject strokeMessage(const Stroke &s)
{
    return QJsonObject{{"t", "stroke"}, {"stroke", coop::strokeToJson(s)}};
}

QJsonArray usersJson(const RawPeer &peer)
{
    return peer.last("users").value("users").toArray();
}

// Records the session's signals as text, in the order they fire.
void record(CoopSession *session, QStringList *log)
{
    QObject::connect(session, &CoopSession::roleChanged, [log](CoopSession::Role r) {
        log->append(QStringLiteral("role(%1)").arg(int(r)));
    });
    QObject::connect(session, &CoopSession::hostingStarted, [log] { log->append("hosting"); });
    QObject::connect(session, &CoopSession::connectedToHost, [log] { log->append("connected"); });
    QObject::connect(session, &CoopSession::connectionError,
                     [log](const QString &m) { log->append("error(" + m + ")"); });
    QObject::connect(session, &CoopSession::sessionEnded, [log] { log->append("ended"); });
    QObject::connect(session, &CoopSession::usersChanged, [log](const QList<CoopUser> &u) {
        log->append(QStringLiteral("users(%1)").arg(u.size()));
    });
    QObject::connect(session, &CoopSession::kicked,
                     [log](const QString &m) { log->append("kicked(" + m + ")"); });
    QObject::connect(session, &CoopSession::canvasStateReceived, [log] { log->append("canvas"); });
}

// A host on a free port.
struct Host {
    CoopSession session;
    quint16 port = 0;

    explicit Host(const CoopHostOptions &options = {}, const CoopHostLimits &limits = {})
    {
        session.setHostLimits(limits);
        if (session.host(QStringLiteral("Host"), 0, options))
            port = session.hostPort();
    }

    // A raw peer that said hello and was welcomed.
    std::unique_ptr<RawPeer> joined(const QString &nick, const QString &from = QString())
    {
        auto peer = std::make_unique<RawPeer>(port, from);
        if (!QTest::qWaitFor([&] { return peer->connected(); }, Wait))
            return nullptr;
        peer->hello(nick);
        return QTest::qWaitFor([&] { return peer->count("welcome") == 1; }, Wait) ? std::move(peer)
                                                                                  : nullptr;
    }
};

// A hand-written host for one client.
struct RawHost {
    QTcpServer server;
    std::unique_ptr<QTcpSocket> socket;
    QByteArray rx;

    bool accept(CoopSession &client, const QString &password = QString())
    {
        server.listen(QHostAddress::LocalHost, 0);
        client.join("127.0.0.1", "\tMe ", server.serverPort(), password);
        if (!QTest::qWaitFor([&] { return server.hasPendingConnections(); }, Wait))
            return false;
        socket.reset(server.nextPendingConnection());
        return true;
    }
    void send(const QJsonObject &o) { socket->write(RawPeer::frame(RawPeer::json(o))); }
    bool received(const QByteArray &needle)
    {
        return QTest::qWaitFor([&] { return (rx += socket->readAll()).contains(needle); }, Wait);
    }
};

} // namespace

class TestCoopSession : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() { setLogSink(captureLog); }
    void init() { g_log.clear(); }
    void cleanup()
    {
        // Let deferred deletions and the listening socket go before the next case.
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QCoreApplication::processEvents();
    }

    void nicknameSanitising_data()
    {
        QTest::addColumn<QString>("input");
        QTest::addColumn<QString>("expected");
        QTest::newRow("40 letters") << QString(40, 'a') << QString(32, 'a');
        QTest::newRow("blanks") << "   " << "Anon";
        QTest::newRow("controls dropped") << " A\tn\rn\n\x01 " << "Ann";
        QTest::newRow("emoji kept whole") << QString::fromUtf8("\xF0\x9F\x8E\xA8 art")
                                          << QString::fromUtf8("\xF0\x9F\x8E\xA8 art");
    }

    void nicknameSanitising()
    {
        QFETCH(QString, input);
        QFETCH(QString, expected);
        QCOMPARE(CoopSession::sanitizeNickname(input), expected);
    }

    void hostHelloWelcome()
    {
        CoopSession session;
        QImage canvas(6, 4, QImage::Format_RGBA8888);
        canvas.fill(Qt::transparent);
        canvas.setPixelColor(2, 1, QColor(255, 0, 0, 200));
        session.setCanvasProvider([canvas] { return canvas; });
        QStringList signalLog;
        record(&session, &signalLog);
        QVERIFY(session.host(" Host\t", 0));
        const quint16 port = session.hostPort();
        QCOMPARE(signalLog, (QStringList{"role(1)", "users(1)", "hosting"}));
        QCOMPARE(session.nickname(), QString("Host"));
        QVERIFY(session.users()[0].isHost && session.users()[0].isSelf);
        QCOMPARE(g_log.last(), QStringLiteral("[PD-Coop] hosting on port %1 as 'Host'").arg(port));

        // Nothing reaches a connection before its hello.
        RawPeer peer(port), silent(port);
        QTRY_VERIFY_WITH_TIMEOUT(peer.connected() && silent.connected(), Wait);
        peer.hello("  Annie\n");
        QTRY_COMPARE_WITH_TIMEOUT(peer.count("welcome"), 1, Wait);
        const QJsonObject welcome = peer.last("welcome");
        QCOMPARE(welcome.value("id").toInt(), 1);
        QCOMPARE(welcome.value("ver").toInt(), 2);
        QCOMPARE(welcome.value("mayClear"), QJsonValue(false));
        const QByteArray png = QByteArray::fromBase64(welcome.value("canvas").toString().toLatin1(),
                                                      QByteArray::AbortOnBase64DecodingErrors);
        QCOMPARE(QImage::fromData(png, "PNG").convertToFormat(QImage::Format_RGBA8888), canvas);
        QTRY_COMPARE_WITH_TIMEOUT(
            usersJson(peer),
            (QJsonArray{QJsonObject{{"id", 0}, {"nick", "Host"}, {"ping", 0}, {"host", true}},
                        QJsonObject{{"id", 1}, {"nick", "Annie"}, {"ping", -1}, {"host", false}}}),
            Wait);
        QVERIFY(!session.users()[1].isSelf && !session.users()[1].isHost);
        QVERIFY(g_log.contains("[PD-Coop] peer connecting (id=1) from 127.0.0.1"));
        QVERIFY(g_log.contains("[PD-Coop] peer id=1 joined as 'Annie'"));

        // A second hello is ignored; the silent one gets nothing at all.
        peer.hello("Other");
        peer.send(QJsonObject{{"t", "bye"}});
        QTRY_VERIFY_WITH_TIMEOUT(peer.closed, Wait);
        QCOMPARE(peer.count("welcome"), 1);
        QVERIFY(silent.received.isEmpty());

        // Hosting again while active is refused and leaves everything as it was.
        signalLog.clear();
        QVERIFY(!session.host("Again", 0));
        QCOMPARE(session.lastError(), QString("A co-op session is already active."));
        session.join("127.0.0.1", "x", port);
        QCOMPARE(signalLog, QStringList{"error(A co-op session is already active.)"});
        QCOMPARE(session.role(), CoopSession::Role::Host);

        signalLog.clear();
        session.stop();
        QCOMPARE(signalLog, (QStringList{"role(0)", "users(0)", "ended"}));
        QTRY_VERIFY_WITH_TIMEOUT(silent.closed, Wait);
        session.stop(); // idle: nothing
        QCOMPARE(signalLog.size(), 3);
    }

    // Strokes go out re-encoded from known keys, stamped with the sender.
    void relayKnownKeysOnly()
    {
        Host host;
        QList<QPair<QPointF, QString>> hostGot;
        connect(&host.session, &CoopSession::strokeReceived, this,
                [&](const Stroke &s, const QString &from) {
                    hostGot.append({s.points.first(), from});
                });
        auto a = host.joined("A"), b = host.joined("B");
        QVERIFY(a && b);
        RawPeer silent(host.port);
        QTRY_VERIFY_WITH_TIMEOUT(silent.connected(), Wait);
        silent.send(strokeMessage(segment(99, 99)));

        QJsonObject padded = strokeMessage(segment(10, 20));
        padded.insert("from", "forged");
        padded.insert("x", QString(100000, 'x'));
        QJsonObject inner = padded.value("stroke").toObject();
        inner.insert("pad", QString(100000, 'p'));
        padded.insert("stroke", inner);
        a->send(padded);
        b->send(
            QJsonObject{{"t", "stroke"}, {"stroke", QJsonObject{{"pts", QJsonArray{1, 2, 3}}}}});
        a->send(QJsonObject{{"t", "bye"}});
        QTRY_VERIFY_WITH_TIMEOUT(b->count("stroke") == 1 && a->closed, Wait);
        QCOMPARE(b->last("stroke"), (QJsonObject{{"t", "stroke"},
                                                 {"stroke", coop::strokeToJson(segment(10, 20))},
                                                 {"from", "A"}}));
        QCOMPARE(hostGot, (QList<QPair<QPointF, QString>>{{QPointF(10, 20), "A"}}));
        QTRY_COMPARE_WITH_TIMEOUT(usersJson(*b).size(), 2, Wait);

        // The host's own stroke and clear reach the peers, never the silent one.
        host.session.sendStroke(segment(5, 6));
        host.session.sendClear();
        QTRY_COMPARE_WITH_TIMEOUT(b->count("clear"), 1, Wait);
        QCOMPARE(b->last("stroke").value("from").toString(), QString("Host"));
        QCOMPARE(b->last("clear"), (QJsonObject{{"t", "clear"}, {"from", "Host"}}));
        QVERIFY(silent.received.isEmpty());
    }

    // Whether a guest's clear is taken is the host's choice, off by default.
    void guestClear_data()
    {
        QTest::addColumn<bool>("allowed");
        QTest::newRow("default: refused") << false;
        QTest::newRow("allowed") << true;
    }

    void guestClear()
    {
        QFETCH(bool, allowed);
        CoopHostOptions options;
        options.guestsMayClear = allowed;
        Host host(options);
        QSignalSpy clears(&host.session, &CoopSession::clearReceived);
        auto watcher = host.joined("W");
        CoopSession guest;
        guest.join("127.0.0.1", "G", host.port);
        QTRY_VERIFY_WITH_TIMEOUT(guest.isWelcomed(), Wait);
        QCOMPARE(guest.mayClear(), allowed);
        guest.sendClear();
        guest.sendStroke(segment(1, 1));
        QTRY_COMPARE_WITH_TIMEOUT(watcher->count("stroke"), 1, Wait);
        QCOMPARE(watcher->count("clear"), allowed ? 1 : 0);
        QCOMPARE(clears.size(), allowed ? 1 : 0);
    }

    void password_data()
    {
        QTest::addColumn<QString>("hostPassword");
        QTest::addColumn<QString>("guestPassword");
        QTest::addColumn<QString>("error");
        QTest::newRow("right") << "tr0mbone" << "tr0mbone" << "";
        QTest::newRow("wrong") << "tr0mbone" << "trombone" << "Wrong password.";
        QTest::newRow("missing") << "tr0mbone" << "" << "This co-op session needs a password.";
        QTest::newRow("open session") << "" << "anything" << "";
    }

    void password()
    {
        QFETCH(QString, hostPassword);
        QFETCH(QString, guestPassword);
        QFETCH(QString, error);
        CoopHostOptions options;
        options.password = hostPassword;
        Host host(options);
        CoopSession guest;
        QStringList signalLog;
        record(&guest, &signalLog);
        guest.join("127.0.0.1", "G", host.port, guestPassword);
        QTRY_VERIFY_WITH_TIMEOUT(signalLog.size() >= (error.isEmpty() ? 2 : 4), Wait);
        if (error.isEmpty()) {
            QCOMPARE(signalLog.mid(0, 2), (QStringList{"role(2)", "connected"}));
            QCOMPARE(host.session.users().size(), 2);
            return;
        }
        QCOMPARE(signalLog,
                 (QStringList{"role(2)", "role(0)", "users(0)", "error(" + error + ")"}));
        QCOMPARE(host.session.users().size(), 1);
        // A retry from the same address waits; another address does not.
        RawPeer again(host.port), elsewhere(host.port, "127.0.0.2");
        QTRY_VERIFY_WITH_TIMEOUT(again.closed, Wait);
        QCOMPARE(again.last("kick").value("code").toString(), QString("backoff"));
        QVERIFY(elsewhere.connected());
    }

    // The client's answer against an independent computation; the password
    // itself never goes on the wire.
    void proofWithoutThePassword()
    {
        CoopSession client;
        RawHost host;
        QVERIFY(host.accept(client, "s3cret-word"));
        const QByteArray salt = "0123456789abcdef", nonce = "fedcba9876543210";
        host.send({{"t", "challenge"},
                   {"ver", 2},
                   {"salt", QString(salt.toBase64())},
                   {"nonce", QString(nonce.toBase64())},
                   {"iter", 1000}});
        QVERIFY(host.received("\"auth\"") && !host.rx.contains("s3cret"));
        const QJsonObject auth =
            QJsonDocument::fromJson(host.rx.mid(host.rx.lastIndexOf("{\"nonce\""))).object();
        const QByteArray clientNonce =
            QByteArray::fromBase64(auth.value("nonce").toString().toLatin1());
        const QByteArray key = QPasswordDigestor::deriveKeyPbkdf2(QCryptographicHash::Sha256,
                                                                  "s3cret-word", salt, 1000, 32);
        QCOMPARE(clientNonce.size(), 16);
        QCOMPARE(
            QByteArray::fromBase64(auth.value("proof").toString().toLatin1()),
            QMessageAuthenticationCode::hash(nonce + clientNonce, key, QCryptographicHash::Sha256));
    }

    // Another version gets told so, both ways round.
    void otherVersion()
    {
        Host host;
        RawPeer old(host.port);
        QTRY_VERIFY_WITH_TIMEOUT(old.connected(), Wait);
        old.hello("Old", 1);
        QTRY_VERIFY_WITH_TIMEOUT(old.closed, Wait);
        QCOMPARE(old.received.size(), 1);
        QCOMPARE(old.last("kick").value("code").toString(), QString("version"));
        QVERIFY(old.last("kick").value("reason").toString().contains("another version"));

        CoopSession client;
        QSignalSpy errors(&client, &CoopSession::connectionError);
        RawHost oldHost;
        QVERIFY(oldHost.accept(client));
        oldHost.send({{"t", "welcome"}, {"id", 1}});
        QTRY_COMPARE_WITH_TIMEOUT(errors.size(), 1, Wait);
        QVERIFY(errors[0][0].toString().contains("another version"));
        QCOMPARE(client.role(), CoopSession::Role::None);
    }

    void kickedPeerCannotRejoin()
    {
        Host host;
        auto kid = host.joined("Kid"), other = host.joined("Other");
        QSignalSpy users(&host.session, &CoopSession::usersChanged);
        host.session.kick(42);
        QCOMPARE(users.size(), 0);
        host.session.kick(1);
        QCOMPARE(g_log.last(), QString("[PD-Coop] kicking id=1 ('Kid')"));
        QTRY_VERIFY_WITH_TIMEOUT(kid->closed, Wait);
        QCOMPARE(kid->received.last(),
                 (QJsonObject{{"t", "kick"}, {"reason", "You were kicked by the host. Sorry!"}}));
        RawPeer again(host.port);
        QTRY_VERIFY_WITH_TIMEOUT(again.connected(), Wait);
        again.hello("KID");
        QTRY_VERIFY_WITH_TIMEOUT(again.closed, Wait);
        QCOMPARE(again.last("kick").value("reason").toString(),
                 QString("You were kicked from this session and cannot rejoin it."));
        QVERIFY(host.joined("Kid2") && other->connected());
    }

    // Over the budget strokes are dropped and counted; too big a frame costs
    // the connection. Either way the honest peer carries on.
    void hostileStrokes_data()
    {
        QTest::addColumn<Stroke>("stroke");
        QTest::addColumn<int>("copies");
        QTest::addColumn<int>("maxRelayed");
        QTest::addColumn<bool>("dropsSender");
        Stroke huge = segment(0, 0, 1000);
        huge.points.resize(100000);
        Stroke wide = segment(0, 0, 1000);
        for (int i = 0; i < 1000; ++i)
            wide.points.append(QPointF(i * 37 % 1920, i * 91 % 1080));
        Stroke fill = segment(5, 5);
        fill.points.resize(1);
        fill.fill = true;
        QTest::newRow("100000 points at width 1000") << huge << 1 << 0 << true;
        QTest::newRow("1000 random points at width 1000") << wide << 5 << 0 << false;
        QTest::newRow("fill flood") << fill << 40 << 6 << false;
    }

    void hostileStrokes()
    {
        QFETCH(Stroke, stroke);
        QFETCH(int, copies);
        QFETCH(int, maxRelayed);
        QFETCH(bool, dropsSender);
        Host host;
        auto attacker = host.joined("Mallory"), honest = host.joined("Honest"),
             watcher = host.joined("Watcher");
        QVERIFY(attacker && honest && watcher);
        QByteArray burst;
        for (int i = 0; i < copies; ++i)
            burst += RawPeer::frame(RawPeer::json(strokeMessage(stroke)));
        attacker->sendRaw(burst);
        honest->send(strokeMessage(segment(300, 300)));
        QTRY_VERIFY_WITH_TIMEOUT(watcher->ofType("stroke").size() > 0 &&
                                     watcher->last("stroke").value("from") == "Honest",
                                 Wait);
        QTRY_VERIFY_WITH_TIMEOUT(dropsSender ? attacker->closed
                                             : host.session.droppedStrokes() >= copies - maxRelayed,
                                 Wait);
        QTest::qWait(200);
        QVERIFY(watcher->count("stroke") - 1 <= maxRelayed);
        QVERIFY(honest->connected() && watcher->connected());
        QCOMPARE(attacker->connected(), !dropsSender);
        if (dropsSender) { // and its address waits before coming back
            RawPeer again(host.port);
            QTRY_VERIFY_WITH_TIMEOUT(again.closed, Wait);
            QCOMPARE(again.last("kick").value("code").toString(), QString("backoff"));
        }
    }

    // One peer's burst is handled a few frames at a time: another peer's
    // stroke does not wait for the whole burst.
    void burstDoesNotStarveOthers()
    {
        Host host;
        QStringList order;
        connect(&host.session, &CoopSession::strokeReceived, this,
                [&](const Stroke &, const QString &from) { order.append(from); });
        auto flooder = host.joined("F"), honest = host.joined("H");
        QByteArray burst;
        for (int i = 0; i < 1500; ++i)
            burst += RawPeer::frame(RawPeer::json(strokeMessage(segment(i % 100, 0, 0.1f))));
        flooder->sendRaw(burst);
        honest->send(strokeMessage(segment(7, 7)));
        QTRY_VERIFY_WITH_TIMEOUT(order.contains("H"), Wait);
        QVERIFY2(order.indexOf("H") < 100, qPrintable(QString::number(order.indexOf("H"))));
    }

    // Answers to pings are listed once per ping round, however many come.
    void pongStormFoldsUserLists()
    {
        Host host;
        auto stormer = host.joined("S"), watcher = host.joined("W");
        stormer->autoPong = false;
        QTRY_VERIFY_WITH_TIMEOUT(stormer->count("ping") >= 1, 3 * Wait);
        QSignalSpy users(&host.session, &CoopSession::usersChanged);
        const int listsBefore = watcher->count("users");
        QByteArray storm;
        for (int i = 0; i < 2000; ++i)
            storm += RawPeer::frame(RawPeer::json(
                QJsonObject{{"t", "pong"}, {"ts", stormer->last("ping").value("ts")}}));
        stormer->sendRaw(storm);
        QTRY_VERIFY_WITH_TIMEOUT(host.session.users()[1].pingMs >= 0, 3 * Wait);
        QTest::qWait(300);
        QVERIFY(users.size() <= 2);
        QVERIFY(watcher->count("users") - listsBefore <= 2);
    }

    // Per address a connection over the cap is cut at once; over the total
    // cap it waits until a place frees up. Peers beyond their cap are told.
    void connectionCaps()
    {
        CoopHostLimits limits;
        limits.maxConnections = 4;
        limits.maxConnectionsPerAddress = 2;
        limits.maxPeers = 2;
        Host host({}, limits);
        std::vector<std::unique_ptr<RawPeer>> peers;
        for (const char *from :
             {"127.0.0.2", "127.0.0.2", "127.0.0.2", "127.0.0.3", "127.0.0.4", "127.0.0.5"}) {
            peers.push_back(std::make_unique<RawPeer>(host.port, from));
            QTRY_VERIFY_WITH_TIMEOUT(peers.back()->connected() || peers.back()->closed, Wait);
            QTest::qWait(50); // accepted (or not) before the next one comes
        }
        QTRY_VERIFY_WITH_TIMEOUT(peers[2]->closed, Wait);
        peers[5]->hello("Waiting");
        for (int i : {0, 1})
            peers[size_t(i)]->hello(QStringLiteral("p%1").arg(i));
        QTRY_COMPARE_WITH_TIMEOUT(host.session.users().size(), 3, Wait);
        QVERIFY(peers[5]->connected() && peers[5]->received.isEmpty());
        peers[3]->hello("Third");
        QTRY_VERIFY_WITH_TIMEOUT(peers[3]->closed && peers[5]->closed, Wait);
        QCOMPARE(peers[3]->last("kick").value("code").toString(), QString("full"));
        QCOMPARE(peers[5]->last("kick").value("code").toString(), QString("full"));
    }

    void deadlines()
    {
        CoopHostLimits limits;
        limits.helloDeadlineMs = 300;
        limits.partialFrameDeadlineMs = 300;
        Host host({}, limits);
        auto honest = host.joined("Honest"), trickler = host.joined("Trickler");
        RawPeer idle(host.port);
        QTRY_VERIFY_WITH_TIMEOUT(idle.connected(), Wait);
        trickler->sendRaw(QByteArray("\x00\x00\x01\x00", 4) + "{\"t\":\"stroke\"");
        QTRY_VERIFY_WITH_TIMEOUT(idle.closed && trickler->closed, Wait);
        QVERIFY(honest->connected());
        QCOMPARE(host.session.users().size(), 2);
    }

    // A peer that stops reading is dropped; the others keep everything.
    void slowReaderDroppedAlone()
    {
        CoopHostLimits limits;
        limits.maxPendingOutput = 256 * 1024;
        Host host({}, limits);
        auto reader = host.joined("Reader");
        auto stalled = host.joined("Stalled");
        stalled->socket.setReadBufferSize(1);
        stalled->socket.disconnect(stalled.get());
        constexpr int Strokes = 60000;
        for (int i = 0; i < Strokes; ++i) {
            host.session.sendStroke(segment(i, 0));
            if (i % 50 == 0)
                QCoreApplication::processEvents();
        }
        QTRY_COMPARE_WITH_TIMEOUT(host.session.users().size(), 2, Wait);
        QTRY_COMPARE_WITH_TIMEOUT(reader->count("stroke"), Strokes, Wait);
        QVERIFY(reader->connected());
        QVERIFY(g_log.filter("[PD-Coop] dropping id=2: not reading").size() == 1);
    }

    // The client against a hand-written host.
    void clientAgainstRawHost()
    {
        CoopSession session;
        QStringList signalLog;
        record(&session, &signalLog);
        QList<QPair<QPointF, QString>> strokes;
        QStringList clears;
        connect(&session, &CoopSession::strokeReceived, this,
                [&](const Stroke &s, const QString &from) { strokes.append({s.points[0], from}); });
        connect(&session, &CoopSession::clearReceived, this,
                [&](const QString &f) { clears.append(f); });
        QImage canvasGot;
        connect(&session, &CoopSession::canvasStateReceived, this,
                [&](const QImage &i) { canvasGot = i; });
        RawHost host;
        QVERIFY(host.accept(session) && host.received("hello"));
        QCOMPARE(host.rx, RawPeer::frame("{\"nick\":\"Me\",\"t\":\"hello\",\"ver\":2}"));

        QImage canvas(3, 2, QImage::Format_RGBA8888);
        canvas.fill(QColor(1, 2, 3, 4));
        host.send({{"t", "welcome"},
                   {"id", 7},
                   {"ver", 2},
                   {"mayClear", true},
                   {"canvas", QString(coop::encodeCanvas(canvas))}});
        host.send({{"t", "users"},
                   {"users", QJsonArray{QJsonObject{{"id", 0}, {"nick", "H"}, {"host", true}},
                                        QJsonObject{{"id", 7}, {"nick", "Me"}, {"ping", 12}},
                                        QJsonObject{}}}});
        host.send({{"t", "stroke"}, {"stroke", coop::strokeToJson(segment(3, 4))}, {"from", "Z"}});
        host.send({{"t", "stroke"}, {"stroke", "bad"}});
        host.send({{"t", "clear"}, {"from", "Z"}});
        host.send({{"t", "ping"}, {"ts", 1712345678901.0}});
        QVERIFY(host.received(RawPeer::frame("{\"t\":\"pong\",\"ts\":1712345678901}")));
        QCOMPARE(signalLog, (QStringList{"role(2)", "canvas", "connected", "users(3)"}));
        QCOMPARE(canvasGot.convertToFormat(QImage::Format_RGBA8888), canvas);
        QVERIFY(session.ownId() == 7 && session.mayClear());
        const QList<CoopUser> list = session.users();
        QVERIFY(list[0].isHost && !list[0].isSelf);
        QVERIFY(!list[1].isHost && list[1].isSelf && list[1].pingMs == 12 && list[1].nick == "Me");
        QVERIFY(list[2].id == 0 && list[2].nick.isEmpty() && list[2].pingMs == -1);
        QCOMPARE(strokes, (QList<QPair<QPointF, QString>>{{QPointF(3, 4), "Z"}}));
        QCOMPARE(clears, QStringList{"Z"});

        // Our own stroke and clear go up without "from".
        host.rx.clear();
        session.sendStroke(segment(1, 1));
        session.sendClear();
        QVERIFY(host.received(RawPeer::frame(RawPeer::json(strokeMessage(segment(1, 1)))) +
                              RawPeer::frame("{\"t\":\"clear\"}")));
        signalLog.clear();
        host.send({{"t", "kick"}});
        QTRY_COMPARE_WITH_TIMEOUT(
            signalLog,
            (QStringList{"role(0)", "users(0)", "ended", "kicked(You were kicked by the host.)"}),
            Wait);
    }

    void clientErrors_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("error");
        QTest::newRow("oversize") << QByteArray("\x03\x00\x00\x01", 4) << "Protocol error.";
        QTest::newRow("not json") << RawPeer::frame("{oops") << "Protocol error.";
    }

    void clientErrors()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, error);
        CoopSession session;
        QStringList signalLog;
        record(&session, &signalLog);
        RawHost host;
        QVERIFY(host.accept(session));
        host.socket->write(RawPeer::frame("{\"t\":\"welcome\",\"id\":3,\"ver\":2}") + bytes);
        QTRY_COMPARE_WITH_TIMEOUT(signalLog,
                                  (QStringList{"role(2)", "connected", "role(0)", "users(0)",
                                               "ended", "error(" + error + ")"}),
                                  Wait);
    }
};

QTEST_GUILESS_MAIN(TestCoopSession)
#include "tst_coop_session.moc"
