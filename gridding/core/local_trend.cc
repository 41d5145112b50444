#include "gridding/core/local_trend.h"

#include <algorithm>
#include <cmath>

#include "gridding/core/median.h"

namespace quarro::core {

namespace {

constexpr std::size_t kPairsOfFirstGuess = 256;

struct Slope {
  double value = 0.0;
  double variance = 0.0;
};

// Ways between blocks that are neighbours along one axis.
struct Pairs {
  std::array<double, 6> run_m;     // along the axis
  std::array<double, 6> across_m;  // along the other one
  std::array<double, 6> rise_m;    // of depth
  std::size_t count = 0;
  double variance = 0.0;  // of the median of their slopes
};

// Neighbours are `step` apart in the 3 x 3 array.
template <typename Along, typename Across>
Pairs PairsAlong(const std::array<BlockMedian, 9>& blocks, double least_run_m, std::size_t step,
                 Along along_m, Across across_m) {
  Pairs pairs;
  double variance_sum = 0.0;
  for (std::size_t i = 0; i + step < blocks.size(); ++i) {
    if (step == 1 && i % 3 == 2) continue;
    const BlockMedian& a = blocks[i];
    const BlockMedian& b = blocks[i + step];
    if (!a.filled || !b.filled) continue;
    const double run_m = along_m(b) - along_m(a);
    if (run_m < least_run_m || run_m <= 0.0) continue;
    pairs.run_m[pairs.count] = run_m;
    pairs.across_m[pairs.count] = across_m(b) - across_m(a);
    pairs.rise_m[pairs.count] = b.depth_m - a.depth_m;
    ++pairs.count;
    variance_sum += (a.variance_m2 + b.variance_m2) / (run_m * run_m);
  }
  const auto count = static_cast<double>(pairs.count);
  pairs.variance = kVarianceOfMedianOverMean * variance_sum / (count * count);
  return pairs;
}

// The slope along the axis, the slope `across` of the other one taken out.
Slope SlopeOf(const Pairs& pairs, double across, double unknown_slope, double trend_sigmas) {
  const double unknown = unknown_slope * unknown_slope;
  if (pairs.count < 2) return {.value = 0.0, .variance = unknown};
  std::array<double, 6> slopes;
  for (std::size_t i = 0; i < pairs.count; ++i) {
    slopes[i] = (pairs.rise_m[i] - across * pairs.across_m[i]) / pairs.run_m[i];
  }
  const double slope = MedianOf(std::span(slopes).first(pairs.count));
  const double doubted = trend_sigmas * trend_sigmas * pairs.variance;
  const double kept = slope == 0.0 ? 0.0 : std::max(0.0, 1.0 - doubted / (slope * slope));
  return {.value = slope * kept, .variance = std::min(pairs.variance, unknown)};
}

}  // namespace

LocalTrend TrendAcross(const std::array<BlockMedian, 9>& blocks, double block_m,
                       double unknown_slope, const EstimatorSettings& settings) {
  const auto east = [](const BlockMedian& block) { return block.east_m; };
  const auto north = [](const BlockMedian& block) { return block.north_m; };
  const double least_run_m = settings.least_run * block_m;
  const Pairs eastward = PairsAlong(blocks, least_run_m, 1, east, north);
  const Pairs northward = PairsAlong(blocks, least_run_m, 3, north, east);
  LocalTrend trend;
  // Mean positions of neighbours differ a little across the axis too: a second round takes that
  // out.
  for (int round = 0; round < 2; ++round) {
    const LocalTrend before = trend;
    const Slope to_east = SlopeOf(eastward, before.north, unknown_slope, settings.trend_sigmas);
    const Slope to_north = SlopeOf(northward, before.east, unknown_slope, settings.trend_sigmas);
    trend = {.east = to_east.value,
             .north = to_north.value,
             .east_variance = to_east.variance,
             .north_variance = to_north.variance};
  }
  return trend;
}

void NoiseScale::Add(double difference_m, double variance_sum_m2) {
  ratios_.push_back(std::abs(difference_m) / std::sqrt(variance_sum_m2));
}

// Any hundreds of the pairs tell enough for a first guess.
double NoiseScale::FirstGuess() {
  const std::size_t step = std::max<std::size_t>(1, ratios_.size() / kPairsOfFirstGuess);
  some_.clear();
  for (std::size_t i = 0; i < ratios_.size(); i += step) some_.push_back(ratios_[i]);
  const auto quartile = some_.begin() + static_cast<std::ptrdiff_t>(some_.size() / 4);
  std::nth_element(some_.begin(), quartile, some_.end());
  return std::max(1.0, *quartile / kLowerQuartileMagnitudeOfNormal);
}

// Spikes are in up to two of three pairs, so the lower quartile tells the noise at first, and then
// the median of what lies within reach of the noise so told, until it settles.
double NoiseScale::Value() {
  if (ratios_.size() < static_cast<std::size_t>(settings_.fewest_pairs)) return 1.0;
  double scale = FirstGuess();
  std::span<double> within(ratios_);
  for (int round = 0; round < settings_.scatter_rounds; ++round) {
    const auto end = std::partition(within.begin(), within.end(), [&](double ratio) {
      return ratio <= settings_.spike_sigmas * scale;
    });
    const auto count = static_cast<std::size_t>(end - within.begin());
    if (round > 0 && count == within.size()) break;
    within = within.first(count);
    scale = std::max(1.0, MedianOf(within) / kMedianMagnitudeOfNormal);
  }
  return scale;
}

BlockMedian BlockMedianFinder::Of(std::span<const NodeSounding> soundings) {
  if (soundings.empty()) return {};
  depths_m_.clear();
  double east_sum_m = 0.0;
  double north_sum_m = 0.0;
  double variance_sum_m2 = 0.0;
  for (const NodeSounding& sounding : soundings) {
    depths_m_.push_back(sounding.depth_m);
    east_sum_m += sounding.east_m;
    north_sum_m += sounding.north_m;
    variance_sum_m2 += static_cast<double>(sounding.sigma_v_m) * sounding.sigma_v_m;
  }
  const auto count = static_cast<double>(soundings.size());
  return {.east_m = east_sum_m / count,
          .north_m = north_sum_m / count,
          .depth_m = MedianOf(depths_m_),
          .variance_m2 = kVarianceOfMedianOverMean * variance_sum_m2 / (count * count),
          .filled = true};
}

double SlopeOfRelief(double depth_deviation_m, double side_m, double covered_fraction) {
  // A uniform distribution over a length L has the standard deviation L / sqrt(12).
  return std::sqrt(12.0 / covered_fraction) * depth_deviation_m / side_m;
}

LocalTrend TrendFinder::Around(std::span<const NodeSounding> soundings, double reach_m,
                               double unknown_slope) {
  const double block_m = 2.0 * reach_m / 3.0;
  const auto block_of = [&](const NodeSounding& sounding) {
    const auto step = [&](float offset_m) {
      return static_cast<std::size_t>(std::clamp((offset_m + reach_m) / block_m, 0.0, 2.0));
    };
    return 3 * step(sounding.north_m) + step(sounding.east_m);
  };
  for (auto& block : blocks_) block.clear();
  for (const NodeSounding& sounding : soundings) blocks_[block_of(sounding)].push_back(sounding);
  std::array<BlockMedian, 9> medians;
  for (std::size_t i = 0; i < medians.size(); ++i) medians[i] = median_finder_.Of(blocks_[i]);
  return TrendAcross(medians, block_m, unknown_slope, settings_);
}

// The median of the gaps between depths next to each other, the slope taken out: how far apart
// soundings that agree lie. Of an even number the smaller of the middle two, so that two soundings
// that agree and one that does not are told from three that do not.
double SteepnessCheck::Huddle(std::span<const NodeSounding> soundings, double slope_east,
                              double slope_north) {
  depths_m_.clear();
  for (const NodeSounding& sounding : soundings) {
    depths_m_.push_back(sounding.depth_m - slope_east * sounding.east_m -
                        slope_north * sounding.north_m);
  }
  std::sort(depths_m_.begin(), depths_m_.end());
  for (std::size_t i = 0; i + 1 < depths_m_.size(); ++i) {
    depths_m_[i] = depths_m_[i + 1] - depths_m_[i];
  }
  depths_m_.pop_back();
  const auto middle = depths_m_.begin() + static_cast<std::ptrdiff_t>((depths_m_.size() - 1) / 2);
  std::nth_element(depths_m_.begin(), middle, depths_m_.end());
  return *middle;
}

LocalTrend SteepnessCheck::Checked(std::span<const NodeSounding> soundings, const LocalTrend& trend,
                                   double unknown_slope) {
  if (soundings.size() < 2) return trend;
  double reach_squared = 0.0;
  double variance_sum_m2 = 0.0;
  for (const NodeSounding& sounding : soundings) {
    const double east_m = sounding.east_m;
    const double north_m = sounding.north_m;
    reach_squared = std::max(reach_squared, east_m * east_m + north_m * north_m);
    variance_sum_m2 += static_cast<double>(sounding.sigma_v_m) * sounding.sigma_v_m;
  }
  const double rise_squared = (trend.east * trend.east + trend.north * trend.north) * reach_squared;
  const double noise_squared = variance_sum_m2 / static_cast<double>(soundings.size());
  if (rise_squared < settings_.steep_sigmas * settings_.steep_sigmas * noise_squared) return trend;
  if (Huddle(soundings, 0.0, 0.0) >=
      settings_.huddle_share * Huddle(soundings, trend.east, trend.north)) {
    return trend;
  }
  const double unknown = unknown_slope * unknown_slope;
  return {.east = 0.0, .north = 0.0, .east_variance = unknown, .north_variance = unknown};
}

void AddDifferences(std::span<const NodeSounding> soundings, const LocalTrend& trend,
                    NoiseScale& scale) {
  const double slope_squared = trend.east * trend.east + trend.north * trend.north;
  const auto variance = [&](const NodeSounding& sounding) {
    const double sigma_v_m = sounding.sigma_v_m;
    const double sigma_h_m = sounding.sigma_h_m;
    return sigma_v_m * sigma_v_m + slope_squared * sigma_h_m * sigma_h_m;
  };
  const auto depth = [&](const NodeSounding& sounding) {
    return sounding.depth_m - trend.east * sounding.east_m - trend.north * sounding.north_m;
  };
  for (std::size_t i = 1; i < soundings.size(); ++i) {
    scale.Add(depth(soundings[i]) - depth(soundings[i - 1]),
              variance(soundings[i]) + variance(soundings[i - 1]));
  }
}

}  // namespace quarro::core
