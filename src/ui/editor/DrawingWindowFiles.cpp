// The drawing on disk: loaded at start, written after changes and on close.

#include "editor/DrawingWindow.h"

#include "canvas/CanvasWidget.h"
#include "files/CanvasFiles.h"
#include "files/CanvasSaver.h"

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
