#include "common/Log.h"
#include "coop/CoopCanvas.h"
#include "coop/CoopSession.h"
#include "coop/StrokeJson.h"

#include <QJsonDocument>
#include <QTemporaryDir>

#include <QProcess>
#include <QSignalSpy>
#include <QtTest>

#if !defined(PD_COOP_HOST_HELPER) || !defined(PD_COOP_CANVAS_PEER)
#error "PD_COOP_HOST_HELPER and PD_COOP_CANVAS_PEER must name the helper executables"
#endif

namespace {

QStringList g_log;

void captureLog(const char *line)
{
    g_log.append(QString::fromUtf8(line));
}

Stroke makeStroke(QVector<QPointF> points, QColor color, float width)
{
    Stroke stroke;
    stroke.points = std::move(points);
    stroke.color = color;
    stroke.width = width;
    return stroke;
}

Stroke makeShape(int type, int mode, QPointF from, QPointF to, QColor color)
{
    Stroke stroke = makeStroke({from, to}, color, 9.0f);
    stroke.shape = true;
    stroke.shapeType = type;
    stroke.shapeMode = mode;
    return stroke;
}

QByteArray strokeLine(const Stroke &stroke)
{
    return "stroke " + QJsonDocument(coop::strokeToJson(stroke)).toJson(QJsonDocument::Compact) +
           "\n";
}

int opaquePixels(const QImage &image)
{
    int count = 0;
    for (int y = 0; y < image.height(); ++y) {
        const uchar *row = image.constScanLine(y);
        for (int x = 0; x < image.width(); ++x)
            count += row[4 * x + 3] != 0;
    }
    return count;
}

} // namespace

// CoopSession as a client of a host running in a separate process.
class TestCoopProcess : public QObject {
    Q_OBJECT

    static bool readUntil(QProcess &process, QByteArray *seen, const QByteArray &needle)
    {
        *seen += process.readAllStandardOutput();
        return seen->contains(needle);
    }

private slots:
    void sharedPictureEndsIdenticalInBothProcesses();

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

void TestCoopProcess::sharedPictureEndsIdenticalInBothProcesses()
{
    setLogSink(captureLog);
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    QProcess host;
    host.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    host.start(QStringLiteral(PD_COOP_CANVAS_PEER), {});
    QVERIFY(host.waitForStarted(10000));
    QByteArray seen;
    QTRY_VERIFY_WITH_TIMEOUT(readUntil(host, &seen, "hosting\n"), 10000);

    // The host draws before anyone joins.
    host.write(
        strokeLine(makeStroke({{100, 100}, {400, 180}, {700, 120}}, QColor(220, 30, 30), 24)));
    host.write(
        strokeLine(makeShape(ShapeEllipse, 0, {300, 300}, {620, 520}, QColor(30, 90, 220, 170))));
    QTRY_VERIFY_WITH_TIMEOUT(readUntil(host, &seen, "drawn 2\n"), 10000);
    const QString before = dir.filePath(QStringLiteral("before.png"));
    host.write("save " + before.toUtf8() + "\n");
    QTRY_VERIFY_WITH_TIMEOUT(readUntil(host, &seen, "saved " + before.toUtf8() + "\n"), 10000);
    const QImage hostBefore = QImage(before).convertToFormat(QImage::Format_RGBA8888);
    QVERIFY(opaquePixels(hostBefore) > 10000);

    // The client joins and adopts the host's picture from "welcome".
    CoopSession &session = CoopSession::instance();
    CoopCanvas &canvas = CoopCanvas::instance();
    QSignalSpy connected(&session, &CoopSession::connectedToHost);
    QSignalSpy remote(&session, &CoopSession::strokeReceived);
    g_log.clear();
    session.join(QStringLiteral("127.0.0.1"), QStringLiteral("Guest"), 42069);
    QTRY_COMPARE_WITH_TIMEOUT(connected.size(), 1, 10000);
    QVERIFY(g_log.contains(QStringLiteral("[PD-Coop] adopted host canvas state (1920x1080)")));
    QCOMPARE(canvas.image(), hostBefore);
    QTRY_VERIFY_WITH_TIMEOUT(readUntil(host, &seen, "joined 1\n"), 10000);

    // Both draw, one stroke at a time so every overlap blends in one order.
    const QVector<Stroke> clientStrokes = {
        makeStroke({{150, 90}, {380, 400}, {640, 260}, {900, 600}}, QColor(20, 160, 60, 140), 31),
        makeStroke({{1000, 700}}, QColor(250, 200, 0), 40),
        makeShape(ShapeStar, 1, {800, 200}, {1100, 480}, QColor(120, 0, 160)),
        [] {
            Stroke fill = makeStroke({{1500, 900}}, QColor(255, 128, 0, 200), 1);
            fill.fill = true;
            return fill;
        }(),
        [] {
            Stroke eraser = makeStroke({{90, 130}, {720, 150}}, QColor(0, 0, 0), 12);
            eraser.eraser = true;
            return eraser;
        }(),
    };
    const QVector<Stroke> hostStrokes = {
        makeShape(ShapeArrow, 0, {1200, 100}, {1600, 300}, QColor(0, 200, 200)),
        [] {
            Stroke erase = makeShape(ShapeRectangle, 0, {350, 350}, {450, 450}, QColor(0, 0, 0));
            erase.shapeErase = true;
            return erase;
        }(),
        makeShape(ShapeHeart, 1, {1300, 600}, {1500, 800}, QColor(200, 0, 90)),
        makeStroke({{10, 1000}, {1900, 1010}}, QColor(0, 0, 0, 90), 60),
        makeStroke({{960, 540}}, QColor(40, 40, 40), 70),
    };
    for (int i = 0; i < clientStrokes.size(); ++i) {
        canvas.addLocalStroke(clientStrokes[i], CoopCanvas::DefaultFillTolerance);
        QTRY_VERIFY_WITH_TIMEOUT(
            readUntil(host, &seen, QStringLiteral("received %1\n").arg(i + 1).toUtf8()), 10000);
        host.write(strokeLine(hostStrokes[i]));
        QTRY_COMPARE_WITH_TIMEOUT(remote.size(), i + 1, 10000);
        QCOMPARE(remote.last()[1].toString(), QString("Host"));
    }

    const QString after = dir.filePath(QStringLiteral("after.png"));
    host.write("save " + after.toUtf8() + "\n");
    QTRY_VERIFY_WITH_TIMEOUT(readUntil(host, &seen, "saved " + after.toUtf8() + "\n"), 10000);
    const QImage hostAfter = QImage(after).convertToFormat(QImage::Format_RGBA8888);
    const QImage clientAfter = canvas.image();
    QVERIFY(hostAfter != hostBefore);
    QCOMPARE(clientAfter.size(), hostAfter.size());
    QCOMPARE(clientAfter, hostAfter);
    QVERIFY(opaquePixels(clientAfter) > opaquePixels(hostBefore));
    QDir().mkpath(QStringLiteral(PD_BINARY_DIR "/screenshots"));
    clientAfter.save(QStringLiteral(PD_BINARY_DIR "/screenshots/coop_shared_picture.png"));

    // Leaving wipes the client's copy; the host keeps the picture.
    session.stop();
    QCOMPARE(opaquePixels(canvas.image()), 0);
    host.closeWriteChannel();
    QVERIFY(host.waitForFinished(10000));
    setLogSink(nullptr);
}

QTEST_GUILESS_MAIN(TestCoopProcess)
#include "tst_coop_process.moc"
