// Survey lines through the in-process engine.
#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "gridding/local/engine_test_support.h"

namespace quarro::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

class Lines : public ::testing::Test {
 protected:
  void SetUp() override {
    Attach(client_);
    Construct(client_, "g");
  }

  FreshDirectory directory_;
  SGDebugClient client_{ParametersFor(directory_.path())};
  EngineLog log_;
};

TEST_F(Lines, ALineTellsWhatBecameOfItsSoundings) {
  const std::size_t count = WriteStrip(directory_ / "a.xyz", {});
  const auto line = Add(client_, directory_ / "a.xyz", 17);
  EXPECT_EQ(line->line_id, 17U);
  EXPECT_EQ(line->failed, 0U);
  EXPECT_EQ(line->pings, count);
  EXPECT_EQ(line->soundings_per_ping, 1U);
  EXPECT_EQ(line->rejected_by_flag, 0U);
  EXPECT_EQ(line->offered, count);
  EXPECT_EQ(line->used, count);
  EXPECT_THAT(log_.Text(), HasSubstr("2 line 17 \"" + (directory_ / "a.xyz") + "\": read " +
                                     std::to_string(count) + " beams of " + std::to_string(count) +
                                     " pings: 0 flagged, 0 refused, " + std::to_string(count) +
                                     " offered, " + std::to_string(count) + " used"));
}

TEST_F(Lines, BeamsThatAreRefusedAreCountedWithTheirReason) {
  std::ofstream(directory_ / "a.xyz") << "5 5 20 0.1 0.1\n6 5 20 0.1 50\nnot a sounding\n7 5 20\n";
  const auto line = Add(client_, directory_ / "a.xyz");
  EXPECT_EQ(line->pings, 4U);
  EXPECT_EQ(line->offered, 2U);
  EXPECT_EQ(line->used, 2U);
  EXPECT_THAT(log_.Text(), HasSubstr("2 refused"));
}

TEST_F(Lines, ALineThatCannotBeReadFailsAndLeavesTheGridAsItWas) {
  WriteStrip(directory_ / "a.xyz", {});
  Add(client_, directory_ / "a.xyz");
  const std::string before = AllResults(client_);
  const auto line = Add(client_, directory_ / "missing.gsf", 4);
  EXPECT_NE(line->failed, 0U);
  EXPECT_EQ(line->line_id, 4U);
  EXPECT_THAT(log_.Text(), HasSubstr("4 line 4 \"" + (directory_ / "missing.gsf") + "\" failed: "));
  EXPECT_EQ(AllResults(client_), before);
}

TEST_F(Lines, AFileWithoutOnePingFails) {
  std::ofstream(directory_ / "a.gsf") << "no survey line at all";
  EXPECT_NE(Add(client_, directory_ / "a.gsf")->failed, 0U);
  EXPECT_EQ(GridBounds(client_), SGBoundingBox());
}

TEST_F(Lines, BytesThatTheGridHoldsAreRefusedNamingTheFirst) {
  WriteStrip(directory_ / "a.xyz", {});
  std::filesystem::copy_file(directory_ / "a.xyz", directory_ / "copy.xyz");
  Add(client_, directory_ / "a.xyz");
  EXPECT_NE(Add(client_, directory_ / "copy.xyz")->failed, 0U);
  EXPECT_THAT(log_.Text(), HasSubstr("\"" + (directory_ / "copy.xyz") +
                                     "\" failed: its bytes are those of line 1 (\"" +
                                     (directory_ / "a.xyz") + "\")"));
}

TEST_F(Lines, AllowedDuplicatesCountTwice) {
  MParams params = ParametersFor(directory_.path());
  params.Set("Engine", "AllowDuplicateLines", "true");
  SGDebugClient client(params);
  Attach(client);
  Construct(client, "twice");
  std::ofstream(directory_ / "a.xyz") << "5 5 20\n";
  Add(client, directory_ / "a.xyz");
  EXPECT_EQ(Add(client, directory_ / "a.xyz")->failed, 0U);
  const auto records = Resolution(client, {0, 0, 10, 10});
  EXPECT_EQ(records->grid.At(0, 0).soundings + records->grid.At(1, 1).soundings, 2U);
}

TEST_F(Lines, WithoutAGridALineIsRefusedAtOnce) {
  Drop(client_);
  EXPECT_THROW(client_.AddLine("a.xyz", 1, false, {}), ExSGCNoGrid);
}

TEST_F(Lines, ALineMayFollowAGridThatIsBeingMade) {
  Drop(client_);
  WriteStrip(directory_ / "a.xyz", {});
  Construct(client_, "first");
  Replies replies;
  client_.AddLine(directory_ / "a.xyz", 0, false, replies.Expect());
  client_.DropGrid(false, replies.Expect());
  client_.ConstructGrid("h", 10.0F, 1.0F, replies.Expect());
  EXPECT_EQ(Add(client_, directory_ / "a.xyz")->failed, 0U);
  replies.Wait();
}

