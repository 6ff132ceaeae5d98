#include "editor/FillPopup.h"

#include "canvas/CanvasWidget.h"
#include "editor/PopupHost.h"
#include "editor/SliderSpin.h"
#include "settings/EditorSettings.h"
#include "widgets/LongPressButton.h"

#include <QHBoxLayout>
#include <QLabel>

FillPopup::FillPopup(const EditorContext &context, LongPressButton *fillButton)
    : EditorFeature(context)
{
    m_popup = context.popups->create(QStringLiteral("fillPopup"), fillButton,
                                     QFrame::Box | QFrame::Plain);
    m_tolerance = new SliderSpin(QStringLiteral("fillTolerance"), {0, 255, 255, 30},
                                 {90, 56, QString()}, m_popup);
    auto *layout = new QHBoxLayout(m_popup);
    layout->setContentsMargins(8, 6, 8, 6);
    layout->setSpacing(6);
    layout->addWidget(new QLabel(QStringLiteral("Tolerance:"), m_popup));
    layout->addWidget(m_tolerance);
    connect(m_tolerance, &SliderSpin::valueChanged, context.canvas,
            &CanvasWidget::setFillTolerance);
    connect(fillButton, &LongPressButton::longPressed, this,
            [this] { m_context.popups->toggle(m_popup); });
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
