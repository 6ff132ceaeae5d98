#pragma once

#include "editor/EditorFeature.h"

class SliderSpin;

// The brush size: "Size:", a slider up to 150 px and a spin box that reaches
// further, deliberately, for very large brushes.
class BrushSize : public EditorFeature {
    Q_OBJECT

public:
    explicit BrushSize(const EditorContext &context);

    QWidget *widget() const { return m_widget; }

    void applySettings(const EditorSettings &settings) override;
    void collectSettings(EditorSettings &settings) const override;

private:
    QWidget *m_widget;
    SliderSpin *m_size;
};
