#ifdef _WIN32

#include "update/HttpFetch.h"

#include <windows.h>
#include <winhttp.h>

namespace {

// Closes a WinHTTP handle on every way out of the request.
class HttpHandle {
public:
    explicit HttpHandle(HINTERNET handle) : m_handle(handle) {}
    ~HttpHandle()
    {
        if (m_handle)
            WinHttpCloseHandle(m_handle);
    }
    HttpHandle(const HttpHandle &) = delete;
    HttpHandle &operator=(const HttpHandle &) = delete;

    HINTERNET get() const { return m_handle; }
    explicit operator bool() const { return m_handle != nullptr; }

private:
    HINTERNET m_handle;
};

} // namespace

bool fetchBody(const UpdateServer &server, std::string &body)
{
    HttpHandle session(WinHttpOpen(L"PennoriaDraw", WINHTTP_ACCESS_TYPE_DEFAULT_PROXY,
                                   WINHTTP_NO_PROXY_NAME, WINHTTP_NO_PROXY_BYPASS, 0));
    if (!session)
        return false;
    if (!WinHttpSetTimeouts(session.get(), UpdatePhaseTimeoutMs, UpdatePhaseTimeoutMs,
                            UpdatePhaseTimeoutMs, UpdatePhaseTimeoutMs))
        return false;

    HttpHandle connection(
        WinHttpConnect(session.get(), server.host.c_str(), INTERNET_PORT(server.port), 0));
    if (!connection)
        return false;

    HttpHandle request(WinHttpOpenRequest(connection.get(), L"GET", server.path.c_str(), nullptr,
                                          WINHTTP_NO_REFERER, WINHTTP_DEFAULT_ACCEPT_TYPES,
                                          server.secure ? WINHTTP_FLAG_SECURE : 0));
    if (!request)
        return false;
    if (!WinHttpSendRequest(request.get(), WINHTTP_NO_ADDITIONAL_HEADERS, 0,
                            WINHTTP_NO_REQUEST_DATA, 0, 0, 0))
        return false;
    if (!WinHttpReceiveResponse(request.get(), nullptr))
        return false;

    for (;;) {
        DWORD available = 0;
        if (!WinHttpQueryDataAvailable(request.get(), &available))
            return false;
        if (available == 0)
            break;
        std::string chunk(available, '\0');
        DWORD read = 0;
        if (!WinHttpReadData(request.get(), &chunk[0], available, &read) || read == 0)
            break;
        body.append(chunk.data(), read);
        if (body.size() > MaxUpdateBodyBytes)
            break;
    }
    return !body.empty();
}

#endif // _WIN32
