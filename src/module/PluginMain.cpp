#include "coop/CoopSource.h"
#include "module/CanvasSource.h"
#include "module/Log.h"
#include "module/Version.h"

#include <obs-module.h>

OBS_DECLARE_MODULE()
OBS_MODULE_USE_DEFAULT_LOCALE("obs-pennoria-draw", "en-US")

namespace {

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
{}

void obs_module_unload(void)
{}
