#include "bench/accuracy/scenarios.h"

namespace quarro::accuracy {

namespace {

// A small survey: 2.7 million soundings, every place met by two lines.
simulate::SurveyOptions Basic() {
  simulate::SurveyOptions survey;
  survey.seafloor = "flat";
  survey.depth_m = 30.0;
  survey.lines = 4;
  survey.line_length_m = 1000.0;
  survey.beams = 256;
  survey.overlap = 0.5;
  survey.ping_rate_hz = 8.0;
  survey.speed_m_s = 3.0;
  survey.seed = 20261121;
  survey.uncertainty.horizontal_fixed_m = 0.3;
  survey.uncertainty.horizontal_proportional = 0.005;
  return survey;
}

simulate::SurveyOptions Spiky(double spikes) {
  auto survey = Basic();
  survey.spikes = spikes;
  return survey;
}

simulate::SurveyOptions Slope(double slope, double depth_m, double spikes) {
  auto survey = Spiky(spikes);
  survey.seafloor = "slope";
  survey.slope = slope;
  survey.depth_m = depth_m;
  return survey;
}

// Ten metres at the shallow end to two hundred at the deep one.
simulate::SurveyOptions Deepening() {
  auto survey = Spiky(0.01);
  survey.seafloor = "slope";
  survey.depth_m = 105.0;
  survey.slope = 0.1;
  survey.line_length_m = 1900.0;
  survey.lines = 2;
  survey.slope_azimuth_deg = survey.heading_deg;
  survey.line_spacing_m = 100.0;
  return survey;
}

simulate::SurveyOptions On(const char* seafloor, double spikes) {
  auto survey = Spiky(spikes);
  survey.seafloor = seafloor;
  return survey;
}

simulate::SurveyOptions Wreck() {
  auto survey = On("rocks", 0.01);
  survey.depth_m = 20.0;
  survey.line_length_m = 300.0;
  survey.rock_count = 0;
  return survey;
}

// With an echosounder so quiet that one hundredth of the depth is beyond the noise of every node:
// what is farther off is wrong by the fish, not by chance.
simulate::SurveyOptions Quiet(simulate::SurveyOptions survey) {
  survey.swath_deg = 100.0;
  survey.uncertainty.vertical_fixed_m = 0.05;
  survey.uncertainty.vertical_proportional = 0.002;
  return survey;
}

simulate::SurveyOptions FishAndWreck() {
  auto survey = Quiet(Wreck());
  survey.line_length_m = 1000.0;
  survey.bursts = 27;
  survey.rock_count = 67;
  return survey;
}

simulate::SurveyOptions Fish(std::uint32_t schools_a_line) {
  auto survey = Quiet(Spiky(0.0));
  survey.bursts = schools_a_line;
  return survey;
}

simulate::SurveyOptions Offset() {
  auto survey = Basic();
  survey.depth_m = 20.0;
  survey.offset_lines = {2};
  survey.offset_m = 0.3;
  return survey;
}

simulate::SurveyOptions Smile() {
  auto survey = Spiky(0.01);
  survey.smile_lines = {2, 3};
  return survey;
}

simulate::SurveyOptions Canyon() {
  auto survey = On("canyon", 0.01);
  survey.depth_m = 500.0;
  survey.lines = 2;
  survey.line_length_m = 12000.0;
  survey.line_spacing_m = 1500.0;
  survey.slope_azimuth_deg = survey.heading_deg;
  survey.ping_rate_hz = 0.2;
  survey.speed_m_s = 4.0;
  return survey;
}

// What script/demo grids.
simulate::SurveyOptions Demo() {
  simulate::SurveyOptions survey;
  survey.lines = 6;
  survey.line_length_m = 1500.0;
  survey.depth_m = 40.0;
  survey.slope = 0.02;
  survey.spikes = 0.01;
  survey.flagged = 0.01;
  survey.seed = 2026;
  return survey;
}

}  // namespace

const std::vector<Scenario>& Scenarios() {
  static const std::vector<Scenario> kAll = {
      {"flat", "flat floor, noise only", Basic(), 16.0F, 0.5F},
      {"spikes-1", "flat floor, 1 % spikes", Spiky(0.01), 16.0F, 0.5F},
      {"spikes-5", "flat floor, 5 % spikes", Spiky(0.05), 16.0F, 0.5F},
      {"spikes-20", "flat floor, 20 % spikes", Spiky(0.2), 16.0F, 0.5F},
      {"slope-10", "slope of 10 %, 1 % spikes", Slope(0.1, 30.0, 0.01), 16.0F, 0.5F},
      {"slope-30", "slope of 30 %, 1 % spikes", Slope(0.3, 120.0, 0.01), 32.0F, 0.5F},
      {"slope-30-clean", "slope of 30 %, noise only", Slope(0.3, 120.0, 0.0), 32.0F, 0.5F},
      {"waves", "sand waves, 2 m high and 40 m long, 1 % spikes", On("waves", 0.01), 16.0F, 0.5F},
      {"scarp", "a step of 5 m, 1 % spikes", On("scarp", 0.01), 16.0F, 0.5F},
      {"mix", "waves, rocks, wreck, slope, step and a canyon's edge, 2 % spikes", On("mix", 0.02),
       16.0F, 0.5F},
      {"deepening", "10 to 200 m along the line, 1 % spikes", Deepening(), 32.0F, 0.5F},
      {"canyon", "shelf of 500 m falling to 4,000 m, 1 % spikes", Canyon(), 400.0F, 10.0F},
      {"smile", "refraction on two lines, 1 % spikes", Smile(), 16.0F, 0.5F},
      {"offset", "one line 0.3 m off in 20 m", Offset(), 16.0F, 0.5F},
      {"fish", "a school of fish on each 25 m of line", Fish(40), 16.0F, 0.5F},
      {"wreck", "a wreck 3 m high and 4 m wide in 20 m, 1 % spikes", Wreck(), 16.0F, 0.5F},
      {"demo", "the survey of the demo", Demo(), 32.0F, 0.5F},
      {"fish-and-wreck", "the wreck and rocks among fish, 1 % spikes", FishAndWreck(), 16.0F, 0.5F},
      {"fish-by-count", "the same fish, by count alone", Fish(40), 16.0F, 0.5F, true},
      {"few-by-count", "a school on each 100 m, by count alone", Fish(10), 16.0F, 0.5F, true},
      {"both-by-count", "fish and wreck, by count alone", FishAndWreck(), 16.0F, 0.5F, true},
  };
  return kAll;
}

}  // namespace quarro::accuracy
