#include "gridding/core/node_estimator.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace quarro::core {

namespace {

// Half the width, in standard uncertainties, of an interval that holds 95 % of a normal error.
constexpr double kHalfWidth95 = 1.96;

}  // namespace

void NodeEstimator::Estimate(std::span<const NodeSounding> soundings,
                             const NodeSurroundings& surroundings, HypothesisList& hypotheses,
                             EstimatorTrace* trace) {
  trace_ = trace;
  queue_.clear();
  tracks_.clear();
  for (const NodeSounding& sounding : soundings) Queue(ValueAt(sounding, surroundings));
  Drain();
  hypotheses.clear();
  for (const Track& track : tracks_) {
    hypotheses.push_back({.depth_m = static_cast<float>(track.depth_m),
                          .variance_m2 = static_cast<float>(track.ForecastVariance()),
                          .sample_count = track.sample_count});
  }
  OrderBySupport(hypotheses);
  if (hypotheses.size() > kMostHypotheses) hypotheses.resize(kMostHypotheses);
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
          .base_variance = base,
          .weight_variance = base * (1.0 + reach * reach),
          .fit_variance = base * (1.0 + near * near)};
}

void NodeEstimator::Queue(const Value& value) {
  const auto place =
      std::upper_bound(queue_.begin(), queue_.end(), value,
                       [](const Value& a, const Value& b) { return a.depth_m < b.depth_m; });
  queue_.insert(place, value);
  if (queue_.size() < static_cast<std::size_t>(settings_.queue_length)) return;
  const auto median = queue_.begin() + static_cast<std::ptrdiff_t>(queue_.size() / 2);
  const Value taken = *median;
  queue_.erase(median);
  Take(taken);
}

// From the middle outward, so that the values in doubt come last.
void NodeEstimator::Drain() {
  while (!queue_.empty()) {
    const auto median = queue_.begin() + static_cast<std::ptrdiff_t>(queue_.size() / 2);
    const Value taken = *median;
    queue_.erase(median);
    Take(taken);
  }
}

void NodeEstimator::Take(const Value& value) {
  std::size_t best = tracks_.size();
  double innovation = 0.0;
  for (std::size_t i = 0; i < tracks_.size(); ++i) {
    const Track& track = tracks_[i];
    const double e =
        (value.depth_m - track.depth_m) / std::sqrt(track.ForecastVariance() + value.fit_variance);
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
  const double h = settings_.shift_sigmas;
  track.evidence_deeper = std::max(0.0, track.evidence_deeper + h * innovation - 0.5 * h * h);
  track.evidence_shoaler = std::max(0.0, track.evidence_shoaler - h * innovation - 0.5 * h * h);
  if (std::max(track.evidence_deeper, track.evidence_shoaler) > settings_.run_evidence) {
    track.evidence_deeper = 0.0;
    track.evidence_shoaler = 0.0;
    Found(value);
    if (trace_ != nullptr) TraceTake(value, tracks_.size() - 1, innovation, "breaks away to found");
    return;
  }
  Join(track, value);
  if (trace_ != nullptr) TraceTake(value, best, innovation, "joins");
}

void NodeEstimator::Found(const Value& value) {
  const double weight = 1.0 / value.weight_variance;
  tracks_.push_back({.depth_m = value.depth_m,
                     .weight_sum = weight,
                     .variance_sum = value.base_variance * weight * weight,
                     .evidence_deeper = 0.0,
                     .evidence_shoaler = 0.0,
                     .sample_count = 1});
}

void NodeEstimator::Join(Track& track, const Value& value) {
  const double weight = 1.0 / value.weight_variance;
  track.weight_sum += weight;
  track.variance_sum += value.base_variance * weight * weight;
  track.depth_m += (value.depth_m - track.depth_m) * (weight / track.weight_sum);
  ++track.sample_count;
}

void NodeEstimator::TraceTake(const Value& value, std::size_t track, double innovation,
                              const char* what) {
  const Track& now = tracks_[track];
  char line[256];
  std::snprintf(line, sizeof line,
                "value %.3f m sigma %.3f m innovation %.2f %s hypothesis %zu: depth %.3f m sigma "
                "%.4f m samples %u evidence %.2f %.2f",
                value.depth_m, std::sqrt(value.base_variance), innovation, what, track + 1,
                now.depth_m, std::sqrt(now.ForecastVariance()), now.sample_count,
                now.evidence_deeper, now.evidence_shoaler);
  trace_->Step(line);
}

}  // namespace quarro::core
