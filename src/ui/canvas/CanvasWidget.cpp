#include "canvas/CanvasWidget.h"

#include "engine/Thumbnail.h"
#include "widgets/Icons.h"
#include "widgets/TintedIcon.h"

#include <QApplication>

#include <algorithm>

CanvasWidget::CanvasWidget(int canvasWidth, int canvasHeight, QWidget *parent)
    : QWidget(parent), m_doc(new CanvasDocument(canvasWidth, canvasHeight, this)),
      m_wiggleTimer(new QTimer(this)), m_rng(std::random_device{}())
{
    setMouseTracking(true);
    setAttribute(Qt::WA_TabletTracking);
    setCursor(Qt::BlankCursor);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);

    m_toolCursorIcon = toolIcon(Icons::Brush);
    m_wiggleTimer->setObjectName(QStringLiteral("wiggleTimer"));
    m_wiggleTimer->setInterval(50);
    connect(m_wiggleTimer, &QTimer::timeout, this, &CanvasWidget::onJitterTick);

    connect(m_doc, &CanvasDocument::strokesChanged, this, &CanvasWidget::strokesChanged);
    connect(m_doc, &CanvasDocument::undoAvailabilityChanged, this,
            &CanvasWidget::undoAvailabilityChanged);
    connect(m_doc, &CanvasDocument::redoAvailabilityChanged, this,
            &CanvasWidget::redoAvailabilityChanged);
    connect(m_doc, &CanvasDocument::layersChanged, this, &CanvasWidget::layersChanged);
    connect(m_doc, &CanvasDocument::activeLayerChanged, this, &CanvasWidget::activeLayerChanged);
    connect(m_doc, &CanvasDocument::snapshotRestored, this, &CanvasWidget::onSnapshotRestored);
}

void CanvasWidget::dropWiggleFrame()
{
    m_wiggleImage = QImage();
}

void CanvasWidget::onSnapshotRestored()
{
    m_current.points.clear();
    m_drawing = false;
    m_shapeStart = m_shapeEnd = QPointF();
    dropLive();
    dropWiggleFrame();
    regenerateWiggle();
    update();
}

void CanvasWidget::addLayer()
{
    m_doc->addLayer();
    update();
}

void CanvasWidget::deleteLayer(int index)
{
    m_doc->deleteLayer(index);
    update();
}

void CanvasWidget::setActiveLayer(int index)
{
    m_doc->setActiveLayer(index);
    update();
}

void CanvasWidget::moveLayer(int from, int to)
{
    m_doc->moveLayer(from, to);
    update();
}

void CanvasWidget::moveLayerDown(int index)
{
    m_doc->moveLayerDown(index);
    update();
}

void CanvasWidget::moveLayerUp(int index)
{
    m_doc->moveLayerUp(index);
    update();
}

void CanvasWidget::renameLayer(int index, const QString &name)
{
    m_doc->renameLayer(index, name);
    update();
}

void CanvasWidget::setLayerVisible(int index, bool visible)
{
    if (m_doc->isValidIndex(index))
        dropWiggleFrame();
    m_doc->setLayerVisible(index, visible);
    update();
}

void CanvasWidget::setLayerOpacity(int index, float opacity)
{
    if (m_doc->isValidIndex(index))
        dropWiggleFrame();
    m_doc->setLayerOpacity(index, opacity);
    update();
}

void CanvasWidget::clear()
{
    dropWiggleFrame();
    m_doc->clear();
    update();
}

void CanvasWidget::setLayers(const QList<CanvasLayer> &layers, int activeIndex)
{
    dropWiggleFrame();
    m_doc->setLayers(layers, activeIndex);
    update();
}

void CanvasWidget::setStrokesAndImage(const QVector<Stroke> &strokes, const QImage &image)
{
    dropWiggleFrame();
    m_doc->setStrokesAndImage(strokes, image);
    update();
}

void CanvasWidget::undo()
{
    m_doc->undo();
}

void CanvasWidget::redo()
{
    m_doc->redo();
}

QPixmap CanvasWidget::toolIcon(const QString &svg) const
{
    return tintedSvgPixmap(svg, palette().color(QPalette::ButtonText), QSize(16, 16));
}

void CanvasWidget::setTool(int tool)
{
    m_tool = tool;
    switch (Tool(tool)) {
    case Tool::Brush:
        m_toolCursorIcon = toolIcon(Icons::Brush);
        break;
    case Tool::Eraser:
        m_toolCursorIcon = toolIcon(Icons::Eraser);
        break;
    case Tool::FillBucket:
        m_toolCursorIcon = toolIcon(Icons::FillBucket);
        break;
    default: // the shapes tool keeps the icon it had
        break;
    }
    update();
}

void CanvasWidget::setWiggleEnabled(bool enabled)
{
    m_wiggleEnabled = enabled;
    if (enabled) {
        m_wiggleTimer->start();
    } else {
        m_wiggleTimer->stop();
        dropWiggleFrame();
        update();
    }
}

void CanvasWidget::setWiggleInterval(int ms)
{
    m_wiggleTimer->setInterval(std::max(ms, 17));
}

void CanvasWidget::setPreviewEnabled(bool enabled)
{
    m_previewEnabled = enabled;
    update();
}

void CanvasWidget::setPreviewOpacity(float opacity)
{
    m_previewOpacity = std::clamp(opacity, 0.0f, 1.0f);
    if (m_previewEnabled)
        update();
}

void CanvasWidget::setPreviewImage(const QImage &image)
{
    m_previewImage = image;
    if (m_previewEnabled)
        update();
}

QPixmap CanvasWidget::layerThumbnail(int index, const QSize &size) const
{
    if (!m_doc->isValidIndex(index))
        return {};
    return QPixmap::fromImage(::layerThumbnail(m_doc->layerImage(index), size));
}
