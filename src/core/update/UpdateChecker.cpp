#include "update/UpdateChecker.h"

#include "common/Log.h"
#include "common/Version.h"
#include "update/VersionCompare.h"

#include <QByteArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QMetaObject>
#include <QRegularExpression>
#include <QUrl>

#ifndef PENNORIA_UPDATE_PRIMARY_HOST
#define PENNORIA_UPDATE_PRIMARY_HOST "pennoria.com"
#endif
#ifndef PENNORIA_UPDATE_FALLBACK_HOST
#define PENNORIA_UPDATE_FALLBACK_HOST "pennoria.pages.dev"
#endif
#ifndef PENNORIA_DOWNLOAD_PAGE
#define PENNORIA_DOWNLOAD_PAGE "https://pennoria.com/pennoria-draw/download"
#endif

namespace {

const wchar_t VersionPath[] = L"/api/software/pennoria-draw/version";

constexpr int MaxVersionLength = 32;
constexpr int MaxDownloadUrlLength = 2048;

UpdateServer httpsServer(const char *host)
{
    UpdateServer server;
    server.host = QString::fromUtf8(host).toStdWString();
    server.path = VersionPath;
    server.logName = host;
    return server;
}

// What may reach the prompt: a short version text of digits, letters, '.',
// '-' and '+'.
bool isAcceptableVersion(const QString &version)
{
    static const QRegularExpression pattern(QStringLiteral("^[vV]?[0-9][0-9A-Za-z.+-]*$"));
    return version.size() <= MaxVersionLength && pattern.match(version).hasMatch();
}

// What may reach the browser: an https address with a host, of sane length,
// without white space or control characters.
bool isAcceptableDownloadUrl(const QString &url)
{
    if (url.isEmpty() || url.size() > MaxDownloadUrlLength)
        return false;
    for (const QChar c : url) {
        if (c.unicode() <= 0x20 || c.unicode() == 0x7f || c.isSpace() ||
            c.category() == QChar::Other_Control || c.category() == QChar::Other_Format)
            return false;
    }
    const QUrl parsed(url, QUrl::StrictMode);
    return parsed.isValid() && parsed.scheme() == QLatin1String("https") &&
           !parsed.host().isEmpty() && parsed.userInfo().isEmpty();
}

} // namespace

UpdateChecker::UpdateChecker(QObject *parent)
    : UpdateChecker(productServers(), productDownloadPage(), parent)
{}

UpdateChecker::UpdateChecker(std::vector<UpdateServer> servers, QString defaultDownloadUrl,
                             QObject *parent)
    : QObject(parent), m_servers(std::move(servers)),
      m_defaultDownloadUrl(std::move(defaultDownloadUrl))
{}

UpdateChecker::~UpdateChecker()
{
    m_cancel.cancel();
    if (m_worker.joinable())
        m_worker.join();
}

std::vector<UpdateServer> UpdateChecker::productServers()
{
    return {httpsServer(PENNORIA_UPDATE_PRIMARY_HOST), httpsServer(PENNORIA_UPDATE_FALLBACK_HOST)};
}

QString UpdateChecker::productDownloadPage()
{
    return QStringLiteral(PENNORIA_DOWNLOAD_PAGE);
}

void UpdateChecker::start()
{
    if (m_started)
        return;
    m_started = true;
    m_worker = std::thread([this] { run(); });
}

void UpdateChecker::run()
{
    for (const UpdateServer &server : m_servers) {
        if (m_cancel.isCancelled())
            return;
        const char *name = server.logName.c_str();
        std::string body;
        if (!fetchBody(server, body, &m_cancel)) {
            if (m_cancel.isCancelled())
                return;
            pdLog("[PD-Update] check failed on %s (network) \xE2\x80\x94 trying next", name);
            continue;
        }
        QJsonParseError error{};
        const QJsonDocument document =
            QJsonDocument::fromJson(QByteArray::fromStdString(body), &error);
        if (error.error != QJsonParseError::NoError || !document.isObject()) {
            pdLog("[PD-Update] non-JSON from %s \xE2\x80\x94 trying next", name);
            continue;
        }
        const QJsonObject answer = document.object();
        const QString latest = answer.value(QLatin1String("version")).toString();
        if (latest.isEmpty())
            continue;
        if (!isAcceptableVersion(latest)) {
            pdLog("[PD-Update] unusable version from %s \xE2\x80\x94 trying next", name);
            continue;
        }
        const QByteArray latestText = latest.toUtf8();
        if (!isNewerVersion(latest, QStringLiteral(PENNORIA_VERSION))) {
            pdLog("[PD-Update] up to date (this build %s, latest %s)", PENNORIA_VERSION,
                  latestText.constData());
            return;
        }
        QString url = answer.value(QLatin1String("download")).toString();
        if (!url.isEmpty() && !isAcceptableDownloadUrl(url)) {
            pdLog("[PD-Update] unusable download address from %s; offering the download page",
                  name);
            url.clear();
        }
        if (url.isEmpty())
            url = m_defaultDownloadUrl;
        pdLog("[PD-Update] update available: %s (this build %s) via %s", latestText.constData(),
              PENNORIA_VERSION, name);
        // Posted to this object, so it is dropped if the checker dies first.
        QMetaObject::invokeMethod(
            this, [this, latest, url] { emit updateAvailable(latest, url); }, Qt::QueuedConnection);
        return;
    }
}
