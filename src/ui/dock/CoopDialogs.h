#pragma once

#include "coop/CoopProtocol.h"

#include <QDialog>

class QCheckBox;
class QLineEdit;

// Host or join, under which nickname, and for a host the session's password
// and whether guests may clear the picture.
class CoopModeDialog : public QDialog {
    Q_OBJECT

public:
    enum class Choice { None, Host, Join };

    CoopModeDialog(QWidget *parent, const QString &nickname);

    Choice choice() const { return m_choice; }
    // The nickname without surrounding white space; "Anon" when blank.
    QString nickname() const;
    // Proposed at random; empty when the host cleared it for an open session.
    QString password() const;
    bool guestsMayClear() const;

private:
    QLineEdit *m_nicknameEdit = nullptr;
    QLineEdit *m_passwordEdit = nullptr;
    QCheckBox *m_guestsMayClearBox = nullptr;
    Choice m_choice = Choice::None;
};

// Asks a joiner for the host's address and the session's password.
class JoinDialog : public QDialog {
    Q_OBJECT

public:
    JoinDialog(QWidget *parent, const QString &address);

    // The address without surrounding white space; not checked further.
    QString address() const;
    QString password() const;

private:
    QLineEdit *m_addressEdit = nullptr;
    QLineEdit *m_passwordEdit = nullptr;
};
