#include "common/Log.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <vector>

namespace {

void stderrSink(const char *line)
{
    std::fprintf(stderr, "%s\n", line);
}

std::atomic<LogSink> g_sink{stderrSink};

} // namespace

void setLogSink(LogSink sink)
{
    g_sink.store(sink ? sink : stderrSink);
}

void pdLog(const char *format, ...)
{
    char small[512];
    va_list args;
    va_start(args, format);
    va_list copy;
    va_copy(copy, args);
    const int needed = std::vsnprintf(small, sizeof small, format, args);
    va_end(args);
    if (needed < 0) {
        va_end(copy);
        return;
    }
    if (size_t(needed) < sizeof small) {
        va_end(copy);
        g_sink.load()(small);
        return;
    }
    std::vector<char> big(size_t(needed) + 1);
    std::vsnprintf(big.data(), big.size(), format, copy);
    va_end(copy);
    g_sink.load()(big.data());
}
