// The soundings of one line of a simulated survey.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "gridding/survey/gsf_writer.h"
#include "gridding/survey/utm.h"
#include "simulate/line_faults.h"
#include "simulate/random.h"
#include "simulate/seafloor.h"
#include "simulate/survey_plan.h"
#include "simulate/swath.h"

namespace quarro::simulate {

// What became of a beam.
enum class BeamFate : std::uint8_t {
  kGood,     // on the seafloor but for noise, refraction and offset
  kFlagged,  // grossly wrong, and told so in the file
  kSpike,    // grossly wrong
  kBurst,    // on a school of fish
};

// How many beams became what.
struct BeamCounts {
  std::uint64_t beams = 0;
  std::uint64_t flagged = 0;
  std::uint64_t spikes = 0;
  std::uint64_t bursts = 0;  // beams on a burst
};

// Measures a line ping by ping. One thread at a time: it owns a projection and its work space. The
// plan and the seafloor must outlive it.
class LineSimulator {
 public:
  LineSimulator(const SurveyOptions& options, const SurveyPlan& plan, const Seafloor& seafloor);

  // Whether the ping lies in a gap, where nothing is to be measured.
  bool Missing(std::uint32_t line, std::uint32_t ping) { return FaultsOf(line).Missing(ping); }
  // Measures one ping. Its arrays are valid until the next call.
  survey::GsfPing Measure(std::uint32_t line, std::uint32_t ping);
  // Of the beams of the ping measured last, valid until the next is.
  std::span<const BeamFate> fates() const { return fates_; }
  // Of all pings measured so far.
  const BeamCounts& counts() const { return counts_; }

 private:
  const LineFaults& FaultsOf(std::uint32_t line);
  BeamFate FateOf(std::uint32_t beam, const LineFaults::Beams& burst,
                  const PingRandom& random) const;
  void MeasureBeam(std::uint32_t beam, const LineFaults& faults, const PingRandom& random);

  SurveyOptions options_;
  const SurveyPlan& plan_;
  const Seafloor& seafloor_;
  survey::UtmZone zone_;
  std::vector<double> tangents_;  // of the beams' angles from the vertical, port first
  double outermost_tangent_;
  std::uint32_t faults_line_ = 0;
  std::optional<LineFaults> faults_;  // of faults_line_, the line asked for last
  BeamCounts counts_;
  std::vector<SwathPoint> struck_;
  std::vector<BeamFate> fates_;
  std::vector<float> depth_m_;
  std::vector<float> across_m_;
  std::vector<float> along_m_;
  std::vector<float> vertical_error_m_;
  std::vector<float> horizontal_error_m_;
  std::vector<std::uint8_t> beam_flags_;
};

}  // namespace quarro::simulate
