#include "editor/FillPopup.h"

#include "canvas/CanvasWidget.h"
#include "common/Text.h"
#include "editor/PopupHost.h"
#include "editor/SliderSpin.h"
#include "settings/EditorSettings.h"
#include "widgets/LongPressButton.h"

FillPopup::FillPopup(const EditorContext &context, LongPressButton *fillButton)
    : EditorFeature(context)
{
    m_popup = context.popups->createHeld(QStringLiteral("fillPopup"), fillButton);
    m_tolerance = new SliderSpin(QStringLiteral("fillTolerance"), {0, 255, 255, 30},
                                 {90, 56, QString()}, m_popup);
    m_tolerance->fillRow(m_popup, uiText("Editor.Tolerance"));
    connect(m_tolerance, &SliderSpin::valueChanged, context.canvas,
            &CanvasWidget::setFillTolerance);
}

void FillPopup::applySettings(const EditorSettings &settings)
{
    m_tolerance->setValue(settings.fillTolerance);
    m_context.canvas->setFillTolerance(settings.fillTolerance);
}

void FillPopup::collectSettings(EditorSettings &settings) const
{
    settings.fillTolerance = m_tolerance->value();
}
