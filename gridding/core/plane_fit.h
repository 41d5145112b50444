// The slope of the seafloor by a regression in which outliers have no say.
#pragma once

#include <array>
#include <span>
#include <vector>

#include "gridding/core/local_trend.h"
#include "gridding/core/node_estimator.h"

namespace quarro::core {

// Fits a plane by least squares, in rounds: a sounding weighs by its inverse variance and by the
// biweight of its distance from the plane of the round before, so that what lies farther away than
// some standard uncertainties counts for nothing. Source: Beaton and Tukey, The fitting of power
// series (Technometrics 1974); Holland and Welsch, Robust regression using iteratively reweighted
// least-squares (Communications in Statistics 1977), for the constant.
//
// Three things keep it from telling more than it knows, which matters where the soundings lie to
// one side of the node and their depth is carried far:
//  - Before any sounding is asked the slope is normal around zero with a known deviation (ridge
//    regression, as Bayes has it).
//  - Along each axis of its errors a slope g known with the variance v is taken as
//    g max(0, 1 - (slope_sigmas^2 v) / g^2), the positive-part rule, which makes no slope of what
//    noise may explain; its variance grows by the square of what was taken away.
//  - Where horizontal errors are as great as the spread of soundings that end at the edge of what
//    was surveyed, they mix places and flatten the slope (errors in variables: Fuller, Measurement
//    Error Models, chapter 1). Its variance grows by what may be hidden so.
//
// One thread an object, which keeps its working memory.
class PlaneFitter {
 public:
  explicit PlaneFitter(const EstimatorSettings& settings) : settings_(settings) {}

  // `start` is a slope that most soundings agree with: it decides which are outliers.
  // `noise_scale` is the scatter of the soundings over what their uncertainties say,
  // `unknown_slope` the deviation of slopes before any sounding is asked; without relief, 0, it is
  // `start`.
  LocalTrend Slope(std::span<const NodeSounding> soundings, const LocalTrend& start,
                   double noise_scale, double unknown_slope);

 private:
  // Weighted means over the soundings: of places, in metres from the node, and of how far depths
  // are off a plane; and central moments of second order.
  struct Moments {
    double weight = 0.0;
    double east = 0.0;
    double north = 0.0;
    double off = 0.0;
    double east_east = 0.0;
    double east_north = 0.0;
    double north_north = 0.0;
    double east_off = 0.0;
    double north_off = 0.0;
    double horizontal_variance = 0.0;  // of the soundings' positions
  };
  // One axis of the slope's errors, which has no part in those along the other.
  struct Axis {
    double east = 0.0;  // its direction, of length one
    double north = 0.0;
    double slope = 0.0;
    double variance = 0.0;
  };
  using Axes = std::array<Axis, 2>;

  double MedianDepth(std::span<const NodeSounding> soundings, const LocalTrend& trend);
  Moments MomentsOf(std::span<const NodeSounding> soundings, const LocalTrend& trend,
                    double depth_m, double noise_scale) const;
  static Axes AxesOf(const Moments& moments, const LocalTrend& trend, double prior);
  static LocalTrend TrendOf(const Axes& axes);
  void Doubt(Axis& axis, const Moments& moments, double prior) const;

  EstimatorSettings settings_;
  std::vector<double> depths_m_;
};

}  // namespace quarro::core
