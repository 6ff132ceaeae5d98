// Opening, placing and dismissing the pop-ups.

#include "editor/DrawingWindow.h"

#include "layers/LayerPanel.h"
#include "widgets/LongPressButton.h"

#include <QFrame>
#include <QLayout>
#include <QPushButton>
#include <QToolButton>

#include <algorithm>

namespace {

QRect globalRect(const QWidget *widget)
{
    return QRect(widget->mapToGlobal(QPoint(0, 0)), widget->size());
}

} // namespace

void DrawingWindow::positionPopup(QWidget *popup, QWidget *anchor)
{
    if (!popup || !anchor)
        return;
    const QPoint below = anchor->mapTo(this, QPoint(0, anchor->height() + 4));
    const int x = std::max(std::min(below.x(), width() - 4 - popup->width()), 4);
    const int y = std::max(std::min(below.y(), height() - 4 - popup->height()), 4);
    popup->move(x, y);
}

void DrawingWindow::openPopup(QFrame *popup, QWidget *anchor)
{
    // A child that is not in a layout keeps the size it had when hidden; its
    // style sheet's border counts once it is polished.
    popup->ensurePolished();
    popup->adjustSize();
    positionPopup(popup, anchor);
    popup->show();
    popup->raise();
}

void DrawingWindow::flipPopup(QFrame *popup, QWidget *anchor, bool &open)
{
    open = !open;
    if (open)
        openPopup(popup, anchor);
    else
        popup->hide();
}

void DrawingWindow::closePopup(QFrame *popup, bool &open)
{
    if (!popup)
        return;
    open = false;
    popup->hide();
}

void DrawingWindow::closePopupIfOutside(QFrame *popup, QWidget *anchor, bool &open,
                                        const QPoint &globalPos)
{
    if (!popup || !open)
        return;
    if (globalRect(popup).contains(globalPos))
        return;
    if (anchor && globalRect(anchor).contains(globalPos))
        return; // the button toggles the pop-up itself
    closePopup(popup, open);
}

void DrawingWindow::dismissPopupsOutside(const QPoint &globalPos)
{
    closePopupIfOutside(m_colorSection, m_colorButton, m_colorSectionOpen, globalPos);
    closePopupIfOutside(m_jitterPopup, m_jitterButton, m_jitterPopupOpen, globalPos);
    closePopupIfOutside(m_fillPopup, m_fillButton, m_fillPopupOpen, globalPos);
    closePopupIfOutside(m_shapesPopup, m_shapesButton, m_shapesPopupOpen, globalPos);
    closePopupIfOutside(m_previewPopup, m_previewButton, m_previewPopupOpen, globalPos);
    if (m_layersPopup)
        closePopupIfOutside(m_layersPopup, m_layersButton, m_layersPopupOpen, globalPos);
}

void DrawingWindow::relayoutLayersPopup()
{
    if (!m_layersPopup || !m_layersPopupOpen || m_layersPopup->isHidden())
        return;
    m_popupLayerPanel->updateGeometry();
    if (m_popupLayerPanel->layout())
        m_popupLayerPanel->layout()->activate();
    m_layersPopup->layout()->activate();
    m_layersPopup->adjustSize();
    positionPopup(m_layersPopup, m_layersButton);
}
