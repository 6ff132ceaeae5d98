#pragma once

#include <QDialog>

class QLabel;
class QLineEdit;
class QPushButton;

// The guest program's first window: the host's address, a nickname and the
// session's password. The address and the nickname are remembered for next
// time when the user joins.
class ConnectWindow : public QDialog {
    Q_OBJECT

public:
    explicit ConnectWindow(QWidget *parent = nullptr);

    // While a connection is being made the fields are locked and Cancel
    // abandons the attempt instead of closing the window.
    void setConnecting(bool connecting);

signals:
    // address as typed (trimmed), nickname trimmed or "Anon".
    void joinRequested(const QString &address, const QString &nickname, const QString &password);
    void cancelRequested();

private:
    void onJoinClicked();
    void onCancelClicked();
    void updateJoinButton();

    QLineEdit *m_addressEdit;
    QLineEdit *m_nicknameEdit;
    QLineEdit *m_passwordEdit;
    QLabel *m_status;
    QPushButton *m_joinButton;
    QPushButton *m_cancelButton;
    bool m_connecting = false;
};
