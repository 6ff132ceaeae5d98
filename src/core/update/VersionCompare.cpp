#include "update/VersionCompare.h"

#include <QStringList>
#include <QVector>

#include <limits>

namespace {

QVector<qint64> versionNumbers(const QString &text)
{
    constexpr qint64 Ceiling = std::numeric_limits<qint64>::max() / 10 - 9;
    QVector<qint64> numbers;
    const QStringList parts = text.trimmed().split(QLatin1Char('.'), Qt::SkipEmptyParts);
    for (const QString &part : parts) {
        qint64 value = 0;
        for (const QChar c : part) {
            if (c < QLatin1Char('0') || c > QLatin1Char('9'))
                break;
            // Absurdly long numbers saturate instead of overflowing.
            if (value < Ceiling)
                value = value * 10 + (c.unicode() - '0');
        }
        numbers.append(value);
    }
    return numbers;
}

} // namespace

bool isNewerVersion(const QString &a, const QString &b)
{
    const QVector<qint64> left = versionNumbers(a);
    const QVector<qint64> right = versionNumbers(b);
    const int count = int(std::max(left.size(), right.size()));
    for (int i = 0; i < count; ++i) {
        const qint64 l = i < left.size() ? left[i] : 0;
        const qint64 r = i < right.size() ? right[i] : 0;
        if (l != r)
            return l > r;
    }
    return false;
}
