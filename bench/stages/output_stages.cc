// Results to files, and over the network's encoding.
#include <filesystem>
#include <memory>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

#include "bag/bag.h"
#include "bench/stages/bandwidth.h"
#include "bench/stages/survey.h"
#include "cli/command_state.h"
#include "gridding/rpc/result_wire.h"
#include "output/bag_writer.h"
#include "output/text_writers.h"
#include "output/utm_projection.h"
#include "slog/slog.h"
#include "support/mparams.h"
#include "support/test_directory.h"

namespace quarro::bench {

namespace {

// Items are nodes.
void TextWrite(benchmark::State& state) {
  const DepthMosaic& mosaic = TheDepths();
  const TestDirectory folder;
  const std::string path = folder.Path("depth.txt");
  for ([[maybe_unused]] auto iteration : state) {
    WriteDepthText(mosaic.depths->grid, mosaic.depths->bounds, path);
  }
  ReportRates(state, mosaic.nodes, std::filesystem::file_size(path));
}
BENCHMARK(TextWrite)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

// Items are nodes, bytes those of the layers before they are compressed.
void BagWrite(benchmark::State& state) {
  const DepthMosaic& mosaic = TheDepths();
  const TestDirectory folder;
  const std::string path = folder.Path("depth.bag");
  MParams params;
  params.Set("ClientServer", "BAGMetadataTemplate", QUARRO_BAG_TEMPLATE);
  CommandState client(nullptr, params);
  client.log.SetFilter(SlogLevel(4));
  client.grid_name.Set("stages");
  client.projection.Set(std::make_shared<const UTMProjection>(TheSurvey().utm_zone));
  const SGBoundingBox& bounds = mosaic.depths->bounds;
  for ([[maybe_unused]] auto iteration : state) {
    WriteVariableResolutionBag(client, mosaic.depths->grid, bounds.north(), bounds.south(),
                               bounds.west(), bounds.east(), path);
  }
  constexpr std::uint64_t kNodeBytes =
      sizeof(bagRefinementRecord) + sizeof(bagRefinementNodeRecord);
  constexpr std::uint64_t kCellBytes =
      2 * sizeof(float) + sizeof(bagNodeRecord) + sizeof(bagRefinementMetadataRecord);
  ReportRates(state, mosaic.nodes, mosaic.nodes * kNodeBytes + mosaic.cells * kCellBytes);
}
BENCHMARK(BagWrite)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

// A result into the chunks of the network and back into a result. Items are nodes, bytes those of
// the chunks.
void ResultTransfer(benchmark::State& state) {
  constexpr std::uint64_t kHeapBytes = std::uint64_t{1} << 30U;
  const DepthMosaic& mosaic = TheDepths();
  const TestDirectory folder;
  std::uint64_t bytes = 0;
  for ([[maybe_unused]] auto iteration : state) {
    std::vector<v1::ResultChunk> chunks;
    rpc::SendResult(*mosaic.depths, [&](const v1::ResultChunk& chunk) {
      chunks.push_back(chunk);
      return true;
    });
    bytes = 0;
    for (const auto& chunk : chunks) bytes += chunk.data().size();
    std::size_t next = 0;
    const auto received = rpc::ReceiveResult(
        [&](v1::ResultChunk& chunk) {
          if (next == chunks.size()) return false;
          chunk = std::move(chunks[next++]);
          return true;
        },
        folder.Path(), kHeapBytes);
    benchmark::DoNotOptimize(received.get());
  }
  ReportRates(state, mosaic.nodes, bytes);
}
BENCHMARK(ResultTransfer)->Unit(benchmark::kMillisecond);

}  // namespace

}  // namespace quarro::bench
