#include "GuestApp.h"

#include "ConnectWindow.h"
#include "HostAddress.h"
#include "common/Text.h"

#include "coop/CoopCanvas.h"
#include "coop/CoopEditorSource.h"
#include "coop/CoopPort.h"
#include "coop/CoopSession.h"
#include "dock/CoopMessages.h"
#include "editor/DrawingWindow.h"
#include "editor/EditorWindows.h"

#include <QEvent>
#include <QImage>
#include <QKeyEvent>

GuestApp::GuestApp(CoopSession &session, QObject *parent)
    : QObject(parent), m_session(session), m_connect(new ConnectWindow)
{
    // The guest draws at the host's size: set before the shared picture,
    // connected next, adopts the host's picture.
    connect(&session, &CoopSession::canvasStateReceived, this, [](const QImage &picture) {
        CoopCanvas::instance().setCanvasSize(picture.width(), picture.height());
    });
    CoopCanvas::instance();

    connect(&session, &CoopSession::connectedToHost, this, &GuestApp::onConnected);
    connect(&session, &CoopSession::roleChanged, this, [this](CoopSession::Role role) {
        if (role == CoopSession::Role::None)
            onSessionOver();
    });
    connect(&session, &CoopSession::connectionError, this, &GuestApp::onFailure);
    connect(&session, &CoopSession::kicked, this, &GuestApp::onKicked);

    connect(m_connect, &ConnectWindow::joinRequested, this, &GuestApp::onJoinRequested);
    connect(m_connect, &ConnectWindow::cancelRequested, &session, &CoopSession::stop);
    connect(m_connect, &QDialog::finished, this, [this] {
        m_session.stop();
        emit finished();
    });
}

GuestApp::~GuestApp()
{
    m_session.stop();
    delete m_editor.data();
    delete m_connect;
}

void GuestApp::start()
{
    m_connect->show();
}

void GuestApp::onJoinRequested(const QString &address, const QString &nickname,
                               const QString &password)
{
    const HostAddress host = HostAddress::parse(address, coop::coopPort());
    if (!host.isValid()) {
        CoopMessages::showFailure(m_connect, uiText("Guest.NotAnAddress").arg(address));
        return;
    }
    m_connect->setConnecting(true);
    joinSession(host, nickname, password);
}

// The one place the guest asks the session to join.
void GuestApp::joinSession(const HostAddress &address, const QString &nickname,
                           const QString &password)
{
    m_session.join(address.host, nickname, address.port, password);
}

void GuestApp::onConnected()
{
    m_connect->setConnecting(false);
    m_connect->hide();
    m_editor = EditorWindows::open(CoopEditorSource::EditorKey, makeCoopEditorSource(), nullptr);
    m_editor->installEventFilter(this);
}

void GuestApp::onSessionOver()
{
    // The editor closes itself: the end of the session removes its source.
    m_connect->setConnecting(false);
    m_connect->show();
    m_connect->raise();
    m_connect->activateWindow();
}

void GuestApp::onFailure(const QString &message)
{
    CoopMessages::showFailure(m_connect, message);
}

void GuestApp::onKicked(const QString &reason)
{
    CoopMessages::showKick(m_connect, reason);
}

bool GuestApp::eventFilter(QObject *watched, QEvent *event)
{
    if (watched != m_editor || m_session.role() == CoopSession::Role::None)
        return QObject::eventFilter(watched, event);
    if (event->type() == QEvent::Close) {
        // Yes leaves and lets the editor close as usual; No keeps drawing.
        if (leaveAfterAsking())
            return false;
        event->ignore();
        return true;
    }
    if (event->type() == QEvent::KeyPress &&
        static_cast<QKeyEvent *>(event)->key() == Qt::Key_Escape) {
        // The end of the session closes the editor.
        leaveAfterAsking();
        return true;
    }
    return QObject::eventFilter(watched, event);
}

bool GuestApp::leaveAfterAsking()
{
    if (!CoopMessages::confirmEnd(m_editor, false))
        return false;
    m_session.stop();
    return true;
}
