// Where the ship is at each ping of a simulated survey.
#pragma once

#include <cstdint>

#include "gridding/survey/utm.h"
#include "simulate/survey_options.h"

namespace quarro::simulate {

// The ship at one ping, as a file can tell it: position and heading are rounded to the steps of the
// format before anything is measured from them, so that rounding them adds no error.
struct ShipFix {
  std::int64_t time_ns = 0;
  double longitude_deg = 0.0;
  double latitude_deg = 0.0;
  double heading_deg = 0.0;  // from true north, [0, 360)
  survey::LocalFrame frame;  // of the position, in the survey's zone
};

// The lines of a survey. Constant after construction; the zone given to Fix is the caller's own, so
// that threads share a plan.
class SurveyPlan {
 public:
  // Throws SimulationError for options out of range, gaps or bursts that no line has room for, and
  // a survey that lasts longer than the times of files reach.
  explicit SurveyPlan(const SurveyOptions& options);

  const survey::GridPoint& origin() const { return origin_.origin; }
  std::uint32_t pings_per_line() const { return pings_per_line_; }
  ShipFix Fix(std::uint32_t line, std::uint32_t ping, const survey::UtmZone& zone) const;

  // A point `along_m` metres of ground ahead of the origin on the first line's course and
  // `across_m` to starboard of it.
  survey::GridPoint At(double along_m, double across_m) const;

 private:
  SurveyOptions options_;
  survey::LocalFrame origin_;
  double grid_azimuth_rad_ = 0.0;
  std::uint32_t pings_per_line_ = 0;
};

}  // namespace quarro::simulate
