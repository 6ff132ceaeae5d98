// The row of controls above the canvas and the canvas itself.

#include "editor/DrawingWindow.h"

#include "canvas/CanvasWidget.h"
#include "widgets/Icons.h"
#include "widgets/LongPressButton.h"
#include "widgets/PaintedIcons.h"
#include "widgets/TintedIcon.h"

#include <QButtonGroup>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QSlider>
#include <QSpinBox>
#include <QToolButton>

namespace {

const QSize RowButtonSize(28, 28);
const QSize RowIconSize(24, 24);
const QSize ToolButtonSize(32, 32);
const QSize ToolIconSize(20, 20);

const char *const SeparatorStyle = "background: rgba(130,130,130,160);";

const char *const ToolBoxStyle =
    "QFrame#toolBox { border: 1px solid palette(mid); border-radius: 3px;                  "
    "background: palette(button); padding: 1px; }"
    "QPushButton { border: none; border-radius: 2px; padding: 2px; min-width: 0px; }"
    "QPushButton:checked { background: palette(highlight);                       "
    "color: palette(highlighted-text); }"
    "QPushButton:hover:!checked { background: palette(midlight); }";

QWidget *separator(QWidget *parent, int width, const char *style)
{
    auto *line = new QWidget(parent);
    line->setFixedSize(width, 20);
    line->setStyleSheet(QString::fromLatin1(style));
    return line;
}

template <typename Button>
Button *toolButton(QWidget *parent, const QIcon &icon, const QString &tooltip)
{
    auto *button = new Button(parent);
    button->setFixedSize(ToolButtonSize);
    button->setIcon(icon);
    button->setIconSize(ToolIconSize);
    button->setToolTip(tooltip);
    button->setCheckable(true);
    button->setFlat(true);
    return button;
}

} // namespace

QWidget *DrawingWindow::buildControlRow()
{
    auto *row = new QWidget(this);
    auto *layout = new QHBoxLayout(row);
    layout->setContentsMargins(6, 4, 6, 4);
    layout->setSpacing(8);

    m_colorButton = new QToolButton(row);
    m_colorButton->setFixedSize(RowButtonSize);
    m_colorButton->setToolTip(QStringLiteral("Toggle colour picker"));
    connect(m_colorButton, &QToolButton::clicked, this, &DrawingWindow::toggleColorPicker);
    layout->addWidget(m_colorButton);
    layout->addWidget(separator(row, 1, SeparatorStyle));

    m_undoButton = new QToolButton(row);
    m_undoButton->setFixedSize(RowButtonSize);
    m_undoButton->setIcon(tintedSvgIcon(Icons::Undo, m_iconColor, RowIconSize));
    m_undoButton->setIconSize(RowIconSize);
    m_undoButton->setToolTip(QStringLiteral("Undo  (Ctrl+Z)"));
    m_undoButton->setEnabled(false);
    layout->addWidget(m_undoButton);

    m_redoButton = new QToolButton(row);
    m_redoButton->setFixedSize(RowButtonSize);
    m_redoButton->setIcon(tintedSvgIcon(Icons::Redo, m_iconColor, RowIconSize));
    m_redoButton->setIconSize(RowIconSize);
    m_redoButton->setToolTip(QStringLiteral("Redo  (Ctrl+Y  /  Ctrl+Shift+Z)"));
    m_redoButton->setEnabled(false);
    layout->addWidget(m_redoButton);
    layout->addWidget(separator(row, 1, SeparatorStyle));

    layout->addWidget(new QLabel(QStringLiteral("Size:"), row));
    m_brushSlider = new QSlider(Qt::Horizontal, row);
    m_brushSlider->setFixedWidth(110);
    m_brushSlider->setRange(1, 150);
    m_brushSlider->setValue(8);
    connect(m_brushSlider, &QSlider::valueChanged, this, &DrawingWindow::onBrushSliderChanged);
    layout->addWidget(m_brushSlider);
    m_brushSpin = new QSpinBox(row);
    m_brushSpin->setMinimumWidth(82);
    m_brushSpin->setSuffix(QStringLiteral(" px"));
    m_brushSpin->setRange(1, 9999);
    m_brushSpin->setValue(8);
    connect(m_brushSpin, &QSpinBox::valueChanged, this, &DrawingWindow::onBrushSpinChanged);
    layout->addWidget(m_brushSpin);
    layout->addStretch(1);

    layout->addWidget(buildToolBox());
    layout->addStretch(1);

    m_previewButton =
        toolButton<LongPressButton>(row, tintedSvgIcon(Icons::Preview, m_iconColor, ToolIconSize),
                                    QStringLiteral("Preview Scene  (hold for opacity)"));
    m_previewButton->setFlat(false);
    m_previewButton->showIndicator = true;
    connect(m_previewButton, &QPushButton::clicked, this, &DrawingWindow::onPreviewBtnClicked);
    connect(m_previewButton, &LongPressButton::longPressed, this,
            &DrawingWindow::onPreviewBtnLongPress);
    layout->addWidget(m_previewButton);

    m_layersButton = new QToolButton(row);
    m_layersButton->setAutoRaise(true);
    m_layersButton->setFixedSize(ToolButtonSize);
    m_layersButton->setIcon(tintedSvgIcon(Icons::Layers, m_iconColor, ToolIconSize));
    m_layersButton->setIconSize(ToolIconSize);
    m_layersButton->setToolTip(QStringLiteral("Layers"));
    connect(m_layersButton, &QToolButton::clicked, this, &DrawingWindow::onLayersClicked);
    layout->addWidget(m_layersButton);

    m_clearButton = new QPushButton(QStringLiteral("Clear"), row);
    m_clearButton->setMinimumWidth(64);
    connect(m_clearButton, &QPushButton::clicked, this, &DrawingWindow::onClearClicked);
    layout->addWidget(m_clearButton);
    return row;
}

