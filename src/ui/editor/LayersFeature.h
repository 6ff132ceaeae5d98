#pragma once

#include "editor/EditorFeature.h"

class LayerPanel;
class QFrame;
class QHBoxLayout;
class QToolButton;

// The layers: a "layersPopup" under the Layers button, or, pinned, the same
// panel docked at the window's right edge.
class LayersFeature : public EditorFeature {
    Q_OBJECT

public:
    // The docked panel goes at the end of canvasRow.
    LayersFeature(const EditorContext &context, QToolButton *layersButton, QHBoxLayout *canvasRow);

public slots:
    void onLayersClicked();
    void onLayerPinToggled();

private:
    QFrame *m_popup;
    LayerPanel *m_popupPanel;
    LayerPanel *m_dockedPanel;
    bool m_pinned = false;
};
