#include "gridding/core/node_estimator.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <utility>

namespace quarro::core {

namespace {

// Half the width, in standard uncertainties, of an interval that holds 95 % of a normal error.
constexpr double kHalfWidth95 = 1.96;
constexpr double kLeastShareLeft = 1e-6;

}  // namespace

void NodeEstimator::Estimate(std::span<const NodeSounding> soundings,
                             const NodeSurroundings& surroundings, HypothesisList& hypotheses,
                             EstimatorTrace* trace) {
  trace_ = trace;
  trend_ = surroundings.trend;
  queue_.clear();
  tracks_.clear();
  values_.clear();
  for (const NodeSounding& sounding : soundings) values_.push_back(ValueAt(sounding, surroundings));
  for (std::size_t i = 0; i < soundings.size(); ++i) {
    if (i != 0 && soundings[i].line != soundings[i - 1].line) Drain();
    line_ = soundings[i].line;
    Queue(static_cast<std::uint32_t>(i));
  }
  Drain();
  hypotheses.clear();
  for (const Track& track : tracks_) {
    hypotheses.push_back({.depth_m = static_cast<float>(track.Depth()),
                          .variance_m2 = static_cast<float>(track.Variance(trend_)),
                          .sample_count = track.sums.count,
                          .several_lines = track.first_line != track.last_line ? 1U : 0U});
  }
  KeepWithin(soundings, hypotheses);
  OrderBySupport(hypotheses);
  if (hypotheses.size() > kMostHypotheses) hypotheses.resize(kMostHypotheses);
}

// A trend carried to the node must not tell of depths that nobody met.
void NodeEstimator::KeepWithin(std::span<const NodeSounding> soundings,
                               HypothesisList& hypotheses) const {
  if (soundings.empty() || (trend_.east == 0.0 && trend_.north == 0.0)) return;
  float shallowest_m = soundings.front().depth_m;
  float deepest_m = shallowest_m;
  for (const NodeSounding& sounding : soundings) {
    shallowest_m = std::min(shallowest_m, sounding.depth_m);
    deepest_m = std::max(deepest_m, sounding.depth_m);
  }
  for (Hypothesis& hypothesis : hypotheses) {
    const float depth_m = std::clamp(hypothesis.depth_m, shallowest_m, deepest_m);
    const float moved_m = depth_m - hypothesis.depth_m;
    hypothesis.depth_m = depth_m;
    hypothesis.variance_m2 += moved_m * moved_m;
  }
}

NodeEstimator::Value NodeEstimator::ValueAt(const NodeSounding& sounding,
                                            const NodeSurroundings& surroundings) const {
  const double east_m = sounding.east_m;
  const double north_m = sounding.north_m;
  const double sigma_h_m = sounding.sigma_h_m;
  const LocalTrend& trend = surroundings.trend;
  const double noise_m = surroundings.noise_scale * sounding.sigma_v_m;
  const double slope_squared = trend.east * trend.east + trend.north * trend.north;
  const double distance_m = std::sqrt(east_m * east_m + north_m * north_m);
  const double reach = (distance_m + kHalfWidth95 * sigma_h_m) / surroundings.spacing_m;
  const double near = distance_m / surroundings.spacing_m;
  const double base = noise_m * noise_m + slope_squared * sigma_h_m * sigma_h_m;
  return {.depth_m = sounding.depth_m - trend.east * east_m - trend.north * north_m,
          .east_m = east_m,
          .north_m = north_m,
          .base_variance = base,
          .weight = 1.0 / (base * (1.0 + reach * reach)),
          .fit_variance = base * (1.0 + near * near)};
}

void NodeEstimator::Queue(std::uint32_t value) {
  const Waiting arrival{.depth_m = values_[value].depth_m, .value = value};
  queue_.push_back(arrival);
  auto place = queue_.end() - 1;
  for (; place != queue_.begin() && arrival.depth_m < (place - 1)->depth_m; --place) {
    *place = *(place - 1);
  }
  *place = arrival;
  if (queue_.size() < static_cast<std::size_t>(settings_.queue_length)) return;
  const auto median = queue_.begin() + static_cast<std::ptrdiff_t>(queue_.size() / 2);
  const std::uint32_t taken = median->value;
  queue_.erase(median);
  Take(values_[taken]);
}

// The median, then that of what is left, and so on: from the middle outward, so that the values in
// doubt come last.
void NodeEstimator::Drain() {
  const std::size_t count = queue_.size();
  std::size_t below = count / 2;  // values left below those taken
  std::size_t above = count / 2;  // the first one left above them
  for (std::size_t left = count; left > 0; --left) {
    const std::size_t median = left / 2;
    Take(values_[(median < below ? queue_[--below] : queue_[above++]).value]);
  }
  queue_.clear();
}

void NodeEstimator::Take(const Value& value) {
  std::size_t best = tracks_.size();
  double innovation = 0.0;
  for (std::size_t i = 0; i < tracks_.size(); ++i) {
    const Track& track = tracks_[i];
    const double e = Innovation(track, value);
    if (best == tracks_.size() || std::abs(e) < std::abs(innovation)) {
      best = i;
      innovation = e;
    }
  }
  if (best == tracks_.size() || std::abs(innovation) > settings_.outlier_sigmas) {
    Found(value);
    if (trace_ != nullptr) TraceTake(value, tracks_.size() - 1, innovation, "founds");
    return;
  }
  Track& track = tracks_[best];
  const double depth_m = value.depth_m - track.origin_m;
  track.sums.Add(depth_m, value);
  const std::uint32_t line_before = std::exchange(track.last_line, line_);
  Monitor(track.deeper, innovation, depth_m, value, line_before);
  Monitor(track.shoaler, -innovation, depth_m, value, line_before);
  if (BreakAway(track, track.deeper) || BreakAway(tracks_[best], tracks_[best].shoaler)) {
    if (trace_ != nullptr) TraceTake(value, tracks_.size() - 1, innovation, "and its run found");
  } else if (trace_ != nullptr) {
    TraceTake(value, best, innovation, "joins");
  }
}

double NodeEstimator::Innovation(const Track& track, const Value& value) const {
  const Sums& sums = track.sums;
  const double share = 1.0 / sums.weight;
  const double east_m = value.east_m - sums.east * share;
  const double north_m = value.north_m - sums.north * share;
  const double variance_m2 = sums.variance * share * share + trend_.VarianceOver(east_m, north_m);
  const double depth_m = track.origin_m + sums.depth * share;
  return (value.depth_m - depth_m) / std::sqrt(variance_m2 + value.fit_variance);
}

void NodeEstimator::Found(const Value& value) {
  tracks_.push_back({.origin_m = value.depth_m,
                     .sums = {},
                     .first_line = line_,
                     .last_line = line_,
                     .deeper = {},
                     .shoaler = {}});
  tracks_.back().sums.Add(0.0, value);
}

void NodeEstimator::Monitor(Run& run, double excess, double depth_m, const Value& value,
                            std::uint32_t line_before) const {
  const double h = settings_.shift_sigmas;
  run.evidence += h * excess - 0.5 * h * h;
  if (run.evidence <= 0.0) {
    run = {};
  } else {
    if (run.sums.count == 0) {
      run.first_line = line_;
      run.line_before = line_before;
    }
    run.sums.Add(depth_m, value);
  }
}

// The values of the run found a hypothesis of their own; false when the evidence is too small, or
// would leave none behind.
bool NodeEstimator::BreakAway(Track& track, Run& run) {
  if (run.evidence <= settings_.run_evidence || run.sums.count == track.sums.count) return false;
  // What is left must be more than the rounding of what is taken away.
  if (track.sums.weight - run.sums.weight <= kLeastShareLeft * track.sums.weight) return false;
  const Track founded{.origin_m = track.origin_m,
                      .sums = run.sums,
                      .first_line = run.first_line,
                      .last_line = line_,
                      .deeper = {},
                      .shoaler = {}};
  track.sums.Subtract(run.sums);
  track.last_line = run.line_before;  // a run is the last that its track took
  track.deeper = {};
  track.shoaler = {};
  tracks_.push_back(founded);
  return true;
}

void NodeEstimator::Sums::Add(double depth_m, const Value& value) {
  const double w = value.weight;
  weight += w;
  depth += depth_m * w;
  east += value.east_m * w;
  north += value.north_m * w;
  variance += value.base_variance * w * w;
  ++count;
}

void NodeEstimator::Sums::Subtract(const Sums& other) {
  weight -= other.weight;
  depth -= other.depth;
  east -= other.east;
  north -= other.north;
  variance -= other.variance;
  count -= other.count;
}

double NodeEstimator::Track::Variance(const LocalTrend& trend) const {
  return (sums.variance + trend.VarianceOver(sums.east, sums.north)) / (sums.weight * sums.weight);
}

void NodeEstimator::TraceTake(const Value& value, std::size_t track, double innovation,
                              const char* what) {
  const Track& now = tracks_[track];
  std::array<char, 256> line{};
  std::snprintf(line.data(), line.size(),
                "value %.3f m sigma %.3f m innovation %.2f %s hypothesis %zu: depth %.3f m sigma "
                "%.4f m samples %u evidence %.2f %.2f",
                value.depth_m, std::sqrt(value.base_variance), innovation, what, track + 1,
                now.Depth(), std::sqrt(now.Variance(trend_)), now.sums.count, now.deeper.evidence,
                now.shoaler.evidence);
  trace_->Step(line.data());
}

}  // namespace quarro::core
