#include "editor/CoopUsersPopup.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>
#include <QToolButton>
#include <QVBoxLayout>

CoopUsersPopup::CoopUsersPopup(QWidget *parent) : QFrame(parent, Qt::Popup)
{
    setObjectName(QStringLiteral("coopUsersPopup"));
    setFrameStyle(QFrame::Box | QFrame::Plain);
    setStyleSheet(QStringLiteral("#coopUsersPopup { background: palette(window); border: 1px "
                                 "solid palette(mid); border-radius: 4px; }"));
    m_layout = new QVBoxLayout(this);
    m_layout->setContentsMargins(8, 8, 8, 8);
    setMinimumWidth(220);
}

QString CoopUsersPopup::displayName(const CoopUser &user)
{
    return user.nick.isEmpty() ? QStringLiteral("Anon") : user.nick;
}

QString CoopUsersPopup::rowName(const CoopUser &user)
{
    QString name = displayName(user);
    if (user.isHost)
        name += QStringLiteral("  (host)");
    if (user.isSelf)
        name += QStringLiteral("  (you)");
    return name;
}

QString CoopUsersPopup::pingText(const CoopUser &user)
{
    if (user.isSelf)
        return QStringLiteral("\u2014");
    if (user.pingMs < 0)
        return QStringLiteral("\u2026");
    return QStringLiteral("%1 ms").arg(user.pingMs);
}

void CoopUsersPopup::setUsers(const QList<CoopUser> &users, bool localIsHost)
{
    QList<QWidget *> old = m_rows;
    if (m_header)
        old.prepend(m_header);
    for (QWidget *widget : old) {
        m_layout->removeWidget(widget);
        widget->hide();
        widget->deleteLater();
    }
    m_rows.clear();

    // Shown at once rather than by the layout's queued show, so that the size
    // is right as soon as the rows are in.
    m_header = new QLabel(QStringLiteral("<b>Connected \u2014 %1</b>").arg(users.size()), this);
    m_layout->addWidget(m_header);
    m_header->show();
    for (const CoopUser &user : users) {
        QWidget *row = buildRow(user, localIsHost);
        m_layout->addWidget(row);
        row->show();
        m_rows.append(row);
    }
}

QWidget *CoopUsersPopup::buildRow(const CoopUser &user, bool localIsHost)
{
    auto *row = new QWidget(this);
    auto *layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(6);
    layout->addWidget(new QLabel(rowName(user), row));
    auto *ping = new QLabel(pingText(user), row);
    ping->setStyleSheet(QStringLiteral("color: palette(mid);"));
    layout->addWidget(ping);
    if (localIsHost && !user.isSelf) {
        auto *kick = new QToolButton(row);
        kick->setAutoRaise(true);
        kick->setText(QStringLiteral("\u2715"));
        kick->setToolTip(QStringLiteral("Kick %1").arg(displayName(user)));
        const int id = user.id;
        connect(kick, &QToolButton::clicked, this, [this, id] { emit kickRequested(id); });
        layout->addWidget(kick);
    }
    return row;
}

void CoopUsersPopup::mousePressEvent(QMouseEvent *event)
{
    if (m_anchor) {
        const QRect anchorRect(m_anchor->mapToGlobal(QPoint(0, 0)), m_anchor->size());
        if (anchorRect.contains(event->globalPosition().toPoint()))
            setAttribute(Qt::WA_NoMouseReplay);
    }
    QFrame::mousePressEvent(event);
}

void CoopUsersPopup::hideEvent(QHideEvent *event)
{
    QFrame::hideEvent(event);
    emit closed();
}
