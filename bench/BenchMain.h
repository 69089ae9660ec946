#pragma once
// The one-chip benchmark programs register their cases at run time (names carry
// the sizes they run at) and share BenchMain.cpp's main.
namespace FalBench {
void registerBenchmarks();
}  // namespace FalBench
