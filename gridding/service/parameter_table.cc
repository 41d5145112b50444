#include "gridding/service/parameter_table.h"

#include <algorithm>

#include "gridding/service/engine_log.h"

namespace quarro::service {

const std::vector<ParameterInfo>& ParameterTable() {
  static const std::vector<ParameterInfo> kTable = {
      {"ClientServer", "BAGMetadataTemplate", "",
       "XML file from which the metadata of a BAG is made"},

      {"Engine", "WorkingDirectory", ".", "folder of the grids, the traces and large results"},
      {"Engine", "Threads", "all cores",
       "threads that compute; what refine asks for is capped by it"},
      {"Engine", "MemoryMiB", "1024", "memory for the cells and soundings in work"},
      {"Engine", "AllowDuplicateLines", "false", "take a line whose bytes the grid holds already"},

      {"Projection", "UTMZone", "auto",
       "1 to 60, negative south; auto takes that of the first line"},

      {"Estimator", "CaptureRadius", "0.75",
       "node spacings within which a node captures soundings"},
      {"Estimator", "QueueLength", "11", "soundings that wait in the sorted queue of a node"},
      {"Estimator", "ShiftSigmas", "1.5", "shift of the model that a fit is monitored against"},
      {"Estimator", "OutlierSigmas", "4", "distance at which a sounding founds a hypothesis"},
      {"Estimator", "RunEvidence", "5",
       "evidence over a run of soundings that founds a hypothesis"},
      {"Estimator", "UnknownSlope", "0.3",
       "most that the slope is thought to deviate from what the soundings tell"},
      {"Estimator", "SteepSigmas", "3",
       "rise within a node's reach, in standard uncertainties, from which a trend is doubted"},
      {"Estimator", "HuddleShare", "0.5",
       "share of their gaps at which soundings without the trend end it"},
      {"Estimator", "LowResolutionSoundings", "60",
       "soundings wanted around a low-resolution node"},
      {"Estimator", "OffsetSigmas", "6",
       "standard uncertainties beyond which an offset between two lines of a cell is real"},
      {"Estimator", "SplitSigmas", "0.5",
       "standard uncertainties at a node beyond which a real offset parts the lines"},

      {"Estimator", "AskNeighbours", "true",
       "ambiguous nodes report what agrees with their neighbours, not what most soundings say"},
      {"Estimator", "AmbiguousShare", "0.1",
       "share of the first hypothesis's soundings that makes a runner-up compete"},
      {"Estimator", "NeighbourReach", "5", "node spacings within which neighbours are asked"},
      {"Estimator", "FewestNeighbours", "8", "neighbours that are heeded at least"},
      {"Estimator", "AgreementSigmas", "4",
       "standard deviations within which a hypothesis agrees with its neighbours"},

      {"Refinement", "SoundingsPerNode", "5", "least mean number of soundings a refined node"},
      {"Refinement", "HorizontalUncertaintyFactor", "1",
       "horizontal standard uncertainties that nodes are apart at least"},

      {"Uncertainty", "VerticalFixed", "0.13", "m, 1 sigma, of beams without uncertainty"},
      {"Uncertainty", "VerticalProportional", "0.004", "of depth, 1 sigma"},
      {"Uncertainty", "HorizontalFixed", "1", "m, 1 sigma along one axis"},
      {"Uncertainty", "HorizontalProportional", "0.02", "of depth, 1 sigma along one axis"},
      {"Uncertainty", "AngleGrowth", "1", "growth with the squared tangent of the beam angle"},
      {"Uncertainty", "LeastVertical", "0.02", "m, the smallest that any sounding is given"},
      {"Uncertainty", "LeastHorizontal", "0.05", "m, the smallest that any sounding is given"},

      {"Network", "Address", "127.0.0.1", "address on which the server listens"},
      {"Network", "Port", "47601", "TCP port that takes requests; 0: any free one"},
      {"Network", "DiscoveryPort", "47600", "UDP port of the discovery"},
      {"Network", "DiscoveryWaitMs", "500", "how long a discovery waits for answers"},
      {"Network", "DiscoveryAddresses", "",
       "addresses to which a discovery is sent, not to all interfaces"},
      {"Network", "Engines", "", "engines, host:port, that are asked directly"},
      {"Network", "ReconnectSeconds", "30", "how long a lost connection is retried"},
      {"Network", "DetachSeconds", "3", "how long lines in work may keep a detach waiting"},
      {"Network", "CertificateAuthority", "",
       "PEM file of the authority that signs the other side"},
      {"Network", "Certificate", "", "PEM file of this side's certificate"},
      {"Network", "PrivateKey", "", "PEM file of this side's private key"},
      {"Network", "AllowPlainText", "false", "listen beyond loopback without certificates"},
      {"Network", "SurveyDirectories", ".", "folders under which the server finds lines"},
      {"Network", "MaxMessageMiB", "4", "largest message that the server takes"},
      {"Network", "MaxSessions", "64", "sessions at the same time"},
      {"Network", "MaxQueueLength", "100000", "requests of a session that wait"},
      {"Network", "MaxWaitingResults", "10000", "results of a session that wait"},
      {"Network", "MaxResultPoolMiB", "16384", "what the results of a session that wait may take"},
      {"Network", "MaxDiscoveryRequestsPerSecond", "50", "discoveries that the server answers"},
      {"Network", "MetricsAddress", "", "address:port at which the server serves its metrics"},
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
