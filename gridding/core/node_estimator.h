// The depth of one node from the soundings around it, as one or several hypotheses.
#pragma once

#include <algorithm>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "gridding/core/hypotheses.h"
#include "gridding/core/settings.h"

namespace quarro::core {

// A sounding as a node sees it.
struct NodeSounding {
  float east_m = 0.0F;   // of the node
  float north_m = 0.0F;  // of the node
  float depth_m = 0.0F;
  float sigma_v_m = 0.0F;
  float sigma_h_m = 0.0F;
  std::uint32_t line = 0;  // survey lines differ by systematic offsets; the estimator heeds changes
};

// Slope of the seafloor, metres of depth a metre.
struct LocalTrend {
  double east = 0.0;
  double north = 0.0;
  double east_variance = 0.0;
  double north_variance = 0.0;
  double covariance = 0.0;  // of east and north
  // Of the depth that the slope makes of so long a way. Rounding takes it below no zero.
  double VarianceOver(double east_m, double north_m) const {
    return std::max(0.0, east_variance * east_m * east_m + north_variance * north_m * north_m +
                             2.0 * covariance * east_m * north_m);
  }
};

// What is known of a node's surroundings before its own soundings are weighed.
struct NodeSurroundings {
  double spacing_m = 1.0;    // of the nodes
  LocalTrend trend;          // taken out of the soundings
  double noise_scale = 1.0;  // scatter of the soundings over what their uncertainties say, >= 1
};

// Is told each step of an estimate as one line of text.
class EstimatorTrace {
 public:
  virtual ~EstimatorTrace() = default;
  virtual void Step(const std::string& line) = 0;
};

// Takes soundings one at a time. Each is carried along the trend to the node; a short sorted queue
// passes its median on, so that early spikes found no hypothesis; a value joins the hypothesis
// whose forecast it fits best, as one step of a scalar dynamic linear model, unless it lies too far
// from it or the Bayes factor against a shifted model, summed over a run of values on one side,
// speaks against it; then it founds a hypothesis of its own. Source: West and Harrison, Bayesian
// Forecasting and Dynamic Models (monitoring and intervention); Page, Continuous inspection
// schemes, for the sums.
//
// A sounding with standard uncertainties sv, sh at distance d weighs by the variance
// b (1 + ((d + 1.96 sh) / s)^2), b = (noise_scale sv)^2 + (slope sh)^2. The variance reported is
// that of the weighted mean of soundings with the variances b, so weights do not make it better or
// worse than the data is, and what the trend's own variance makes of the way from their centre to
// the node. No depth lies beyond those of the soundings given: one that the trend would carry
// farther is moved back, and the square of the move added to its variance. Whether a value fits is
// judged with the trend's variance over the way from the hypothesis's centre to the sounding.
//
// One thread an estimator, which keeps its working memory and allocates nothing once it is warm.
class NodeEstimator {
 public:
  explicit NodeEstimator(const EstimatorSettings& settings) : settings_(settings) {}

  // `soundings` in the order in which they are taken, those of a line together; the caller has
  // captured them. The result is in order of support and empty without soundings. `trace` may be
  // null.
  void Estimate(std::span<const NodeSounding> soundings, const NodeSurroundings& surroundings,
                HypothesisList& hypotheses, EstimatorTrace* trace = nullptr);

 private:
  struct Value {
    double depth_m;  // at the node
    double east_m;   // where it was sounded
    double north_m;
    double base_variance;  // b
    double weight;         // one over b with the growth by distance
    double fit_variance;   // what the fit is judged by
  };
  // Weighted sums of some values, depths counted from the founder's.
  struct Sums {
    double weight = 0.0;
    double depth = 0.0;  // of depth * weight
    double east = 0.0;   // of east * weight
    double north = 0.0;
    double variance = 0.0;  // of base_variance * weight^2
    std::uint32_t count = 0;
    void Add(double depth_m, const Value& value);
    void Subtract(const Sums& other);
  };
  // Values on one side of the forecast, since the evidence against it last was none.
  struct Run {
    double evidence = 0.0;
    Sums sums;
    std::uint32_t first_line = 0;
    std::uint32_t line_before = 0;  // of the value that its track took before it
  };
  struct Track {
    double origin_m = 0.0;
    Sums sums;
    std::uint32_t first_line = 0;
    std::uint32_t last_line = 0;
    Run deeper;
    Run shoaler;
    double Depth() const { return origin_m + sums.depth / sums.weight; }
    double Variance(const LocalTrend& trend) const;
  };

  Value ValueAt(const NodeSounding& sounding, const NodeSurroundings& surroundings) const;
  void Queue(std::uint32_t value);
  void Drain();
  void KeepWithin(std::span<const NodeSounding> soundings, HypothesisList& hypotheses) const;
  void Take(const Value& value);
  double Innovation(const Track& track, const Value& value) const;
  void Found(const Value& value);
  void Monitor(Run& run, double excess, double depth_m, const Value& value,
               std::uint32_t line_before) const;
  bool BreakAway(Track& track, Run& run);
  void TraceTake(const Value& value, std::size_t track, double innovation, const char* what);

  EstimatorSettings settings_;
  EstimatorTrace* trace_ = nullptr;
  std::uint32_t line_ = 0;  // of the values that are taken
  LocalTrend trend_;
  // A value that waits, by its place in values_.
  struct Waiting {
    double depth_m;
    std::uint32_t value;
  };

  std::vector<Value> values_;   // in the order in which they came
  std::vector<Waiting> queue_;  // ascending depth
  std::vector<Track> tracks_;
};

}  // namespace quarro::core
