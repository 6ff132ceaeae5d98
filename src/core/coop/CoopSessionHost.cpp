// The host side of the session: the door (limits, password, bans), fair
// service of the peers' frames, budgets, relaying and the welcome picture.
#include "coop/CoopSession.h"

#include "common/Log.h"
#include "common/Text.h"
#include "coop/CoopPeer.h"
#include "coop/CoopProtocol.h"
#include "coop/StrokeJson.h"

#include <QDateTime>
#include <QHostAddress>
#include <QJsonArray>
#include <QJsonDocument>
#include <QPointer>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#include <algorithm>
#include <climits>
#include <cmath>

namespace Key = coop::Key;
namespace Type = coop::Type;
namespace Code = coop::Code;

namespace {

constexpr int PingIntervalMs = 2000;
constexpr int HousekeepingMs = 250;
// Joins and leaves in a burst go out as one list.
constexpr int UsersDelayMs = 100;
// Unread input Qt keeps per peer; beyond it the kernel's window throttles the
// sender.
constexpr qint64 ReadBufferBytes = 64 * 1024;
// A fill or a shape is charged as a whole 1080p picture.
constexpr double PictureArea = 1920.0 * 1080.0;
// Before joining a peer has only a hello and a password proof to say.
constexpr qsizetype MaxBytesBeforeJoining = 4096;
// A refused socket gets this long to take its message before it is cut.
constexpr int CloseGraceMs = 2000;

QString addressText(const QHostAddress &address)
{
    bool isV4 = false;
    const quint32 v4 = address.toIPv4Address(&isV4);
    return isV4 ? QHostAddress(v4).toString() : address.toString();
}

QString banKey(const QString &address, const QString &nick)
{
    return address + QLatin1Char('\n') + nick.toCaseFolded();
}

QByteArray kickFrame(QLatin1StringView code, const QString &reason)
{
    return coop::encodeFrame(
        QJsonObject{{Key::Type, Type::Kick}, {Key::Code, code}, {Key::Reason, reason}});
}

// Sends the last frame, then closes once it is written (or after a grace).
void closeWithMessage(QTcpSocket *socket, const QByteArray &frame)
{
    socket->write(frame);
    socket->disconnectFromHost();
    QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
    QTimer::singleShot(CloseGraceMs, socket, [socket] {
        socket->abort();
        socket->deleteLater();
    });
}

} // namespace

// ---- the door --------------------------------------------------------------

bool CoopSession::host(const QString &nickname, quint16 port, const CoopHostOptions &options)
{
    if (m_role != Role::None) {
        m_lastError = QStringLiteral("A co-op session is already active.");
        return false;
    }
    auto *server = new QTcpServer(this);
    if (!server->listen(QHostAddress::Any, port)) {
        m_lastError = uiText("Coop.Error.CannotListen").arg(port).arg(server->errorString());
        server->deleteLater();
        pdLog("[PD-Coop] host failed: %s", m_lastError.toUtf8().constData());
        return false;
    }
    m_server = server;
    connect(m_server, &QTcpServer::newConnection, this, &CoopSession::onNewConnection);
    m_nick = sanitizeNickname(nickname);
    m_myId = 0;
    m_lastError.clear();
    m_options = options;
    m_salt = coop::randomBytes(16);
    m_key.clear();
    if (!options.password.isEmpty()) {
        const quint64 generation = m_generation;
        const QString password = options.password;
        const QByteArray salt = m_salt;
        m_worker.start([this, password, salt, generation] {
            const QByteArray key = coop::deriveKey(password, salt, coop::KeyIterations);
            QMetaObject::invokeMethod(
                this,
                [this, key, generation] {
                    if (generation != m_generation || m_role != Role::Host)
                        return;
                    m_key = key;
                    // Answers that arrived while the key was being derived.
                    QList<int> waiting;
                    for (const auto &peer : m_peers)
                        if (!peer->pendingAuth.isEmpty())
                            waiting.append(peer->id);
                    for (int id : waiting)
                        if (Peer *peer = peerById(id))
                            onAuth(peer, std::exchange(peer->pendingAuth, QJsonObject()));
                },
                Qt::QueuedConnection);
        });
    }
    setRole(Role::Host);
    m_pingTimer = new QTimer(this);
    m_pingTimer->setInterval(PingIntervalMs);
    connect(m_pingTimer, &QTimer::timeout, this, &CoopSession::onPingTick);
    m_pingTimer->start();
    m_housekeeping = new QTimer(this);
    m_housekeeping->setInterval(HousekeepingMs);
    connect(m_housekeeping, &QTimer::timeout, this, &CoopSession::onHousekeepingTick);
    m_housekeeping->start();
    m_usersTimer = new QTimer(this);
    m_usersTimer->setSingleShot(true);
    m_usersTimer->setInterval(UsersDelayMs);
    connect(m_usersTimer, &QTimer::timeout, this, &CoopSession::broadcastUsers);
    rebuildUsers();
    pdLog("[PD-Coop] hosting on port %u as '%s'", unsigned(hostPort()),
          m_nick.toUtf8().constData());
    emit hostingStarted();
    return true;
}

