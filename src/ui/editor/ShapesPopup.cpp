#include "editor/ShapesPopup.h"

#include "canvas/CanvasWidget.h"
#include "common/Text.h"
#include "editor/EditorStyle.h"
#include "editor/PopupHost.h"
#include "settings/EditorSettings.h"
#include "widgets/Icons.h"
#include "widgets/PaintedIcons.h"
#include "widgets/TintedIcon.h"

#include <QButtonGroup>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QSignalBlocker>
#include <QVBoxLayout>

namespace {

const QSize IconSize(18, 18);

// Object names of the shape buttons, in ShapeType order.
const char *const ShapeNames[ShapeTypeCount] = {"Rectangle", "Ellipse",  "Triangle", "Diamond",
                                                "Star",      "Pentagon", "Hexagon",  "Arrow",
                                                "Heart",     "Cross"};

void checkQuietly(QAbstractButton *button, bool checked)
{
    if (!button)
        return;
    const QSignalBlocker blocker(button);
    button->setChecked(checked);
}

} // namespace

ShapesPopup::ShapesPopup(const EditorContext &context, QPushButton *shapesButton)
    : EditorFeature(context), m_shapesButton(shapesButton)
{
    const QPalette palette = context.window->palette();
    m_popup =
        context.popups->create(QStringLiteral("shapesPopup"), shapesButton,
                               QFrame::Box | QFrame::Plain, EditorStyle::flatButtonRules(palette));
    // The button stays checked in its exclusive group, so each click flips the pop-up.
    connect(shapesButton, &QPushButton::clicked, this,
            [this] { m_context.popups->toggle(m_popup); });

    auto *layout = new QVBoxLayout(m_popup);
    layout->setContentsMargins(6, 6, 6, 6);
    layout->setSpacing(5);
    buildTip();

    auto *row = new QHBoxLayout();
    row->setSpacing(8);
    auto *grid = new QGridLayout();
    m_types = new QButtonGroup(this);
    const QString tooltips[ShapeTypeCount] = {
        uiText("Editor.Shape.Rectangle"), uiText("Editor.Shape.Ellipse"),
        uiText("Editor.Shape.Triangle"),  uiText("Editor.Shape.Diamond"),
        uiText("Editor.Shape.Star"),      uiText("Editor.Shape.Pentagon"),
        uiText("Editor.Shape.Hexagon"),   uiText("Editor.Shape.Arrow"),
        uiText("Editor.Shape.Heart"),     uiText("Editor.Shape.Cross")};
    for (int id = 0; id < ShapeTypeCount; ++id) {
        QPushButton *button =
            shapeButton(QStringLiteral("shape") + QString::fromLatin1(ShapeNames[id]),
                        shapeOutlineIcon(id, context.iconColor, IconSize), tooltips[id]);
        m_types->addButton(button, id);
        grid->addWidget(button, id / 5, id % 5);
    }
    m_types->button(ShapeRectangle)->setChecked(true);
    connect(m_types, &QButtonGroup::idClicked, context.canvas, &CanvasWidget::setShapeType);
    row->addLayout(grid);
    row->addWidget(EditorStyle::separator(m_popup, QSize(1, 60)));

    auto *modes = new QVBoxLayout();
    modes->setSpacing(4);
    m_modes = new QButtonGroup(this);
    QPushButton *filled =
        shapeButton(QStringLiteral("shapeFilled"),
                    tintedSvgIcon(Icons::ShapesFilled, context.iconColor, IconSize),
                    uiText("Editor.Shape.Filled"));
    QPushButton *outline =
        shapeButton(QStringLiteral("shapeOutline"),
                    tintedSvgIcon(Icons::ShapesOutline, context.iconColor, IconSize),
                    uiText("Editor.Shape.Outline"));
    filled->setChecked(true);
    m_modes->addButton(filled, int(Mode::Filled));
    m_modes->addButton(outline, int(Mode::Outline));
    connect(m_modes, &QButtonGroup::idClicked, this, [this](int id) { setMode(Mode(id)); });
    modes->addWidget(filled);
    modes->addWidget(outline);
    row->addLayout(modes);
    row->addWidget(EditorStyle::separator(m_popup, QSize(1, 58)));

    auto *eraseColumn = new QVBoxLayout();
    eraseColumn->addStretch();
    m_erase = shapeButton(QStringLiteral("shapeEraseButton"),
                          tintedSvgIcon(Icons::Eraser, context.iconColor, IconSize),
                          uiText("Editor.Shape.Erase"));
    connect(m_erase, &QPushButton::toggled, context.canvas, &CanvasWidget::setShapeErase);
    eraseColumn->addWidget(m_erase);
    eraseColumn->addStretch();
    row->addLayout(eraseColumn);
    layout->addLayout(row);
}

void ShapesPopup::buildTip()
{
    // Secondary text in the palette's own text colour, so it reads in any theme.
    const QString textStyle = QStringLiteral("font-size: 10px; color: palette(window-text);");
    auto *tip = new QHBoxLayout();
    tip->setSpacing(3);
    auto *start = new QLabel(uiText("Editor.Shape.TipStart"), m_popup);
    start->setStyleSheet(textStyle);
    auto *keyCap = new QLabel(uiText("Editor.Shape.TipKey"), m_popup);
    keyCap->setStyleSheet(QStringLiteral("font-size: 9px; font-weight: bold; background: "
                                         "palette(button); color: palette(button-text); border: "
                                         "1px solid %1; border-bottom: 2px solid %1; "
                                         "border-radius: 3px; padding: 1px 4px;")
                              .arg(EditorStyle::mutedColor(m_context.window->palette()).name()));
    auto *end = new QLabel(uiText("Editor.Shape.TipEnd"), m_popup);
    end->setStyleSheet(textStyle);
    tip->addWidget(start);
    tip->addWidget(keyCap);
    tip->addWidget(end);
    tip->addStretch();
    static_cast<QVBoxLayout *>(m_popup->layout())->addLayout(tip);
}

QPushButton *ShapesPopup::shapeButton(const QString &name, const QIcon &icon,
                                      const QString &tooltip)
{
    return EditorStyle::flatButton<QPushButton>(m_popup, name, icon, QSize(28, 28), IconSize,
                                                tooltip);
}

void ShapesPopup::setMode(Mode mode)
{
    m_context.canvas->setShapeMode(int(mode));
    const QString &svg = mode == Mode::Outline ? Icons::ShapesOutline : Icons::ShapesFilled;
    m_shapesButton->setIcon(tintedSvgIcon(svg, m_context.iconColor, QSize(20, 20)));
}

void ShapesPopup::onToolChosen(Tool tool)
{
    if (tool == Tool::Shapes)
        setMode(Mode(m_modes->checkedId()));
    else
        m_context.popups->close(m_popup);
}

void ShapesPopup::applySettings(const EditorSettings &settings)
{
    checkQuietly(m_types->button(settings.shapeType), true);
    m_context.canvas->setShapeType(settings.shapeType);
    checkQuietly(m_modes->button(settings.shapeMode), true);
    setMode(Mode(settings.shapeMode));
    checkQuietly(m_erase, settings.shapeErase);
    m_context.canvas->setShapeErase(settings.shapeErase);
}

void ShapesPopup::collectSettings(EditorSettings &settings) const
{
    settings.shapeType = m_types->checkedId();
    settings.shapeMode = m_modes->checkedId();
    settings.shapeErase = m_erase->isChecked();
}
