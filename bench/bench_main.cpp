#include "BenchMemory.h"
#include "BenchSummary.h"

#include "common/Log.h"

#include <QApplication>

#include <cstring>

namespace {

void discardLog(const char *)
{}

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    setLogSink(discardLog);
    if (argc > 1 && std::strcmp(argv[1], MemoryProbeArg) == 0) {
        QGuiApplication app(argc, argv);
        return runMemoryProbe();
    }
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    BenchSummary reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
