// How fast this machine's memory is, as the yardstick of the stages.
#include "bench/stages/bandwidth.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <ctime>
#include <vector>

namespace quarro::bench {

namespace {

constexpr std::size_t kValues = std::size_t{8} << 20U;  // 64 MiB an array
constexpr std::uint64_t kTriadBytes = 3 * kValues * sizeof(double);

struct Arrays {
  std::vector<double> to = std::vector<double>(kValues, 0.0);
  std::vector<double> first = std::vector<double>(kValues, 1.0);
  std::vector<double> second = std::vector<double>(kValues, 2.0);
};

void Triad(Arrays& arrays) {
  double* to = arrays.to.data();
  const double* first = arrays.first.data();
  const double* second = arrays.second.data();
  for (std::size_t i = 0; i < kValues; ++i) to[i] = first[i] + 3.0 * second[i];
  benchmark::ClobberMemory();
}

double ThreadTime_s() {
  timespec now = {};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  constexpr double kNanosecond = 1e-9;
  return static_cast<double>(now.tv_sec) + kNanosecond * static_cast<double>(now.tv_nsec);
}

double MeasureTriad() {
  constexpr int kRuns = 7;
  Arrays arrays;
  double best_s = 1e9;
  for (int run = 0; run < kRuns; ++run) {
    const double begin_s = ThreadTime_s();
    Triad(arrays);
    best_s = std::min(best_s, ThreadTime_s() - begin_s);
  }
  return static_cast<double>(kTriadBytes) / best_s;
}

void MemoryTriad(benchmark::State& state) {
  Arrays arrays;
  for ([[maybe_unused]] auto iteration : state) Triad(arrays);
  ReportRates(state, kValues, kTriadBytes);
}
BENCHMARK(MemoryTriad)->Unit(benchmark::kMillisecond);

void MemoryCopy(benchmark::State& state) {
  Arrays arrays;
  for ([[maybe_unused]] auto iteration : state) {
    std::memcpy(arrays.to.data(), arrays.first.data(), kValues * sizeof(double));
    benchmark::ClobberMemory();
  }
  ReportRates(state, kValues, 2 * kValues * sizeof(double));
}
BENCHMARK(MemoryCopy)->Unit(benchmark::kMillisecond);

}  // namespace

double TriadBandwidth() {
  static const double kBandwidth = MeasureTriad();
  return kBandwidth;
}

void ReportRates(benchmark::State& state, std::uint64_t items_an_iteration,
                 std::uint64_t bytes_an_iteration) {
  const auto iterations = static_cast<std::uint64_t>(state.iterations());
  state.SetItemsProcessed(static_cast<std::int64_t>(iterations * items_an_iteration));
  state.SetBytesProcessed(static_cast<std::int64_t>(iterations * bytes_an_iteration));
  state.counters["of_bandwidth"] =
      benchmark::Counter(static_cast<double>(iterations * bytes_an_iteration) / TriadBandwidth(),
                         benchmark::Counter::kIsRate);
}

}  // namespace quarro::bench
