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
#include "simulate/part_file.h"

namespace quarro::simulate {
namespace {

// Returns before the line is whole, and leaves no file, once `stop` is set.
BeamCounts WriteLine(const SurveyOptions& options, const SurveyPlan& plan, const Seafloor& seafloor,
                     std::uint32_t line, const std::filesystem::path& path,
                     const std::atomic<bool>& stop) {
  LineSimulator simulator(options, plan, seafloor);
  PartFile file(path);
  survey::GsfWriter writer(file.path());
  bool any = false;
  for (std::uint32_t ping = 0; ping < plan.pings_per_line(); ++ping) {
    if (stop) return {};
    if (simulator.Missing(line, ping)) continue;
    const survey::GsfPing measured = simulator.Measure(line, ping);
    if (!any) writer.WriteComment(measured.time_ns, "Simulated by Quarro_Simulate");
    any = true;
    writer.WritePing(measured);
  }
  writer.Close();
  file.Keep();
  return simulator.counts();
}

SurveySummary Summarise(const SurveyOptions& options, const SurveyPlan& plan,
                        const std::vector<BeamCounts>& counts) {
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

}  // namespace

std::string LineFileName(std::uint32_t line) {
  std::array<char, 32> name{};
  std::snprintf(name.data(), name.size(), "line_%03u.gsf", line + 1);
  return name.data();
}

void PrepareDirectory(const std::string& directory, std::uint32_t lines, bool overwrite) {
  std::error_code error;
  std::filesystem::create_directories(directory, error);
  if (error) {
    throw SimulationError("cannot make the directory \"" + directory + "\": " + error.message());
  }
  for (std::uint32_t line = 0; line < lines && !overwrite; ++line) {
    RefuseToReplace(std::filesystem::path(directory) / LineFileName(line), "--output");
  }
}

SurveySummary WriteLines(const SurveyOptions& options, const SurveyPlan& plan,
                         const Seafloor& seafloor, const std::string& directory, unsigned threads) {
  // Each thread takes the next line and keeps what it gives in the line's own place.
  std::vector<BeamCounts> counts(options.lines);
  std::vector<std::exception_ptr> failures(options.lines);
  std::atomic<std::uint32_t> next{0};
  std::atomic<bool> stop{false};
  const auto work = [&] {
    for (std::uint32_t line = next++; line < options.lines && !stop; line = next++) {
      try {
        const auto path = std::filesystem::path(directory) / LineFileName(line);
        counts[line] = WriteLine(options, plan, seafloor, line, path, stop);
      } catch (...) {
        failures[line] = std::current_exception();
        stop = true;
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
  return Summarise(options, plan, counts);
}

SurveySummary WriteSurvey(const SurveyOptions& options, const std::string& directory,
                          unsigned threads, bool overwrite) {
  const SurveyPlan plan(options);
  const auto seafloor = MakeSeafloor(options, plan.origin());
  PrepareDirectory(directory, options.lines, overwrite);
  return WriteLines(options, plan, *seafloor, directory, threads);
}

}  // namespace quarro::simulate
