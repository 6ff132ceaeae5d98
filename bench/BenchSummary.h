#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

// Collects the medians of every case's sides and prints one line per case at
// the end. A case "<case>" runs as "<case>/ours", "<case>/library" (the best
// real library for the job, same inputs), "<case>/floor" (one memcpy of the
// frame: the memory floor) and optionally "<case>/before" (the straight-alpha
// path the engine used to take):
//   <case>: ours 1.10 ms | pixman 1.30 ms, ours/library 0.85x | floor 0.61 ms, 1.8x floor
//           [target <= 2 ms, <= 1.3x library: met]
class BenchSummary : public benchmark::ConsoleReporter {
public:
    struct Target {
        double maxMs = 0;           // 0: none
        double maxLibraryRatio = 0; // ours / library at most this; 0: none
        double minBeforeRatio = 0;  // before / ours at least this; 0: none
    };

    static void setTarget(const std::string &caseName, Target target);
    static void setLibrary(const std::string &caseName, const std::string &library);
    // Printed after the case's line, e.g. how its output compares.
    static void addNote(const std::string &caseName, const std::string &note);
    // Cases of one family measured at growing input sizes, smallest first: the
    // summary prints the time per unit of input and whether any step grows
    // faster than linearly (see Finalize).
    static void addScaling(const std::string &family, const std::string &caseName, double units);
    // A finished line for measurements that are not timed runs (memory).
    static void addLine(const std::string &line);

    void ReportRuns(const std::vector<Run> &runs) override;
    void Finalize() override;

private:
    std::map<std::string, std::map<std::string, double>> m_medians; // case -> side -> ms
};

// Registers "<name>/floor": one memcpy of a width x height 32-bit frame.
void registerFloor(const std::string &name, int width, int height);
