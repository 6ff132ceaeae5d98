// The small panels that open under their buttons: colour, wiggle, fill
// tolerance, shapes, preview opacity and layers.

#include "editor/DrawingWindow.h"

#include "canvas/CanvasWidget.h"
#include "layers/LayerPanel.h"
#include "widgets/ColorPickerWidget.h"
#include "widgets/Icons.h"
#include "widgets/PaintedIcons.h"
#include "widgets/TintedIcon.h"

#include <QButtonGroup>
#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QSlider>
#include <QSpinBox>
#include <QVBoxLayout>

namespace {

const QSize ShapeButtonSize(28, 28);
const QSize ShapeIconSize(18, 18);

const char *const ShapeNames[] = {"Rectangle", "Ellipse", "Triangle", "Diamond", "Star",
                                  "Pentagon",  "Hexagon", "Arrow",    "Heart",   "Cross"};

const char *const PopupButtonRules =
    "QPushButton { border: none; border-radius: 2px; padding: 2px; min-width: 0px; }"
    "QPushButton:checked { background: palette(highlight);                       "
    "color: palette(highlighted-text); }"
    "QPushButton:hover:!checked { background: palette(midlight); }";

const char *const KeyCapStyle =
    "font-size: 9px; font-weight: bold; background: palette(button); border: 1px solid "
    "palette(mid); border-bottom: 2px solid palette(dark); border-radius: 3px; padding: 1px 4px;";

const char *const TipTextStyle = "font-size: 10px; color: palette(text);";

QString popupStyle(const char *objectName)
{
    return QStringLiteral("#%1 { background: palette(window); border: 1px solid palette(mid); "
                          "border-radius: 4px; }")
        .arg(QLatin1String(objectName));
}

QSlider *popupSlider(QWidget *parent, int max, int value, int width)
{
    auto *slider = new QSlider(Qt::Horizontal, parent);
    slider->setRange(0, max);
    slider->setValue(value);
    if (width > 0)
        slider->setFixedWidth(width);
    return slider;
}

QSpinBox *popupSpin(QWidget *parent, int max, int value, const char *suffix, int minWidth)
{
    auto *spin = new QSpinBox(parent);
    spin->setRange(0, max);
    spin->setValue(value);
    spin->setSuffix(QString::fromUtf8(suffix));
    spin->setMinimumWidth(minWidth);
    return spin;
}

QPushButton *shapeButton(QWidget *parent, const QIcon &icon, const QString &tooltip)
{
    auto *button = new QPushButton(parent);
    button->setFixedSize(ShapeButtonSize);
    button->setIcon(icon);
    button->setIconSize(ShapeIconSize);
    button->setToolTip(tooltip);
    button->setCheckable(true);
    button->setFlat(true);
    return button;
}

QWidget *popupSeparator(QWidget *parent, int height)
{
    auto *line = new QWidget(parent);
    line->setFixedSize(1, height);
    line->setStyleSheet(QStringLiteral("background: rgba(130,130,130,160);"));
    return line;
}

// The one-row pop-ups: a label, then a slider and its spin box.
void addSliderRow(QFrame *popup, const QString &label, QSlider *slider, QSpinBox *spin)
{
    auto *layout = new QHBoxLayout(popup);
    layout->setContentsMargins(8, 6, 8, 6);
    layout->setSpacing(6);
    layout->addWidget(new QLabel(label, popup));
    layout->addWidget(slider);
    layout->addWidget(spin);
}

} // namespace

QFrame *DrawingWindow::makePopup(const char *objectName, int frameStyle, const QString &moreStyle)
{
    auto *popup = new QFrame(this);
    popup->setObjectName(QLatin1String(objectName));
    popup->setFrameStyle(frameStyle);
    popup->setStyleSheet(popupStyle(objectName) + moreStyle);
    popup->setAutoFillBackground(true);
    popup->hide();
    popup->raise();
    return popup;
}

