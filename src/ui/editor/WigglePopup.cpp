#include "editor/WigglePopup.h"

#include "canvas/CanvasWidget.h"
#include "common/Text.h"
#include "common/Wiggle.h"
#include "editor/EditorStyle.h"
#include "editor/PopupHost.h"
#include "editor/SliderSpin.h"
#include "settings/EditorSettings.h"
#include "source/EditorSource.h"
#include "widgets/LongPressButton.h"
#include "widgets/PaintedIcons.h"

#include <QGridLayout>
#include <QLabel>
#include <QSignalBlocker>

WigglePopup::WigglePopup(const EditorContext &context) : EditorFeature(context)
{
    const QSize iconSize(20, 20);
    m_button = EditorStyle::flatButton<LongPressButton>(
        context.window, QStringLiteral("jitterButton"),
        jitterWavesIcon(context.iconColor, iconSize), QSize(32, 32), iconSize,
        uiText("Editor.Tooltip.Jitter"));
    m_button->showIndicator = true;
    connect(m_button, &LongPressButton::clicked, this, &WigglePopup::setEnabled);

    m_popup = context.popups->createHeld(QStringLiteral("jitterPopup"), m_button);
    const SliderSpin::Look look{90, 68, QStringLiteral("%")};
    m_amount = new SliderSpin(QStringLiteral("jitterAmount"), {0, 100, 100, 50}, look, m_popup);
    m_speed = new SliderSpin(QStringLiteral("jitterSpeed"), {0, 100, 100, 20}, look, m_popup);
    connect(m_amount, &SliderSpin::valueChanged, this, &WigglePopup::applyAmount);
    connect(m_speed, &SliderSpin::valueChanged, this, &WigglePopup::applySpeed);

    auto *grid = new QGridLayout(m_popup);
    grid->setContentsMargins(8, 6, 8, 6);
    grid->setSpacing(6);
    grid->addWidget(new QLabel(uiText("Editor.Amount"), m_popup), 0, 0);
    grid->addWidget(m_amount, 0, 1);
    grid->addWidget(new QLabel(uiText("Editor.Speed"), m_popup), 1, 0);
    grid->addWidget(m_speed, 1, 1);
}

void WigglePopup::setEnabled(bool on)
{
    m_context.canvas->setWiggleEnabled(on);
    if (m_context.source)
        m_context.source->setJitterEnabled(on);
    if (!on)
        m_context.popups->close(m_popup);
}

void WigglePopup::applyAmount(int percent)
{
    const float amount = wiggleAmountPxFromSetting(percent);
    m_context.canvas->setWiggleAmount(amount);
    if (m_context.source)
        m_context.source->setJitterAmount(amount);
}

void WigglePopup::applySpeed(int percent)
{
    const int fps = wiggleFramesPerSecondFromSetting(percent);
    m_context.canvas->setWiggleInterval(1000 / fps);
    if (m_context.source)
        m_context.source->setJitterInterval(1.0f / float(fps));
}

void WigglePopup::applySettings(const EditorSettings &settings)
{
    m_amount->setValue(settings.jitterAmount);
    applyAmount(settings.jitterAmount);
    m_speed->setValue(settings.jitterSpeed);
    applySpeed(settings.jitterSpeed);
    {
        const QSignalBlocker blocker(m_button);
        m_button->setChecked(settings.jitterEnabled);
    }
    setEnabled(settings.jitterEnabled);
}

void WigglePopup::collectSettings(EditorSettings &settings) const
{
    settings.jitterAmount = m_amount->value();
    settings.jitterSpeed = m_speed->value();
    settings.jitterEnabled = m_button->isChecked();
}
