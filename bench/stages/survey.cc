// The data of the stages: a simulated survey, and what each stage makes of it.
#include "bench/stages/survey.h"

#include <algorithm>
#include <filesystem>

#include "bench/awaited.h"
#include "gridding/core/cell_state.h"
#include "gridding/local/sg_debug_client.h"
#include "gridding/survey/line_reader.h"
#include "simulate/survey_writer.h"

namespace quarro::bench {

namespace {

constexpr std::uint32_t kCopiesPerSide = 4;

simulate::SurveyOptions Options() {
  simulate::SurveyOptions options;
  options.seafloor = "mix";
  options.canyon_depth_m = 1.0;  // none
  options.depth_m = 40.0;
  options.lines = 4;
  options.line_length_m = 200.0;
  options.heading_deg = 0.0;
  options.beams = 400;
  options.ping_rate_hz = 10.0;
  options.spikes = 0.01;
  options.flagged = 0.01;
  options.seed = 20261121;
  options.uncertainty.horizontal_fixed_m = 0.3;
  options.uncertainty.horizontal_proportional = 0.005;
  return options;
}

void AddToCells(const core::BinnedChunk& chunk, std::uint32_t line,
                std::map<core::CellIndex, core::CellSoundings>& cells) {
  for (const core::BinnedChunk::Run& run : chunk.runs) {
    const auto soundings = chunk.SoundingsOf(run);
    core::CellSoundings& cell = cells[run.cell];
    cell.soundings.insert(cell.soundings.end(), soundings.begin(), soundings.end());
    if (cell.runs.empty() || cell.runs.back().line != line) cell.runs.push_back({line, 0});
    cell.runs.back().count += run.count;
  }
}

std::shared_ptr<const ResultDepth> GridSurvey(const Survey& survey) {
  constexpr std::uint32_t kBoundsQuery = 4;
  constexpr std::uint32_t kFullResolution = 1;
  const TestDirectory folder;
  MParams params;
  params.Set("Engine", "WorkingDirectory", folder.Path());
  SGDebugClient engine(params);
  engine.SetLogFilter(SlogLevel(4));
  Awaited awaited;
  engine.AttachEngine(engine.FindEngines().front());
  engine.ConstructGrid("stages", kCell_m, kFinestNode_m, awaited.Callback());
  FetchResult<ResultPosAck>(engine, awaited.Wait());
  for (std::uint32_t i = 0; i < survey.files.size(); ++i) {
    engine.AddLine(survey.files[i], i, false, awaited.Callback());
    FetchResult<ResultLineAdded>(engine, awaited.Wait());
  }
  engine.RefineGrid(0, awaited.Callback());
  FetchResult<ResultPosAck>(engine, awaited.Wait());
  engine.RequestQuery(kBoundsQuery, awaited.Callback());
  const SGBoundingBox bounds = FetchResult<ResultBBox>(engine, awaited.Wait())->bounds;
  engine.RequestDepth(bounds, 0, kFullResolution, awaited.Callback());
  std::shared_ptr<const ResultDepth> depths = FetchResult<ResultDepth>(engine, awaited.Wait());
  engine.DetachEngine();
  return depths;
}

// What the cells of a mosaic stand in, and what their refinements point at.
struct MosaicStorage {
  std::vector<DepthCell> cells;
  std::shared_ptr<const ResultDepth> original;
};

std::shared_ptr<const ResultDepth> RepeatSideBySide(
    const std::shared_ptr<const ResultDepth>& depths) {
  const ResultGrid<DepthCell>& one = depths->grid;
  auto storage = std::make_shared<MosaicStorage>();
  storage->original = depths;
  storage->cells.reserve(std::size_t{one.rows} * one.columns * kCopiesPerSide * kCopiesPerSide);
  for (std::uint32_t row = 0; row < one.rows * kCopiesPerSide; ++row) {
    for (std::uint32_t column = 0; column < one.columns * kCopiesPerSide; ++column) {
      storage->cells.push_back(one.At(row % one.rows, column % one.columns));
    }
  }
  auto mosaic = std::make_shared<ResultDepth>();
  const double west_m = depths->bounds.west();
  const double south_m = depths->bounds.south();
  mosaic->bounds =
      SGBoundingBox(west_m, south_m, west_m + kCell_m * (one.columns * kCopiesPerSide - 1.0),
                    south_m + kCell_m * (one.rows * kCopiesPerSide - 1.0));
  mosaic->grid = {one.rows * kCopiesPerSide, one.columns * kCopiesPerSide, storage->cells.data(),
                  storage};
  return mosaic;
}

}  // namespace

Survey::Survey() {
  const simulate::SurveyOptions options = Options();
  utm_zone = options.Zone();
  settings.resolution_m = kCell_m;
  settings.min_resolution_m = kFinestNode_m;
  simulate::WriteSurvey(options, folder.Path(), 0, true);
  survey::Georeferencer georeferencer(utm_zone, model);
  core::Binner binner{core::Lattice(kCell_m)};
  survey::BeamAccount account;
  std::uint64_t too_uncertain = 0;
  for (std::uint32_t line = 0; line < options.lines; ++line) {
    files.push_back(folder.Path(simulate::LineFileName(line)));
    file_bytes += std::filesystem::file_size(files.back());
    const auto reader = survey::OpenLine(files.back());
    survey::PingChunk chunk;
    while (reader->Next(chunk, account)) {
      chunks.push_back(chunk);
      chunk_lines.push_back(line + 1);
      placed.emplace_back();
      georeferencer.Place(chunk, placed.back(), account);
      binned.push_back(binner.Bin(placed.back(), too_uncertain));
      AddToCells(binned.back(), line + 1, cells);
      soundings += binned.back().soundings.size();
    }
  }
  beams = account.read;
}

const Survey& TheSurvey() {
  static const Survey kSurvey;
  return kSurvey;
}

const std::vector<RefinableCell>& RefinableCells() {
  static const std::vector<RefinableCell> kCells = [] {
    const Survey& survey = TheSurvey();
    std::vector<RefinableCell> refinable;
    for (const auto& [index, cell] : survey.cells) {
      core::CellState state;
      core::AddSoundings(cell.soundings, 1, survey.settings, state);
      RefinableCell found;
      found.nodes_per_side = core::NodesPerSide(state.statistics, survey.settings);
      if (found.nodes_per_side < 2) continue;
      for (std::int32_t i = 0; i < 9; ++i) {
        const auto near = survey.cells.find({index.row + i / 3 - 1, index.column + i % 3 - 1});
        if (near != survey.cells.end()) found.cells[static_cast<std::size_t>(i)] = &near->second;
      }
      refinable.push_back(found);
    }
    return refinable;
  }();
  return kCells;
}

const DepthMosaic& TheDepths() {
  static const DepthMosaic kDepths = [] {
    DepthMosaic mosaic;
    mosaic.depths = RepeatSideBySide(GridSurvey(TheSurvey()));
    const ResultGrid<DepthCell>& grid = mosaic.depths->grid;
    mosaic.cells = std::uint64_t{grid.rows} * grid.columns;
    for (std::uint64_t i = 0; i < mosaic.cells; ++i) {
      const RefinementBlock* block = grid.cells[i].refinement;
      if (block != nullptr) mosaic.nodes += std::uint64_t{block->nodes_a} * block->nodes_b;
    }
    return mosaic;
  }();
  return kDepths;
}

}  // namespace quarro::bench
