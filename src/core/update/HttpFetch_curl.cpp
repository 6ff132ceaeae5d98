#include "update/HttpFetch.h"

#include <QString>

#include <curl/curl.h>

#include <mutex>

namespace {

// Without a wake-up the transfer still looks at the flag this often.
constexpr int CancelPollMs = 100;

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

int abortWhenCancelled(void *user, curl_off_t, curl_off_t, curl_off_t, curl_off_t)
{
    const auto *cancel = static_cast<const FetchCancel *>(user);
    return cancel && cancel->isCancelled() ? 1 : 0;
}

// One easy transfer inside its own multi handle, so the fetch can wait on it
// in short steps and be woken from another thread.
class Transfer {
public:
    Transfer() : m_easy(curl_easy_init()), m_multi(curl_multi_init()) {}
    ~Transfer()
    {
        if (m_added)
            curl_multi_remove_handle(m_multi, m_easy);
        if (m_easy)
            curl_easy_cleanup(m_easy);
        if (m_multi)
            curl_multi_cleanup(m_multi);
    }
    Transfer(const Transfer &) = delete;
    Transfer &operator=(const Transfer &) = delete;

    CURL *easy() const { return m_easy; }
    CURLM *multi() const { return m_multi; }
    bool valid() const { return m_easy && m_multi; }

    CURLcode run(FetchCancel *cancel)
    {
        m_added = curl_multi_add_handle(m_multi, m_easy) == CURLM_OK;
        if (!m_added)
            return CURLE_FAILED_INIT;
        int running = 1;
        while (running) {
            if (curl_multi_perform(m_multi, &running) != CURLM_OK)
                return CURLE_FAILED_INIT;
            if (cancel && cancel->isCancelled())
                return CURLE_ABORTED_BY_CALLBACK;
            if (running)
                curl_multi_poll(m_multi, nullptr, 0, CancelPollMs, nullptr);
        }
        int left = 0;
        while (CURLMsg *message = curl_multi_info_read(m_multi, &left)) {
            if (message->msg == CURLMSG_DONE)
                return message->data.result;
        }
        return CURLE_FAILED_INIT;
    }

private:
    CURL *m_easy;
    CURLM *m_multi;
    bool m_added = false;
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

bool fetchBody(const UpdateServer &server, std::string &body, FetchCancel *cancel)
{
    static std::once_flag initialised;
    std::call_once(initialised, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });

    Transfer transfer;
    if (!transfer.valid())
        return false;
    CURL *curl = transfer.easy();
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
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, long(UpdateRequestTimeoutMs));
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, appendBody);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &sink);
    curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, abortWhenCancelled);
    curl_easy_setopt(curl, CURLOPT_XFERINFODATA, cancel);
    // Cleaning up must not wait for a name resolution still running.
    curl_easy_setopt(curl, CURLOPT_QUICK_EXIT, 1L);

    CURLcode result = CURLE_ABORTED_BY_CALLBACK;
    CURLM *multi = transfer.multi();
    if (!cancel || cancel->arm([multi] { curl_multi_wakeup(multi); }))
        result = transfer.run(cancel);
    if (cancel)
        cancel->disarm();
    if (result != CURLE_OK && !(result == CURLE_WRITE_ERROR && sink.capped))
        return false;
    return !body.empty();
}
