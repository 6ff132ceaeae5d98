#include "coop/CoopSession.h"

#include "common/Log.h"
#include "coop/CoopProtocol.h"
#include "coop/StrokeJson.h"

#include <QDateTime>
#include <QHostAddress>
#include <QJsonArray>
#include <QPointer>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#include <algorithm>
#include <climits>
#include <cmath>

namespace {

constexpr int PingIntervalMs = 2000;
// A peer that stops reading while we keep writing to it would grow our memory
// without bound; past this much unsent data it is dropped.
constexpr qint64 MaxPendingOutput = qint64(256) << 20;

const QString KickedByHostDefault = QStringLiteral("You were kicked by the host.");
const QString KickedByHostSorry = QStringLiteral("You were kicked by the host. Sorry!");
const QString AlreadyActive = QStringLiteral("A co-op session is already active.");
const QString ProtocolError = QStringLiteral("Protocol error.");

QString typeOf(const QJsonObject &message)
{
    return message.value(QLatin1String("t")).toString();
}

QByteArray utf8(const QString &text)
{
    return text.toUtf8();
}

} // namespace

struct CoopSession::Peer {
    QTcpSocket *socket = nullptr;
    int id = 0;
    QString nick;
    coop::FrameDecoder rx;
    int pingMs = -1;
    qint64 lastPingSent = 0;
    bool joined = false;
    bool dropQueued = false;
};

CoopSession &CoopSession::instance()
{
    static CoopSession session;
    return session;
}

CoopSession::CoopSession(QObject *parent)
    : QObject(parent), m_rx(std::make_unique<coop::FrameDecoder>())
{
    qRegisterMetaType<Stroke>();
    qRegisterMetaType<CoopUser>();
    qRegisterMetaType<QList<CoopUser>>();
    qRegisterMetaType<CoopSession::Role>();
}

CoopSession::~CoopSession()
{
    // No signals while dying: receivers may already be gone.
    for (auto &peer : m_peers) {
        if (peer->socket) {
            peer->socket->disconnect(this);
            peer->socket->abort();
        }
    }
    m_peers.clear();
    if (m_socket) {
        m_socket->disconnect(this);
        m_socket->abort();
    }
}

QString CoopSession::sanitizeNickname(const QString &nickname)
{
    QString kept;
    int count = 0;
    for (char32_t c : nickname.toUcs4()) {
        if (count >= 32)
            break;
        if (c == U'\n' || c == U'\r' || c == U'\t' || !QChar::isPrint(c))
            continue;
        kept += QString::fromUcs4(&c, 1);
        ++count;
    }
    kept = kept.trimmed();
    return kept.isEmpty() ? QStringLiteral("Anon") : kept;
}

void CoopSession::setRole(Role role)
{
    if (m_role == role)
        return;
    m_role = role;
    emit roleChanged(role);
}

// ---- host ----------------------------------------------------------------

bool CoopSession::host(const QString &nickname, quint16 port)
{
    if (m_role != Role::None) {
        m_lastError = AlreadyActive;
        return false;
    }
    auto *server = new QTcpServer(this);
    if (!server->listen(QHostAddress::Any, port)) {
        m_lastError =
            QStringLiteral("Could not listen on port %1: %2").arg(port).arg(server->errorString());
        server->deleteLater();
        pdLog("[PD-Coop] host failed: %s", utf8(m_lastError).constData());
        return false;
    }
    m_server = server;
    connect(m_server, &QTcpServer::newConnection, this, &CoopSession::onNewConnection);
    m_nick = sanitizeNickname(nickname);
    m_myId = 0;
    m_lastError.clear();
    setRole(Role::Host);
    m_pingTimer = new QTimer(this);
    m_pingTimer->setInterval(PingIntervalMs);
    connect(m_pingTimer, &QTimer::timeout, this, &CoopSession::onPingTick);
    m_pingTimer->start();
    rebuildUsers();
    pdLog("[PD-Coop] hosting on port %u as '%s'", unsigned(port), utf8(m_nick).constData());
    emit hostingStarted();
    return true;
}

