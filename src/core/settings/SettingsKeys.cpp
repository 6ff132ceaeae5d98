#include "settings/SettingsKeys.h"

#include <QString>

#include <algorithm>

QSettings openSettings(SettingsStore store)
{
    return QSettings(QStringLiteral("PennoriaDraw"), store == SettingsStore::Coop
                                                         ? QStringLiteral("Coop")
                                                         : QStringLiteral("Canvas"));
}

int readSetting(const QSettings &store, const SettingsKeys::IntKey &key)
{
    const int value = store.value(QLatin1String(key.name), key.fallback).toInt();
    return std::clamp(value, key.low, key.high);
}

bool readSetting(const QSettings &store, const SettingsKeys::BoolKey &key)
{
    return store.value(QLatin1String(key.name), key.fallback).toBool();
}
