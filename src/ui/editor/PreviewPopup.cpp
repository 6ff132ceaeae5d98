#include "editor/PreviewPopup.h"

#include "canvas/CanvasWidget.h"
#include "common/Text.h"
#include "editor/EditorStyle.h"
#include "editor/PopupHost.h"
#include "editor/SliderSpin.h"
#include "settings/EditorSettings.h"
#include "source/EditorSource.h"
#include "widgets/Icons.h"
#include "widgets/LongPressButton.h"
#include "widgets/TintedIcon.h"

#include <QTimer>

PreviewPopup::PreviewPopup(const EditorContext &context) : EditorFeature(context)
{
    const QSize iconSize(20, 20);
    m_button = EditorStyle::flatButton<LongPressButton>(
        context.window, QStringLiteral("previewButton"),
        tintedSvgIcon(Icons::Preview, context.iconColor, iconSize), QSize(32, 32), iconSize,
        uiText("Editor.Tooltip.Preview"));
    m_button->setFlat(false);
    m_button->showIndicator = true;
    connect(m_button, &LongPressButton::clicked, this, &PreviewPopup::setShown);

    m_popup = context.popups->createHeld(QStringLiteral("previewPopup"), m_button);
    m_opacity = new SliderSpin(QStringLiteral("previewOpacity"), {0, 100, 100, 100},
                               {90, 68, QStringLiteral("%")}, m_popup);
    m_opacity->fillRow(m_popup, uiText("Editor.Opacity"));
    connect(m_opacity, &SliderSpin::valueChanged, this, &PreviewPopup::applyOpacity);

    m_timer = new QTimer(this);
    m_timer->setObjectName(QStringLiteral("previewTimer"));
    m_timer->setInterval(IntervalMs);
    connect(m_timer, &QTimer::timeout, this, &PreviewPopup::onTick);
}

void PreviewPopup::setShown(bool on)
{
    m_context.canvas->setPreviewEnabled(on);
    if (on) {
        m_timer->start();
        onTick();
        return;
    }
    m_timer->stop();
    m_context.popups->close(m_popup);
}

void PreviewPopup::onTick()
{
    if (!m_context.source)
        return;
    const QImage scene = m_context.source->captureScene();
    if (!scene.isNull())
        m_context.canvas->setPreviewImage(scene);
}

void PreviewPopup::applyOpacity(int percent)
{
    m_context.canvas->setPreviewOpacity(float(percent) / 100.0f);
}

void PreviewPopup::applySettings(const EditorSettings &settings)
{
    m_opacity->setValue(settings.previewOpacity);
    applyOpacity(settings.previewOpacity);
}

void PreviewPopup::collectSettings(EditorSettings &settings) const
{
    settings.previewOpacity = m_opacity->value();
}