void CoopSession::onNewConnection()
{
    if (!m_server)
        return;
    while (QTcpSocket *socket = m_server->nextPendingConnection()) {
        if (m_role != Role::Host) {
            socket->abort();
            socket->deleteLater();
            continue;
        }
        // Frames are small and latency matters more than packet count: no
        // Nagle delay waiting for the peer's acknowledgement.
        socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        auto peer = std::make_unique<Peer>();
        peer->socket = socket;
        peer->id = m_nextPeerId++;
        const int id = peer->id;
        m_peers.push_back(std::move(peer));
        connect(socket, &QTcpSocket::readyRead, this, &CoopSession::onPeerReadyRead);
        connect(socket, &QTcpSocket::disconnected, this, &CoopSession::onPeerDisconnected);
        pdLog("[PD-Coop] peer connecting (id=%d) from %s", id,
              utf8(socket->peerAddress().toString()).constData());
    }
}

CoopSession::Peer *CoopSession::findPeer(const QTcpSocket *socket) const
{
    if (!socket)
        return nullptr;
    for (const auto &peer : m_peers)
        if (peer->socket == socket)
            return peer.get();
    return nullptr;
}

void CoopSession::onPeerReadyRead()
{
    auto *socket = qobject_cast<QTcpSocket *>(sender());
    Peer *peer = findPeer(socket);
    if (!peer || m_role != Role::Host)
        return;
    peer->rx.append(socket->readAll());
    readPeerFrames(socket);
}

void CoopSession::readPeerFrames(QTcpSocket *socket)
{
    // A message may end the session or remove this very peer, so both are
    // looked up again before every frame.
    while (m_role == Role::Host) {
        Peer *peer = findPeer(socket);
        if (!peer)
            return;
        QJsonObject message;
        switch (peer->rx.next(&message)) {
        case coop::FrameDecoder::Result::NeedMore:
            return;
        case coop::FrameDecoder::Result::Oversize:
            removePeer(socket, QStringLiteral("oversize frame"), false);
            return;
        case coop::FrameDecoder::Result::BadJson:
            removePeer(socket, QStringLiteral("bad json"), false);
            return;
        case coop::FrameDecoder::Result::Message:
            dispatchFromPeer(peer, message);
            break;
        }
    }
}

void CoopSession::dispatchFromPeer(Peer *peer, const QJsonObject &message)
{
    const QString type = typeOf(message);
    QTcpSocket *socket = peer->socket;
    if (!peer->joined) {
        if (type != QLatin1String("hello"))
            return;
        peer->nick = sanitizeNickname(message.value(QLatin1String("nick")).toString());
        peer->joined = true;
        QJsonObject welcome{{QStringLiteral("t"), QStringLiteral("welcome")},
                            {QStringLiteral("id"), peer->id}};
        if (m_canvasProvider) {
            const QImage canvas = m_canvasProvider();
            if (!canvas.isNull())
                welcome.insert(QStringLiteral("canvas"), coop::encodeCanvas(canvas));
        }
        sendTo(socket, coop::encodeFrame(welcome));
        pdLog("[PD-Coop] peer id=%d joined as '%s'", peer->id, utf8(peer->nick).constData());
        rebuildUsers();
        return;
    }

    if (type == QLatin1String("stroke")) {
        Stroke stroke;
        if (!coop::strokeFromJson(message.value(QLatin1String("stroke")), &stroke))
            return;
        const QString from = peer->nick;
        emit strokeReceived(stroke, from);
        if (m_role != Role::Host)
            return;
        QJsonObject relayed = message;
        relayed.insert(QStringLiteral("from"), from);
        broadcast(relayed, socket);
    } else if (type == QLatin1String("clear")) {
        const QString from = peer->nick;
        emit clearReceived(from);
        if (m_role != Role::Host)
            return;
        broadcast(QJsonObject{{QStringLiteral("t"), QStringLiteral("clear")},
                              {QStringLiteral("from"), from}},
                  socket);
    } else if (type == QLatin1String("pong")) {
        const double ts = message.value(QLatin1String("ts")).toDouble(0.0);
        if (!std::isfinite(ts) || std::fabs(ts) >= 9.0e18)
            return;
        const qint64 echoed = qint64(ts);
        if (peer->lastPingSent == 0 || echoed != peer->lastPingSent)
            return;
        const qint64 rtt = QDateTime::currentMSecsSinceEpoch() - echoed;
        peer->pingMs = int(std::clamp<qint64>(rtt, 0, INT_MAX));
        rebuildUsers();
    } else if (type == QLatin1String("bye")) {
        removePeer(socket, QStringLiteral("left"), false);
    }
}

