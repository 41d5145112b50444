// From pings and beams to projected soundings with their uncertainties.
#pragma once

#include <memory>

#include "gridding/survey/soundings.h"
#include "support/mparams.h"

namespace quarro::survey {

// The uncertainty of a beam for which its file tells none, as a function of depth and beam angle.
struct UncertaintyModel {
  // Vertical at nadir: sqrt(fixed^2 + (proportional * depth)^2), the fixed and depth-dependent
  // parts of the IHO S-44 formula; grown by the beam angle; horizontal likewise. All 1 sigma.
  double vertical_fixed_m = 0.13;
  double vertical_proportional = 0.004;
  double horizontal_fixed_m = 1.0;
  double horizontal_proportional = 0.02;
  double angle_growth = 1.0;  // both grow by 1 + angle_growth * tan^2(angle)
  // Smallest 1-sigma values that any sounding is given, so that a zero in a file is not certainty.
  double least_vertical_m = 0.02;
  double least_horizontal_m = 0.05;
};
// Section Uncertainty. Throws ExSGClientBase for a value out of range.
UncertaintyModel ReadUncertaintyModel(const MParams& params);

// 1 sigma of a beam, horizontal along one axis.
struct BeamSigma {
  double vertical_m = 0.0;
  double horizontal_m = 0.0;
};
// What the model says of a beam at a depth and an across-track offset; the tangent of its angle is
// across / depth, taken as no steeper than 80 degrees.
BeamSigma ModelSigma(const UncertaintyModel& model, double depth_m, double across_m);

// The UTM zone of a position: 1 to 60, negative in the southern hemisphere. The equator is
// northern.
int UtmZoneOf(double longitude_deg, double latitude_deg);

// The zone of the first ping that can give a sounding in its own zone, 0 when there is none and for
// projected positions. Any other ping tells nothing of where its survey lies: a ship without a fix
// is at 0, 0 as often as not.
int ZoneOfFirstSounding(const PingChunk& chunk);

// Places the beams of a line in one UTM zone on WGS84. One thread at a time: it owns its PROJ
// transformation.
class Georeferencer {
 public:
  // Throws ExSGClientBase when PROJ refuses the zone (0 or beyond 60).
  Georeferencer(int utm_zone, const UncertaintyModel& model);
  ~Georeferencer();

  // Appends the usable beams of `chunk` to `out`. Adds flagged, refused and offered to `account`:
  // positions more than kMostDegreesFromMeridian from the zone's central meridian are refused. What
  // gives a sounding in no zone is refused for that reason in every zone.
  void Place(const PingChunk& chunk, Soundings& out, BeamAccount& account);

  static constexpr double kMostDegreesFromMeridian = 9.0;  // the zone and both its neighbours

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace quarro::survey