quint16 CoopSession::hostPort() const
{
    return m_server ? m_server->serverPort() : 0;
}

bool CoopSession::refuseConnection(QTcpSocket *socket, const QString &address)
{
    const auto fromAddress = std::count_if(
        m_peers.begin(), m_peers.end(), [&](const auto &peer) { return peer->address == address; });
    if (int(m_peers.size()) >= m_limits.maxConnections ||
        fromAddress >= m_limits.maxConnectionsPerAddress) {
        ++m_refusedConnections;
        socket->abort();
        socket->deleteLater();
        return true;
    }
    AddressRecord &record = m_addresses[address];
    const double burst = m_limits.maxConnectionsPerAddress;
    if (!std::exchange(record.seen, true))
        record.connects = {burst, now()};
    record.connects.refill(m_limits.connectsPerSecond, burst, now());
    if (record.connects.tokens < 1.0) {
        ++m_refusedConnections;
        socket->abort();
        socket->deleteLater();
        return true;
    }
    record.connects.tokens -= 1.0;
    if (record.until > now()) {
        ++m_refusedConnections;
        const qint64 seconds = (record.until - now() + 999) / 1000;
        closeWithMessage(socket,
                         kickFrame(Code::Backoff, uiText("Coop.Error.Backoff").arg(seconds)));
        return true;
    }
    return false;
}

void CoopSession::penalize(const QString &address)
{
    AddressRecord &record = m_addresses[address];
    ++record.failures;
    record.until =
        now() + std::min<qint64>(qint64(m_limits.backoffMs) << std::min(record.failures - 1, 20),
                                 m_limits.maxBackoffMs);
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
        const QString address = addressText(socket->peerAddress());
        if (refuseConnection(socket, address))
            continue;
        // Frames are small and latency matters more than packet count: no
        // Nagle delay waiting for the peer's acknowledgement.
        socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        socket->setReadBufferSize(ReadBufferBytes);
        auto peer = std::make_unique<Peer>();
        peer->socket = socket;
        peer->id = m_nextPeerId++;
        peer->address = address;
        peer->connectedAt = now();
        peer->points = {m_limits.pointsPerSecond, now()};
        peer->paint = {m_limits.paintPerSecond, now()};
        peer->bytes = {m_limits.bytesPerSecond, now()};
        const int id = peer->id;
        m_peers.push_back(std::move(peer));
        connect(socket, &QTcpSocket::readyRead, this, &CoopSession::onPeerReadyRead);
        connect(socket, &QTcpSocket::disconnected, this, &CoopSession::onPeerDisconnected);
        pdLog("[PD-Coop] peer connecting (id=%d) from %s", id, address.toUtf8().constData());
    }
    updateAccepting();
}

