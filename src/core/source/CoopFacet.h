#pragma once

#include "engine/Stroke.h"

#include <QImage>
#include <QList>
#include <QObject>
#include <QRect>
#include <QString>

// One person in a co-op session as the editor lists them.
struct CoopParticipant {
    int id = 0;
    QString nick;
    int pingMs = -1; // negative until measured
    bool isHost = false;
    bool isSelf = false;
};

// The part of an editor source that is shared with others: local strokes go
// out piece by piece, other people's strokes and clears come in, and the list
// of participants follows the session.
class CoopFacet : public QObject {
    Q_OBJECT

public:
    using QObject::QObject;

    // The shared picture as it stands, at the canvas size.
    virtual QImage picture() const = 0;
    // The tolerance every participant fills with.
    virtual int fillTolerance() const = 0;
    // Paints a piece of a local stroke into the shared picture and sends it.
    virtual void shareSegment(const Stroke &segment) = 0;

    virtual QList<CoopParticipant> participants() const = 0;
    virtual bool localIsHost() const = 0;
    virtual void kick(int id) = 0;

signals:
    // Another participant's stroke; the shared picture shows it once
    // pictureAreaChanged covers its bounds.
    void remoteStroke(const Stroke &stroke);
    // The shared picture (painted off the UI thread) changed inside bounds.
    void pictureAreaChanged(const QImage &picture, const QRect &bounds);
    void remoteClear();
    // The whole picture was replaced (a joiner adopting the host's).
    void pictureReplaced(const QImage &picture);
    void participantsChanged(const QList<CoopParticipant> &participants);
};
