#include "layers/LayerPanel.h"

#include "canvas/CanvasWidget.h"
#include "common/Log.h"
#include "common/Text.h"
#include "layers/ClickCatcher.h"
#include "layers/DragDetector.h"
#include "widgets/Icons.h"
#include "widgets/TintedIcon.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>
#include <QScrollArea>
#include <QScrollBar>
#include <QToolButton>
#include <QVBoxLayout>

#include <algorithm>

namespace {

const QSize ThumbnailSize(40, 28);
constexpr int DragThreshold = 8;
const QString ActiveRowStyle = QStringLiteral("background: palette(highlight);");
const QString DraggedRowStyle =
    QStringLiteral("background: palette(mid); border: 1px dashed palette(bright-text);");

QToolButton *makeToolButton(const QSize &size, QWidget *parent)
{
    auto *button = new QToolButton(parent);
    button->setFixedSize(size);
    button->setAutoRaise(true);
    return button;
}

} // namespace

LayerPanel::LayerPanel(CanvasWidget *canvas, QWidget *parent) : QWidget(parent), m_canvas(canvas)
{
    setMinimumWidth(220);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);

    m_scrollArea = new QScrollArea(this);
    m_scrollArea->setWidgetResizable(true);
    m_scrollArea->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_scrollArea->setFrameShape(QFrame::NoFrame);
    m_scrollArea->setMaximumHeight(388);
    m_listWidget = new QWidget;
    m_listLayout = new QVBoxLayout(m_listWidget);
    m_listLayout->setContentsMargins(0, 0, 0, 0);
    m_listLayout->setSpacing(1);
    m_scrollArea->setWidget(m_listWidget);
    layout->addWidget(m_scrollArea, 1);

    m_dropIndicator = new QFrame(m_scrollArea->viewport());
    m_dropIndicator->setObjectName(QStringLiteral("dropIndicator"));
    m_dropIndicator->setFixedHeight(4);
    m_dropIndicator->setStyleSheet(
        QStringLiteral("background: palette(highlight); border-radius: 2px;"));
    m_dropIndicator->setAttribute(Qt::WA_TransparentForMouseEvents);
    m_dropIndicator->hide();

    auto *footer = new QWidget(this);
    footer->setFixedHeight(32);
    auto *footerLayout = new QHBoxLayout(footer);
    footerLayout->setContentsMargins(4, 2, 4, 2);
    footerLayout->setSpacing(4);

    m_pinButton = makeToolButton(QSize(24, 24), footer);
    m_pinButton->setObjectName(QStringLiteral("pinButton"));
    m_pinButton->setCheckable(true);
    m_pinButton->setChecked(false);
    m_pinButton->setToolTip(uiText("Layers.Tooltip.Pin"));
    m_pinButton->setIcon(
        tintedSvgIcon(Icons::Pin, palette().color(QPalette::ButtonText), QSize(18, 18)));
    m_pinButton->setIconSize(QSize(18, 18));
    connect(m_pinButton, &QToolButton::clicked, this, &LayerPanel::pinToggled);
    footerLayout->addWidget(m_pinButton);
    footerLayout->addStretch();

    m_deleteButton = makeToolButton(QSize(24, 24), footer);
    m_deleteButton->setObjectName(QStringLiteral("deleteButton"));
    m_deleteButton->setText(QStringLiteral("\u2212"));
    m_deleteButton->setToolTip(uiText("Layers.Tooltip.Delete"));
    m_deleteButton->setEnabled(false);
    connect(m_deleteButton, &QToolButton::clicked, this, &LayerPanel::onDeleteLayer);
    footerLayout->addWidget(m_deleteButton);

    auto *addButton = makeToolButton(QSize(24, 24), footer);
    addButton->setObjectName(QStringLiteral("addButton"));
    addButton->setText(QStringLiteral("+"));
    addButton->setToolTip(uiText("Layers.Tooltip.Add"));
    connect(addButton, &QToolButton::clicked, this, &LayerPanel::onAddLayer);
    footerLayout->addWidget(addButton);
    layout->addWidget(footer);

    if (m_canvas) {
        connect(m_canvas, &CanvasWidget::layersChanged, this, &LayerPanel::rebuild);
        connect(m_canvas, &CanvasWidget::activeLayerChanged, this, &LayerPanel::rebuild);
        connect(m_canvas, &CanvasWidget::strokesChanged, this, &LayerPanel::refreshActiveThumbnail);
    }
    rebuild();
}

