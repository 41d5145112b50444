#include "gridding/core/plane_fit.h"

#include <algorithm>
#include <cmath>

#include "gridding/core/median.h"

namespace quarro::core {

LocalTrend PlaneFitter::Slope(std::span<const NodeSounding> soundings, const LocalTrend& start,
                              double noise_scale, double unknown_slope) {
  if (soundings.empty() || unknown_slope <= 0.0) return start;
  const double prior = 1.0 / (unknown_slope * unknown_slope);
  LocalTrend trend = start;
  double depth_m = MedianDepth(soundings, trend);
  Moments moments;
  Axes axes;
  for (int round = 0; round < settings_.plane_rounds; ++round) {
    moments = MomentsOf(soundings, trend, depth_m, noise_scale);
    if (moments.weight <= 0.0) return start;
    axes = AxesOf(moments, trend, prior);
    const LocalTrend before = trend;
    trend = TrendOf(axes);
    depth_m += moments.off - (trend.east - before.east) * moments.east -
               (trend.north - before.north) * moments.north;
  }
  for (Axis& axis : axes) Doubt(axis, moments, prior);
  return TrendOf(axes);
}

double PlaneFitter::MedianDepth(std::span<const NodeSounding> soundings, const LocalTrend& trend) {
  depths_m_.clear();
  for (const NodeSounding& sounding : soundings) {
    depths_m_.push_back(sounding.depth_m - trend.east * sounding.east_m -
                        trend.north * sounding.north_m);
  }
  return MedianOf(depths_m_);
}

// Sums are taken of places from the node and of depths from the plane of the round before, which
// leaves little to be lost when the means are taken out.
PlaneFitter::Moments PlaneFitter::MomentsOf(std::span<const NodeSounding> soundings,
                                            const LocalTrend& trend, double depth_m,
                                            double noise_scale) const {
  const double share_of_reach = 1.0 / (settings_.biweight_sigmas * settings_.biweight_sigmas);
  const double slope_squared = trend.east * trend.east + trend.north * trend.north;
  Moments m;
  for (const NodeSounding& sounding : soundings) {
    const double east_m = sounding.east_m;
    const double north_m = sounding.north_m;
    const double noise_m = noise_scale * sounding.sigma_v_m;
    const double horizontal_variance = static_cast<double>(sounding.sigma_h_m) * sounding.sigma_h_m;
    const double information = 1.0 / (noise_m * noise_m + slope_squared * horizontal_variance);
    const double off_m = sounding.depth_m - depth_m - trend.east * east_m - trend.north * north_m;
    const double left = std::max(0.0, 1.0 - share_of_reach * off_m * off_m * information);
    const double weight = left * left * information;
    const double weighted_east = weight * east_m;
    const double weighted_north = weight * north_m;
    m.weight += weight;
    m.east += weighted_east;
    m.north += weighted_north;
    m.off += weight * off_m;
    m.east_east += weighted_east * east_m;
    m.east_north += weighted_east * north_m;
    m.north_north += weighted_north * north_m;
    m.east_off += weighted_east * off_m;
    m.north_off += weighted_north * off_m;
    m.horizontal_variance += weight * horizontal_variance;
  }
  if (m.weight <= 0.0) return m;
  const double share = 1.0 / m.weight;
  for (double* mean : {&m.east, &m.north, &m.off, &m.east_east, &m.east_north, &m.north_north,
                       &m.east_off, &m.north_off, &m.horizontal_variance}) {
    *mean *= share;
  }
  m.east_east -= m.east * m.east;
  m.east_north -= m.east * m.north;
  m.north_north -= m.north * m.north;
  m.east_off -= m.east * m.off;
  m.north_off -= m.north * m.off;
  return m;
}

// Of the information that soundings and prior have of the slope together.
PlaneFitter::Axes PlaneFitter::AxesOf(const Moments& moments, const LocalTrend& trend,
                                      double prior) {
  const double east = moments.weight * moments.east_east + prior;
  const double north = moments.weight * moments.north_north + prior;
  const double both = moments.weight * moments.east_north;
  const double half = 0.5 * (east - north);
  const double apart = std::hypot(half, both);
  // Rounding may make less than nothing of the spread of soundings at one place.
  const double most = std::max(prior, 0.5 * (east + north) + apart);
  const double least = std::max(prior, (east * north - both * both) / most);
  // Half of the angle whose cosine is half / apart.
  const double turned = apart > 0.0 ? half / apart : 1.0;
  const double cosine = std::sqrt(std::max(0.0, 0.5 * (1.0 + turned)));
  const double sine = std::copysign(std::sqrt(std::max(0.0, 0.5 * (1.0 - turned))), both);
  Axes axes{Axis{.east = cosine, .north = sine, .slope = 0.0, .variance = 1.0 / most},
            Axis{.east = -sine, .north = cosine, .slope = 0.0, .variance = 1.0 / least}};
  for (Axis& axis : axes) {
    // What the soundings say beyond the slope of before, and the prior against it.
    const double before = axis.east * trend.east + axis.north * trend.north;
    const double rise = axis.east * moments.east_off + axis.north * moments.north_off;
    axis.slope = before + axis.variance * (moments.weight * rise - prior * before);
  }
  return axes;
}

LocalTrend PlaneFitter::TrendOf(const Axes& axes) {
  LocalTrend trend;
  for (const Axis& axis : axes) {
    trend.east += axis.east * axis.slope;
    trend.north += axis.north * axis.slope;
    trend.east_variance += axis.east * axis.east * axis.variance;
    trend.north_variance += axis.north * axis.north * axis.variance;
    trend.covariance += axis.east * axis.north * axis.variance;
  }
  return trend;
}

// Takes from the slope what noise may explain, and adds to its variance what is not known of it.
void PlaneFitter::Doubt(Axis& axis, const Moments& moments, double prior) const {
  const double unknown = 1.0 / prior;
  const double slope_squared = axis.slope * axis.slope;
  const double doubted = settings_.slope_sigmas * settings_.slope_sigmas * axis.variance;
  const double kept = slope_squared <= doubted ? 0.0 : 1.0 - doubted / slope_squared;
  const double taken = (1.0 - kept) * axis.slope;
  // What the soundings add to the information of the prior tells their spread.
  const double spread_m2 = std::max(0.0, (1.0 / axis.variance - prior) / moments.weight);
  const double mixed =
      moments.horizontal_variance >= spread_m2 ? 1.0 : moments.horizontal_variance / spread_m2;
  // Around the node errors carry as many soundings one way as the other; beside it they do not.
  const double aside_m = axis.east * moments.east + axis.north * moments.north;
  const double aside_m2 = aside_m * aside_m;
  const double one_sided = aside_m2 > 0.0 ? aside_m2 / (aside_m2 + spread_m2) : 0.0;
  const double hidden = one_sided * mixed * mixed * unknown;
  const double uncertain = axis.variance + taken * taken;
  axis.slope *= kept;
  axis.variance = std::max(uncertain, std::min(uncertain + hidden, unknown));
}

}  // namespace quarro::core
