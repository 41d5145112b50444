#include "gridding/service/parameter_table.h"

#include <algorithm>

#include "gridding/service/engine_log.h"

namespace quarro::service {

const std::vector<ParameterInfo>& ParameterTable() {
  static const std::vector<ParameterInfo> kTable = {
      {"ClientServer", "BAGMetadataTemplate", ""},

      {"Engine", "WorkingDirectory", "."},
      {"Engine", "Threads", "all cores"},
      {"Engine", "MemoryMiB", "1024"},
      {"Engine", "AllowDuplicateLines", "false"},

      {"Projection", "UTMZone", "auto"},

      {"Estimator", "CaptureRadius", "0.75"},
      {"Estimator", "QueueLength", "11"},
      {"Estimator", "ShiftSigmas", "1.5"},
      {"Estimator", "OutlierSigmas", "4"},
      {"Estimator", "RunEvidence", "5"},
      {"Estimator", "UnknownSlope", "0.3"},
      {"Estimator", "SteepSigmas", "3"},
      {"Estimator", "HuddleShare", "0.5"},
      {"Estimator", "TrendSigmas", "1"},
      {"Estimator", "LeastRun", "0.3"},
      {"Estimator", "FewestBlocks", "9"},
      {"Estimator", "SlopeSigmas", "2"},
      {"Estimator", "BiweightSigmas", "4.685"},
      {"Estimator", "PlaneRounds", "3"},
      {"Estimator", "FewestPairs", "10"},
      {"Estimator", "SpikeSigmas", "3.5"},
      {"Estimator", "ScatterRounds", "5"},
      {"Estimator", "LowResolutionSoundings", "60"},
      {"Estimator", "OffsetPlaces", "512"},
      {"Estimator", "FewestPlaces", "16"},
      {"Estimator", "OffsetSigmas", "6"},
      {"Estimator", "SplitSigmas", "0.5"},

      {"Estimator", "AskNeighbours", "true"},
      {"Estimator", "AmbiguousShare", "0.1"},
      {"Estimator", "CompetingShare", "0.05"},
      {"Estimator", "KeptSoundings", "4"},
      {"Estimator", "NeighbourReach", "5"},
      {"Estimator", "FewestNeighbours", "8"},
      {"Estimator", "AgreementSigmas", "4"},

      {"Refinement", "SoundingsPerNode", "5"},
      {"Refinement", "HorizontalUncertaintyFactor", "1"},

      {"Uncertainty", "VerticalFixed", "0.13"},
      {"Uncertainty", "VerticalProportional", "0.004"},
      {"Uncertainty", "HorizontalFixed", "1"},
      {"Uncertainty", "HorizontalProportional", "0.02"},
      {"Uncertainty", "AngleGrowth", "1"},
      {"Uncertainty", "LeastVertical", "0.02"},
      {"Uncertainty", "LeastHorizontal", "0.05"},

      {"Network", "Address", "127.0.0.1"},
      {"Network", "Port", "47601"},
      {"Network", "DiscoveryPort", "47600"},
      {"Network", "DiscoveryWaitMs", "500"},
      {"Network", "DiscoveryAddresses", ""},
      {"Network", "Engines", ""},
      {"Network", "ReconnectSeconds", "30"},
      {"Network", "DetachSeconds", "3"},
      {"Network", "CertificateAuthority", ""},
      {"Network", "Certificate", ""},
      {"Network", "PrivateKey", ""},
      {"Network", "AllowPlainText", "false"},
      {"Network", "SurveyDirectories", "."},
      {"Network", "MaxMessageMiB", "4"},
      {"Network", "MaxSessions", "64"},
      {"Network", "MaxQueueLength", "100000"},
      {"Network", "MaxWaitingResults", "10000"},
      {"Network", "MaxResultPoolMiB", "16384"},
      {"Network", "MaxDiscoveryRequestsPerSecond", "50"},
      {"Network", "MetricsAddress", ""},
  };
  return kTable;
}

void WarnOfUnknownParameters(const MParams& params) {
  const auto& table = ParameterTable();
  for (const auto& [section, key] : params.Keys()) {
    const bool known =
        std::any_of(table.begin(), table.end(), [&section = section, &key = key](const auto& info) {
          return section == info.section && key == info.key;
        });
    if (!known) {
      std::string text = "the parameter file holds the key \"";
      text.append(key).append("\" in section \"").append(section);
      text += "\", which no part of the system knows: it has no effect";
      LogEngine(kLogWarning, text);
    }
  }
}

}  // namespace quarro::service
