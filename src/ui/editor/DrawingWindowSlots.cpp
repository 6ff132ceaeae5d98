// What the controls do: each slot keeps its paired control in step and hands
// the value to the canvas, the source and, in co-op mode, the shared picture.

#include "editor/DrawingWindow.h"

#include "canvas/CanvasWidget.h"
#include "common/Log.h"
#include "common/Wiggle.h"
#include "coop/CoopCanvas.h"
#include "layers/LayerPanel.h"
#include "widgets/ColorPickerWidget.h"
#include "widgets/Icons.h"
#include "widgets/LongPressButton.h"
#include "widgets/TintedIcon.h"

#include <QButtonGroup>
#include <QElapsedTimer>
#include <QFrame>
#include <QLabel>
#include <QLayout>
#include <QPushButton>
#include <QSignalBlocker>
#include <QSlider>
#include <QSpinBox>
#include <QTimer>
#include <QToolButton>

#include <algorithm>

namespace {

// Shared by every editor window: the source gets at most one live image per
// interval, whichever window sends it.
QElapsedTimer &liveUpdateThrottle()
{
    static QElapsedTimer timer;
    return timer;
}

void setQuietly(QAbstractSlider *control, int value)
{
    const QSignalBlocker blocker(control);
    control->setValue(value);
}

void setQuietly(QSpinBox *control, int value)
{
    const QSignalBlocker blocker(control);
    control->setValue(value);
}

} // namespace

void DrawingWindow::onColorChanged(QColor color)
{
    if (!color.isValid())
        return;
    color.setAlpha(255);
    m_color = color;
    applyBrushColor();
}

void DrawingWindow::onOpacityChanged(int value)
{
    m_opacityLabel->setText(QStringLiteral("%1%").arg(value));
    applyBrushColor();
}

void DrawingWindow::applyBrushColor()
{
    QColor brush = m_color;
    if (m_opacitySlider)
        brush.setAlpha(m_opacitySlider->value() * 255 / 100);
    m_canvas->setBrushColor(brush);
    updateColorSwatch();
}

void DrawingWindow::updateColorSwatch()
{
    QColor swatch = m_color;
    swatch.setAlpha(m_opacitySlider ? m_opacitySlider->value() * 255 / 100 : 255);
    m_colorButton->setStyleSheet(QStringLiteral("background-color: %1; border: 1px solid #888;")
                                     .arg(swatch.name(QColor::HexArgb)));
}

void DrawingWindow::onBrushSliderChanged(int value)
{
    setQuietly(m_brushSpin, value);
    m_canvas->setBrushSize(float(value));
}

void DrawingWindow::onBrushSpinChanged(int value)
{
    setQuietly(m_brushSlider, std::min(value, m_brushSlider->maximum()));
    m_canvas->setBrushSize(float(value));
}

void DrawingWindow::onJitterBtnClicked(bool checked)
{
    m_canvas->setWiggleEnabled(checked);
    if (m_source)
        m_source->setJitterEnabled(checked);
    if (m_coopMode)
        CoopCanvas::instance().setJitterEnabled(checked);
    if (!checked && m_jitterPopupOpen)
        closePopup(m_jitterPopup, m_jitterPopupOpen);
}

void DrawingWindow::onJitterBtnLongPress()
{
    flipPopup(m_jitterPopup, m_jitterButton, m_jitterPopupOpen);
}

void DrawingWindow::onFbBtnLongPress()
{
    flipPopup(m_fillPopup, m_fillButton, m_fillPopupOpen);
}

void DrawingWindow::toggleColorPicker()
{
    flipPopup(m_colorSection, m_colorButton, m_colorSectionOpen);
}

void DrawingWindow::onPreviewBtnLongPress()
{
    flipPopup(m_previewPopup, m_previewButton, m_previewPopupOpen);
}

void DrawingWindow::onShapeToolToggled(bool checked)
{
    if (checked) {
        m_shapesPopupOpen = true;
        openPopup(m_shapesPopup, m_shapesButton);
    } else {
        closePopup(m_shapesPopup, m_shapesPopupOpen);
    }
}

void DrawingWindow::onShapeTypeChanged(int id)
{
    m_canvas->setShapeType(id);
}

void DrawingWindow::onShapeModeChanged(int mode)
{
    m_canvas->setShapeMode(mode);
    updateShapesButtonIcon(mode);
}

void DrawingWindow::updateShapesButtonIcon(int mode)
{
    const QString &svg = mode == ShapeModeOutline ? Icons::ShapesOutline : Icons::ShapesFilled;
    m_shapesButton->setIcon(tintedSvgIcon(svg, m_iconColor, QSize(20, 20)));
}

void DrawingWindow::onShapeEraseBtnClicked(bool checked)
{
    m_canvas->setShapeErase(checked);
}

void DrawingWindow::onJitterSliderChanged(int percent)
{
    setQuietly(m_jitterAmountSpin, percent);
    applyJitterAmount(percent);
}

void DrawingWindow::onJitterSpinChanged(int percent)
{
    setQuietly(m_jitterAmountSlider, percent);
    applyJitterAmount(percent);
}

void DrawingWindow::applyJitterAmount(int percent)
{
    const float amount = wiggleAmountPxFromSetting(percent);
    m_canvas->setWiggleAmount(amount);
    if (m_source)
        m_source->setJitterAmount(amount);
    if (m_coopMode)
        CoopCanvas::instance().setJitterAmountPx(amount);
}

