#pragma once

#include "coop/CoopProtocol.h"

#include <QDialog>

class QLineEdit;

// The co-op port, fixed for hosting and joining alike.
constexpr quint16 CoopPort = coop::DefaultPort;

// Host or join, and under which nickname.
class CoopModeDialog : public QDialog {
    Q_OBJECT

public:
    enum class Choice { None, Host, Join };

    CoopModeDialog(QWidget *parent, const QString &nickname);

    Choice choice() const { return m_choice; }
    // The nickname without surrounding white space; "Anon" when blank.
    QString nickname() const;

private:
    QLineEdit *m_nicknameEdit = nullptr;
    Choice m_choice = Choice::None;
};

// Asks a joiner for the host's address.
class JoinDialog : public QDialog {
    Q_OBJECT

public:
    JoinDialog(QWidget *parent, const QString &address);

    // The address without surrounding white space; not checked further.
    QString address() const;

private:
    QLineEdit *m_addressEdit = nullptr;
};
