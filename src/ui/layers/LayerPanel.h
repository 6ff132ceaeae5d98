#pragma once

#include <QList>
#include <QPoint>
#include <QPointer>
#include <QWidget>

class CanvasWidget;
class QFrame;
class QLabel;
class QScrollArea;
class QToolButton;
class QVBoxLayout;

// The editor's list of layers, top layer first, with visibility toggles,
// thumbnails, move buttons and drag reordering, and a footer with the pin,
// delete and add buttons. It rebuilds itself whenever the canvas reports a
// change of its layers.
class LayerPanel : public QWidget {
    Q_OBJECT

public:
    static constexpr int RowHeight = 38;
    static constexpr int RowPitch = 39;
    static constexpr int MaxListHeight = 380;

    LayerPanel(CanvasWidget *canvas, QWidget *parent = nullptr);

    void setPinned(bool pinned);
    bool isPinned() const { return m_pinned; }
    QToolButton *pinButton() const { return m_pinButton; }

signals:
    void pinToggled();

public slots:
    void rebuild();
    void onAddLayer();
    void onDeleteLayer();
    void refreshActiveThumbnail();

protected:
    void showEvent(QShowEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QWidget *buildRow(int layer, int row, int count, int activeLayer);
    void startPress(int row, const QPoint &globalPos);
    void endDrag();
    void updateDropSlot(const QPoint &globalPos);
    void restyle();
    void drop();
    void applyListHeights();
    void refreshThumbnail(int row);

    QPointer<CanvasWidget> m_canvas;
    QScrollArea *m_scrollArea;
    QWidget *m_listWidget;
    QVBoxLayout *m_listLayout;
    QToolButton *m_pinButton;
    QToolButton *m_deleteButton;
    bool m_pinned = false;
    bool m_rebuildPending = false;
    QList<QWidget *> m_rows;
    QList<QLabel *> m_thumbnails;
    QList<int> m_rowLayers;
    int m_dragRow = -1;
    int m_dropSlot = -1;
    QPoint m_pressPos;
    bool m_dragging = false;
    QFrame *m_dropIndicator;
};
