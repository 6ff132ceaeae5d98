#pragma once

#include "source/CoopFacet.h"

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

    // The button that toggles the pop-up and the canvas: a press on either
    // that closes the pop-up goes no further, so the button does not open it
    // again and the canvas does not paint.
    void setAnchor(QWidget *anchor) { m_anchor = anchor; }
    void setShielded(QWidget *widget) { m_shielded = widget; }

    // Replaces the header and rows; the old widgets are deleted later.
    void setUsers(const QList<CoopParticipant> &users, bool localIsHost);

    static QString displayName(const CoopParticipant &user);
    static QString rowName(const CoopParticipant &user);
    static QString pingText(const CoopParticipant &user);

signals:
    void kickRequested(int id);

protected:
    void mousePressEvent(QMouseEvent *event) override;

private:
    QWidget *buildRow(const CoopParticipant &user, bool localIsHost);

    QVBoxLayout *m_layout;
    QList<QWidget *> m_rows; // header first
    QPointer<QWidget> m_anchor;
    QPointer<QWidget> m_shielded;
};
