#pragma once

#include "engine/Stroke.h"

#include <QAbstractSocket>
#include <QByteArray>
#include <QElapsedTimer>
#include <QHash>
#include <QImage>
#include <QJsonObject>
#include <QList>
#include <QMetaType>
#include <QObject>
#include <QSet>
#include <QString>
#include <QThreadPool>

#include <algorithm>
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

// What a host lets each connection cost. The defaults fit a streamer's
// friends drawing by hand with room to spare; an abuser hits them long before
// the host's UI or memory notices.
struct CoopHostLimits {
    int helloDeadlineMs = 10000;        // from connecting to being welcomed
    int partialFrameDeadlineMs = 10000; // a frame begun must be complete by then
    int maxConnections = 64;
    int maxConnectionsPerAddress = 8;
    int maxPeers = 32;
    // Per peer and second, each with one second of burst. A hand drawing at
    // 60 segments per second sends ~120 points and ~15 KB.
    double pointsPerSecond = 2000;
    double bytesPerSecond = 128 * 1024;
    // Paint cost in pixels (see coop::paintCost): per peer, and for all peers
    // together, shared evenly, so a crowd cannot outrun the painting thread.
    double paintPerSecond = 8e6;
    double paintPerSecondAll = 48e6;
    int framesPerTurn = 8;                     // then the next peer's turn
    qint64 maxPendingOutput = qint64(4) << 20; // beyond what a welcome takes
    // New connections per address and second (bursts up to the per-address
    // cap), so reconnecting in a loop gains nothing.
    double connectsPerSecond = 4;
    // After a wrong password or a broken message an address waits; each time
    // twice as long.
    int backoffMs = 2000;
    int maxBackoffMs = 60000;
};

// Chosen in the host dialog.
struct CoopHostOptions {
    QString password; // empty: an open session
    bool guestsMayClear = false;
};

// The co-op networking object: idle, hosting (a hub relaying between peers)
// or a client joined to one host. Lives on the main thread; key derivation and
// the welcome picture's encoding run on its own worker thread.
class CoopSession : public QObject {
    Q_OBJECT

public:
    enum class Role { None = 0, Host = 1, Client = 2 };
    Q_ENUM(Role)

    using CanvasProvider = std::function<QImage()>;
    // Hands the picture, with everything drawn before the call, to done; done
    // runs later on context's thread, and only while context exists.
    using CanvasSnapshot =
        std::function<void(QObject *context, std::function<void(const QImage &)> done)>;

    static CoopSession &instance();

    // Separate sessions are only useful to tests; the module uses instance().
    explicit CoopSession(QObject *parent = nullptr);
    ~CoopSession() override;

    bool host(const QString &nickname, quint16 port,
              const CoopHostOptions &options = CoopHostOptions());
    void join(const QString &address, const QString &nickname, quint16 port,
              const QString &password = QString());
    void stop();
    void kick(int id);
    void sendStroke(const Stroke &stroke);
    void sendClear();

    Role role() const { return m_role; }
    // The port a host listens on (hosting on port 0 picks a free one).
    quint16 hostPort() const;
    QString nickname() const { return m_nick; }
    int ownId() const { return m_myId; }
    QString lastError() const { return m_lastError; }
    // A client counts as connected only once the host has welcomed it.
    bool isWelcomed() const { return m_welcomed; }
    QList<CoopUser> users() const { return m_users; }
    // Whether the local user may clear the shared picture: the host always,
    // a guest when the host allows it (told in "welcome").
    bool mayClear() const;
    // Strokes refused since hosting began because a peer was over its budget.
    int droppedStrokes() const { return m_droppedStrokes; }
    void setCanvasProvider(CanvasProvider provider);
    void setCanvasSnapshot(CanvasSnapshot snapshot) { m_canvasSnapshot = std::move(snapshot); }
    void setHostLimits(const CoopHostLimits &limits) { m_limits = limits; }

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
    void onHousekeepingTick();

private:
    struct Peer;
    // A token bucket holding at most `capacity` tokens.
    struct Bucket {
        double tokens = 0;
        qint64 at = 0;
        void refill(double rate, double capacity, qint64 nowMs)
        {
            tokens = std::min(capacity, tokens + rate * double(nowMs - at) / 1000.0);
            at = nowMs;
        }
    };
    // What the host remembers of an address for the session.
    struct AddressRecord {
        int failures = 0;
        qint64 until = 0; // refused until then
        Bucket connects;
        bool seen = false;
    };

    // host
    Peer *findPeer(const QTcpSocket *socket) const;
    Peer *peerById(int id) const;
    bool refuseConnection(QTcpSocket *socket, const QString &address);
    void penalize(const QString &address);
    void updateAccepting();
    void servePeer(int id);
    void serveBusyPeers();
    bool serveTurn(Peer *peer);
    void dispatchFromPeer(Peer *peer, const QJsonObject &message);
    void onHello(Peer *peer, const QJsonObject &message);
    void onAuth(Peer *peer, const QJsonObject &message);
    void onPeerStroke(Peer *peer, const QJsonObject &message);
    void onPeerClear(Peer *peer);
    void onPong(Peer *peer, const QJsonObject &message);
    bool admitStroke(Peer *peer, const Stroke &stroke);
    void admitPeer(Peer *peer);
    void refusePeer(Peer *peer, QLatin1StringView code, const QString &reason);
    void removePeer(QTcpSocket *socket, const QString &reason, bool sendKick);
    void requestWelcomes();
    void sendWelcomes(const QList<int> &ids, const QByteArray &canvasBase64);
    void rebuildUsers();
    void broadcastUsers();
    void broadcast(const QByteArray &frame, const QTcpSocket *except = nullptr);
    void sendToPeer(Peer *peer, const QByteArray &frame);
    void checkPendingOutput(Peer *peer);
    int joinedPeers() const;
    qint64 now() const { return m_clock.elapsed(); }
    // client
    void sendTo(QTcpSocket *socket, const QByteArray &frame);
    void dispatchFromHost(const QJsonObject &message);
    void onChallenge(const QJsonObject &message);
    void endClient(const char *reason, const QString &error);
    // both
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
    CanvasSnapshot m_canvasSnapshot;

    // host state beyond the peers
    CoopHostLimits m_limits;
    CoopHostOptions m_options;
    QByteArray m_salt;
    QByteArray m_key; // empty until derived; open sessions have none
    QElapsedTimer m_clock;
    QTimer *m_housekeeping = nullptr;
    QTimer *m_usersTimer = nullptr;
    bool m_pingsChanged = false;
    QList<int> m_busyPeers;
    bool m_serveQueued = false;
    QSet<QString> m_banned; // address + nickname of kicked peers
    QHash<QString, AddressRecord> m_addresses;
    int m_droppedStrokes = 0;
    int m_refusedConnections = 0;
    QList<int> m_welcomeWaiters;
    bool m_welcomeBusy = false;
    qint64 m_welcomeKey = 0;
    QByteArray m_welcomeCanvas; // Base64 PNG of the picture with m_welcomeKey
    quint64 m_generation = 0;   // raised at every teardown; stale worker results see it

    // client state
    QString m_password;
    bool m_mayClear = true;

    QThreadPool m_worker;
};
