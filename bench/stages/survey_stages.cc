// From GSF files to soundings in cells.
#include <benchmark/benchmark.h>

#include "bench/stages/bandwidth.h"
#include "bench/stages/survey.h"
#include "gridding/core/binning.h"
#include "gridding/survey/georeference.h"
#include "gridding/survey/line_reader.h"

namespace quarro::bench {

namespace {

// Of one beam between reader and georeferencer: five floats and a flag.
constexpr std::uint64_t kBeamBytes = 5 * sizeof(float) + 1;
// Of one placed sounding: two doubles and three floats.
constexpr std::uint64_t kSoundingBytes = 2 * sizeof(double) + 3 * sizeof(float);

void GsfDecode(benchmark::State& state) {
  const Survey& survey = TheSurvey();
  survey::PingChunk chunk;
  for ([[maybe_unused]] auto iteration : state) {
    survey::BeamAccount account;
    for (const auto& file : survey.files) {
      const auto reader = survey::OpenLine(file);
      while (reader->Next(chunk, account)) benchmark::DoNotOptimize(chunk.depth_m.data());
    }
  }
  ReportRates(state, survey.beams, survey.file_bytes + survey.beams * kBeamBytes);
}
BENCHMARK(GsfDecode)->Unit(benchmark::kMillisecond);

void Georeference(benchmark::State& state) {
  const Survey& survey = TheSurvey();
  survey::Georeferencer georeferencer(survey.utm_zone, survey.model);
  survey::Soundings placed;
  for ([[maybe_unused]] auto iteration : state) {
    survey::BeamAccount account;
    for (const survey::PingChunk& chunk : survey.chunks) {
      placed.Clear();
      georeferencer.Place(chunk, placed, account);
      benchmark::DoNotOptimize(placed.easting_m.data());
    }
  }
  ReportRates(state, survey.beams, survey.beams * (kBeamBytes + kSoundingBytes));
}
BENCHMARK(Georeference)->Unit(benchmark::kMillisecond);

void DecodeAndGeoreference(benchmark::State& state) {
  const Survey& survey = TheSurvey();
  survey::Georeferencer georeferencer(survey.utm_zone, survey.model);
  survey::PingChunk chunk;
  survey::Soundings placed;
  for ([[maybe_unused]] auto iteration : state) {
    survey::BeamAccount account;
    for (const auto& file : survey.files) {
      const auto reader = survey::OpenLine(file);
      while (reader->Next(chunk, account)) {
        placed.Clear();
        georeferencer.Place(chunk, placed, account);
        benchmark::DoNotOptimize(placed.easting_m.data());
      }
    }
  }
  ReportRates(state, survey.beams,
              survey.file_bytes + survey.beams * (2 * kBeamBytes + kSoundingBytes));
}
BENCHMARK(DecodeAndGeoreference)->Unit(benchmark::kMillisecond);

void Binning(benchmark::State& state) {
  const Survey& survey = TheSurvey();
  core::Binner binner{core::Lattice(kCell_m)};
  for ([[maybe_unused]] auto iteration : state) {
    std::uint64_t too_uncertain = 0;
    for (const survey::Soundings& placed : survey.placed) {
      benchmark::DoNotOptimize(binner.Bin(placed, too_uncertain).soundings.data());
    }
  }
  ReportRates(state, survey.soundings,
              survey.soundings * (kSoundingBytes + sizeof(core::PackedSounding)));
}
BENCHMARK(Binning)->Unit(benchmark::kMillisecond);

}  // namespace

}  // namespace quarro::bench
