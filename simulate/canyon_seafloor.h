// A shelf, its edge at the origin, and the fall to the floor of a canyon.
#pragma once

#include "simulate/profiles.h"
#include "simulate/seafloor.h"

namespace quarro::simulate {

class CanyonSeafloor : public Seafloor {
 public:
  CanyonSeafloor(const SurveyOptions& options, const survey::GridPoint& origin)
      : way_(origin, options.slope_azimuth_deg),
        shelf_m_(options.depth_m),
        fall_m_(options.canyon_depth_m - options.depth_m),
        width_m_(options.canyon_width_m) {}

  double DepthAt(const survey::GridPoint& at) const override {
    return shelf_m_ + fall_m_ * SmoothStep(way_.Along(at) / width_m_);
  }

 private:
  const Way way_;
  const double shelf_m_;
  const double fall_m_;
  const double width_m_;
};

}  // namespace quarro::simulate
