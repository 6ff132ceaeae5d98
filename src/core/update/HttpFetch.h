#pragma once

// Qt-free on purpose: the Windows implementation is built and checked on its
// own with the platform headers only.

#include <cstddef>
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

// A body is cut at the first read that takes it past this many bytes.
constexpr std::size_t MaxUpdateBodyBytes = 0x40000;
// Each phase of a request (resolve, connect, send, receive) gives up after
// this long.
constexpr int UpdatePhaseTimeoutMs = 4000;

// Blocking GET of the server's path with the product's user agent. False when
// the request failed before the body or while asking for more of it;
// otherwise whether any body arrived. The HTTP status is not looked at.
bool fetchBody(const UpdateServer &server, std::string &body);
