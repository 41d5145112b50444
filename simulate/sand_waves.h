// Sand waves, and a seafloor of nothing else.
#pragma once

#include "simulate/profiles.h"
#include "simulate/seafloor.h"

namespace quarro::simulate {

// Sines whose crests stand across one azimuth. A value.
class SandWaves {
 public:
  SandWaves(const SurveyOptions& options, const survey::GridPoint& origin)
      : way_(origin, options.wave_azimuth_deg),
        amplitude_m_(options.wave_amplitude_m),
        radians_a_metre_(2.0 * std::numbers::pi / options.wave_length_m) {}

  // Above the mean floor: 0 at the origin, the first crest a quarter of a wave ahead.
  double HeightAt(const survey::GridPoint& at) const {
    return amplitude_m_ * std::sin(radians_a_metre_ * way_.Along(at));
  }

 private:
  Way way_;
  double amplitude_m_;
  double radians_a_metre_;
};

class WaveSeafloor : public Seafloor {
 public:
  WaveSeafloor(const SurveyOptions& options, const survey::GridPoint& origin)
      : depth_m_(options.depth_m), waves_(options, origin) {}

  double DepthAt(const survey::GridPoint& at) const override {
    return Within(depth_m_ - waves_.HeightAt(at));
  }

 private:
  const double depth_m_;
  const SandWaves waves_;
};

}  // namespace quarro::simulate
