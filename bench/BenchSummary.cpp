#include "BenchSummary.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <thread>

namespace {

std::map<std::string, BenchSummary::Target> &targets()
{
    static std::map<std::string, BenchSummary::Target> map;
    return map;
}

std::map<std::string, std::string> &libraries()
{
    static std::map<std::string, std::string> map;
    return map;
}

std::map<std::string, std::string> &notes()
{
    static std::map<std::string, std::string> map;
    return map;
}

// family -> (units, case), in registration order.
std::map<std::string, std::vector<std::pair<double, std::string>>> &scaling()
{
    static std::map<std::string, std::vector<std::pair<double, std::string>>> map;
    return map;
}

std::vector<std::string> &lines()
{
    static std::vector<std::string> list;
    return list;
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

} // namespace

void BenchSummary::setTarget(const std::string &caseName, Target target)
{
    targets()[caseName] = target;
}

void BenchSummary::setLibrary(const std::string &caseName, const std::string &library)
{
    libraries()[caseName] = library;
}

void BenchSummary::addNote(const std::string &caseName, const std::string &note)
{
    notes()[caseName] = note;
}

void BenchSummary::addScaling(const std::string &family, const std::string &caseName, double units)
{
    scaling()[family].emplace_back(units, caseName);
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
        if (slash != std::string::npos)
            m_medians[name.substr(0, slash)][name.substr(slash + 1)] = ms;
    }
}

void BenchSummary::Finalize()
{
    ConsoleReporter::Finalize();
    std::printf("\n== Summary (medians; load average %s on %u cores)\n", loadAverage().c_str(),
                std::thread::hardware_concurrency());
    for (const auto &[caseName, sides] : m_medians) {
        const auto side = [&sides = sides](const char *key) {
            const auto it = sides.find(key);
            return it == sides.end() ? 0.0 : it->second;
        };
        const double ours = side("ours");
        if (ours <= 0)
            continue;
        const double library = side("library");
        const double floor = side("floor");
        const double before = side("before");
        const Target target = targets().count(caseName) ? targets()[caseName] : Target{};
        std::printf("%s: ours %s", caseName.c_str(), formatMs(ours).c_str());
        if (library > 0)
            std::printf(" | %s %s, ours/library %.2fx",
                        libraries().count(caseName) ? libraries()[caseName].c_str() : "library",
                        formatMs(library).c_str(), ours / library);
        if (floor > 0)
            std::printf(" | floor %s, %.1fx floor", formatMs(floor).c_str(), ours / floor);
        if (before > 0)
            std::printf(" | straight-alpha before %s, %.1fx faster", formatMs(before).c_str(),
                        before / ours);
        if (target.maxMs > 0 || target.maxLibraryRatio > 0 || target.minBeforeRatio > 0) {
            bool met = true;
            std::printf(" [target");
            if (target.maxMs > 0) {
                std::printf(" <= %g ms", target.maxMs);
                met = met && ours <= target.maxMs;
            }
            if (target.maxLibraryRatio > 0) {
                std::printf(" <= %gx library", target.maxLibraryRatio);
                met = met && library > 0 && ours / library <= target.maxLibraryRatio;
            }
            if (target.minBeforeRatio > 0) {
                std::printf(" >= %gx before", target.minBeforeRatio);
                met = met && before > 0 && before / ours >= target.minBeforeRatio;
            }
            std::printf(": %s]", met ? "met" : "NOT MET");
        }
        if (notes().count(caseName))
            std::printf(" (%s)", notes()[caseName].c_str());
        std::printf("\n");
    }
    // A step from one size to the next is super-linear when its time grows more
    // than 1.5x faster than its input, or, for pixel cases past the caches,
    // than one memcpy of the same frames (the floor) grows over that step.
    for (const auto &[family, cases] : scaling()) {
        bool linear = true;
        std::string steps;
        double lastUnits = 0, lastMs = 0, lastFloor = 0;
        for (const auto &[units, caseName] : cases) {
            const auto it = m_medians.find(caseName);
            if (it == m_medians.end() || !it->second.count("ours"))
                continue;
            const double ms = it->second.at("ours");
            const double floor = it->second.count("floor") ? it->second.at("floor") : 0.0;
            if (lastMs > 0) {
                double allowed = units / lastUnits;
                if (floor > 0 && lastFloor > 0)
                    allowed = std::max(allowed, floor / lastFloor);
                linear = linear && ms / lastMs <= 1.5 * allowed;
            }
            char text[128];
            std::snprintf(text, sizeof text, "%s%g: %s/unit", steps.empty() ? "" : ", ", units,
                          formatMs(ms / units).c_str());
            steps += text;
            if (floor > 0) {
                std::snprintf(text, sizeof text, " (%.1fx floor)", ms / floor);
                steps += text;
            }
            lastUnits = units;
            lastMs = ms;
            lastFloor = floor;
        }
        if (!steps.empty())
            std::printf("scaling %s: %s [no step super-linear: %s]\n", family.c_str(),
                        steps.c_str(), linear ? "met" : "NOT MET");
    }
    for (const std::string &line : lines())
        std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

void registerFloor(const std::string &name, int width, int height)
{
    benchmark::RegisterBenchmark((name + "/floor").c_str(),
                                 [width, height](benchmark::State &state) {
                                     const size_t bytes = size_t(width) * size_t(height) * 4;
                                     std::vector<char> from(bytes, 1), to(bytes, 0);
                                     for (auto _ : state) {
                                         std::memcpy(to.data(), from.data(), bytes);
                                         benchmark::DoNotOptimize(to.data());
                                         benchmark::ClobberMemory();
                                     }
                                 })
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
}