// At the cap, further connections wait in the kernel's queue (and beyond it
// are turned away there) instead of costing this thread an accept each.
void CoopSession::updateAccepting()
{
    if (!m_server)
        return;
    if (int(m_peers.size()) >= m_limits.maxConnections)
        m_server->pauseAccepting();
    else
        m_server->resumeAccepting();
}

void CoopSession::onHello(Peer *peer, const QJsonObject &message)
{
    const int version = message.value(Key::Version).toInt(0);
    if (version != coop::ProtocolVersion) {
        refusePeer(peer, Code::Version,
                   uiText("Coop.Error.HostVersion").arg(coop::ProtocolVersion).arg(version));
        return;
    }
    const QString nick = sanitizeNickname(message.value(Key::Nick).toString());
    if (m_banned.contains(banKey(peer->address, nick))) {
        refusePeer(peer, Code::Banned, uiText("Coop.Error.Banned"));
        return;
    }
    if (joinedPeers() >= m_limits.maxPeers) {
        refusePeer(peer, Code::Full, uiText("Coop.Error.Full"));
        return;
    }
    peer->nick = nick;
    if (m_options.password.isEmpty()) {
        admitPeer(peer);
        return;
    }
    peer->stage = Peer::Stage::Auth;
    peer->hostNonce = coop::randomBytes(coop::NonceBytes);
    sendToPeer(peer, coop::encodeFrame(
                         QJsonObject{{Key::Type, Type::Challenge},
                                     {Key::Version, coop::ProtocolVersion},
                                     {Key::Salt, QString::fromLatin1(m_salt.toBase64())},
                                     {Key::Nonce, QString::fromLatin1(peer->hostNonce.toBase64())},
                                     {Key::Iterations, coop::KeyIterations}}));
}

void CoopSession::onAuth(Peer *peer, const QJsonObject &message)
{
    if (m_key.isEmpty()) {
        peer->pendingAuth = message;
        return;
    }
    const QByteArray clientNonce =
        QByteArray::fromBase64(message.value(Key::Nonce).toString().toLatin1());
    const QByteArray proof =
        QByteArray::fromBase64(message.value(Key::Proof).toString().toLatin1());
    const QByteArray expected = coop::passwordProof(m_key, peer->hostNonce, clientNonce);
    if (clientNonce.size() >= 8 && clientNonce.size() <= 64 && coop::sameBytes(proof, expected)) {
        admitPeer(peer);
        return;
    }
    penalize(peer->address);
    pdLog("[PD-Coop] wrong password from %s (id=%d)", peer->address.toUtf8().constData(), peer->id);
    refusePeer(peer, Code::Password, uiText("Coop.Error.WrongPassword"));
}

void CoopSession::admitPeer(Peer *peer)
{
    peer->stage = Peer::Stage::Joined;
    peer->welcomePending = true;
    pdLog("[PD-Coop] peer id=%d joined as '%s'", peer->id, peer->nick.toUtf8().constData());
    rebuildUsers();
    m_welcomeWaiters.append(peer->id);
    requestWelcomes();
}

void CoopSession::refusePeer(Peer *peer, QLatin1StringView code, const QString &reason)
{
    QTcpSocket *socket = peer->socket;
    pdLog("[PD-Coop] refused id=%d from %s: %s", peer->id, peer->address.toUtf8().constData(),
          code.data());
    const auto it = std::find_if(m_peers.begin(), m_peers.end(),
                                 [peer](const auto &p) { return p.get() == peer; });
    m_peers.erase(it);
    updateAccepting();
    socket->disconnect(this);
    closeWithMessage(socket, kickFrame(code, reason));
}

// ---- the welcome -----------------------------------------------------------

