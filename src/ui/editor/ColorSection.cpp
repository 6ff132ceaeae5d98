#include "editor/ColorSection.h"

#include "canvas/CanvasWidget.h"
#include "common/Text.h"
#include "editor/EditorStyle.h"
#include "editor/PopupHost.h"
#include "settings/EditorSettings.h"
#include "widgets/ColorPickerWidget.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QSignalBlocker>
#include <QSlider>
#include <QToolButton>
#include <QVBoxLayout>

ColorSection::ColorSection(const EditorContext &context) : EditorFeature(context)
{
    m_button = new QToolButton(context.window);
    m_button->setObjectName(QStringLiteral("colorButton"));
    m_button->setFixedSize(28, 28);
    m_button->setToolTip(uiText("Editor.Tooltip.Color"));
    m_popup =
        context.popups->create(QStringLiteral("colorPickerSection"), m_button, QFrame::NoFrame);
    connect(m_button, &QToolButton::clicked, this, [this] { m_context.popups->toggle(m_popup); });

    auto *layout = new QVBoxLayout(m_popup);
    layout->setContentsMargins(8, 8, 8, 8);
    layout->setSpacing(6);
    m_picker = new ColorPickerWidget(m_popup);
    m_picker->setColor(m_color);
    connect(m_picker, &ColorPickerWidget::colorChanged, this, &ColorSection::onColorChanged);
    layout->addWidget(m_picker);

    auto *row = new QHBoxLayout();
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(6);
    row->addWidget(new QLabel(uiText("Editor.Opacity"), m_popup));
    m_opacity = new QSlider(Qt::Horizontal, m_popup);
    m_opacity->setObjectName(QStringLiteral("opacitySlider"));
    m_opacity->setRange(0, 100);
    m_opacity->setValue(100);
    connect(m_opacity, &QSlider::valueChanged, this, &ColorSection::onOpacityChanged);
    row->addWidget(m_opacity);
    m_opacityLabel = new QLabel(QStringLiteral("100%"), m_popup);
    m_opacityLabel->setObjectName(QStringLiteral("opacityLabel"));
    m_opacityLabel->setMinimumWidth(38);
    row->addWidget(m_opacityLabel);
    layout->addLayout(row);
    applyBrushColor();
}

void ColorSection::onColorChanged(QColor color)
{
    if (!color.isValid())
        return;
    color.setAlpha(255);
    m_color = color;
    applyBrushColor();
}

void ColorSection::onOpacityChanged(int value)
{
    m_opacityLabel->setText(QStringLiteral("%1%").arg(value));
    applyBrushColor();
}

void ColorSection::applyBrushColor()
{
    QColor brush = m_color;
    brush.setAlpha(m_opacity->value() * 255 / 100);
    m_context.canvas->setBrushColor(brush);
    // The outline reads on the tool row whatever the colour, black on a dark theme too.
    const QColor outline = EditorStyle::mutedColor(m_context.window->palette());
    m_button->setStyleSheet(QStringLiteral("background-color: %1; border: 1px solid %2;")
                                .arg(brush.name(QColor::HexArgb), outline.name()));
}

void ColorSection::applySettings(const EditorSettings &settings)
{
    m_color = settings.color;
    m_color.setAlpha(255);
    {
        const QSignalBlocker blocker(m_picker);
        m_picker->setColor(m_color);
    }
    const QSignalBlocker blocker(m_opacity);
    m_opacity->setValue(settings.opacity);
    onOpacityChanged(m_opacity->value());
}

void ColorSection::collectSettings(EditorSettings &settings) const
{
    settings.color = m_color;
    settings.opacity = m_opacity->value();
}
