#include <benchmark/benchmark.h>

#include "zor_debug/zor_debug_control.h"

// No peer writes a line for each thing that it does, so neither do we; what logging itself costs
// is a task of its own, which switches it on again.
int main(int argc, char** argv) {
    (void)zorDebugSetLevels("off");
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