void DrawingWindow::buildColorSection()
{
    m_colorSection = makePopup("colorPickerSection", QFrame::NoFrame);
    auto *layout = new QVBoxLayout(m_colorSection);
    layout->setContentsMargins(8, 8, 8, 8);
    layout->setSpacing(6);
    m_colorPicker = new ColorPickerWidget(m_colorSection);
    m_colorPicker->setColor(m_color);
    connect(m_colorPicker, &ColorPickerWidget::colorChanged, this, &DrawingWindow::onColorChanged);
    layout->addWidget(m_colorPicker);

    auto *row = new QHBoxLayout();
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(6);
    row->addWidget(new QLabel(QStringLiteral("Opacity:"), m_colorSection));
    m_opacitySlider = popupSlider(m_colorSection, 100, 100, 0);
    connect(m_opacitySlider, &QSlider::valueChanged, this, &DrawingWindow::onOpacityChanged);
    row->addWidget(m_opacitySlider);
    m_opacityLabel = new QLabel(QStringLiteral("100%"), m_colorSection);
    m_opacityLabel->setMinimumWidth(38);
    row->addWidget(m_opacityLabel);
    layout->addLayout(row);
    m_colorSection->adjustSize();
}

void DrawingWindow::buildJitterPopup()
{
    m_jitterPopup = makePopup("jitterPopup", QFrame::Box | QFrame::Plain);
    auto *grid = new QGridLayout(m_jitterPopup);
    grid->setContentsMargins(8, 6, 8, 6);
    grid->setSpacing(6);
    m_jitterAmountSlider = popupSlider(m_jitterPopup, 100, 50, 90);
    m_jitterAmountSpin = popupSpin(m_jitterPopup, 100, 50, "%", 68);
    m_jitterSpeedSlider = popupSlider(m_jitterPopup, 100, 20, 90);
    m_jitterSpeedSpin = popupSpin(m_jitterPopup, 100, 20, "%", 68);
    grid->addWidget(new QLabel(QStringLiteral("Amount:"), m_jitterPopup), 0, 0);
    grid->addWidget(m_jitterAmountSlider, 0, 1);
    grid->addWidget(m_jitterAmountSpin, 0, 2);
    grid->addWidget(new QLabel(QStringLiteral("Speed:"), m_jitterPopup), 1, 0);
    grid->addWidget(m_jitterSpeedSlider, 1, 1);
    grid->addWidget(m_jitterSpeedSpin, 1, 2);
    connect(m_jitterAmountSlider, &QSlider::valueChanged, this,
            &DrawingWindow::onJitterSliderChanged);
    connect(m_jitterAmountSpin, &QSpinBox::valueChanged, this, &DrawingWindow::onJitterSpinChanged);
    connect(m_jitterSpeedSlider, &QSlider::valueChanged, this,
            &DrawingWindow::onJitterSpeedSliderChanged);
    connect(m_jitterSpeedSpin, &QSpinBox::valueChanged, this,
            &DrawingWindow::onJitterSpeedSpinChanged);
    m_jitterPopup->adjustSize();
}

void DrawingWindow::buildFillPopup()
{
    m_fillPopup = makePopup("fillPopup", QFrame::Box | QFrame::Plain);
    m_fillSlider = popupSlider(m_fillPopup, 255, 30, 90);
    m_fillSpin = popupSpin(m_fillPopup, 255, 30, "", 56);
    addSliderRow(m_fillPopup, QStringLiteral("Tolerance:"), m_fillSlider, m_fillSpin);
    connect(m_fillSlider, &QSlider::valueChanged, this, &DrawingWindow::onFillToleranceChanged);
    connect(m_fillSpin, &QSpinBox::valueChanged, this, &DrawingWindow::onFillToleranceSpinChanged);
    m_fillPopup->adjustSize();
}

