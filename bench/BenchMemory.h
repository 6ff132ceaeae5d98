#pragma once

// The bench re-runs itself with this argument to measure peak memory in a
// fresh process.
constexpr const char *MemoryProbeArg = "--memory-probe";
int runMemoryProbe();
