// Where the beams of a ping meet the seafloor.
#include "simulate/swath.h"

#include <algorithm>
#include <cmath>

#include "gridding/survey/soundings.h"

namespace quarro::simulate {
namespace {

constexpr double kWidest_m = double{survey::kWidest_m} / 2.0;

}  // namespace

Swath::Swath(const Seafloor& seafloor, const ShipFix& fix)
    : seafloor_(seafloor), fix_(fix), heading_(fix.heading_deg, fix.frame) {}

void Swath::Strike(std::span<const double> tangents, std::span<SwathPoint> points) const {
  const SwathPoint keel = PointAt(0.0);
  const auto starboard = static_cast<std::size_t>(
      std::lower_bound(tangents.begin(), tangents.end(), 0.0) - tangents.begin());
  SwathPoint inside = keel;
  for (std::size_t beam = starboard; beam < tangents.size(); ++beam) {
    inside = points[beam] = Follow(inside, tangents[beam]);
  }
  inside = keel;
  for (std::size_t beam = starboard; beam-- > 0;) {
    inside = points[beam] = Follow(inside, tangents[beam]);
  }
}

SwathPoint Swath::PointAt(double across_m) const {
  return {seafloor_.DepthAt(
              fix_.frame.ToGrid(heading_.East(0.0, across_m), heading_.North(0.0, across_m))),
          across_m};
}

SwathPoint Swath::Follow(const SwathPoint& inside, double tangent) const {
  constexpr int kMostSteps = 60;
  constexpr double kCloseEnough_m = 0.001;
  constexpr double kLongestStride = 8.0;  // in reaches, where the floor falls away from the beam
  const double side = tangent < 0.0 ? -1.0 : 1.0;
  // How much farther out than its place the beam is at the depth of the place: above 0 as long as
  // the floor lies below the beam.
  const auto reach_m = [&](const SwathPoint& at) {
    return side * (at.depth_m * tangent - at.across_m);
  };

  SwathPoint near = inside;
  double near_reach_m = reach_m(near);
  if (near_reach_m <= kCloseEnough_m) return near;
  SwathPoint far;
  double far_reach_m = 0.0;  // below 0 once a place beyond the floor's crossing is known
  double stride_m = near_reach_m;
  bool nearer_last = true;  // whether the last place replaced the near one
  for (int step = 0; step < kMostSteps; ++step) {
    const double across_m = std::clamp(near.across_m + side * stride_m, -kWidest_m, kWidest_m);
    const SwathPoint here = PointAt(across_m);
    const double here_reach_m = reach_m(here);
    if (std::abs(here_reach_m) < kCloseEnough_m) return here;
    if (here_reach_m > 0.0) {
      if (std::abs(across_m) >= kWidest_m) return here;
      const double closed = (near_reach_m - here_reach_m) / std::abs(across_m - near.across_m);
      stride_m = here_reach_m / std::max(closed, 1.0 / kLongestStride);
      near = here;
      near_reach_m = here_reach_m;
      // An end that stays twice draws the next place towards itself (the Illinois rule).
      if (nearer_last) far_reach_m /= 2.0;
      nearer_last = true;
    } else {
      if (!nearer_last) near_reach_m /= 2.0;
      nearer_last = false;
      far = here;
      far_reach_m = here_reach_m;
    }
    if (far_reach_m < 0.0) {
      stride_m =
          std::abs(far.across_m - near.across_m) * near_reach_m / (near_reach_m - far_reach_m);
    }
  }
  return near;
}

}  // namespace quarro::simulate
