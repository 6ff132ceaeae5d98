#include "editor/DrawingWindow.h"

DrawingWindow::DrawingWindow(std::unique_ptr<EditorSource> source, QWidget *parent, bool coopMode)
    : QDialog(parent), m_source(std::move(source)), m_coopMode(coopMode)
{
    setWindowTitle(QStringLiteral("Pennoria Canvas \u2014 Draw"));
    setModal(false);
}

DrawingWindow::~DrawingWindow() = default;
