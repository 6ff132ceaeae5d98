// The session's shared parts and its client side; the host side is in
// CoopSessionHost.cpp.
#include "coop/CoopSession.h"

#include "common/Log.h"
#include "common/Text.h"
#include "coop/CoopPeer.h"
#include "coop/CoopProtocol.h"
#include "coop/StrokeJson.h"

#include <QJsonArray>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

namespace Key = coop::Key;
namespace Type = coop::Type;
namespace Code = coop::Code;

CoopSession &CoopSession::instance()
{
    static CoopSession session;
    return session;
}

CoopSession::CoopSession(QObject *parent)
    : QObject(parent), m_rx(std::make_unique<coop::FrameDecoder>(coop::MaxClientFramePayload))
{
    qRegisterMetaType<Stroke>();
    qRegisterMetaType<CoopUser>();
    qRegisterMetaType<QList<CoopUser>>();
    qRegisterMetaType<CoopSession::Role>();
    m_worker.setMaxThreadCount(1);
    m_worker.setExpiryTimeout(30000);
    m_clock.start();
}

CoopSession::~CoopSession()
{
    // Worker results are posted to this object: none may be left running.
    m_worker.waitForDone();
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
    return kept.isEmpty() ? uiText("Coop.Anon") : kept;
}

void CoopSession::setCanvasProvider(CanvasProvider provider)
{
    if (!provider) {
        m_canvasSnapshot = nullptr;
        return;
    }
    m_canvasSnapshot = [provider](QObject *context, std::function<void(const QImage &)> done) {
        const QImage picture = provider();
        QMetaObject::invokeMethod(
            context, [done, picture] { done(picture); }, Qt::QueuedConnection);
    };
}

bool CoopSession::mayClear() const
{
    return m_role != Role::Client || (m_welcomed && m_mayClear);
}

void CoopSession::setRole(Role role)
{
    if (m_role == role)
        return;
    m_role = role;
    emit roleChanged(role);
}

void CoopSession::sendStroke(const Stroke &stroke)
{
    if (m_role == Role::None)
        return;
    QJsonObject message{{Key::Type, Type::Stroke}, {Key::Stroke, coop::strokeToJson(stroke)}};
    if (m_role == Role::Client) {
        sendTo(m_socket, coop::encodeFrame(message));
    } else {
        message.insert(Key::From, m_nick);
        broadcast(coop::encodeFrame(message));
    }
}

void CoopSession::sendClear()
{
    if (m_role == Role::None)
        return;
    QJsonObject message{{Key::Type, Type::Clear}};
    if (m_role == Role::Client) {
        sendTo(m_socket, coop::encodeFrame(message));
    } else {
        message.insert(Key::From, m_nick);
        broadcast(coop::encodeFrame(message));
    }
}

void CoopSession::sendTo(QTcpSocket *socket, const QByteArray &frame)
{
    if (socket && socket->state() == QAbstractSocket::ConnectedState)
        socket->write(frame);
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
    ++m_generation;
    for (QTimer **timer : {&m_pingTimer, &m_housekeeping, &m_usersTimer}) {
        if (*timer) {
            (*timer)->stop();
            (*timer)->deleteLater();
            *timer = nullptr;
        }
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
    m_key.clear();
    m_salt.clear();
    m_options = CoopHostOptions();
    m_busyPeers.clear();
    m_banned.clear();
    m_addresses.clear();
    m_welcomeWaiters.clear();
    m_welcomeBusy = false;
    m_welcomeKey = 0;
    m_welcomeCanvas.clear();
    m_pingsChanged = false;
    if (m_socket) {
        m_socket->disconnect(this);
        m_socket->abort();
        m_socket->deleteLater();
        m_socket = nullptr;
    }
    m_rx->clear();
    m_welcomed = false;
    m_mayClear = true;
    m_password.clear();
    m_myId = 0;
    m_users.clear();
    const Role oldRole = m_role;
    setRole(Role::None);
    emit usersChanged(m_users);
    if (announce && oldRole != Role::None)
        emit sessionEnded();
}

// ---- client --------------------------------------------------------------

void CoopSession::join(const QString &address, const QString &nickname, quint16 port,
                       const QString &password)
{
    if (m_role != Role::None) {
        emit connectionError(uiText("Coop.Error.AlreadyActive"));
        return;
    }
    m_nick = sanitizeNickname(nickname);
    m_password = password;
    m_welcomed = false;
    m_rx->clear();
    m_lastError.clear();
    m_socket = new QTcpSocket(this);
    connect(m_socket, &QTcpSocket::connected, this, &CoopSession::onClientConnected);
    connect(m_socket, &QTcpSocket::readyRead, this, &CoopSession::onClientReadyRead);
    connect(m_socket, &QTcpSocket::disconnected, this, &CoopSession::onClientDisconnected);
    connect(m_socket, &QTcpSocket::errorOccurred, this, &CoopSession::onClientErrorOccurred);
    setRole(Role::Client);
    pdLog("[PD-Coop] joining %s:%u as '%s'", address.toUtf8().constData(), unsigned(port),
          m_nick.toUtf8().constData());
    m_socket->connectToHost(address, port, QIODevice::ReadWrite, QAbstractSocket::AnyIPProtocol);
}

void CoopSession::onClientConnected()
{
    if (m_role != Role::Client || sender() != m_socket)
        return;
    m_socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    sendTo(m_socket, coop::encodeFrame(QJsonObject{{Key::Type, Type::Hello},
                                                   {Key::Nick, m_nick},
                                                   {Key::Version, coop::ProtocolVersion}}));
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
            emit connectionError(uiText("Coop.Error.Protocol"));
            return;
        case coop::FrameDecoder::Result::BadJson:
            teardown("bad json", true);
            emit connectionError(uiText("Coop.Error.Protocol"));
            return;
        case coop::FrameDecoder::Result::Message:
            dispatchFromHost(message);
            break;
        }
    }
}

