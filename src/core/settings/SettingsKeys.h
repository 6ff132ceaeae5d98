#pragma once

#include <QSettings>

#include <climits>

// The module's two per-user settings stores and every key in them, with the
// default and the range each reader applies. Nothing else names a store or a
// key: readers and writers go through openSettings() and these constants.
enum class SettingsStore {
    Canvas, // editor, wiggle and dock state
    Coop,   // nickname and last host address
};

// The store in the platform's native format, organisation "PennoriaDraw".
QSettings openSettings(SettingsStore store);

namespace SettingsKeys {

// An integer key, clamped to low..high on read.
struct IntKey {
    const char *name;
    int fallback;
    int low = INT_MIN;
    int high = INT_MAX;
};

struct BoolKey {
    const char *name;
    bool fallback;
};

// "Canvas" store.
inline constexpr IntKey BrushSize{"brushSize", 8};
inline constexpr IntKey Tool{"tool", 0, 0, 3};
inline constexpr IntKey ShapeType{"shapeType", 0, 0, 9};
inline constexpr IntKey ShapeMode{"shapeMode", 0, 0, 1};
inline constexpr BoolKey ShapeErase{"shapeErase", false};
inline constexpr char Color[] = "color"; // "#rrggbb", black when unreadable
inline constexpr IntKey Opacity{"opacity", 100};
inline constexpr IntKey FillTolerance{"fillTolerance", 200, 0, 255};
inline constexpr IntKey JitterAmount{"jitterAmount", 50, 0, 100};
inline constexpr IntKey JitterSpeed{"jitterSpeed", 20, 0, 100};
inline constexpr BoolKey JitterEnabled{"jitterEnabled", false};
inline constexpr IntKey PreviewOpacity{"previewOpacity", 100, 0, 100};
inline constexpr char WindowGeometry[] = "windowGeometry";
// Set once the dock was shown docked on a first start, so that a dock the
// user hid later stays hidden.
inline constexpr BoolKey DockPlaced{"dockPlaced", false};

// "Coop" store.
inline constexpr char Nickname[] = "nickname";
inline constexpr char LastJoinIp[] = "lastJoinIp";

} // namespace SettingsKeys

// The stored value, or the key's default when it is missing; an unparsable
// integer reads as 0. Integers are clamped to the key's range.
int readSetting(const QSettings &store, const SettingsKeys::IntKey &key);
bool readSetting(const QSettings &store, const SettingsKeys::BoolKey &key);
