#include "editor/LayersFeature.h"

#include "canvas/CanvasWidget.h"
#include "editor/PopupHost.h"
#include "layers/LayerPanel.h"

#include <QHBoxLayout>
#include <QToolButton>
#include <QVBoxLayout>

LayersFeature::LayersFeature(const EditorContext &context, QToolButton *layersButton,
                             QHBoxLayout *canvasRow)
    : EditorFeature(context)
{
    m_popup = context.popups->create(QStringLiteral("layersPopup"), layersButton,
                                     QFrame::Box | QFrame::Plain);
    auto *layout = new QVBoxLayout(m_popup);
    layout->setContentsMargins(4, 4, 4, 4);
    m_popupPanel = new LayerPanel(context.canvas, m_popup);
    m_popupPanel->setObjectName(QStringLiteral("popupLayerPanel"));
    m_popupPanel->setFixedWidth(248);
    layout->addWidget(m_popupPanel);

    m_dockedPanel = new LayerPanel(context.canvas, context.window);
    m_dockedPanel->setObjectName(QStringLiteral("dockedLayerPanel"));
    m_dockedPanel->setFixedWidth(240);
    m_dockedPanel->hide();
    canvasRow->addWidget(m_dockedPanel);

    connect(layersButton, &QToolButton::clicked, this, &LayersFeature::onLayersClicked);
    for (LayerPanel *panel : {m_popupPanel, m_dockedPanel})
        connect(panel, &LayerPanel::pinToggled, this, &LayersFeature::onLayerPinToggled);
    // Rows come and go with the layers; the open pop-up follows its panel's size.
    connect(context.canvas, &CanvasWidget::layersChanged, this,
            [this] { m_context.popups->refit(m_popup); });
}

void LayersFeature::onLayersClicked()
{
    if (!m_pinned)
        m_context.popups->toggle(m_popup);
}

void LayersFeature::onLayerPinToggled()
{
    m_pinned = !m_pinned;
    m_popupPanel->setPinned(m_pinned);
    m_dockedPanel->setPinned(m_pinned);
    if (!m_pinned) {
        m_dockedPanel->hide();
        return;
    }
    m_context.popups->close(m_popup);
    m_dockedPanel->show();
}
