#pragma once

#include "coop/CoopSession.h"

#include <QFrame>
#include <QList>
#include <QPointer>

class QLabel;
class QVBoxLayout;

// The co-op editor's list of everyone in the session with their round-trip
// time; the host gets a kick button on every row but its own. A top-level
// pop-up that closes on a press outside it.
class CoopUsersPopup : public QFrame {
    Q_OBJECT

public:
    explicit CoopUsersPopup(QWidget *parent = nullptr);

    // The button that toggles the pop-up: a press on it closes the pop-up
    // without reaching the button, so the button does not open it again.
    void setAnchor(QWidget *anchor) { m_anchor = anchor; }

    // Replaces the header and rows; the old widgets are deleted later.
    void setUsers(const QList<CoopUser> &users, bool localIsHost);

    QVBoxLayout *usersLayout() const { return m_layout; }
    QLabel *header() const { return m_header; }
    // One widget per user, in the session's order: name label, ping label and,
    // for the host, a kick button.
    const QList<QWidget *> &rows() const { return m_rows; }

    static QString displayName(const CoopUser &user);
    static QString rowName(const CoopUser &user);
    static QString pingText(const CoopUser &user);

signals:
    void kickRequested(int id);
    void closed();

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void hideEvent(QHideEvent *event) override;

private:
    QWidget *buildRow(const CoopUser &user, bool localIsHost);

    QVBoxLayout *m_layout;
    QLabel *m_header = nullptr;
    QList<QWidget *> m_rows;
    QPointer<QWidget> m_anchor;
};
