#include "coop/CoopSession.h"

#include <QProcess>
#include <QSignalSpy>
#include <QtTest>

#ifndef PD_COOP_HOST_HELPER
#error "PD_COOP_HOST_HELPER must name the helper executable"
#endif

// CoopSession as a client of a host running in a separate process.
class TestCoopProcess : public QObject {
    Q_OBJECT

    static bool readUntil(QProcess &process, QByteArray *seen, const QByteArray &needle)
    {
        *seen += process.readAllStandardOutput();
        return seen->contains(needle);
    }

private slots:
    void joinDrawKickAndLoseHost()
    {
        QProcess host;
        host.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        host.start(QStringLiteral(PD_COOP_HOST_HELPER), {});
        QVERIFY(host.waitForStarted(10000));
        QByteArray seen;
        QTRY_VERIFY_WITH_TIMEOUT(readUntil(host, &seen, "hosting\n"), 10000);

        CoopSession client;
        QSignalSpy connected(&client, &CoopSession::connectedToHost);
        QSignalSpy canvas(&client, &CoopSession::canvasStateReceived);
        QSignalSpy strokes(&client, &CoopSession::strokeReceived);
        QSignalSpy kicked(&client, &CoopSession::kicked);
        QSignalSpy errors(&client, &CoopSession::connectionError);
        client.join(QStringLiteral("::1"), QStringLiteral("Kid"), 42069);
        QTRY_COMPARE_WITH_TIMEOUT(connected.size(), 1, 10000);
        QCOMPARE(canvas.size(), 1);
        const QImage picture = canvas[0][0].value<QImage>();
        QCOMPARE(picture.size(), QSize(16, 9));
        QCOMPARE(picture.pixelColor(15, 8), QColor(0, 0, 255));
        QCOMPARE(client.ownId(), 1);
        QTRY_VERIFY_WITH_TIMEOUT(readUntil(host, &seen, "joined 1\n"), 10000);
        QTRY_COMPARE_WITH_TIMEOUT(client.users().size(), 2, 10000);
        QCOMPARE(client.users()[0].nick, QString("Remote"));

        Stroke s;
        s.points = {QPointF(12, 34)};
        client.sendStroke(s);
        QTRY_VERIFY_WITH_TIMEOUT(readUntil(host, &seen, "stroke 12 34 from Kid\n"), 10000);
        host.write("stroke 56 78\n");
        QTRY_COMPARE_WITH_TIMEOUT(strokes.size(), 1, 10000);
        QCOMPARE(strokes[0][0].value<Stroke>().points, (QVector<QPointF>{QPointF(56, 78)}));
        QCOMPARE(strokes[0][1].toString(), QString("Remote"));

        host.write("kick 1\n");
        QTRY_COMPARE_WITH_TIMEOUT(kicked.size(), 1, 10000);
        QCOMPARE(kicked[0][0].toString(), QString("You were kicked by the host. Sorry!"));
        QCOMPARE(client.role(), CoopSession::Role::None);
        QCOMPARE(errors.size(), 0);

        // Back in, then the host process goes away.
        client.join(QStringLiteral("127.0.0.1"), QStringLiteral("Kid"), 42069);
        QTRY_COMPARE_WITH_TIMEOUT(connected.size(), 2, 10000);
        QCOMPARE(client.ownId(), 2);
        host.kill();
        QVERIFY(host.waitForFinished(10000));
        QTRY_COMPARE_WITH_TIMEOUT(errors.size(), 1, 10000);
        QCOMPARE(errors[0][0].toString(), QString("Lost connection to the host."));
        QCOMPARE(client.role(), CoopSession::Role::None);
    }
};

QTEST_GUILESS_MAIN(TestCoopProcess)
#include "tst_coop_process.moc"
