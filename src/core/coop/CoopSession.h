#pragma once

#include "engine/Stroke.h"

#include <QAbstractSocket>
#include <QImage>
#include <QJsonObject>
#include <QList>
#include <QMetaType>
#include <QObject>
#include <QString>

#include <functional>
#include <memory>
#include <vector>

class QTcpServer;
class QTcpSocket;
class QTimer;

namespace coop {
class FrameDecoder;
}

// One participant of a co-op session.
struct CoopUser {
    int id = 0;
    QString nick;
    int pingMs = -1;
    bool isHost = false;
    bool isSelf = false;
};

Q_DECLARE_METATYPE(CoopUser)

// The co-op networking object: idle, hosting (a hub relaying between peers)
// or a client joined to one host. Lives on the main thread.
class CoopSession : public QObject {
    Q_OBJECT

public:
    enum class Role { None = 0, Host = 1, Client = 2 };
    Q_ENUM(Role)

    using CanvasProvider = std::function<QImage()>;

    static CoopSession &instance();

    // Separate sessions are only useful to tests; the module uses instance().
    explicit CoopSession(QObject *parent = nullptr);
    ~CoopSession() override;

    bool host(const QString &nickname, quint16 port);
    void join(const QString &address, const QString &nickname, quint16 port);
    void stop();
    void kick(int id);
    void sendStroke(const Stroke &stroke);
    void sendClear();

    Role role() const { return m_role; }
    QString nickname() const { return m_nick; }
    int ownId() const { return m_myId; }
    QString lastError() const { return m_lastError; }
    // A client counts as connected only once the host has welcomed it.
    bool isWelcomed() const { return m_welcomed; }
    QList<CoopUser> users() const { return m_users; }
    void setCanvasProvider(CanvasProvider provider) { m_canvasProvider = std::move(provider); }

    static QString sanitizeNickname(const QString &nickname);

signals:
    void roleChanged(CoopSession::Role role);
    void hostingStarted();
    void connectedToHost();
    void connectionError(const QString &message);
    void sessionEnded();
    void strokeReceived(const Stroke &stroke, const QString &fromNick);
    void clearReceived(const QString &fromNick);
    void canvasStateReceived(const QImage &image);
    void usersChanged(const QList<CoopUser> &users);
    void kicked(const QString &reason);

private slots:
    void onNewConnection();
    void onPeerReadyRead();
    void onPeerDisconnected();
    void onClientConnected();
    void onClientReadyRead();
    void onClientErrorOccurred(QAbstractSocket::SocketError error);
    void onClientDisconnected();
    void onPingTick();

private:
    struct Peer;

    Peer *findPeer(const QTcpSocket *socket) const;
    void readPeerFrames(QTcpSocket *socket);
    void dispatchFromPeer(Peer *peer, const QJsonObject &message);
    void removePeer(QTcpSocket *socket, const QString &reason, bool sendKick);
    void rebuildUsers();
    void broadcast(const QJsonObject &message, const QTcpSocket *except = nullptr);
    void sendTo(QTcpSocket *socket, const QByteArray &frame);
    void dispatchFromHost(const QJsonObject &message);
    void teardown(const char *reason, bool announce);
    void setRole(Role role);

    Role m_role = Role::None;
    QString m_nick;
    int m_myId = 0;
    QString m_lastError;
    QTcpServer *m_server = nullptr;
    std::vector<std::unique_ptr<Peer>> m_peers;
    int m_nextPeerId = 1;
    QTcpSocket *m_socket = nullptr;
    std::unique_ptr<coop::FrameDecoder> m_rx;
    bool m_welcomed = false;
    QList<CoopUser> m_users;
    QTimer *m_pingTimer = nullptr;
    CanvasProvider m_canvasProvider;
};
