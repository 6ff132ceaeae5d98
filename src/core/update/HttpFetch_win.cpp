#ifdef _WIN32

#include "update/HttpFetch.h"

#include <windows.h>
#include <winhttp.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <thread>

namespace {

// Closes a WinHTTP handle once, whichever thread gets there first: the
// request's own way out, or a cancel or deadline closing it to end a call
// blocked on it.
class HttpHandle {
public:
    explicit HttpHandle(HINTERNET handle) : m_handle(handle) {}
    ~HttpHandle() { close(); }
    HttpHandle(const HttpHandle &) = delete;
    HttpHandle &operator=(const HttpHandle &) = delete;

    HINTERNET get() const { return m_handle.load(); }
    explicit operator bool() const { return get() != nullptr; }
    void close()
    {
        if (HINTERNET handle = m_handle.exchange(nullptr))
            WinHttpCloseHandle(handle);
    }

private:
    std::atomic<HINTERNET> m_handle;
};

// Closes the request when the whole of it outlasts its deadline: WinHTTP
// has timeouts per phase only.
class Deadline {
public:
    Deadline(HttpHandle &request, int ms)
        : m_thread([this, &request, ms] {
              std::unique_lock<std::mutex> lock(m_mutex);
              if (!m_done.wait_for(lock, std::chrono::milliseconds(ms),
                                   [this] { return m_finished; }))
                  request.close();
          })
    {}
    ~Deadline()
    {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_finished = true;
        }
        m_done.notify_all();
        m_thread.join();
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_done;
    bool m_finished = false;
    std::thread m_thread;
};

bool readBody(HINTERNET request, std::string &body)
{
    for (;;) {
        DWORD available = 0;
        if (!WinHttpQueryDataAvailable(request, &available))
            return false;
        if (available == 0)
            return true;
        std::string chunk(available, '\0');
        DWORD read = 0;
        if (!WinHttpReadData(request, &chunk[0], available, &read) || read == 0)
            return true;
        body.append(chunk.data(), read);
        if (body.size() > MaxUpdateBodyBytes)
            return true;
    }
}

} // namespace

bool fetchBody(const UpdateServer &server, std::string &body, FetchCancel *cancel)
{
    HttpHandle session(WinHttpOpen(L"PennoriaDraw", WINHTTP_ACCESS_TYPE_DEFAULT_PROXY,
                                   WINHTTP_NO_PROXY_NAME, WINHTTP_NO_PROXY_BYPASS, 0));
    if (!session)
        return false;
    if (!WinHttpSetTimeouts(session.get(), UpdatePhaseTimeoutMs, UpdatePhaseTimeoutMs,
                            UpdatePhaseTimeoutMs, UpdatePhaseTimeoutMs))
        return false;
    // Neither call touches the network yet.
    HttpHandle connection(
        WinHttpConnect(session.get(), server.host.c_str(), INTERNET_PORT(server.port), 0));
    if (!connection)
        return false;
    HttpHandle request(WinHttpOpenRequest(connection.get(), L"GET", server.path.c_str(), nullptr,
                                          WINHTTP_NO_REFERER, WINHTTP_DEFAULT_ACCEPT_TYPES,
                                          server.secure ? WINHTTP_FLAG_SECURE : 0));
    if (!request)
        return false;
    // Closing the request handle from another thread ends a call blocked on it.
    if (cancel && !cancel->arm([&request] { request.close(); }))
        return false;
    bool ok = false;
    {
        Deadline deadline(request, UpdateRequestTimeoutMs);
        ok = WinHttpSendRequest(request.get(), WINHTTP_NO_ADDITIONAL_HEADERS, 0,
                                WINHTTP_NO_REQUEST_DATA, 0, 0, 0) &&
             WinHttpReceiveResponse(request.get(), nullptr) && readBody(request.get(), body);
    }
    if (cancel)
        cancel->disarm();
    return ok && !body.empty() && !(cancel && cancel->isCancelled());
}

#endif // _WIN32
