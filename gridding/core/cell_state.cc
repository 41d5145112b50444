#include "gridding/core/cell_state.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "gridding/core/encoding.h"
#include "gridding/core/local_trend.h"
#include "gridding/survey/soundings.h"

namespace quarro::core {

namespace {

constexpr double kMaskSide = 8.0;

std::uint64_t MaskBit(const PackedSounding& sounding, double cell_m) {
  const auto step = [&](float offset_m) {
    const double along = (offset_m / cell_m + 0.5) * kMaskSide;
    return static_cast<unsigned>(std::clamp(along, 0.0, kMaskSide - 1.0));
  };
  return std::uint64_t{1} << (8U * step(sounding.north_m) + step(sounding.east_m));
}

double SquaredDistance(const PackedSounding& sounding) {
  const double east_m = sounding.east_m;
  const double north_m = sounding.north_m;
  return east_m * east_m + north_m * north_m;
}

// Whether so many soundings have such sums, with room to spare.
bool ArePossible(const CellStatistics& statistics) {
  constexpr std::uint64_t kMostSoundings = std::uint64_t{1} << 48U;
  constexpr double kDeepest_m = survey::kDeepest_m;
  constexpr double kGreatestVariance_m2 = 1e14;
  if (statistics.soundings > kMostSoundings) return false;
  if ((statistics.soundings == 0) != (statistics.occupancy == 0)) return false;
  // Written so that what is no number fails.
  const double most = 2.0 * static_cast<double>(statistics.soundings);
  const auto is_sum = [&](double sum, double each) { return sum >= 0.0 && sum <= most * each; };
  // Without soundings the greatest and the least number stand in place of the extremes.
  const bool in_order =
      statistics.shallowest_m >= -kDeepest_m && statistics.deepest_m <= kDeepest_m &&
      (statistics.soundings == 0 || statistics.shallowest_m <= statistics.deepest_m);
  return in_order && is_sum(std::abs(statistics.depth_sum_m), kDeepest_m) &&
         is_sum(statistics.depth_square_sum_m2, kDeepest_m * kDeepest_m) &&
         is_sum(statistics.vertical_variance_sum_m2, kGreatestVariance_m2) &&
         is_sum(statistics.horizontal_variance_sum_m2, kGreatestVariance_m2);
}

double RootMean(double sum, std::uint64_t count) {
  return count == 0 ? 0.0 : std::sqrt(sum / static_cast<double>(count));
}

double LeastReach(const GridSettings& settings) {
  return settings.estimator.capture_radius * settings.min_resolution_m;
}

// Keeps the soundings no farther than the reach that they themselves define.
void DropBeyondReach(const GridSettings& settings, CellState& state) {
  std::vector<PackedSounding>& near = state.near;
  const auto wanted = static_cast<std::size_t>(settings.estimator.low_resolution_soundings);
  if (near.size() <= wanted) return;
  std::vector<double> distances(near.size());
  std::transform(near.begin(), near.end(), distances.begin(), SquaredDistance);
  std::vector<double> ordered = distances;
  const auto nth = ordered.begin() + static_cast<std::ptrdiff_t>(wanted - 1);
  std::nth_element(ordered.begin(), nth, ordered.end());
  const double least_m = LeastReach(settings);
  const double reach_squared = std::max(*nth, least_m * least_m);
  std::size_t kept = 0;
  std::size_t next = 0;
  for (LineRun& run : state.near_lines) {
    const std::size_t end = next + run.count;
    run.count = 0;
    for (; next < end; ++next) {
      if (distances[next] > reach_squared) continue;
      near[kept++] = near[next];
      ++run.count;
    }
  }
  near.resize(kept);
  std::erase_if(state.near_lines, [](const LineRun& run) { return run.count == 0; });
}

}  // namespace

double CellStatistics::MeanDepth() const {
  return soundings == 0 ? 0.0 : depth_sum_m / static_cast<double>(soundings);
}

double CellStatistics::DepthDeviation() const {
  if (soundings < 2) return 0.0;
  const auto count = static_cast<double>(soundings);
  const double mean_m = depth_sum_m / count;
  return std::sqrt(std::max(0.0, (depth_square_sum_m2 - count * mean_m * mean_m) / (count - 1.0)));
}

double CellStatistics::VerticalSigma() const {
  return RootMean(vertical_variance_sum_m2, soundings);
}

double CellStatistics::HorizontalSigma() const {
  return RootMean(horizontal_variance_sum_m2, soundings);
}

double CellStatistics::CoveredFraction() const { return std::popcount(occupancy) / 64.0; }

std::uint32_t NodesPerSide(const CellStatistics& statistics, const GridSettings& settings) {
  const auto soundings = static_cast<double>(statistics.soundings);
  if (soundings < settings.refinement.soundings_per_node) return 1;
  const double finest_m =
      std::max(settings.min_resolution_m,
               settings.refinement.horizontal_uncertainty_factor * statistics.HorizontalSigma());
  // The resolutions are decimals: 50 m into 0.5 m nodes is 100, not 99.999.
  const double by_spacing = std::floor(settings.resolution_m / finest_m * (1.0 + 1e-9));
  const double by_density = std::floor(std::sqrt(
      soundings / (settings.refinement.soundings_per_node * statistics.CoveredFraction())));
  return static_cast<std::uint32_t>(std::max(1.0, std::min(by_spacing, by_density)));
}

void AddSoundings(std::span<const PackedSounding> soundings, std::uint32_t line,
                  const GridSettings& settings, CellState& state) {
  CellStatistics& statistics = state.statistics;
  statistics.soundings += soundings.size();
  for (const PackedSounding& sounding : soundings) {
    const double depth_m = sounding.depth_m;
    const double sigma_v_m = sounding.sigma_v_m();
    const double sigma_h_m = sounding.sigma_h_m();
    statistics.occupancy |= MaskBit(sounding, settings.resolution_m);
    statistics.depth_sum_m += depth_m;
    statistics.depth_square_sum_m2 += depth_m * depth_m;
    statistics.vertical_variance_sum_m2 += sigma_v_m * sigma_v_m;
    statistics.horizontal_variance_sum_m2 += sigma_h_m * sigma_h_m;
    statistics.shallowest_m = std::min(statistics.shallowest_m, sounding.depth_m);
    statistics.deepest_m = std::max(statistics.deepest_m, sounding.depth_m);
  }
  state.near.insert(state.near.end(), soundings.begin(), soundings.end());
  if (state.near_lines.empty() || state.near_lines.back().line != line) {
    state.near_lines.push_back({.line = line, .count = 0});
  }
  state.near_lines.back().count += static_cast<std::uint32_t>(soundings.size());
  DropBeyondReach(settings, state);
}

// A few soundings, or a small part of the cell, tell nothing of its relief.
double LowResolutionEstimator::UnknownSlope(const CellStatistics& statistics) const {
  if (statistics.soundings <
          static_cast<std::uint64_t>(settings_.estimator.low_resolution_soundings) ||
      std::popcount(statistics.occupancy) < settings_.estimator.fewest_blocks) {
    return settings_.estimator.unknown_slope;
  }
  return std::min(settings_.estimator.unknown_slope,
                  SlopeOfRelief(statistics.DepthDeviation(), settings_.resolution_m,
                                statistics.CoveredFraction()));
}

void LowResolutionEstimator::Estimate(CellState& state, EstimatorTrace* trace) {
  soundings_.clear();
  double reach_squared = 0.0;
  auto next = state.near.begin();
  for (const LineRun& run : state.near_lines) {
    for (const auto end = next + run.count; next != end; ++next) {
      reach_squared = std::max(reach_squared, SquaredDistance(*next));
      soundings_.push_back({.east_m = next->east_m,
                            .north_m = next->north_m,
                            .depth_m = next->depth_m,
                            .sigma_v_m = next->sigma_v_m(),
                            .sigma_h_m = next->sigma_h_m(),
                            .line = run.line});
    }
  }
  const double reach_m = std::max(std::sqrt(reach_squared), LeastReach(settings_));
  NodeSurroundings surroundings;
  surroundings.spacing_m = reach_m / settings_.estimator.capture_radius;
  const double unknown_slope = UnknownSlope(state.statistics);
  const LocalTrend start = steepness_.Checked(
      soundings_, trend_finder_.Around(soundings_, reach_m, unknown_slope), unknown_slope);
  noise_.Clear();
  AddDifferences(soundings_, start, noise_);
  surroundings.noise_scale = noise_.Value();
  surroundings.trend =
      plane_fitter_.Slope(soundings_, start, surroundings.noise_scale, unknown_slope);
  estimator_.Estimate(soundings_, surroundings, state.low, trace);
}

void Encode(const CellState& state, std::vector<std::byte>& out) {
  out.clear();
  Encoder encoder(out);
  encoder.Put(state.statistics);
  encoder.Put(static_cast<std::uint32_t>(state.low.size()));
  encoder.Put(static_cast<std::uint32_t>(state.near_lines.size()));
  encoder.Put(static_cast<std::uint32_t>(state.near.size()));
  encoder.PutArray(std::span<const Hypothesis>(state.low));
  encoder.PutArray(std::span<const LineRun>(state.near_lines));
  encoder.PutArray(std::span<const PackedSounding>(state.near));
}

void Decode(std::span<const std::byte> bytes, CellState& state) {
  Decoder decoder(bytes, "state");
  state.statistics = decoder.Get<CellStatistics>();
  const auto hypotheses = decoder.Get<std::uint32_t>();
  const auto lines = decoder.Get<std::uint32_t>();
  const auto near = decoder.Get<std::uint32_t>();
  decoder.GetArray(hypotheses, state.low);
  decoder.GetArray(lines, state.near_lines);
  decoder.GetArray(near, state.near);
  decoder.End();
  std::uint64_t counted = 0;
  for (const LineRun& run : state.near_lines) counted += run.count;
  if (counted != near) throw EncodingError("the state of a cell does not add up");
  if (!ArePossible(state.statistics) ||
      !std::all_of(state.low.begin(), state.low.end(),
                   [](const Hypothesis& hypothesis) { return IsPossible(hypothesis); }) ||
      !std::all_of(state.near.begin(), state.near.end(),
                   [](const PackedSounding& sounding) { return IsPossible(sounding); })) {
    throw EncodingError("the state of a cell holds a value that no cell has");
  }
}

}  // namespace quarro::core
