// A seafloor that has something of everything, each in a part of the lines' length.
#pragma once

#include "simulate/canyon_seafloor.h"
#include "simulate/obstacles.h"
#include "simulate/profiles.h"
#include "simulate/sand_waves.h"
#include "simulate/seafloor.h"

namespace quarro::simulate {

// Along the first line: sand waves in its first third, a flat with the rocks and the wreck in the
// second, and in the last a slope with the scarp in its middle and, its last tenth, the fall into
// the canyon: of all of it where the lines are long, of its gentle beginning where they are short.
class MixedSeafloor : public Seafloor {
 public:
  MixedSeafloor(const SurveyOptions& options, const survey::GridPoint& origin);

  double DepthAt(const survey::GridPoint& at) const override;

 private:
  const Way way_;  // of the first line
  const double third_m_;
  const double shelf_edge_m_;
  const double depth_m_;
  const double slope_;
  const double scarp_height_m_;
  const double scarp_width_m_;
  const double wave_length_m_;
  const SandWaves waves_;
  const Rocks rocks_;
  const Wreck wreck_;
  const CanyonFall canyon_;
};

}  // namespace quarro::simulate
