// Where the soundings of a simulated survey lie.
#pragma once

#include <algorithm>
#include <limits>

#include "simulate/seafloor.h"
#include "simulate/survey_plan.h"

namespace quarro::simulate {

// A rectangle of the grid, metres. Empty until a place is added.
struct Extent {
  double west_m = std::numeric_limits<double>::infinity();
  double east_m = -std::numeric_limits<double>::infinity();
  double south_m = std::numeric_limits<double>::infinity();
  double north_m = -std::numeric_limits<double>::infinity();

  // Makes room for the surroundings of a place.
  void Add(const survey::GridPoint& at, double radius_m) {
    west_m = std::min(west_m, at.easting_m - radius_m);
    east_m = std::max(east_m, at.easting_m + radius_m);
    south_m = std::min(south_m, at.northing_m - radius_m);
    north_m = std::max(north_m, at.northing_m + radius_m);
  }
};

// The rectangle about the outermost beams of the lines, and five sigma of their places more. Asks
// many places along many lines but not each ping of a long survey, so that a rough seafloor may
// hold a sounding a little outside. Throws SimulationError where a line leaves the projection.
Extent ExtentOfSoundings(const SurveyOptions& options, const SurveyPlan& plan,
                         const Seafloor& seafloor);

}  // namespace quarro::simulate
