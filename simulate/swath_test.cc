// The meeting of beams and seafloor on terrain steeper than the beams.
#include "simulate/swath.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

#include <gtest/gtest.h>

namespace quarro::simulate {
namespace {

constexpr double kScale = 0.9996;  // grid metres a metre of ground, on the central meridian

// Beams every half degree from 70 degrees on port to 70 on starboard.
std::vector<double> Tangents() {
  std::vector<double> tangents;
  for (int half_degree = -140; half_degree <= 140; ++half_degree) {
    tangents.push_back(std::tan(half_degree * 0.5 * std::numbers::pi / 180.0));
  }
  return tangents;
}

// Where the beams meet the options' seafloor, sailing north at the origin on the central meridian,
// where scale and convergence hardly matter; and the worst miss of their angles, in metres across.
struct Struck {
  std::vector<SwathPoint> points;
  double worst_m = 0.0;
};
Struck Strike(SurveyOptions options) {
  options.latitude_deg = 0.0;
  options.longitude_deg = 3.0;
  options.heading_deg = 0.0;
  options.lines = 1;
  options.slope_azimuth_deg = 90.0;
  options.wave_azimuth_deg = 90.0;
  options.rock_count = 0;
  const SurveyPlan plan(options);
  const auto seafloor = MakeSeafloor(options, plan.origin());
  const survey::UtmZone zone(options.Zone());
  const ShipFix fix = plan.Fix(0, (plan.pings_per_line() - 1) / 2, zone);
  const std::vector<double> tangents = Tangents();
  Struck struck{std::vector<SwathPoint>(tangents.size())};
  Swath(*seafloor, fix).Strike(tangents, struck.points);
  for (std::size_t beam = 0; beam < tangents.size(); ++beam) {
    const SwathPoint& at = struck.points[beam];
    const double truth_m = seafloor->DepthAt(
        {fix.frame.origin.easting_m + kScale * at.across_m, fix.frame.origin.northing_m});
    EXPECT_NEAR(at.depth_m, truth_m, 0.02) << beam;
    struck.worst_m = std::max(struck.worst_m, std::abs(at.depth_m * tangents[beam] - at.across_m));
  }
  return struck;
}

TEST(Swath, BeamsMeetAPlaneWhereTheirAnglesCrossIt) {
  SurveyOptions options;
  options.seafloor = "slope";
  options.depth_m = 200.0;
  options.slope = 0.3;
  const Struck struck = Strike(options);
  EXPECT_LT(struck.worst_m, 0.002);
  // At 45 degrees up the slope x = 200 - 0.3 scale x, and down the slope x = 200 + 0.3 scale x; the
  // ship's position is rounded to a centimetre.
  EXPECT_NEAR(struck.points[140 - 90].across_m, -200.0 / (1.0 + 0.3 * kScale), 0.02);
  EXPECT_NEAR(struck.points[140 + 90].across_m, 200.0 / (1.0 - 0.3 * kScale), 0.02);
}

TEST(Swath, BeamsMeetSlopesSteeperThanThemselves) {
  // On the rising side the plane is steeper than every beam beyond 26.6 degrees; on the falling
  // side those never meet it and end at the widest offset.
  SurveyOptions options;
  options.seafloor = "slope";
  options.depth_m = 5000.0;
  options.slope = 2.0;
  const std::vector<double> tangents = Tangents();
  const Struck struck = Strike(options);
  for (std::size_t beam = 0; beam <= 140; ++beam) {
    const double expected_m = 5000.0 * tangents[beam] / (1.0 - 2.0 * kScale * tangents[beam]);
    EXPECT_NEAR(struck.points[beam].across_m, expected_m, 0.05) << beam;
  }
  EXPECT_EQ(struck.points[280].across_m, survey::kWidest_m / 2.0);
}

TEST(Swath, SteepWavesAndCanyonWallsAreMetWithinMillimetres) {
  SurveyOptions waves;
  waves.seafloor = "waves";
  waves.depth_m = 20.0;
  waves.wave_amplitude_m = 2.0;
  waves.wave_length_m = 10.0;  // slopes up to 1.26
  EXPECT_LT(Strike(waves).worst_m, 0.002);
  SurveyOptions canyon;
  canyon.seafloor = "canyon";
  canyon.depth_m = 400.0;
  canyon.canyon_width_m = 3000.0;  // slopes up to 1.8
  EXPECT_LT(Strike(canyon).worst_m, 0.002);
}

TEST(Swath, TheNearSideOfAWreckIsMetAndTheFloorBehindItIsNot) {
  SurveyOptions options;
  options.seafloor = "rocks";
  options.depth_m = 20.0;
  options.wreck_east_m = 20.0;
  options.wreck_length_m = 40.0;
  const Struck struck = Strike(options);
  EXPECT_LT(struck.worst_m, 0.002);
  // The wreck covers 18 to 22 m; the beam that passes over its far edge of 17 m depth at about
  // 21.4 m meets the floor at 20 * 21.4 / 17.
  int on_wreck = 0;
  double shadow_m = 0.0;
  for (std::size_t beam = 141; beam < struck.points.size(); ++beam) {
    const SwathPoint& at = struck.points[beam];
    on_wreck += at.depth_m < 19.9 ? 1 : 0;
    EXPECT_FALSE(at.across_m > 22.05 && at.across_m < 23.0) << at.across_m;
    EXPECT_GE(at.across_m, struck.points[beam - 1].across_m);
    shadow_m = std::max(shadow_m, at.across_m - struck.points[beam - 1].across_m);
  }
  EXPECT_GE(on_wreck, 8);
  EXPECT_GT(shadow_m, 1.5);
}

}  // namespace
}  // namespace quarro::simulate
