#include "common/Text.h"

#include <QFile>
#include <QHash>

#include <atomic>

// Outside any namespace, as the resource's registration function is.
static void registerBuiltInLocale()
{
    Q_INIT_RESOURCE(locale);
}

namespace {

// One `Key="Value"` per line, as the host reads locale files: quotes around
// the value are optional, \n, \t and \" stand for a line break, a tab and
// a quote, '#' starts a comment.
QHash<QByteArray, QByteArray> parseIni(const QByteArray &data)
{
    QHash<QByteArray, QByteArray> texts;
    for (const QByteArray &rawLine : data.split('\n')) {
        const QByteArray line = rawLine.trimmed();
        const qsizetype equals = line.indexOf('=');
        if (line.isEmpty() || line.startsWith('#') || equals <= 0)
            continue;
        QByteArray value = line.mid(equals + 1).trimmed();
        if (value.size() >= 2 && value.startsWith('"') && value.endsWith('"'))
            value = value.mid(1, value.size() - 2);
        texts.insert(line.left(equals).trimmed(),
                     value.replace("\\n", "\n").replace("\\t", "\t").replace("\\\"", "\""));
    }
    return texts;
}

const char *builtInEnglish(const char *key)
{
    static const QHash<QByteArray, QByteArray> texts = [] {
        registerBuiltInLocale();
        QFile file(QStringLiteral(":/pennoria/locale/en-US.ini"));
        return file.open(QIODevice::ReadOnly) ? parseIni(file.readAll())
                                              : QHash<QByteArray, QByteArray>();
    }();
    const auto found = texts.constFind(QByteArray(key));
    return found == texts.constEnd() ? key : found->constData();
}

std::atomic<TextLookup> g_lookup{nullptr};

} // namespace

void setTextLookup(TextLookup lookup)
{
    g_lookup.store(lookup);
}

QString uiText(const char *key)
{
    const TextLookup lookup = g_lookup.load();
    return QString::fromUtf8((lookup ? lookup : builtInEnglish)(key));
}
