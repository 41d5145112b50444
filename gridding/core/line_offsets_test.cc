#include "gridding/core/line_offsets.h"

#include <random>

#include <gtest/gtest.h>

namespace quarro::core {
namespace {

constexpr float kSigma_m = 0.15F;

// Two or more lines that sound the same places, each with its own offset and two soundings a place.
class Cell {
 public:
  explicit Cell(std::vector<double> offsets_m) : offsets_m_(std::move(offsets_m)) {}

  std::vector<NodeSounding> Place(int soundings_a_line = 2) {
    std::vector<NodeSounding> soundings;
    for (std::size_t line = 0; line < offsets_m_.size(); ++line) {
      for (int i = 0; i < soundings_a_line; ++i) {
        soundings.push_back(
            {.depth_m = static_cast<float>(20.0 + offsets_m_[line] + noise_(random_)),
             .sigma_v_m = kSigma_m,
             .sigma_h_m = 0.1F,
             .line = static_cast<std::uint32_t>(line + 1)});
      }
    }
    return soundings;
  }

  LineOffsets Offsets(int places) {
    LineOffsets offsets{EstimatorSettings{}};
    for (int i = 0; i < places; ++i) offsets.AddBlock(Place(), {});
    offsets.Conclude();
    return offsets;
  }

 private:
  std::vector<double> offsets_m_;
  std::mt19937 random_{1};
  std::normal_distribution<double> noise_{0.0, kSigma_m};
};

std::vector<std::vector<std::uint32_t>> LinesOf(
    std::span<const std::span<const NodeSounding>> parts) {
  std::vector<std::vector<std::uint32_t>> lines;
  for (const auto& part : parts) {
    lines.emplace_back();
    for (const NodeSounding& sounding : part) lines.back().push_back(sounding.line);
  }
  return lines;
}

using Lines = std::vector<std::vector<std::uint32_t>>;

TEST(LineOffsets, LinesThatDisagreeByTwoStandardDeviationsAreParted) {
  Cell cell({0.0, 0.3});
  LineOffsets offsets = cell.Offsets(200);
  EXPECT_EQ(LinesOf(offsets.Parts(cell.Place())), (Lines{{1, 1}, {2, 2}}));
}

TEST(LineOffsets, LinesThatAgreeAreNotParted) {
  Cell cell({0.0, 0.0});
  LineOffsets offsets = cell.Offsets(200);
  EXPECT_EQ(LinesOf(offsets.Parts(cell.Place())), (Lines{{1, 1, 2, 2}}));
}

TEST(LineOffsets, AFewPlacesTellNothing) {
  Cell cell({0.0, 3.0});
  LineOffsets offsets = cell.Offsets(10);
  EXPECT_EQ(LinesOf(offsets.Parts(cell.Place())), (Lines{{1, 1, 2, 2}}));
}

TEST(LineOffsets, LinesThatAgreeWithOneAnotherStayTogether) {
  Cell cell({0.0, 0.4, 0.0});
  LineOffsets offsets = cell.Offsets(200);
  EXPECT_EQ(LinesOf(offsets.Parts(cell.Place())), (Lines{{1, 1, 3, 3}, {2, 2}}));
}

TEST(LineOffsets, AnOffsetFarUnderTheUncertaintyOfTheNodePartsNothing) {
  // Real over thousands of places, but a node's own mean is known to 0.15 m / sqrt(2) only.
  Cell cell({0.0, 0.04});
  LineOffsets offsets = cell.Offsets(20000);
  EXPECT_EQ(LinesOf(offsets.Parts(cell.Place())), (Lines{{1, 1, 2, 2}}));
  // Where a node has hundreds of each, the same offset matters.
  EXPECT_EQ(offsets.Parts(cell.Place(300)).size(), 2U);
}

TEST(LineOffsets, ANodeOfOneLineIsOnePart) {
  Cell cell({0.0, 0.3});
  LineOffsets offsets = cell.Offsets(200);
  const auto both = cell.Place();
  EXPECT_EQ(LinesOf(offsets.Parts(std::span(both).first(2))), (Lines{{1, 1}}));
  EXPECT_EQ(LinesOf(offsets.Parts({})), (Lines{{}}));
}

TEST(LineOffsets, TheTrendIsTakenOut) {
  // The second line sounds the eastern part of every place, on a floor that deepens to the east.
  Cell cell({0.0, 0.3});
  LineOffsets offsets{EstimatorSettings{}};
  for (int i = 0; i < 200; ++i) {
    auto place = cell.Place();
    for (NodeSounding& sounding : place) {
      if (sounding.line == 2) sounding.east_m = 0.3F;
    }
    offsets.AddBlock(place, {.east = 1.0, .north = 0.0});
  }
  offsets.Conclude();
  EXPECT_EQ(offsets.Parts(cell.Place()).size(), 1U);
}

TEST(LineOffsets, ClearingForgetsTheLastCell) {
  Cell cell({0.0, 0.3});
  LineOffsets offsets = cell.Offsets(200);
  offsets.Clear();
  offsets.Conclude();
  EXPECT_EQ(offsets.Parts(cell.Place()).size(), 1U);
}

}  // namespace
}  // namespace quarro::core
