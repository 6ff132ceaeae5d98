#pragma once

#include <QString>

#include <functional>

class QWidget;

// How a co-op session's end reaches the user, the same in the dock and in the
// guest program: the session's failure texts (wrong password, other version,
// lost connection, an unreachable host) in a warning, a kick with the host's
// reason in an information box, and the question before leaving.
namespace CoopMessages {

QString title();

// Shown once the session has finished emitting, never inside its handler;
// closed (if given) runs after the box is dismissed.
void showFailure(QWidget *parent, const QString &message, std::function<void()> closed = {});
void showKick(QWidget *parent, const QString &reason, std::function<void()> closed = {});

// Asks before ending a session: stopping a hosted one or leaving a joined
// one. True when the user says Yes.
bool confirmEnd(QWidget *parent, bool hosting);

} // namespace CoopMessages
