#include "editor/DrawingWindow.h"

#include "canvas/CanvasWidget.h"
#include "common/Log.h"
#include "common/Text.h"
#include "editor/BrushSize.h"
#include "editor/ColorSection.h"
#include "editor/CoopFeature.h"
#include "editor/EditorStyle.h"
#include "editor/FillPopup.h"
#include "editor/HistoryControls.h"
#include "editor/LayersFeature.h"
#include "editor/PenGesture.h"
#include "editor/PopupHost.h"
#include "editor/PreviewPopup.h"
#include "editor/ShapesPopup.h"
#include "editor/ToolBox.h"
#include "editor/ToolRowLayout.h"
#include "editor/WigglePopup.h"
#include "files/CanvasFiles.h"
#include "files/CanvasSaver.h"
#include "source/CoopFacet.h"
#include "widgets/Icons.h"
#include "widgets/LongPressButton.h"
#include "widgets/TintedIcon.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QMouseEvent>
#include <QPushButton>
#include <QScreen>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>

namespace {

// The size of a canvas without a source to take it from.
const QSize DefaultCanvasSize(1920, 1080);

// Shared by every editor window: the source gets at most one live image per
// interval, whichever window sends it.
QElapsedTimer &liveUpdateThrottle()
{
    static QElapsedTimer timer;
    return timer;
}

// A row group: controls side by side, 8 px apart.
QWidget *group(QWidget *parent, std::initializer_list<QWidget *> widgets)
{
    auto *box = new QWidget(parent);
    auto *layout = new QHBoxLayout(box);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(8);
    for (QWidget *widget : widgets) {
        if (widget)
            layout->addWidget(widget);
    }
    return box;
}

} // namespace

DrawingWindow::DrawingWindow(std::unique_ptr<EditorSource> source, QWidget *parent)
    : QDialog(parent), m_source(std::move(source))
{
    m_saveTimer = new QTimer(this);
    m_saveTimer->setObjectName(QStringLiteral("saveTimer"));
    m_saveTimer->setSingleShot(true);
    m_saveTimer->setInterval(SaveDelayMs);
    connect(m_saveTimer, &QTimer::timeout, this, &DrawingWindow::saveCanvasAsync);

    if (m_source) {
        // Runs on the host's signal thread: only queue the close.
        m_source->setRemovedCallback([this] {
            QMetaObject::invokeMethod(this, "handleSourceRemoved", Qt::QueuedConnection);
        });
        m_canvasKey = m_source->canvasKey();
    }

    setWindowTitle(isCoopMode() ? uiText("Editor.Title.Coop") : uiText("Editor.Title"));
    setModal(false);
    QCoreApplication::instance()->installEventFilter(this);

    const QSize canvasSize = m_source ? m_source->canvasSize() : DefaultCanvasSize;
    m_canvas = new CanvasWidget(canvasSize.width(), canvasSize.height(), this);
    m_canvas->setMinimumSize(320, 180);
    m_canvas->setFocusPolicy(Qt::StrongFocus);
    connect(m_canvas, &CanvasWidget::strokesChanged, this, &DrawingWindow::onStrokesChanged);
    connect(m_canvas, &CanvasWidget::layersChanged, this, &DrawingWindow::onStrokesChanged);
    m_popups = new PopupHost(this);
    m_popups->setShielded(m_canvas);

    buildFeatures();
    if (!m_canvasKey.isEmpty())
        loadDrawing();

    m_loadedSettings = loadEditorSettings();
    applyInitialGeometry(m_loadedSettings.windowGeometry);
    for (EditorFeature *feature : std::as_const(m_features))
        feature->applySettings(m_loadedSettings);
}