void CoopSession::requestWelcomes()
{
    if (m_welcomeBusy || m_welcomeWaiters.isEmpty())
        return;
    const QList<int> batch = std::exchange(m_welcomeWaiters, {});
    if (!m_canvasSnapshot) {
        sendWelcomes(batch, QByteArray());
        return;
    }
    m_welcomeBusy = true;
    const quint64 generation = m_generation;
    auto finish = [this, batch](const QByteArray &canvas) {
        m_welcomeBusy = false;
        sendWelcomes(batch, canvas);
        requestWelcomes();
    };
    m_canvasSnapshot(this, [this, generation, finish](const QImage &picture) {
        if (generation != m_generation)
            return;
        if (picture.isNull()) {
            finish(QByteArray());
            return;
        }
        if (picture.cacheKey() == m_welcomeKey && !m_welcomeCanvas.isEmpty()) {
            finish(m_welcomeCanvas);
            return;
        }
        // PNG encoding of a whole picture: tens of milliseconds, not on this
        // thread; kept for the next joiner while the picture is unchanged.
        m_worker.start([this, generation, finish, picture] {
            const QByteArray canvas = coop::encodeCanvas(picture);
            QMetaObject::invokeMethod(
                this,
                [this, generation, finish, canvas, key = picture.cacheKey()] {
                    if (generation != m_generation)
                        return;
                    m_welcomeKey = key;
                    m_welcomeCanvas = canvas;
                    finish(canvas);
                },
                Qt::QueuedConnection);
        });
    });
}

void CoopSession::sendWelcomes(const QList<int> &ids, const QByteArray &canvasBase64)
{
    for (int id : ids) {
        Peer *peer = peerById(id);
        if (!peer || !peer->welcomePending)
            continue;
        const QByteArray fields =
            QJsonDocument(QJsonObject{{Key::Type, Type::Welcome},
                                      {Key::Id, peer->id},
                                      {Key::Version, coop::ProtocolVersion},
                                      {Key::MayClear, m_options.guestsMayClear}})
                .toJson(QJsonDocument::Compact);
        peer->welcomePending = false;
        if (canvasBase64.isEmpty()) {
            peer->socket->write(coop::framePrefix(quint32(fields.size())) + fields);
        } else {
            // {"canvas":"<base64>",<fields>}: the big middle part is written
            // as the cached array itself, shared by every joiner.
            const QByteArray head = "{\"canvas\":\"";
            const QByteArray tail = "\"," + fields.mid(1);
            const qsizetype length = head.size() + canvasBase64.size() + tail.size();
            peer->socket->write(coop::framePrefix(quint32(length)) + head);
            peer->socket->write(canvasBase64);
            peer->socket->write(tail);
            peer->welcomeBytes = length;
        }
        for (const QByteArray &frame : std::exchange(peer->held, {}))
            peer->socket->write(frame);
        peer->heldBytes = 0;
        checkPendingOutput(peer);
    }
}

// ---- serving the peers -----------------------------------------------------

CoopSession::Peer *CoopSession::findPeer(const QTcpSocket *socket) const
{
    if (!socket)
        return nullptr;
    for (const auto &peer : m_peers)
        if (peer->socket == socket)
            return peer.get();
    return nullptr;
}

CoopSession::Peer *CoopSession::peerById(int id) const
{
    for (const auto &peer : m_peers)
        if (peer->id == id)
            return peer.get();
    return nullptr;
}

int CoopSession::joinedPeers() const
{
    return int(std::count_if(m_peers.begin(), m_peers.end(),
                             [](const auto &peer) { return peer->joined(); }));
}

void CoopSession::onPeerReadyRead()
{
    Peer *peer = findPeer(qobject_cast<QTcpSocket *>(sender()));
    if (peer && m_role == Role::Host)
        servePeer(peer->id);
}

void CoopSession::servePeer(int id)
{
    // A peer waiting for its turn gets no extra one for sending more.
    if (m_busyPeers.contains(id))
        return;
    Peer *peer = peerById(id);
    if (!peer || !serveTurn(peer))
        return;
    m_busyPeers.append(id);
    if (!m_serveQueued) {
        m_serveQueued = true;
        QMetaObject::invokeMethod(this, &CoopSession::serveBusyPeers, Qt::QueuedConnection);
    }
}

