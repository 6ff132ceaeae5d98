// What a source's hotkeys do: through the open editor when there is one,
// else on the source's own drawing.
#include "dock/PluginDockHotkeys.h"

#include "canvas/CanvasWidget.h"
#include "dock/PluginDock.h"
#include "editor/DrawingWindow.h"
#include "editor/EditorWindows.h"
#include "files/CanvasFiles.h"
#include "settings/EditorSettings.h"
#include "source/EditorSource.h"

#include <QAbstractButton>
#include <QMetaObject>

HotkeyCanvas::HotkeyCanvas(std::unique_ptr<EditorSource> source, QObject *parent)
    : QObject(parent), m_source(std::move(source)),
      m_document(m_source->canvasSize().width(), m_source->canvasSize().height()),
      m_saver(m_source->canvasKey())
{
    if (m_saver.isEnabled())
        loadCanvasAtStart(m_saver.directory(), m_document);
    m_source->setRemovedCallback(
        [this] { QMetaObject::invokeMethod(this, &QObject::deleteLater, Qt::QueuedConnection); });
}

HotkeyCanvas::~HotkeyCanvas()
{
    m_source->setRemovedCallback({});
}

void HotkeyCanvas::run(SourceAction action)
{
    switch (action) {
    case SourceAction::ClearLayer:
        m_document.clear();
        break;
    case SourceAction::Undo:
        if (!m_document.canUndo())
            return;
        m_document.undo();
        break;
    case SourceAction::Redo:
        if (!m_document.canRedo())
            return;
        m_document.redo();
        break;
    default:
        return;
    }
    const QImage flat = m_document.flatComposite();
    m_source->commit(m_document.strokes(), flat);
    m_saver.saveAsync(m_document, flat);
}

void PluginDock::runSourceAction(const DockSource &source, SourceAction action)
{
    if (action == SourceAction::OpenEditor) {
        openEditor(source);
        return;
    }
    if (DrawingWindow *window = EditorWindows::find(source.uuid)) {
        runInEditor(window, action);
        return;
    }
    if (action == SourceAction::WiggleOn || action == SourceAction::WiggleOff) {
        const bool on = action == SourceAction::WiggleOn;
        if (std::unique_ptr<EditorSource> editorSource = source.editorSource())
            editorSource->setJitterEnabled(on);
        saveWiggleEnabled(on);
        return;
    }
    QPointer<HotkeyCanvas> &canvas = m_hotkeyCanvases[source.uuid];
    if (!canvas) {
        std::unique_ptr<EditorSource> editorSource = source.editorSource();
        if (!editorSource)
            return;
        canvas = new HotkeyCanvas(std::move(editorSource), this);
    }
    canvas->run(action);
}

void PluginDock::runInEditor(DrawingWindow *window, SourceAction action)
{
    auto *canvas = window->findChild<CanvasWidget *>();
    switch (action) {
    case SourceAction::ClearLayer:
        if (canvas)
            canvas->clear();
        break;
    case SourceAction::Undo:
        if (canvas)
            canvas->undo();
        break;
    case SourceAction::Redo:
        if (canvas)
            canvas->redo();
        break;
    case SourceAction::WiggleOn:
    case SourceAction::WiggleOff:
        if (auto *button = window->findChild<QAbstractButton *>(QStringLiteral("jitterButton"));
            button && button->isChecked() != (action == SourceAction::WiggleOn))
            button->click();
        break;
    case SourceAction::OpenEditor:
        break;
    }
}

void PluginDock::dropHotkeyCanvas(const QString &uuid)
{
    if (QPointer<HotkeyCanvas> canvas = m_hotkeyCanvases.take(uuid)) {
        delete canvas;
        // The editor reads the files the hotkeys' saves are writing.
        CanvasSaver::waitForPendingSaves();
    }
}
