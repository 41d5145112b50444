// Seafloors whose depth is known everywhere.
#include "simulate/seafloor.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace quarro::simulate {
namespace {

class FlatSeafloor : public Seafloor {
 public:
  explicit FlatSeafloor(double depth_m) : depth_m_(depth_m) {}
  double DepthAt(const survey::GridPoint&) const override { return depth_m_; }

 private:
  const double depth_m_;
};

class SlopeSeafloor : public Seafloor {
 public:
  SlopeSeafloor(const SurveyOptions& options, const survey::GridPoint& origin)
      : origin_(origin),
        depth_m_(options.depth_m),
        east_slope_(options.slope * std::sin(Radians(options.slope_azimuth_deg))),
        north_slope_(options.slope * std::cos(Radians(options.slope_azimuth_deg))) {}

  double DepthAt(const survey::GridPoint& at) const override {
    return std::max(kShallowest_m, depth_m_ + east_slope_ * (at.easting_m - origin_.easting_m) +
                                       north_slope_ * (at.northing_m - origin_.northing_m));
  }

 private:
  static double Radians(double degrees) { return degrees * std::numbers::pi / 180.0; }

  const survey::GridPoint origin_;
  const double depth_m_;
  const double east_slope_;
  const double north_slope_;
};

}  // namespace

std::unique_ptr<Seafloor> MakeSeafloor(const SurveyOptions& options,
                                       const survey::GridPoint& origin) {
  if (options.seafloor == "flat") return std::make_unique<FlatSeafloor>(options.depth_m);
  if (options.seafloor == "slope") return std::make_unique<SlopeSeafloor>(options, origin);
  throw SimulationError("--seafloor is \"" + options.seafloor + "\"; it must be flat or slope");
}

}  // namespace quarro::simulate
