// The soundings of one line of a simulated survey.
#include "simulate/line_simulator.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "gridding/survey/gsf_format.h"
#include "simulate/random.h"

namespace quarro::simulate {
namespace {

std::vector<double> BeamTangents(const SurveyOptions& options) {
  std::vector<double> tangents(options.beams, 0.0);
  if (options.beams < 2) return tangents;
  const double swath_rad = options.swath_deg * std::numbers::pi / 180.0;
  for (std::uint32_t beam = 0; beam < options.beams; ++beam) {
    tangents[beam] = std::tan(swath_rad * (beam / (options.beams - 1.0) - 0.5));
  }
  return tangents;
}

// A gross error: 5 to 30 % of the depth, and 10 sigma at least, three times in four too shallow, as
// fish and bubbles are.
double Spike(const PingRandom& random, std::uint64_t beam, double depth_m, double sigma_m) {
  const double part = 0.05 + 0.25 * random.Uniform(beam, Purpose::kSpikeSize);
  const double size_m = std::max(part * depth_m, 10.0 * sigma_m);
  return random.Uniform(beam, Purpose::kSpikeSide) < 0.75 ? -size_m : size_m;
}

}  // namespace

LineSimulator::LineSimulator(const SurveyOptions& options, const SurveyPlan& plan,
                             const Seafloor& seafloor)
    : options_(options),
      plan_(plan),
      seafloor_(seafloor),
      zone_(options.Zone()),
      tangents_(BeamTangents(options)),
      depth_m_(options.beams),
      across_m_(options.beams),
      along_m_(options.beams),
      vertical_error_m_(options.beams),
      horizontal_error_m_(options.beams),
      beam_flags_(options.beams) {}

LineSimulator::Hit LineSimulator::Strike(const ShipFix& fix, const survey::Heading& heading,
                                         double tangent) const {
  // Goes to where the beam would meet a floor as deep as the last one found. The depth returned is
  // that of the place returned, so that few steps make the angle inexact and the truth not.
  constexpr int kMostSteps = 6;
  constexpr double kCloseEnough_m = 0.001;
  Hit hit{seafloor_.DepthAt(fix.frame.origin), 0.0};
  for (int step = 0; step < kMostSteps; ++step) {
    const double before_m = hit.across_m;
    hit.across_m = std::clamp(hit.depth_m * tangent, -double{survey::kWidest_m} / 2,
                              double{survey::kWidest_m} / 2);
    hit.depth_m = seafloor_.DepthAt(
        fix.frame.ToGrid(heading.East(0.0, hit.across_m), heading.North(0.0, hit.across_m)));
    if (std::abs(hit.across_m - before_m) < kCloseEnough_m) break;
  }
  return hit;
}

survey::GsfPing LineSimulator::Measure(std::uint32_t line, std::uint32_t ping) {
  const ShipFix fix = plan_.Fix(line, ping, zone_);
  const survey::Heading heading(fix.heading_deg, fix.frame);
  const PingRandom random(options_.seed, line, ping);
  for (std::uint32_t beam = 0; beam < options_.beams; ++beam) {
    const Hit hit = Strike(fix, heading, tangents_[beam]);
    const survey::BeamSigma sigma =
        survey::ModelSigma(options_.uncertainty, hit.depth_m, hit.across_m);
    const double vertical_m = options_.noise * sigma.vertical_m;
    const double horizontal_m = options_.noise * sigma.horizontal_m;
    const bool flagged = random.Uniform(beam, Purpose::kFlagged) < options_.flagged;
    // Of the beams not flagged, so that the part of all is the one asked for.
    const bool spike =
        !flagged &&
        random.Uniform(beam, Purpose::kSpike) * (1.0 - options_.flagged) < options_.spikes;
    double depth_m = hit.depth_m + vertical_m * random.Normal(beam, Purpose::kDepth);
    if (flagged || spike) depth_m += Spike(random, beam, hit.depth_m, sigma.vertical_m);
    depth_m_[beam] = static_cast<float>(std::max(depth_m, 0.1));
    across_m_[beam] =
        static_cast<float>(hit.across_m + horizontal_m * random.Normal(beam, Purpose::kAcross));
    along_m_[beam] = static_cast<float>(horizontal_m * random.Normal(beam, Purpose::kAlong));
    vertical_error_m_[beam] =
        static_cast<float>(survey::gsf::kSigmasOfVertical95 * sigma.vertical_m);
    horizontal_error_m_[beam] =
        static_cast<float>(survey::gsf::kSigmasOfRadial95 * sigma.horizontal_m);
    beam_flags_[beam] = flagged ? 1 : 0;
    counts_.flagged += flagged ? 1 : 0;
    counts_.spikes += spike ? 1 : 0;
  }
  counts_.beams += options_.beams;

  constexpr double kKnots = 3600.0 / 1852.0;  // a metre a second
  survey::GsfPing result;
  result.time_ns = fix.time_ns;
  result.longitude_deg = fix.longitude_deg;
  result.latitude_deg = fix.latitude_deg;
  result.heading_deg = fix.heading_deg;
  result.course_deg = fix.heading_deg;
  result.speed_knots = options_.speed_m_s * kKnots;
  result.beams = options_.beams;
  result.depth_m = depth_m_;
  result.across_m = across_m_;
  result.along_m = along_m_;
  result.vertical_error_m = vertical_error_m_;
  result.horizontal_error_m = horizontal_error_m_;
  result.beam_flags = beam_flags_;
  return result;
}

}  // namespace quarro::simulate
