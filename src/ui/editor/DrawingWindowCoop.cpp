// The co-op flavour of the editor: strokes go to the shared picture and the
// session, and the Layers button lists the session's users.

#include "editor/DrawingWindow.h"

#include "canvas/CanvasWidget.h"
#include "common/Wiggle.h"
#include "coop/CoopCanvas.h"
#include "coop/CoopSession.h"
#include "editor/CoopUsersPopup.h"
#include "engine/StrokePainter.h"
#include "settings/EditorSettings.h"
#include "widgets/Icons.h"
#include "widgets/LongPressButton.h"
#include "widgets/TintedIcon.h"

#include <QToolButton>

#include <algorithm>

void DrawingWindow::setupCoop()
{
    setWindowTitle(QStringLiteral("Pennoria: Draw \u2014 Co-op Canvas"));
    m_undoButton->hide();
    m_redoButton->hide();
    m_previewButton->hide();
    m_canvas->setFillTolerance(CoopCanvas::DefaultFillTolerance);
    seedCoopWiggle(loadEditorSettings());

    const QSize personSize(18, 18);
    m_layersButton->setIcon(tintedSvgIcon(Icons::Person, m_iconColor, personSize));
    m_layersButton->setIconSize(personSize);
    m_layersButton->setToolTip(QStringLiteral("Connected users"));
    m_usersPopup = new CoopUsersPopup(this);
    m_usersPopup->setAnchor(m_layersButton);
    connect(m_usersPopup, &CoopUsersPopup::closed, this, [this] { m_usersPopupOpen = false; });
    connect(m_usersPopup, &CoopUsersPopup::kickRequested, &CoopSession::instance(),
            &CoopSession::kick);

    CoopCanvas &shared = CoopCanvas::instance();
    connect(m_canvas, &CanvasWidget::coopStrokeSegment, this, [&shared](const Stroke &stroke) {
        shared.addLocalStroke(stroke, CoopCanvas::DefaultFillTolerance);
    });

    // The shared picture connected to the session first, so it is up to date
    // when these run.
    CoopSession &session = CoopSession::instance();
    connect(&session, &CoopSession::strokeReceived, this, [this](const Stroke &stroke) {
        CanvasDocument *document = m_canvas->document();
        paintStroke(document->activeImage(), stroke, CoopCanvas::DefaultFillTolerance);
        document->markPainted();
        m_canvas->update();
    });
    connect(&session, &CoopSession::clearReceived, m_canvas, [this] { m_canvas->clear(); });
    // The shared picture adopts the host's on its own thread: take it once
    // that is done.
    connect(&session, &CoopSession::canvasStateReceived, this, [this] {
        CoopCanvas::instance().snapshot(this, [this](const QImage &picture) {
            m_canvas->setStrokesAndImage(QVector<Stroke>(), picture);
        });
    });
    connect(&session, &CoopSession::usersChanged, this, [this](const QList<CoopUser> &users) {
        if (!m_usersPopup->isVisible())
            return;
        m_usersPopup->setUsers(users, CoopSession::instance().role() == CoopSession::Role::Host);
        placeUsersPopup();
    });
}

void DrawingWindow::seedCoopWiggle(const EditorSettings &settings)
{
    CoopCanvas &shared = CoopCanvas::instance();
    shared.setJitterEnabled(settings.jitterEnabled);
    shared.setJitterAmountPx(wiggleAmountPxFromSetting(settings.jitterAmount));
    const int fps = wiggleFramesPerSecondFromSetting(settings.jitterSpeed);
    shared.setJitterInterval(std::max(0.01f, 1.0f / float(fps)));
}

void DrawingWindow::toggleUsersPopup()
{
    if (m_usersPopup->isVisible()) {
        m_usersPopup->hide();
        m_usersPopupOpen = false;
        return;
    }
    const CoopSession &session = CoopSession::instance();
    m_usersPopup->setUsers(session.users(), session.role() == CoopSession::Role::Host);
    placeUsersPopup();
    m_usersPopup->show();
    // Showing polishes the frame, whose style sheet border can change its width.
    placeUsersPopup();
    m_usersPopup->raise();
    m_usersPopupOpen = true;
}

void DrawingWindow::placeUsersPopup()
{
    m_usersPopup->adjustSize();
    const QPoint corner =
        m_layersButton->mapToGlobal(QPoint(m_layersButton->width(), m_layersButton->height()));
    m_usersPopup->move(corner.x() - m_usersPopup->width(), corner.y() + 2);
}
