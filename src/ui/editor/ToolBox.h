#pragma once

#include "editor/EditorFeature.h"

#include "engine/Stroke.h"

class LongPressButton;
class QButtonGroup;
class QFrame;
class QPushButton;

// The framed group of tools: Brush, Eraser, Fill Bucket and Shapes, one of
// them chosen at a time, followed by the wiggle toggle it is given.
class ToolBox : public EditorFeature {
    Q_OBJECT

public:
    ToolBox(const EditorContext &context, QWidget *trailing);

    QFrame *frame() const { return m_frame; }
    LongPressButton *fillButton() const { return m_fill; }
    QPushButton *shapesButton() const { return m_shapes; }

    void applySettings(const EditorSettings &settings) override;
    void collectSettings(EditorSettings &settings) const override;

signals:
    void toolChosen(Tool tool);

private:
    void choose(Tool tool);

    QFrame *m_frame;
    QButtonGroup *m_group;
    LongPressButton *m_fill;
    QPushButton *m_shapes;
};
