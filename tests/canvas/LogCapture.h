#pragma once

#include "module/Log.h"

#include <QStringList>

// Collects pdLog lines for the lifetime of the object.
class LogCapture {
public:
    LogCapture()
    {
        lines().clear();
        setLogSink([](const char *line) { lines().append(QString::fromUtf8(line)); });
    }
    ~LogCapture() { setLogSink(nullptr); }
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    static QStringList &lines()
    {
        static QStringList all;
        return all;
    }
    QStringList matching(const QString &prefix) const
    {
        QStringList out;
        for (const QString &line : lines())
            if (line.startsWith(prefix))
                out << line;
        return out;
    }
    void clear() { lines().clear(); }
};
