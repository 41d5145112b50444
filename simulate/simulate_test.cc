// The simulator: the same bytes for the same options, errors as told, the seafloor as truth.
#include <cmath>
#include <map>

#include <gtest/gtest.h>

#include "gridding/survey/georeference.h"
#include "gridding/survey/test_files.h"
#include "simulate/random.h"
#include "simulate/seafloor.h"
#include "simulate/survey_plan.h"
#include "simulate/survey_writer.h"
#include "simulate/test_survey.h"

namespace quarro::simulate {
namespace {

using survey::ScratchDirectory;

// The lines' bytes by file name.
std::map<std::string, std::string> Written(const SurveyOptions& options, unsigned threads) {
  const ScratchDirectory scratch;
  WriteSurvey(options, scratch.File("lines"), threads, false);
  std::map<std::string, std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator(scratch.File("lines"))) {
    files[entry.path().filename().string()] = survey::BytesOf(entry.path().string());
  }
  return files;
}

TEST(Random, NormalQuantileInvertsTheDistribution) {
  const auto below = [](double x) { return 0.5 * std::erfc(-x / std::sqrt(2.0)); };
  for (const double p : {1e-300, 1e-20, 1e-12, 1e-6, 0.01, 0.074, 0.076, 0.3, 0.5, 0.7}) {
    EXPECT_NEAR(below(NormalQuantile(p)) / p, 1.0, 1e-12) << p;
    if (p > 1e-10) {
      EXPECT_NEAR(NormalQuantile(1.0 - p), -NormalQuantile(p), 1e-5) << p;
    }
  }
  EXPECT_DOUBLE_EQ(NormalQuantile(0.975), 1.959963984540054);
  EXPECT_EQ(NormalQuantile(0.5), 0.0);
}

TEST(Random, NumbersOfNeighboursAreIndependent) {
  // Each pair of keys that differ in one part gives numbers without correlation.
  constexpr int kCount = 100000;
  const auto correlation = [](const auto& first, const auto& second) {
    double sum = 0.0;
    for (int i = 0; i < kCount; ++i) sum += first(i) * second(i);
    return sum / kCount;
  };
  const auto normal = [](std::uint64_t seed, std::uint64_t line, std::uint64_t ping,
                         Purpose purpose) {
    return [random = PingRandom(seed, line, ping), purpose](int beam) {
      return random.Normal(static_cast<std::uint64_t>(beam), purpose);
    };
  };
  const auto base = normal(1, 2, 3, Purpose::kDepth);
  const double four_sigma = 4.0 / std::sqrt(static_cast<double>(kCount));
  EXPECT_NEAR(correlation(base, base), 1.0, 1.5 * four_sigma);
  EXPECT_NEAR(correlation(base, normal(2, 2, 3, Purpose::kDepth)), 0.0, four_sigma);
  EXPECT_NEAR(correlation(base, normal(1, 3, 3, Purpose::kDepth)), 0.0, four_sigma);
  EXPECT_NEAR(correlation(base, normal(1, 2, 4, Purpose::kDepth)), 0.0, four_sigma);
  EXPECT_NEAR(correlation(base, normal(1, 2, 3, Purpose::kAcross)), 0.0, four_sigma);
  EXPECT_NEAR(correlation(base, [&](int beam) { return base(beam + 1); }), 0.0, four_sigma);
}

TEST(Survey, TheFilesAreTheSameForAnyNumberOfThreads) {
  SurveyOptions options = SmallSurvey();
  options.lines = 5;
  options.seafloor = "mix";
  options.spikes = 0.01;
  options.flagged = 0.02;
  options.bursts = 2;
  options.gaps = 2;
  options.gap_pings = 5;
  options.smile_lines = {1, 4};
  options.offset_lines = {2};
  const auto one = Written(options, 1);
  ASSERT_EQ(one.size(), 5U);
  EXPECT_GT(one.at("line_005.gsf").size(), 64U * 100U);
  EXPECT_EQ(Written(options, 2), one);
  EXPECT_EQ(Written(options, 7), one);
  options.seed = 2;
  EXPECT_NE(Written(options, 1), one);
}

TEST(Survey, MoreLinesLeaveTheNoiseOfTheFirstAsItWas) {
  SurveyOptions options = SmallSurvey();
  options.seafloor = "flat";
  const auto depths = [&](std::uint32_t lines) {
    options.lines = lines;
    const ScratchDirectory scratch;
    WriteSurvey(options, scratch.File(""), 1, false);
    return survey::ReadWhole(scratch.File("line_001.gsf")).chunk.depth_m;
  };
  EXPECT_EQ(depths(1), depths(4));
}

// Errors of the soundings of a survey as the engine places them, in their own sigmas.
struct Normalised {
  std::vector<double> depth;
  survey::BeamAccount account;
};
Normalised ErrorsOf(const SurveyOptions& options) {
  const ScratchDirectory scratch;
  WriteSurvey(options, scratch.File(""), 0, false);
  const SurveyPlan plan(options);
  const auto seafloor = MakeSeafloor(options, plan.origin());
  survey::Georeferencer georeferencer(options.Zone(), {});
  Normalised errors;
  for (std::uint32_t i = 0; i < options.lines; ++i) {
    const survey::WholeLine line = survey::ReadWhole(scratch.File(LineFileName(i)));
    EXPECT_EQ(line.remark, "");
    survey::Soundings soundings;
    georeferencer.Place(line.chunk, soundings, errors.account);
    errors.account.read += line.account.read;
    for (std::size_t k = 0; k < soundings.size(); ++k) {
      const double truth = seafloor->DepthAt({soundings.easting_m[k], soundings.northing_m[k]});
      errors.depth.push_back((soundings.depth_m[k] - truth) / soundings.sigma_v_m[k]);
    }
  }
  return errors;
}

double Mean(const std::vector<double>& values) {
  double sum = 0.0;
  for (const double value : values) sum += value;
  return sum / static_cast<double>(values.size());
}
double Variance(const std::vector<double>& values) {
  const double mean = Mean(values);
  double sum = 0.0;
  for (const double value : values) sum += (value - mean) * (value - mean);
  return sum / static_cast<double>(values.size() - 1);
}

TEST(Survey, WithoutNoiseTheSoundingsLieOnTheSeafloor) {
  // Millimetres of the depth's step, and a centimetre of the offsets' on the slope.
  for (const auto& [latitude_deg, longitude_deg] :
       {std::pair{56.0, 4.0}, {-33.9, 151.3}, {0.0, 179.999}, {69.0, -17.9}}) {
    SurveyOptions options = SmallSurvey();
    options.latitude_deg = latitude_deg;
    options.longitude_deg = longitude_deg;
    options.depth_m = 500.0;
    options.slope = 0.3;
    options.noise = 0.0;
    const Normalised errors = ErrorsOf(options);
    EXPECT_EQ(errors.account.offered, 3U * 126U * 64U);
    double worst = 0.0;
    for (const double error : errors.depth) worst = std::max(worst, std::abs(error));
    EXPECT_LT(worst, 0.004 / 2.0);  // sigma is 2 m at nadir
  }
}

TEST(Survey, DepthErrorsAreNormalWithTheSigmaThatTheFileTells) {
  SurveyOptions options = SmallSurvey();
  options.seafloor = "flat";
  options.line_length_m = 400.0;
  options.beams = 128;
  const Normalised errors = ErrorsOf(options);
  const auto count = static_cast<double>(errors.depth.size());
  ASSERT_EQ(errors.depth.size(), 3U * 501U * 128U);
  EXPECT_NEAR(Mean(errors.depth), 0.0, 4.0 / std::sqrt(count));
  EXPECT_NEAR(Variance(errors.depth), 1.0, 4.0 * std::sqrt(2.0 / count) + 0.002);
  double within = 0.0;
  for (const double error : errors.depth) within += std::abs(error) <= 1.96 ? 1.0 : 0.0;
  EXPECT_NEAR(within / count, 0.95, 4.0 * std::sqrt(0.95 * 0.05 / count));
}

TEST(Survey, HorizontalErrorsShowOnASlopeAsTheModelTells) {
  SurveyOptions options = SmallSurvey();
  options.line_length_m = 400.0;
  options.depth_m = 300.0;  // so that the slope stays under water
  options.slope = 0.5;
  options.swath_deg = 0.0;  // straight down, so that all beams have the same sigma
  const Normalised errors = ErrorsOf(options);
  // The lines are far closer together than they are long, so that depth hardly changes across them;
  // along them it does, and the sigmas with it.
  const auto count = static_cast<double>(errors.depth.size());
  double expected = 0.0;
  const SurveyPlan plan(options);
  const auto seafloor = MakeSeafloor(options, plan.origin());
  const survey::UtmZone zone(options.Zone());
  for (std::uint32_t line = 0; line < options.lines; ++line) {
    for (std::uint32_t ping = 0; ping < plan.pings_per_line(); ++ping) {
      const double depth_m = seafloor->DepthAt(plan.Fix(line, ping, zone).frame.origin);
      const survey::BeamSigma sigma = survey::ModelSigma(options.uncertainty, depth_m, 0.0);
      const double ratio = options.slope * sigma.horizontal_m / sigma.vertical_m;
      expected += 1.0 + ratio * ratio;
    }
  }
  expected /= static_cast<double>(options.lines * plan.pings_per_line());
  EXPECT_GT(expected, 5.0);
  EXPECT_NEAR(Variance(errors.depth) / expected, 1.0, 6.0 * std::sqrt(2.0 / count) + 0.002);
}

TEST(Survey, OneBeamOnALineWithRefractionHasTheFloorsDepth) {
  SurveyOptions options = SmallSurvey();
  options.seafloor = "flat";
  options.beams = 1;
  options.noise = 0.0;
  options.smile_lines = {1};
  const ScratchDirectory scratch;
  WriteSurvey(options, scratch.File(""), 1, false);
  const auto depths = survey::ReadWhole(scratch.File("line_001.gsf")).chunk.depth_m;
  EXPECT_EQ(depths, std::vector<float>(126, 50.0F));
}

TEST(Survey, NoSoundingIsDeeperThanTheEngineTakes) {
  SurveyOptions options = SmallSurvey();
  options.depth_m = 11900.0;
  options.slope = 2.0;
  options.line_spacing_m = 100.0;
  options.swath_deg = 10.0;
  options.spikes = 0.5;
  const Normalised errors = ErrorsOf(options);
  EXPECT_EQ(errors.account.offered, errors.account.read);
  options.offset_lines = {1};
  options.offset_m = 900.0;
  EXPECT_EQ(ErrorsOf(options).account.offered, errors.account.read);
}

TEST(Survey, TimesEndWhereThoseOfFilesDo) {
  SurveyOptions options;
  options.lines = 300;
  options.line_length_m = 200000.0;
  options.speed_m_s = 0.1;
  options.ping_rate_hz = 1.0;
  try {
    const SurveyPlan plan(options);
    FAIL() << "it lasts past 2038";
  } catch (const SimulationError& error) {
    EXPECT_NE(std::string(error.what())
                  .find("--lines, --line-length and --speed make a survey of 6945 days"),
              std::string::npos)
        << error.what();
  }
  options.lines = 284;  // 284 times 2,000,300 s reach to 2038-01-04
  const SurveyPlan plan(options);
  const ShipFix last = plan.Fix(283, plan.pings_per_line() - 1, survey::UtmZone(31));
  EXPECT_EQ(last.time_ns / 1'000'000'000, 1577836800 + 283 * 2000300 + 2000000);
}

TEST(Survey, SpikesAndFlagsAreThePartsAskedFor) {
  SurveyOptions options = SmallSurvey();
  options.seafloor = "flat";
  options.line_length_m = 400.0;
  options.beams = 128;
  options.spikes = 0.03;
  options.flagged = 0.10;
  const Normalised errors = ErrorsOf(options);
  const auto read = static_cast<double>(errors.account.read);
  EXPECT_NEAR(static_cast<double>(errors.account.flagged) / read, 0.10,
              4.0 * std::sqrt(0.10 * 0.90 / read));
  double gross = 0.0;
  for (const double error : errors.depth) gross += std::abs(error) > 6.0 ? 1.0 : 0.0;
  EXPECT_NEAR(gross / read, 0.03, 4.0 * std::sqrt(0.03 * 0.97 / read));
}

TEST(Survey, NeighbouringLinesRunAgainstEachOtherAtTheirSpacing) {
  SurveyOptions options = SmallSurvey();
  options.heading_deg = 90.0;
  options.line_spacing_m = 75.0;
  options.latitude_deg = 0.0;
  options.longitude_deg = 3.0;  // the central meridian, where grid and true north agree
  const SurveyPlan plan(options);
  const survey::UtmZone zone(31);
  const ShipFix first = plan.Fix(0, 0, zone);
  const ShipFix last = plan.Fix(0, plan.pings_per_line() - 1, zone);
  const ShipFix back = plan.Fix(1, 0, zone);
  EXPECT_NEAR(first.heading_deg, 90.0, 0.005);
  EXPECT_NEAR(back.heading_deg, 270.0, 0.005);
  EXPECT_NEAR((last.frame.origin.easting_m - first.frame.origin.easting_m) / 0.9996, 100.0, 0.02);
  EXPECT_NEAR(back.frame.origin.easting_m, last.frame.origin.easting_m, 0.02);
  EXPECT_NEAR((first.frame.origin.northing_m - back.frame.origin.northing_m) / 0.9996, 75.0, 0.02);
  EXPECT_GT(back.time_ns, last.time_ns);
}

}  // namespace
}  // namespace quarro::simulate
