#include "gridding/core/refinement.h"

#include <cmath>
#include <functional>
#include <limits>
#include <random>

#include <gtest/gtest.h>

#include "gridding/core/encoding.h"

namespace quarro::core {
namespace {

constexpr double kCell_m = 16.0;

GridSettings Settings() {
  GridSettings settings;
  settings.resolution_m = kCell_m;
  settings.min_resolution_m = 0.5;
  return settings;
}

using Depth = std::function<double(double, double)>;

// Nine cells full of soundings of a seafloor, positions relative to the centre cell's node.
struct Survey {
  std::array<CellSoundings, 9> cells;
  Neighbourhood neighbourhood{};

  Survey(unsigned seed, int soundings_per_cell, double sigma_m, const Depth& seafloor) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> place(-kCell_m / 2, kCell_m / 2);
    std::normal_distribution<double> noise(0.0, sigma_m);
    for (std::size_t i = 0; i < cells.size(); ++i) {
      const double shift_east_m = (static_cast<double>(i % 3) - 1) * kCell_m;
      const double shift_north_m = (static_cast<double>(i / 3) - 1) * kCell_m;
      for (int k = 0; k < soundings_per_cell; ++k) {
        const double east_m = place(random);
        const double north_m = place(random);
        const double depth_m =
            seafloor(east_m + shift_east_m, north_m + shift_north_m) + noise(random);
        cells[i].soundings.push_back(Pack({east_m, north_m}, {0, 0}, static_cast<float>(depth_m),
                                          static_cast<float>(sigma_m), 0.05F));
      }
      cells[i].runs = {{1, static_cast<std::uint32_t>(soundings_per_cell)}};
      neighbourhood[i] = &cells[i];
    }
  }
};

double NodeOffset(std::size_t index, std::size_t side) {
  const double spacing_m = kCell_m / static_cast<double>(side);
  return (static_cast<double>(index) + 0.5) * spacing_m - kCell_m / 2;
}

TEST(CellRefiner, NodesCarryTheSeafloorAtTheirOwnPlaces) {
  const Depth slope = [](double east_m, double north_m) {
    return 30.0 + 0.2 * east_m - 0.1 * north_m;
  };
  const Survey survey(1, 2000, 0.05, slope);
  CellRefiner refiner(Settings());
  Refinement refinement;
  refiner.Refine(16, survey.neighbourhood, refinement);
  ASSERT_EQ(refinement.nodes_per_side, 16U);
  ASSERT_EQ(refinement.first.size(), 257U);
  int covered = 0;
  for (std::size_t row = 0; row < 16; ++row) {
    for (std::size_t column = 0; column < 16; ++column) {
      const auto node = refinement.Node(row * 16 + column);
      ASSERT_FALSE(node.empty());
      const double truth = slope(NodeOffset(column, 16), NodeOffset(row, 16));
      EXPECT_NEAR(node[0].depth_m, truth, 0.15);
      if (std::abs(node[0].depth_m - truth) <= 1.96 * std::sqrt(node[0].variance_m2)) ++covered;
    }
  }
  EXPECT_GE(covered, 230);
}

TEST(CellRefiner, NeighboursReachNodesAtTheEdge) {
  const Survey survey(2, 600, 0.05, [](double, double) { return 30.0; });
  Neighbourhood alone{};
  alone[kCentre] = survey.neighbourhood[kCentre];
  CellRefiner refiner(Settings());
  Refinement with;
  Refinement without;
  refiner.Refine(8, survey.neighbourhood, with);
  refiner.Refine(8, alone, without);
  std::uint32_t more = 0;
  for (std::size_t column = 0; column < 8; ++column) {
    if (with.Node(column)[0].sample_count > without.Node(column)[0].sample_count) ++more;
  }
  EXPECT_GE(more, 6U);
  // An inner node sees only its own cell, but for the trend and noise that it shares.
  EXPECT_EQ(with.Node(3 * 8 + 3)[0].sample_count, without.Node(3 * 8 + 3)[0].sample_count);
}

TEST(CellRefiner, SoundingsOutOfEveryNodesReachChangeNothing) {
  Survey survey(3, 400, 0.05, [](double, double) { return 30.0; });
  CellRefiner refiner(Settings());
  Refinement before;
  refiner.Refine(8, survey.neighbourhood, before);
  // The far corner of the south-western neighbour, farther than the ring around the cell.
  survey.cells[0].soundings.push_back(Pack({-7.9, -7.9}, {0, 0}, 3.0F, 0.1F, 0.1F));
  survey.cells[0].runs[0].count += 1;
  Refinement after;
  refiner.Refine(8, survey.neighbourhood, after);
  EXPECT_EQ(after.first, before.first);
  EXPECT_EQ(after.hypotheses, before.hypotheses);
}

TEST(CellRefiner, NodesWithoutSoundingsInReachHaveNoHypothesis) {
  CellSoundings corner;
  for (int i = 0; i < 20; ++i) {
    corner.soundings.push_back(Pack({-7.0, -7.0}, {0, 0}, 30.0F, 0.1F, 0.1F));
  }
  corner.runs = {{1, 20}};
  Neighbourhood cells{};
  cells[kCentre] = &corner;
  CellRefiner refiner(Settings());
  Refinement refinement;
  refiner.Refine(8, cells, refinement);
  EXPECT_EQ(refinement.Node(0).size(), 1U);
  EXPECT_EQ(refinement.Node(0)[0].sample_count, 20U);
  for (std::size_t node = 1; node < 64; ++node) EXPECT_TRUE(refinement.Node(node).empty());
}

TEST(CellRefiner, LinesAreTakenInTheirOrderAcrossCells) {
  class Recorder : public EstimatorTrace {
   public:
    void Step(const std::string& line) override { lines.push_back(line.substr(0, 14)); }
    std::vector<std::string> lines;
  };
  // A node in the corner of the cell takes soundings of two cells and two lines; with a queue of
  // one they are taken as they come.
  GridSettings settings = Settings();
  settings.estimator.queue_length = 1;
  CellSoundings own;
  own.soundings = {Pack({-7.5, 0.5}, {0, 0}, 20.01F, 0.1F, 0.1F),
                   Pack({-7.5, 0.5}, {0, 0}, 20.03F, 0.1F, 0.1F)};
  own.runs = {{1, 1}, {2, 1}};
  CellSoundings west;
  west.soundings = {Pack({7.9, 0.5}, {0, 0}, 20.00F, 0.1F, 0.1F),
                    Pack({7.9, 0.5}, {0, 0}, 20.02F, 0.1F, 0.1F)};
  west.runs = {{1, 1}, {2, 1}};
  Neighbourhood cells{};
  cells[kCentre] = &own;
  cells[kCentre - 1] = &west;
  Recorder recorder;
  CellRefiner refiner(settings);
  Refinement refinement;
  refiner.Refine(16, cells, refinement, &recorder, 8 * 16);
  EXPECT_EQ(recorder.lines, (std::vector<std::string>{"value 20.000 m", "value 20.010 m",
                                                      "value 20.020 m", "value 20.030 m"}));
}

TEST(Refinement, ReadsBackAsItWasWritten) {
  const Survey survey(4, 300, 0.2, [](double, double) { return 30.0; });
  CellRefiner refiner(Settings());
  Refinement refinement;
  refiner.Refine(7, survey.neighbourhood, refinement);
  std::vector<std::byte> bytes;
  Encode(refinement, bytes);
  Refinement copy;
  Decode(bytes, copy);
  EXPECT_EQ(copy.nodes_per_side, 7U);
  EXPECT_EQ(copy.first, refinement.first);
  EXPECT_EQ(copy.hypotheses, refinement.hypotheses);
}

TEST(Refinement, BytesThatDoNotAddUpAreRefused) {
  const Survey survey(4, 300, 0.2, [](double, double) { return 30.0; });
  CellRefiner refiner(Settings());
  Refinement refinement;
  refiner.Refine(7, survey.neighbourhood, refinement);
  std::vector<std::byte> bytes;
  Encode(refinement, bytes);
  Refinement copy;
  std::vector<std::byte> damaged = bytes;
  damaged[8] = std::byte{200};
  EXPECT_THROW(Decode(damaged, copy), EncodingError);
  damaged = bytes;
  damaged[3] = std::byte{255};  // a side of four thousand million nodes
  EXPECT_THROW(Decode(damaged, copy), EncodingError);
  damaged = bytes;
  damaged.pop_back();
  EXPECT_THROW(Decode(damaged, copy), EncodingError);
}

TEST(Refinement, SoundingsWithValuesThatNoSoundingHasAreRefused) {
  constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
  CellSoundings cell;
  cell.runs = {{1, 1}};
  Neighbourhood cells{};
  cells[kCentre] = &cell;
  CellRefiner refiner(Settings());
  Refinement refinement;
  const PackedSounding good = Pack({1.0, 2.0}, {0.0, 0.0}, 20.0F, 0.1F, 0.2F);
  cell.soundings = {good};
  refiner.Refine(2, cells, refinement);
  cell.soundings[0].east_m = kNaN;
  EXPECT_THROW(refiner.Refine(2, cells, refinement), EncodingError);
  cell.soundings[0] = good;
  cell.soundings[0].depth_m = kNaN;
  EXPECT_THROW(refiner.Refine(2, cells, refinement), EncodingError);
}

TEST(Refinement, ValuesThatNoRefinementHasAreRefused) {
  Refinement good;
  good.nodes_per_side = 1;
  good.first = {0, 1};
  good.hypotheses = {{20.0F, 0.01F, 5}};
  std::vector<std::byte> bytes;
  Encode(good, bytes);
  Refinement copy;
  Decode(bytes, copy);
  EXPECT_EQ(copy.hypotheses, good.hypotheses);

  Refinement wrong = good;
  wrong.hypotheses[0].depth_m = std::numeric_limits<float>::quiet_NaN();
  Encode(wrong, bytes);
  EXPECT_THROW(Decode(bytes, copy), EncodingError);
  wrong = good;
  wrong.hypotheses[0].variance_m2 = -1.0F;
  Encode(wrong, bytes);
  EXPECT_THROW(Decode(bytes, copy), EncodingError);
  wrong.nodes_per_side = 0;
  wrong.first = {0};
  wrong.hypotheses.clear();
  Encode(wrong, bytes);
  EXPECT_THROW(Decode(bytes, copy), EncodingError);
}

}  // namespace
}  // namespace quarro::core
