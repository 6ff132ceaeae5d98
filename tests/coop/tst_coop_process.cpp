#include "TestImages.h"

#include "coop/CoopCanvas.h"
#include "coop/CoopSession.h"
#include "coop/StrokeJson.h"

#include <QJsonDocument>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#ifndef PD_COOP_HOST_HELPER
#error "PD_COOP_HOST_HELPER must name the helper executable"
#endif

namespace {

constexpr int Wait = 10000;

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

// The host helper in its own process, and what it has said so far.
struct HostProcess {
    QProcess process;
    QByteArray seen;
    quint16 port = 0;

    bool start(const QString &password = QString())
    {
        process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process.start(QStringLiteral(PD_COOP_HOST_HELPER), {password});
        if (!process.waitForStarted(Wait) || !said("hosting "))
            return false;
        port = quint16(seen.mid(seen.indexOf("hosting ") + 8).split('\n').value(0).toUInt());
        return port != 0;
    }
    bool said(const QByteArray &needle)
    {
        return QTest::qWaitFor(
            [&] { return (seen += process.readAllStandardOutput()).contains(needle); }, Wait);
    }
    QImage save(const QString &path)
    {
        process.write("save " + path.toUtf8() + "\n");
        return said("saved " + path.toUtf8() + "\n")
                   ? QImage(path).convertToFormat(QImage::Format_RGBA8888)
                   : QImage();
    }
};

} // namespace

// CoopSession and CoopCanvas as a client of a host running in another process:
// the password, the host's picture in "welcome", strokes both ways painted
// alike in both processes, and the host going away.
class TestCoopProcess : public QObject {
    Q_OBJECT

private slots:
    void sharedPictureEndsIdenticalInBothProcesses()
    {
        QTemporaryDir dir;
        HostProcess host;
        QVERIFY(host.start(QStringLiteral("pa55word")));
        host.process.write(
            strokeLine(makeStroke({{100, 100}, {400, 180}, {700, 120}}, QColor(220, 30, 30), 24)));
        host.process.write(strokeLine(
            makeShape(ShapeEllipse, 0, {300, 300}, {620, 520}, QColor(30, 90, 220, 170))));
        QVERIFY(host.said("drawn 2\n"));
        const QImage hostBefore = host.save(dir.filePath(QStringLiteral("before.png")));
        QVERIFY(!hostBefore.isNull());

        CoopSession &session = CoopSession::instance();
        CoopCanvas &canvas = CoopCanvas::instance();
        QSignalSpy connected(&session, &CoopSession::connectedToHost);
        QSignalSpy remote(&session, &CoopSession::strokeReceived);
        QSignalSpy errors(&session, &CoopSession::connectionError);
        session.join(QStringLiteral("::1"), QStringLiteral("Guest"), host.port,
                     QStringLiteral("pa55word"));
        QTRY_COMPARE_WITH_TIMEOUT(connected.size(), 1, Wait);
        QTRY_COMPARE_WITH_TIMEOUT(canvas.image(), hostBefore, Wait);
        QTRY_COMPARE_WITH_TIMEOUT(session.users().size(), 2, Wait);

        // Both draw, one stroke at a time so every overlap blends in one order.
        Stroke fill = makeStroke({{1500, 900}}, QColor(255, 128, 0, 200), 1);
        fill.fill = true;
        Stroke eraser = makeStroke({{90, 130}, {720, 150}}, QColor(0, 0, 0), 12);
        eraser.eraser = true;
        const QVector<Stroke> clientStrokes = {
            makeShape(ShapeStar, 1, {800, 200}, {1100, 480}, QColor(120, 0, 160)), fill, eraser};
        const QVector<Stroke> hostStrokes = {
            makeShape(ShapeArrow, 0, {1200, 100}, {1600, 300}, QColor(0, 200, 200)),
            makeShape(ShapeHeart, 1, {1300, 600}, {1500, 800}, QColor(200, 0, 90)),
            makeStroke({{10, 1000}, {1900, 1010}}, QColor(0, 0, 0, 90), 60)};
        for (int i = 0; i < clientStrokes.size(); ++i) {
            canvas.addLocalStroke(clientStrokes[i], CoopCanvas::DefaultFillTolerance);
            QVERIFY(host.said(QStringLiteral("received %1 from Guest").arg(i + 1).toUtf8()));
            host.process.write(strokeLine(hostStrokes[i]));
            QTRY_COMPARE_WITH_TIMEOUT(remote.size(), i + 1, Wait);
            QCOMPARE(remote.last()[1].toString(), QString("Host"));
        }
        const QImage hostAfter = host.save(dir.filePath(QStringLiteral("after.png")));
        QVERIFY(hostAfter != hostBefore);
        QTRY_COMPARE_WITH_TIMEOUT(canvas.image(), hostAfter, Wait);
        QDir().mkpath(QStringLiteral(PD_BINARY_DIR "/screenshots"));
        hostAfter.save(QStringLiteral(PD_BINARY_DIR "/screenshots/coop_shared_picture.png"));

        // The host process goes away: the session ends and the picture is wiped.
        host.process.kill();
        QVERIFY(host.process.waitForFinished(Wait));
        QTRY_COMPARE_WITH_TIMEOUT(errors.size(), 1, Wait);
        QCOMPARE(errors[0][0].toString(), QString("Lost connection to the host."));
        QCOMPARE(session.role(), CoopSession::Role::None);
        QTRY_COMPARE_WITH_TIMEOUT(canvas.image(), solid(1920, 1080, Qt::transparent), Wait);
    }
};

QTEST_GUILESS_MAIN(TestCoopProcess)
#include "tst_coop_process.moc"
