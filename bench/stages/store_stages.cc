// Soundings into the store and out of it.
#include <cstring>
#include <filesystem>
#include <limits>
#include <memory>
#include <span>
#include <string>

#include <benchmark/benchmark.h>

#include "bench/stages/bandwidth.h"
#include "bench/stages/survey.h"
#include "gridding/core/cell_state.h"
#include "gridding/store/grid_store.h"
#include "support/test_directory.h"

namespace quarro::bench {

namespace {

std::span<const std::byte> BytesOf(const core::CellSoundings& cell) {
  return std::as_bytes(std::span(cell.soundings));
}

std::unique_ptr<store::GridStore> NewGrid(const TestDirectory& folder, const std::string& name) {
  std::string set_aside_as;
  return store::GridStore::Create(folder.Path(), name, {kCell_m, kFinestNode_m}, set_aside_as);
}

// The survey as one line, made durable.
void PutLine(store::GridStore& grid, const Survey& survey, std::span<const std::byte> state) {
  const auto writer = grid.BeginLine();
  for (const auto& [index, cell] : survey.cells) {
    writer->AppendSoundings(index, BytesOf(cell), cell.soundings.size());
    writer->PutCell(index, state);
  }
  store::LineRecord record;
  record.name = "line_001.gsf";
  record.soundings = survey.soundings;
  writer->Commit(record);
}

store::Bytes StateOfOneCell(const Survey& survey) {
  core::CellState state;
  core::AddSoundings(survey.cells.begin()->second.soundings, 1, survey.settings, state);
  store::Bytes bytes;
  core::Encode(state, bytes);
  return bytes;
}

// A line's transaction, up to the moment at which it is on the disc.
void StorePut(benchmark::State& state) {
  const Survey& survey = TheSurvey();
  const store::Bytes cell_state = StateOfOneCell(survey);
  const TestDirectory folder;
  int number = 0;
  for ([[maybe_unused]] auto iteration : state) {
    state.PauseTiming();
    auto grid = NewGrid(folder, "grid" + std::to_string(++number));
    state.ResumeTiming();
    PutLine(*grid, survey, cell_state);
    state.PauseTiming();
    grid.reset();
    for (const auto& entry : std::filesystem::directory_iterator(folder.Path())) {
      std::filesystem::remove_all(entry.path());
    }
    state.ResumeTiming();
  }
  ReportRates(state, survey.soundings, survey.soundings * sizeof(core::PackedSounding));
}
BENCHMARK(StorePut)->Unit(benchmark::kMillisecond)->UseRealTime();

// Every cell's state and soundings, as a refinement reads them.
void StoreScan(benchmark::State& state) {
  const Survey& survey = TheSurvey();
  const TestDirectory folder;
  const auto grid = NewGrid(folder, "grid");
  PutLine(*grid, survey, StateOfOneCell(survey));
  grid->Checkpoint();
  constexpr std::int32_t kFarthest = std::numeric_limits<std::int32_t>::max();
  const store::CellRange everywhere{{-kFarthest, -kFarthest}, {kFarthest, kFarthest}};
  store::Bytes bytes;
  std::vector<store::Snapshot::LineRun> runs;
  for ([[maybe_unused]] auto iteration : state) {
    const auto snapshot = grid->TakeSnapshot();
    std::vector<core::CellIndex> cells;
    snapshot->VisitCells(everywhere, false, [&](const store::Snapshot::Cell& cell) {
      cells.push_back(cell.index);
      benchmark::DoNotOptimize(cell.state.data());
    });
    for (const core::CellIndex cell : cells) {
      bytes.clear();
      runs.clear();
      snapshot->AppendSoundings(cell, bytes, runs);
      benchmark::DoNotOptimize(bytes.data());
    }
  }
  ReportRates(state, survey.soundings, survey.soundings * sizeof(core::PackedSounding));
}
BENCHMARK(StoreScan)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

}  // namespace quarro::bench
