#include "gridding/core/median.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <utility>

namespace quarro::core {

namespace {

// Most medians are of a handful of values, where insertion beats selection, and of the very few an
// odd-even transposition network, which has no branches to mispredict, beats insertion.
constexpr std::size_t kFewValues = 24;
constexpr std::size_t kVeryFewValues = 12;

template <std::size_t kCount>
void SortByNetwork(double* values) {
  std::array<double, kCount> sorted;
  std::copy_n(values, kCount, sorted.begin());
#pragma GCC unroll 12
  for (std::size_t round = 0; round < kCount; ++round) {
#pragma GCC unroll 12
    for (std::size_t i = round % 2; i + 1 < kCount; i += 2) {
      const double low = std::min(sorted[i], sorted[i + 1]);
      sorted[i + 1] = std::max(sorted[i], sorted[i + 1]);
      sorted[i] = low;
    }
  }
  std::copy_n(sorted.begin(), kCount, values);
}

template <std::size_t... kCounts>
constexpr std::array<void (*)(double*), sizeof...(kCounts)> Networks(
    std::index_sequence<kCounts...> /*counts*/) {
  return {SortByNetwork<kCounts + 1>...};
}
// For 1, 2, ... values.
constexpr auto kNetworks = Networks(std::make_index_sequence<kVeryFewValues>());

void SortFew(std::span<double> values) {
  if (values.size() <= kVeryFewValues) {
    kNetworks[values.size() - 1](values.data());
    return;
  }
  for (std::size_t i = 1; i < values.size(); ++i) {
    const double value = values[i];
    std::size_t j = i;
    for (; j > 0 && values[j - 1] > value; --j) values[j] = values[j - 1];
    values[j] = value;
  }
}

}  // namespace

double MedianOf(std::span<double> values) {
  if (values.size() <= kFewValues) {
    SortFew(values);
    const std::size_t half = values.size() / 2;
    return values.size() % 2 == 1 ? values[half] : 0.5 * (values[half - 1] + values[half]);
  }
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  if (values.size() % 2 == 1) return *middle;
  return 0.5 * (*middle + *std::max_element(values.begin(), middle));
}

CentreAndScatter CentreAndScatterOf(std::span<double> values) {
  const double centre = MedianOf(values);
  for (double& value : values) value = std::abs(value - centre);
  return {.centre = centre, .scatter = MedianOf(values) / kMedianMagnitudeOfNormal};
}

}  // namespace quarro::core
