// Slope and scatter of the soundings around a node, robust against spikes.
#pragma once

#include <array>
#include <span>
#include <vector>

#include "gridding/core/node_estimator.h"

namespace quarro::core {

// The soundings of one square block: their mean position and median depth.
struct BlockMedian {
  double east_m = 0.0;
  double north_m = 0.0;
  double depth_m = 0.0;
  double variance_m2 = 0.0;  // of the median, as the soundings' uncertainties have it
  bool filled = false;
};

// Gathers one block. One thread an object, which keeps its working memory.
class BlockMedianFinder {
 public:
  // The median of `soundings`; not filled when there are none.
  BlockMedian Of(std::span<const NodeSounding> soundings);

 private:
  std::vector<double> depths_m_;
};

// The slope across a 3 x 3 neighbourhood of blocks with sides of `block_m`, in row-major order from
// the south-west: medians of the slopes between blocks next to each other (Theil and Sen's
// estimator over neighbours), so that one bad block has no say. A slope g known with variance v is
// taken as g max(0, 1 - trend_sigmas^2 v / g^2) (the positive-part rule of James and Stein for one
// mean): what noise explains is no slope, and a clear slope stays as it is. Along an axis with
// fewer than two pairs the slope is zero; its variance is never more than the square of
// `unknown_slope`.
LocalTrend TrendAcross(const std::array<BlockMedian, 9>& blocks, double block_m,
                       double unknown_slope, const EstimatorSettings& settings);

// The slope of a plane that would give depths over a square of `side_m`, of which
// `covered_fraction` has data, the standard deviation `depth_deviation_m`.
double SlopeOfRelief(double depth_deviation_m, double side_m, double covered_fraction);

// Gathers differences of soundings that follow one another, over what their uncertainties explain.
// Their median tells the noise apart from offsets between lines, which few such pairs straddle
// (von Neumann's successive differences, made robust).
class NoiseScale {
 public:
  explicit NoiseScale(const EstimatorSettings& settings) : settings_(settings) {}
  void Clear() { ratios_.clear(); }
  // The difference, the trend taken out, and the sum of both variances.
  void Add(double difference_m, double variance_sum_m2);
  // The scatter over what the uncertainties say; at least 1, and 1 when there are few pairs.
  double Value();

 private:
  double FirstGuess();

  EstimatorSettings settings_;
  std::vector<double> ratios_;
  std::vector<double> some_;
};

// One thread an object, which keeps its working memory.
class TrendFinder {
 public:
  explicit TrendFinder(const EstimatorSettings& settings) : settings_(settings) {}
  // Trend of all soundings within `reach_m` of a node, taken as 3 x 3 blocks around it.
  LocalTrend Around(std::span<const NodeSounding> soundings, double reach_m, double unknown_slope);

 private:
  EstimatorSettings settings_;
  std::array<std::vector<NodeSounding>, 9> blocks_;
  BlockMedianFinder median_finder_;
};

// Tells a steep seafloor from a jump between two depths, which neighbouring block medians do not:
// beside a school of fish or on the edge of a wreck they rise as on a slope, but the soundings of a
// node lie at the one depth or the other. One thread an object, which keeps its working memory.
class SteepnessCheck {
 public:
  // It doubts a trend that rises by `steep_sigmas` standard uncertainties of a sounding, and gives
  // it up where the soundings huddle `huddle_share` times as closely without.
  explicit SteepnessCheck(const EstimatorSettings& settings) : settings_(settings) {}

  // The trend, or a level one of unknown slope where `soundings`, one node's, huddle at a few
  // depths more closely than along the trend.
  LocalTrend Checked(std::span<const NodeSounding> soundings, const LocalTrend& trend,
                     double unknown_slope);

 private:
  double Huddle(std::span<const NodeSounding> soundings, double slope_east, double slope_north);
  EstimatorSettings settings_;
  std::vector<double> depths_m_;
};

// Adds the differences of each sounding to the next one.
void AddDifferences(std::span<const NodeSounding> soundings, const LocalTrend& trend,
                    NoiseScale& scale);

}  // namespace quarro::core
