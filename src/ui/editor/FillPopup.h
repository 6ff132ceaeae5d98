#pragma once

#include "editor/EditorFeature.h"

class LongPressButton;
class QFrame;
class SliderSpin;

// The fill tolerance, in the "fillPopup" that a long press on the Fill
// Bucket opens.
class FillPopup : public EditorFeature {
    Q_OBJECT

public:
    FillPopup(const EditorContext &context, LongPressButton *fillButton);

    void applySettings(const EditorSettings &settings) override;
    void collectSettings(EditorSettings &settings) const override;

private:
    QFrame *m_popup;
    SliderSpin *m_tolerance;
};
