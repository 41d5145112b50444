#include "gridding/service/engine_config.h"

#include <algorithm>
#include <charconv>
#include <string>
#include <thread>

namespace quarro::service {

namespace {

constexpr long kMostThreads = 1024;
constexpr long kMostMemoryMiB = 16L << 20U;
constexpr std::uint64_t kMiB = std::uint64_t{1} << 20U;

int ReadUtmZone(const MParams& params) {
  const std::string text = params.Lookup("Projection", "UTMZone");
  if (text.empty() || text == "auto") return 0;
  int zone = 0;
  const auto parsed = std::from_chars(text.data(), text.data() + text.size(), zone);
  const bool whole = parsed.ec == std::errc() && parsed.ptr == text.data() + text.size();
  if (!whole || zone == 0 || zone < -60 || zone > 60) {
    throw ExSGClientBase("parameter UTMZone of section Projection is \"" + text +
                         "\"; allowed are auto, and 1 to 60, negative in the south");
  }
  return zone;
}

}  // namespace

EngineConfig ReadEngineConfig(const MParams& params) {
  const std::string section = "Engine";
  EngineConfig config;
  const std::string directory = params.Lookup(section, "WorkingDirectory");
  if (!directory.empty()) config.working_directory = directory;
  const long cores = std::max(1L, static_cast<long>(std::thread::hardware_concurrency()));
  config.threads =
      static_cast<std::uint32_t>(LookupInteger(params, section, "Threads", cores, 1, kMostThreads));
  config.memory_bytes = kMiB * static_cast<std::uint64_t>(LookupInteger(
                                   params, section, "MemoryMiB", 1024, 16, kMostMemoryMiB));
  config.allow_duplicate_lines = LookupFlag(params, section, "AllowDuplicateLines", false);
  config.utm_zone = ReadUtmZone(params);
  config.estimator = core::ReadEstimatorSettings(params);
  config.refinement = core::ReadRefinementSettings(params);
  config.uncertainty = survey::ReadUncertaintyModel(params);
  return config;
}

}  // namespace quarro::service
