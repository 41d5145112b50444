// Laws that hold for every survey, whatever its statistics.

#include <algorithm>
#include <cmath>
#include <fstream>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "gridding/local/engine_test_support.h"
#include "gridding/survey/test_pings.h"

namespace quarro::testing {
namespace {

constexpr float kCell_m = 10.0F;

// A text line whose coordinates are multiples of 1/256 m, so that a shift by whole metres is exact.
void WriteExactly(const std::string& path, double east_shift_m, double north_shift_m) {
  std::mt19937 random(11);
  std::normal_distribution<double> noise(0.0, 0.1);
  std::uniform_int_distribution<int> place(0, 40 * 256);
  std::ofstream out(path);
  out.precision(17);
  for (int i = 0; i < 12000; ++i) {
    const double east_m = place(random) / 256.0;
    const double north_m = place(random) / 256.0;
    const double spike_m = i % 41 == 0 ? -6.0 : 0.0;
    const double depth_m = 25.0 + 0.1 * east_m + std::sin(north_m / 5.0) + noise(random) + spike_m;
    out << 4096.0 + east_m + east_shift_m << ' ' << 8192.0 + north_m + north_shift_m << ' '
        << std::round(depth_m * 1024.0) / 1024.0 << " 0.1 0.125\n";
  }
}

struct Surface {
  std::unique_ptr<ResultDepth> depth;
  std::unique_ptr<ResultHypos> hypotheses;
};

Surface SurfaceOf(const std::string& path, const FreshDirectory& directory,
                  const std::string& name) {
  SGDebugClient client(ParametersFor(directory.path()));
  Attach(client);
  Construct(client, name, kCell_m, 0.5F);
  EXPECT_EQ(Add(client, path)->failed, 0U);
  Refine(client);
  const SGBoundingBox bounds = GridBounds(client);
  return {Depth(client, bounds), Hypotheses(client, bounds)};
}

void ExpectSame(const NodalDepth& moved, const NodalDepth& estimate) {
  EXPECT_EQ(moved.depth_m, estimate.depth_m);
  EXPECT_EQ(moved.variance_m2, estimate.variance_m2);
  EXPECT_EQ(moved.hypothesis_count, estimate.hypothesis_count);
  EXPECT_EQ(moved.hypothesis_strength, estimate.hypothesis_strength);
}

void ExpectSame(const DepthCell& moved, const DepthCell& cell) {
  EXPECT_EQ(moved.resolution_m, cell.resolution_m);
  ExpectSame(moved.estimate, cell.estimate);
  ASSERT_EQ(moved.refinement == nullptr, cell.refinement == nullptr);
  if (cell.refinement == nullptr) return;
  const RefinementBlock& block = *cell.refinement;
  ASSERT_EQ(moved.refinement->nodes_a, block.nodes_a);
  ASSERT_EQ(moved.refinement->nodes_b, block.nodes_b);
  for (std::uint32_t i = 0; i < block.nodes_a * block.nodes_b; ++i) {
    ExpectSame(moved.refinement->nodes[i].estimate, block.nodes[i].estimate);
    EXPECT_EQ(moved.refinement->nodes[i].sample_count, block.nodes[i].sample_count);
  }
}

class MovedSurvey : public ::testing::Test {
 protected:
  // So far that single precision, which has the place of each sounding in its cell, would not do
  // for its place on the map.
  static constexpr double kEast_m = 50'037 * kCell_m;
  static constexpr double kNorth_m = 511'987 * kCell_m;

  MovedSurvey() {
    WriteExactly(directory_ / "here.xyz", 0.0, 0.0);
    WriteExactly(directory_ / "there.xyz", kEast_m, kNorth_m);
    here_ = SurfaceOf(directory_ / "here.xyz", directory_, "here");
    there_ = SurfaceOf(directory_ / "there.xyz", directory_, "there");
  }

