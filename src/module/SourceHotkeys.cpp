#include "SourceHotkeys.h"

#include <obs-module.h>
#include <obs.hpp>

#include <QCoreApplication>
#include <QMetaObject>

namespace {

SourceHotkeys::Handler &handler()
{
    static SourceHotkeys::Handler current;
    return current;
}

} // namespace

SourceHotkeys::SourceHotkeys(obs_source_t *source, std::initializer_list<HotkeySpec> hotkeys)
{
    if (!source)
        return;
    m_presses.reserve(hotkeys.size() + 2);
    for (const HotkeySpec &spec : hotkeys)
        m_presses.push_back({source, spec.action});
    m_presses.push_back({source, SourceAction::WiggleOn});
    m_presses.push_back({source, SourceAction::WiggleOff});

    size_t i = 0;
    for (const HotkeySpec &spec : hotkeys)
        m_ids.push_back(obs_hotkey_register_source(source, spec.name, spec.description,
                                                   &SourceHotkeys::onPress, &m_presses[i++]));
    m_wigglePair = obs_hotkey_pair_register_source(
        source, "pennoria_draw.wiggle_on", obs_module_text("Hotkey.WiggleOn"),
        "pennoria_draw.wiggle_off", obs_module_text("Hotkey.WiggleOff"),
        &SourceHotkeys::onPairPress, &SourceHotkeys::onPairPress, &m_presses[i], &m_presses[i + 1]);
}

SourceHotkeys::~SourceHotkeys()
{
    // Unregistering waits for a press being handled on the hotkey thread.
    for (obs_hotkey_id id : m_ids)
        obs_hotkey_unregister(id);
    if (m_wigglePair != OBS_INVALID_HOTKEY_PAIR_ID)
        obs_hotkey_pair_unregister(m_wigglePair);
}

void SourceHotkeys::setHandler(Handler handler_)
{
    handler() = std::move(handler_);
}

void SourceHotkeys::onPress(void *data, obs_hotkey_id, obs_hotkey_t *, bool pressed)
{
    if (data && pressed)
        post(*static_cast<const Press *>(data));
}

bool SourceHotkeys::onPairPress(void *data, obs_hotkey_pair_id, obs_hotkey_t *, bool pressed)
{
    if (data && pressed)
        post(*static_cast<const Press *>(data));
    return true;
}

void SourceHotkeys::post(const Press &press)
{
    QCoreApplication *app = QCoreApplication::instance();
    if (!app)
        return;
    // The host calls hotkeys with its hotkey lock held, on whatever thread:
    // the action runs later on the main thread, if the source still exists.
    const OBSWeakSource weak = OBSGetWeakRef(press.source);
    const SourceAction action = press.action;
    QMetaObject::invokeMethod(
        app,
        [weak, action] {
            OBSSourceAutoRelease source = obs_weak_source_get_source(weak);
            if (source && handler())
                handler()(source, action);
        },
        Qt::QueuedConnection);
}
