#include "BenchSummary.h"

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    BenchSummary reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
