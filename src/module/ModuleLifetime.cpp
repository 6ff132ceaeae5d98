#include "ModuleLifetime.h"

#include "ObsDockHost.h"
#include "SourceHotkeys.h"
#include "common/SourceIds.h"
#include "coop/CoopSession.h"
#include "dock/PluginDock.h"
#include "files/CanvasSaver.h"

#include <obs.h>

#include <QPointer>

#include <cstring>

void connectSourceHotkeys(PluginDock *dock)
{
    if (!dock) {
        SourceHotkeys::setHandler({});
        return;
    }
    SourceHotkeys::setHandler(
        [guard = QPointer<PluginDock>(dock)](obs_source_t *source, SourceAction action) {
            if (!guard || !source)
                return;
            const char *id = obs_source_get_id(source);
            if (id && std::strcmp(id, CoopSourceId) == 0)
                guard->runCoopAction(action);
            else
                guard->runSourceAction(ObsDockHost::dockSourceOf(source), action);
        });
}

void waitForCanvasSaves()
{
    // Exit, a scene collection change and unloading wait this long at most.
    CanvasSaver::waitForPendingSaves(std::chrono::seconds(5));
}

void shutDownModule(PluginDock *dock)
{
    connectSourceHotkeys(nullptr);
    if (dock)
        dock->closeEditors();
    waitForCanvasSaves();
    CoopSession::instance().stop();
    if (dock)
        dock->cancelUpdateCheck();
}