// One round over the peers with work left, a few frames each; the event loop
// runs between rounds, so timers and the other sockets are never starved.
void CoopSession::serveBusyPeers()
{
    m_serveQueued = false;
    const QList<int> round = std::exchange(m_busyPeers, {});
    for (int id : round) {
        Peer *peer = peerById(id);
        if (peer && m_role == Role::Host && serveTurn(peer))
            m_busyPeers.append(id);
    }
    if (!m_busyPeers.isEmpty() && !m_serveQueued) {
        m_serveQueued = true;
        QMetaObject::invokeMethod(this, &CoopSession::serveBusyPeers, Qt::QueuedConnection);
    }
}

// Reads what the peer's byte budget allows and handles a few frames. Returns
// whether work is left for another turn.
bool CoopSession::serveTurn(Peer *peer)
{
    const int id = peer->id;
    QTcpSocket *socket = peer->socket;
    const double byteRate = m_limits.bytesPerSecond;
    peer->bytes.refill(byteRate, byteRate, now());
    const qint64 allowed = std::min<qint64>(qint64(peer->bytes.tokens), ReadBufferBytes);
    if (allowed > 0 && socket->bytesAvailable() > 0 && !peer->rx.hasFrame()) {
        const QByteArray data = socket->read(allowed);
        peer->bytes.tokens -= double(data.size());
        peer->rx.append(data);
        if (!peer->joined() && peer->rx.bufferedBytes() > MaxBytesBeforeJoining &&
            !peer->rx.hasFrame()) {
            penalize(peer->address);
            removePeer(socket, QStringLiteral("too much before hello"), false);
            return false;
        }
    }
    for (int n = 0; n < m_limits.framesPerTurn; ++n) {
        QJsonObject message;
        switch (peer->rx.next(&message)) {
        case coop::FrameDecoder::Result::NeedMore:
            n = m_limits.framesPerTurn;
            break;
        case coop::FrameDecoder::Result::Oversize:
            penalize(peer->address);
            removePeer(socket, QStringLiteral("oversize frame"), false);
            return false;
        case coop::FrameDecoder::Result::BadJson:
            penalize(peer->address);
            removePeer(socket, QStringLiteral("bad json"), false);
            return false;
        case coop::FrameDecoder::Result::Message:
            dispatchFromPeer(peer, message);
            // The message may have ended the session or removed the peer.
            peer = peerById(id);
            if (!peer || m_role != Role::Host)
                return false;
            break;
        }
    }
    if (peer->rx.bufferedBytes() == 0)
        peer->partialSince = 0;
    else if (peer->partialSince == 0)
        peer->partialSince = now();
    if (peer->rx.hasFrame())
        return true;
    if (socket->bytesAvailable() == 0)
        return false;
    if (peer->bytes.tokens >= 1.0)
        return true;
    // Over its byte budget: come back when it has refilled. Meanwhile Qt's
    // read buffer fills and the kernel makes the sender wait.
    if (!peer->resumeQueued) {
        peer->resumeQueued = true;
        const int waitMs = int(std::ceil((1.0 - peer->bytes.tokens) / byteRate * 1000.0)) + 1;
        QTimer::singleShot(std::min(waitMs, 1000), this, [this, id] {
            if (Peer *waiting = peerById(id)) {
                waiting->resumeQueued = false;
                servePeer(id);
            }
        });
    }
    return false;
}

void CoopSession::dispatchFromPeer(Peer *peer, const QJsonObject &message)
{
    const QString type = message.value(Key::Type).toString();
    if (peer->stage == Peer::Stage::Hello) {
        if (type == Type::Hello)
            onHello(peer, message);
        return;
    }
    if (peer->stage == Peer::Stage::Auth) {
        if (type == Type::Auth && peer->pendingAuth.isEmpty())
            onAuth(peer, message);
        return;
    }
    if (type == Type::Stroke)
        onPeerStroke(peer, message);
    else if (type == Type::Clear)
        onPeerClear(peer);
    else if (type == Type::Pong)
        onPong(peer, message);
    else if (type == Type::Bye)
        removePeer(peer->socket, QStringLiteral("left"), false);
}

