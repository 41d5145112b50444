// Runs the benchmarks of the stages. A folder for temporary files is taken from TMPDIR.
#include <cstdio>

#include <benchmark/benchmark.h>

#include "bench/stages/bandwidth.h"

// What nobody catches ends the program with its reason on the standard error.
// NOLINTNEXTLINE(bugprone-exception-escape)
int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  constexpr double kGigabyte = 1e9;
  std::fprintf(stderr, "memory bandwidth of one thread (triad): %.1f GB/s\n",
               quarro::bench::TriadBandwidth() / kGigabyte);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
