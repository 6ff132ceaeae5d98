#pragma once

#include "editor/EditorFeature.h"

class LongPressButton;
class QFrame;
class SliderSpin;

// The wiggle ("jitter") of the drawing: the Jitter toggle, and the
// "jitterPopup" with its amount and speed that a long press opens. The
// values go to the canvas preview and to the source.
class WigglePopup : public EditorFeature {
    Q_OBJECT

public:
    explicit WigglePopup(const EditorContext &context);

    LongPressButton *button() const { return m_button; }

    void applySettings(const EditorSettings &settings) override;
    void collectSettings(EditorSettings &settings) const override;

private:
    void setEnabled(bool on);
    void applyAmount(int percent);
    void applySpeed(int percent);

    LongPressButton *m_button;
    QFrame *m_popup;
    SliderSpin *m_amount;
    SliderSpin *m_speed;
};
