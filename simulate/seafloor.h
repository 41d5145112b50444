// Seafloors whose depth is known everywhere.
#pragma once

#include <algorithm>
#include <memory>

#include "gridding/survey/soundings.h"
#include "gridding/survey/utm.h"
#include "simulate/survey_options.h"

namespace quarro::simulate {

// Constant after construction: any thread may ask.
class Seafloor {
 public:
  virtual ~Seafloor() = default;
  // Metres, positive down, from kShallowest_m to kDeepest_m, at a position of the survey's UTM
  // zone.
  virtual double DepthAt(const survey::GridPoint& at) const = 0;

  static constexpr double kShallowest_m = 0.5;  // where a seafloor would rise above the water
  static constexpr double kDeepest_m = survey::kDeepest_m;  // where it would fall below any sea's

 protected:
  static double Within(double depth_m) { return std::clamp(depth_m, kShallowest_m, kDeepest_m); }
};

// The seafloor that the options name, with their depth at `origin`. Throws SimulationError for a
// name that is none and for options out of range.
std::unique_ptr<Seafloor> MakeSeafloor(const SurveyOptions& options,
                                       const survey::GridPoint& origin);

}  // namespace quarro::simulate
