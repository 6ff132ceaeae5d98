#include "settings/CoopSettings.h"

#include <QSettings>

namespace {

const QString NicknameKey = QStringLiteral("nickname");
const QString LastJoinIpKey = QStringLiteral("lastJoinIp");

QSettings store()
{
    return QSettings(QStringLiteral("PennoriaDraw"), QStringLiteral("Coop"));
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
