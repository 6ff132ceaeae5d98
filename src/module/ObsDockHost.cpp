#include "ObsDockHost.h"

#include "CoopSource.h"
#include "FrontendApi.h"
#include "ObsEditorSource.h"
#include "source/EditorSource.h"

#include <obs.hpp>

#include <QMainWindow>

#include <algorithm>
#include <cstring>

namespace {

struct Search {
    const char *typeId;
    QList<DockSource> found;
};

DockSource dockSourceOf(obs_source_t *source)
{
    DockSource entry;
    obs_source_t *ref = obs_source_get_ref(source);
    if (!ref)
        return entry;
    entry.name = QString::fromUtf8(obs_source_get_name(ref));
    entry.uuid = QString::fromUtf8(obs_source_get_uuid(ref));
    entry.handle = std::shared_ptr<void>(
        ref, [](void *held) { obs_source_release(static_cast<obs_source_t *>(held)); });
    return entry;
}

bool collectItem(obs_scene_t *, obs_sceneitem_t *item, void *param)
{
    auto *search = static_cast<Search *>(param);
    if (obs_sceneitem_is_group(item)) {
        obs_sceneitem_group_enum_items(item, collectItem, param);
        return true;
    }
    obs_source_t *source = obs_sceneitem_get_source(item);
    const char *id = source ? obs_source_get_id(source) : nullptr;
    if (id && std::strcmp(id, search->typeId) == 0) {
        DockSource entry = dockSourceOf(source);
        if (entry.handle)
            search->found.append(std::move(entry));
    }
    return true;
}

} // namespace

QWidget *ObsDockHost::mainWindow()
{
    return FrontendApi::instance().mainWindow();
}

QString ObsDockHost::currentSceneName()
{
    OBSSourceAutoRelease scene = FrontendApi::instance().currentScene();
    return scene ? QString::fromUtf8(obs_source_get_name(scene)) : QString();
}

QList<DockSource> ObsDockHost::findSources(const char *typeId)
{
    OBSSourceAutoRelease sceneSource = FrontendApi::instance().currentScene();
    obs_scene_t *scene = obs_scene_from_source(sceneSource);
    if (!scene || !typeId)
        return {};
    Search search{typeId, {}};
    obs_scene_enum_items(scene, collectItem, &search);
    // The host lists the bottom of the source list first.
    std::reverse(search.found.begin(), search.found.end());
    return search.found;
}

bool ObsDockHost::createSourceOnTop(const char *typeId, const QString &name)
{
    OBSSourceAutoRelease sceneSource = FrontendApi::instance().currentScene();
    obs_scene_t *scene = obs_scene_from_source(sceneSource);
    if (!scene || !typeId)
        return false;
    OBSSourceAutoRelease source =
        obs_source_create(typeId, name.toUtf8().constData(), nullptr, nullptr);
    if (!source)
        return false;
    obs_sceneitem_t *item = obs_scene_add(scene, source);
    if (!item)
        return false;
    obs_sceneitem_set_order(item, OBS_ORDER_MOVE_TOP);
    return true;
}

std::unique_ptr<EditorSource> ObsDockHost::editorSource(const DockSource &source)
{
    return makeEditorSource(static_cast<obs_source_t *>(source.handle.get()));
}

void ObsDockHost::prepareCoopCanvas()
{
    syncCoopCanvasSize();
}