void CoopSession::endClient(const char *reason, const QString &error)
{
    pdLog("[PD-Coop] join error: %s", error.toUtf8().constData());
    teardown(reason, false);
    emit connectionError(error);
}

void CoopSession::onChallenge(const QJsonObject &message)
{
    const QByteArray salt = QByteArray::fromBase64(message.value(Key::Salt).toString().toLatin1());
    const QByteArray hostNonce =
        QByteArray::fromBase64(message.value(Key::Nonce).toString().toLatin1());
    const int iterations = message.value(Key::Iterations).toInt(0);
    if (salt.size() < 8 || salt.size() > 64 || hostNonce.size() < 8 || hostNonce.size() > 64 ||
        iterations < 1 || iterations > coop::MaxKeyIterations) {
        endClient("bad challenge", uiText("Coop.Error.Protocol"));
        return;
    }
    // Key stretching takes tens of milliseconds: not on this thread.
    const QString password = m_password;
    const quint64 generation = m_generation;
    m_worker.start([this, password, salt, hostNonce, iterations, generation] {
        const QByteArray key = coop::deriveKey(password, salt, iterations);
        const QByteArray clientNonce = coop::randomBytes(coop::NonceBytes);
        const QByteArray proof = coop::passwordProof(key, hostNonce, clientNonce);
        QMetaObject::invokeMethod(
            this,
            [this, clientNonce, proof, generation] {
                if (generation != m_generation || m_role != Role::Client || m_welcomed)
                    return;
                sendTo(m_socket, coop::encodeFrame(QJsonObject{
                                     {Key::Type, Type::Auth},
                                     {Key::Nonce, QString::fromLatin1(clientNonce.toBase64())},
                                     {Key::Proof, QString::fromLatin1(proof.toBase64())}}));
            },
            Qt::QueuedConnection);
    });
}

void CoopSession::dispatchFromHost(const QJsonObject &message)
{
    const QString type = message.value(Key::Type).toString();
    if (type == Type::Challenge) {
        if (!m_welcomed)
            onChallenge(message);
    } else if (type == Type::Welcome) {
        if (m_welcomed)
            return;
        if (message.value(Key::Version).toInt(0) != coop::ProtocolVersion) {
            endClient("other version", uiText("Coop.Error.OtherVersion"));
            return;
        }
        m_myId = message.value(Key::Id).toInt(0);
        m_mayClear = message.value(Key::MayClear).toBool(false);
        m_welcomed = true;
        const QJsonValue canvas = message.value(Key::Canvas);
        if (canvas.isString()) {
            const QImage image = coop::decodeCanvas(canvas.toString());
            if (!image.isNull())
                emit canvasStateReceived(image);
        }
        if (m_role != Role::Client)
            return;
        pdLog("[PD-Coop] welcomed by host (my id=%d)", m_myId);
        emit connectedToHost();
    } else if (type == Type::Users) {
        QList<CoopUser> users;
        for (const QJsonValue &entry : message.value(Key::Users).toArray()) {
            const QJsonObject o = entry.toObject();
            CoopUser user;
            user.id = o.value(Key::Id).toInt(0);
            user.nick = o.value(Key::Nick).toString();
            user.pingMs = o.value(Key::Ping).toInt(-1);
            user.isHost = o.value(Key::Host).toBool(false);
            user.isSelf = m_welcomed && user.id == m_myId;
            users.append(user);
        }
        m_users = users;
        emit usersChanged(m_users);
    } else if (type == Type::Stroke) {
        Stroke stroke;
        if (coop::strokeFromJson(message.value(Key::Stroke), &stroke))
            emit strokeReceived(stroke, message.value(Key::From).toString());
    } else if (type == Type::Clear) {
        emit clearReceived(message.value(Key::From).toString());
    } else if (type == Type::Ping) {
        sendTo(m_socket,
               coop::encodeFrame(QJsonObject{{Key::Type, Type::Pong},
                                             {Key::Timestamp, message.value(Key::Timestamp)}}));
    } else if (type == Type::Kick) {
        const QJsonValue value = message.value(Key::Reason);
        if (!m_welcomed) {
            // Refused at the door: wrong password, other version, full, ...
            QString text = value.isString() ? value.toString() : uiText("Coop.Error.Refused");
            if (message.value(Key::Code).toString() == Code::Password && m_password.isEmpty())
                text = uiText("Coop.Error.PasswordNeeded");
            endClient("refused", text);
            return;
        }
        const QString reason = value.isString() ? value.toString() : uiText("Coop.Error.Kicked");
        pdLog("[PD-Coop] kicked: %s", reason.toUtf8().constData());
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
    pdLog("[PD-Coop] join error: %s", text.toUtf8().constData());
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
    emit connectionError(wasWelcomed ? uiText("Coop.Error.ConnectionLost")
                                     : uiText("Coop.Error.CannotConnect"));
}
