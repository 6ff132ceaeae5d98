#include "FrontendApi.h"

#include <obs-frontend-api.h>

#include <QMainWindow>

#include <atomic>

namespace {

class HostFrontend final : public FrontendApi {
public:
    obs_source_t *currentScene() override { return obs_frontend_get_current_scene(); }
    QMainWindow *mainWindow() override
    {
        return static_cast<QMainWindow *>(obs_frontend_get_main_window());
    }
};

std::atomic<FrontendApi *> g_override{nullptr};

} // namespace

FrontendApi &FrontendApi::instance()
{
    static HostFrontend host;
    FrontendApi *api = g_override.load();
    return api ? *api : host;
}

void FrontendApi::setInstance(FrontendApi *api)
{
    g_override.store(api);
}
