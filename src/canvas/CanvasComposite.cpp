#include "canvas/CanvasDocument.h"

#include "module/Log.h"

#include <QElapsedTimer>
#include <QPainter>

QImage CanvasDocument::compositeRange(int first, int last) const
{
    QImage out = blankImage();
    QPainter painter(&out);
    painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
    for (int i = first; i <= last; ++i) {
        const CanvasLayer &layer = m_layers[i];
        if (!layer.visible)
            continue;
        painter.setOpacity(layer.opacity);
        painter.drawImage(0, 0, layer.image);
    }
    return out;
}

void CanvasDocument::rebuildPartials()
{
    if (m_partialsDirty.below) {
        QElapsedTimer timer;
        timer.start();
        m_belowImage = compositeRange(0, m_active - 1);
        m_partialsDirty.below = false;
        pdLog("[PD] SplitBelow: rebuilt %d layers in %lld ms", m_active,
              static_cast<long long>(timer.elapsed()));
    }
    if (m_partialsDirty.above) {
        QElapsedTimer timer;
        timer.start();
        const int count = int(m_layers.size());
        m_aboveImage = compositeRange(m_active + 1, count - 1);
        m_partialsDirty.above = false;
        pdLog("[PD] SplitAbove: rebuilt %d layers in %lld ms", count - m_active - 1,
              static_cast<long long>(timer.elapsed()));
    }
}

QImage CanvasDocument::flatComposite()
{
    if (!m_compositeDirty && !m_flatImage.isNull())
        return m_flatImage;
    QElapsedTimer timer;
    timer.start();
    rebuildPartials();

    QImage out = blankImage();
    QPainter painter(&out);
    painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
    if (!m_belowImage.isNull())
        painter.drawImage(0, 0, m_belowImage);
    if (isValidIndex(m_active) && m_layers[m_active].visible) {
        painter.setOpacity(m_layers[m_active].opacity);
        painter.drawImage(0, 0, m_layers[m_active].image);
        painter.setOpacity(1.0);
    }
    if (!m_aboveImage.isNull())
        painter.drawImage(0, 0, m_aboveImage);
    painter.end();

    m_flatImage = out;
    m_compositeDirty = false;
    pdLog("[PD] FlatComposite: rebuilt (3-blit) in %lld ms",
          static_cast<long long>(timer.elapsed()));
    return m_flatImage;
}
