// The seafloors' depths at places worked out by hand.
#include "simulate/seafloor.h"

#include <algorithm>
#include <cmath>

#include <gtest/gtest.h>

#include "simulate/obstacles.h"

namespace quarro::simulate {
namespace {

constexpr survey::GridPoint kOrigin{500000.0, 6000000.0};

survey::GridPoint At(double east_m, double north_m) {
  return {kOrigin.easting_m + east_m, kOrigin.northing_m + north_m};
}

SurveyOptions Of(const char* seafloor, double depth_m) {
  SurveyOptions options;
  options.seafloor = seafloor;
  options.depth_m = depth_m;
  return options;
}

TEST(Seafloor, SlopeDeepensTowardsItsAzimuthAndNeverRisesAboveTheWater) {
  SurveyOptions options;
  options.depth_m = 20.0;
  options.slope = 0.1;
  options.slope_azimuth_deg = 90.0;
  const auto slope = MakeSeafloor(options, {500000.0, 6000000.0});
  EXPECT_DOUBLE_EQ(slope->DepthAt({500000.0, 6000000.0}), 20.0);
  EXPECT_NEAR(slope->DepthAt({500100.0, 6000700.0}), 30.0, 1e-9);
  EXPECT_EQ(slope->DepthAt({499000.0, 6000000.0}), Seafloor::kShallowest_m);
  options.seafloor = "cheese";
  EXPECT_THROW(MakeSeafloor(options, {}), SimulationError);
}

TEST(Seafloor, WavesRiseToTheirAmplitudeAQuarterOfTheirLengthAhead) {
  SurveyOptions options = Of("waves", 20.0);
  options.wave_amplitude_m = 1.5;
  options.wave_length_m = 40.0;
  options.wave_azimuth_deg = 90.0;
  const auto waves = MakeSeafloor(options, kOrigin);
  EXPECT_DOUBLE_EQ(waves->DepthAt(At(0.0, 0.0)), 20.0);
  EXPECT_NEAR(waves->DepthAt(At(10.0, 0.0)), 18.5, 1e-9);
  EXPECT_NEAR(waves->DepthAt(At(10.0, 777.0)), 18.5, 1e-9);  // along the crest
  EXPECT_NEAR(waves->DepthAt(At(20.0, 0.0)), 20.0, 1e-9);
  EXPECT_NEAR(waves->DepthAt(At(30.0, 0.0)), 21.5, 1e-9);
  EXPECT_NEAR(waves->DepthAt(At(40.0 / 12.0, 0.0)), 20.0 - 1.5 * 0.5, 1e-9);  // sin 30 degrees
  options.wave_azimuth_deg = 180.0;
  EXPECT_NEAR(MakeSeafloor(options, kOrigin)->DepthAt(At(5.0, -10.0)), 18.5, 1e-9);
}

TEST(Seafloor, ScarpFallsItsHeightOverItsWidth) {
  SurveyOptions options = Of("scarp", 30.0);
  options.scarp_height_m = 5.0;
  options.scarp_width_m = 2.0;
  options.slope_azimuth_deg = 0.0;
  const auto scarp = MakeSeafloor(options, kOrigin);
  EXPECT_EQ(scarp->DepthAt(At(3.0, -1.0)), 27.5);
  EXPECT_EQ(scarp->DepthAt(At(3.0, -500.0)), 27.5);
  EXPECT_EQ(scarp->DepthAt(At(3.0, 0.0)), 30.0);
  // A quarter of the way: 3/16 - 2/64 = 0.15625 of the height has fallen.
  EXPECT_NEAR(scarp->DepthAt(At(3.0, -0.5)), 27.5 + 5.0 * 0.15625, 1e-9);
  EXPECT_EQ(scarp->DepthAt(At(3.0, 1.0)), 32.5);
  EXPECT_EQ(scarp->DepthAt(At(3.0, 500.0)), 32.5);
}

TEST(Seafloor, CanyonFallsFromTheShelfToItsFloor) {
  SurveyOptions options = Of("canyon", 100.0);
  options.slope_azimuth_deg = 90.0;
  const auto canyon = MakeSeafloor(options, kOrigin);
  EXPECT_EQ(canyon->DepthAt(At(-3000.0, 9.0)), 100.0);
  EXPECT_EQ(canyon->DepthAt(At(0.0, 9.0)), 100.0);
  EXPECT_NEAR(canyon->DepthAt(At(2500.0, 9.0)), 100.0 + 3900.0 * 0.15625, 1e-6);
  EXPECT_NEAR(canyon->DepthAt(At(5000.0, 9.0)), 2050.0, 1e-6);
  EXPECT_EQ(canyon->DepthAt(At(10000.0, 9.0)), 4000.0);
  EXPECT_EQ(canyon->DepthAt(At(15000.0, 9.0)), 4000.0);
}

TEST(Seafloor, WreckHasItsHeightAlongItsLengthAndNoneBesideIt) {
  SurveyOptions options = Of("rocks", 20.0);
  options.rock_count = 0;
  const auto wreck = MakeSeafloor(options, kOrigin);  // 3 m high, 4 m wide, 30 m long, northwards
  EXPECT_EQ(wreck->DepthAt(At(0.0, 0.0)), 17.0);
  EXPECT_EQ(wreck->DepthAt(At(0.0, 13.0)), 17.0);
  EXPECT_NEAR(wreck->DepthAt(At(1.0, 5.0)), 20.0 - 3.0 * 15.0 / 16.0, 1e-9);
  EXPECT_NEAR(wreck->DepthAt(At(-1.0, 5.0)), 20.0 - 3.0 * 15.0 / 16.0, 1e-9);
  EXPECT_NEAR(wreck->DepthAt(At(0.0, 14.0)), 20.0 - 3.0 * 15.0 / 16.0, 1e-9);
  EXPECT_EQ(wreck->DepthAt(At(2.0, 5.0)), 20.0);
  EXPECT_EQ(wreck->DepthAt(At(0.0, -15.0)), 20.0);
}

TEST(Seafloor, WreckLiesWhereItIsPutAndTurned) {
  SurveyOptions options = Of("rocks", 20.0);
  options.rock_count = 0;
  options.wreck_east_m = 100.0;
  options.wreck_north_m = -50.0;
  options.wreck_azimuth_deg = 90.0;
  const auto wreck = MakeSeafloor(options, kOrigin);
  EXPECT_EQ(wreck->DepthAt(At(0.0, 0.0)), 20.0);
  EXPECT_EQ(wreck->DepthAt(At(100.0, -50.0)), 17.0);
  EXPECT_NEAR(wreck->DepthAt(At(112.0, -50.0)), 17.0, 1e-9);
  EXPECT_EQ(wreck->DepthAt(At(100.0, -38.0)), 20.0);
  options.wreck_height_m = 0.0;
  EXPECT_EQ(MakeSeafloor(options, kOrigin)->DepthAt(At(100.0, -50.0)), 20.0);
}

TEST(Rocks, StandWhereTheSeedPutsThemWithinTheLines) {
  SurveyOptions options = Of("rocks", 20.0);
  options.heading_deg = 90.0;
  options.line_length_m = 500.0;
  options.lines = 4;
  options.line_spacing_m = 50.0;
  options.rock_height_m = 1.2;
  options.rock_width_m = 3.0;
  const Rocks rocks(options, Area::OfLines(options, kOrigin));
  ASSERT_EQ(rocks.middles().size(), 50U);
  double farthest_east_m = 0.0;
  for (const survey::GridPoint& middle : rocks.middles()) {
    EXPECT_LE(std::abs(middle.easting_m - kOrigin.easting_m), 250.0);
    EXPECT_LE(std::abs(middle.northing_m - kOrigin.northing_m), 100.0);
    farthest_east_m = std::max(farthest_east_m, std::abs(middle.easting_m - kOrigin.easting_m));
    EXPECT_EQ(rocks.HeightAt(middle), 1.2);
  }
  EXPECT_GT(farthest_east_m, 125.0);
  options.seed = 2;
  const Rocks others(options, Area::OfLines(options, kOrigin));
  EXPECT_NE(others.middles()[0].easting_m, rocks.middles()[0].easting_m);
}

TEST(Rocks, HeightIsThatOfTheNearestAmongAllOfThem) {
  SurveyOptions options = Of("rocks", 20.0);
  options.line_length_m = 60.0;
  options.lines = 1;
  options.line_spacing_m = 60.0;
  options.rock_count = 40;
  options.rock_height_m = 1.0;
  options.rock_width_m = 6.0;
  const Rocks rocks(options, Area::OfLines(options, kOrigin));
  const auto nearest_m = [&](const survey::GridPoint& at) {
    double least = 1e9;
    for (const survey::GridPoint& middle : rocks.middles()) {
      least = std::min(
          least, std::hypot(at.easting_m - middle.easting_m, at.northing_m - middle.northing_m));
    }
    return least;
  };
  int on_rocks = 0;
  for (double east_m = -60.0; east_m < 60.0; east_m += 0.9) {
    for (double north_m = -60.0; north_m < 60.0; north_m += 0.9) {
      const double part = std::min(nearest_m(At(east_m, north_m)) / 3.0, 1.0);
      const double expected_m = 1.0 - std::pow(part, 4.0);
      ASSERT_NEAR(rocks.HeightAt(At(east_m, north_m)), expected_m, 1e-9)
          << east_m << ' ' << north_m;
      on_rocks += expected_m > 0.0 ? 1 : 0;
    }
  }
  EXPECT_GT(on_rocks, 100);
}

TEST(Seafloor, NoneFallsBelowTheDeepestThatTheEngineTakes) {
  SurveyOptions options;
  options.depth_m = 11990.0;
  options.slope = 0.5;
  options.scarp_height_m = 100.0;
  options.wave_amplitude_m = 100.0;
  for (const char* name : {"slope", "scarp", "waves", "mix"}) {
    options.seafloor = name;
    options.wreck_height_m = 0.0;
    const auto seafloor = MakeSeafloor(options, kOrigin);
    double deepest_m = 0.0;
    for (double way_m = -500.0; way_m <= 500.0; way_m += 5.0) {
      const double depth_m = seafloor->DepthAt(At(way_m, way_m));
      EXPECT_LE(depth_m, 12000.0) << name << ' ' << way_m;
      deepest_m = std::max(deepest_m, depth_m);
    }
    EXPECT_EQ(deepest_m, 12000.0) << name;
  }
}

TEST(Seafloor, MixFallsIntoTheCanyonAtTheFarEndOfLongLines) {
  SurveyOptions options = Of("mix", 100.0);
  options.heading_deg = 90.0;
  options.line_length_m = 20000.0;  // the shelf's edge lies 8 km east
  options.slope = 0.0;
  options.scarp_height_m = 0.0;
  options.canyon_depth_m = 4000.0;
  options.canyon_width_m = 2000.0;
  const auto mix = MakeSeafloor(options, kOrigin);
  EXPECT_EQ(mix->DepthAt(At(7000.0, 0.0)), 100.0);
  EXPECT_EQ(mix->DepthAt(At(8000.0, 0.0)), 100.0);
  EXPECT_NEAR(mix->DepthAt(At(8500.0, 0.0)), 100.0 + 3900.0 * 0.15625, 1e-6);
  EXPECT_NEAR(mix->DepthAt(At(9000.0, 0.0)), 2050.0, 1e-6);
  EXPECT_NEAR(mix->DepthAt(At(10000.0, 0.0)), 4000.0, 1e-6);
  // What lies deeper already stays.
  options.depth_m = 5000.0;
  EXPECT_EQ(MakeSeafloor(options, kOrigin)->DepthAt(At(10000.0, 0.0)), 5000.0);
}

TEST(Seafloor, MixHasWavesThenTheWreckThenASlopeWithAScarpAndTheCanyonsEdge) {
  SurveyOptions options = Of("mix", 20.0);
  options.heading_deg = 90.0;  // so that the thirds lie at -450..-150..150..450 m east
  options.line_length_m = 900.0;
  options.slope = 0.02;
  options.rock_count = 0;
  options.wave_azimuth_deg = 90.0;
  const auto mix = MakeSeafloor(options, kOrigin);
  EXPECT_NEAR(mix->DepthAt(At(-270.0, 0.0)), 19.0, 1e-9);  // sin(-6.75 * 360 degrees) = 1
  EXPECT_NEAR(mix->DepthAt(At(-250.0, 0.0)), 21.0, 1e-9);
  EXPECT_EQ(mix->DepthAt(At(-150.0, 0.0)), 20.0);
  EXPECT_NEAR(mix->DepthAt(At(0.0, 0.0)), 17.0, 1e-9);
  EXPECT_EQ(mix->DepthAt(At(100.0, 0.0)), 20.0);
  EXPECT_NEAR(mix->DepthAt(At(250.0, 5.0)), 22.0, 1e-9);
  EXPECT_NEAR(mix->DepthAt(At(300.0, 5.0)), 23.0 + 2.5, 1e-9);
  EXPECT_NEAR(mix->DepthAt(At(360.0, 5.0)), 24.2 + 5.0, 1e-9);
  // 40 m beyond the edge of a fall of 10 km.
  const double fallen = 0.004 * 0.004 * (3.0 - 2.0 * 0.004);
  EXPECT_NEAR(mix->DepthAt(At(400.0, 5.0)), 30.0 + (4000.0 - 30.0) * fallen, 1e-9);
}

}  // namespace
}  // namespace quarro::simulate
