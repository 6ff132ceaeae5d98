#include "editor/CoopUsersPopup.h"

#include "common/Text.h"
#include "editor/EditorStyle.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>
#include <QToolButton>
#include <QVBoxLayout>

CoopUsersPopup::CoopUsersPopup(QWidget *parent) : QFrame(parent, Qt::Popup)
{
    setObjectName(QStringLiteral("coopUsersPopup"));
    setFrameStyle(QFrame::Box | QFrame::Plain);
    setStyleSheet(EditorStyle::popupStyle(objectName(), palette()));
    m_layout = new QVBoxLayout(this);
    m_layout->setContentsMargins(8, 8, 8, 8);
    setMinimumWidth(220);
}

QString CoopUsersPopup::displayName(const CoopParticipant &user)
{
    return user.nick.isEmpty() ? uiText("Coop.Anon") : user.nick;
}

QString CoopUsersPopup::rowName(const CoopParticipant &user)
{
    QString name = displayName(user);
    if (user.isHost)
        name += QStringLiteral("  ") + uiText("Users.Host");
    if (user.isSelf)
        name += QStringLiteral("  ") + uiText("Users.You");
    return name;
}

QString CoopUsersPopup::pingText(const CoopParticipant &user)
{
    if (user.isSelf)
        return QStringLiteral("\u2014");
    if (user.pingMs < 0)
        return QStringLiteral("\u2026");
    return uiText("Users.Ping").arg(user.pingMs);
}

void CoopUsersPopup::setUsers(const QList<CoopParticipant> &users, bool localIsHost)
{
    for (QWidget *widget : std::as_const(m_rows)) {
        m_layout->removeWidget(widget);
        widget->hide();
        widget->deleteLater();
    }
    m_rows.clear();

    // Shown at once rather than by the layout's queued show, so that the size
    // is right as soon as the rows are in.
    auto *header = new QLabel(uiText("Users.Header").arg(users.size()), this);
    header->setObjectName(QStringLiteral("usersHeader"));
    m_rows.append(header);
    for (const CoopParticipant &user : users)
        m_rows.append(buildRow(user, localIsHost));
    for (QWidget *row : std::as_const(m_rows)) {
        m_layout->addWidget(row);
        row->show();
    }
}

QWidget *CoopUsersPopup::buildRow(const CoopParticipant &user, bool localIsHost)
{
    auto *row = new QWidget(this);
    row->setObjectName(QStringLiteral("userRow"));
    auto *layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(6);
    layout->addWidget(new QLabel(rowName(user), row));
    // In the palette's own text colour: a toned-down one leaves "…" unreadable.
    layout->addWidget(new QLabel(pingText(user), row));
    if (localIsHost && !user.isSelf) {
        auto *kick = new QToolButton(row);
        kick->setAutoRaise(true);
        kick->setText(QStringLiteral("\u2715"));
        kick->setToolTip(uiText("Users.Tooltip.Kick").arg(displayName(user)));
        const int id = user.id;
        connect(kick, &QToolButton::clicked, this, [this, id] { emit kickRequested(id); });
        layout->addWidget(kick);
    }
    return row;
}

void CoopUsersPopup::mousePressEvent(QMouseEvent *event)
{
    const QPoint globalPos = event->globalPosition().toPoint();
    bool guardedHit = false;
    for (const QWidget *guarded : {m_anchor.data(), m_shielded.data()}) {
        if (guarded && guarded->isVisible() &&
            QRect(guarded->mapToGlobal(QPoint(0, 0)), guarded->size()).contains(globalPos))
            guardedHit = true;
    }
    setAttribute(Qt::WA_NoMouseReplay, guardedHit);
    QFrame::mousePressEvent(event);
}