void CoopSession::onPeerDisconnected()
{
    auto *socket = qobject_cast<QTcpSocket *>(sender());
    if (findPeer(socket))
        removePeer(socket, QStringLiteral("disconnected"), false);
}

void CoopSession::removePeer(QTcpSocket *socket, const QString &reason, bool sendKick)
{
    const auto it = std::find_if(m_peers.begin(), m_peers.end(),
                                 [socket](const auto &peer) { return peer->socket == socket; });
    if (it == m_peers.end())
        return;
    if (sendKick && socket->state() == QAbstractSocket::ConnectedState) {
        socket->write(coop::encodeFrame(QJsonObject{{QStringLiteral("t"), QStringLiteral("kick")},
                                                    {QStringLiteral("reason"), reason}}));
        socket->flush();
    }
    std::unique_ptr<Peer> record = std::move(*it);
    m_peers.erase(it);
    socket->disconnect(this);
    socket->abort();
    socket->deleteLater();
    record.reset();
    if (m_role == Role::Host)
        rebuildUsers();
}

void CoopSession::kick(int id)
{
    if (m_role != Role::Host)
        return;
    for (const auto &peer : m_peers) {
        if (peer->id == id) {
            pdLog("[PD-Coop] kicking id=%d ('%s')", id, utf8(peer->nick).constData());
            removePeer(peer->socket, KickedByHostSorry, true);
            return;
        }
    }
}

void CoopSession::rebuildUsers()
{
    m_users.clear();
    m_users.append(CoopUser{0, m_nick, 0, true, true});
    QJsonArray list;
    list.append(QJsonObject{{QStringLiteral("id"), 0},
                            {QStringLiteral("nick"), m_nick},
                            {QStringLiteral("ping"), 0},
                            {QStringLiteral("host"), true}});
    for (const auto &peer : m_peers) {
        if (!peer->joined)
            continue;
        m_users.append(CoopUser{peer->id, peer->nick, peer->pingMs, false, false});
        list.append(QJsonObject{{QStringLiteral("id"), peer->id},
                                {QStringLiteral("nick"), peer->nick},
                                {QStringLiteral("ping"), peer->pingMs},
                                {QStringLiteral("host"), false}});
    }
    broadcast(QJsonObject{{QStringLiteral("t"), QStringLiteral("users")},
                          {QStringLiteral("users"), list}});
    emit usersChanged(m_users);
}

void CoopSession::broadcast(const QJsonObject &message, const QTcpSocket *except)
{
    const QByteArray frame = coop::encodeFrame(message);
    for (const auto &peer : m_peers)
        if (peer->socket != except)
            sendTo(peer->socket, frame);
}

void CoopSession::sendTo(QTcpSocket *socket, const QByteArray &frame)
{
    if (!socket || socket->state() != QAbstractSocket::ConnectedState)
        return;
    socket->write(frame);
    if (m_role != Role::Host || socket->bytesToWrite() <= MaxPendingOutput)
        return;
    Peer *peer = findPeer(socket);
    if (!peer || peer->dropQueued)
        return;
    // Not removed here: we may be inside a loop over the peers.
    peer->dropQueued = true;
    QPointer<QTcpSocket> guard(socket);
    QMetaObject::invokeMethod(
        this,
        [this, guard] {
            if (guard && m_role == Role::Host && findPeer(guard))
                removePeer(guard, QStringLiteral("stalled"), false);
        },
        Qt::QueuedConnection);
}

