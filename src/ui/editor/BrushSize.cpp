#include "editor/BrushSize.h"

#include "canvas/CanvasWidget.h"
#include "common/Text.h"
#include "editor/SliderSpin.h"
#include "settings/EditorSettings.h"

#include <QHBoxLayout>
#include <QLabel>

BrushSize::BrushSize(const EditorContext &context) : EditorFeature(context)
{
    m_widget = new QWidget(context.window);
    auto *layout = new QHBoxLayout(m_widget);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(8);
    layout->addWidget(new QLabel(uiText("Editor.Size"), m_widget));
    m_size = new SliderSpin(
        QStringLiteral("brushSize"),
        {BrushSpinMinimum, BrushSliderMaximum, BrushSpinMaximum, int(context.canvas->brushSize())},
        {110, 82, QStringLiteral(" ") + uiText("Editor.Pixels")}, m_widget);
    m_size->layout()->setSpacing(8);
    connect(m_size, &SliderSpin::valueChanged, this,
            [this](int value) { m_context.canvas->setBrushSize(float(value)); });
    layout->addWidget(m_size);
}

void BrushSize::applySettings(const EditorSettings &settings)
{
    // The spin box shows the size within its range; the canvas gets it as stored.
    m_size->setValue(settings.brushSize);
    m_context.canvas->setBrushSize(float(settings.brushSize));
}

void BrushSize::collectSettings(EditorSettings &settings) const
{
    settings.brushSize = m_size->value();
}
