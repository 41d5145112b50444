// Where the beams of a ping meet the seafloor.
#pragma once

#include <span>

#include "gridding/survey/utm.h"
#include "simulate/seafloor.h"
#include "simulate/survey_plan.h"

namespace quarro::simulate {

// A place of the seafloor on the vertical plane across the ship.
struct SwathPoint {
  double depth_m = 0.0;
  double across_m = 0.0;  // to starboard
};

// The seafloor on the vertical plane across the ship. Valid as long as what it was made of.
class Swath {
 public:
  Swath(const Seafloor& seafloor, const ShipFix& fix);

  // Where beams of these slopes (tangents of their angles from the vertical, ascending, port below
  // 0) meet the floor. Each side is followed outwards from the keel: a beam meets the floor no
  // nearer than the one inside it does, so that the search from there finds the side of a wreck or
  // a step that the ship sees. The angle of a point is good to a millimetre across, its depth is
  // that of its place; beams that pass over the floor end at the widest offset that a line holds.
  void Strike(std::span<const double> tangents, std::span<SwathPoint> points) const;

 private:
  SwathPoint PointAt(double across_m) const;
  // The first place outside `inside` where the beam meets the floor.
  SwathPoint Follow(const SwathPoint& inside, double tangent) const;

  const Seafloor& seafloor_;
  const ShipFix& fix_;
  survey::Heading heading_;
};

}  // namespace quarro::simulate