  const FreshDirectory directory_;
  Surface here_;
  Surface there_;
};

TEST_F(MovedSurvey, ByWholeCellsHasTheSameDepthsMoved) {
  EXPECT_EQ(there_.depth->bounds.west(), here_.depth->bounds.west() + kEast_m);
  EXPECT_EQ(there_.depth->bounds.south(), here_.depth->bounds.south() + kNorth_m);
  EXPECT_EQ(there_.depth->bounds.east(), here_.depth->bounds.east() + kEast_m);
  EXPECT_EQ(there_.depth->bounds.north(), here_.depth->bounds.north() + kNorth_m);
  const ResultGrid<DepthCell>& here = here_.depth->grid;
  const ResultGrid<DepthCell>& there = there_.depth->grid;
  ASSERT_EQ(there.rows, here.rows);
  ASSERT_EQ(there.columns, here.columns);
  std::uint32_t with_depth = 0;
  std::uint32_t refined = 0;
  for (std::uint32_t row = 0; row < here.rows; ++row) {
    for (std::uint32_t column = 0; column < here.columns; ++column) {
      SCOPED_TRACE("row " + std::to_string(row) + " column " + std::to_string(column));
      const DepthCell& cell = here.At(row, column);
      ASSERT_NO_FATAL_FAILURE(ExpectSame(there.At(row, column), cell));
      if (cell.estimate.depth_m != kNoDepth) ++with_depth;
      if (cell.refinement != nullptr) ++refined;
    }
  }
  // 40 m of survey in cells of 10 m, of which half stand out at either end.
  EXPECT_EQ(with_depth, 25U);
  EXPECT_EQ(refined, 25U);
}

TEST_F(MovedSurvey, ByWholeCellsHasTheSameHypothesesMoved) {
  const ResultHypos& here = *here_.hypotheses;
  const ResultHypos& there = *there_.hypotheses;
  ASSERT_EQ(there.count, here.count);
  ASSERT_GT(here.count, 1000U);
  for (std::uint64_t i = 0; i < here.count; ++i) {
    const NodalHypos& a = here.nodes[i];
    const NodalHypos& b = there.nodes[i];
    ASSERT_DOUBLE_EQ(b.easting_m, a.easting_m + kEast_m);
    ASSERT_DOUBLE_EQ(b.northing_m, a.northing_m + kNorth_m);
    ASSERT_EQ(b.resolution_m, a.resolution_m);
    ASSERT_EQ(b.hypothesis_strength, a.hypothesis_strength);
    ASSERT_EQ(b.count, a.count);
    for (std::uint32_t k = 0; k < a.count; ++k) {
      ASSERT_EQ(b.hypotheses[k].depth_m, a.hypotheses[k].depth_m);
      ASSERT_EQ(b.hypotheses[k].variance_m2, a.hypotheses[k].variance_m2);
      ASSERT_EQ(b.hypotheses[k].sample_count, a.hypotheses[k].sample_count);
    }
  }
}

constexpr std::size_t kBeams = 64;

// Pings whose beams stand in the file in an order of the seed's: some flagged, some too uncertain
// to say anything of a cell.
void WritePings(const std::string& path, unsigned order_seed) {
  survey::GsfWriter writer(path);
  std::mt19937 random(5);
  std::mt19937 order_random(order_seed);
  std::vector<std::size_t> order(kBeams);
  std::iota(order.begin(), order.end(), 0U);
  for (int i = 0; i < 40; ++i) {
    if (order_seed != 0) std::shuffle(order.begin(), order.end(), order_random);
    survey::PingArrays swath = survey::FlatSwath(kBeams, 25.0F);
    for (std::size_t beam = 0; beam < kBeams; ++beam) {
      const std::size_t at = order[beam];
      swath.depth_m[at] = 25.0F + 0.01F * static_cast<float>(random() % 20);
      swath.across_m[at] = static_cast<float>(beam) - 32.0F;
      swath.horizontal_m[at] = beam % 13 == 0 ? 60.0F : 0.5F;
      swath.flags[at] = beam % 7 == 0 ? 1 : 0;
    }
    survey::GsfPing ping = swath.Ping();
    ping.time_ns = 1'541'193'704'000'000'000 + std::int64_t{i} * 1'000'000'000;
    ping.longitude_deg = 9.0 + i * 1e-5;
    ping.latitude_deg = 0.01;
    ping.heading_deg = 90.0;
    writer.WritePing(ping);
  }
  writer.Close();
}

TEST(Properties, TheAccountsOfBeamsDoNotDependOnTheirOrderWithinAPing) {
  const FreshDirectory directory;
  std::vector<std::vector<std::uint32_t>> accounts;
  std::vector<std::vector<std::uint32_t>> cells;
  for (const unsigned seed : {0U, 1U, 2U}) {
    const std::string name = "order" + std::to_string(seed);
    WritePings(directory / (name + ".gsf"), seed);
    SGDebugClient client(ParametersFor(directory.path()));
    Attach(client);
    Construct(client, name, kCell_m, 1.0F);
    const auto line = Add(client, directory / (name + ".gsf"));
    accounts.push_back(
        {line->pings, line->soundings_per_ping, line->rejected_by_flag, line->offered, line->used});
    const auto records = Resolution(client, GridBounds(client));
    cells.emplace_back();
    for (std::uint32_t i = 0; i < records->grid.rows * records->grid.columns; ++i) {
      cells.back().push_back(records->grid.cells[i].soundings);
    }
  }
  EXPECT_GT(accounts[0][2], 0U);                            // flagged
  EXPECT_GT(accounts[0][3], 0U);                            // offered
  EXPECT_LT(accounts[0][2] + accounts[0][3], 40 * kBeams);  // the rest refused
  EXPECT_EQ(accounts[1], accounts[0]);
  EXPECT_EQ(accounts[2], accounts[0]);
  EXPECT_EQ(cells[1], cells[0]);
  EXPECT_EQ(cells[2], cells[0]);
}

}  // namespace
}  // namespace quarro::testing
