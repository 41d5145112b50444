// The soundings of one line of a simulated survey.
#include "simulate/line_simulator.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "gridding/survey/gsf_format.h"
#include "gridding/survey/soundings.h"

namespace quarro::simulate {
namespace {

constexpr double kShallowestSounding_m = 0.1;  // 0 would tell of no detection

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
      outermost_tangent_(tangents_.back() > 0.0 ? tangents_.back() : 1.0),
      struck_(options.beams),
      fates_(options.beams),
      depth_m_(options.beams),
      across_m_(options.beams),
      along_m_(options.beams),
      vertical_error_m_(options.beams),
      horizontal_error_m_(options.beams),
      beam_flags_(options.beams) {}

const LineFaults& LineSimulator::FaultsOf(std::uint32_t line) {
  if (!faults_ || faults_line_ != line) {
    faults_.emplace(options_, line, plan_.pings_per_line());
    faults_line_ = line;
  }
  return *faults_;
}

BeamFate LineSimulator::FateOf(std::uint32_t beam, const LineFaults::Beams& burst,
                               const PingRandom& random) const {
  if (beam >= burst.first && beam < burst.end) return BeamFate::kBurst;
  if (random.Uniform(beam, Purpose::kFlagged) < options_.flagged) return BeamFate::kFlagged;
  // Of the beams not flagged, so that the part of all is the one asked for.
  const double drawn = random.Uniform(beam, Purpose::kSpike) * (1.0 - options_.flagged);
  return drawn < options_.spikes ? BeamFate::kSpike : BeamFate::kGood;
}

void LineSimulator::MeasureBeam(std::uint32_t beam, const LineFaults& faults,
                                const PingRandom& random) {
  const SwathPoint& floor = struck_[beam];
  const BeamFate fate = fates_[beam];
  const survey::BeamSigma sigma =
      survey::ModelSigma(options_.uncertainty, floor.depth_m, floor.across_m);
  const double vertical_m = options_.noise * sigma.vertical_m;
  const double horizontal_m = options_.noise * sigma.horizontal_m;
  // Fish lie on the beam's own way to the floor.
  const double met = fate == BeamFate::kBurst ? options_.burst_depth_fraction : 1.0;
  double depth_m = met * floor.depth_m;
  const double outward = tangents_[beam] / outermost_tangent_;
  if (faults.refraction() != 0.0) depth_m += faults.refraction() * depth_m * outward * outward;
  depth_m += faults.offset_m() + vertical_m * random.Normal(beam, Purpose::kDepth);
  if (fate == BeamFate::kFlagged || fate == BeamFate::kSpike) {
    depth_m += Spike(random, beam, floor.depth_m, sigma.vertical_m);
  }
  depth_m_[beam] =
      static_cast<float>(std::clamp(depth_m, kShallowestSounding_m, double{survey::kDeepest_m}));
  across_m_[beam] = static_cast<float>(met * floor.across_m +
                                       horizontal_m * random.Normal(beam, Purpose::kAcross));
  along_m_[beam] = static_cast<float>(horizontal_m * random.Normal(beam, Purpose::kAlong));
  vertical_error_m_[beam] = static_cast<float>(survey::gsf::kSigmasOfVertical95 * sigma.vertical_m);
  horizontal_error_m_[beam] =
      static_cast<float>(survey::gsf::kSigmasOfRadial95 * sigma.horizontal_m);
  beam_flags_[beam] = fate == BeamFate::kFlagged ? 1 : 0;
}

survey::GsfPing LineSimulator::Measure(std::uint32_t line, std::uint32_t ping) {
  const ShipFix fix = plan_.Fix(line, ping, zone_);
  const LineFaults& faults = FaultsOf(line);
  const LineFaults::Beams burst = faults.BurstIn(ping);
  const PingRandom random(options_.seed, line, ping);
  Swath(seafloor_, fix).Strike(tangents_, struck_);
  for (std::uint32_t beam = 0; beam < options_.beams; ++beam) {
    fates_[beam] = FateOf(beam, burst, random);
    MeasureBeam(beam, faults, random);
    counts_.flagged += fates_[beam] == BeamFate::kFlagged ? 1 : 0;
    counts_.spikes += fates_[beam] == BeamFate::kSpike ? 1 : 0;
  }
  counts_.bursts += burst.end - burst.first;
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