void DrawingWindow::onJitterSpeedSliderChanged(int value)
{
    setQuietly(m_jitterSpeedSpin, value);
    applyJitterSpeed(value);
}

void DrawingWindow::onJitterSpeedSpinChanged(int value)
{
    setQuietly(m_jitterSpeedSlider, value);
    applyJitterSpeed(value);
}

void DrawingWindow::applyJitterSpeed(int percent)
{
    const int fps = wiggleFramesPerSecondFromSetting(percent);
    m_canvas->setWiggleInterval(1000 / fps);
    if (m_source)
        m_source->setJitterInterval(1.0f / float(fps));
    if (m_coopMode)
        CoopCanvas::instance().setJitterInterval(std::max(0.01f, 1.0f / float(fps)));
}

void DrawingWindow::onFillToleranceChanged(int value)
{
    setQuietly(m_fillSpin, value);
    m_canvas->setFillTolerance(value);
}

void DrawingWindow::onFillToleranceSpinChanged(int value)
{
    setQuietly(m_fillSlider, value);
    m_canvas->setFillTolerance(value);
}

void DrawingWindow::onPreviewBtnClicked(bool checked)
{
    m_canvas->setPreviewEnabled(checked);
    if (checked) {
        m_previewTimer->start();
        onScenePreviewTick();
        return;
    }
    m_previewTimer->stop();
    if (m_previewPopupOpen)
        closePopup(m_previewPopup, m_previewPopupOpen);
}

void DrawingWindow::onPreviewOpacityChanged(int value)
{
    setQuietly(m_previewSpin, value);
    m_canvas->setPreviewOpacity(float(value) / 100.0f);
}

void DrawingWindow::onPreviewOpacitySpinChanged(int value)
{
    setQuietly(m_previewSlider, value);
    m_canvas->setPreviewOpacity(float(value) / 100.0f);
}

void DrawingWindow::onScenePreviewTick()
{
    if (!m_source)
        return;
    const QImage scene = m_source->captureScene();
    if (!scene.isNull())
        m_canvas->setPreviewImage(scene);
}

void DrawingWindow::onClearClicked()
{
    m_canvas->clear();
    if (m_coopMode) {
        CoopCanvas::instance().clearLocal();
        return;
    }
    if (m_source)
        m_source->commit(QVector<Stroke>(), m_canvas->flatComposite());
}

void DrawingWindow::onStrokesChanged()
{
    if (m_coopMode)
        return;
    if (m_source)
        m_source->commit(m_canvas->strokes(), m_canvas->flatComposite());
    m_saveTimer->start();
}

void DrawingWindow::onDrawingUpdated()
{
    if (!m_source)
        return;
    QElapsedTimer &throttle = liveUpdateThrottle();
    if (throttle.isValid() && throttle.elapsed() < LiveUpdateIntervalMs)
        return; // dropped: the next move or the commit brings the source up to date

    QElapsedTimer step;
    step.start();
    const QImage live = m_canvas->displayComposite();
    const qint64 compositeMs = step.restart();
    m_source->setLiveImage(live);
    const qint64 uploadMs = step.elapsed();
    throttle.start();
    if (compositeMs > 8 || uploadMs >= 9)
        pdLog("[PD] onDrawingUpdated: composite %lld ms | upload %lld ms",
              static_cast<long long>(compositeMs), static_cast<long long>(uploadMs));
}

void DrawingWindow::onToolChanged(int id)
{
    switch (id) {
    case int(Tool::Brush):
    case int(Tool::Eraser):
    case int(Tool::FillBucket):
        m_canvas->setTool(id);
        if (m_shapesPopupOpen)
            closePopup(m_shapesPopup, m_shapesPopupOpen);
        break;
    case int(Tool::Shapes):
        m_canvas->setTool(id);
        updateShapesButtonIcon(m_shapeModeGroup->checkedId());
        break;
    default:
        if (m_shapesPopupOpen)
            closePopup(m_shapesPopup, m_shapesPopupOpen);
        break;
    }
}

void DrawingWindow::onLayersClicked()
{
    if (m_coopMode) {
        toggleUsersPopup();
        return;
    }
    if (m_layersPinned || !m_layersPopup)
        return;
    m_layersPopupOpen = !m_layersPopupOpen;
    if (!m_layersPopupOpen) {
        m_layersPopup->hide();
        return;
    }
    m_layersPopup->show();
    if (m_popupLayerPanel->layout())
        m_popupLayerPanel->layout()->activate();
    m_layersPopup->layout()->activate();
    m_layersPopup->adjustSize();
    positionPopup(m_layersPopup, m_layersButton);
    m_layersPopup->raise();
}

void DrawingWindow::onLayerPinToggled()
{
    if (!m_dockedLayerPanel)
        return;
    m_layersPinned = !m_layersPinned;
    m_popupLayerPanel->setPinned(m_layersPinned);
    m_dockedLayerPanel->setPinned(m_layersPinned);
    if (!m_layersPinned) {
        m_dockedLayerPanel->hide();
        return;
    }
    closePopup(m_layersPopup, m_layersPopupOpen);
    m_dockedLayerPanel->show();
}
