#pragma once

#include <cstdint>

struct obs_source;
typedef struct obs_source obs_source_t;

// Render and tick statistics of one source over a five-second window.
struct PerfWindow {
    int64_t windowStart = 0; // ns, 0 = not begun
    int32_t renderCalls = 0;
    int64_t renderTotalNs = 0;
    int64_t renderMaxNs = 0;
    int32_t tickCalls = 0;
    int64_t tickTotalNs = 0;
    int64_t tickMaxNs = 0;
    int32_t uploads = 0;
    int32_t jitters = 0;

    void countTick(int64_t t0, int64_t now, bool jitter);
    // Accounts one render and writes the performance line when the window is
    // over. tag is "" for the canvas source and "CO-OP " for the co-op one.
    void countRender(int64_t t0, int64_t now, obs_source_t *source, const char *tag, bool wiggleOn);
};
