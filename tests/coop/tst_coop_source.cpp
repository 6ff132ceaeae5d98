// Qt first: libobs's SIMD aliases break the compiler's intrinsics headers
// when they come before them.
#include <QDeadlineTimer>
#include <QImage>
#include <QThread>
#include <QtTest>

#include "ObsHost.h"
#include "ReferenceWarp.h"
#include "TestImages.h"

#include "CoopSource.h"
#include "common/Wiggle.h"
#include "coop/CoopCanvas.h"
#include "coop/CoopSession.h"
#include "engine/Stroke.h"

#include <obs-module.h>

namespace {

QImage transparent(int w, int h)
{
    return solid(w, h, Qt::transparent);
}

Stroke redBrush()
{
    Stroke stroke;
    stroke.points = {{100, 100}, {900, 500}, {1500, 200}};
    stroke.color = QColor(230, 10, 20);
    stroke.width = 40.0f;
    return stroke;
}

struct CoopRef {
    OBSSourceAutoRelease source;
    CoopSourceData *record() const
    {
        return static_cast<CoopSourceData *>(obs_obj_get_data(source));
    }
    QImage render() const { return ObsHost::renderSource(source, 1920, 1080); }
    // The type's own tick, as the graphics thread calls it each frame.
    void tick(float seconds) const { coopSourceInfo().video_tick(record(), seconds); }
};

// Waits until the shared picture shows the change of that version.
bool settled(uint64_t version)
{
    return QTest::qWaitFor([version] { return CoopCanvas::instance().version() >= version; },
                           10000);
}

CoopRef createCoop(const char *name)
{
    CoopRef ref;
    ref.source = obs_source_create("pennoria_coop_canvas", name, nullptr, nullptr);
    return ref;
}

} // namespace

class TestCoopSource : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();

    void freshSourceTakesCanvasSize();
    void remoteStrokeShowsOnNextRender();
    void sessionEndLeavesEverySourceTransparent();
    void wiggleShowsRemoteStrokeAtNextTick();
    void wiggleOffShowsPlainPictureAgain();
    void performanceLineIsTagged();
    void destroyingLastSourceStopsSession();
    void recreatedSourceKeepsSession();
    void destroyingOneOfTwoKeepsSession();

private:
    void waitUntilNoCoopSource();

    ObsHost m_host;
};

void TestCoopSource::initTestCase()
{
    QVERIFY2(m_host.start(), qPrintable(m_host.error()));
}

void TestCoopSource::cleanupTestCase()
{
    CoopSession::instance().stop();
    m_host.stop();
}

void TestCoopSource::waitUntilNoCoopSource()
{
    obs_wait_for_destroy_queue();
    QTRY_COMPARE_WITH_TIMEOUT(liveCoopSourceCount(), 0, 10000);
    // Runs the session jobs queued by those destructions.
    QCoreApplication::processEvents();
}

void TestCoopSource::init()
{
    waitUntilNoCoopSource();
    CoopSession::instance().stop();
    CoopCanvas &canvas = CoopCanvas::instance();
    canvas.setJitterEnabled(false);
    canvas.setJitterAmountPx(2.5f);
    canvas.setJitterInterval(1.0f / 6.0f);
    QVERIFY(settled(canvas.onSessionEnded()));
}

void TestCoopSource::freshSourceTakesCanvasSize()
{
    CoopRef coop = createCoop("fresh");
    QVERIFY(coop.record());
    QCOMPARE(CoopCanvas::instance().width(), 1920);
    QCOMPARE(CoopCanvas::instance().height(), 1080);
    QCOMPARE(obs_source_get_width(coop.source), 1920u);
    QCOMPARE(obs_source_get_height(coop.source), 1080u);
    QCOMPARE(coop.record()->lastUploadedVersion, CoopCanvas::instance().version());
    QCOMPARE(liveCoopSourceCount(), 1);
    QCOMPARE(coop.render(), transparent(1920, 1080));
}

void TestCoopSource::remoteStrokeShowsOnNextRender()
{
    CoopRef coop = createCoop("stroke");
    QCOMPARE(coop.render(), transparent(1920, 1080));

    QVERIFY(settled(CoopCanvas::instance().onRemoteStroke(redBrush(), QStringLiteral("friend"))));
    const QImage picture = CoopCanvas::instance().image();
    QVERIFY(picture != transparent(1920, 1080));
    QCOMPARE(coop.render(), picture);

    QVERIFY(settled(CoopCanvas::instance().onCanvasStateReceived(pattern(1920, 1080))));
    QCOMPARE(coop.render(), pattern(1920, 1080));
    // An unchanged picture is not uploaded again.
    const int uploads = coop.record()->perf.uploads;
    QCOMPARE(coop.render(), pattern(1920, 1080));
    QCOMPARE(coop.record()->perf.uploads, uploads);
}

void TestCoopSource::sessionEndLeavesEverySourceTransparent()
{
    CoopRef first = createCoop("first");
    CoopRef second = createCoop("second");
    QVERIFY(settled(CoopCanvas::instance().onCanvasStateReceived(pattern(1920, 1080))));
    QCOMPARE(first.render(), pattern(1920, 1080));
    QCOMPARE(second.render(), pattern(1920, 1080));

    QVERIFY(settled(CoopCanvas::instance().onSessionEnded()));
    QCOMPARE(first.render(), transparent(1920, 1080));
    QCOMPARE(second.render(), transparent(1920, 1080));

    // A source created after the end starts from the wiped picture too.
    CoopRef third = createCoop("third");
    QCOMPARE(third.render(), transparent(1920, 1080));
}

