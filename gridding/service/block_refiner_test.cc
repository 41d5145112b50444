#include "gridding/service/block_refiner.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "gridding/core/encoding.h"
#include "gridding/core/refinement.h"
#include "gridding/local/engine_test_support.h"
#include "gridding/service/cell_blocks.h"

namespace quarro::service {
namespace {

constexpr core::CellIndex kCell{0, 0};

// A grid with one cell that has a hundred soundings, and a block of `bytes` of them.
std::unique_ptr<store::GridStore> GridWith(const testing::FreshDirectory& directory,
                                           const core::GridSettings& settings, std::size_t bytes) {
  std::vector<core::PackedSounding> soundings;
  for (int i = 0; i < 100; ++i) {
    soundings.push_back(
        core::Pack({0.09 * i - 4.5, 0.09 * (i * 37 % 100) - 4.5}, {0, 0}, 20.0F, 0.1F, 0.1F));
  }
  core::CellState state;
  core::AddSoundings(soundings, 1, settings, state);
  store::Bytes encoded;
  core::Encode(state, encoded);
  std::string set_aside_as;
  auto grid = store::GridStore::Create(directory.path(), "g", {10.0F, 1.0F}, set_aside_as);
  const auto line = grid->BeginLine();
  line->PutCell(kCell, encoded);
  line->AppendSoundings(kCell, std::as_bytes(std::span(soundings)).first(bytes), soundings.size());
  line->Commit({.name = "a.gsf", .account = ""});
  return grid;
}

std::vector<RefinedCell> Refine(std::size_t bytes) {
  const testing::FreshDirectory directory;
  core::GridSettings settings;
  settings.resolution_m = 10.0;
  settings.min_resolution_m = 1.0;
  const auto grid = GridWith(directory, settings, bytes);
  const auto snapshot = grid->TakeSnapshot();
  MemoryGate gate(std::uint64_t{1} << 20U);
  std::vector<RefinedCell> refined;
  BlockRefiner(*snapshot, settings, gate)
      .Refine(CellBlocks::BlockOf(kCell), ~std::uint64_t{0}, {}, refined);
  return refined;
}

TEST(BlockRefiner, RefinesTheCellsThatHaveData) {
  const auto refined = Refine(100 * sizeof(core::PackedSounding));
  ASSERT_EQ(refined.size(), 1U);
  EXPECT_EQ(refined[0].cell, kCell);
  EXPECT_EQ(refined[0].nodes, 16U);
}

TEST(BlockRefiner, SoundingsThatAreNoWholeNumberOfThemAreRefused) {
  for (const std::size_t bytes : {std::size_t{7}, std::size_t{20}}) {
    EXPECT_THROW(Refine(bytes), core::EncodingError);
  }
}

}  // namespace
}  // namespace quarro::service
