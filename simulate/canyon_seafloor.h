// A shelf, its edge at the origin, and the fall to the floor of a canyon.
#pragma once

#include "simulate/profiles.h"
#include "simulate/seafloor.h"

namespace quarro::simulate {

// The way down into a canyon. A value.
class CanyonFall {
 public:
  explicit CanyonFall(const SurveyOptions& options)
      : floor_m_(options.canyon_depth_m), width_m_(options.canyon_width_m) {}

  // The depth so far beyond the edge of a shelf that is `shelf_m` deep: the shelf's own before it,
  // the floor's once the fall is over.
  double DepthAt(double beyond_m, double shelf_m) const {
    return shelf_m + (floor_m_ - shelf_m) * SmoothStep(beyond_m / width_m_);
  }

 private:
  double floor_m_;
  double width_m_;
};

class CanyonSeafloor : public Seafloor {
 public:
  CanyonSeafloor(const SurveyOptions& options, const survey::GridPoint& origin)
      : way_(origin, options.slope_azimuth_deg), shelf_m_(options.depth_m), fall_(options) {}

  double DepthAt(const survey::GridPoint& at) const override {
    return Within(fall_.DepthAt(way_.Along(at), shelf_m_));
  }

 private:
  const Way way_;
  const double shelf_m_;
  const CanyonFall fall_;
};

}  // namespace quarro::simulate
