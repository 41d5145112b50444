// True depths: where they lie, how they read, and what is refused.
#include "simulate/truth.h"

#include <algorithm>
#include <cmath>
#include <locale>
#include <regex>
#include <string>

#include <gtest/gtest.h>

#include "gridding/survey/georeference.h"
#include "gridding/survey/test_files.h"
#include "simulate/survey_writer.h"

namespace quarro::simulate {
namespace {

using survey::ScratchDirectory;

std::uint64_t WriteTruth(const SurveyOptions& options, const TruthRequest& request) {
  const SurveyPlan plan(options);
  const auto seafloor = MakeSeafloor(options, plan.origin());
  TruthText truth(options, plan, *seafloor, request);
  truth.Write();
  truth.Keep();
  return truth.depths();
}

std::string ErrorOf(const SurveyOptions& options, const TruthRequest& request) {
  try {
    WriteTruth(options, request);
  } catch (const SimulationError& error) {
    return error.what();
  }
  return "no error";
}

TruthRequest AtPositions(const ScratchDirectory& scratch, const std::string& text) {
  TruthRequest request;
  request.positions = scratch.Write("positions.txt", text);
  request.path = scratch.File("truth.xyz");
  return request;
}

TruthRequest OnLattice(const ScratchDirectory& scratch, double spacing_m) {
  TruthRequest request;
  request.path = scratch.File("truth.xyz");
  request.spacing_m = spacing_m;
  return request;
}

// Decimal commas and dotted thousands, as German has them.
class CommaNumbers : public std::numpunct<char> {
  char do_decimal_point() const override { return ','; }
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

TEST(Truth, IsTheSameTextInAnyLocale) {
  const ScratchDirectory scratch;
  SurveyOptions options;
  options.seafloor = "flat";
  options.depth_m = 1234.5;
  const std::locale before =
      std::locale::global(std::locale(std::locale::classic(), new CommaNumbers));
  const std::uint64_t depths = WriteTruth(options, AtPositions(scratch, "500000.25 6000000.5\n"));
  std::locale::global(before);
  EXPECT_EQ(depths, 1U);
  EXPECT_EQ(survey::BytesOf(scratch.File("truth.xyz")), "500000.250 6000000.500 1234.500\n");
}

TEST(Truth, PositionsThatAreNoneAreNamed) {
  const ScratchDirectory scratch;
  const auto error_of = [&](const std::string& second_line) {
    return ErrorOf({}, AtPositions(scratch, "500000 6000000\n" + second_line + "\n"));
  };
  for (const char* text : {"here", "500000", "500000 6000000abc 7", "500000,6000000", "5e5x 6e6"}) {
    EXPECT_NE(error_of(text).find("positions.txt\" line 2 does not begin with an easting"),
              std::string::npos)
        << text << ": " << error_of(text);
  }
  for (const char* text : {"4.0 56.0", "99999 6000000", "900001 6e6", "5e5 -1", "5e5 10000001",
                           "nan 6e6", "5e5 inf"}) {
    EXPECT_NE(error_of(text).find("positions.txt\" line 2 is no position of the survey's UTM zone "
                                  "in metres: the easting must lie between 100000 and 900000, the "
                                  "northing between 0 and 10000000"),
              std::string::npos)
        << text << ": " << error_of(text);
  }
  EXPECT_FALSE(std::filesystem::exists(scratch.File("truth.xyz")));
  EXPECT_FALSE(std::filesystem::exists(scratch.File("truth.xyz.part")));
}

TEST(Truth, PositionsMayBePartedByTabsAndFollowedByMore) {
  const ScratchDirectory scratch;
  SurveyOptions options;
  options.seafloor = "flat";
  EXPECT_EQ(WriteTruth(options, AtPositions(scratch, "\t5e5\t6000000\tx\r\n500001 6000000\r\n")),
            2U);
  EXPECT_EQ(survey::BytesOf(scratch.File("truth.xyz")),
            "500000.000 6000000.000 50.000\n500001.000 6000000.000 50.000\n");
}

TEST(Truth, ASurveyOverTheEquatorHasNorthingsBelowZero) {
  const ScratchDirectory scratch;
  SurveyOptions options;
  options.latitude_deg = 0.0;
  EXPECT_EQ(WriteTruth(options, AtPositions(scratch, "500000 -200\n")), 1U);
}

TEST(Truth, PositionsAreNotOverwrittenByTheirDepths) {
  const ScratchDirectory scratch;
  TruthRequest request = AtPositions(scratch, "500000 6000000\n");
  std::filesystem::create_hard_link(request.positions, request.path);
  request.overwrite = true;
  EXPECT_NE(ErrorOf({}, request).find("--truth and --truth-at are both"), std::string::npos)
      << ErrorOf({}, request);
  EXPECT_EQ(survey::BytesOf(request.positions), "500000 6000000\n");
}

TEST(Truth, AFileThatExistsStaysUntilANewOneIsWhole) {
  const ScratchDirectory scratch;
  TruthRequest request = AtPositions(scratch, "500000 6000000\nhere\n");
  scratch.Write("truth.xyz", "old\n");
  EXPECT_NE(ErrorOf({}, request)
                .find("truth.xyz\" exists already: give another --truth, or "
                      "--overwrite"),
            std::string::npos)
      << ErrorOf({}, request);
  request.overwrite = true;
  EXPECT_NE(ErrorOf({}, request).find("line 2 does not begin"), std::string::npos);
  EXPECT_EQ(survey::BytesOf(request.path), "old\n");
  scratch.Write("positions.txt", "500000 6000000\n");
  EXPECT_EQ(ErrorOf({}, request), "no error");
  EXPECT_NE(survey::BytesOf(request.path), "old\n");
  EXPECT_FALSE(std::filesystem::exists(request.path + ".part"));
}

TEST(Truth, ALinkStaysOneToTheNewFile) {
  const ScratchDirectory scratch;
  TruthRequest request = AtPositions(scratch, "500000 6000000\n");
  const std::string place = scratch.Write("place.xyz", "old\n");
  std::filesystem::create_symlink(place, request.path);
  request.overwrite = true;
  WriteTruth({}, request);
  EXPECT_TRUE(std::filesystem::is_symlink(request.path));
  EXPECT_NE(survey::BytesOf(place), "old\n");
}

TEST(Truth, DevicesAreWrittenInPlace) {
  const ScratchDirectory scratch;
  TruthRequest request = AtPositions(scratch, "500000 6000000\n");
  request.path = "/dev/null";
  EXPECT_EQ(WriteTruth({}, request), 1U);
  EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
  request.path = "/dev/full";
  EXPECT_EQ(ErrorOf({}, request), "\"/dev/full\" cannot be written: No space left on device");
}

TEST(Truth, SpacingsThatGiveNoLatticeAreRefused) {
  const ScratchDirectory scratch;
  const auto error_of = [&](double spacing_m) {
    return ErrorOf({}, OnLattice(scratch, spacing_m));
  };
  for (const double spacing_m : {0.0, -1.0, 0.009, 100001.0, HUGE_VAL, std::nan("")}) {
    EXPECT_NE(error_of(spacing_m).find("it must lie between 0.01 and 100000"), std::string::npos)
        << spacing_m << ": " << error_of(spacing_m);
  }
  const auto has_no_room = [&](double spacing_m) {
    return std::regex_search(error_of(spacing_m),
                             std::regex("--truth-spacing is [0-9]+; the survey of 13..\\.. m by "
                                        "13..\\.. m has no room for a lattice of it"));
  };
  EXPECT_TRUE(has_no_room(50000.0)) << error_of(50000.0);
  EXPECT_TRUE(has_no_room(1500.0)) << error_of(1500.0);
  EXPECT_FALSE(std::filesystem::exists(scratch.File("truth.xyz")));
}

TEST(Truth, ALineWithoutWidthHasTheLatticeAboutIt) {
  const ScratchDirectory scratch;
  SurveyOptions options;
  options.lines = 1;
  options.line_length_m = 95.0;
  options.beams = 1;
  options.noise = 0.0;
  options.heading_deg = 0.0;
  options.longitude_deg = 3.0001;  // 6 m beside a node, where grid and true north agree
  options.latitude_deg = 0.0;
  EXPECT_EQ(WriteTruth(options, OnLattice(scratch, 10.0)), 2U * 11U);
}

TEST(Truth, LatticeRunsFromNorthToSouthWithTheDecimalsOfItsSpacing) {
  const ScratchDirectory scratch;
  SurveyOptions options;
  options.seafloor = "flat";
  options.depth_m = 2.0;
  options.lines = 1;
  options.line_length_m = 4.0;
  options.swath_deg = 60.0;
  for (const auto& [spacing_m, decimals] :
       {std::pair{0.5, 3}, {0.25, 3}, {0.0625, 4}, {0.3333, 4}, {0.0125, 4}, {1.0 / 3.0, 9}}) {
    TruthRequest request = OnLattice(scratch, spacing_m);
    request.overwrite = true;
    const std::uint64_t depths = WriteTruth(options, request);
    std::ifstream file(request.path);
    std::string text;
    double northing_before_m = HUGE_VAL;
    double easting_before_m = HUGE_VAL;
    std::uint64_t lines = 0;
    while (std::getline(file, text)) {
      ++lines;
      EXPECT_EQ(text.find(' ') - text.find('.') - 1, static_cast<std::size_t>(decimals)) << text;
      const double easting_m = std::stod(text);
      const double northing_m = std::stod(text.substr(text.find(' ')));
      if (northing_m == northing_before_m) {
        ASSERT_NEAR(easting_m - easting_before_m, spacing_m, 1.1e-9 + 1e-12 * easting_m) << text;
      } else if (lines > 1) {
        ASSERT_NEAR(northing_before_m - northing_m, spacing_m, 1.1e-9 + 1e-12 * northing_m) << text;
      }
      northing_before_m = northing_m;
      easting_before_m = easting_m;
    }
    EXPECT_EQ(lines, depths);
    EXPECT_GT(lines, 50U);
  }
}

// Where the engine places the soundings of the lines.
Extent Placed(const SurveyOptions& options) {
  const ScratchDirectory scratch;
  WriteSurvey(options, scratch.File(""), 0, false);
  survey::Georeferencer georeferencer(options.Zone(), {});
  survey::BeamAccount account;
  Extent placed;
  for (std::uint32_t line = 0; line < options.lines; ++line) {
    const survey::WholeLine whole = survey::ReadWhole(scratch.File(LineFileName(line)));
    survey::Soundings soundings;
    georeferencer.Place(whole.chunk, soundings, account);
    for (std::size_t i = 0; i < soundings.size(); ++i) {
      placed.Add({soundings.easting_m[i], soundings.northing_m[i]}, 0.0);
    }
  }
  return placed;
}

SurveyOptions RoughSurvey(const char* seafloor) {
  SurveyOptions options;
  options.seafloor = seafloor;
  options.slope = 0.3;
  options.canyon_depth_m = 400.0;
  options.canyon_width_m = 300.0;
  options.wave_amplitude_m = 10.0;
  options.lines = 3;
  options.line_length_m = 300.0;
  options.beams = 64;
  return options;
}

TEST(Truth, LatticeSurroundsAllSoundings) {
  for (const char* seafloor : {"flat", "slope", "waves", "canyon"}) {
    const SurveyOptions options = RoughSurvey(seafloor);
    const Extent placed = Placed(options);
    const ScratchDirectory scratch;
    WriteTruth(options, OnLattice(scratch, 10.0));
    const auto nodes = survey::ReadWhole(scratch.File("truth.xyz")).chunk.pings;
    EXPECT_LE(nodes.front().longitude_deg, placed.west_m) << seafloor;
    EXPECT_GE(nodes.front().latitude_deg, placed.north_m) << seafloor;
    EXPECT_GE(nodes.back().longitude_deg, placed.east_m) << seafloor;
    EXPECT_LE(nodes.back().latitude_deg, placed.south_m) << seafloor;
  }
}

TEST(Truth, ExtentIsThatOfTheSoundingsWithoutNoise) {
  for (const char* seafloor : {"flat", "slope", "waves", "canyon"}) {
    SurveyOptions options = RoughSurvey(seafloor);
    options.noise = 0.0;
    const Extent placed = Placed(options);
    const SurveyPlan plan(options);
    const Extent extent = ExtentOfSoundings(options, plan, *MakeSeafloor(options, plan.origin()));
    EXPECT_NEAR(placed.west_m, extent.west_m, 0.02) << seafloor;
    EXPECT_NEAR(placed.east_m, extent.east_m, 0.02) << seafloor;
    EXPECT_NEAR(placed.south_m, extent.south_m, 0.02) << seafloor;
    EXPECT_NEAR(placed.north_m, extent.north_m, 0.02) << seafloor;
  }
}

}  // namespace
}  // namespace quarro::simulate
