#include "bench/accuracy/scenarios.h"

namespace quarro::accuracy {

namespace {

simulate::SurveyOptions Basic() {
  simulate::SurveyOptions survey;
  survey.seafloor = "flat";
  survey.depth_m = 30.0;
  survey.lines = 4;
  survey.line_length_m = 300.0;
  survey.beams = 256;
  survey.overlap = 0.5;
  survey.ping_rate_hz = 8.0;
  survey.speed_m_s = 3.0;
  survey.seed = 20261121;
  survey.uncertainty.horizontal_fixed_m = 0.3;
  survey.uncertainty.horizontal_proportional = 0.005;
  return survey;
}

}  // namespace

const std::vector<Scenario>& Scenarios() {
  static const std::vector<Scenario> kAll = [] {
    std::vector<Scenario> all;
    auto survey = Basic();
    all.push_back({"flat", "flat, noise only", survey, 16.0F, 0.5F});
    survey.spikes = 0.01;
    all.push_back({"flat spikes 1", "1 % spikes", survey, 16.0F, 0.5F});
    survey.spikes = 0.05;
    all.push_back({"flat spikes 5", "5 % spikes", survey, 16.0F, 0.5F});
    survey.spikes = 0.2;
    all.push_back({"flat spikes 20", "20 % spikes", survey, 16.0F, 0.5F});
    survey = Basic();
    survey.seafloor = "slope";
    survey.slope = 0.1;
    survey.spikes = 0.01;
    all.push_back({"slope 10", "slope of 10 %, 1 % spikes", survey, 16.0F, 0.5F});
    survey.slope = 0.3;
    survey.depth_m = 120.0;
    all.push_back({"slope 30", "slope of 30 %, 1 % spikes", survey, 32.0F, 0.5F});
    return all;
  }();
  return kAll;
}

}  // namespace quarro::accuracy
