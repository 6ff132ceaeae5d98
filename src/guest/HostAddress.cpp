#include "HostAddress.h"

namespace {

// A port in 1..65535, else 0.
quint16 portNumber(const QString &text)
{
    bool ok = false;
    const uint port = text.toUInt(&ok);
    return ok && port > 0 && port <= 65535 ? quint16(port) : 0;
}

} // namespace

HostAddress HostAddress::parse(const QString &text, quint16 defaultPort)
{
    const QString trimmed = text.trimmed();
    if (trimmed.startsWith(QLatin1Char('['))) {
        const qsizetype close = trimmed.indexOf(QLatin1Char(']'));
        if (close < 0)
            return {};
        const QString rest = trimmed.mid(close + 1);
        if (!rest.isEmpty() && !rest.startsWith(QLatin1Char(':')))
            return {};
        return {trimmed.mid(1, close - 1), rest.isEmpty() ? defaultPort : portNumber(rest.mid(1))};
    }
    // More than one colon: an IPv6 address without a port.
    if (trimmed.count(QLatin1Char(':')) != 1)
        return {trimmed, defaultPort};
    const qsizetype colon = trimmed.indexOf(QLatin1Char(':'));
    return {trimmed.left(colon), portNumber(trimmed.mid(colon + 1))};
}
