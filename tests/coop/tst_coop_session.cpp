#include "RawPeer.h"

#include "common/Log.h"
#include "coop/CoopProtocol.h"
#include "coop/CoopSession.h"
#include "coop/StrokeJson.h"

#include <QJsonArray>
#include <QPainter>
#include <QRandomGenerator>
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

QJsonObject strokeMessage(double x, double y)
{
    Stroke s;
    s.points = {QPointF(x, y), QPointF(x + 1, y + 1)};
    s.color = QColor::fromRgba(0xFF112233u);
    s.width = 4;
    return QJsonObject{{"t", "stroke"}, {"stroke", coop::strokeToJson(s)}};
}

QJsonArray usersJson(const RawPeer &peer)
{
    return peer.last("users").value("users").toArray();
}

// Records the session's signals as text, in the order they fire.
QStringList *record(CoopSession *session, QStringList *log)
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
    return log;
}

constexpr int Wait = 10000;

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
        QTest::newRow("plain") << "Ann" << "Ann";
        QTest::newRow("40 letters") << QString(40, 'a') << QString(32, 'a');
        QTest::newRow("blanks") << "   " << "Anon";
        QTest::newRow("tab newline") << "\t\n" << "Anon";
        QTest::newRow("empty") << "" << "Anon";
        QTest::newRow("controls dropped") << " A\tn\rn\n\x01 " << "Ann";
        QTest::newRow("trim after cut") << QString(31, 'b') + "  c" << QString(31, 'b');
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
        QVERIFY(session.host(" Host\t", 42069));
        QCOMPARE(signalLog, (QStringList{"role(1)", "users(1)", "hosting"}));
        QCOMPARE(session.role(), CoopSession::Role::Host);
        QCOMPARE(session.nickname(), QString("Host"));
        QCOMPARE(session.users().size(), 1);
        QVERIFY(session.users()[0].isHost && session.users()[0].isSelf);
        QCOMPARE(g_log.last(), QString("[PD-Coop] hosting on port 42069 as 'Host'"));

        RawPeer peer;
        QTRY_VERIFY_WITH_TIMEOUT(peer.connected(), Wait);
        peer.hello("  Annie\n", true);
        QTRY_COMPARE_WITH_TIMEOUT(peer.count("welcome"), 1, Wait);
        const QJsonObject welcome = peer.last("welcome");
        QCOMPARE(welcome.value("id").toInt(), 1);
        const QByteArray png = QByteArray::fromBase64(welcome.value("canvas").toString().toLatin1(),
                                                      QByteArray::AbortOnBase64DecodingErrors);
        QVERIFY(png.startsWith("\x89PNG"));
        QCOMPARE(QImage::fromData(png, "PNG").convertToFormat(QImage::Format_RGBA8888), canvas);

        QTRY_VERIFY_WITH_TIMEOUT(usersJson(peer).size() == 2, Wait);
        QCOMPARE(
            usersJson(peer),
            (QJsonArray{QJsonObject{{"id", 0}, {"nick", "Host"}, {"ping", 0}, {"host", true}},
                        QJsonObject{{"id", 1}, {"nick", "Annie"}, {"ping", -1}, {"host", false}}}));
        QCOMPARE(session.users().size(), 2);
        QCOMPARE(session.users()[1].nick, QString("Annie"));
        QCOMPARE(session.users()[1].pingMs, -1);
        QVERIFY(!session.users()[1].isSelf && !session.users()[1].isHost);
        QVERIFY(g_log
                    .filter(QRegularExpression(
                        "^\\[PD-Coop\\] peer connecting \\(id=1\\) from .*127\\.0\\.0\\.1$"))
                    .size() == 1);
        QVERIFY(g_log.contains("[PD-Coop] peer id=1 joined as 'Annie'"));

        // A second hello is ignored.
        const int usersBefore = peer.count("users");
        peer.hello("Other");
        peer.send(QJsonObject{{"t", "unknown-type"}});
        RawPeer probe;
        QTRY_VERIFY_WITH_TIMEOUT(peer.count("users") > usersBefore || probe.connected(), Wait);
        probe.hello("Probe");
        QTRY_COMPARE_WITH_TIMEOUT(usersJson(peer).size(), 3, Wait);
        QCOMPARE(peer.count("welcome"), 1);
        QCOMPARE(usersJson(peer).at(1).toObject().value("nick").toString(), QString("Annie"));
        QCOMPARE(usersJson(peer).at(2).toObject().value("id").toInt(), 2);

        // Hosting again while active is refused and leaves everything as it was.
        signalLog.clear();
        QVERIFY(!session.host("Again", 42069));
        QCOMPARE(session.lastError(), QString("A co-op session is already active."));
        QCOMPARE(session.nickname(), QString("Host"));
        QVERIFY(signalLog.isEmpty());
        QStringList joinLog;
        record(&session, &joinLog);
        session.join("127.0.0.1", "x", 42069);
        QCOMPARE(joinLog, QStringList{"error(A co-op session is already active.)"});
        QCOMPARE(session.role(), CoopSession::Role::Host);

        signalLog.clear();
        session.stop();
        QCOMPARE(signalLog, (QStringList{"role(0)", "users(0)", "ended"}));
        QCOMPARE(g_log.last(), QString("[PD-Coop] session stopped by local user"));
        QTRY_VERIFY_WITH_TIMEOUT(peer.closed && probe.closed, Wait);
        session.stop(); // idle: nothing
        QCOMPARE(signalLog.size(), 3);
    }

    void portTaken()
    {
        QTcpServer blocker;
        QVERIFY(blocker.listen(QHostAddress::Any, 42069));
        CoopSession session;
        QStringList signalLog;
        record(&session, &signalLog);
        QVERIFY(!session.host("Host", 42069));
        QVERIFY(session.lastError().startsWith("Could not listen on port 42069: "));
        QVERIFY(session.lastError().size() > int(strlen("Could not listen on port 42069: ")));
        QCOMPARE(session.role(), CoopSession::Role::None);
        QVERIFY(signalLog.isEmpty());
        QCOMPARE(g_log.last(), "[PD-Coop] host failed: " + session.lastError());
    }

    void relayAndFrom()
    {
        CoopSession session;
        QVERIFY(session.host("Hosty", 42069));
        QList<QPair<QPointF, QString>> hostGot;
        QStringList hostClears;
        connect(&session, &CoopSession::strokeReceived, this,
                [&](const Stroke &s, const QString &from) {
                    hostGot.append({s.points.first(), from});
                });
        connect(&session, &CoopSession::clearReceived, this,
                [&](const QString &from) { hostClears.append(from); });

        RawPeer a, b, c, silent;
        QTRY_VERIFY_WITH_TIMEOUT(
            a.connected() && b.connected() && c.connected() && silent.connected(), Wait);
        a.hello("A");
        b.hello("B");
        c.hello("C");
        QTRY_VERIFY_WITH_TIMEOUT(session.users().size() == 4, Wait);

        // Strokes before hello are ignored.
        silent.send(strokeMessage(99, 99));
        QJsonObject forged = strokeMessage(10, 20);
        forged.insert("from", "forged");
        a.send(forged);
        QTRY_VERIFY_WITH_TIMEOUT(
            b.count("stroke") == 1 && c.count("stroke") == 1 && silent.count("stroke") == 1, Wait);
        QJsonObject expected = forged;
        expected.insert("from", "A");
        QCOMPARE(b.last("stroke"), expected);
        QCOMPARE(c.last("stroke"), expected);
        QCOMPARE(silent.last("stroke"), expected);
        QCOMPARE(hostGot.size(), 1);
        QCOMPARE(hostGot[0].first, QPointF(10, 20));
        QCOMPARE(hostGot[0].second, QString("A"));

        // An unreadable stroke is dropped, the connection stays.
        b.send(QJsonObject{{"t", "stroke"}, {"stroke", QJsonObject{{"pts", QJsonArray{1, 2, 3}}}}});
        b.send(QJsonObject{{"t", "clear"}, {"from", "nobody"}, {"x", 1}});
        QTRY_VERIFY_WITH_TIMEOUT(a.count("clear") == 1 && c.count("clear") == 1, Wait);
        QCOMPARE(a.last("clear"), (QJsonObject{{"t", "clear"}, {"from", "B"}}));
        QCOMPARE(hostClears, QStringList{"B"});
        QCOMPARE(hostGot.size(), 1);
        QCOMPARE(a.count("stroke"), 0);

        // The host's own strokes and clears go to every peer.
        Stroke own;
        own.points = {QPointF(5, 6)};
        own.color = Qt::blue;
        session.sendStroke(own);
        session.sendClear();
        for (RawPeer *p : {&a, &b, &c, &silent})
            QTRY_VERIFY_WITH_TIMEOUT(
                p->count("clear") >= 1 && p->last("stroke").value("from") == "Hosty", Wait);
        QJsonObject ownExpected{
            {"t", "stroke"}, {"stroke", coop::strokeToJson(own)}, {"from", "Hosty"}};
        QCOMPARE(a.last("stroke"), ownExpected);
        QCOMPARE(silent.last("clear"), (QJsonObject{{"t", "clear"}, {"from", "Hosty"}}));
        QCOMPARE(a.count("stroke"), 1); // never its own
        QCOMPARE(b.count("stroke"), 2);
        QVERIFY(hostGot.size() == 1 && hostClears.size() == 1);

        // "bye" removes the peer; the silent one was never listed.
        b.send(QJsonObject{{"t", "bye"}});
        QTRY_VERIFY_WITH_TIMEOUT(b.closed, Wait);
        QTRY_COMPARE_WITH_TIMEOUT(usersJson(silent).size(), 3, Wait);
        QCOMPARE(usersJson(silent).at(1).toObject().value("nick").toString(), QString("A"));
        QCOMPARE(usersJson(silent).at(2).toObject().value("nick").toString(), QString("C"));
        session.stop();
    }

    void pingPongAndSilentPeer()
    {
        CoopSession session;
        QVERIFY(session.host("H", 42069));
        RawPeer peer, silent;
        peer.autoPong = false;
        QTRY_VERIFY_WITH_TIMEOUT(peer.connected() && silent.connected(), Wait);
        peer.hello("P");
        QTRY_VERIFY_WITH_TIMEOUT(peer.count("ping") >= 1, Wait);
        const QJsonValue ts = peer.last("ping").value("ts");
        QVERIFY(ts.isDouble());
        QVERIFY(qAbs(qint64(ts.toDouble()) - QDateTime::currentMSecsSinceEpoch()) < 60000);

        QSignalSpy users(&session, &CoopSession::usersChanged);
        peer.send(QJsonObject{{"t", "pong"}, {"ts", ts.toDouble() - 1}});
        peer.send(QJsonObject{{"t", "pong"}});
        peer.send(QJsonObject{{"t", "pong"}, {"ts", ts}});
        QTRY_COMPARE_WITH_TIMEOUT(users.size(), 1, Wait);
        QVERIFY(session.users()[1].pingMs >= 0);
        QTRY_VERIFY_WITH_TIMEOUT(usersJson(silent).size() == 2 &&
                                     usersJson(silent).at(1).toObject().value("ping").toInt() >= 0,
                                 Wait);
        // The same answer again is accepted again (it still matches); an
        // older one after a new ping is not.
        QTRY_VERIFY_WITH_TIMEOUT(peer.count("ping") >= 2, Wait);
        users.clear();
        peer.send(QJsonObject{{"t", "pong"}, {"ts", ts}});
        peer.send(QJsonObject{{"t", "pong"}, {"ts", peer.last("ping").value("ts")}});
        QTRY_COMPARE_WITH_TIMEOUT(users.size(), 1, Wait);
        QCOMPARE(silent.count("ping"), 0);
        QCOMPARE(silent.count("welcome"), 0);
        QCOMPARE(session.users().size(), 2);
        session.stop();
    }

    void kickAndIdsRestart()
    {
        CoopSession session;
        QVERIFY(session.host("H", 42069));
        RawPeer a, b;
        QTRY_VERIFY_WITH_TIMEOUT(a.connected() && b.connected(), Wait);
        a.hello("Alpha");
        QTRY_COMPARE_WITH_TIMEOUT(a.count("welcome"), 1, Wait);
        b.hello("Beta");
        QTRY_COMPARE_WITH_TIMEOUT(b.count("welcome"), 1, Wait);
        QCOMPARE(b.last("welcome").value("id").toInt(), 2);

        QSignalSpy users(&session, &CoopSession::usersChanged);
        session.kick(42);
        QCOMPARE(users.size(), 0);
        session.kick(1);
        QCOMPARE(users.size(), 1);
        QCOMPARE(g_log.last(), QString("[PD-Coop] kicking id=1 ('Alpha')"));
        QTRY_VERIFY_WITH_TIMEOUT(a.closed, Wait);
        QCOMPARE(a.last("kick"),
                 (QJsonObject{{"t", "kick"}, {"reason", "You were kicked by the host. Sorry!"}}));
        QCOMPARE(a.received.last().value("t").toString(), QString("kick"));
        QTRY_COMPARE_WITH_TIMEOUT(usersJson(b).size(), 2, Wait);
        QCOMPARE(usersJson(b).at(1).toObject().value("id").toInt(), 2);

        session.stop();
        QTRY_VERIFY_WITH_TIMEOUT(b.closed, Wait);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QVERIFY(session.host("H2", 42069));
        RawPeer again;
        QTRY_VERIFY_WITH_TIMEOUT(again.connected(), Wait);
        again.hello("Gamma");
        QTRY_COMPARE_WITH_TIMEOUT(again.count("welcome"), 1, Wait);
        QCOMPARE(again.last("welcome").value("id").toInt(), 1);
        session.stop();
    }

    void hostDropsViolators_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("oversize") << QByteArray("\x04\x00\x00\x01", 4);
        QTest::newRow("top bit") << QByteArray("\xff\xff\xff\xff", 4);
        QTest::newRow("not json") << RawPeer::frame("garbage");
        QTest::newRow("zero length") << QByteArray(4, '\0');
        QTest::newRow("array") << RawPeer::frame("[]");
    }

    void hostDropsViolators()
    {
        QFETCH(QByteArray, bytes);
        CoopSession session;
        QVERIFY(session.host("H", 42069));
        RawPeer good, bad;
        QTRY_VERIFY_WITH_TIMEOUT(good.connected() && bad.connected(), Wait);
        good.hello("Good");
        bad.hello("Bad");
        QTRY_COMPARE_WITH_TIMEOUT(session.users().size(), 3, Wait);
        const int receivedBefore = int(bad.received.size());
        bad.send(strokeMessage(1, 1)); // applied before the violation
        bad.sendRaw(bytes);
        QTRY_VERIFY_WITH_TIMEOUT(bad.closed, Wait);
        QTRY_COMPARE_WITH_TIMEOUT(session.users().size(), 2, Wait);
        QCOMPARE(good.count("stroke"), 1);
        // Nothing but the updated users list reached the violator.
        for (qsizetype i = receivedBefore; i < bad.received.size(); ++i)
            QCOMPARE(bad.received[i].value("t").toString(), QString("users"));
        good.send(QJsonObject{{"t", "clear"}});
        QTRY_COMPARE_WITH_TIMEOUT(session.users().size(), 2, Wait);
        QVERIFY(good.connected());
        session.stop();
    }

    void clientRefusedOnce()
    {
        CoopSession session;
        QStringList signalLog;
        record(&session, &signalLog);
        session.join("127.0.0.1", "Me", 42069);
        QCOMPARE(signalLog, QStringList{"role(2)"});
        QCOMPARE(g_log.last(), QString("[PD-Coop] joining 127.0.0.1:42069 as 'Me'"));
        QTRY_COMPARE_WITH_TIMEOUT(signalLog.size(), 4, Wait);
        QCOMPARE(signalLog.mid(0, 3), (QStringList{"role(2)", "role(0)", "users(0)"}));
        QVERIFY(signalLog[3].startsWith("error("));
        QVERIFY(!signalLog[3].contains("Could not connect to the host."));
        QVERIFY(g_log.last().startsWith("[PD-Coop] join error: "));
        QTest::qWait(300);
        QCOMPARE(signalLog.size(), 4);
        QCOMPARE(session.role(), CoopSession::Role::None);
    }

    // The client against a hand-written host.
    void clientAgainstRawHost()
    {
        QTcpServer server;
        QVERIFY(server.listen(QHostAddress::LocalHost, 42069));
        CoopSession session;
        QStringList signalLog;
        record(&session, &signalLog);
        QList<QPair<Stroke, QString>> strokes;
        QStringList clears;
        QImage canvasGot;
        connect(&session, &CoopSession::strokeReceived, this,
                [&](const Stroke &s, const QString &from) { strokes.append({s, from}); });
        connect(&session, &CoopSession::clearReceived, this,
                [&](const QString &f) { clears.append(f); });
        connect(&session, &CoopSession::canvasStateReceived, this,
                [&](const QImage &i) { canvasGot = i; });

        session.join("127.0.0.1", "\tMe ", 42069);
        QTRY_VERIFY_WITH_TIMEOUT(server.hasPendingConnections(), Wait);
        QTcpSocket *host = server.nextPendingConnection();
        QByteArray rx;
        QTRY_VERIFY_WITH_TIMEOUT((rx += host->readAll()).size() >= 4, Wait);
        QCOMPARE(rx, RawPeer::frame("{\"nick\":\"Me\",\"t\":\"hello\",\"ver\":1}"));

        QImage canvas(3, 2, QImage::Format_RGBA8888);
        canvas.fill(QColor(1, 2, 3, 4));
        QJsonObject users{
            {"t", "users"},
            {"users",
             QJsonArray{QJsonObject{{"id", 0}, {"nick", "H"}, {"ping", 0}, {"host", true}},
                        QJsonObject{{"id", 7}, {"nick", "Me"}, {"ping", 12}}, QJsonObject{}}}};
        Stroke s;
        s.points = {QPointF(3, 4)};
        QByteArray script =
            RawPeer::frame(RawPeer::json(
                QJsonObject{{"t", "welcome"}, {"id", 7}, {"canvas", coop::encodeCanvas(canvas)}})) +
            RawPeer::frame(RawPeer::json(users)) +
            RawPeer::frame(RawPeer::json(
                QJsonObject{{"t", "stroke"}, {"stroke", coop::strokeToJson(s)}, {"from", "Zed"}})) +
            RawPeer::frame(RawPeer::json(QJsonObject{{"t", "stroke"}, {"stroke", "bad"}})) +
            RawPeer::frame(RawPeer::json(QJsonObject{{"t", "clear"}, {"from", "Zed"}})) +
            RawPeer::frame(RawPeer::json(QJsonObject{{"t", "ping"}, {"ts", 1712345678901.0}}));
        for (char c : script) {
            host->write(&c, 1);
            host->flush();
            QCoreApplication::processEvents();
        }
        QTRY_VERIFY_WITH_TIMEOUT((rx += host->readAll()).contains("pong"), Wait);
        QVERIFY(rx.endsWith(RawPeer::frame("{\"t\":\"pong\",\"ts\":1712345678901}")));
        QCOMPARE(signalLog, (QStringList{"role(2)", "canvas", "connected", "users(3)"}));
        QCOMPARE(canvasGot.convertToFormat(QImage::Format_RGBA8888), canvas);
        QCOMPARE(session.ownId(), 7);
        QVERIFY(g_log.contains("[PD-Coop] welcomed by host (my id=7)"));
        const QList<CoopUser> list = session.users();
        QCOMPARE(list.size(), 3);
        QVERIFY(list[0].isHost && !list[0].isSelf);
        QVERIFY(!list[1].isHost && list[1].isSelf && list[1].pingMs == 12 && list[1].nick == "Me");
        QVERIFY(list[2].id == 0 && list[2].nick.isEmpty() && list[2].pingMs == -1 &&
                !list[2].isHost);
        QCOMPARE(strokes.size(), 1);
        QCOMPARE(strokes[0].first.points, s.points);
        QCOMPARE(strokes[0].second, QString("Zed"));
        QCOMPARE(clears, QStringList{"Zed"});

        // Our own stroke and clear go up without "from".
        Stroke mine;
        mine.points = {QPointF(1, 1), QPointF(2, 2)};
        session.sendStroke(mine);
        session.sendClear();
        const QByteArray expectUp =
            RawPeer::frame(
                RawPeer::json(QJsonObject{{"t", "stroke"}, {"stroke", coop::strokeToJson(mine)}})) +
            RawPeer::frame("{\"t\":\"clear\"}");
        rx.clear();
        QTRY_COMPARE_WITH_TIMEOUT((rx += host->readAll()), expectUp, Wait);

        // Kick without a reason.
        signalLog.clear();
        host->write(RawPeer::frame("{\"t\":\"kick\"}"));
        QTRY_COMPARE_WITH_TIMEOUT(signalLog.size(), 4, Wait);
        QCOMPARE(signalLog, (QStringList{"role(0)", "users(0)", "ended",
                                         "kicked(You were kicked by the host.)"}));
        QVERIFY(g_log.contains("[PD-Coop] kicked: You were kicked by the host."));
        QCOMPARE(session.ownId(), 0);
        delete host;
    }

    void clientProtocolErrors_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("oversize") << QByteArray("\x04\x00\x00\x01", 4);
        QTest::newRow("top bit") << QByteArray("\x80\x00\x00\x00", 4);
        QTest::newRow("not json") << RawPeer::frame("{oops");
        QTest::newRow("zero length") << QByteArray(4, '\0');
    }

    void clientProtocolErrors()
    {
        QFETCH(QByteArray, bytes);
        QTcpServer server;
        QVERIFY(server.listen(QHostAddress::LocalHost, 42069));
        CoopSession session;
        QStringList signalLog;
        record(&session, &signalLog);
        session.join("localhost", "Me", 42069);
        QTRY_VERIFY_WITH_TIMEOUT(server.hasPendingConnections(), Wait);
        std::unique_ptr<QTcpSocket> host(server.nextPendingConnection());
        host->write(RawPeer::frame("{\"t\":\"welcome\",\"id\":3}") + bytes);
        QTRY_COMPARE_WITH_TIMEOUT(signalLog.size(), 6, Wait);
        QCOMPARE(signalLog, (QStringList{"role(2)", "connected", "role(0)", "users(0)", "ended",
                                         "error(Protocol error.)"}));
        QTest::qWait(200);
        QCOMPARE(signalLog.size(), 6);
    }

    // A real client against a real host: join, users, strokes both ways, kick,
    // losing the host.
    void sessionToSession()
    {
        CoopSession host, client;
        QImage canvas(8, 8, QImage::Format_RGBA8888);
        canvas.fill(Qt::green);
        host.setCanvasProvider([canvas] { return canvas; });
        QVERIFY(host.host("Boss", 42069));
        QStringList clientLog;
        record(&client, &clientLog);
        QList<QPair<QPointF, QString>> atClient, atHost;
        connect(&client, &CoopSession::strokeReceived, this,
                [&](const Stroke &s, const QString &f) { atClient.append({s.points.first(), f}); });
        connect(&host, &CoopSession::strokeReceived, this,
                [&](const Stroke &s, const QString &f) { atHost.append({s.points.first(), f}); });

        client.join("127.0.0.1", "Kid", 42069);
        QTRY_VERIFY_WITH_TIMEOUT(client.users().size() == 2, Wait);
        QCOMPARE(clientLog.mid(0, 3), (QStringList{"role(2)", "canvas", "connected"}));
        QCOMPARE(client.ownId(), 1);
        QVERIFY(client.users()[1].isSelf && client.users()[1].nick == "Kid");
        QVERIFY(client.users()[0].isHost && client.users()[0].nick == "Boss");

        Stroke s;
        s.points = {QPointF(4, 5)};
        client.sendStroke(s);
        s.points = {QPointF(6, 7)};
        host.sendStroke(s);
        QTRY_VERIFY_WITH_TIMEOUT(atHost.size() == 1 && atClient.size() == 1, Wait);
        QCOMPARE(atHost[0], qMakePair(QPointF(4, 5), QString("Kid")));
        QCOMPARE(atClient[0], qMakePair(QPointF(6, 7), QString("Boss")));

        // Pings are answered: the host learns a latency.
        QTRY_VERIFY_WITH_TIMEOUT(host.users().size() == 2 && host.users()[1].pingMs >= 0, Wait);

        clientLog.clear();
        host.kick(1);
        QTRY_COMPARE_WITH_TIMEOUT(clientLog.size(), 4, Wait);
        QCOMPARE(clientLog, (QStringList{"role(0)", "users(0)", "ended",
                                         "kicked(You were kicked by the host. Sorry!)"}));

        client.join("127.0.0.1", "Kid", 42069);
        QTRY_COMPARE_WITH_TIMEOUT(client.ownId(), 2, Wait);
        clientLog.clear();
        host.stop();
        QTRY_COMPARE_WITH_TIMEOUT(clientLog.size(), 4, Wait);
        QCOMPARE(clientLog, (QStringList{"role(0)", "users(0)", "ended",
                                         "error(Lost connection to the host.)"}));
        QVERIFY(g_log.contains("[PD-Coop] disconnected from host"));
    }

    // Garbage, mutated frames, stalls and disconnects mid-frame cost only the
    // abuser; well-behaved peers keep every stroke.
    void liveFuzz()
    {
        CoopSession session;
        QVERIFY(session.host("H", 42069));
        RawPeer a, b;
        QTRY_VERIFY_WITH_TIMEOUT(a.connected() && b.connected(), Wait);
        a.hello("A");
        b.hello("B");
        QTRY_COMPARE_WITH_TIMEOUT(session.users().size(), 3, Wait);

        RawPeer staller;
        QTRY_VERIFY_WITH_TIMEOUT(staller.connected(), Wait);
        staller.hello("Stall");
        staller.sendRaw(QByteArray("\x03\x00\x00\x00", 4) + "{\"t\":\"stroke\"");

        QRandomGenerator rng(77);
        const QByteArray seed = RawPeer::frame(RawPeer::json(strokeMessage(3, 4)));
        const QByteArray hello =
            RawPeer::frame(RawPeer::json(QJsonObject{{"t", "hello"}, {"nick", "F"}}));
        std::vector<std::unique_ptr<RawPeer>> fuzzers;
        int sent = 0;
        for (int round = 0; round < 60; ++round) {
            auto f = std::make_unique<RawPeer>();
            QByteArray bytes = rng.bounded(2) ? hello : QByteArray();
            for (int n = rng.bounded(1, 30); n > 0; --n) {
                QByteArray piece = seed;
                for (int m = rng.bounded(4); m > 0; --m)
                    piece[rng.bounded(piece.size())] = char(rng.bounded(256));
                if (rng.bounded(5) == 0)
                    for (char &c : piece)
                        c = char(rng.bounded(256));
                bytes += piece;
            }
            if (rng.bounded(3) == 0)
                bytes.truncate(rng.bounded(bytes.size()));
            QTRY_VERIFY_WITH_TIMEOUT(f->connected(), Wait);
            f->sendRaw(bytes);
            if (rng.bounded(2))
                f->socket.abort(); // gone at an arbitrary byte
            fuzzers.push_back(std::move(f));
            // Meanwhile the good peers keep drawing.
            a.send(strokeMessage(1000 + sent, 0));
            ++sent;
            QCoreApplication::processEvents();
        }
        const auto countFromA = [&b] {
            int n = 0;
            for (const QJsonObject &o : b.ofType("stroke"))
                n += o.value("from") == "A";
            return n;
        };
        QTRY_COMPARE_WITH_TIMEOUT(countFromA(), sent, Wait);
        int lastX = -1, fromA = 0;
        for (const QJsonObject &o : b.ofType("stroke")) {
            if (o.value("from") != "A")
                continue;
            const int x = o.value("stroke").toObject().value("pts").toArray().at(0).toInt();
            QVERIFY(x > lastX);
            lastX = x;
            ++fromA;
        }
        QCOMPARE(fromA, sent);
        QVERIFY(!b.badInput && !a.badInput);

        // The host still serves a newcomer, and the staller is still listed.
        RawPeer late;
        QTRY_VERIFY_WITH_TIMEOUT(late.connected(), Wait);
        late.hello("Late");
        QTRY_COMPARE_WITH_TIMEOUT(late.count("welcome"), 1, Wait);
        QVERIFY(a.connected() && b.connected());
        b.send(strokeMessage(7, 7));
        QTRY_VERIFY_WITH_TIMEOUT(late.count("stroke") == 1 && a.count("stroke") >= 1, Wait);
        bool stallerListed = false;
        for (const CoopUser &u : session.users())
            stallerListed |= u.nick == "Stall";
        QVERIFY(stallerListed);
        session.stop();
    }

    void loadSixteenClients()
    {
        CoopSession session;
        QVERIFY(session.host("H", 42069));
        constexpr int Clients = 16;
        constexpr int Segments = 500;
        std::vector<std::unique_ptr<RawPeer>> peers;
        for (int i = 0; i < Clients; ++i)
            peers.push_back(std::make_unique<RawPeer>());
        for (int i = 0; i < Clients; ++i) {
            QTRY_VERIFY_WITH_TIMEOUT(peers[i]->connected(), Wait);
            peers[i]->hello(QStringLiteral("c%1").arg(i));
        }
        QTRY_COMPARE_WITH_TIMEOUT(session.users().size(), Clients + 1, Wait);

        // Paced over a little more than one ping interval so pings interleave.
        int hostStrokes = 0;
        connect(&session, &CoopSession::strokeReceived, this, [&] { ++hostStrokes; });
        QElapsedTimer clock;
        clock.start();
        for (int batch = 0; batch < 20; ++batch) {
            for (int i = 0; i < Clients; ++i)
                for (int k = 0; k < Segments / 20; ++k)
                    peers[i]->send(strokeMessage(i, batch * (Segments / 20) + k));
            QTest::qWait(120);
        }
        QTRY_COMPARE_WITH_TIMEOUT(hostStrokes, Clients * Segments, 30000);
        for (int i = 0; i < Clients; ++i)
            QTRY_COMPARE_WITH_TIMEOUT(peers[i]->count("stroke"), (Clients - 1) * Segments, 30000);

        for (int i = 0; i < Clients; ++i) {
            std::vector<int> next(Clients, 0);
            for (const QJsonObject &o : peers[i]->ofType("stroke")) {
                const QJsonArray pts = o.value("stroke").toObject().value("pts").toArray();
                const int sender = pts.at(0).toInt();
                QVERIFY(sender != i);
                QCOMPARE(o.value("from").toString(), QStringLiteral("c%1").arg(sender));
                QCOMPARE(pts.at(1).toInt(), next[sender]++);
            }
            for (int s = 0; s < Clients; ++s)
                QCOMPARE(next[s], s == i ? 0 : Segments);
            QVERIFY(peers[i]->count("ping") >= 1);
            QVERIFY(!peers[i]->badInput);
        }
        session.stop();
    }
};

QTEST_GUILESS_MAIN(TestCoopSession)
#include "tst_coop_session.moc"
