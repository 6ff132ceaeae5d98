#include "engine/CanvasDocument.h"

#include <QPainter>

#include <algorithm>

CanvasDocument::CanvasDocument(int width, int height, QObject *parent)
    : QObject(parent), m_width(std::max(1, width)), m_height(std::max(1, height))
{
    m_layers.append(newLayer(QStringLiteral("Layer 1")));
}

QImage CanvasDocument::blankImage() const
{
    QImage image(m_width, m_height, LayerFormat);
    image.fill(Qt::transparent);
    return image;
}

CanvasLayer CanvasDocument::newLayer(const QString &name) const
{
    CanvasLayer layer;
    layer.name = name;
    layer.image = blankImage();
    return layer;
}

QString CanvasDocument::layerName(int index) const
{
    return isValidIndex(index) ? m_layers[index].name : QString();
}

bool CanvasDocument::layerVisible(int index) const
{
    return isValidIndex(index) && m_layers[index].visible;
}

float CanvasDocument::layerOpacity(int index) const
{
    return isValidIndex(index) ? m_layers[index].opacity : 0.0f;
}

QImage CanvasDocument::layerImage(int index) const
{
    return isValidIndex(index) ? m_layers[index].image : QImage();
}

void CanvasDocument::markAllDirty()
{
    markPainted();
    m_partialsDirty = {true, true};
}

void CanvasDocument::markPainted(const QRect &area)
{
    const QRect clipped = area.intersected(QRect(0, 0, m_width, m_height));
    m_flatDirtyArea |= clipped;
    if (m_snapshotPending)
        m_pendingArea |= clipped;
    m_compositeDirty = true;
}

void CanvasDocument::storeActiveStacks()
{
    CanvasLayer &layer = m_layers[m_active];
    layer.undoStack = m_activeUndo;
    layer.redoStack = m_activeRedo;
}

void CanvasDocument::loadActiveStacks()
{
    CanvasLayer &layer = m_layers[m_active];
    m_activeUndo = layer.undoStack;
    m_activeRedo = layer.redoStack;
    layer.undoStack.clear();
    layer.redoStack.clear();
}

void CanvasDocument::resetStacks()
{
    m_activeUndo.clear();
    m_activeRedo.clear();
    dropSnapshot();
}

void CanvasDocument::emitAvailability()
{
    emit undoAvailabilityChanged(canUndo());
    emit redoAvailabilityChanged(canRedo());
}

void CanvasDocument::addLayer()
{
    storeActiveStacks();
    m_layers.append(newLayer(QStringLiteral("Layer %1").arg(m_layers.size() + 1)));
    m_active = m_layers.size() - 1;
    m_strokes.clear();
    resetStacks();
    markAllDirty();
    emit undoAvailabilityChanged(false);
    emit redoAvailabilityChanged(false);
    emit layersChanged();
    emit activeLayerChanged(m_active);
}

void CanvasDocument::deleteLayer(int index)
{
    if (m_layers.size() < 2 || !isValidIndex(index))
        return;
    storeActiveStacks();
    m_layers.removeAt(index);
    int next = m_active < index ? m_active : m_active - 1;
    m_active = std::max(0, std::min(int(m_layers.size()) - 1, next));
    loadActiveStacks();
    dropSnapshot();
    m_strokes.clear();
    markAllDirty();
    emitAvailability();
    emit layersChanged();
    emit activeLayerChanged(m_active);
}

void CanvasDocument::setActiveLayer(int index)
{
    if (index == m_active || !isValidIndex(index))
        return;
    storeActiveStacks();
    m_active = index;
    loadActiveStacks();
    dropSnapshot();
    m_strokes.clear();
    m_partialsDirty = {true, true};
    emitAvailability();
    emit activeLayerChanged(m_active);
}

void CanvasDocument::moveLayer(int from, int to)
{
    if (from == to || !isValidIndex(from) || !isValidIndex(to))
        return;
    m_layers.move(from, to);
    if (m_active == from)
        m_active = to;
    else if (from > to && m_active >= to && m_active <= from - 1)
        ++m_active;
    else if (from < to && m_active >= from + 1 && m_active <= to)
        --m_active;
    markAllDirty();
    emit layersChanged();
    emit activeLayerChanged(m_active);
}

void CanvasDocument::moveLayerDown(int index)
{
    if (index <= 0 || index >= m_layers.size())
        return;
    m_layers.swapItemsAt(index - 1, index);
    if (m_active == index)
        m_active = index - 1;
    else if (m_active == index - 1)
        m_active = index;
    markAllDirty();
    emit layersChanged();
    emit activeLayerChanged(m_active);
}

void CanvasDocument::moveLayerUp(int index)
{
    if (index < 0 || index >= m_layers.size() - 1)
        return;
    m_layers.swapItemsAt(index, index + 1);
    if (m_active == index)
        m_active = index + 1;
    else if (m_active == index + 1)
        m_active = index;
    markAllDirty();
    emit layersChanged();
    emit activeLayerChanged(m_active);
}

void CanvasDocument::renameLayer(int index, const QString &name)
{
    if (!isValidIndex(index))
        return;
    m_layers[index].name = name;
    emit layersChanged();
}

