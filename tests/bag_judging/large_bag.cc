// Writes a large generated depth result as a BAG file and tells time, size and memory, in one line
// of JSON. Its values follow from a node's place, so that judge_large.py knows them.

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "cli/command_state.h"
#include "engine/results.h"
#include "output/bag_writer.h"
#include "output/utm_projection.h"
#include "support/mparams.h"

namespace quarro {
namespace {

constexpr std::uint32_t kSide = 50;  // nodes along each side of a cell, 1 m apart
constexpr double kCellSpacingM = 50.0;
constexpr std::uint32_t kBlocks = 64;
constexpr std::uint32_t kNodesPerBlock = kSide * kSide;
constexpr double kWestM = 300000.0;
constexpr double kSouthM = 4700000.0;

std::uint64_t AnonymousKiB() {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    if (word == "RssAnon:") {
      std::uint64_t kib = 0;
      status >> kib;
      return kib;
    }
  }
  return 0;
}

// Watches the process's anonymous memory from its making until Peak.
class MemoryWatch {
 public:
  MemoryWatch() : thread_([this] { Watch(); }) {}
  MemoryWatch(const MemoryWatch&) = delete;
  MemoryWatch& operator=(const MemoryWatch&) = delete;
  ~MemoryWatch() { Stop(); }

  std::uint64_t PeakKiB() {
    Stop();
    return peak_kib_;
  }

 private:
  void Watch() {
    std::unique_lock lock(mutex_);
    do {
      peak_kib_ = std::max(peak_kib_, AnonymousKiB());
    } while (!condition_.wait_for(lock, std::chrono::milliseconds(2), [this] { return stopped_; }));
  }

  void Stop() {
    {
      const std::scoped_lock lock(mutex_);
      stopped_ = true;
    }
    condition_.notify_one();
    if (thread_.joinable()) {
      thread_.join();
    }
  }

  std::mutex mutex_;
  std::condition_variable condition_;
  bool stopped_ = false;        // guarded by mutex_
  std::uint64_t peak_kib_ = 0;  // guarded by mutex_
  std::thread thread_;
};

// Noise in every bit that a float of 40 m has, as estimates have it: no easier to compress.
RefinedNode Node(std::uint32_t number) {
  const std::uint32_t noise = number * 2654435761U;
  if (number % 97 == 0) {
    return {};
  }
  RefinedNode node;
  node.estimate.depth_m = 40.0F + static_cast<float>(noise >> 14U) / 262144.0F;
  node.estimate.variance_m2 = 0.0078125F + static_cast<float>(noise >> 20U) / 262144.0F;
  node.estimate.hypothesis_count = 1 + number % 3;
  node.estimate.hypothesis_strength = static_cast<float>(number % 5);
  node.sample_count = static_cast<std::uint16_t>(5 + number % 16);
  return node;
}

// Many cells share few blocks, so that the result itself takes little memory. Neighbouring chunks
// of the file hold different blocks all the same.
class GeneratedDepth {
 public:
  GeneratedDepth(std::uint32_t rows, std::uint32_t columns) {
    for (std::uint32_t i = 0; i < kBlocks * kNodesPerBlock; ++i) {
      nodes_.push_back(Node(i));
    }
    for (std::uint32_t block = 0; block < kBlocks; ++block) {
      blocks_.push_back({kSide, kSide, &nodes_[std::size_t{block} * kNodesPerBlock]});
    }
    cells_.reserve(std::size_t{rows} * columns);
    for (std::uint32_t row = 0; row < rows; ++row) {
      for (std::uint32_t column = 0; column < columns; ++column) {
        const std::uint32_t block = (7 * row + column) % kBlocks;
        cells_.push_back({.resolution_m = 1.0F,
                          .estimate = {.depth_m = 40.0F + static_cast<float>(block) / 64.0F,
                                       .variance_m2 = 0.25F,
                                       .hypothesis_count = 1},
                          .refinement = &blocks_[block]});
      }
    }
    grid_ = {rows, columns, cells_.data(), nullptr};
  }
  GeneratedDepth(const GeneratedDepth&) = delete;
  GeneratedDepth& operator=(const GeneratedDepth&) = delete;

  const ResultGrid<DepthCell>& grid() const { return grid_; }

 private:
  std::vector<RefinedNode> nodes_;
  std::vector<RefinementBlock> blocks_;
  std::vector<DepthCell> cells_;
  ResultGrid<DepthCell> grid_;
};

// What the layers take before compression.
std::uint64_t LayerBytes(std::uint64_t cells) {
  constexpr std::uint64_t kPerCell = 4 + 4 + 8 + 28;
  constexpr std::uint64_t kPerNode = 8 + 12;
  return cells * (kPerCell + kNodesPerBlock * kPerNode);
}

void Write(std::uint32_t rows, std::uint32_t columns, const std::string& path) {
  MParams params;
  params.Set("ClientServer", "BAGMetadataTemplate",
             QUARRO_SOURCE_DIR "/examples/bag_metadata_north.xml");
  CommandState state(nullptr, params);
  state.log.SetFilter(SlogLevel(4));
  state.grid_name.Set("large");
  state.projection.Set(std::make_shared<const UTMProjection>(19));
  const GeneratedDepth depth(rows, columns);

  const std::uint64_t before_kib = AnonymousKiB();
  MemoryWatch watch;
  const auto start = std::chrono::steady_clock::now();
  WriteVariableResolutionBag(state, depth.grid(), kSouthM + (rows - 1) * kCellSpacingM, kSouthM,
                             kWestM, kWestM + (columns - 1) * kCellSpacingM, path);
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
  std::cout << "{\"rows\": " << rows << ", \"columns\": " << columns
            << ", \"seconds\": " << elapsed.count()
            << ", \"file_bytes\": " << std::filesystem::file_size(path)
            << ", \"layer_bytes\": " << LayerBytes(std::uint64_t{rows} * columns)
            << ", \"kib_before\": " << before_kib << ", \"kib_peak\": " << watch.PeakKiB() << "}\n";
}

}  // namespace
}  // namespace quarro

int main(int argc, char** argv) {
  if (argc != 4) {
    std::cerr << "usage: large_bag ROWS COLUMNS FILE.bag\n";
    return 2;
  }
  try {
    quarro::Write(static_cast<std::uint32_t>(std::stoul(argv[1])),
                  static_cast<std::uint32_t>(std::stoul(argv[2])), argv[3]);
  } catch (const quarro::CommandState::bag_output_failed&) {
    return 1;  // the writer has said why
  } catch (const std::exception& failure) {
    std::cerr << argv[3] << ": " << failure.what() << '\n';
    return 1;
  }
  return 0;
}
