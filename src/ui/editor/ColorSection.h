#pragma once

#include "editor/EditorFeature.h"

class ColorPickerWidget;
class QFrame;
class QLabel;
class QSlider;
class QToolButton;

// The brush colour: a swatch button in the tool row and, under it, the
// "colorPickerSection" pop-up with the colour picker and the brush opacity.
class ColorSection : public EditorFeature {
    Q_OBJECT

public:
    explicit ColorSection(const EditorContext &context);

    QToolButton *button() const { return m_button; }

    void applySettings(const EditorSettings &settings) override;
    void collectSettings(EditorSettings &settings) const override;

public slots:
    void onColorChanged(QColor color);
    void onOpacityChanged(int value);

private:
    void applyBrushColor();

    QColor m_color = Qt::black;
    QToolButton *m_button;
    QFrame *m_popup;
    ColorPickerWidget *m_picker;
    QSlider *m_opacity;
    QLabel *m_opacityLabel;
};
