#pragma once

#include <QString>

// What the co-op dialogs remember between sessions, in the per-user
// "PennoriaDraw"/"Coop" store: the nickname and the last host joined.
namespace CoopSettings {

QString nickname();
void setNickname(const QString &nickname);
QString lastJoinIp();
void setLastJoinIp(const QString &address);

} // namespace CoopSettings
