// The tool state kept between sessions: applied to the controls and the
// canvas at start, collected from the controls on close.

#include "editor/DrawingWindow.h"

#include "canvas/CanvasWidget.h"
#include "settings/EditorSettings.h"
#include "widgets/ColorPickerWidget.h"
#include "widgets/LongPressButton.h"

#include <QAbstractButton>
#include <QButtonGroup>
#include <QLabel>
#include <QPushButton>
#include <QSignalBlocker>
#include <QSlider>
#include <QSpinBox>

namespace {

template <typename Control> void setQuietly(Control *control, int value)
{
    const QSignalBlocker blocker(control);
    control->setValue(value);
}

void checkQuietly(QAbstractButton *button, bool checked)
{
    if (!button)
        return;
    const QSignalBlocker blocker(button);
    button->setChecked(checked);
}

} // namespace

void DrawingWindow::applyEditorSettings(const EditorSettings &s)
{
    // The spin box shows the size within its range; the canvas gets it as stored.
    setQuietly(m_brushSpin, s.brushSize);
    onBrushSpinChanged(s.brushSize);

    checkQuietly(m_toolGroup->button(s.tool), true);
    onToolChanged(s.tool);

    checkQuietly(m_shapeTypeGroup->button(s.shapeType), true);
    m_canvas->setShapeType(s.shapeType);

    checkQuietly(m_shapeModeGroup->button(s.shapeMode), true);
    m_canvas->setShapeMode(s.shapeMode);
    updateShapesButtonIcon(s.shapeMode);

    checkQuietly(m_shapeEraseButton, s.shapeErase);
    m_canvas->setShapeErase(s.shapeErase);

    m_color = s.color;
    m_color.setAlpha(255);
    {
        const QSignalBlocker blocker(m_colorPicker);
        m_colorPicker->setColor(m_color);
    }

    setQuietly(m_opacitySlider, s.opacity);
    m_opacityLabel->setText(QStringLiteral("%1%").arg(m_opacitySlider->value()));
    applyBrushColor();

    setQuietly(m_fillSlider, s.fillTolerance);
    setQuietly(m_fillSpin, s.fillTolerance);
    m_canvas->setFillTolerance(s.fillTolerance);

    setQuietly(m_jitterAmountSlider, s.jitterAmount);
    setQuietly(m_jitterAmountSpin, s.jitterAmount);
    applyJitterAmount(s.jitterAmount);

    setQuietly(m_jitterSpeedSlider, s.jitterSpeed);
    setQuietly(m_jitterSpeedSpin, s.jitterSpeed);
    applyJitterSpeed(s.jitterSpeed);

    checkQuietly(m_jitterButton, s.jitterEnabled);
    onJitterBtnClicked(s.jitterEnabled);

    setQuietly(m_previewSlider, s.previewOpacity);
    setQuietly(m_previewSpin, s.previewOpacity);
    m_canvas->setPreviewOpacity(float(s.previewOpacity) / 100.0f);
}

EditorSettings DrawingWindow::collectEditorSettings() const
{
    EditorSettings s;
    s.brushSize = m_brushSpin->value();
    s.tool = m_toolGroup->checkedId();
    s.color = m_color;
    s.opacity = m_opacitySlider->value();
    s.fillTolerance = m_fillSlider->value();
    s.jitterAmount = m_jitterAmountSlider->value();
    s.jitterSpeed = m_jitterSpeedSlider->value();
    s.jitterEnabled = m_jitterButton->isChecked();
    s.shapeType = m_shapeTypeGroup->checkedId();
    s.shapeMode = m_shapeModeGroup->checkedId();
    s.shapeErase = m_shapeEraseButton->isChecked();
    s.previewOpacity = m_previewSlider->value();
    s.windowGeometry = saveGeometry();
    return s;
}
