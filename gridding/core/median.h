// Medians, and what they tell of the spread of good values among bad ones.
#pragma once

#include <span>

namespace quarro::core {

// Of a standard normal deviate.
inline constexpr double kMedianMagnitudeOfNormal = 0.6744897501960817;
inline constexpr double kLowerQuartileMagnitudeOfNormal = 0.31863936396437514;
// Of normal deviates, for large counts: pi / 2.
inline constexpr double kVarianceOfMedianOverMean = 1.5707963267948966;

// Median of `values`, which it reorders; of an even count the mean of the middle two. Not empty.
double MedianOf(std::span<double> values);

// The median, and the standard deviation of normal deviates with the same median magnitude of what
// is left after it (the normalised median absolute deviation).
struct CentreAndScatter {
  double centre = 0.0;
  double scatter = 0.0;
};
// Overwrites `values`. Not empty.
CentreAndScatter CentreAndScatterOf(std::span<double> values);

}  // namespace quarro::core
