#include "CanvasSource.h"
#include "CoopSource.h"
#include "FrontendApi.h"
#include "ModuleLifetime.h"
#include "ObsDockHost.h"
#include "common/Log.h"
#include "common/Text.h"
#include "common/Version.h"
#include "coop/CoopPort.h"
#include "dock/DockPlacement.h"
#include "dock/PluginDock.h"
#include "update/UpdateChecker.h"

#include <QMainWindow>
#include <QPointer>

#include <obs-frontend-api.h>
#include <obs-module.h>

OBS_DECLARE_MODULE()
OBS_MODULE_USE_DEFAULT_LOCALE("obs-pennoria-draw", "en-US")

namespace {

const char DockId[] = "pennoria-draw-dock";

QPointer<PluginDock> g_dock;
bool g_frontendEvents = false;

void hostLogSink(const char *line)
{
    blog(LOG_INFO, "%s", line);
}

void onFrontendEvent(enum obs_frontend_event event, void *)
{
    switch (event) {
    case OBS_FRONTEND_EVENT_FINISHED_LOADING:
        // The host has restored its window layout by now.
        showDockOnFirstStart(FrontendApi::instance().mainWindow(), DockId);
        break;
    case OBS_FRONTEND_EVENT_SCENE_COLLECTION_CLEANUP:
        // The sources are about to go: the editors save now.
        if (g_dock)
            g_dock->closeEditors();
        waitForCanvasSaves();
        break;
    case OBS_FRONTEND_EVENT_EXIT:
        // The editors still have their windows: let them save.
        shutDownModule(g_dock);
        break;
    default:
        break;
    }
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
    setTextLookup(obs_module_text);
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
    g_dock = new PluginDock(std::make_unique<ObsDockHost>(coop::coopPort()), new UpdateChecker,
                            mainWindow);
    connectSourceHotkeys(g_dock);
    obs_frontend_add_dock_by_id(DockId, obs_module_text("Dock.Title"), g_dock);
    obs_frontend_add_event_callback(onFrontendEvent, nullptr);
    g_frontendEvents = true;
}

// Explicit teardown while the host is still up, in the order the parts
// depend on each other (see shutDownModule).
void obs_module_unload(void)
{
    if (g_frontendEvents)
        obs_frontend_remove_event_callback(onFrontendEvent, nullptr);
    g_frontendEvents = false;
    shutDownModule(g_dock);
    delete g_dock;
    setTextLookup(nullptr);
}