void CanvasDocument::setLayerVisible(int index, bool visible)
{
    if (!isValidIndex(index))
        return;
    m_layers[index].visible = visible;
    markAllDirty();
    emit layersChanged();
    emit strokesChanged();
}

void CanvasDocument::setLayerOpacity(int index, float opacity)
{
    if (!isValidIndex(index))
        return;
    m_layers[index].opacity = std::clamp(opacity, 0.0f, 1.0f);
    markAllDirty();
    emit layersChanged();
    emit strokesChanged();
}

void CanvasDocument::clear()
{
    captureSnapshot();
    activeImage().fill(Qt::transparent);
    markPainted();
    commitSnapshot();
    m_strokes.clear();
    emit layersChanged();
    emit strokesChanged();
}

QImage CanvasDocument::normalised(const QImage &image) const
{
    if (image.isNull())
        return blankImage();
    if (image.size() == size())
        return image.convertToFormat(LayerFormat);
    QImage out = blankImage();
    QPainter painter(&out);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    painter.drawImage(0, 0, image);
    return out;
}

void CanvasDocument::setLayers(QList<CanvasLayer> layers, int activeIndex)
{
    if (layers.isEmpty())
        layers.append(newLayer(QStringLiteral("Layer 1")));
    for (CanvasLayer &layer : layers) {
        layer.image = normalised(layer.image);
        layer.opacity = std::clamp(layer.opacity, 0.0f, 1.0f);
        layer.undoStack.clear();
        layer.redoStack.clear();
    }
    m_layers = std::move(layers);
    m_active = std::clamp(activeIndex, 0, int(m_layers.size()) - 1);
    markAllDirty();
    m_strokes.clear();
    resetStacks();
    emit undoAvailabilityChanged(false);
    emit redoAvailabilityChanged(false);
    emit layersChanged();
    emit activeLayerChanged(m_active);
}

void CanvasDocument::setStrokesAndImage(const QVector<Stroke> &strokes, const QImage &image)
{
    m_strokes = strokes;
    m_layers.clear();
    m_layers.append(newLayer(QStringLiteral("Layer 1")));
    m_active = 0;
    if (!image.isNull())
        m_layers[0].image = image.convertToFormat(LayerFormat);
    markAllDirty();
    resetStacks();
    emit undoAvailabilityChanged(false);
    emit redoAvailabilityChanged(false);
    emit layersChanged();
    emit activeLayerChanged(0);
}

void CanvasDocument::captureSnapshot()
{
    m_pendingSnapshot = activeImage();
    m_pendingArea = QRect();
    m_snapshotPending = true;
}

void CanvasDocument::dropSnapshot()
{
    m_pendingSnapshot = QImage();
    m_pendingArea = QRect();
    m_snapshotPending = false;
}

// An undo in the middle of a stroke also takes back what the stroke has
// painted so far (a long stroke bakes its older part into the layer).
void CanvasDocument::rollBackPending()
{
    if (!m_snapshotPending)
        return;
    const QRect area = m_pendingArea;
    if (!area.isEmpty()) {
        QPainter painter(&activeImage());
        painter.setCompositionMode(QPainter::CompositionMode_Source);
        painter.drawImage(area.topLeft(), m_pendingSnapshot, area);
    }
    dropSnapshot();
    if (!area.isEmpty())
        markPainted(area);
}

void CanvasDocument::pushTrimmed(QList<LayerEdit> &stack, LayerEdit edit)
{
    stack.append(std::move(edit));
    while (stack.size() > MaxUndoDepth)
        stack.removeFirst();
}

void CanvasDocument::commitSnapshot()
{
    if (!m_snapshotPending)
        return;
    pushTrimmed(m_activeUndo, changedTiles(m_pendingSnapshot, activeImage(), m_pendingArea));
    m_activeRedo.clear();
    dropSnapshot();
    emit undoAvailabilityChanged(true);
    emit redoAvailabilityChanged(false);
}

void CanvasDocument::undo()
{
    if (m_activeUndo.isEmpty())
        return;
    rollBackPending();
    restore(m_activeUndo.takeLast(), m_activeRedo);
    emit undoAvailabilityChanged(canUndo());
    emit redoAvailabilityChanged(true);
}

void CanvasDocument::redo()
{
    if (m_activeRedo.isEmpty())
        return;
    restore(m_activeRedo.takeLast(), m_activeUndo);
    emit undoAvailabilityChanged(true);
    emit redoAvailabilityChanged(canRedo());
}

// Writes an entry's tiles back and keeps the pixels they replaced on the
// opposite stack.
void CanvasDocument::restore(const LayerEdit &edit, QList<LayerEdit> &opposite)
{
    LayerEdit reverse = applyEdit(activeImage(), edit);
    for (const LayerEdit::Tile &tile : reverse.tiles)
        markPainted(QRect(tile.at, tile.pixels.size()));
    pushTrimmed(opposite, std::move(reverse));
    m_strokes.clear();
    emit snapshotRestored();
    emit strokesChanged();
}
