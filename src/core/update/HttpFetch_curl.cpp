#include "update/HttpFetch.h"

#include <QString>

#include <curl/curl.h>

#include <memory>
#include <mutex>

namespace {

struct BodySink {
    std::string *body = nullptr;
    bool capped = false;
};

size_t appendBody(char *data, size_t size, size_t count, void *user)
{
    auto *sink = static_cast<BodySink *>(user);
    const size_t bytes = size * count;
    sink->body->append(data, bytes);
    if (sink->body->size() > MaxUpdateBodyBytes) {
        // Taking less than offered ends the transfer; what was read stays.
        sink->capped = true;
        return 0;
    }
    return bytes;
}

struct EasyDeleter {
    void operator()(CURL *easy) const { curl_easy_cleanup(easy); }
};

std::string urlOf(const UpdateServer &server)
{
    const QString url = QStringLiteral("%1://%2:%3%4")
                            .arg(server.secure ? QStringLiteral("https") : QStringLiteral("http"),
                                 QString::fromStdWString(server.host))
                            .arg(server.port)
                            .arg(QString::fromStdWString(server.path));
    return url.toStdString();
}

} // namespace

bool fetchBody(const UpdateServer &server, std::string &body)
{
    static std::once_flag initialised;
    std::call_once(initialised, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });

    std::unique_ptr<CURL, EasyDeleter> easy(curl_easy_init());
    if (!easy)
        return false;
    CURL *curl = easy.get();
    BodySink sink{&body, false};
    const std::string url = urlOf(server);

    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_USERAGENT, "PennoriaDraw");
    curl_easy_setopt(curl, CURLOPT_HTTPGET, 1L);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(curl, CURLOPT_MAXREDIRS, 5L);
    // Like the Windows client: never follow a secure request to plain HTTP.
    curl_easy_setopt(curl, CURLOPT_REDIR_PROTOCOLS_STR, server.secure ? "https" : "http,https");
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 2L);
    // Resolve and connect within one phase's time; after that a stall of one
    // phase's length (no byte either way) ends the request, and the whole
    // request never outlasts the four phases end to end.
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT_MS, long(UpdatePhaseTimeoutMs));
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_LIMIT, 1L);
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_TIME, long(UpdatePhaseTimeoutMs / 1000));
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, long(4 * UpdatePhaseTimeoutMs));
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, appendBody);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &sink);

    const CURLcode result = curl_easy_perform(curl);
    if (result != CURLE_OK && !(result == CURLE_WRITE_ERROR && sink.capped))
        return false;
    return !body.empty();
}
