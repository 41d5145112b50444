// Bursts, gaps, refraction and offsets: as many and as large as asked for.
#include <cmath>
#include <numbers>
#include <set>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "gridding/survey/test_files.h"
#include "simulate/line_simulator.h"
#include "simulate/survey_writer.h"

namespace quarro::simulate {
namespace {

// Flat, 20 m deep, without noise, so that each depth tells its fault.
SurveyOptions Flat() {
  SurveyOptions options;
  options.seafloor = "flat";
  options.depth_m = 20.0;
  options.lines = 3;
  options.line_length_m = 400.0;
  options.beams = 101;
  options.noise = 0.0;
  return options;
}

// Calls visit(ping, measured, fates) for each ping of a line that is not missing.
template <typename Visit>
void ForEachPing(const SurveyOptions& options, std::uint32_t line, Visit visit) {
  const SurveyPlan plan(options);
  const auto seafloor = MakeSeafloor(options, plan.origin());
  LineSimulator simulator(options, plan, *seafloor);
  for (std::uint32_t ping = 0; ping < plan.pings_per_line(); ++ping) {
    if (simulator.Missing(line, ping)) continue;
    const survey::GsfPing measured = simulator.Measure(line, ping);
    visit(ping, measured, simulator.fates());
  }
}

TEST(Bursts, TakeADozenBeamsOfFourPingsAtSevenTenthsOfTheDepth) {
  SurveyOptions options = Flat();
  options.bursts = 10;
  std::set<std::uint32_t> pings;
  std::uint64_t beams = 0;
  ForEachPing(options, 0, [&](std::uint32_t ping, const survey::GsfPing& measured, auto fates) {
    std::vector<std::uint32_t> hit;
    for (std::uint32_t beam = 0; beam < options.beams; ++beam) {
      const bool burst = fates[beam] == BeamFate::kBurst;
      EXPECT_FLOAT_EQ(measured.depth_m[beam], burst ? 14.0F : 20.0F);
      EXPECT_EQ(measured.beam_flags[beam], 0);
      if (burst) hit.push_back(beam);
    }
    if (hit.empty()) return;
    pings.insert(ping);
    beams += hit.size();
    EXPECT_EQ(hit.size(), 12U);
    EXPECT_EQ(hit.back() - hit.front(), 11U);
    // The middle half of the places for a dozen among 101 beams.
    EXPECT_GE(hit.front(), 22U);
    EXPECT_LE(hit.back(), 78U);
  });
  EXPECT_EQ(pings.size(), 40U);
  EXPECT_EQ(beams, 480U);
}

TEST(Bursts, FollowTheirOptions) {
  SurveyOptions options = Flat();
  options.bursts = 3;
  options.burst_pings = 7;
  options.burst_beams = 5;
  options.burst_depth_fraction = 0.5;
  options.burst_swath_fraction = 0.0;
  int pings = 0;
  ForEachPing(options, 1, [&](std::uint32_t, const survey::GsfPing& measured, auto fates) {
    if (fates[50] != BeamFate::kBurst) return;
    ++pings;
    EXPECT_FLOAT_EQ(measured.depth_m[50], 10.0F);
    for (std::uint32_t beam = 0; beam < options.beams; ++beam) {
      EXPECT_EQ(fates[beam] == BeamFate::kBurst, beam >= 48 && beam <= 52) << beam;
    }
    // On the beam's way: half as deep, half as far out.
    EXPECT_NEAR(measured.across_m[52], 10.0 * std::tan(2.6 * std::numbers::pi / 180.0), 0.002);
  });
  EXPECT_EQ(pings, 21);
}

TEST(Bursts, LieElsewhereOnEachLineAndForEachSeed) {
  SurveyOptions options = Flat();
  options.bursts = 5;
  options.burst_swath_fraction = 1.0;
  const auto places = [&](std::uint32_t line) {
    std::vector<std::pair<std::uint32_t, std::uint32_t>> found;
    ForEachPing(options, line, [&](std::uint32_t ping, const survey::GsfPing&, auto fates) {
      for (std::uint32_t beam = 0; beam < options.beams; ++beam) {
        if (fates[beam] == BeamFate::kBurst) found.emplace_back(ping, beam);
      }
    });
    return found;
  };
  const auto first = places(0);
  EXPECT_EQ(first.size(), 5U * 4U * 12U);
  EXPECT_EQ(places(0), first);
  EXPECT_NE(places(1), first);
  options.spikes = 0.05;
  options.flagged = 0.05;
  EXPECT_EQ(places(0), first);
  options.seed = 2;
  EXPECT_NE(places(0), first);
}

TEST(Fates, TellTheSpikesAndTheFlagsOfThePing) {
  SurveyOptions options = Flat();
  options.spikes = 0.1;
  options.flagged = 0.1;
  std::uint64_t spikes = 0;
  ForEachPing(options, 0, [&](std::uint32_t, const survey::GsfPing& measured, auto fates) {
    for (std::uint32_t beam = 0; beam < options.beams; ++beam) {
      const bool gross = std::abs(measured.depth_m[beam] - 20.0F) > 0.9F;
      EXPECT_EQ(gross, fates[beam] != BeamFate::kGood);
      EXPECT_EQ(measured.beam_flags[beam] == 1, fates[beam] == BeamFate::kFlagged);
      spikes += fates[beam] == BeamFate::kSpike ? 1U : 0U;
    }
  });
  EXPECT_NEAR(static_cast<double>(spikes) / (501.0 * 101.0), 0.1, 0.006);
}

TEST(Refraction, SmilesOnTheChosenLinesWithTheSquareOfTheTangent) {
  SurveyOptions options = Flat();
  options.smile_lines = {2};
  options.smile_fraction = 0.02;
  ForEachPing(options, 1, [&](std::uint32_t, const survey::GsfPing& measured, auto) {
    const double outer = std::tan(65.0 * std::numbers::pi / 180.0);
    const double half_way = std::tan(32.5 * std::numbers::pi / 180.0);
    EXPECT_NEAR(measured.depth_m[0], 20.0 - 0.4, 1e-5);
    EXPECT_NEAR(measured.depth_m[100], 20.0 - 0.4, 1e-5);
    EXPECT_NEAR(measured.depth_m[25], 20.0 - 0.4 * std::pow(half_way / outer, 2.0), 1e-5);
    EXPECT_FLOAT_EQ(measured.depth_m[50], 20.0F);
  });
  for (const std::uint32_t line : {0U, 2U}) {
    ForEachPing(options, line, [&](std::uint32_t, const survey::GsfPing& measured, auto) {
      EXPECT_FLOAT_EQ(measured.depth_m[0], 20.0F);
    });
  }
}

TEST(Offset, MovesAllDepthsOfTheChosenLines) {
  SurveyOptions options = Flat();
  options.offset_lines = {1, 3};
  options.offset_m = -0.3;
  const std::vector<float> expected = {19.7F, 20.0F, 19.7F};
  for (std::uint32_t line = 0; line < 3; ++line) {
    ForEachPing(options, line, [&](std::uint32_t, const survey::GsfPing& measured, auto) {
      for (const float depth_m : measured.depth_m) EXPECT_FLOAT_EQ(depth_m, expected[line]);
    });
  }
}

TEST(Gaps, LeaveOutTheirPingsAndNoOthers) {
  SurveyOptions options = Flat();
  options.gaps = 3;
  options.gap_pings = 25;
  std::vector<std::uint32_t> lengths = {0};
  std::uint32_t expected = 0;
  ForEachPing(options, 0, [&](std::uint32_t ping, const survey::GsfPing&, auto) {
    if (ping != expected) lengths.push_back(ping - expected);
    expected = ping + 1;
  });
  lengths.push_back(501 - expected);
  std::uint32_t missing = 0;
  for (const std::uint32_t length : lengths) {
    EXPECT_EQ(length % 25, 0U);
    missing += length;
  }
  EXPECT_EQ(missing, 75U);

  const survey::ScratchDirectory scratch;
  const SurveySummary summary = WriteSurvey(options, scratch.File(""), 1, false);
  EXPECT_EQ(summary.pings, 3U * (501U - 75U));
  EXPECT_EQ(survey::ReadWhole(scratch.File(LineFileName(2))).account.read, 426U * 101U);
}

TEST(Gaps, ALineKeepsAPing) {
  SurveyOptions options = Flat();
  options.gaps = 501;
  options.gap_pings = 1;
  EXPECT_THROW(SurveyPlan{options}, SimulationError);
  options.gaps = 500;
  int pings = 0;
  ForEachPing(options, 0, [&](auto...) { ++pings; });
  EXPECT_EQ(pings, 1);
}

}  // namespace
}  // namespace quarro::simulate
