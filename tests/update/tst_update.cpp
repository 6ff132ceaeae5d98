#include "FakeHttpServer.h"
#include "LogCapture.h"

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

QString line(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

const char FallbackUpToDate[] = "[PD-Update] up to date (this build 0.9.2, latest 0.9.1)";

} // namespace

class TestUpdate : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void init();

    void newerVersion_data();
    void newerVersion();
    void answers_data();
    void answers();
    void silentPrimaryFallsBackToFallback();
    void destroyingUnstartedCheckerAsksNothing();
    void destroyingMidRequestReturnsAtOnce_data();
    void destroyingMidRequestReturnsAtOnce();

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
    QTest::newRow("0.10.0 newer than 0.9.2") << "0.10.0" << "0.9.2" << true;
    QTest::newRow("hotfix suffix ignored") << "0.9.2-hotfix" << "0.9.2" << false;
    QTest::newRow("3-beta reads 3") << "0.9.3-beta" << "0.9.2" << true;
    QTest::newRow("v1 reads 0") << "v1" << "0.0.1" << false;
    QTest::newRow("white space trimmed") << "  1.2 " << "1.1" << true;
    QTest::newRow("empty parts dropped") << "1..2" << "1.2" << false;
    QTest::newRow("huge number saturates") << "99999999999999999999999" << "1" << true;
}

void TestUpdate::newerVersion()
{
    QFETCH(QString, a);
    QFETCH(QString, b);
    QFETCH(bool, newer);
    QCOMPARE(isNewerVersion(a, b), newer);
}