void TestCoopSource::wiggleShowsRemoteStrokeAtNextTick()
{
    CoopCanvas &canvas = CoopCanvas::instance();
    QVERIFY(settled(canvas.onCanvasStateReceived(pattern(1920, 1080))));
    CoopRef coop = createCoop("wiggle");
    QCOMPARE(coop.render(), pattern(1920, 1080));

    // No wiggle frame falls due during the test; only new pictures warp.
    canvas.setJitterAmountPx(2.0f);
    canvas.setJitterInterval(100000.0f);
    canvas.setJitterEnabled(true);
    coop.tick(0.001f);
    QVERIFY(!coop.record()->wiggle.grid().isEmpty());
    const QImage firstFrame = coop.render();
    QCOMPARE(warpMismatch(firstFrame, pattern(1920, 1080), coop.record()->wiggle.grid()), "");
    QVERIFY(firstFrame != pattern(1920, 1080));

    QVERIFY(settled(canvas.onRemoteStroke(redBrush(), QStringLiteral("friend"))));
    coop.tick(0.001f);
    const QImage picture = canvas.image();
    const QImage shown = coop.render();
    QCOMPARE(warpMismatch(shown, picture, coop.record()->wiggle.grid()), "");
    QVERIFY(shown != picture);
    QVERIFY(shown != firstFrame);
    QCOMPARE(coop.record()->lastWiggledVersion, canvas.version());
}

void TestCoopSource::wiggleOffShowsPlainPictureAgain()
{
    CoopCanvas &canvas = CoopCanvas::instance();
    QVERIFY(settled(canvas.onCanvasStateReceived(pattern(1920, 1080))));
    CoopRef coop = createCoop("wiggle off");
    // Only the test's own tick reaches a wiggle frame, not the host's.
    canvas.setJitterAmountPx(3.0f);
    canvas.setJitterInterval(100000.0f);
    canvas.setJitterEnabled(true);
    coop.tick(100001.0f);
    QVERIFY(coop.render() != pattern(1920, 1080));

    canvas.setJitterEnabled(false);
    QCOMPARE(coop.render(), pattern(1920, 1080));
}

void TestCoopSource::performanceLineIsTagged()
{
    CoopRef coop = createCoop("perf coop");
    m_host.clearLog();
    coop.record()->perf.windowStart = 1;
    coop.render();
    const QStringList lines = m_host.linesStartingWith(QStringLiteral("[PD-Perf] CO-OP "));
    QCOMPARE(lines.size(), 1);
    const QRegularExpression format(QStringLiteral(
        R"(^\[PD-Perf\] CO-OP 'perf coop' \d+\.\ds \| render 1 calls, \d+\.\d ms total )"
        R"(\(avg \d+ us, max \d+ us\) \| tick \d+ calls, \d+\.\d ms total \(avg \d+ us, )"
        R"(max \d+ us\) \| uploads \d+, jitters 0 \| wiggle off$)"));
    QVERIFY2(format.match(lines.first()).hasMatch(), qPrintable(lines.first()));
    QCOMPARE(coop.record()->perf.renderCalls, 0);
}

void TestCoopSource::destroyingLastSourceStopsSession()
{
    CoopSession &session = CoopSession::instance();
    QVERIFY2(session.host(QStringLiteral("Host"), 0), qPrintable(session.lastError()));
    QCOMPARE(session.role(), CoopSession::Role::Host);
    {
        CoopRef coop = createCoop("only");
        QVERIFY(settled(CoopCanvas::instance().onCanvasStateReceived(pattern(1920, 1080))));
    }
    QTRY_COMPARE_WITH_TIMEOUT(session.role(), CoopSession::Role::None, 10000);
    QCOMPARE(liveCoopSourceCount(), 0);
    QTRY_COMPARE_WITH_TIMEOUT(CoopCanvas::instance().image(), transparent(1920, 1080), 10000);
}

void TestCoopSource::recreatedSourceKeepsSession()
{
    CoopSession &session = CoopSession::instance();
    QVERIFY2(session.host(QStringLiteral("Host"), 0), qPrintable(session.lastError()));
    createCoop("old");
    // Wait for the destruction without running the queued session job.
    obs_wait_for_destroy_queue();
    const QDeadlineTimer deadline(10000);
    while (liveCoopSourceCount() != 0 && !deadline.hasExpired())
        QThread::msleep(5);
    QCOMPARE(liveCoopSourceCount(), 0);

    CoopRef replacement = createCoop("new");
    QTest::qWait(200);
    QCOMPARE(session.role(), CoopSession::Role::Host);
}

void TestCoopSource::destroyingOneOfTwoKeepsSession()
{
    CoopSession &session = CoopSession::instance();
    QVERIFY2(session.host(QStringLiteral("Host"), 0), qPrintable(session.lastError()));
    CoopRef kept = createCoop("kept");
    createCoop("dropped");
    obs_wait_for_destroy_queue();
    QTRY_COMPARE_WITH_TIMEOUT(liveCoopSourceCount(), 1, 10000);
    QTest::qWait(200);
    QCOMPARE(session.role(), CoopSession::Role::Host);
}

QTEST_MAIN(TestCoopSource)
#include "tst_coop_source.moc"
