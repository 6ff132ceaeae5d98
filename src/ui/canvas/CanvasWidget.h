#pragma once

#include "common/Wiggle.h"
#include "engine/CanvasDocument.h"
#include "engine/Stroke.h"

#include <QColor>
#include <QImage>
#include <QPixmap>
#include <QPointF>
#include <QTimer>
#include <QWidget>

#include <random>

// The drawing surface: shows the document, turns pointer input into strokes
// and owns the tool settings and the view. The document logic lives in
// CanvasDocument; this class forwards its signals in their original order.
class CanvasWidget : public QWidget {
    Q_OBJECT

public:
    CanvasWidget(int canvasWidth, int canvasHeight, QWidget *parent = nullptr);

    CanvasDocument *document() const { return m_doc; }
    int canvasWidth() const { return m_doc->width(); }
    int canvasHeight() const { return m_doc->height(); }

    // Document operations.
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
    void setLayers(const QList<CanvasLayer> &layers, int activeIndex);
    void setStrokesAndImage(const QVector<Stroke> &strokes, const QImage &image);
    void undo();
    void redo();

    int layerCount() const { return m_doc->layerCount(); }
    int activeLayer() const { return m_doc->activeLayer(); }
    QString layerName(int index) const { return m_doc->layerName(index); }
    bool layerVisible(int index) const { return m_doc->layerVisible(index); }
    float layerOpacity(int index) const { return m_doc->layerOpacity(index); }
    QImage layerImage(int index) const { return m_doc->layerImage(index); }
    QVector<Stroke> strokes() const { return m_doc->strokes(); }
    bool canUndo() const { return m_doc->canUndo(); }
    // Null for an index out of range.
    QPixmap layerThumbnail(int index, const QSize &size) const;
    bool canRedo() const { return m_doc->canRedo(); }

    // Tool settings.
    void setTool(int tool);
    void setBrushColor(const QColor &color) { m_brushColor = color; }
    void setBrushSize(float size) { m_brushSize = size; }
    void setShapeType(int type) { m_shapeType = type; }
    void setShapeMode(int mode) { m_shapeMode = mode; }
    void setShapeErase(bool erase) { m_shapeErase = erase; }
    void setFillTolerance(int tolerance) { m_fillTolerance = tolerance; }
    int tool() const { return m_tool; }
    QColor brushColor() const { return m_brushColor; }
    float brushSize() const { return m_brushSize; }
    int shapeType() const { return m_shapeType; }
    int shapeMode() const { return m_shapeMode; }
    bool shapeErase() const { return m_shapeErase; }
    int fillTolerance() const { return m_fillTolerance; }

    // Wiggle preview.
    void setWiggleEnabled(bool enabled);
    void setWiggleAmount(float amount) { m_wiggleAmount = amount; }
    void setWiggleInterval(int ms);
    bool wiggleEnabled() const { return m_wiggleEnabled; }
    float wiggleAmount() const { return m_wiggleAmount; }
    int wiggleInterval() const { return m_wiggleTimer->interval(); }

    // Scene preview backdrop.
    void setPreviewEnabled(bool enabled);
    void setPreviewOpacity(float opacity);
    void setPreviewImage(const QImage &image);
    bool previewEnabled() const { return m_previewEnabled; }
    float previewOpacity() const { return m_previewOpacity; }

    // The visible layers flattened (cached); what the editor hands the source.
    QImage flatComposite() { return m_doc->flatComposite(); }
    // The flat composite with the live brush stroke or shape preview on it.
    QImage displayComposite();

    // Zoom steps of the wheel, and the deepest zoom.
    static constexpr float ZoomStep = 1.25f;
    static constexpr float MaxZoom = 32.0f;

signals:
    void strokesChanged();
    void strokeUpdated();
    void strokeCommitted(const Stroke &stroke);
    void coopStrokeSegment(const Stroke &stroke);
    void undoAvailabilityChanged(bool available);
    void redoAvailabilityChanged(bool available);
    void layersChanged();
    void activeLayerChanged(int index);

public slots:
    void onJitterTick();

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void wheelEvent(QWheelEvent *event) override;
    void tabletEvent(QTabletEvent *event) override;
    void enterEvent(QEnterEvent *event) override;
    void leaveEvent(QEvent *event) override;

private:
    QPointF mapToCanvas(const QPointF &widgetPos) const;
    QRect canvasRect() const;
    // The widget pixels that show a canvas area, with a margin for smoothing.
    QRect widgetArea(const QRectF &canvasArea) const;
    // The widget pixels the brush outline and the tool icon cover.
    QRect pointerArea() const;
    void zoomAbout(const QPointF &pos, float next);
    Stroke shapePreview() const;
    // The canvas area the shape being dragged covers; empty when there is none.
    QRect shapeArea() const;
    // Redraws the live brush stroke or shape preview inside a canvas area of
    // the overlay and repaints that area.
    void redrawLive(const QRect &area);
    void dropLive();
    QPixmap toolIcon(const QString &svg) const;
    void dropWiggleFrame();
    void onSnapshotRestored();
    void clampPan();
    bool shapeBeingDragged() const;
    void pressFill(const QPointF &canvasPos);
    void pressStroke(const QPointF &canvasPos);
    void moveStroke(const QPointF &canvasPos);
    void releaseStroke();
    void releaseShape(bool constrain);
    QSize wiggleDisplaySize() const;
    void makeWiggleFrame(bool newGrid);
    void rewarpWiggle();
    void regenerateWiggle();
    void paintOverlays(QPainter &painter, const QRect &target);
    void paintPointer(QPainter &painter);

    CanvasDocument *m_doc;
    QImage m_wiggleImage;
    // The live brush stroke or shape preview at canvas size, drawn over the
    // flat composite; null while nothing is being drawn.
    QImage m_live;
    Stroke m_current;
    bool m_drawing = false;

    QColor m_brushColor = Qt::black;
    float m_brushSize = 8.0f;
    int m_tool = int(Tool::Brush);
    int m_shapeType = ShapeRectangle;
    int m_shapeMode = 0;
    bool m_shapeErase = false;
    QPointF m_shapeStart;
    QPointF m_shapeEnd;
    bool m_constrainShape = false;
    int m_fillTolerance = 200;

    bool m_wiggleEnabled = false;
    float m_wiggleAmount = 2.5f;
    bool m_previewEnabled = false;
    float m_previewOpacity = 1.0f;
    QImage m_previewImage;
    QTimer *m_wiggleTimer;
    std::mt19937 m_rng;
    WiggleGrid m_wiggleGrid;
    int m_wigglePoints = 0;
    // Frames after the first are warped on a worker; a finished one is shown
    // only if no frame was made at once meanwhile and none was dropped.
    quint64 m_wiggleGeneration = 0;
    bool m_wiggleBusy = false;
    bool m_moved = false;

    float m_zoom = 1.0f;
    // Wheel angle not yet worth a whole step (touchpads send small deltas).
    int m_wheelRemainder = 0;
    float m_fitScale = 1.0f;
    QPoint m_base;
    QPointF m_pan;
    bool m_panning = false;
    QPointF m_panStartPos;
    QPointF m_panStartOffset;
    QPointF m_pointer;
    bool m_pointerInside = false;
    bool m_penDown = false;
    QPixmap m_toolCursorIcon;
};
