// The curves that seafloors are made of.
#pragma once

#include <algorithm>
#include <cmath>
#include <numbers>

#include "gridding/survey/utm.h"

namespace quarro::simulate {

// 0 before 0, 1 after 1 and smoothly from one to the other between; its steepest, 1.5, at 0.5.
inline double SmoothStep(double x) {
  const double within = std::clamp(x, 0.0, 1.0);
  return within * within * (3.0 - 2.0 * within);
}

// The height of a thing with a flat top and rounded edges, a part of its greatest, at the square of
// the distance from its middle, as a part of half its width: still 94 % half way to the edge.
inline double RoundedProfile(double squared_distance) {
  return squared_distance >= 1.0 ? 0.0 : 1.0 - squared_distance * squared_distance;
}

// A way over the ground through a point. A value.
class Way {
 public:
  // `azimuth_deg` is clockwise from grid north.
  Way(const survey::GridPoint& through, double azimuth_deg)
      : through_(through),
        sine_(std::sin(azimuth_deg * std::numbers::pi / 180.0)),
        cosine_(std::cos(azimuth_deg * std::numbers::pi / 180.0)) {}

  // Metres ahead of the point.
  double Along(const survey::GridPoint& at) const {
    return sine_ * (at.easting_m - through_.easting_m) +
           cosine_ * (at.northing_m - through_.northing_m);
  }
  // Metres to the right of the way.
  double Across(const survey::GridPoint& at) const {
    return cosine_ * (at.easting_m - through_.easting_m) -
           sine_ * (at.northing_m - through_.northing_m);
  }
  survey::GridPoint At(double along_m, double across_m) const {
    return {through_.easting_m + sine_ * along_m + cosine_ * across_m,
            through_.northing_m + cosine_ * along_m - sine_ * across_m};
  }

 private:
  survey::GridPoint through_;
  double sine_;
  double cosine_;
};

}  // namespace quarro::simulate
