// What a low-resolution cell knows of its data: statistics, and the estimate at its node.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <vector>

#include "gridding/core/hypotheses.h"
#include "gridding/core/local_trend.h"
#include "gridding/core/node_estimator.h"
#include "gridding/core/packed_sounding.h"
#include "gridding/core/plane_fit.h"
#include "gridding/core/settings.h"

namespace quarro::core {

struct CellStatistics {
  std::uint64_t soundings = 0;
  std::uint64_t occupancy = 0;  // 8 x 8 mask, bit 8 * row + column, from the south-west
  double depth_sum_m = 0.0;
  double depth_square_sum_m2 = 0.0;
  double vertical_variance_sum_m2 = 0.0;
  double horizontal_variance_sum_m2 = 0.0;
  float shallowest_m = std::numeric_limits<float>::max();
  float deepest_m = std::numeric_limits<float>::lowest();

  double MeanDepth() const;
  double DepthDeviation() const;   // standard deviation, 0 for one sounding
  double VerticalSigma() const;    // root mean square
  double HorizontalSigma() const;  // root mean square
  double CoveredFraction() const;  // of the mask
};

// Nodes along each side of the cell's refinement, 1 when it is not refined: the most that leave
// `soundings_per_node` soundings a node over the covered part, and whose spacing is neither under
// the minimum resolution nor finer than the horizontal uncertainty warrants.
std::uint32_t NodesPerSide(const CellStatistics& statistics, const GridSettings& settings);

// The cell's node has a reach: the distance to the soundings nearest to it that are enough for an
// estimate, and not less than the reach of a node at the minimum resolution. It only shrinks as
// soundings come, so what lies beyond it is never needed again, and the cell keeps the soundings
// within it, in order, as the state of its low-resolution estimate.
struct CellState {
  CellStatistics statistics;
  std::vector<PackedSounding> near;
  std::vector<LineRun> near_lines;  // which lines they are of, in their order
  HypothesisList low;               // the estimate at the cell's node, in order of support
};

// Adds soundings of one line to the statistics and to those near the node. Leaves the estimate as
// it was. `line` is not smaller than in earlier calls.
void AddSoundings(std::span<const PackedSounding> soundings, std::uint32_t line,
                  const GridSettings& settings, CellState& state);

// Estimates the depth at the cell's node. One thread an object.
class LowResolutionEstimator {
 public:
  explicit LowResolutionEstimator(const GridSettings& settings)
      : settings_(settings),
        estimator_(settings.estimator),
        steepness_(settings.estimator),
        trend_finder_(settings.estimator),
        noise_(settings.estimator),
        plane_fitter_(settings.estimator) {}
  // Replaces state.low. `trace` may be null.
  void Estimate(CellState& state, EstimatorTrace* trace = nullptr);

 private:
  double UnknownSlope(const CellStatistics& statistics) const;

  GridSettings settings_;
  NodeEstimator estimator_;
  SteepnessCheck steepness_;
  TrendFinder trend_finder_;
  NoiseScale noise_;
  PlaneFitter plane_fitter_;
  std::vector<NodeSounding> soundings_;
};

// Encode replaces `out`. Decode throws EncodingError for bytes that are no cell state.
void Encode(const CellState& state, std::vector<std::byte>& out);
void Decode(std::span<const std::byte> bytes, CellState& state);

}  // namespace quarro::core
