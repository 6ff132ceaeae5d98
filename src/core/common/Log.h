#pragma once

// Every log line of the module goes through one sink. Host-free code logs
// here; the module points the sink at the host's logger when it loads, tests
// point it at a buffer.
using LogSink = void (*)(const char *line);

void setLogSink(LogSink sink);

#if defined(__GNUC__)
__attribute__((format(printf, 1, 2)))
#endif
void pdLog(const char *format, ...);
