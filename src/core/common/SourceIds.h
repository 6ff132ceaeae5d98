#pragma once

// The host's type ids of the module's two sources.
inline constexpr char CanvasSourceId[] = "pennoria_canvas";
inline constexpr char CoopSourceId[] = "pennoria_coop_canvas";
