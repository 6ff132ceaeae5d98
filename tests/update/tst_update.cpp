#include "FakeHttpServer.h"
#include "LogCapture.h"

#include "update/HttpFetch.h"
#include "update/UpdateChecker.h"
#include "update/VersionCompare.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QtTest>

#include <memory>

namespace {

const QString DefaultPage = QStringLiteral("https://example.test/download");

UpdateServer loopback(const FakeHttpServer &server, const char *name)
{
    UpdateServer entry;
    entry.host = L"127.0.0.1";
    entry.path = L"/api/software/pennoria-draw/version";
    entry.logName = name;
    entry.secure = false;
    entry.port = server.port();
    return entry;
}

// A loopback port with nothing listening on it.
UpdateServer closedPort(const char *name)
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    UpdateServer entry;
    entry.host = L"127.0.0.1";
    entry.path = L"/";
    entry.logName = name;
    entry.secure = false;
    entry.port = probe.serverPort();
    return entry;
}

QByteArray versionAnswer(const char *version)
{
    return QByteArray("{\"version\":\"") + version + "\"}";
}

QString line(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

} // namespace

class TestUpdate : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void init();

    void newerVersion_data();
    void newerVersion();

    void upToDateStopsAtPrimary();
    void silentPrimaryFallsBackToFallback();
    void newerVersionWithoutDownloadUsesDefaultPage();
    void downloadFromAnswerIsOffered();
    void numericVersionTriesNextServer();
    void oversizedBodyIsCutAndJudgedNonJson();
    void fetchKeepsTheFirstReadPastTheCap();
    void everyServerFailingEndsSilently();
    void secondStartDoesNothing();
    void destroyingUnstartedCheckerAsksNothing();
    void destroyingMidRequestReturns();

private:
    LogCapture m_log;
};

void TestUpdate::initTestCase()
{
    // The loopback servers must be reached directly.
    for (const char *name : {"http_proxy", "HTTP_PROXY", "all_proxy", "ALL_PROXY"})
        qunsetenv(name);
}

void TestUpdate::init()
{
    LogCapture::clear();
}

void TestUpdate::newerVersion_data()
{
    QTest::addColumn<QString>("a");
    QTest::addColumn<QString>("b");
    QTest::addColumn<bool>("newer");
    QTest::newRow("equal") << "0.9.2" << "0.9.2" << false;
    QTest::newRow("1.0 vs 1.0.0") << "1.0" << "1.0.0" << false;
    QTest::newRow("1.0.0 vs 1.0") << "1.0.0" << "1.0" << false;
    QTest::newRow("0.10.0 newer than 0.9.2") << "0.10.0" << "0.9.2" << true;
    QTest::newRow("0.9.2 older than 0.10.0") << "0.9.2" << "0.10.0" << false;
    QTest::newRow("hotfix suffix ignored") << "0.9.2-hotfix" << "0.9.2" << false;
    QTest::newRow("3-beta reads 3") << "0.9.3-beta" << "0.9.2" << true;
    QTest::newRow("v1 reads 0") << "v1" << "0" << false;
    QTest::newRow("v1 not newer than 0.0.1") << "v1" << "0.0.1" << false;
    QTest::newRow("1.0 newer") << "1.0" << "0.9.2" << true;
    QTest::newRow("trailing zero part") << "0.9.2.0" << "0.9.2" << false;
    QTest::newRow("extra part") << "0.9.2.1" << "0.9.2" << true;
    QTest::newRow("white space trimmed") << "  1.2 " << "1.1" << true;
    QTest::newRow("empty parts dropped") << "1..2" << "1.2" << false;
    QTest::newRow("empty text") << "" << "0" << false;
    QTest::newRow("huge number saturates") << "99999999999999999999999" << "1" << true;
}

void TestUpdate::newerVersion()
{
    QFETCH(QString, a);
    QFETCH(QString, b);
    QFETCH(bool, newer);
    QCOMPARE(isNewerVersion(a, b), newer);
}

