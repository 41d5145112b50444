// Writes a simulated survey as files.
#include "simulate/survey_writer.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <thread>
#include <vector>

#include "gridding/survey/gsf_writer.h"

namespace quarro::simulate {
namespace {

void MakeDirectory(const std::string& directory) {
  std::error_code error;
  std::filesystem::create_directories(directory, error);
  if (error) {
    throw SimulationError("cannot make the directory \"" + directory + "\": " + error.message());
  }
}

void RefuseToOverwrite(const std::filesystem::path& directory, std::uint32_t lines) {
  for (std::uint32_t line = 0; line < lines; ++line) {
    const auto path = directory / LineFileName(line);
    if (!std::filesystem::exists(path)) continue;
    throw SimulationError("\"" + path.string() +
                          "\" exists already: give another --output, or --overwrite");
  }
}

BeamCounts WriteLine(const SurveyOptions& options, const SurveyPlan& plan, const Seafloor& seafloor,
                     std::uint32_t line, const std::string& path) {
  LineSimulator simulator(options, plan, seafloor);
  survey::GsfWriter writer(path);
  bool any = false;
  for (std::uint32_t ping = 0; ping < plan.pings_per_line(); ++ping) {
    if (simulator.Missing(line, ping)) continue;
    const survey::GsfPing measured = simulator.Measure(line, ping);
    if (!any) writer.WriteComment(measured.time_ns, "Simulated by Quarro_Simulate");
    any = true;
    writer.WritePing(measured);
  }
  writer.Close();
  return simulator.counts();
}

}  // namespace

std::string LineFileName(std::uint32_t line) {
  std::array<char, 32> name{};
  std::snprintf(name.data(), name.size(), "line_%03u.gsf", line + 1);
  return name.data();
}

SurveySummary WriteSurvey(const SurveyOptions& options, const std::string& directory,
                          unsigned threads, bool overwrite) {
  const SurveyPlan plan(options);
  const auto seafloor = MakeSeafloor(options, plan.origin());
  MakeDirectory(directory);
  if (!overwrite) RefuseToOverwrite(directory, options.lines);

  // Each thread takes the next line and keeps what it gives in the line's own place.
  std::vector<BeamCounts> counts(options.lines);
  std::vector<std::exception_ptr> failures(options.lines);
  std::atomic<std::uint32_t> next{0};
  const auto work = [&] {
    for (std::uint32_t line = next++; line < options.lines; line = next++) {
      try {
        const auto path = std::filesystem::path(directory) / LineFileName(line);
        counts[line] = WriteLine(options, plan, *seafloor, line, path.string());
      } catch (...) {
        failures[line] = std::current_exception();
      }
    }
  };
  {
    const unsigned wanted =
        threads > 0 ? threads : std::max(1U, std::thread::hardware_concurrency());
    std::vector<std::jthread> workers;
    for (unsigned i = 0; i < std::min<unsigned>(wanted, options.lines); ++i) {
      workers.emplace_back(work);
    }
  }
  for (const auto& failure : failures) {
    if (failure) std::rethrow_exception(failure);
  }
  SurveySummary summary;
  summary.lines = options.lines;
  // Gaps never overlap: each takes all its pings.
  summary.pings = std::uint64_t{options.lines} *
                  (plan.pings_per_line() - std::uint64_t{options.gaps} * options.gap_pings);
  summary.zone = options.Zone();
  for (const BeamCounts& line : counts) {
    summary.counts.beams += line.beams;
    summary.counts.flagged += line.flagged;
    summary.counts.spikes += line.spikes;
    summary.counts.bursts += line.bursts;
  }
  return summary;
}

}  // namespace quarro::simulate
