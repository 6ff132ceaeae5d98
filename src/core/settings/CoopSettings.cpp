#include "settings/CoopSettings.h"

#include "settings/SettingsKeys.h"

#include <QSettings>

namespace {

const QString NicknameKey = QLatin1String(SettingsKeys::Nickname);
const QString LastJoinIpKey = QLatin1String(SettingsKeys::LastJoinIp);

QSettings store()
{
    return openSettings(SettingsStore::Coop);
}

} // namespace

namespace CoopSettings {

QString nickname()
{
    return store().value(NicknameKey).toString();
}

void setNickname(const QString &nickname)
{
    store().setValue(NicknameKey, nickname);
}

QString lastJoinIp()
{
    return store().value(LastJoinIpKey).toString();
}

void setLastJoinIp(const QString &address)
{
    store().setValue(LastJoinIpKey, address);
}

} // namespace CoopSettings
