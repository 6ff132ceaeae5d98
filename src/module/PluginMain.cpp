#include "CanvasSource.h"
#include "CoopSource.h"
#include "FrontendApi.h"
#include "ObsDockHost.h"
#include "common/Log.h"
#include "common/Version.h"
#include "dock/DockPlacement.h"
#include "dock/PluginDock.h"
#include "update/UpdateChecker.h"

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
}

void obs_module_unload(void)
{}
