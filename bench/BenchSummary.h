#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

// Collects the median of every "<case>/ours" and "<case>/reference" run and
// prints one line per case at the end:
//   <case>: ours 3.10 ms, reference 18.40 ms, ratio 5.9x [target <= 4 ms, >= 4x: met]
class BenchSummary : public benchmark::ConsoleReporter {
public:
    struct Target {
        double maxMs = 0; // 0 = report only
        double minRatio = 0;
    };

    static void setTarget(const std::string &caseName, Target target);
    // Printed after the case's line, e.g. how its output compares.
    static void addNote(const std::string &caseName, const std::string &note);
    // A finished line for measurements that are not timed runs (latency
    // percentiles, memory); printed after the timed cases.
    static void addLine(const std::string &line);

    void ReportRuns(const std::vector<Run> &runs) override;
    void Finalize() override;

private:
    std::map<std::string, double> m_ours;
    std::map<std::string, double> m_reference;
};
