#include "gridding/core/settings.h"

namespace quarro::core {

EstimatorSettings ReadEstimatorSettings(const MParams& params) {
  const std::string section = "Estimator";
  EstimatorSettings settings;
  settings.capture_radius =
      LookupNumber(params, section, "CaptureRadius", settings.capture_radius, 0.5, 0.99);
  settings.queue_length = static_cast<int>(
      LookupInteger(params, section, "QueueLength", settings.queue_length, 1, 101));
  settings.shift_sigmas =
      LookupNumber(params, section, "ShiftSigmas", settings.shift_sigmas, 0.1, 10.0);
  settings.outlier_sigmas =
      LookupNumber(params, section, "OutlierSigmas", settings.outlier_sigmas, 1.0, 100.0);
  settings.run_evidence =
      LookupNumber(params, section, "RunEvidence", settings.run_evidence, 0.1, 1000.0);
  settings.unknown_slope =
      LookupNumber(params, section, "UnknownSlope", settings.unknown_slope, 0.0, 10.0);
  settings.low_resolution_soundings = static_cast<int>(LookupInteger(
      params, section, "LowResolutionSoundings", settings.low_resolution_soundings, 1, 10000));
  return settings;
}

RefinementSettings ReadRefinementSettings(const MParams& params) {
  const std::string section = "Refinement";
  RefinementSettings settings;
  settings.soundings_per_node =
      LookupNumber(params, section, "SoundingsPerNode", settings.soundings_per_node, 1.0, 10000.0);
  settings.horizontal_uncertainty_factor =
      LookupNumber(params, section, "HorizontalUncertaintyFactor",
                   settings.horizontal_uncertainty_factor, 0.0, 100.0);
  return settings;
}

}  // namespace quarro::core
