#include "coop/CoopEditorSource.h"

#include "coop/CoopCanvas.h"
#include "coop/CoopSession.h"

const QString CoopEditorSource::EditorKey = QStringLiteral("coop");

CoopEditorSource::CoopEditorSource(CoopCanvas &canvas, CoopSession &session)
    : m_canvas(canvas), m_session(session)
{
    // The shared picture is connected to the session before this, so it is up
    // to date when these run.
    connect(&session, &CoopSession::strokeReceived, this,
            [this](const Stroke &stroke) { emit remoteStroke(stroke); });
    connect(&session, &CoopSession::clearReceived, this, [this] { emit remoteClear(); });
    // The shared picture adopts the host's on its own thread: take it once
    // that is done.
    connect(&session, &CoopSession::canvasStateReceived, this, [this] {
        m_canvas.snapshot(this, [this](const QImage &picture) { emit pictureReplaced(picture); });
    });
    connect(&canvas, &CoopCanvas::pictureChanged, this,
            [this](const QRect &bounds) { emit pictureAreaChanged(m_canvas.image(), bounds); });
    connect(&session, &CoopSession::usersChanged, this,
            [this] { emit participantsChanged(participants()); });
    connect(&session, &CoopSession::sessionEnded, this, &CoopEditorSource::onSessionOver);
    connect(&session, &CoopSession::roleChanged, this, [this](CoopSession::Role role) {
        if (role == CoopSession::Role::None)
            onSessionOver();
    });
}

QSize CoopEditorSource::canvasSize() const
{
    return QSize(m_canvas.width(), m_canvas.height());
}

void CoopEditorSource::cleared(const QImage &)
{
    m_canvas.clearLocal();
}

void CoopEditorSource::setJitterEnabled(bool on)
{
    m_canvas.setJitterEnabled(on);
}

void CoopEditorSource::setJitterAmount(float px)
{
    m_canvas.setJitterAmountPx(px);
}

void CoopEditorSource::setJitterInterval(float seconds)
{
    m_canvas.setJitterInterval(seconds);
}

void CoopEditorSource::setRemovedCallback(std::function<void()> callback)
{
    std::lock_guard<std::mutex> lock(m_callbackMutex);
    m_removed = std::move(callback);
}

void CoopEditorSource::onSessionOver()
{
    std::lock_guard<std::mutex> lock(m_callbackMutex);
    if (m_removed)
        m_removed();
}

QImage CoopEditorSource::picture() const
{
    return m_canvas.image();
}

int CoopEditorSource::fillTolerance() const
{
    return m_canvas.fillTolerance();
}

void CoopEditorSource::shareSegment(const Stroke &segment)
{
    m_canvas.addLocalStroke(segment, m_canvas.fillTolerance());
}

QList<CoopParticipant> CoopEditorSource::participants() const
{
    QList<CoopParticipant> out;
    for (const CoopUser &user : m_session.users())
        out.append({user.id, user.nick, user.pingMs, user.isHost, user.isSelf});
    return out;
}

bool CoopEditorSource::localIsHost() const
{
    return m_session.role() == CoopSession::Role::Host;
}

void CoopEditorSource::kick(int id)
{
    m_session.kick(id);
}

std::unique_ptr<EditorSource> makeCoopEditorSource()
{
    CoopCanvas &canvas = CoopCanvas::instance(); // connects itself to the session first
    return std::make_unique<CoopEditorSource>(canvas, CoopSession::instance());
}
