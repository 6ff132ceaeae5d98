#pragma once

#include "editor/EditorFeature.h"

class LongPressButton;
class QFrame;
class QTimer;
class SliderSpin;

// The dimmed scene behind the canvas: the Preview toggle captures the current
// scene every 100 ms while on; a long press opens the "previewPopup" with
// its opacity.
class PreviewPopup : public EditorFeature {
    Q_OBJECT

public:
    static constexpr int IntervalMs = 100;

    explicit PreviewPopup(const EditorContext &context);

    LongPressButton *button() const { return m_button; }

    void applySettings(const EditorSettings &settings) override;
    void collectSettings(EditorSettings &settings) const override;

private:
    void setShown(bool on);
    void onTick();
    void applyOpacity(int percent);

    LongPressButton *m_button;
    QFrame *m_popup;
    SliderSpin *m_opacity;
    QTimer *m_timer;
};
