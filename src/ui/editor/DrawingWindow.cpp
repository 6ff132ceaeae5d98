#include "editor/DrawingWindow.h"

#include "canvas/CanvasWidget.h"
#include "coop/CoopCanvas.h"
#include "editor/PenGesture.h"
#include "layers/LayerPanel.h"
#include "settings/EditorSettings.h"
#include "widgets/LongPressButton.h"

#include <QCloseEvent>
#include <QCoreApplication>
#include <QFrame>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QPalette>
#include <QPushButton>
#include <QScreen>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>

namespace {

// The size of a canvas without a source to take it from.
constexpr int DefaultCanvasWidth = 1920;
constexpr int DefaultCanvasHeight = 1080;

} // namespace

DrawingWindow::DrawingWindow(std::unique_ptr<EditorSource> source, QWidget *parent, bool coopMode)
    : QDialog(parent), m_source(std::move(source)), m_coopMode(coopMode)
{
    m_saveTimer = new QTimer(this);
    m_saveTimer->setSingleShot(true);
    m_saveTimer->setInterval(SaveDelayMs);
    connect(m_saveTimer, &QTimer::timeout, this, &DrawingWindow::saveCanvasAsync);
    m_previewTimer = new QTimer(this);
    m_previewTimer->setInterval(PreviewIntervalMs);
    connect(m_previewTimer, &QTimer::timeout, this, &DrawingWindow::onScenePreviewTick);

    if (m_source) {
        // Runs on the host's signal thread: only queue the close.
        m_source->setRemovedCallback([this] {
            QMetaObject::invokeMethod(this, "handleSourceRemoved", Qt::QueuedConnection);
        });
        m_canvasKey = m_source->canvasKey();
    }

    setWindowTitle(QStringLiteral("Pennoria Canvas \u2014 Draw"));
    setModal(false);
    QCoreApplication::instance()->installEventFilter(this);

    m_iconColor = QGuiApplication::palette().buttonText().color();

    QWidget *controlRow = buildControlRow();
    buildColorSection();
    buildJitterPopup();
    buildFillPopup();
    buildShapesPopup();
    buildPreviewPopup();

    QSize canvasSize(DefaultCanvasWidth, DefaultCanvasHeight);
    if (m_coopMode)
        canvasSize = QSize(CoopCanvas::instance().width(), CoopCanvas::instance().height());
    else if (m_source)
        canvasSize = m_source->canvasSize();
    createCanvas(canvasSize.width(), canvasSize.height());

    if (!m_coopMode) {
        loadDrawing();
    } else {
        m_canvas->setWiggleEnabled(false);
        m_canvas->setFillTolerance(CoopCanvas::DefaultFillTolerance);
        m_canvas->setStrokesAndImage(QVector<Stroke>(), CoopCanvas::instance().image());
    }

    if (!m_coopMode)
        buildLayersPopup();

    auto *mainLayout = new QVBoxLayout(this);
    mainLayout->setContentsMargins(0, 0, 0, 0);
    mainLayout->setSpacing(0);
    mainLayout->addWidget(controlRow);
    auto *canvasRow = new QHBoxLayout();
    canvasRow->setContentsMargins(0, 0, 0, 0);
    canvasRow->setSpacing(0);
    canvasRow->addWidget(m_canvas, 1);
    if (!m_coopMode) {
        m_dockedLayerPanel = new LayerPanel(m_canvas, this);
        m_dockedLayerPanel->setFixedWidth(240);
        m_dockedLayerPanel->hide();
        connect(m_dockedLayerPanel, &LayerPanel::pinToggled, this,
                &DrawingWindow::onLayerPinToggled);
        canvasRow->addWidget(m_dockedLayerPanel);
    }
    mainLayout->addLayout(canvasRow, 1);

    const EditorSettings settings = loadEditorSettings();
    applyInitialGeometry(settings.windowGeometry);
    applyEditorSettings(settings);
    if (m_coopMode)
        setupCoop();
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

void DrawingWindow::resizeEvent(QResizeEvent *event)
{
    QDialog::resizeEvent(event);
    if (m_colorSectionOpen)
        positionPopup(m_colorSection, m_colorButton);
    if (m_jitterPopupOpen)
        positionPopup(m_jitterPopup, m_jitterButton);
    if (m_fillPopupOpen)
        positionPopup(m_fillPopup, m_fillButton);
    if (m_shapesPopupOpen)
        positionPopup(m_shapesPopup, m_shapesButton);
    if (m_previewPopupOpen)
        positionPopup(m_previewPopup, m_previewButton);
    if (m_layersPopup && m_layersPopupOpen)
        positionPopup(m_layersPopup, m_layersButton);
}

void DrawingWindow::finishEditing()
{
    if (m_editingFinished)
        return;
    m_editingFinished = true;
    saveEditorSettings(collectEditorSettings());
    m_saveTimer->stop();
    if (!m_coopMode && !m_closingForRemovedSource)
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
