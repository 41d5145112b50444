// A seafloor that has something of everything, each in a part of the lines' length.
#include "simulate/mixed_seafloor.h"

#include <algorithm>

namespace quarro::simulate {
namespace {

Area MiddleThird(const SurveyOptions& options, const survey::GridPoint& origin) {
  Area area = Area::OfLines(options, origin);
  area.along_m /= 3.0;
  return area;
}

}  // namespace

MixedSeafloor::MixedSeafloor(const SurveyOptions& options, const survey::GridPoint& origin)
    : way_(origin, options.heading_deg),
      third_m_(options.line_length_m / 3.0),
      shelf_edge_m_(0.4 * options.line_length_m),
      depth_m_(options.depth_m),
      slope_(options.slope),
      scarp_height_m_(options.scarp_height_m),
      scarp_width_m_(options.scarp_width_m),
      wave_length_m_(options.wave_length_m),
      waves_(options, origin),
      rocks_(options, MiddleThird(options, origin)),
      wreck_(options, origin),
      canyon_(options) {}

double MixedSeafloor::DepthAt(const survey::GridPoint& at) const {
  const double along_m = way_.Along(at);
  double depth_m = depth_m_ - std::max(rocks_.HeightAt(at), wreck_.HeightAt(at));
  if (const double into_waves_m = -third_m_ / 2.0 - along_m; into_waves_m > 0.0) {
    depth_m -= SmoothStep(into_waves_m / wave_length_m_) * waves_.HeightAt(at);
  }
  if (const double into_slope_m = along_m - third_m_ / 2.0; into_slope_m > 0.0) {
    const double from_scarp_m = along_m - third_m_;
    depth_m += slope_ * into_slope_m;
    depth_m += scarp_height_m_ * SmoothStep(from_scarp_m / scarp_width_m_ + 0.5);
  }
  // A slope that is deeper than the canyon's floor hides it.
  return Within(std::max(depth_m, canyon_.DepthAt(along_m - shelf_edge_m_, depth_m)));
}

}  // namespace quarro::simulate