void DrawingWindow::buildShapesPopup()
{
    m_shapesPopup = makePopup("shapesPopup", QFrame::Box | QFrame::Plain,
                              QString::fromLatin1(PopupButtonRules));
    auto *layout = new QVBoxLayout(m_shapesPopup);
    layout->setContentsMargins(6, 6, 6, 6);
    layout->setSpacing(5);

    auto *tip = new QHBoxLayout();
    tip->setSpacing(3);
    auto *tipStart = new QLabel(QStringLiteral("Tip: Use the"), m_shapesPopup);
    tipStart->setStyleSheet(QString::fromLatin1(TipTextStyle));
    auto *keyCap = new QLabel(QStringLiteral("Shift"), m_shapesPopup);
    keyCap->setStyleSheet(QString::fromLatin1(KeyCapStyle));
    auto *tipEnd = new QLabel(QStringLiteral("key to disable stretching"), m_shapesPopup);
    tipEnd->setStyleSheet(QString::fromLatin1(TipTextStyle));
    tip->addWidget(tipStart);
    tip->addWidget(keyCap);
    tip->addWidget(tipEnd);
    tip->addStretch();
    layout->addLayout(tip);

    auto *row = new QHBoxLayout();
    row->setSpacing(8);
    auto *grid = new QGridLayout();
    m_shapeTypeGroup = new QButtonGroup(this);
    m_shapeTypeGroup->setExclusive(true);
    for (int id = 0; id < ShapeTypeCount; ++id) {
        QPushButton *button =
            shapeButton(m_shapesPopup, shapeOutlineIcon(id, m_iconColor, ShapeIconSize),
                        QString::fromLatin1(ShapeNames[id]));
        m_shapeTypeGroup->addButton(button, id);
        grid->addWidget(button, id / 5, id % 5);
    }
    m_shapeTypeGroup->button(ShapeRectangle)->setChecked(true);
    connect(m_shapeTypeGroup, &QButtonGroup::idClicked, this, &DrawingWindow::onShapeTypeChanged);
    row->addLayout(grid);
    row->addWidget(popupSeparator(m_shapesPopup, 60));

    auto *modes = new QVBoxLayout();
    modes->setSpacing(4);
    m_shapeModeGroup = new QButtonGroup(this);
    m_shapeModeGroup->setExclusive(true);
    QPushButton *filled =
        shapeButton(m_shapesPopup, tintedSvgIcon(Icons::ShapesFilled, m_iconColor, ShapeIconSize),
                    QStringLiteral("Filled"));
    QPushButton *outline =
        shapeButton(m_shapesPopup, tintedSvgIcon(Icons::ShapesOutline, m_iconColor, ShapeIconSize),
                    QStringLiteral("Outline"));
    filled->setChecked(true);
    m_shapeModeGroup->addButton(filled, 0);
    m_shapeModeGroup->addButton(outline, ShapeModeOutline);
    connect(m_shapeModeGroup, &QButtonGroup::idClicked, this, &DrawingWindow::onShapeModeChanged);
    modes->addWidget(filled);
    modes->addWidget(outline);
    row->addLayout(modes);
    row->addWidget(popupSeparator(m_shapesPopup, 58));

    auto *eraseColumn = new QVBoxLayout();
    eraseColumn->addStretch();
    m_shapeEraseButton =
        shapeButton(m_shapesPopup, tintedSvgIcon(Icons::Eraser, m_iconColor, ShapeIconSize),
                    QStringLiteral("Erase shape area"));
    connect(m_shapeEraseButton, &QPushButton::toggled, this,
            &DrawingWindow::onShapeEraseBtnClicked);
    eraseColumn->addWidget(m_shapeEraseButton);
    eraseColumn->addStretch();
    row->addLayout(eraseColumn);
    layout->addLayout(row);
    m_shapesPopup->adjustSize();
}

void DrawingWindow::buildPreviewPopup()
{
    m_previewPopup = makePopup("previewPopup", QFrame::Box | QFrame::Plain);
    m_previewSlider = popupSlider(m_previewPopup, 100, 100, 90);
    m_previewSpin = popupSpin(m_previewPopup, 100, 100, "%", 68);
    addSliderRow(m_previewPopup, QStringLiteral("Opacity:"), m_previewSlider, m_previewSpin);
    connect(m_previewSlider, &QSlider::valueChanged, this, &DrawingWindow::onPreviewOpacityChanged);
    connect(m_previewSpin, &QSpinBox::valueChanged, this,
            &DrawingWindow::onPreviewOpacitySpinChanged);
    m_previewPopup->adjustSize();
}

void DrawingWindow::buildLayersPopup()
{
    m_layersPopup = makePopup("layersPopup", QFrame::Box | QFrame::Plain);
    auto *layout = new QVBoxLayout(m_layersPopup);
    layout->setContentsMargins(4, 4, 4, 4);
    m_popupLayerPanel = new LayerPanel(m_canvas, m_layersPopup);
    m_popupLayerPanel->setFixedWidth(248);
    layout->addWidget(m_popupLayerPanel);
    connect(m_popupLayerPanel, &LayerPanel::pinToggled, this, &DrawingWindow::onLayerPinToggled);
    connect(m_canvas, &CanvasWidget::layersChanged, this, &DrawingWindow::relayoutLayersPopup);
    m_layersPopup->adjustSize();
}
