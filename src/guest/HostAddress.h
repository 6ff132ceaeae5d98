#pragma once

#include <QString>
#include <QtGlobal>

// Where a guest connects: what the user typed in the address field, split
// into host and port. Users type an address alone and get the co-op port;
// "host:port" and "[v6 address]:port" name another port.
struct HostAddress {
    QString host; // empty when the text names no host
    quint16 port = 0;

    bool isValid() const { return !host.isEmpty() && port != 0; }

    static HostAddress parse(const QString &text, quint16 defaultPort);
};
