// The soundings of one line of a simulated survey.
#pragma once

#include <cstdint>
#include <vector>

#include "gridding/survey/gsf_writer.h"
#include "gridding/survey/utm.h"
#include "simulate/seafloor.h"
#include "simulate/survey_plan.h"

namespace quarro::simulate {

// How many beams became what.
struct BeamCounts {
  std::uint64_t beams = 0;
  std::uint64_t flagged = 0;
  std::uint64_t spikes = 0;
};

// Measures a line ping by ping. One thread at a time: it owns a projection and its work space. The
// plan and the seafloor must outlive it.
class LineSimulator {
 public:
  LineSimulator(const SurveyOptions& options, const SurveyPlan& plan, const Seafloor& seafloor);

  // Measures one ping. Its arrays are valid until the next call.
  survey::GsfPing Measure(std::uint32_t line, std::uint32_t ping);
  // Of all pings measured so far.
  const BeamCounts& counts() const { return counts_; }

 private:
  // Where the beam of this slope meets the seafloor.
  struct Hit {
    double depth_m;
    double across_m;
  };
  Hit Strike(const ShipFix& fix, const survey::Heading& heading, double tangent) const;

  SurveyOptions options_;
  const SurveyPlan& plan_;
  const Seafloor& seafloor_;
  survey::UtmZone zone_;
  std::vector<double> tangents_;  // of the beams' angles from the vertical, port first
  BeamCounts counts_;
  std::vector<float> depth_m_;
  std::vector<float> across_m_;
  std::vector<float> along_m_;
  std::vector<float> vertical_error_m_;
  std::vector<float> horizontal_error_m_;
  std::vector<std::uint8_t> beam_flags_;
};

}  // namespace quarro::simulate
