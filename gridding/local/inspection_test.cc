// Queries, statistics and traces.
#include <fstream>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "gridding/local/engine_test_support.h"

namespace quarro::testing {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

class Inspection : public ::testing::Test {
 protected:
  void SetUp() override {
    Attach(client_);
    Construct(client_, "g", 10.0F, 1.0F);
  }
  void AddStrip(unsigned seed = 1) {
    const std::string path = directory_ / (std::to_string(seed) + ".xyz");
    WriteStrip(path, {.west_m = 100, .south_m = 200, .seed = seed});
    Add(client_, path);
  }
  std::string TraceAt(double x, double y, bool on) {
    return Await<ResultDebug>(client_,
                              [&](const ResultCallback& done) { client_.DebugAt(x, y, on, done); })
        ->output_file;
  }
  std::string TraceIn(std::uint32_t column, std::uint32_t row, bool on) {
    return Await<ResultDebug>(
               client_,
               [&](const ResultCallback& done) { client_.DebugCell(column, row, on, done); })
        ->output_file;
  }
  static std::string Read(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
  }

  FreshDirectory directory_;
  SGDebugClient client_{ParametersFor(directory_.path())};
  EngineLog log_;
};

TEST_F(Inspection, TheBoundsAreThoseOfTheCornerNodesOfCellsWithData) {
  EXPECT_EQ(GridBounds(client_), SGBoundingBox());
  std::ofstream(directory_ / "a.xyz") << "12 38 20\n-27 41 20\n";
  Add(client_, directory_ / "a.xyz");
  EXPECT_EQ(GridBounds(client_), SGBoundingBox(-30, 40, 10, 40));
}

TEST_F(Inspection, TheStatusTellsWhatTheGridHolds) {
  EXPECT_THAT(Query(client_, 1), Contains("cells: none with data"));
  AddStrip();
  auto lines = Query(client_, 1);
  EXPECT_THAT(lines, Contains("name: g"));
  EXPECT_THAT(lines, Contains("resolution: 10 m, refined to no finer than 1 m"));
  EXPECT_THAT(lines, Contains("lines: 1"));
  EXPECT_THAT(lines, Contains("soundings: 19200"));
  EXPECT_THAT(lines, Contains("bounds: 100.000 200.000 220.000 240.000"));
  EXPECT_THAT(lines, Contains("cells: 65 with data in 5 rows of 13"));
  EXPECT_THAT(lines, Contains("refined: 0 cells into 0 nodes"));
  EXPECT_THAT(lines, Contains("changed since the last refinement: 65 cells"));
  Refine(client_);
  lines = Query(client_, 1);
  EXPECT_THAT(lines, Contains("changed since the last refinement: 0 cells"));
  EXPECT_THAT(lines, Not(Contains("refined: 0 cells into 0 nodes")));
}

TEST_F(Inspection, ThePoolListsWhatWaits) {
  EXPECT_THAT(Query(client_, 3), ElementsAre("no results wait"));
  Replies replies;
  client_.RequestDepth({99, 199, 121, 221}, 5, 0, replies.Expect());
  replies.Wait();
  EXPECT_THAT(Query(client_, 3), ElementsAre(HasSubstr(": depth result 5, ")));
}

TEST_F(Inspection, AnUnknownQueryFails) {
  EXPECT_THAT(ReasonOf([&] { Query(client_, 9); }), HasSubstr("no query of kind 9"));
}

TEST_F(Inspection, StatisticsTellTheLengthsOfTheQueues) {
  const auto idle = Await<ResultServStats>(
      client_, [&](const ResultCallback& done) { client_.RequestServerStatistics(done); });
  EXPECT_EQ(idle->threads, 2U);
  EXPECT_EQ(idle->run_queue_length, 0U);
  EXPECT_EQ(idle->priority_queue_length, 0U);
  EXPECT_EQ(idle->results_waiting, 0U);

  Replies replies;
  for (unsigned i = 0; i < 3; ++i) {
    const std::string path = directory_ / (std::to_string(i) + ".xyz");
    WriteStrip(path, {.seed = i});
    client_.AddLine(path, i, false, replies.Expect());
  }
  const auto busy = Await<ResultServStats>(
      client_, [&](const ResultCallback& done) { client_.RequestServerStatistics(done); });
  EXPECT_GE(busy->run_queue_length, 1U);
  EXPECT_LE(busy->run_queue_length, 3U);
  replies.Wait();
  const auto after = Await<ResultServStats>(
      client_, [&](const ResultCallback& done) { client_.RequestServerStatistics(done); });
  EXPECT_EQ(after->results_waiting, 3U) << "the lines' results, which nobody fetched";
}

TEST_F(Inspection, ATraceHoldsTheStepsOfItsCellAndOfTheNodeNearest) {
  const std::string path = TraceAt(123, 214, true);
  EXPECT_EQ(path, directory_ / "g.trace_12_21_1.txt");
  EXPECT_THAT(Query(client_, 2), ElementsAre(HasSubstr("at 123.000 214.000")));
  AddStrip();
  std::string text = Read(path);
  EXPECT_THAT(text, StartsWith("# trace at 123.000 214.000, cell column 12 row 21"));
  EXPECT_THAT(text, HasSubstr("# low resolution, with line \"" + (directory_ / "1.xyz") + "\"\n"));
  EXPECT_THAT(text, HasSubstr("hypothesis 1"));
  EXPECT_THAT(text, Not(HasSubstr("# refinement")));
  Refine(client_);
  text = Read(path);
  const std::size_t refinement = text.find("# refinement into ");
  ASSERT_NE(refinement, std::string::npos);
  EXPECT_THAT(text.substr(refinement), HasSubstr("hypothesis 1"));

  EXPECT_EQ(TraceAt(123, 214, false), path);
  EXPECT_THAT(Query(client_, 2), ElementsAre("no debug traces"));
  AddStrip(2);
  EXPECT_EQ(Read(path), text);
}

TEST_F(Inspection, TracingChangesNoResult) {
  AddStrip();
  Refine(client_);
  const std::string untraced = AllResults(client_);
  Construct(client_, "h", 10.0F, 1.0F);
  TraceAt(123, 214, true);
  TraceAt(122, 213, true);
  AddStrip();
  Refine(client_);
  EXPECT_EQ(AllResults(client_), untraced);
}

TEST_F(Inspection, ACellIsCountedFromTheSouthWestOfTheGrid) {
  EXPECT_THAT(ReasonOf([&] { TraceIn(0, 0, true); }), HasSubstr("no data yet"));
  AddStrip();
  EXPECT_EQ(TraceIn(2, 1, true), directory_ / "g.trace_12_21_1.txt");
  EXPECT_THAT(ReasonOf([&] { TraceIn(13, 0, true); }), HasSubstr("13 columns and 5 rows"));
  EXPECT_EQ(TraceIn(2, 1, false), directory_ / "g.trace_12_21_1.txt");
}

TEST_F(Inspection, StoppingWhatIsNotTracedFails) {
  EXPECT_THAT(ReasonOf([&] { TraceAt(1, 2, false); }), HasSubstr("no debug trace runs at 1.000"));
}

TEST_F(Inspection, AllTracesStopAtOnce) {
  TraceAt(1, 2, true);
  TraceAt(3, 4, true);
  Await<ResultDebug>(client_,
                     [&](const ResultCallback& done) { client_.DebugOffEverywhere(done); });
  EXPECT_THAT(Query(client_, 2), ElementsAre("no debug traces"));
}

TEST_F(Inspection, TheRemoteLogLevelIsThatOfTheEnginesChannel) {
  EXPECT_TRUE(client_.SetRemoteLogLevel(4));
  EXPECT_EQ(client_.Log().Filter(), 4);
  EXPECT_FALSE(client_.SetRemoteLogLevel(8));
  EXPECT_EQ(client_.Log().Filter(), 4);
}

}  // namespace
}  // namespace quarro::testing
