#include "update/UpdateChecker.h"

#include "common/Log.h"
#include "common/Version.h"
#include "update/VersionCompare.h"

#include <QByteArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QMetaObject>

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

UpdateServer httpsServer(const char *host)
{
    UpdateServer server;
    server.host = QString::fromUtf8(host).toStdWString();
    server.path = VersionPath;
    server.logName = host;
    return server;
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
    m_cancelled.store(true);
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
        if (m_cancelled.load())
            return;
        const char *name = server.logName.c_str();
        std::string body;
        if (!fetchBody(server, body)) {
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
        const QByteArray latestText = latest.toUtf8();
        if (!isNewerVersion(latest, QStringLiteral(PENNORIA_VERSION))) {
            pdLog("[PD-Update] up to date (this build %s, latest %s)", PENNORIA_VERSION,
                  latestText.constData());
            return;
        }
        QString url = answer.value(QLatin1String("download")).toString();
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
