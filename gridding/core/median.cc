#include "gridding/core/median.h"

#include <algorithm>
#include <array>
#include <bit>
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

// Moves what is less than `pivot` to the front, by swaps without a branch (Lomuto's scheme): which
// way a value goes cannot be predicted. Gives how many are less.
std::size_t MoveLessToFront(std::span<double> values, double pivot) {
  std::size_t less = 0;
  for (double& value : values) {
    const double moved = value;
    value = values[less];
    values[less] = moved;
    less += moved < pivot ? 1 : 0;
  }
  return less;
}

// Where the median of the first, the middle and the last value stands.
std::size_t PivotPlace(std::span<const double> values) {
  std::size_t low = 0;
  std::size_t middle = values.size() / 2;
  const std::size_t last = values.size() - 1;
  if (values[middle] < values[low]) std::swap(low, middle);
  if (values[middle] <= values[last]) return middle;
  return values[last] < values[low] ? low : last;
}

// Quickselect: afterwards values[rank] is what sorting would put there, and what stands before it
// is not greater.
void Select(std::span<double> values, std::size_t rank) {
  // Twice what halving takes; values that keep pivots bad are left to the library's selection.
  for (int rounds = 2 * std::bit_width(values.size()); values.size() > kFewValues; --rounds) {
    if (rounds == 0) {
      std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(rank),
                       values.end());
      return;
    }
    std::swap(values.front(), values[PivotPlace(values)]);
    const std::size_t less = MoveLessToFront(values.subspan(1), values.front());
    std::swap(values.front(), values[less]);
    if (rank == less) return;
    if (rank < less) {
      values = values.first(less);
    } else {
      values = values.subspan(less + 1);
      rank -= less + 1;
    }
  }
  SortFew(values);
}

}  // namespace

double MedianOf(std::span<double> values) {
  if (values.size() <= kFewValues) {
    SortFew(values);
    const std::size_t half = values.size() / 2;
    return values.size() % 2 == 1 ? values[half] : 0.5 * (values[half - 1] + values[half]);
  }
  const std::size_t half = values.size() / 2;
  Select(values, half);
  if (values.size() % 2 == 1) return values[half];
  const auto below = values.first(half);
  return 0.5 * (values[half] + *std::max_element(below.begin(), below.end()));
}

CentreAndScatter CentreAndScatterOf(std::span<double> values) {
  const double centre = MedianOf(values);
  for (double& value : values) value = std::abs(value - centre);
  return {.centre = centre, .scatter = MedianOf(values) / kMedianMagnitudeOfNormal};
}

}  // namespace quarro::core