QFrame *DrawingWindow::buildToolBox()
{
    auto *box = new QFrame(this);
    box->setObjectName(QStringLiteral("toolBox"));
    box->setFrameStyle(QFrame::Box | QFrame::Plain);
    box->setLineWidth(1);
    box->setStyleSheet(QString::fromLatin1(ToolBoxStyle));
    auto *layout = new QHBoxLayout(box);
    layout->setContentsMargins(4, 2, 4, 2);
    layout->setSpacing(2);

    auto *brush = toolButton<QPushButton>(
        box, tintedSvgIcon(Icons::Brush, m_iconColor, ToolIconSize), QStringLiteral("Brush"));
    brush->setChecked(true);
    auto *eraser = toolButton<QPushButton>(
        box, tintedSvgIcon(Icons::Eraser, m_iconColor, ToolIconSize), QStringLiteral("Eraser"));
    m_fillButton = toolButton<LongPressButton>(
        box, tintedSvgIcon(Icons::FillBucket, m_iconColor, ToolIconSize),
        QStringLiteral("Fill Bucket  (hold for tolerance)"));
    m_fillButton->showIndicator = true;
    connect(m_fillButton, &LongPressButton::longPressed, this, &DrawingWindow::onFbBtnLongPress);
    m_shapesButton =
        toolButton<QPushButton>(box, tintedSvgIcon(Icons::ShapesFilled, m_iconColor, ToolIconSize),
                                QStringLiteral("Shapes"));
    // The button stays checked in its exclusive group, so each click flips the pop-up.
    connect(m_shapesButton, &QPushButton::clicked, this,
            [this] { onShapeToolToggled(!m_shapesPopupOpen); });

    m_toolGroup = new QButtonGroup(this);
    m_toolGroup->setExclusive(true);
    m_toolGroup->addButton(brush, int(Tool::Brush));
    m_toolGroup->addButton(eraser, int(Tool::Eraser));
    m_toolGroup->addButton(m_fillButton, int(Tool::FillBucket));
    m_toolGroup->addButton(m_shapesButton, int(Tool::Shapes));
    connect(m_toolGroup, &QButtonGroup::idClicked, this, &DrawingWindow::onToolChanged);

    layout->addWidget(brush);
    layout->addWidget(eraser);
    layout->addWidget(m_fillButton);
    layout->addWidget(m_shapesButton);
    layout->addSpacing(3);
    layout->addWidget(separator(box, 2, "background: rgba(130,130,130,160); border-radius: 1px;"));
    layout->addSpacing(3);

    m_jitterButton = toolButton<LongPressButton>(box, jitterWavesIcon(m_iconColor, ToolIconSize),
                                                 QStringLiteral("Jitter  (hold for amount)"));
    m_jitterButton->showIndicator = true;
    connect(m_jitterButton, &QPushButton::clicked, this, &DrawingWindow::onJitterBtnClicked);
    connect(m_jitterButton, &LongPressButton::longPressed, this,
            &DrawingWindow::onJitterBtnLongPress);
    layout->addWidget(m_jitterButton);
    return box;
}

void DrawingWindow::createCanvas(int width, int height)
{
    m_canvas = new CanvasWidget(width, height, this);
    m_canvas->setMinimumSize(320, 180);
    m_canvas->setFocusPolicy(Qt::StrongFocus);
    connect(m_canvas, &CanvasWidget::strokesChanged, this, &DrawingWindow::onStrokesChanged);
    connect(m_canvas, &CanvasWidget::layersChanged, this, &DrawingWindow::onStrokesChanged);
    connect(m_canvas, &CanvasWidget::strokeUpdated, this, &DrawingWindow::onDrawingUpdated);
    connect(m_canvas, &CanvasWidget::undoAvailabilityChanged, m_undoButton,
            &QToolButton::setEnabled);
    connect(m_canvas, &CanvasWidget::redoAvailabilityChanged, m_redoButton,
            &QToolButton::setEnabled);
    connect(m_undoButton, &QToolButton::clicked, m_canvas, &CanvasWidget::undo);
    connect(m_redoButton, &QToolButton::clicked, m_canvas, &CanvasWidget::redo);
}
