#include "gridding/core/binning.h"

#include <map>
#include <random>

#include <gmock/gmock.h>

namespace quarro::core {
namespace {

using testing::ElementsAre;

void Add(survey::Soundings& soundings, double easting_m, double northing_m, float depth_m,
         float sigma_h_m = 0.5F) {
  soundings.easting_m.push_back(easting_m);
  soundings.northing_m.push_back(northing_m);
  soundings.depth_m.push_back(depth_m);
  soundings.sigma_v_m.push_back(0.25F);
  soundings.sigma_h_m.push_back(sigma_h_m);
}

std::vector<float> DepthsOf(const BinnedChunk& chunk, const BinnedChunk::Run& run) {
  std::vector<float> depths;
  for (const PackedSounding& sounding : chunk.SoundingsOf(run)) depths.push_back(sounding.depth_m);
  return depths;
}

TEST(Binner, KeepsTheOrderOfTheChunkInEachCell) {
  survey::Soundings soundings;
  Add(soundings, 21.0, 1.0, 1.0F);
  Add(soundings, 1.0, 1.0, 2.0F);
  Add(soundings, 19.0, -1.0, 3.0F);
  Add(soundings, -1.0, 2.0, 4.0F);
  Add(soundings, 1.0, 11.0, 5.0F);
  Binner binner(Lattice(10.0F));
  std::uint64_t refused = 0;
  const BinnedChunk& chunk = binner.Bin(soundings, refused);
  ASSERT_EQ(chunk.runs.size(), 3U);
  EXPECT_EQ(chunk.runs[0].cell, (CellIndex{.row = 0, .column = 0}));
  EXPECT_THAT(DepthsOf(chunk, chunk.runs[0]), ElementsAre(2.0F, 4.0F));
  EXPECT_EQ(chunk.runs[1].cell, (CellIndex{.row = 0, .column = 2}));
  EXPECT_THAT(DepthsOf(chunk, chunk.runs[1]), ElementsAre(1.0F, 3.0F));
  EXPECT_EQ(chunk.runs[2].cell, (CellIndex{.row = 1, .column = 0}));
  EXPECT_THAT(DepthsOf(chunk, chunk.runs[2]), ElementsAre(5.0F));
  EXPECT_EQ(refused, 0U);
}

TEST(Binner, LeavesOutSoundingsWhoseUncertaintyIsWiderThanACell) {
  survey::Soundings soundings;
  Add(soundings, 1.0, 1.0, 1.0F, 4.0F);
  Add(soundings, 1.0, 1.0, 2.0F, 4.2F);
  Binner binner(Lattice(10.0F));
  std::uint64_t refused = 0;
  const BinnedChunk& chunk = binner.Bin(soundings, refused);
  ASSERT_EQ(chunk.soundings.size(), 1U);
  EXPECT_EQ(chunk.soundings[0].depth_m, 1.0F);
  EXPECT_EQ(refused, 1U);
}

TEST(Binner, CellsFarApartAreSortedLikeCellsCloseBy) {
  std::mt19937 random(20261121);
  std::uniform_real_distribution<double> wide(-4.0e6, 4.0e6);
  survey::Soundings soundings;
  const Lattice lattice(10.0F);
  std::map<CellIndex, std::vector<float>> expected;
  for (int i = 0; i < 2000; ++i) {
    const double easting_m = wide(random);
    const double northing_m = wide(random);
    for (int copy = 0; copy < 2; ++copy) {
      Add(soundings, easting_m, northing_m, static_cast<float>(2 * i + copy));
      expected[lattice.CellOf(easting_m, northing_m)].push_back(soundings.depth_m.back());
    }
  }
  Binner binner(lattice);
  std::uint64_t refused = 0;
  const BinnedChunk& chunk = binner.Bin(soundings, refused);
  ASSERT_EQ(chunk.runs.size(), expected.size());
  auto next = expected.begin();
  for (const BinnedChunk::Run& run : chunk.runs) {
    EXPECT_EQ(run.cell, next->first);
    EXPECT_EQ(DepthsOf(chunk, run), next->second);
    ++next;
  }
}

}  // namespace
}  // namespace quarro::core
