#pragma once

#include <QObject>
#include <QPointer>
#include <QString>

class ConnectWindow;
class CoopSession;
class DrawingWindow;
struct HostAddress;

// The guest program: the connect window until the host welcomes the user,
// then the co-op editor until the session ends, then the connect window again
// with the reason. Closing the connect window ends the program.
class GuestApp : public QObject {
    Q_OBJECT

public:
    // session is the process-wide one, which the co-op editor draws through.
    explicit GuestApp(CoopSession &session, QObject *parent = nullptr);
    // Leaves a session still running and closes the editor.
    ~GuestApp() override;

    void start();

signals:
    // The user closed the connect window.
    void finished();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void onJoinRequested(const QString &address, const QString &nickname, const QString &password);
    void joinSession(const HostAddress &address, const QString &nickname, const QString &password);
    void onConnected();
    void onSessionOver();
    void onFailure(const QString &message);
    void onKicked(const QString &reason);
    // The user asked to close the editor; true when they left the session.
    bool leaveAfterAsking();

    CoopSession &m_session;
    ConnectWindow *m_connect;
    QPointer<DrawingWindow> m_editor;
};
