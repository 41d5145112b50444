// How fast this machine's memory is, as the yardstick of the stages.
#pragma once

#include <cstdint>

#include <benchmark/benchmark.h>

namespace quarro::bench {

// Bytes a second that one thread moves in a[i] = b[i] + s c[i] over arrays that no cache holds; two
// read and one written. The best of several runs, in processor time as the stages are, measured at
// the first call.
double TriadBandwidth();

// Reports how many items and bytes an iteration has worked on, per second, and the part of the
// memory bandwidth that these bytes are: what a stage reads and writes at least, so that a stage
// near 1 cannot be made faster but by moving less.
void ReportRates(benchmark::State& state, std::uint64_t items_an_iteration,
                 std::uint64_t bytes_an_iteration);

}  // namespace quarro::bench