bool CoopSession::admitStroke(Peer *peer, const Stroke &stroke)
{
    const qint64 t = now();
    const double paintRate =
        std::min(m_limits.paintPerSecond, m_limits.paintPerSecondAll / std::max(1, joinedPeers()));
    peer->points.refill(m_limits.pointsPerSecond, m_limits.pointsPerSecond, t);
    peer->paint.refill(paintRate, m_limits.paintPerSecond, t);
    const double points = double(stroke.points.size());
    const double cost = coop::paintCost(stroke, PictureArea);
    if (points > peer->points.tokens || cost > peer->paint.tokens) {
        ++peer->dropped;
        ++m_droppedStrokes;
        return false;
    }
    peer->points.tokens -= points;
    peer->paint.tokens -= cost;
    return true;
}

void CoopSession::onPeerStroke(Peer *peer, const QJsonObject &message)
{
    Stroke stroke;
    if (!coop::strokeFromJson(message.value(Key::Stroke), &stroke) || !admitStroke(peer, stroke))
        return;
    const QString from = peer->nick;
    const QTcpSocket *socket = peer->socket;
    emit strokeReceived(stroke, from);
    if (m_role != Role::Host)
        return;
    // Re-encoded: only the keys we know travel on, whatever else came in.
    broadcast(coop::encodeFrame(QJsonObject{{Key::Type, Type::Stroke},
                                            {Key::Stroke, coop::strokeToJson(stroke)},
                                            {Key::From, from}}),
              socket);
}

void CoopSession::onPeerClear(Peer *peer)
{
    if (!m_options.guestsMayClear) {
        pdLog("[PD-Coop] clear from id=%d refused: guests may not clear", peer->id);
        return;
    }
    peer->paint.refill(m_limits.paintPerSecond, m_limits.paintPerSecond, now());
    if (peer->paint.tokens < PictureArea)
        return;
    peer->paint.tokens -= PictureArea;
    const QString from = peer->nick;
    const QTcpSocket *socket = peer->socket;
    emit clearReceived(from);
    if (m_role != Role::Host)
        return;
    broadcast(coop::encodeFrame(QJsonObject{{Key::Type, Type::Clear}, {Key::From, from}}), socket);
}

void CoopSession::onPong(Peer *peer, const QJsonObject &message)
{
    const double ts = message.value(Key::Timestamp).toDouble(0.0);
    if (!std::isfinite(ts) || std::fabs(ts) >= 9.0e18)
        return;
    const qint64 echoed = qint64(ts);
    if (peer->lastPingSent == 0 || echoed != peer->lastPingSent)
        return;
    const qint64 rtt = QDateTime::currentMSecsSinceEpoch() - echoed;
    const int pingMs = int(std::clamp<qint64>(rtt, 0, INT_MAX));
    // Listed at the next ping round, however many answers come meanwhile.
    m_pingsChanged |= pingMs != peer->pingMs;
    peer->pingMs = pingMs;
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
    const bool wasJoined = (*it)->joined();
    m_peers.erase(it);
    updateAccepting();
    socket->disconnect(this);
    if (sendKick && socket->state() == QAbstractSocket::ConnectedState) {
        closeWithMessage(
            socket, coop::encodeFrame(QJsonObject{{Key::Type, Type::Kick}, {Key::Reason, reason}}));
    } else {
        socket->abort();
        socket->deleteLater();
    }
    if (m_role == Role::Host && wasJoined)
        rebuildUsers();
}

void CoopSession::kick(int id)
{
    if (m_role != Role::Host)
        return;
    Peer *peer = peerById(id);
    if (!peer)
        return;
    pdLog("[PD-Coop] kicking id=%d ('%s')", id, peer->nick.toUtf8().constData());
    m_banned.insert(banKey(peer->address, peer->nick));
    removePeer(peer->socket, uiText("Coop.Error.KickedSorry"), true);
}

// ---- output ----------------------------------------------------------------

