#include "PerfWindow.h"

#include <obs.h>

#include <algorithm>

void PerfWindow::countTick(int64_t t0, int64_t now, bool jitter)
{
    const int64_t spent = now - t0;
    ++tickCalls;
    tickTotalNs += spent;
    tickMaxNs = std::max(tickMaxNs, spent);
    if (jitter)
        ++jitters;
}

void PerfWindow::countRender(int64_t t0, int64_t now, obs_source_t *source, const char *tag,
                             bool wiggleOn)
{
    const int64_t spent = now - t0;
    ++renderCalls;
    renderTotalNs += spent;
    renderMaxNs = std::max(renderMaxNs, spent);
    if (windowStart == 0)
        windowStart = now;
    if (now - windowStart <= 4999999999LL)
        return;

    const char *name = source ? obs_source_get_name(source) : nullptr;
    const double renderAvg = renderCalls ? double(renderTotalNs) / 1000.0 / renderCalls : 0.0;
    const double tickAvg = tickCalls ? double(tickTotalNs) / 1000.0 / tickCalls : 0.0;
    blog(LOG_INFO,
         "[PD-Perf] %s'%s' %.1fs | render %d calls, %.1f ms total (avg %.0f us, max %.0f us) | "
         "tick %d calls, %.1f ms total (avg %.0f us, max %.0f us) | uploads %d, jitters %d | "
         "wiggle %s",
         tag, name ? name : "", double(now - windowStart) / 1e9, renderCalls,
         double(renderTotalNs) / 1e6, renderAvg, double(renderMaxNs) / 1000.0, tickCalls,
         double(tickTotalNs) / 1e6, tickAvg, double(tickMaxNs) / 1000.0, uploads, jitters,
         wiggleOn ? "ON" : "off");
    *this = PerfWindow{};
    windowStart = now;
}
