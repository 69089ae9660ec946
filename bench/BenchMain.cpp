#include <benchmark/benchmark.h>

#include "bench/BenchMain.h"

int main(int argc, char** argv) {
  FalBench::registerBenchmarks();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
