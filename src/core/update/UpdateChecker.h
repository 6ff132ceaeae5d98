#pragma once

#include "update/HttpFetch.h"

#include <QObject>
#include <QString>

#include <thread>
#include <vector>

// Asks the version service, once, whether a newer release exists. The
// request runs on a worker thread; the answer comes back as a signal on the
// checker's own thread.
class UpdateChecker : public QObject {
    Q_OBJECT

public:
    // The product's servers and download page.
    explicit UpdateChecker(QObject *parent = nullptr);
    // Servers tried in order, and the page offered when an answer names none.
    UpdateChecker(std::vector<UpdateServer> servers, QString defaultDownloadUrl,
                  QObject *parent = nullptr);
    // Ends a request in flight at once and waits for the worker.
    ~UpdateChecker() override;

    // Launches the check; later calls do nothing.
    void start();

    static std::vector<UpdateServer> productServers();
    static QString productDownloadPage();

signals:
    void updateAvailable(const QString &latestVersion, const QString &downloadUrl);

private:
    void run();

    std::thread m_worker;
    FetchCancel m_cancel;
    bool m_started = false;
    const std::vector<UpdateServer> m_servers;
    const QString m_defaultDownloadUrl;
};