void TestUpdate::upToDateStopsAtPrimary()
{
    FakeHttpServer primary(versionAnswer("0.9.2"));
    FakeHttpServer fallback(versionAnswer("2.0"));
    UpdateChecker checker({loopback(primary, "primary.test"), loopback(fallback, "fallback.test")},
                          DefaultPage);
    QSignalSpy available(&checker, &UpdateChecker::updateAvailable);
    checker.start();
    QTRY_COMPARE_WITH_TIMEOUT(LogCapture::lines(),
                              QStringList{line("[PD-Update] up to date (this build 0.9.2, latest "
                                               "0.9.2)")},
                              20000);
    QTest::qWait(200);
    QCOMPARE(primary.connections(), 1);
    QCOMPARE(fallback.connections(), 0);
    QCOMPARE(available.count(), 0);
}

void TestUpdate::silentPrimaryFallsBackToFallback()
{
    FakeHttpServer primary(QByteArray(), FakeHttpServer::Mode::Silent);
    FakeHttpServer fallback(versionAnswer("0.9.1"));
    UpdateChecker checker({loopback(primary, "primary.test"), loopback(fallback, "fallback.test")},
                          DefaultPage);
    checker.start();
    // The stalled primary gives up after its phase timeouts (a few seconds).
    QTRY_COMPARE_WITH_TIMEOUT(
        LogCapture::lines(),
        (QStringList{line("[PD-Update] check failed on primary.test (network) \xE2\x80\x94 trying "
                          "next"),
                     line("[PD-Update] up to date (this build 0.9.2, latest 0.9.1)")}),
        30000);
    QCOMPARE(primary.connections(), 1);
    QCOMPARE(fallback.connections(), 1);
}

void TestUpdate::newerVersionWithoutDownloadUsesDefaultPage()
{
    FakeHttpServer primary(versionAnswer("1.0"));
    UpdateChecker checker({loopback(primary, "primary.test")}, DefaultPage);
    QThread *emittedOn = nullptr;
    connect(
        &checker, &UpdateChecker::updateAvailable, this,
        [&emittedOn] { emittedOn = QThread::currentThread(); }, Qt::DirectConnection);
    QSignalSpy available(&checker, &UpdateChecker::updateAvailable);
    checker.start();
    QTRY_COMPARE_WITH_TIMEOUT(available.count(), 1, 20000);
    QCOMPARE(available.first(), (QVariantList{QStringLiteral("1.0"), DefaultPage}));
    QCOMPARE(emittedOn, QThread::currentThread());
    QCOMPARE(LogCapture::lines(),
             QStringList{line("[PD-Update] update available: 1.0 (this build 0.9.2) via "
                              "primary.test")});
}

