// Text files, character by character.
#include "output/text_writers.h"

#include <filesystem>
#include <iomanip>
#include <limits>
#include <locale>
#include <sstream>
#include <vector>

#include <gtest/gtest.h>

#include "output/file_size_limit.h"
#include "support/test_directory.h"

namespace quarro {
namespace {

constexpr NodalDepth kEstimate = {.depth_m = 1234.5678F,
                                  .variance_m2 = 0.25F,
                                  .hypothesis_count = 2,
                                  .hypothesis_strength = 1.0F / 3.0F};
const SGBoundingBox kBounds(100.0, 200.0, 300.5, 400.0);

class TextFiles : public testing::Test {
 protected:
  std::string Path() const { return directory_.Path("result.txt"); }
  std::string Written() const { return ReadWholeFile(Path()); }

  std::string WriteDepth(std::uint32_t rows, std::uint32_t columns,
                         const std::vector<DepthCell>& cells) const {
    WriteDepthText({rows, columns, cells.data(), nullptr}, kBounds, Path());
    return Written();
  }

 private:
  TestDirectory directory_;
};

// Decimal commas and grouped digits, as a program may be given by its surroundings.
class CommaLocale {
 public:
  CommaLocale() : before_(std::locale::global(std::locale(std::locale::classic(), new Commas))) {}
  CommaLocale(const CommaLocale&) = delete;
  CommaLocale& operator=(const CommaLocale&) = delete;
  ~CommaLocale() { std::locale::global(before_); }

 private:
  class Commas : public std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
  };