void TestUpdate::answers_data()
{
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<QStringList>("log");
    QTest::addColumn<QVariantList>("offered"); // empty: no prompt
    QTest::addColumn<int>("fallbackAsked");

    const QString skipped = line("[PD-Update] unusable version from primary.test \xE2\x80\x94 "
                                 "trying next");
    const QString badUrl = line("[PD-Update] unusable download address from primary.test; "
                                "offering the download page");
    const QString available = line("[PD-Update] update available: 1.0 (this build 0.9.2) via "
                                   "primary.test");
    auto offer = [](const QString &url) { return QVariantList{QStringLiteral("1.0"), url}; };
    QTest::newRow("up to date stops at the primary")
        << QByteArray(R"({"version":"0.9.2"})")
        << QStringList{line("[PD-Update] up to date (this build 0.9.2, latest 0.9.2)")}
        << QVariantList() << 0;
    QTest::newRow("no download: the default page")
        << QByteArray(R"({"version":"1.0"})") << QStringList{available} << offer(DefaultPage) << 0;
    QTest::newRow("download from the answer")
        << QByteArray(R"({"version":"1.0","download":"https://example.test/new"})")
        << QStringList{available} << offer("https://example.test/new") << 0;
    QTest::newRow("numeric version: next server")
        << QByteArray(R"({"version":1.5})") << QStringList{line(FallbackUpToDate)} << QVariantList()
        << 1;
    QTest::newRow("body cut at the cap is non-JSON")
        << "{\"version\":\"9.0\",\"pad\":\"" + QByteArray(1024 * 1024, 'x') + "\"}"
        << QStringList{line("[PD-Update] non-JSON from primary.test \xE2\x80\x94 trying next"),
                       line(FallbackUpToDate)}
        << QVariantList() << 1;
    QTest::newRow("200,001-character version")
        << "{\"version\":\"1" + QByteArray(200000, '0') + "\"}"
        << QStringList{skipped, line(FallbackUpToDate)} << QVariantList() << 1;
    QTest::newRow("version with a line break")
        << QByteArray(R"({"version":"1.0\n[PD] forged"})")
        << QStringList{skipped, line(FallbackUpToDate)} << QVariantList() << 1;
    const char *unsafeUrls[] = {"file:///etc/passwd",
                                "javascript:alert(1)",
                                "http://example.test/plain",
                                "https://",
                                "https://user@evil.test/",
                                "https://example.test/a b",
                                "https://example.test/\\u0007bell",
                                "https://example.test/\\u202egnp.exe"};
    for (const char *url : unsafeUrls)
        QTest::newRow(url) << QByteArray(R"({"version":"1.0","download":")") + url + "\"}"
                           << QStringList{badUrl, available} << offer(DefaultPage) << 0;
    QTest::newRow("3000-character address")
        << R"({"version":"1.0","download":"https://example.test/)" + QByteArray(3000, 'a') + "\"}"
        << QStringList{badUrl, available} << offer(DefaultPage) << 0;
}

void TestUpdate::answers()
{
    QFETCH(QByteArray, answer);
    QFETCH(QStringList, log);
    QFETCH(QVariantList, offered);
    QFETCH(int, fallbackAsked);

    FakeHttpServer primary(answer);
    FakeHttpServer fallback(R"({"version":"0.9.1"})");
    UpdateChecker checker({loopback(primary, "primary.test"), loopback(fallback, "fallback.test")},
                          DefaultPage);
    QList<QThread *> emittedOn;
    connect(
        &checker, &UpdateChecker::updateAvailable, this,
        [&emittedOn] { emittedOn << QThread::currentThread(); }, Qt::DirectConnection);
    QSignalSpy available(&checker, &UpdateChecker::updateAvailable);
    checker.start();
    checker.start(); // a second start does nothing
    QTRY_COMPARE_WITH_TIMEOUT(LogCapture::lines(), log, 20000);
    QTest::qWait(200);
    QCOMPARE(LogCapture::lines(), log);
    QCOMPARE(primary.connections(), 1);
    QCOMPARE(fallback.connections(), fallbackAsked);
    QCOMPARE(available.count(), offered.isEmpty() ? 0 : 1);
    if (!offered.isEmpty()) {
        QCOMPARE(available.first(), offered);
        QCOMPARE(emittedOn, QList<QThread *>{QThread::currentThread()});
    }
}

void TestUpdate::silentPrimaryFallsBackToFallback()
{
    FakeHttpServer primary(QByteArray(), FakeHttpServer::Mode::Silent);
    FakeHttpServer fallback(R"({"version":"0.9.1"})");
    UpdateChecker checker({loopback(primary, "primary.test"), loopback(fallback, "fallback.test")},
                          DefaultPage);
    checker.start();
    // The stalled primary gives up after its phase timeouts (a few seconds).
    QTRY_COMPARE_WITH_TIMEOUT(
        LogCapture::lines(),
        (QStringList{line("[PD-Update] check failed on primary.test (network) \xE2\x80\x94 trying "
                          "next"),
                     line(FallbackUpToDate)}),
        30000);
    QCOMPARE(fallback.connections(), 1);
}

void TestUpdate::destroyingUnstartedCheckerAsksNothing()
{
    FakeHttpServer primary(R"({"version":"0.9.0"})");
    delete new UpdateChecker({loopback(primary, "primary.test")}, DefaultPage);
    QCOMPARE(primary.connections(), 0);
    QVERIFY(LogCapture::lines().isEmpty());
}

void TestUpdate::destroyingMidRequestReturnsAtOnce_data()
{
    QTest::addColumn<FakeHttpServer::Mode>("mode");
    QTest::newRow("silent server") << FakeHttpServer::Mode::Silent;
    QTest::newRow("server dripping 2 bytes/s") << FakeHttpServer::Mode::Drip;
}

// As when OBS exits during the check: the UI thread must not wait for the
// request's timeouts.
void TestUpdate::destroyingMidRequestReturnsAtOnce()
{
    QFETCH(FakeHttpServer::Mode, mode);
    FakeHttpServer primary(QByteArray(), mode);
    FakeHttpServer fallback(R"({"version":"0.9.2"})");
    auto checker = std::make_unique<UpdateChecker>(
        std::vector<UpdateServer>{loopback(primary, "primary.test"),
                                  loopback(fallback, "fallback.test")},
        DefaultPage);
    checker->start();
    QTRY_COMPARE_WITH_TIMEOUT(primary.connections(), 1, 10000);
    QTest::qWait(1500); // mid-request, past the first drips
    QElapsedTimer timer;
    timer.start();
    checker.reset();
    const qint64 elapsedUs = timer.nsecsElapsed() / 1000;
    qInfo("destroyed mid-request in %lld us", static_cast<long long>(elapsedUs));
    QVERIFY2(elapsedUs < 1000000, qPrintable(QString::number(elapsedUs)));
    QTest::qWait(200);
    QCOMPARE(fallback.connections(), 0);
    QVERIFY(LogCapture::lines().isEmpty());
}

QTEST_GUILESS_MAIN(TestUpdate)
#include "tst_update.moc"
