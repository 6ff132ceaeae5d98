#include "editor/CoopFeature.h"

#include "canvas/CanvasWidget.h"
#include "common/Text.h"
#include "editor/CoopUsersPopup.h"
#include "editor/PopupHost.h"
#include "engine/CanvasDocument.h"
#include "engine/StrokePainter.h"
#include "source/CoopFacet.h"
#include "widgets/Icons.h"
#include "widgets/TintedIcon.h"

#include <QPainter>
#include <QToolButton>

CoopFeature::CoopFeature(const EditorContext &context, CoopFacet *coop, QToolButton *usersButton)
    : EditorFeature(context), m_coop(coop), m_usersButton(usersButton)
{
    CanvasWidget *canvas = context.canvas;
    canvas->setWiggleEnabled(false);
    canvas->setFillTolerance(coop->fillTolerance());
    canvas->setStrokesAndImage(QVector<Stroke>(), coop->picture());

    const QSize personSize(18, 18);
    usersButton->setIcon(tintedSvgIcon(Icons::Person, context.iconColor, personSize));
    usersButton->setIconSize(personSize);
    usersButton->setToolTip(uiText("Editor.Tooltip.Users"));
    connect(usersButton, &QToolButton::clicked, this, &CoopFeature::toggleUsers);
    m_users = new CoopUsersPopup(context.window);
    m_users->setAnchor(usersButton);
    m_users->setShielded(canvas);
    connect(m_users, &CoopUsersPopup::kickRequested, coop, &CoopFacet::kick);
    connect(coop, &CoopFacet::participantsChanged, this, [this] {
        if (m_users->isVisible())
            showUsers();
    });

    connect(canvas, &CanvasWidget::coopStrokeSegment, coop, &CoopFacet::shareSegment);
    connect(coop, &CoopFacet::remoteStroke, this, &CoopFeature::onRemoteStroke);
    connect(coop, &CoopFacet::pictureAreaChanged, this, &CoopFeature::onPictureAreaChanged);
    connect(coop, &CoopFacet::remoteClear, canvas, &CanvasWidget::clear);
    connect(coop, &CoopFacet::pictureReplaced, canvas,
            [canvas](const QImage &picture) { canvas->setStrokesAndImage({}, picture); });
}

void CoopFeature::applySettings(const EditorSettings &)
{
    m_context.canvas->setFillTolerance(m_coop->fillTolerance());
}

// Other participants' strokes are painted off the UI thread into the shared
// picture; the editor copies the area they cover once it is there.
void CoopFeature::onRemoteStroke(const Stroke &stroke)
{
    const CanvasDocument *document = m_context.canvas->document();
    m_remoteArea |= strokeBounds(stroke, QSize(document->width(), document->height()));
}

void CoopFeature::onPictureAreaChanged(const QImage &picture, const QRect &bounds)
{
    CanvasDocument *document = m_context.canvas->document();
    const QRect area = bounds & m_remoteArea & picture.rect();
    if (area.isEmpty())
        return;
    if (bounds.contains(m_remoteArea))
        m_remoteArea = QRect();
    QPainter painter(&document->activeImage());
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    painter.drawImage(area.topLeft(), picture, area);
    painter.end();
    // Only that area is composed again.
    document->markPainted(area);
    m_context.canvas->update();
}

void CoopFeature::toggleUsers()
{
    if (m_users->isVisible()) {
        m_users->hide();
        return;
    }
    showUsers();
    m_users->show();
    // Showing polishes the frame, whose style sheet border can change its width.
    placeUsers();
    m_users->raise();
}

void CoopFeature::showUsers()
{
    m_users->setUsers(m_coop->participants(), m_coop->localIsHost());
    placeUsers();
}

void CoopFeature::placeUsers()
{
    m_users->adjustSize();
    const QPoint corner =
        m_usersButton->mapToGlobal(QPoint(m_usersButton->width(), m_usersButton->height()));
    m_users->move(corner.x() - m_users->width(), corner.y() + 2);
}