void CoopSession::onPingTick()
{
    if (m_role != Role::Host)
        return;
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    const QByteArray frame = coop::encodeFrame(QJsonObject{
        {QStringLiteral("t"), QStringLiteral("ping")}, {QStringLiteral("ts"), double(now)}});
    for (const auto &peer : m_peers) {
        if (!peer->joined || !peer->socket)
            continue;
        peer->lastPingSent = now;
        sendTo(peer->socket, frame);
    }
}

// ---- both ----------------------------------------------------------------

void CoopSession::sendStroke(const Stroke &stroke)
{
    if (m_role == Role::None)
        return;
    QJsonObject message{{QStringLiteral("t"), QStringLiteral("stroke")},
                        {QStringLiteral("stroke"), coop::strokeToJson(stroke)}};
    if (m_role == Role::Client) {
        sendTo(m_socket, coop::encodeFrame(message));
    } else {
        message.insert(QStringLiteral("from"), m_nick);
        broadcast(message);
    }
}

void CoopSession::sendClear()
{
    if (m_role == Role::None)
        return;
    QJsonObject message{{QStringLiteral("t"), QStringLiteral("clear")}};
    if (m_role == Role::Client) {
        sendTo(m_socket, coop::encodeFrame(message));
    } else {
        message.insert(QStringLiteral("from"), m_nick);
        broadcast(message);
    }
}

void CoopSession::stop()
{
    if (m_role == Role::None)
        return;
    pdLog("[PD-Coop] session stopped by local user");
    teardown("stopped", true);
}

void CoopSession::teardown(const char *reason, bool announce)
{
    Q_UNUSED(reason);
    if (m_pingTimer) {
        m_pingTimer->stop();
        m_pingTimer->deleteLater();
        m_pingTimer = nullptr;
    }
    std::vector<std::unique_ptr<Peer>> peers = std::move(m_peers);
    m_peers.clear();
    for (auto &peer : peers) {
        peer->socket->disconnect(this);
        peer->socket->abort();
        peer->socket->deleteLater();
    }
    peers.clear();
    if (m_server) {
        m_server->disconnect(this);
        m_server->close();
        m_server->deleteLater();
        m_server = nullptr;
    }
    m_nextPeerId = 1;
    if (m_socket) {
        m_socket->disconnect(this);
        m_socket->abort();
        m_socket->deleteLater();
        m_socket = nullptr;
    }
    m_rx->clear();
    m_welcomed = false;
    m_myId = 0;
    m_users.clear();
    const Role oldRole = m_role;
    setRole(Role::None);
    emit usersChanged(m_users);
    if (announce && oldRole != Role::None)
        emit sessionEnded();
}

// ---- client --------------------------------------------------------------

void CoopSession::join(const QString &address, const QString &nickname, quint16 port)
{
    if (m_role != Role::None) {
        emit connectionError(AlreadyActive);
        return;
    }
    m_nick = sanitizeNickname(nickname);
    m_welcomed = false;
    m_rx->clear();
    m_lastError.clear();
    m_socket = new QTcpSocket(this);
    connect(m_socket, &QTcpSocket::connected, this, &CoopSession::onClientConnected);
    connect(m_socket, &QTcpSocket::readyRead, this, &CoopSession::onClientReadyRead);
    connect(m_socket, &QTcpSocket::disconnected, this, &CoopSession::onClientDisconnected);
    connect(m_socket, &QTcpSocket::errorOccurred, this, &CoopSession::onClientErrorOccurred);
    setRole(Role::Client);
    pdLog("[PD-Coop] joining %s:%u as '%s'", utf8(address).constData(), unsigned(port),
          utf8(m_nick).constData());
    m_socket->connectToHost(address, port, QIODevice::ReadWrite, QAbstractSocket::AnyIPProtocol);
}

void CoopSession::onClientConnected()
{
    if (m_role != Role::Client || sender() != m_socket)
        return;
    m_socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    sendTo(m_socket, coop::encodeFrame(QJsonObject{{QStringLiteral("t"), QStringLiteral("hello")},
                                                   {QStringLiteral("nick"), m_nick},
                                                   {QStringLiteral("ver"), 1}}));
}