void TestUpdate::downloadFromAnswerIsOffered()
{
    FakeHttpServer primary(R"({"version":"0.10.0","download":"https://example.test/new"})");
    UpdateChecker checker({loopback(primary, "primary.test")}, DefaultPage);
    QSignalSpy available(&checker, &UpdateChecker::updateAvailable);
    checker.start();
    QTRY_COMPARE_WITH_TIMEOUT(available.count(), 1, 20000);
    QCOMPARE(available.first(),
             (QVariantList{QStringLiteral("0.10.0"), QStringLiteral("https://example.test/new")}));
}

void TestUpdate::numericVersionTriesNextServer()
{
    FakeHttpServer primary(R"({"version":1.5,"download":"https://example.test/x"})");
    FakeHttpServer fallback(versionAnswer("0.9.2-hotfix"));
    UpdateChecker checker({loopback(primary, "primary.test"), loopback(fallback, "fallback.test")},
                          DefaultPage);
    QSignalSpy available(&checker, &UpdateChecker::updateAvailable);
    checker.start();
    QTRY_COMPARE_WITH_TIMEOUT(
        LogCapture::lines(),
        QStringList{line("[PD-Update] up to date (this build 0.9.2, latest 0.9.2-hotfix)")}, 20000);
    QCOMPARE(primary.connections(), 1);
    QCOMPARE(fallback.connections(), 1);
    QCOMPARE(available.count(), 0);
}

void TestUpdate::oversizedBodyIsCutAndJudgedNonJson()
{
    // Valid JSON as a whole, so only the cut makes it unreadable.
    const QByteArray big = "{\"version\":\"9.0\",\"pad\":\"" + QByteArray(1024 * 1024, 'x') + "\"}";
    FakeHttpServer primary(big);
    UpdateChecker checker({loopback(primary, "primary.test")}, DefaultPage);
    QSignalSpy available(&checker, &UpdateChecker::updateAvailable);
    checker.start();
    QTRY_COMPARE_WITH_TIMEOUT(
        LogCapture::lines(),
        QStringList{line("[PD-Update] non-JSON from primary.test \xE2\x80\x94 trying next")},
        20000);
    QTest::qWait(200);
    QCOMPARE(available.count(), 0);
}

void TestUpdate::fetchKeepsTheFirstReadPastTheCap()
{
    QByteArray big(1024 * 1024, 'y');
    for (int i = 0; i < big.size(); i += 1000)
        big[i] = char('a' + (i / 1000) % 26);
    FakeHttpServer server(big);
    std::string body;
    QVERIFY(fetchBody(loopback(server, "cap.test"), body));
    QVERIFY2(body.size() > MaxUpdateBodyBytes, qPrintable(QString::number(body.size())));
    QVERIFY2(body.size() < size_t(big.size()), qPrintable(QString::number(body.size())));
    QCOMPARE(QByteArray::fromStdString(body), big.left(qsizetype(body.size())));
}

void TestUpdate::everyServerFailingEndsSilently()
{
    FakeHttpServer notJson("<html>502 Bad Gateway</html>");
    UpdateChecker checker({closedPort("primary.test"), loopback(notJson, "fallback.test")},
                          DefaultPage);
    QSignalSpy available(&checker, &UpdateChecker::updateAvailable);
    checker.start();
    const QStringList expected{
        line("[PD-Update] check failed on primary.test (network) \xE2\x80\x94 trying next"),
        line("[PD-Update] non-JSON from fallback.test \xE2\x80\x94 trying next")};
    QTRY_COMPARE_WITH_TIMEOUT(LogCapture::lines(), expected, 20000);
    QTest::qWait(300);
    QCOMPARE(LogCapture::lines(), expected);
    QCOMPARE(available.count(), 0);
}

void TestUpdate::secondStartDoesNothing()
{
    FakeHttpServer primary(versionAnswer("0.9.0"));
    UpdateChecker checker({loopback(primary, "primary.test")}, DefaultPage);
    checker.start();
    checker.start();
    const QStringList expected{line("[PD-Update] up to date (this build 0.9.2, latest 0.9.0)")};
    QTRY_COMPARE_WITH_TIMEOUT(LogCapture::lines(), expected, 20000);
    QTest::qWait(300);
    QCOMPARE(primary.connections(), 1);
    QCOMPARE(LogCapture::lines(), expected);
}

void TestUpdate::destroyingUnstartedCheckerAsksNothing()
{
    FakeHttpServer primary(versionAnswer("0.9.0"));
    {
        UpdateChecker checker({loopback(primary, "primary.test")}, DefaultPage);
    }
    // Never started: nothing to wait for, nothing asked.
    QCOMPARE(primary.connections(), 0);
    QVERIFY(LogCapture::lines().isEmpty());
}

void TestUpdate::destroyingMidRequestReturns()
{
    FakeHttpServer primary(QByteArray(), FakeHttpServer::Mode::Silent);
    FakeHttpServer fallback(versionAnswer("0.9.2"));
    auto checker = std::make_unique<UpdateChecker>(
        std::vector<UpdateServer>{loopback(primary, "primary.test"),
                                  loopback(fallback, "fallback.test")},
        DefaultPage);
    checker->start();
    QTRY_COMPARE_WITH_TIMEOUT(primary.connections(), 1, 10000);
    QElapsedTimer timer;
    timer.start();
    checker.reset();
    QVERIFY2(timer.elapsed() < 15000, qPrintable(QString::number(timer.elapsed())));
    // Cancelled: the fallback is never tried.
    QCOMPARE(fallback.connections(), 0);
    QCOMPARE(LogCapture::lines(),
             QStringList{line("[PD-Update] check failed on primary.test (network) \xE2\x80\x94 "
                              "trying next")});
}

QTEST_GUILESS_MAIN(TestUpdate)
#include "tst_update.moc"
