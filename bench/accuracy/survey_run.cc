#include "bench/accuracy/survey_run.h"

#include <functional>
#include <stdexcept>
#include <string>

#include <boost/bind/bind.hpp>

#include "bench/awaited.h"
#include "gridding/core/binning.h"
#include "gridding/local/sg_debug_client.h"
#include "gridding/survey/georeference.h"
#include "gridding/survey/line_reader.h"
#include "simulate/survey_writer.h"

namespace quarro::accuracy {

namespace {

constexpr std::uint32_t kBoundsQuery = 4;

void Grid(const Scenario& scenario, const std::vector<std::string>& files, SGClientBase& engine,
          SurveyRun& run) {
  Awaited awaited;
  engine.AttachEngine(engine.FindEngines().front());
  engine.ConstructGrid("accuracy", scenario.resolution_m, scenario.min_resolution_m,
                       awaited.Callback());
  FetchResult<ResultPosAck>(engine, awaited.Wait());
  for (std::uint32_t i = 0; i < files.size(); ++i) {
    engine.AddLine(files[i], i, false, awaited.Callback());
  }
  for (std::size_t i = 0; i < files.size(); ++i) {
    const auto line = FetchResult<ResultLineAdded>(engine, awaited.Wait());
    if (line->failed != 0) throw std::runtime_error("a line failed in " + scenario.name);
    run.sounding_count += line->used;
  }
  engine.RefineGrid(0, awaited.Callback());
  FetchResult<ResultPosAck>(engine, awaited.Wait());
  engine.RequestQuery(kBoundsQuery, awaited.Callback());
  const SGBoundingBox bounds = FetchResult<ResultBBox>(engine, awaited.Wait())->bounds;
  engine.RequestDepth(bounds, 0, 0, awaited.Callback());
  run.low = FetchResult<ResultDepth>(engine, awaited.Wait());
  engine.RequestDepth(bounds, 1, 1, awaited.Callback());
  run.full = FetchResult<ResultDepth>(engine, awaited.Wait());
  engine.RequestHypotheses(bounds, 2, 1, awaited.Callback());
  run.hypotheses = FetchResult<ResultHypos>(engine, awaited.Wait());
  engine.DetachEngine();
}

void ReadSoundings(const Scenario& scenario, const std::vector<std::string>& files,
                   const MParams& params, SurveyRun& run) {
  const core::Lattice lattice(scenario.resolution_m);
  core::Binner binner(lattice);
  survey::Georeferencer georeferencer(scenario.survey.Zone(), survey::ReadUncertaintyModel(params));
  survey::BeamAccount account;
  survey::PingChunk chunk;
  survey::Soundings placed;
  std::uint64_t too_uncertain = 0;
  for (std::uint32_t line = 0; line < files.size(); ++line) {
    const auto reader = survey::OpenLine(files[line]);
    while (reader->Next(chunk, account)) {
      placed.Clear();
      georeferencer.Place(chunk, placed, account);
      const core::BinnedChunk& binned = binner.Bin(placed, too_uncertain);
      for (const core::BinnedChunk::Run& cell : binned.runs) {
        const auto soundings = binned.SoundingsOf(cell);
        auto& all = run.soundings[cell.cell];
        all.insert(all.end(), soundings.begin(), soundings.end());
        run.lines[cell.cell].resize(all.size(), line);
      }
    }
  }
}

}  // namespace

SurveyRun RunScenario(const Scenario& scenario, const std::filesystem::path& folder,
                      MParams params) {
  const std::string lines = (folder / "lines").string();
  simulate::WriteSurvey(scenario.survey, lines, 0, true);
  std::vector<std::string> files;
  for (std::uint32_t line = 0; line < scenario.survey.lines; ++line) {
    files.push_back(lines + "/" + simulate::LineFileName(line));
  }
  SurveyRun run;
  if (scenario.by_count) params.Set("Estimator", "AskNeighbours", "false");
  run.settings = {.resolution_m = core::Lattice(scenario.resolution_m).spacing_m(),
                  .min_resolution_m = core::Lattice(scenario.min_resolution_m).spacing_m(),
                  .estimator = core::ReadEstimatorSettings(params),
                  .refinement = core::ReadRefinementSettings(params)};
  params.Set("Engine", "WorkingDirectory", folder.string());
  {
    SGDebugClient engine(params);
    engine.SetLogFilter(SlogLevel(4));
    Grid(scenario, files, engine, run);
  }
  ReadSoundings(scenario, files, params, run);
  run.plan = std::make_unique<simulate::SurveyPlan>(scenario.survey);
  run.seafloor = simulate::MakeSeafloor(scenario.survey, run.plan->origin());
  return run;
}

}  // namespace quarro::accuracy