void LayerPanel::rebuild()
{
    if (!isVisible()) {
        m_rebuildPending = true;
        return;
    }
    m_rebuildPending = false;
    QElapsedTimer timer;
    timer.start();

    endDrag();
    m_dropIndicator->hide();

    // Old rows go later: this may run inside a click on one of their buttons.
    while (QLayoutItem *item = m_listLayout->takeAt(0)) {
        if (QWidget *widget = item->widget()) {
            widget->hide();
            widget->deleteLater();
        }
        delete item;
    }
    m_rows.clear();
    m_thumbnails.clear();
    m_rowLayers.clear();

    const int count = m_canvas ? m_canvas->layerCount() : 0;
    const int active = m_canvas ? m_canvas->activeLayer() : -1;
    for (int layer = count - 1, row = 0; layer >= 0; --layer, ++row)
        m_listLayout->addWidget(buildRow(layer, row, count, active));
    m_listLayout->addStretch();
    m_deleteButton->setEnabled(count >= 2);

    pdLog("[PD] LayerPanel::rebuild: %d layers in %lld ms", count,
          static_cast<long long>(timer.elapsed()));
    if (!m_pinned)
        applyListHeights();
}

QWidget *LayerPanel::buildRow(int layer, int row, int count, int activeLayer)
{
    const bool isActive = layer == activeLayer;
    auto *rowWidget = new QWidget(m_listWidget);
    rowWidget->setObjectName(QStringLiteral("layerRow"));
    rowWidget->setFixedHeight(RowHeight);
    rowWidget->setAutoFillBackground(true);
    rowWidget->setStyleSheet(isActive ? ActiveRowStyle : QString());
    auto *layout = new QHBoxLayout(rowWidget);
    layout->setContentsMargins(4, 3, 4, 3);
    layout->setSpacing(5);
    const QColor iconColor =
        palette().color(isActive ? QPalette::HighlightedText : QPalette::ButtonText);

    const bool visible = m_canvas->layerVisible(layer);
    auto *eye = makeToolButton(QSize(20, 20), rowWidget);
    eye->setObjectName(QStringLiteral("visibilityButton"));
    eye->setCheckable(true);
    eye->setChecked(visible);
    eye->setIconSize(QSize(14, 14));
    eye->setIcon(tintedSvgIcon(visible ? Icons::Eye : Icons::EyeOff, iconColor, QSize(16, 16)));
    QPointer<CanvasWidget> canvas = m_canvas;
    connect(eye, &QToolButton::toggled, this, [canvas, layer](bool checked) {
        if (canvas)
            canvas->setLayerVisible(layer, checked);
    });
    layout->addWidget(eye);

    auto *thumbnail = new QLabel(rowWidget);
    thumbnail->setObjectName(QStringLiteral("thumbnail"));
    thumbnail->setFixedSize(ThumbnailSize);
    thumbnail->setPixmap(m_canvas->layerThumbnail(layer, ThumbnailSize));
    thumbnail->setAttribute(Qt::WA_TransparentForMouseEvents);
    layout->addWidget(thumbnail);

    auto *name = new QLabel(m_canvas->layerName(layer), rowWidget);
    name->setObjectName(QStringLiteral("name"));
    name->setAttribute(Qt::WA_TransparentForMouseEvents);
    if (isActive)
        name->setStyleSheet(QStringLiteral("color: palette(highlighted-text);"));
    layout->addWidget(name, 1);

    auto *up = makeToolButton(QSize(18, 18), rowWidget);
    up->setObjectName(QStringLiteral("upButton"));
    up->setText(QStringLiteral("\u25B2"));
    up->setToolTip(uiText("Layers.Tooltip.Up"));
    up->setEnabled(layer < count - 1);
    connect(up, &QToolButton::clicked, this, [canvas, layer] {
        if (canvas)
            canvas->moveLayerUp(layer);
    });
    layout->addWidget(up);

    auto *down = makeToolButton(QSize(18, 18), rowWidget);
    down->setObjectName(QStringLiteral("downButton"));
    down->setText(QStringLiteral("\u25BC"));
    down->setToolTip(uiText("Layers.Tooltip.Down"));
    down->setEnabled(layer != 0);
    connect(down, &QToolButton::clicked, this, [canvas, layer] {
        if (canvas)
            canvas->moveLayerDown(layer);
    });
    layout->addWidget(down);

    // The drag detector goes first so that the click catcher, installed last,
    // sees the press first: activating a layer rebuilds the rows, and the press
    // then starts on the rebuilt list instead of being cancelled by it.
    rowWidget->installEventFilter(
        new DragDetector(row, [this](int r, const QPoint &pos) { startPress(r, pos); }, rowWidget));
    rowWidget->installEventFilter(new ClickCatcher(
        [canvas, layer] {
            if (canvas)
                canvas->setActiveLayer(layer);
        },
        rowWidget));

    m_rows.append(rowWidget);
    m_thumbnails.append(thumbnail);
    m_rowLayers.append(layer);
    return rowWidget;
}

void LayerPanel::applyListHeights()
{
    const int count = m_canvas ? m_canvas->layerCount() : 0;
    m_scrollArea->setMinimumHeight(std::clamp(count * RowPitch, RowHeight, MaxListHeight));
    m_scrollArea->setMaximumHeight(MaxListHeight);
}

