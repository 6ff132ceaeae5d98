#include "files/CanvasDirectory.h"

#include <QFileInfo>
#include <QSettings>

QString sanitisedCanvasKey(const QString &key)
{
    QString out = key;
    for (QChar &c : out) {
        if (!(c.isLetterOrNumber() || c == u'_' || c == u'-' || c == u'.'))
            c = u'_';
    }
    return out;
}

QString canvasDirectory(const QString &key)
{
    const QString base =
        QFileInfo(QSettings(QStringLiteral("PennoriaDraw"), QStringLiteral("Canvas")).fileName())
            .absolutePath();
    if (key.isEmpty())
        return base;
    return base + u'/' + sanitisedCanvasKey(key);
}
