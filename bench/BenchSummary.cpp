#include "BenchSummary.h"

#include <cstdio>
#include <fstream>
#include <thread>

namespace {

std::map<std::string, BenchSummary::Target> &targets()
{
    static std::map<std::string, BenchSummary::Target> map;
    return map;
}

std::map<std::string, std::string> &notes()
{
    static std::map<std::string, std::string> map;
    return map;
}

// The 1-minute load average, to judge how noisy the medians are.
std::string loadAverage()
{
    std::ifstream file("/proc/loadavg");
    std::string oneMinute;
    file >> oneMinute;
    return oneMinute.empty() ? std::string("unknown") : oneMinute;
}

// Milliseconds, or microseconds below 0.1 ms.
std::string formatMs(double ms)
{
    char text[32];
    if (ms < 0.1)
        std::snprintf(text, sizeof text, "%.1f us", ms * 1000.0);
    else
        std::snprintf(text, sizeof text, "%.2f ms", ms);
    return text;
}

std::vector<std::string> &lines()
{
    static std::vector<std::string> list;
    return list;
}

} // namespace

void BenchSummary::setTarget(const std::string &caseName, Target target)
{
    targets()[caseName] = target;
}

void BenchSummary::addNote(const std::string &caseName, const std::string &note)
{
    notes()[caseName] = note;
}

void BenchSummary::addLine(const std::string &line)
{
    lines().push_back(line);
}

void BenchSummary::ReportRuns(const std::vector<Run> &runs)
{
    ConsoleReporter::ReportRuns(runs);
    for (const Run &run : runs) {
        if (run.run_type != Run::RT_Aggregate || run.aggregate_name != "median")
            continue;
        const std::string name = run.run_name.function_name;
        const double ms =
            run.GetAdjustedRealTime() * (run.time_unit == benchmark::kMillisecond   ? 1.0
                                         : run.time_unit == benchmark::kMicrosecond ? 1e-3
                                         : run.time_unit == benchmark::kNanosecond  ? 1e-6
                                                                                    : 1e3);
        const auto slash = name.rfind('/');
        if (slash == std::string::npos)
            continue;
        const std::string caseName = name.substr(0, slash);
        const std::string side = name.substr(slash + 1);
        if (side == "ours")
            m_ours[caseName] = ms;
        else if (side == "reference")
            m_reference[caseName] = ms;
    }
}

void BenchSummary::Finalize()
{
    ConsoleReporter::Finalize();
    std::printf("\n== Summary (medians; load average %s on %u cores)\n", loadAverage().c_str(),
                std::thread::hardware_concurrency());
    for (const auto &[caseName, ours] : m_ours) {
        const auto ref = m_reference.find(caseName);
        const Target target = targets().count(caseName) ? targets()[caseName] : Target{};
        std::printf("%s: ours %s", caseName.c_str(), formatMs(ours).c_str());
        double ratio = 0;
        if (ref != m_reference.end()) {
            ratio = ref->second / ours;
            std::printf(", reference %s, ratio %.1fx", formatMs(ref->second).c_str(), ratio);
        }
        if (target.maxMs > 0 || target.minRatio > 0) {
            const bool timeOk = target.maxMs <= 0 || ours <= target.maxMs;
            const bool ratioOk = target.minRatio <= 0 || ratio >= target.minRatio;
            std::printf(" [target");
            if (target.maxMs > 0)
                std::printf(" <= %.0f ms", target.maxMs);
            if (target.minRatio > 0)
                std::printf(" >= %.0fx", target.minRatio);
            std::printf(": %s]", timeOk && ratioOk ? "met" : "NOT MET");
        }
        if (notes().count(caseName))
            std::printf(" (%s)", notes()[caseName].c_str());
        std::printf("\n");
    }
    for (const std::string &line : lines())
        std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}