  std::locale before_;
};

TEST_F(TextFiles, ADepthGridWithoutDataHasTwoHeaderLines) {
  EXPECT_EQ(WriteDepth(2, 3, std::vector<DepthCell>(6)),
            "2 3 100.000 200.000 300.500 400.000\n"
            "2 3 100.000 200.000 300.500 400.000\n");
}

TEST_F(TextFiles, DepthCellsWithDataAreListedByRowAndColumn) {
  std::vector<DepthCell> cells(4);
  cells[1].estimate = kEstimate;
  cells[2].estimate = {.depth_m = std::numeric_limits<float>::quiet_NaN()};
  EXPECT_EQ(WriteDepth(2, 2, cells),
            "2 2 100.000 200.000 300.500 400.000\n"
            "2 2 100.000 200.000 300.500 400.000\n"
            "0 1 1234.568 0.25 2 0.3333333\n"
            "1 0 nan 0 0 0\n");
}

TEST_F(TextFiles, ARefinementListsItsNodesAndSkipsTheEmptyOne) {
  std::vector<RefinedNode> nodes(6);
  for (std::size_t i = 0; i < nodes.size(); ++i) {
    nodes[i].estimate = {.depth_m = 10.0F + static_cast<float>(i), .variance_m2 = 1e-5F};
  }
  nodes[4].estimate.depth_m = kNoDepth;
  const RefinementBlock block = {.nodes_a = 3, .nodes_b = 2, .nodes = nodes.data()};
  const DepthCell cell = {.resolution_m = 0.5F, .estimate = kEstimate, .refinement = &block};
  EXPECT_EQ(WriteDepth(1, 1, {cell}),
            "1 1 100.000 200.000 300.500 400.000\n"
            "1 1 100.000 200.000 300.500 400.000\n"
            "0 0 1234.568 0.25 2 0.3333333\n"
            "0 0 0.5 2 3 5 0\n"
            "0 0 10 1e-05 0 0\n"
            "0 1 11 1e-05 0 0\n"
            "0 2 12 1e-05 0 0\n"
            "1 0 13 1e-05 0 0\n"
            "1 2 15 1e-05 0 0\n");
}

TEST_F(TextFiles, AResolutionWithoutARefinementIsListedWithZeros) {
  const DepthCell cell = {.resolution_m = 1.0F / 3.0F, .estimate = kEstimate};
  EXPECT_EQ(WriteDepth(1, 1, {cell}),
            "1 1 100.000 200.000 300.500 400.000\n"
            "1 1 100.000 200.000 300.500 400.000\n"
            "0 0 1234.568 0.25 2 0.3333333\n"
            "0 0 0.3333333 0 0 0 0\n");
}

TEST_F(TextFiles, ACellWithoutDepthHidesItsRefinement) {
  const RefinementBlock block;
  const DepthCell cell = {.resolution_m = 1.0F, .estimate = {}, .refinement = &block};
  EXPECT_EQ(WriteDepth(1, 1, {cell}),
            "1 1 100.000 200.000 300.500 400.000\n"
            "1 1 100.000 200.000 300.500 400.000\n");
}

TEST_F(TextFiles, AnEmptyHypothesisListHasOneHeaderLine) {
  WriteHypothesesText(ResultHypos(), kBounds, Path());
  EXPECT_EQ(Written(), "0 100.000 200.000 300.500 400.000\n");
}

TEST_F(TextFiles, HypothesesStandOnOneLineANode) {
  const std::vector<Hypothesis> hypotheses = {{1234.5678F, 0.25F, 100}, {1230.0F, 1.5F, 7}};
  const std::vector<NodalHypos> nodes = {{.easting_m = 4712345.0625,
                                          .northing_m = -0.5,
                                          .hypothesis_strength = 1.25F,
                                          .count = 2,
                                          .hypotheses = hypotheses.data()},
                                         {.easting_m = 1.0,
                                          .northing_m = 2.0,
                                          .resolution_m = 0.5F,
                                          .count = 1,
                                          .hypotheses = &hypotheses[1]}};
  ResultHypos result;
  result.count = nodes.size();
  result.nodes = nodes.data();
  WriteHypothesesText(result, kBounds, Path());
  EXPECT_EQ(Written(),
            "2 100.000 200.000 300.500 400.000\n"
            "4712345.062 -0.500 -1 1.25 2 1234.568 0.25 100 1230 1.5 7\n"
            "1.000 2.000 0.5 0 1 1230 1.5 7\n");
}

ResolutionRecord DistinctRecord() {
  ResolutionRecord record;
  record.soundings = 1000;
  record.node_spacing_m = 1.2345678;
  record.mean_depth_m = 2.2345678;
  record.depth_deviation_m = 3.2345678;
  record.shallowest_m = 4.2345678;
  record.deepest_m = 5.2345678;
  record.mean_vertical_sigma_m = 6.2345678;
  record.mean_horizontal_sigma_m = 7.2345678;
  record.density_per_m2 = 8.2345678;
  record.covered_fraction = 9.2345678;
  record.occupancy = 18446744073709551615U;
  record.covered_area_m2 = 11.2345678;
  record.depth_m = 12.25F;
  record.uncertainty_m = 13.25F;
  record.hypothesis_strength = 14.25F;
  record.easting_m = 4712345.678;
  record.northing_m = 16.2345678;
  return record;
}

TEST_F(TextFiles, ResolutionRecordsAreReorderedAndGetSevenDigitsFromTheFirstPositionOn) {
  const std::vector<ResolutionRecord> cells(2, DistinctRecord());
  WriteResolutionText({1, 2, cells.data(), nullptr}, kBounds, Path());
  EXPECT_EQ(Written(),
            "1 2 100.000 200.000 300.500 400.000\n"
            "0 0 1000 1.23457 2.23457 3.23457 4.23457 5.23457 11.2346 12.25 13.25 14.25 4712346 "
            "16.23457 18446744073709551615 6.234568 8.234568 7.234568 9.234568\n"
            "0 1 1000 1.234568 2.234568 3.234568 4.234568 5.234568 11.23457 12.25 13.25 14.25 "
            "4712346 16.23457 18446744073709551615 6.234568 8.234568 7.234568 9.234568\n");
}

TEST_F(TextFiles, AResolutionCellWithoutDataHasZerosAfterItsCount) {
  std::vector<ResolutionRecord> cells(2);
  cells[0].soundings = 3;
  cells[1] = DistinctRecord();
  WriteResolutionText({2, 1, cells.data(), nullptr}, kBounds, Path());
  EXPECT_EQ(Written(),
            "2 1 100.000 200.000 300.500 400.000\n"
            "0 0 3 0.0 0.0 0.0 0.0 0.0 0.0 0.0 0.0 0.0 0.0 0.0 0 0.0 0.0 0.0 0.0\n"
            "1 0 1000 1.23457 2.23457 3.23457 4.23457 5.23457 11.2346 12.25 13.25 14.25 4712346 "
            "16.23457 18446744073709551615 6.234568 8.234568 7.234568 9.234568\n");
}

TEST_F(TextFiles, AnExistingFileIsReplaced) {
  std::vector<DepthCell> cells(1);
  cells[0].estimate = kEstimate;
  WriteDepth(1, 1, cells);
  EXPECT_EQ(WriteDepth(0, 0, {}),
            "0 0 100.000 200.000 300.500 400.000\n"
            "0 0 100.000 200.000 300.500 400.000\n");
}

TEST_F(TextFiles, APathThatCannotBeOpenedGivesNoFileAndNoError) {
  const std::string path = Path() + "/inside";
  EXPECT_NO_THROW(WriteDepthText({}, kBounds, path));
  EXPECT_NO_THROW(WriteHypothesesText(ResultHypos(), kBounds, path));
  EXPECT_NO_THROW(WriteResolutionText({}, kBounds, path));
  EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(TextFiles, AFileThatCannotBeWrittenWholeIsToldWithItsCauseAndRenamed) {
  const std::vector<DepthCell> cells(200 * 200, DepthCell{.estimate = kEstimate});
  testing::internal::CaptureStderr();
  {
    const FileSizeLimit limit(100'000);
    WriteDepthText({200, 200, cells.data(), nullptr}, kBounds, Path());
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "writing \"" + Path() + "\" failed: File too large; what was written stands as \"" +
                Path() + ".incomplete\".\n");
  EXPECT_FALSE(std::filesystem::exists(Path()));
  EXPECT_EQ(std::filesystem::file_size(Path() + ".incomplete"), 100'000U);
}

TEST_F(TextFiles, ADeviceThatTakesNothingIsToldAndKeepsItsName) {
  testing::internal::CaptureStderr();
  WriteDepthText({}, kBounds, "/dev/full");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "writing \"/dev/full\" failed: No space left on device.\n");
  EXPECT_TRUE(std::filesystem::is_character_file("/dev/full"));
}

TEST_F(TextFiles, LargeGridsArriveWhole) {
  constexpr std::uint32_t kSide = 400;
  std::vector<DepthCell> cells(kSide * kSide);
  for (DepthCell& cell : cells) {
    cell.estimate = kEstimate;
  }
  std::istringstream written(WriteDepth(kSide, kSide, cells));
  std::string line;
  std::getline(written, line);
  std::getline(written, line);
  for (std::uint32_t row = 0; row < kSide; ++row) {
    for (std::uint32_t column = 0; column < kSide; ++column) {
      ASSERT_TRUE(std::getline(written, line));
      ASSERT_EQ(line,
                std::to_string(row) + " " + std::to_string(column) + " 1234.568 0.25 2 0.3333333");
    }
  }
  EXPECT_FALSE(std::getline(written, line));
}

TEST_F(TextFiles, AreTheSameUnderACommaLocale) {
  const std::vector<ResolutionRecord> cells(1, DistinctRecord());
  WriteResolutionText({1, 1, cells.data(), nullptr}, kBounds, Path());
  const std::string expected = Written();
  const CommaLocale commas;
  WriteResolutionText({1, 1, cells.data(), nullptr}, kBounds, Path());
  EXPECT_EQ(Written(), expected);
  std::ostringstream text;
  text << kEstimate;
  EXPECT_EQ(text.str(), "1234.568 0.25 2 0.3333333");
}

TEST(TextRecords, HaveOneFormWhateverTheStreamsSettings) {
  const Hypothesis hypothesis = {1234.5678F, 0.25F, 100};
  const NodalHypos node = {
      .easting_m = 1.5, .northing_m = 2.0, .count = 1, .hypotheses = &hypothesis};
  std::ostringstream text;
  text << std::fixed << std::setprecision(2) << std::setfill('*') << std::showpos << std::hex;
  text << kEstimate << '\n' << node;
  EXPECT_EQ(text.str(), "1234.568 0.25 2 0.3333333\n1.500 2.000 -1 0 1 1234.568 0.25 100\n");
  text << 1.0;
  EXPECT_EQ(text.str().substr(text.str().size() - 5), "+1.00");
}

}  // namespace
}  // namespace quarro
