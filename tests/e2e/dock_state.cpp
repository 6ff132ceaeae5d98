// Prints, in base64, a main-window state in which the "pennoria-draw-dock"
// frame floats visibly: the form OBS Studio keeps in its DockState setting,
// so the end-to-end run can open with the dock shown.
#include <QApplication>
#include <QDockWidget>
#include <QMainWindow>

#include <cstdio>

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    QMainWindow window;
    window.setCentralWidget(new QWidget(&window));
    auto *frame = new QDockWidget(QStringLiteral("Pennoria: Draw"), &window);
    frame->setObjectName(QStringLiteral("pennoria-draw-dock"));
    frame->setWidget(new QWidget(frame));
    window.addDockWidget(Qt::RightDockWidgetArea, frame);
    window.show();
    frame->setFloating(true);
    frame->setGeometry(820, 480, 280, 120);
    frame->show();
    QApplication::processEvents();
    std::printf("%s\n", window.saveState().toBase64().constData());
    return 0;
}
