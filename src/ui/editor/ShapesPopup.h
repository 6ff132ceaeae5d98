#pragma once

#include "editor/EditorFeature.h"

#include "engine/Stroke.h"

class QButtonGroup;
class QFrame;
class QPushButton;

// Filled or outlined shapes; the "shapesPopup" under the Shapes tool holds
// the ten shape types, the fill mode and "Erase shape area".
class ShapesPopup : public EditorFeature {
    Q_OBJECT

public:
    enum class Mode { Filled = 0, Outline = ShapeModeOutline };

    ShapesPopup(const EditorContext &context, QPushButton *shapesButton);

    void applySettings(const EditorSettings &settings) override;
    void collectSettings(EditorSettings &settings) const override;

public slots:
    // The tool box's choice: the Shapes tool keeps the pop-up, any other closes it.
    void onToolChosen(Tool tool);

private:
    void buildTip();
    QPushButton *shapeButton(const QString &name, const QIcon &icon, const QString &tooltip);
    void setMode(Mode mode);

    QPushButton *m_shapesButton;
    QFrame *m_popup;
    QButtonGroup *m_types;
    QButtonGroup *m_modes;
    QPushButton *m_erase;
};
