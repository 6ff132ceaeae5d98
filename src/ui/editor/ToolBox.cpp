#include "editor/ToolBox.h"

#include "canvas/CanvasWidget.h"
#include "common/Text.h"
#include "editor/EditorStyle.h"
#include "settings/EditorSettings.h"
#include "widgets/Icons.h"
#include "widgets/LongPressButton.h"
#include "widgets/TintedIcon.h"

#include <QButtonGroup>
#include <QFrame>
#include <QHBoxLayout>
#include <QPushButton>
#include <QSignalBlocker>

namespace {

const QSize ButtonSize(32, 32);
const QSize IconSize(20, 20);

} // namespace

ToolBox::ToolBox(const EditorContext &context, QWidget *trailing) : EditorFeature(context)
{
    const QPalette palette = context.window->palette();
    m_frame = new QFrame(context.window);
    m_frame->setObjectName(QStringLiteral("toolBox"));
    m_frame->setFrameStyle(QFrame::Box | QFrame::Plain);
    m_frame->setLineWidth(1);
    m_frame->setStyleSheet(
        QStringLiteral(
            "QFrame#toolBox { border: 1px solid %1; border-radius: 3px;                  "
            "background: palette(button); padding: 1px; }")
            .arg(EditorStyle::mutedColor(palette).name()) +
        EditorStyle::flatButtonRules(palette));

    const QColor ink = context.iconColor;
    auto *brush = EditorStyle::flatButton<QPushButton>(
        m_frame, QStringLiteral("brushButton"), tintedSvgIcon(Icons::Brush, ink, IconSize),
        ButtonSize, IconSize, uiText("Editor.Tooltip.Brush"));
    brush->setChecked(true);
    auto *eraser = EditorStyle::flatButton<QPushButton>(
        m_frame, QStringLiteral("eraserButton"), tintedSvgIcon(Icons::Eraser, ink, IconSize),
        ButtonSize, IconSize, uiText("Editor.Tooltip.Eraser"));
    m_fill = EditorStyle::flatButton<LongPressButton>(
        m_frame, QStringLiteral("fillButton"), tintedSvgIcon(Icons::FillBucket, ink, IconSize),
        ButtonSize, IconSize, uiText("Editor.Tooltip.Fill"));
    m_fill->showIndicator = true;
    m_shapes = EditorStyle::flatButton<QPushButton>(
        m_frame, QStringLiteral("shapesButton"), tintedSvgIcon(Icons::ShapesFilled, ink, IconSize),
        ButtonSize, IconSize, uiText("Editor.Tooltip.Shapes"));

    m_group = new QButtonGroup(this);
    m_group->setExclusive(true);
    m_group->addButton(brush, int(Tool::Brush));
    m_group->addButton(eraser, int(Tool::Eraser));
    m_group->addButton(m_fill, int(Tool::FillBucket));
    m_group->addButton(m_shapes, int(Tool::Shapes));
    connect(m_group, &QButtonGroup::idClicked, this, [this](int id) { choose(Tool(id)); });

    auto *layout = new QHBoxLayout(m_frame);
    layout->setContentsMargins(4, 2, 4, 2);
    layout->setSpacing(2);
    for (QAbstractButton *button : m_group->buttons())
        layout->addWidget(button);
    layout->addSpacing(3);
    layout->addWidget(EditorStyle::separator(m_frame, QSize(2, 20), " border-radius: 1px;"));
    layout->addSpacing(3);
    layout->addWidget(trailing);
}

void ToolBox::choose(Tool tool)
{
    m_context.canvas->setTool(int(tool));
    emit toolChosen(tool);
}

void ToolBox::applySettings(const EditorSettings &settings)
{
    QAbstractButton *button = m_group->button(settings.tool);
    if (!button)
        return;
    {
        const QSignalBlocker blocker(button);
        button->setChecked(true);
    }
    choose(Tool(settings.tool));
}

void ToolBox::collectSettings(EditorSettings &settings) const
{
    settings.tool = m_group->checkedId();
}
