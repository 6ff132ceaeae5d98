#include "CanvasSource.h"
#include "CoopSource.h"
#include "FrontendApi.h"
#include "ObsDockHost.h"
#include "common/Log.h"
#include "common/Version.h"
#include "dock/DockPlacement.h"
#include "dock/PluginDock.h"
#include "editor/DrawingWindow.h"
#include "files/CanvasSaver.h"
#include "update/UpdateChecker.h"

#include <QApplication>
#include <QDockWidget>
#include <QMainWindow>

#include <obs-frontend-api.h>
#include <obs-module.h>

OBS_DECLARE_MODULE()
OBS_MODULE_USE_DEFAULT_LOCALE("obs-pennoria-draw", "en-US")

namespace {

const char DockId[] = "pennoria-draw-dock";
const char DockTitle[] = "Pennoria: Draw";

void hostLogSink(const char *line)
{
    blog(LOG_INFO, "%s", line);
}

// How long exit, a scene collection change or unloading waits for the canvas
// writer before giving up.
constexpr std::chrono::seconds SaveWaitLimit{5};

// The sources are about to go: editors hand their drawing to the writer now,
// and the host does not go on before it is on disk (or the limit passed).
void onFrontendEvent(obs_frontend_event event, void *)
{
    if (event != OBS_FRONTEND_EVENT_EXIT && event != OBS_FRONTEND_EVENT_SCENE_COLLECTION_CLEANUP)
        return;
    for (QWidget *widget : QApplication::topLevelWidgets()) {
        if (auto *editor = qobject_cast<DrawingWindow *>(widget); editor && editor->isVisible())
            editor->close();
    }
    CanvasSaver::waitForPendingSaves(SaveWaitLimit);
}

} // namespace

MODULE_EXPORT const char *obs_module_description(void)
{
    return "Pennoria: Draw " PENNORIA_VERSION_TEXT " \xE2\x80\x94 draw on a transparent canvas "
           "source in any scene";
}

bool obs_module_load(void)
{
    setLogSink(hostLogSink);
    blog(LOG_INFO, "[PD-Perf] Pennoria: Draw " PENNORIA_VERSION_TEXT
                   " loaded \xE2\x80\x94 perf logging active (look for '[PD-Perf]' lines; "
                   "emitted ~every 5s per active source)");
    obs_register_source(&canvasSourceInfo());
    obs_register_source(&coopSourceInfo());
    return true;
}

void obs_module_post_load(void)
{
    QMainWindow *mainWindow = FrontendApi::instance().mainWindow();
    if (!mainWindow)
        return;
    auto *dock = new PluginDock(std::make_unique<ObsDockHost>(), new UpdateChecker, mainWindow);
#if LIBOBS_API_MAJOR_VER >= 30
    obs_frontend_add_dock_by_id(DockId, DockTitle, dock);
#else
    auto *frame = new QDockWidget(QString::fromUtf8(DockTitle), mainWindow);
    frame->setObjectName(QString::fromUtf8(DockId));
    frame->setWidget(dock);
    obs_frontend_add_dock(frame);
#endif
    placeDockFrame(mainWindow, DockId);
    obs_frontend_add_event_callback(onFrontendEvent, nullptr);
}

void obs_module_unload(void)
{
    obs_frontend_remove_event_callback(onFrontendEvent, nullptr);
    CanvasSaver::waitForPendingSaves(SaveWaitLimit);
}
