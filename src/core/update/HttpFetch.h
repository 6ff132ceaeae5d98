#pragma once

// Qt-free on purpose: the Windows implementation is built and checked on its
// own with the platform headers only.

#include <atomic>
#include <cstddef>
#include <functional>
#include <mutex>
#include <string>

// One version server: where to ask, and how to name it in the log.
struct UpdateServer {
    std::wstring host;
    std::wstring path;
    std::string logName;
    // The real servers speak HTTPS on 443; loopback test servers plain HTTP.
    bool secure = true;
    unsigned short port = 443;
};

// Ends a fetch from another thread at once: cancel() sets the flag and runs
// the abort the fetch in flight registered.
class FetchCancel {
public:
    void cancel()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_cancelled.store(true);
        if (m_abort)
            m_abort();
    }
    bool isCancelled() const { return m_cancelled.load(); }
    // Registers how to abort the transfer in flight (it must stay callable
    // until disarm()); false when already cancelled.
    bool arm(std::function<void()> abort)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_abort = std::move(abort);
        return !m_cancelled.load();
    }
    void disarm()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_abort = nullptr;
    }

private:
    std::mutex m_mutex;
    std::atomic<bool> m_cancelled{false};
    std::function<void()> m_abort;
};

// A body is cut at the first read that takes it past this many bytes.
constexpr std::size_t MaxUpdateBodyBytes = 0x40000;
// Each phase of a request (resolve, connect, send, receive) gives up after
// this long, and the whole request after this long.
constexpr int UpdatePhaseTimeoutMs = 4000;
constexpr int UpdateRequestTimeoutMs = 4 * UpdatePhaseTimeoutMs;

// Blocking GET of the server's path with the product's user agent. False when
// the request failed before the body or while asking for more of it;
// otherwise whether any body arrived. The HTTP status is not looked at.
// Cancelling ends the request at once and makes it fail.
bool fetchBody(const UpdateServer &server, std::string &body, FetchCancel *cancel = nullptr);
