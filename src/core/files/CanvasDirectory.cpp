#include "files/CanvasDirectory.h"

#include "settings/SettingsKeys.h"

#include <QFileInfo>

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
    const QString base = QFileInfo(openSettings(SettingsStore::Canvas).fileName()).absolutePath();
    if (key.isEmpty())
        return base;
    return base + u'/' + sanitisedCanvasKey(key);
}
