// Two flats with a step between them, half of it on either side of the depth at the origin.
#pragma once

#include "simulate/profiles.h"
#include "simulate/seafloor.h"

namespace quarro::simulate {

class ScarpSeafloor : public Seafloor {
 public:
  ScarpSeafloor(const SurveyOptions& options, const survey::GridPoint& origin)
      : way_(origin, options.slope_azimuth_deg),
        depth_m_(options.depth_m),
        height_m_(options.scarp_height_m),
        width_m_(options.scarp_width_m) {}

  double DepthAt(const survey::GridPoint& at) const override {
    const double fallen = SmoothStep(way_.Along(at) / width_m_ + 0.5);
    return Within(depth_m_ + height_m_ * (fallen - 0.5));
  }

 private:
  const Way way_;
  const double depth_m_;
  const double height_m_;
  const double width_m_;
};

}  // namespace quarro::simulate
