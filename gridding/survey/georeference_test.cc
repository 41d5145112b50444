// Placing beams, against PROJ at each beam's own geodesic position; uncertainties; refusals.
#include "gridding/survey/georeference.h"

#include <cmath>
#include <limits>
#include <utility>
#include <vector>

#include <geodesic.h>
#include <gtest/gtest.h>

#include "gridding/survey/utm.h"

namespace quarro::survey {
namespace {

constexpr float kNone = std::numeric_limits<float>::quiet_NaN();

struct Beam {
  float depth_m = 50.0F;
  float across_m = 0.0F;
  float along_m = 0.0F;
  float sigma_v_m = kNone;
  float sigma_h_m = kNone;
  std::uint8_t unusable = 0;
};

void Add(PingChunk& chunk, Ping ping, const std::vector<Beam>& beams) {
  ping.first_beam = static_cast<std::uint32_t>(chunk.beams());
  ping.beam_count = static_cast<std::uint32_t>(beams.size());
  chunk.pings.push_back(ping);
  for (const Beam& beam : beams) {
    chunk.depth_m.push_back(beam.depth_m);
    chunk.across_m.push_back(beam.across_m);
    chunk.along_m.push_back(beam.along_m);
    chunk.sigma_v_m.push_back(beam.sigma_v_m);
    chunk.sigma_h_m.push_back(beam.sigma_h_m);
    chunk.unusable.push_back(beam.unusable);
  }
}

Ping At(double longitude_deg, double latitude_deg, double heading_deg = 0.0) {
  Ping ping;
  ping.longitude_deg = longitude_deg;
  ping.latitude_deg = latitude_deg;
  ping.heading_deg = heading_deg;
  return ping;
}

struct Placed {
  Soundings soundings;
  BeamAccount account;
  std::uint64_t Refused(Refusal reason) const {
    return account.refused[static_cast<std::size_t>(reason)];
  }
};
Placed Place(int zone, const PingChunk& chunk, const UncertaintyModel& model = {}) {
  Placed placed;
  Georeferencer(zone, model).Place(chunk, placed.soundings, placed.account);
  return placed;
}

// Where PROJ projects the point that lies along and across of the ship on the ellipsoid.
GridPoint Geodesic(const UtmZone& zone, const Ping& ping, double along_m, double across_m) {
  geod_geodesic wgs84;
  geod_init(&wgs84, 6378137.0, 1.0 / 298.257223563);
  const double azimuth_deg =
      ping.heading_deg + std::atan2(across_m, along_m) * 180.0 / std::acos(-1.0);
  double latitude_deg = 0.0;
  double longitude_deg = 0.0;
  geod_direct(&wgs84, ping.latitude_deg, ping.longitude_deg, azimuth_deg,
              std::hypot(along_m, across_m), &latitude_deg, &longitude_deg, nullptr);
  GridPoint point;
  EXPECT_TRUE(zone.Forward(longitude_deg, latitude_deg, point));
  return point;
}

// The greatest distance from the geodesic position over the globe's zones and headings.
double WorstError(float offset_m) {
  double worst_m = 0.0;
  for (const int zone_number : {1, 20, 31, 60}) {
    for (const double latitude_deg : {-78.0, -45.0, -10.0, 0.0, 23.0, 56.0, 82.0}) {
      const int signed_zone = latitude_deg < 0.0 ? -zone_number : zone_number;
      const UtmZone zone(signed_zone);
      for (const double from_meridian_deg : {-8.9, -3.0, 0.0, 1.5, 6.0, 8.9}) {
        const double longitude_deg =
            std::remainder(zone.central_meridian_deg() + from_meridian_deg, 360.0);
        for (const double heading_deg : {0.0, 77.0, 180.0, 301.0}) {
          PingChunk chunk;
          const Ping ping = At(longitude_deg, latitude_deg, heading_deg);
          const std::vector<Beam> beams = {{.across_m = offset_m},
                                           {.across_m = -offset_m, .along_m = offset_m / 10},
                                           {.along_m = offset_m}};
          Add(chunk, ping, beams);
          const Placed placed = Place(signed_zone, chunk);
          for (std::size_t i = 0; i < beams.size(); ++i) {
            const GridPoint truth = Geodesic(zone, ping, beams[i].along_m, beams[i].across_m);
            worst_m =
                std::max(worst_m, std::hypot(placed.soundings.easting_m.at(i) - truth.easting_m,
                                             placed.soundings.northing_m.at(i) - truth.northing_m));
          }
        }
      }
    }
  }
  return worst_m;
}

TEST(Georeferencer, BeamsLieWithinOnePercentOfTheirUncertaintyOfTheirGeodesicPosition) {
  // Offsets of 5 km come from 2 km of water at least; 1 sigma of 2 % of it is 40 m.
  const double worst_5km = WorstError(5000.0F);
  const double worst_200m = WorstError(200.0F);
  EXPECT_LT(worst_5km, 0.01 * 40.0);
  EXPECT_LT(worst_5km, 0.003);
  EXPECT_LT(worst_200m, 0.00001);
}

TEST(Georeferencer, FarOffsetsKeepTheStatedAccuracy) {
  EXPECT_LT(WorstError(10000.0F), 0.015);
  EXPECT_LT(WorstError(50000.0F), 1.0);
}

TEST(Georeferencer, StarboardIsRightOfTheHeading) {
  PingChunk chunk;
  Add(chunk, At(3.0, 0.0, 90.0), {{.across_m = 100.0F}, {.along_m = 100.0F}});
  const Placed placed = Place(31, chunk);
  EXPECT_NEAR(placed.soundings.easting_m[0], 500000.0, 1e-3);
  EXPECT_NEAR(placed.soundings.northing_m[0], -99.96, 1e-3);
  EXPECT_NEAR(placed.soundings.easting_m[1], 500099.96, 1e-3);
  EXPECT_NEAR(placed.soundings.northing_m[1], 0.0, 1e-3);
}

TEST(Georeferencer, ZonesMeetAtTheAntimeridian) {
  PingChunk chunk;
  Add(chunk, At(179.9, 10.0), {{}});
  Add(chunk, At(-179.9, 10.0), {{}});
  for (const int zone : {1, 60}) {
    const Placed placed = Place(zone, chunk);
    ASSERT_EQ(placed.soundings.size(), 2U) << zone;
    EXPECT_NEAR(placed.soundings.easting_m[1] - placed.soundings.easting_m[0], 21900.0, 100.0);
  }
}

TEST(Georeferencer, PositionsBeyondTheNeighbouringZonesAreRefused) {
  PingChunk chunk;
  Add(chunk, At(12.0, 50.0), {{}, {.unusable = 1}});
  Add(chunk, At(12.1, 50.0), {{}, {}, {.unusable = 1}});
  Add(chunk, At(-177.0, 50.0), {{}});
  const Placed placed = Place(31, chunk);
  EXPECT_EQ(placed.account.offered, 1U);
  EXPECT_EQ(placed.account.flagged, 2U);
  EXPECT_EQ(placed.Refused(Refusal::kZone), 3U);
}

TEST(Georeferencer, OnlyPossibleValuesGiveSoundings) {
  constexpr float kInfinity = std::numeric_limits<float>::infinity();
  PingChunk chunk;
  Add(chunk, At(3.0, 50.0),
      {{.depth_m = kNone},
       {.depth_m = kInfinity},
       {.depth_m = 0.0F},
       {.depth_m = 12001.0F},
       {.across_m = kNone},
       {.along_m = -kInfinity},
       {.across_m = 50001.0F},
       {.depth_m = -2.5F},
       {.depth_m = 12000.0F}});
  const Placed placed = Place(31, chunk);
  EXPECT_EQ(placed.Refused(Refusal::kNotFinite), 7U);
  EXPECT_EQ(placed.soundings.depth_m, (std::vector<float>{-2.5F, 12000.0F}));
}

TEST(Georeferencer, ThePolesAreProjectedOrRefusedButNeverNotANumber) {
  for (const double latitude_deg : {-90.0, 90.0, 89.99999}) {
    PingChunk chunk;
    Add(chunk, At(3.0, latitude_deg, 45.0), {{.across_m = 10.0F}});
    const Placed placed = Place(latitude_deg < 0.0 ? -31 : 31, chunk);
    EXPECT_EQ(placed.account.offered + placed.account.Refused(), 1U);
    for (const double northing_m : placed.soundings.northing_m) {
      EXPECT_TRUE(std::isfinite(northing_m));
    }
  }
}

TEST(Georeferencer, ProjectedChunksKeepTheirPositionsToTheBit) {
  PingChunk chunk;
  chunk.projected = true;
  Add(chunk, At(412345.678, 6201234.567), {{}});
  Add(chunk, At(std::numeric_limits<double>::quiet_NaN(), 0.0), {{}});
  Add(chunk, At(1e12, 0.0), {{}});
  const Placed placed = Place(31, chunk);
  ASSERT_EQ(placed.soundings.size(), 1U);
  EXPECT_EQ(placed.soundings.easting_m[0], 412345.678);
  EXPECT_EQ(placed.soundings.northing_m[0], 6201234.567);
  EXPECT_EQ(placed.Refused(Refusal::kNotFinite), 1U);
  EXPECT_EQ(placed.Refused(Refusal::kPosition), 1U);
}

TEST(Georeferencer, TheModelServesBeamsWithoutErrorsOfTheirOwn) {
  PingChunk chunk;
  Add(chunk, At(3.0, 50.0),
      {{.depth_m = 100.0F, .across_m = 100.0F},
       {.depth_m = 100.0F, .across_m = 100.0F, .sigma_v_m = 0.3F, .sigma_h_m = 0.7F},
       {.depth_m = 100.0F, .sigma_v_m = 0.001F, .sigma_h_m = 0.001F},
       {.depth_m = 100.0F, .sigma_v_m = 0.0F, .sigma_h_m = -1.0F}});
  const Placed placed = Place(31, chunk);
  const double nadir_v_m = std::sqrt(0.13 * 0.13 + 0.4 * 0.4);
  const double nadir_h_m = std::sqrt(1.0 + 2.0 * 2.0);
  const Soundings& soundings = placed.soundings;
  EXPECT_FLOAT_EQ(soundings.sigma_v_m[0], static_cast<float>(2.0 * nadir_v_m));
  EXPECT_FLOAT_EQ(soundings.sigma_h_m[0], static_cast<float>(2.0 * nadir_h_m));
  EXPECT_FLOAT_EQ(soundings.sigma_v_m[1], 0.3F);
  EXPECT_FLOAT_EQ(soundings.sigma_h_m[1], 0.7F);
  EXPECT_FLOAT_EQ(soundings.sigma_v_m[2], 0.02F);
  EXPECT_FLOAT_EQ(soundings.sigma_h_m[2], 0.05F);
  EXPECT_FLOAT_EQ(soundings.sigma_v_m[3], static_cast<float>(nadir_v_m));
  EXPECT_FLOAT_EQ(soundings.sigma_h_m[3], static_cast<float>(nadir_h_m));
}

TEST(UncertaintyModel, GrowthStopsAtSteepAngles) {
  const UncertaintyModel model;
  const BeamSigma steep = ModelSigma(model, 1.0, 100.0);
  EXPECT_DOUBLE_EQ(steep.vertical_m, 33.0 * std::hypot(0.13, 0.004));
  EXPECT_DOUBLE_EQ(ModelSigma(model, -1.0, -100.0).vertical_m, steep.vertical_m);
  EXPECT_TRUE(std::isfinite(ModelSigma(model, 0.0, 1.0).horizontal_m));
}

TEST(UncertaintyModel, IsReadFromItsSectionWithItsRanges) {
  MParams params;
  EXPECT_EQ(ReadUncertaintyModel(params).vertical_fixed_m, 0.13);
  params.Set("Uncertainty", "VerticalFixed", "0.25");
  params.Set("Uncertainty", "VerticalProportional", "0.01");
  params.Set("Uncertainty", "HorizontalFixed", "2");
  params.Set("Uncertainty", "HorizontalProportional", "0.03");
  params.Set("Uncertainty", "AngleGrowth", "0");
  params.Set("Uncertainty", "LeastVertical", "0.04");
  params.Set("Uncertainty", "LeastHorizontal", "0.5");
  const UncertaintyModel model = ReadUncertaintyModel(params);
  EXPECT_EQ(model.vertical_fixed_m, 0.25);
  EXPECT_EQ(model.vertical_proportional, 0.01);
  EXPECT_EQ(model.horizontal_fixed_m, 2.0);
  EXPECT_EQ(model.horizontal_proportional, 0.03);
  EXPECT_EQ(model.angle_growth, 0.0);
  EXPECT_EQ(model.least_vertical_m, 0.04);
  EXPECT_EQ(model.least_horizontal_m, 0.5);
  params.Set("Uncertainty", "LeastVertical", "0");
  EXPECT_THROW(ReadUncertaintyModel(params), ExSGClientBase);
}

TEST(UtmZoneOf, ZonesAreSixDegreesWideFromTheAntimeridian) {
  EXPECT_EQ(UtmZoneOf(-180.0, 10.0), 1);
  EXPECT_EQ(UtmZoneOf(180.0, 10.0), 1);
  EXPECT_EQ(UtmZoneOf(179.999, 10.0), 60);
  EXPECT_EQ(UtmZoneOf(-64.597, 17.847), 20);
  EXPECT_EQ(UtmZoneOf(-0.001, 0.0), 30);
  EXPECT_EQ(UtmZoneOf(0.0, -0.001), -31);
  EXPECT_EQ(UtmZoneOf(6.0, 60.0), 32);
}

TEST(Georeferencer, BeamsPossibleInNoZoneAreNotRefusedForTheZone) {
  PingChunk chunk;
  Add(chunk, At(0.0, 0.0), {{}, {.depth_m = 0.0F}, {.across_m = kNone}, {.unusable = 1}});
  const Placed placed = Place(19, chunk);
  EXPECT_EQ(placed.account.flagged, 1U);
  EXPECT_EQ(placed.Refused(Refusal::kZone), 1U);
  EXPECT_EQ(placed.Refused(Refusal::kNotFinite), 2U);
  EXPECT_EQ(placed.account.offered, 0U);
}

TEST(ZoneOfFirstSounding, PingsThatGiveNoneDoNotDecide) {
  Ping incomplete = At(0.0, 0.0);
  incomplete.incomplete = true;
  const Ping somewhere = At(0.0, 0.0);
  const std::vector<std::pair<Ping, std::vector<Beam>>> without = {
      {somewhere, {}},
      {somewhere, {{.unusable = 1}, {.unusable = 1}}},
      {somewhere, {{.depth_m = 0.0F}}},
      {somewhere, {{.depth_m = kNone}}},
      {somewhere, {{.depth_m = 2.0F * kDeepest_m}}},
      {somewhere, {{.across_m = 2.0F * kWidest_m}}},
      {somewhere, {{.along_m = kNone}}},
      {somewhere, {{.depth_m = 0.0F}, {.unusable = 1}}},
      {incomplete, {{}}},
      {At(0.0, 0.0, 655.35), {{}}},
      {At(0.0, 91.0), {{}}},
      {At(-181.0, 0.0), {{}}},
      {At(std::numeric_limits<double>::quiet_NaN(), 0.0), {{}}},
  };
  PingChunk all;
  for (std::size_t i = 0; i < without.size(); ++i) {
    PingChunk chunk;
    Add(chunk, without[i].first, without[i].second);
    Add(all, without[i].first, without[i].second);
    EXPECT_EQ(ZoneOfFirstSounding(chunk), 0) << i;
    // No zone takes what decides none: whatever it is placed in, it gives nothing.
    for (const int zone : {1, 31}) EXPECT_EQ(Place(zone, chunk).soundings.size(), 0U) << i;
    EXPECT_EQ(Place(1, chunk).Refused(Refusal::kZone), 0U) << i;
  }
  Add(all, At(-70.0, 42.0), {{.depth_m = 0.0F}, {}});
  Add(all, At(100.0, 10.0), {{}});
  EXPECT_EQ(ZoneOfFirstSounding(all), 19);
  all.projected = true;
  EXPECT_EQ(ZoneOfFirstSounding(all), 0);
}

TEST(Georeferencer, ImpossibleZonesAreRefused) {
  for (const int zone : {0, 61, -61, std::numeric_limits<int>::min()}) {
    EXPECT_THROW(Georeferencer(zone, {}), ExSGClientBase) << zone;
  }
}

}  // namespace
}  // namespace quarro::survey
