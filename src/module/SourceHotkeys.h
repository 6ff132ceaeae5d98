#pragma once

#include "dock/DockHost.h"

#include <obs.h>

#include <functional>
#include <vector>

// One hotkey a source offers under the host's Settings, Hotkeys.
struct HotkeySpec {
    const char *name; // unique within the source
    const char *description;
    SourceAction action;
};

// The hotkeys of one source, registered under the source (so the host lists
// them by the source's name and saves their bindings with the scene
// collection) together with the wiggle on/off pair, and unregistered when
// this object dies. A press reaches the action handler on the main thread,
// and only while the source still exists.
class SourceHotkeys {
public:
    using Handler = std::function<void(obs_source_t *source, SourceAction action)>;

    SourceHotkeys(obs_source_t *source, std::initializer_list<HotkeySpec> hotkeys);
    ~SourceHotkeys();
    SourceHotkeys(const SourceHotkeys &) = delete;
    SourceHotkeys &operator=(const SourceHotkeys &) = delete;

    // Set and cleared on the main thread; presses without a handler do nothing.
    static void setHandler(Handler handler);

private:
    struct Press {
        obs_source_t *source;
        SourceAction action;
    };
    static void onPress(void *data, obs_hotkey_id, obs_hotkey_t *, bool pressed);
    static bool onPairPress(void *data, obs_hotkey_pair_id, obs_hotkey_t *, bool pressed);
    static void post(const Press &press);

    std::vector<Press> m_presses; // sized once: callbacks keep pointers into it
    std::vector<obs_hotkey_id> m_ids;
    obs_hotkey_pair_id m_wigglePair = OBS_INVALID_HOTKEY_PAIR_ID;
};
