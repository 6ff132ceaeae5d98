#pragma once

#include "engine/CanvasLayer.h"
#include "engine/Stroke.h"

#include <QList>
#include <QObject>
#include <QRect>
#include <QVector>

#include <vector>

// The layered raster document behind the drawing surface: layers, the active
// layer's undo and redo stacks, the strokes since the last structural change
// and the dirty flags of the composite caches. No widgets: the drawing
// surface wraps it and forwards its signals.
//
// Every image it holds or hands out (layers, partials, the flat composite) is
// premultiplied, in LayerFormat; images given to it in any other format are
// converted on the way in.
class CanvasDocument : public QObject {
    Q_OBJECT

public:
    static constexpr int MaxUndoDepth = 20;

    CanvasDocument(int width, int height, QObject *parent = nullptr);

    int width() const { return m_width; }
    int height() const { return m_height; }
    QSize size() const { return {m_width, m_height}; }

    int layerCount() const { return m_layers.size(); }
    int activeLayer() const { return m_active; }
    bool isValidIndex(int index) const { return index >= 0 && index < m_layers.size(); }
    const QList<CanvasLayer> &layers() const { return m_layers; }
    QString layerName(int index) const;
    bool layerVisible(int index) const;
    float layerOpacity(int index) const;
    QImage layerImage(int index) const;

    // The active layer's pixels, for painting in place. Callers mark the
    // flat composite dirty through markPainted().
    QImage &activeImage() { return m_layers[m_active].image; }
    const QImage &activeImage() const { return m_layers[m_active].image; }

    const QVector<Stroke> &strokes() const { return m_strokes; }
    void appendStroke(const Stroke &stroke) { m_strokes.append(stroke); }
    void clearStrokes() { m_strokes.clear(); }

    // Layer operations. Bad indices are ignored.
    void addLayer();
    void deleteLayer(int index);
    void setActiveLayer(int index);
    void moveLayer(int from, int to);
    void moveLayerDown(int index);
    void moveLayerUp(int index);
    void renameLayer(int index, const QString &name);
    void setLayerVisible(int index, bool visible);
    void setLayerOpacity(int index, float opacity);
    void clear();
    void setLayers(QList<CanvasLayer> layers, int activeIndex);
    void setStrokesAndImage(const QVector<Stroke> &strokes, const QImage &image);

    // Undo of the active layer: capture before an action changes its pixels,
    // commit after; the entry keeps only the tiles the action changed inside
    // the areas marked painted in between.
    void captureSnapshot();
    void commitSnapshot();
    void dropSnapshot();
    void rollBackPending();
    bool hasPendingSnapshot() const { return m_snapshotPending; }
    void undo();
    void redo();
    bool canUndo() const { return !m_activeUndo.isEmpty(); }
    bool canRedo() const { return !m_activeRedo.isEmpty(); }
    int undoDepth() const { return m_activeUndo.size(); }
    int redoDepth() const { return m_activeRedo.size(); }

    // Composite cache bookkeeping.
    bool compositeDirty() const { return m_compositeDirty; }
    bool belowDirty() const { return m_partialsDirty.below; }
    bool aboveDirty() const { return m_partialsDirty.above; }
    void markPainted() { markPainted(QRect(0, 0, m_width, m_height)); }
    // Only this part of the active layer changed: the next flat rebuild may
    // recompose just the tiles it touches.
    void markPainted(const QRect &area);
    void markAllDirty();
    void setCompositeClean()
    {
        m_compositeDirty = false;
        m_flatDirtyArea = QRect();
    }
    void setBelowClean() { m_partialsDirty.below = false; }
    void setAboveClean() { m_partialsDirty.above = false; }

    QImage blankImage() const;

    // The visible layers flattened, rebuilt from the cached partials below and
    // above the active layer only when something was painted or changed.
    QImage flatComposite();

    // One image drawn SourceOver at an opacity.
    struct BlendSource {
        const QImage *image;
        float opacity;
    };
    // Draws the sources, bottom first, over transparent into area of out (a
    // LayerFormat image), in bands on the parallel pool.
    static void compose(QImage &out, const QRect &area, const std::vector<BlendSource> &sources);
    // Rebuilds whichever of the two partials is dirty; flatComposite() runs it
    // first, a repaint after a layer switch runs it on its own.
    void rebuildPartials();
    const QImage &belowComposite() const { return m_belowImage; }
    const QImage &aboveComposite() const { return m_aboveImage; }

signals:
    void strokesChanged();
    void undoAvailabilityChanged(bool available);
    void redoAvailabilityChanged(bool available);
    void layersChanged();
    void activeLayerChanged(int index);
    // The active layer's pixels were replaced by an undo or redo snapshot;
    // emitted before strokesChanged so the surface can end a drag first.
    void snapshotRestored();

private:
    void storeActiveStacks();
    void loadActiveStacks();
    void resetStacks();
    void restore(const LayerEdit &edit, QList<LayerEdit> &opposite);
    static void pushTrimmed(QList<LayerEdit> &stack, LayerEdit edit);
    void emitAvailability();
    CanvasLayer newLayer(const QString &name) const;
    QImage normalised(const QImage &image) const;
    // The visible layers first..last into out; shown tells whether any is.
    void compositeRange(QImage &out, bool &shown, int first, int last) const;

    int m_width;
    int m_height;
    QList<LayerEdit> m_activeUndo;
    QList<LayerEdit> m_activeRedo;
    QImage m_pendingSnapshot; // shares the layer's pixels until it is painted
    QRect m_pendingArea;      // marked painted since the capture
    bool m_snapshotPending = false;
    QList<CanvasLayer> m_layers;
    int m_active = 0;
    bool m_compositeDirty = true;
    // The part of the flat composite that is out of date while it is dirty.
    QRect m_flatDirtyArea;
    // What the current flat composite was built from; a partial rebuild is
    // exact only on the same basis.
    struct FlatBasis {
        quint64 partials = 0;
        int active = -1;
        float opacity = 1.0f;
        bool activeShown = false;
        bool operator==(const FlatBasis &o) const
        {
            return partials == o.partials && active == o.active && opacity == o.opacity &&
                   activeShown == o.activeShown;
        }
    } m_flatBasis;
    quint64 m_partialsGeneration = 0;
    struct {
        bool below = true;
        bool above = true;
    } m_partialsDirty;
    QVector<Stroke> m_strokes;
    QImage m_belowImage;
    QImage m_aboveImage;
    bool m_belowShown = false; // the partial holds a visible layer
    bool m_aboveShown = false;
    QImage m_flatImage;
};