TEST_F(Lines, ALineBehindADropIsRefusedAtOnce) {
  Replies replies;
  client_.DropGrid(false, replies.Expect());
  EXPECT_THROW(client_.AddLine("a.xyz", 1, false, {}), ExSGCNoGrid);
  replies.Wait();
}

TEST_F(Lines, ALineForAGridThatCouldNotBeOpenedFails) {
  WriteStrip(directory_ / "long.xyz", {});
  std::ofstream(directory_ / "a.xyz") << "5 5 20\n";
  Replies replies;
  client_.AddLine(directory_ / "long.xyz", 0, false, replies.Expect());
  client_.DropGrid(false, replies.Expect());
  client_.LoadGrid("none", replies.Expect());
  EXPECT_NE(Add(client_, directory_ / "a.xyz")->failed, 0U);
  replies.Wait();
  EXPECT_THAT(log_.Text(), HasSubstr("failed: no grid is open"));
}

TEST_F(Lines, ARendezvousSynchronisesAfterTheLine) {
  WriteStrip(directory_ / "a.xyz", {});
  Add(client_, directory_ / "a.xyz", 1, false);
  EXPECT_THAT(log_.Text(), Not(HasSubstr("is synchronised")));
  WriteStrip(directory_ / "b.xyz", {.seed = 2});
  Add(client_, directory_ / "b.xyz", 2, true);
  EXPECT_THAT(log_.Text(), HasSubstr("is synchronised"));
}

TEST_F(Lines, TheZoneComesFromTheFirstGeographicLineAndStays) {
  std::ofstream(directory_ / "a.llz") << "-64.59 17.84 15\n-64.591 17.84 15\n";
  std::ofstream(directory_ / "b.llz") << "-59.9 17.84 15\n";  // in the zone to the east
  Add(client_, directory_ / "a.llz");
  EXPECT_THAT(Query(client_, 1), ::testing::Contains("projection: set projection utm 20"));
  Add(client_, directory_ / "b.llz");
  EXPECT_THAT(Query(client_, 1), ::testing::Contains("projection: set projection utm 20"));
  Drop(client_);
  Load(client_, "g");
  EXPECT_THAT(Query(client_, 1), ::testing::Contains("projection: set projection utm 20"));
}

// Of the first line every sounding is too uncertain, which is known when the second is read
// already.
TEST_F(Lines, ALineReadAheadForAZoneThatIsNotSettledIsPlacedInItsOwn) {
  std::ofstream(directory_ / "a.llz") << "-64.59 17.84 15 0.1 500\n";
  std::ofstream(directory_ / "b.llz") << "-70.5 42.0 15 0.1 0.1\n";
  Replies replies;
  client_.AddLine(directory_ / "a.llz", 1, false, replies.Expect());
  client_.AddLine(directory_ / "b.llz", 2, false, replies.Expect());
  Synch(client_);
  const auto status = Query(client_, 1);
  EXPECT_THAT(status, ::testing::Contains("projection: set projection utm 19"));
  EXPECT_THAT(status, ::testing::Contains("soundings: 1"));
}

TEST_F(Lines, AZoneOfTheParametersIsTakenForTheFirstLine) {
  MParams params = ParametersFor(directory_.path());
  params.Set("Projection", "UTMZone", "21");
  SGDebugClient client(params);
  Attach(client);
  Construct(client, "zoned");
  std::ofstream(directory_ / "a.llz") << "-64.59 17.84 15\n";
  Add(client, directory_ / "a.llz");
  EXPECT_THAT(Query(client, 1), ::testing::Contains("projection: set projection utm 21"));
}

TEST_F(Lines, ARealLineOfDeepWaterIsGridded) {
  const std::string path = QUARRO_SOURCE_DIR "/../shared/data/deep_30khz.gsf";
  if (!std::filesystem::exists(path)) GTEST_SKIP() << path << " is absent";
  Construct(client_, "deep", 200.0F, 50.0F);
  const auto line = Add(client_, path);
  EXPECT_EQ(line->failed, 0U);
  EXPECT_EQ(line->pings, 50U);
  EXPECT_EQ(line->soundings_per_ping, 432U);
  EXPECT_EQ(line->rejected_by_flag, 641U);
  EXPECT_EQ(line->offered, 21600U - 641U);
  EXPECT_EQ(line->used, 21600U - 641U);
  EXPECT_THAT(Query(client_, 1), ::testing::Contains("projection: set projection utm 20"));
  Refine(client_);
  const auto depth = Depth(client_, GridBounds(client_));
  for (std::uint32_t row = 0; row < depth->grid.rows; ++row) {
    for (std::uint32_t column = 0; column < depth->grid.columns; ++column) {
      const float depth_m = depth->grid.At(row, column).estimate.depth_m;
      if (depth_m == kNoDepth) continue;
      EXPECT_GT(depth_m, 1100.0F);
      EXPECT_LT(depth_m, 2400.0F);
    }
  }
}

}  // namespace
}  // namespace quarro::testing