void CoopSession::rebuildUsers()
{
    m_users.clear();
    m_users.append(CoopUser{0, m_nick, 0, true, true});
    for (const auto &peer : m_peers)
        if (peer->joined())
            m_users.append(CoopUser{peer->id, peer->nick, peer->pingMs, false, false});
    if (m_usersTimer && !m_usersTimer->isActive())
        m_usersTimer->start();
    emit usersChanged(m_users);
}

void CoopSession::broadcastUsers()
{
    QJsonArray list;
    for (const CoopUser &user : std::as_const(m_users))
        list.append(QJsonObject{{Key::Id, user.id},
                                {Key::Nick, user.nick},
                                {Key::Ping, user.pingMs},
                                {Key::Host, user.isHost}});
    broadcast(coop::encodeFrame(QJsonObject{{Key::Type, Type::Users}, {Key::Users, list}}));
}

void CoopSession::broadcast(const QByteArray &frame, const QTcpSocket *except)
{
    for (const auto &peer : m_peers)
        if (peer->joined() && peer->socket != except)
            sendToPeer(peer.get(), frame);
}

void CoopSession::sendToPeer(Peer *peer, const QByteArray &frame)
{
    if (peer->socket->state() != QAbstractSocket::ConnectedState)
        return;
    if (peer->welcomePending) {
        peer->held.append(frame);
        peer->heldBytes += frame.size();
    } else {
        peer->socket->write(frame);
    }
    checkPendingOutput(peer);
}

// A peer that does not read what we send would grow our memory without bound:
// past the limit it is dropped, alone.
void CoopSession::checkPendingOutput(Peer *peer)
{
    const qint64 pending = peer->socket->bytesToWrite() + peer->heldBytes;
    if (pending <= m_limits.maxPendingOutput + peer->welcomeBytes || peer->dropQueued)
        return;
    // Not removed here: we may be inside a loop over the peers.
    peer->dropQueued = true;
    pdLog("[PD-Coop] dropping id=%d: not reading (%lld bytes pending)", peer->id,
          static_cast<long long>(pending));
    QPointer<QTcpSocket> guard(peer->socket);
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
    if (std::exchange(m_pingsChanged, false))
        rebuildUsers();
    const qint64 wallNow = QDateTime::currentMSecsSinceEpoch();
    const QByteArray frame =
        coop::encodeFrame(QJsonObject{{Key::Type, Type::Ping}, {Key::Timestamp, double(wallNow)}});
    for (const auto &peer : m_peers) {
        if (!peer->joined())
            continue;
        peer->lastPingSent = wallNow;
        sendToPeer(peer.get(), frame);
        if (peer->dropped != peer->droppedLogged) {
            pdLog("[PD-Coop] id=%d over its budget: %d strokes dropped", peer->id,
                  peer->dropped - peer->droppedLogged);
            peer->droppedLogged = peer->dropped;
        }
    }
}

// Deadlines: a hello (and password) in time, and no frame left half-sent.
void CoopSession::onHousekeepingTick()
{
    if (m_role != Role::Host)
        return;
    const qint64 t = now();
    QList<QPair<QTcpSocket *, QString>> late;
    for (const auto &peer : m_peers) {
        if (!peer->joined() && t - peer->connectedAt > m_limits.helloDeadlineMs)
            late.append({peer->socket, QStringLiteral("no hello in time")});
        else if (peer->partialSince && t - peer->partialSince > m_limits.partialFrameDeadlineMs)
            late.append({peer->socket, QStringLiteral("frame not finished in time")});
    }
    for (const auto &[socket, reason] : late) {
        if (Peer *peer = findPeer(socket))
            pdLog("[PD-Coop] dropping id=%d: %s", peer->id, reason.toUtf8().constData());
        removePeer(socket, reason, false);
    }
    if (m_refusedConnections > 0) {
        pdLog("[PD-Coop] refused %d connections over the limits", m_refusedConnections);
        m_refusedConnections = 0;
    }
}