void CoopSession::onClientReadyRead()
{
    if (m_role != Role::Client || !m_socket || sender() != m_socket)
        return;
    m_rx->append(m_socket->readAll());
    while (m_role == Role::Client) {
        QJsonObject message;
        switch (m_rx->next(&message)) {
        case coop::FrameDecoder::Result::NeedMore:
            return;
        case coop::FrameDecoder::Result::Oversize:
            teardown("oversize", true);
            emit connectionError(ProtocolError);
            return;
        case coop::FrameDecoder::Result::BadJson:
            teardown("bad json", true);
            emit connectionError(ProtocolError);
            return;
        case coop::FrameDecoder::Result::Message:
            dispatchFromHost(message);
            break;
        }
    }
}

void CoopSession::dispatchFromHost(const QJsonObject &message)
{
    const QString type = typeOf(message);
    if (type == QLatin1String("welcome")) {
        m_myId = message.value(QLatin1String("id")).toInt(0);
        m_welcomed = true;
        const QJsonValue canvas = message.value(QLatin1String("canvas"));
        if (canvas.isString()) {
            const QImage image = coop::decodeCanvas(canvas.toString());
            if (!image.isNull())
                emit canvasStateReceived(image);
        }
        if (m_role != Role::Client)
            return;
        pdLog("[PD-Coop] welcomed by host (my id=%d)", m_myId);
        emit connectedToHost();
    } else if (type == QLatin1String("users")) {
        QList<CoopUser> users;
        for (const QJsonValue &entry : message.value(QLatin1String("users")).toArray()) {
            const QJsonObject o = entry.toObject();
            CoopUser user;
            user.id = o.value(QLatin1String("id")).toInt(0);
            user.nick = o.value(QLatin1String("nick")).toString();
            user.pingMs = o.value(QLatin1String("ping")).toInt(-1);
            user.isHost = o.value(QLatin1String("host")).toBool(false);
            user.isSelf = m_welcomed && user.id == m_myId;
            users.append(user);
        }
        m_users = users;
        emit usersChanged(m_users);
    } else if (type == QLatin1String("stroke")) {
        Stroke stroke;
        if (coop::strokeFromJson(message.value(QLatin1String("stroke")), &stroke))
            emit strokeReceived(stroke, message.value(QLatin1String("from")).toString());
    } else if (type == QLatin1String("clear")) {
        emit clearReceived(message.value(QLatin1String("from")).toString());
    } else if (type == QLatin1String("ping")) {
        QJsonObject pong{{QStringLiteral("t"), QStringLiteral("pong")}};
        pong.insert(QStringLiteral("ts"), message.value(QLatin1String("ts")));
        sendTo(m_socket, coop::encodeFrame(pong));
    } else if (type == QLatin1String("kick")) {
        const QJsonValue value = message.value(QLatin1String("reason"));
        const QString reason = value.isString() ? value.toString() : KickedByHostDefault;
        pdLog("[PD-Coop] kicked: %s", utf8(reason).constData());
        teardown("kicked", true);
        emit kicked(reason);
    }
}

void CoopSession::onClientErrorOccurred(QAbstractSocket::SocketError)
{
    auto *socket = qobject_cast<QTcpSocket *>(sender());
    if (m_role != Role::Client || !socket || socket != m_socket)
        return;
    const QString text = socket->errorString();
    pdLog("[PD-Coop] join error: %s", utf8(text).constData());
    if (m_welcomed)
        return;
    teardown("connect failed", false);
    emit connectionError(text);
}

void CoopSession::onClientDisconnected()
{
    if (m_role != Role::Client || sender() != m_socket)
        return;
    pdLog("[PD-Coop] disconnected from host");
    const bool wasWelcomed = m_welcomed;
    teardown("host gone", true);
    emit connectionError(wasWelcomed ? QStringLiteral("Lost connection to the host.")
                                     : QStringLiteral("Could not connect to the host."));
}