void DrawingWindow::buildFeatures()
{
    CoopFacet *coop = m_source ? m_source->coop() : nullptr;
    const EditorContext context{this, m_canvas, m_source.get(), m_popups,
                                QGuiApplication::palette().buttonText().color()};
    auto *color = new ColorSection(context);
    auto *history = coop ? nullptr : new HistoryControls(context);
    auto *brushSize = new BrushSize(context);
    auto *wiggle = new WigglePopup(context);
    auto *tools = new ToolBox(context, wiggle->button());
    auto *fill = new FillPopup(context, tools->fillButton());
    auto *shapes = new ShapesPopup(context, tools->shapesButton());
    connect(tools, &ToolBox::toolChosen, shapes, &ShapesPopup::onToolChosen);
    auto *preview = coop ? nullptr : new PreviewPopup(context);
    m_features = {color, brushSize, tools, fill, shapes, wiggle};
    if (history)
        m_features.append(history);
    if (preview)
        m_features.append(preview);

    const QSize iconSize(20, 20);
    auto *layersButton = new QToolButton(this);
    layersButton->setObjectName(QStringLiteral("layersButton"));
    layersButton->setAutoRaise(true);
    layersButton->setFixedSize(32, 32);
    layersButton->setIcon(tintedSvgIcon(Icons::Layers, context.iconColor, iconSize));
    layersButton->setIconSize(iconSize);
    layersButton->setToolTip(uiText("Editor.Tooltip.Layers"));
    auto *clear = new QPushButton(uiText("Editor.Clear"), this);
    clear->setObjectName(QStringLiteral("clearButton"));
    clear->setMinimumWidth(64);
    clear->setAutoDefault(false);
    connect(clear, &QPushButton::clicked, this, &DrawingWindow::onClearClicked);

    auto *row = new QWidget(this);
    auto *rowLayout = new ToolRowLayout(row);
    const QSize separatorSize(1, 20);
    rowLayout->addWidget(group(row, {color->button(), EditorStyle::separator(row, separatorSize),
                                     history ? history->undoButton() : nullptr,
                                     history ? history->redoButton() : nullptr,
                                     history ? EditorStyle::separator(row, separatorSize) : nullptr,
                                     brushSize->widget()}));
    rowLayout->addWidget(tools->frame());
    rowLayout->addWidget(group(row, {preview ? preview->button() : nullptr, layersButton, clear}));

    auto *mainLayout = new QVBoxLayout(this);
    mainLayout->setContentsMargins(0, 0, 0, 0);
    mainLayout->setSpacing(0);
    mainLayout->addWidget(row);
    auto *canvasRow = new QHBoxLayout();
    canvasRow->setContentsMargins(0, 0, 0, 0);
    canvasRow->setSpacing(0);
    canvasRow->addWidget(m_canvas, 1);
    mainLayout->addLayout(canvasRow, 1);

    if (coop) {
        // Last, so that its fill tolerance wins over the one kept in the settings.
        m_features.append(new CoopFeature(context, coop, layersButton));
    } else {
        new LayersFeature(context, layersButton, canvasRow);
        connect(m_canvas, &CanvasWidget::strokeUpdated, this, &DrawingWindow::onDrawingUpdated);
    }
}

DrawingWindow::~DrawingWindow()
{
    // Disconnects from the source's signals before anything else goes.
    m_source.reset();
}

void DrawingWindow::applyInitialGeometry(const QByteArray &savedGeometry)
{
    if (!savedGeometry.isEmpty()) {
        restoreGeometry(savedGeometry);
        return;
    }
    if (QScreen *screen = QGuiApplication::primaryScreen()) {
        const QRect area = screen->availableGeometry();
        const QSize size(int(area.width() * 0.6), int(area.height() * 0.7));
        resize(size);
        move(area.center() - QPoint(size.width() / 2, size.height() / 2));
        return;
    }
    resize(1100, 720);
}

void DrawingWindow::onClearClicked()
{
    m_canvas->clear();
    if (m_source)
        m_source->cleared(m_canvas->flatComposite());
}

void DrawingWindow::onStrokesChanged()
{
    if (m_source)
        m_source->commit(m_canvas->strokes(), m_canvas->flatComposite());
    if (!m_canvasKey.isEmpty())
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

void DrawingWindow::loadDrawing()
{
    const CanvasSaver saver(m_canvasKey);
    if (!saver.isEnabled())
        return;
    if (loadCanvasAtStart(saver.directory(), *m_canvas) == CanvasLoad::Blank)
        return;
    if (m_source)
        m_source->commit(QVector<Stroke>(), m_canvas->flatComposite());
}

void DrawingWindow::saveCanvasAsync()
{
    CanvasSaver(m_canvasKey).saveAsync(*m_canvas->document(), m_canvas->flatComposite());
}

void DrawingWindow::saveCanvasNow()
{
    CanvasSaver(m_canvasKey).saveNow(*m_canvas->document(), m_canvas->flatComposite());
}

bool DrawingWindow::eventFilter(QObject *watched, QEvent *event)
{
    switch (event->type()) {
    case QEvent::MouseButtonPress:
    case QEvent::MouseMove:
    case QEvent::MouseButtonRelease:
        return m_popups->filterMouse(watched, static_cast<QMouseEvent *>(event));
    default:
        return false;
    }
}

void DrawingWindow::resizeEvent(QResizeEvent *event)
{
    QDialog::resizeEvent(event);
    m_popups->placeAll();
}

void DrawingWindow::finishEditing()
{
    if (m_editingFinished)
        return;
    m_editingFinished = true;
    EditorSettings settings = m_loadedSettings;
    for (const EditorFeature *feature : std::as_const(m_features))
        feature->collectSettings(settings);
    settings.windowGeometry = saveGeometry();
    saveEditorSettings(settings);
    m_saveTimer->stop();
    if (!m_canvasKey.isEmpty() && !m_closingForRemovedSource)
        saveCanvasNow();
}

void DrawingWindow::closeEvent(QCloseEvent *event)
{
    finishEditing();
    QDialog::closeEvent(event);
}

void DrawingWindow::done(int result)
{
    finishEditing();
    QDialog::done(result);
}

void DrawingWindow::showEvent(QShowEvent *event)
{
    m_editingFinished = false;
    QDialog::showEvent(event);
}

bool DrawingWindow::nativeEvent(const QByteArray &eventType, void *message, qintptr *result)
{
    long long answer = 0;
    if (answerPenGestureQuery(eventType.constData(), message, &answer)) {
        if (result)
            *result = qintptr(answer);
        return true;
    }
    return QDialog::nativeEvent(eventType, message, result);
}

void DrawingWindow::handleSourceRemoved()
{
    m_closingForRemovedSource = true;
    close();
}