void LayerPanel::setPinned(bool pinned)
{
    m_pinned = pinned;
    {
        const QSignalBlocker blocker(m_pinButton);
        m_pinButton->setChecked(pinned);
    }
    if (pinned) {
        m_scrollArea->setMinimumHeight(0);
        m_scrollArea->setMaximumHeight(QWIDGETSIZE_MAX);
    } else {
        applyListHeights();
    }
}

void LayerPanel::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    if (m_rebuildPending) {
        rebuild();
        return;
    }
    for (int row = 0; row < m_rows.size(); ++row)
        refreshThumbnail(row);
}

void LayerPanel::refreshThumbnail(int row)
{
    if (!m_canvas || row < 0 || row >= m_thumbnails.size() || row >= m_rowLayers.size())
        return;
    const int layer = m_rowLayers.at(row);
    QLabel *label = m_thumbnails.at(row);
    if (layer < 0 || layer >= m_canvas->layerCount() || !label)
        return;
    label->setPixmap(m_canvas->layerThumbnail(layer, ThumbnailSize));
}

void LayerPanel::refreshActiveThumbnail()
{
    if (!isVisible() || m_dragging || !m_canvas)
        return;
    refreshThumbnail(m_rowLayers.indexOf(m_canvas->activeLayer()));
}

void LayerPanel::onAddLayer()
{
    if (m_canvas)
        m_canvas->addLayer();
}

void LayerPanel::onDeleteLayer()
{
    if (m_canvas && m_canvas->layerCount() >= 2)
        m_canvas->deleteLayer(m_canvas->activeLayer());
}

void LayerPanel::startPress(int row, const QPoint &globalPos)
{
    m_dragRow = row;
    m_dropSlot = -1;
    m_pressPos = globalPos;
    m_dragging = false;
    qApp->installEventFilter(this);
}

void LayerPanel::endDrag()
{
    m_dragging = false;
    qApp->removeEventFilter(this);
    m_dragRow = -1;
}

bool LayerPanel::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::MouseMove) {
        const QPoint pos = static_cast<QMouseEvent *>(event)->globalPosition().toPoint();
        if (!m_dragging) {
            if (m_dragRow < 0 || (pos - m_pressPos).manhattanLength() < DragThreshold)
                return QWidget::eventFilter(watched, event);
            m_dragging = true;
            restyle();
        }
        updateDropSlot(pos);
    } else if (event->type() == QEvent::MouseButtonRelease) {
        if (m_dragging)
            drop();
        m_dragging = false;
        m_dragRow = -1;
        m_dropSlot = -1;
        qApp->removeEventFilter(this);
        restyle();
    }
    return QWidget::eventFilter(watched, event);
}

void LayerPanel::updateDropSlot(const QPoint &globalPos)
{
    const int y = m_listWidget->mapFromGlobal(globalPos).y();
    const int slot = std::clamp((y + RowPitch / 2) / RowPitch, 0, int(m_rows.size()));
    if (slot == m_dropSlot)
        return;
    m_dropSlot = slot;
    restyle();
}

void LayerPanel::restyle()
{
    for (int row = 0; row < m_rows.size(); ++row) {
        QString style;
        if (m_dragging && row == m_dragRow)
            style = DraggedRowStyle;
        else if (m_canvas && m_rowLayers.value(row, -1) == m_canvas->activeLayer())
            style = ActiveRowStyle;
        if (m_rows.at(row)->styleSheet() != style)
            m_rows.at(row)->setStyleSheet(style);
    }

    const int rowCount = int(m_rows.size());
    if (!m_dragging || m_dropSlot < 0 || m_dropSlot == m_dragRow || m_dropSlot == m_dragRow + 1) {
        m_dropIndicator->hide();
        return;
    }
    int y = m_dropSlot * RowPitch;
    if (m_dropSlot == rowCount && rowCount > 0)
        --y;
    QWidget *viewport = m_scrollArea->viewport();
    const int mapped = m_listWidget->mapTo(viewport, QPoint(0, y)).y();
    m_dropIndicator->setGeometry(3, std::clamp(mapped - 2, 0, std::max(viewport->height() - 4, 0)),
                                 viewport->width() - 6, 4);
    m_dropIndicator->raise();
    m_dropIndicator->show();
}

void LayerPanel::drop()
{
    m_dropIndicator->hide();
    if (!m_canvas || m_dragRow < 0 || m_dropSlot < 0 || m_dropSlot == m_dragRow ||
        m_dropSlot == m_dragRow + 1 || m_dragRow >= m_rowLayers.size())
        return;
    const int fromLayer = m_rowLayers.at(m_dragRow);
    if (fromLayer < 0)
        return;
    const int count = m_canvas->layerCount();
    const int targetRow =
        std::clamp(m_dropSlot > m_dragRow ? m_dropSlot - 1 : m_dropSlot, 0, count - 1);
    m_canvas->moveLayer(fromLayer, count - 1 - targetRow);
}
