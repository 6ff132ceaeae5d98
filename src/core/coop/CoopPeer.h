#pragma once

// The host's record of one connection; shared by the session's source files
// only.
#include "coop/CoopProtocol.h"
#include "coop/CoopSession.h"

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QTcpSocket>

#include <algorithm>

struct CoopSession::Peer {
    enum class Stage { Hello, Auth, Joined };

    QTcpSocket *socket = nullptr;
    int id = 0;
    QString address;
    QString nick;
    coop::FrameDecoder rx{coop::MaxHostFramePayload};
    int pingMs = -1;
    qint64 lastPingSent = 0;
    Stage stage = Stage::Hello;
    QByteArray hostNonce;
    QJsonObject pendingAuth; // an answer that came before the key was derived
    qint64 connectedAt = 0;
    qint64 partialSince = 0;
    Bucket points;
    Bucket paint;
    Bucket bytes;
    int dropped = 0;
    int droppedLogged = 0;
    // Between joining and the welcome everything for this peer waits here,
    // so it sees exactly what its welcome picture does not hold.
    bool welcomePending = false;
    QList<QByteArray> held;
    qint64 heldBytes = 0;
    qint64 welcomeBytes = 0;
    bool resumeQueued = false;
    bool dropQueued = false;

    bool joined() const { return stage == Stage::Joined; }
};
