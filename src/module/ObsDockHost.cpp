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

bool collectItem(obs_scene_t *, obs_sceneitem_t *item, void *param)
{
    auto *search = static_cast<Search *>(param);
    if (obs_sceneitem_is_group(item)) {
        obs_sceneitem_group_enum_items(item, collectItem, param);
        return true;
    }
    obs_source_t *source = obs_sceneitem_get_source(item);
    const char *id = source ? obs_source_get_id(source) : nullptr;
    if (id && std::strcmp(id, search->typeId) == 0)
        search->found.append(ObsDockHost::dockSourceOf(source));
    return true;
}

} // namespace

DockSource ObsDockHost::dockSourceOf(obs_source_t *source)
{
    DockSource entry;
    if (!source)
        return entry;
    entry.name = QString::fromUtf8(obs_source_get_name(source));
    entry.uuid = QString::fromUtf8(obs_source_get_uuid(source));
    entry.editorSource = [weak = OBSGetWeakRef(source)]() -> std::unique_ptr<EditorSource> {
        OBSSourceAutoRelease strong = obs_weak_source_get_source(weak);
        return makeEditorSource(strong);
    };
    return entry;
}

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
    // A source pasted as a reference has one item per place: it is one canvas,
    // listed where it is highest.
    QList<DockSource> unique;
    for (const DockSource &found : std::as_const(search.found))
        if (std::none_of(unique.begin(), unique.end(),
                         [&](const DockSource &kept) { return kept.uuid == found.uuid; }))
            unique.append(found);
    return unique;
}

std::optional<DockSource> ObsDockHost::createSourceOnTop(const char *typeId, const QString &name)
{
    OBSSourceAutoRelease sceneSource = FrontendApi::instance().currentScene();
    obs_scene_t *scene = obs_scene_from_source(sceneSource);
    if (!scene || !typeId)
        return std::nullopt;
    OBSSourceAutoRelease source =
        obs_source_create(typeId, name.toUtf8().constData(), nullptr, nullptr);
    if (!source)
        return std::nullopt;
    obs_sceneitem_t *item = obs_scene_add(scene, source);
    if (!item)
        return std::nullopt;
    obs_sceneitem_set_order(item, OBS_ORDER_MOVE_TOP);
    return dockSourceOf(source);
}

void ObsDockHost::prepareCoopCanvas()
{
    syncCoopCanvasSize();
}
