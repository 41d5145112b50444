// A plane that deepens towards one azimuth.
#pragma once

#include "simulate/profiles.h"
#include "simulate/seafloor.h"

namespace quarro::simulate {

class SlopeSeafloor : public Seafloor {
 public:
  SlopeSeafloor(const SurveyOptions& options, const survey::GridPoint& origin)
      : way_(origin, options.slope_azimuth_deg), depth_m_(options.depth_m), slope_(options.slope) {}

  double DepthAt(const survey::GridPoint& at) const override {
    return Within(depth_m_ + slope_ * way_.Along(at));
  }

 private:
  const Way way_;
  const double depth_m_;
  const double slope_;
};

}  // namespace quarro::simulate
