#pragma once

#include "common/Log.h"

#include <QMutex>
#include <QStringList>

// Collects pdLog lines from any thread while it lives.
class LogCapture {
public:
    LogCapture()
    {
        clear();
        setLogSink(&LogCapture::sink);
    }
    ~LogCapture() { setLogSink(nullptr); }

    static QStringList lines()
    {
        QMutexLocker lock(&mutex());
        return store();
    }
    static void clear()
    {
        QMutexLocker lock(&mutex());
        store().clear();
    }
    // Lines that start with the prefix.
    static QStringList matching(const QString &prefix)
    {
        QStringList out;
        for (const QString &line : lines()) {
            if (line.startsWith(prefix))
                out << line;
        }
        return out;
    }

private:
    static void sink(const char *line)
    {
        QMutexLocker lock(&mutex());
        store().append(QString::fromUtf8(line));
    }
    static QMutex &mutex()
    {
        static QMutex m;
        return m;
    }
    static QStringList &store()
    {
        static QStringList s;
        return s;
    }
};
